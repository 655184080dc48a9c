// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"
#include "container/partitionlist.h"
#include "table/record.h"
#include "value/decimal.h"

#include <QList>
#include <QString>

class Table;

/// What a table keeps informed of every change: the interface of all live views, key indexes and
/// joins, and of a host's own listeners.
///
/// The table tells each attached index (Table::addIndex) of one transaction in this order:
///
///     preprocess()   updated rows still hold their old values
///     (the new values are written into the rows)
///     process()      the rows are new; the table's master index has been told already
///
/// and of calls outside a transaction by add(), remove() and update(). A transaction that an index
/// raises while it is told is applied after the present one. In every call a position of -1 means
/// that the position is not known, and `firstColumn` to `lastColumn` is the range of changed
/// columns (-1: the first or the last column).
///
/// Ownership: an index owns no table; it is created, attached, detached and destroyed by its owner,
/// before or after the table. Threads: calls come on the thread that applies the transaction, one
/// at a time; the class takes no lock. Errors: what a notification throws reaches the caller of
/// Table::process, after every other index has been told; see there.
///
///     class Journal : public Index { ... };
///     Journal journal;
///     table.addIndex(&journal);   // and removeIndex before the journal dies
class LIVETABLE_EXPORT Index
{
public:
    Index();
    virtual ~Index();

    /// Empties the index.
    virtual void clear() = 0;
    /// Fills the index from the table's master index. Does not clear first.
    virtual void build() = 0;
    /// clear(), then build().
    virtual void rebuild();
    /// Takes a record in; does not ask filter().
    virtual void add(const Record& record) = 0;
    /// Announces a transaction. The default does nothing. `changes` holds, position for position,
    /// the new content of `updated`, of which only the columns of the range count: outside it the
    /// rows keep their cells, and one row of contents may stand for many. What it throws stops the
    /// transaction before any row has changed.
    virtual void preprocess(const QList<Record>& removed, const QList<Record>& updated,
                            int firstColumn, int lastColumn, const QList<Record>& inserted,
                            const QList<Record>& changes);
    /// Follows a transaction. The default removes, then updates, then adds what filter() accepts,
    /// each in list order, and keeps the time. A record both removed and updated is removed only.
    virtual void process(const QList<Record>& removed, const QList<Record>& updated,
                         int firstColumn, int lastColumn, const QList<Record>& inserted);
    /// Takes a record out, if it is held.
    virtual void remove(const Record& record, int position) = 0;
    /// Whether the record belongs into this index.
    virtual bool filter(const Record& record) const = 0;
    /// Whether the index holds the record.
    virtual bool contains(const Record& record) const = 0;
    /// Columns of a record have changed in place. The default removes the record and adds it again
    /// if filter() accepts it.
    virtual void update(const Record& record, int firstColumn, int lastColumn, int position);
    /// The position of this very record, -1 when it has none. The default has none.
    virtual int indexOf(const Record& record) const;
    /// Brackets a batch of transactions. The defaults do nothing.
    virtual void beginUpdate();
    virtual void endUpdate();
    /// The same bracket of another table, on which this index depends (Table::addDependentIndex).
    virtual void dependentBeginUpdate(Table* table);
    virtual void dependentEndUpdate(Table* table);
    /// The class's name as text; joins and bulk loads tell kinds of index by it.
    virtual QString getClassName() const = 0;
    /// The first thing that is wrong with the index, in words; an empty string when it is whole.
    /// Table::verify() asks it of every index, and tells what is asked. The default finds nothing.
    virtual QString verify() const;

    /// Nanoseconds spent in process() so far.
    qint64 nsecsElapsed() const { return elapsed; }
    void setNsecsElapsed(const qint64& nsecs) { elapsed = nsecs; }
    /// Nanoseconds spent in process() by all indexes of the program; never less than the sum over
    /// those that live.
    static qint64 nsecsElapsedTotal();
    /// This index's share of the total in percent, two decimals, truncated; zero while the total is
    /// below 10000 ns.
    decimal percentElapsed() const;

protected:
    /// For process() of derived classes: restart at its begin, addElapsed at its end.
    void restartTimer();
    void addElapsed();

private:
    friend class TablePrivate;
    Q_DISABLE_COPY(Index)
    qint64 started = 0; // a reading of the steady clock
    qint64 elapsed = 0;
};

/// The walking side of every index that keeps its records in a list: what a screen, a file writer
/// or a join reads, whatever the index's kind.
///
/// Iterators step in index order and are random access; they and positions hold until the index
/// changes. Readers on another thread than the writer hold Table::lock meanwhile.
///
///     for (const Record& record : view) ...
///     const Record& best = *view.begin();
class LIVETABLE_EXPORT IndexIterative
{
public:
    IndexIterative();
    virtual ~IndexIterative();
    /// The records in index order.
    virtual PartitionList<Record>::const_iterator begin() const = 0;
    virtual PartitionList<Record>::const_iterator end() const = 0;
    /// How many records there are.
    virtual int count() const = 0;
    /// The viewed table; null once it has been destroyed.
    virtual Table* table() const = 0;
    virtual Table* table() = 0;

private:
    Q_DISABLE_COPY(IndexIterative)
};
