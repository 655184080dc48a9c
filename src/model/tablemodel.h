// SPDX-License-Identifier: MIT
#pragma once

#include "index/indexlist.h"
#include "model/export.h"

#include <QAbstractTableModel>
#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QVector>

#include <memory>

class TableModelPrivate;

/// A live index as a Qt item model: what a table view, a proxy or a QML list shows.
///
/// It sits on any index with a list: IndexList, IndexSort, SortedView, the limits, a master index.
/// The rows are the index's records in its order, the columns chosen ones of the table. Nothing is
/// copied: a cell is read from its row when a view asks for it.
///
/// **Signals.** Every change of the index becomes exact signals: rowsInserted and rowsRemoved in
/// ranges, rowsMoved for single rows, dataChanged for neighbouring rows together and only for the
/// columns whose cells differ (columns from the 64th on count as one). They come in this order:
/// removals from the last to the first, moves, insertions, then changed cells; persistent indexes
/// and selections follow their rows. When one change takes more than layoutThreshold() structural
/// signals it is told by at most one rowsInserted at the end, one layoutChanged, and one
/// rowsRemoved at the end; and more dataChanged than that become one, from the first row to the
/// last. modelReset means that the content is new as a whole (the index was cleared, built or
/// sorted again by its owner or after a failure, the table got a column, table or index died),
/// never an update of rows.
///
/// While signals are on their way rowCount(), data() and record() answer for exactly the rows that
/// were told so far, with the cells' newest values: a transaction writes all its rows before the
/// first signal. (Sort by the index, then, and not by a QSortFilterProxyModel on top, which may
/// misplace a row while its neighbour's change is still to be told.) A row that is about to be
/// removed has left the index already: its cells are empty and its record is null. A plain
/// IndexList takes an updated record out and appends it; that is what the model then tells.
///
/// **Batches.** With a flush interval or between freeze() and thaw() the rows stay as they were
/// told last, whatever the index does meanwhile, and then one batch tells the difference: a row
/// that came and went is not mentioned, a cell that changed often is mentioned once. A frozen model
/// shows its cells as they were at freeze(), also those of rows that have left the index; only a
/// row that is written in place, without a transaction, or edited through the model shows what it
/// is now. Under a flush interval cells that are read in between show their newest values, rows
/// whose record has left the index none. A modelReset is not held back.
///
/// **Ownership.** The model owns neither index nor table. Model, index and table may die in any
/// order; without an index or a table it has no rows. Don't destroy any of them in a slot of the
/// model's signals; deleteLater() is right there.
///
/// **Threads.** The model belongs to its thread, and its signals come there only. Changes made to
/// the table on another thread are queued: they are noted under the writer's Table::lock, which a
/// writer on another thread must hold as for any reader (Table::beginUpdate does), and told as one
/// batch from the event loop of the model's thread. Every reading call of the model takes
/// Table::lock for a moment, and a batch holds it while its signals are on their way. So a writer
/// must not wait for the model's thread while it holds the lock. Index and table must die, and the
/// model be made, on the model's thread.
///
/// **Cost.** A change costs the same at any number of rows, besides what the index itself takes; a
/// batch costs O(changes), and each change noted for it O(sqrt(changes)). Only a transaction that
/// updates or inserts at least half as many rows as the index has makes the model look at all of
/// them. freeze() costs O(rows), and a frozen model copies each row before its first change. The
/// model adds a listener of its own, of the class name "TableModel", to the table's
/// indexes and keeps it behind all others; without it (Table::setIndexes may throw it out)
/// dataChanged tells whole transactions' column ranges, and mass changes are a modelReset.
///
/// **Errors.** An unknown column throws the QString "Column '%1' not found to create model.".
/// Nothing else throws. What goes wrong in setData() is told by its result, lastError() and
/// editFailed().
///
///     SortedView best(&quotes, QStringList("-price"));
///     TableModel model(&best, {"symbol", "price", "time"});
///     model.setFlushInterval(40);            // 25 batches a second at most
///     tableView->setModel(&model);
class LIVETABLE_MODEL_EXPORT TableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    /// What data() answers besides Qt's own roles.
    ///
    /// DisplayRole is the cell's text by the rules of the system locale; EditRole the exact text
    /// with every digit, in the C locale, as setData() reads it back ("12.50", "2017.03.01
    /// 10:00:00.250"); TextAlignmentRole right for numbers, left for the rest. NULL cells give a
    /// null text.
    enum Role
    {
        SortRole = Qt::UserRole + 1, ///< for QSortFilterProxyModel: a number (for decimals the
                                     ///< nearest double), text or QDateTime; invalid for NULL
        ValueRole,                   ///< the value itself: Field::toVariant()
        RecordRole,                  ///< the row's Record; null where data() says so
        HighlightRole                ///< a Highlight, or invalid; see setHighlightTime()
    };

    /// How a cell last changed.
    struct Highlight
    {
        qint64 changedMs = 0; ///< milliseconds since 1970 in UTC, by the system's clock
        int direction = 0;    ///< 1: the value grew, -1: it fell (NULL is below all values), 0: the
                              ///< row was written in place, so the value before is not known
    };

    /// Shows all columns of the index's table, later ones too. A null index gives an empty model.
    explicit TableModel(IndexList* index, QObject* parent = nullptr);
    /// Shows these columns in this order. Throws as told above.
    TableModel(IndexList* index, const QStringList& columns, QObject* parent = nullptr);
    ~TableModel() override;

    /// The index shown; null once it has died.
    IndexList* source() const;

    // Columns. Model columns count from 0 in the order chosen; table columns are those of Table.

    /// Chooses the columns, by name or number, with a modelReset. One may be chosen more than once.
    /// All become read-only. An empty list shows all columns of the table. Not to be called from a
    /// slot of the model's own signals. Throws as told above, with nothing changed.
    void setColumns(const QStringList& names);
    void setColumns(const QVector<int>& tableColumns);
    /// The table columns shown.
    QVector<int> columns() const;
    /// The first model column that shows the table column; -1 if none does.
    int modelColumn(int tableColumn) const;
    /// Whether cells of a model column can be edited. At first none can. Out of range: nothing.
    void setEditable(int column, bool isEditable = true);
    bool isEditable(int column) const;

    // Rows.

    /// The record shown in a row; null out of range and where the record has left the index.
    Record record(int row) const;
    /// The row that shows this very record; -1 when none does (yet). Costs as IndexList::indexOf.
    int rowOf(const Record& record) const;

    // Batches.

    /// Milliseconds from the first change that was not told to the batch that tells it; 0, the
    /// default, tells each change at once. Negative counts as 0. Setting it tells what is waiting.
    void setFlushInterval(int milliseconds);
    int flushInterval() const;
    /// Holds all signals but modelReset back, and the cells as they are, until thaw(). Calls do not
    /// nest. From a slot of the model's own signals: from the last of these signals on.
    void freeze();
    /// Tells what has changed meanwhile, in one batch, and goes on as before freeze().
    void thaw();
    bool isFrozen() const;
    /// Whether changes of the index have not been told yet.
    bool hasPendingChanges() const;
    /// Tells them now. Does nothing while frozen, or from a slot of the model's own row signals.
    void flush();
    /// How many structural signals a change may take before it is told by layoutChanged; 64 at
    /// first. 0 tells every structural change so.
    void setLayoutThreshold(int signalCount);
    int layoutThreshold() const;

    // Highlight.

    /// How long, in milliseconds, HighlightRole remembers a changed cell; 0, the default, remembers
    /// nothing. The model does not tell when that time is over: a view that fades its colours
    /// repaints by a clock of its own. Removed rows may be kept alive for that time and until the
    /// next change.
    void setHighlightTime(int milliseconds);
    int highlightTime() const;

    // As a QAbstractTableModel.

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    /// Horizontal: the column's title (its name, if it has none), its description as tooltip.
    /// Vertical: the row's number from 1.
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    /// Writes an editable cell through a transaction of its own; `role` must be EditRole. Texts
    /// must be exact, as EditRole gives them; an empty text, or an invalid QVariant, is NULL.
    /// Numbers, decimals, xdecimals, QDateTime and datetime are taken as they are. True when the
    /// value was accepted (also when it is the present one); dataChanged follows with the index's
    /// notification. False, with lastError() set and editFailed() emitted and the cell as it was,
    /// for: a cell that cannot be edited, text that the column cannot read whole, a number beyond
    /// the column's range, a text longer than the column, NULL where the column must hold a value.
    /// What an index of the table throws is told in the same way, but the value may be written.
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    /// Qt's names, and "sort", "value", "record", "highlight".
    QHash<int, QByteArray> roleNames() const override;

    /// Why the last setData() failed, for people to read; null after one that did not.
    QString lastError() const;

Q_SIGNALS:
    /// setData() was refused.
    void editFailed(const QModelIndex& index, const QString& message);

private:
    friend class TableModelPrivate;
    const std::unique_ptr<TableModelPrivate> d;
};

Q_DECLARE_METATYPE(TableModel::Highlight)
