// SPDX-License-Identifier: MIT
#include "panestrip.h"

#include "theme.h"

#include <QHBoxLayout>
#include <QLabel>

PaneStrip::PaneStrip(const QString& text, QWidget* parent)
    : QWidget(parent)
    , row(new QHBoxLayout(this))
    , state(new QLabel)
{
    setObjectName(QStringLiteral("strip"));
    setAttribute(Qt::WA_StyledBackground);
    auto* title = new QLabel(text);
    title->setObjectName(QStringLiteral("title"));
    title->setFont(Theme::strongFigures());
    state->setObjectName(QStringLiteral("badge"));
    state->setFont(Theme::captions());
    row->setContentsMargins(10, 3, 10, 3);
    row->setSpacing(8);
    row->addWidget(title);
    row->addStretch(1);
    row->addWidget(state);
    setFixedHeight(sizeHint().height());
}

void PaneStrip::add(QWidget* widget, int stretch)
{
    row->insertWidget(count++, widget, stretch);
}

void PaneStrip::setState(const QString& text)
{
    state->setText(text);
}

QSize PaneStrip::sizeHint() const
{
    return {200, Theme::rowHeight() + 12};
}
