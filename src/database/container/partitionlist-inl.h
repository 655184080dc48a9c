// SPDX-License-Identifier: MIT
// Bodies of partitionlist.h.
#pragma once

#include <QtGlobal>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace LiveTable {
inline int sumOfBytes(const quint8* bytes, int n) noexcept
{
    int sum = 0;
#ifdef __SSE2__
    // Sixteen at a time: the instruction for sums of differences, from zero.
    __m128i sums = _mm_setzero_si128();
    for (; n >= 16; bytes += 16, n -= 16) {
        const __m128i some = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
        sums = _mm_add_epi64(sums, _mm_sad_epu8(some, _mm_setzero_si128()));
    }
    if (n >= 8) {
        const __m128i some = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(bytes));
        sums = _mm_add_epi64(sums, _mm_sad_epu8(some, _mm_setzero_si128()));
        bytes += 8;
        n -= 8;
    }
    sum = _mm_cvtsi128_si32(sums) + _mm_cvtsi128_si32(_mm_srli_si128(sums, 8));
#endif
    while (n > 0)
        sum += bytes[--n];
    return sum;
}
} // namespace LiveTable

// --- one partition ---

template <typename T>
APartList<T>::~APartList()
{
    for (size_t i = 0; i < leaves.size(); ++i) {
        std::destroy_n(leaves[i].items, counts[i]);
        freeLeaf(leaves[i]);
    }
}

template <typename T>
int APartList<T>::capacity() const noexcept
{
    int places = 0;
    for (const Leaf& leaf : leaves)
        places += leaf.capacity;
    return places;
}

template <typename T>
const T& APartList<T>::at(int i) const
{
    Q_ASSERT(i >= 0 && i < total);
    const int leaf = leafOf(i);
    return leaves[static_cast<size_t>(leaf)].items[i];
}

template <typename T>
typename APartList<T>::Leaf APartList<T>::allocateLeaf(int capacity) const
{
    static_assert(sizeof(T) % alignof(quint64) == 0, "keys lie behind the items");
    const size_t places = static_cast<size_t>(capacity);
    const size_t words = static_cast<size_t>(owner->words);
    void* block = std::malloc(places * (sizeof(T) + words * sizeof(quint64)));
    if (!block)
        qBadAlloc();
    return {static_cast<T*>(block), capacity};
}

template <typename T>
void APartList<T>::freeLeaf(const Leaf& leaf) noexcept
{
    std::free(leaf.items);
}

template <typename T>
int APartList<T>::leafOf(int& offset) const noexcept
{
    int leaf = 0;
    while (offset >= counts[static_cast<size_t>(leaf)])
        offset -= counts[static_cast<size_t>(leaf++)];
    return leaf;
}

template <typename T>
void APartList<T>::reserveLeaves(int extra)
{
    const size_t wanted = leaves.size() + static_cast<size_t>(extra);
    if (wanted <= leaves.capacity() && wanted <= counts.capacity() && wanted <= firsts.capacity())
        return;
    const size_t roomy = std::max(wanted, leaves.size() * 2);
    leaves.reserve(roomy);
    counts.reserve(roomy);
    firsts.reserve(roomy);
}

template <typename T>
void APartList<T>::makeLeaves(int n)
{
    const int full = owner->words > 0 ? FilledLeaf : LeafCapacity;
    reserveLeaves((n + full - 1) / full);
    for (; n > 0; n -= full) {
        int capacity = LeafCapacity;
        while (capacity > FirstLeafCapacity && leaves.empty() && n <= capacity / 2)
            capacity /= 2;
        leaves.push_back(allocateLeaf(capacity));
        counts.push_back(0);
        firsts.insert(leafCount() - 1, SortKey());
    }
}

template <typename T>
void APartList<T>::putLeaf(int at, const Leaf& leaf, int count) noexcept
{
    leaves.insert(leaves.begin() + at, leaf);
    counts.insert(counts.begin() + at, static_cast<Count>(count));
    firsts.insert(at, SortKey());
    noteFirst(at);
    ++owner->shapes;
}

template <typename T>
void APartList<T>::dropLeaf(int at) noexcept
{
    freeLeaf(leaves[static_cast<size_t>(at)]);
    leaves.erase(leaves.begin() + at);
    counts.erase(counts.begin() + at);
    firsts.erase(at);
    ++owner->shapes;
}

template <typename T>
void APartList<T>::noteFirst(int leaf) noexcept
{
    const size_t i = static_cast<size_t>(leaf);
    if (owner->words > 0 && counts[i] > 0)
        firsts.set(leaf, keyAt(leaf, 0));
}

// Elements are moved as bytes: they are of a movable type.
template <typename T>
void APartList<T>::moveWithin(int leaf, int to, int from, int n) noexcept
{
    const Leaf& l = leaves[static_cast<size_t>(leaf)];
    std::memmove(static_cast<void*>(l.items + to), static_cast<const void*>(l.items + from),
                 static_cast<size_t>(n) * sizeof(T));
    for (int word = 0; word < owner->words; ++word) {
        quint64* keys = l.keys() + word * l.capacity;
        std::memmove(keys + to, keys + from, static_cast<size_t>(n) * sizeof(quint64));
    }
}

template <typename T>
void APartList<T>::copyOver(const Leaf& to, int at, const Leaf& source, int from,
                            int n) const noexcept
{
    std::memcpy(static_cast<void*>(to.items + at), static_cast<const void*>(source.items + from),
                static_cast<size_t>(n) * sizeof(T));
    for (int word = 0; word < owner->words; ++word)
        std::memcpy(to.keys() + word * to.capacity + at,
                    source.keys() + word * source.capacity + from,
                    static_cast<size_t>(n) * sizeof(quint64));
}

template <typename T>
SortKey APartList<T>::keyAt(int leaf, int offset) const noexcept
{
    const Leaf& l = leaves[static_cast<size_t>(leaf)];
    return {owner->words > 0 ? l.keys()[offset] : 0,
            owner->words > 1 ? l.keys()[l.capacity + offset] : 0};
}

template <typename T>
LiveTable::KeySpan APartList<T>::keysOf(int leaf) const noexcept
{
    const Leaf& l = leaves[static_cast<size_t>(leaf)];
    return {l.keys(), owner->words > 1 ? l.keys() + l.capacity : nullptr,
            counts[static_cast<size_t>(leaf)]};
}

template <typename T>
void APartList<T>::setKey(int leaf, int offset, SortKey key) noexcept
{
    const Leaf& l = leaves[static_cast<size_t>(leaf)];
    if (owner->words > 0)
        l.keys()[offset] = key.high;
    if (owner->words > 1)
        l.keys()[l.capacity + offset] = key.low;
}

template <typename T>
void APartList<T>::growLeaf(int leaf, int capacity)
{
    Leaf& old = leaves[static_cast<size_t>(leaf)];
    const Leaf grown = allocateLeaf(capacity);
    copyOver(grown, 0, old, 0, counts[static_cast<size_t>(leaf)]);
    freeLeaf(old);
    old = grown;
}

// Cuts a leaf in two at `at`; the second may be left empty, for an element about to come.
template <typename T>
void APartList<T>::splitLeaf(int leaf, int at)
{
    reserveLeaves(1);
    const int moved = counts[static_cast<size_t>(leaf)] - at;
    const Leaf right = allocateLeaf(LeafCapacity);
    copyOver(right, 0, leaves[static_cast<size_t>(leaf)], at, moved);
    counts[static_cast<size_t>(leaf)] = static_cast<Count>(at);
    putLeaf(leaf + 1, right, moved);
}

template <typename T>
void APartList<T>::openLeaf(int& leaf, int& offset, bool atListEnd)
{
    if (leaves.empty()) {
        reserveLeaves(1);
        putLeaf(0, allocateLeaf(FirstLeafCapacity), 0);
        return;
    }
    const int n = counts[static_cast<size_t>(leaf)];
    const int room = leaves[static_cast<size_t>(leaf)].capacity;
    if (n < room)
        return;
    if (room < LeafCapacity)
        return growLeaf(leaf, std::min(room * 2, int(LeafCapacity)));
    // A list that grows at its end keeps its leaves full.
    const int at = atListEnd && offset == n ? n : n / 2;
    splitLeaf(leaf, at);
    if (offset > at || at == n) {
        ++leaf;
        offset -= at;
    }
}

// Moves the next leaf's elements into this one where both are small.
template <typename T>
bool APartList<T>::mergeLeaf(int leaf) noexcept
{
    if (leaf < 0 || leaf + 1 >= leafCount())
        return false;
    const Leaf& left = leaves[static_cast<size_t>(leaf)];
    const int n = counts[static_cast<size_t>(leaf)];
    const int m = counts[static_cast<size_t>(leaf) + 1];
    if (n + m > LeafCapacity / 2 || n + m > left.capacity)
        return false;
    copyOver(left, n, leaves[static_cast<size_t>(leaf) + 1], 0, m);
    counts[static_cast<size_t>(leaf)] = static_cast<Count>(n + m);
    dropLeaf(leaf + 1);
    noteFirst(leaf);
    return true;
}

template <typename T>
void APartList<T>::shrinkAround(int leaf) noexcept
{
    if (counts[static_cast<size_t>(leaf)] == 0) {
        dropLeaf(leaf);
        mergeLeaf(leaf - 1);
        return;
    }
    mergeLeaf(leaf);
    mergeLeaf(leaf - 1);
}

// --- iterators ---

template <typename T>
template <bool Const>
typename PartitionList<T>::template Iterator<Const>& PartitionList<T>::Iterator<Const>::seek()
{
    if (!list || position >= list->total || position < 0) {
        position = list ? std::clamp(position, 0, list->total) : 0;
        current = leafBegin = leafEnd = nullptr;
        if (!list || position == list->total)
            return *this;
    }
    const Place p = list->place(position);
    const APartList<T>* part = list->parts.at(p.part);
    leafBegin = part->leaves[leaf(p)].items;
    leafEnd = leafBegin + part->counts[leaf(p)];
    current = leafBegin + p.offset;
    return *this;
}

// --- the list ---

template <typename T>
PartitionList<T>::PartitionList(int partitionSize)
    : maximum(std::max(partitionSize, 2))
{
    parts.append(nullptr);
}

template <typename T>
void PartitionList<T>::swap(PartitionList& other) noexcept
{
    std::swap(total, other.total);
    std::swap(maximum, other.maximum);
    std::swap(words, other.words);
    ++changes;
    ++other.changes;
    parts.swap(other.parts);
    partCounts.swap(other.partCounts);
    groupCounts.swap(other.groupCounts);
    partFirsts.swap(other.partFirsts);
    for (APartList<T>* part : qAsConst(parts))
        if (part)
            part->owner = this;
    for (APartList<T>* part : qAsConst(other.parts))
        if (part)
            part->owner = &other;
}

template <typename T>
void PartitionList<T>::clear() noexcept
{
    if (partCount() == 0)
        return;
    // The last release of an element may lead anywhere; by then the list is already empty.
    const QVector<APartList<T>*> detached = parts;
    parts = QVector<APartList<T>*>(1, nullptr);
    partCounts.clear();
    groupCounts.clear();
    partFirsts.clear();
    total = 0;
    ++changes;
    for (APartList<T>* part : detached)
        delete part;
}

template <typename T>
void PartitionList<T>::setKeyWords(int count)
{
    Q_ASSERT(total == 0 && count >= 0 && count <= 2);
    words = count;
}

template <typename T>
const T& PartitionList<T>::at(int i) const
{
    if (i < 0 || i >= total) {
        static const T none{};
        return none;
    }
    return at(place(i));
}

template <typename T>
typename PartitionList<T>::Place PartitionList<T>::locate(int i, bool toInsert) const noexcept
{
    if (partCount() == 0)
        return {0, 0, 0};
    // To insert, the end of the earlier of two neighbours is preferred.
    const int past = toInsert ? 1 : 0;
    size_t p = 0;
    for (size_t g = 0; i >= groupCounts[g] + past; ++g) {
        i -= groupCounts[g];
        p += GroupSize;
    }
    while (i >= partCounts[p] + past)
        i -= partCounts[p++];
    const auto& counts = parts.at(static_cast<int>(p))->counts;
    size_t l = 0;
    while (i >= counts[l] + past)
        i -= counts[l++];
    return {static_cast<int>(p), static_cast<int>(l), i};
}

template <typename T>
int PartitionList<T>::position(const Place& place) const noexcept
{
    if (partCount() == 0)
        return 0;
    int position = place.offset;
    const int group = place.part / GroupSize;
    for (int g = 0; g < group; ++g)
        position += groupCounts[static_cast<size_t>(g)];
    for (int p = group * GroupSize; p < place.part; ++p)
        position += partCounts[static_cast<size_t>(p)];
    return position + LiveTable::sumOfBytes(parts.at(place.part)->counts.data(), place.leaf);
}

template <typename T>
bool PartitionList<T>::normalize(Place& place) const noexcept
{
    if (partCount() == 0)
        return false;
    const APartList<T>* part = parts.at(place.part);
    if (place.offset < part->counts[leaf(place)])
        return true;
    if (place.leaf + 1 < part->leafCount())
        place = {place.part, place.leaf + 1, 0};
    else if (place.part + 1 < partCount())
        place = {place.part + 1, 0, 0};
    else
        return false;
    return true;
}

template <typename T>
bool PartitionList<T>::stepForward(Place& place) const noexcept
{
    Place next{place.part, place.leaf, place.offset + 1};
    if (!normalize(next))
        return false;
    place = next;
    return true;
}

template <typename T>
bool PartitionList<T>::stepBack(Place& place) const noexcept
{
    if (place.offset > 0) {
        --place.offset;
        return true;
    }
    if (place.leaf > 0) {
        --place.leaf;
    } else if (place.part > 0) {
        --place.part;
        place.leaf = parts.at(place.part)->leafCount() - 1;
    } else {
        return false;
    }
    place.offset = parts.at(place.part)->counts[leaf(place)] - 1;
    return true;
}

template <typename T>
void PartitionList<T>::setKey(const Place& p, SortKey key) noexcept
{
    APartList<T>* part = parts.at(p.part);
    part->setKey(p.leaf, p.offset, key);
    if (p.offset == 0) {
        part->noteFirst(p.leaf);
        noteFirst(p.part);
    }
}

template <typename T>
template <typename KeyOf>
void PartitionList<T>::rekey(KeyOf keyOf)
{
    PartitionList fresh(maximum);
    fresh.words = 1;
    forEachRun([&](const T* items, int n) {
        for (int i = 0; i < n; ++i)
            fresh.append(items[i], SortKey{keyOf(items[i]), 0});
    });
    swap(fresh);
}

// Whether a partition and its leaves stay as they are when one of a leaf's elements leaves.
template <typename T>
bool PartitionList<T>::staysWhole(int index, int leafAt) const noexcept
{
    const APartList<T>* part = parts.at(index);
    const auto leafTotal = [&](int l) {
        return l < 0 || l >= part->leafCount() ? int(APartList<T>::LeafCapacity)
                                               : int(part->counts[static_cast<size_t>(l)]);
    };
    const auto partTotal = [&](int p) {
        return p < 0 || p >= partCount() ? maximum : partCounts[static_cast<size_t>(p)];
    };
    const int left = leafTotal(leafAt) - 1;
    constexpr int joined = APartList<T>::LeafCapacity / 2;
    return left > 0 && left + leafTotal(leafAt - 1) > joined &&
           left + leafTotal(leafAt + 1) > joined &&
           part->total - 1 + partTotal(index - 1) >= minimumSize() &&
           part->total - 1 + partTotal(index + 1) >= minimumSize();
}

template <typename T>
bool PartitionList<T>::relocate(Place from, Place to, SortKey key) noexcept
{
    APartList<T>* source = parts.at(from.part);
    APartList<T>* target = parts.at(to.part);
    const bool samePart = from.part == to.part;
    const bool sameLeaf = samePart && from.leaf == to.leaf;
    if (!sameLeaf && target->counts[leaf(to)] == target->leaves[leaf(to)].capacity)
        return false;
    if (!samePart && target->total + 1 >= maximum)
        return false;
    if (!staysWhole(from.part, from.leaf))
        return false;
    T* const slot = source->leaves[leaf(from)].items + from.offset;
    alignas(T) unsigned char moved[sizeof(T)]; // as bytes: elements are of a movable type
    std::memcpy(moved, static_cast<const void*>(slot), sizeof(T));
    if (sameLeaf) {
        if (to.offset > from.offset) {
            --to.offset;
            source->moveWithin(from.leaf, from.offset, from.offset + 1, to.offset - from.offset);
        } else {
            source->moveWithin(from.leaf, to.offset + 1, to.offset, from.offset - to.offset);
        }
    } else {
        source->moveWithin(from.leaf, from.offset, from.offset + 1,
                           --source->counts[leaf(from)] - from.offset);
        target->moveWithin(to.leaf, to.offset + 1, to.offset,
                           target->counts[leaf(to)]++ - to.offset);
        if (!samePart) {
            countChanged(from.part, -1);
            countChanged(to.part, 1);
        }
    }
    std::memcpy(static_cast<void*>(target->leaves[leaf(to)].items + to.offset), moved, sizeof(T));
    target->setKey(to.leaf, to.offset, key);
    if (from.offset == 0) {
        source->noteFirst(from.leaf);
        noteFirst(from.part);
    }
    if (to.offset == 0) {
        target->noteFirst(to.leaf);
        noteFirst(to.part);
    }
    ++changes;
    return true;
}

template <typename T>
void PartitionList<T>::noteFirst(int part) noexcept
{
    if (words > 0)
        partFirsts.set(part, parts.at(part)->firsts.at(0));
}

template <typename T>
void PartitionList<T>::countChanged(int part, int by) noexcept
{
    parts.at(part)->total += by;
    partCounts[static_cast<size_t>(part)] += by;
    groupCounts[static_cast<size_t>(part / GroupSize)] += by;
    total += by;
}

template <typename T>
void PartitionList<T>::partsChanged() noexcept
{
    ++shapes;
    groupCounts.assign((partCounts.size() + GroupSize - 1) / GroupSize, 0);
    for (size_t p = 0; p < partCounts.size(); ++p)
        groupCounts[p / GroupSize] += partCounts[p];
}

template <typename T>
APartList<T>* PartitionList<T>::createPart(int at)
{
    // All that can fail comes first.
    std::unique_ptr<APartList<T>, void (*)(APartList<T>*)> part(new APartList<T>(this),
                                                                [](APartList<T>* p) { delete p; });
    partCounts.reserve(partCounts.size() + 1);
    partFirsts.reserve(partCounts.size() + 1);
    groupCounts.reserve(partCounts.size() / GroupSize + 1);
    parts.insert(at, part.get());
    partCounts.insert(partCounts.begin() + at, 0);
    partFirsts.insert(at, SortKey());
    partsChanged();
    return part.release();
}

template <typename T>
void PartitionList<T>::dropPart(int at) noexcept
{
    APartList<T>* part = parts.takeAt(at);
    partCounts.erase(partCounts.begin() + at);
    partFirsts.erase(at);
    partsChanged();
    delete part;
}

// Gives the elements from `at` on to a new partition behind this one.
template <typename T>
void PartitionList<T>::split(int index, int at)
{
    APartList<T>* part = parts.at(index);
    int leafAt = at;
    int leaf = part->leafOf(leafAt);
    if (leafAt > 0) {
        part->splitLeaf(leaf, leafAt);
        ++leaf;
    }
    const int moved = part->leafCount() - leaf;
    APartList<T>* next = createPart(index + 1);
    try {
        next->reserveLeaves(moved);
    } catch (...) {
        dropPart(index + 1);
        throw;
    }
    const int movedElements = part->total - at;
    for (int i = 0; i < moved; ++i) {
        const size_t from = static_cast<size_t>(leaf) + static_cast<size_t>(i);
        next->putLeaf(i, part->leaves[from], part->counts[from]);
    }
    part->leaves.resize(static_cast<size_t>(leaf));
    part->counts.resize(static_cast<size_t>(leaf));
    part->firsts.resize(leaf);
    countChanged(index, -movedElements);
    countChanged(index + 1, movedElements);
    noteFirst(index + 1);
}

// Joins the next partition into this one when together they are small enough.
template <typename T>
bool PartitionList<T>::join(int index)
{
    if (index < 0 || index + 1 >= partCount())
        return false;
    if (partCounts[static_cast<size_t>(index)] + partCounts[static_cast<size_t>(index) + 1] >=
        minimumSize())
        return false;
    APartList<T>* part = parts.at(index);
    APartList<T>* next = parts.at(index + 1);
    part->reserveLeaves(next->leafCount());
    const int seam = part->leafCount();
    for (int i = 0; i < next->leafCount(); ++i)
        part->putLeaf(part->leafCount(), next->leaves[static_cast<size_t>(i)],
                      next->counts[static_cast<size_t>(i)]);
    const int moved = next->total;
    next->leaves.clear();
    next->counts.clear();
    next->firsts.clear();
    countChanged(index + 1, -moved);
    countChanged(index, moved);
    dropPart(index + 1);
    part->mergeLeaf(seam - 1);
    noteFirst(index);
    return true;
}

template <typename T>
void PartitionList<T>::joinAround(int part)
{
    // Joining saves room and nothing else: where memory is short it may wait.
    try {
        join(part);
        join(part - 1);
    } catch (const std::bad_alloc&) {
    }
}

template <typename T>
void PartitionList<T>::joinPartitions()
{
    for (int p = 0; p < partCount(); ++p)
        while (join(p))
            ++changes;
}

template <typename T>
void PartitionList<T>::append(T value, SortKey key)
{
    const int last = partCount() - 1;
    if (last >= 0 && partCounts[static_cast<size_t>(last)] < maximum - 1) {
        APartList<T>* part = parts.at(last);
        int n = part->counts.back();
        if (words > 0 && n == APartList<T>::FilledLeaf) {
            part->reserveLeaves(1);
            part->putLeaf(part->leafCount(), part->allocateLeaf(APartList<T>::LeafCapacity), 0);
            n = 0;
        }
        if (n < part->leaves.back().capacity) { // what nearly all of a long run finds
            new (static_cast<void*>(part->leaves.back().items + n)) T(std::move(value));
            part->setKey(part->leafCount() - 1, n, key);
            ++part->counts.back();
            countChanged(last, 1);
            ++changes;
            if (n == 0)
                part->noteFirst(part->leafCount() - 1);
            return;
        }
        insertAt({last, part->leafCount() - 1, n}, std::move(value), key);
        return;
    }
    createPart(last + 1);
    insertAt({last + 1, 0, 0}, std::move(value), key); // which drops it where it must stay empty
}

template <typename T>
void PartitionList<T>::insert(int i, const T& value, SortKey key)
{
    insertAt(insertPlace(std::clamp(i, 0, total)), value, key);
}

template <typename T>
void PartitionList<T>::insert(int i, const QList<T>& values)
{
    Q_ASSERT(words == 0);
    i = std::clamp(i, 0, total);
    int done = 0;
    try {
        for (const T& value : values) {
            insert(i + done, value);
            ++done;
        }
    } catch (...) {
        while (done > 0)
            remove(i + --done);
        throw;
    }
}

template <typename T>
void PartitionList<T>::insertAt(Place place, T value, SortKey key)
{
    if (partCount() == 0)
        createPart(0);
    APartList<T>* part = parts.at(place.part);
    const bool atListEnd = place.part + 1 == partCount() && place.leaf + 1 >= part->leafCount();
    try {
        part->openLeaf(place.leaf, place.offset, atListEnd);
    } catch (...) {
        if (part->total == 0)
            dropPart(place.part);
        throw;
    }
    part->moveWithin(place.leaf, place.offset + 1, place.offset,
                     part->counts[leaf(place)] - place.offset);
    new (static_cast<void*>(part->leaves[leaf(place)].items + place.offset)) T(std::move(value));
    part->setKey(place.leaf, place.offset, key);
    ++part->counts[leaf(place)];
    countChanged(place.part, 1);
    if (place.offset == 0) {
        part->noteFirst(place.leaf);
        noteFirst(place.part);
    }
    ++changes;
    if (part->total >= maximum) {
        try {
            split(place.part, part->total / 2);
        } catch (const std::bad_alloc&) {
            // The element is in; the partition stays large until its next insertion.
        }
    }
}

template <typename T>
T PartitionList<T>::takeAt(Place place)
{
    APartList<T>* part = parts.at(place.part);
    T* const slot = part->leaves[leaf(place)].items + place.offset;
    T value(std::move(*slot));
    slot->~T();
    const int behind = --part->counts[leaf(place)] - place.offset;
    part->moveWithin(place.leaf, place.offset, place.offset + 1, behind);
    countChanged(place.part, -1);
    ++changes;
    part->noteFirst(place.leaf);
    part->shrinkAround(place.leaf);
    if (part->total == 0) {
        dropPart(place.part);
        return value;
    }
    noteFirst(place.part);
    joinAround(place.part);
    return value;
}

template <typename T>
void PartitionList<T>::remove(int i)
{
    if (i >= 0 && i < total)
        takeAt(place(i));
}

// Takes the elements of the ranges from `range` on out of one leaf, whose first element stands at
// `position`. Moves `range` on to the first that reaches behind the leaf.
template <typename T>
void PartitionList<T>::compactLeaf(APartList<T>* part, size_t l, int position,
                                   const RangeSet<int>& ranges, int& range, std::vector<T>& dead)
{
    const int leafAt = static_cast<int>(l);
    T* const items = part->leaves[l].items;
    const int n = part->counts[l];
    int kept = std::max(ranges.begin(range) - position, 0);
    int next = kept;
    for (;;) {
        const int from = std::clamp(ranges.begin(range) - position, next, n);
        const int to = std::clamp(ranges.end(range) - position, from, n);
        part->moveWithin(leafAt, kept, next, from - next);
        kept += from - next;
        for (int i = from; i < to; ++i) {
            dead.push_back(std::move(items[i]));
            items[i].~T();
        }
        next = to;
        if (ranges.end(range) - position > n)
            break;
        if (++range == ranges.rangeCount() || ranges.begin(range) - position >= n) {
            part->moveWithin(leafAt, kept, next, n - next);
            kept += n - next;
            break;
        }
    }
    part->counts[l] = static_cast<typename APartList<T>::Count>(kept);
    part->noteFirst(leafAt);
}

template <typename T>
void PartitionList<T>::removeRanges(const RangeSet<int>& ranges)
{
    std::vector<T> dead; // released when the list is whole again
    dead.reserve(static_cast<size_t>(std::min<qint64>(ranges.size(), total)));
    std::vector<std::pair<int, int>> touched; // partitions and their leaves
    touched.reserve(dead.capacity());
    int range = 0;
    while (range < ranges.rangeCount() && ranges.end(range) <= 0)
        ++range;
    int position = 0;
    for (int p = 0; p < partCount() && range < ranges.rangeCount(); ++p) {
        const int n = partCounts[static_cast<size_t>(p)];
        const int end = position + n;
        if (ranges.begin(range) < end) {
            APartList<T>* part = parts.at(p);
            const size_t deadBefore = dead.size();
            for (size_t l = 0; l < part->leaves.size() && range < ranges.rangeCount(); ++l) {
                const int leafEnd = position + part->counts[l];
                if (ranges.begin(range) < leafEnd) {
                    compactLeaf(part, l, position, ranges, range, dead);
                    touched.emplace_back(p, static_cast<int>(l));
                }
                position = leafEnd;
            }
            countChanged(p, -static_cast<int>(dead.size() - deadBefore));
        }
        position = end;
    }
    if (dead.empty())
        return;
    ++changes;
    // Backwards, so that what is dropped or joined does not move what is still to be looked at.
    for (auto it = touched.rbegin(); it != touched.rend(); ++it) {
        parts.at(it->first)->shrinkAround(it->second);
        if (std::next(it) == touched.rend() || std::next(it)->first != it->first)
            tidyPart(it->first);
    }
}

template <typename T>
void PartitionList<T>::tidyPart(int index)
{
    if (parts.at(index)->total == 0) {
        dropPart(index);
        joinAround(index); // those that were beside it are neighbours now
        return;
    }
    noteFirst(index);
    joinAround(index);
}

template <typename T>
template <typename ForEach, typename Next>
void PartitionList<T>::assign(int n, ForEach forEach, Next next)
{
    Q_ASSERT(total == 0);
    const int partRoom = maximum - 1;
    const auto sizeOf = [=](int p) { return std::min(partRoom, n - p * partRoom); };
    PartitionList fresh(maximum);
    fresh.words = words;
    std::vector<int> numbers;
    for (int p = 0; p < (n + partRoom - 1) / partRoom; ++p) {
        fresh.createPart(p);
        numbers.push_back(p);
    }
    // All room first: from there on nothing fails.
    APartList<T>* const* const made = fresh.parts.constData();
    forEach(numbers, [&](int p) { made[p]->makeLeaves(sizeOf(p)); });
    forEach(numbers, [&](int p) { writePart(made[p], p * partRoom, sizeOf(p), next); });
    for (const int p : numbers) {
        fresh.countChanged(p, sizeOf(p));
        fresh.noteFirst(p);
    }
    swap(fresh);
}

template <typename T>
template <typename Next>
void PartitionList<T>::writePart(APartList<T>* part, int first, int n, Next& next) noexcept
{
    const int full = part->owner->words > 0 ? APartList<T>::FilledLeaf : APartList<T>::LeafCapacity;
    for (int l = 0, i = first; l < part->leafCount(); ++l) {
        const size_t leafAt = static_cast<size_t>(l);
        T* const items = part->leaves[leafAt].items;
        const int count = std::min(full, first + n - i);
        for (int j = 0; j < count; ++j, ++i) {
            SortKey key;
            next(i, static_cast<void*>(items + j), &key);
            part->setKey(l, j, key);
        }
        part->counts[leafAt] = static_cast<typename APartList<T>::Count>(count);
        part->noteFirst(l);
    }
}

template <typename T>
template <typename Visit>
void PartitionList<T>::forEachRun(Visit visit) const
{
    for (const APartList<T>* part : parts) {
        if (!part)
            break;
        for (size_t l = 0; l < part->leaves.size(); ++l)
            visit(static_cast<const T*>(part->leaves[l].items), part->counts[l]);
    }
}

template <typename T>
template <typename Next>
void PartitionList<T>::reorder(Next next) noexcept
{
    int i = 0;
    for (int p = 0; p < partCount(); ++p) {
        APartList<T>* part = parts.at(p);
        for (int l = 0; l < part->leafCount(); ++l) {
            T* const items = part->leaves[static_cast<size_t>(l)].items;
            for (int j = 0; j < part->counts[static_cast<size_t>(l)]; ++j, ++i) {
                SortKey key;
                next(i, static_cast<void*>(items + j), &key);
                part->setKey(l, j, key);
            }
            part->noteFirst(l);
        }
        noteFirst(p);
    }
    ++changes;
}
