// SPDX-License-Identifier: MIT
// Files that somebody cut or changed: what strict reading makes of every truncation and of every
// changed byte of a small file, plain and gzip, in memory that the file's size bounds; and that
// default reading survives them.
#include "io/qtiocompressor.h"
#include "tables.h"

#include <QRegularExpression>

using Lie = std::function<void(TableIO::TableHeader&)>;
Q_DECLARE_METATYPE(Lie)

namespace {

/// A table whose file is about 4 KB.
void makeSmall(Table& table, int rows = 5)
{
    addColumns(table, 9);
    fill(table, rows);
}

struct Outcome
{
    TableIO::Status status = TableIO::Ok;
    int rows = 0;
    int row = -1;
};

Outcome readStrictly(const QDir& dir, const QString& file, const QByteArray& bytes,
                     const Table& original, bool* isPrefix)
{
    putContent(dir.filePath(file), bytes);
    Table read("t");
    TableIO io(&read);
    io.setStrict(true);
    io.read(dir, true);
    QFile::remove(dir.filePath(file));
    *isPrefix = read.columnCount() == 0 || difference(original, read, read.rowCount()).isEmpty();
    return {io.status(), read.rowCount(), io.statusRow()};
}

QByteArray gzip(const QByteArray& bytes)
{
    QBuffer buffer;
    QtIOCompressor device(&buffer, 6, 65500);
    device.setStreamFormat(QtIOCompressor::Gzip);
    device.open(QIODevice::WriteOnly);
    device.write(bytes);
    device.close();
    return buffer.data();
}

} // namespace

class tst_DamagedFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void memoryStaysBounded(); // first, before others have raised the peak
    void everyTruncation();
    void everyByteChanged_data();
    void everyByteChanged();
    void everyTruncationOfGzip();
    void everyByteOfGzipChanged();
    void liesInTheHeader_data();
    void liesInTheHeader();
    void streamsOfUnknownLength();
    void damagedRecordLists();
    void defaultReadingSurvives();
};

void tst_DamagedFiles::memoryStaysBounded()
{
    if (!MemoryGrowth::isMeasured())
        QSKIP("a sanitizer takes memory of its own");
    const QTemporaryDir folder;
    const QDir dir(folder.path());
    Table table("t");
    makeSmall(table, 7);
    const QByteArray whole = bytesOf(table);
    bool isPrefix = false;
    readStrictly(dir, "t", whole, table, &isPrefix);
    readStrictly(dir, "t.gz", gzip(whole), table, &isPrefix);
    const MemoryGrowth growth;
    for (int at = 0; at < whole.size(); ++at) {
        QByteArray bytes = whole;
        bytes[at] = char(bytes.at(at) ^ 0x7F);
        readStrictly(dir, "t", bytes, table, &isPrefix);
        readStrictly(dir, "t.gz", gzip(bytes), table, &isPrefix);
    }
    // The malloc arena grows in steps; a believed count would be gigabytes.
    QVERIFY2(growth.bytes() < 2 << 20, qPrintable(QString::number(growth.bytes())));
}

void tst_DamagedFiles::everyTruncation()
{
    const QTemporaryDir folder;
    const QDir dir(folder.path());
    Table table("t");
    makeSmall(table);
    const QByteArray whole = bytesOf(table);
    const int rowBytes = int(table.rowLengthUnaligned()) + 2;
    const int header = whole.size() - 5 * rowBytes;
    QVERIFY(whole.size() > 2000 && whole.size() < 4096);
    for (int size = 0; size <= whole.size(); ++size) {
        bool isPrefix = false;
        const Outcome got = readStrictly(dir, "t", whole.left(size), table, &isPrefix);
        QVERIFY2(isPrefix, qPrintable(QString::number(size)));
        const int rows = qMax(0, (size - header) / rowBytes);
        QCOMPARE(got.rows, rows);
        QCOMPARE(got.status, size == 0              ? TableIO::NothingThere
                             : size < 4             ? TableIO::NotATableFile
                             : size < header        ? TableIO::DamagedHeader
                             : size == whole.size() ? TableIO::Ok
                                                    : TableIO::Truncated);
        QCOMPARE(got.row, got.status == TableIO::Truncated ? rows : -1);
    }
}

void tst_DamagedFiles::everyByteChanged_data()
{
    QTest::addColumn<int>("change");
    for (const int change : {0x01, 0x80, 0xFF, 0x55})
        QTest::addRow("xor %d", change) << change;
}

void tst_DamagedFiles::everyByteChanged()
{
    QFETCH(int, change);
    const QTemporaryDir folder;
    const QDir dir(folder.path());
    Table table("t");
    makeSmall(table);
    const QByteArray whole = bytesOf(table);
    const int rowBytes = int(table.rowLengthUnaligned()) + 2;
    const int header = whole.size() - 5 * rowBytes;
    for (int at = 0; at < whole.size(); ++at) {
        QByteArray bytes = whole;
        bytes[at] = char(bytes.at(at) ^ change);
        bool isPrefix = false;
        const Outcome got = readStrictly(dir, "t", bytes, table, &isPrefix);
        QVERIFY(got.rows <= 5);
        if (at < 4)
            QCOMPARE(got.status, TableIO::NotATableFile);
        else if (at < 6 || (at >= 10 && at < 18)) // counts and lengths that others contradict
            QCOMPARE(got.status, TableIO::DamagedHeader);
        else if (at < 10) // the row count
            QVERIFY(got.status == TableIO::Truncated || got.status == TableIO::ExtraBytes ||
                    got.status == TableIO::DamagedHeader);
        else if (at >= header) { // nothing tells a changed cell
            QCOMPARE(got.status, TableIO::Ok);
            QCOMPARE(got.rows, 5);
        }
        if (got.status == TableIO::DamagedHeader || got.status == TableIO::NotATableFile)
            QCOMPARE(got.rows, 0);
    }
}

void tst_DamagedFiles::everyTruncationOfGzip()
{
    const QTemporaryDir folder;
    const QDir dir(folder.path());
    Table table("t");
    makeSmall(table, 40);
    const QByteArray whole = gzip(bytesOf(table));
    for (int size = 0; size < whole.size(); ++size) {
        bool isPrefix = false;
        const Outcome got = readStrictly(dir, "t.gz", whole.left(size), table, &isPrefix);
        QVERIFY2(isPrefix, qPrintable(QString::number(size)));
        QVERIFY2(got.status != TableIO::Ok, qPrintable(QString::number(size)));
        if (got.status == TableIO::Truncated)
            QCOMPARE(got.row, got.rows);
    }
}

void tst_DamagedFiles::everyByteOfGzipChanged()
{
    const QTemporaryDir folder;
    const QDir dir(folder.path());
    Table table("t");
    makeSmall(table, 40);
    const QByteArray whole = gzip(bytesOf(table));
    QVERIFY(whole.size() < 6000);
    for (int at = 0; at < whole.size(); ++at) {
        QByteArray bytes = whole;
        bytes[at] = char(bytes.at(at) ^ 0x55);
        bool isPrefix = false;
        const Outcome got = readStrictly(dir, "t.gz", bytes, table, &isPrefix);
        QVERIFY2(isPrefix, qPrintable(QString::number(at)));
        // A gzip header has a time and two marks that mean nothing for the data.
        if (at >= 4 && at < 10)
            QCOMPARE(got.status, TableIO::Ok);
        else
            QVERIFY2(got.status == TableIO::DamagedData || got.status == TableIO::Truncated ||
                         got.status == TableIO::NotATableFile ||
                         got.status == TableIO::DamagedHeader,
                     qPrintable(QString("byte %1: %2").arg(at).arg(got.status)));
        if (got.status == TableIO::DamagedData)
            QCOMPARE(got.rows, 0); // found before anything was made
    }
}

void tst_DamagedFiles::liesInTheHeader_data()
{
    using Header = TableIO::TableHeader;
    QTest::addColumn<Lie>("lie");
    const auto row = [](const char* name, const Lie& lie) { QTest::newRow(name) << lie; };
    row("two columns of one name", [](Header& h) { h.columns[1].name = h.columns[0].name; });
    row("in another case", [](Header& h) { h.columns[1].name = h.columns[0].name.toUpper(); });
    row("no name", [](Header& h) { h.columns[0].name.clear(); });
    row("no type", [](Header& h) { h.columns[0].type = FieldType::Undefined; });
    row("type 9", [](Header& h) { h.columns[0].type = FieldType::Type(9); });
    row("negative type", [](Header& h) { h.columns[0].type = FieldType::Type(-1); });
    row("text of no length", [](Header& h) {
        h.columns[1].length = 0;
        h.columns[1].size = 0;
        h.rowLength -= 10;
    });
    row("huge text", [](Header& h) {
        h.columns[1].length = 1000000000;
        h.columns[1].size = 2000000000;
        h.rowLength += 2000000000 - 10;
        h.rowCount = 0;
    });
    row("negative size", [](Header& h) { h.columns[0].size = -4; });
    row("sizes that do not add up", [](Header& h) { ++h.rowLength; });
    row("other bitmap", [](Header& h) { h.nullBytes = 1; });
    row("negative row count", [](Header& h) { h.rowCount = -1; });
    row("rows of nothing", [](Header& h) {
        h.columns.clear();
        h.columnCount = 0;
        h.rowLength = h.nullBytes = 0;
        h.rowCount = 2000000000;
    });
}

void tst_DamagedFiles::liesInTheHeader()
{
    QFETCH(Lie, lie);
    Table table("t");
    makeSmall(table);
    TableIO::TableHeader header;
    TableIO::setupHeader(header, &table);
    lie(header);
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    TableIO::writeHeader(header, out);
    bytes += QByteArray(500, 'x');
    Table read("t");
    addColumns(read, 1);
    fill(read, 2);
    TableIO io(&read);
    io.setStrict(true);
    QDataStream stream(bytes);
    io.read(stream, true);
    QCOMPARE(io.status(), TableIO::DamagedHeader);
    QCOMPARE(read.rowCount(), 2);
    QCOMPARE(read.columnCount(), 1);
}

// A stream that cannot tell its length, and whose damage shows only on the way.
void tst_DamagedFiles::streamsOfUnknownLength()
{
    Table table("t");
    makeSmall(table, 300);
    const QByteArray whole = gzip(bytesOf(table));
    for (const int at : {-1, 20, whole.size() / 2, whole.size() - 6}) {
        QByteArray bytes = whole;
        if (at >= 0)
            bytes[at] = char(bytes.at(at) ^ 0x55);
        QBuffer below(&bytes);
        QtIOCompressor device(&below);
        device.setStreamFormat(QtIOCompressor::Gzip);
        device.open(QIODevice::ReadOnly);
        QDataStream stream(&device);
        Table read("t");
        TableIO io(&read);
        io.setStrict(true);
        io.read(stream, true);
        QCOMPARE(io.status() == TableIO::Ok, at < 0);
        QVERIFY(read.rowCount() <= 300);
        if (at < 0)
            QCOMPARE(difference(table, read), QString());
        if (at == whole.size() - 6) { // the checksum: all rows were there already
            QCOMPARE(io.status(), TableIO::DamagedData);
            QCOMPARE(io.statusRow(), read.rowCount());
        }
    }
}

void tst_DamagedFiles::damagedRecordLists()
{
    TestCore core;
    Table table("t");
    makeSmall(table);
    core.addTable("t", &table);
    QByteArray whole;
    FilterProgressTrue all;
    {
        QDataStream stream(&whole, QIODevice::WriteOnly);
        PartitionList<Record> records;
        for (int i = 0; i < 5; ++i)
            records.append(table.at(i));
        TableIO(&table).writeRowList(all, stream, records);
    }
    for (int at = 0; at < whole.size(); ++at)
        for (const bool isCut : {false, true})
            for (const bool create : {false, true}) {
                QByteArray bytes = isCut ? whole.left(at) : whole;
                if (!isCut)
                    bytes[at] = char(bytes.at(at) ^ 0x81);
                TableIO io(&table);
                io.setStrict(true);
                QDataStream stream(bytes);
                Table* made = nullptr;
                {
                    PartitionList<Record> read;
                    io.readRowList(all, stream, read, create);
                    QVERIFY(read.count() <= 5);
                    QVERIFY(!isCut || io.status() != TableIO::Ok);
                    if (create && !read.isEmpty())
                        made = read.at(0).table();
                    for (int i = 0; isCut && i < read.count(); ++i)
                        QCOMPARE(difference(table.at(i), read.at(i)), QString());
                }
                delete made;
            }
}

// By default the row count is believed, so only small lies about it are tried.
void tst_DamagedFiles::defaultReadingSurvives()
{
    Table table("t");
    makeSmall(table);
    const QByteArray whole = bytesOf(table);
    for (int at = 0; at < whole.size(); ++at) {
        if (at >= 6 && at < 9)
            continue;
        for (const int change : {0x01, 0x84}) {
            QByteArray bytes = whole;
            bytes[at] = char(bytes.at(at) ^ change);
            Table read("t");
            QDataStream stream(bytes);
            TableIO(&read).read(stream, true);
            for (int i = 0; i < read.rowCount(); ++i)
                for (int c = 0; c < read.columnCount(); ++c)
                    read.data(i, c).toString();
        }
    }
}

QTEST_MAIN(tst_DamagedFiles)
#include "tst_damagedfiles.moc"
