// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"
#include "table/record.h"

#include <QList>

class Index;

/// Passes the notifications of one index on to others that depend on it instead of on a table.
///
/// The index that it serves holds one and calls the function here that is named like the
/// notification it was told; each dependent is then told the same, unchanged, in the order in which
/// they were added. Nothing is asked of a dependent first: add() reaches it whatever its filter()
/// says.
///
/// Ownership: owns neither the index nor the dependents. A dependent must be removed before it
/// dies; that, like adding, may be done from inside a notification: one that is removed is not told
/// any more, one that is added is told from the next notification on. The object itself must
/// outlive the call. Threads: as Index. Errors: what a dependent throws is thrown on (the first of
/// several), after all others have been told; only preprocess() stops at once, as the transaction
/// does not happen then.
///
///     class Relay : public IndexList {
///         void add(const Record& r) override { IndexList::add(r); depends.add(r); }
///         ...
///         IndexDependBase depends{this};
///     };
class LIVETABLE_EXPORT IndexDependBase
{
public:
    /// Passes on the notifications of `index`, which may be null.
    explicit IndexDependBase(Index* index = nullptr);
    ~IndexDependBase();

    /// The index whose notifications are passed on.
    Index* index() const { return source; }

    /// Appends. The same index added twice is told twice.
    void addDependentIndex(Index* index);
    /// Removes the first occurrence; nothing when there is none.
    void removeDependentIndex(Index* index);
    /// In the order in which they are told.
    QList<Index*> dependentIndexes() const;
    /// What Index::verify says of the first dependent that is not whole; empty when all are.
    QString verify() const;

    /// Each tells every dependent what its namesake in Index was told.
    void clear();
    void build();
    void add(const Record& record);
    void remove(const Record& record, int position);
    void update(const Record& record, int firstColumn, int lastColumn, int position);
    void preprocess(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                    int lastColumn, const QList<Record>& inserted, const QList<Record>& changes);
    void process(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                 int lastColumn, const QList<Record>& inserted);

private:
    Q_DISABLE_COPY(IndexDependBase)
    template <typename Notify>
    void tellAll(Notify notify);

    Index* source;
    QList<Index*> dependents;
};
