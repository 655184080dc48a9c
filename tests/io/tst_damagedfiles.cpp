// SPDX-License-Identifier: MIT
// Files that somebody cut or changed: what strict reading makes of every truncation and of every
// changed byte of a small file, plain and gzip, in memory that the file's size bounds; and that
// default reading survives them.
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
    }

    void everyTruncation()
    {
        const Damaged damaged;
        const int whole = damaged.whole.size();
        QVERIFY(whole > 2000 && whole < 4096);
        for (int size = 0; size <= whole; ++size) {
            const auto got = damaged.read("t", damaged.whole.left(size));
            const int rows = qMax(0, (size - damaged.header) / damaged.rowBytes());
            QVERIFY2(got.isPrefix && got.rows == rows, qPrintable(QString::number(size)));
            QCOMPARE(got.status, size == 0               ? TableIO::NothingThere
                                 : size < 4              ? TableIO::NotATableFile
                                 : size < damaged.header ? TableIO::DamagedHeader
                                 : size == whole         ? TableIO::Ok
                                                         : TableIO::Truncated);
            QCOMPARE(got.row, got.status == TableIO::Truncated ? rows : -1);
        }
    }

    void everyByteChanged()
    {
        const Damaged damaged;
        for (int i = 0; i < 4 * damaged.whole.size(); ++i) {
            const int at = i / 4;
            const int changes[] = {0x01, 0x80, 0xFF, 0x55};
            const auto got = damaged.read("t", changed(damaged.whole, at, changes[i % 4]));
            const bool isLost =
                got.status == TableIO::DamagedHeader || got.status == TableIO::NotATableFile;
            QVERIFY(got.rows <= (isLost ? 0 : smallRows));
            if (at < 4)
                QCOMPARE(got.status, TableIO::NotATableFile);
            else if (at < 6 || (at >= 10 && at < 18)) // counts and lengths that others contradict
                QCOMPARE(got.status, TableIO::DamagedHeader);
            else if (at < 10) // the row count
                QVERIFY(isLost || got.status == TableIO::Truncated ||
                        got.status == TableIO::ExtraBytes);
            else if (at >= damaged.header) // nothing tells a changed cell
                QVERIFY(got.status == TableIO::Ok && got.rows == smallRows);
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

    void damagedRecordLists()
    {
        TestCore core;
        Damaged damaged;
        Table& table = damaged.table;
        core.addTable("t", &table);
        const QByteArray whole = listBytes(table);
        FilterProgressTrue all;
        for (int i = 0; i < 4 * whole.size(); ++i) {
            const bool isCut = i & 1;
            const bool create = i & 2;
            const QByteArray bytes = isCut ? whole.left(i / 4) : changed(whole, i / 4, 0x81);
            TableIO io(&table);
            io.setStrict(true);
            QDataStream stream(bytes);
            Table* made = nullptr;
            {
                PartitionList<Record> read;
                io.readRowList(all, stream, read, create);
                QVERIFY(read.count() <= smallRows && (!isCut || io.status() != TableIO::Ok));
                if (create && !read.isEmpty())
                    made = read.at(0).table();
                for (int n = 0; isCut && n < read.count(); ++n)
                    QCOMPARE(difference(table.at(n), read.at(n)), QString());
            }
            delete made;
        }
    }

    // By default the row count is believed, so only small lies about it are tried.
    void defaultReadingSurvives()
    {
        const Damaged damaged;
        for (int i = 0; i < 2 * damaged.whole.size(); ++i) {
            const int at = i / 2;
            if (at >= 6 && at < 9)
                continue;
            Table read("t");
            readBytes(read, changed(damaged.whole, at, i % 2 ? 0x01 : 0x84));
            for (int n = 0; n < read.rowCount(); ++n)
                for (int c = 0; c < read.columnCount(); ++c)
                    read.data(n, c).toString();
        }
    }
};

QTEST_MAIN(tst_DamagedFiles)
#include "tst_damagedfiles.moc"
