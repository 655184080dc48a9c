// SPDX-License-Identifier: MIT
#include "gridheader.h"

#include "theme.h"

#include <QHelpEvent>
#include <QPainter>
#include <QToolTip>

GridHeader::GridHeader(const Columns& shown, QWidget* parent)
    : QHeaderView(Qt::Horizontal, parent)
    , columns(shown)
{
    setSectionsMovable(true);
    setHighlightSections(false);
    setMinimumSectionSize(28);
}

void GridHeader::setOrder(int column, bool isDescending)
{
    orderColumn = column;
    descending = isDescending;
    viewport()->update();
}

QSize GridHeader::sizeHint() const
{
    return {QHeaderView::sizeHint().width(), Theme::rowHeight() + 2};
}

void GridHeader::paintSection(QPainter* painter, const QRect& area, int section) const
{
    if (section >= columns.size())
        return;
    const Theme& theme = Theme::current();
    const Column& column = columns[section];
    const bool isOrder = section == orderColumn;
    painter->fillRect(area, theme.base);
    painter->setPen(theme.line);
    painter->drawLine(area.bottomLeft(), area.bottomRight());
    painter->setFont(Theme::captions());
    painter->setPen(isOrder ? theme.accent : theme.quiet);
    QString title = column.title;
    if (isOrder)
        title += descending ? QStringLiteral(" \u25be") : QStringLiteral(" \u25b4");
    painter->drawText(area.adjusted(4, 0, isOrder ? -2 : -6, -1),
                      int(column.alignment | Qt::AlignVCenter) | Qt::TextSingleLine, title);
}

bool GridHeader::viewportEvent(QEvent* event)
{
    if (event->type() != QEvent::ToolTip)
        return QHeaderView::viewportEvent(event);
    const auto* help = static_cast<QHelpEvent*>(event);
    const int section = logicalIndexAt(help->pos());
    if (section >= 0 && section < columns.size())
        QToolTip::showText(help->globalPos(), columns[section].tip, this);
    return true;
}
