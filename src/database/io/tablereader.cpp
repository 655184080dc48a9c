// SPDX-License-Identifier: MIT
#include "io/tablereader_p.h"

#include "base/exception.h"
#include "base/icore.h"
#include "io/qtiocompressor_p.h"
#include "io/tableheader_p.h"
#include "io/tableindexrebuilder.h"
#include "table/table.h"
#include "table/updatebracket_p.h"

#include <QScopeGuard>

#include <algorithm>
#include <limits>
#include <memory>
#include <new>
#include <typeinfo>

using namespace LiveTable;

namespace {

constexpr int batchRows = 10240;

const QtIOCompressor* compressorOf(const QDataStream& stream)
{
    return qobject_cast<const QtIOCompressor*>(stream.device());
}

bool isDamaged(const QDataStream& stream)
{
    const QtIOCompressor* device = compressorOf(stream);
    return device && QtIOCompressorPrivate::get(device)->state == QtIOCompressorPrivate::Failed;
}

// Whether it was the system that gave no more of the file, when a stream has come to an end.
bool hasReadFailed(const QDataStream& stream)
{
    const QtIOCompressor* device = compressorOf(stream);
    const QIODevice* below = device ? QtIOCompressorPrivate::get(device)->device : stream.device();
    const auto* file = qobject_cast<const QFileDevice*>(below);
    return file && file->error() == QFileDevice::ReadError;
}

// A new row of the table in a handle.
Record newRow(const Table* table)
{
    Record record(table->allocRow());
    if (record.isNull())
        throw std::bad_alloc();
    return record;
}

} // namespace

// --- StoredRows ---

StoredRows::StoredRows(QDataStream& source, qint64 bytes, int count)
    : stream(source)
    , rowBytes(bytes)
    , rowsLeft(std::max(count, 0))
{}

const unsigned char* StoredRows::next()
{
    static const unsigned char none = 0;
    if (rowBytes == 0)
        return &none;
    if (position == end)
        fill();
    const unsigned char* row = run.data() + position;
    position += rowBytes;
    whole = position <= wholeEnd;
    return row;
}

void StoredRows::fill()
{
    const qint64 rows = std::min(rowsLeft, std::max<qint64>(1, runBytes / rowBytes));
    rowsLeft -= rows;
    position = 0;
    end = rows * rowBytes;
    if (ended) { // the run is all zero, unless it is the first one after the end
        if (wholeEnd >= 0)
            std::fill(run.begin(), run.end(), static_cast<unsigned char>(0));
        wholeEnd = -1;
        return;
    }
    run.resize(static_cast<size_t>(end));
    qint64 got = 0;
    while (!ended && got < end) {
        // Not by way of the stream: a device may give less than asked for and go on later.
        QIODevice* device = stream.device();
        const qint64 n =
            device ? device->read(reinterpret_cast<char*>(run.data()) + got, end - got) : -1;
        ended = n <= 0;
        got += std::max<qint64>(n, 0);
    }
    wholeEnd = got / rowBytes * rowBytes;
    if (ended) {
        stream.setStatus(QDataStream::ReadPastEnd);
        std::fill(run.begin() + got, run.end(), static_cast<unsigned char>(0));
    }
}

// --- TableReader: header and columns ---

TableReader::TableReader(TableIO& owner, FilterProgress& callback, QDataStream& source)
    : io(owner)
    , progress(callback)
    , stream(source)
    , table(owner.table)
    , strict(owner.strict)
    , takesAll(typeid(callback) == typeid(FilterProgressTrue))
{}

// Notes what the device itself says of a read that gave too little. False when that is nothing.
bool TableReader::noteBadRead(int row)
{
    const bool hasFailed = hasReadFailed(stream);
    if (!hasFailed && !isDamaged(stream))
        return false;
    io.setStatus(hasFailed ? TableIO::ReadFailed : TableIO::DamagedData,
                 stream.device()->errorString(), row);
    return true;
}

bool TableReader::readHeader(qint64& bytesLeft)
{
    TableIO::Status found = TableIO::Ok;
    if (strict) {
        found = readCheckedHeader(header, stream, bytesLeft);
    } else {
        TableIO::readHeader(header, stream);
        if (header.magic != tableMagic)
            found = TableIO::NotATableFile;
        else if (header.columns.size() != static_cast<quint16>(header.columnCount))
            found = TableIO::DamagedHeader;
    }
    if (found != TableIO::Ok && noteBadRead())
        return false;
    if (found == TableIO::NotATableFile)
        io.setStatus(found, QStringLiteral("This is not a table file."));
    else if (found == TableIO::DamagedHeader)
        io.setStatus(found, QStringLiteral("The header is cut short or not consistent."));
    return found == TableIO::Ok;
}

// Gives the layout table the columns of the header, and notes where each lies in a stored row.
bool TableReader::makeLayout(Table& layout)
{
    qint64 at = 0;
    qint64 inMemory = 0;
    try {
        for (const TableColumnDef& column : qAsConst(header.columns)) {
            inMemory += FieldType::typeLength(column.type, column.length);
            const int number = layout.columnCount();
            if (inMemory <= defaultRowBytes)
                layout.addColumn(column);
            layoutColumn.push_back(layout.columnCount() > number ? number : -1);
            storedAt.push_back(at);
            at += std::max<qint64>(column.size, 0);
        }
    } catch (const QString& reason) {
        io.setStatus(TableIO::DamagedHeader, reason);
        return false;
    }
    if (std::max(at, inMemory) <= defaultRowBytes)
        return true;
    io.setStatus(TableIO::DamagedHeader, QStringLiteral("The rows would be too long."));
    return false;
}

QList<TableColumnDef> TableReader::columnsToAdd(const TableIO::Convertors& conv) const
{
    QList<TableColumnDef> missing;
    for (const TableColumnDef& column : header.columns) {
        if (column.name.isEmpty() || table->columnIndex(column.name) != -1)
            continue;
        bool isWanted = false;
        bool isDropped = false;
        for (auto it = conv.cbegin(); it != conv.cend() && !isWanted; ++it) {
            isWanted = it.key().to == column.name;
            isDropped = isDropped || (it.key().to.isEmpty() && it.key().from == column.name);
        }
        if (isWanted || !isDropped)
            missing.append(column);
    }
    return missing;
}

// Names that differ in case alone are one name to a table.
bool TableReader::canAdd(const QList<TableColumnDef>& missing)
{
    for (const TableColumnDef& column : missing)
        for (int i = 0; i < table->columnCount(); ++i)
            if (table->columnName(i).compare(column.name, Qt::CaseInsensitive) == 0) {
                io.setStatus(TableIO::ColumnsDidNotFit,
                             QStringLiteral("The table has a column \"%1\" that differs from the"
                                            " file's \"%2\" in case alone.")
                                 .arg(table->columnName(i), column.name));
                return false;
            }
    return true;
}

void TableReader::addColumns(const TableIO::Convertors& conv)
{
    const QList<TableColumnDef> missing = columnsToAdd(conv);
    try {
        for (const TableColumnDef& column : missing)
            table->addColumn(column.name, column.type, column.length, column.nullable, column.title,
                             column.flag, column.description);
    } catch (const QString& reason) {
        io.setStatus(TableIO::ColumnsDidNotFit, reason);
        throw;
    }
}

// --- TableReader: a whole table ---

void TableReader::read(bool withNewColumns, const TableIO::Convertors& conv, bool withRows,
                       qint64 bytesLeft, bool isFile)
{
    Table layout(QStringLiteral("saved"));
    if (strict) {
        if (!readHeader(bytesLeft) || !makeLayout(layout) ||
            (withNewColumns && !canAdd(columnsToAdd(conv))))
            return;
    }
    const TableIndexRebuilder rebuilder(table);
    UpdateBracket bracket(table);
    table->clear();
    if (strict || (readHeader(bytesLeft) && makeLayout(layout))) {
        if (withNewColumns)
            addColumns(conv);
        if (withRows) {
            readRows(layout, conv, bytesLeft);
            checkEnd(isFile && strict && bytesLeft >= 0
                         ? bytesLeft - storedRowBytes(header) * header.rowCount
                         : 0);
        }
    }
    bracket.end();
}

int TableReader::rowsToRead(qint64 bytesLeft) const
{
    const qint64 rowBytes = storedRowBytes(header);
    if (!strict || bytesLeft < 0 || rowBytes == 0)
        return std::max(header.rowCount, 0);
    return static_cast<int>(std::min<qint64>(header.rowCount, bytesLeft / rowBytes));
}

void TableReader::readRows(const Table& layout, const TableIO::Convertors& conv, qint64 bytesLeft)
{
    const QList<FieldDefConvertor*> callers = conv.values();
    QList<FieldDefConvertor*> all;
    const auto release = qScopeGuard([&] {
        for (FieldDefConvertor* convertor : qAsConst(all))
            if (!callers.contains(convertor))
                delete convertor;
    });
    io.make_fromDefs(all, &layout, conv);
    planRow(all, layout, callers);

    const Record scratch = newRow(&layout);
    const int count = rowsToRead(bytesLeft);
    StoredRows rows(stream, storedRowBytes(header), count);
    QList<Record> batch;
    batch.reserve(batchRows);
    int i = 0;
    for (; i < count; ++i) {
        if (!takesAll)
            progress(i, header.rowCount);
        const unsigned char* stored = rows.next();
        if (!goesOn(rows, i))
            break;
        Record record = newRow(table);
        if (!fillRow(stored, record.row(), scratch.row(), i))
            break;
        if (!takesAll && !progress.filter(record))
            continue;
        batch.append(Record());
        batch.last().swap(record);
        if (batch.size() >= batchRows) {
            table->appendList(batch);
            batch.clear();
            batch.reserve(batchRows);
        }
    }
    if (!batch.isEmpty())
        table->appendList(batch);
    if (i == count && count < header.rowCount)
        io.setStatus(TableIO::Truncated, QStringLiteral("The file ends before its last row."), i);
}

// Splits the convertors into copies, which become one plan for the row, and all others.
void TableReader::planRow(const QList<FieldDefConvertor*>& all, const Table& layout,
                          const QList<FieldDefConvertor*>& callers)
{
    const qint64 bitmapAt = storedRowBytes(header) - std::max(header.nullBytes, 0);
    const int stored = header.columns.size();
    const auto add = [&](RowPlan& plan, int column, const TableColumnDef& to) {
        plan.addCell(storedAt[size_t(column)], to, header.columns.at(column).size);
        if (column / 8 < header.nullBytes)
            plan.addNullBit(bitmapAt + column / 8, static_cast<quint8>(1u << (column % 8)), to);
        else
            plan.addNullBit(0, 0, to); // the file has no bit for it: NULL
    };
    std::vector<int> columnOf(static_cast<size_t>(layout.columnCount()));
    for (int i = 0; i < stored; ++i)
        if (layoutColumn[size_t(i)] >= 0)
            columnOf[size_t(layoutColumn[size_t(i)])] = i;
    for (FieldDefConvertor* convertor : all) {
        if (!callers.contains(convertor) &&
            dynamic_cast<TableIO::FieldDefConvertor_Copy*>(convertor))
            add(direct, columnOf[size_t(convertor->from->index)], *convertor->to);
        else
            convertors.append(convertor);
    }
    if (convertors.isEmpty())
        return;
    for (int i = 0; i < layout.columnCount(); ++i)
        add(toScratch, columnOf[size_t(i)], *layout.columnDef(i));
}

// False when a value does not convert and reading is strict.
bool TableReader::fillRow(const unsigned char* stored, unsigned char* row, unsigned char* scratch,
                          int number)
{
    direct.unpack(stored, row);
    if (convertors.isEmpty())
        return true;
    toScratch.unpack(stored, scratch);
    const auto note = [&](const QString& reason) {
        io.setStatus(TableIO::ColumnsDidNotFit, reason, number);
    };
    try {
        TableIO::convertDefs(convertors, row, scratch);
        return true;
    } catch (const Exception& e) {
        note(e.message());
        if (!strict)
            throw;
    } catch (const QString& reason) {
        note(reason);
        if (!strict)
            throw;
    } catch (const char* reason) {
        note(QString::fromUtf8(reason));
        if (!strict)
            throw;
    }
    return false;
}

// Notes a row that is not whole. Whether it is to be made all the same.
bool TableReader::goesOn(const StoredRows& rows, int i)
{
    if (rows.isWhole())
        return true;
    if (!noteBadRead(i))
        io.setStatus(TableIO::Truncated, QStringLiteral("The file ends before its last row."), i);
    return !strict;
}

// The checksum of compressed data stands behind the last row: it is looked at only when one asks
// for more.
void TableReader::checkEnd(qint64 extraBytes)
{
    const QtIOCompressor* device = compressorOf(stream);
    if (device && io.status() == TableIO::Ok) {
        const QByteArray more = stream.device()->peek(1);
        const auto state = QtIOCompressorPrivate::get(device)->state;
        if (!noteBadRead(header.rowCount) && more.isEmpty() &&
            state != QtIOCompressorPrivate::ReadEnded)
            io.setStatus(TableIO::Truncated, QStringLiteral("The file's checksum is missing."),
                         header.rowCount);
    }
    if (extraBytes > 0)
        io.setStatus(TableIO::ExtraBytes,
                     QStringLiteral("The file has %1 bytes behind its last row.").arg(extraBytes));
}

bool TableReader::measureCompressed(qint64& bytes)
{
    if (!compressorOf(stream)) {
        io.setStatus(TableIO::ReadFailed, QStringLiteral("Another has saved the file meanwhile."));
        return false;
    }
    std::vector<char> part(64 * 1024);
    qint64 total = 0;
    for (;;) {
        const qint64 n = stream.device()->read(part.data(), static_cast<qint64>(part.size()));
        if (n <= 0)
            break;
        total += n;
    }
    const auto state = QtIOCompressorPrivate::get(compressorOf(stream))->state;
    bytes = state == QtIOCompressorPrivate::ReadEnded ? total : -1;
    return !noteBadRead();
}

// --- TableReader: a list of records ---

void TableReader::readList(PartitionList<Record>& records, bool createTable)
{
    qint64 bytesLeft = bytesLeftIn(stream);
    QString name;
    if (!strict) {
        stream >> name;
    } else if (!readCheckedText(name, stream, bytesLeft)) {
        io.setStatus(TableIO::NotATableFile, QStringLiteral("This is not a list of records."));
        return;
    }
    if (name.isEmpty()) {
        io.setStatus(TableIO::NothingThere, QStringLiteral("The list has no table."));
        return;
    }
    // The magic number is no condition here, but to strict reading.
    if (!readHeader(bytesLeft) && (strict || io.status() != TableIO::NotATableFile))
        return;
    io.begin();

    std::unique_ptr<Table> created;
    Table* target = nullptr;
    if (createTable) {
        created = std::make_unique<Table>(name);
        if (!makeLayout(*created))
            return;
        target = created.get();
    } else {
        const ICore* core = ICore::instance();
        target = core && core->hasTable(name) ? core->table(name) : nullptr;
    }
    if (!target) {
        io.setStatus(TableIO::UnknownTable, QStringLiteral("No table is named \"%1\".").arg(name));
        skipList();
        return;
    }
    if (strict && !isListLayoutOf(*target)) {
        io.setStatus(TableIO::ColumnsDidNotFit,
                     QStringLiteral("Table \"%1\" has other columns.").arg(name));
        skipList();
        return;
    }
    const int before = records.count();
    const auto handOver = [&] {
        if (records.count() > before)
            static_cast<void>(created.release());
    }; // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): a table with records is the caller's
    try {
        readListRows(target, bytesLeft, records);
    } catch (...) {
        handOver();
        throw;
    }
    handOver();
}

bool TableReader::isListLayoutOf(const Table& target) const
{
    if (header.columns.size() != target.columnCount())
        return false;
    for (int i = 0; i < target.columnCount(); ++i) {
        const TableColumnDef* column = target.columnDef(i);
        const TableColumnDef& stored = header.columns.at(i);
        if (stored.name != column->name || stored.type != column->type ||
            stored.size != column->size || stored.length != column->length)
            return false;
    }
    return true;
}

void TableReader::readListRows(Table* target, qint64 bytesLeft, PartitionList<Record>& records)
{
    const qint64 rowBytes = storedRowBytes(header);
    if (rowBytes > defaultRowBytes) {
        io.setStatus(TableIO::DamagedHeader, QStringLiteral("The rows would be too long."));
        return;
    }
    qint64 at = 0;
    for (int i = 0; i < header.columns.size(); ++i) {
        const qint64 size = std::max<qint64>(header.columns.at(i).size, 0);
        if (const TableColumnDef* column = target->columnDef(i))
            direct.addCell(at, *column, size);
        at += size;
    }
    direct.addBitmap(at, *target, header.nullBytes);

    const int count = rowsToRead(bytesLeft);
    StoredRows rows(stream, rowBytes, count);
    int i = 0;
    for (; i < count; ++i) {
        if (!takesAll)
            progress(i, header.rowCount);
        const unsigned char* stored = rows.next();
        if (!goesOn(rows, i))
            break;
        const Record record = newRow(target);
        direct.unpack(stored, record.row());
        if (takesAll || progress.filter(record))
            records.append(record);
    }
    if (i == count && count < header.rowCount)
        io.setStatus(TableIO::Truncated, QStringLiteral("The list ends before its last row."), i);
}

void TableReader::skipList()
{
    const qint64 rowBytes = qint64(std::max(header.nullBytes, 0)) + std::max(header.rowLength, 0);
    qint64 bytes = rowBytes * std::max(header.rowCount, 0);
    while (bytes > 0) {
        const int step = static_cast<int>(std::min<qint64>(bytes, std::numeric_limits<int>::max()));
        const int skipped = stream.skipRawData(step);
        if (skipped != step) {
            io.setStatus(TableIO::Truncated, QStringLiteral("The list ends before its last row."));
            return;
        }
        bytes -= step;
    }
}
