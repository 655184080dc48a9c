// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"
#include "index/filterprogress.h"
#include "index/indexlist.h"
#include "io/fielddefconvertor.h"
#include "io/tabledatastream.h"
#include "table/tablecolumndef.h"

#include <QDir>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

class QDataStream;
class Table;

namespace LiveTable {
class TableReader;
}

/// Writes a table's columns and rows to a stream or a file and reads them back; writes and reads
/// lists of records of one table. The format is told in docs/fileformat.md.
///
/// **Ownership.** A short-lived object over a table that it does not own.
///
/// **Saving** to a directory loses nothing: see TableDataStreamWrite. Whether the table's file is
/// plain or gzip-compressed (".gz") is ICore::compressTables' answer; reading prefers the plain
/// one.
///
/// **Errors.** Files and their content cause no exceptions: status() and errorString() tell how the
/// last read or write ended. What the caller's callbacks and convertors throw is thrown on, and so
/// are std::bad_alloc and, in default reading, what Table::addColumn throws for a column that does
/// not go into this table (QString) and what a cell throws for a value that does not convert
/// (Exception, QString or a C string). Rows handed to the table before that stay in it (in batches
/// of 10240), and its update bracket is closed. A file that is there, but that the system does not
/// open or read on, is no damaged one: ReadFailed. Where opening fails the table stays as it is;
/// otherwise what there is of the file is read as if it ended there.
///
/// **Two ways to read.** *Default* reading is for files of one's own. It clears the table first,
/// whatever follows, and makes as many rows as the header says: those that a truncated file lacks
/// are zeros, which read NULL. *Strict* reading (setStrict) is for files from outside. It checks
/// the header as a whole, and each count in it against the bytes that are left, before it allocates
/// anything or touches the table; it stops at the last whole row, makes no row that is not in the
/// file and throws nothing for anything in it. A compressed file read from a directory is first
/// decompressed once to check its checksum.
///
/// **Threads.** Reading works in an update bracket of the table with its indexes taken off and
/// rebuilt at the end (TableIndexRebuilder); writing holds Table::lock. The callbacks run inside.
///
/// **Cost.** Rows are copied in runs of up to 256 KiB by a plan made once. Reading calls
/// FilterProgress::filter with a Record for each row, but for FilterProgressTrue itself.
///
///     TableIO io(&quotes);
///     io.write(dir);
///     if (io.status() != TableIO::Ok)
///         qWarning() << io.errorString();
class LIVETABLE_EXPORT TableIO
{
public:
    /// How the last operation ended.
    enum Status
    {
        Ok,
        NothingThere,     ///< no file, or the stream was at its end; nothing was changed
        NotATableFile,    ///< wrong magic number; default reading has emptied the table
        DamagedHeader,    ///< cut short or not consistent; default reading has emptied the table
        Truncated,        ///< row statusRow() and those behind it are not whole in the file
        DamagedData,      ///< the compressed data are damaged, found at row statusRow()
        ColumnsDidNotFit, ///< a column or the value of a cell does not go into this table
        ExtraBytes,       ///< strict, from a directory: all rows read, but the file goes on
        UnknownTable,     ///< readRowList: the host has no such table; the block was skipped
        WriteFailed,      ///< the old file is still there
        ReadFailed        ///< the system could not open the file, or not read it to its end
    };

    /// What stands before the rows.
    struct TableHeader
    {
        qint32 magic = 0;       ///< 0x20151002
        qint16 columnCount = 0; ///< as unsigned number
        qint32 rowCount = 0;    ///< of the whole table, also where the columns were saved alone
        qint32 rowLength = 0;   ///< of a row's cells in the file, in bytes
        qint32 nullBytes = 0;   ///< of a row's null bitmap
        QList<TableColumnDef> columns; ///< in their order in the file
        QStringList masterColumns;     ///< of the master index's key; not used by reading
    };

    /// From which column of the file a column of the table is read. With an empty `to`: the file's
    /// column `from` is dropped, that is, not added by `addColumns`.
    struct ConvertKey
    {
        QString to;   ///< the column of the table
        QString from; ///< the column of the file
        friend bool operator<(const ConvertKey& a, const ConvertKey& b)
        {
            const int order = a.to.compare(b.to);
            return order != 0 ? order < 0 : a.from < b.from;
        }
        friend bool operator==(const ConvertKey& a, const ConvertKey& b)
        {
            return a.to == b.to && a.from == b.from;
        }
    };
    /// The convertors stay the caller's.
    using Convertors = QMap<ConvertKey, FieldDefConvertor*>;

    /// Copies `size` bytes of a cell and its null bit: for columns of equal definition.
    class LIVETABLE_EXPORT FieldDefConvertor_Copy : public FieldDefConvertor
    {
    public:
        /// For cells of `bytes` bytes.
        explicit FieldDefConvertor_Copy(int bytes = 0);
        ~FieldDefConvertor_Copy() override;
        void convert(Field& target, const Field& source) override;
        int size; ///< in bytes
    };
    /// The same for cells of 4 bytes.
    class LIVETABLE_EXPORT FieldDefConvertor_Copy4 : public FieldDefConvertor_Copy
    {
    public:
        FieldDefConvertor_Copy4();
        ~FieldDefConvertor_Copy4() override;
        void convert(Field& target, const Field& source) override;
    };
    /// The same for cells of 8 bytes.
    class LIVETABLE_EXPORT FieldDefConvertor_Copy8 : public FieldDefConvertor_Copy
    {
    public:
        FieldDefConvertor_Copy8();
        ~FieldDefConvertor_Copy8() override;
        void convert(Field& target, const Field& source) override;
    };
    /// Where in the file layout's row a plainly copied column lies; ordered by that.
    struct Range
    {
        qint64 offset;                ///< in the data area of the row, in bytes
        FieldDefConvertor* convertor; ///< what copies it
        friend bool operator<(const Range& a, const Range& b) { return a.offset < b.offset; }
    };

    /// For reading and writing this table, which must outlive it.
    explicit TableIO(Table* table);

    // How the last operation ended.

    /// How the last operation ended; Ok before the first.
    Status status() const { return lastStatus; }
    /// Ok as an empty text, everything else as a sentence.
    QString errorString() const { return lastError; }
    /// The number of the row that Truncated, DamagedData, ReadFailed and ColumnsDidNotFit are
    /// about, from 0; -1 when they are about none.
    int statusRow() const { return lastRow; }

    /// Whether files are read strictly; false at the start. Counts for read and readRowList.
    void setStrict(bool isStrict) { strict = isStrict; }
    bool isStrict() const { return strict; }

    // Writing.

    /// The table's file: its name, without a suffix, in the directory.
    QString fileName(const QDir& dir) const;
    /// Saves the table; progress(row, rows) is called behind each row.
    void write(FilterProgress& progress, const QDir& dir, bool withRows);
    void write(const QDir& dir);
    void write(FilterProgress& progress, QDataStream& stream, bool withRows);
    void write(QDataStream& stream, bool withRows);
    /// The rows alone, in the order of the master index; the header gives the stored sizes.
    void writeRows(FilterProgress& progress, const TableHeader& header, QDataStream& stream);
    /// The table's name, its header and the records. All must be of the table of the first one: the
    /// cells of others are written NULL. Nothing for an empty list; only an empty name for a table
    /// without one.
    void writeRowList(FilterProgress& progress, QDataStream& stream,
                      const PartitionList<Record>& records);

    // Reading.

    /// Reads a table, replacing all rows of this one. Columns that both have are read, converted by
    /// value where their definitions differ; those of the file alone are added, with `addColumns`,
    /// or left out; those of this table alone keep the cells of new rows. `convertors`, which only
    /// the forms with a stream take, overrules
    /// that. Without `readRows` only the columns are read, and the table is empty after it.
    /// progress(row, rows) is called before each row, also before those that filter() drops.
    void read(FilterProgress& progress, QDataStream& stream, bool addColumns,
              const Convertors& convertors, bool readRows);
    void read(QDataStream& stream, bool addColumns, const Convertors& convertors);
    void read(QDataStream& stream, bool addColumns);
    void read(FilterProgress& progress, const QDir& dir, bool addColumns);
    void read(const QDir& dir, bool addColumns);

    /// Reads what writeRowList wrote and appends the accepted records to `records`; they are in no
    /// index. They belong to the host's table of the stored name (ICore::table) or, with
    /// `createTable`, to a new one that the caller has to delete after the records: each record's
    /// table(). (When no record was accepted it is deleted here.) A block for a table that the host
    /// does not have is skipped. Nothing is converted: columns that the table has in another way
    /// read whatever the bytes mean there, or, strictly, end it with ColumnsDidNotFit.
    void readRowList(FilterProgress& progress, QDataStream& stream, PartitionList<Record>& records,
                     bool createTable);

    /// Removes every record that filter() rejects, in one pass. progress(row, rows) is called
    /// behind each.
    void filterRecords(FilterProgress& progress);

    // The parts of it.

    /// Fills a header for the whole table.
    static void setupHeader(TableHeader& header, const Table* table);
    /// Writes what stands before the rows, as it is.
    static void writeHeader(const TableHeader& header, QDataStream& stream);
    /// Does not look at the magic number, nor at anything else; any bytes are survived. What the
    /// stream does not hold is zero and missing from the lists; the stream's status tells.
    static void readHeader(TableHeader& header, QDataStream& stream);
    /// Appends to `out` what carries rows of `fileLayout` over to this table, in the order of its
    /// columns. Those that are not values of `convertors` belong to the caller. A key with an
    /// unknown `from` or without a convertor is left out with a warning.
    void make_fromDefs(QList<FieldDefConvertor*>& out, const Table* fileLayout,
                       const Convertors& convertors);
    /// Calls all convertors for one row. The rows are row blocks, of this table and of the file
    /// layout, as Table::allocRow makes them.
    static void convertDefs(const QList<FieldDefConvertor*>& convertors, unsigned char* toRow,
                            unsigned char* fromRow);

    /// Estimates in bytes. `total`: of the rows; `extra`: of the padding in them. Both stay as they
    /// are for a table without a master index.
    static void memoryUsage(Table* table, unsigned long& total, unsigned long& extra);
    /// `total`: of the list's slots; `extra`: of the unused ones.
    static void memoryUsage(IndexList* index, unsigned long& total, unsigned long& extra);

private:
    friend class LiveTable::TableReader;
    void begin();
    void setStatus(Status status, const QString& text, int row = -1);
    void noteWrite(const QDataStream& stream);

    Table* const table;
    QString lastError;
    Status lastStatus = Ok;
    int lastRow = -1;
    bool strict = false;
};
