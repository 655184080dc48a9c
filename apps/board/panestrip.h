// SPDX-License-Identifier: MIT
#pragma once

#include <QWidget>

class QHBoxLayout;
class QLabel;

/// The head of a pane: its name, what a pane adds, and on the right a word about its state. As the
/// title bar of a dock it is what the pane is dragged by.
class PaneStrip : public QWidget
{
    Q_OBJECT

public:
    explicit PaneStrip(const QString& title, QWidget* parent = nullptr);

    /// Adds a widget behind the ones before; those with `stretch` share the room that is left.
    void add(QWidget* widget, int stretch = 0);
    /// Empty for nothing to be said.
    void setState(const QString& text);

    QSize sizeHint() const override;

private:
    QHBoxLayout* row;
    QLabel* state;
    int count = 1;
};
