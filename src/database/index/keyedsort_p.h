// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "concurrent/concurrentsort.h"
#include "container/partitionlist.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <type_traits>
#include <utility>
#include <vector>

namespace LiveTable {

/// Room for items that nobody has written yet. A vector would write them all first, on one thread,
/// and the first touch of fresh memory is the dearest part of a large sort.
template <typename Item>
class Unwritten
{
    static_assert(std::is_trivially_copyable<Item>::value, "nothing is constructed or destroyed");

public:
    explicit Unwritten(size_t n)
        : items(static_cast<Item*>(std::malloc(std::max<size_t>(n, 1) * sizeof(Item))))
        , count(n)
    {
        if (!items)
            qBadAlloc();
    }
    size_t size() const { return count; }
    Item* begin() const { return items.get(); }
    Item* end() const { return items.get() + count; }
    Item& operator[](size_t i) const { return items.get()[i]; }

private:
    struct Free
    {
        void operator()(void* memory) const { std::free(memory); }
    };
    std::unique_ptr<Item, Free> items;
    size_t count;
};

/// A row during a sort: its key of so many words, and its bare pointer, moved about without
/// counting.
template <int Words>
struct SortItem
{
    quint64 words[Words];
    unsigned char* row;
    SortKey key() const { return {words[0], Words > 1 ? words[Words - 1] : 0}; }
    void setKey(SortKey key)
    {
        words[Words - 1] = key.low;
        words[0] = key.high;
    }
};
template <>
struct SortItem<0>
{
    unsigned char* row;
    SortKey key() const { return SortKey(); }
    void setKey(SortKey) {}
};

/// Sorts items stably by `lessThan`, which must put a smaller key first, on the threads of Qt's
/// global pool while the caller waits. What lessThan throws reaches the caller.
///
/// Where the keys tell many apart, the items are first dealt out to buckets between splitters taken
/// from a sample of their keys (W. D. Frazer and A. C. McKellar, "Samplesort", 1970), so that each
/// is moved once over a distance and then sorted within the cache; else by merging chunks.
template <typename Item, typename LessThan>
class KeyedSort
{
public:
    KeyedSort(Unwritten<Item>& sorted, LessThan order)
        : items(sorted)
        , lessThan(order)
    {}

    /// `byKey` where the items have keys at all.
    void run(bool byKey)
    {
        if (std::is_sorted(items.begin(), items.end(), lessThan))
            return;
        if (byKey && items.size() >= SmallestDealt && chooseBuckets())
            deal();
        else
            ConcurrentSort::stableSortHelper(items.begin(), items.end(), lessThan);
    }

private:
    static constexpr size_t SmallestDealt = 20000;
    static constexpr int Buckets = 256;
    static constexpr int Sampled = 16; // for each bucket
    static constexpr int Chunks = 8;
    struct Chunk
    {
        size_t begin;
        size_t end;
        std::vector<int> counts; // of each bucket, then where its next item goes
    };

    void chooseSplitters()
    {
        // An uneven stride, so that no pattern in the rows falls in step with it.
        std::vector<SortKey> sample;
        const size_t n = items.size();
        for (size_t i = 0; i < size_t(Buckets) * Sampled; ++i)
            sample.push_back(items[(i * 2654435761u) % n].key());
        std::sort(sample.begin(), sample.end());
        for (size_t i = 1; i < Buckets; ++i)
            splitters.push_back(sample[i * Sampled]);
    }

    // Finds out how many items go to which bucket. False when one gets so many that dealing is no
    // help.
    bool chooseBuckets()
    {
        chooseSplitters();
        bucketOf.resize(items.size());
        const auto n = static_cast<qint64>(items.size());
        for (int i = 0; i < Chunks; ++i)
            chunks.push_back({static_cast<size_t>(n * i / Chunks),
                              static_cast<size_t>(n * (i + 1) / Chunks),
                              std::vector<int>(Buckets)});
        blockingMap(chunks, [this](Chunk& chunk) {
            for (size_t i = chunk.begin; i < chunk.end; ++i) {
                const int bucket = countBelow(splitters.data(), Buckets - 1, items[i].key());
                bucketOf[i] = static_cast<quint8>(bucket);
                ++chunk.counts[static_cast<size_t>(bucket)];
            }
        });
        int next = 0;
        int largest = 0;
        for (size_t bucket = 0; bucket < Buckets; ++bucket) {
            begins.push_back(next);
            for (Chunk& chunk : chunks) {
                const int count = std::exchange(chunk.counts[bucket], next);
                next += count;
            }
            largest = std::max(largest, next - begins.back());
        }
        begins.push_back(next);
        return largest <= next / 4;
    }

    // Puts the items together bucket after bucket, each in its old order, and sorts the buckets.
    void deal()
    {
        Unwritten<Item> dealt(items.size());
        blockingMap(chunks, [&](Chunk& chunk) {
            for (size_t i = chunk.begin; i < chunk.end; ++i)
                dealt[static_cast<size_t>(chunk.counts[bucketOf[i]]++)] = items[i];
        });
        std::vector<int> buckets(Buckets);
        std::iota(buckets.begin(), buckets.end(), 0);
        blockingMap(buckets, [&](int bucket) {
            const auto at = static_cast<size_t>(bucket);
            std::stable_sort(dealt.begin() + begins[at], dealt.begin() + begins[at + 1], lessThan);
        });
        std::swap(items, dealt);
    }

    Unwritten<Item>& items;
    LessThan lessThan;
    std::vector<SortKey> splitters;
    std::vector<quint8> bucketOf; // of each item
    std::vector<Chunk> chunks;
    std::vector<int> begins; // of each bucket once dealt, and the end of the last
};

} // namespace LiveTable
