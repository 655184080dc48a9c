// SPDX-License-Identifier: MIT
#pragma once

#include "table/record.h"
#include "table/table.h"
#include "value/datetime.h"
#include "value/decimal.h"
#include "value/xdecimal.h"

#include <QString>
#include <QStringView>

#include <cstring>
#include <type_traits>

namespace LiveTable {
/// The type of the cells that a CellReader reads as T; undefined where there is none.
template <typename T>
constexpr FieldType::Type cellTypeOf() noexcept
{
    return std::is_same_v<T, qint32>        ? FieldType::Integer
           : std::is_same_v<T, qint64>      ? FieldType::Integer64
           : std::is_same_v<T, double>      ? FieldType::Double
           : std::is_same_v<T, decimal>     ? FieldType::Decimal
           : std::is_same_v<T, xdecimal>    ? FieldType::XDecimal
           : std::is_same_v<T, datetime>    ? FieldType::DateTime
           : std::is_same_v<T, QStringView> ? FieldType::VarChar
                                            : FieldType::Undefined;
}
} // namespace LiveTable

/// Reads one column's cells as values of one C++ type, in a few instructions: type and place are
/// looked up once, when it is made. For what runs millions of times, as compare() and filter() of
/// an index of your own; Record::data() is the way for everything else.
///
/// T is qint32 (Integer), qint64 (Integer64), double (Double), decimal (Decimal), xdecimal
/// (XDecimal), datetime (DateTime) or QStringView (VarChar). The column must be of that very type.
///
/// Lifetime: a plain value that may be copied; it is good as long as its table lives, also when
/// columns are added. Threads: as for reading cells, see Record. Cost: no call, no lock, no
/// allocation, no count; a NULL is found out by a look at one more byte of the row.
///
///     CellReader<decimal> price(&quotes, "price");
///     for (const Record& quote : *quotes.masterIndex())
///         if (limit < price(quote)) ...
template <typename T>
class CellReader
{
    static_assert(LiveTable::cellTypeOf<T>() != FieldType::Undefined,
                  "no column is read as this type; a VarChar is read as QStringView");

public:
    /// Throws the QString "Column '%1' not found." for a number or name (compared exactly) that
    /// the table does not have, and "Incorrect type of field." for a column of another type.
    CellReader(const Table* table, int column)
        : def(table ? table->columnDef(column) : nullptr)
    {
        check(QString::number(column));
    }
    CellReader(const Table* table, const QString& column)
        : def(table ? table->columnDef(table->columnIndex(column)) : nullptr)
    {
        check(column);
    }

    /// Whether the row's cell is NULL. The record must be a row of the table, in it or not; neither
    /// null nor detached.
    bool isNull(const Record& record) const noexcept
    {
        return (bytes(record, def->nullByte)[0] & def->nullMask) == 0;
    }
    /// The row's value; zero, an unset date or an empty text when the cell is NULL. The same holds
    /// for the record. A text is a view into the row: good until the cell changes or the row goes.
    T operator()(const Record& record) const noexcept
    {
        if (isNull(record))
            return T();
        const unsigned char* const cell = bytes(record, def->offset);
        if constexpr (std::is_same_v<T, QStringView>) {
            const auto* const text = reinterpret_cast<const QChar*>(cell);
            int length = 0;
            while (length < def->length && !text[length].isNull())
                ++length;
            return QStringView(text, length);
        } else if constexpr (std::is_same_v<T, xdecimal>) {
            return xdecimal::fromRaw(cell);
        } else if constexpr (std::is_same_v<T, decimal>) {
            qint64 raw;
            std::memcpy(&raw, cell, sizeof(raw));
            return decimal::fromRaw(raw);
        } else {
            T value;
            std::memcpy(static_cast<void*>(&value), cell, sizeof(value));
            return value;
        }
    }

private:
    const unsigned char* bytes(const Record& record, qint64 offset) const noexcept
    {
        Q_ASSERT(record.table() == def->table);
        return record.row() + sizeof(LiveTable::RowHeader) + offset;
    }
    void check(const QString& column) const
    {
        if (!def)
            throw QStringLiteral("Column '%1' not found.").arg(column);
        if (def->type != LiveTable::cellTypeOf<T>())
            throw QStringLiteral("Incorrect type of field.");
    }

    const TableColumnDef* def;
};
