// SPDX-License-Identifier: MIT
#include "index/indexdependbase.h"
#include "index/indexlimit.h"
#include "index/indexvector.h"
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "index/watchindex.h"
#include "support/journal.h"
#include "support/outcome.h"
#include "table/recordstrans.h"

#include <QSet>
#include <QtTest>

#include <atomic>
#include <memory>

// What a host's own functions throw must reach the caller as it is, and the table and all views
// must be right again: whichever call it was that threw.

namespace {

enum Column
{
    Key,
    Group
};

/// Throws at the n-th call of any function of the host's.
struct Bomb
{
    static void tick()
    {
        if (left > 0 && --left == 0)
            throw QStringLiteral("bomb");
    }
    static std::atomic<int> left; ///< some calls come from the threads of a sort
};
std::atomic<int> Bomb::left{0};

int keyOf(const Record& record)
{
    const Field cell = record.data(Key);
    return cell.isNull() ? -1000 : cell.toInteger();
}

int byKey(const Record& a, const Record& b)
{
    Bomb::tick();
    return keyOf(a) - keyOf(b);
}

bool isWanted(const Record& record)
{
    return record.data(Group).toInteger() < 2;
}

bool wanted(const Record& record)
{
    Bomb::tick();
    return isWanted(record);
}

/// A list, a sorted one or a vector.
template <class Base>
struct Bombed : Base
{
    template <class... Args>
    explicit Bombed(Args... args)
        : Base(args...)
    {
        Bombed::build();
    }
    virtual int compare(const Record& a, const Record& b) const { return byKey(a, b); }
    bool filter(const Record& record) const override { return wanted(record); }
};

struct BombKeyed : Bombed<IndexSort>
{
    explicit BombKeyed(Table* table)
        : Bombed(table, true)
    {
        rebuild(); // now with keys
    }
    int sortKeyWords() const override { return 1; }
    SortKey sortKey(const Record& record) const override
    {
        Bomb::tick();
        return {quint64(keyOf(record) + 1000) / 4, 0};
    }
};

struct BombMaster : MasterIndex
{
    explicit BombMaster(Table* table)
        : MasterIndex(table, QList<int>{Key})
    {}
    int compare(const Record& a, const Record& b) const override { return byKey(a, b); }
    QString toText(const Record&) const override { return QString(); }
    Record fromText(const QString&) const override { return Record(table()); }
};

struct BombLimit : IndexLimit
{
    BombLimit(int limit, Table* table)
        : IndexLimit(limit, table)
    {
        build();
    }
    int compare(const Record& a, const Record& b) const override { return byKey(a, b); }
};

using Rows = QList<Record>;

struct FilledTable
{
    FilledTable(bool keyedMaster, int count)
    {
        table.addColumn("key", FieldType::Integer);
        table.addColumn("group", FieldType::Integer);
        if (keyedMaster)
            table.setMasterIndex(new BombMaster(&table));
        Rows rows;
        for (int i = 0; i < count; ++i)
            rows.append(row(table, i * 7 % count / 2, i % 3));
        table.appendList(rows);
        first.always = last.always = Bomb::tick;
        table.addIndex(&first);
    }
    QStringList log;
    Journal first{log};
    Journal last{log};
    Table table{"table"};
};

/// A table with all kinds of views that throw, some of them twice so that each has neighbours on
/// both sides.
struct Fixture : FilledTable
{
    Fixture(bool keyedMaster, int count, bool limited)
        : FilledTable(keyedMaster, count)
    {
        ready.setFilter(wanted, {Group});
        if (limited)
            limit = std::make_unique<BombLimit>(count, &table);
        table.addIndex(&last);
    }

    // Changes of each kind, by single calls or by a transaction.
    void heal(int key, int kind)
    {
        const int count = table.rowCount();
        if (kind % 4 == 1) {
            table.appendRow();
        } else if (kind % 4 == 2 && count > 0) {
            table.remove(table.at(0));
        } else if (kind % 4 == 3 && count > 0) {
            table.at(count / 2).data(Key) = key;
            table.updated(table.at(count / 2), Key, Key);
        } else {
            changes.insert(row(table, key, 0));
            changes.insert(row(table, key, 2));
            if (count > 2) {
                changes.update(table.at(0), row(table, key + 1, 1));
                changes.update(table.at(1), row(table, key - 3, 2));
                changes.remove(table.at(count - 1));
            }
        }
        changes.execute();
    }

    QString fault() const
    {
        Rows all;
        Rows expected;
        for (int i = 0; i < table.rowCount(); ++i)
            all.append(table.at(i));
        std::copy_if(all.begin(), all.end(), std::back_inserter(expected), isWanted);
        const auto isWrong = [](const auto& view, const Rows& rows, bool isSorted) {
            Rows held;
            for (const Record& record : view)
                held.append(record);
            const auto byKeys = [](const Record& a, const Record& b) {
                return keyOf(a) < keyOf(b);
            };
            return (isSorted && !std::is_sorted(held.begin(), held.end(), byKeys)) ||
                   !std::is_permutation(held.begin(), held.end(), rows.begin(), rows.end());
        };
        const MasterIndex& master = *table.masterIndex();
        const std::pair<const char*, bool> views[] = {
            {"rows of the table",
             QSet<Record>(all.begin(), all.end()).size() != all.size() || all.contains(Record())},
            {"state", table.transactionState() != 0},
            {"list", isWrong(list, expected, false)},
            {"sorted view", isWrong(sorted, expected, true)},
            {"keyed view", isWrong(keyed, expected, true)},
            {"vector", isWrong(vector.records(), expected, true)},
            {"ready view", isWrong(ready, expected, true)},
            {"limit", limit && isWrong(*limit, all, true)},
            {"master", isWrong(master, all, !master.columns().isEmpty())},
        };
        for (const auto& [name, wrong] : views)
            if (wrong)
                return name;
        return QString();
    }

    Bombed<IndexList> list{&table, true};
    Bombed<IndexSort> sorted{&table, true};
    BombKeyed keyed{&table};
    Bombed<IndexVector> vector{&table};
    SortedView ready{&table, QStringList("key")};
    WatchIndex watch{&table};
    std::unique_ptr<BombLimit> limit;
    RecordsTrans changes{&table};
};

struct Step
{
    const char* name;
    int rows; // at first
    void (*act)(Fixture& f);
};

const Step steps[] = {
    {"transaction", 12,
     [](Fixture& f) {
         f.changes.remove(f.table.at(2));
         f.changes.update(f.table.at(3), row(f.table, 40, 0), Key, Key);
         f.changes.update(f.table.at(4), row(f.table, -1, 0));
         f.changes.update(f.table.at(5), row(f.table, 41, 2));
         f.changes.insert(row(f.table, 3, 0));
         f.changes.insert(row(f.table, 4, 2));
     }},
    {"one update", 12, [](Fixture& f) { f.changes.update(f.table.at(5), row(f.table, 2, 1)); }},
    {"one removal", 12, [](Fixture& f) { f.changes.remove(f.table.at(6)); }},
    {"many insertions", 6,
     [](Fixture& f) {
         Rows rows;
         for (int i = 0; i < 20; ++i)
             rows.append(row(f.table, i * 7 % 20, i % 3));
         f.table.appendList(rows);
     }},
    {"remove a row", 12, [](Fixture& f) { f.table.remove(f.table.at(4)); }},
    {"update in place", 12,
     [](Fixture& f) {
         f.table.at(4).data(Key) = 30;
         f.table.updated(f.table.at(4), Key, Key);
     }},
    {"clear", 12, [](Fixture& f) { f.table.clear(); }},
    {"add a column", 8,
     [](Fixture& f) {
         f.watch.clear();
         f.table.addColumn("more", FieldType::Integer);
     }},
    {"rebuild", 8,
     [](Fixture& f) {
         for (Index* index : f.table.indexes())
             index->rebuild();
     }},
    {"resort", 8,
     [](Fixture& f) {
         f.sorted.resort();
         f.keyed.resort();
         f.vector.resort();
     }},
};

} // namespace

class TestThrows : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // Rows changed in place are scanned for, with a warning each.
        QLoggingCategory::setFilterRules(QStringLiteral("default.warning=false"));
    }
    void anyCallMayThrow()
    {
        for (const Step& step : steps)
            for (const bool keyedMaster : {false, true})
                for (const bool limited : {false, true})
                    run(step, keyedMaster, limited);
    }

private:
    static void apply(const Step& step, Fixture& fixture)
    {
        step.act(fixture);
        fixture.changes.execute();
    }
    void run(const Step& step, bool keyedMaster, bool limited)
    {
        Fixture unhurt(keyedMaster, step.rows, limited);
        apply(step, unhurt);
        const int rowsAfter = unhurt.table.rowCount();
        QCOMPARE(unhurt.fault(), QString());
        bool thrown = true;
        for (int n = 1; thrown; ++n) {
            Fixture fixture(keyedMaster, step.rows, limited);
            const QList<Index*> indexes = fixture.table.indexes();
            const QString where = QString("%1, call %2, keyed master %3, limited %4: ")
                                      .arg(step.name)
                                      .arg(n)
                                      .arg(keyedMaster)
                                      .arg(limited);
            Bomb::left = n;
            const QString text = outcome([&] { apply(step, fixture); });
            thrown = text == "Q:bomb";
            QVERIFY2(thrown || text.isNull(), qPrintable(where + text));
            Bomb::left = 0;
            QCOMPARE(fixture.table.indexes(), indexes);
            const int rows = fixture.table.rowCount();
            QVERIFY2(rows == rowsAfter || (thrown && rows == step.rows),
                     qPrintable(where + QString::number(rows)));
            for (int key : {5, -7}) {
                fixture.heal(key, n);
                const QString fault = fixture.fault();
                QVERIFY2(fault.isEmpty(), qPrintable(where + fault));
            }
            QVERIFY(n < 5000);
        }
    }
};

QTEST_GUILESS_MAIN(TestThrows)

#include "tst_throws.moc"
