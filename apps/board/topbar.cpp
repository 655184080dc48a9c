// SPDX-License-Identifier: MIT
#include "topbar.h"

#include "figures.h"
#include "market.h"
#include "theme.h"

#include "index/masterindex.h"

#include <QAction>
#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>

namespace {

QFont large()
{
    QFont font = Theme::strongFigures();
    font.setPixelSize(19);
    return font;
}

/// A label of fixed width, so that what stands beside it does not move.
QLabel* fixed(const QFont& font, const char* widest, Qt::Alignment alignment)
{
    auto* label = new QLabel;
    label->setFont(font);
    label->setAlignment(alignment | Qt::AlignVCenter);
    label->setFixedWidth(QFontMetrics(font).horizontalAdvance(QLatin1String(widest)) + 4);
    return label;
}

void colour(QLabel* label, const QColor& ink)
{
    QPalette palette = label->palette();
    if (palette.color(QPalette::WindowText) == ink)
        return;
    palette.setColor(QPalette::WindowText, ink);
    label->setPalette(palette);
}

} // namespace

TopBar::TopBar(QWidget* parent)
    : QWidget(parent)
    , name(new QLabel)
    , bid(fixed(large(), "00000.00", Qt::AlignRight))
    , ask(fixed(large(), "00000.00", Qt::AlignLeft))
    , change(fixed(Theme::figures(), "+000.00 (+0.00%)", Qt::AlignLeft))
    , clock(fixed(large(), "00:00:00", Qt::AlignRight))
    , speed(fixed(Theme::figures(), "0000\u00d7", Qt::AlignLeft))
    , buttons(new QHBoxLayout)
{
    setObjectName(QStringLiteral("strip"));
    setAttribute(Qt::WA_StyledBackground);
    name->setFont(Theme::strongFigures());
    auto* times = new QLabel(QStringLiteral("\u00d7"));
    times->setObjectName(QStringLiteral("caption"));
    speed->setObjectName(QStringLiteral("caption"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(12, 5, 12, 5);
    layout->setSpacing(6);
    layout->addWidget(name);
    layout->addSpacing(8);
    layout->addWidget(bid);
    layout->addWidget(times);
    layout->addWidget(ask);
    layout->addWidget(change);
    layout->addStretch(1);
    layout->addLayout(buttons);
    layout->addSpacing(8);
    layout->addWidget(clock);
    layout->addWidget(speed);
    buttons->setSpacing(2);
    setFixedHeight(38);
}

void TopBar::addButton(QAction* action)
{
    auto* button = new QToolButton;
    button->setDefaultAction(action);
    button->setToolButtonStyle(Qt::ToolButtonTextOnly);
    button->setFocusPolicy(Qt::TabFocus);
    buttons->addWidget(button);
}

void TopBar::setMarket(const Market* shown)
{
    market = shown;
    firstMid = 0;
    name->clear();
    refresh(-1);
}

void TopBar::setSpeed(const QString& text)
{
    speed->setText(text);
}

void TopBar::refresh(int timeMs)
{
    clock->setText(timeText(timeMs));
    const Record future = market ? Record(market->board.futures().at(0)) : Record();
    if (future.isNull()) {
        for (QLabel* label : {bid, ask, change})
            label->clear();
        if (market)
            name->setText(market->info.title);
        return;
    }
    const auto price = [&future](int column) {
        const Field cell = future.data(column);
        return cell.isNull() ? QStringLiteral("\u2013") : figureText(cell, 2);
    };
    const int month = future.data(Board::FutureContract).toInteger();
    const Record instrument =
        market->board.instruments().masterIndex()->findRecord(market->info.underlying);
    const QString title =
        instrument.isNull() ? market->info.title : instrument.data(Board::Description).toString();
    name->setText(QStringLiteral("%1  %2").arg(title, expiryText(month * 100 + 1).mid(2)));
    bid->setText(price(Board::FutureBid));
    ask->setText(price(Board::FutureAsk));
    const double mid = market->board.futureMid(month * 100);
    if (firstMid == 0)
        firstMid = mid;
    const double moved = firstMid > 0 && mid > 0 ? mid - firstMid : 0;
    const QString sign = moved > 0 ? QStringLiteral("+") : QString();
    change->setText(QStringLiteral("%1%2 (%1%3%)")
                        .arg(sign, figureText(moved, 2),
                             figureText(firstMid > 0 ? moved / firstMid * 100 : 0, 2)));
    const Theme& theme = Theme::current();
    colour(change, moved > 0 ? theme.up : moved < 0 ? theme.down : theme.quiet);
}
