// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "io/tableio.h"
#include "table/rowplan_p.h"

#include <QDataStream>

#include <vector>

namespace LiveTable {

/// The rows of a stream one after the other, read in runs. It never reads behind the last row.
class StoredRows
{
public:
    StoredRows(QDataStream& source, qint64 bytes, int count);

    /// The next row's bytes, good until the next call; what the stream lacks of them is zero.
    const unsigned char* next();
    /// Whether the last next() found all of the row in the stream.
    bool isWhole() const { return whole; }

private:
    void fill();

    static constexpr qint64 runBytes = 256 * 1024;

    QDataStream& stream;
    const qint64 rowBytes;
    qint64 rowsLeft; // not yet read
    std::vector<unsigned char> run;
    qint64 position = 0; // in the run
    qint64 end = 0;      // of what was read into it
    qint64 wholeEnd = 0; // of the rows in it that are whole
    bool whole = true;
    bool ended = false;
};

/// One reading by a TableIO.
class TableReader
{
public:
    TableReader(TableIO& owner, FilterProgress& callback, QDataStream& source);

    /// `bytesLeft`: of the stream, -1 when not known; used when strict. `isFile`: nothing may
    /// follow the rows.
    void read(bool withNewColumns, const TableIO::Convertors& convertors, bool withRows,
              qint64 bytesLeft, bool isFile);
    void readList(PartitionList<Record>& records, bool createTable);
    /// Decompresses the whole stream for its checksum. False when it is damaged; otherwise `bytes`
    /// is its length, -1 when it is cut short.
    bool measureCompressed(qint64& bytes);

private:
    bool noteBadRead(int row = -1);
    bool readHeader(qint64& bytesLeft);
    bool makeLayout(Table& layout);
    void addColumns(const TableIO::Convertors& convertors);
    QList<TableColumnDef> columnsToAdd(const TableIO::Convertors& convertors) const;
    bool canAdd(const QList<TableColumnDef>& missing);
    void readRows(const Table& layout, const TableIO::Convertors& convertors, qint64 bytesLeft);
    void planRow(const QList<FieldDefConvertor*>& all, const Table& layout,
                 const QList<FieldDefConvertor*>& callers);
    bool fillRow(const unsigned char* stored, unsigned char* row, unsigned char* scratch,
                 int number);
    bool goesOn(const StoredRows& rows, int i);
    void checkEnd(qint64 extraBytes);
    void readListRows(Table* target, qint64 bytesLeft, PartitionList<Record>& records);
    void skipList();
    int rowsToRead(qint64 bytesLeft) const;
    bool isListLayoutOf(const Table& target) const;

    TableIO& io;
    FilterProgress& progress;
    QDataStream& stream;
    Table* const table;
    const bool strict;
    const bool takesAll; // nobody looks at progress or records
    TableIO::TableHeader header;

    // How a stored row becomes one of the table.
    std::vector<qint64> storedAt;         // of each column of the header, in the stored row
    std::vector<int> layoutColumn;        // of each column of the header; -1 for a second of a name
    RowPlan direct;                       // cells that are copied as they are
    RowPlan toScratch;                    // all cells, when some are converted
    QList<FieldDefConvertor*> convertors; // of those
};

} // namespace LiveTable
