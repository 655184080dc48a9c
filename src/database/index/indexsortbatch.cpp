// SPDX-License-Identifier: MIT
// Sorted indexes: transactions of many rows.
#include "index/indexsortwork_p.h"
#include "table/table_p.h"

#include <QHash>

#include <algorithm>

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
    orders = static_cast<size_t>(n);
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
    sortByPlace();
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

// By one number each, which is far less to move about and to compare than an item.
void IndexSortWork::sortByPlace()
{
    struct Spot
    {
        quint64 at; // those without a place last
        const Item* item;
    };
    std::vector<Spot> spots;
    spots.reserve(items.size());
    for (const Item& item : items)
        spots.push_back({item.position < 0
                             ? ~quint64(0)
                             : quint64(item.place.part) << 32 | quint64(item.place.leaf) << 16 |
                                   quint64(item.place.offset),
                         &item});
    std::sort(spots.begin(), spots.end(), [](const Spot& a, const Spot& b) { return a.at < b.at; });
    std::vector<Item> sorted;
    sorted.reserve(items.size());
    for (const Spot& spot : spots)
        sorted.push_back(*spot.item);
    items.swap(sorted);
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

// Items that stand side by side and the unchanged records next to them, in order, as a chain.
std::vector<IndexSortWork::Node> IndexSortWork::neighbours(size_t first, size_t end) const
{
    std::vector<Node> nodes;
    nodes.reserve(end - first + 2);
    const auto add = [&](int item, const Place& place) {
        nodes.push_back({item, place, static_cast<int>(nodes.size()) - 1, -1});
    };
    Place place = items[first].place;
    if (list.stepBack(place))
        add(-1, place);
    for (size_t i = first; i < end; ++i)
        add(static_cast<int>(i), items[i].place);
    place = items[end - 1].place;
    if (list.stepForward(place))
        add(-1, place);
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
        if (node.item < 0)
            return list.keyAt(node.place);
        const Item& item = items[static_cast<size_t>(node.item)];
        return item.isLeaving && !item.isIncoming ? keyOf(*item.record) : item.key;
    };
    const Node& a = nodes[static_cast<size_t>(left)];
    const Node& b = nodes[static_cast<size_t>(right)];
    return order(key(a), record(a), key(b), record(b)) <= 0;
}

// Marks the updated records that must move.
void IndexSortWork::findOutOfOrder()
{
    size_t end = 0;
    for (size_t i = 0; i < items.size() && items[i].position >= 0; i = end) {
        end = i + 1;
        while (end < items.size() && items[end].position == items[end - 1].position + 1)
            ++end;
        Item& item = items[i];
        if (end - i > 1)
            findOutOfOrder(i, end);
        else if (!item.isLeaving && isOutOfOrder(item.place, item.key, *item.record))
            item.isLeaving = item.isIncoming = true;
    }
}

// The same among items that stand side by side. Who is out of order with a neighbour as the list
// stands moves, whatever becomes of that neighbour. One that looks right beside a neighbour that
// itself leaves may be wrong beside the next one, so whoever gets a new neighbour is looked at
// again.
void IndexSortWork::findOutOfOrder(size_t first, size_t end)
{
    std::vector<Node> nodes = neighbours(first, end);
    const auto item = [&](int node) -> Item* {
        const int i = node < 0 ? -1 : nodes[static_cast<size_t>(node)].item;
        return i < 0 ? nullptr : &items[static_cast<size_t>(i)];
    };
    const int n = static_cast<int>(nodes.size());
    bool fitsBefore = true;
    for (int i = 0; i < n; ++i) {
        const bool fitsBehind = fits(nodes, i, nodes[static_cast<size_t>(i)].next);
        Item* changed = item(i);
        if (changed && !changed->isLeaving && !(fitsBefore && fitsBehind))
            changed->isLeaving = changed->isIncoming = true;
        fitsBefore = fitsBehind;
    }
    std::vector<int> toLookAt;
    const auto leave = [&](int node) {
        const Node gone = nodes[static_cast<size_t>(node)];
        if (gone.previous >= 0)
            nodes[static_cast<size_t>(gone.previous)].next = gone.next;
        if (gone.next >= 0)
            nodes[static_cast<size_t>(gone.next)].previous = gone.previous;
        for (const int neighbour : {gone.next, gone.previous})
            if (item(neighbour))
                toLookAt.push_back(neighbour);
    };
    for (int i = n - 1; i >= 0; --i)
        if (const Item* gone = item(i); gone && gone->isLeaving)
            leave(i);
    while (!toLookAt.empty()) {
        const int at = toLookAt.back();
        toLookAt.pop_back();
        Item* changed = item(at);
        const Node& node = nodes[static_cast<size_t>(at)];
        if (changed->isLeaving || (fits(nodes, node.previous, at) && fits(nodes, at, node.next)))
            continue;
        changed->isLeaving = changed->isIncoming = true;
        leave(at);
    }
}

// What comes in: the inserted records, then the updated ones.
void IndexSortWork::takeIncoming(const QList<Record>& inserted)
{
    incoming.reserve(static_cast<size_t>(inserted.size()));
    for (const Record& record : inserted)
        if (q->filter(record))
            incoming.push_back({&record, keyOf(record), -1, -1});
    std::vector<const Item*> updated(orders, nullptr);
    for (const Item& item : items)
        if (item.isIncoming)
            updated[static_cast<size_t>(item.order)] = &item;
    for (const Item* item : updated)
        if (item)
            incoming.push_back({item->record, item->key, item->position, -1});
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
        const auto* const batch = incoming.data() + (end - i);
        for (int j = 0; j < i; ++j)
            searches[j] = {&list, batch[j].key, true};
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
