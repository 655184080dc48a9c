// SPDX-License-Identifier: MIT
#include "io/tableio.h"

#include "index/masterindex.h"
#include "io/tableheader_p.h"
#include "io/tableindexrebuilder.h"
#include "io/tablereader_p.h"
#include "table/rowplan_p.h"
#include "table/table.h"
#include "table/updatebracket_p.h"

#include <QDataStream>
#include <QFileInfo>
#include <QtDebug>

#include <algorithm>
#include <memory>
#include <typeinfo>

using namespace LiveTable;

TableIO::TableIO(Table* tableOfFile)
    : table(tableOfFile)
{}

void TableIO::begin()
{
    lastStatus = Ok;
    lastError.clear();
    lastRow = -1;
}

// The first thing that goes wrong is told, but that columns did not fit gives way to what follows.
void TableIO::setStatus(Status status, const QString& text, int row)
{
    if (lastStatus != Ok && lastStatus != ColumnsDidNotFit)
        return;
    lastStatus = status;
    lastError = text;
    lastRow = row;
}

// --- writing ---

namespace {

/// Packs rows into runs of bytes and hands them to a stream.
class RowWriter
{
public:
    RowWriter(QDataStream& target, const Table& rowTable, const TableIO::TableHeader& header)
        : stream(target)
        , table(rowTable)
        , rowBytes(static_cast<int>(storedRowBytes(header)))
    {
        qint64 at = 0;
        for (int i = 0; i < header.columns.size(); ++i) {
            if (const TableColumnDef* column = table.columnDef(i))
                plan.addCell(at, *column, header.columns.at(i).size);
            at += std::max<qint64>(header.columns.at(i).size, 0);
        }
        plan.addBitmap(at, table, header.nullBytes);
        run.resize(static_cast<size_t>(std::max(runBytes / std::max(rowBytes, 1), 1)) *
                   static_cast<size_t>(rowBytes));
    }
    ~RowWriter() = default;
    Q_DISABLE_COPY(RowWriter)

    /// False when the stream does not take any more.
    bool write(const Record& record)
    {
        if (rowBytes == 0)
            return true;
        if (record.table() == &table)
            plan.pack(record.row(), run.data() + used);
        else
            std::fill_n(run.data() + used, rowBytes, static_cast<unsigned char>(0));
        used += static_cast<size_t>(rowBytes);
        return used < run.size() || flush();
    }
    bool flush()
    {
        const int bytes = static_cast<int>(used);
        used = 0;
        return bytes == 0 ||
               stream.writeRawData(reinterpret_cast<const char*>(run.data()), bytes) == bytes;
    }

private:
    static constexpr int runBytes = 256 * 1024;

    QDataStream& stream;
    const Table& table;
    const int rowBytes;
    RowPlan plan;
    std::vector<unsigned char> run; // whole rows; what the plan leaves out stays zero
    size_t used = 0;
};

// Writes all records of a list or an index; stops where the stream fails.
template <typename Records>
void writeRecords(FilterProgress& progress, int count, const Records& records, RowWriter& writer)
{
    const bool isSilent = typeid(progress) == typeid(FilterProgressTrue);
    int i = 0;
    bool isFine = true;
    for (auto it = records.begin(), end = records.end(); isFine && it != end; ++it, ++i) {
        isFine = writer.write(*it);
        if (!isSilent)
            progress(i, count);
    }
    writer.flush();
}

} // namespace

QString TableIO::fileName(const QDir& dir) const
{
    return QFileInfo(dir, table->name()).filePath();
}

void TableIO::write(FilterProgress& progress, const QDir& dir, bool withRows)
{
    TableDataStreamWrite stream(fileName(dir));
    if (stream.device())
        write(progress, stream, withRows);
    begin(); // commit() knows better than the stream what failed
    if (!stream.commit())
        setStatus(WriteFailed, stream.errorString());
}

void TableIO::write(const QDir& dir)
{
    FilterProgressTrue all;
    write(all, dir, true);
}

void TableIO::write(FilterProgress& progress, QDataStream& stream, bool withRows)
{
    begin();
    const TableLock lock(table);
    TableHeader header;
    setupHeader(header, table);
    writeHeader(header, stream);
    if (withRows)
        writeRows(progress, header, stream);
    noteWrite(stream);
}

void TableIO::write(QDataStream& stream, bool withRows)
{
    FilterProgressTrue all;
    write(all, stream, withRows);
}

void TableIO::writeRows(FilterProgress& progress, const TableHeader& header, QDataStream& stream)
{
    begin();
    const MasterIndex* master = table->masterIndex();
    if (!master)
        return;
    RowWriter writer(stream, *table, header);
    writeRecords(progress, header.rowCount, *master, writer);
    noteWrite(stream);
}

void TableIO::writeRowList(FilterProgress& progress, QDataStream& stream,
                           const PartitionList<Record>& records)
{
    begin();
    if (records.isEmpty())
        return;
    Table* const owner = records.at(0).table();
    const QString name = owner ? owner->name() : QString();
    stream << name;
    if (owner && !name.isEmpty()) {
        const TableLock lock(owner);
        TableHeader header;
        setupHeader(header, owner);
        header.rowCount = records.count();
        writeHeader(header, stream);
        RowWriter writer(stream, *owner, header);
        writeRecords(progress, header.rowCount, records, writer);
    }
    noteWrite(stream);
}

void TableIO::noteWrite(const QDataStream& stream)
{
    if (stream.status() == QDataStream::Ok && stream.device())
        return;
    const QString reason = stream.device() ? stream.device()->errorString()
                                           : QStringLiteral("The stream has no device.");
    setStatus(WriteFailed, reason);
}

// --- reading ---

void TableIO::read(FilterProgress& progress, QDataStream& stream, bool addColumns,
                   const Convertors& convertors, bool readRows)
{
    begin();
    if (stream.atEnd()) {
        setStatus(NothingThere, QStringLiteral("The stream is at its end."));
        return;
    }
    TableReader(*this, progress, stream)
        .read(addColumns, convertors, readRows, bytesLeftIn(stream), false);
}

void TableIO::read(QDataStream& stream, bool addColumns, const Convertors& convertors)
{
    FilterProgressTrue all;
    read(all, stream, addColumns, convertors, true);
}

void TableIO::read(QDataStream& stream, bool addColumns)
{
    read(stream, addColumns, Convertors());
}

void TableIO::read(FilterProgress& progress, const QDir& dir, bool addColumns)
{
    begin();
    TableDataStreamRead stream(fileName(dir));
    if (stream.atEnd()) {
        const QString reason = stream.errorString();
        if (reason.isNull())
            setStatus(NothingThere, QStringLiteral("There is no such file, or it is empty."));
        else
            setStatus(ReadFailed, reason);
        return;
    }
    qint64 bytesLeft = bytesLeftIn(stream);
    if (strict && bytesLeft < 0) {
        TableDataStreamRead whole(fileName(dir)); // which may fail where the first has not
        const QString reason = whole.errorString();
        if (!reason.isNull())
            setStatus(ReadFailed, reason);
        if (!reason.isNull() || !TableReader(*this, progress, whole).measureCompressed(bytesLeft))
            return;
    }
    TableReader(*this, progress, stream).read(addColumns, Convertors(), true, bytesLeft, true);
}

void TableIO::read(const QDir& dir, bool addColumns)
{
    FilterProgressTrue all;
    read(all, dir, addColumns);
}

void TableIO::readRowList(FilterProgress& progress, QDataStream& stream,
                          PartitionList<Record>& records, bool createTable)
{
    begin();
    if (stream.atEnd())
        setStatus(NothingThere, QStringLiteral("The stream is at its end."));
    else
        TableReader(*this, progress, stream).readList(records, createTable);
}

// --- convertors ---

TableIO::FieldDefConvertor_Copy::FieldDefConvertor_Copy(int bytes)
    : size(bytes)
{}
TableIO::FieldDefConvertor_Copy::~FieldDefConvertor_Copy() = default;

void TableIO::FieldDefConvertor_Copy::convert(Field& target, const Field& source)
{
    copyCell(target, source, static_cast<size_t>(std::max(size, 0)));
}

TableIO::FieldDefConvertor_Copy4::FieldDefConvertor_Copy4()
    : FieldDefConvertor_Copy(4)
{}
TableIO::FieldDefConvertor_Copy4::~FieldDefConvertor_Copy4() = default;

void TableIO::FieldDefConvertor_Copy4::convert(Field& target, const Field& source)
{
    copyCell(target, source, 4);
}

TableIO::FieldDefConvertor_Copy8::FieldDefConvertor_Copy8()
    : FieldDefConvertor_Copy(8)
{}
TableIO::FieldDefConvertor_Copy8::~FieldDefConvertor_Copy8() = default;

void TableIO::FieldDefConvertor_Copy8::convert(Field& target, const Field& source)
{
    copyCell(target, source, 8);
}

namespace {

FieldDefConvertor* makeConvertor(const TableColumnDef& to, const TableColumnDef& from)
{
    if (to.type != from.type || to.length != from.length || to.size != from.size ||
        to.nullable != from.nullable)
        return new FieldDefConvertor;
    if (to.size == 8)
        return new TableIO::FieldDefConvertor_Copy8;
    if (to.size == 4)
        return new TableIO::FieldDefConvertor_Copy4;
    return new TableIO::FieldDefConvertor_Copy(static_cast<int>(to.size));
}

} // namespace

void TableIO::make_fromDefs(QList<FieldDefConvertor*>& out, const Table* fileLayout,
                            const Convertors& convertors)
{
    const QList<TableColumnDef*> stored = fileLayout->fieldDefs();
    const auto columnOf = [&](const QString& name) {
        const int number = fileLayout->columnIndex(name);
        return number < 0 ? nullptr : stored.at(number);
    };
    QList<Range> ranges;
    for (TableColumnDef* column : table->fieldDefs()) {
        bool isTold = false;
        for (auto it = convertors.cbegin(); it != convertors.cend(); ++it) {
            if (it.key().to != column->name)
                continue;
            isTold = true;
            TableColumnDef* from = columnOf(it.key().from);
            if (!from || !it.value()) {
                qWarning("Column not found in translation.");
                setStatus(ColumnsDidNotFit, QStringLiteral("Column not found in translation."));
                continue;
            }
            it.value()->from = from;
            it.value()->to = column;
            out.append(it.value());
        }
        TableColumnDef* from = isTold ? nullptr : columnOf(column->name);
        if (!from)
            continue;
        std::unique_ptr<FieldDefConvertor> own(makeConvertor(*column, *from));
        own->from = from;
        own->to = column;
        out.append(own.get());
        FieldDefConvertor* const last = own.release();
        if (dynamic_cast<FieldDefConvertor_Copy*>(last))
            ranges.append({from->offset, last});
    }
    // Nobody reads the ranges any more; they cost a sort of as many items as there are columns.
    std::sort(ranges.begin(), ranges.end());
}

void TableIO::convertDefs(const QList<FieldDefConvertor*>& convertors, unsigned char* toRow,
                          unsigned char* fromRow)
{
    for (FieldDefConvertor* convertor : convertors) {
        Field to = cellOf(*convertor->to, toRow);
        convertor->convert(to, cellOf(*convertor->from, fromRow));
    }
}

// --- the table in place ---

void TableIO::filterRecords(FilterProgress& progress)
{
    begin();
    const TableIndexRebuilder rebuilder(table);
    UpdateBracket bracket(table);
    if (MasterIndex* master = table->masterIndex()) {
        const int count = master->count();
        RangeSet<int> rejected;
        int i = 0;
        for (const Record& record : *master) {
            if (!progress.filter(record))
                rejected.addRange(i, i + 1);
            progress(i++, count);
        }
        master->removeRanges(rejected);
    }
    bracket.end();
}

void TableIO::memoryUsage(Table* table, unsigned long& total, unsigned long& extra)
{
    const MasterIndex* master = table->masterIndex();
    if (!master)
        return;
    const auto rows = static_cast<unsigned long>(master->count());
    unsigned long padding = 0;
    for (const TableColumnDef* column : table->fieldDefs())
        padding += static_cast<unsigned long>((column->size + 7) / 8 * 8 - column->size);
    total = rows * static_cast<unsigned long>(table->rowSize());
    extra = rows * padding;
}

void TableIO::memoryUsage(IndexList* index, unsigned long& total, unsigned long& extra)
{
    constexpr unsigned long slotBytes = 8;
    total = 0;
    for (const APartList<Record>* part : index->records().partitions())
        if (part)
            total += slotBytes * static_cast<unsigned long>(part->capacity());
    extra = total - slotBytes * static_cast<unsigned long>(index->count());
}
