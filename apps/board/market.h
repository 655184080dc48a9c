// SPDX-License-Identifier: MIT
#pragma once

#include "board.h"
#include "chain.h"
#include "recalculation.h"
#include "storage.h"

/// Everything that is live for one session: the board with its views, its option chain, and the
/// pricing that follows the future. A window shows one at a time; another session, or a saved one,
/// gets another Market.
class Market
{
public:
    Market()
        : chain(board)
        , recalculation(board)
    {
        board.keepVolatilities();
    }

    /// What the board has no file format for but a user wants to find again.
    QVector<Table*> ownTables() { return {&chain.rows()}; }

    Board board;
    Chain chain;
    Recalculation recalculation;
    SessionInfo info;
};
