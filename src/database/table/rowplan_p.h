// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include <QtGlobal>

#include <vector>

class Field;
class Table;
class TableColumnDef;

namespace LiveTable {

/// How a row's packed form (its cells' bytes one behind the other without padding, then its null
/// bitmap, as in table files) is copied to or from its row block. Computed once for many rows:
/// pieces that are neighbours in both forms are one copy.
///
/// Packed bytes need no alignment. Nothing here allocates once the plan is made, or throws. The
/// packed row must have all bytes that were added, the row block must be one of the table's; the
/// table's columns must not change meanwhile.
class RowPlan
{
public:
    /// Adds `bytes` bytes of the cell, at most its size, which begin at `packed` in the packed row.
    /// Nothing when there are none.
    void addCell(qint64 packed, const TableColumnDef& column, qint64 bytes);
    /// Adds the column's null bit, which is bit `packedMask` of the byte at `packed`.
    void addNullBit(qint64 packed, quint8 packedMask, const TableColumnDef& column);
    /// Adds the table's whole bitmap, at most `bytes` bytes of it.
    void addBitmap(qint64 packed, const Table& table, qint64 bytes);

    void pack(const unsigned char* row, unsigned char* packed) const noexcept;
    void unpack(const unsigned char* packed, unsigned char* row) const noexcept;

private:
    void addCopy(qint64 packed, qint64 offset, qint64 bytes);

    struct Copy
    {
        size_t packed;
        size_t row; // in the row block
        size_t bytes;
    };
    struct Bits
    {
        size_t packed;
        size_t row;
        quint8 packedMask;
        quint8 rowMask;
    };
    std::vector<Copy> copies;
    std::vector<Bits> bits; // of unpack() only
    size_t tail = 0;        // the bitmap's last byte in the row block
    quint8 tailMask = 0xFF; // and its bits that belong to columns
};

/// The cell of a column in a row block of the column's table.
Field cellOf(const TableColumnDef& column, unsigned char* row) noexcept;

/// Copies the first `size` bytes of a cell and whether it holds a value.
void copyCell(Field& to, const Field& from, size_t size) noexcept;

} // namespace LiveTable
