// SPDX-License-Identifier: MIT
// Where a row stands in a sorted index, and where it would go.
#include "index/indexsortwork_p.h"
#include "table/table_p.h"

#include <algorithm>

using LiveTable::RowPool;

void IndexSortWork::prepare()
{
    if (!list.isEmpty())
        return;
    q->prepare();
    if (d->keepsArrival && d->isMaster)
        d->keys = IndexListPrivate::ArrivalNumbers;
    else
        d->keys = q->sortKeyWords() > 0 ? IndexListPrivate::SortKeys : IndexListPrivate::NoKeys;
    list.setKeyWords(d->keys == IndexListPrivate::SortKeys         ? std::min(q->sortKeyWords(), 2)
                     : d->keys == IndexListPrivate::ArrivalNumbers ? 1
                                                                   : 0);
}

SortKey IndexSortWork::keyOf(const Record& record) const
{
    if (d->keys == IndexListPrivate::SortKeys)
        return q->sortKey(record);
    return d->keys == IndexListPrivate::ArrivalNumbers ? SortKey{RowPool::tag(record.row()), 0}
                                                       : SortKey();
}

SortKey IndexSortWork::keyToInsert(const Record& record)
{
    return d->keys == IndexListPrivate::ArrivalNumbers ? SortKey{++d->lastArrival, 0}
                                                       : keyOf(record);
}

int IndexSortWork::order(SortKey keyA, const Record& a, SortKey keyB, const Record& b) const
{
    if (d->keys == IndexListPrivate::SortKeys) {
        if (keyA != keyB)
            return keyA < keyB ? -1 : 1;
        if (q->isSortKeyExact(keyA))
            return 0;
    }
    return q->compare(a, b);
}

IndexSortWork::Place IndexSortWork::lower(const Record& record) const
{
    return lower(keyToSearch(record), record);
}

// Whether an element beside `place` has this key and may still differ: then compare() must tell.
bool IndexSortWork::isDoubtful(Place place, SortKey key, bool isBehind) const
{
    return !isExact(key) && (isBehind ? list.stepBack(place) : list.normalize(place)) &&
           list.keyAt(place) == key;
}

IndexSortWork::Place IndexSortWork::lower(SortKey key, const Record& record) const
{
    const bool isKeyed = d->keys == IndexListPrivate::SortKeys;
    if (isKeyed && !list.isEmpty()) {
        const Place place = list.search(key, false);
        if (!isDoubtful(place, key, false))
            return place;
    }
    return list.partitionPoint(
        isKeyed, key, [&](const Record& element) { return q->compare(element, record) < 0; });
}

IndexSortWork::Place IndexSortWork::upper(const Record& record) const
{
    return upper(keyToSearch(record), record);
}

IndexSortWork::Place IndexSortWork::upper(SortKey key, const Record& record) const
{
    const bool isKeyed = d->keys == IndexListPrivate::SortKeys;
    if (isKeyed && !list.isEmpty()) {
        const Place place = list.search(key, true);
        if (!isDoubtful(place, key, true))
            return place;
    } else if (!list.isEmpty()) { // what comes last in time often comes last in order
        const Place end = list.insertPlace(list.count());
        Place last = end;
        if (list.stepBack(last) && q->compare(list.at(last), record) <= 0)
            return end;
    }
    return list.partitionPoint(
        isKeyed, key, [&](const Record& element) { return q->compare(element, record) <= 0; });
}

std::pair<int, int> IndexSortWork::equalRange(const Record& record) const
{
    if (list.isEmpty())
        return {0, 0};
    const SortKey key = d->keys == IndexListPrivate::SortKeys ? q->sortKey(record) : SortKey();
    Place first = lower(key, record);
    if (!list.normalize(first) || order(list.keyAt(first), list.at(first), key, record) != 0)
        return {0, 0};
    return {list.position(first), list.position(upper(key, record))};
}

bool IndexSortWork::find(const Record& record, Place& place) const
{
    if (list.isEmpty() || record.isNull() || record.table() != d->table.data())
        return false;
    if (d->keys == IndexListPrivate::ArrivalNumbers) {
        place = list.search(SortKey{RowPool::tag(record.row()), 0}, false);
        return list.normalize(place) && list.at(place) == record;
    }
    place = lower(record);
    if (!list.normalize(place))
        return false;
    if (list.at(place) == record)
        return true;
    // Among its equals only the row itself will do. Most runs of equals are short.
    const SortKey key = list.keyAt(place);
    if (isExact(key)) {
        for (int i = 0; i < 8; ++i) {
            if (!list.stepForward(place) || list.keyAt(place) != key)
                return false;
            if (list.at(place) == record)
                return true;
        }
    }
    Place end = upper(record);
    const bool hasEnd = list.normalize(end);
    const auto atEnd = [&] {
        return hasEnd && place.part == end.part && place.leaf == end.leaf &&
               place.offset == end.offset;
    };
    for (bool more = !atEnd(); more; more = list.stepForward(place) && !atEnd())
        if (list.at(place) == record)
            return true;
    return false;
}

void IndexSortWork::locateAhead(const std::vector<const IndexSort*>& indexes,
                                const QList<Record>& removed, const QList<Record>& updated,
                                int firstColumn, int lastColumn, const QList<Record>& inserted,
                                const QList<Record>& changed) noexcept
{
    struct Goal
    {
        const IndexSort* index;
        const Record* record; // of which the place is sought, or null: the target of its content
        Hint* hint;
    };
    // Their room is kept, for they are made with every update; whoever gets here from a host's
    // function meanwhile has some of his own.
    static thread_local std::vector<Goal> keptGoals;
    static thread_local std::vector<KeySearch> keptSearches;
    std::vector<Goal> goals = std::move(keptGoals);
    std::vector<KeySearch> searches = std::move(keptSearches);
    goals.clear();
    searches.clear();
    const int outgoing = removed.size() + updated.size();
    try {
        for (const IndexSort* index : indexes) {
            IndexSortWork work(index);
            IndexListPrivate* d = work.d;
            if (d->keys != IndexListPrivate::SortKeys || d->records.isEmpty() || d->needsRebuild ||
                d->needsResort || work.canSkip(removed, firstColumn, lastColumn, inserted))
                continue;
            d->hints.clear();
            d->hints.reserve(static_cast<size_t>(outgoing) + static_cast<size_t>(inserted.size()));
            d->hintsVersion = d->records.version();
            const bool isMoved = index->isAffected(firstColumn, lastColumn);
            for (int i = 0; i < outgoing; ++i) {
                const int update = i - removed.size();
                const Record& record = update < 0 ? removed.at(i) : updated.at(update);
                d->hints.push_back({record.row(), {0, 0, 0}, Hint::Unknown});
                goals.push_back({index, &record, &d->hints.back()});
                searches.emplace_back(&d->records, index->sortKey(record), false);
                if (update < 0 || update >= changed.size() || !isMoved)
                    continue;
                goals.push_back({index, nullptr, &d->hints.back()});
                searches.emplace_back(&d->records, index->sortKey(changed.at(update)), true);
            }
            for (const Record& record : inserted) {
                d->hints.push_back({record.row(), {0, 0, 0}, Hint::Absent});
                goals.push_back({index, nullptr, &d->hints.back()});
                searches.emplace_back(&d->records, index->sortKey(record), true);
            }
        }
        for (size_t i = 0; i < goals.size(); ++i)
            goals[i].hint->targetKey = searches[i].key;
        PartitionList<Record>::search(searches.data(), static_cast<int>(searches.size()));
        for (size_t i = 0; i < goals.size(); ++i) {
            const Goal& goal = goals[i];
            if (goal.record) {
                IndexSortWork(goal.index).locateFrom(searches[i].place, *goal.record, *goal.hint);
            } else {
                goal.hint->target = searches[i].place;
                goal.hint->hasTarget =
                    !IndexSortWork(goal.index)
                         .isDoubtful(goal.hint->target, goal.hint->targetKey, true);
            }
        }
    } catch (...) {
        for (const IndexSort* index : indexes)
            IndexListPrivate::get(index)->hints.clear();
    }
    keptGoals = std::move(goals);
    keptSearches = std::move(searches);
}

// Whether the hints are of these records, and the list has not changed since.
bool IndexSortWork::knowsAll(const QList<Record>& removed, const QList<Record>& updated) const
{
    if (d->hintsVersion != list.version() ||
        d->hints.size() < static_cast<size_t>(removed.size()) + static_cast<size_t>(updated.size()))
        return false;
    const Hint* hint = d->hints.data();
    for (const QList<Record>* records : {&removed, &updated})
        for (int i = 0; i < records->size(); ++i, ++hint)
            if (hint->row != records->at(i).row())
                return false;
    return true;
}

void IndexSortWork::locateAll(const QList<Record>& removed, const QList<Record>& updated) const
{
    if (knowsAll(removed, updated))
        return;
    const int n = removed.size() + updated.size();
    d->hints.clear();
    d->hints.reserve(static_cast<size_t>(n));
    const auto record = [&](int at) -> const Record& {
        return at < removed.size() ? removed.at(at) : updated.at(at - removed.size());
    };
    if (d->keys != IndexListPrivate::SortKeys || list.isEmpty()) {
        for (int i = 0; i < n; ++i)
            d->hints.push_back(locate(record(i)));
        return;
    }
    for (int i = 0; i < n; i += SideBySide) {
        KeySearch searches[SideBySide];
        const int count = std::min(int(SideBySide), n - i);
        for (int j = 0; j < count; ++j)
            searches[j] = {&list, q->sortKey(record(i + j)), false};
        PartitionList<Record>::search(searches, count);
        for (int j = 0; j < count; ++j) {
            d->hints.push_back({record(i + j).row(), {0, 0, 0}, Hint::Unknown});
            locateFrom(searches[j].place, record(i + j), d->hints.back());
        }
    }
}

bool IndexSortWork::isUntold(const Record& record) const
{
    return d->table && TablePrivate::get(d->table.data())->untoldNow.contains(record.row());
}

IndexSortWork::Hint IndexSortWork::locate(const Record& record) const
{
    Hint hint{record.row(), Place{0, 0, 0}, Hint::Found};
    if (!find(record, hint.place)) {
        // One that the filter refuses is not here: no need to look everywhere.
        const bool isRefused = !isUntold(record) && !q->filter(record);
        hint.state = isRefused || list.isEmpty() ? Hint::Absent : Hint::Unknown;
    }
    return hint;
}

// The same from the first place of the record's key on.
void IndexSortWork::locateFrom(Place place, const Record& record, Hint& hint) const
{
    if (list.normalize(place) && list.at(place) == record) {
        hint.place = place;
        hint.state = Hint::Found;
        return;
    }
    const Hint found = locate(record);
    hint.place = found.place;
    hint.state = found.state;
}

bool IndexSortWork::canSkip(const QList<Record>& removed, int firstColumn, int lastColumn,
                            const QList<Record>& inserted) const
{
    return removed.isEmpty() && inserted.isEmpty() && !d->isObserved() &&
           isSpared(firstColumn, lastColumn);
}

bool IndexSortWork::isSpared(int firstColumn, int lastColumn) const
{
    if (!d->table)
        return false;
    const TablePrivate* table = TablePrivate::get(d->table.data());
    return !table->hasAbsentUpdates && table->untoldNow.isEmpty() &&
           !q->isAffected(firstColumn, lastColumn);
}

bool IndexSortWork::isOutOfOrder(const Place& place, SortKey key, const Record& record) const
{
    Place neighbour = place;
    if (list.stepBack(neighbour) &&
        order(list.keyAt(neighbour), list.at(neighbour), key, record) > 0)
        return true;
    neighbour = place;
    return list.stepForward(neighbour) &&
           order(key, record, list.keyAt(neighbour), list.at(neighbour)) > 0;
}
