// SPDX-License-Identifier: MIT
#pragma once

#include "board.h"

#include <QString>

#include <deque>
#include <map>
#include <optional>
#include <tuple>
#include <vector>

/// Checks the board against the plainest way to the same answers: it keeps the latest quote of each
/// contract in a map, and sorts and filters copies of the rows afresh for every check.
class Verifier
{
public:
    /// `checked` must outlive the verifier.
    explicit Verifier(const Board& checked);

    /// To be told of every option quote after the board. Cheap: the work is done by the checks.
    void seen(const OptionQuote& quote);

    /// Whether a check is due: after each of the first quotes, then less often, but once in every
    /// hundred, so that a row in a wrong place is met before its contract's next quote moves it.
    bool isDue() const { return quotes >= nextCheck; }

    /// Compares the options table with the quotes seen, its joined cells with a plain look-up,
    /// every view with a fresh sort and filter of the table, row by row, and now and then, or with
    /// `wholeTape`, the tape with the latest quotes. The first difference, or nothing.
    std::optional<QString> check(bool wholeTape = false);

    /// Compares what the watch list saw with the quotes since the last call; one that brought
    /// nothing new is no change.
    std::optional<QString> checkChanges(const Board::Changes& changes);

    /// Whether every volatility gives the middle of its option's bid and ask within a cent, and
    /// every option without one has none. To be asked when all are up to date for `timeMs`.
    std::optional<QString> checkVolatilities(int timeMs) const;

    /// How often check() was called.
    int checks() const { return checkCount; }

private:
    using Key = std::tuple<int, char, decimal>; // expiry, right, strike

    void takeFresh();
    std::optional<QString> checkTable() const;
    std::optional<QString> checkViews() const;
    std::optional<QString> checkTape() const;
    QString descriptionOf(const Record& future) const;

    const Board& board;
    std::vector<OptionQuote> fresh; ///< seen, and not yet in what follows
    std::map<Key, OptionQuote> latest;
    std::deque<OptionQuote> tape;
    qint64 quotes = 0;
    qint64 changesExpected = 0; ///< of the table, since the last call of checkChanges()
    qint64 nextCheck = 1;
    qint64 nextTapeCheck = 1;
    int checkCount = 0;
};
