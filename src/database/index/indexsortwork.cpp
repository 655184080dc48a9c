// SPDX-License-Identifier: MIT
// Sorted indexes: rows that come, go or change one by one.
#include "index/indexsortwork_p.h"

#include <QtDebug>

#include <algorithm>

using LiveTable::RowPool;

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

// By a plain binary search that asks compare() alone: which rows it looks at decides whether a
// record out of place is found all the same, and so whether update() warns.
int IndexSortWork::positionByRows(const Record& record) const
{
    if (d->keys == IndexListPrivate::ArrivalNumbers)
        return -1;
    const int first = q->searchBinary(record, -1, IndexSort::Compare(q));
    const auto end = q->end();
    for (auto it = first < 0 ? end : q->begin() + first; it != end; ++it) {
        if (*it == record)
            return it.index();
        if (q->compare(*it, record) != 0)
            break;
    }
    return -1;
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
    } else if (!find(record, place) || isOutOfOrder(place, keyOf(record), record)) {
        position = positionByRows(record);
        if (position < 0) {
            position = q->IndexList::indexOf(record);
            if (position < 0) {
                q->add(record);
                return;
            }
            qWarning() << "update"
                       << "Full search can impact the performance";
        }
        place = list.place(position);
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
