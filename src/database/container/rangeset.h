// SPDX-License-Identifier: MIT
#pragma once

#include <QList>
#include <QtGlobal>

#include <algorithm>

/// A set of whole numbers kept as half-open ranges, for instance the positions of a list that are
/// to be deleted.
///
/// A plain value over an implicitly shared list: copies are cheap, and an object that one thread
/// changes needs the caller's lock, as any container. Nothing is thrown. T is an integer type; the
/// library uses RangeSet<int>. The largest value of T itself cannot be a member, as it cannot lie
/// below the end of a range.
///
/// Cost, with n ranges: a look-up is O(log n), a change O(log n) and the moving of what follows it,
/// so a set that is built in ascending order costs O(1) a call.
///
///     RangeSet<int> rows;
///     rows.addRange(5, 8);              // 5 6 7
///     rows.addRange(3, 5);              // touches: one range 3..7
///     rows.remove(4, 6);                // 3, 6 7
///     for (int i = 0; i < rows.rangeCount(); ++i)
///         use(rows.begin(i), rows.end(i));
template <typename T>
class RangeSet
{
public:
    /// An empty set.
    RangeSet() = default;

    /// How many separate ranges there are. Ranges never touch: two neighbours are one range.
    int rangeCount() const { return int(bounds.size() / 2); }

    /// The first member of range i, 0 <= i < rangeCount(). Ranges ascend.
    const T& begin(int i) const { return bounds.at(2 * i); }

    /// The number after the last member of range i, 0 <= i < rangeCount().
    const T& end(int i) const { return bounds.at(2 * i + 1); }

    /// The boundaries b0, e0, b1, e1, ...: strictly increasing, an even number of them.
    const QList<T>& boundaries() const { return bounds; }

    /// Whether there is no member.
    bool isEmpty() const { return bounds.isEmpty(); }

    /// The number of members, which may exceed the range of T.
    qint64 size() const
    {
        qint64 sum = 0;
        for (int i = 0; i < rangeCount(); ++i)
            sum += qint64(end(i)) - qint64(begin(i));
        return sum;
    }

    /// Whether the value is a member. O(log ranges).
    bool contains(const T& value) const
    {
        const auto after = std::upper_bound(bounds.cbegin(), bounds.cend(), value);
        return isEnd(int(after - bounds.cbegin()));
    }

    /// Adds [from, to). Ranges that overlap or touch it become one with it. Does nothing when
    /// `from` is not below `to`.
    void addRange(const T& from, const T& to);

    /// Removes [from, to), cutting ranges that stick out of it. Does nothing when `from` is not
    /// below `to`.
    void remove(const T& from, const T& to);

    /// The part of the set inside [from, to); empty when `from` is not below `to`.
    RangeSet intersect(const T& from, const T& to) const;

    /// Removes every member.
    void clear() { bounds.clear(); }

    /// Whether both have the same members.
    friend bool operator==(const RangeSet& a, const RangeSet& b) { return a.bounds == b.bounds; }
    friend bool operator!=(const RangeSet& a, const RangeSet& b) { return !(a == b); }

private:
    /// Whether boundary i ends a range. A place before an end lies inside the range or on its end.
    static bool isEnd(int i) { return i % 2 != 0; }

    /// The first boundary, from `start` on, that is not less than `value`.
    int lowerBound(const T& value, int start) const
    {
        const auto first = bounds.cbegin();
        return int(std::lower_bound(first + start, bounds.cend(), value) - first);
    }

    /// Puts the first `count` of `values` in the place of boundaries [first, last).
    void replace(int first, int last, const T* values, int count);

    QList<T> bounds;
};

Q_DECLARE_TYPEINFO(RangeSet<int>, Q_MOVABLE_TYPE);

template <typename T>
void RangeSet<T>::addRange(const T& from, const T& to)
{
    if (!(from < to))
        return;
    // The arguments may refer to boundaries of this very set.
    T fresh[2] = {from, to};
    if (bounds.isEmpty() || bounds.constLast() < fresh[0]) { // as when a set is filled in order
        bounds.append(fresh[0]);
        bounds.append(fresh[1]);
        return;
    }
    int count = 0;
    const int first = lowerBound(fresh[0], 0);
    int last = lowerBound(fresh[1], first);
    if (!isEnd(first))
        ++count;
    if (!isEnd(last)) {
        if (last < bounds.size() && bounds.at(last) == fresh[1])
            ++last; // the range that begins where this one ends is joined; its end stays
        else
            fresh[count++] = fresh[1];
    }
    replace(first, last, fresh, count);
}

template <typename T>
void RangeSet<T>::remove(const T& from, const T& to)
{
    if (!(from < to))
        return;
    T fresh[2] = {from, to};
    int count = 0;
    const int first = lowerBound(fresh[0], 0);
    int last = lowerBound(fresh[1], first);
    if (isEnd(first))
        ++count;
    if (isEnd(last)) {
        if (bounds.at(last) == fresh[1])
            ++last; // nothing of that range is left behind `to`
        else
            fresh[count++] = fresh[1];
    }
    replace(first, last, fresh, count);
}

template <typename T>
RangeSet<T> RangeSet<T>::intersect(const T& from, const T& to) const
{
    RangeSet result;
    if (!(from < to))
        return result;
    const int first = lowerBound(from, 0) / 2;
    const int last = (lowerBound(to, 2 * first) + 1) / 2;
    for (int i = first; i < last; ++i) {
        // Only the outer two ranges can stick out.
        const T low = std::max(from, begin(i));
        const T high = std::min(to, end(i));
        if (low < high) {
            result.bounds.append(low);
            result.bounds.append(high);
        }
    }
    return result;
}

template <typename T>
void RangeSet<T>::replace(int first, int last, const T* values, int count)
{
    int used = 0;
    for (; used < count && first < last; ++used, ++first)
        bounds[first] = values[used];
    for (; used < count; ++used, ++first)
        bounds.insert(first, values[used]);
    if (last > first)
        bounds.erase(bounds.begin() + first, bounds.begin() + last);
}
