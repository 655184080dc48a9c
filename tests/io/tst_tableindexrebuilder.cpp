// SPDX-License-Identifier: MIT
#include "index/indexlimit.h"
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "io/tableindexrebuilder.h"
#include "table/table.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

namespace {

QStringList journal;

/// An index of a made-up class that writes down when it is emptied and built.
class Noted : public Index
{
public:
    Noted(const QString& kind, bool isBroken = false)
        : name(kind)
        , broken(isBroken)
    {}
    void clear() override { journal << "clear " + name; }
    void build() override
    {
        journal << "build " + name;
        if (broken)
            throw QString("broken");
    }
    void add(const Record&) override { journal << "add " + name; }
    void remove(const Record&, int) override {}
    bool filter(const Record&) const override { return true; }
    bool contains(const Record&) const override { return false; }
    QString getClassName() const override { return name; }

private:
    const QString name;
    const bool broken;
};

/// The table keeps the 50 highest.
struct Highest : IndexLimit
{
    explicit Highest(Table* table)
        : IndexLimit(50, table)
    {}
    int compare(const Record& a, const Record& b) const override
    {
        return a.data(0).toInteger() - b.data(0).toInteger();
    }
};

void addNumbers(Table& table, int from, int to)
{
    QList<Record> records;
    for (int i = from; i < to; ++i) {
        const Record record(&table);
        record.data(0) = (i * 7919) % 1000;
        records.append(record);
    }
    table.appendList(records);
}

} // namespace

class tst_TableIndexRebuilder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void emptiesAndBuildsInOrder();
    void leavesViewsAsIfTheyHadFollowed();
    void attachesWhatCouldNotBeBuilt();
};

void tst_TableIndexRebuilder::emptiesAndBuildsInOrder()
{
    Table table("t");
    table.addColumn("n", FieldType::Integer);
    Noted plain("IndexSort"), dependent("IndexDependList"), joinDep("TableJoinDep"),
        joinMain("TableJoinMain"), almost("indexDepend");
    const QList<Index*> all = {&plain, &dependent, &joinDep, &joinMain, &almost};
    for (Index* index : all)
        table.addIndex(index);
    table.setIndexName("view", &plain);
    table.setIndexName("join", &joinMain);
    QSignalSpy added(&table, &Table::indexAdded);
    QSignalSpy named(&table, &Table::indexNameUpdated);
    QSignalSpy removed(&table, &Table::indexRemoved);

    journal.clear();
    {
        TableIndexRebuilder guard(&table);
        QVERIFY(table.indexes().isEmpty());
        QCOMPARE(table.namedIndex("view"), nullptr);
        QCOMPARE(removed.count(), 5);
        QCOMPARE(journal,
                 QStringList({"clear IndexSort", "clear indexDepend", "clear IndexDependList",
                              "clear TableJoinDep", "clear TableJoinMain"}));
        journal.clear();
        addNumbers(table, 0, 5);
        QVERIFY(journal.isEmpty());
    }
    QCOMPARE(journal,
             QStringList({"build TableJoinDep", "build TableJoinMain", "build IndexDependList",
                          "build IndexSort", "build indexDepend"}));
    QCOMPARE(table.indexes(), all);
    QCOMPARE(table.namedIndex("view"), &plain);
    QCOMPARE(table.namedIndex("join"), &joinMain);
    QCOMPARE(added.count(), 5);
    QCOMPARE(named.count(), 2);
    table.setIndexes({});
}

void tst_TableIndexRebuilder::leavesViewsAsIfTheyHadFollowed()
{
    Table table("t");
    table.addColumn("n", FieldType::Integer);
    SortedView ascending(&table, QStringList("n"));
    Highest limit(&table);
    addNumbers(table, 0, 40);
    {
        TableIndexRebuilder guard(&table);
        QCOMPARE(ascending.count(), 0);
        addNumbers(table, 40, 3000);
        QCOMPARE(table.rowCount(), 3000); // the limit trims nothing meanwhile
    }
    QCOMPARE(ascending.count(), 3000);
    QCOMPARE(limit.count(), 3000);
    for (int i = 1; i < ascending.count(); ++i)
        QVERIFY(ascending.compare(ascending.at(i - 1), ascending.at(i)) <= 0);
    QCOMPARE(table.namedIndex("IndexLimit"), &limit);
    addNumbers(table, 3000, 3001); // and is back
    QVERIFY(table.rowCount() < 3000);
    QCOMPARE(ascending.count(), table.rowCount());
}

void tst_TableIndexRebuilder::attachesWhatCouldNotBeBuilt()
{
    Table table("t");
    Noted broken("IndexList", true), fine("IndexList");
    table.addIndex(&broken);
    table.addIndex(&fine);
    journal.clear();
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("could not be built"));
    {
        TableIndexRebuilder guard(&table);
    }
    QCOMPARE(table.indexes(), QList<Index*>({&broken, &fine}));
    QCOMPARE(journal.count("build IndexList"), 2);
    table.setIndexes({});
}

QTEST_MAIN(tst_TableIndexRebuilder)
#include "tst_tableindexrebuilder.moc"
