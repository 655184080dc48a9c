// SPDX-License-Identifier: MIT
#include "base/fileio_p.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace LiveTable;

namespace {

constexpr int bufferBytes = 256 * 1024;
constexpr int attempts = 16; // to open a draft that other savers rename under our feet

std::atomic<FileIo*> replacement{nullptr};

int result(int code)
{
    return code < 0 ? -errno : code;
}

// Whether the path still leads to the open file: another saver may have renamed it meanwhile.
bool isStillAt(const QByteArray& path, int file)
{
    struct stat open = {};
    struct stat there = {};
    return ::fstat(file, &open) == 0 && ::stat(path.constData(), &there) == 0 &&
           open.st_ino == there.st_ino && open.st_dev == there.st_dev;
}

// A link is followed: the file it leads to is replaced, as writing through the link would do.
QString withoutLinks(const QString& path)
{
    const QFileInfo info(path);
    return info.isSymLink() && info.exists() ? info.canonicalFilePath() : info.absoluteFilePath();
}

} // namespace

FileIo::FileIo() = default;
FileIo::~FileIo() = default;

FileIo& FileIo::instance()
{
    static FileIo real;
    FileIo* const other = replacement.load();
    return other ? *other : real;
}

void FileIo::setInstance(FileIo* io)
{
    replacement = io;
}

int FileIo::create(const QByteArray& path, const QByteArray& like)
{
    struct stat old = {};
    const bool hasOld = ::stat(like.constData(), &old) == 0;
    if (hasOld && !S_ISREG(old.st_mode))
        return S_ISDIR(old.st_mode) ? -EISDIR : -EINVAL; // a rename would take its place
    for (int i = 0; i < attempts; ++i) {
        const int file = ::open(path.constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
        if (file < 0)
            return -errno;
        if (::flock(file, LOCK_EX | LOCK_NB) == 0 && isStillAt(path, file)) {
            if (::ftruncate(file, 0) == 0) {
                if (hasOld)
                    (void)!::fchmod(file, old.st_mode & 07777); // not ours: then it stays 0666
                return file;
            }
            const int code = -errno;
            ::unlink(path.constData()); // while it is locked, and so nobody else's
            ::close(file);
            return code;
        }
        const bool isLocked = isStillAt(path, file);
        ::close(file);
        if (isLocked)
            return -EAGAIN;
    }
    return -EAGAIN;
}

qint64 FileIo::write(int file, const char* data, qint64 size)
{
    const ssize_t written = ::write(file, data, static_cast<size_t>(size));
    return written < 0 ? -errno : written;
}

int FileIo::sync(int file)
{
    return result(::fsync(file));
}

int FileIo::close(int file)
{
    return result(::close(file));
}

int FileIo::rename(const QByteArray& from, const QByteArray& to)
{
    return result(::rename(from.constData(), to.constData()));
}

int FileIo::remove(const QByteArray& path)
{
    if (::unlink(path.constData()) == 0)
        return 0;
    return errno == ENOENT ? 1 : -errno;
}

int FileIo::syncFolder(const QByteArray& path)
{
    const int folder = ::open(path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return -errno;
    int code = result(::fsync(folder));
    if (code == -EINVAL) // a file system that has nothing to sync in a folder
        code = 0;
    ::close(folder);
    return code;
}

// --- SaveFile ---

SaveFile::SaveFile(const QString& path)
    : target(withoutLinks(path))
    , targetName(QFile::encodeName(target))
    , draftName(targetName + ".saving~")
{}

SaveFile::~SaveFile()
{
    discard();
}

bool SaveFile::fail(const char* what, qint64 code)
{
    if (firstFailure.isNull()) {
        const QString reason = code == -EAGAIN
                                   ? QStringLiteral("it is being saved by someone else")
                                   : QString::fromLocal8Bit(std::strerror(static_cast<int>(-code)));
        firstFailure =
            QStringLiteral("Can't %1 \"%2\": %3").arg(QLatin1String(what), target, reason);
    }
    setErrorString(firstFailure);
    return false;
}

bool SaveFile::open(OpenMode mode)
{
    if (isOpen() || (mode & ReadWrite) != WriteOnly)
        return false;
    file = FileIo::instance().create(draftName, targetName);
    if (!check("create", file))
        return false;
    buffer.reserve(bufferBytes);
    return QIODevice::open(mode | Unbuffered);
}

bool SaveFile::writeAll(const char* data, qint64 size)
{
    while (size > 0) {
        const qint64 written = FileIo::instance().write(file, data, size);
        if (written == -EINTR)
            continue;
        if (written <= 0)
            return fail("write", written < 0 ? written : -ENOSPC);
        data += written;
        size -= written;
    }
    return true;
}

qint64 SaveFile::writeData(const char* data, qint64 size)
{
    if (!firstFailure.isNull())
        return -1;
    if (buffer.size() + size > bufferBytes) {
        if (!writeAll(buffer.constData(), buffer.size()))
            return -1;
        buffer.resize(0); // keeps what is reserved
    }
    if (size >= bufferBytes)
        return writeAll(data, size) ? size : -1;
    buffer.append(data, static_cast<int>(size));
    return size;
}

bool SaveFile::commit(const QString& staleTwin)
{
    if (!isOpen())
        return false;
    const bool isDone = finish(QFile::encodeName(QFileInfo(target).absolutePath()), staleTwin);
    discard();
    if (!isDone)
        setErrorString(firstFailure); // closing has forgotten it
    return isDone;
}

bool SaveFile::finish(const QByteArray& folder, const QString& staleTwin)
{
    FileIo& io = FileIo::instance();
    if (!firstFailure.isNull() || !writeAll(buffer.constData(), buffer.size()) ||
        !check("sync", io.sync(file)) || !check("replace", io.rename(draftName, targetName)))
        return false;
    // The draft is no more; what fails from here on leaves the whole new file in place.
    const int closed = io.close(file);
    file = -1;
    if (!check("close", closed) || !check("sync the folder of", io.syncFolder(folder)))
        return false;
    const int removed = io.remove(QFile::encodeName(withoutLinks(staleTwin)));
    return check("remove the older twin of", removed) &&
           (removed > 0 || check("sync the folder of", io.syncFolder(folder)));
}

void SaveFile::discard()
{
    if (file >= 0) {
        FileIo& io = FileIo::instance();
        io.remove(draftName);
        io.close(file);
        file = -1;
    }
    if (isOpen())
        QIODevice::close();
}
