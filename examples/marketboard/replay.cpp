// SPDX-License-Identifier: MIT
#include "replay.h"

#include <QDate>
#include <QDir>

namespace {

constexpr int LastMsOfDay = 24 * 60 * 60 * 1000 - 1;
constexpr int MaximumSize = 1'000'000'000;

QString pathOf(const QString& folder, const char* file)
{
    const QDir dir(folder);
    if (!dir.exists())
        throw InputError{QStringLiteral("%1: there is no such folder").arg(folder)};
    return dir.filePath(QString::fromLatin1(file));
}

int timeAfter(const CsvReader& file, int previousMs)
{
    const int timeMs = file.integer(0, 0, LastMsOfDay);
    if (timeMs < previousMs)
        file.fail(QStringLiteral("time_ms goes back from %1 to %2").arg(previousMs).arg(timeMs));
    return timeMs;
}

Side sideAt(const CsvReader& file, int column)
{
    return {file.price(column), file.integer(column + 1, 0, MaximumSize)};
}

/// A date as the number YYYYMMDD.
int dateAt(const CsvReader& file, int column)
{
    const int date = file.integer(column, 19000101, 29991231);
    if (!QDate::isValid(date / 10000, date / 100 % 100, date % 100))
        file.fail(QStringLiteral("%1 is no date").arg(date));
    return date;
}

} // namespace

Replay::Replay(const QString& folder)
    : options(pathOf(folder, "es_options_20200106_quotes.csv.gz"),
              "time_ms,expiry,right,strike,bid,bid_size,ask,ask_size")
    , futures(pathOf(folder, "es_futures_20200106_quotes.csv.gz"),
              "time_ms,contract,bid,bid_size,ask,ask_size")
    , directory(pathOf(folder, "instruments.csv.gz"),
                "market,symbol,type,description,quote_currency,contract_multiplier,"
                "minimum_price_variation,lot_size,market_ticker,minimum_order_size,price_magnifier,"
                "strike_multiplier")
    , hasOption(nextOption())
    , hasFuture(nextFuture())
{}

QString Replay::title() const
{
    return QStringLiteral("Options on the E-mini S&P 500 future, recorded on 2020-01-06");
}

QString Replay::underlying() const
{
    return QStringLiteral("cme,ES,future");
}

QVector<Instrument> Replay::instruments()
{
    constexpr int filledFields = 8; // the last four are left out where they are empty
    QVector<Instrument> all;
    while (directory.next(filledFields))
        all += Instrument{directory.text(0),   directory.text(1),  directory.text(2),
                          directory.text(3),   directory.text(4),  directory.number(5),
                          directory.number(6), directory.number(7)};
    return all;
}

Session::Event Replay::next()
{
    // At the same time futures go first: the options follow them.
    if (hasFuture && (!hasOption || aheadFuture.timeMs <= aheadOption.timeMs)) {
        futureQuote = aheadFuture;
        hasFuture = nextFuture();
        return Event::Future;
    }
    if (!hasOption)
        return Event::End;
    optionQuote = aheadOption;
    hasOption = nextOption();
    return Event::Option;
}

bool Replay::nextOption()
{
    if (!options.next())
        return false;
    OptionQuote& quote = aheadOption;
    quote.timeMs = timeAfter(options, quote.timeMs);
    quote.expiry = dateAt(options, 1);
    const std::string_view right = options.field(2);
    if (right != "C" && right != "P")
        options.fail(
            QStringLiteral("right is neither C nor P: '%1'").arg(options.text(2).left(40)));
    quote.right = right.front();
    const std::optional<decimal> strike = options.price(3);
    if (!strike)
        options.fail(QStringLiteral("there is no strike"));
    quote.strike = *strike;
    quote.bid = sideAt(options, 4);
    quote.ask = sideAt(options, 6);
    return true;
}

bool Replay::nextFuture()
{
    if (!futures.next())
        return false;
    FutureQuote& quote = aheadFuture;
    quote.timeMs = timeAfter(futures, quote.timeMs);
    quote.contract = futures.integer(1, 190001, 299912);
    quote.bid = sideAt(futures, 2);
    quote.ask = sideAt(futures, 4);
    return true;
}

double Replay::progress() const
{
    return options.progress();
}
