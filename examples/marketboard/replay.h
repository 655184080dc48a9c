// SPDX-License-Identifier: MIT
#pragma once

#include "csvreader.h"
#include "session.h"

/// A recorded day, read from a folder with the files es_options_20200106_quotes.csv.gz,
/// es_futures_20200106_quotes.csv.gz and instruments.csv.gz. The files are read as the session goes
/// on, so a fault in the middle of one shows when the replay gets there.
class Replay : public Session
{
public:
    /// Opens the three files. Throws InputError when one of them is missing or does not begin as it
    /// should.
    explicit Replay(const QString& folder);

    QString title() const override;
    QString underlying() const override;
    QVector<Instrument> instruments() override;
    Event next() override;
    double progress() const override;

private:
    bool nextOption();
    bool nextFuture();

    CsvReader options;
    CsvReader futures;
    CsvReader directory;
    /// One quote of each file is read ahead, so that the earlier one can be handed out.
    OptionQuote aheadOption;
    FutureQuote aheadFuture;
    bool hasOption;
    bool hasFuture;
};
