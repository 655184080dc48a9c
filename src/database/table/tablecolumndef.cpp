// SPDX-License-Identifier: MIT
#include "table/tablecolumndef.h"

#include <QDataStream>

TableColumnDef::TableColumnDef(Table* owner)
    : table(owner)
{}

TableColumnDef::TableColumnDef(Table* owner, const TableColumnDef& source)
    : type(source.type)
    , length(source.length)
    , name(source.name)
    , nullable(source.nullable)
    , title(source.title)
    , flag(source.flag)
    , description(source.description)
    , table(owner)
    , size(source.size)
{}

void TableColumnDef::read(QDataStream& stream)
{
    qint8 storedType = 0;
    qint32 storedSize = 0;
    stream >> name >> title >> description >> length >> storedType >> storedSize >> nullable >>
        flag;
    type = static_cast<FieldType::Type>(storedType);
    size = storedSize;
}

void TableColumnDef::write(QDataStream& stream) const
{
    stream << name << title << description << qint32(length) << static_cast<qint8>(type)
           << static_cast<qint32>(size) << nullable << flag;
}
