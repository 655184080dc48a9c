// SPDX-License-Identifier: MIT
#include "table/field.h"
#include "table/table.h"

namespace {

const TableColumnDef* found(const TableColumnDef* def, const QString& column)
{
    if (!def)
        throw QStringLiteral("Column '%1' not found.").arg(column);
    return def;
}

} // namespace

FieldValue::FieldValue(Table* table, int column)
    : FieldValue(found(table->columnDef(column), QString::number(column)))
{}

FieldValue::FieldValue(Table* table, const QString& column)
    : FieldValue(found(table->columnDef(column), column))
{}
