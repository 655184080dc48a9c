// SPDX-License-Identifier: MIT
// PartitionList::verify(), which only those include who call it.
#pragma once

#include "container/partitionlist.h"

template <typename T>
const char* APartList<T>::verify(bool isKeyed) const
{
    if (leaves.size() != counts.size() || leafCount() != firsts.size() || leaves.empty())
        return "a partition's leaves and their counts are not as many";
    int sum = 0;
    for (int l = 0; l < leafCount(); ++l) {
        const Leaf& leaf = leaves[static_cast<size_t>(l)];
        const int n = counts[static_cast<size_t>(l)];
        if (n == 0)
            return "a leaf is empty";
        if (n > leaf.capacity || leaf.capacity > LeafCapacity)
            return "a leaf holds more than it can";
        if (leaf.words != owner->words)
            return "a leaf has not the list's keys";
        if (isKeyed && firsts.at(l) != keyAt(l, 0))
            return "a leaf's first key is noted wrong";
        sum += n;
    }
    return sum == total ? nullptr : "a partition's count is not the sum of its leaves'";
}

template <typename T>
template <typename IsKeyOf>
const char* PartitionList<T>::verify(IsKeyOf isKeyOf) const
{
    const auto n = static_cast<size_t>(partCount());
    if (parts.isEmpty() || parts.constLast() || partCounts.size() != n ||
        partFirsts.size() != partCount() || groupCounts.size() != (n + GroupSize - 1) / GroupSize)
        return "the partitions and what is noted of them are not as many";
    std::vector<int> groups(groupCounts.size());
    int sum = 0;
    for (int p = 0; p < partCount(); ++p) {
        const APartList<T>* part = parts.at(p);
        if (!part || part->owner != this || part->total == 0)
            return "a partition is empty or another list's";
        if (const char* fault = part->verify(isKeyed()))
            return fault;
        if (part->total != partCounts[static_cast<size_t>(p)])
            return "a partition's count is noted wrong";
        if (isKeyed() && partFirsts.at(p) != part->firsts.at(0))
            return "a partition's first key is noted wrong";
        groups[static_cast<size_t>(p / GroupSize)] += part->total;
        sum += part->total;
    }
    if (sum != total || groups != groupCounts)
        return "the sum of the partitions is wrong";
    SortKey last;
    for (int p = 0; isKeyed() && p < partCount(); ++p) {
        const APartList<T>* part = parts.at(p);
        for (int l = 0; l < part->leafCount(); ++l) {
            for (int i = 0; i < part->counts[static_cast<size_t>(l)]; ++i) {
                const SortKey key = part->keyAt(l, i);
                if (key < last)
                    return "the keys do not ascend";
                if (!isKeyOf(part->leaves[static_cast<size_t>(l)].items[i], key))
                    return "an element's key is not its own";
                last = key;
            }
        }
    }
    for (size_t p = 0; p < n; ++p) {
        if (partCounts[p] >= maximum)
            return "a partition is too large";
        if (p > 0 && partCounts[p - 1] + partCounts[p] < minimumSize())
            return "two neighbours should be one partition";
    }
    return nullptr;
}
