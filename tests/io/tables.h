// SPDX-License-Identifier: MIT
// What the tests of files share: tables of every kind, and comparing them.
#pragma once

#include "base/hostcore.h"
#include "index/masterindex.h"
#include "io/tableio.h"
#include "support/files.h"
#include "table/table.h"

#include <QBuffer>
#include <QDataStream>
#include <QTemporaryDir>
#include <QTest>

#include <numeric>
#include <random>

/// A host's core that is installed for as long as it lives.
struct TestCore : HostCore
{
    explicit TestCore(bool compress = false)
    {
        setCompressTables(compress);
        ICore::setInstance(this);
    }
};

inline const FieldDef everyType[] = {
    {FieldType::Integer, 0},  {FieldType::VarChar, 5},   {FieldType::Integer64, 0},
    {FieldType::Double, 0},   {FieldType::Decimal, 2},   {FieldType::XDecimal, 3},
    {FieldType::DateTime, 0}, {FieldType::BoardList, 0}, {FieldType::VarChar, 4}};

/// Columns c0, c1, ... of the types in turn, every third one not nullable.
inline void addColumns(Table& table, int count)
{
    for (int i = 0; i < count; ++i) {
        const FieldDef& def = everyType[i % 9];
        table.addColumn(QString("c%1").arg(i), def, i % 3 != 0, QString("title %1").arg(i), i % 2,
                        i == 1 ? QString() : QString("Spalte №%1").arg(i));
    }
}

inline void fillRow(const Record& row, std::mt19937& random)
{
    const Table* table = row.table();
    for (int i = 0; i < table->columnCount(); ++i) {
        Field cell = row.data(i);
        const auto n = qint64(qint32(random()));
        if (n % 5 == 0) {
            cell.setNull();
            continue;
        }
        boardlist boards;
        boards.append(int(n % 1000), 7);
        if (cell.type() == FieldType::VarChar)
            cell = QString::number(n % 100000, 36);
        else if (cell.type() == FieldType::DateTime)
            cell = datetime(n * 1000);
        else if (cell.type() == FieldType::Decimal)
            cell = decimal::fromMantissa(n, 2);
        else if (cell.type() == FieldType::XDecimal)
            cell = xdecimal(QString::number(n) + ".125");
        else if (cell.type() == FieldType::BoardList)
            cell = boards;
        else if (cell.type() == FieldType::Double)
            cell = double(n) / 3;
        else
            cell = cell.type() == FieldType::Integer ? n : n * 4294967311;
    }
}

inline void fill(Table& table, int rows, quint32 seed = 1)
{
    std::mt19937 random(seed);
    QList<Record> records;
    records.reserve(rows);
    for (int i = 0; i < rows; ++i) {
        records.append(Record(&table));
        fillRow(records.last(), random);
    }
    table.appendList(records);
}

struct FilledTable : Table
{
    FilledTable(const char* tableName, int columns, int rows, quint32 seed = 1)
        : Table(tableName)
    {
        addColumns(*this, columns);
        fill(*this, rows, seed);
    }
};

/// Empty when the cells of two rows are the same, column by column.
inline QString difference(const Record& a, const Record& b)
{
    const int columns = a.table()->columnCount();
    for (int i = 0; i < columns; ++i) {
        const Field left = a.data(i);
        const Field right = b.data(i);
        if (left.isNull() != right.isNull() ||
            (!left.isNull() && memcmp(left.data(), right.data(), size_t(left.columnDef()->size))))
            return QString("column %1: %2 / %3").arg(i).arg(left.toString(), right.toString());
    }
    return QString();
}

/// Empty when two tables have the same columns and rows; `rows` -1 for all.
inline QString difference(const Table& a, const Table& b, int rows = -1)
{
    if (a.columnCount() != b.columnCount())
        return "other columns";
    for (int i = 0; i < a.columnCount(); ++i) {
        const TableColumnDef& x = *a.columnDef(i);
        const TableColumnDef& y = *b.columnDef(i);
        if (x.name != y.name || x.type != y.type || x.length != y.length || x.title != y.title ||
            x.nullable != y.nullable || x.flag != y.flag || x.description != y.description)
            return "column " + x.name + " / " + y.name;
    }
    if (b.rowCount() != (rows < 0 ? a.rowCount() : rows))
        return QString("%1 rows / %2").arg(a.rowCount()).arg(b.rowCount());
    for (int i = 0; i < b.rowCount(); ++i) {
        const QString found = difference(a.at(i), b.at(i));
        if (!found.isEmpty())
            return QString("row %1, ").arg(i) + found;
    }
    return QString();
}

inline QByteArray listBytes(Table& table)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    FilterProgressTrue all;
    TableIO(&table).writeRowList(all, stream, table.masterIndex()->records());
    return bytes;
}

/// Reads a table file or its beginning; what became of it.
inline TableIO::Status readBytes(Table& table, const QByteArray& bytes, bool strict = false,
                                 bool withNewColumns = true)
{
    QDataStream stream(bytes);
    TableIO io(&table);
    io.setStrict(strict);
    io.read(stream, withNewColumns);
    return io.status();
}

/// Writes down what it is asked and told.
struct Recorder : FilterProgress
{
    QVector<int> steps;
    int total = -1;
    std::function<bool(const Record&)> accepts = [](const Record&) { return true; };
    bool operator()(int done, int all) override
    {
        steps.append(done);
        total = all;
        return false; // must not matter
    }
    bool filter(const Record& record) const override { return accepts(record); }
    /// Whether it was told 0, 1, ... n-1.
    bool hasSeen(int n) const
    {
        QVector<int> all(n);
        std::iota(all.begin(), all.end(), 0);
        return steps == all && (n == 0 || total == n);
    }
};
