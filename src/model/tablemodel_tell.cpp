// SPDX-License-Identifier: MIT
// How changes of the index become signals of the model.
#include "model/tablemodel_p.h"

#include <QScopeGuard>
#include <QThread>

#include <algorithm>

using LiveTable::columnBits;

TableModelPrivate::TableModelPrivate(TableModel* model, IndexList* shown)
    : q(model)
    , index(shown)
    , table(shown ? shown->table() : nullptr)
    , timer(new QTimer(model))
{
    timer->setSingleShot(true);
    QObject::connect(timer, &QTimer::timeout, q, [this] { flush(); });
    if (!index)
        return;
    const TableLockScope lock(table);
    rows = index->count();
    index->addObserver(this);
    listener.onNewColumn = [this] { startAnew(); };
    listener.attach(index);
    if (!table)
        return;
    const auto stayLast = [this](Index* added) {
        const TableLockScope changing(table);
        if (!dynamic_cast<ChangeListener*>(added)) // it may be under construction still
            listener.moveBack();
    };
    QObject::connect(table.data(), &Table::indexAdded, q, stayLast, Qt::DirectConnection);
}

TableModelPrivate::~TableModelPrivate()
{
    const TableLockScope lock(table);
    if (index)
        index->removeObserver(this);
    listener.detach();
    if (table)
        QObject::disconnect(table.data(), nullptr, q, nullptr);
}

// --- what the index tells ---

bool TableModelPrivate::isForeignThread() const
{
    return QThread::currentThread() != q->thread();
}

// Adds an updated row of the index, as far as its cells are shown and differ.
void TableModelPrivate::noteCells(RowChange& change, int row, int firstColumn, int lastColumn)
{
    const Record& record = index->at(row);
    const ChangeListener::Cells* known = listener.find(record);
    const ColumnSet changed = known ? known->changed : listener.columnsIn(firstColumn, lastColumn);
    if (!changed)
        return;
    change.changed.push_back({row, changed});
    if (highlights.time() > 0)
        highlights.add(record, changed, columns.size(), known);
}

void TableModelPrivate::indexChanged(const IndexList& changed, const IndexChange& change)
{
    RowChange now = std::exchange(spare, RowChange());
    now.clear();
    now.removed.assign(change.removed, change.removed + change.removedCount);
    now.moved.assign(change.moved, change.moved + change.movedCount);
    now.inserted.assign(change.inserted, change.inserted + change.insertedCount);
    for (int stayed = 0, moved = 0; stayed < change.changedCount || moved < change.movedCount;) {
        const bool isMove =
            moved < change.movedCount &&
            (stayed == change.changedCount || change.moved[moved].to < change.changed[stayed]);
        const int row = isMove ? change.moved[moved++].to : change.changed[stayed++];
        noteCells(now, row, change.firstColumn, change.lastColumn);
    }
    listener.takeRowsBefore(); // which do not lead to what may be told yet
    take(now, changed.count() - change.insertedCount + change.removedCount);
    spare = std::move(now);
}

void TableModelPrivate::indexReset(const IndexList& changed)
{
    if (const auto before = listener.takeRowsBefore()) {
        // A transaction so big that the index has sorted itself anew.
        RowChange change = LiveTable::difference(*before, changed);
        noteAll(change);
        take(change, static_cast<int>(before->size()));
        return;
    }
    startAnew();
}

void TableModelPrivate::startAnew()
{
    pending.clear();
    isResetPending = true;
    if (isTelling || isForeignThread()) {
        schedule();
        return;
    }
    reset();
    if (isPending())
        resume();
}

// Adds all rows that the present transaction updates.
void TableModelPrivate::noteAll(RowChange& change)
{
    for (const ChangeListener::Cells& cells : listener.all()) {
        unsigned char* const row = const_cast<unsigned char*>(cells.row);
        const int at = cells.changed ? index->indexOf(Record::borrowed(row)) : -1;
        if (at >= 0)
            noteCells(change, at, -1, -1);
    }
    std::sort(change.changed.begin(), change.changed.end(),
              [](const auto& a, const auto& b) { return a.row < b.row; });
}

void TableModelPrivate::indexDestroyed(const IndexList&)
{
    index = nullptr;
    listener.detach();
    pending.clear();
    isResetPending = true;
    if (!isTelling)
        reset();
}

void TableModelPrivate::take(const RowChange& change, int rowsBefore)
{
    if (isResetPending)
        return; // which will find the index as it is then
    if (isFrozen || intervalMs > 0 || isTelling || !pending.isEmpty() || isForeignThread()) {
        pending.add(change, rowsBefore);
        schedule();
        return;
    }
    tell(change);
    if (isPending())
        resume();
}

// --- when to tell ---

void TableModelPrivate::schedule()
{
    if (isForeignThread()) {
        if (!isPosted)
            QMetaObject::invokeMethod(
                q,
                [this] {
                    const TableLockScope lock(table);
                    isPosted = false;
                    resume();
                },
                Qt::QueuedConnection);
        isPosted = true;
        return;
    }
    if (!isTelling && !isFrozen && intervalMs > 0 && !timer->isActive())
        timer->start(intervalMs);
}

// Tells what waits, now or when it is time.
void TableModelPrivate::resume()
{
    if (intervalMs > 0 && !isResetPending)
        schedule();
    else
        flush();
}

void TableModelPrivate::flush()
{
    const TableLockScope lock(table);
    if (isTelling)
        return;
    timer->stop();
    // What the slots raise comes in the next round, or at the next interval.
    for (bool isFirst = true; isPending(); isFirst = false) {
        if (isResetPending) {
            reset();
            continue;
        }
        if (isFrozen)
            return;
        if (!isFirst && intervalMs > 0) {
            schedule();
            return;
        }
        const RowChange change = pending.total();
        pending.clear();
        tell(change);
    }
}

// --- frozen rows ---

void TableModelPrivate::freeze()
{
    const TableLockScope lock(table);
    isFrozen = true;
    holdContent();
}

void TableModelPrivate::thaw()
{
    const TableLockScope lock(table);
    isFrozen = false;
    listener.frozen.clear();
    flush();
}

// In a slot it is done when the last signal is out.
void TableModelPrivate::holdContent()
{
    if (!isFrozen || isTelling || listener.frozen.isTaken())
        return;
    std::vector<Record> shown;
    shown.reserve(static_cast<size_t>(rows));
    for (int row = 0; row < rows; ++row)
        shown.push_back(recordAt(row));
    listener.frozen.take(std::move(shown));
}

const Record& TableModelPrivate::contentAt(int row) const
{
    return listener.frozen.isTaken() ? listener.frozen.at(row) : recordAt(row);
}

// --- signals ---

int TableModelPrivate::position(int row) const
{
    if (isResetPending || row < 0 || row >= rows)
        return -1;
    if (isCrossing)
        row = crossing.target(row);
    return row < 0 || pending.isEmpty() ? row : pending.map().target(row);
}

const Record& TableModelPrivate::recordAt(int row) const
{
    const int at = index ? position(row) : -1;
    return at < 0 ? Record::null : index->at(at);
}

int TableModelPrivate::rowOf(const Record& record) const
{
    int at = index && !record.isNull() && !isResetPending ? index->indexOf(record) : -1;
    if (at >= 0 && !pending.isEmpty())
        at = pending.map().rowOf(at);
    if (at >= 0 && isCrossing)
        at = crossing.rowOf(at);
    return at;
}

void TableModelPrivate::reset()
{
    {
        isTelling = isResetPending = true;
        const auto told = qScopeGuard([this] { isTelling = false; });
        q->beginResetModel();
        pending.clear();
        listener.frozen.clear();
        highlights.clear();
        rows = index ? index->count() : 0;
        if (hasAllColumns && table)
            while (columns.size() < table->columnCount())
                columns.append(columns.size());
        isEditable.resize(columns.size());
        listener.setColumns(columns);
        isResetPending = false;
        q->endResetModel();
    }
    holdContent();
}

void TableModelPrivate::tell(const RowChange& change)
{
    {
        isTelling = true;
        const auto told = qScopeGuard([this] { isTelling = isCrossing = false; });
        const int steps = change.steps();
        if (steps > 0) {
            crossing.start(change, rows);
            isCrossing = true;
            if (steps > layoutThreshold)
                tellLayout(change);
            else
                tellSteps(change);
            isCrossing = false;
        }
        tellCells(change.changed);
    }
    holdContent();
}

void TableModelPrivate::tellSteps(const RowChange& change)
{
    for (size_t end = change.removed.size(); end > 0;) {
        size_t begin = end - 1;
        while (begin > 0 && change.removed[begin - 1] == change.removed[begin] - 1)
            --begin;
        const int first = change.removed[begin];
        const int last = change.removed[end - 1];
        end = begin;
        q->beginRemoveRows(QModelIndex(), first, last);
        crossing.takeOut(first, last);
        rows = crossing.rowCount();
        q->endRemoveRows();
    }
    for (const IndexChange::Move& move : change.moved) {
        int from = 0;
        int to = 0;
        if (!crossing.prepareMove(move.to, from, to))
            continue;
        q->beginMoveRows(QModelIndex(), from, from, QModelIndex(), to + (to > from));
        crossing.move(from, to);
        q->endMoveRows();
    }
    for (size_t begin = 0; begin < change.inserted.size();) {
        size_t end = begin + 1;
        while (end < change.inserted.size() && change.inserted[end] == change.inserted[end - 1] + 1)
            ++end;
        const int first = change.inserted[begin];
        const int last = change.inserted[end - 1];
        begin = end;
        q->beginInsertRows(QModelIndex(), first, last);
        crossing.putIn(first, last);
        rows = crossing.rowCount();
        q->endInsertRows();
    }
}

// Whatever comes in is put at the end, then all rows are arranged with those that leave at the end,
// and then these go.
void TableModelPrivate::tellLayout(const RowChange& change)
{
    if (!change.inserted.empty()) {
        const int n = static_cast<int>(change.inserted.size());
        q->beginInsertRows(QModelIndex(), rows, rows + n - 1);
        crossing.append(change.inserted);
        rows = crossing.rowCount();
        q->endInsertRows();
    }
    const int left = static_cast<int>(change.removed.size());
    Q_EMIT q->layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    const QModelIndexList before = q->persistentIndexList();
    QModelIndexList after;
    after.reserve(before.size());
    for (const QModelIndex& cell : before) {
        int row = crossing.target(cell.row());
        if (row < 0) {
            const auto place =
                std::lower_bound(change.removed.begin(), change.removed.end(), cell.row());
            row = rows - left + static_cast<int>(place - change.removed.begin());
        }
        after.append(q->index(row, cell.column()));
    }
    crossing.arrange();
    q->changePersistentIndexList(before, after);
    Q_EMIT q->layoutChanged({}, QAbstractItemModel::VerticalSortHint);
    if (left > 0) {
        q->beginRemoveRows(QModelIndex(), rows - left, rows - 1);
        crossing.takeOut(rows - left, rows - 1);
        rows = crossing.rowCount();
        q->endRemoveRows();
    }
}

void TableModelPrivate::tellCells(const std::vector<RowChange::Cells>& changed)
{
    std::vector<std::pair<size_t, size_t>> runs;
    ColumnSet any = 0;
    for (size_t begin = 0; begin < changed.size();) {
        size_t end = begin + 1;
        while (end < changed.size() && changed[end].columns == changed[begin].columns &&
               changed[end].row == changed[end - 1].row + 1)
            ++end;
        any |= changed[begin].columns;
        runs.emplace_back(begin, end - 1);
        begin = end;
    }
    if (runs.size() > 1 && runs.size() > static_cast<size_t>(layoutThreshold)) {
        tellCells(changed.front().row, changed.back().row, any);
        return;
    }
    for (const auto& [begin, end] : runs)
        tellCells(changed[begin].row, changed[end].row, changed[begin].columns);
}

void TableModelPrivate::tellCells(int firstRow, int lastRow, ColumnSet changed)
{
    const int count = columns.size();
    const auto isChanged = [&](int column) {
        return (changed >> std::min(column, columnBits - 1) & 1) != 0;
    };
    for (int column = 0; column < count; ++column) {
        if (!isChanged(column))
            continue;
        const int first = column;
        while (column + 1 < count && isChanged(column + 1))
            ++column;
        Q_EMIT q->dataChanged(q->index(firstRow, first), q->index(lastRow, column));
    }
}
