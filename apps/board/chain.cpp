// SPDX-License-Identifier: MIT
#include "chain.h"

#include "index/masterindex.h"
#include "table/recordupdater.h"

#include <QSet>

namespace {

std::unique_ptr<Table> makeTable()
{
    constexpr int priceDecimals = 2;
    constexpr bool nullable = false;
    auto table = std::make_unique<Table>(QStringLiteral("chain"));
    table->addColumn(QStringLiteral("expiry"), FieldType::Integer, 0, nullable);
    table->addColumn(QStringLiteral("strike"), FieldType::Decimal, priceDecimals, nullable);
    const struct
    {
        const char* name;
        FieldType::Type type;
        int length;
    } values[Chain::ValueCount] = {{"Held", FieldType::Integer, 0},
                                   {"Theta", FieldType::Double, 0},
                                   {"Vega", FieldType::Double, 0},
                                   {"Gamma", FieldType::Double, 0},
                                   {"Delta", FieldType::Double, 0},
                                   {"Volatility", FieldType::Double, 0},
                                   {"BidSize", FieldType::Integer, 0},
                                   {"Bid", FieldType::Decimal, priceDecimals},
                                   {"Ask", FieldType::Decimal, priceDecimals},
                                   {"AskSize", FieldType::Integer, 0}};
    for (const char* side : {"call", "put"})
        for (const auto& value : values)
            table->addColumn(QString::fromLatin1(side) + QString::fromLatin1(value.name),
                             value.type, value.length);
    table->setMasterIndex(new MasterIndex_Column_Pure(
        table.get(), QStringList{QStringLiteral("expiry"), QStringLiteral("strike")}));
    return table;
}

/// Which column of the options each value comes from.
constexpr struct
{
    Chain::Value to;
    Board::OptionColumn from;
} Sources[] = {{Chain::Theta, Board::Theta},
               {Chain::Vega, Board::Vega},
               {Chain::Gamma, Board::Gamma},
               {Chain::Delta, Board::Delta},
               {Chain::Volatility, Board::Volatility},
               {Chain::BidSize, Board::BidSize},
               {Chain::Bid, Board::Bid},
               {Chain::Ask, Board::Ask},
               {Chain::AskSize, Board::AskSize}};

/// `Row` is a Record or a RecordUpdater.
template <typename Row>
void copyValues(Row& row, const Record& option)
{
    const char right = option.data(Board::Right).toChar().toLatin1();
    for (const auto& source : Sources)
        row.data(Chain::column(right, source.to)) = option.data(source.from);
}

} // namespace

Chain::Chain(Board& followed)
    : board(followed)
    , table(makeTable())
    , watch(&followed.options())
    , changes(table.get())
    , key(table.get())
{}

int Chain::flush()
{
    const int updates = watch.updated().size();
    if (updates == 0 && watch.added().isEmpty())
        return 0;
    QSet<Record> options;
    for (const Record& option : watch.added())
        options += option;
    for (const Record& option : watch.updated())
        options += option;
    watch.clear();
    table->beginUpdate();
    for (const Record& option : qAsConst(options))
        take(option);
    changes.execute();
    added.clear();
    table->endUpdate();
    return updates;
}

void Chain::follow()
{
    watch.clear();
    dates.clear();
    table->beginUpdate();
    for (int i = 0; i < board.options().rowCount(); ++i)
        take(board.options().at(i));
    changes.execute();
    added.clear();
    table->endUpdate();
}

void Chain::take(const Record& option)
{
    const int expiry = option.data(Board::Expiry).toInteger();
    const decimal strike = option.data(Board::Strike).toDecimal();
    dates.insert(expiry);
    key.data(Expiry) = expiry;
    key.data(Strike) = strike;
    const Record live = table->masterIndex()->find(key);
    if (!live.isNull()) {
        RecordUpdater updater(changes, live);
        copyValues(updater, option);
        return;
    }
    // Call and put may both be new.
    Record& row = added[{expiry, strike.raw()}];
    if (row.isNull()) {
        row = Record(table.get());
        row.data(Expiry) = expiry;
        row.data(Strike) = strike;
        changes.insert(row);
    }
    copyValues(row, option);
}

Chain::Sum Chain::held() const
{
    Sum sum;
    for (int i = 0; i < table->rowCount(); ++i) {
        const Record& row = table->at(i);
        for (const char right : {'C', 'P'}) {
            const qint64 contracts = row.data(column(right, Held)).toInteger();
            if (contracts == 0)
                continue;
            sum.contracts += std::abs(contracts);
            sum.delta += double(contracts) * row.data(column(right, Delta)).toDouble();
            sum.vega += double(contracts) * row.data(column(right, Vega)).toDouble();
            sum.theta += double(contracts) * row.data(column(right, Theta)).toDouble();
        }
    }
    return sum;
}
