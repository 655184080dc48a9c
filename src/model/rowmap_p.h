// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "index/indexlist.h"

#include <vector>

namespace LiveTable {

/// Columns of a model, one bit each; the last bit stands for all columns from the 64th on.
using ColumnSet = quint64;
constexpr int columnBits = 64;

/// The difference between two states of a list: an IndexChange that owns its arrays, with the
/// changed columns of each row.
struct RowChange
{
    struct Cells
    {
        int row; // as it is now
        ColumnSet columns;
    };
    std::vector<int> removed;             // as it was before, ascending
    std::vector<IndexChange::Move> moved; // ascending by `to`
    std::vector<int> inserted;            // as it is now, ascending
    std::vector<Cells> changed;           // ascending; moved rows among them

    void clear();
    /// How many signals it takes: runs of removed and of inserted rows, and moves.
    int steps() const;
};

/// The change between two lists of rows, of which each has a row once. The moved rows are as few as
/// possible.
RowChange difference(const std::vector<Record>& before, const IndexList& now);

/// Where the rows of a list on its way from one state to the next stand in the next one.
///
///     list      a  X  b  M  c        X leaves, M moves to the front, N comes in
///     next      M  a  b  N  c
///
/// a, b and c are the rows that stay: in both lists in the same order. The others of the list are
/// kept as `extras`, where they stand now and where in the next list they will (-1: nowhere), and
/// the places of the next list that no staying row takes as `incoming`. Steps change the extras.
/// Finding a row costs O(log extras), a step O(extras), at any number of rows.
class RowMap
{
public:
    void start(const RowChange& change, int rowsBefore);
    int rowCount() const { return rows; }
    /// The row of the next list; -1 for one that leaves it.
    int target(int row) const;
    /// The row of this list that has that target; -1 if there is none yet. O(extras) for one that
    /// moves.
    int rowOf(int target) const;

    void takeOut(int first, int last);
    void putIn(int first, int last);
    void append(const std::vector<int>& targets);
    /// Moves have to come in ascending order of `to`. False when the row has its place already;
    /// else `from` and `to` in the list as it is now, `to` without the row.
    bool prepareMove(int target, int& from, int& to);
    void move(int from, int to);
    /// All rows to their targets, what leaves behind them.
    void arrange();

private:
    struct Extra
    {
        int row;
        int target;
        bool isSettled; // where it belongs, as far as staying and settled rows go
    };
    using Extras = std::vector<Extra>;
    Extras::const_iterator extraAt(int row) const;

    int rows = 0;
    Extras extras;             // ascending by row
    std::vector<int> incoming; // ascending
};

/// Changes of a list that follow each other, as one: the list as pieces of what it was at first.
///
/// Pieces of rows that stayed are in their old order; a row that was changed, moved or inserted is
/// a piece of its own. They lie in chunks, so a change of one row costs O(sqrt(pieces)).
class PendingRows
{
public:
    bool isEmpty() const { return chunks.empty(); }
    void clear();
    /// `rowsBefore`: of the list before this change.
    void add(const RowChange& change, int rowsBefore);
    /// All changes since the first.
    RowChange total() const;
    /// From the list before the first change to the list as it is now.
    const RowMap& map() const;

private:
    struct Piece
    {
        int first; // row before the first change; -1 for an inserted row
        int count;
        ColumnSet columns; // changed ones
        bool isMoved;
    };
    struct Chunk
    {
        std::vector<Piece> pieces;
        int rows;
    };
    struct Place
    {
        size_t chunk;
        size_t piece;
    };
    static constexpr size_t chunkSize = 512;

    Place startAt(int row);
    Piece takeAt(int row);
    void putAt(int row, const Piece& piece);
    /// Parts a piece of its own off for the row.
    Place singleAt(int row);
    void insert(const Place& place, const Piece& piece);

    std::vector<Chunk> chunks;
    std::vector<int> removed; // of the first list, in any order
    int rowsAtFirst = 0;
    mutable RowMap rowMap;
    mutable bool isMapped = false;
};

} // namespace LiveTable
