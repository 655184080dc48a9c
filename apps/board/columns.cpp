// SPDX-License-Identifier: MIT
#include "columns.h"

#include "figures.h"

#include "table/field.h"

QString textOf(const Column& column, const Field& cell)
{
    if (cell.isNull())
        return QString();
    switch (column.kind) {
    case Column::Text:
        return cell.toString();
    case Column::Expiry:
        return expiryText(cell.toInteger());
    case Column::Time:
        return timeText(cell.toInteger());
    case Column::Number:
        break;
    }
    if (column.hidesZero && cell.toDouble() == 0)
        return QString();
    return figureText(cell, column.decimals, column.factor);
}
