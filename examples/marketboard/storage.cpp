// SPDX-License-Identifier: MIT
#include "storage.h"

#include "io/tableio.h"

#include <QBuffer>
#include <QDir>
#include <QFileInfo>

#include <algorithm>

namespace {

enum SessionColumn
{
    Title,
    Underlying,
    LastTime
};

void addSessionColumns(Table& table)
{
    table.addColumn(QStringLiteral("title"), FieldType::VarChar, 200);
    table.addColumn(QStringLiteral("underlying"), FieldType::VarChar, 100);
    table.addColumn(QStringLiteral("time"), FieldType::Integer);
}

/// Brings the progress of one file after the other onto one scale, each as long as its bytes.
class Scale
{
public:
    Scale(const StorageProgress& told, qint64 all)
        : progress(told)
        , total(std::max<qint64>(all, 1))
    {}
    void at(double bytesOfFile) const
    {
        if (progress)
            progress(std::min(1.0, (double(before) + bytesOfFile) / double(total)));
    }
    void fileDone(qint64 bytes)
    {
        before += bytes;
        at(0);
    }

private:
    const StorageProgress& progress;
    const qint64 total;
    qint64 before = 0;
};

/// Takes every row.
class Rows : public FilterProgress
{
public:
    Rows(const Scale& told, qint64 bytes)
        : scale(told)
        , bytesOfFile(bytes)
    {}
    bool operator()(int done, int total) override
    {
        constexpr int interval = 256; // rows
        if (done % interval == 0 && total > 0)
            scale.at(double(bytesOfFile) * done / total);
        return true;
    }
    bool filter(const Record&) const override { return true; }

private:
    const Scale& scale;
    const qint64 bytesOfFile;
};

PackedTable pack(Table& table)
{
    PackedTable packed{table.name(), {}};
    QBuffer buffer(&packed.bytes);
    buffer.open(QIODevice::WriteOnly);
    QDataStream stream(&buffer);
    TableIO io(&table);
    io.write(stream, true);
    if (io.status() != TableIO::Ok)
        throw QStringLiteral("%1: %2").arg(table.name(), io.errorString());
    return packed;
}

QString pathIn(const QDir& folder, const Table& table)
{
    return folder.filePath(table.name());
}

qint64 bytesOf(const QDir& folder, const Table& table)
{
    const QFileInfo plain(pathIn(folder, table));
    return plain.exists() ? plain.size() : QFileInfo(plain.filePath() + ".gz").size();
}

/// False when there is no such file.
bool load(Table& table, const QDir& folder, Scale& scale)
{
    const qint64 bytes = bytesOf(folder, table);
    Rows rows(scale, bytes);
    TableIO io(&table);
    io.setStrict(true); // the folder may be anything
    io.read(rows, folder, false);
    if (io.status() != TableIO::Ok && io.status() != TableIO::NothingThere)
        throw InputError{QStringLiteral("%1: %2").arg(io.fileName(folder), io.errorString())};
    scale.fileDone(bytes);
    return io.status() == TableIO::Ok;
}

void loadNeeded(Table& table, const QDir& folder, Scale& scale)
{
    if (!load(table, folder, scale))
        throw InputError{
            QStringLiteral("%1: there is no such table file").arg(pathIn(folder, table))};
}

} // namespace

QVector<PackedTable> packBoard(Board& board, const SessionInfo& session,
                               const QVector<Table*>& more)
{
    Table info(QStringLiteral("session"));
    addSessionColumns(info);
    const Record row = info.appendRow();
    row.data(Title) = session.title;
    row.data(Underlying) = session.underlying;
    row.data(LastTime) = session.timeMs;

    QVector<PackedTable> packed{pack(info)};
    for (Table* table : board.tables() + more)
        packed += pack(*table);
    return packed;
}

void savePacked(const QVector<PackedTable>& tables, const QString& folder,
                const StorageProgress& progress)
{
    constexpr int chunk = 256 * 1024;
    const QDir dir(folder);
    if (!dir.mkpath(QStringLiteral(".")))
        throw QStringLiteral("%1: the folder cannot be made").arg(folder);
    qint64 total = 0;
    for (const PackedTable& table : tables)
        total += table.bytes.size();
    Scale scale(progress, total);
    for (const PackedTable& table : tables) {
        TableDataStreamWrite stream(dir.filePath(table.name));
        for (int at = 0; at < table.bytes.size(); at += chunk) {
            scale.at(at);
            stream.writeRawData(table.bytes.constData() + at,
                                std::min(chunk, table.bytes.size() - at));
        }
        if (!stream.commit())
            throw QStringLiteral("%1: %2").arg(dir.filePath(table.name), stream.errorString());
        scale.fileDone(table.bytes.size());
    }
}

void saveBoard(Board& board, const SessionInfo& session, const QString& folder)
{
    savePacked(packBoard(board, session), folder);
}

SessionInfo loadBoard(Board& board, const QString& folder, const QVector<Table*>& more,
                      const StorageProgress& progress)
{
    const QDir dir(folder);
    Table info(QStringLiteral("session"));
    addSessionColumns(info);
    qint64 total = bytesOf(dir, info);
    for (Table* table : board.tables() + more)
        total += bytesOf(dir, *table);
    Scale scale(progress, total);

    loadNeeded(info, dir, scale);
    if (info.rowCount() != 1)
        throw InputError{QStringLiteral("%1: not one session").arg(dir.filePath(info.name()))};
    for (Table* table : board.tables())
        loadNeeded(*table, dir, scale);
    for (Table* table : more)
        load(*table, dir, scale);
    const Record& row = info.at(0);
    board.resume(row.data(Underlying).toString());
    return {row.data(Title).toString(), row.data(Underlying).toString(),
            row.data(LastTime).toInteger()};
}
