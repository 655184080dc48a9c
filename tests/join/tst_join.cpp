// SPDX-License-Identifier: MIT
// What the random operations of the join's model do not reach: setting up, refusals, long lists,
// brackets, failures, and every order of dying.
#include "concurrent/concurrentexec.h"
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "io/tableindexrebuilder.h"
#include "join/recordsranges.h"
#include "join/tablejoin.h"
#include "join/tablejoindep.h"
#include "join/tablejoinmain.h"
#include "table/recordstrans.h"
#include "table/recordupdater.h"
#include "table/table.h"

#include <QtTest>

#include <algorithm>
#include <functional>
#include <numeric>

namespace {

/// A table of the columns named, all Integer, keyed by the first.
struct Keyed : Table
{
    Keyed(const QString& title, const QStringList& columns, int keys = 1)
        : Table(title)
    {
        for (const QString& name : columns)
            addColumn(name, FieldType::Integer);
        if (keys > 0)
            setMasterIndex(new MasterIndex_Column_Pure(this, columns.mid(0, keys)));
    }
    Record put(const QVector<int>& cells)
    {
        Record record(this);
        for (int i = 0; i < cells.size(); ++i)
            record.data(i) = cells.at(i);
        appendRow(record.row());
        return record;
    }
    QStringList names() const
    {
        QStringList all;
        for (int i = 0; i < columnCount(); ++i)
            all.append(columnName(i));
        return all;
    }
};

QString errorOf(const std::function<void()>& call)
{
    try {
        call();
    } catch (const QString& message) {
        return message;
    }
    return QString();
}

/// Calls back at chosen notifications.
struct Probe : IndexList
{
    explicit Probe(Table* t)
        : IndexList(t, true)
    {}
    void preprocess(const QList<Record>&, const QList<Record>&, int, int, const QList<Record>&,
                    const QList<Record>&) override
    {
        ++transactions;
        if (throws)
            throw QStringLiteral("no");
    }
    void process(const QList<Record>&, const QList<Record>& u, int first, int last,
                 const QList<Record>&) override
    {
        rows += u.size();
        firstColumn = first;
        lastColumn = last;
    }
    void beginUpdate() override { ++depth; }
    void endUpdate() override { --depth; }
    int transactions = 0;
    int rows = 0;
    int firstColumn = -1;
    int lastColumn = -1;
    int depth = 0;
    bool throws = false;
};

int cell(const Record& record, int column)
{
    return record.data(column).isNull() ? -1 : record.data(column).toInteger();
}

} // namespace

class TestJoin : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void columnNames()
    {
        const struct
        {
            QStringList main;
            QStringList columns;
            QStringList added;
        } cases[] = {
            {{"A"}, {"B"}, {"B"}},
            {{"A", "B"}, {"B"}, {"B_"}},
            {{"A", "B", "B_"}, {"B"}, {"T_B"}},
            {{"A", "B", "B_", "T_B"}, {"B"}, {"B2"}},
            {{"A", "B", "B_", "T_B", "B2"}, {"B"}, {"B3"}},
            {{"A"}, {"X", "B", "C", "X"}, {"B", "C"}},
            {{"A"}, {"B", "B"}, {"B", "B_"}},
        };
        for (const auto& c : cases) {
            Keyed main("M", c.main);
            Keyed dependent("T", {"A", "C", "B"});
            TableJoin join;
            Index* mainIndex = nullptr;
            QList<Index*> depIndexes;
            join.setup(main.masterIndex(), {dependent.masterIndex()}, c.columns, false, &mainIndex,
                       &depIndexes);
            QCOMPARE(main.names(), c.main + c.added);
            bool isDep = false;
            QVERIFY(TableJoin::isJoinIndex(depIndexes[0], &isDep) && isDep);
            QVERIFY(TableJoin::isJoinIndex(mainIndex, &isDep) && !isDep);
            isDep = true;
            QVERIFY(!TableJoin::isJoinIndex(main.masterIndex(), &isDep) && isDep);
            QCOMPARE(TableJoin::table(mainIndex), &main);
            QCOMPARE(TableJoin::table(depIndexes[0]), &dependent);
            QCOMPARE(TableJoin::table(main.masterIndex()), nullptr);
            delete mainIndex;
            delete depIndexes[0];
        }
    }

    void refusals()
    {
        Keyed main("M", {"A", "v"});
        Keyed keyless("K", {"A"}, 0);
        Keyed stranger("S", {"Z", "w"});
        Keyed twoKeys("T", {"A", "V", "q"}, 2);
        const QString noKey = "Main table has no key columns.";
        const auto live = [](Table* m, const QList<Table*>& deps, const QStringList& columns) {
            return errorOf([=] { LiveJoin join(m, deps, columns); });
        };
        QCOMPARE(live(&keyless, {&main}, {"v"}), noKey);
        QCOMPARE(live(nullptr, {&main}, {"v"}), noKey);
        QCOMPARE(live(&main, {&twoKeys, &stranger}, {"q"}),
                 QString("Key column 'A' not found in dependent table 'S'."));
        QCOMPARE(live(&main, {&twoKeys, nullptr}, {"q"}),
                 QString("A dependent has no master index."));
        QCOMPARE(live(&main, {&twoKeys}, {"q", "x"}),
                 QString("Column 'x' not found in any dependent table."));
        // Of the same type, so that Table::addColumn alone would take it for the column it has.
        QCOMPARE(live(&main, {&twoKeys}, {"q", "V"}),
                 QString("Column 'V' already exists for table 'M'."));
        QCOMPARE(main.names(), QStringList({"A", "v"}));
        QVERIFY(main.indexes().isEmpty() && twoKeys.indexes().isEmpty());
    }

    // One transaction of many changes does what each of them does alone.
    void longLists_data()
    {
        QTest::addColumn<int>("count");
        for (const int count : {512, 513, 10000, 100000})
            QTest::addRow("%d", count) << count;
    }
    void longLists()
    {
        QFETCH(int, count);
        const auto isRemoved = [](int i) { return i % 16 == 3; };
        const auto update = [count](RecordsTrans& changes, const Record& row, int i) {
            RecordUpdater updater(changes, row);
            updater.data(1) = i + count;
            if (i % 8 == 1) // two rows to each of some keys that had none
                updater.data(0) = count + i / 16;
            else if (i % 8 == 2) // to the key of a neighbour
                updater.data(0) = i - 2;
        };
        const auto fill = [](Keyed& table, int rows, int keys) {
            QList<Record> made;
            for (int i = 0; i < rows; ++i) {
                made.append(Record(&table));
                made.last().data(0) = i % keys;
                if (table.columnCount() > 1)
                    made.last().data(1) = i;
            }
            table.appendList(made);
            return made;
        };
        Keyed quotes[] = {{"Q", {"A", "v"}}, {"Q", {"A", "v"}}};
        Keyed mains[] = {{"M", {"A"}}, {"M", {"A"}}};
        QList<Record> rows[2];
        std::unique_ptr<LiveJoin> joins[2];
        for (int i : {0, 1}) {
            rows[i] = fill(quotes[i], count, count);
            fill(mains[i], count * 2, count + count / 8);
            joins[i] = std::make_unique<LiveJoin>(&mains[i], &quotes[i], QStringList("v"));
        }
        Probe probe(&mains[0]);
        RecordsTrans all(&quotes[0]);
        for (int i = 0; i < count; ++i) {
            RecordsTrans one(&quotes[1]);
            if (isRemoved(i)) {
                all.remove(rows[0][i]);
                one.remove(rows[1][i]);
            } else {
                update(all, rows[0][i], i);
                update(one, rows[1][i], i);
            }
            one.execute();
        }
        all.execute();
        QCOMPARE(probe.transactions, 1);
        int row = 0;
        while (row < mains[0].rowCount() && cell(mains[0].at(row), 1) == cell(mains[1].at(row), 1))
            ++row;
        QCOMPARE(row, count * 2);
    }

    void chunks()
    {
        using Exec = ConcurrentExec<256, 512, 32>;
        const auto note = [](const int* first, const int* last, int shared) {
            return QVector<int>{*first, int(last - first), shared};
        };
        QVector<int> numbers(10001);
        std::iota(numbers.begin(), numbers.end(), 0);
        for (const int n : {0, 1, 512, 513, 1024, 10000}) {
            const auto results = Exec::execute_nonmerged(
                n, note,
                ConcurrentParamIterPair<const int*>(numbers.constData(), numbers.constData() + n),
                ConcurrentParamPlain<int>(7));
            const int k = n <= 512 ? 1 : qMin(n / 256, 32);
            QCOMPARE(results.size(), k);
            for (int i = 0; i < k; ++i) {
                const int first = int(qint64(n) * i / k);
                const QVector<int> wanted{first, int(qint64(n) * (i + 1) / k) - first, 7};
                QCOMPARE(results.at(i), wanted);
            }
        }
    }

    void mergedRanges()
    {
        Keyed table("T", {"A"});
        QList<Record> rows;
        for (int i = 0; i < 3; ++i)
            rows.append(table.put({i}));
        std::sort(rows.begin(), rows.end());
        const auto range = [](int first, int last) {
            RangeSet<int> set;
            set.addRange(first, last);
            return set;
        };
        RecordsRanges parts[2];
        parts[0].merge(rows[2], range(5, 6));
        parts[0].merge(rows[0], range(1, 2));
        parts[1].merge(rows[1], range(3, 4));
        parts[1].merge(rows[2], range(6, 9));
        const RecordsRanges all = RecordsRangesMerger(4)(parts, parts + 2);
        QCOMPARE(all.records(), rows);
        QCOMPARE(all.ranges()[2].boundaries(), QList<int>({5, 9}));
        const RecordsRanges left =
            separateUpdates_worker(all.records().begin(), all.records().end(), all.ranges().begin(),
                                   all.ranges().end(), &parts[1]);
        QCOMPARE(left.records(), QList<Record>({rows[0], rows[2]}));
        QCOMPARE(left.find(rows[2]).boundaries(), QList<int>({5, 6}));
    }

    // What the main table's indexes hear of a dependent's change.
    void notifications()
    {
        Keyed main("M", {"A", "x"});
        Keyed quotes("Q", {"A", "u", "v", "w"});
        const Record quote = quotes.put({1, 10, 20, 30});
        quotes.put({2, 11, 21, 31});
        for (int i = 0; i < 6; ++i)
            main.put({1 + i % 3, i});
        LiveJoin join(&main, &quotes, {"u", "v", "w"});
        const int first = join.column(&quotes, "u");
        Probe probe(&main);
        const auto update = [&](const QVector<QPair<int, int>>& cells) {
            RecordsTrans changes(&quotes);
            for (const auto& [column, value] : cells) {
                Record content = quote.clone();
                content.data(column) = value;
                changes.update(quote, content, column, column);
            }
            changes.execute();
        };
        update({{1, 10}, {3, 30}}); // the same again
        QCOMPARE(probe.transactions, 0);
        update({{1, 10}, {2, 22}, {3, 30}});
        QCOMPARE(probe.transactions, 1);
        QCOMPARE(probe.rows, 2);
        QCOMPARE(probe.firstColumn, first + 1);
        QCOMPARE(probe.lastColumn, first + 1);
        quotes.beginUpdate();
        QCOMPARE(probe.depth, 1);
        update({{1, 12}, {3, 32}});
        quotes.endUpdate();
        QCOMPARE(probe.depth, 0);
        QCOMPARE(probe.lastColumn, first + 2);
        // Two dependents of one key change: each main row is told once.
        const Record twin = quotes.put({1, 10, 20, 30});
        probe.rows = 0;
        RecordsTrans both(&quotes);
        for (const Record& row : {quote, twin})
            RecordUpdater(both, row).data(1) = 14;
        both.execute();
        QCOMPARE(probe.rows, 2);
        // The same rows loaded again: nothing was ever missing.
        const int told = probe.transactions;
        {
            QList<Record> rows;
            for (int i = 0; i < quotes.rowCount(); ++i)
                rows.append(quotes.at(i));
            const TableIndexRebuilder guard(&quotes);
            quotes.clear();
            quotes.appendList(rows);
        }
        QCOMPARE(probe.transactions, told);
        quotes.remove(twin);
        update({{1, 12}, {3, 32}});
        // A failure of another index leaves the cells stale until the next word of a change.
        probe.throws = true;
        QCOMPARE(errorOf([&] { update({{1, 13}}); }), QString("no"));
        QCOMPARE(cell(main.at(0), first), 12);
        probe.throws = false;
        quotes.put({7, 7, 7, 7});
        QCOMPARE(cell(main.at(0), first), 13);
    }

    // A dependent that changes while main rows leave does not bring them back.
    void leavingRowsStayAway()
    {
        struct Changer : Probe
        {
            using Probe::Probe;
            void clear() override { act(); }
            void remove(const Record&, int) override { act(); }
            void preprocess(const QList<Record>&, const QList<Record>&, int, int,
                            const QList<Record>&, const QList<Record>&) override
            {
                act();
            }
            std::function<void()> act = [] {};
        };
        Keyed main("M", {"A"});
        Keyed quotes("Q", {"A", "v"});
        const Record quote = quotes.put({1, 2});
        const LiveJoin join(&main, &quotes, {"v"});
        Changer changer(&main);
        int value = 5;
        for (const int way : {0, 1, 2}) {
            const Record row = main.put({1});
            changer.act = [&] {
                RecordsTrans changes(&quotes);
                RecordUpdater(changes, quote).data(1) = ++value;
                changes.execute();
            };
            RecordsTrans removal(&main);
            removal.remove(row);
            if (way == 0)
                main.remove(row);
            else if (way == 1)
                removal.execute();
            else
                main.clear();
            changer.act = [] {};
            QCOMPARE(main.rowCount(), 0);
        }
    }

    void circleOfBrackets()
    {
        Keyed a("a", {"k", "x"});
        Keyed b("b", {"k", "y"});
        const LiveJoin ab(&a, &b, {"y"});
        const LiveJoin ba(&b, &a, {"x"});
        Probe probes[] = {Probe(&a), Probe(&b)};
        for (Table* table : {static_cast<Table*>(&a), static_cast<Table*>(&b)}) {
            table->beginUpdate();
            QCOMPARE(probes[0].depth + probes[1].depth, 2);
            a.put({1, 2});
            table->endUpdate();
            QCOMPARE(probes[0].depth + probes[1].depth, 0);
        }
        b.put({1, 3});
        QCOMPARE(cell(a.at(0), ab.column(&b, "y")), 3);
        QCOMPARE(cell(b.at(0), ba.column(&a, "x")), 2);
    }

    void lockOrder()
    {
        Keyed main("M", {"A"});
        Keyed quotes("Q", {"A", "v"});
        const LiveJoin join(&main, &quotes, {"v"});
        main.lock();
        quotes.lock();
        quotes.unlock();
        main.unlock();
#ifndef QT_NO_DEBUG
        QTest::ignoreMessage(QtWarningMsg, "Table::lock : a join's main table is locked after its "
                                           "dependent: \"M\" \"Q\"");
#endif
        quotes.lock();
        main.lock();
        main.unlock();
        quotes.unlock();
    }

    // Tables, join indexes and the join die in every order; what is left goes on working.
    void deaths()
    {
        QVector<int> order{0, 1, 2, 3, 4};
        do {
            auto main = std::make_unique<Keyed>("M", QStringList{"A"});
            auto quotes = std::make_unique<Keyed>("Q", QStringList{"A", "v"});
            auto join = std::make_unique<TableJoin>();
            Index* made = nullptr;
            QList<Index*> deps;
            join->setup(main->masterIndex(), {quotes->masterIndex()}, {"v"}, false, &made, &deps);
            std::unique_ptr<Index> mainIndex(made);
            std::unique_ptr<Index> depIndex(deps[0]);
            join->setupIndex(main.get(), made, true);
            join->setupIndex(quotes.get(), deps[0], false);
            join->connectIndexes();
            join->build();
            for (const int which : qAsConst(order)) {
                if (quotes)
                    quotes->put({1, 2});
                if (main)
                    main->put({1});
                if (which < 2) {
                    (which == 0 ? main : quotes).reset();
                    continue;
                }
                if (quotes)
                    quotes->beginUpdate(); // and with it the main table's bracket
                if (which == 4)
                    join.reset();
                else
                    (which == 2 ? mainIndex : depIndex).reset();
                if (quotes)
                    quotes->endUpdate();
            }
        } while (std::next_permutation(order.begin(), order.end()));
    }

    void liveJoinUndoesItself()
    {
        Keyed main("M", {"A"});
        Keyed quotes("Q", {"A", "v"});
        quotes.put({1, 5});
        const Record row = main.put({1});
        int column = 0;
        {
            const LiveJoin join(&main, &quotes, {"v"});
            column = join.column(&quotes, "v");
            QCOMPARE(cell(main.at(0), column), 5);
        }
        QCOMPARE(cell(main.at(0), column), -1);
        QVERIFY(main.indexes().isEmpty() && quotes.indexes().isEmpty() &&
                quotes.dependentIndexes().isEmpty());
        quotes.put({1, 6});
        QCOMPARE(cell(main.at(0), column), -1);
    }
};

QTEST_GUILESS_MAIN(TestJoin)
#include "tst_join.moc"
