// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <QString>
#include <QtGlobal>

/**
 * Up to 50 trading boards, each a pair of a group number and a board number within it, in the order
 * in which they were added. The same pair may occur more than once.
 *
 * A plain value of 404 bytes without padding: a 32-bit count and 50 pairs of 32-bit numbers. That
 * is also the form of a cell, whose bytes may come from a file: a count below 0 is taken as 0 and
 * one above 50 as 50 by everything here. Nothing throws.
 *
 * @code
 * boardlist boards;
 * boards.append(9, 1);
 * boards.append(10, 2);
 * boards.append(9, 3);
 * boards.toString(); // "10:2 9:1,3"
 * @endcode
 */
class LIVETABLE_EXPORT boardlist
{
public:
    /// The most pairs that a value holds.
    static constexpr int capacity = 50;

    /// Empty.
    constexpr boardlist() noexcept = default;

    /// Number of pairs, 0 to capacity.
    constexpr int count() const noexcept
    {
        return m_count < 0 ? 0 : m_count > capacity ? capacity : m_count;
    }
    /// Whether there are none.
    constexpr bool isEmpty() const noexcept { return m_count <= 0; }

    /// Group and board number of pair `i`, which must lie in 0 .. count() - 1.
    constexpr qint32 group(int i) const noexcept { return m_pairs[i].group; }
    constexpr qint32 board(int i) const noexcept { return m_pairs[i].board; }

    /// Adds a pair at the end. False, and nothing is changed, when the value is full.
    bool append(qint32 group, qint32 board) noexcept;

    /// Empties the value and zeroes its bytes.
    void clear() noexcept { *this = boardlist(); }

    /**
     * Group by group "group:board,board", the groups joined by a space.
     *
     * Groups are ordered by the text of their number (10 comes before 9), the boards within one by
     * the order in which they were added. An empty text for an empty list.
     */
    QString toString() const;

    /// -1, 0 or 1: a total order over the used pairs, by their bytes, the shorter list first when
    /// it is the beginning of the longer one. The unused bytes take no part.
    int compare(const boardlist& other) const noexcept;

    friend bool operator==(const boardlist& a, const boardlist& b) noexcept
    {
        return a.compare(b) == 0;
    }
    friend bool operator!=(const boardlist& a, const boardlist& b) noexcept
    {
        return a.compare(b) != 0;
    }

private:
    struct Pair
    {
        qint32 group;
        qint32 board;
    };

    qint32 m_count = 0;
    Pair m_pairs[capacity] = {};
};

static_assert(sizeof(boardlist) == 404, "a cell holds a boardlist as its bytes lie in memory");
