// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"
#include "table/staticstring.h"

#include <QString>
#include <QStringRef>

/**
 * The types that a column can have, and how each lies in a row.
 *
 *  | type       | bytes in the row | length                                                   |
 *  |------------|------------------|----------------------------------------------------------|
 *  | Integer    | 4                | none; signed                                             |
 *  | Integer64  | 8                | none; signed                                             |
 *  | Double     | 8                | none; IEEE 754                                           |
 *  | Decimal    | 8                | fraction digits that numbers are brought to (`decimal`)  |
 *  | VarChar    | 2 x length       | the most UTF-16 code units                               |
 *  | DateTime   | 8                | none (`datetime`)                                        |
 *  | BoardList  | 404              | none (`boardlist`)                                       |
 *  | XDecimal   | 16               | fraction digits that numbers are brought to (`xdecimal`) |
 *
 * All in the byte order of the machine. A text is padded with zero units to the column's length;
 * one of exactly that length has no terminator, and a zero unit ends it, so a text cannot contain
 * U+0000.
 *
 * Only static functions; safe from any thread as far as nobody writes the same cell. Cells need no
 * alignment here.
 *
 * @code
 * FieldType::typeLength(FieldType::VarChar, 20);         // 40
 * FieldType::typeNameWithLength(FieldType::VarChar, 20); // "VarChar[20]"
 * @endcode
 */
class LIVETABLE_EXPORT FieldType
{
public:
    /// The numbers are part of the table file. Every other value counts as Undefined.
    enum Type : qint32
    {
        Undefined = 0,
        Integer = 1,
        Integer64 = 2,
        Double = 3,
        Decimal = 4,
        VarChar = 5,
        DateTime = 6,
        BoardList = 7,
        XDecimal = 8
    };

    /// Bytes that a cell takes, not rounded up. Throws the QString "Length of string can't be zero"
    /// for a VarChar of length 0 or less and "Type is undefined." for an undefined type.
    static qint64 typeLength(Type type, int length);

    /// True for Decimal, VarChar and XDecimal.
    static bool typeHasLength(Type type) noexcept;

    /// The name as in the table above, "Undefined" for an undefined type. Never null.
    static const char* typeName(Type type) noexcept;

    /// The name, followed by the length in brackets when the type has one: "Decimal[4]", "Integer".
    static QString typeNameWithLength(Type type, int length);

    /// A copy of the text in a VarChar cell of `length` units; empty when `length` is below 1.
    static QString getString(const unsigned char* cell, int length);

    /// The same text without copying it: see StaticString for how long it may be used.
    static StaticString getStaticString(unsigned char* cell, int length) noexcept;

    /// Writes a text into a VarChar cell of `length` units. A longer text is cut, a shorter one
    /// padded with zero units; a cut may part a surrogate pair. The null bit is not touched.
    static void setString(unsigned char* cell, int length, const QString& text) noexcept;
    static void setString(unsigned char* cell, int length, const QStringRef& text) noexcept;
    static void setString(unsigned char* cell, int length, const unsigned short* text,
                          int textLength) noexcept;
};
