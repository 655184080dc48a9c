// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "concurrent/concurrentsort.h"
#include "container/partitionlist.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace LiveTable {

/// A row during a sort: its key and its bare pointer, moved about without counting.
struct SortItem
{
    SortKey key;
    unsigned char* row;
};

/// Sorts items stably by `lessThan`, which must put a smaller key first, on the threads of Qt's
/// global pool while the caller waits. What lessThan throws reaches the caller.
///
/// Where the keys tell many apart, the items are first dealt out to buckets between splitters taken
/// from a sample of their keys (W. D. Frazer and A. C. McKellar, "Samplesort", 1970), so that each
/// is moved once over a distance and then sorted within the cache; else by merging chunks.
template <typename LessThan>
class KeyedSort
{
public:
    KeyedSort(std::vector<SortItem>& sorted, LessThan order)
        : items(sorted)
        , lessThan(order)
    {}

    /// `byKey` where the items have keys at all.
    void run(bool byKey)
    {
        if (std::is_sorted(items.begin(), items.end(), lessThan))
            return;
        if (!byKey || items.size() < SmallestDealt || !deal()) {
            ConcurrentSort::stableSortHelper(items.data(), items.data() + items.size(), lessThan);
            return;
        }
        std::vector<int> buckets;
        for (int bucket = 0; bucket < Buckets; ++bucket)
            buckets.push_back(bucket);
        blockingMap(buckets, [this](int bucket) {
            const auto at = static_cast<size_t>(bucket);
            std::stable_sort(dealt.begin() + begins[at], dealt.begin() + begins[at + 1], lessThan);
        });
        items.swap(dealt);
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
            sample.push_back(items[(i * 2654435761u) % n].key);
        std::sort(sample.begin(), sample.end());
        for (size_t i = 1; i < Buckets; ++i)
            splitters.push_back(sample[i * Sampled]);
    }

    // Puts the items into `dealt`, bucket after bucket, each in its old order. False when one
    // bucket gets so many that this was no help.
    bool deal()
    {
        chooseSplitters();
        std::vector<quint8> bucketOf(items.size());
        std::vector<Chunk> chunks;
        const auto n = static_cast<qint64>(items.size());
        for (int i = 0; i < Chunks; ++i)
            chunks.push_back({static_cast<size_t>(n * i / Chunks),
                              static_cast<size_t>(n * (i + 1) / Chunks),
                              std::vector<int>(Buckets)});
        blockingMap(chunks, [&](Chunk& chunk) {
            for (size_t i = chunk.begin; i < chunk.end; ++i) {
                const int bucket = countBelow(splitters.data(), Buckets - 1, items[i].key);
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
        if (largest > next / 4)
            return false;
        dealt.resize(items.size());
        blockingMap(chunks, [&](Chunk& chunk) {
            for (size_t i = chunk.begin; i < chunk.end; ++i)
                dealt[static_cast<size_t>(chunk.counts[bucketOf[i]]++)] = items[i];
        });
        return true;
    }

    std::vector<SortItem>& items;
    LessThan lessThan;
    std::vector<SortKey> splitters;
    std::vector<int> begins; // of each bucket in `dealt`, and the end of the last
    std::vector<SortItem> dealt;
};

} // namespace LiveTable
