// SPDX-License-Identifier: MIT
// Files that somebody cut or changed: what strict reading makes of every truncation of a small file
// and of every changed byte of its gzip form, in memory that the file's size bounds. That changed
// bytes of a plain file are survived is seen by the replay of fuzz/.
#include "io/qtiocompressor.h"
#include "tables.h"

namespace {

constexpr int smallRows = 5;

/// A folder with a table whose file is about 4 KB, and what becomes of it.
struct Damaged
{
    explicit Damaged(int rows = smallRows)
        : table("t", 9, rows)
    {
        whole = bytesOf(table);
        header = whole.size() - rows * rowBytes();
    }
    int rowBytes() const { return int(table.rowLengthUnaligned()) + 2; }

    struct Outcome
    {
        TableIO::Status status;
        int rows;
        int row;
        bool isPrefix; // of the table, or nothing
    };
    Outcome read(const QString& file, const QByteArray& bytes) const
    {
        putContent(folder.filePath(file), bytes);
        Table found("t");
        TableIO io(&found);
        io.setStrict(true);
        io.read(QDir(folder.path()), true);
        QFile::remove(folder.filePath(file));
        return {io.status(), found.rowCount(), io.statusRow(),
                found.columnCount() == 0 || difference(table, found, found.rowCount()).isEmpty()};
    }

    const QTemporaryDir folder;
    FilledTable table;
    QByteArray whole;
    int header = 0; // its size
};

QByteArray changed(QByteArray bytes, int at, int change)
{
    bytes[at] = char(bytes.at(at) ^ change);
    return bytes;
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

/// The most that the program's address space has held, in bytes; 0 where that says nothing, because
/// a sanitizer reserves memory of its own.
qint64 peakMemory()
{
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    for (const QByteArray& line : contentOf("/proc/self/status").split('\n'))
        if (line.startsWith("VmPeak:"))
            return line.simplified().split(' ').at(1).toLongLong() * 1024;
#endif
    return 0;
}

} // namespace

class tst_DamagedFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void memoryStaysBounded() // first, before others have raised the peak
    {
        if (!peakMemory())
            QSKIP("a sanitizer takes memory of its own");
        const Damaged damaged(7);
        damaged.read("t", damaged.whole);
        damaged.read("t.gz", gzip(damaged.whole));
        const qint64 before = peakMemory();
        for (int at = 0; at < damaged.whole.size(); ++at) {
            const QByteArray bytes = changed(damaged.whole, at, 0x7F);
            damaged.read("t", bytes);
            damaged.read("t.gz", gzip(bytes));
        }
        // The malloc arena grows in steps; a believed count would be gigabytes.
        QVERIFY2(peakMemory() - before < 2 << 20, qPrintable(QString::number(peakMemory())));
        // A header without a lie in it, over hardly a row: so much is believed, and no more.
        Table narrow("t");
        narrow.addColumn("text", FieldType::VarChar, 1);
        TableIO::TableHeader header;
        TableIO::setupHeader(header, &narrow);
        header.rowCount = INT_MAX;
        for (const int length : {1, 500000, 600000, INT_MAX / 2}) {
            header.columns[0].length = length;
            header.rowLength = int(header.columns[0].size = qint64(2) * length);
            QByteArray bytes;
            QDataStream out(&bytes, QIODevice::WriteOnly);
            TableIO::writeHeader(header, out);
            const auto status = length < 600000 ? TableIO::Truncated : TableIO::DamagedHeader;
            QCOMPARE(damaged.read("t", bytes + "xx").status, status);
            QCOMPARE(damaged.read("t.gz", gzip(bytes + "xx")).status, status);
        }
        QVERIFY2(peakMemory() - before < 12 << 20, qPrintable(QString::number(peakMemory())));
    }

    void everyTruncation()
    {
        const Damaged damaged;
        const int whole = damaged.whole.size();
        QVERIFY(whole > 2000 && whole < 4096);
        for (int size = 0; size <= whole + 1; ++size) {
            const auto got = damaged.read("t", (damaged.whole + 'x').left(size));
            const int rows = qMax(0, (size - damaged.header) / damaged.rowBytes());
            QVERIFY2(got.isPrefix && got.rows == rows, qPrintable(QString::number(size)));
            QCOMPARE(got.status, size == 0               ? TableIO::NothingThere
                                 : size < 4              ? TableIO::NotATableFile
                                 : size < damaged.header ? TableIO::DamagedHeader
                                 : size < whole          ? TableIO::Truncated
                                 : size == whole         ? TableIO::Ok
                                                         : TableIO::ExtraBytes);
            QCOMPARE(got.row, got.status == TableIO::Truncated ? rows : -1);
            // By default what is missing is zero, and so NULL, behind the row that is cut.
            Table all("t");
            if (size < damaged.header || size > whole)
                continue;
            QCOMPARE(readBytes(all, damaged.whole.left(size)), got.status);
            QCOMPARE(all.rowCount(), smallRows);
            for (int i = 0; i < smallRows; ++i)
                QVERIFY(i < rows ? difference(damaged.table.at(i), all.at(i)).isEmpty()
                                 : i == rows || all.at(i).dump(true).endsWith("{  }"));
        }
    }

    void everyChangeOfGzip()
    {
        const Damaged damaged(40);
        const QByteArray whole = gzip(damaged.whole);
        QVERIFY(whole.size() < 6000);
        for (int at = 0; at < whole.size(); ++at) {
            const auto cut = damaged.read("t.gz", whole.left(at));
            const QByteArray where = QByteArray::number(at);
            QVERIFY2(cut.isPrefix && cut.status != TableIO::Ok, where);
            QVERIFY2(cut.status != TableIO::Truncated || cut.row == cut.rows, where);
            const auto got = damaged.read("t.gz", changed(whole, at, 0x55));
            // A gzip header has a time and two marks that mean nothing for the data.
            QVERIFY2(got.isPrefix && (got.status == TableIO::Ok) == (at >= 4 && at < 10), where);
            // Damage of the data is found before anything was made.
            QVERIFY2(got.status != TableIO::DamagedData || got.rows == 0, where);
        }
    }

    void liesInTheHeader()
    {
        using Header = TableIO::TableHeader;
        const std::pair<const char*, void (*)(Header&)> rows[] = {
            {"two columns of one name", [](Header& h) { h.columns[8].name = h.columns[1].name; }},
            {"in another case", [](Header& h) { h.columns[8].name = h.columns[1].name.toUpper(); }},
            {"no name", [](Header& h) { h.columns[0].name.clear(); }},
            {"no type", [](Header& h) { h.columns[0].type = FieldType::Undefined; }},
            {"type 9", [](Header& h) { h.columns[0].type = FieldType::Type(9); }},
            {"negative type", [](Header& h) { h.columns[0].type = FieldType::Type(-1); }},
            {"text of no length",
             [](Header& h) {
                 h.columns[1].length = 0;
                 h.columns[1].size = 0;
                 h.rowLength -= 10;
             }},
            {"huge text",
             [](Header& h) {
                 h.columns[1].length = 1000000000;
                 h.columns[1].size = 2000000000;
                 h.rowLength += 2000000000 - 10;
                 h.rowCount = 0;
             }},
            {"negative size", [](Header& h) { h.columns[0].size = -4; }},
            {"sizes that do not add up", [](Header& h) { ++h.rowLength; }},
            {"other bitmap", [](Header& h) { h.nullBytes = 1; }},
            {"negative row count", [](Header& h) { h.rowCount = -1; }},
            {"rows of nothing",
             [](Header& h) {
                 h.columns.clear();
                 h.columnCount = 0;
                 h.rowLength = h.nullBytes = 0;
                 h.rowCount = 2000000000;
             }},
        };
        const Damaged damaged;
        for (const auto& [name, lie] : rows) {
            Header header;
            TableIO::setupHeader(header, &damaged.table);
            lie(header);
            QByteArray bytes;
            QDataStream out(&bytes, QIODevice::WriteOnly);
            TableIO::writeHeader(header, out);
            FilledTable read("t", 1, 2);
            QVERIFY2(readBytes(read, bytes + QByteArray(500, 'x'), true) == TableIO::DamagedHeader,
                     name);
            QVERIFY(read.rowCount() == 2 && read.columnCount() == 1);
            if (name == QByteArray("huge text")) // not believed by default either
                QCOMPARE(readBytes(read, bytes), TableIO::DamagedHeader);
        }
    }

    // A stream that cannot tell its length, and whose damage shows only on the way.
    void streamsOfUnknownLength()
    {
        const Damaged damaged(300);
        const QByteArray whole = gzip(damaged.whole);
        const int size = whole.size();
        for (int i = 0; i < 5; ++i) {
            QByteArray bytes = i == 0   ? whole
                               : i == 1 ? changed(whole, size - 6, 0x55) // the checksum
                               : i == 2 ? whole.left(size - 4)           // half of it
                                        : changed(whole, i == 3 ? 20 : size / 2, 0x55);
            QBuffer below(&bytes);
            QtIOCompressor device(&below);
            device.setStreamFormat(QtIOCompressor::Gzip);
            device.open(QIODevice::ReadOnly);
            QDataStream stream(&device);
            Table read("t");
            TableIO io(&read);
            io.setStrict(true);
            io.read(stream, true);
            QCOMPARE(io.status() == TableIO::Ok, i == 0);
            QVERIFY(read.rowCount() <= 300 && (i != 1 || io.status() == TableIO::DamagedData));
            if (i == 1 || i == 2)
                QCOMPARE(io.statusRow(), read.rowCount());
            if (i != 0 && i != 2)
                continue;
            // All rows were there already.
            QCOMPARE(difference(damaged.table, read), QString());
            QCOMPARE(io.status(), i == 0 ? TableIO::Ok : TableIO::Truncated);
        }
    }

    void cutRecordLists()
    {
        TestCore core;
        Damaged damaged;
        core.addTable("t", &damaged.table);
        const QByteArray whole = listBytes(damaged.table);
        FilterProgressTrue all;
        for (int size = 0; size < whole.size(); ++size) {
            TableIO io(&damaged.table);
            io.setStrict(true);
            QDataStream stream(whole.left(size));
            PartitionList<Record> read;
            io.readRowList(all, stream, read, false);
            QVERIFY(read.count() <= smallRows && io.status() != TableIO::Ok);
            for (int n = 0; n < read.count(); ++n)
                QCOMPARE(difference(damaged.table.at(n), read.at(n)), QString());
        }
    }
};

QTEST_MAIN(tst_DamagedFiles)
#include "tst_damagedfiles.moc"
