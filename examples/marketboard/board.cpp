// SPDX-License-Identifier: MIT
#include "board.h"

#include "index/masterindex.h"
#include "table/recordupdater.h"

#include <QSet>

namespace {

constexpr int PriceDecimals = 2;

QStringList names(std::initializer_list<const char*> latin1)
{
    QStringList list;
    for (const char* name : latin1)
        list += QString::fromLatin1(name);
    return list;
}

void addColumn(Table& table, const char* name, FieldType::Type type, int length = 0)
{
    table.addColumn(QString::fromLatin1(name), type, length);
}

void addKeyColumn(Table& table, const char* name, FieldType::Type type, int length = 0)
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

} // namespace

Board::OptionTable::OptionTable()
    : Table(QStringLiteral("options"))
{
    addKeyColumn(*this, "expiry", FieldType::Integer);
    addKeyColumn(*this, "right", FieldType::VarChar, 1);
    addKeyColumn(*this, "strike", FieldType::Decimal, PriceDecimals);
    addColumn(*this, "time", FieldType::Integer);
    addColumn(*this, "bidSize", FieldType::Integer);
    addColumn(*this, "askSize", FieldType::Integer);
    addColumn(*this, "bid", FieldType::Decimal, PriceDecimals);
    addColumn(*this, "spread", FieldType::Decimal, PriceDecimals);
    addColumn(*this, "ask", FieldType::Decimal, PriceDecimals);
    setMasterIndex(new MasterIndex_Column_Pure(this, names({"expiry", "right", "strike"})));
}

Board::FutureTable::FutureTable()
    : Table(QStringLiteral("futures"))
{
    addKeyColumn(*this, "contract", FieldType::Integer);
    addColumn(*this, "time", FieldType::Integer);
    addColumn(*this, "bid", FieldType::Decimal, PriceDecimals);
    addColumn(*this, "bidSize", FieldType::Integer);
    addColumn(*this, "ask", FieldType::Decimal, PriceDecimals);
    addColumn(*this, "askSize", FieldType::Integer);
    setMasterIndex(new MasterIndex_Column_Pure(this, QStringLiteral("contract")));
}

Board::TapeTable::TapeTable()
    : Table(QStringLiteral("tape"))
{
    addKeyColumn(*this, "sequence", FieldType::Integer64);
    addColumn(*this, "time", FieldType::Integer);
    addColumn(*this, "expiry", FieldType::Integer);
    addColumn(*this, "right", FieldType::VarChar, 1);
    addColumn(*this, "strike", FieldType::Decimal, PriceDecimals);
    addColumn(*this, "bid", FieldType::Decimal, PriceDecimals);
    addColumn(*this, "bidSize", FieldType::Integer);
    addColumn(*this, "ask", FieldType::Decimal, PriceDecimals);
    addColumn(*this, "askSize", FieldType::Integer);
    setMasterIndex(new MasterIndex_Column_Pure(this, QStringLiteral("sequence")));
}

Board::InstrumentTable::InstrumentTable()
    : Table(QStringLiteral("instruments"))
{
    addKeyColumn(*this, "market", FieldType::VarChar, 16);
    addKeyColumn(*this, "symbol", FieldType::VarChar, 16);
    addKeyColumn(*this, "type", FieldType::VarChar, 16);
    addColumn(*this, "description", FieldType::VarChar, 128);
    addColumn(*this, "currency", FieldType::VarChar, 16);
    addColumn(*this, "multiplier", FieldType::Decimal, PriceDecimals);
    addColumn(*this, "tick", FieldType::Decimal, PriceDecimals);
    addColumn(*this, "lotSize", FieldType::Decimal, PriceDecimals);
    setMasterIndex(new MasterIndex_Column_Pure(this, names({"market", "symbol", "type"})));
}

Board::Board()
    : byBid(&optionTable, {{Bid, SortColumn::Descending, SortColumn::NullsLast}})
    , bySpread(
          &optionTable,
          {{Spread, SortColumn::Ascending, SortColumn::NullsLast}, {Expiry}, {Right}, {Strike}})
    , byContract(&optionTable, names({"expiry", "right", "strike"}))
    , twoSided(&optionTable, names({"expiry", "strike", "right"}))
    , watch(&optionTable)
    , newest(TapeLimit, &tapeTable, names({"sequence"}))
    , optionChanges(&optionTable)
    , futureChanges(&futureTable)
    , tapeChanges(&tapeTable)
    , optionKey(&optionTable)
    , futureKey(&futureTable)
{
    twoSided.setFilter(
        [](const Record& row) { return !row.data(Bid).isNull() && !row.data(Ask).isNull(); },
        {Bid, Ask});
}

void Board::load(const QVector<Instrument>& directory)
{
    QList<Record> rows;
    for (const Instrument& instrument : directory) {
        Record row(&instrumentTable);
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
    instrumentTable.beginUpdate();
    instrumentTable.appendList(rows);
    instrumentTable.endUpdate();
}

void Board::apply(const OptionQuote& quote)
{
    optionTable.beginUpdate();
    const Record live = option(quote.expiry, quote.right, quote.strike);
    if (live.isNull()) {
        Record added(&optionTable);
        writeKey(added, quote);
        writeQuote(added, quote);
        optionChanges.insert(added);
    } else {
        RecordUpdater updater(optionChanges, live);
        writeQuote(updater, quote); // the columns that really change are handed over at its end
    }
    optionChanges.execute();
    optionTable.endUpdate();
    writeOnTape(quote);
}

void Board::apply(const FutureQuote& quote)
{
    futureTable.beginUpdate();
    futureKey.data(Contract) = quote.contract;
    const Record live = futureTable.masterIndex()->find(futureKey);
    if (live.isNull()) {
        Record added(&futureTable);
        added.data(Contract) = quote.contract;
        writeQuote(added, quote);
        futureChanges.insert(added);
    } else {
        RecordUpdater updater(futureChanges, live);
        writeQuote(updater, quote);
    }
    futureChanges.execute();
    futureTable.endUpdate();
}

void Board::writeOnTape(const OptionQuote& quote)
{
    Record row(&tapeTable);
    row.data(Sequence) = ++sequence;
    row.data(TapeTime) = quote.timeMs;
    row.data(TapeExpiry) = quote.expiry;
    row.data(TapeRight) = rightText(quote.right);
    row.data(TapeStrike) = quote.strike;
    writeSide(row, TapeBid, TapeBidSize, quote.bid);
    writeSide(row, TapeAsk, TapeAskSize, quote.ask);

    tapeTable.beginUpdate();
    tapeChanges.insert(row);
    tapeChanges.execute(); // the limit takes the oldest quote off in the same transaction
    tapeTable.endUpdate();
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
    return {{ByBid, QStringLiteral("by bid"), &byBid},
            {BySpread, QStringLiteral("by spread"), &bySpread},
            {ByContract, QStringLiteral("by contract"), &byContract},
            {TwoSided, QStringLiteral("two-sided"), &twoSided}};
}

Record Board::option(int expiry, char right, decimal strike) const
{
    optionKey.data(Expiry) = expiry;
    optionKey.data(Right) = rightText(right);
    optionKey.data(Strike) = strike;
    return optionTable.masterIndex()->find(optionKey);
}
