// SPDX-License-Identifier: MIT
#include "index/indexdependbase.h"
#include "index/indexvector.h"
#include "index/masterindex.h"
#include "index/watchindex.h"
#include "support/seed.h"
#include "table/recordstrans.h"
#include "table/table.h"

#include <QtConcurrent>
#include <QtTest>

#include <functional>
#include <memory>
#include <random>

namespace {

enum Column
{
    Key,
    Tag
};

/// A table with an integer key, in which many rows share a value, and a tag that tells them apart.
struct Fixture
{
    Fixture()
    {
        table->addColumn(QStringLiteral("key"), FieldType::Integer);
        table->addColumn(QStringLiteral("tag"), FieldType::Integer);
    }

    Record row(int key, int tag = 0) const
    {
        Record record(table.get());
        record.data(Key) = key;
        record.data(Tag) = tag;
        return record;
    }

    Record append(int key, int tag = 0) const
    {
        const Record record = row(key, tag);
        table->appendList({record});
        return record;
    }

    void update(const QVector<QPair<Record, int>>& keys) const
    {
        RecordsTrans changes(table.get());
        for (const auto& [record, key] : keys)
            changes.update(record, row(key), Key, Key);
        changes.execute();
    }

    std::unique_ptr<Table> table = std::make_unique<Table>(QStringLiteral("rows"));
};

int keyOf(const Record& record)
{
    return record.data(Key).toInteger();
}

template <typename Records>
QVector<int> keysOf(const Records& records)
{
    QVector<int> keys;
    for (const Record& record : records)
        keys.append(keyOf(record));
    return keys;
}

/// By key, and only keys below `bound`; compare and filter throw at the n-th call when asked to.
class KeyVector : public IndexVector
{
public:
    explicit KeyVector(Table* table, int limit = 1000)
        : IndexVector(table)
        , bound(limit)
    {
        build();
    }

    bool filter(const Record& record) const override
    {
        countDown();
        return keyOf(record) < bound;
    }
    int compare(const Record& a, const Record& b) const override
    {
        countDown();
        return keyOf(a) - keyOf(b);
    }
    void countDown() const
    {
        if (callsLeft > 0 && --callsLeft == 0)
            throw QStringLiteral("enough");
    }

    int bound;
    mutable int callsLeft = 0;
};

/// Writes down what it is told.
class Probe : public Index
{
public:
    explicit Probe(QStringList& l, const QString& n)
        : log(l)
        , name(n)
    {}
    void clear() override { note(QStringLiteral("clear")); }
    void build() override { note(QStringLiteral("build")); }
    void add(const Record& record) override { note(QStringLiteral("add %1").arg(keyOf(record))); }
    void remove(const Record& record, int position) override
    {
        note(QStringLiteral("remove %1 %2").arg(keyOf(record)).arg(position));
    }
    void update(const Record& record, int first, int last, int position) override
    {
        note(QStringLiteral("update %1 %2 %3 %4")
                 .arg(keyOf(record))
                 .arg(first)
                 .arg(last)
                 .arg(position));
    }
    void preprocess(const QList<Record>& removed, const QList<Record>& updated, int first, int last,
                    const QList<Record>& inserted, const QList<Record>& changes) override
    {
        note(QStringLiteral("preprocess %1 %2 %3 %4 %5 %6")
                 .arg(removed.size())
                 .arg(updated.size())
                 .arg(first)
                 .arg(last)
                 .arg(inserted.size())
                 .arg(changes.size()));
    }
    void process(const QList<Record>& removed, const QList<Record>& updated, int first, int last,
                 const QList<Record>& inserted) override
    {
        note(QStringLiteral("process %1 %2 %3 %4 %5")
                 .arg(removed.size())
                 .arg(updated.size())
                 .arg(first)
                 .arg(last)
                 .arg(inserted.size()));
    }
    bool filter(const Record&) const override { return false; }
    bool contains(const Record&) const override { return false; }
    QString getClassName() const override { return QStringLiteral("Probe"); }

    std::function<void()> onNotify;

private:
    void note(const QString& text)
    {
        log.append(name + QLatin1Char(' ') + text);
        // Moved out, since it may delete this probe.
        const auto action = std::move(onNotify);
        if (action)
            action();
    }

    QStringList& log;
    const QString name;
};

} // namespace

class TestSmallIndexes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void watchFollowsAScript_data();
    void watchFollowsAScript();

    void vectorSearches();
    void vectorFollowsAModel();

    void dependentsAreToldAll();
    void dependentsMayComeAndGo();

    void indexesAndTablesDieInAnyOrder();
};

// a .. d stand for rows, + - * for adding, removing and updating, ! for clear, ? for build.
void TestSmallIndexes::watchFollowsAScript_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("expected"); // added, removed, updated
    const char* const cases[][2] = {
        {"+a+b", "ab//"},   {"-a-b", "/ab/"},        {"*a*b*a", "//aba"},   {"-a+a", "//a"},
        {"+a-a", "a/a/"},   {"+a-a+a", "a//a"},      {"*a-a", "/a/a"},      {"*a-a+a", "//aa"},
        {"-a-a+a", "/a/a"}, {"-a-a+a+a+a", "a//aa"}, {"-a-b-c+b", "/ac/b"}, {"-a-b-a+a", "/ba/a"},
        {"-a!+a", "a//"},   {"-a?+a", "a//"},        {"+a-b*c!", "//"},
    };
    for (const auto& row : cases)
        QTest::newRow(row[0]) << QString::fromLatin1(row[0]) << QString::fromLatin1(row[1]);
}

void TestSmallIndexes::watchFollowsAScript()
{
    QFETCH(QString, script);
    QFETCH(QString, expected);
    const Fixture fixture;
    QVector<Record> rows;
    for (int i = 0; i < 4; ++i)
        rows.append(fixture.row(i));
    WatchIndex watch(fixture.table.get());
    for (int i = 0; i < script.size(); ++i) {
        const QChar operation = script.at(i);
        if (operation == QLatin1Char('!')) {
            watch.clear();
        } else if (operation == QLatin1Char('?')) {
            watch.build();
        } else {
            const Record& row = rows.at(script.at(++i).unicode() - 'a');
            if (operation == QLatin1Char('+'))
                watch.add(row);
            else if (operation == QLatin1Char('-'))
                watch.remove(row, 7);
            else
                watch.update(row, 0, 0, 3);
        }
    }
    const auto text = [](const QList<Record>& records) {
        QString names;
        for (int key : keysOf(records))
            names += QChar('a' + key);
        return names;
    };
    QCOMPARE(text(watch.added()) + QLatin1Char('/') + text(watch.removed()) + QLatin1Char('/') +
                 text(watch.updated()),
             expected);
    for (const Record& row : qAsConst(rows))
        QCOMPARE(watch.contains(row), watch.added().contains(row) || watch.updated().contains(row));
}

void TestSmallIndexes::vectorSearches()
{
    const Fixture fixture;
    for (int key : {1, 3, 3, 3, 5})
        fixture.append(key);
    const KeyVector vector(fixture.table.get());
    const Record three = fixture.row(3);
    QCOMPARE(vector.search(three), 1);
    QCOMPARE(vector.search(three, 0), 1);
    QCOMPARE(vector.search(three, 1), 2);
    QCOMPARE(vector.search(three, 3), -1);
    QCOMPARE(vector.search(three, 1000), -1);
    QCOMPARE(vector.search(fixture.row(4)), -1);
    QVERIFY(vector.contains(three) && !vector.contains(fixture.row(4)));
    QCOMPARE(vector.indexOf(vector.records().at(0)), -1);
    QCOMPARE(vector.getClassName(), QStringLiteral("IndexVector"));
}

void TestSmallIndexes::vectorFollowsAModel()
{
    for (const quint32 seed : testSeeds(100)) {
        const SeedScope scope(seed);
        std::mt19937 random(seed);
        const Fixture fixture;
        KeyVector vector(fixture.table.get(), 6);
        QVector<Record> live;
        QVector<Record> model; // in order; equal keys in arrival order
        const auto put = [&](const Record& record) {
            const auto isGreater = [&](const Record& other) {
                return keyOf(other) > keyOf(record);
            };
            if (keyOf(record) < 6)
                model.insert(std::find_if(model.begin(), model.end(), isGreater), record);
        };
        for (int step = 0; step < 60; ++step) {
            RecordsTrans changes(fixture.table.get());
            QVector<Record> updated;
            QVector<Record> inserted;
            for (int i = 0; i < live.size(); ++i) {
                const unsigned choice = random() % 8;
                if (choice == 0) {
                    changes.remove(live[i]);
                    model.removeOne(live[i]);
                    live.remove(i--);
                } else if (choice < 4) {
                    changes.update(live[i], fixture.row(int(random() % 8)), Key, Key);
                    updated.append(live[i]);
                    model.removeOne(live[i]);
                }
            }
            for (unsigned n = random() % 4; n > 0; --n) {
                inserted.append(fixture.row(int(random() % 8), step));
                changes.insert(inserted.last());
            }
            changes.execute();
            std::for_each(updated.cbegin(), updated.cend(), put);
            std::for_each(inserted.cbegin(), inserted.cend(), put);
            live += inserted;
            QCOMPARE(vector.records(), model);
        }
    }
}

void TestSmallIndexes::dependentsAreToldAll()
{
    const Fixture fixture;
    const Record row = fixture.row(8);
    QStringList log;
    Probe a(log, QStringLiteral("a"));
    Probe b(log, QStringLiteral("b"));
    IndexDependBase base(&a);
    QCOMPARE(base.index(), &a);
    base.add(row); // nobody hears it
    base.addDependentIndex(&b);
    base.addDependentIndex(&a);
    base.addDependentIndex(&b);
    base.add(row); // although the filter refuses it
    QCOMPARE(log, (QStringList{"b add 8", "a add 8", "b add 8"}));
    base.removeDependentIndex(&b);
    QCOMPARE(base.dependentIndexes(), (QList<Index*>{&a, &b}));
    base.removeDependentIndex(&b);
    base.removeDependentIndex(&b);
    log.clear();
    base.clear();
    base.build();
    base.remove(row, 3);
    base.update(row, 1, 2, 4);
    base.preprocess({row}, {row, row}, 5, 6, {}, {row, row, row});
    base.process({}, {row}, -1, 3, {row, row});
    QCOMPARE(log, (QStringList{"a clear", "a build", "a remove 8 3", "a update 8 1 2 4",
                               "a preprocess 1 2 5 6 0 3", "a process 0 1 -1 3 2"}));
}

void TestSmallIndexes::dependentsMayComeAndGo()
{
    QStringList log;
    IndexDependBase base;
    std::vector<std::unique_ptr<Probe>> probes;
    for (const char* name : {"a", "b", "c", "d"})
        probes.push_back(std::make_unique<Probe>(log, QString::fromLatin1(name)));
    for (std::size_t i = 0; i < 3; ++i)
        base.addDependentIndex(probes[i].get());
    probes[1]->onNotify = [&] {
        base.addDependentIndex(probes[3].get());
        for (std::size_t i : {0u, 1u, 2u}) {
            base.removeDependentIndex(probes[i].get());
            probes[i].reset();
        }
    };
    base.clear();
    QCOMPARE(log, (QStringList{"a clear", "b clear"}));
    base.preprocess({}, {}, 0, 0, {}, {});
    QCOMPARE(log.last(), QStringLiteral("d preprocess 0 0 0 0 0 0"));
    probes[3]->onNotify = [&] {
        base.removeDependentIndex(probes[3].get());
        probes[3].reset();
    };
    base.preprocess({}, {}, 0, 0, {}, {});
    base.build();
    QCOMPARE(log.size(), 4);
}

void TestSmallIndexes::indexesAndTablesDieInAnyOrder()
{
    qRegisterMetaType<Index*>("Index*");
    Fixture fixture;
    const Record row = fixture.append(1);
    QSignalSpy removals(fixture.table.get(), &Table::indexRemoved);
    {
        WatchIndex watch(fixture.table.get());
        KeyVector vector(fixture.table.get());
        QCOMPARE(fixture.table->indexes(), (QList<Index*>{&watch, &vector}));
    }
    QVERIFY(fixture.table->indexes().isEmpty());
    QCOMPARE(removals.count(), 2);

    WatchIndex watch(fixture.table.get());
    KeyVector vector(fixture.table.get());
    watch.add(row);
    QVERIFY(watch.table() == fixture.table.get() && vector.table() == fixture.table.get());
    fixture.table.reset();
    QVERIFY(!watch.table() && !vector.table());
    QVERIFY(watch.added().isEmpty() && vector.records().isEmpty());
    vector.rebuild();
    QVERIFY(vector.records().isEmpty());
    QCOMPARE(removals.count(), 2);
}

QTEST_GUILESS_MAIN(TestSmallIndexes)

#include "tst_smallindexes.moc"
