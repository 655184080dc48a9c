// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "table/recordstrans.h"

#include <QHash>

#include <limits>
#include <vector>

namespace LiveTable {

/// A set of column numbers. The first 64 need no memory of their own.
class ColumnSet
{
public:
    bool contains(int column) const
    {
        return column < 64 ? low >> column & 1
                           : high.size() > word(column) && (high[word(column)] >> column % 64 & 1);
    }
    void insert(int column)
    {
        if (column < 64) {
            low |= quint64(1) << column;
            return;
        }
        if (high.size() <= word(column))
            high.resize(word(column) + 1);
        high[word(column)] |= quint64(1) << column % 64;
    }

private:
    static size_t word(int column) { return static_cast<size_t>(column / 64 - 1); }
    quint64 low = 0;
    std::vector<quint64> high;
};

} // namespace LiveTable

/// The operations of a transaction.
/// Invariants: one entry a row; `content` is null unless the operation is an update; `places` finds
/// the entry of each row once there are more than ScanLimit entries, and is empty before.
class RecordsTransPrivate
{
public:
    struct Entry
    {
        Record live;
        Record content; // the row as it is to be; columns outside `columns` are refreshed late
        LiveTable::ColumnSet columns;
        int operation;
    };
    static constexpr size_t ScanLimit = 8; // up to here a look through all is the quickest search
    static constexpr int NoFirst = std::numeric_limits<int>::max();

    Entry* find(const Record& record);
    Entry& add(const Record& record, int operation);
    bool accepts(const Record& record);
    void widen(int from, int to);
    /// Puts `content`'s `columns` over what is held for the row. Takes `content` itself where it is
    /// the only one to have it.
    void update(const Record& live, const Record& content, const LiveTable::ColumnSet& columns,
                int from, int to, bool adopt);
    QList<Record> rows(int operation) const;

    Table* table = nullptr;
    std::vector<Entry> entries;
    QHash<Record, int> places;
    int first = NoFirst;
    int last = -1;
};
