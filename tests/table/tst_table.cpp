// SPDX-License-Identifier: MIT
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "support/journal.h"
#include "support/outcome.h"
#include "support/seed.h"
#include "table/cellreader.h"
#include "table/recordstrans.h"
#include "table/recordupdater.h"

#include <QtTest>

#include <random>

namespace {

int value(const Record& r, int column = 0)
{
    return r.data(column).toInteger();
}

} // namespace

class TestTable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void copyOfColumnRange()
    {
        std::mt19937 random(1);
        Table table("t");
        for (int i = 0; i < 19; ++i)
            table.addColumn(QString::number(i), i % 3 ? FieldType::Integer : FieldType::VarChar, 5);
        for (int first = -1; first < 19; ++first) {
            for (int last = -1; last < 19; ++last) {
                Record rows[2] = {Record(&table), Record(&table)};
                for (Record& r : rows)
                    for (int c = 0; c < 19; ++c)
                        if (random() % 2)
                            r.data(c) = int(random() % 99999);
                const Record before = rows[0].clone();
                rows[0].copy(rows[1], first, last);
                const int to = last < 0 ? 18 : last;
                for (int c = 0; c < 19; ++c) {
                    const Record& want = c >= first && c <= to ? rows[1] : before;
                    QCOMPARE(rows[0].data(c).isNull(), want.data(c).isNull());
                    QCOMPARE(rows[0].data(c).toString(), want.data(c).toString());
                }
            }
        }
    }

    // Typed readers tell what the cells tell, also when columns come after them.
    void typedReaders()
    {
        Table table("t");
        const FieldType::Type types[] = {
            FieldType::Integer,  FieldType::Integer64, FieldType::Double, FieldType::Decimal,
            FieldType::XDecimal, FieldType::DateTime,  FieldType::VarChar};
        for (const FieldType::Type type : types)
            table.addColumn(QString::number(type), type, type == FieldType::VarChar ? 3 : 2);
        const CellReader<qint32> integer(&table, 0);
        const CellReader<qint64> integer64(&table, 1);
        const CellReader<double> real(&table, 2);
        const CellReader<decimal> fixed(&table, 3);
        const CellReader<xdecimal> wide(&table, 4);
        const CellReader<datetime> time(&table, 5);
        const CellReader<QStringView> text(&table, QString::number(FieldType::VarChar));
        for (const char* name : {"late", "later"}) {
            for (const QString written : {"", "7", "-12", "345", "6789"}) {
                const Record row(&table);
                for (int c = 0; c < 7 && !written.isEmpty(); ++c)
                    row.data(c) = types[c] == FieldType::VarChar ? written.left(3) : written;
                QCOMPARE(integer.isNull(row), row.data(0).isNull());
                QCOMPARE(integer(row), row.data(0).toInteger());
                QCOMPARE(integer64(row), row.data(1).toInteger64());
                QCOMPARE(real(row), row.data(2).toDouble());
                QCOMPARE(fixed(row), row.data(3).toDecimal());
                QCOMPARE(wide(row), row.data(4).toXDecimal());
                QCOMPARE(time(row), row.data(5).toDatetime());
                QCOMPARE(text(row).toString(), row.data(6).toString());
            }
            table.addColumn(name, FieldType::VarChar, 300);
        }
        const QString wrong("Q:Incorrect type of field.");
        QCOMPARE(outcome([&] { CellReader<qint32>(&table, 1); }), wrong);
        QCOMPARE(outcome([&] { CellReader<QStringView>(&table, "9"); }),
                 QString("Q:Column '9' not found."));
        QCOMPARE(outcome([&] { CellReader<double>(nullptr, 2); }),
                 QString("Q:Column '2' not found."));
    }

    void columnClashes()
    {
        const QString clash("Q:Column '%1' already exists for table 'T'.");
        const std::tuple<QString, int, int, QString> rows[] = {
            {"", 1, 0, "Q:Column name can't be empty."},
            {"LONG", 2, 0, ""},
            {"long", 1, 0, ""}, // an integer goes into an integer64
            {"text", 5, 3, ""},
            {"text", 5, 9, clash.arg("text")},
            {"int", 2, 0, clash.arg("int")},
            {"Text", 3, 0, clash.arg("Text")},
            {"a%2", 1, 0, ""}, // alone is new
            {"new", 5, 0, "Q:Length of string can't be zero"},
            {"new", 9, 0, "Q:Type is undefined."},
        };
        for (const auto& [name, type, length, error] : rows) {
            Table table("T");
            table.addColumn("long", FieldType::Integer64);
            table.addColumn("text", FieldType::VarChar, 4);
            table.addColumn("int", FieldType::Integer);
            table.appendRow();
            const unsigned char* before = table.at(0).row();
            QCOMPARE(outcome([&, n = name, t = type, l = length] {
                         table.addColumn(n, FieldType::Type(t), l);
                     }),
                     error);
            QCOMPARE(table.columnCount(), name == "a%2" ? 4 : 3);
            QCOMPARE(table.at(0).row() != before, name == "a%2"); // else nothing has moved
        }
        Table wide("wide"); // its rows do not fit into memory, and none is made
        for (int i = 0; i < 40; ++i)
            wide.addColumn(QString::number(i), FieldType::VarChar, 0x7FFFFFFF);
    }

    // Columns come while rows are there: cells stay, new ones read NULL, old handles are harmless.
    void addColumnMovesRows()
    {
        IntegerTable table("t", {"a"});
        SortedView view(&table, QStringList("-a"));
        for (int i = 0; i < 20; ++i)
            table.appendList({row(table, i)});
        for (int c = 1; c < 18; ++c) {
            const Record held = table.at(3);
            QTest::ignoreMessage(QtWarningMsg, "Table::addColumn : Ref count in realloc is 1");
            table.addColumn(QString::number(c),
                            c % 4 == 3 ? FieldType::XDecimal : FieldType::Integer, 2, c % 2);
            QVERIFY(!held.table() && held.data(0).isNull() && held.clone().isNull());
            QVERIFY(!held.inTable() && held.dump() == "{ NULL }");
            for (int i = 0; i < 20; ++i) {
                const Record now = table.at(i);
                QVERIFY(value(now) == i && view.at(19 - i) == now && now.inTable());
                for (int before = 1; before < c; ++before)
                    QCOMPARE(now.data(before).toString(),
                             QString::number(before * i) + (before % 4 == 3 ? ".00" : ""));
                QVERIFY(now.data(c).isNull());
                now.data(c) = c * i;
            }
        }
        const Record fresh(&table);
        QVERIFY(!fresh.data(2).isNull() && fresh.data(1).isNull());
        QCOMPARE(fresh.data(4).toInteger(), 0);
    }

    void notificationsComeInOrder()
    {
        IntegerTable table("t", {"a", "b"});
        QStringList log;
        const Journal one(log, "1", &table);
        const Journal two(log, "2", &table);
        Journal dependent(log);
        table.addDependentIndex(&dependent);
        table.beginUpdate();
        table.beginUpdate();
        table.appendList({row(table, 1), row(table, 2), row(table, 3)});
        RecordsTrans changes(&table);
        RecordUpdater(changes, table.at(0)).data(0) = 7;
        changes.remove(table.at(1));
        changes.execute();
        QVERIFY(changes.isEmpty());
        table.endUpdate();
        table.endUpdate();
        table.removeDependentIndex(&dependent);
        const Record first = table.at(0);
        table.updated(first, 0, 1);
        table.remove(first);
        table.appendRow(table.allocRow());
        table.clear();
        // What each of the two is told in turn; a blank line where the turns end.
        const QString want[] = {"begin",
                                "pre 0 0 3 -1--1 state 1 :\nnew",
                                "process 0 0 3 -1--1 state 2 :",
                                "pre 1 1 0 0-0 state 1 : 1\nnew 7",
                                "process 1 1 0 0-0 state 2 : 7",
                                "end",
                                "update 0-1 -1 : 7",
                                "remove -1 : 7",
                                "add ",
                                "clear"};
        QStringList expected;
        for (const QString& told : want)
            for (const char* name : {"1 ", "2 "})
                for (const QString& line : told.split('\n'))
                    expected.append(name + line);
        expected.insert(0, "dependent begin");
        expected.insert(expected.indexOf("2 end") + 1, "dependent end");
        QCOMPARE(log, expected);
    }

    // What a notification raises is applied afterwards, in one transaction, by whichever call it
    // came.
    void changesFromInsideWait()
    {
        IntegerTable table("t", {"a", "b"});
        table.appendList({row(table, 1), row(table, 2)});
        SortedView view(&table, QStringList("a"));
        SortedView small(&table, QStringList("a"));
        small.setFilter([](const Record& r) { return value(r) < 100; }, {0});
        QStringList log;
        Journal journal(log, QString(), &table);
        for (const char* when : {"pre", "process"}) {
            journal.at(when, [&] {
                QVERIFY(table.transactionState() != 0);
                RecordsTrans inner(&table);
                RecordUpdater(inner, table.at(1)).data(1) = 22; // while the outer changes column a
                inner.execute();
                QVERIFY(inner.isEmpty());
                table.appendRow(row(table, 9).row());
                table.at(0).data(0) = 100; // in place
                table.updated(table.at(0), 0, 0);
                QCOMPARE(outcome([&] { table.addColumn("c", FieldType::Integer); }),
                         QString("Q:Columns can't be added while a transaction is applied."));
            });
            log.clear();
            const int before = table.rowCount();
            RecordsTrans outer(&table);
            RecordUpdater(outer, table.at(1)).data(0) = before + 1;
            outer.execute();
            QCOMPARE(value(table.at(1), 0), before + 1);
            QCOMPARE(value(table.at(1), 1), 22);
            QCOMPARE(table.rowCount(), before + 1);
            QCOMPARE(view.count(), before + 1);
            QCOMPARE(small.count(), before); // the row changed in place has left it
            QCOMPARE(log.filter("process").size(), 2);
        }
        // A row appended by what an append raises comes once to every index, also to the one
        // behind.
        Journal late(log, "late", &table);
        journal.at("add", [&] { table.appendRow(); });
        log.clear();
        table.appendRow();
        QCOMPARE(log, QStringList(
                          {"add ", "late add ", "pre 0 0 1 -1--1 state 1 :", "new",
                           "late pre 0 0 1 -1--1 state 1 :", "late new",
                           "process 0 0 1 -1--1 state 2 :", "late process 0 0 1 -1--1 state 2 :"}));
    }

    void misuseIsHarmless()
    {
        IntegerTable table("t", {"a"});
        Table other("o");
        other.addColumn("a", FieldType::BoardList);
        table.appendList({row(table, 1), row(table, 2)});
        SortedView view(&table, QStringList("a"));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("Table::process : rows of another"));
        table.appendList({Record(&other), row(table, 3), Record()});
        QCOMPARE(table.rowCount(), 3);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("Table::appendRow"));
        table.appendRow(table.at(0).row());
        QCOMPARE(table.rowCount(), 3);
        table.appendList({table.at(0)}); // in it already: takes a new place
        QCOMPARE(table.rowCount(), 3);
        QCOMPARE(value(table.at(2)), 1);
        QCOMPARE(view.count(), 3);
        const Record twice = row(table, 4);
        table.appendList({twice, twice});
        QCOMPARE(table.rowCount(), 4);
        table.remove(twice);
        table.remove(Record(&other));
        table.updated(Record());
        table.updatedRow(17);
        table.setNull(-1, 0);
        table.setNull(0, 9);
        QVERIFY(table.at(-1).isNull() && table.at(3).isNull() && table.data(9, 9).isNull());
        QVERIFY(&table.at(-1) == &Record::null);
        table.setMasterIndex(nullptr);
        QCOMPARE(table.rowCount(), 0);
        QVERIFY(!table.appendRow().inTable() && Record(&table, "x").isNull());
    }

    void rowsOutliveTheirTable()
    {
        Record kept;
        RecordsTrans waiting;
        {
            IntegerTable table("t", {"a"});
            for (int i = 0; i < 3000; ++i)
                table.appendRow();
            kept = table.at(1500);
            waiting.update(table.at(7), table.at(8));
        }
        QVERIFY(!kept.table() && kept.data("a").isNull() && kept.toString().isNull());
        Record(kept).copy(kept, 0, 0);
    }

    // Transactions merged into one do what they do one after the other.
    void mergedTransactions()
    {
        for (const quint32 seed : testSeeds(300)) {
            const SeedScope scope(seed);
            std::mt19937 random(seed);
            Table one("one");
            Table merged("merged");
            Table* const tables[2] = {&one, &merged};
            std::vector<Record> rows[2];
            for (const int t : {0, 1}) {
                for (int c = 0; c < 70; ++c) // more than fit in one word of a column set
                    tables[t]->addColumn(QString::number(c), FieldType::Integer);
                for (int i = 0; i < 14; ++i) {
                    rows[t].push_back(row(*tables[t], i));
                    if (i < 12) // the last two are yet to be inserted
                        tables[t]->appendList({rows[t].back()});
                }
            }
            RecordsTrans sum(&merged);
            bool gone[14] = {};
            for (int n = int(random() % 6); n >= 0; --n) {
                const bool asLists = random() % 2;
                if (asLists) // lists have one range for all: the same only with nothing pending
                    sum.execute();
                RecordsTrans part[2] = {RecordsTrans(&one), RecordsTrans(&merged)};
                for (int k = int(random() % 12); k >= 0; --k) {
                    const size_t i = random() % 14;
                    const int column = 1 + int(random() % 69);
                    const int what = int(random() % 8);
                    const int v = int(random() % 3);
                    for (const int t : {0, 1}) {
                        const Record& r = rows[t][i];
                        if (i >= 12) {
                            if (n == 0)
                                part[t].insert(r);
                        } else if (what == 0) {
                            part[t].remove(r);
                        } else if (!gone[i] && what < 5) {
                            RecordUpdater(part[t], r).data(column) = v;
                        } else if (!gone[i]) {
                            const Record content = r.clone();
                            content.data(column) = v;
                            part[t].update(r, content, column, column);
                        }
                    }
                    gone[i] = gone[i] || (i < 12 && what == 0);
                }
                part[0].execute();
                if (asLists) {
                    sum.merge(part[1].removed(), part[1].updated(), part[1].firstColumn(),
                              part[1].lastColumn(), part[1].inserted(), part[1].changed());
                    sum.execute();
                } else {
                    sum.merge(part[1]);
                }
            }
            sum.execute();
            QVERIFY(sum.isEmpty() && sum.lastColumn() < sum.firstColumn());
            for (size_t i = 0; i < 14; ++i) {
                QCOMPARE(rows[1][i].inTable(), rows[0][i].inTable());
                QCOMPARE(rows[1][i].referenceCount(), rows[1][i].inTable() ? 2 : 1);
                for (int c = 0; c < 70 && rows[0][i].inTable(); ++c)
                    QCOMPARE(rows[1][i].data(c).toVariant(), rows[0][i].data(c).toVariant());
            }
        }
    }

    void mergeRules()
    {
        IntegerTable table("t", {"a", "b"});
        SortedView view(&table, QStringList("a"));
        table.appendList({row(table, 1)});
        using Call = std::function<void(RecordsTrans&, const Record&)>;
        const Call calls[] = {nullptr, [](RecordsTrans& t, const Record& r) { t.insert(r); },
                              [](RecordsTrans& t, const Record& r) { t.remove(r); },
                              [](RecordsTrans& t, const Record& r) { t.update(r, r, 1, 1); }};
        // [held][next] -> operation, for a row that is not in the table
        const int want[4][4] = {{0, 1, 2, 3}, {1, 1, 2, 1}, {2, 1, 2, 2}, {3, 1, 2, 3}};
        for (int held = 0; held < 4; ++held) {
            for (int next = 1; next < 4; ++next) {
                RecordsTrans trans;
                const Record r = row(table, 2);
                if (held)
                    calls[held](trans, r);
                calls[next](trans, r);
                QCOMPARE(trans.operation(r), want[held][next]);
                QCOMPARE(trans.content(r).isNull(), trans.operation(r) != 3);
                QCOMPARE(trans.count(), 1);
                trans.execute();
                QCOMPARE(r.inTable(), want[held][next] != RecordsTrans::Remove);
                QCOMPARE(view.count(), table.rowCount());
            }
        }
        RecordsTrans nothing(&table);
        {
            RecordUpdater updater(nothing, table.at(0));
            updater.data(0) = 1; // as it is
            updater.data(1) = 3;
            updater.setNull(1); // and back again
            QVERIFY(!updater.isChanged());
            QVERIFY(updater.data("nope").isNull() && updater.data(-1).isNull());
        }
        QVERIFY(nothing.isEmpty());
        RecordsTrans whole(&table);
        whole.insert(row(table, 4));
        QStringList log;
        const Journal journal(log, QString(), &table);
        whole.execute();
        QCOMPARE(log.first(), QString("pre 0 0 1 0-1 state 1 :"));
        // Between its columns a transaction leaves alone what others have written meanwhile.
        table.addColumn("c", FieldType::Integer);
        RecordsTrans outer(&table);
        RecordUpdater(outer, table.at(0)).data(0) = 5;
        RecordUpdater(outer, table.at(0)).data(2) = 6;
        RecordsTrans between(&table);
        RecordUpdater(between, table.at(0)).data(1) = 7;
        between.execute();
        outer.execute();
        QCOMPARE(table.at(0).dump().section('{', 1), QString(" a=5 b=7 c=6 }"));
    }

    void dumps()
    {
        Table table("T%2");
        table.addColumn("a", FieldType::Integer);
        table.addColumn("b", FieldType::VarChar, 9);
        const Record r = row(table, 5, "x %1 %4");
        QVERIFY(r.dump().startsWith("T%2:(ptr:0x0000"));
        QVERIFY(r.dump(true).endsWith(" ref:1) { a=5 b=x %1 %4 }"));
        r.data(1).setNull();
        QVERIFY(r.dump(false).endsWith("{ a=5 b=\"\" }") && r.dump(true).endsWith("{ a=5 }"));
    }
};

QTEST_GUILESS_MAIN(TestTable)
#include "tst_table.moc"
