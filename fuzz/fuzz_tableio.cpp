// SPDX-License-Identifier: MIT
// Table files from outside. Strict reading: whatever it accepts as whole must be written again as
// the same bytes. Default reading: must survive (small tables only, since it believes their size).
#include "believed.h"
#include "index/masterindex.h"
#include "io/tableio.h"
#include "require.h"
#include "table/table.h"

#include <QDataStream>

namespace {

void useCells(const Table& table)
{
    for (int i = 0; i < table.rowCount(); ++i)
        for (int c = 0; c < table.columnCount(); ++c)
            table.data(i, c).toString();
}

void readStrictly(const QByteArray& bytes)
{
    Table table(QStringLiteral("t"));
    TableIO io(&table);
    io.setStrict(true);
    QDataStream stream(bytes);
    io.read(stream, true);
    require(table.rowCount() <= bytes.size()); // a row has a byte at least
    useCells(table);
    if (io.status() != TableIO::Ok || !stream.atEnd())
        return;
    TableIO::TableHeader header;
    QDataStream again(bytes);
    TableIO::readHeader(header, again);
    const auto headerBytes = static_cast<int>(again.device()->pos());
    QByteArray rows;
    QDataStream out(&rows, QIODevice::WriteOnly);
    FilterProgressTrue all;
    io.writeRows(all, header, out);
    const int rowBytes = static_cast<int>(table.rowLengthUnaligned()) + header.nullBytes;
    require(rows.size() == bytes.size() - headerBytes);
    // Bits of the bitmap that belong to no column do not survive.
    for (int i = 0; i < rows.size(); ++i)
        require(rows.at(i) == bytes.at(headerBytes + i) ||
                (table.columnCount() % 8 != 0 && (i + 1) % rowBytes == 0));
}

void readByDefault(const QByteArray& bytes)
{
    QDataStream start(bytes);
    if (isLarge(start))
        return;
    Table table(QStringLiteral("t"));
    table.addColumn(QStringLiteral("c0"), FieldType::Decimal, 2); // another type than in the seeds
    table.addColumn(QStringLiteral("c4"), FieldType::Decimal, 2);
    QDataStream stream(bytes);
    try {
        TableIO(&table).read(stream, true);
    } catch (...) { // what Table::addColumn and conversions throw
    }
    useCells(table);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<int>(size));
    readStrictly(bytes);
    readByDefault(bytes);
    return 0;
}
