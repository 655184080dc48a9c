// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"
#include "table/record.h"

#include <QList>

#include <memory>

class RecordsTransPrivate;
class RecordUpdater;
class Table;

/// A transaction: the rows to insert, remove and update, at most one operation for each row.
///
/// It is collected at leisure, costs nothing to the table meanwhile, and is applied at once by
/// execute(). Operations on the same row combine; several transactions merge into one:
///
/// | already held | insert       | remove       | update                                         |
/// |--------------|--------------|--------------|------------------------------------------------|
/// | nothing      | insert       | remove       | update                                         |
/// | insert       | insert       | remove       | insert, the new cells written into the row     |
/// | remove       | insert       | remove       | remove: the update is ignored                  |
/// | update       | insert       | remove       | update with the cells of both, the later wins  |
///
/// Each update remembers the set of its own columns. Immediately before the transaction is applied,
/// its other columns are read afresh from the live row, so that nothing that changed meanwhile is
/// put back. The transaction's column range is the hull of all updated columns.
/// Where an insertion stands for a row that is in the table already, a following update turns it
/// into an update.
///
/// Ownership: it holds references on its rows. It is bound to the table it is made with, or else to
/// that of its first record; records of other tables, null and detached ones are ignored.
/// Threads: none of its own; cells of rows not yet inserted are written in place by update().
/// Cost: constant per operation; one clone per updated row.
///
///     RecordsTrans changes(&table);
///     RecordUpdater(changes, row).data(price) = decimal(QStringLiteral("12.75"));
///     changes.remove(other);
///     table.beginUpdate();
///     changes.execute();
///     table.endUpdate();
class LIVETABLE_EXPORT RecordsTrans
{
public:
    /// Without operations; bound to the table, or to that of its first record.
    explicit RecordsTrans(Table* table = nullptr);
    ~RecordsTrans();
    /// Leaves the other empty, bound to its table.
    RecordsTrans(RecordsTrans&& other) noexcept(false);
    RecordsTrans& operator=(RecordsTrans&& other) noexcept(false);

    /// Notes that a row is to come into the table, or to leave it; see the list above for a row
    /// that has an operation already.
    void insert(const Record& record);
    void remove(const Record& record);
    /// Sets the columns `first` to `last` of a live row (-1: the first or the last column) to their
    /// content in `content`, a row of the same table, which is copied now.
    void update(const Record& live, const Record& content, int first = -1, int last = -1);
    /// Adds all operations of another transaction, in its order.
    void merge(const RecordsTrans& other);
    /// The same from lists as Table::process takes them: removals, then updates, then insertions.
    void merge(const QList<Record>& removed, const QList<Record>& updated, int first, int last,
               const QList<Record>& inserted, const QList<Record>& changed);

    /// Whether no row has an operation.
    bool isEmpty() const;
    /// Rows with an operation.
    int count() const;
    /// Forgets all operations and the column range; stays bound to its table.
    void clear();
    /// Exchanges the operations and tables of both.
    void swap(RecordsTrans& other) noexcept;
    /// The table that it is bound to; null while it is not.
    Table* table() const;

    /// The rows with each operation, in the order in which they first came. changed()[i] is the new
    /// content of updated()[i].
    QList<Record> removed() const;
    QList<Record> updated() const;
    QList<Record> changed() const;
    QList<Record> inserted() const;

    /// The range of changed columns; 0 and -1 while none is set.
    int firstColumn() const;
    int lastColumn() const;
    /// Sets the range; each update then also writes the live row's own cells in it, unchanged.
    void setColumns(int first, int last);

    /// What is to happen to a row.
    enum Operation
    {
        None = 0,
        Insert = 1,
        Remove = 2,
        Update = 3
    };
    /// The operation held for a row, one of Operation.
    int operation(const Record& record) const;
    /// The new content held for a row that is to be updated; null otherwise. Valid until the next
    /// change of the transaction, and not to be written.
    Record content(const Record& record) const;

    /// Hands the transaction to Table::process, which empties it; nothing when it is empty. A range
    /// that was never set becomes all columns. Throws what the table's indexes throw.
    void execute();

private:
    Q_DISABLE_COPY(RecordsTrans)
    friend class RecordUpdater;
    friend class Table;
    void rebase();

    std::unique_ptr<RecordsTransPrivate> d;
};
