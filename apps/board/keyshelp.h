// SPDX-License-Identifier: MIT
#pragma once

#include <QList>
#include <QPair>
#include <QPointer>
#include <QWidget>

class QAction;

/// A sheet over the window that lists what each key does, made from the actions themselves. Any key
/// or click takes it away.
class KeysHelp : public QWidget
{
    Q_OBJECT

public:
    explicit KeysHelp(QWidget* parent);

    /// Those with a shortcut are listed, in this order, and the keys of the tables behind them.
    void show(const QList<QAction*>& actions);
    using QWidget::show;

    /// Goes away and gives the focus back.
    void leave();

protected:
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;

private:
    QList<QPair<QString, QString>> lines; ///< key and meaning
    QPointer<QWidget> focusedBefore;
};
