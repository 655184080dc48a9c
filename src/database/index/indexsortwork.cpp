// SPDX-License-Identifier: MIT
#include "index/indexsortwork_p.h"

#include "table/table_p.h"

#include <QHash>
#include <QScopeGuard>
#include <QSet>
#include <QtDebug>

#include <algorithm>

using LiveTable::RowPool;

// --- searches ---

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
            d->hints.reserve(static_cast<size_t>(outgoing + inserted.size()));
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
        d->hints.size() < static_cast<size_t>(removed.size() + updated.size()))
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

// --- single records ---

int IndexSortWork::insert(const Record& record, const Hint* hint)
{
    prepare();
    const SortKey key = keyToInsert(record);
    const Place* known = targetOf(hint, key);
    const Place place = known ? *known : upper(key, record);
    const int position = d->isObserved() ? list.position(place) : 0;
    d->insertAt(place, record, key);
    return position;
}

bool IndexSortWork::move(Place place, SortKey key, const Hint* hint, int& from, int& to)
{
    const bool tells = d->isObserved();
    from = to = tells ? list.position(place) : 0;
    if (!isOutOfOrder(place, key, list.at(place))) {
        if (list.isKeyed())
            list.setKey(place, key);
        return false;
    }
    const Place* known = targetOf(hint, key);
    if (known || isExact(key)) {
        const Place target = known ? *known : list.search(key, true);
        if (tells) {
            to = list.position(target);
            to -= to > from ? 1 : 0;
        }
        if (d->relocate(place, target, key))
            return true;
    }
    const int left = list.position(place);
    const Record record = d->takeAt(place);
    try {
        const Place target = upper(key, record);
        to = tells ? list.position(target) : 0;
        d->insertAt(target, record, key);
    } catch (...) {
        // The record must not be lost. Where it stood there is room; sorting will find its place.
        d->needsResort = true;
        d->insertAt(list.insertPlace(left), record, key);
        throw;
    }
    return true;
}

const IndexSortWork::Hint* IndexSortWork::hintOf(const Record& record) const
{
    const auto hint = std::find_if(d->hints.cbegin(), d->hints.cend(),
                                   [&](const Hint& h) { return h.row == record.row(); });
    return hint == d->hints.cend() ? nullptr : &*hint;
}

// Where an element of this key goes, if a hint tells it.
const IndexSortWork::Place* IndexSortWork::targetOf(const Hint* hint, SortKey key) const
{
    return hint && hint->hasTarget && hint->targetKey == key && d->hintsVersion == list.version()
               ? &hint->target
               : nullptr;
}

// Finds where a record stands: as it was before the transaction if nothing has moved since, else by
// its value, else by a scan. False when it is not here.
bool IndexSortWork::placeNow(const Record& record, const Hint* hint, Place& place) const
{
    if (hint && hint->state == Hint::Absent)
        return false;
    if (hint && hint->state == Hint::Found && d->hintsVersion == list.version()) {
        place = hint->place;
        return true;
    }
    if (find(record, place))
        return true;
    const int position = q->IndexList::indexOf(record);
    if (position >= 0)
        place = list.place(position);
    return position >= 0;
}

void IndexSortWork::takeOut(const Record& record)
{
    Place place{0, 0, 0};
    if (placeNow(record, hintOf(record), place))
        d->takeAt(place);
}

void IndexSortWork::applyOne(const Record& record, bool isRemoval, int firstColumn, int lastColumn)
{
    Place place{0, 0, 0};
    const Hint* hint = d->hintsVersion == list.version() ? hintOf(record) : nullptr;
    const bool isHere = placeNow(record, hint, place);
    if (isHere && !isRemoval && isSpared(firstColumn, lastColumn)) {
        if (d->isObserved())
            d->tellStayed(list.position(place), firstColumn, lastColumn);
        return;
    }
    const bool belongs = !isRemoval && q->filter(record);
    if (!isHere) {
        if (!belongs)
            return;
        const int position = insert(record, hint);
        if (d->isObserved())
            d->tellInserted(position);
        return;
    }
    if (!belongs) {
        const int position = d->isObserved() ? list.position(place) : 0;
        const Record taken = d->takeAt(place);
        if (d->isObserved())
            d->tellRemoved(position);
        return;
    }
    follow(place, keyOf(record), hint, firstColumn, lastColumn);
}

// A record at a place has changed: moves it if it must, and tells.
void IndexSortWork::follow(const Place& place, SortKey key, const Hint* hint, int firstColumn,
                           int lastColumn)
{
    int from = 0;
    int to = 0;
    const bool moved = move(place, key, hint, from, to);
    if (!d->isObserved())
        return;
    if (moved)
        d->tellMoved(from, to, firstColumn, lastColumn);
    else
        d->tellStayed(from, firstColumn, lastColumn);
}

void IndexSortWork::update(const Record& record, int firstColumn, int lastColumn, int position)
{
    if (d->needsResort)
        position = -1; // it will not hold
    if (d->heal())
        return;
    if (!q->filter(record)) {
        q->remove(record, -1);
        return;
    }
    Place place{0, 0, 0};
    if (position >= 0 && position < list.count()) {
        place = list.place(position);
    } else if (!find(record, place)) {
        const int found = q->IndexList::indexOf(record);
        if (found < 0) {
            q->add(record);
            return;
        }
        qWarning() << "update"
                   << "Full search can impact the performance";
        place = list.place(found);
    }
    follow(place, keyOf(list.at(place)), nullptr, firstColumn, lastColumn);
}

// --- exceptions of the host's functions ---

// A host's function threw while the transaction was applied. A view is built anew from the table at
// the next notification; the master, which holds the table's rows, gets its content right at once,
// without asking anybody.
void IndexSortWork::recover(const QList<Record>& removed, const QList<Record>& updated,
                            const QList<Record>& inserted)
{
    d->hints.clear();
    if (!d->isMaster) {
        d->needsRebuild = true;
        d->tellReset();
        return;
    }
    d->needsResort = true;
    const auto drop = [this](const Record& record) {
        const int position = q->IndexList::indexOf(record);
        if (position >= 0)
            d->takeAt(list.place(position));
    };
    std::for_each(removed.cbegin(), removed.cend(), drop);
    const auto hold = [&](const Record& record) {
        if (RowPool::tag(record.row()) == 0)
            d->append(record, d->keys == IndexListPrivate::ArrivalNumbers ? keyToInsert(record)
                                                                          : SortKey());
    };
    for (const Record& record : updated)
        if (!removed.contains(record))
            hold(record);
    std::for_each(inserted.cbegin(), inserted.cend(), hold);
    d->tellReset();
}

// --- whole transactions ---

void IndexSortWork::apply(const QList<Record>& removed, const QList<Record>& updated,
                          int firstColumn, int lastColumn, const QList<Record>& inserted)
{
    if (removed.size() + updated.size() == 1 && inserted.isEmpty()) {
        applyOne(removed.isEmpty() ? updated.first() : removed.first(), updated.isEmpty(),
                 firstColumn, lastColumn);
        return;
    }
    if (updated.isEmpty() && !d->isObserved() && removed.size() + inserted.size() <= FewRecords) {
        for (const Record& record : removed)
            takeOut(record);
        for (const Record& record : inserted)
            if (q->filter(record))
                insert(record);
        return;
    }
    if (updated.isEmpty() && removed.isEmpty() && inserted.size() > list.count() / 2) {
        appendAll(inserted);
        return;
    }
    prepare();
    spares = isSpared(firstColumn, lastColumn);
    collect(removed, listsUpdates() ? updated : QList<Record>());
    findPositions(d->hints);
    decide();
    if (!spares)
        findOutOfOrder();
    takeIncoming(inserted);
    if (incoming.size() <= static_cast<size_t>(list.count()) / 2) {
        sortIncoming();
    } else { // as in appendAll()
        RangeSet<int> leaving;
        for (const Item& item : items)
            if (item.position >= 0 && item.isLeaving)
                leaving.addRange(item.position, item.position + 1);
        d->removeRanges(leaving);
        for (const Incoming& one : incoming)
            d->append(*one.record, d->keys == IndexListPrivate::ArrivalNumbers
                                       ? keyToInsert(*one.record)
                                       : one.key);
        q->resort();
        return;
    }
    putIncoming();
    if (d->isObserved())
        tellAll(firstColumn, lastColumn);
}

// Each row once; a removal wins over an update.
void IndexSortWork::collect(const QList<Record>& removed, const QList<Record>& updated)
{
    const int n = removed.size() + updated.size();
    items.reserve(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        const bool isRemoval = i < removed.size();
        const Record& record = isRemoval ? removed.at(i) : updated.at(i - removed.size());
        items.push_back({&record, i, -1, {0, 0, 0}, SortKey(), isRemoval, isRemoval, false});
    }
    if (d->table && TablePrivate::get(d->table.data())->isDistinct)
        return;
    std::sort(items.begin(), items.end(), [](const Item& a, const Item& b) {
        return *a.record != *b.record ? *a.record < *b.record : a.order < b.order;
    });
    items.erase(std::unique(items.begin(), items.end(),
                            [](const Item& a, const Item& b) { return *a.record == *b.record; }),
                items.end());
}

void IndexSortWork::findPositions(const std::vector<Hint>& hints)
{
    const bool hintsAreGood = d->hintsVersion == list.version();
    std::vector<Item*> missing;
    for (Item& item : items) {
        const size_t i = static_cast<size_t>(item.order);
        const bool known = hintsAreGood && i < hints.size() && hints[i].row == item.record->row();
        if (known && hints[i].state == Hint::Absent)
            continue;
        if (known && hints[i].state == Hint::Found)
            item.place = hints[i].place;
        else if (!find(*item.record, item.place)) {
            missing.push_back(&item);
            continue;
        }
        item.position = 0;
    }
    if (!missing.empty())
        scanFor(missing);
    std::sort(items.begin(), items.end(), [](const Item& a, const Item& b) {
        if ((a.position < 0) != (b.position < 0))
            return b.position < 0;
        if (a.place.part != b.place.part)
            return a.place.part < b.place.part;
        return a.place.leaf != b.place.leaf ? a.place.leaf < b.place.leaf
                                            : a.place.offset < b.place.offset;
    });
    Place last{-1, 0, 0};
    int leafBegin = 0;
    for (Item& item : items) {
        if (item.position < 0)
            break;
        if (item.place.part != last.part || item.place.leaf != last.leaf) {
            last = {item.place.part, item.place.leaf, 0};
            leafBegin = list.position(last);
        }
        item.position = leafBegin + item.place.offset;
    }
}

// One pass for all that no search has found.
void IndexSortWork::scanFor(std::vector<Item*>& missing)
{
    QHash<Record, Item*> wanted;
    for (Item* item : missing)
        wanted.insert(*item->record, item);
    int position = 0;
    list.forEachRun([&](const Record* records, int n) {
        for (int i = 0; i < n; ++i, ++position)
            if (Item* item = wanted.value(records[i], nullptr)) {
                item->position = position;
                item->place = list.place(position);
            }
    });
}

// Who stays, who leaves, who comes in.
void IndexSortWork::decide()
{
    for (Item& item : items) {
        if (item.isRemoval || (spares && item.position >= 0))
            continue;
        if (!q->filter(*item.record)) {
            item.isLeaving = true;
            continue;
        }
        item.key = keyOf(*item.record);
        item.isIncoming = item.position < 0;
    }
}

// The changed records and the unchanged ones next to them, in order, as a chain.
std::vector<IndexSortWork::Node> IndexSortWork::neighbours() const
{
    std::vector<Node> nodes;
    nodes.reserve(items.size() * 3);
    const auto add = [&](int item, int position, const Place& place) {
        nodes.push_back({item, position, place, static_cast<int>(nodes.size()) - 1, -1});
    };
    for (size_t i = 0; i < items.size() && items[i].position >= 0; ++i) {
        const int position = items[i].position;
        const int before = nodes.empty() ? -1 : nodes.back().position;
        Place place = items[i].place;
        if (position > 0 && before < position - 1 && list.stepBack(place))
            add(-1, position - 1, place);
        add(static_cast<int>(i), position, items[i].place);
        const bool nextIsItem = i + 1 < items.size() && items[i + 1].position == position + 1;
        place = items[i].place;
        if (!nextIsItem && list.stepForward(place))
            add(-1, position + 1, place);
    }
    for (size_t i = 0; i + 1 < nodes.size(); ++i)
        nodes[i].next = static_cast<int>(i) + 1;
    return nodes;
}

bool IndexSortWork::fits(const std::vector<Node>& nodes, int left, int right) const
{
    if (left < 0 || right < 0)
        return true;
    const auto record = [&](const Node& node) -> const Record& {
        return node.item >= 0 ? *items[static_cast<size_t>(node.item)].record : list.at(node.place);
    };
    const auto key = [&](const Node& node) {
        if (node.item >= 0)
            return items[static_cast<size_t>(node.item)].key;
        return list.keyAt(node.place);
    };
    const Node& a = nodes[static_cast<size_t>(left)];
    const Node& b = nodes[static_cast<size_t>(right)];
    return order(key(a), record(a), key(b), record(b)) <= 0;
}

// Marks the updated records that must move. A record that looks right beside a neighbour that
// itself moves may be wrong beside the next one, so whoever gets a new neighbour is looked at
// again.
void IndexSortWork::findOutOfOrder()
{
    std::vector<Node> nodes = neighbours();
    const auto item = [&](int node) -> Item* {
        const int i = node < 0 ? -1 : nodes[static_cast<size_t>(node)].item;
        return i < 0 ? nullptr : &items[static_cast<size_t>(i)];
    };
    const auto unlink = [&](int node) {
        const Node gone = nodes[static_cast<size_t>(node)];
        if (gone.previous >= 0)
            nodes[static_cast<size_t>(gone.previous)].next = gone.next;
        if (gone.next >= 0)
            nodes[static_cast<size_t>(gone.next)].previous = gone.previous;
    };
    std::vector<int> toLookAt;
    for (int i = static_cast<int>(nodes.size()) - 1; i >= 0; --i) {
        if (const Item* changed = item(i)) {
            if (changed->isLeaving)
                unlink(i);
            else
                toLookAt.push_back(i);
        }
    }
    while (!toLookAt.empty()) {
        const int at = toLookAt.back();
        toLookAt.pop_back();
        Item* changed = item(at);
        const Node& node = nodes[static_cast<size_t>(at)];
        if (changed->isLeaving || (fits(nodes, node.previous, at) && fits(nodes, at, node.next)))
            continue;
        changed->isLeaving = changed->isIncoming = true;
        unlink(at);
        for (const int neighbour : {node.next, node.previous})
            if (item(neighbour))
                toLookAt.push_back(neighbour);
    }
}

// What comes in: the inserted records, then the updated ones.
void IndexSortWork::takeIncoming(const QList<Record>& inserted)
{
    incoming.reserve(static_cast<size_t>(inserted.size()));
    for (const Record& record : inserted)
        if (q->filter(record))
            incoming.push_back({&record, keyOf(record), -1, -1});
    std::vector<const Item*> updated;
    for (const Item& item : items)
        if (item.isIncoming)
            updated.push_back(&item);
    std::sort(updated.begin(), updated.end(),
              [](const Item* a, const Item* b) { return a->order < b->order; });
    for (const Item* item : updated)
        incoming.push_back({item->record, item->key, item->position, -1});
}

// So many come in that sorting all is less than placing each; often they are in order.
void IndexSortWork::appendAll(const QList<Record>& inserted)
{
    prepare();
    bool isInOrder = true;
    Place last{0, 0, 0};
    const Record* previous = nullptr;
    SortKey previousKey;
    if (!list.isEmpty()) {
        last = list.place(list.count() - 1);
        previous = &list.at(last);
        previousKey = list.keyAt(last);
    }
    for (const Record& record : inserted) {
        if (!q->filter(record))
            continue;
        const SortKey key = keyToInsert(record);
        isInOrder = isInOrder && (!previous || order(previousKey, *previous, key, record) <= 0);
        d->append(record, key);
        previous = &record;
        previousKey = key;
    }
    resort(isInOrder);
}

// As the virtual call, which has little to do where the order is right already.
void IndexSortWork::resort(bool isFresh)
{
    d->isFresh = isFresh;
    const auto done = qScopeGuard([this] { d->isFresh = false; });
    q->resort();
}

void IndexSortWork::sortIncoming()
{
    const auto isBefore = [this](const Incoming& a, const Incoming& b) {
        return order(a.key, *a.record, b.key, *b.record) < 0;
    };
    if (!std::is_sorted(incoming.begin(), incoming.end(), isBefore))
        std::stable_sort(incoming.begin(), incoming.end(), isBefore);
}

void IndexSortWork::putIncoming()
{
    RangeSet<int> leaving;
    for (const Item& item : items) {
        if (item.position < 0)
            break;
        if (item.isLeaving)
            leaving.addRange(item.position, item.position + 1);
        else if (list.isKeyed() && !spares)
            list.setKey(item.place, item.key);
    }
    // A row that only moves keeps its number and its tag.
    if (!leaving.isEmpty())
        d->removeRanges(leaving);
    if (d->keys == IndexListPrivate::SortKeys)
        putByKey();
    else
        putOneByOne();
}

void IndexSortWork::putOneByOne()
{
    for (Incoming& one : incoming) {
        if (d->keys == IndexListPrivate::ArrivalNumbers)
            one.key = SortKey{++d->lastArrival, 0};
        const Place place = upper(one.key, *one.record);
        if (d->isObserved())
            one.to = list.position(place);
        d->insertAt(place, *one.record, one.key);
    }
}

// From the last to the first, so that what is inserted does not move the places before it.
void IndexSortWork::putByKey()
{
    int end = static_cast<int>(incoming.size());
    int equals = 0; // how many are in that equal the last one
    while (end > 0) {
        KeySearch searches[SideBySide];
        int i = std::min(int(SideBySide), end);
        for (int j = 0; j < i; ++j)
            searches[j] = {&list, incoming[static_cast<size_t>(end - i + j)].key, true};
        if (!list.isEmpty())
            PartitionList<Record>::search(searches, i);
        bool continues = equals > 0; // with what equals the last one that was in before the search
        for (const quint32 shape = list.shape(); i > 0 && list.shape() == shape;) {
            const auto later = incoming.begin() + end;
            Incoming& one = incoming[static_cast<size_t>(--end)];
            const bool repeats = equals > 0 && later->key == one.key &&
                                 order(one.key, *one.record, later->key, *later->record) == 0;
            continues = continues && repeats;
            equals = repeats ? equals + 1 : 1;
            Place place = list.isEmpty() ? Place{0, 0, 0} : searches[--i].place;
            if (continues || isDoubtful(place, one.key, true)) {
                place = upper(one.key, *one.record);
                if (repeats) // it belongs before those, which came after it
                    place = list.insertPlace(list.position(place) - equals + 1);
            }
            if (d->isObserved())
                one.to = list.position(place) + end;
            d->insertAt(place, *one.record, one.key);
        }
    }
}

// Turns what happened into positions: of the old list for what left, of the new one for the rest.
void IndexSortWork::tellAll(int firstColumn, int lastColumn)
{
    std::vector<int> removed;
    std::vector<int> inserted;
    std::vector<int> changed;
    std::vector<IndexChange::Move> moved;
    for (const Incoming& one : incoming) { // sorted, so these are the final positions
        if (one.from < 0)
            inserted.push_back(one.to);
        else
            moved.push_back({one.from, one.to});
    }
    int left = 0;  // how many before an item have left the list
    size_t in = 0; // how many of the incoming stand before it
    for (const Item& item : items) {
        if (item.position < 0)
            break;
        if (item.isLeaving) {
            ++left;
            if (!item.isIncoming)
                removed.push_back(item.position);
            continue;
        }
        const int between = item.position - left;
        while (in < incoming.size() && incoming[in].to <= between + static_cast<int>(in))
            ++in;
        changed.push_back(between + static_cast<int>(in));
    }
    IndexChange change;
    change.removed = removed.data();
    change.removedCount = static_cast<int>(removed.size());
    change.moved = moved.data();
    change.movedCount = static_cast<int>(moved.size());
    change.inserted = inserted.data();
    change.insertedCount = static_cast<int>(inserted.size());
    change.changed = changed.data();
    change.changedCount = static_cast<int>(changed.size());
    change.firstColumn = firstColumn;
    change.lastColumn = lastColumn;
    if (!removed.empty() || !moved.empty() || !inserted.empty() || !changed.empty())
        d->tell(change);
}
