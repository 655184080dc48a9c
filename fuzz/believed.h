// SPDX-License-Identifier: MIT
#pragma once

#include "io/tableio.h"

#include <QDataStream>

/// Whether default reading, which believes a header, would make more rows or bytes of what follows
/// than a fuzz target has time and memory for.
inline bool isLarge(QDataStream& stream)
{
    constexpr qint64 mostRows = 2000;
    constexpr qint64 mostBytes = 16 << 20;
    TableIO::TableHeader header;
    TableIO::readHeader(header, stream);
    qint64 rowBytes = 64 + qMax<qint64>(header.nullBytes, 0);
    for (const TableColumnDef& column : header.columns)
        rowBytes += 2 * qMax<qint64>(column.length, 256) + qMax<qint64>(column.size, 0);
    return header.rowCount > mostRows || rowBytes * qMax<qint64>(header.rowCount, 1) > mostBytes;
}
