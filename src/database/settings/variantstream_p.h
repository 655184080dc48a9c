// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include <QByteArray>
#include <QVariant>

/// Values as bytes of a QDataStream, in the version of Qt 4.0 as Qt's INI settings have them, or of
/// Qt 5.6 when the value would lose something in the older one (a QDateTime its offset from UTC).
/// The bytes do not say which: the writer checks that they are read back as they were meant.
namespace LiveTable {

/// Whether the value, and all that it holds, can be written to a QDataStream.
bool isStreamable(const QVariant& value);

QByteArray variantToBytes(const QVariant& value);

/// Any bytes may be given. An invalid value when they are not exactly one value. Qt's own reader is
/// not let near containers, whose counts it believes, nor near types whose bytes can do harm.
QVariant variantFromBytes(const QByteArray& bytes);

/// Whether both are the same in type and content.
bool isSameVariant(const QVariant& a, const QVariant& b);

} // namespace LiveTable
