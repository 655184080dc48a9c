// SPDX-License-Identifier: MIT
// What a live join costs: many main rows that carry three columns of few dependents. Beside a
// Boost.MultiIndex program that keeps the copies by hand, and SQLite with a trigger.
//
//     bench_join [MAIN ROWS [DEPENDENTS [CHANGES]]]
//
// J1 is the first fill, J2 changes of single dependents, J3 the same with a sorted view over a
// joined column. One line per figure: subject workload figure value unit. At the end every main row
// is compared with its dependent; a difference ends the program with exit code 1.
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "join/tablejoin.h"
#include "support/bench.h"
#include "table/recordstrans.h"
#include "table/recordupdater.h"

#include <cstdlib>
#include <memory>

#ifdef HAVE_BOOST
#include <boost/multi_index/hashed_index.hpp>
#include <boost/multi_index/member.hpp>
#include <boost/multi_index/ordered_index.hpp>
#include <boost/multi_index_container.hpp>
#endif
#ifdef HAVE_SQLITE
#include "support/sqlitequotes.h"
#endif

namespace {

using namespace bench;

struct Size
{
    int rows;
    int dependents;
    int changes;
};

struct Change
{
    int dependent;
    qint64 bid;
    qint64 ask;
};

std::vector<Change> makeChanges(const Size& size)
{
    Random random;
    std::vector<Change> changes;
    for (int i = 0; i < size.changes; ++i)
        changes.push_back(
            {random.below(size.dependents), randomPrice(random), randomPrice(random)});
    return changes;
}

/// Fewer of them, and others, for work that takes longer.
std::vector<Change> someMore(const std::vector<Change>& changes)
{
    std::vector<Change> some(changes.begin(), changes.begin() + long(changes.size() / 100));
    for (Change& change : some) {
        change.bid += 5000;
        change.ask += 5000;
    }
    return some;
}

/// What each dependent must hold at the end, in `bid` and `ask`.
std::vector<Change> lastChanges(const Size& size, const std::vector<Change>& changes,
                                bool andSomeMore = false)
{
    std::vector<Change> last;
    for (int i = 0; i < size.dependents; ++i)
        last.push_back({i, i, i});
    for (const Change& change : changes)
        last[static_cast<size_t>(change.dependent)] = change;
    if (andSomeMore)
        for (const Change& change : someMore(changes))
            last[static_cast<size_t>(change.dependent)] = change;
    return last;
}

/// The dependent of a main row: neighbours differ, so that the rows of one key lie far apart.
int dependentOf(int row, const Size& size)
{
    return static_cast<int>(qint64(row) * 7919 % size.dependents);
}

template <typename Apply>
void measure(const char* subject, const char* workload, const std::vector<Change>& changes,
             Apply apply)
{
    std::vector<double> times;
    times.reserve(changes.size());
    double last = seconds();
    for (const Change& change : changes) {
        apply(change);
        const double now = seconds();
        times.push_back(now - last);
        last = now;
    }
    reportTimes(subject, workload, static_cast<double>(times.size()), times);
}

// --- this library ---

void runTables(const Size& size, const std::vector<Change>& changes)
{
    Table main("main");
    main.addColumn("symbol", FieldType::Integer, 0, false);
    main.addColumn("quantity", FieldType::Integer64, 0, false);
    main.setMasterIndex(new MasterIndex_Column_Pure(&main, QString("symbol")));
    Table quotes("quotes");
    quotes.addColumn("symbol", FieldType::Integer, 0, false);
    for (const char* name : {"bid", "ask", "last"})
        quotes.addColumn(name, FieldType::Decimal, 2);
    quotes.setMasterIndex(new MasterIndex_Column_Pure(&quotes, QString("symbol")));
    TableJoin join;
    Index* mainMade = nullptr;
    QList<Index*> depsMade;
    join.setup(main.masterIndex(), {quotes.masterIndex()}, {"bid", "ask", "last"}, false, &mainMade,
               &depsMade);
    const std::unique_ptr<Index> mainIndex(mainMade);
    const std::unique_ptr<Index> depIndex(depsMade.first());
    QList<Record> rows;
    for (int i = 0; i < size.rows; ++i) {
        rows.append(Record(&main));
        rows.last().data(0) = dependentOf(i, size);
        rows.last().data(1) = static_cast<long long>(i);
    }
    main.appendList(rows);
    rows.clear();
    for (int i = 0; i < size.dependents; ++i) {
        rows.append(Record(&quotes));
        rows.last().data(0) = i;
        for (const int column : {1, 2, 3})
            rows.last().data(column) = decimal::fromMantissa(i, 2);
    }
    quotes.appendList(rows);
    join.setupIndex(&main, mainMade, true);
    join.setupIndex(&quotes, depsMade.first(), false);

    const double before = usedBytes();
    join.connectIndexes();
    report("livetable", "J1", "fill", timed([&] { join.build(); }), "s");
    report("livetable", "J1", "memory", (usedBytes() - before) / size.rows, "bytes/row");

    const auto apply = [&](const Change& change) {
        RecordsTrans transaction(&quotes);
        RecordUpdater quote(transaction, rows.at(change.dependent));
        quote.data(1) = decimal::fromMantissa(change.bid, 2);
        quote.data(2) = decimal::fromMantissa(change.ask, 2);
        quote.commit();
        transaction.execute();
    };
    measure("livetable", "J2", changes, apply);
    {
        const SortedView view(&main, QStringList("bid"));
        measure("livetable", "J3", someMore(changes), apply);
        for (int i = 1; i < view.count(); ++i)
            require(view.compare(view.at(i - 1), view.at(i)) <= 0, "livetable", "order");
    }
    const int bid = join.joinedColumn(&quotes, "bid");
    const auto last = lastChanges(size, changes, true);
    for (const Record& row : *main.masterIndex()) {
        const Change& wanted = last[static_cast<size_t>(row.data(0).toInteger())];
        require(row.data(bid).toDecimal() == decimal::fromMantissa(wanted.bid, 2) &&
                    row.data(bid + 1).toDecimal() == decimal::fromMantissa(wanted.ask, 2),
                "livetable", "content");
    }
    join.disconnectIndexes();
}

// --- Boost.MultiIndex, copies kept by hand ---

#ifdef HAVE_BOOST
struct FlatRow
{
    int symbol;
    qint64 quantity;
    qint64 bid;
    qint64 ask;
    qint64 last;
};

namespace mi = boost::multi_index;
using BySymbol = mi::hashed_non_unique<mi::member<FlatRow, int, &FlatRow::symbol>>;
using ByBid = mi::ordered_non_unique<mi::member<FlatRow, qint64, &FlatRow::bid>>;

template <typename... Indices>
void runMultiIndex(const char* workload, const Size& size, const std::vector<Change>& changes)
{
    using Rows = mi::multi_index_container<FlatRow, mi::indexed_by<BySymbol, Indices...>>;
    Rows rows;
    rows.template get<0>().rehash(size_t(size.rows));
    for (int i = 0; i < size.rows; ++i)
        rows.insert(FlatRow{dependentOf(i, size), i, 0, 0, 0});
    // Where the copies are no key of an index they may be written in place.
    const auto spread = [&rows](int symbol, qint64 bid, qint64 ask) {
        const auto [first, last] = rows.template get<0>().equal_range(symbol);
        for (auto row = first; row != last; ++row) {
            const auto write = [&](FlatRow& copy) {
                copy.bid = bid;
                copy.ask = ask;
            };
            if constexpr (sizeof...(Indices) > 0)
                rows.template get<0>().modify(row, write);
            else
                write(const_cast<FlatRow&>(*row));
        }
    };
    const auto fill = [&] {
        for (int i = 0; i < size.dependents; ++i)
            spread(i, i, i);
    };
    const double time = timed(fill);
    if constexpr (sizeof...(Indices) == 0)
        report("boost", "J1", "fill", time, "s");
    measure("boost", workload, changes,
            [&](const Change& change) { spread(change.dependent, change.bid, change.ask); });
    const auto last = lastChanges(size, changes);
    for (const FlatRow& row : rows)
        require(row.bid == last[static_cast<size_t>(row.symbol)].bid, "boost", "content");
}
#endif

// --- SQLite, a trigger ---

#ifdef HAVE_SQLITE
void runSqlite(const Size& size, const std::vector<Change>& changes)
{
    sqlite3* db = nullptr;
    check(sqlite3_open(":memory:", &db), db);
    runSql(db, "create table quotes (symbol integer primary key, bid, ask, last);"
               "create table main (symbol integer, quantity integer, bid, ask, last);"
               "begin");
    {
        Statement row(db, "insert into main (symbol, quantity) values (?, ?)");
        for (int i = 0; i < size.rows; ++i) {
            row.bind(1, static_cast<qint64>(dependentOf(i, size)));
            row.bind(2, static_cast<qint64>(i));
            row.run();
        }
        Statement quote(db, "insert into quotes values (?1, ?1, ?1, ?1)");
        for (int i = 0; i < size.dependents; ++i) {
            quote.bind(1, static_cast<qint64>(i));
            quote.run();
        }
        runSql(db, "commit; create index bySymbol on main (symbol);"
                   "create trigger spread after update on quotes begin update main set"
                   " bid = new.bid, ask = new.ask where symbol = new.symbol; end");
        report("sqlite", "J1", "fill", timed([db] {
                   runSql(db,
                          "update main set (bid, ask, last) = (select bid, ask, last from quotes"
                          " where quotes.symbol = main.symbol)");
               }),
               "s");
        Statement update(db, "update quotes set bid = ?, ask = ? where symbol = ?");
        const auto some = someMore(changes);
        measure("sqlite", "J2", some, [&](const Change& change) {
            update.bind(1, change.bid);
            update.bind(2, change.ask);
            update.bind(3, static_cast<qint64>(change.dependent));
            update.run();
        });
        Statement wrong(db, "select count(*) from main join quotes using (symbol)"
                            " where main.bid <> quotes.bid or main.ask <> quotes.ask");
        require(wrong.step() && sqlite3_column_int(wrong.get(), 0) == 0, "sqlite", "content");
    }
    sqlite3_close(db);
}
#endif

} // namespace

int main(int argc, char** argv)
{
    const auto argument = [&](int i, int otherwise) {
        return argc > i ? std::atoi(argv[i]) : otherwise;
    };
    const Size size{argument(1, 1000000), argument(2, 10000), argument(3, 200000)};
    const std::vector<Change> changes = makeChanges(size);
    runTables(size, changes);
#ifdef HAVE_BOOST
    runMultiIndex<>("J2", size, changes);
    runMultiIndex<ByBid>("J3", size, someMore(changes));
#endif
#ifdef HAVE_SQLITE
    runSqlite(size, changes);
#endif
    return 0;
}
