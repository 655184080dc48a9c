// SPDX-License-Identifier: MIT
// The half of Table that knows columns and row blocks and calls no index.
#include "table/table.h"

#include "table/cell_p.h"
#include "table/table_p.h"

#include <QtDebug>

#include <algorithm>
#include <cstring>
#include <new>

using LiveTable::RowHeader;
using LiveTable::RowPool;

namespace {

constexpr int HashFromColumns = 21;

// A longer row is made anew each time: its copy would take as much memory as a row, also in a table
// that never gets one.
constexpr qint64 LongestPrototype = 65536;

qint64 roundUp8(qint64 n)
{
    return (n + 7) / 8 * 8;
}

qint64 bitmapBytes(int columnCount)
{
    return (columnCount + 7) / 8;
}

unsigned char* dataArea(unsigned char* row)
{
    return row + sizeof(RowHeader);
}

const unsigned char* dataArea(const unsigned char* row)
{
    return row + sizeof(RowHeader);
}

} // namespace

TablePrivate::TablePrivate(Table* table, const QString& tableName, const QString& tableTitle)
    : q(table)
    , name(tableName)
    , title(tableTitle)
    , pending(table)
    , pool(RowPool::create(16))
{
    try {
        refreshPrototype();
    } catch (...) {
        pool->abandon();
        throw;
    }
}

TablePrivate::~TablePrivate()
{
    pending.clear();
    pool->abandon();
    qDeleteAll(columns);
}

// --- columns ---

QString Table::name() const
{
    return d->name;
}

QString Table::title() const
{
    return d->title;
}

void Table::setTitle(const QString& title)
{
    d->title = title;
}

void Table::addColumn(const QString& name, const FieldDef& def, bool nullable, const QString& title,
                      bool flag, const QString& description)
{
    addColumn(name, def.type, def.length, nullable, title, flag, description);
}

void Table::addColumn(const QString& name, FieldType::Type type, int length, bool nullable,
                      const QString& title, bool flag, const QString& description)
{
    TableColumnDef def(this);
    def.type = type;
    def.length = length;
    def.name = name;
    def.nullable = nullable;
    def.title = title;
    def.flag = flag;
    def.description = description;
    addColumn(def);
}

int Table::columnCount() const
{
    return d->columns.size();
}

int Table::columnIndex(const QString& name) const
{
    return d->columns.size() < HashFromColumns ? d->columnMap.value(name, -1)
                                               : d->columnHash.value(name, -1);
}

QString Table::columnName(int column) const
{
    const TableColumnDef* def = d->def(column);
    return def ? def->name : QString();
}

FieldType::Type Table::columnType(int column) const
{
    const TableColumnDef* def = d->def(column);
    return def ? def->type : FieldType::Undefined;
}

QString Table::columnTypeName(int column) const
{
    const TableColumnDef* def = d->def(column);
    return def ? QLatin1String(FieldType::typeName(def->type)) : QString();
}

QString Table::columnTitle(int column) const
{
    const TableColumnDef* def = d->def(column);
    return def ? def->title : QString();
}

void Table::setColumnTitle(int column, const QString& title)
{
    if (column >= 0 && column < d->columns.size())
        d->columns.at(column)->title = title;
}

QString Table::columnDescription(int column) const
{
    const TableColumnDef* def = d->def(column);
    return def ? def->description : QString();
}

const TableColumnDef* Table::columnDef(int column) const
{
    return d->def(column);
}

const TableColumnDef* Table::columnDef(const QString& name) const
{
    return d->def(columnIndex(name));
}

QList<TableColumnDef> Table::columns() const
{
    QList<TableColumnDef> copies;
    copies.reserve(d->columns.size());
    for (const TableColumnDef* def : qAsConst(d->columns))
        copies.append(*def);
    return copies;
}

QList<TableColumnDef*> Table::fieldDefs() const
{
    return d->columns;
}

void TablePrivate::cacheColumn(const QString& columnName)
{
    columnHash.insert(columnName, columns.size());
    columnMap.insert(columnName, columns.size());
}

// False when the column is there already and the new definition fits into it.
bool TablePrivate::acceptsNewColumn(const TableColumnDef& def) const
{
    if (def.name.isEmpty())
        throw QStringLiteral("Column name can't be empty.");
    for (const TableColumnDef* old : columns) {
        if (old->name.compare(def.name, Qt::CaseInsensitive) != 0)
            continue;
        const bool same = def.type == old->type && def.length == old->length;
        const bool shorterText = def.type == FieldType::VarChar &&
                                 old->type == FieldType::VarChar && def.length <= old->length;
        const bool narrower = def.type == FieldType::Integer && old->type == FieldType::Integer64;
        if (same || shorterText || narrower)
            return false;
        throw QStringLiteral("Column '%1' already exists for table '%2'.").arg(def.name, name);
    }
    return true;
}

// Appends the column and moves the given rows, which no index holds any more, to new blocks with
// room for it. Throws std::bad_alloc before anything has changed.
void TablePrivate::relayout(const TableColumnDef& def, PartitionList<Record>& rows)
{
    const int n = columns.size();
    auto column = std::make_unique<TableColumnDef>(q, def);
    column->size = FieldType::typeLength(def.type, def.length);
    column->offset = rowLength;
    const qint64 newLength = rowLength + roundUp8(column->size);
    const qint64 newSize = qint64(sizeof(RowHeader)) + newLength + bitmapBytes(n + 1);

    std::vector<unsigned char*> fresh(static_cast<size_t>(rows.count()));
    if (newSize <= LongestPrototype)
        prototype.reserve(static_cast<size_t>(newSize)); // refreshPrototype() must not fail
    RowPool* newPool = RowPool::create(static_cast<size_t>(newSize));
    for (size_t i = 0; i < fresh.size(); ++i) {
        fresh[i] = newPool->allocate();
        if (!fresh[i]) {
            while (i > 0)
                RowPool::free(fresh[--i]);
            newPool->abandon();
            throw std::bad_alloc();
        }
    }

    auto next = fresh.cbegin();
    for (Record& row : rows) {
        const unsigned char* old = dataArea(row.row());
        unsigned char* const block = *next++;
        std::memset(block, 0, static_cast<size_t>(newSize));
        new (block) RowHeader{Q_BASIC_ATOMIC_INITIALIZER(0), 0, q};
        std::memcpy(dataArea(block), old, static_cast<size_t>(rowLength));
        // The new column's bit stays clear, nullable or not: it was never written in this row.
        std::memcpy(dataArea(block) + newLength, old + rowLength,
                    static_cast<size_t>(bitmapBytes(n)));
        const int others = row.referenceCount() - 1;
        if (others != 0)
            qWarning("Table::addColumn : Ref count in realloc is %d", others);
        row = Record(block);
    }
    pool->abandon(); // what others still hold of the old rows is detached here
    pool = newPool;

    cacheColumn(def.name);
    rowLengthUnaligned += column->size;
    rowLength = newLength;
    rowSize = newSize;
    columns.append(column.release());
    for (int i = 0; i <= n; ++i) {
        columns.at(i)->index = i;
        columns.at(i)->nullByte = i / 8 + rowLength;
        columns.at(i)->nullMask = static_cast<quint8>(1u << (i % 8));
    }
    refreshPrototype();
}

// --- row blocks ---

void TablePrivate::refreshPrototype()
{
    prototype.resize(rowSize <= LongestPrototype ? static_cast<size_t>(rowSize) : 0);
    if (!prototype.empty())
        makeRow(prototype.data());
}

void TablePrivate::makeRow(unsigned char* row) const
{
    std::memset(row, 0, static_cast<size_t>(rowSize));
    new (row) RowHeader{Q_BASIC_ATOMIC_INITIALIZER(0), 0, q};
    unsigned char* data = dataArea(row);
    for (const TableColumnDef* column : qAsConst(columns)) {
        if (column->type == FieldType::XDecimal)
            LiveTable::store(data + column->offset, xdecimal());
        if (!column->nullable)
            data[column->nullByte] =
                static_cast<unsigned char>(data[column->nullByte] | column->nullMask);
    }
}

qint64 Table::rowLength() const
{
    return d->rowLength;
}

qint64 Table::rowLengthUnaligned() const
{
    return d->rowLengthUnaligned;
}

qint64 Table::rowSize() const
{
    return d->rowSize;
}

unsigned char* Table::allocRow() const
{
    unsigned char* row = d->pool->allocate();
    if (row)
        initRow(row);
    return row;
}

void Table::initRow(unsigned char* row) const
{
    if (d->prototype.empty())
        d->makeRow(row);
    else
        std::memcpy(row, d->prototype.data(), d->prototype.size());
}

unsigned char* Table::cloneRow(const unsigned char* row) const
{
    unsigned char* copy = d->pool->allocate();
    if (!copy)
        return nullptr;
    new (copy) RowHeader{Q_BASIC_ATOMIC_INITIALIZER(0), 0, d->q};
    copyRowContent(copy, row);
    return copy;
}

void Table::copyRowContent(unsigned char* dst, const unsigned char* src) const
{
    std::memcpy(dataArea(dst), dataArea(src), static_cast<size_t>(d->rowSize) - sizeof(RowHeader));
}

void Table::copyRowContent(unsigned char* dst, const unsigned char* src, int first, int last) const
{
    d->cells(first, last).copy(dst, src);
}

LiveTable::CellRange TablePrivate::cells(int first, int last) const
{
    const int n = columns.size();
    first = std::max(first, 0);
    last = last < 0 || last >= n ? n - 1 : last;
    return first > last ? LiveTable::CellRange()
                        : LiveTable::CellRange(columns.at(first), columns.at(last));
}

void Table::freeRow(unsigned char* row)
{
    if (row)
        RowPool::free(row);
}

Field Table::dataPtr(unsigned char* row, int column) const
{
    const TableColumnDef* def = row ? d->def(column) : nullptr;
    if (!def)
        return Field();
    return Field(def, dataArea(row) + def->offset, dataArea(row) + def->nullByte, def->nullMask);
}
