// SPDX-License-Identifier: MIT
#pragma once

#include "cells.h"

/// The cells of the option board: they know where the money is.
class ChainCells : public Cells
{
    Q_OBJECT

public:
    using Cells::Cells;

    /// The future's price, and the strike nearest to it. True when something is to be painted anew.
    bool setMoney(double future, double nearestStrike);

protected:
    QColor background(const Record& row, const Column& column) const override;
    QColor ink(const Record& row, const Column& column) const override;

private:
    double money = 0;
    double nearest = 0;
};
