// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "io/tableio.h"

class QDataStream;

namespace LiveTable {

constexpr qint32 tableMagic = 0x20151002;

// What strict reading accepts at most.
constexpr int maximumColumns = 4096;
constexpr qint64 maximumTextBytes = 1 << 20;    // of a name, title or description
constexpr qint64 smallRowBytes = 1 << 20;       // of a row, however short the file is
constexpr qint64 unmeasuredRowBytes = 16 << 20; // of a row, where the file's length is not known
constexpr qint64 defaultRowBytes = 64 << 20;    // of a row, in default reading

/// The bytes of one row in the file. What the header gives as negative sizes counts as none.
qint64 storedRowBytes(const TableIO::TableHeader& header);

/// The bytes that a device has left, -1 when it cannot know.
qint64 bytesLeftIn(const QDataStream& stream);

/// Reads a header from bytes that nobody vouches for: each count is checked against `bytesLeft`
/// (-1: not known), from which what is read is taken off, and what the header says must fit
/// together. The answer is Ok, NotATableFile or DamagedHeader.
TableIO::Status readCheckedHeader(TableIO::TableHeader& header, QDataStream& stream,
                                  qint64& bytesLeft);

/// Reads one text in the same way. False when it is not there as a whole.
bool readCheckedText(QString& text, QDataStream& stream, qint64& bytesLeft);

} // namespace LiveTable
