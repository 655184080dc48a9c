// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVector>

class Field;

/// How a grid shows a column of its table.
struct Column
{
    enum Kind
    {
        Number,
        Text,
        Expiry,
        Time
    };
    enum Tone
    {
        Main,  ///< read first
        Quiet, ///< read second
        Strong ///< what a row goes by
    };

    int source;    ///< the table's column
    QString name;  ///< by which a workplace keeps it
    QString title; ///< over the column
    QString tip;   ///< what it is, in words
    Kind kind = Number;
    int decimals = 0;
    double factor = 1; ///< of what is shown to what is in the cell
    Tone tone = Main;
    int width = 56;         ///< in device-independent pixels
    bool hidesZero = false; ///< a size of nothing is not shown
    bool isTinted = false;  ///< changes are shown by a tint that fades
    Qt::Alignment alignment = Qt::AlignRight;
    bool isShown = true; ///< at first
};
using Columns = QVector<Column>;

/// What the cell shows; a null string for NULL.
QString textOf(const Column& column, const Field& cell);
