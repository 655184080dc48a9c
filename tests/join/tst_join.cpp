// SPDX-License-Identifier: MIT
// What the random operations of the join's model do not reach: setting up, refusals, long lists,
// brackets, failures, and every order of dying.
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "join/recordsranges.h"
#include "join/tablejoin.h"
#include "join/tablejoindep.h"
#include "join/tablejoinmain.h"
#include "support/journal.h"
#include "support/outcome.h"
#include "table/recordstrans.h"
#include "table/recordupdater.h"
#include "table/table.h"

#include <QtTest>

#include <algorithm>
#include <functional>

namespace {

/// Keyed by the first column.
struct Keyed : IntegerTable
{
    Keyed(const QString& title, const QStringList& columns, int keys = 1)
        : IntegerTable(title, columns, keys)
    {}
    Record put(const QVector<int>& cells)
    {
        const Record record(this);
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
            QVERIFY(!TableJoin::isJoinIndex(main.masterIndex()));
            QCOMPARE(TableJoin::table(mainIndex), &main);
            QCOMPARE(TableJoin::table(depIndexes[0]), &dependent);
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
        const std::tuple<Table*, QList<Table*>, QStringList, QString> rows[] = {
            {&keyless, {&main}, {"v"}, "Main table has no key columns."},
            {nullptr, {&main}, {"v"}, "Main table has no key columns."},
            {&main,
             {&twoKeys, &stranger},
             {"q"},
             "Key column 'A' not found in dependent table 'S'."},
            {&main, {&twoKeys, nullptr}, {"q"}, "A dependent has no master index."},
            {&main, {&twoKeys}, {"q", "x"}, "Column 'x' not found in any dependent table."},
            // Of the same type, so that Table::addColumn alone would take it for the column it has.
            {&main, {&twoKeys}, {"q", "V"}, "Column 'V' already exists for table 'M'."},
        };
        for (const auto& [to, from, columns, error] : rows)
            QCOMPARE(outcome([&, t = to, f = from, c = columns] { LiveJoin join(t, f, c); }),
                     "Q:" + error);
        QCOMPARE(main.names(), QStringList({"A", "v"}));
        QVERIFY(main.indexes().isEmpty() && twoKeys.indexes().isEmpty());
    }

    // One transaction of many changes does what each of them does alone.
    void longLists()
    {
        for (const int count : {512, 513, 10000, 100000})
            longList(count);
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
        QStringList log;
        Journal journal(log, QString(), &main);
        const auto told = [first](int rows, int from, int to) {
            const QString line("process 0 %1 0 %2-%3 state 2 :%4");
            return line.arg(rows)
                .arg(first + from)
                .arg(first + to)
                .arg(QString(" 1").repeated(rows));
        };
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
        QCOMPARE(log, QStringList());
        update({{1, 10}, {2, 22}, {3, 30}});
        QCOMPARE(log.filter("process"), QStringList(told(2, 1, 1)));
        update({{1, 12}, {3, 32}});
        QCOMPARE(log.filter("process").last(), told(2, 0, 2));
        // Two dependents of one key change: each main row is told once.
        const Record twin = quotes.put({1, 10, 20, 30});
        RecordsTrans both(&quotes);
        for (const Record& row : {quote, twin})
            RecordUpdater(both, row).data(1) = 14;
        both.execute();
        QCOMPARE(log.filter("process").last(), told(2, 0, 0));
        quotes.remove(twin);
        update({{1, 12}, {3, 32}});
        // A failure of another index leaves the cells stale until the next word of a change.
        journal.at("pre", [] { throw QStringLiteral("no"); });
        QCOMPARE(outcome([&] { update({{1, 13}}); }), QString("Q:no"));
        QCOMPARE(cell(main.at(0), first), 12);
        quotes.put({7, 7, 7, 7});
        QCOMPARE(cell(main.at(0), first), 13);
    }

    // A dependent that changes while main rows leave does not bring them back.
    void leavingRowsStayAway()
    {
        Keyed main("M", {"A"});
        Keyed quotes("Q", {"A", "v"});
        const Record quote = quotes.put({1, 2});
        const LiveJoin join(&main, &quotes, {"v"});
        QStringList log;
        Journal journal(log, QString(), &main);
        int value = 5;
        for (const char* way : {"remove", "pre", "clear"}) {
            const Record row = main.put({1});
            journal.at(way, [&] {
                RecordsTrans changes(&quotes);
                RecordUpdater(changes, quote).data(1) = ++value;
                changes.execute();
            });
            RecordsTrans removal(&main);
            removal.remove(row);
            if (*way == 'r')
                main.remove(row);
            else if (*way == 'p')
                removal.execute();
            else
                main.clear();
            QCOMPARE(main.rowCount(), 0);
        }
        QCOMPARE(value, 8);
    }

    // A view that reads no joined column hears of them all the same when somebody observes it.
    void observedViews()
    {
        struct : IndexObserver
        {
            void indexChanged(const IndexList&, const IndexChange& change) override
            {
                changed += change.changedCount;
            }
            void indexReset(const IndexList&) override {}
            int changed = 0;
        } observer;
        Keyed main("M", {"A"});
        Keyed quotes("Q", {"A", "v"});
        const Record quote = quotes.put({1, 5});
        main.put({1});
        const LiveJoin join(&main, &quotes, {"v"});
        SortedView view(&main, QStringList("A"));
        view.addObserver(&observer);
        RecordsTrans changes(&quotes);
        RecordUpdater(changes, quote).data(1) = 6;
        changes.execute();
        QCOMPARE(observer.changed, 1);
        view.removeObserver(&observer);
    }

    // Keys of which one alone is a text are equal when their texts are, equal numbers or not.
    void textsForNumbers()
    {
        Table main("M");
        Table quotes("Q");
        main.addColumn("A", FieldType::VarChar, 8);
        quotes.addColumn("A", FieldType::Decimal, 2);
        quotes.addColumn("v", FieldType::Integer);
        for (Table* table : {&main, &quotes})
            table->setMasterIndex(new MasterIndex_Column_Pure(table, QString("A")));
        const QStringList texts{"1.5", "1.50", "1.500", "01.5"};
        for (int i = 0; i < texts.size(); ++i) {
            main.appendList({row(main, texts[i])});
            if (i < 3)
                quotes.appendList({row(quotes, texts[i], i)});
        }
        const LiveJoin join(&main, &quotes, {"v"});
        for (int i = 0; i < main.rowCount(); ++i)
            QCOMPARE(cell(main.at(i), 1), texts.mid(0, 3).indexOf(main.at(i).data(0).toString()));
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

private:
    static void longList(int count)
    {
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
        QStringList log;
        const Journal journal(log, QString(), &mains[0]);
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
        QCOMPARE(log.filter("process").size(), 1);
        int row = 0;
        while (row < mains[0].rowCount() && cell(mains[0].at(row), 1) == cell(mains[1].at(row), 1))
            ++row;
        QCOMPARE(row, count * 2);
    }
};

QTEST_GUILESS_MAIN(TestJoin)
#include "tst_join.moc"
