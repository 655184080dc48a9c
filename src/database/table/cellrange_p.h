// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "table/record.h"
#include "table/tablecolumndef.h"

#include <cstring>

namespace LiveTable {

/// The cells of neighbouring columns, `first` to `last`, as bytes of a row block: their data and
/// their null bits. Made once, it copies and compares many rows. Valid until a column is added.
class CellRange
{
public:
    CellRange() = default;
    CellRange(const TableColumnDef* first, const TableColumnDef* last)
        : offset(sizeof(RowHeader) + static_cast<size_t>(first->offset))
        , length(static_cast<size_t>(last->offset + (last->size + 7) / 8 * 8 - first->offset))
        , firstByte(sizeof(RowHeader) + static_cast<size_t>(first->nullByte))
        , lastByte(sizeof(RowHeader) + static_cast<size_t>(last->nullByte))
        // The bits of a byte from the first column's up, and up to the last column's.
        , firstMask(static_cast<quint8>(-first->nullMask))
        , lastMask(static_cast<quint8>(last->nullMask * 2 - 1))
    {}

    void copy(unsigned char* to, const unsigned char* from) const
    {
        std::memcpy(to + offset, from + offset, length);
        for (size_t byte = firstByte; byte <= lastByte; ++byte) {
            const unsigned mask = maskOf(byte);
            to[byte] = static_cast<unsigned char>((to[byte] & ~mask) | (from[byte] & mask));
        }
    }
    /// Whether all bytes are the same; NULL cells may hold different ones.
    bool isSame(const unsigned char* a, const unsigned char* b) const
    {
        for (size_t byte = firstByte; byte <= lastByte; ++byte)
            if ((a[byte] ^ b[byte]) & maskOf(byte))
                return false;
        // Every column takes a multiple of 8 bytes.
        quint64 differs = 0;
        for (size_t i = 0; i < length; i += 8) {
            quint64 x;
            quint64 y;
            std::memcpy(&x, a + offset + i, sizeof(x));
            std::memcpy(&y, b + offset + i, sizeof(y));
            differs |= x ^ y;
        }
        return differs == 0;
    }

private:
    unsigned maskOf(size_t byte) const
    {
        return (byte == firstByte ? firstMask : 0xFFu) & (byte == lastByte ? lastMask : 0xFFu);
    }

    size_t offset = 0;
    size_t length = 0;
    size_t firstByte = 1; // behind the last one: no bytes at all
    size_t lastByte = 0;
    quint8 firstMask = 0;
    quint8 lastMask = 0;
};

} // namespace LiveTable
