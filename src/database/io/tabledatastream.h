// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <QDataStream>
#include <QString>

#include <memory>

/// The stream a table file is read from: of the plain file at `path` or, when that cannot be
/// opened, of its compressed twin, at `path` with ".gz" behind it.
///
/// When neither opens the stream has no device and is at its end; see errorString(). The stream
/// owns its devices. Nothing is thrown. (QDataStream has no virtual destructor: do not delete it as
/// one.)
///
///     TableDataStreamRead stream(TableIO(&quotes).fileName(dir));
///     TableIO(&quotes).read(stream, true);
class LIVETABLE_EXPORT TableDataStreamRead : public QDataStream
{
public:
    /// Opens `path` or its compressed twin for reading; see above.
    explicit TableDataStreamRead(const QString& path);
    ~TableDataStreamRead();

    /// Why no file was opened; a null string when one was, or when there is none.
    QString errorString() const;

private:
    Q_DISABLE_COPY(TableDataStreamRead)
    struct Private;
    const std::unique_ptr<Private> d;
};

/// The stream a table file is written to: the plain file at `path` or, when ICore::compressTables
/// says so, the gzip file at `path` with ".gz" behind it.
///
/// **The old file is safe.** All is written beside it, and commit() puts it in place: the data are
/// synced to the disk before the new file takes the old one's name, and a twin of the other kind is
/// removed after that. A crash, a full disk or a failed write at any moment leaves the old file or
/// the whole new one, and never neither. The directory must be writable. Access rights of an old
/// file are kept; a link is followed. While one saver has a file open, another fails.
///
/// The destructor commits unless that has been done, the stream's status is an error, or it runs
/// because of an exception. Only commit() tells of a failure: call it.
///
/// Nothing is thrown. The stream owns its devices. It has no device when the file could not be
/// created.
///
///     TableDataStreamWrite stream(path);
///     TableIO(&quotes).write(stream, true);
///     if (!stream.commit())
///         qWarning() << stream.errorString();
class LIVETABLE_EXPORT TableDataStreamWrite : public QDataStream
{
public:
    /// Opens the file beside `path` for writing; see above.
    explicit TableDataStreamWrite(const QString& path);
    ~TableDataStreamWrite();

    /// Finishes the file and puts it in the place of the old one. True when all of it is safely on
    /// the disk; on false see errorString(): the old file is in place, or, when only the last steps
    /// failed, the new one. The stream cannot be written to afterwards; later calls answer the
    /// same.
    bool commit();
    /// Gives up: the old file stays as it is. Nothing after commit().
    void discard();
    /// The first failure with its cause; a null string while there is none.
    QString errorString() const;

private:
    Q_DISABLE_COPY(TableDataStreamWrite)
    struct Private;
    const std::unique_ptr<Private> d;
};
