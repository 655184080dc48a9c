// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QFont>

class QApplication;

/// The colours of the board, and the font of its figures. There are two, for dark and for bright
/// rooms; everything that paints asks for the current one each time.
struct Theme
{
    bool isDark;
    QColor window;    ///< behind and between the panes
    QColor base;      ///< of a pane
    QColor raised;    ///< headers, fields, buttons
    QColor line;      ///< between rows and panes
    QColor text;      ///< what is read first
    QColor quiet;     ///< what is read second: sizes, greeks, captions
    QColor faint;     ///< a value that is not there
    QColor accent;    ///< strike, money, focus
    QColor selection; ///< the current row
    QColor up;        ///< tints and signs
    QColor down;
    QColor inTheMoney; ///< a row's side that has intrinsic value
    QColor atTheMoney; ///< the row of the strike nearest to the future
    QColor series[2];  ///< of the plot, the nearer expiry first

    static const Theme& current();
    /// Takes colours, style and font into use, for all windows there are.
    static void apply(QApplication& application, bool dark);

    /// The font of figures, whose digits are all of one width.
    static QFont figures();
    /// The same, bold.
    static QFont strongFigures();
    /// Of captions: smaller than figures().
    static QFont captions();
    /// Height of a row of figures, in device-independent pixels.
    static int rowHeight();
};

/// `top` laid over `below` at that weight, 0 to 1.
QColor blend(const QColor& below, const QColor& top, double weight);
