// SPDX-License-Identifier: MIT
// What all benchmarks share: the clock, the line a figure is printed on, the quotes they work on,
// and the table of ours that holds them.
#pragma once

#include "table/table.h"

#include <QString>

#include <vector>

namespace bench {

/// Deterministic, the same on every machine (xorshift64*).
class Random
{
public:
    quint64 next()
    {
        state ^= state >> 12;
        state ^= state << 25;
        state ^= state >> 27;
        return state * 2685821657736338717ull;
    }
    /// 0 .. n - 1
    int below(int n) { return static_cast<int>((next() >> 32) * static_cast<quint64>(n) >> 32); }

private:
    quint64 state = 88172645463325252ull;
};

/// The steady clock.
double seconds();

/// The memory in use: what malloc has given out.
double usedBytes();

/// Prints one figure: "subject workload figure value unit". None of the words may hold a blank.
void report(const char* subject, const char* workload, const char* figure, double value,
            const char* unit);

/// Ends the program with exit code 1, naming what is wrong, when `isRight` is false. For checks of
/// order and content, outside the clock.
void require(bool isRight, const char* subject, const char* what);

/// Reports a rate, the median and the 99th percentile of single times given in seconds; sorts them.
void reportTimes(const char* subject, const char* workload, double operations,
                 std::vector<double>& times);

/// How long `work` takes, in seconds.
template <typename Work>
double timed(Work work)
{
    const double start = seconds();
    work();
    return seconds() - start;
}

/// The row of the benchmarks, as it comes from a feed. Prices are mantissas of two digits.
struct Quote
{
    qint64 id; // the unique key
    qint32 board;
    qint32 symbol; // its text is symbolText(symbol)
    qint64 price;
    qint64 bid;
    qint64 ask;
    qint64 quantity;
    double volume;
    qint64 time;   // milliseconds since 1970
    qint32 status; // its text is statusText(status)
};
bool operator==(const Quote& a, const Quote& b);

constexpr int symbolCount = 5000;
constexpr int statusCount = 4;
constexpr qint64 startOfDay = 1500000000000;

/// Up to 16 characters, distinct, in no particular order: "QX", "ABK-3.27", "GOM210000CF27".
const char* symbolText(int symbol);
/// Up to 4 characters.
const char* statusText(int status);
/// The number of such a text; -1 for any other.
int symbolNumber(const QString& text);
int statusNumber(const QString& text);
inline qint64 randomPrice(Random& random)
{
    return 1000 + random.below(1000000);
}
Quote makeQuote(Random& random, qint64 id);
/// Ids 0 .. count - 1.
std::vector<Quote> makeQuotes(Random& random, int count);

/// The columns of a table of quotes, by number.
enum Column
{
    Id,
    Board,
    Symbol,
    Price,
    Bid,
    Ask,
    Quantity,
    Volume,
    Time,
    Status
};
void addColumns(Table& table);
/// A row of the table, in no index yet.
Record makeRow(const Table& table, const Quote& quote);
Quote toQuote(const Record& row);

} // namespace bench
