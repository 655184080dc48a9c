// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <QVariant>

/**
 * -1, 0 or 1: the order of two variants. The type of `a` decides how both are compared.
 *
 *  - An invalid variant is below every valid one and equals another.
 *  - decimal, xdecimal, datetime: `b` is converted to that type by Qt's meta-type system and counts
 *    as zero (or unset) when it cannot be; values compare by the class's own order.
 *  - int, double, QDate, QTime, QDateTime: equal when QVariant's == says so; otherwise both are
 * read as that type.
 *  - QChar, QString: the same, and read as texts they are compared under `cs`.
 *  - Every other type: 0, which says "not ordered", not "equal". qlonglong is one of them.
 *
 * Not a strict weak order over variants of mixed types. Throws nothing. Safe from any thread.
 */
LIVETABLE_EXPORT int variant_compare(const QVariant& a, const QVariant& b,
                                     Qt::CaseSensitivity cs = Qt::CaseSensitive);

/**
 * The variant as one of the meta-type `type` (QMetaType::Type or a registered id), or an invalid
 * variant when it cannot be converted. Throws nothing. Safe from any thread.
 *
 *  - A variant that is of the type already is returned as it is.
 *  - To decimal and xdecimal: as their fromVariant() says (texts, integers exactly, doubles at 6
 *    fraction digits, each other).
 *  - From decimal and xdecimal: to QString their toString(), to double their nearest one, to int,
 *    uint, qlonglong and qulonglong cut toward zero; a number that does not fit there, or not into
 *    64 bits with a sign, is not converted.
 *  - To datetime: texts in its forms (an empty one is unset), QDateTime and QDate with their fields
 *    as they stand, qlonglong as the count of milliseconds.
 *  - From datetime: to QString its toString(), to QDateTime in UTC, to QDate and QTime its fields,
 * to qlonglong the count.
 *  - Everything else as QVariant::convert() does.
 */
LIVETABLE_EXPORT QVariant variant_convert(const QVariant& value, unsigned int type);
