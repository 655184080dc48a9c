// SPDX-License-Identifier: MIT
#pragma once

#include "board.h"

#include "index/watchindex.h"

#include <map>
#include <set>

/// The options of a board with the call and the put of a strike in one row: what an option board
/// shows. A table of its own, with live views like any other, that also keeps how many contracts
/// its user holds.
///
/// It follows the board when flush() is called, once a frame, so many quotes of one option cost it
/// one update. Lifetime: within that of the board. Threads: those of the board.
class Chain
{
public:
    /// Columns: the key, and then the same ones for the call and for the put (see column()).
    enum Key
    {
        Expiry,
        Strike
    };
    enum Value
    {
        Held, ///< contracts; the only one that a user writes, NULL for none
        Theta,
        Vega,
        Gamma,
        Delta,
        Volatility,
        BidSize,
        Bid,
        Ask,
        AskSize,
        ValueCount
    };
    static constexpr int column(char right, Value value)
    {
        return Strike + 1 + (right == 'C' ? 0 : ValueCount) + value;
    }
    /// The value that a column shows; its row's key has none.
    static constexpr Value valueOf(int column) { return Value((column - Strike - 1) % ValueCount); }
    static constexpr bool isCall(int column) { return column < Strike + 1 + ValueCount; }
    static constexpr int ColumnCount = Strike + 1 + 2 * ValueCount;

    explicit Chain(Board& followed);

    /// Takes over what changed on the board since the last call, in one transaction. Returns how
    /// many changes that were.
    int flush();

    /// Takes the board as it is now, whatever the table holds: for a board that was loaded.
    void follow();

    /// The expiries that have options, in order.
    const std::set<int>& expiries() const { return dates; }

    /// What the contracts that are held add up to, in the units of Greeks and of one contract.
    struct Sum
    {
        qint64 contracts = 0; ///< long and short ones both count
        double delta = 0;
        double vega = 0;
        double theta = 0;
    };
    Sum held() const;

    Table& rows() { return *table; }
    const Table& rows() const { return *table; }

private:
    void take(const Record& option);

    const Board& board;
    const std::unique_ptr<Table> table;
    WatchIndex watch;
    RecordsTrans changes;
    Record key;                                     ///< a row outside the table, to search with
    std::map<std::pair<int, qint64>, Record> added; ///< rows of the transaction under way
    std::set<int> dates;
};
