// SPDX-License-Identifier: MIT
#pragma once

#include "grid.h"
#include "market.h"

#include "index/sortedview.h"
#include "model/tablemodel.h"

#include <QWidget>

#include <memory>

class PaneStrip;
class QLineEdit;

/// All options with their quotes, in the order of the header that was clicked last, and only those
/// that the words in its field find.
///
/// Each order is a live view of the table: clicking builds it, and it follows every quote from then
/// on; nothing is sorted for the screen. The other orders are gone meanwhile and cost nothing.
class QuotesPane : public QWidget
{
    Q_OBJECT

public:
    explicit QuotesPane(QWidget* parent = nullptr);
    ~QuotesPane() override;

    /// Shows this market from now on; null for none. To be called before the market dies.
    void setMarket(Market* shown);
    void setFrozen(bool isFrozen);

    /// Sorts by a column of the grid; the same column again turns the order round.
    void sortBy(int column);
    void setOrder(int column, bool isDescending);
    int orderColumn() const { return order; }
    bool isDescending() const { return descending; }

    /// Shows the options that have all these words: C or P, the beginning of a strike, >3200 and
    /// <3300 for strikes, a part of the expiry.
    void setFilter(const QString& words);
    QString filter() const;
    void focusFilter();

    /// The head of the pane, for a dock.
    QWidget* head() const;
    Grid* grid() const { return cells; }
    TableModel* model() const { return rows.get(); }

private:
    void rebuild();
    void applyFilter();

    Market* market = nullptr;
    PaneStrip* strip;
    QLineEdit* words;
    Grid* cells;
    std::unique_ptr<SortedView> view;
    std::unique_ptr<TableModel> rows; ///< over it
    int order = 0;
    bool descending = false;
    bool frozen = false;
};
