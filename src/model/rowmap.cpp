// SPDX-License-Identifier: MIT
#include "model/rowmap_p.h"

#include <QHash>

#include <algorithm>
#include <numeric>

namespace LiveTable {

namespace {

int runs(const std::vector<int>& rows)
{
    int n = 0;
    for (size_t i = 0; i < rows.size(); ++i)
        n += i == 0 || rows[i] != rows[i - 1] + 1;
    return n;
}

// Marks a longest ascending subsequence of the targets that are not -1.
std::vector<bool> ascending(const std::vector<int>& targets)
{
    std::vector<int> last; // last[n]: where the best sequence of n + 1 targets ends
    std::vector<int> before(targets.size(), -1);
    for (size_t i = 0; i < targets.size(); ++i) {
        if (targets[i] < 0)
            continue;
        const auto place =
            std::lower_bound(last.begin(), last.end(), targets[i],
                             [&](int at, int target) { return targets[size_t(at)] < target; });
        before[i] = place == last.begin() ? -1 : *(place - 1);
        if (place == last.end())
            last.push_back(int(i));
        else
            *place = int(i);
    }
    std::vector<bool> marks(targets.size());
    for (int i = last.empty() ? -1 : last.back(); i >= 0; i = before[size_t(i)])
        marks[size_t(i)] = true;
    return marks;
}

// The first i for which values(i) - i, which never falls, is above `base`.
template <typename Values>
int firstAbove(int base, size_t count, Values values)
{
    size_t low = 0;
    size_t high = count;
    while (low < high) {
        const size_t middle = low + (high - low) / 2;
        if (values(middle) - static_cast<int>(middle) > base)
            high = middle;
        else
            low = middle + 1;
    }
    return static_cast<int>(low);
}

} // namespace

// --- changes ---

void RowChange::clear()
{
    removed.clear();
    moved.clear();
    inserted.clear();
    changed.clear();
}

int RowChange::steps() const
{
    return runs(removed) + runs(inserted) + static_cast<int>(moved.size());
}

RowChange difference(const std::vector<Record>& before, const IndexList& now)
{
    RowChange change;
    if (before.empty()) {
        change.inserted.resize(static_cast<size_t>(now.count()));
        std::iota(change.inserted.begin(), change.inserted.end(), 0);
        return change;
    }
    QHash<const unsigned char*, int> places;
    places.reserve(now.count());
    for (const Record& record : now)
        places.insert(record.row(), places.size());
    std::vector<int> targets(before.size());
    std::vector<bool> isTaken(static_cast<size_t>(now.count()));
    for (size_t i = 0; i < before.size(); ++i) {
        targets[i] = places.value(before[i].row(), -1);
        if (targets[i] < 0)
            change.removed.push_back(static_cast<int>(i));
        else
            isTaken[static_cast<size_t>(targets[i])] = true;
    }
    const std::vector<bool> stays = ascending(targets);
    for (size_t i = 0; i < before.size(); ++i)
        if (targets[i] >= 0 && !stays[i])
            change.moved.push_back({static_cast<int>(i), targets[i]});
    std::sort(change.moved.begin(), change.moved.end(),
              [](const auto& a, const auto& b) { return a.to < b.to; });
    for (size_t i = 0; i < isTaken.size(); ++i)
        if (!isTaken[i])
            change.inserted.push_back(static_cast<int>(i));
    return change;
}

// --- a list on its way ---

void RowMap::start(const RowChange& change, int rowsBefore)
{
    rows = rowsBefore;
    extras.clear();
    incoming.clear();
    for (const int row : change.removed)
        extras.push_back({row, -1, false});
    for (const IndexChange::Move& move : change.moved) {
        extras.push_back({move.from, move.to, false});
        incoming.push_back(move.to);
    }
    const auto inserted =
        incoming.insert(incoming.end(), change.inserted.begin(), change.inserted.end());
    std::inplace_merge(incoming.begin(), inserted, incoming.end());
    std::sort(extras.begin(), extras.end(),
              [](const Extra& a, const Extra& b) { return a.row < b.row; });
}

RowMap::Extras::const_iterator RowMap::extraAt(int row) const
{
    return std::lower_bound(extras.begin(), extras.end(), row,
                            [](const Extra& extra, int at) { return extra.row < at; });
}

int RowMap::target(int row) const
{
    const auto extra = extraAt(row);
    if (extra != extras.end() && extra->row == row)
        return extra->target;
    const int base = row - static_cast<int>(extra - extras.begin());
    return base + firstAbove(base, incoming.size(), [this](size_t i) { return incoming[i]; });
}

int RowMap::rowOf(int target) const
{
    const auto place = std::lower_bound(incoming.begin(), incoming.end(), target);
    if (place != incoming.end() && *place == target) {
        const auto extra = std::find_if(extras.begin(), extras.end(),
                                        [target](const Extra& e) { return e.target == target; });
        return extra == extras.end() ? -1 : extra->row;
    }
    const int base = target - static_cast<int>(place - incoming.begin());
    const int row =
        base + firstAbove(base, extras.size(), [this](size_t i) { return extras[i].row; });
    return row < rows ? row : -1;
}

void RowMap::takeOut(int first, int last)
{
    const auto from = extras.begin() + (extraAt(first) - extras.cbegin());
    const int n = last - first + 1;
    for (auto extra = extras.erase(from, from + n); extra != extras.end(); ++extra)
        extra->row -= n;
    rows -= n;
}

void RowMap::putIn(int first, int last)
{
    const int n = last - first + 1;
    auto extra = extras.begin() + (extraAt(first) - extras.cbegin());
    for (auto behind = extra; behind != extras.end(); ++behind)
        behind->row += n;
    extra = extras.insert(extra, static_cast<size_t>(n), Extra{0, 0, true});
    for (int row = first; row <= last; ++row, ++extra)
        extra->row = extra->target = row;
    rows += n;
}

void RowMap::append(const std::vector<int>& targets)
{
    for (const int target : targets)
        extras.push_back({rows++, target, true});
}

bool RowMap::prepareMove(int target, int& from, int& to)
{
    const auto incomingBefore = std::lower_bound(incoming.begin(), incoming.end(), target);
    const int base = target - static_cast<int>(incomingBefore - incoming.begin());
    // It goes behind `base` staying rows, and there behind the settled ones, which are all smaller.
    int before = 0;        // extras before its place
    int inGap = 0;         // extras, so far, that stand at the same place between staying rows
    bool isPlaced = false; // whether it stands in that gap behind the last settled one
    size_t mover = 0;
    for (size_t i = 0; i < extras.size(); ++i) {
        Extra& extra = extras[i];
        const int staying = extra.row - static_cast<int>(i);
        if (extra.target == target && !extra.isSettled) {
            mover = i;
            isPlaced = staying == base;
        } else if (staying < base) {
            ++before;
        } else if (staying == base) {
            ++inGap;
            if (extra.isSettled) {
                before += inGap;
                inGap = 0;
                isPlaced = false;
            }
        }
    }
    from = extras[mover].row;
    to = base + before;
    extras[mover].isSettled = true;
    return !isPlaced;
}

void RowMap::move(int from, int to)
{
    const auto mover = extras.begin() + (extraAt(from) - extras.cbegin());
    const int target = mover->target;
    for (auto extra = extras.erase(mover); extra != extras.end(); ++extra)
        --extra->row;
    auto place = extras.begin() + (extraAt(to) - extras.cbegin());
    for (auto extra = place; extra != extras.end(); ++extra)
        ++extra->row;
    extras.insert(place, {to, target, true});
}

void RowMap::arrange()
{
    const auto leaving = std::count_if(extras.begin(), extras.end(),
                                       [](const Extra& extra) { return extra.target < 0; });
    extras.clear();
    incoming.clear();
    for (int row = rows - static_cast<int>(leaving); row < rows; ++row)
        extras.push_back({row, -1, false});
}

// --- changes that wait ---

void PendingRows::clear()
{
    chunks.clear();
    removed.clear();
    isMapped = false;
}

void PendingRows::insert(const Place& place, const Piece& piece)
{
    Chunk& chunk = chunks[place.chunk];
    chunk.pieces.insert(chunk.pieces.begin() + static_cast<long>(place.piece), piece);
    chunk.rows += piece.count;
    if (chunk.pieces.size() <= chunkSize)
        return;
    Chunk half{{chunk.pieces.begin() + chunkSize / 2, chunk.pieces.end()}, 0};
    chunk.pieces.resize(chunkSize / 2);
    for (const Piece& moved : half.pieces)
        half.rows += moved.count;
    chunk.rows -= half.rows;
    chunks.insert(chunks.begin() + static_cast<long>(place.chunk) + 1, std::move(half));
}

// The place of the piece that begins with this row; behind the last piece for the end of the list.
PendingRows::Place PendingRows::startAt(int row)
{
    Place place{0, 0};
    while (place.chunk + 1 < chunks.size() && row >= chunks[place.chunk].rows)
        row -= chunks[place.chunk++].rows;
    std::vector<Piece>& pieces = chunks[place.chunk].pieces;
    while (place.piece < pieces.size() && row >= pieces[place.piece].count)
        row -= pieces[place.piece++].count;
    if (row == 0)
        return place;
    // Only pieces of rows that stayed are long: nothing but the numbers has to be parted.
    const Piece piece = pieces[place.piece];
    pieces[place.piece].count = row;
    chunks[place.chunk].rows -= piece.count - row;
    insert({place.chunk, place.piece + 1},
           {piece.first + row, piece.count - row, piece.columns, piece.isMoved});
    ++place.piece;
    if (place.piece >= chunks[place.chunk].pieces.size())
        place = {place.chunk + 1, place.piece - chunks[place.chunk].pieces.size()};
    return place;
}

PendingRows::Place PendingRows::singleAt(int row)
{
    startAt(row + 1);
    return startAt(row);
}

PendingRows::Piece PendingRows::takeAt(int row)
{
    const Place place = singleAt(row);
    Chunk& chunk = chunks[place.chunk];
    const Piece piece = chunk.pieces[place.piece];
    chunk.pieces.erase(chunk.pieces.begin() + static_cast<long>(place.piece));
    chunk.rows -= 1;
    if (chunk.pieces.empty() && chunks.size() > 1)
        chunks.erase(chunks.begin() + static_cast<long>(place.chunk));
    return piece;
}

void PendingRows::putAt(int row, const Piece& piece)
{
    insert(startAt(row), piece);
}

void PendingRows::add(const RowChange& change, int rowsBefore)
{
    isMapped = false;
    if (isEmpty()) {
        rowsAtFirst = rowsBefore;
        chunks.push_back({{{0, rowsBefore, 0, false}}, rowsBefore});
        if (rowsBefore == 0)
            chunks.back().pieces.clear();
    }
    // Out from the last to the first, in from the first to the last: no position has to be shifted.
    constexpr int gone = -1;
    std::vector<std::pair<int, int>> out; // position, number of the move or `gone`
    for (const int row : change.removed)
        out.emplace_back(row, gone);
    std::vector<std::pair<int, Piece>> in;
    for (const IndexChange::Move& move : change.moved) {
        out.emplace_back(move.from, static_cast<int>(in.size()));
        in.emplace_back(move.to, Piece());
    }
    std::sort(out.begin(), out.end());
    for (auto it = out.rbegin(); it != out.rend(); ++it) {
        const Piece piece = takeAt(it->first);
        if (it->second != gone)
            in[static_cast<size_t>(it->second)].second = {piece.first, 1, piece.columns, true};
        else if (piece.first >= 0)
            removed.push_back(piece.first);
    }
    for (const int row : change.inserted)
        in.push_back({row, {-1, 1, 0, false}});
    std::sort(in.begin(), in.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [row, piece] : in)
        putAt(row, piece);
    for (const RowChange::Cells& cells : change.changed) {
        const Place place = singleAt(cells.row);
        chunks[place.chunk].pieces[place.piece].columns |= cells.columns;
    }
}

RowChange PendingRows::total() const
{
    RowChange change;
    change.removed = removed;
    std::sort(change.removed.begin(), change.removed.end());
    int row = 0;
    for (const Chunk& chunk : chunks)
        for (const Piece& piece : chunk.pieces) {
            if (piece.first < 0)
                change.inserted.push_back(row);
            else if (piece.isMoved)
                change.moved.push_back({piece.first, row});
            if (piece.columns && piece.first >= 0)
                change.changed.push_back({row, piece.columns});
            row += piece.count;
        }
    return change;
}

const RowMap& PendingRows::map() const
{
    if (!isMapped)
        rowMap.start(total(), rowsAtFirst);
    isMapped = true;
    return rowMap;
}

} // namespace LiveTable
