// SPDX-License-Identifier: MIT
#include "table/record.h"

#include "table/table_p.h"

#include <QStringList>

const Record Record::null;

Record::Record(const Table* table)
    : Record(table ? table->allocRow() : nullptr)
{}

Record::Record(const Table* table, const QString& key)
    : block(nullptr)
{
    if (table)
        *this = LiveTable::findByKey(table, key);
}

Record Record::clone() const
{
    const Table* owner = table();
    return owner ? Record(owner->cloneRow(block)) : Record();
}

void Record::copy(const Record& source)
{
    const Table* owner = table();
    if (owner && source.table() == owner && block != source.block)
        owner->copyRowContent(block, source.block);
}

void Record::copy(const Record& source, int first, int last)
{
    const Table* owner = table();
    if (owner && source.table() == owner && block != source.block)
        owner->copyRowContent(block, source.block, first, last);
}

Field Record::data(const QString& column) const
{
    const Table* owner = table();
    return data(owner ? owner->columnIndex(column) : -1);
}

Field Record::data(int column) const
{
    const Table* owner = table();
    return owner ? owner->dataPtr(block, column) : Field();
}

bool Record::inTable() const
{
    const Table* owner = table();
    return owner && LiveTable::tableHolds(owner, *this);
}

QString Record::toString() const
{
    const Table* owner = table();
    return owner ? LiveTable::keyText(owner, *this) : QString();
}

QString Record::dump(bool skipNull) const
{
    const Table* owner = table();
    if (!owner)
        return QStringLiteral("{ NULL }");
    QStringList cells;
    for (int i = 0; i < owner->columnCount(); ++i) {
        const Field cell = data(i);
        if (!cell.isNull())
            cells.append(owner->columnName(i) + QLatin1Char('=') + cell.toString());
        else if (!skipNull)
            cells.append(owner->columnName(i) + QLatin1String("=\"\""));
    }
    // One call with all arguments: a cell's text may itself hold a "%1".
    return QStringLiteral("%1:(ptr:0x%2 ref:%3) { %4 }")
        .arg(owner->name(),
             QString::number(reinterpret_cast<quintptr>(block), 16)
                 .rightJustified(16, QLatin1Char('0')),
             QString::number(referenceCount()), cells.join(QLatin1Char(' ')));
}
