// SPDX-License-Identifier: MIT
#pragma once

#include "market.h"

#include <QVector>
#include <QWidget>

#include <map>
#include <vector>

/// Implied volatility by strike of each expiry's out-of-the-money options, and where the future
/// stands. The mouse, or the arrow keys, read off a strike.
class SmilePlot : public QWidget
{
    Q_OBJECT

public:
    explicit SmilePlot(QWidget* parent = nullptr);

    /// Shows this market from now on; null for none.
    void setMarket(const Market* shown);

    /// Follows the market; paints only when something to be seen has changed.
    void refresh();

    QSize sizeHint() const override { return {420, 300}; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    struct Point
    {
        double strike;
        double volatility; ///< percent
        bool operator==(const Point& other) const
        {
            return strike == other.strike && volatility == other.volatility;
        }
    };
    using Smile = std::vector<Point>; ///< by strike

    /// What the axes show.
    struct Range
    {
        double low = 0;
        double high = 1;
        double step = 1; ///< between two marks
        double at(double value) const { return (value - low) / (high - low); }
    };

    static QVector<double> marksOf(const Range& range);
    void fitRanges();
    void paintGrid(QPainter& painter) const;
    void paintFuture(QPainter& painter) const;
    void paintSmiles(QPainter& painter) const;
    void paintReadout(QPainter& painter) const;
    QPointF place(const Point& point) const;
    QRectF area() const;
    const Point* nearest(const Smile& smile, double strike) const;
    void setCursor(double strike);

    const Market* market = nullptr;
    std::map<int, Smile> smiles; ///< by expiry
    double future = 0;           ///< of the first expiry
    Range strikes;
    Range volatilities;
    double cursor = 0; ///< the strike that is read off; 0 for none
};
