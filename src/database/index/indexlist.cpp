// SPDX-License-Identifier: MIT
#include "index/indexlist.h"

#include "base/icore.h"
#include "index/indexlist_p.h"
#include "index/masterindex.h"
#include "table/table_p.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <mutex>
#include <utility>

IndexObserver::IndexObserver() = default;
IndexObserver::~IndexObserver() = default;
void IndexObserver::indexDestroyed(const IndexList&) {}

// --- the list ---

void IndexListPrivate::insertAt(const Place& place, const Record& record, SortKey key)
{
    records.insertAt(place, record, key);
    tag(record, key);
}

Record IndexListPrivate::takeAt(const Place& place)
{
    Record record = records.takeAt(place);
    untag(record);
    return record;
}

void IndexListPrivate::append(Record record, SortKey key)
{
    unsigned char* const row = record.row();
    records.append(std::move(record), key);
    tag(Record::borrowed(row), key);
}

void IndexListPrivate::removeRanges(const RangeSet<int>& ranges)
{
    const auto forEach = [&](auto visit) {
        for (int i = 0; isMaster && i < ranges.rangeCount(); ++i) {
            const int end = std::min(ranges.end(i), records.count());
            for (int at = std::max(ranges.begin(i), 0); at < end; ++at)
                visit(records.place(at));
        }
    };
    forEach([this](const Place& place) { untag(records.at(place)); });
    try {
        records.removeRanges(ranges);
    } catch (...) { // short of memory: they are still in
        forEach([this](const Place& place) { tag(records.at(place), records.keyAt(place)); });
        throw;
    }
}

void IndexListPrivate::clear()
{
    if (isMaster)
        records.forEachRun([this](const Record* items, int n) {
            std::for_each(items, items + n, [this](const Record& record) { untag(record); });
        });
    records.clear();
    needsResort = needsRebuild = false;
}

void IndexListPrivate::moveBlock(int first, int last, int to)
{
    const int n = last - first + 1;
    if (first < 0 || n < 1 || last >= records.count() || to == first || to == last || to < 0 ||
        to > records.count() - n)
        return;
    // The whole list is ordered anew, for which memory is needed only before anything moves.
    std::vector<std::pair<unsigned char*, SortKey>> order;
    order.reserve(static_cast<size_t>(records.count()));
    for (int i = 0; i < records.count(); ++i) {
        const Place place = records.place(i);
        order.emplace_back(records.at(place).row(), records.keyAt(place));
    }
    const auto begin = order.begin();
    if (to < first)
        std::rotate(begin + to, begin + first, begin + last + 1);
    else
        std::rotate(begin + first, begin + last + 1, begin + to + n);
    lastArrival = keys == ArrivalNumbers ? static_cast<quint64>(records.count()) : 0;
    records.reorder([&](int i, void* slot, SortKey* key) {
        const auto& [row, oldKey] = order[static_cast<size_t>(i)];
        std::memcpy(slot, &row, sizeof(Record));
        *key = lastArrival > 0 ? SortKey{static_cast<quint64>(i) + 1, 0} : oldKey;
        tag(Record::borrowed(row), *key);
    });
    tellReset();
}

void IndexListPrivate::takeAll(PartitionList<Record>& kept)
{
    PartitionList<Record> fresh(records.partitionSize());
    fresh.setKeyWords(records.keyWords());
    fresh.swap(records);
    kept.swap(fresh);
}

void IndexListPrivate::putBack(PartitionList<Record>& kept, quint64 arrival) noexcept
{
    records.swap(kept);
    lastArrival = arrival;
    for (int i = 0; i < records.count(); ++i) {
        const Place place = records.place(i);
        tag(records.at(place), records.keyAt(place));
    }
}

void IndexListPrivate::renumber()
{
    lastArrival = 0;
    records.rekey([this](const Record& record) {
        ++lastArrival;
        tag(record, SortKey{lastArrival, 0});
        return lastArrival;
    });
}

bool IndexListPrivate::heal()
{
    if (!needsRebuild && !needsResort)
        return false;
    // add() and remove() heal as well, and a host's build() may call them.
    const bool rebuilds = std::exchange(needsRebuild, false);
    const bool resorts = std::exchange(needsResort, false);
    try {
        if (rebuilds)
            q->rebuild();
        else
            static_cast<IndexSort*>(q)->resort(); // no other kind is ever out of order
    } catch (...) {
        needsRebuild = needsRebuild || rebuilds;
        needsResort = needsResort || resorts;
        throw;
    }
    return rebuilds;
}

// --- observers ---

void IndexListPrivate::tell(const IndexChange& change)
{
    if (observers.size() == 1) { // as nearly always: nobody else can take it away
        observers.constFirst()->indexChanged(*q, change);
        return;
    }
    const QVector<IndexObserver*> told = observers;
    for (IndexObserver* observer : told)
        if (observers.contains(observer))
            observer->indexChanged(*q, change);
}

void IndexListPrivate::tellReset()
{
    const QVector<IndexObserver*> told = observers;
    for (IndexObserver* observer : told)
        if (observers.contains(observer))
            observer->indexReset(*q);
}

void IndexListPrivate::tellInserted(int position)
{
    IndexChange change;
    change.inserted = &position;
    change.insertedCount = 1;
    tell(change);
}

void IndexListPrivate::tellRemoved(int position)
{
    IndexChange change;
    change.removed = &position;
    change.removedCount = 1;
    tell(change);
}

void IndexListPrivate::tellMoved(int from, int to, int firstColumn, int lastColumn)
{
    const IndexChange::Move move{from, to};
    IndexChange change;
    change.moved = &move;
    change.movedCount = 1;
    change.firstColumn = firstColumn;
    change.lastColumn = lastColumn;
    tell(change);
}

void IndexListPrivate::tellStayed(int position, int firstColumn, int lastColumn)
{
    IndexChange change;
    change.changed = &position;
    change.changedCount = 1;
    change.firstColumn = firstColumn;
    change.lastColumn = lastColumn;
    tell(change);
}

void IndexList::addObserver(IndexObserver* observer)
{
    listData->observers.append(observer);
}

void IndexList::removeObserver(IndexObserver* observer)
{
    listData->observers.removeOne(observer);
}

// --- construction ---

namespace {

Table* knownTable(const QString& name)
{
    ICore* core = ICore::instance();
    return core && core->hasTable(name) ? core->table(name) : nullptr;
}

} // namespace

IndexList::IndexList(Table* table, bool autoAttach)
    : listData(new IndexListPrivate(this, table, autoAttach && table))
{
    if (listData->isAttached)
        table->addIndex(this);
}

IndexList::IndexList(const QString& tableName, bool autoAttach)
    : IndexList(knownTable(tableName), autoAttach)
{}

IndexList::~IndexList()
{
    const QVector<IndexObserver*> told = listData->observers;
    for (IndexObserver* observer : told)
        observer->indexDestroyed(*this);
    if (listData->table.isNull())
        return;
    TablePrivate* table = TablePrivate::get(listData->table.data());
    if (listData->isAttached)
        listData->table->removeIndex(this);
    // Also where its owner forgot to take it off.
    if (table->indexes.removeAll(this) > 0)
        ++table->indexesVersion;
    table->forgetNames(this);
}

// --- as an Index ---

void IndexList::clear()
{
    listData->clear();
    listData->tellReset();
}

void IndexList::build()
{
    Table* table = listData->table.data();
    const MasterIndex* master = table ? table->masterIndex() : nullptr;
    if (!master || static_cast<const IndexList*>(master) == this)
        return;
    table->lock();
    listData->needsRebuild = false;
    try {
        std::vector<Record> accepted;
        accepted.reserve(static_cast<size_t>(master->count()));
        for (const Record& record : *master)
            if (filter(record))
                accepted.push_back(record);
        for (Record& record : accepted)
            listData->append(std::move(record), SortKey());
    } catch (...) {
        listData->needsRebuild = true;
        table->unlock();
        throw;
    }
    table->unlock();
    listData->tellReset();
}

void IndexList::process(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                        int lastColumn, const QList<Record>& inserted)
{
    const bool isNew = listData->heal();
    try {
        if (isNew)
            Index::process({}, {}, firstColumn, lastColumn, {});
        else
            Index::process(removed, updated, firstColumn, lastColumn, inserted);
    } catch (...) {
        listData->markDamaged();
        throw;
    }
}

void IndexList::update(const Record& record, int firstColumn, int lastColumn, int position)
{
    if (listData->heal())
        return;
    try {
        Index::update(record, firstColumn, lastColumn, position);
    } catch (...) {
        listData->markDamaged();
        throw;
    }
}

void IndexList::add(const Record& record)
{
    if (listData->heal() && IndexList::indexOf(record) >= 0)
        return;
    listData->append(record, SortKey());
    if (listData->isObserved())
        listData->tellInserted(count() - 1);
}

void IndexList::remove(const Record& record, int position)
{
    std::exception_ptr failure;
    try {
        listData->heal();
        if (position < 0 || position >= count() || listData->records.at(position) != record)
            position = indexOf(record);
    } catch (...) { // of a host's compare or filter: the record goes all the same
        failure = std::current_exception();
        position = IndexList::indexOf(record);
    }
    if (position >= 0) {
        const Record taken = listData->takeAt(listData->records.place(position));
        if (listData->isObserved())
            listData->tellRemoved(position);
    }
    if (failure)
        std::rethrow_exception(failure);
}

bool IndexList::filter(const Record&) const
{
    return true;
}

bool IndexList::contains(const Record& record) const
{
    return indexOf(record) != -1;
}

int IndexList::indexOf(const Record& record) const
{
    int position = 0;
    int found = -1;
    listData->records.forEachRun([&](const Record* items, int n) {
        if (found >= 0)
            return;
        const Record* at = std::find(items, items + n, record);
        if (at != items + n)
            found = position + static_cast<int>(at - items);
        position += n;
    });
    return found;
}

QString IndexList::getClassName() const
{
    return QStringLiteral("IndexList");
}

// --- as a list ---

int IndexList::count() const
{
    return listData->records.count();
}

PartitionList<Record>::const_iterator IndexList::begin() const
{
    return listData->records.cbegin();
}

PartitionList<Record>::const_iterator IndexList::end() const
{
    return listData->records.cend();
}

Table* IndexList::table() const
{
    return listData->table.data();
}

Table* IndexList::table()
{
    return listData->table.data();
}

void IndexList::move(int first, int last, int to)
{
    listData->moveBlock(first, last, to);
}

void IndexList::removeRanges(const RangeSet<int>& ranges)
{
    if (ranges.isEmpty())
        return;
    listData->removeRanges(ranges);
    listData->tellReset();
}

const Record& IndexList::at(int i) const
{
    return i >= 0 && i < count() ? listData->records.at(i) : Record::null;
}

const PartitionList<Record>& IndexList::records() const
{
    return listData->records;
}
