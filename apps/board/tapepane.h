// SPDX-License-Identifier: MIT
#pragma once

#include "grid.h"
#include "market.h"

#include "index/sortedview.h"
#include "model/tablemodel.h"

#include <QWidget>

#include <memory>

class PaneStrip;

/// The latest quotes, the newest on top.
class TapePane : public QWidget
{
    Q_OBJECT

public:
    explicit TapePane(QWidget* parent = nullptr);
    ~TapePane() override;

    /// Shows this market from now on; null for none. To be called before the market dies.
    void setMarket(Market* shown);
    void setFrozen(bool isFrozen);

    /// The head of the pane, for a dock.
    QWidget* head() const;
    Grid* grid() const { return cells; }
    TableModel* model() const { return rows.get(); }

private:
    PaneStrip* strip;
    Grid* cells;
    std::unique_ptr<SortedView> newest;
    std::unique_ptr<TableModel> rows; ///< over it
    bool frozen = false;
};
