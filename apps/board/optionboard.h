// SPDX-License-Identifier: MIT
#pragma once

#include "chain.h"
#include "grid.h"

#include "index/sortedview.h"
#include "model/tablemodel.h"

#include <QWidget>

#include <memory>

class Market;
class ChainCells;
class PaneStrip;
class QButtonGroup;
class QHBoxLayout;
class QLabel;

/// The option board: a row for each strike of one expiry, calls on its left and puts on its right,
/// with volatilities and greeks. The side that is in the money is shaded, the strike nearest to the
/// future is marked, and the board keeps it in the middle while it follows the money.
///
/// The columns of contracts that are held can be written.
class OptionBoard : public QWidget
{
    Q_OBJECT

public:
    explicit OptionBoard(QWidget* parent = nullptr);
    ~OptionBoard() override;

    /// Shows this market from now on; null for none. To be called before the market dies.
    void setMarket(Market* shown);

    /// Takes over new expiries and where the future stands.
    void refresh();

    void setFrozen(bool isFrozen);
    /// Whether the strike nearest to the future is kept in the middle.
    void setFollowing(bool isFollowing);
    bool isFollowing() const { return following; }
    /// Brings the strike nearest to the future into the middle.
    void centre();

    /// The expiry shown, YYYYMMDD; 0 before there is one.
    int expiry() const { return shownExpiry; }
    /// Shows that expiry, at the latest when it is there.
    void setExpiry(int date);
    /// Shows the expiry behind the present one; behind the last comes the first.
    void nextExpiry();

    Grid* grid() const { return cells; }
    TableModel* model() const { return rows.get(); }

Q_SIGNALS:
    /// What was typed into a cell was refused.
    void refused(const QString& message);

private:
    void placeSides();
    void fillExpiries();
    void showExpiry();
    int moneyRow() const;

    Market* market = nullptr;
    PaneStrip* strip;
    QButtonGroup* buttons;
    QHBoxLayout* buttonRow;
    QLabel* remaining;
    QLabel* calls;
    QLabel* puts;
    ChainCells* painter;
    Grid* cells;
    std::unique_ptr<SortedView> strikes; ///< of the expiry
    std::unique_ptr<TableModel> rows;    ///< over it
    std::set<int> shownExpiries;
    int shownExpiry = 0;
    bool following = true;
    bool frozen = false;
};
