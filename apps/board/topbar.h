// SPDX-License-Identifier: MIT
#pragma once

#include <QWidget>

class Market;
class QAction;
class QHBoxLayout;
class QLabel;

/// The head of the window: what is traded and where its future stands, the session's clock, and
/// buttons for what is done most.
class TopBar : public QWidget
{
    Q_OBJECT

public:
    explicit TopBar(QWidget* parent = nullptr);

    void addButton(QAction* action);

    /// Shows this market from now on; null for none.
    void setMarket(const Market* shown);
    void setSpeed(const QString& text);
    /// Follows the market; `timeMs` is the session's clock.
    void refresh(int timeMs);

private:
    const Market* market = nullptr;
    QLabel* name;
    QLabel* bid;
    QLabel* ask;
    QLabel* change;
    QLabel* clock;
    QLabel* speed;
    QHBoxLayout* buttons;
    double firstMid = 0; ///< of the future in this session
};
