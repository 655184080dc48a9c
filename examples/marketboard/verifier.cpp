// SPDX-License-Identifier: MIT
#include "verifier.h"

#include "display.h"

#include "pricing/volat.h"

#include <QHash>
#include <QSet>

#include <algorithm>
#include <cmath>

namespace {

using Difference = std::optional<QString>;

/// The cells of one row of the options table as plain values.
struct Row
{
    int expiry;
    QString right;
    decimal strike;
    std::optional<decimal> bid;
    std::optional<decimal> ask;
    std::optional<decimal> spread;
    std::optional<double> volatility;
    std::optional<decimal> distance; ///< twice that of the strike from the middle of the future
};

std::optional<decimal> priceOf(const Record& record, int column)
{
    const Field cell = record.data(column);
    return cell.isNull() ? std::nullopt : std::make_optional(cell.toDecimal());
}

std::optional<double> volatilityOf(const Record& record)
{
    const Field cell = record.data(Board::Volatility);
    return cell.isNull() ? std::nullopt : std::make_optional(cell.toDouble());
}

/// The row of another table of which a column holds that number; the plain way to find it.
Record rowWith(const Table& table, int column, int number)
{
    for (int i = 0; i < table.rowCount(); ++i)
        if (table.at(i).data(column).toInteger() == number)
            return table.at(i);
    return Record();
}

/// The future that an option of the expiry is on.
Record futureOf(const Board& board, int expiry)
{
    const Record future = rowWith(board.futures(), Board::FutureContract, expiry / 100);
    return future.isNull() ? board.futures().at(0) : future;
}

std::optional<decimal> distanceOf(const Record& record, const Record& future)
{
    const auto bid = priceOf(future, Board::FutureBid);
    const auto ask = priceOf(future, Board::FutureAsk);
    if (!bid || !ask)
        return std::nullopt;
    const decimal strike = record.data(Board::Strike).toDecimal();
    const decimal twice = strike + strike - *bid - *ask;
    return twice < decimal() ? decimal() - twice : twice;
}

Row rowOf(const Record& record, const Record& future = Record())
{
    return {record.data(Board::Expiry).toInteger(),
            record.data(Board::Right).toString(),
            record.data(Board::Strike).toDecimal(),
            priceOf(record, Board::Bid),
            priceOf(record, Board::Ask),
            priceOf(record, Board::Spread),
            volatilityOf(record),
            distanceOf(record, future)};
}

QString text(const std::optional<decimal>& price)
{
    return price ? price->toString() : QStringLiteral("none");
}

QString text(const Row& row)
{
    return QStringLiteral("%1 %2 %3 (bid %4, ask %5, spread %6)")
        .arg(QString::number(row.expiry), row.right, shortText(row.strike), text(row.bid),
             text(row.ask), text(row.spread));
}

// --- what each view should be, said the plainest way ---------------------------------------------

template <typename Value>
int order(const Value& a, const Value& b)
{
    return a < b ? -1 : b < a ? 1 : 0;
}

/// Ascending, with those that have no value behind all others.
template <typename Value>
int orderNoneLast(const std::optional<Value>& a, const std::optional<Value>& b)
{
    if (!a || !b)
        return order(!a, !b);
    return order(*a, *b);
}

int orderByBid(const Row& a, const Row& b)
{
    return a.bid && b.bid ? orderNoneLast(b.bid, a.bid) : orderNoneLast(a.bid, b.bid);
}

int orderByContract(const Row& a, const Row& b)
{
    if (const int byExpiry = order(a.expiry, b.expiry))
        return byExpiry;
    if (const int byRight = order(a.right, b.right))
        return byRight;
    return order(a.strike, b.strike);
}

int orderBySpread(const Row& a, const Row& b)
{
    const int bySpread = orderNoneLast(a.spread, b.spread);
    return bySpread ? bySpread : orderByContract(a, b);
}

int orderByStrike(const Row& a, const Row& b)
{
    if (const int byExpiry = order(a.expiry, b.expiry))
        return byExpiry;
    if (const int byStrike = order(a.strike, b.strike))
        return byStrike;
    return order(a.right, b.right);
}

int orderByVolatility(const Row& a, const Row& b)
{
    const int byVolatility = orderNoneLast(a.volatility, b.volatility);
    return byVolatility ? byVolatility : orderByStrike(a, b);
}

int orderByDistance(const Row& a, const Row& b)
{
    const int byDistance = orderNoneLast(a.distance, b.distance);
    return byDistance ? byDistance : orderByStrike(a, b);
}

struct Expectation
{
    int (*order)(const Row&, const Row&);
    bool twoSidedOnly;

    bool accepts(const Row& row) const { return !twoSidedOnly || (row.bid && row.ask); }
};

Expectation expectationOf(Board::ViewId id)
{
    switch (id) {
    case Board::ByBid:
        return {orderByBid, false};
    case Board::BySpread:
        return {orderBySpread, false};
    case Board::ByContract:
        return {orderByContract, false};
    case Board::TwoSided:
        return {orderByStrike, true};
    case Board::ByDistance:
        return {orderByDistance, false};
    case Board::ByVolatility:
        return {orderByVolatility, false};
    }
    Q_UNREACHABLE();
}

/// Rows of equal order may stand in any order among themselves, but each of them once.
Difference checkView(const Board::View& view, const QHash<Record, Row>& rows)
{
    const Expectation expectation = expectationOf(view.id);
    std::vector<Row> expected;
    for (const Row& row : rows)
        if (expectation.accepts(row))
            expected.push_back(row);
    std::sort(expected.begin(), expected.end(),
              [&](const Row& a, const Row& b) { return expectation.order(a, b) < 0; });

    const QString place = QStringLiteral("view %1, row %2: ").arg(view.name);
    QSet<Record> met;
    size_t i = 0;
    for (const Record& record : *view.index) {
        const QString here = place.arg(i);
        const auto found = rows.constFind(record);
        if (found == rows.constEnd())
            return here + QStringLiteral("a row that is not in the table");
        if (met.contains(record))
            return here + text(*found) + QStringLiteral(" stands there a second time");
        met += record;
        if (!expectation.accepts(*found))
            return here + text(*found) + QStringLiteral(" does not belong there");
        if (i >= expected.size() || expectation.order(*found, expected[i]) != 0) {
            const QString wanted =
                i < expected.size() ? text(expected[i]) : QStringLiteral("no row");
            return here + text(*found) + QStringLiteral(" instead of ") + wanted;
        }
        ++i;
    }
    if (i < expected.size())
        return place.arg(i) + QStringLiteral("no row instead of ") + text(expected[i]);
    return std::nullopt;
}

// --- what a row should hold
// -----------------------------------------------------------------------

bool holdsSide(const Record& record, int priceColumn, int sizeColumn, const Side& side)
{
    return priceOf(record, priceColumn) == side.price &&
           record.data(sizeColumn).toInteger() == side.size;
}

bool holdsQuote(const Record& record, const OptionQuote& quote)
{
    std::optional<decimal> spread;
    if (quote.bid.price && quote.ask.price)
        spread = *quote.ask.price - *quote.bid.price;
    return record.data(Board::Time).toInteger() == quote.timeMs &&
           holdsSide(record, Board::Bid, Board::BidSize, quote.bid) &&
           holdsSide(record, Board::Ask, Board::AskSize, quote.ask) &&
           priceOf(record, Board::Spread) == spread;
}

bool holdsOnTape(const Record& record, qint64 sequence, const OptionQuote& quote)
{
    return record.data(Board::Sequence).toInteger64() == sequence &&
           record.data(Board::TapeTime).toInteger() == quote.timeMs &&
           record.data(Board::TapeExpiry).toInteger() == quote.expiry &&
           record.data(Board::TapeRight).toString() == QChar::fromLatin1(quote.right) &&
           record.data(Board::TapeStrike).toDecimal() == quote.strike &&
           holdsSide(record, Board::TapeBid, Board::TapeBidSize, quote.bid) &&
           holdsSide(record, Board::TapeAsk, Board::TapeAskSize, quote.ask);
}

/// Black's price without discounting, from the error function: not the code that is checked.
double blackPrice(const OptionInput& option, double volatility)
{
    const double deviation = volatility * std::sqrt(option.seconds / (365 * 86'400.0));
    const double d1 = std::log(option.future / option.strike) / deviation + deviation / 2;
    const auto cdf = [](double x) { return 0.5 * std::erfc(-x / std::sqrt(2.0)); };
    const double sign = option.put ? -1 : 1;
    return sign * (option.future * cdf(sign * d1) - option.strike * cdf(sign * (d1 - deviation)));
}

/// Whether the volatility, or that there is none, is right for the option.
bool fits(const OptionInput& option, const std::optional<double>& volatility)
{
    constexpr double cent = 0.01;
    if (volatility)
        return std::abs(blackPrice(option, *volatility) - option.mid) <= cent;
    const double lowest = gc_dVolatMinDefault / 100;
    const double highest = gc_dVolatMaxDefault / 100;
    return !(option.future > 0 && option.mid > blackPrice(option, lowest) + cent &&
             option.mid < blackPrice(option, highest) - cent);
}

} // namespace

Verifier::Verifier(const Board& checked)
    : board(checked)
{}

void Verifier::seen(const OptionQuote& quote)
{
    fresh.push_back(quote);
    ++quotes;
}

void Verifier::takeFresh()
{
    for (const OptionQuote& quote : fresh) {
        const auto [known, isNew] =
            latest.try_emplace(Key(quote.expiry, quote.right, quote.strike), quote);
        const OptionQuote& before = known->second;
        if (isNew || before.timeMs != quote.timeMs || !(before.bid == quote.bid) ||
            !(before.ask == quote.ask))
            ++changesExpected;
        known->second = quote;
        tape.push_back(quote);
        if (tape.size() > size_t(Board::TapeLimit))
            tape.pop_front();
    }
    fresh.clear();
}

Difference Verifier::check(bool wholeTape)
{
    constexpr qint64 mostQuotesBetween = 100;
    constexpr qint64 tapeInterval = Board::TapeLimit / 2; // every row is met, since none changes
    ++checkCount;
    nextCheck = quotes + std::clamp<qint64>(quotes / 4, 1, mostQuotesBetween);

    takeFresh();
    Difference difference = checkTable();
    if (!difference)
        difference = checkViews();
    if (!difference && (wholeTape || quotes >= nextTapeCheck)) {
        difference = checkTape();
        nextTapeCheck = quotes + tapeInterval;
    }
    if (difference)
        *difference = QStringLiteral("after %1 quotes: ").arg(quotes) + *difference;
    return difference;
}

// What the directory says of a future, looked up the plain way.
QString Verifier::descriptionOf(const Record& future) const
{
    if (future.isNull())
        return QString();
    const Record underlying =
        rowWith(board.underlyings(), 3, future.data(Board::FutureContract).toInteger());
    for (int i = 0; i < board.instruments().rowCount() && !underlying.isNull(); ++i) {
        const Record& instrument = board.instruments().at(i);
        const auto isSame = [&](int column) {
            return instrument.data(column).toString() == underlying.data(column).toString();
        };
        if (isSame(0) && isSame(1) && isSame(2))
            return instrument.data(Board::Description).toString();
    }
    return QString();
}

Difference Verifier::checkTable() const
{
    if (size_t(board.options().rowCount()) != latest.size())
        return QStringLiteral("table: %1 rows for %2 contracts")
            .arg(board.options().rowCount())
            .arg(latest.size());
    for (const auto& [key, quote] : latest) {
        const Record record = board.option(quote.expiry, quote.right, quote.strike);
        const QString contract = QStringLiteral("table, %1 %2 %3: ")
                                     .arg(QString::number(quote.expiry),
                                          QChar::fromLatin1(quote.right), shortText(quote.strike));
        if (record.isNull())
            return contract + QStringLiteral("no row has this key");
        if (!holdsQuote(record, quote))
            return contract + text(rowOf(record)) + QStringLiteral(" is not the latest quote");
    }
    return std::nullopt;
}

Difference Verifier::checkViews() const
{
    QHash<Record, Row> rows;
    QHash<Record, QString> descriptions;
    for (int i = 0; i < board.futures().rowCount(); ++i)
        descriptions.insert(board.futures().at(i), descriptionOf(board.futures().at(i)));
    for (int i = 0; i < board.options().rowCount(); ++i) {
        const Record& record = board.options().at(i);
        const Record future = futureOf(board, record.data(Board::Expiry).toInteger());
        if (priceOf(record, Board::UnderlyingBid) != priceOf(future, Board::FutureBid) ||
            priceOf(record, Board::UnderlyingAsk) != priceOf(future, Board::FutureAsk) ||
            record.data(Board::UnderlyingText).toString() != descriptions.value(future))
            return QStringLiteral("table: %1 does not show its future's quote, or what it is")
                .arg(text(rowOf(record)));
        rows.insert(record, rowOf(record, future));
    }
    for (const Board::View& view : board.views())
        if (const Difference difference = checkView(view, rows))
            return difference;
    return std::nullopt;
}

Difference Verifier::checkVolatilities(int timeMs) const
{
    for (int i = 0; i < board.options().rowCount(); ++i) {
        const Record& record = board.options().at(i);
        const Row row = rowOf(record);
        const double future = board.futureMid(row.expiry);
        const bool isRight = row.bid && row.ask
                                 ? fits(board.pricingInput(record, future, timeMs), row.volatility)
                                 : !row.volatility;
        if (!isRight)
            return QStringLiteral("volatility %1 of %2 is wrong for a future at %3")
                .arg(row.volatility.value_or(-1))
                .arg(text(row))
                .arg(future);
    }
    return std::nullopt;
}

Difference Verifier::checkTape() const
{
    const int rows = board.tape().rowCount();
    if (size_t(rows) != tape.size() || board.tapeView().count() != rows)
        return QStringLiteral("tape: %1 rows in the table, %2 in its view, for %3 quotes")
            .arg(rows)
            .arg(board.tapeView().count())
            .arg(tape.size());
    qint64 sequence = quotes - rows;
    int i = 0;
    for (const Record& record : board.tapeView()) {
        if (!holdsOnTape(record, ++sequence, tape[size_t(i)]))
            return QStringLiteral("tape, row %1: not quote %2").arg(i).arg(sequence);
        ++i;
    }
    return std::nullopt;
}

Difference Verifier::checkChanges(const Board::Changes& changes)
{
    takeFresh();
    const qint64 expected = changesExpected;
    changesExpected = 0;
    if (changes.added + changes.updates == expected && changes.removed == 0)
        return std::nullopt;
    return QStringLiteral("watch list: %1 added, %2 updated and %3 removed for %4 changes")
        .arg(changes.added)
        .arg(changes.updates)
        .arg(changes.removed)
        .arg(expected);
}
