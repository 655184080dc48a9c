// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "container/partitionlist.h"

#include <QtGlobal>

#include <vector>

class Table;

namespace LiveTable {

/// Compares whole rows by some of their columns, in place and without memory, exactly as
/// Field::compare does cell by cell; and packs the columns into an order-preserving key.
///
/// Threads: reading only, from any thread. It holds copies of the columns' places, so it must be
/// resolved again after columns were added.
class RowOrder
{
public:
    struct Column
    {
        int number;
        bool descending;
        bool nullsLast;
    };
    explicit RowOrder(std::vector<Column> sortColumns)
        : columns(std::move(sortColumns))
    {}

    /// Looks up where the columns lie. A number out of range takes no part in the order.
    void resolve(const Table* table);
    /// Negative, 0 or positive as row `a` comes before, with or after row `b`.
    int compare(const unsigned char* a, const unsigned char* b) const;
    /// key(a) < key(b) only where a comes before b; equal keys say nothing.
    SortKey key(const unsigned char* row) const;
    /// How many words the key takes: 1 or 2; 0 without columns.
    int keyWords() const { return words; }
    /// Whether rows of this key are equal: its last bit is set then.
    bool isExact(SortKey key) const { return (words > 1 ? key.low : key.high) & 1; }
    bool touches(int firstColumn, int lastColumn) const;

private:
    struct Cell
    {
        int type;
        int length;
        size_t offset; // from the start of the row block
        size_t nullByte;
        quint8 nullMask;
        bool descending;
        bool nullsLast;
    };
    class KeyWriter;
    // The bits of a number that has a word to itself, but for a bit for NULL and three for
    // exactness.
    static constexpr int numberWidth = 60;
    static SortKey numberKey(const Cell& cell, const unsigned char* row);
    static void writeCell(KeyWriter& key, const Cell& cell, const unsigned char* data);
    static void writeNumber(KeyWriter& key, const Cell& cell, qint64 value, int relation);
    static void writeText(KeyWriter& key, const Cell& cell, const unsigned char* data);

    std::vector<Column> columns;
    std::vector<Cell> cells;
    int words = 0;
    bool isOneNumber = false;
};

} // namespace LiveTable
