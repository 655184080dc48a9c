// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariant>

class QTextCodec;

/**
 * Values as text, in the syntax that Qt's INI settings use. Two layers:
 *
 *  - variantToString() and stringToVariant() turn a value into text that tells its type, and back;
 *  - escapedString(), escapedStringList() and unescapedStringList() turn such text into one line of
 *    bytes, and back: control characters become escapes, commas part the elements of a list.
 *
 * | value                   | text                                                              |
 * |-------------------------|-------------------------------------------------------------------|
 * | "as it is"              | as it is                                                          |
 * | "@home"                 | @@home                                                            |
 * | 5, 0.25, true           | 5, 0.25, true                                                     |
 * | none (an invalid value) | @Invalid()                                                        |
 * | QByteArray              | @ByteArray(bytes), each byte as the character of that number      |
 * | QRect, QSize, QPoint    | @Rect(x y width height), @Size(width height), @Point(x y)         |
 * | any other type          | @Variant(bytes of a QDataStream)                                  |
 *
 * Numbers and booleans come back as text, which QVariant compares equal to them and converts; all
 * else comes back with its type. What cannot be read from a QDataStream (datetime is such a type)
 * but has a text is that text; what has neither is "@Invalid()", with a warning in the log. A
 * QEasingCurve and a QRegExp, and a QVariant in a QVariant, are never read: their bytes hold
 * addresses, or make Qt run without bounds.
 *
 * Threads: every function may be called from any thread at any time. Errors: none is thrown;
 * anything at all may be read, and what is no value of the table is read as plain text (a damaged
 * "@Variant(" as an invalid value). Cost: linear in the text.
 *
 * @code
 * QByteArray bytes;
 * QJson::escapedString(QJson::variantToString(QRect(0, 0, 640, 480)), bytes, nullptr);
 * bytes == "@Rect(0 0 640 480)";
 * @endcode
 */
namespace QJson {

/// The text of a value, as the table above has it. Lists and maps are "@Variant(".
LIVETABLE_EXPORT QString variantToString(const QVariant& value);

/// The value of a text that variantToString() made. Reads "@DateTime(" and "@String(" of newer INI
/// files as well.
LIVETABLE_EXPORT QVariant stringToVariant(const QString& text);

/**
 * Appends the text to `result`, in the encoding of `codec` (null: Latin-1, of which only ASCII is
 * written as it is), with backslash escapes: \0 \a \b \t \n \v \f \r \" \\, and \x with hexadecimal
 * digits for other control characters and for what the codec cannot carry, such as half a surrogate
 * pair. A hexadecimal digit that follows such an escape is escaped too, since it would be read as
 * part of it. Quotes are put around a text with a comma, semicolon or equals sign in it, and one
 * that starts or ends with a space.
 */
LIVETABLE_EXPORT void escapedString(const QString& text, QByteArray& result, QTextCodec* codec);

/// Appends the texts as escapedString() has them, joined by ", ". A null text is "@Invalid()", and
/// so is an empty list.
LIVETABLE_EXPORT void escapedStringList(const QStringList& texts, QByteArray& result,
                                        QTextCodec* codec);

/**
 * Reads the bytes [from, to) of `text` back; the bounds are cut to those of `text`. Spaces and tabs
 * around an element are dropped unless quoted or escaped, unknown escapes are skipped, a backslash
 * before a line end joins the lines.
 *
 * Returns whether there is a comma outside quotes. If so `listResult` gets the elements, which are
 * two at least; else `stringResult` gets the one text. The other is left empty.
 */
LIVETABLE_EXPORT bool unescapedStringList(const QByteArray& text, int from, int to,
                                          QString& stringResult, QStringList& listResult,
                                          QTextCodec* codec);

/// The texts read by stringToVariant(): a QStringList if each is a plain text, else a QVariantList.
LIVETABLE_EXPORT QVariant stringListToVariantList(const QStringList& texts);

/// The parts between the brackets of "@Rect(1 2 3 4)" and the like, split at each space. The one
/// that opens must be at `idx` and the one that closes be the last character, or there are none.
LIVETABLE_EXPORT QStringList splitArgs(const QString& text, int idx);

} // namespace QJson
