// SPDX-License-Identifier: MIT
#include "index/indexdependbase.h"
#include "index/indexlimit.h"
#include "index/indexvector.h"
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "index/watchindex.h"
#include "table/recordstrans.h"
#include "table/table.h"

#include <QSet>
#include <QtTest>

#include <atomic>
#include <functional>
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

class BombList : public IndexList
{
public:
    explicit BombList(Table* table)
        : IndexList(table, true)
    {
        build();
    }
    bool filter(const Record& record) const override { return wanted(record); }
};

class BombSort : public IndexSort
{
public:
    explicit BombSort(Table* table, bool autoAttach = true, bool keyed = false)
        : IndexSort(table, autoAttach)
        , isKeyed(keyed)
    {
        build();
    }
    int compare(const Record& a, const Record& b) const override { return byKey(a, b); }
    bool filter(const Record& record) const override { return wanted(record); }
    int sortKeyWords() const override { return isKeyed ? 1 : 0; }
    SortKey sortKey(const Record& record) const override
    {
        Bomb::tick();
        return {quint64(keyOf(record) + 1000) / 4, 0};
    }

private:
    const bool isKeyed;
};

class BombVector : public IndexVector
{
public:
    explicit BombVector(Table* table)
        : IndexVector(table)
    {
        build();
    }
    int compare(const Record& a, const Record& b) const override { return byKey(a, b); }
    bool filter(const Record& record) const override { return wanted(record); }
};

class BombMaster : public MasterIndex
{
public:
    explicit BombMaster(Table* table)
        : MasterIndex(table, QList<int>{Key})
    {}
    int compare(const Record& a, const Record& b) const override { return byKey(a, b); }
    QString toText(const Record&) const override { return QString(); }
    Record fromText(const QString&) const override { return Record(table()); }
};

class BombLimit : public IndexLimit
{
public:
    BombLimit(int limit, Table* table)
        : IndexLimit(limit, table)
    {
        build();
    }
    int compare(const Record& a, const Record& b) const override { return byKey(a, b); }
};

class BombListener : public Index
{
public:
    void clear() override { Bomb::tick(); }
    void build() override { Bomb::tick(); }
    void add(const Record&) override { Bomb::tick(); }
    void preprocess(const QList<Record>&, const QList<Record>&, int, int, const QList<Record>&,
                    const QList<Record>&) override
    {
        Bomb::tick();
    }
    void process(const QList<Record>&, const QList<Record>&, int, int,
                 const QList<Record>&) override
    {
        Bomb::tick();
    }
    void remove(const Record&, int) override { Bomb::tick(); }
    bool filter(const Record& record) const override { return wanted(record); }
    bool contains(const Record&) const override { return false; }
    void update(const Record&, int, int, int) override { Bomb::tick(); }
    QString getClassName() const override { return QStringLiteral("BombListener"); }
};

using Rows = QList<Record>;

/// A table with all kinds of views that throw, some of them twice so that each has neighbours on
/// both sides.
struct Fixture
{
    explicit Fixture(bool keyedMaster, int count, bool limited)
    {
        table->addColumn(QStringLiteral("key"), FieldType::Integer);
        table->addColumn(QStringLiteral("group"), FieldType::Integer);
        if (keyedMaster)
            table->setMasterIndex(new BombMaster(table.get()));
        Rows rows;
        for (int i = 0; i < count; ++i)
            rows.append(row(i * 7 % count / 2, i % 3));
        table->appendList(rows);
        table->addIndex(&first);
        list = std::make_unique<BombList>(table.get());
        sorted = std::make_unique<BombSort>(table.get());
        keyed = std::make_unique<BombSort>(table.get(), true, true);
        vector = std::make_unique<BombVector>(table.get());
        ready = std::make_unique<SortedView>(table.get(), QStringList(QStringLiteral("key")));
        ready->setFilter(wanted, {Group});
        if (limited)
            limit = std::make_unique<BombLimit>(count, table.get());
        table->addIndex(&last);
        watch = std::make_unique<WatchIndex>(table.get());
    }
    ~Fixture()
    {
        for (Index* index : std::initializer_list<Index*>{&first, &last})
            table->removeIndex(index);
    }

    Record row(int key, int group) const
    {
        Record record(table.get());
        record.data(Key) = key;
        record.data(Group) = group;
        return record;
    }

    Rows rows() const
    {
        Rows all;
        for (int i = 0; i < table->rowCount(); ++i)
            all.append(table->at(i));
        return all;
    }

    // Changes of each kind, by single calls or by a transaction.
    void heal(int key, int kind)
    {
        if (kind % 4 == 1) {
            table->appendRow();
            return;
        }
        if (kind % 4 == 2 && table->rowCount() > 0) {
            table->remove(table->at(0));
            return;
        }
        if (kind % 4 == 3 && table->rowCount() > 0) {
            const Record record = table->at(table->rowCount() / 2);
            record.data(Key) = key;
            table->updated(record, Key, Key);
            return;
        }
        RecordsTrans changes(table.get());
        changes.insert(row(key, 0));
        changes.insert(row(key, 2));
        if (table->rowCount() > 2) {
            changes.update(table->at(0), row(key + 1, 1));
            changes.update(table->at(1), row(key - 3, 2));
            changes.remove(table->at(table->rowCount() - 1));
        }
        changes.execute();
    }

    QString fault() const
    {
        const Rows all = rows();
        QSet<Record> distinct(all.begin(), all.end());
        if (distinct.size() != all.size() || distinct.contains(Record()))
            return QStringLiteral("rows of the table");
        if (table->transactionState() != 0)
            return QStringLiteral("state");
        Rows expected;
        std::copy_if(all.begin(), all.end(), std::back_inserter(expected), isWanted);
        const auto holds = [](const auto& view, Rows rows, bool isSorted) {
            Rows held;
            for (const Record& record : view)
                held.append(record);
            for (int i = 1; isSorted && i < held.size(); ++i) {
                if (keyOf(held.at(i - 1)) > keyOf(held.at(i)))
                    return false;
            }
            std::sort(held.begin(), held.end());
            std::sort(rows.begin(), rows.end());
            return held == rows;
        };
        if (!holds(*list, expected, false))
            return QStringLiteral("list");
        if (!holds(*sorted, expected, true))
            return QStringLiteral("sorted view");
        if (!holds(*keyed, expected, true))
            return QStringLiteral("keyed view");
        if (!holds(vector->records(), expected, true))
            return QStringLiteral("vector");
        if (!holds(*ready, expected, true))
            return QStringLiteral("ready view");
        if (limit && !holds(*limit, all, true))
            return QStringLiteral("limit");
        if (!holds(*table->masterIndex(), all, !table->masterIndex()->columns().isEmpty()))
            return QStringLiteral("master");
        return QString();
    }

    std::unique_ptr<Table> table = std::make_unique<Table>(QStringLiteral("table"));
    BombListener first;
    BombListener last;
    std::unique_ptr<BombList> list;
    std::unique_ptr<BombSort> sorted;
    std::unique_ptr<BombSort> keyed;
    std::unique_ptr<BombVector> vector;
    std::unique_ptr<SortedView> ready;
    std::unique_ptr<BombLimit> limit;
    std::unique_ptr<WatchIndex> watch;
};

using Step = std::function<void(Fixture&)>;

void mixedTransaction(Fixture& f)
{
    RecordsTrans changes(f.table.get());
    const Rows rows = f.rows();
    changes.remove(rows.at(2));
    changes.update(rows.at(3), f.row(40, 0), Key, Key);
    changes.update(rows.at(4), f.row(-1, 0));
    changes.update(rows.at(5), f.row(41, 2));
    changes.insert(f.row(3, 0));
    changes.insert(f.row(4, 2));
    changes.execute();
}

} // namespace

Q_DECLARE_METATYPE(Step)

class TestThrows : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // Rows changed in place are scanned for, with a warning each.
        QLoggingCategory::setFilterRules(QStringLiteral("default.warning=false"));
    }
    void anyCallMayThrow_data();
    void anyCallMayThrow();

private:
    void run(const Step& step, bool keyedMaster, int count, bool limited);
};

void TestThrows::anyCallMayThrow_data()
{
    QTest::addColumn<Step>("step");
    QTest::addColumn<int>("count");
    QTest::newRow("transaction") << Step(mixedTransaction) << 12;
    QTest::newRow("one update") << Step([](Fixture& f) {
        RecordsTrans changes(f.table.get());
        changes.update(f.table->at(5), f.row(2, 1));
        changes.execute();
    }) << 12;
    QTest::newRow("one removal") << Step([](Fixture& f) {
        RecordsTrans changes(f.table.get());
        changes.remove(f.table->at(6));
        changes.execute();
    }) << 12;
    QTest::newRow("many insertions") << Step([](Fixture& f) {
        Rows rows;
        for (int i = 0; i < 20; ++i)
            rows.append(f.row(i * 7 % 20, i % 3));
        f.table->appendList(rows);
    }) << 6;
    QTest::newRow("remove a row") << Step([](Fixture& f) { f.table->remove(f.table->at(4)); })
                                  << 12;
    QTest::newRow("update in place") << Step([](Fixture& f) {
        const Record record = f.table->at(4);
        record.data(Key) = 30;
        f.table->updated(record, Key, Key);
    }) << 12;
    QTest::newRow("clear") << Step([](Fixture& f) { f.table->clear(); }) << 12;
    QTest::newRow("add a column") << Step([](Fixture& f) {
        f.watch->clear();
        f.table->addColumn(QStringLiteral("more"), FieldType::Integer);
    }) << 8;
    QTest::newRow("rebuild") << Step([](Fixture& f) {
        f.sorted->rebuild();
        f.keyed->rebuild();
        f.vector->rebuild();
        f.list->rebuild();
        f.ready->rebuild();
    }) << 8;
    QTest::newRow("resort") << Step([](Fixture& f) {
        f.sorted->resort();
        f.keyed->resort();
        f.vector->resort();
    }) << 8;
}

void TestThrows::run(const Step& step, bool keyedMaster, int count, bool limited)
{
    Fixture unhurt(keyedMaster, count, limited);
    const int rowsBefore = unhurt.table->rowCount();
    step(unhurt);
    const int rowsAfter = unhurt.table->rowCount();
    QCOMPARE(unhurt.fault(), QString());

    bool thrown = true;
    for (int n = 1; thrown; ++n) {
        Fixture fixture(keyedMaster, count, limited);
        const QList<Index*> indexes = fixture.table->indexes();
        const QString where = QStringLiteral("call %1, keyed master %2, limited %3: ")
                                  .arg(n)
                                  .arg(keyedMaster)
                                  .arg(limited);
        thrown = false;
        Bomb::left = n;
        try {
            step(fixture);
        } catch (const QString& text) {
            thrown = true;
            QCOMPARE(text, QStringLiteral("bomb"));
        }
        Bomb::left = 0;
        QCOMPARE(fixture.table->indexes(), indexes);
        const int rows = fixture.table->rowCount();
        QVERIFY2(rows == rowsAfter || (thrown && rows == rowsBefore),
                 qPrintable(where + QString::number(rows)));
        for (int key : {5, -7}) {
            fixture.heal(key, n);
            const QString fault = fixture.fault();
            QVERIFY2(fault.isEmpty(), qPrintable(where + fault));
        }
        QVERIFY(n < 5000);
    }
}

void TestThrows::anyCallMayThrow()
{
    QFETCH(Step, step);
    QFETCH(int, count);
    for (const bool keyedMaster : {false, true}) {
        for (const bool limited : {false, true}) {
            run(step, keyedMaster, count, limited);
            if (QTest::currentTestFailed())
                return;
        }
    }
}

QTEST_GUILESS_MAIN(TestThrows)

#include "tst_throws.moc"
