// SPDX-License-Identifier: MIT
// S1: a stable sort by (symbol, price) on two threads, from rows in arrival order to rows in order.
//
//     bench_sort --list
//     bench_sort CONTENDER [--rows N]
//
// Ours builds a view of a table. The peers sort an array of entries with the key in them, made from
// flat rows within the clock.
#include "views_flat.h"

#include "index/masterindex.h"
#include "index/sortedview.h"

#include <QThreadPool>

#include <algorithm>
#include <cstdlib>
#include <string>

#ifdef HAVE_BOOST_SORT
#include <boost/sort/sort.hpp>
#endif
#ifdef HAVE_TBB
#include <execution>
#include <tbb/global_control.h>
#endif

namespace bench {
namespace {

constexpr int threads = 2;

struct Entry
{
    SymbolKey key;
    const FlatRow* row;
    friend bool operator<(const Entry& a, const Entry& b) { return a.key < b.key; }
};

template <typename Sort>
void measurePeer(const char* name, const std::vector<Quote>& quotes, Sort sort)
{
    const std::vector<FlatRow> rows(quotes.begin(), quotes.end());
    std::vector<Entry> entries;
    const double time = timed([&] {
        entries.reserve(rows.size());
        for (const FlatRow& row : rows)
            entries.push_back({keyOf(std::integral_constant<View, BySymbolPrice>(), row), &row});
        sort(entries.begin(), entries.end());
    });
    for (size_t i = 1; i < entries.size(); ++i)
        require(entries[i - 1] < entries[i] ||
                    (entries[i - 1].key == entries[i].key && entries[i - 1].row < entries[i].row),
                name, "not in order");
    report(name, "S1", "sort", time * 1000, "ms");
}

void measureTable(const char* name, const std::vector<Quote>& quotes)
{
    QThreadPool::globalInstance()->setMaxThreadCount(threads);
    Table table(QStringLiteral("quotes"));
    addColumns(table);
    QList<Record> rows;
    for (const Quote& quote : quotes)
        rows.append(makeRow(table, quote));
    table.appendList(rows);
    std::unique_ptr<SortedView> view;
    const double time = timed([&] {
        view = std::make_unique<SortedView>(
            &table, QStringList{QStringLiteral("symbol"), QStringLiteral("price")});
    });
    require(view->count() == rows.size(), name, "rows are missing");
    Record last;
    for (const Record& row : *view) {
        const int order = last.isNull() ? -1 : view->compare(last, row);
        require(order < 0 ||
                    (order == 0 && last.data(Id).toInteger64() < row.data(Id).toInteger64()),
                name, "not in order");
        last = row;
    }
    report(name, "S1", "sort", time * 1000, "ms");
}

void measure(const std::string& name, const std::vector<Quote>& quotes)
{
    const auto peer = [&](auto sort) { measurePeer(name.c_str(), quotes, sort); };
    if (name == "livetable")
        return measureTable(name.c_str(), quotes);
    if (name == "std-stable-sort")
        return peer([](auto begin, auto end) { std::stable_sort(begin, end); });
#ifdef HAVE_BOOST_SORT
    if (name == "boost-sample-sort")
        return peer([](auto begin, auto end) { boost::sort::sample_sort(begin, end, threads); });
    if (name == "boost-parallel-stable-sort")
        return peer(
            [](auto begin, auto end) { boost::sort::parallel_stable_sort(begin, end, threads); });
#endif
#ifdef HAVE_TBB
    if (name == "tbb-stable-sort") {
        const tbb::global_control limit(tbb::global_control::max_allowed_parallelism, threads);
        return peer(
            [](auto begin, auto end) { std::stable_sort(std::execution::par, begin, end); });
    }
#endif
    require(false, name.c_str(), "no such contender");
}

} // namespace
} // namespace bench

int main(int argc, char** argv)
{
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() == 1 && words[0] == "--list") {
        std::puts("livetable\nstd-stable-sort");
#ifdef HAVE_BOOST_SORT
        std::puts("boost-sample-sort\nboost-parallel-stable-sort");
#endif
#ifdef HAVE_TBB
        std::puts("tbb-stable-sort");
#endif
        return 0;
    }
    const bool hasRows = words.size() == 3 && words[1] == "--rows";
    if (words.size() != 1 && !hasRows) {
        std::fprintf(stderr, "usage: bench_sort --list | CONTENDER [--rows N]\n");
        return 2;
    }
    bench::Random random;
    bench::measure(words[0],
                   bench::makeQuotes(random, hasRows ? std::atoi(words[2].c_str()) : 1000000));
    return 0;
}
