// SPDX-License-Identifier: MIT
// What is written is what is read: the format, other columns, convertors, filters, lists of
// records.
#include "base/exception.h"
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "tables.h"

#include <QRegularExpression>
#include <QSignalSpy>

class tst_TableIO : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void roundTrip_data();
    void roundTrip();
    void columnsOfOneSideOnly();
    void convertsChangedColumns();
    void convertorsOverrule();
    void filtersAndTellsProgress();
    void exceptionsCleanUp();
    void wrongMagicEmpties();
    void truncatedRowsAreZero();
    void recordLists();
    void recordListMakesItsTable();
};

void tst_TableIO::roundTrip_data()
{
    QTest::addColumn<int>("columns");
    QTest::addColumn<int>("rows");
    QTest::addColumn<bool>("compress");
    for (const bool compress : {false, true})
        for (const int columns : {1, 9, 70})
            for (const int rows : {0, 1, 10240, 10241, 100000})
                if (rows < 100000 || columns == 9)
                    QTest::addRow("%d columns, %d rows%s", columns, rows, compress ? ", gzip" : "")
                        << columns << rows << compress;
}

void tst_TableIO::roundTrip()
{
    QFETCH(int, columns);
    QFETCH(int, rows);
    QFETCH(bool, compress);
    const TestCore core(compress);
    const QTemporaryDir folder;
    const QDir dir(folder.path());
    Table table("quotes");
    addColumns(table, columns);
    fill(table, rows);

    TableIO io(&table);
    io.write(dir);
    QVERIFY2(io.status() == TableIO::Ok, qPrintable(io.errorString()));
    QCOMPARE(QDir(dir).entryList(QDir::Files), QStringList(compress ? "quotes.gz" : "quotes"));
    for (const bool strict : {false, true}) {
        Table copy("quotes");
        TableIO in(&copy);
        in.setStrict(strict);
        in.read(dir, true);
        QVERIFY2(in.status() == TableIO::Ok, qPrintable(in.errorString()));
        QCOMPARE(difference(table, copy), QString());
    }
    // Another direction: over a stream, into a table that has the columns already.
    QByteArray bytes = bytesOf(table);
    QDataStream stream(bytes);
    Table copy("quotes");
    addColumns(copy, columns);
    fill(copy, 3, 99);
    TableIO(&copy).read(stream, false);
    QCOMPARE(difference(table, copy), QString());
    QVERIFY(stream.atEnd());
}

void tst_TableIO::columnsOfOneSideOnly()
{
    Table table("t");
    addColumns(table, 20); // two bitmap bytes and a half
    fill(table, 300);
    const QByteArray bytes = bytesOf(table);
    for (const bool add : {false, true}) {
        // A table with some of the columns in another order, and two of its own.
        Table other("t");
        other.addColumn("own", FieldType::XDecimal, 2, false);
        for (const int c : {17, 3, 7})
            other.addColumn(*table.columnDef(c));
        other.addColumn("own too", FieldType::Integer);
        QDataStream stream(bytes);
        TableIO io(&other);
        io.read(stream, add);
        QCOMPARE(io.status(), TableIO::Ok);
        QCOMPARE(other.columnCount(), add ? 22 : 5);
        QCOMPARE(other.rowCount(), 300);
        const Record fresh(&other);
        for (int i = 0; i < 300; ++i) {
            for (int c = 0; c < other.columnCount(); ++c) {
                const Field cell = other.data(i, c);
                const int source = table.columnIndex(other.columnName(c));
                const Field wanted = source < 0 ? fresh.data(c) : table.data(i, source);
                QCOMPARE(cell.isNull(), wanted.isNull());
                if (!cell.isNull())
                    QCOMPARE(cell.toString(), wanted.toString());
            }
        }
        // A column added later finds no stray null bits.
        other.addColumn("late", FieldType::Integer);
        for (int i = 0; i < 300; ++i)
            QVERIFY(other.at(i).data("late").isNull());
    }
}

void tst_TableIO::convertsChangedColumns()
{
    Table table("t");
    table.addColumn("a", FieldType::Integer);
    table.addColumn("b", FieldType::VarChar, 9);
    table.addColumn("c", FieldType::Integer, 0, false);
    table.addColumn("d", FieldType::Double);
    const Record row = table.appendRow();
    row.data(0) = 42;
    row.data(1) = QString("123456789");
    row.data(2) = 7;
    row.data(3) = 1.5;
    table.appendRow();
    const QByteArray bytes = bytesOf(table);
    Table other("t");
    other.addColumn("a", FieldType::Decimal, 3);
    other.addColumn("b", FieldType::VarChar, 4);
    other.addColumn("c", FieldType::Integer, 0, true); // nullable now
    other.addColumn("d", FieldType::Double);
    QDataStream stream(bytes);
    TableIO io(&other);
    io.read(stream, true);
    QCOMPARE(other.columnCount(), 4);
    QCOMPARE(other.data(0, 0).toString(), QString("42.000"));
    QCOMPARE(other.data(0, 1).toString(), QString("1234"));
    QCOMPARE(other.data(0, 2).toInteger(), 7);
    QCOMPARE(other.data(0, 3).toDouble(), 1.5);
    QVERIFY(other.data(1, 0).isNull());
    QVERIFY(!other.data(1, 2).isNull());

    // What does not convert ends the reading, by default with the cell's own exception.
    Table strange("t");
    strange.addColumn("a", FieldType::BoardList);
    TableIO failing(&strange);
    QDataStream again(bytes);
    QVERIFY_EXCEPTION_THROWN(failing.read(again, false), Exception);
    QCOMPARE(failing.status(), TableIO::ColumnsDidNotFit);
    QDataStream third(bytes);
    failing.setStrict(true);
    failing.read(third, false);
    QCOMPARE(failing.status(), TableIO::ColumnsDidNotFit);
    QCOMPARE(failing.statusRow(), 0);
    strange.appendRow(); // the bracket is closed, the table usable
}

namespace {

struct Doubled : FieldDefConvertor
{
    ~Doubled() override { ++destroyed; }
    void convert(Field& target, const Field& source) override { target = source.toInteger() * 2; }
    static int destroyed;
};
int Doubled::destroyed = 0;

Table& numbers()
{
    static Table table("numbers");
    if (table.columnCount() == 0) {
        for (const char* name : {"x", "y", "z"})
            table.addColumn(name, FieldType::Integer);
        for (int i = 0; i < 10; ++i) {
            const Record row = table.appendRow();
            for (int c = 0; c < 3; ++c)
                row.data(c) = i * 10 + c;
        }
    }
    return table;
}

} // namespace

void tst_TableIO::convertorsOverrule()
{
    const QByteArray bytes = bytesOf(numbers());
    Doubled::destroyed = 0;
    {
        Doubled twice;
        FieldDefConvertor plain, unused;
        TableIO::Convertors convertors;
        convertors.insert({"x", "y"}, &twice); // x is filled from y
        convertors.insert({"new", "x"}, &plain);
        convertors.insert({QString(), "z"}, &unused); // z is not wanted
        Table table("t");
        table.addColumn("new", FieldType::Integer64);
        QDataStream stream(bytes);
        TableIO io(&table);
        io.read(stream, true, convertors);
        QCOMPARE(io.status(), TableIO::Ok);
        QCOMPARE(table.columnIndex("z"), -1);
        QCOMPARE(table.columnCount(), 3); // new, x (wanted by a key), y
        for (int i = 0; i < 10; ++i) {
            QCOMPARE(table.at(i).data("x").toInteger(), (i * 10 + 1) * 2);
            QCOMPARE(table.at(i).data("new").toInteger64(), qint64(i * 10));
            QCOMPARE(table.at(i).data("y").toInteger(), i * 10 + 1);
        }
        QCOMPARE(Doubled::destroyed, 0);
    }
    QCOMPARE(Doubled::destroyed, 1);
}

void tst_TableIO::filtersAndTellsProgress()
{
    const QByteArray bytes = bytesOf(numbers());
    Recorder none, some;
    none.accepts = [](const Record&) { return false; };
    some.accepts = [](const Record& r) { return r.data("y").toInteger() % 20 == 1; };
    Table table("t");
    {
        QDataStream stream(bytes);
        TableIO(&table).read(none, stream, true, {}, true);
        QVERIFY(none.hasSeen(10));
        QCOMPARE(table.rowCount(), 0);
    }
    {
        QDataStream stream(bytes);
        TableIO(&table).read(some, stream, true, {}, true);
        QVERIFY(some.hasSeen(10));
        QCOMPARE(table.rowCount(), 5);
        QCOMPARE(table.at(4).data("x").toInteger(), 80);
    }
    {
        QDataStream stream(bytes);
        Recorder idle;
        TableIO(&table).read(idle, stream, true, {}, false);
        QVERIFY(idle.hasSeen(0));
        QCOMPARE(table.rowCount(), 0);
        QCOMPARE(table.columnCount(), 3);
    }
    Recorder written;
    QByteArray out;
    QDataStream stream(&out, QIODevice::WriteOnly);
    TableIO(&numbers()).write(written, stream, true);
    QVERIFY(written.hasSeen(10));
    QCOMPARE(out, bytes);
}

namespace {

/// A master index that writes down the size of each batch.
struct CountedMaster : MasterIndexOrdered
{
    using MasterIndexOrdered::MasterIndexOrdered;
    void process(const QList<Record>& removed, const QList<Record>& updated, int first, int last,
                 const QList<Record>& inserted) override
    {
        sizes.append(inserted.size());
        MasterIndexOrdered::process(removed, updated, first, last, inserted);
    }
    QVector<int> sizes;
};

} // namespace

void tst_TableIO::exceptionsCleanUp()
{
    Table table("t");
    addColumns(table, 3);
    fill(table, 11000);
    const QByteArray bytes = bytesOf(table);
    Table copy("t");
    SortedView view(&copy, QVector<SortColumn>());
    Recorder thrower;
    int asked = 0;
    thrower.accepts = [&](const Record&) {
        if (++asked == 10900)
            throw 42;
        return true;
    };
    QDataStream stream(bytes);
    QVERIFY_EXCEPTION_THROWN(TableIO(&copy).read(thrower, stream, true, {}, true), int);
    QCOMPARE(copy.rowCount(), 10240);
    QCOMPARE(copy.indexes(), QList<Index*>({&view}));
    QCOMPARE(view.count(), 10240);

    // A column that differs in case alone goes into no table.
    Table cased("t");
    cased.addColumn("C0", FieldType::BoardList);
    QDataStream again(bytes);
    TableIO io(&cased);
    QVERIFY_EXCEPTION_THROWN(io.read(again, true), QString);
    QCOMPARE(io.status(), TableIO::ColumnsDidNotFit);
    cased.appendRow();
    QDataStream third(bytes);
    io.setStrict(true);
    io.read(third, true);
    QCOMPARE(io.status(), TableIO::ColumnsDidNotFit);
    QCOMPARE(cased.rowCount(), 1); // untouched
    QCOMPARE(cased.columnCount(), 1);
}

void tst_TableIO::wrongMagicEmpties()
{
    Table table("t");
    addColumns(table, 2);
    QByteArray bytes = bytesOf(table);
    bytes[3] = 3;
    for (const bool strict : {false, true}) {
        Table old("t");
        addColumns(old, 2);
        fill(old, 7);
        TableIO io(&old);
        io.setStrict(strict);
        QDataStream stream(bytes);
        io.read(stream, true);
        QCOMPARE(io.status(), TableIO::NotATableFile);
        QCOMPARE(old.rowCount(), strict ? 7 : 0);
        QDataStream nothing;
        io.read(nothing, true);
        QCOMPARE(io.status(), TableIO::NothingThere);
        QCOMPARE(old.rowCount(), strict ? 7 : 0);
    }
}

void tst_TableIO::truncatedRowsAreZero()
{
    Table table("t");
    addColumns(table, 9);
    fill(table, 100);
    const QByteArray whole = bytesOf(table);
    const int rowBytes = int(table.rowLengthUnaligned()) + 2;
    QByteArray bytes = whole.left(whole.size() - 40 * rowBytes - 1);
    Table copy("t");
    TableIO io(&copy);
    QDataStream stream(bytes);
    io.read(stream, true);
    QCOMPARE(io.status(), TableIO::Truncated);
    QCOMPARE(io.statusRow(), 59);
    QCOMPARE(copy.rowCount(), 100);
    QCOMPARE(difference(table.at(58), copy.at(58)), QString());
    for (int i = 60; i < 100; ++i)
        for (int c = 0; c < 9; ++c)
            QVERIFY(copy.data(i, c).isNull());
}

void tst_TableIO::recordLists()
{
    TestCore core;
    Table a("a"), b("b"), here("a");
    addColumns(a, 9);
    addColumns(b, 4);
    fill(a, 30);
    fill(b, 20);
    QByteArray bytes;
    FilterProgressTrue all;
    {
        QDataStream stream(&bytes, QIODevice::WriteOnly);
        PartitionList<Record> records;
        TableIO io(&a);
        io.writeRowList(all, stream, records);
        QCOMPARE(bytes.size(), 0);
        for (int i = 20; i >= 10; --i)
            records.append(a.at(i));
        Recorder seen;
        io.writeRowList(seen, stream, records);
        QVERIFY(seen.hasSeen(11));
        TableIO(&b).writeRowList(all, stream, b.masterIndex()->records());
        io.writeRowList(all, stream, records);
    }
    addColumns(here, 9);
    core.addTable("a", &here);
    for (const bool strict : {false, true}) {
        PartitionList<Record> read;
        QDataStream stream(bytes);
        TableIO io(&here);
        io.setStrict(strict);
        Recorder odd;
        odd.accepts = [&](const Record& r) { return r.table() == &here && odd.steps.size() % 2; };
        io.readRowList(odd, stream, read, false);
        QCOMPARE(io.status(), TableIO::Ok);
        QVERIFY(odd.hasSeen(11));
        QCOMPARE(read.count(), 6);
        QCOMPARE(difference(a.at(20), read.at(0)), QString());
        QCOMPARE(difference(a.at(18), read.at(1)), QString());
        io.readRowList(all, stream, read, false); // the host does not know "b"
        QCOMPARE(io.status(), TableIO::UnknownTable);
        QCOMPARE(read.count(), 6);
        io.readRowList(all, stream, read, false);
        QCOMPARE(io.status(), TableIO::Ok);
        QCOMPARE(read.count(), 17);
        QCOMPARE(difference(a.at(10), read.at(16)), QString());
        QVERIFY(stream.atEnd());
        io.readRowList(all, stream, read, false);
        QCOMPARE(io.status(), TableIO::NothingThere);
        QCOMPARE(here.rowCount(), 0);
    }
}

void tst_TableIO::recordListMakesItsTable()
{
    Table a("made");
    addColumns(a, 9);
    fill(a, 12000);
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    FilterProgressTrue all;
    TableIO io(&a);
    io.writeRowList(all, out, a.masterIndex()->records());
    Table* made = nullptr;
    {
        PartitionList<Record> read(10000);
        QDataStream stream(bytes);
        io.readRowList(all, stream, read, true);
        QCOMPARE(read.count(), 12000);
        QCOMPARE(read.partitions().size(), 3); // two and the null
        made = read.at(0).table();
        QCOMPARE(made->name(), QString("made"));
        for (int i = 0; i < 12000; i += 999)
            QCOMPARE(difference(a.at(i), read.at(i)), QString());
    }
    delete made;
    // With all records rejected the table is gone; under the sanitizer a leak would show.
    Recorder none;
    none.accepts = [](const Record&) { return false; };
    PartitionList<Record> read;
    QDataStream stream(bytes);
    io.readRowList(none, stream, read, true);
    QVERIFY(read.isEmpty());
}

QTEST_MAIN(tst_TableIO)
#include "tst_tableio.moc"
