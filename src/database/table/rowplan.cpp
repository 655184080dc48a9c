// SPDX-License-Identifier: MIT
#include "table/rowplan_p.h"

#include "table/cell_p.h"
#include "table/record.h"
#include "table/table.h"

#include <algorithm>
#include <cstring>

using namespace LiveTable;

namespace {

// Cells of 4 and 8 bytes are most of all: a fixed size spares them a call.
void copyBytes(unsigned char* to, const unsigned char* from, size_t n) noexcept
{
    if (n == 8)
        std::memcpy(to, from, 8);
    else if (n == 4)
        std::memcpy(to, from, 4);
    else
        std::memcpy(to, from, n);
}

// Another view of a cell, which may say that the cell holds a value.
class Cell : public Field
{
public:
    explicit Cell(const Field& field)
        : Field(field)
    {}
    using Field::setPresent;
};

} // namespace

void RowPlan::addCell(qint64 packed, const TableColumnDef& column, qint64 bytes)
{
    addCopy(packed, column.offset, std::min(bytes, column.size));
}

void RowPlan::addCopy(qint64 packed, qint64 offset, qint64 bytes)
{
    if (bytes <= 0)
        return;
    const Copy copy{static_cast<size_t>(packed), sizeof(RowHeader) + static_cast<size_t>(offset),
                    static_cast<size_t>(bytes)};
    if (!copies.empty()) {
        Copy& last = copies.back();
        if (last.packed + last.bytes == copy.packed && last.row + last.bytes == copy.row) {
            last.bytes += copy.bytes;
            return;
        }
    }
    copies.push_back(copy);
}

void RowPlan::addNullBit(qint64 packed, quint8 packedMask, const TableColumnDef& column)
{
    const size_t row = sizeof(RowHeader) + static_cast<size_t>(column.nullByte);
    const auto from = static_cast<size_t>(packed);
    if (!bits.empty()) {
        Bits& last = bits.back();
        if (last.packed == from && last.row == row && last.packedMask == last.rowMask &&
            packedMask == column.nullMask) {
            last.packedMask = last.rowMask = static_cast<quint8>(last.rowMask | packedMask);
            return;
        }
    }
    bits.push_back({from, row, packedMask, column.nullMask});
}

void RowPlan::addBitmap(qint64 packed, const Table& table, qint64 bytes)
{
    const int columns = table.columnCount();
    const qint64 own = (columns + 7) / 8;
    addCopy(packed, table.rowLength(), std::min(bytes, own));
    // A column added later must not find its bit set by a stray one.
    if (columns % 8 != 0) {
        tail = sizeof(RowHeader) + static_cast<size_t>(table.rowLength() + own - 1);
        tailMask = static_cast<quint8>(0xFF >> (8 - columns % 8));
    }
}

void RowPlan::pack(const unsigned char* row, unsigned char* packed) const noexcept
{
    for (const Copy& copy : copies)
        copyBytes(packed + copy.packed, row + copy.row, copy.bytes);
}

void RowPlan::unpack(const unsigned char* packed, unsigned char* row) const noexcept
{
    for (const Copy& copy : copies)
        copyBytes(row + copy.row, packed + copy.packed, copy.bytes);
    for (const Bits& bit : bits) {
        const unsigned value = packed[bit.packed] & bit.packedMask;
        const unsigned set = bit.packedMask == bit.rowMask ? value : value ? bit.rowMask : 0u;
        row[bit.row] = static_cast<unsigned char>((row[bit.row] & ~bit.rowMask) | set);
    }
    if (tailMask != 0xFF)
        row[tail] &= tailMask;
}

Field LiveTable::cellOf(const TableColumnDef& column, unsigned char* row) noexcept
{
    unsigned char* data = row + sizeof(RowHeader);
    return Field(&column, data + column.offset, data + column.nullByte, column.nullMask);
}

void LiveTable::copyCell(Field& to, const Field& from, size_t size) noexcept
{
    if (to.data() && from.data())
        std::memmove(to.data(), from.data(), size);
    Cell(to).setPresent();
    if (from.isNull())
        to.setNull();
}
