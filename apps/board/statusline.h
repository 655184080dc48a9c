// SPDX-License-Identifier: MIT
#pragma once

#include <QElapsedTimer>
#include <QVector>
#include <QWidget>

/// The line at the bottom: on the left what happened last, on the right the figures of the run.
/// Each figure has a place of fixed width, so that nothing jumps.
class StatusLine : public QWidget
{
    Q_OBJECT

public:
    enum Figure
    {
        Updates, ///< a second
        Frame,   ///< the time of the worst frame of the last second
        Played,  ///< of the session, percent
        Held,    ///< contracts
        HeldDelta,
        HeldVega,
        HeldTheta,
        FigureCount
    };

    explicit StatusLine(QWidget* parent = nullptr);

    /// Empty hides the figure.
    void setFigure(Figure figure, const QString& text);
    QString figure(Figure figure) const { return figures[figure]; }

    /// Says what happened, until something else does; trouble is told in another colour.
    void tell(const QString& text, bool isTrouble = false);
    QString message() const { return said; }

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QVector<QString> figures;
    QString said;
    bool isTroubled = false;
};
