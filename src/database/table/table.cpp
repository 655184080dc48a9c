// SPDX-License-Identifier: MIT
// The half of Table that works through its indexes: rows, transactions, brackets. The one source of
// this folder that looks up to the index floor.
#include "table/table.h"

#include "index/indexlimit.h"
#include "index/indexlist_p.h"
#include "index/indexsortwork_p.h"
#include "index/indexvector.h"
#include "index/masterindex.h"
#include "index/timerchain_p.h"
#include "table/table_p.h"

#include <QScopeGuard>
#include <QtDebug>

#include <algorithm>
#include <atomic>
#include <iterator>
#include <mutex>
#include <utility>

using LiveTable::RowPool;

namespace {

enum State
{
    Idle = 0,
    BeforeChange = 1,
    AfterChange = 2
};

// Relaxed: a sum for display, which tables on several threads add to.
std::atomic<qint64> nsecsInTables{0};

// Sets the table's state and puts it back to idle however the scope is left.
class StateGuard
{
public:
    StateGuard(int& state, State now)
        : guarded(state)
    {
        guarded = now;
    }
    ~StateGuard() { guarded = Idle; }
    Q_DISABLE_COPY(StateGuard)

private:
    int& guarded;
};

bool isInTable(const Record& record)
{
    return RowPool::tag(record.row()) != 0;
}

// Whether all rows that come in are new to the table and each is named once, else every index would
// hold them twice. A row that is in no table has no tag, so it can carry a mark for the moment.
bool areNew(const QList<Record>& inserted, const QList<Record>& updated)
{
    constexpr quint64 mark = ~quint64(0);
    const auto isMarked = [](const Record& record) { return RowPool::tag(record.row()) == mark; };
    auto last = inserted.cbegin();
    for (; last != inserted.cend() && !isInTable(*last); ++last)
        RowPool::setTag(last->row(), mark);
    const bool areAllNew =
        last == inserted.cend() &&
        (inserted.isEmpty() || std::none_of(updated.cbegin(), updated.cend(), isMarked));
    std::for_each(inserted.cbegin(), last,
                  [](const Record& record) { RowPool::setTag(record.row(), 0); });
    return areAllNew;
}

void moveToMasterOrder(const MasterIndex* master, QList<Record>& records)
{
    std::stable_sort(records.begin(), records.end(), [master](const Record& a, const Record& b) {
        return master->compare(a, b) < 0;
    });
}

} // namespace

Table::Table(const QString& name, const QString& title, QObject* parent)
    : QObject(parent)
    , d(new TablePrivate(this, name, title))
{
    setMasterIndex(new MasterIndexOrdered(this));
}

Table::~Table()
{
    d->isClearing = true;
    std::exception_ptr untold; // a host's function may throw; there is nobody to tell
    d->tellIndexes(untold, [](Index* index) { index->clear(); });
    setMasterIndex(nullptr);
}

// --- rows ---

int Table::rowCount() const
{
    return d->master ? d->master->count() : 0;
}

const Record& Table::at(int i) const
{
    return d->master ? d->master->at(i) : Record::null;
}

Field Table::data(int row, int column) const
{
    return at(row).data(column);
}

void Table::setNull(int row, int column)
{
    const Record& record = at(row);
    if (record.isNull() || !d->def(column))
        return;
    record.data(column).setNull();
    d->untold.insert(record.row());
}

// Calls notify(index) for each index, also for those behind one that throws; the first failure is
// kept. An index taken off the list by an earlier notification is not told any more.
template <typename Notify>
void TablePrivate::tellIndexes(std::exception_ptr& failure, Notify notify)
{
    const QList<Index*> told = indexes;
    const quint32 version = indexesVersion;
    for (Index* index : told) {
        if (version != indexesVersion && !indexes.contains(index))
            continue;
        try {
            notify(index);
        } catch (...) {
            if (!failure)
                failure = std::current_exception();
        }
    }
}

// Runs a change outside any transaction: what its notifications raise waits until it is done.
// `change` gets the place to keep the first failure in.
template <typename Change>
void TablePrivate::changeNow(Change change)
{
    std::exception_ptr failure;
    {
        const StateGuard guard(transactionState, AfterChange);
        change(failure);
    }
    try {
        drainPending();
    } catch (...) {
        if (!failure)
            failure = std::current_exception();
    }
    if (failure)
        std::rethrow_exception(failure);
}

void TablePrivate::drainPending()
{
    while (!pending.isEmpty()) {
        RecordsTrans next(q);
        next.swap(pending);
        q->processSingleTransaction(next);
    }
}

// An index whose filter threw does not hear of the row. The library's own put themselves right at
// their next notification.
void TablePrivate::markDamaged(Index* index)
{
    if (auto* list = dynamic_cast<IndexList*>(index))
        IndexListPrivate::get(list)->markDamaged();
    else if (auto* vector = dynamic_cast<IndexVector*>(index))
        vector->isDamaged = true;
}

void TablePrivate::addRow(const Record& record)
{
    if (record.isNull())
        return;
    if (!isOwn(record) || isInTable(record)) {
        qWarning() << "Table::appendRow : the row is in the table already, or of another table";
        return;
    }
    if (transactionState != Idle) {
        pending.insert(record);
        return;
    }
    changeNow([&](std::exception_ptr& failure) {
        if (master)
            master->add(record);
        tellIndexes(failure, [&](Index* index) {
            bool isAccepted = false;
            try {
                isAccepted = index->filter(record);
            } catch (...) {
                markDamaged(index);
                throw;
            }
            if (isAccepted)
                index->add(record);
        });
    });
}

Record Table::appendRow()
{
    Record record(this);
    d->addRow(record);
    return record;
}

Record Table::appendRow(unsigned char* row)
{
    Record record(row);
    d->addRow(record);
    return record;
}

void Table::appendList(const QList<Record>& records)
{
    QList<Record> removed;
    QList<Record> updated;
    process(removed, updated, -1, -1, records, QList<Record>());
}

void Table::remove(const Record& record, int position)
{
    if (!d->isOwn(record))
        return;
    if (d->transactionState != Idle) {
        d->pending.remove(record);
        return;
    }
    const Record held = record; // `record` may be the master's own element
    d->changeNow([&](std::exception_ptr& failure) {
        d->leavingRow = held.row();
        const auto gone = qScopeGuard([this] { d->leavingRow = nullptr; });
        d->tellIndexes(failure, [&](Index* index) { index->remove(held, -1); });
        try {
            if (d->master)
                d->master->remove(held, position);
        } catch (...) {
            if (!failure)
                failure = std::current_exception();
        }
    });
}

void Table::updated(const Record& record, int firstColumn, int lastColumn, int position)
{
    if (!d->isOwn(record))
        return;
    if (d->transactionState != Idle) {
        d->pending.update(record, record, firstColumn, lastColumn);
        d->untold.insert(record.row());
        return;
    }
    const Record held = record;
    d->changeNow([&](std::exception_ptr& failure) {
        try {
            if (d->master)
                d->master->update(held, firstColumn, lastColumn, position);
        } catch (...) {
            failure = std::current_exception();
        }
        d->tellIndexes(failure,
                       [&](Index* index) { index->update(held, firstColumn, lastColumn, -1); });
        d->untold.remove(held.row());
    });
}

void Table::updatedRow(int row)
{
    updated(at(row), 0, columnCount() - 1, -1);
}

void Table::clear()
{
    if (d->transactionState != Idle) {
        for (int i = 0; i < rowCount(); ++i)
            d->pending.remove(at(i));
        return;
    }
    d->changeNow([&](std::exception_ptr& failure) {
        d->isClearing = true;
        const auto cleared = qScopeGuard([this] { d->isClearing = false; });
        d->tellIndexes(failure, [](Index* index) { index->clear(); });
        if (d->master)
            d->master->clear();
        d->untold.clear();
    });
}

void Table::build()
{
    std::exception_ptr failure;
    d->tellIndexes(failure, [](Index* index) { index->build(); });
    if (failure)
        std::rethrow_exception(failure);
}

void Table::addColumn(const TableColumnDef& def)
{
    if (!d->acceptsNewColumn(def))
        return;
    FieldType::typeLength(def.type, def.length); // throws what is wrong with them
    if (d->transactionState != Idle)
        throw QStringLiteral("Columns can't be added while a transaction is applied.");

    d->changeNow([&](std::exception_ptr& failure) {
        d->untold.clear(); // all indexes are built anew
        PartitionList<Record> rows;
        IndexListPrivate* const list = d->master ? IndexListPrivate::get(d->master) : nullptr;
        const quint64 lastArrival = list ? list->lastArrival : 0;
        if (list) {
            list->takeAll(rows);
            d->master->clear();
        }
        d->tellIndexes(failure, [](Index* index) { index->clear(); });
        try {
            d->relayout(def, rows);
            for (const Record& row : qAsConst(rows))
                d->addAgain(row, failure);
        } catch (...) { // short of memory: the rows must not be lost
            failure = std::current_exception();
            if (list)
                list->putBack(rows, lastArrival);
        }
        d->tellIndexes(failure, [](Index* index) { index->build(); });
    });
}

// To the master index, which had it before.
void TablePrivate::addAgain(const Record& row, std::exception_ptr& failure)
{
    try {
        master->add(row);
    } catch (...) { // of a host's compare: the row must not be lost
        if (!failure)
            failure = std::current_exception();
        auto* list = IndexListPrivate::get(master);
        list->append(row, list->keys == IndexListPrivate::ArrivalNumbers
                              ? IndexSortWork(master).keyToInsert(row)
                              : SortKey());
        markDamaged(master);
    }
}

QString Table::verify() const
{
    const std::lock_guard<LiveTable::RecursiveMutex> lock(d->mutex);
    if (d->transactionState != Idle || !d->pending.isEmpty())
        return QStringLiteral("a transaction is under way");
    for (int i = 0; i < d->columns.size(); ++i)
        if (columnIndex(d->columns.at(i)->name) != i)
            return QStringLiteral("a column is not found by its name");
    if (d->pool->taggedCount() != static_cast<size_t>(rowCount()))
        return QStringLiteral("a row is marked that the master index does not hold");
    QList<const Index*> all;
    if (d->master)
        all.append(d->master);
    for (const Index* index : qAsConst(d->indexes))
        all.append(index);
    for (const Index* index : qAsConst(all)) {
        const QString fault = index->verify();
        if (!fault.isEmpty())
            return QStringLiteral("%1 %2: %3")
                .arg(index->getClassName())
                .arg(all.indexOf(index))
                .arg(fault);
    }
    return QString();
}

// --- transactions ---

int Table::transactionState() const
{
    return d->transactionState;
}

void Table::process(RecordsTrans& transaction)
{
    timer.start();
    struct Stopwatch
    {
        Table* table;
        ~Stopwatch()
        {
            const qint64 spent = table->timer.nsecsElapsed();
            table->elapsed += spent;
            nsecsInTables.fetch_add(spent, std::memory_order_relaxed);
        }
    } const stopwatch{this};

    if (d->transactionState != Idle) {
        d->pending.merge(transaction);
        transaction.clear();
        return;
    }
    processSingleTransaction(transaction);
    d->drainPending();
}

void Table::process(QList<Record>& removed, QList<Record>& updated, int first, int last,
                    const QList<Record>& inserted, const QList<Record>& changed)
{
    if (d->transactionState != Idle) {
        d->pending.merge(removed, updated, first, last, inserted, changed);
        return;
    }
    processSingleTransaction(removed, updated, first, last, inserted, changed);
    d->drainPending();
}

void Table::processSingleTransaction(RecordsTrans& transaction)
{
    RecordsTrans now(this);
    now.swap(transaction); // empty from here on, also when an index throws
    now.rebase();
    QList<Record> removed = now.removed();
    QList<Record> updated = now.updated();
    const bool hasRange = now.lastColumn() >= now.firstColumn();
    d->isDistinct = true;
    const auto done = qScopeGuard([this] { d->isDistinct = false; });
    processSingleTransaction(removed, updated, hasRange ? now.firstColumn() : -1,
                             hasRange ? now.lastColumn() : -1, now.inserted(), now.changed());
    now.clear();
    if (transaction.isEmpty() && transaction.table() == this)
        transaction.swap(now); // its memory is good for the next one
}

void Table::processSingleTransaction(QList<Record>& removed, QList<Record>& updated, int first,
                                     int last, const QList<Record>& inserted,
                                     const QList<Record>& changed)
{
    const auto own = [this](const Record& record) { return d->isOwn(record); };
    const bool allOwn = std::all_of(removed.cbegin(), removed.cend(), own) &&
                        std::all_of(updated.cbegin(), updated.cend(), own) &&
                        std::all_of(inserted.cbegin(), inserted.cend(), own) &&
                        std::all_of(changed.cbegin(), changed.cend(), own);
    const bool allNew = allOwn && areNew(inserted, updated);
    if (allNew && !d->limit) {
        d->apply(removed, updated, first, last, inserted, changed);
        return;
    }
    d->isDistinct = false;
    QList<Record> ownInserted = inserted;
    QList<Record> ownChanged = changed;
    if (!allOwn)
        d->refuseForeignRows(removed, updated, ownInserted, ownChanged);
    if (!allNew)
        d->separate(removed, updated, ownInserted);
    if (d->limit)
        d->trimToLimit(removed, updated, ownInserted.size());
    d->apply(removed, updated, first, last, ownInserted, ownChanged);
}

// Rows of other tables, null and detached ones would be written past their blocks.
void TablePrivate::refuseForeignRows(QList<Record>& removed, QList<Record>& updated,
                                     QList<Record>& inserted, QList<Record>& changed) const
{
    qWarning() << "Table::process : rows of another table, or from before a column was added, are"
                  " left out";
    const auto foreign = [this](const Record& record) { return !isOwn(record); };
    removed.erase(std::remove_if(removed.begin(), removed.end(), foreign), removed.end());
    inserted.erase(std::remove_if(inserted.begin(), inserted.end(), foreign), inserted.end());
    for (int i = updated.size() - 1; i >= 0; --i) {
        const bool hasContent = i < changed.size();
        if (!foreign(updated.at(i)) && !(hasContent && foreign(changed.at(i))))
            continue;
        updated.removeAt(i);
        if (hasContent)
            changed.removeAt(i);
    }
}

// Sees to it that a row comes in once: one that is there already leaves first, and of several
// mentions of a new one the first counts, that as an update before those as an insertion.
void TablePrivate::separate(QList<Record>& removed, const QList<Record>& updated,
                            QList<Record>& inserted) const
{
    QSet<Record> leaving(removed.cbegin(), removed.cend());
    QSet<Record> coming;
    for (const Record& record : updated)
        if (!isInTable(record) && !leaving.contains(record))
            coming.insert(record);
    QList<Record> distinct;
    for (const Record& record : qAsConst(inserted)) {
        if (coming.contains(record))
            continue;
        coming.insert(record);
        distinct.append(record);
        if (isInTable(record) && !leaving.contains(record))
            removed.append(record);
    }
    inserted.swap(distinct);
}

void TablePrivate::trimToLimit(QList<Record>& removed, const QList<Record>& updated,
                               int insertedCount)
{
    QList<Record> inOrder = updated;
    if (master && !master->columns().isEmpty()) {
        // The limit searches the lists in master order; nobody else sorts them.
        moveToMasterOrder(master, removed);
        moveToMasterOrder(master, inOrder);
    }
    limit->toRemove(insertedCount - removed.size(), removed, inOrder);
}

// The sorted ones among the indexes: asked for with every transaction, so they are kept.
const std::vector<const IndexSort*>& TablePrivate::sortedIndexes()
{
    if (sortedVersion != indexesVersion) {
        sorted.clear();
        for (const Index* index : qAsConst(indexes))
            if (auto* one = dynamic_cast<const IndexSort*>(index))
                sorted.push_back(one);
        if (master)
            sorted.push_back(master);
        sortedVersion = indexesVersion;
    }
    return sorted;
}

// Those of the rows for which the master index has had memory: nobody else is to take the others.
QList<Record> TablePrivate::inTable(const QList<Record>& rows) const
{
    QList<Record> found;
    try {
        std::copy_if(rows.cbegin(), rows.cend(), std::back_inserter(found), isInTable);
    } catch (...) { // nor is there any for this
        std::for_each(indexes.cbegin(), indexes.cend(), markDamaged);
        found.clear();
    }
    return found;
}

void TablePrivate::apply(QList<Record>& removed, QList<Record>& updated, int first, int last,
                         const QList<Record>& inserted, const QList<Record>& changed)
{
    hasAbsentUpdates = !std::all_of(updated.cbegin(), updated.cend(), isInTable);
    const QList<Index*> announced = indexes;
    const quint32 version = indexesVersion;
    if (!untold.isEmpty())
        for (const QList<Record>* told : {&removed, &updated})
            for (const Record& record : *told)
                if (untold.remove(record.row()))
                    untoldNow.insert(record.row());
    const auto stillUntold = qScopeGuard([this] {
        if (!untoldNow.isEmpty()) // an index has refused the transaction
            untold.unite(std::exchange(untoldNow, {}));
    });
    const StateGuard guard(transactionState, BeforeChange);
    leavingRows = &removed;
    comingRows = &inserted;
    const auto gone = qScopeGuard([this] { leavingRows = nullptr; });
    const std::vector<const IndexSort*>& sortedOnes = sortedIndexes();
    if (removed.size() + updated.size() + inserted.size() <= IndexSortWork::FewRecords)
        IndexSortWork::locateAhead(sortedOnes, removed, updated, first, last, inserted, changed);
    // What is thrown here stops the transaction while nothing has changed yet.
    if (master)
        master->locate(removed, updated, first, last, inserted);
    for (Index* index : announced)
        if (version == indexesVersion || indexes.contains(index))
            index->preprocess(removed, updated, first, last, inserted, changed);

    const int n = std::min(updated.size(), changed.size());
    const LiveTable::CellRange cellsToCopy = cells(first, last);
    for (int i = 0; i < n; ++i)
        if (updated.at(i) != changed.at(i))
            cellsToCopy.copy(updated.at(i).row(), changed.at(i).row());

    std::exception_ptr failure;
    const LiveTable::TimerChain chain;
    try {
        if (master)
            master->process(removed, updated, first, last, inserted);
    } catch (...) {
        failure = std::current_exception();
    }
    const QList<Record> arrived = failure ? inTable(inserted) : inserted;
    leavingRows = nullptr;
    transactionState = AfterChange;
    auto timed = sortedOnes.cbegin();
    for (Index* index : announced) {
        if (version != indexesVersion && !indexes.contains(index))
            continue;
        try {
            index->process(removed, updated, first, last, arrived);
        } catch (...) {
            if (!failure)
                failure = std::current_exception();
        }
        if (version == indexesVersion && timed != sortedOnes.cend() && *timed == index)
            ++timed;
        else
            LiveTable::TimerChain::interrupt();
    }
    untoldNow.clear();
    if (failure)
        std::rethrow_exception(failure);
}

// --- indexes ---

MasterIndex* Table::masterIndex() const
{
    return d->master;
}

void Table::setMasterIndex(MasterIndex* index)
{
    if (index == d->master)
        return;
    ++d->indexesVersion;
    delete std::exchange(d->master, nullptr);
    d->master = index;
    if (index)
        index->install();
}

QList<Index*> Table::indexes() const
{
    return d->indexes;
}

void Table::setIndexes(const QList<Index*>& indexes)
{
    d->indexes = indexes;
    ++d->indexesVersion;
}

void Table::addIndex(Index* index)
{
    d->indexes.append(index);
    ++d->indexesVersion;
    Q_EMIT indexAdded(index);
}

void Table::removeIndex(Index* index)
{
    d->indexes.removeOne(index);
    ++d->indexesVersion;
    const QString name = indexName(index);
    if (!name.isEmpty())
        d->namedIndexes.remove(name);
    d->namesChanged();
    Q_EMIT indexRemoved(index);
}

void Table::setIndexName(const QString& name, Index* index)
{
    d->namedIndexes.insert(name, index);
    d->namesChanged();
    Q_EMIT indexNameUpdated(index, name);
}

// The limit index is wanted for every transaction, so it is not looked up by its name each time.
void TablePrivate::namesChanged()
{
    limit = dynamic_cast<IndexLimit*>(namedIndexes.value(QStringLiteral("IndexLimit")));
}

// An index that dies must not be found again by a second name it may have.
void TablePrivate::forgetNames(const Index* index)
{
    for (auto it = namedIndexes.begin(); it != namedIndexes.end();)
        it = it.value() == index ? namedIndexes.erase(it) : it + 1;
    namesChanged();
}

Index* Table::namedIndex(const QString& name) const
{
    return d->namedIndexes.value(name, nullptr);
}

QString Table::indexName(Index* index) const
{
    return d->namedIndexes.key(index);
}

QList<Index*> Table::dependentIndexes() const
{
    return d->dependents;
}

void Table::addDependentIndex(Index* index)
{
    d->dependents.append(index);
    Q_EMIT dependentIndexAdded(index);
}

void Table::removeDependentIndex(Index* index)
{
    d->dependents.removeOne(index);
    Q_EMIT dependentIndexRemoved(index);
}

// --- brackets ---

void Table::beginUpdate()
{
    if (d->updateDepth.fetchAndAddOrdered(1) > 0)
        return;
    const QList<Index*> dependents = d->dependents;
    int told = 0;
    try {
        for (; told < dependents.size(); ++told)
            if (d->dependents.contains(dependents.at(told)))
                dependents.at(told)->dependentBeginUpdate(this);
    } catch (...) { // the caller's bracket does not stand
        d->updateDepth.fetchAndAddOrdered(-1);
        while (--told >= 0)
            if (d->dependents.contains(dependents.at(told)))
                dependents.at(told)->dependentEndUpdate(this);
        throw;
    }
    d->lockMutex();
    if (d->master)
        d->master->beginUpdate();
    std::exception_ptr failure;
    d->tellIndexes(failure, [](Index* index) { index->beginUpdate(); });
    if (!failure)
        return;
    try {
        endUpdate(); // the caller's bracket does not stand
    } catch (...) {
    }
    std::rethrow_exception(failure);
}

void Table::endUpdate()
{
    if (d->updateDepth.fetchAndAddOrdered(-1) > 1)
        return;
    if (d->master)
        d->master->endUpdate();
    std::exception_ptr failure;
    d->tellIndexes(failure, [](Index* index) { index->endUpdate(); });
    d->unlockMutex();
    const QList<Index*> dependents = d->dependents;
    for (Index* index : dependents)
        if (d->dependents.contains(index))
            index->dependentEndUpdate(this);
    if (failure)
        std::rethrow_exception(failure);
}

// Debug builds warn of a thread that could dead-lock with another one.
void TablePrivate::lockMutex()
{
#ifndef QT_NO_DEBUG
    const Qt::HANDLE self = QThread::currentThreadId();
    if (lockHolder.load(std::memory_order_relaxed) != self)
        for (const QPointer<Table>& later : qAsConst(lockedAfter))
            if (later && get(later)->lockHolder.load(std::memory_order_relaxed) == self)
                qWarning() << "Table::lock : a join's main table is locked after its dependent:"
                           << name << later->name();
#endif
    mutex.lock();
#ifndef QT_NO_DEBUG
    lockHolder.store(self, std::memory_order_relaxed);
    ++lockCount;
#endif
}

void TablePrivate::unlockMutex()
{
#ifndef QT_NO_DEBUG
    if (--lockCount == 0)
        lockHolder.store(nullptr, std::memory_order_relaxed);
#endif
    mutex.unlock();
}

void Table::lock()
{
    d->lockMutex();
}

void Table::unlock()
{
    d->unlockMutex();
}

// --- timing ---

qint64 Table::nsecsElapsed() const
{
    return elapsed;
}

void Table::setNsecsElapsed(const qint64& nsecs)
{
    elapsed = nsecs;
}

qint64 Table::nsecsElapsedTotal()
{
    return nsecsInTables.load(std::memory_order_relaxed);
}

decimal Table::percentElapsed() const
{
    return LiveTable::shareInPercent(elapsed, nsecsElapsedTotal());
}

// --- what Record asks its table ---

bool LiveTable::tableHolds(const Table* table, const Record& record)
{
    const MasterIndex* master = table->masterIndex();
    return master && master->contains(record);
}

QString LiveTable::keyText(const Table* table, const Record& record)
{
    const MasterIndex* master = table->masterIndex();
    return master ? master->toText(record) : QString();
}

Record LiveTable::findByKey(const Table* table, const QString& key)
{
    const MasterIndex* master = table->masterIndex();
    return master && !key.isEmpty() ? master->find(master->fromText(key), -1) : Record();
}
