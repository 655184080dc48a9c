// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"
#include "table/fieldtype.h"

#include <QString>

class QDataStream;
class Table;

/// A column's type: what Table::addColumn() takes. See FieldType for what the length means.
struct FieldDef
{
    FieldType::Type type = FieldType::Undefined; ///< of the cells
    qint32 length = 0;                           ///< see FieldType

    constexpr FieldDef() noexcept = default;
    /// A type with its length.
    constexpr FieldDef(FieldType::Type fieldType, qint32 fieldLength) noexcept
        : type(fieldType)
        , length(fieldLength)
    {}

    friend constexpr bool operator==(const FieldDef& a, const FieldDef& b) noexcept
    {
        return a.type == b.type && a.length == b.length;
    }
    friend constexpr bool operator!=(const FieldDef& a, const FieldDef& b) noexcept
    {
        return !(a == b);
    }
};

/**
 * One column of a table: what the user says about it, and where the table put it in its rows.
 *
 * Ownership: a table owns the definitions of its columns, and they live as long as it;
 * Table::columns() gives plain copies. `table` is never dereferenced here. A plain value otherwise,
 * with no threads of its own; a table's definitions change only in Table::addColumn() and
 * Table::setColumnTitle().
 *
 * @code
 * TableColumnDef price(nullptr);
 * price.name = QStringLiteral("price");
 * price.type = FieldType::Decimal;
 * price.length = 2;
 * orders.addColumn(price);
 * @endcode
 */
class LIVETABLE_EXPORT TableColumnDef
{
public:
    /// A fresh definition: undefined type, no name, both flags set, nothing computed.
    explicit TableColumnDef(Table* owner = nullptr);

    /// What the user said in `source`, and its size, as a definition of `owner`. The place in the
    /// row (offset, index, null byte and mask) is reset to zero. For an exact copy, copy the value.
    TableColumnDef(Table* owner, const TableColumnDef& source);

    // What the user says.

    FieldType::Type type = FieldType::Undefined; ///< of the cells
    qint32 length = 0;                           ///< see FieldType; 0 for types without a length
    QString name;         ///< not empty, unique in the table without regard to case
    bool nullable = true; ///< new rows start with NULL here; otherwise with zero or an empty text
    QString title;        ///< for display
    bool flag = true;     ///< for the host's own use: kept and streamed, no decision hangs on it
    QString description;  ///< for display

    // What the table computes when the column is added.

    Table* table = nullptr; ///< the owner
    qint64 offset = 0;      ///< of the cell in the row's data area, in bytes; a multiple of 8
    qint64 size = 0;        ///< of the cell in bytes, not rounded up
    qint32 index = 0;       ///< the column's position in its table, from 0
    qint64 nullByte = 0;    ///< offset in the data area of the byte with this column's null bit
    quint8 nullMask = 0;    ///< that bit: set when the cell holds a value

    /// Type and length.
    FieldDef fieldDef() const noexcept { return FieldDef(type, length); }

    /**
     * Reads what write() wrote; owner and computed place stay as they are.
     *
     * Every input is survived: a stream that ends early leaves null texts and zeros and shows it in
     * its status. Nothing is checked: type and size may be anything.
     */
    void read(QDataStream& stream);

    /// Writes name, title, description, length (qint32), type (qint8), size (qint32), nullable and
    /// flag, in the stream's own version and byte order.
    void write(QDataStream& stream) const;
};
