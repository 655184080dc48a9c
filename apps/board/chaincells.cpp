// SPDX-License-Identifier: MIT
#include "chaincells.h"

#include "chain.h"
#include "theme.h"

bool ChainCells::setMoney(double future, double nearestStrike)
{
    if (money == future && nearest == nearestStrike)
        return false;
    money = future;
    nearest = nearestStrike;
    return true;
}

QColor ChainCells::background(const Record& row, const Column& column) const
{
    const Theme& theme = Theme::current();
    const double strike = row.data(Chain::Strike).toDouble();
    if (nearest > 0 && strike == nearest)
        return theme.atTheMoney;
    if (column.source <= Chain::Strike || money <= 0)
        return theme.base;
    return Chain::isCall(column.source) == (strike < money) ? theme.inTheMoney : theme.base;
}

QColor ChainCells::ink(const Record& row, const Column& column) const
{
    const Theme& theme = Theme::current();
    if (column.source == Chain::Strike)
        return nearest > 0 && row.data(Chain::Strike).toDouble() == nearest ? theme.accent
                                                                            : theme.text;
    if (column.source > Chain::Strike && Chain::valueOf(column.source) == Chain::Held) {
        const int held = row.data(column.source).toInteger();
        return held < 0 ? theme.down : held > 0 ? theme.up : theme.quiet;
    }
    return Cells::ink(row, column);
}
