// SPDX-License-Identifier: MIT
#pragma once

#include "board.h"

#include <QString>
#include <QStringList>

/// A time of the day as hh:mm.
QString clockText(int timeMs);

/// A price without zeros at the end of its fraction.
QString shortText(decimal value);

/// What the contract directory says of an instrument, told by its key text, and the quotes of the
/// nearest future. A line, or nothing where both are unknown.
QString underlyingLine(const Board& board, const QString& key);

/// The names of the columns that spreadTable() knows, in their usual order; in its headings what is
/// before a dash is left out.
QStringList spreadColumns();

/// The first `count` rows of the view by spread under a line of headings, columns aligned; fewer
/// when the view has fewer, nothing when `count` is 0. Only these columns, in this order, unless
/// there are none.
QString spreadTable(const Board& board, int count, const QStringList& columns = QStringList());

/// The volatility by strike of each expiry, taken from the side that is out of the money: the put
/// below the future and the call from there on. Strikes whose side has none are left out.
QString smileTables(const Board& board);

/// A line on a terminal that is written over and over; nothing at all when standard error or
/// standard output is no terminal.
class ProgressLine
{
public:
    ProgressLine();
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    /// Whether show() would show something now; it keeps to a few times a second.
    bool isDue() const;
    void show(const QString& text);
    void clear();

private:
    bool isTerminal;
    bool isShown = false;
    QElapsedTimer sinceShown;
};
