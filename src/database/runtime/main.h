// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

namespace Database {

/**
 * Makes the library's value types known to Qt's meta-type system, so that they travel in variants,
 * queued signals and settings. Nothing needs to be done for that: the object `Database::main` does
 * it when the library is loaded, on the loading thread, before any code of the host's that uses the
 * library. A static build has to name Database::main once, or the linker leaves it out.
 *
 *  | name           | compares | streams | converts                         |
 *  |----------------|----------|---------|----------------------------------|
 *  | "datetime"     | yes      | no      | to QString by toString()         |
 *  | "decimal"      | yes      | yes     | to QString by toString()         |
 *  | "xdecimal"     | yes      | yes     | to QString by toString()         |
 *  | "Record"       | no       | no      |                                  |
 *  | "HRunnable"    | no       | no      | is void*                         |
 *  | "QVector<int>" | no       | no      | to a sequence one can walk along |
 *
 * @code
 * const QVariant price = decimal(QStringLiteral("12.50")).toVariant();
 * price.toString();                                // "12.50"
 * QMetaType::type("Record") != QMetaType::UnknownType;
 * @endcode
 */
class LIVETABLE_EXPORT Main
{
public:
    /// Registers everything above, in that order; does nothing the second time. Throws nothing.
    Main();
};

/// The one whose construction registers the types.
extern LIVETABLE_EXPORT Main main;

} // namespace Database
