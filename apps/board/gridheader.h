// SPDX-License-Identifier: MIT
#pragma once

#include "columns.h"

#include <QHeaderView>

/// The titles over a grid: quiet, aligned as the figures below them, with a small triangle where
/// the rows are sorted by.
class GridHeader : public QHeaderView
{
    Q_OBJECT

public:
    explicit GridHeader(const Columns& shown, QWidget* parent = nullptr);

    /// Which column the rows go by; -1 for none that is shown.
    void setOrder(int column, bool isDescending);

    QSize sizeHint() const override;

protected:
    void paintSection(QPainter* painter, const QRect& area, int section) const override;
    bool viewportEvent(QEvent* event) override;

private:
    const Columns columns;
    int orderColumn = -1;
    bool descending = false;
};
