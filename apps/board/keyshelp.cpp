// SPDX-License-Identifier: MIT
#include "keyshelp.h"

#include "theme.h"

#include <QAction>
#include <QApplication>
#include <QKeyEvent>
#include <QPainter>

namespace {

constexpr int Margin = 24;
constexpr int KeyWidth = 96;
constexpr int ColumnWidth = 330;
constexpr int ColumnCount = 2;

int lineHeight()
{
    return Theme::rowHeight() + 2;
}

} // namespace

KeysHelp::KeysHelp(QWidget* parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("keys"));
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(tr("Keys"));
    hide();
}

void KeysHelp::show(const QList<QAction*>& actions)
{
    lines.clear();
    for (const QAction* action : actions) {
        if (!action->shortcut().isEmpty())
            lines.append({action->shortcut().toString(QKeySequence::NativeText),
                          action->text().remove(QLatin1Char('&')).remove(QChar(0x2026))});
    }
    lines.append({tr("Tab"), tr("The next pane or field")});
    lines.append({tr("0\u20139"), tr("In a table: go to a strike; in Held: write")});
    lines.append({tr("Ctrl+Space"), tr("In the quotes: sort by this column, and round")});
    lines.append({tr("Menu"), tr("In a table: choose columns")});
    lines.append({tr("\u2190 \u2192"), tr("In the smile: read off a strike")});
    const int perColumn = (lines.size() + ColumnCount - 1) / ColumnCount;
    const QSize wanted(ColumnCount * ColumnWidth + 2 * Margin,
                       (perColumn + 2) * lineHeight() + 2 * Margin);
    setGeometry(QRect(QPoint((parentWidget()->width() - wanted.width()) / 2,
                             (parentWidget()->height() - wanted.height()) / 2),
                      wanted));
    focusedBefore = QApplication::focusWidget();
    raise();
    QWidget::show();
    setFocus();
}

void KeysHelp::paintEvent(QPaintEvent*)
{
    const Theme& theme = Theme::current();
    QPainter painter(this);
    painter.fillRect(rect(), theme.raised);
    painter.setPen(theme.faint);
    painter.drawRect(rect().adjusted(0, 0, -1, -1));
    painter.setFont(Theme::strongFigures());
    painter.setPen(theme.text);
    painter.drawText(QRect(Margin, Margin, width(), lineHeight()), Qt::AlignVCenter, tr("Keys"));
    painter.setFont(Theme::figures());
    const int perColumn = (lines.size() + ColumnCount - 1) / ColumnCount;
    for (int i = 0; i < lines.size(); ++i) {
        const int x = Margin + i / perColumn * ColumnWidth;
        const int y = Margin + (i % perColumn + 2) * lineHeight();
        painter.setPen(theme.accent);
        painter.drawText(QRect(x, y, KeyWidth, lineHeight()), Qt::AlignVCenter, lines[i].first);
        painter.setPen(theme.text);
        painter.drawText(QRect(x + KeyWidth, y, ColumnWidth - KeyWidth, lineHeight()),
                         Qt::AlignVCenter, lines[i].second);
    }
}

void KeysHelp::leave()
{
    hide();
    if (focusedBefore)
        focusedBefore->setFocus();
    focusedBefore = nullptr;
}

void KeysHelp::keyPressEvent(QKeyEvent*)
{
    leave();
}

void KeysHelp::mousePressEvent(QMouseEvent*)
{
    leave();
}

void KeysHelp::focusOutEvent(QFocusEvent*)
{
    hide();
}
