// SPDX-License-Identifier: MIT
// The searches of partitionlist.h.
#pragma once

#include <QtGlobal>

#include <algorithm>

namespace LiveTable {
// Narrows from..to, a run of ascending keys, to those that equal `key`.
inline void narrowToKey(const quint64* keys, quint64 key, int& from, int& to) noexcept
{
    from += countBelow(keys + from, to - from, key);
    if (from == to || keys[from] != key)
        to = from;
    else if (from + 1 == to || keys[from + 1] != key)
        to = from + 1;
    else
        to = static_cast<int>(std::upper_bound(keys + from + 1, keys + to, key) - keys);
}

// The key right above. False where there is none.
inline bool stepKey(SortKey& key, int words) noexcept
{
    if (words > 1 && ++key.low != 0)
        return true;
    return ++key.high != 0;
}
} // namespace LiveTable

// ahead(i) may ask for the memory of element i, which is one of the two that the next step may look
// at: so a step's wait goes on beside the one before.
template <typename T>
template <typename IsBefore, typename Ahead>
int PartitionList<T>::lastBefore(int n, IsBefore isBefore, Ahead ahead)
{
    int low = 0;
    while (n > 0) {
        const int half = n / 2;
        if (n > 2) {
            ahead(low + half / 2);
            ahead(low + half + 1 + (n - half - 1) / 2);
        }
        if (isBefore(low + half)) {
            low += half + 1;
            n -= half + 1;
        } else {
            n = half;
        }
    }
    return low - 1;
}

// The last of some runs whose first element is before the searched one; -1 when none is. `firsts`
// are the runs' first keys; isBefore(i) decides between equal ones.
template <typename T>
template <typename IsBefore>
int PartitionList<T>::lastFirst(LiveTable::KeySpan firsts, SortKey key, IsBefore isBefore)
{
    const int below = firsts.countBelow(key);
    if (below == firsts.count || firsts.at(below) != key)
        return below - 1;
    const int end =
        LiveTable::stepKey(key, firsts.low ? 2 : 1) ? firsts.countBelow(key) : firsts.count;
    return below + lastBefore(
                       end - below, [&](int i) { return isBefore(below + i); }, [](int) {});
}

template <typename T>
template <typename Before>
typename PartitionList<T>::Place PartitionList<T>::partitionPoint(bool byKey, SortKey key,
                                                                  Before before) const
{
    byKey = byKey && words > 0;
    using LiveTable::prefetchElement;
    const auto startsBefore = [&](int i) { return before(parts.at(i)->leaves[0].items[0]); };
    const int p = byKey ? lastFirst(partFirsts.span(words), key, startsBefore)
                        : lastBefore(partCount(), startsBefore, [](int) {});
    if (p < 0)
        return {0, 0, 0};
    const APartList<T>* part = parts.at(p);
    const auto leafStartsBefore = [&](int i) {
        return before(part->leaves[static_cast<size_t>(i)].items[0]);
    };
    const auto leafAhead = [&](int i) {
        prefetchElement(part->leaves[static_cast<size_t>(i)].items[0]);
    };
    const int l = std::max(0, byKey ? lastFirst(part->firsts.span(words), key, leafStartsBefore)
                                    : lastBefore(part->leafCount(), leafStartsBefore, leafAhead));
    const typename APartList<T>::Leaf& leafNow = part->leaves[static_cast<size_t>(l)];
    int from = 0;
    int to = part->counts[static_cast<size_t>(l)];
    if (byKey) {
        LiveTable::narrowToKey(leafNow.keys(), key.high, from, to);
        if (words > 1)
            LiveTable::narrowToKey(leafNow.keys() + leafNow.capacity, key.low, from, to);
    }
    LiveTable::prefetchLines(leafNow.items + from, leafNow.items + to);
    const int offset = from + 1 +
                       lastBefore(
                           to - from, [&](int i) { return before(leafNow.items[from + i]); },
                           [&](int i) { prefetchElement(leafNow.items[from + i]); });
    return {p, l, offset};
}

template <typename T>
void PartitionList<T>::search(KeySearch* first, int n) noexcept
{
    using LiveTable::KeySpan;
    using LiveTable::prefetchLines;
    KeySearch* const last = first + n;
    for (KeySearch* s = first; s < last; ++s) {
        const PartitionList* list = s->list;
        Q_ASSERT(list->words > 0 && list->total > 0);
        if (s->behindEquals)
            s->behindEquals = !LiveTable::stepKey(s->key, list->words); // all are before it
        s->keys = list->partFirsts.span(list->words);
        const int at = std::max(s->keys.countBelow(s->key) - 1, 0);
        s->place.part = at;
        s->part = list->parts.constData()[at];
        prefetchLines(s->part, s->part + 1);
    }
    for (KeySearch* s = first; s < last; ++s) {
        const int at = s->place.part;
        const bool isLast = at + 1 >= s->keys.count;
        const SortKey from = s->keys.at(at);
        const SortKey to = isLast ? from : s->keys.at(at + 1);
        s->keys = s->part->firsts.span(s->list->words);
        s->guess = isLast ? int(KeySpan::NoGuess) : s->keys.guess(s->key, from, to);
        s->keys.prefetch(s->guess);
        prefetchLines(s->part->counts.data(), s->part->counts.data() + s->keys.count);
        s->leaf = s->part->leaves.data();
        __builtin_prefetch(s->leaf + std::max(s->guess - 1, 0));
    }
    for (KeySearch* s = first; s < last; ++s) {
        const int at = std::max(s->keys.countBelow(s->key, s->guess) - 1, 0);
        const bool isLast = at + 1 >= s->keys.count;
        const SortKey from = s->keys.at(at);
        const SortKey to = isLast ? from : s->keys.at(at + 1);
        s->keys.count = s->part->counts[static_cast<size_t>(at)];
        s->guess = isLast ? int(KeySpan::NoGuess) : s->keys.guess(s->key, from, to);
        s->place.leaf = at;
        s->leaf += at;
        __builtin_prefetch(s->leaf);
    }
    for (KeySearch* s = first; s < last; ++s) {
        s->keys.high = s->leaf->keys();
        s->keys.low = s->keys.low ? s->leaf->keys() + s->leaf->capacity : nullptr;
        s->keys.prefetch(s->guess);
        if (s->guess >= 0)
            prefetchLines(s->leaf->items + std::max(s->guess - 8, 0),
                          s->leaf->items + std::min(s->guess + 8, s->keys.count));
    }
    for (KeySearch* s = first; s < last; ++s) {
        s->place.offset = s->keys.countBelow(s->key, s->guess);
        if (s->behindEquals)
            s->place = s->list->insertPlace(s->list->total);
        __builtin_prefetch(s->leaf->items + s->place.offset);
    }
}
