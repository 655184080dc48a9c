// SPDX-License-Identifier: MIT
#pragma once

#include "session.h"

#include "index/sortedview.h"
#include "index/watchindex.h"
#include "table/recordstrans.h"
#include "table/table.h"

#include <QVector>

#include <memory>

/// The tables of the board and the views that are live on them.
///
/// Every quote is one transaction. Nothing is sorted, filtered or searched for after that: the
/// views have followed by the time apply() returns.
class Board
{
public:
    /// Columns of the options table. Those that change most and sort nothing come first, so that a
    /// change of sizes alone touches no column that a view by price reads.
    enum OptionColumn
    {
        Expiry,
        Right,
        Strike,
        Time,
        BidSize,
        AskSize,
        Bid,
        Spread,
        Ask
    };
    enum FutureColumn
    {
        Contract,
        FutureTime,
        FutureBid,
        FutureBidSize,
        FutureAsk,
        FutureAskSize
    };
    enum TapeColumn
    {
        Sequence,
        TapeTime,
        TapeExpiry,
        TapeRight,
        TapeStrike,
        TapeBid,
        TapeBidSize,
        TapeAsk,
        TapeAskSize
    };
    enum InstrumentColumn
    {
        Market,
        Symbol,
        Type,
        Description,
        Currency,
        Multiplier,
        Tick,
        LotSize
    };

    /// The tape holds that many of the latest quotes.
    static constexpr int TapeLimit = 10'000;

    Board();
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    void load(const QVector<Instrument>& directory);
    void apply(const OptionQuote& quote);
    void apply(const FutureQuote& quote);

    /// What the watch list has seen on the options table since the last call.
    struct Changes
    {
        int added = 0;
        int removed = 0;
        int updates = 0;   ///< every update counts, a contract may have several
        int contracts = 0; ///< different contracts that were added or updated
    };
    Changes takeChanges();

    /// One of the live views of the options table.
    enum ViewId
    {
        ByBid,
        BySpread,
        ByContract,
        TwoSided
    };
    struct View
    {
        ViewId id;
        QString name;
        const SortedView* index;
    };
    QVector<View> views() const;

    /// The option's row; a null record for one that was never quoted.
    Record option(int expiry, char right, decimal strike) const;

    /// All tables, to save and load them.
    QVector<Table*> tables() const
    {
        return {instrumentTable.get(), futureTable.get(), optionTable.get(), tapeTable.get()};
    }
    const Table& options() const { return *optionTable; }
    const Table& futures() const { return *futureTable; }
    const Table& instruments() const { return *instrumentTable; }
    const Table& tape() const { return *tapeTable; }
    const SortedLimit& tapeView() const { return newest; }

private:
    void writeOnTape(const OptionQuote& quote);

    const std::unique_ptr<Table> instrumentTable;
    const std::unique_ptr<Table> futureTable;
    const std::unique_ptr<Table> optionTable;
    const std::unique_ptr<Table> tapeTable;

    SortedView byBid;
    SortedView bySpread;
    SortedView byContract;
    SortedView twoSided;
    WatchIndex watch;
    SortedLimit newest;

    // Used again for every quote.
    RecordsTrans optionChanges;
    RecordsTrans futureChanges;
    RecordsTrans tapeChanges;
    mutable Record optionKey; ///< a row outside the table, to search with
    Record futureKey;
    qint64 sequence = 0;
};
