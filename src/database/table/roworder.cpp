// SPDX-License-Identifier: MIT
#include "table/roworder_p.h"

#include "table/cell_p.h"
#include "table/table_p.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace LiveTable {

/// Fills 64 bits from the top with fields whose order is that of the values. Fields of one column
/// have the same width in any two rows that are equal up to there, so the bits compare as the rows
/// do.
class RowOrder::KeyWriter
{
public:
    int room() const { return left; }
    void write(quint64 bits, int width)
    {
        if (width > left) {
            bits >>= width - left;
            width = left;
        }
        if (width <= 0)
            return;
        left -= width;
        value |= bits << left;
    }
    /// What follows would not be in order any more.
    void close() { left = 0; }
    quint64 result() const { return value; }

private:
    quint64 value = 0;
    int left = 64;
};

namespace {

quint64 orderedBits(qint64 v)
{
    return static_cast<quint64>(v) ^ (quint64(1) << 63);
}

// NaN comes below all numbers, and both zeros are one.
quint64 orderedBits(double v)
{
    if (std::isnan(v))
        return 0;
    if (v == 0.0)
        v = 0.0;
    quint64 bits;
    std::memcpy(&bits, &v, sizeof(bits));
    return bits >> 63 ? ~bits : bits | quint64(1) << 63;
}

// floor(value * 10^8), clamped: exact enough for prices, and in order for all decimals.
qint64 fixedPoint(decimal value)
{
    constexpr int Places = 8;
    const qint64 mantissa = value.mantissa();
    const int scale = value.scale();
    if (scale > Places) {
        const int cut = scale - Places;
        if (cut > 18)
            return mantissa < 0 ? -1 : 0;
        const qint64 divisor = powersOfTen[cut];
        return mantissa / divisor - (mantissa % divisor < 0 ? 1 : 0);
    }
    const int raise = Places - scale;
    qint64 product;
    if (mantissa != 0 &&
        (raise > 18 || __builtin_mul_overflow(mantissa, powersOfTen[raise], &product)))
        return mantissa < 0 ? std::numeric_limits<qint64>::min()
                            : std::numeric_limits<qint64>::max();
    return mantissa == 0 ? 0 : product;
}

} // namespace

void RowOrder::resolve(const Table* table)
{
    cells.clear();
    for (const Column& column : columns) {
        const TableColumnDef* def = table ? table->columnDef(column.number) : nullptr;
        if (!def)
            continue;
        cells.push_back({def->type, def->length,
                         sizeof(RowHeader) + static_cast<size_t>(def->offset),
                         sizeof(RowHeader) + static_cast<size_t>(def->nullByte), def->nullMask,
                         true, column.descending, column.nullsLast});
    }
}

bool RowOrder::touches(int firstColumn, int lastColumn) const
{
    const int last = lastColumn < 0 ? std::numeric_limits<int>::max() : lastColumn;
    return std::any_of(columns.begin(), columns.end(), [=](const Column& column) {
        return column.number >= firstColumn && column.number <= last;
    });
}

int RowOrder::compare(const unsigned char* a, const unsigned char* b) const
{
    for (const Cell& cell : cells) {
        const bool nullA = !(a[cell.nullByte] & cell.nullMask);
        const bool nullB = !(b[cell.nullByte] & cell.nullMask);
        if (nullA || nullB) {
            if (nullA == nullB)
                continue;
            return nullA == cell.nullsLast ? 1 : -1;
        }
        const int order = compareSameType(static_cast<FieldType::Type>(cell.type), cell.length,
                                          a + cell.offset, b + cell.offset);
        if (order != 0)
            return cell.descending ? -order : order;
    }
    return 0;
}

quint64 RowOrder::key(const unsigned char* row) const
{
    KeyWriter key;
    for (const Cell& cell : cells) {
        if (key.room() == 0)
            break;
        const bool isNull = !(row[cell.nullByte] & cell.nullMask);
        if (cell.nullable)
            key.write(isNull == cell.nullsLast ? 1 : 0, 1);
        if (!isNull)
            writeCell(key, cell, row + cell.offset);
    }
    return key.result();
}

void RowOrder::writeCell(KeyWriter& key, const Cell& cell, const unsigned char* data)
{
    quint64 bits = 0;
    int width = 64;
    switch (cell.type) {
    case FieldType::Integer:
        bits = static_cast<quint32>(load<qint32>(data)) ^ 0x80000000u;
        width = 32;
        break;
    case FieldType::Integer64:
    case FieldType::DateTime:
        bits = orderedBits(load<qint64>(data));
        break;
    case FieldType::Double:
        bits = orderedBits(load<double>(data));
        break;
    case FieldType::Decimal: {
        const qint64 fixed = fixedPoint(load<decimal>(data));
        // Behind other columns there is not room for all digits: a double keeps the leading ones.
        bits = key.room() >= 63 ? orderedBits(fixed) : orderedBits(static_cast<double>(fixed));
        break;
    }
    case FieldType::VarChar:
        writeText(key, cell, data);
        return;
    default: // no cheap order-preserving form
        key.close();
        return;
    }
    if (cell.descending)
        bits = ~bits & (width == 64 ? ~quint64(0) : (quint64(1) << width) - 1);
    key.write(bits, width);
    if (cell.type == FieldType::Decimal)
        key.close(); // decimals that differ may have got the same bits
}

// Seven bits a character: printable ASCII is told apart, what lies below and above is not and ends
// the key; a text shorter than its column ends with a 0.
void RowOrder::writeText(KeyWriter& key, const Cell& cell, const unsigned char* data)
{
    for (int i = 0; i < cell.length && key.room() > 0; ++i) {
        const quint16 unit = load<quint16>(data + 2 * i);
        quint64 code = 0;
        bool told = true;
        if (unit >= 0x20 && unit < 0x7F)
            code = unit - 0x20u + 2;
        else if (unit != 0)
            told = false, code = unit < 0x20 ? 1 : 0x61;
        key.write(cell.descending ? 0x7F - code : code, 7);
        if (!told)
            return key.close();
        if (unit == 0)
            return;
    }
}

} // namespace LiveTable
