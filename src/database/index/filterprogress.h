// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"
#include "table/record.h"

/// What a long operation over a whole table asks its caller: which records to take, and that it
/// hears how far the work is. Both are called on the thread that does the work; what they throw
/// ends the operation as its header tells.
///
///     struct Recent : FilterProgress {
///         bool operator()(int done, int total) override { return show(done, total); }
///         bool filter(const Record& r) const override { return r.data(day).toInteger() > 100; }
///     };
class LIVETABLE_EXPORT FilterProgress
{
public:
    FilterProgress();
    virtual ~FilterProgress();

    /// Before each record: `done` of `total` have been dealt with. The result is not looked at:
    /// this does not cancel.
    virtual bool operator()(int done, int total) = 0;
    /// Whether the record is to be taken.
    virtual bool filter(const Record& record) const = 0;

private:
    Q_DISABLE_COPY(FilterProgress)
};

/// Takes every record and shows nothing.
class LIVETABLE_EXPORT FilterProgressTrue : public FilterProgress
{
public:
    FilterProgressTrue();
    ~FilterProgressTrue() override;

    bool operator()(int done, int total) override;
    bool filter(const Record& record) const override;
};
