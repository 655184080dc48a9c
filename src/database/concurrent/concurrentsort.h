// SPDX-License-Identifier: MIT
#pragma once

#include "concurrent/blockingmap.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

/// A stable sort that spreads large ranges over the threads of Qt's global pool.
///
/// The templates work on every random-access iterator: pointers, iterators of vectors and those of
/// a PartitionList. Elements are moved, never copied. The order object is a strict weak order;
/// copies of it are called from several threads at once, so it may only read.
///
/// An exception of any type that the order object throws reaches the caller as that type, after all
/// threads have let go of the range. As with std::stable_sort the elements are then in no
/// particular order and some of them may be lost, so sort a copy (of pointers, say) if that
/// matters.
///
///     ConcurrentSort::stableSortHelper(list.begin(), list.end(), IndexSort::LessThan(index));
namespace ConcurrentSort {

/// The longest range that is sorted in the calling thread alone, in elements.
inline constexpr int serialLimit = 511;

/// How many chunks a longer range is cut into, whatever the number of processors.
inline constexpr int chunkCount = 8;

/// A range and the order to bring it into.
template <typename Iterator, typename LessThan>
struct BeginEnd
{
    BeginEnd() = default;
    /// The range [first, last), to be brought into `order`.
    BeginEnd(Iterator first, Iterator last, LessThan order)
        : begin(std::move(first))
        , end(std::move(last))
        , lessThan(std::move(order))
    {}

    Iterator begin;    ///< the first element
    Iterator end;      ///< behind the last one
    LessThan lessThan; ///< the order
};

/// Two sorted neighbours [begin, middle) and [middle, end) and the order to merge them by.
template <typename Iterator, typename LessThan>
struct BeginMiddleEnd
{
    BeginMiddleEnd() = default;
    /// The ranges [first, inner) and [inner, last), each in `order`.
    BeginMiddleEnd(Iterator first, Iterator inner, Iterator last, LessThan order)
        : begin(std::move(first))
        , middle(std::move(inner))
        , end(std::move(last))
        , lessThan(std::move(order))
    {}

    Iterator begin;    ///< of the left range
    Iterator middle;   ///< the end of the left range, and the begin of the right one
    Iterator end;      ///< of the right range
    LessThan lessThan; ///< the order
};

/// Sorts one range stably in the calling thread, with a temporary buffer.
template <typename Iterator, typename LessThan>
void sort(const BeginEnd<Iterator, LessThan>& range)
{
    std::stable_sort(range.begin, range.end, range.lessThan);
}

/// Merges two sorted neighbours in the calling thread; of equal elements those of the left range
/// come first.
template <typename Iterator, typename LessThan>
void inplaceMerge(const BeginMiddleEnd<Iterator, LessThan>& ranges)
{
    std::inplace_merge(ranges.begin, ranges.middle, ranges.end, ranges.lessThan);
}

/// Where a range of n elements is cut: chunk i holds the elements [cut(n, i), cut(n, i + 1)).
constexpr qint64 cut(qint64 n, int i)
{
    return n * i / chunkCount;
}

/// Sorts [begin, end) stably and returns when it is done: up to 511 elements in the calling thread,
/// more of them as eight chunks on the pool that are merged in three levels, the last of which is
/// the calling thread's. O(n log n) comparisons.
template <typename Iterator, typename LessThan>
void stableSortHelper(Iterator begin, Iterator end, LessThan lessThan)
{
    using Distance = typename std::iterator_traits<Iterator>::difference_type;
    using Chunk = BeginEnd<Iterator, LessThan>;
    using Merge = BeginMiddleEnd<Iterator, LessThan>;

    const qint64 n = end - begin;
    if (n <= serialLimit) {
        sort(Chunk(begin, end, lessThan));
        return;
    }
    const auto at = [&](int i) { return begin + Distance(cut(n, i)); };
    const auto chunk = [&](int i) { return Chunk(at(i), at(i + 1), lessThan); };
    const auto merge = [&](int first, int width) {
        return Merge(at(first), at(first + width), at(first + 2 * width), lessThan);
    };

    std::array<Chunk, chunkCount> chunks = {chunk(0), chunk(1), chunk(2), chunk(3),
                                            chunk(4), chunk(5), chunk(6), chunk(7)};
    LiveTable::blockingMap(chunks, &sort<Iterator, LessThan>);
    std::array<Merge, 4> quarters = {merge(0, 1), merge(2, 1), merge(4, 1), merge(6, 1)};
    LiveTable::blockingMap(quarters, &inplaceMerge<Iterator, LessThan>);
    std::array<Merge, 2> halves = {merge(0, 2), merge(4, 2)};
    LiveTable::blockingMap(halves, &inplaceMerge<Iterator, LessThan>);
    inplaceMerge(merge(0, 4));
}

} // namespace ConcurrentSort
