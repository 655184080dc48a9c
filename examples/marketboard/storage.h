// SPDX-License-Identifier: MIT
#pragma once

#include "board.h"

#include <QString>

#include <functional>

/// What is shown of a session beside its tables.
struct SessionInfo
{
    QString title;
    QString underlying; ///< its key text in the table of instruments
    int timeMs = 0;     ///< of the last quote, in the session's day
};

/// Told how much of a save or a load is done, 0 to 1 and never back. What it throws ends the work
/// and is thrown on: a file that was being saved then stays as it was, and a board that was being
/// loaded holds a part of it.
using StorageProgress = std::function<void(double done)>;

/// A table as the bytes of its file.
struct PackedTable
{
    QString name;
    QByteArray bytes;
};

/// All of a board as it is now, for saving on another thread while the board goes on. `more` are
/// tables to save beside its own.
QVector<PackedTable> packBoard(Board& board, const SessionInfo& session,
                               const QVector<Table*>& more = {});

/// Writes table files to the folder, which is made if it is not there. Each file is replaced as a
/// whole or not at all. Throws a QString when one cannot be written.
void savePacked(const QVector<PackedTable>& tables, const QString& folder,
                const StorageProgress& progress = {});

/// Writes every table of the board, and what is known of the session: both of the above.
void saveBoard(Board& board, const SessionInfo& session, const QString& folder);

/// Reads what saveBoard() wrote into an empty board, and into those of `more` that have a file.
/// Throws InputError when a file of the board's is missing or one is not a whole table file.
SessionInfo loadBoard(Board& board, const QString& folder, const QVector<Table*>& more = {},
                      const StorageProgress& progress = {});
