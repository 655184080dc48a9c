// SPDX-License-Identifier: MIT
#pragma once

#include "board.h"

#include <QString>

/// What is shown of a session beside its tables.
struct SessionInfo
{
    QString title;
    QString underlying; ///< its key text in the table of instruments
    int timeMs = 0;     ///< of the last quote, in the session's day
};

/// Writes every table of the board, and what is known of the session, to table files in the folder,
/// which is made if it is not there. Each file is replaced as a whole or not at all. Throws a
/// QString when one cannot be written.
void saveBoard(Board& board, const SessionInfo& session, const QString& folder);

/// Reads what saveBoard() wrote into an empty board. Throws InputError when a file is missing or is
/// not a whole table file.
SessionInfo loadBoard(Board& board, const QString& folder);
