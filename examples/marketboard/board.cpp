// SPDX-License-Identifier: MIT
#include "board.h"

#include "index/masterindex.h"
#include "table/recordupdater.h"

#include <QSet>

#include <algorithm>

namespace {

constexpr int PriceDecimals = 2;

QStringList names(std::initializer_list<const char*> latin1)
{
    QStringList list;
    for (const char* name : latin1)
        list += QString::fromLatin1(name);
    return list;
}

void addCell(Table& table, const char* name, FieldType::Type type, int length = 0)
{
    table.addColumn(QString::fromLatin1(name), type, length);
}

void addKey(Table& table, const char* name, FieldType::Type type, int length = 0)
{
    constexpr bool nullable = false;
    table.addColumn(QString::fromLatin1(name), type, length, nullable);
}

/// The texts of a call and a put, made once.
QString rightText(char right)
{
    return right == 'C' ? QStringLiteral("C") : QStringLiteral("P");
}

/// `Row` is a Record or a RecordUpdater: what has cells to write.
template <typename Row>
void writePrice(Row& row, int column, const std::optional<decimal>& price)
{
    if (price)
        row.data(column) = *price;
    else
        row.data(column).setNull();
}

template <typename Row>
void writeSide(Row& row, int priceColumn, int sizeColumn, const Side& side)
{
    writePrice(row, priceColumn, side.price);
    row.data(sizeColumn) = side.size;
}

void writeKey(Record& row, const OptionQuote& quote)
{
    row.data(Board::Expiry) = quote.expiry;
    row.data(Board::Right) = rightText(quote.right);
    row.data(Board::Strike) = quote.strike;
}

template <typename Row>
void writeQuote(Row& row, const OptionQuote& quote)
{
    row.data(Board::Time) = quote.timeMs;
    writeSide(row, Board::Bid, Board::BidSize, quote.bid);
    writeSide(row, Board::Ask, Board::AskSize, quote.ask);
    std::optional<decimal> spread;
    if (quote.bid.price && quote.ask.price)
        spread = *quote.ask.price - *quote.bid.price;
    writePrice(row, Board::Spread, spread);
}

template <typename Row>
void writeQuote(Row& row, const FutureQuote& quote)
{
    row.data(Board::FutureTime) = quote.timeMs;
    writeSide(row, Board::FutureBid, Board::FutureBidSize, quote.bid);
    writeSide(row, Board::FutureAsk, Board::FutureAskSize, quote.ask);
}

template <typename Row>
void writeGreeks(Row& row, const std::optional<Greeks>& greeks)
{
    const auto write = [&](int column, double Greeks::*value) {
        if (greeks)
            row.data(column) = (*greeks).*value;
        else
            row.data(column).setNull();
    };
    write(Board::Volatility, &Greeks::volatility);
    write(Board::Delta, &Greeks::delta);
    write(Board::Gamma, &Greeks::gamma);
    write(Board::Vega, &Greeks::vega);
    write(Board::Theta, &Greeks::theta);
}

double middle(double bid, double ask)
{
    return (bid + ask) / 2;
}

std::unique_ptr<Table> makeOptionTable()
{
    auto table = std::make_unique<Table>(QStringLiteral("options"));
    addKey(*table, "expiry", FieldType::Integer);
    addKey(*table, "right", FieldType::VarChar, 1);
    addKey(*table, "strike", FieldType::Decimal, PriceDecimals);
    addCell(*table, "time", FieldType::Integer);
    addCell(*table, "bidSize", FieldType::Integer);
    addCell(*table, "askSize", FieldType::Integer);
    addCell(*table, "bid", FieldType::Decimal, PriceDecimals);
    addCell(*table, "spread", FieldType::Decimal, PriceDecimals);
    addCell(*table, "ask", FieldType::Decimal, PriceDecimals);
    for (const char* name : {"volatility", "delta", "gamma", "vega", "theta"})
        addCell(*table, name, FieldType::Double);
    // Options are found by contract through a view; the table's key is what they are joined by.
    addKey(*table, "contract", FieldType::Integer);
    table->setMasterIndex(new MasterIndex_Column_Pure(table.get(), QStringLiteral("contract")));
    return table;
}

std::unique_ptr<Table> makeFutureTable()
{
    auto table = std::make_unique<Table>(QStringLiteral("futures"));
    addKey(*table, "contract", FieldType::Integer);
    addCell(*table, "time", FieldType::Integer);
    addCell(*table, "bid", FieldType::Decimal, PriceDecimals);
    addCell(*table, "bidSize", FieldType::Integer);
    addCell(*table, "ask", FieldType::Decimal, PriceDecimals);
    addCell(*table, "askSize", FieldType::Integer);
    table->setMasterIndex(new MasterIndex_Column_Pure(table.get(), QStringLiteral("contract")));
    return table;
}

/// Without a key: rows stay in the order in which they came.
std::unique_ptr<Table> makeTapeTable()
{
    auto table = std::make_unique<Table>(QStringLiteral("tape"));
    addKey(*table, "sequence", FieldType::Integer64);
    addCell(*table, "time", FieldType::Integer);
    addCell(*table, "expiry", FieldType::Integer);
    addCell(*table, "right", FieldType::VarChar, 1);
    addCell(*table, "strike", FieldType::Decimal, PriceDecimals);
    addCell(*table, "bid", FieldType::Decimal, PriceDecimals);
    addCell(*table, "bidSize", FieldType::Integer);
    addCell(*table, "ask", FieldType::Decimal, PriceDecimals);
    addCell(*table, "askSize", FieldType::Integer);
    return table;
}

std::unique_ptr<Table> makeInstrumentTable()
{
    auto table = std::make_unique<Table>(QStringLiteral("instruments"));
    addKey(*table, "market", FieldType::VarChar, 16);
    addKey(*table, "symbol", FieldType::VarChar, 16);
    addKey(*table, "type", FieldType::VarChar, 16);
    addCell(*table, "description", FieldType::VarChar, 128);
    addCell(*table, "currency", FieldType::VarChar, 16);
    addCell(*table, "multiplier", FieldType::Decimal, PriceDecimals);
    addCell(*table, "tick", FieldType::Decimal, PriceDecimals);
    addCell(*table, "lotSize", FieldType::Decimal, PriceDecimals);
    table->setMasterIndex(
        new MasterIndex_Column_Pure(table.get(), names({"market", "symbol", "type"})));
    return table;
}

/// Which line of the directory a future is told by.
std::unique_ptr<Table> makeUnderlyingTable()
{
    auto table = std::make_unique<Table>(QStringLiteral("underlyings"));
    for (const char* name : {"market", "symbol", "type"})
        addKey(*table, name, FieldType::VarChar, 16);
    addKey(*table, "contract", FieldType::Integer);
    table->setMasterIndex(
        new MasterIndex_Column_Pure(table.get(), names({"market", "symbol", "type"})));
    return table;
}

} // namespace

void QuoteWatch::update(const Record& record, int firstColumn, int lastColumn, int position)
{
    if (firstColumn <= Board::Ask)
        WatchIndex::update(record, firstColumn, lastColumn, position);
}

Board::Board()
    : instrumentTable(makeInstrumentTable())
    , underlyingTable(makeUnderlyingTable())
    , futureTable(makeFutureTable())
    , optionTable(makeOptionTable())
    , tapeTable(makeTapeTable())
    , describedUnderlyings(underlyingTable.get(), instrumentTable.get(), names({"description"}))
    , underlyingsOfOptions(optionTable.get(), {futureTable.get(), underlyingTable.get()},
                           names({"bid", "ask", "description"}))
    , byBid(optionTable.get(), {{Bid, SortColumn::Descending, SortColumn::NullsLast}})
    , bySpread(
          optionTable.get(),
          {{Spread, SortColumn::Ascending, SortColumn::NullsLast}, {Expiry}, {Right}, {Strike}})
    , byContract(optionTable.get(), names({"expiry", "right", "strike"}))
    , twoSided(optionTable.get(), names({"expiry", "strike", "right"}))
    , byDistance(optionTable.get())
    , watch(optionTable.get())
    , newest(TapeLimit, tapeTable.get(), names({"sequence"}))
    , optionChanges(optionTable.get())
    , futureChanges(futureTable.get())
    , tapeChanges(tapeTable.get())
    , optionKey(optionTable.get())
    , futureKey(futureTable.get())
{
    twoSided.setFilter(
        [](const Record& row) { return !row.data(Bid).isNull() && !row.data(Ask).isNull(); },
        {Bid, Ask});
}

void Board::load(const QVector<Instrument>& directory, const QString& underlying)
{
    underlyingKey = underlying.split(QLatin1Char(','));
    QList<Record> rows;
    for (const Instrument& instrument : directory) {
        Record row(instrumentTable.get());
        row.data(Market) = instrument.market;
        row.data(Symbol) = instrument.symbol;
        row.data(Type) = instrument.type;
        row.data(Description) = instrument.description;
        row.data(Currency) = instrument.currency;
        row.data(Multiplier) = instrument.multiplier;
        row.data(Tick) = instrument.tick;
        row.data(LotSize) = instrument.lotSize;
        rows += row;
    }
    instrumentTable->beginUpdate();
    instrumentTable->appendList(rows);
    instrumentTable->endUpdate();
}

void Board::resume(const QString& underlying)
{
    underlyingKey = underlying.split(QLatin1Char(','));
    for (const Record& row : newest)
        sequence = std::max(sequence, row.data(Sequence).toInteger64());
}

void Board::apply(const OptionQuote& quote)
{
    optionTable->beginUpdate();
    const Record live = option(quote.expiry, quote.right, quote.strike);
    if (live.isNull()) {
        Record added(optionTable.get());
        writeKey(added, quote);
        added.data(Contract) = contractOf(quote.expiry);
        writeQuote(added, quote);
        if (byVolatility)
            writeGreeks(added, price(quote));
        optionChanges.insert(added);
    } else {
        RecordUpdater updater(optionChanges, live);
        writeQuote(updater, quote); // the columns that really change are handed over at its end
        if (byVolatility)
            writeGreeks(updater, price(quote));
    }
    optionChanges.execute();
    optionTable->endUpdate();
    writeOnTape(quote);
}

void Board::apply(const FutureQuote& quote)
{
    futureTable->beginUpdate();
    futureKey.data(FutureContract) = quote.contract;
    const Record live = futureTable->masterIndex()->find(futureKey);
    if (live.isNull()) {
        Record added(futureTable.get());
        added.data(FutureContract) = quote.contract;
        writeQuote(added, quote);
        futureChanges.insert(added);
    } else {
        RecordUpdater updater(futureChanges, live);
        writeQuote(updater, quote);
    }
    futureChanges.execute(); // the options of the future have its new prices by the end of it
    if (live.isNull())
        addUnderlying(quote.contract);
    futureTable->endUpdate();
}

// A future is quoted for the first time: options that had to do with another one, or with none, may
// be on it.
void Board::addUnderlying(int contract)
{
    if (underlyingKey.size() == 3) {
        Record added(underlyingTable.get());
        for (int i = 0; i < 3; ++i)
            added.data(i) = underlyingKey.at(i);
        added.data(3) = contract;
        underlyingTable->appendList({added});
    }
    for (int i = 0; i < optionTable->rowCount(); ++i) {
        const Record option = optionTable->at(i);
        RecordUpdater(optionChanges, option).data(Contract) =
            contractOf(option.data(Expiry).toInteger());
    }
    optionChanges.execute();
}

void Board::apply(const QVector<Repriced>& rows)
{
    optionTable->beginUpdate();
    for (const Repriced& repriced : rows) {
        RecordUpdater updater(optionChanges, repriced.row);
        writeGreeks(updater, repriced.greeks);
    }
    optionChanges.execute();
    optionTable->endUpdate();
}

void Board::keepVolatilities()
{
    byVolatility = std::make_unique<SortedView>(
        optionTable.get(),
        QVector<SortColumn>{{Volatility, SortColumn::Ascending, SortColumn::NullsLast},
                            {Expiry},
                            {Strike},
                            {Right}});
}

// The future of the expiry's month, or the nearest of all.
Record Board::futureOf(int expiry) const
{
    futureKey.data(FutureContract) = expiry / 100;
    const Record future = futureTable->masterIndex()->find(futureKey);
    return future.isNull() ? futureTable->at(0) : future;
}

int Board::contractOf(int expiry) const
{
    const Record future = futureOf(expiry);
    return future.isNull() ? expiry / 100 : future.data(FutureContract).toInteger();
}

double Board::futureMid(int expiry) const
{
    const Record future = futureOf(expiry);
    if (future.isNull() || future.data(FutureBid).isNull() || future.data(FutureAsk).isNull())
        return 0;
    return middle(future.data(FutureBid).toDouble(), future.data(FutureAsk).toDouble());
}

OptionInput Board::pricingInput(const Record& row, double future, int timeMs) const
{
    return {row.data(Strike).toDouble(), row.data(Right).toString() == rightText('P'),
            middle(row.data(Bid).toDouble(), row.data(Ask).toDouble()), future,
            secondsToExpiry(row.data(Expiry).toInteger(), timeMs)};
}

std::optional<Greeks> Board::price(const OptionQuote& quote) const
{
    if (!quote.bid.price || !quote.ask.price)
        return std::nullopt;
    return greeksOf({quote.strike.toDouble(), quote.right == 'P',
                     middle(quote.bid.price->toDouble(), quote.ask.price->toDouble()),
                     futureMid(quote.expiry), secondsToExpiry(quote.expiry, quote.timeMs)});
}

void Board::writeOnTape(const OptionQuote& quote)
{
    Record row(tapeTable.get());
    row.data(Sequence) = ++sequence;
    row.data(TapeTime) = quote.timeMs;
    row.data(TapeExpiry) = quote.expiry;
    row.data(TapeRight) = rightText(quote.right);
    row.data(TapeStrike) = quote.strike;
    writeSide(row, TapeBid, TapeBidSize, quote.bid);
    writeSide(row, TapeAsk, TapeAskSize, quote.ask);

    tapeTable->beginUpdate();
    tapeChanges.insert(row);
    tapeChanges.execute(); // the limit takes the oldest quote off in the same transaction
    tapeTable->endUpdate();
}

Board::Changes Board::takeChanges()
{
    Changes changes;
    changes.added = watch.added().size();
    changes.removed = watch.removed().size();
    changes.updates = watch.updated().size();
    QSet<Record> contracts;
    for (const Record& row : watch.added())
        contracts += row;
    for (const Record& row : watch.updated())
        contracts += row;
    changes.contracts = contracts.size();
    watch.clear();
    return changes;
}

QVector<Board::View> Board::views() const
{
    QVector<View> views{{ByBid, QStringLiteral("by bid"), &byBid},
                        {BySpread, QStringLiteral("by spread"), &bySpread},
                        {ByContract, QStringLiteral("by contract"), &byContract},
                        {TwoSided, QStringLiteral("two-sided"), &twoSided},
                        {ByDistance, QStringLiteral("by distance"), &byDistance}};
    if (byVolatility)
        views.append({ByVolatility, QStringLiteral("by volatility"), byVolatility.get()});
    return views;
}

Record Board::option(int expiry, char right, decimal strike) const
{
    optionKey.data(Expiry) = expiry;
    optionKey.data(Right) = rightText(right);
    optionKey.data(Strike) = strike;
    return byContract.find(optionKey);
}
