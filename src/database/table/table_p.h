// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "base/recursivemutex_p.h"
#include "container/partitionlist.h"
#include "table/cellrange_p.h"
#include "table/recordstrans.h"
#include "table/rowpool_p.h"
#include "table/table.h"

#include <QAtomicInt>
#include <QHash>
#include <QMap>
#include <QPointer>
#include <QSet>
#include <QThread>
#include <QVector>

#include <atomic>
#include <exception>
#include <vector>

namespace LiveTable {
// What Record asks its table, which knows its master index (table.cpp).
bool tableHolds(const Table* table, const Record& record);
QString keyText(const Table* table, const Record& record);
Record findByKey(const Table* table, const QString& key);

/// Whether a cell of two rows is the same: both NULL, or both with the same stored bytes.
inline bool isSameCell(const unsigned char* a, const unsigned char* b, const TableColumnDef* column)
{
    const unsigned char* dataA = a + sizeof(RowHeader);
    const unsigned char* dataB = b + sizeof(RowHeader);
    const bool hasA = dataA[column->nullByte] & column->nullMask;
    const bool hasB = dataB[column->nullByte] & column->nullMask;
    return hasA == hasB && (!hasA || std::memcmp(dataA + column->offset, dataB + column->offset,
                                                 static_cast<size_t>(column->size)) == 0);
}

/// A share of a total in percent, truncated to two decimals; zero while the total is below 10000.
inline decimal shareInPercent(qint64 part, qint64 total)
{
    return total > -10000 && total < 10000 ? decimal()
                                           : decimal::fromMantissa(part / (total / 10000), 2);
}
} // namespace LiveTable

class IndexLimit;
class IndexSort;

/// What a Table keeps. Its functions that touch no index are in tablelayout.cpp.
class TablePrivate
{
public:
    TablePrivate(Table* table, const QString& name, const QString& title);
    ~TablePrivate();

    static TablePrivate* get(const Table* table) { return table->d.get(); }

    // Columns and rows (tablelayout.cpp).
    void cacheColumn(const QString& columnName);
    bool acceptsNewColumn(const TableColumnDef& def) const;
    void relayout(const TableColumnDef& def, PartitionList<Record>& rows);
    void refreshPrototype();
    void makeRow(unsigned char* row) const;
    /// The columns `first` to `last` (-1: the first or the last column); empty for none.
    LiveTable::CellRange cells(int first, int last) const;
    bool isOwn(const Record& record) const { return record.table() == q; }
    const TableColumnDef* def(int column) const
    {
        return column >= 0 && column < columns.size() ? columns.at(column) : nullptr;
    }

    // Changes (table.cpp).
    void addRow(const Record& record);
    void addAgain(const Record& row, std::exception_ptr& failure);
    static void markDamaged(Index* index);
    void trimToLimit(QList<Record>& removed, const QList<Record>& updated, int insertedCount);
    void separate(QList<Record>& removed, const QList<Record>& updated,
                  QList<Record>& inserted) const;
    void refuseForeignRows(QList<Record>& removed, QList<Record>& updated, QList<Record>& inserted,
                           QList<Record>& changed) const;
    QList<Record> inTable(const QList<Record>& rows) const;
    void apply(QList<Record>& removed, QList<Record>& updated, int first, int last,
               const QList<Record>& inserted, const QList<Record>& changed);
    const std::vector<const IndexSort*>& sortedIndexes();
    void namesChanged();
    void forgetNames(const Index* index);
    template <typename Notify>
    void tellIndexes(std::exception_ptr& failure, Notify notify);
    template <typename Change>
    void changeNow(Change change);
    void drainPending();

    Table* const q;
    QString name;
    QString title;
    MasterIndex* master = nullptr;
    QList<Index*> indexes; // in the order of notification
    quint32 indexesVersion = 0;
    std::vector<const IndexSort*> sorted; // of the indexes, and the master, as of sortedVersion
    quint32 sortedVersion = 0;
    QMap<QString, Index*> namedIndexes;
    IndexLimit* limit = nullptr; // the one named "IndexLimit", if it is one
    QList<Index*> dependents;
    QList<TableColumnDef*> columns;
    qint64 rowLength = 0;
    qint64 rowLengthUnaligned = 0;
    qint64 rowSize = sizeof(LiveTable::RowHeader);
    QHash<QString, int> columnHash;
    QMap<QString, int> columnMap;
    QAtomicInt updateDepth;
    int transactionState = 0;
    /// What the change under way takes out of the table, while its master index still has it.
    const unsigned char* leavingRow = nullptr;
    const QList<Record>* leavingRows = nullptr;
    const QList<Record>* comingRows = nullptr; // some of which may be among those
    bool isClearing = false;
    RecordsTrans pending;
    LiveTable::RecursiveMutex mutex;
    /// The dependents of joins of which this is the main table: whoever locks both locks this one
    /// first. Debug builds watch over it.
    QVector<QPointer<Table>> lockedAfter;
    void lockMutex();
    void unlockMutex();
#ifndef QT_NO_DEBUG
    std::atomic<Qt::HANDLE> lockHolder{nullptr};
    int lockCount = 0; // guarded by the mutex
#endif

    LiveTable::RowPool* pool;             // of the present row size
    std::vector<unsigned char> prototype; // the block of a new row; empty for long ones
    /// Whether the transaction being applied updates a row that is not in the table: views may then
    /// not skip it by its columns.
    bool hasAbsentUpdates = false;
    /// Whether it names each row once.
    bool isDistinct = false;
    /// Rows of which cells were changed in place before any index was told: neither their values
    /// nor a filter tell where they stand. They may be dead by now.
    QSet<const unsigned char*> untold;
    /// Those of them that the transaction being applied removes or updates.
    QSet<const unsigned char*> untoldNow;
};
