// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "model/rowmap_p.h"
#include "model/tablemodel.h"
#include "table/table.h"

#include <QHash>
#include <QPointer>
#include <QTimer>

#include <deque>
#include <functional>
#include <limits>
#include <optional>
#include <unordered_map>
#include <utility>

/// Takes the table's lock for a scope; nothing when the table is gone.
class TableLockScope
{
public:
    explicit TableLockScope(const QPointer<Table>& locked)
        : table(locked)
    {
        if (table)
            table->lock();
    }
    ~TableLockScope()
    {
        if (table)
            table->unlock();
    }
    Q_DISABLE_COPY(TableLockScope)

private:
    const QPointer<Table> table; // which a slot may have destroyed meanwhile
};

/// What a frozen model shows: the records of its rows, and of those that have changed since a copy
/// of what they were.
class FrozenRows
{
public:
    bool isTaken() const { return takenMs != notTaken; }
    /// When it was taken, in milliseconds since 1970; after all times when it was not.
    qint64 time() const { return takenMs; }
    void take(std::vector<Record> shown);
    void clear();
    /// Copies a row that is about to change. Without memory it shows its new values.
    void keep(const Record& row);
    /// Shows the newest values of a row again.
    void release(const Record& row) { copies.erase(row.row()); }
    /// What a row shows; a null record out of range.
    const Record& at(int row) const;

private:
    static constexpr qint64 notTaken = std::numeric_limits<qint64>::max();

    qint64 takenMs = notTaken;
    std::vector<Record> rows;
    std::unordered_map<const unsigned char*, Record> copies;
};

/// Hears of each transaction while the rows still hold their old values, which an observer of the
/// index does not, and notes which cells will change and how.
///
/// It stands last among the table's indexes, so that no other can stop the transaction after it,
/// and all that it tells of has been used when its own process() is called.
class ChangeListener : public Index
{
public:
    using ColumnSet = LiveTable::ColumnSet;
    /// The changes of one row, in model columns.
    struct Cells
    {
        const unsigned char* row;
        ColumnSet changed;
        ColumnSet up;
        ColumnSet down;
    };

    void attach(IndexList* index);
    void detach();
    /// Moves it behind all other indexes.
    void moveBack();
    /// Tells which model columns show each table column.
    void setColumns(const QVector<int>& tableColumns);
    /// The model columns that show table columns of this range; -1 for the first or the last one.
    ColumnSet columnsIn(int firstColumn, int lastColumn) const;
    /// What the present transaction does to a row; null when that is not known.
    const Cells* find(const Record& record) const;
    const std::vector<Cells>& all() const { return cells; }
    /// The index before the present transaction, if that may lead to an index sorted anew. Taken.
    std::optional<std::vector<Record>> takeRowsBefore()
    {
        return std::exchange(rowsBefore, std::nullopt);
    }
    void forget();
    /// Called when the table has got a column.
    std::function<void()> onNewColumn;
    /// Where rows are kept before they change, when it is taken.
    FrozenRows frozen;

    void clear() override { forget(); }
    void build() override;
    void add(const Record&) override {}
    void remove(const Record&, int) override {}
    void update(const Record&, int, int, int) override {}
    void preprocess(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                    int lastColumn, const QList<Record>& inserted,
                    const QList<Record>& changes) override;
    void process(const QList<Record>&, const QList<Record>&, int, int,
                 const QList<Record>&) override
    {
        forget();
    }
    bool filter(const Record&) const override { return false; }
    bool contains(const Record&) const override { return false; }
    QString getClassName() const override;

private:
    void note(const Record& before, const Record& after, int firstColumn, int lastColumn);
    void uniteTwice();

    IndexList* source = nullptr;
    QPointer<Table> table;
    std::vector<ColumnSet> shownBy; // for each table column
    std::vector<Cells> cells;       // by row address
    std::optional<std::vector<Record>> rowsBefore;
};

/// When and how cells changed, for as long as that is asked for.
class Highlights
{
public:
    using Highlight = TableModel::Highlight;

    void setTime(int milliseconds);
    int time() const { return timeMs; }
    void clear();
    /// `known`: which way the values went; null if that is not known.
    void add(const Record& record, LiveTable::ColumnSet columns, int columnCount,
             const ChangeListener::Cells* known);
    /// An invalid variant when the cell did not change lately, or not before `until`.
    QVariant at(const Record& record, int column, qint64 until) const;

private:
    int timeMs = 0;
    QHash<Record, QVector<Highlight>> rows;
    std::deque<std::pair<qint64, Record>> order; // when each entry was last written, and before
};

/// Invariants:
///  1. `rows` and the state that data() shows are those that the signals have told so far. That
///     list leads to the present index over `crossing`, while its signals are on their way, and
///     then over `pending`, while changes wait.
///  2. All members are used under the table's lock, `rows` on the model's thread only.
class TableModelPrivate : public IndexObserver
{
public:
    using RowChange = LiveTable::RowChange;
    using ColumnSet = LiveTable::ColumnSet;

    TableModelPrivate(TableModel* model, IndexList* shown);
    ~TableModelPrivate() override;

    void indexChanged(const IndexList& changed, const IndexChange& change) override;
    void indexReset(const IndexList& changed) override;
    void indexDestroyed(const IndexList& changed) override;

    /// An empty choice is all columns.
    void setColumns(const QVector<int>& wanted);
    void reset();
    /// The present position in the index of a row as it was told; -1 if it has none.
    int position(int row) const;
    const Record& recordAt(int row) const;
    /// The record whose cells a row shows: another one than its own while it is frozen.
    const Record& contentAt(int row) const;
    void freeze();
    void thaw();
    /// The row that shows a record; -1 if none does.
    int rowOf(const Record& record) const;
    bool isPending() const { return isResetPending || !pending.isEmpty(); }
    void flush();
    /// Null, or why the cell cannot have this value.
    QString write(const Record& record, int column, const QVariant& value);

    TableModel* const q;
    IndexList* index;
    QPointer<Table> table;
    QVector<int> columns; // the table column of each model column
    bool hasAllColumns = false;
    QVector<bool> isEditable;
    int rows = 0;
    int layoutThreshold = 64;
    int intervalMs = 0;
    bool isFrozen = false;
    QString lastError;
    LiveTable::PendingRows pending;
    Highlights highlights;
    ChangeListener listener;

private:
    bool isForeignThread() const;
    void noteCells(RowChange& change, int row, int firstColumn, int lastColumn);
    void startAnew();
    void noteAll(RowChange& change);
    void take(const RowChange& change, int rowsBefore);
    void schedule();
    void resume();
    void holdContent();
    void tell(const RowChange& change);
    void tellSteps(const RowChange& change);
    void tellLayout(const RowChange& change);
    void tellCells(const std::vector<RowChange::Cells>& changed);
    void tellCells(int firstRow, int lastRow, ColumnSet changed);

    LiveTable::RowMap crossing;
    RowChange spare; // kept for its memory
    bool isCrossing = false;
    bool isTelling = false;      // signals are on their way
    bool isResetPending = false; // rows and index have nothing to do with each other
    bool isPosted = false;       // a call of resume() waits in the event loop
    QTimer* const timer;
};
