// SPDX-License-Identifier: MIT
#include "index/indexsort.h"

#include "index/indexsortwork_p.h"

#include <algorithm>
#include <utility>

IndexSort::IndexSort(Table* table, bool autoAttach)
    : IndexList(table, autoAttach)
{}

IndexSort::IndexSort(const QString& tableName, bool autoAttach)
    : IndexList(tableName, autoAttach)
{}

IndexSort::~IndexSort() = default;

QString IndexSort::getClassName() const
{
    return QStringLiteral("IndexSort");
}

int IndexSort::sortKeyWords() const
{
    return 0;
}

SortKey IndexSort::sortKey(const Record&) const
{
    return SortKey();
}

bool IndexSort::isSortKeyExact(SortKey) const
{
    return false;
}

bool IndexSort::isAffected(int, int) const
{
    return true;
}

void IndexSort::prepare() {}

// --- filling ---

void IndexSort::build()
{
    IndexSortWork work(this);
    work.prepare();
    const bool isFresh = work.fillSorted();
    if (!isFresh)
        IndexList::build();
    work.resort(isFresh);
}

void IndexSort::resort()
{
    IndexListPrivate* d = listPrivate();
    const bool isFresh = std::exchange(d->isFresh, false);
    if (d->records.isEmpty())
        return;
    // Arrival numbers are all equal, and in their order.
    if (!isFresh && d->keys != IndexListPrivate::ArrivalNumbers) {
        d->needsResort = true; // until it has come to its end
        IndexSortWork(this).sortAll();
    }
    d->needsResort = false;
    d->tellReset();
}

void IndexSort::add(const Record& record)
{
    IndexListPrivate* d = listPrivate();
    if (d->heal() && IndexList::indexOf(record) >= 0)
        return;
    int position = 0;
    try {
        position = IndexSortWork(this).insert(record);
    } catch (...) {
        if (!d->isMaster) // which has not taken the row, and is right without it
            d->markDamaged();
        throw;
    }
    if (d->isObserved())
        d->tellInserted(position);
}

// --- transactions ---

void IndexSort::preprocess(const QList<Record>& removed, const QList<Record>& updated,
                           int firstColumn, int lastColumn, const QList<Record>& inserted,
                           const QList<Record>&)
{
    locate(removed, updated, firstColumn, lastColumn, inserted);
}

// Remembers where the records stand that are about to leave or change: now they can be found by
// their values, afterwards only by a scan.
void IndexSort::locate(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                       int lastColumn, const QList<Record>& inserted)
{
    IndexListPrivate* d = listPrivate();
    try {
        d->heal();
    } catch (...) {
        return; // process() tries again, and tells
    }
    const IndexSortWork work(this);
    if (work.canSkip(removed, firstColumn, lastColumn, inserted))
        return;
    const bool matters = d->isObserved() || !work.isSpared(firstColumn, lastColumn);
    work.locateAll(removed, matters ? updated : QList<Record>());
    d->hintsVersion = d->records.version();
}

void IndexSort::process(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                        int lastColumn, const QList<Record>& inserted)
{
    restartTimer();
    IndexListPrivate* d = listPrivate();
    IndexSortWork work(this);
    try {
        if (!d->heal() && !work.canSkip(removed, firstColumn, lastColumn, inserted))
            work.apply(removed, updated, firstColumn, lastColumn, inserted);
    } catch (...) {
        work.recover(removed, updated, inserted);
        addElapsed();
        throw;
    }
    d->hints.clear();
    addElapsed();
}

void IndexSort::update(const Record& record, int firstColumn, int lastColumn, int position)
{
    try {
        IndexSortWork(this).update(record, firstColumn, lastColumn, position);
    } catch (...) {
        listPrivate()->markDamaged();
        throw;
    }
}

// --- searches ---

int IndexSort::search(const Record& key, int after) const
{
    const IndexListPrivate* d = listPrivate();
    if (d->records.isEmpty() || key.isNull())
        return -1;
    PartitionList<Record>::Place place = IndexSortWork(this).lower(key);
    if (!d->records.normalize(place))
        return -1;
    int position = d->records.position(place);
    if (position <= after) {
        position = after + 1;
        if (position >= count())
            return -1;
        place = d->records.place(position);
    }
    return compare(d->records.at(place), key) == 0 ? position : -1;
}

int IndexSort::searchLast(const Record& key, int after) const
{
    const IndexListPrivate* d = listPrivate();
    if (d->records.isEmpty() || key.isNull())
        return -1;
    PartitionList<Record>::Place place = IndexSortWork(this).upper(key);
    if (!d->records.stepBack(place))
        return -1;
    const int position = d->records.position(place);
    return position > after && compare(d->records.at(place), key) == 0 ? position : -1;
}

int IndexSort::searchFull(const Record& key, int after) const
{
    if (key.isNull())
        return -1;
    int passed = 0;
    auto it = begin() + (std::clamp(after, -1, count() - 1) + 1);
    for (const auto last = end(); it != last; ++it, ++passed)
        if (compare(*it, key) == 0)
            return passed;
    return -1;
}

Record IndexSort::find(const Record& key, int after) const
{
    return at(search(key, after));
}

Record IndexSort::findFirst(const Record& key) const
{
    const PartitionList<Record>& records = listPrivate()->records;
    if (records.isEmpty() || key.isNull())
        return Record();
    const IndexSortWork work(this);
    const SortKey sought = work.keyToSearch(key);
    PartitionList<Record>::Place place = work.lower(sought, key);
    if (!records.normalize(place))
        return Record();
    const bool isEqual = work.isExact(sought) ? records.keyAt(place) == sought
                                              : compare(records.at(place), key) == 0;
    return isEqual ? records.at(place) : Record();
}

int IndexSort::indexOf(const Record& record) const
{
    PartitionList<Record>::Place place{0, 0, 0};
    if (IndexSortWork(this).find(record, place))
        return listPrivate()->records.position(place);
    return IndexList::indexOf(record);
}

int IndexSort::indexOfAdd(const Record& record) const
{
    if (listPrivate()->records.isEmpty())
        return 0;
    return listPrivate()->records.position(IndexSortWork(this).upper(record));
}

QMap<Record, int> IndexSort::indexOfs(QList<Record> records) const
{
    QMap<Record, int> positions;
    for (const Record& record : qAsConst(records)) {
        const int position = indexOf(record);
        if (position >= 0)
            positions.insert(record, position);
    }
    return positions;
}

void IndexSort::move(int first, int last, int to)
{
    IndexList::move(first, last, to);
}
