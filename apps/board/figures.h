// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

class Field;

/// How figures are written: with a fixed number of decimals, a real minus sign and thin groups, so
/// that they stand in columns.

/// A number with that many decimals. Thousands are grouped when `grouped`.
QString figureText(double value, int decimals, bool grouped = false);

/// The same of a cell of a number, scaled by `factor`; a null string for NULL.
QString figureText(const Field& cell, int decimals, double factor = 1);

/// A date of the form YYYYMMDD as "20 Mar 20".
QString expiryText(int date);

/// Milliseconds since midnight as "09:30:05"; a dash for a negative number.
QString timeText(int timeMs);
