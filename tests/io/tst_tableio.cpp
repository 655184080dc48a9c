// SPDX-License-Identifier: MIT
// What is written is what is read: the format, other columns, convertors, filters, lists of
// records.
#include "base/exception.h"
#include "index/sortedview.h"
#include "io/tableindexrebuilder.h"
#include "support/journal.h"
#include "tables.h"

#include <QRegularExpression>

namespace {

struct Doubled : FieldDefConvertor
{
    ~Doubled() override { ++destroyed; }
    void convert(Field& target, const Field& source) override { target = source.toInteger() * 2; }
    static int destroyed;
};
int Doubled::destroyed = 0;

/// Ten rows of x, y and z.
Table& numbers()
{
    static IntegerTable table("numbers", {"x", "y", "z"});
    for (int i = 10 * table.rowCount(); i < 100; i += 10)
        table.appendList({row(table, i, i + 1, i + 2)});
    return table;
}

void addNumbers(Table& table, int from, int to)
{
    QList<Record> records;
    for (int i = from; i < to; ++i)
        records.append(row(table, i * 7919 % 1000));
    table.appendList(records);
}

} // namespace

class tst_TableIO : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void roundTrip()
    {
        for (const int columns : {1, 9, 70})
            for (const int rows : {0, 1, 10240, 10241, 100000})
                if (rows < 100000 || columns == 9)
                    roundTrip(columns, rows);
    }
    void columnsOfOneSideOnly()
    {
        Table table("t");
        addColumns(table, 20); // two bitmap bytes and a half
        fill(table, 300);
        for (const bool add : {false, true}) {
            // A table with some of the columns in another order, and two of its own.
            Table other("t");
            other.addColumn("own", FieldType::XDecimal, 2, false);
            for (const int c : {17, 3, 7})
                other.addColumn(*table.columnDef(c));
            other.addColumn("own too", FieldType::Integer);
            QCOMPARE(readBytes(other, bytesOf(table), false, add), TableIO::Ok);
            QCOMPARE(other.columnCount(), add ? 22 : 5);
            QCOMPARE(other.rowCount(), 300);
            other.addColumn("late", FieldType::Integer); // finds no stray null bits
            const Record fresh(&other);
            for (int i = 0; i < 300; ++i) {
                for (int c = 0; c < other.columnCount(); ++c) {
                    const int source = table.columnIndex(other.columnName(c));
                    const Field wanted = source < 0 ? fresh.data(c) : table.data(i, source);
                    QCOMPARE(other.data(i, c).isNull(), wanted.isNull());
                    QCOMPARE(other.data(i, c).toString(), wanted.toString());
                }
            }
        }
    }

    void convertsChangedColumns()
    {
        Table table("t");
        table.addColumn("a", FieldType::Integer);
        table.addColumn("b", FieldType::VarChar, 9);
        table.addColumn("c", FieldType::Integer, 0, false);
        table.addColumn("d", FieldType::Double);
        table.appendList({row(table, 42, "123456789", 7, 1.5), Record(&table)});
        const QByteArray bytes = bytesOf(table);
        Table other("t");
        other.addColumn("a", FieldType::Decimal, 3);
        other.addColumn("b", FieldType::VarChar, 4);
        other.addColumn("c", FieldType::Integer, 0, true); // nullable now
        other.addColumn("d", FieldType::Double);
        QCOMPARE(readBytes(other, bytes), TableIO::Ok);
        QCOMPARE(other.columnCount(), 4);
        QCOMPARE(other.at(0).dump().section('{', 1), QString(" a=42.000 b=1234 c=7 d=1.5 }"));
        QVERIFY(other.data(1, 0).isNull() && !other.data(1, 2).isNull());

        // What does not convert ends the reading, by default with the cell's own exception.
        Table strange("t");
        strange.addColumn("a", FieldType::BoardList);
        QVERIFY_EXCEPTION_THROWN(readBytes(strange, bytes, false, false), Exception);
        QDataStream stream(bytes);
        TableIO failing(&strange);
        failing.setStrict(true);
        failing.read(stream, false);
        QCOMPARE(failing.status(), TableIO::ColumnsDidNotFit);
        QCOMPARE(failing.statusRow(), 0);
        strange.appendRow(); // the bracket is closed, the table usable
        struct : FieldDefConvertor
        {
            void convert(Field&, const Field&) override { throw "refused"; }
        } refusing;
        QDataStream again(bytes);
        failing.read(again, false, {{{"a", "a"}, &refusing}});
        QCOMPARE(failing.errorString(), QString("refused"));
    }

    void convertorsOverrule()
    {
        Doubled::destroyed = 0;
        {
            Doubled twice;
            FieldDefConvertor plain, unused;
            TableIO::FieldDefConvertor_Copy4 four;
            TableIO::FieldDefConvertor_Copy bytes(4);
            TableIO::Convertors convertors;
            convertors.insert({"x", "y"}, &twice); // x is filled from y
            convertors.insert({"new", "x"}, &plain);
            convertors.insert({"new", "lost"}, &plain);   // there is none
            convertors.insert({QString(), "z"}, &unused); // z is not wanted
            convertors.insert({"y", "x"}, &four);
            convertors.insert({"y", "y"}, &bytes); // the last one counts
            Table table("t");
            table.addColumn("new", FieldType::Integer64);
            QDataStream stream(bytesOf(numbers()));
            TableIO io(&table);
            QTest::ignoreMessage(QtWarningMsg, "Column not found in translation.");
            io.read(stream, true, convertors);
            QCOMPARE(io.status(), TableIO::ColumnsDidNotFit);
            QCOMPARE(table.columnCount(), 3); // new, x (wanted by a key), y
            for (int i = 0; i < 100; i += 10)
                QCOMPARE(table.at(i / 10).dump().section('{', 1),
                         QString(" new=%1 x=%2 y=%3 }").arg(i).arg(2 * i + 2).arg(i + 1));
            QCOMPARE(Doubled::destroyed, 0);
        }
        QCOMPARE(Doubled::destroyed, 1);
    }

    void filtersAndTellsProgress()
    {
        const QByteArray bytes = bytesOf(numbers());
        const std::tuple<int, bool, int> rows[] = {
            // y modulo 20 of the rows wanted, whether rows are read, how many there are then
            {5, true, 0},
            {1, true, 5},
            {1, false, 0},
        };
        for (const auto& [wanted, withRows, expected] : rows) {
            Recorder recorder;
            recorder.accepts = [w = wanted](const Record& r) {
                return r.data("y").toInteger() % 20 == w;
            };
            Table table("t");
            QDataStream stream(bytes);
            TableIO(&table).read(recorder, stream, true, {}, withRows);
            QVERIFY(recorder.hasSeen(withRows ? 10 : 0));
            QCOMPARE(table.rowCount(), expected);
            QCOMPARE(table.columnCount(), 3);
            QCOMPARE(table.at(4).data("x").toInteger(), expected ? 80 : 0);
        }
        Recorder written;
        QByteArray out;
        QDataStream stream(&out, QIODevice::WriteOnly);
        TableIO(&numbers()).write(written, stream, true);
        QVERIFY(written.hasSeen(10));
        QCOMPARE(out, bytes);
    }

    void filteredInPlace()
    {
        Table table("t");
        addColumns(table, 3);
        fill(table, 100);
        SortedView view(&table, QStringList("c1"));
        const Record first = table.at(1);
        Recorder odd;
        odd.accepts = [&](const Record&) { return odd.steps.size() % 2; };
        TableIO(&table).filterRecords(odd);
        QVERIFY(odd.hasSeen(100));
        QVERIFY(table.rowCount() == 50 && view.count() == 50 && table.at(0) == first);
        unsigned long rows = 0, slots = 0, padding = 0, unused = 0;
        TableIO::memoryUsage(&table, rows, padding);
        TableIO::memoryUsage(&view, slots, unused);
        QVERIFY(qint64(rows) == 50 * table.rowSize() && padding == 50 * (4 + 6));
        QVERIFY(slots - unused == 50 * 8 && slots >= 50 * 8);
        FilterProgressTrue all;
        TableIO(&table).filterRecords(all);
        QVERIFY(table.rowCount() == 50 && table.verify().isEmpty());
    }

    void exceptionsCleanUp()
    {
        FilledTable table("t", 3, 11000);
        const QByteArray bytes = bytesOf(table);
        Table copy("t");
        SortedView view(&copy, QVector<SortColumn>());
        Recorder thrower;
        thrower.accepts = [&](const Record&) {
            return thrower.steps.last() < 10900 ? true : throw 42;
        };
        QDataStream stream(bytes);
        QVERIFY_EXCEPTION_THROWN(TableIO(&copy).read(thrower, stream, true, {}, true), int);
        QCOMPARE(copy.rowCount(), 10240);
        QCOMPARE(copy.indexes(), QList<Index*>({&view}));
        QCOMPARE(view.count(), 10240);

        // A column that differs in case alone goes into no table.
        Table cased("t");
        cased.addColumn("C0", FieldType::BoardList);
        QVERIFY_EXCEPTION_THROWN(readBytes(cased, bytes), QString);
        cased.appendRow();
        QCOMPARE(readBytes(cased, bytes, true), TableIO::ColumnsDidNotFit);
        QVERIFY(cased.rowCount() == 1 && cased.columnCount() == 1); // untouched
    }

    void wrongMagicEmpties()
    {
        for (const bool strict : {false, true}) {
            FilledTable old("t", 2, 7);
            QCOMPARE(readBytes(old, bytesOf(old).replace(3, 1, "\3"), strict),
                     TableIO::NotATableFile);
            QCOMPARE(old.rowCount(), strict ? 7 : 0);
            TableIO io(&old);
            QDataStream nothing;
            io.read(nothing, true);
            QCOMPARE(io.status(), TableIO::NothingThere);
            QCOMPARE(old.rowCount(), strict ? 7 : 0);
        }
    }

    void recordLists()
    {
        TestCore core;
        FilledTable a("a", 9, 30), b("b", 4, 20), here("a", 9, 0);
        QByteArray bytes;
        QDataStream out(&bytes, QIODevice::WriteOnly);
        FilterProgressTrue all;
        PartitionList<Record> records;
        TableIO(&a).writeRowList(all, out, records);
        QCOMPARE(bytes.size(), 0);
        for (int i = 20; i >= 10; --i)
            records.append(a.at(i));
        Recorder seen;
        TableIO(&a).writeRowList(seen, out, records);
        QVERIFY(seen.hasSeen(11));
        TableIO(&b).writeRowList(all, out, b.masterIndex()->records());
        records.append(b.at(0)); // another table's row is all zero here
        TableIO(&a).writeRowList(all, out, records);

        core.addTable("a", &here);
        for (const bool strict : {false, true}) {
            PartitionList<Record> read;
            QDataStream stream(bytes);
            TableIO io(&here);
            io.setStrict(strict);
            Recorder odd;
            odd.accepts = [&](const Record& r) {
                return r.table() == &here && odd.steps.size() % 2;
            };
            const std::pair<TableIO::Status, int> lists[] = {
                {TableIO::Ok, 6},
                {TableIO::UnknownTable, 6}, // the host does not know "b"
                {TableIO::Ok, 18},
                {TableIO::NothingThere, 18},
            };
            for (const auto& [status, count] : lists) {
                io.readRowList(read.isEmpty() ? static_cast<FilterProgress&>(odd) : all, stream,
                               read, false);
                QCOMPARE(io.status(), status);
                QCOMPARE(read.count(), count);
            }
            QVERIFY(odd.hasSeen(11) && stream.atEnd());
            const std::pair<int, int> places[] = {{20, 0}, {18, 1}, {20, 6}, {10, 16}};
            for (const auto& [from, to] : places)
                QCOMPARE(difference(a.at(from), read.at(to)), QString());
            for (int c = 0; c < 9; ++c)
                QVERIFY(read.at(17).data(c).isNull());
            QCOMPARE(here.rowCount(), 0);
        }
    }

    void recordListMakesItsTable()
    {
        FilledTable a("made", 9, 12000);
        const QByteArray bytes = listBytes(a);
        for (const int wanted : {12000, 0, 5}) {
            Recorder recorder;
            recorder.accepts = [&](const Record&) {
                return wanted == 5 && recorder.steps.last() == 5 ? throw 42 : wanted > 0;
            };
            std::unique_ptr<Table> made; // dies after its records
            PartitionList<Record> read(10000);
            QDataStream stream(bytes);
            try {
                TableIO(&a).readRowList(recorder, stream, read, true);
            } catch (int) {
            }
            // With all records rejected the table is gone; under a sanitizer a leak would show.
            QCOMPARE(read.count(), wanted);
            QCOMPARE(read.partitions().size(), wanted ? 2 + wanted / 10000 : 1); // with the null
            made.reset(read.at(0).table());
            QCOMPARE(made != nullptr, wanted > 0);
            for (int i = 0; i < read.count(); i += 999)
                QCOMPARE(difference(a.at(i), read.at(i)), QString());
            read.clear();
        }
    }

    void rebuilderEmptiesAndBuildsInOrder()
    {
        IntegerTable table("t", {"n"});
        QStringList log;
        Journal plain(log, "IndexSort"), dependent(log, "IndexDependList"),
            joinDep(log, "TableJoinDep"), joinMain(log, "TableJoinMain"),
            almost(log, "indexDepend");
        const QList<Index*> all = {&plain, &dependent, &joinDep, &joinMain, &almost};
        for (Index* index : all)
            table.addIndex(index);
        table.setIndexName("view", &plain);
        table.setIndexName("join", &joinMain);
        // One that cannot be built comes back all the same, and so do those behind it.
        joinMain.at("build", [] { throw QString("broken"); });
        plain.at("clear", [] { throw QString("broken"); });
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("could not be emptied"));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("could not be built"));
        log.clear();
        {
            TableIndexRebuilder guard(&table);
            QVERIFY(table.indexes().isEmpty() && !table.namedIndex("view"));
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
        table.setIndexes({});
    }

    void rebuilderLeavesViewsAsIfTheyHadFollowed()
    {
        IntegerTable table("t", {"n"});
        SortedView ascending(&table, QStringList("n"));
        SortedLimit limit(50, &table, QStringList("n"));
        addNumbers(table, 0, 40);
        {
            TableIndexRebuilder guard(&table);
            QCOMPARE(ascending.count(), 0);
            addNumbers(table, 40, 3000);
            QCOMPARE(table.rowCount(), 3000); // the limit trims nothing meanwhile
        }
        QCOMPARE(table.verify(), QString());
        QCOMPARE(table.namedIndex("IndexLimit"), &limit);
        addNumbers(table, 3000, 3001); // and is back
        QVERIFY(table.rowCount() < 3000 && table.verify().isEmpty());
    }

private:
    static void roundTrip(int columns, int rows)
    {
        FilledTable table("quotes", columns, rows);
        for (const bool compress : {false, true}) {
            const TestCore core(compress);
            const QTemporaryDir folder;
            const QDir dir(folder.path());
            TableIO(&table).write(dir);
            QCOMPARE(dir.entryList(QDir::Files), QStringList(compress ? "quotes.gz" : "quotes"));
            Table copy("quotes");
            TableIO in(&copy);
            in.setStrict(compress);
            in.read(dir, true);
            QVERIFY2(in.status() == TableIO::Ok, qPrintable(in.errorString()));
            QCOMPARE(difference(table, copy), QString());
            // Over a stream, into a table that has the columns already.
            FilledTable same("quotes", columns, 3, 99);
            QCOMPARE(readBytes(same, bytesOf(table), compress, false), TableIO::Ok);
            QCOMPARE(difference(table, same), QString());
        }
    }
};

QTEST_MAIN(tst_TableIO)
#include "tst_tableio.moc"
