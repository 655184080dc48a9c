// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

#include <algorithm>
#include <vector>

/// An order-preserving key of up to 128 bits, kept beside an element: a list with one key word uses
/// `high` alone.
struct SortKey
{
    quint64 high = 0; ///< compared first
    quint64 low = 0;  ///< decides between equal first words
    friend bool operator==(SortKey a, SortKey b) { return a.high == b.high && a.low == b.low; }
    friend bool operator!=(SortKey a, SortKey b) { return !(a == b); }
    friend bool operator<(SortKey a, SortKey b)
    {
        // Without a branch: which of two keys is smaller is what nobody can predict.
        return (a.high < b.high) | ((a.high == b.high) & (a.low < b.low));
    }
};

namespace LiveTable {

/// Asks for the cache lines from `begin` to `end`, so that they come side by side instead of one
/// after the other as a search steps on them.
inline void prefetchLines(const void* begin, const void* end) noexcept
{
    constexpr quintptr lineSize = 64;
    for (quintptr line = reinterpret_cast<quintptr>(begin) & ~(lineSize - 1);
         line < reinterpret_cast<quintptr>(end); line += lineSize)
        __builtin_prefetch(reinterpret_cast<const void*>(line));
}

/// Asks for what a list's element points to, when a search is about to look at it. Types that point
/// to something have an overload of their own.
template <typename T>
inline void prefetchElement(const T&) noexcept
{}

/// How many of n ascending keys are below `key`. Without a branch to mispredict.
template <typename Key>
inline int countBelow(const Key* keys, int n, Key key) noexcept
{
    const Key* base = keys;
    auto left = static_cast<quint32>(n);
    while (left > 1) {
        const quint32 half = left / 2;
        base += half * static_cast<quint32>(base[half - 1] < key);
        left -= half;
    }
    return static_cast<int>(base - keys) + (left == 1 && *base < key ? 1 : 0);
}

/// A run of ascending keys, one array for each word, so that a search by one word reads as little
/// as it can. `low` is null where keys have one word.
struct KeySpan
{
    const quint64* high; ///< the first words
    const quint64* low;  ///< the second words, or null
    int count;           ///< keys in the run

    static constexpr int NoGuess = -1; ///< where guess() cannot tell
    static constexpr int Reach = 12;   ///< how far a good guess is off at most

    /// The i-th key, 0 <= i < count.
    SortKey at(int i) const noexcept { return {high[i], low ? low[i] : 0}; }
    /// About where a key lies in a run that begins at `first` and ends before `next`, if the keys
    /// are spread evenly. NoGuess where that cannot be told.
    int guess(SortKey key, SortKey first, SortKey next) const noexcept
    {
        if (first.high == next.high)
            return share(key.low, first.low, next.low);
        return low ? NoGuess : share(key.high, first.high, next.high);
    }
    /// Asks for what countBelow() with this guess will read.
    void prefetch(int guess) const noexcept
    {
        const int from = guess < 0 ? 0 : std::max(guess - Reach, 0);
        const int to = guess < 0 ? count : std::min(guess + Reach, count);
        prefetchLines(high + from, high + to);
        if (low)
            prefetchLines(low + from, low + to);
    }
    /// How many of the keys are below `key`.
    int countBelow(SortKey key, int guess = NoGuess) const noexcept
    {
        int from = 0;
        int n = count;
        if (guess >= 0) {
            const int left = std::max(guess - Reach, 0);
            const int right = std::min(guess + Reach, count);
            if ((left == 0 || at(left - 1) < key) && (right == count || !(at(right) < key))) {
                from = left;
                n = right - left;
            }
        }
        if (!low)
            return from + LiveTable::countBelow(high + from, n, key.high);
        while (n > 1) {
            const int half = n / 2;
            from += half * static_cast<int>(at(from + half - 1) < key);
            n -= half;
        }
        return from + (n == 1 && at(from) < key ? 1 : 0);
    }

private:
    int share(quint64 key, quint64 first, quint64 next) const noexcept
    {
        if (key <= first || next <= first)
            return 0;
        // Halves, since signed numbers become doubles in one step.
        const double part = static_cast<double>(static_cast<qint64>((key - first) >> 1)) /
                            static_cast<double>(static_cast<qint64>((next - first) >> 1 | 1));
        return part < 1 ? static_cast<int>(part * count) : count;
    }
};

/// Owned keys, as a KeySpan sees them.
class KeyColumns
{
public:
    int size() const noexcept { return static_cast<int>(high.size()); }
    size_t capacity() const noexcept { return std::min(high.capacity(), low.capacity()); }
    void reserve(size_t n)
    {
        high.reserve(n);
        low.reserve(n);
    }
    SortKey at(int i) const noexcept
    {
        return {high[static_cast<size_t>(i)], low[static_cast<size_t>(i)]};
    }
    KeySpan span(int words) const noexcept
    {
        return {high.data(), words > 1 ? low.data() : nullptr, size()};
    }
    void set(int i, SortKey key) noexcept
    {
        high[static_cast<size_t>(i)] = key.high;
        low[static_cast<size_t>(i)] = key.low;
    }
    /// After reserve() these two cannot fail.
    void insert(int i, SortKey key)
    {
        high.insert(high.begin() + i, key.high);
        low.insert(low.begin() + i, key.low);
    }
    void resize(int n)
    {
        high.resize(static_cast<size_t>(n));
        low.resize(static_cast<size_t>(n));
    }
    void erase(int i) noexcept
    {
        high.erase(high.begin() + i);
        low.erase(low.begin() + i);
    }
    void clear() noexcept
    {
        high.clear();
        low.clear();
    }
    void swap(KeyColumns& other) noexcept
    {
        high.swap(other.high);
        low.swap(other.low);
    }

private:
    std::vector<quint64> high;
    std::vector<quint64> low;
};

} // namespace LiveTable
