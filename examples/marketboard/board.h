// SPDX-License-Identifier: MIT
#pragma once

#include "distanceview.h"
#include "session.h"
#include "volatility.h"

#include "index/sortedview.h"
#include "index/watchindex.h"
#include "join/tablejoin.h"
#include "table/recordstrans.h"
#include "table/table.h"

#include <QVector>

#include <memory>
#include <optional>

/// Collects changes of quotes only: a volatility that follows the future is no news of its option.
class QuoteWatch : public WatchIndex
{
public:
    using WatchIndex::WatchIndex;
    void update(const Record& record, int firstColumn, int lastColumn, int position) override;
};

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
        Ask,
        Volatility, ///< this and the next are NULL without keepVolatilities(), see Greeks
        Delta,
        Gamma,
        Vega,
        Theta,
        Contract,      ///< of the future that it is priced from: the key of the options table
        UnderlyingBid, ///< this and the next two are joined: the future's bid and ask,
        UnderlyingAsk, ///< and what the contract directory says of it
        UnderlyingText
    };
    enum FutureColumn
    {
        FutureContract,
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

    /// `underlying` is the key text of the options' underlying in the directory.
    void load(const QVector<Instrument>& directory, const QString& underlying);
    /// The same for a board whose tables were loaded from files: quotes go on behind what they
    /// hold.
    void resume(const QString& underlying);
    void apply(const OptionQuote& quote);
    void apply(const FutureQuote& quote);

    /// From now on every two-sided option is priced from its future when its quote is applied, in
    /// the same transaction, and a view by volatility is kept. An option that has no volatility
    /// (see greeksOf) has NULL cells. To be called before the first quote.
    void keepVolatilities();

    /// The middle between bid and ask of the future that the options of an expiry are on: the one
    /// of the expiry's month, or the nearest future of all where nobody quotes that month. 0 when
    /// a side is missing.
    double futureMid(int expiry) const;

    /// What the price of an option depends on, for its row with both sides quoted.
    OptionInput pricingInput(const Record& row, double future, int timeMs) const;

    /// Greeks that were computed elsewhere for a row of the options table.
    struct Repriced
    {
        Record row;
        std::optional<Greeks> greeks;
    };
    /// Writes them all in one transaction.
    void apply(const QVector<Repriced>& rows);

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
        TwoSided,
        ByDistance,  ///< of the strike from the middle of its future
        ByVolatility ///< only after keepVolatilities()
    };
    struct View
    {
        ViewId id;
        QString name;
        const IndexSort* index;
    };
    QVector<View> views() const;

    /// The option's row; a null record for one that was never quoted.
    Record option(int expiry, char right, decimal strike) const;

    /// All tables, to save and load them.
    QVector<Table*> tables() const
    {
        return {instrumentTable.get(), underlyingTable.get(), futureTable.get(), optionTable.get(),
                tapeTable.get()};
    }
    Table& options() { return *optionTable; }
    const Table& options() const { return *optionTable; }
    const Table& futures() const { return *futureTable; }
    const Table& instruments() const { return *instrumentTable; }
    /// The directory's key of each future that is quoted.
    const Table& underlyings() const { return *underlyingTable; }
    Table& tape() { return *tapeTable; }
    const Table& tape() const { return *tapeTable; }
    const SortedLimit& tapeView() const { return newest; }

private:
    std::optional<Greeks> price(const OptionQuote& quote) const;
    void writeOnTape(const OptionQuote& quote);
    Record futureOf(int expiry) const;
    int contractOf(int expiry) const;
    void addUnderlying(int contract);

    const std::unique_ptr<Table> instrumentTable;
    const std::unique_ptr<Table> underlyingTable;
    const std::unique_ptr<Table> futureTable;
    const std::unique_ptr<Table> optionTable;
    const std::unique_ptr<Table> tapeTable;

    // The description goes from the directory by way of the futures' keys to the options.
    const LiveJoin describedUnderlyings;
    const LiveJoin underlyingsOfOptions;

    SortedView byBid;
    SortedView bySpread;
    SortedView byContract;
    SortedView twoSided;
    DistanceView byDistance;
    std::unique_ptr<SortedView> byVolatility; ///< null unless volatilities are kept
    QuoteWatch watch;
    SortedLimit newest;

    // Used again for every quote.
    RecordsTrans optionChanges;
    RecordsTrans futureChanges;
    RecordsTrans tapeChanges;
    mutable Record optionKey; ///< a row outside the table, to search with
    mutable Record futureKey;
    QStringList underlyingKey; ///< market, symbol and type
    qint64 sequence = 0;
};
