// SPDX-License-Identifier: MIT
#include "table/roworder_p.h"

#include "table/cell_p.h"
#include "table/table_p.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace LiveTable {

/// Fills the key from the top with fields whose order is that of the values. Fields of one column
/// have the same width in any two rows that are equal up to there, so the bits compare as the rows
/// do.
class RowOrder::KeyWriter
{
public:
    explicit KeyWriter(int words)
        : end(128 - 64 * words + 1)
    {}
    int room() const { return left - end; }
    bool isClosed() const { return closed; }
    /// A field that does not fit is cut, and the key closed.
    void write(quint64 bits, int width)
    {
        if (width > room()) {
            if (room() > 0)
                put(bits >> (width - room()), room());
            close();
        } else {
            put(bits, width);
        }
    }
    /// Nothing more can be told: rows of this key may differ. Whatever leads here stands in the
    /// bits written so far, so it is so for all rows of these bits.
    void close() { closed = true; }
    SortKey result() const
    {
        SortKey whole = key;
        (end > 64 ? whole.high : whole.low) |= closed ? 0 : 1;
        return whole;
    }

private:
    void put(quint64 bits, int width)
    {
        if (width <= 0)
            return;
        left -= width;
        Q_ASSERT(left >= 1 && left < 128); // the last bit is for exactness
        if (left >= 64) {
            key.high |= bits << (left - 64);
            return;
        }
        if (left + width > 64)
            key.high |= bits >> (64 - left);
        key.low |= bits << left;
    }

    SortKey key;
    const int end;
    int left = 128;
    bool closed = false;
};

namespace {

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

// floor(value * 10^8), clamped: exact for most prices, and in order for all decimals. `relation`
// says where the value itself lies: below (-1), at (0) or above (1) the result.
qint64 fixedPoint(decimal value, int& relation)
{
    relation = 0;
    constexpr int Places = 8;
    const qint64 mantissa = value.mantissa();
    const int scale = value.scale();
    if (scale > Places) {
        const qint64 divisor = powersOfTen[std::min(scale - Places, 18)]; // above any mantissa
        relation = mantissa % divisor != 0 ? 1 : 0;
        return mantissa / divisor - (mantissa % divisor < 0 ? 1 : 0);
    }
    const int raise = Places - scale;
    qint64 product = 0;
    if (mantissa != 0 &&
        (raise > 18 || __builtin_mul_overflow(mantissa, powersOfTen[raise], &product))) {
        relation = mantissa < 0 ? -1 : 1;
        return mantissa < 0 ? std::numeric_limits<qint64>::min()
                            : std::numeric_limits<qint64>::max();
    }
    return product;
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
                         column.descending, column.nullsLast});
    }
    // One word holds a number; more columns, or text, are worth a second.
    int bits = 0;
    for (const Cell& cell : cells)
        bits += cell.type == FieldType::VarChar   ? 1 + 7 * std::min(cell.length, 20)
                : cell.type == FieldType::Integer ? 33
                                                  : 64;
    words = cells.empty() ? 0 : bits <= 64 ? 1 : 2;
    isOneNumber = cells.size() == 1 &&
                  (cells[0].type == FieldType::Integer64 || cells[0].type == FieldType::DateTime ||
                   cells[0].type == FieldType::Decimal);
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

// What the writer makes of one number in one word.
SortKey RowOrder::numberKey(const Cell& cell, const unsigned char* row)
{
    int relation = 0;
    const unsigned char* data = row + cell.offset;
    qint64 value = cell.type == FieldType::Decimal ? fixedPoint(load<decimal>(data), relation)
                                                   : load<qint64>(data);
    constexpr qint64 top = (qint64(1) << (numberWidth - 1)) - 1;
    if (value > top || value < -top - 1) {
        relation = value < 0 ? -1 : 1;
        value = value < 0 ? -top - 1 : top;
    }
    constexpr quint64 mask = (quint64(1) << numberWidth) - 1;
    const quint64 bits = static_cast<quint64>(value + top + 1);
    const quint64 high = (cell.descending ? ~bits & mask : bits) << 3 |
                         static_cast<quint64>(cell.descending ? 1 - relation : 1 + relation) << 1 |
                         (relation == 0 ? 1 : 0);
    return {high | quint64(cell.nullsLast ? 0 : 1) << 63, 0};
}

SortKey RowOrder::key(const unsigned char* row) const
{
    if (isOneNumber && (row[cells[0].nullByte] & cells[0].nullMask))
        return numberKey(cells[0], row);
    KeyWriter key(words);
    for (const Cell& cell : cells) {
        const bool isNull = !(row[cell.nullByte] & cell.nullMask);
        key.write(isNull == cell.nullsLast ? 1 : 0, 1);
        if (!isNull && !key.isClosed())
            writeCell(key, cell, row + cell.offset);
        if (key.isClosed())
            break;
    }
    return key.result();
}

void RowOrder::writeCell(KeyWriter& key, const Cell& cell, const unsigned char* data)
{
    int relation = 0;
    switch (cell.type) {
    case FieldType::Integer: {
        const quint32 bits = static_cast<quint32>(load<qint32>(data)) ^ 0x80000000u;
        key.write(cell.descending ? ~bits : bits, 32);
        break;
    }
    case FieldType::Integer64:
    case FieldType::DateTime:
        writeNumber(key, cell, load<qint64>(data), 0);
        break;
    case FieldType::Double: {
        const quint64 bits = orderedBits(load<double>(data));
        key.write(cell.descending ? ~bits : bits, 64);
        break;
    }
    case FieldType::Decimal: {
        const qint64 fixed = fixedPoint(load<decimal>(data), relation);
        writeNumber(key, cell, fixed, relation);
        break;
    }
    case FieldType::VarChar:
        writeText(key, cell, data);
        break;
    default: // no cheap order-preserving form
        key.close();
        break;
    }
}

// A number in as many bits as there are, clamped where they are nearly enough, and whether the
// cell's value lies below (0), at (1) or above (2) that; else its leading digits, which a double
// has in front.
void RowOrder::writeNumber(KeyWriter& key, const Cell& cell, qint64 value, int relation)
{
    const int width = std::min(key.room() - 2, 64);
    if (width < 48) {
        const quint64 bits = orderedBits(static_cast<double>(value));
        key.write(cell.descending ? ~bits : bits, 64); // is cut, and so closes the key
        return;
    }
    const qint64 top = std::numeric_limits<qint64>::max() >> (64 - width);
    if (value > top || value < -top - 1) {
        relation = value < 0 ? -1 : 1;
        value = value < 0 ? -top - 1 : top;
    }
    const quint64 mask = ~quint64(0) >> (64 - width);
    const quint64 bits = (static_cast<quint64>(value) + static_cast<quint64>(top) + 1) & mask;
    key.write(cell.descending ? ~bits & mask : bits, width);
    key.write(static_cast<quint64>(cell.descending ? 1 - relation : 1 + relation), 2);
    if (relation != 0)
        key.close();
}

// Seven bits a character: printable ASCII is told apart, what lies below and above is not and
// closes the key; a text shorter than its column ends with a 0.
void RowOrder::writeText(KeyWriter& key, const Cell& cell, const unsigned char* data)
{
    constexpr int Gathered = 9; // as many as one word holds
    for (int i = 0; i < cell.length && !key.isClosed();) {
        quint64 codes = 0;
        int width = 0;
        quint64 code = 1;
        bool told = true;
        for (int n = 0; n < Gathered && i < cell.length && code != 0 && told; ++n, ++i) {
            const quint16 unit = load<quint16>(data + 2 * i);
            told = unit == 0 || (unit >= 0x20 && unit < 0x7F);
            code = unit == 0 ? 0 : told ? unit - 0x20u + 2 : unit < 0x20 ? 1 : 0x61;
            codes = codes << 7 | code;
            width += 7;
        }
        const quint64 mask = (quint64(1) << width) - 1;
        const bool fits = width <= key.room();
        key.write(cell.descending ? ~codes & mask : codes, width);
        if (!told && fits)
            return key.close();
        if (code == 0)
            return;
    }
}

} // namespace LiveTable
