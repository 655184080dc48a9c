// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "base/export.h"

#include <QByteArray>
#include <QIODevice>
#include <QString>

namespace LiveTable {

/// The calls to the file system that saving makes; tests put their own in place to let them fail.
/// Each returns 0 (create: a descriptor, write: a count), or a negative errno.
class LIVETABLE_EXPORT FileIo
{
public:
    FileIo();
    virtual ~FileIo();

    /// Opens an empty file for writing that no other saver has open (-EAGAIN), with the access
    /// rights of `like` if that exists.
    virtual int create(const QByteArray& path, const QByteArray& like);
    virtual qint64 write(int file, const char* data, qint64 size);
    virtual int sync(int file);
    virtual int close(int file);
    virtual int rename(const QByteArray& from, const QByteArray& to);
    /// That there is no such file is no failure: the answer is then 1.
    virtual int remove(const QByteArray& path);
    virtual int syncFolder(const QByteArray& path);

    static FileIo& instance();
    /// Null puts the real one back.
    static void setInstance(FileIo* io);

private:
    Q_DISABLE_COPY(FileIo)
};

/// A file that is written beside the one it is to replace, and takes its place as a whole or not at
/// all.
///
///     open     path.saving~ is made anew; nobody reads a file of that name
///     write    goes there, through a buffer
///     commit   the rest is written, the file synced, renamed to path, its folder synced; then the
///              stale twin is removed and the folder synced again
///
/// So whatever happens at any point, `path` is the old file or the whole new one, and a twin goes
/// only when the new file is safely there. The first failure is kept, every later call fails.
class SaveFile : public QIODevice
{
public:
    explicit SaveFile(const QString& path);
    /// Discards what has not been committed.
    ~SaveFile() override;

    bool isSequential() const override { return true; }
    /// WriteOnly.
    bool open(OpenMode mode) override;
    void close() override { discard(); }
    bool commit(const QString& staleTwin);
    void discard();
    /// Null while nothing has failed.
    const QString& failure() const { return firstFailure; }

protected:
    qint64 readData(char*, qint64) override { return -1; }
    qint64 writeData(const char* data, qint64 size) override;

private:
    bool fail(const char* what, qint64 code);
    bool check(const char* what, int code) { return code >= 0 || fail(what, code); }
    bool writeAll(const char* data, qint64 size);
    bool finish(const QByteArray& folder, const QString& staleTwin);

    const QString target;
    const QByteArray targetName;
    const QByteArray draftName;
    QByteArray buffer;
    QString firstFailure;
    int file = -1;
};

} // namespace LiveTable
