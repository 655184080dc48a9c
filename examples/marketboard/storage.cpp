// SPDX-License-Identifier: MIT
#include "storage.h"

#include "io/tableio.h"

#include <QDir>

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

void save(Table& table, const QDir& folder)
{
    TableIO io(&table);
    io.write(folder);
    if (io.status() != TableIO::Ok)
        throw QStringLiteral("%1: %2").arg(io.fileName(folder), io.errorString());
}

void load(Table& table, const QDir& folder)
{
    TableIO io(&table);
    io.setStrict(true); // the folder may be anything
    io.read(folder, false);
    if (io.status() == TableIO::NothingThere)
        throw InputError{
            QStringLiteral("%1: there is no such table file").arg(io.fileName(folder))};
    if (io.status() != TableIO::Ok)
        throw InputError{QStringLiteral("%1: %2").arg(io.fileName(folder), io.errorString())};
}

} // namespace

void saveBoard(Board& board, const SessionInfo& session, const QString& folder)
{
    const QDir dir(folder);
    if (!dir.mkpath(QStringLiteral(".")))
        throw QStringLiteral("%1: the folder cannot be made").arg(folder);
    Table info(QStringLiteral("session"));
    addSessionColumns(info);
    const Record row = info.appendRow();
    row.data(Title) = session.title;
    row.data(Underlying) = session.underlying;
    row.data(LastTime) = session.timeMs;
    save(info, dir);
    for (Table* table : board.tables())
        save(*table, dir);
}

SessionInfo loadBoard(Board& board, const QString& folder)
{
    const QDir dir(folder);
    Table info(QStringLiteral("session"));
    addSessionColumns(info);
    load(info, dir);
    if (info.rowCount() != 1)
        throw InputError{QStringLiteral("%1: not one session").arg(dir.filePath(info.name()))};
    for (Table* table : board.tables())
        load(*table, dir);
    const Record& row = info.at(0);
    return {row.data(Title).toString(), row.data(Underlying).toString(),
            row.data(LastTime).toInteger()};
}
