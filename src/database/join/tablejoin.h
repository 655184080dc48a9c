// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"
#include "index/index.h"
#include "table/recordupdater.h"

#include <QList>
#include <QSharedPointer>
#include <QStringList>
#include <QVector>

#include <memory>
#include <vector>

class IndexDependBase;
class MasterIndex;
class Table;
class TableJoinDep;
class TableJoinMain;
class TableJoinPrivate;

/// One column mapping: the cell `from` of the record that is read goes to the cell `to` of the
/// record that is written. Column numbers.
struct LIVETABLE_EXPORT Col
{
    qint32 to;   ///< number of the column that is written
    qint32 from; ///< number of the column that is read

    /// Orders by `from`.
    static bool lessThanByFrom(const Col& a, const Col& b) { return a.from < b.from; }
    friend bool operator==(const Col& a, const Col& b) { return a.to == b.to && a.from == b.from; }
};
Q_DECLARE_TYPEINFO(Col, Q_PRIMITIVE_TYPE);

/// What the indexes of one join share of its main side. Made by TableJoin::setup. When it dies, the
/// join index lets go of the join: it may go on being notified, and does nothing.
struct LIVETABLE_EXPORT IndexJoinMain
{
    IndexJoinMain() = default;
    ~IndexJoinMain();
    Q_DISABLE_COPY(IndexJoinMain)

    Table* table = nullptr;         ///< the main table
    QVector<int> keyColumns;        ///< the master index's columns, ascending
    TableJoinMain* index = nullptr; ///< not owned
};

/// What they share of one dependent side; all mappings are sorted by `from`.
struct LIVETABLE_EXPORT IndexJoinDep
{
    IndexJoinDep() = default;
    ~IndexJoinDep();
    Q_DISABLE_COPY(IndexJoinDep)

    Table* table = nullptr;        ///< the dependent table
    QVector<Col> keyMapping;       ///< to: main, from: dependent
    QVector<Col> reverseKey;       ///< to: dependent, from: main
    QVector<Col> columns;          ///< the copied columns; to: main, from: dependent
    TableJoinDep* index = nullptr; ///< not owned
};

/// Told which keys the main rows of a join ask of its dependents: so a program can subscribe to
/// just the instruments that are on screen.
///
/// Keys are rows of a small table of the join's own, TableJoin::demandedKeys(), which has the key
/// columns under their names; those of `unwanted` have just left it. Each distinct key is wanted
/// once, from the first main row that has it to the last, whether or not a dependent row exists.
///
/// Calls come on the thread that changes the main table, from inside a notification: changes of any
/// table made here are applied after the present transaction, as usual. Lifetime: remove it before
/// it dies (TableJoin::removeDemandObserver), or let the join die first.
class LIVETABLE_EXPORT JoinDemand
{
public:
    JoinDemand();
    virtual ~JoinDemand();
    /// Keys that are wanted from now on and keys that no longer are; never both empty.
    virtual void demandChanged(const QList<Record>& wanted, const QList<Record>& unwanted) = 0;

private:
    Q_DISABLE_COPY(JoinDemand)
};

/// Makes a main table carry live copies of columns of other tables, its dependents.
///
/// **Which row.** Rows are matched by key: the columns of the main table's master index, which
/// every dependent must have under the same names. A main row shows the dependent row whose key
/// cells all compare equal to its own (Field::compare; NULL equals NULL); of several, the last in
/// the dependent's master order, so that the newest of equal rows wins; without one the joined
/// cells are NULL. Any number of main rows may share a key.
///
/// **What holds.** Whenever no transaction is running on either table, the joined cells of every
/// main row, values and NULL flags, are those that build() would give. Changes of either side are
/// followed at once, of whatever kind and wherever they come from: transactions, single-row calls,
/// loads, clear(), and changes raised from inside notifications. A change of a dependent becomes
/// one transaction on the main table, of the rows and the range of columns that really change; one
/// that changes nothing notifies nobody. Joined cells that a caller writes are put back. A table
/// may be the main of one join and a dependent of others, also in a circle.
///
/// If every index of the main table is a SortedView or a join that reads none of the joined
/// columns, the cells are written directly, without a transaction: nobody would act on it.
///
/// In the lists of the transaction (Index::preprocess) only the columns of its range hold content,
/// and one row of contents may stand for many updated rows.
///
/// **Ownership.** A TableJoin owns the descriptions, not the join indexes: those belong to who
/// called setup(), must be taken off (disconnectIndexes) before they are deleted, and may be
/// deleted before or after the join. Tables may die at any time. The columns stay in the main table
/// when the join is gone. LiveJoin does all of this in one call.
///
/// **Files.** Joined columns are saved with their table. Set the join up before the file is read: a
/// joined column that is already there when setup() is called is a column like any other, and the
/// join adds one under another name.
///
/// **Threads.** As Table. Lock order: the main table before its dependents. A bracket on a
/// dependent (Table::beginUpdate) opens one on the main table first, so a writer needs to open only
/// the bracket of the table that it writes; whoever calls Table::lock on both locks the main table
/// first. Debug builds warn, "Table::lock : ...", of a thread that locks a main table while it
/// holds a dependent alone. In a circle of joins no order is right for all: write to its tables
/// from one thread, or always open the same table's bracket first.
///
/// **Cost.** A dependent's change: one search in each table, and for each main row of that key a
/// look at its joined cells. A main row that comes in or changes its key: one search for each
/// dependent. Memory: none for each main row beyond the joined columns. Where a table's master
/// index is not sorted by exactly the key columns, the join keeps a sorted list of its rows (some
/// 25 bytes a row). Key columns of which one is a text and the other is not are compared as the
/// texts they make, row by row: correct, but slow.
///
///     TableJoin join;
///     Index* mainIndex = nullptr;
///     QList<Index*> depIndexes;
///     join.setup(orders.masterIndex(), {quotes.masterIndex()}, {"bid", "ask"}, false, &mainIndex,
///                &depIndexes);
///     join.setupIndex(&orders, mainIndex, true);
///     join.setupIndex(&quotes, depIndexes[0], false);
///     join.connectIndexes();
///     join.build();
class LIVETABLE_EXPORT TableJoin
{
public:
    TableJoin();
    /// Does not disconnect; see above.
    ~TableJoin();

    /// Adds the joined columns to the main table and makes the join indexes; attaches and fills
    /// nothing. On return `*mainIndex` is a new TableJoinMain, and `*depIndexes` has one new
    /// TableJoinDep more for each dependent, in order.
    ///
    /// Each name of `columns` is taken from every dependent that has it, in their order; a name
    /// that a dependent lacks is skipped. The main column gets the first of these names that no
    /// main column has (upper and lower case differ): the name, the name and "_", the dependent
    /// table's name, "_" and the name, the name and 2, 3, ... Type, length, flag, nullability,
    /// title and description are the dependent column's.
    ///
    /// With `registerWithHost` the join is handed to ICore::instance(), if there is one.
    ///
    /// Throws QString, before anything is changed: "Main table has no key columns." (a master
    /// index that keeps arrival order, or none), "Key column '%1' not found in dependent table
    /// '%2'.", "A dependent has no master index.", and Table::addColumn's "Column '%1' already
    /// exists for table '%2'." for a chosen name that differs from a main column's in case only.
    /// Calling it again sets up a new join in place of the old one.
    void setup(MasterIndex* main, const QList<MasterIndex*>& deps, const QStringList& columns,
               bool registerWithHost, Index** mainIndex, QList<Index*>* depIndexes);

    /// Records that a join index is to be attached to a table. There is one main attachment; of
    /// dependent ones each table has one, the last recorded.
    void setupIndex(Table* table, Index* index, bool isMain);
    /// Records that it is to be attached under another index instead.
    void setupIndex(IndexDependBase* base, Index* index, bool isMain);
    /// Attaches everything recorded. From here on changes are followed; build() must come next.
    void connectIndexes();
    /// Takes everything recorded off again, in the same order; tables that have died are passed
    /// over. The joined cells keep what they hold.
    void disconnectIndexes();
    /// Fills the joined columns of all main rows, in an update bracket of the main table.
    void build();

    /// The main table; null before setup() and once the table has died.
    Table* table() const;
    /// The table of a join index: the main table for a TableJoinMain, the dependent for a
    /// TableJoinDep; null for any other index.
    static Table* table(Index* index);
    /// Whether it is a join index, by its class name; then `*isDep`, if not null, tells which.
    static bool isJoinIndex(Index* index, bool* isDep = nullptr);
    /// The number of the main column that carries column `name` of a dependent; -1 if none does.
    int joinedColumn(const Table* dependent, const QString& name) const;

    /// The observer is told of all keys that are wanted now, at once, and then of every change. The
    /// join must be set up. While nobody observes, demand costs nothing.
    void addDemandObserver(JoinDemand* observer);
    void removeDemandObserver(JoinDemand* observer);
    /// One row for each wanted key; null while nobody observes. To be read, not changed.
    const Table* demandedKeys() const;

    /// The tables' master indexes, in order.
    static QList<MasterIndex*> typeToMaster(const QList<Table*>& tables);
    /// For each the index it stands on, null where that is no master index.
    static QList<MasterIndex*> typeToMaster(const QList<IndexDependBase*>& bases);

    /// Assigns, for each mapping in order, a cell and its NULL state. Throws what Field assignment
    /// throws.
    static void setFields(Record& to, const Record& from, const QVector<Col>& cols);
    static void setFields(RecordUpdater& to, const Record& from, const QVector<Col>& cols);
    /// Makes the cells `to` NULL; their bytes stay.
    static void clearFields(Record& r, const QVector<Col>& cols);
    static void clearFields(RecordUpdater& r, const QVector<Col>& cols);

private:
    Q_DISABLE_COPY(TableJoin)
    std::unique_ptr<TableJoinPrivate> d;
};

/// A join for as long as it lives: sets up, connects and builds on construction; on destruction
/// disconnects, makes the joined cells NULL (the columns stay: a table's columns are for good) and
/// deletes the join indexes.
///
/// Tables may die before it. Threads: as TableJoin; construct and destroy it where the tables are
/// written.
///
///     LiveJoin join(&orders, &quotes, {"bid", "ask"});
///     const int bid = join.column(&quotes, "bid");
class LIVETABLE_EXPORT LiveJoin
{
public:
    /// Throws as TableJoin::setup, and "Column '%1' not found in any dependent table.", with
    /// nothing changed, where the long way skips the name.
    LiveJoin(Table* main, Table* dependent, const QStringList& columns);
    LiveJoin(Table* main, const QList<Table*>& dependents, const QStringList& columns);
    ~LiveJoin();

    /// The number of the main column that carries column `name` of a dependent; -1 if none does.
    int column(const Table* dependent, const QString& name) const;
    /// For demand, and whatever else a TableJoin tells.
    TableJoin& join() { return tables; }

private:
    Q_DISABLE_COPY(LiveJoin)
    TableJoin tables;
    std::unique_ptr<Index> mainIndex;
    std::vector<std::unique_ptr<Index>> depIndexes;
};
