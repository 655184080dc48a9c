// SPDX-License-Identifier: MIT
#include "support/bench.h"

#include <QHash>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <string>

namespace bench {

double seconds()
{
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

double usedBytes()
{
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

void report(const char* subject, const char* workload, const char* figure, double value,
            const char* unit)
{
    std::printf("%s %s %s %.6g %s\n", subject, workload, figure, value, unit);
    std::fflush(stdout);
}

void require(bool isRight, const char* subject, const char* what)
{
    if (isRight)
        return;
    std::fprintf(stderr, "%s: %s\n", subject, what);
    std::exit(1);
}

void reportTimes(const char* subject, const char* workload, double operations,
                 std::vector<double>& times)
{
    double sum = 0;
    for (const double time : times)
        sum += time;
    std::sort(times.begin(), times.end());
    const auto percentile = [&](double p) {
        return times[static_cast<size_t>(p * static_cast<double>(times.size() - 1))] * 1e6;
    };
    report(subject, workload, "rate", operations / sum, "1/s");
    report(subject, workload, "p50", percentile(0.5), "us");
    report(subject, workload, "p99", percentile(0.99), "us");
}

namespace {

// A tenth of the symbols are shares, the others futures and options on them.
std::string makeSymbol(int symbol)
{
    int n = symbol / 10 * 7919 % 17576; // three letters, scattered
    std::string text;
    for (int i = 0; i < 3; ++i, n /= 26)
        text += static_cast<char>('A' + n % 26);
    const int series = symbol % 10;
    if (series == 0)
        return text;
    if (series < 5)
        return text + "-" + std::to_string(series * 3) + ".27";
    return text + std::to_string(series * 10000) + "CF27";
}

std::vector<std::string> makeSymbols()
{
    std::vector<std::string> texts;
    for (int i = 0; i < symbolCount; ++i)
        texts.push_back(makeSymbol(i));
    return texts;
}

// What a feed handler keeps, too: the texts of its dictionary in the form its table takes.
const std::vector<QString>& symbolStrings()
{
    static const std::vector<QString> strings = [] {
        std::vector<QString> made;
        for (int i = 0; i < symbolCount; ++i)
            made.push_back(QString::fromLatin1(symbolText(i)));
        return made;
    }();
    return strings;
}

const QString& statusString(int status)
{
    static const QString strings[statusCount] = {QStringLiteral("OPEN"), QStringLiteral("HALT"),
                                                 QStringLiteral("AUCT"), QStringLiteral("END")};
    return strings[status];
}

} // namespace

const char* symbolText(int symbol)
{
    static const std::vector<std::string> texts = makeSymbols();
    return texts[static_cast<size_t>(symbol)].c_str();
}

const char* statusText(int status)
{
    static const char* const texts[statusCount] = {"OPEN", "HALT", "AUCT", "END"};
    return texts[status];
}

int symbolNumber(const QString& text)
{
    static const QHash<QString, int> numbers = [] {
        QHash<QString, int> made;
        for (int i = 0; i < symbolCount; ++i)
            made.insert(symbolStrings()[static_cast<size_t>(i)], i);
        return made;
    }();
    return numbers.value(text, -1);
}

int statusNumber(const QString& text)
{
    int status = statusCount - 1;
    while (status >= 0 && text != statusString(status))
        --status;
    return status;
}

bool operator==(const Quote& a, const Quote& b)
{
    return a.id == b.id && a.board == b.board && a.symbol == b.symbol && a.price == b.price &&
           a.bid == b.bid && a.ask == b.ask && a.quantity == b.quantity && a.volume == b.volume &&
           a.time == b.time && a.status == b.status;
}

Quote makeQuote(Random& random, qint64 id)
{
    Quote quote;
    quote.id = id;
    quote.board = random.below(20);
    quote.symbol = random.below(symbolCount);
    quote.price = randomPrice(random);
    quote.bid = quote.price - 1;
    quote.ask = quote.price + 1;
    quote.quantity = random.below(100000);
    quote.volume = random.below(1000000) * 0.5;
    quote.time = startOfDay + random.below(86400000);
    quote.status = random.below(statusCount);
    return quote;
}

std::vector<Quote> makeQuotes(Random& random, int count)
{
    std::vector<Quote> quotes;
    quotes.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)
        quotes.push_back(makeQuote(random, i));
    return quotes;
}

void addColumns(Table& table)
{
    table.addColumn(QStringLiteral("id"), FieldType::Integer64, 0, false);
    table.addColumn(QStringLiteral("board"), FieldType::Integer);
    table.addColumn(QStringLiteral("symbol"), FieldType::VarChar, 16);
    table.addColumn(QStringLiteral("price"), FieldType::Decimal, 2);
    table.addColumn(QStringLiteral("bid"), FieldType::Decimal, 2);
    table.addColumn(QStringLiteral("ask"), FieldType::Decimal, 2);
    table.addColumn(QStringLiteral("quantity"), FieldType::Integer64);
    table.addColumn(QStringLiteral("volume"), FieldType::Double);
    table.addColumn(QStringLiteral("time"), FieldType::DateTime);
    table.addColumn(QStringLiteral("status"), FieldType::VarChar, 4);
}

Record makeRow(const Table& table, const Quote& quote)
{
    const Record row(&table);
    row.data(Id) = quote.id;
    row.data(Board) = quote.board;
    row.data(Symbol) = symbolStrings()[static_cast<size_t>(quote.symbol)];
    row.data(Price) = decimal::fromMantissa(quote.price, 2);
    row.data(Bid) = decimal::fromMantissa(quote.bid, 2);
    row.data(Ask) = decimal::fromMantissa(quote.ask, 2);
    row.data(Quantity) = quote.quantity;
    row.data(Volume) = quote.volume;
    row.data(Time) = datetime(quote.time);
    row.data(Status) = statusString(quote.status);
    return row;
}

Quote toQuote(const Record& row)
{
    Quote quote;
    quote.id = row.data(Id).toInteger64();
    quote.board = row.data(Board).toInteger();
    quote.symbol = symbolNumber(row.data(Symbol).toString());
    quote.price = row.data(Price).toDecimal().mantissa();
    quote.bid = row.data(Bid).toDecimal().mantissa();
    quote.ask = row.data(Ask).toDecimal().mantissa();
    quote.quantity = row.data(Quantity).toInteger64();
    quote.volume = row.data(Volume).toDouble();
    quote.time = row.data(Time).toDatetime().toMSecsSinceEpoch();
    quote.status = statusNumber(row.data(Status).toString());
    return quote;
}

} // namespace bench
