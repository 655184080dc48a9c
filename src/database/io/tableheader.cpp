// SPDX-License-Identifier: MIT
#include "io/tableheader_p.h"

#include "index/masterindex.h"
#include "table/table.h"

#include <QDataStream>
#include <QIODevice>
#include <QSet>

#include <algorithm>

using namespace LiveTable;

// --- the header as it comes ---

void TableIO::setupHeader(TableHeader& header, const Table* table)
{
    header.magic = tableMagic;
    header.columnCount = static_cast<qint16>(table->fieldDefs().size());
    header.rowCount = table->rowCount();
    header.rowLength = static_cast<qint32>(table->rowLengthUnaligned());
    header.nullBytes = (table->columnCount() + 7) / 8;
    header.columns.clear();
    for (const TableColumnDef* column : table->fieldDefs())
        header.columns.append(TableColumnDef(nullptr, *column));
    const MasterIndex* master = table->masterIndex();
    header.masterColumns = master ? master->columnNames() : QStringList();
}

void TableIO::writeHeader(const TableHeader& header, QDataStream& stream)
{
    stream << header.magic << header.columnCount << header.rowCount << header.rowLength
           << header.nullBytes;
    for (const TableColumnDef& column : header.columns)
        column.write(stream);
    stream << quint32(header.masterColumns.size());
    for (const QString& name : header.masterColumns)
        stream << name;
}

void TableIO::readHeader(TableHeader& header, QDataStream& stream)
{
    header.columns.clear();
    header.masterColumns.clear();
    stream >> header.magic >> header.columnCount >> header.rowCount >> header.rowLength >>
        header.nullBytes;
    // Counts are not believed: the lists grow only as far as the stream goes on.
    const int count = static_cast<quint16>(header.columnCount);
    for (int i = 0; i < count && stream.status() == QDataStream::Ok; ++i) {
        TableColumnDef column(nullptr);
        column.read(stream);
        if (stream.status() == QDataStream::Ok)
            header.columns.append(column);
    }
    quint32 names = 0;
    stream >> names;
    for (quint32 i = 0; i < names && stream.status() == QDataStream::Ok; ++i) {
        QString name;
        stream >> name;
        if (stream.status() == QDataStream::Ok)
            header.masterColumns.append(name);
    }
}

qint64 LiveTable::storedRowBytes(const TableIO::TableHeader& header)
{
    qint64 bytes = std::max(header.nullBytes, 0);
    for (const TableColumnDef& column : header.columns)
        bytes += std::max<qint64>(column.size, 0);
    return bytes;
}

qint64 LiveTable::bytesLeftIn(const QDataStream& stream)
{
    const QIODevice* device = stream.device();
    return device && !device->isSequential() ? device->bytesAvailable() : -1;
}

// --- the checked header ---

namespace {

class Parser
{
public:
    Parser(QDataStream& source, qint64& bytesLeft)
        : stream(source)
        , left(bytesLeft)
    {}

    template <typename T>
    bool number(T& value)
    {
        if (!take(sizeof value))
            return false;
        stream >> value;
        return stream.status() == QDataStream::Ok;
    }

    bool text(QString& value)
    {
        quint32 bytes = 0;
        if (!number(bytes))
            return false;
        value = QString();
        if (bytes == 0xFFFFFFFF)
            return true;
        if (bytes % 2 != 0 || bytes > maximumTextBytes || !take(bytes))
            return false;
        value.resize(static_cast<int>(bytes / 2));
        auto* units = reinterpret_cast<ushort*>(value.data());
        for (int i = 0; i < value.size(); ++i)
            stream >> units[i];
        return stream.status() == QDataStream::Ok;
    }

    bool column(TableColumnDef& def)
    {
        qint8 type = 0;
        qint32 size = 0;
        if (!text(def.name) || !text(def.title) || !text(def.description) || !number(def.length) ||
            !number(type) || !number(size) || !number(def.nullable) || !number(def.flag))
            return false;
        def.type = static_cast<FieldType::Type>(type);
        def.size = size;
        return true;
    }

    /// Whether a count of things, each of at least this many bytes, can be true.
    bool fits(qint64 count, qint64 bytesEach) const
    {
        return left < 0 || count <= left / bytesEach;
    }

private:
    bool take(qint64 bytes)
    {
        if (left < 0)
            return true;
        if (bytes > left)
            return false;
        left -= bytes;
        return true;
    }

    QDataStream& stream;
    qint64& left;
};

constexpr qint64 leastTextBytes = 4;
constexpr qint64 leastColumnBytes = 3 * leastTextBytes + 4 + 1 + 4 + 1 + 1;

bool readFields(TableIO::TableHeader& header, Parser& parser)
{
    if (!parser.number(header.columnCount) || !parser.number(header.rowCount) ||
        !parser.number(header.rowLength) || !parser.number(header.nullBytes))
        return false;
    const int columns = static_cast<quint16>(header.columnCount);
    if (columns > maximumColumns || !parser.fits(columns, leastColumnBytes))
        return false;
    for (int i = 0; i < columns; ++i) {
        TableColumnDef column(nullptr);
        if (!parser.column(column))
            return false;
        header.columns.append(column);
    }
    quint32 names = 0;
    if (!parser.number(names) || names > quint32(maximumColumns) ||
        !parser.fits(names, leastTextBytes))
        return false;
    for (quint32 i = 0; i < names; ++i) {
        QString name;
        if (!parser.text(name))
            return false;
        header.masterColumns.append(name);
    }
    return true;
}

bool isRightColumn(const TableColumnDef& column)
{
    if (column.name.isEmpty() || column.type < FieldType::Integer ||
        column.type > FieldType::XDecimal)
        return false;
    if (column.type == FieldType::VarChar && column.length <= 0)
        return false;
    return column.size == FieldType::typeLength(column.type, column.length);
}

bool isConsistent(const TableIO::TableHeader& header, qint64 bytesLeft)
{
    qint64 length = 0;
    QSet<QString> names;
    for (const TableColumnDef& column : header.columns) {
        if (!isRightColumn(column))
            return false;
        length += column.size;
        names.insert(column.name.toCaseFolded());
    }
    const int columns = header.columns.size();
    if (names.size() != columns || header.rowLength != length ||
        header.nullBytes != (columns + 7) / 8 || header.rowCount < 0)
        return false;
    // Rows without a byte could be any number.
    const qint64 rowBytes = length + header.nullBytes;
    if (rowBytes == 0)
        return header.rowCount == 0;
    return rowBytes <= (bytesLeft < 0 ? unmeasuredRowBytes : std::max(bytesLeft, smallRowBytes));
}

} // namespace

TableIO::Status LiveTable::readCheckedHeader(TableIO::TableHeader& header, QDataStream& stream,
                                             qint64& bytesLeft)
{
    Parser parser(stream, bytesLeft);
    if (!parser.number(header.magic) || header.magic != tableMagic)
        return TableIO::NotATableFile;
    return readFields(header, parser) && isConsistent(header, bytesLeft) ? TableIO::Ok
                                                                         : TableIO::DamagedHeader;
}

bool LiveTable::readCheckedText(QString& text, QDataStream& stream, qint64& bytesLeft)
{
    return Parser(stream, bytesLeft).text(text);
}
