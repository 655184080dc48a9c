// SPDX-License-Identifier: MIT
#include "figures.h"

#include "table/field.h"

#include <QDate>
#include <QLocale>

#include <cmath>

QString figureText(double value, int decimals, bool grouped)
{
    // What rounds to zero has no sign.
    if (std::abs(value) < 0.5 * std::pow(10.0, -decimals))
        value = 0;
    QString text;
    if (grouped)
        text = QLocale(QLocale::English).toString(value, 'f', decimals);
    else
        text = QString::number(value, 'f', decimals);
    if (text.startsWith(QLatin1Char('-')))
        text[0] = QChar(0x2212);
    return text;
}

QString figureText(const Field& cell, int decimals, double factor)
{
    return cell.isNull() ? QString() : figureText(cell.toDouble() * factor, decimals);
}

QString expiryText(int date)
{
    const QDate day(date / 10'000, date / 100 % 100, date % 100);
    return QLocale::c().toString(day, QStringLiteral("d MMM yy"));
}

QString timeText(int timeMs)
{
    if (timeMs < 0)
        return QStringLiteral("\u2013");
    const int seconds = timeMs / 1000;
    return QStringLiteral("%1:%2:%3")
        .arg(seconds / 3600, 2, 10, QLatin1Char('0'))
        .arg(seconds / 60 % 60, 2, 10, QLatin1Char('0'))
        .arg(seconds % 60, 2, 10, QLatin1Char('0'));
}
