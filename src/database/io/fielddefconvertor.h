// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"
#include "table/field.h"

class TableColumnDef;

/// Carries the cells of one column of a file over to one column of a table while rows are read.
///
/// Derive from it to convert in a way of your own, and give the object to TableIO::read under the
/// names of the two columns; TableIO then sets `from` and `to`. Ownership: the object stays yours
/// and must live until the reading is done; the two definitions live as long as that only. Threads:
/// called on the reading thread. Errors: what convert() throws ends the reading (see TableIO).
///
///     struct CentsToMoney : FieldDefConvertor {
///         void convert(Field& money, const Field& cents) override
///         { money = decimal::fromMantissa(cents.toInteger64(), 2); }
///     };
class LIVETABLE_EXPORT FieldDefConvertor
{
public:
    FieldDefConvertor();
    virtual ~FieldDefConvertor();

    /// Writes the cell `target` of a new row from the cell `source` of the file. The default
    /// converts by value between any two types, as assigning a Field does, and throws what that
    /// throws.
    virtual void convert(Field& target, const Field& source);

    TableColumnDef* from = nullptr; ///< the column in the file's layout
    TableColumnDef* to = nullptr;   ///< the column of the table
};
