// SPDX-License-Identifier: MIT
#include "smileplot.h"

#include "figures.h"
#include "theme.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

namespace {

/// The step of 1, 2 or 5 times a power of ten that divides `span` into about `parts`.
double niceStep(double span, int parts)
{
    const double raw = span / std::max(parts, 1);
    const double power = std::pow(10, std::floor(std::log10(raw)));
    for (const double factor : {1.0, 2.0, 5.0})
        if (raw <= factor * power)
            return factor * power;
    return 10 * power;
}

} // namespace

/// The marks within the range; few, whatever figures a file has brought.
QVector<double> SmilePlot::marksOf(const Range& range)
{
    constexpr int most = 50;
    QVector<double> marks;
    const double first = std::ceil(range.low / range.step);
    for (int i = 0; i < most; ++i) {
        const double mark = (first + i) * range.step;
        if (!(mark <= range.high + range.step / 100))
            break;
        marks += mark;
    }
    return marks;
}

SmilePlot::SmilePlot(QWidget* parent)
    : QWidget(parent)
{
    setMouseTracking(true);
    setFocusPolicy(Qt::StrongFocus);
    setMinimumSize(220, 150);
    setAccessibleName(tr("Smile: implied volatility by strike"));
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void SmilePlot::setMarket(const Market* shown)
{
    market = shown;
    smiles.clear();
    future = 0;
    refresh();
    update();
}

void SmilePlot::refresh()
{
    if (!market)
        return;
    std::map<int, Smile> now;
    for (const Record& row : *market->board.views()[Board::TwoSided].index) {
        const Field volatility = row.data(Board::Volatility);
        if (volatility.isNull())
            continue;
        const int expiry = row.data(Board::Expiry).toInteger();
        const bool isPut = row.data(Board::Right).toChar() == QLatin1Char('P');
        const double strike = row.data(Board::Strike).toDouble();
        if (isPut == (strike < market->board.futureMid(expiry)))
            now[expiry].push_back({strike, volatility.toDouble() * 100});
    }
    const double mid = now.empty() ? 0 : market->board.futureMid(now.begin()->first);
    if (now == smiles && mid == future)
        return;
    smiles.swap(now);
    future = mid;
    fitRanges();
    update();
}

// The ranges only grow to whole steps, so that the picture stands still while the market moves.
void SmilePlot::fitRanges()
{
    double lowest = 1e18, highest = -1e18, bottom = 1e18, top = -1e18;
    for (const auto& smile : smiles) {
        for (const Point& point : smile.second) {
            lowest = std::min(lowest, point.strike);
            highest = std::max(highest, point.strike);
            bottom = std::min(bottom, point.volatility);
            top = std::max(top, point.volatility);
        }
    }
    if (lowest >= highest || bottom > top)
        return;
    const QRectF plot = area();
    const auto fit = [](Range& range, double low, double high, int parts) {
        range.step = niceStep(std::max(high - low, 1.0), parts);
        range.low = std::floor(low / range.step) * range.step;
        range.high = std::max(std::ceil(high / range.step) * range.step, range.low + range.step);
    };
    fit(volatilities, bottom, top, int(plot.height() / 36));
    // Strikes are a fixed list; half a step of room on both sides is enough.
    strikes.step = niceStep(highest - lowest, int(plot.width() / 64));
    strikes.low = lowest - strikes.step / 4;
    strikes.high = highest + strikes.step / 4;
}

QRectF SmilePlot::area() const
{
    const int label = QFontMetrics(Theme::captions()).height();
    return QRectF(rect()).adjusted(40, label + 10, -14, -(label + 8));
}

QPointF SmilePlot::place(const Point& point) const
{
    const QRectF plot = area();
    return {plot.left() + strikes.at(point.strike) * plot.width(),
            plot.bottom() - volatilities.at(point.volatility) * plot.height()};
}

void SmilePlot::paintEvent(QPaintEvent*)
{
    const Theme& theme = Theme::current();
    QPainter painter(this);
    painter.fillRect(rect(), theme.base);
    painter.setFont(Theme::captions());
    if (smiles.empty()) {
        painter.setPen(theme.quiet);
        painter.drawText(rect(), Qt::AlignCenter, tr("No volatilities yet"));
        return;
    }
    paintGrid(painter);
    paintFuture(painter);
    paintSmiles(painter);
    if (cursor > 0)
        paintReadout(painter);
    if (hasFocus()) {
        painter.setPen(theme.accent);
        painter.drawLine(0, 0, width(), 0);
    }
}

void SmilePlot::paintGrid(QPainter& painter) const
{
    const Theme& theme = Theme::current();
    const QRectF plot = area();
    const QFontMetrics metrics(Theme::captions());
    const int decimals = volatilities.step < 1 ? 1 : 0;
    for (const double value : marksOf(volatilities)) {
        const double y = std::round(plot.bottom() - volatilities.at(value) * plot.height());
        painter.setPen(theme.line);
        painter.drawLine(QPointF(plot.left(), y), QPointF(plot.right(), y));
        painter.setPen(theme.quiet);
        painter.drawText(QRectF(0, y - 10, plot.left() - 6, 20), Qt::AlignRight | Qt::AlignVCenter,
                         QString::number(value, 'f', decimals) + QLatin1Char('%'));
    }
    painter.setPen(theme.quiet);
    for (const double strike : marksOf(strikes)) {
        const double x = plot.left() + strikes.at(strike) * plot.width();
        painter.drawText(QRectF(x - 40, plot.bottom() + 4, 80, metrics.height()), Qt::AlignCenter,
                         QString::number(strike, 'f', 0));
    }
}

void SmilePlot::paintFuture(QPainter& painter) const
{
    if (future <= 0 || future < strikes.low || future > strikes.high)
        return;
    const Theme& theme = Theme::current();
    const QRectF plot = area();
    const double x = std::round(plot.left() + strikes.at(future) * plot.width()) + 0.5;
    painter.setPen(QPen(theme.accent, 1, Qt::DashLine));
    painter.drawLine(QPointF(x, plot.top()), QPointF(x, plot.bottom()));
    painter.setPen(theme.accent);
    painter.drawText(QRectF(x + 6, plot.bottom() - 20, 120, 18), Qt::AlignVCenter,
                     figureText(future, 2));
}

void SmilePlot::paintSmiles(QPainter& painter) const
{
    const Theme& theme = Theme::current();
    const QRectF plot = area();
    int series = 0;
    const QFontMetrics metrics(Theme::captions());
    constexpr int stroke = 14;
    constexpr int gap = 20;
    double labelLeft = plot.right();
    for (const auto& smile : smiles)
        labelLeft -= metrics.horizontalAdvance(expiryText(smile.first)) + stroke + 6 + gap;
    labelLeft += gap;
    painter.setRenderHint(QPainter::Antialiasing);
    for (const auto& [expiry, smile] : smiles) {
        const QColor colour = theme.series[std::min(series, 1)];
        QPainterPath path;
        for (const Point& point : smile) {
            const QPointF at = place(point);
            path.elementCount() == 0 ? path.moveTo(at) : path.lineTo(at);
        }
        painter.setPen(QPen(colour, 1.6, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        painter.setBrush(Qt::NoBrush);
        painter.drawPath(path);
        painter.setPen(Qt::NoPen);
        painter.setBrush(colour);
        for (const Point& point : smile)
            painter.drawEllipse(place(point), 1.8, 1.8);

        // Its name behind a short stroke of its colour, at the top right.
        const QString name = expiryText(expiry);
        const int width = metrics.horizontalAdvance(name);
        painter.setPen(QPen(colour, 2.4));
        painter.drawLine(QPointF(labelLeft, 13), QPointF(labelLeft + stroke, 13));
        painter.setPen(theme.quiet);
        painter.drawText(QRectF(labelLeft + stroke + 6, 4, width + 2, 18), Qt::AlignVCenter, name);
        labelLeft += stroke + 6 + width + gap;
        ++series;
    }
    painter.setRenderHint(QPainter::Antialiasing, false);
}

void SmilePlot::paintReadout(QPainter& painter) const
{
    const Theme& theme = Theme::current();
    const QRectF plot = area();
    QStringList texts;
    int series = 0;
    painter.setRenderHint(QPainter::Antialiasing);
    double strike = cursor;
    for (const auto& smile : smiles) {
        if (const Point* point = nearest(smile.second, cursor)) {
            strike = series == 0 ? point->strike : strike;
            texts << figureText(point->volatility, 2) + QLatin1Char('%');
            painter.setPen(QPen(theme.base, 2));
            painter.setBrush(theme.series[std::min(series, 1)]);
            painter.drawEllipse(place(*point), 4, 4);
        }
        ++series;
    }
    painter.setRenderHint(QPainter::Antialiasing, false);
    painter.setPen(theme.text);
    painter.drawText(QRectF(plot.left(), 4, plot.width(), 18), Qt::AlignLeft | Qt::AlignVCenter,
                     figureText(strike, 0) + QStringLiteral("   ") +
                         texts.join(QStringLiteral(" / ")));
}

const SmilePlot::Point* SmilePlot::nearest(const Smile& smile, double strike) const
{
    const auto closer = [strike](const Point& a, const Point& b) {
        return std::abs(a.strike - strike) < std::abs(b.strike - strike);
    };
    const auto found = std::min_element(smile.begin(), smile.end(), closer);
    return found == smile.end() ? nullptr : &*found;
}

void SmilePlot::setCursor(double strike)
{
    cursor = strike;
    update();
}

void SmilePlot::resizeEvent(QResizeEvent*)
{
    fitRanges();
}

void SmilePlot::mouseMoveEvent(QMouseEvent* event)
{
    const QRectF plot = area();
    const double share = (event->localPos().x() - plot.left()) / plot.width();
    setCursor(share < 0 || share > 1 ? 0 : strikes.low + share * (strikes.high - strikes.low));
}

void SmilePlot::leaveEvent(QEvent*)
{
    setCursor(0);
}

void SmilePlot::keyPressEvent(QKeyEvent* event)
{
    const bool isLeft = event->key() == Qt::Key_Left;
    if ((!isLeft && event->key() != Qt::Key_Right) || smiles.empty()) {
        QWidget::keyPressEvent(event);
        return;
    }
    const Smile& smile = smiles.begin()->second;
    const Point* at = nearest(smile, cursor > 0 ? cursor : future);
    const Point* const last = &smile.back();
    if (cursor > 0 && isLeft && at != &smile.front())
        --at;
    if (cursor > 0 && !isLeft && at != last)
        ++at;
    setCursor(at->strike);
}

void SmilePlot::focusInEvent(QFocusEvent*)
{
    update();
}

void SmilePlot::focusOutEvent(QFocusEvent*)
{
    setCursor(0);
}
