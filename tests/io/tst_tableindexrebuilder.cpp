// SPDX-License-Identifier: MIT
#include "index/sortedview.h"
#include "io/tableindexrebuilder.h"
#include "support/journal.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

namespace {

void addNumbers(Table& table, int from, int to)
{
    QList<Record> records;
    for (int i = from; i < to; ++i)
        records.append(row(table, i * 7919 % 1000));
    table.appendList(records);
}

} // namespace

class tst_TableIndexRebuilder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void emptiesAndBuildsInOrder()
    {
        Table table("t");
        table.addColumn("n", FieldType::Integer);
        QStringList log;
        Journal plain(log, "IndexSort"), dependent(log, "IndexDependList"),
            joinDep(log, "TableJoinDep"), joinMain(log, "TableJoinMain"),
            almost(log, "indexDepend");
        const QList<Index*> all = {&plain, &dependent, &joinDep, &joinMain, &almost};
        for (Index* index : all)
            table.addIndex(index);
        table.setIndexName("view", &plain);
        table.setIndexName("join", &joinMain);
        QSignalSpy added(&table, &Table::indexAdded);
        QSignalSpy named(&table, &Table::indexNameUpdated);
        QSignalSpy removed(&table, &Table::indexRemoved);
        // One that cannot be built comes back all the same, and so do those behind it.
        joinMain.at("build", [] { throw QString("broken"); });
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("could not be built"));
        log.clear();
        {
            TableIndexRebuilder guard(&table);
            QVERIFY(table.indexes().isEmpty() && !table.namedIndex("view"));
            QCOMPARE(removed.count(), 5);
            addNumbers(table, 0, 5);
            QCOMPARE(log,
                     QStringList({"IndexSort clear", "indexDepend clear", "IndexDependList clear",
                                  "TableJoinDep clear", "TableJoinMain clear"}));
            log.clear();
        }
        QCOMPARE(log,
                 QStringList({"TableJoinDep build", "TableJoinMain build", "IndexDependList build",
                              "IndexSort build", "indexDepend build"}));
        QCOMPARE(table.indexes(), all);
        QVERIFY(table.namedIndex("view") == &plain && table.namedIndex("join") == &joinMain);
        QVERIFY(added.count() == 5 && named.count() == 2);
        table.setIndexes({});
    }

    void leavesViewsAsIfTheyHadFollowed()
    {
        Table table("t");
        table.addColumn("n", FieldType::Integer);
        SortedView ascending(&table, QStringList("n"));
        SortedLimit limit(50, &table, QStringList("n"));
        addNumbers(table, 0, 40);
        {
            TableIndexRebuilder guard(&table);
            QCOMPARE(ascending.count(), 0);
            addNumbers(table, 40, 3000);
            QCOMPARE(table.rowCount(), 3000); // the limit trims nothing meanwhile
        }
        QCOMPARE(limit.count(), 3000);
        QCOMPARE(ascending.count(), 3000);
        QVERIFY(
            std::is_sorted(ascending.begin(), ascending.end(), IndexSort::LessThan(&ascending)));
        QCOMPARE(table.namedIndex("IndexLimit"), &limit);
        addNumbers(table, 3000, 3001); // and is back
        QVERIFY(table.rowCount() < 3000);
        QCOMPARE(ascending.count(), table.rowCount());
    }
};

QTEST_MAIN(tst_TableIndexRebuilder)
#include "tst_tableindexrebuilder.moc"
