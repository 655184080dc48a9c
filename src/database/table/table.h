// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"
#include "table/field.h"
#include "table/fieldtype.h"
#include "table/record.h"
#include "table/tablecolumndef.h"
#include "value/decimal.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QString>

#include <memory>

class Index;
class MasterIndex;
class RecordsTrans;
class TablePrivate;

/// A named in-memory table: typed columns, rows, and the indexes that follow every change of them.
///
/// **Ownership.** The table owns its column definitions and its master index. Other indexes belong
/// to whoever made them and may die before or after the table. Rows belong to the Records and lists
/// that hold them and may outlive the table (see Record).
///
/// **Changes.** Rows change by transactions (RecordsTrans, process()), which tell every index
/// before and after; single-row calls (appendRow, remove, updated) tell them after. What an index
/// raises from inside a notification, by either way, waits and is applied as one transaction after
/// the present one, never nested. Columns cannot be added from inside a notification.
///
/// **Errors.** Column calls throw QString. What an index throws in preprocess() stops the
/// transaction with no row changed. What it throws afterwards is thrown on, once every other index
/// has been told: the rows and all other indexes are then right, and the library's own sorted
/// indexes put themselves right at their next notification. Lookups never throw.
///
/// **Threads.** One recursive mutex. A writer works between beginUpdate() and endUpdate(), or
/// between lock() and unlock(); readers on other threads hold lock(). The update depth is shared by
/// all threads: while a bracket is open, beginUpdate() on any thread only raises the depth. The
/// accessors take no lock.
///
/// **Row blocks** (rowSize() bytes, 8-byte aligned): 16 bytes of header (reference count, zero,
/// owner), then the data area with each column at its offset, rounded up to 8 bytes each, then the
/// null bitmap, one bit a column, set when the cell holds a value.
///
///     Table quotes("quotes");
///     quotes.addColumn("symbol", FieldType::VarChar, 12, false);
///     quotes.addColumn("price", FieldType::Decimal, 2);
///     quotes.setMasterIndex(new MasterIndex_Column_Pure(&quotes, QString("symbol")));
///     SortedView byPrice(&quotes, QStringList("-price"));   // live from here on
class LIVETABLE_EXPORT Table : public QObject
{
    Q_OBJECT

public:
    /// An empty table without columns whose master index keeps arrival order.
    explicit Table(const QString& name, const QString& title = QString(),
                   QObject* parent = nullptr);
    /// Clears every index in the list and frees what the table owns.
    ~Table() override;

    /// The name, for good: that of the table's file, and by which the host knows the table.
    QString name() const;
    /// The title, for display.
    QString title() const;
    void setTitle(const QString& title);

    // Columns. Numbers count from 0; columns are never removed or moved.

    /// Appends a column with the name, type, length, nullable, title, flag and description of
    /// `def`. Every row of the table moves in memory: cells, static strings and row pointers taken
    /// before are invalid, Records held elsewhere become detached (a warning tells their count),
    /// and every index is rebuilt. Existing rows read NULL in the new column, a non-nullable one
    /// too. Names are unique without regard to case. To declare a column again is accepted in
    /// silence when the type and length are the same, a VarChar is not longer, or an Integer stands
    /// for an Integer64. Throws QString, with nothing changed: "Column name can't be empty.",
    /// "Column '%1' already exists for table '%2'.", the messages of FieldType::typeLength, or,
    /// from inside a notification, "Columns can't be added while a transaction is applied."
    void addColumn(const TableColumnDef& def);
    void addColumn(const QString& name, const FieldDef& def, bool nullable = true,
                   const QString& title = QString(), bool flag = true,
                   const QString& description = QString());
    /// `length`: the most characters of a VarChar, longer texts are cut; the digits after the point
    /// that an integer or double is brought to in a Decimal or XDecimal, while a decimal or a text
    /// keeps its own; else unused.
    void addColumn(const QString& name, FieldType::Type type, int length = 0, bool nullable = true,
                   const QString& title = QString(), bool flag = true,
                   const QString& description = QString());
    /// How many columns there are.
    int columnCount() const;
    /// The number of the column of exactly this name, -1 if there is none. About 50 ns: keep the
    /// number where it matters.
    int columnIndex(const QString& name) const;
    /// The column's name; a null string out of range.
    QString columnName(int column) const;
    /// The column's type; FieldType::Undefined out of range.
    FieldType::Type columnType(int column) const;
    /// FieldType::typeName() of the column's type; a null string out of range.
    QString columnTypeName(int column) const;
    /// The column's title and description, for display; null strings out of range.
    QString columnTitle(int column) const;
    QString columnDescription(int column) const;
    /// Gives the column another title; nothing out of range.
    void setColumnTitle(int column, const QString& title);
    /// The column's definition, the table's own; null for an unknown number or name.
    const TableColumnDef* columnDef(int column) const;
    const TableColumnDef* columnDef(const QString& name) const;
    /// Copies of the definitions.
    QList<TableColumnDef> columns() const;
    /// The table's own definitions, in column order.
    QList<TableColumnDef*> fieldDefs() const;

    // Rows. Positions count in master-index order.

    /// How many rows the master index holds; 0 without one.
    int rowCount() const;
    /// The i-th record; the shared Record::null out of range. Good until the table changes.
    const Record& at(int i) const;
    /// The cell of a row and a column; an undefined NULL cell out of range.
    Field data(int row, int column) const;
    /// Makes a cell NULL in place. No index is told. Nothing happens out of range.
    void setNull(int row, int column);
    /// Adds a row, new or made by the caller, to the master index and to every index whose filter
    /// accepts it. From inside a notification the row is added once the present transaction is
    /// done. A row of another table, or one already in this table, is refused with a warning.
    Record appendRow();
    Record appendRow(unsigned char* row);
    /// One transaction that inserts the records.
    void appendList(const QList<Record>& records);
    /// Takes a row out of every index, the master last; `position` is its place in the master, -1
    /// when not known.
    void remove(const Record& record, int position = -1);
    /// Tells the master index, then all others, that columns of a row were changed in place.
    /// Without their old value sorted indexes must scan: prefer a transaction.
    void updated(const Record& record, int firstColumn = -1, int lastColumn = -1,
                 int position = -1);
    void updatedRow(int row);
    /// Clears every index, the master last. From inside a notification: the rows there are now are
    /// removed once the present transaction is done.
    void clear();
    /// Calls build() of every index but the master.
    void build();

    // Transactions.

    /// Applies a transaction and whatever is raised meanwhile; empties it, also when it throws.
    /// From inside a notification it is merged into what waits. The time is added to
    /// nsecsElapsed().
    void process(RecordsTrans& transaction);
    /// The same from lists: `updated` are live rows, `changed` position for position their new
    /// content (rows of the same table), `first` to `last` the columns to copy, -1 for the edges.
    /// Not timed. A limit index may add to `removed`.
    /// An updated row that is not in the table is inserted; an inserted one that is in it already
    /// is also put into `removed`, and so takes a new place. Rows of other tables are left out with
    /// a warning.
    void process(QList<Record>& removed, QList<Record>& updated, int first, int last,
                 const QList<Record>& inserted, const QList<Record>& changed);
    /// Applies one transaction alone: no merging, no pending ones. For callers that know that no
    /// transaction is under way.
    void processSingleTransaction(RecordsTrans& transaction);
    void processSingleTransaction(QList<Record>& removed, QList<Record>& updated, int first,
                                  int last, const QList<Record>& inserted,
                                  const QList<Record>& changed);
    /// 0 idle, 1 before the rows change, 2 after.
    int transactionState() const;

    // Indexes.

    /// The index that holds the rows; see setMasterIndex().
    MasterIndex* masterIndex() const;
    /// Takes ownership; a different one set before is deleted, and the rows it alone held with it.
    /// With null the table holds no rows until another is set.
    void setMasterIndex(MasterIndex* index);
    /// All but the master, in the order in which they are told.
    QList<Index*> indexes() const;
    /// Replaces the whole list, without signals.
    void setIndexes(const QList<Index*>& indexes);
    /// Indexes are told in the order in which they were added. Adding does not fill: see
    /// Index::build. From inside a notification it takes part from the next transaction on.
    void addIndex(Index* index);
    /// Takes the first occurrence out of the list, and the index's (first) name away.
    void removeIndex(Index* index);
    /// A name leads to one index; giving it again moves it.
    void setIndexName(const QString& name, Index* index);
    /// The index of a name; null when none has it.
    Index* namedIndex(const QString& name) const;
    /// A null string for an index without a name.
    QString indexName(Index* index) const;
    /// Indexes of other tables that are told when this table's bracket opens and closes.
    QList<Index*> dependentIndexes() const;
    /// Puts an index of another table on that list, or takes it off.
    void addDependentIndex(Index* index);
    void removeDependentIndex(Index* index);
    /// The first broken invariant of the table, its master index and its other indexes, in words;
    /// an empty string when all is whole. For tests, and for a host that suspects its own code: a
    /// filter() or compare() that changes its mind, cells written without telling, a view that was
    /// never built.
    ///
    /// Looked at are: that each row of the master index is the table's own, there once and marked
    /// as held; that no other row is so marked; that each list's inner counts, sums and keys are
    /// right and its keys ascend and are those of its rows; that each view is in order and holds
    /// exactly the rows that its filter() accepts; that joined cells are those of the dependents.
    /// An index that is still to put itself right, after something threw, says so.
    ///
    /// Call it outside notifications. Takes lock(). Cost: O(n) for each view, with one call of its
    /// filter(), compare() and sortKey() for each row, and some 50 bytes of memory a row meanwhile.
    /// Throws what those throw.
    QString verify() const;

    // Brackets and locking.

    /// The outermost call tells the dependent indexes, takes the mutex, and tells the master index
    /// and all others; the outermost endUpdate() mirrors it.
    void beginUpdate();
    void endUpdate();
    /// The recursive mutex. Lock order between joined tables: main before dependent.
    void lock();
    void unlock();

    // Timing.

    /// Nanoseconds spent in process(RecordsTrans&).
    qint64 nsecsElapsed() const;
    void setNsecsElapsed(const qint64& nsecs);
    static qint64 nsecsElapsedTotal();
    /// This table's share of all tables' time in percent, two decimals, truncated.
    decimal percentElapsed() const;

    // Row blocks, for those who make rows themselves.

    /// Bytes of the data area, of its columns without rounding, and of the whole block.
    qint64 rowLength() const;
    qint64 rowLengthUnaligned() const;
    qint64 rowSize() const;
    /// A new row with a count of 0: hand it to a Record or to freeRow. Null when memory ran out.
    unsigned char* allocRow() const;
    /// Gives a block of rowSize() bytes the content of a new row.
    void initRow(unsigned char* row) const;
    /// A copy with a count of 0; null when memory ran out.
    unsigned char* cloneRow(const unsigned char* row) const;
    /// Copies cells and null flags; the header of `dst` stays.
    void copyRowContent(unsigned char* dst, const unsigned char* src) const;
    /// The same for the columns `first` to `last`; -1 means the first or the last column.
    void copyRowContent(unsigned char* dst, const unsigned char* src, int first, int last) const;
    /// Frees a block made by allocRow or cloneRow, of any table, living or not.
    static void freeRow(unsigned char* row);
    /// The cell of a column in a row block of this table.
    Field dataPtr(unsigned char* row, int column) const;

Q_SIGNALS:
    /// An index was attached (addIndex), or taken off.
    void indexAdded(Index* index);
    void indexRemoved(Index* index);
    /// An index has got this name (setIndexName).
    void indexNameUpdated(Index* index, const QString& name);
    /// An index of another table waits for this one's brackets, or no longer does.
    void dependentIndexAdded(Index* index);
    void dependentIndexRemoved(Index* index);

private:
    friend class TablePrivate;
    const std::unique_ptr<TablePrivate> d;
    QElapsedTimer timer;
    qint64 elapsed = 0;
};
