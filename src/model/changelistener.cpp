// SPDX-License-Identifier: MIT
#include "model/tablemodel_p.h"

#include <QDateTime>

#include <algorithm>
#include <cstring>

using LiveTable::columnBits;

// --- frozen rows ---

void FrozenRows::take(std::vector<Record> shown)
{
    rows = std::move(shown);
    takenMs = QDateTime::currentMSecsSinceEpoch();
}

void FrozenRows::clear()
{
    takenMs = notTaken;
    rows = {};
    copies.clear();
}

void FrozenRows::keep(const Record& row)
{
    try {
        const auto [copy, isNew] = copies.try_emplace(row.row());
        if (isNew)
            copy->second = row.clone();
    } catch (const std::bad_alloc&) {
        copies.erase(row.row());
    }
}

const Record& FrozenRows::at(int row) const
{
    if (row < 0 || static_cast<size_t>(row) >= rows.size())
        return Record::null;
    const Record& record = rows[static_cast<size_t>(row)];
    const auto copy = copies.find(record.row());
    return copy == copies.end() ? record : copy->second;
}

// --- the listener ---

void ChangeListener::attach(IndexList* index)
{
    source = index;
    table = index->table();
    if (table)
        table->addIndex(this);
}

void ChangeListener::detach()
{
    forget();
    // A bulk load may have put it back beside the place that it had taken again itself.
    while (table && table->indexes().contains(this))
        table->removeIndex(this);
    source = nullptr;
    table = nullptr;
}

void ChangeListener::moveBack()
{
    IndexList* const index = source;
    if (!index)
        return;
    detach();
    attach(index);
}

void ChangeListener::forget()
{
    cells.clear();
    rowsBefore.reset();
}

// Also called when the table builds its indexes anew for other reasons; they tell that themselves.
void ChangeListener::build()
{
    if (table && shownBy.size() != static_cast<size_t>(table->columnCount()))
        onNewColumn();
}

QString ChangeListener::getClassName() const
{
    return QStringLiteral("TableModel");
}

const ChangeListener::Cells* ChangeListener::find(const Record& record) const
{
    const auto it = std::lower_bound(
        cells.begin(), cells.end(), record.row(),
        [](const Cells& a, const unsigned char* row) { return std::less<>()(a.row, row); });
    return it != cells.end() && it->row == record.row() ? &*it : nullptr;
}

void ChangeListener::setColumns(const QVector<int>& tableColumns)
{
    shownBy.assign(table ? static_cast<size_t>(table->columnCount()) : 0, 0);
    for (int i = 0; i < tableColumns.size(); ++i) {
        const size_t column = static_cast<size_t>(tableColumns.at(i));
        if (column < shownBy.size())
            shownBy[column] |= ColumnSet(1) << std::min(i, columnBits - 1);
    }
}

ChangeListener::ColumnSet ChangeListener::columnsIn(int firstColumn, int lastColumn) const
{
    const int count = static_cast<int>(shownBy.size());
    const int last = lastColumn < 0 ? count - 1 : std::min(lastColumn, count - 1);
    ColumnSet set = 0;
    for (int column = std::max(firstColumn, 0); column <= last; ++column)
        set |= shownBy[static_cast<size_t>(column)];
    return set;
}

void ChangeListener::preprocess(const QList<Record>&, const QList<Record>& updated, int firstColumn,
                                int lastColumn, const QList<Record>& inserted,
                                const QList<Record>& changes)
{
    forget();
    if (!source)
        return;
    const int n = std::min(updated.size(), changes.size());
    for (int i = 0; i < n; ++i) {
        note(updated.at(i), changes.at(i), firstColumn, lastColumn);
        if (frozen.isTaken())
            frozen.keep(updated.at(i));
    }
    if (n > 1)
        uniteTwice();
    // With fewer rows coming in than this an index does not sort itself anew.
    if (updated.size() + inserted.size() > source->count() / 2)
        rowsBefore.emplace(source->begin(), source->end());
}

void ChangeListener::note(const Record& before, const Record& after, int firstColumn,
                          int lastColumn)
{
    const int count = static_cast<int>(shownBy.size());
    const int last = lastColumn < 0 ? count - 1 : std::min(lastColumn, count - 1);
    Cells row{before.row(), 0, 0, 0};
    bool differs = false;
    for (int column = std::max(firstColumn, 0); column <= last; ++column) {
        const Field old = before.data(column);
        const Field fresh = after.data(column);
        // Two spellings of one decimal are shown differently, so it is the bytes that count.
        const bool isSame = old.isNull() || fresh.isNull()
                                ? old.isNull() == fresh.isNull()
                                : !std::memcmp(old.data(), fresh.data(),
                                               static_cast<size_t>(old.columnDef()->size));
        if (isSame)
            continue;
        differs = true;
        const ColumnSet shown = shownBy[static_cast<size_t>(column)];
        row.changed |= shown;
        if (const int sign = shown ? fresh.compare(old) : 0)
            (sign > 0 ? row.up : row.down) |= shown & ~(ColumnSet(1) << (columnBits - 1));
    }
    // A row without any difference was written in place before: nobody knows where.
    if (differs)
        cells.push_back(row);
}

// Into the order in which they are searched; a row that was named twice gets all its changes.
void ChangeListener::uniteTwice()
{
    std::sort(cells.begin(), cells.end(),
              [](const Cells& a, const Cells& b) { return std::less<>()(a.row, b.row); });
    size_t kept = 0;
    for (size_t i = 1; i < cells.size(); ++i) {
        if (cells[i].row != cells[kept].row) {
            cells[++kept] = cells[i];
            continue;
        }
        cells[kept].changed |= cells[i].changed;
        cells[kept].up |= cells[i].up;
        cells[kept].down |= cells[i].down;
    }
    if (!cells.empty())
        cells.resize(kept + 1);
}

// --- highlights ---

void Highlights::setTime(int milliseconds)
{
    timeMs = std::max(milliseconds, 0);
    if (!timeMs)
        clear();
}

void Highlights::clear()
{
    rows.clear();
    order.clear();
}

void Highlights::add(const Record& record, LiveTable::ColumnSet columns, int columnCount,
                     const ChangeListener::Cells* known)
{
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    for (; !order.empty() && order.front().first + timeMs < now; order.pop_front()) {
        const auto row = rows.find(order.front().second);
        const auto isOver = [&](const Highlight& cell) { return cell.changedMs + timeMs < now; };
        if (row != rows.end() && std::all_of(row->cbegin(), row->cend(), isOver))
            rows.erase(row);
    }
    QVector<Highlight>& cells = rows[record];
    cells.resize(columnCount);
    for (int i = 0; i < columnCount; ++i) {
        const LiveTable::ColumnSet bit = LiveTable::ColumnSet(1) << std::min(i, columnBits - 1);
        if (columns & bit)
            cells[i] = {now, known ? ((known->up & bit) != 0) - ((known->down & bit) != 0) : 0};
    }
    order.emplace_back(now, record);
}

QVariant Highlights::at(const Record& record, int column, qint64 until) const
{
    const Highlight cell = rows.value(record).value(column);
    if (!cell.changedMs || cell.changedMs >= until ||
        cell.changedMs + timeMs < QDateTime::currentMSecsSinceEpoch())
        return QVariant();
    return QVariant::fromValue(cell);
}
