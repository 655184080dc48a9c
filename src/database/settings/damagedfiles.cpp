// SPDX-License-Identifier: MIT
#include "settings/damagedfiles_p.h"

#include "base/fileio_p.h"
#include "settings/settingslog_p.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QMutex>

#include <cerrno>

#include <unistd.h>

using namespace LiveTable;

namespace {

constexpr int mostKept = 1000; // of one file

struct Paths
{
    QMutex mutex;
    QHash<QString, bool> damaged; // to whether it is unread
};

// Never destroyed: settings objects that are static themselves write at the very end.
Paths& paths()
{
    static Paths* const all = new Paths;
    return *all;
}

bool haveSameBytes(const QString& a, const QString& b)
{
    QFile first(a);
    QFile second(b);
    return first.size() == second.size() && first.open(QIODevice::ReadOnly) &&
           second.open(QIODevice::ReadOnly) && first.readAll() == second.readAll();
}

/// The bytes of `copy` and its name in the folder are on the disk.
bool isSynced(const QString& copy)
{
    FileIo& io = FileIo::instance();
    QFile file(copy);
    return file.open(QIODevice::ReadOnly) && io.sync(file.handle()) >= 0 &&
           io.syncFolder(QFile::encodeName(QFileInfo(copy).absolutePath())) >= 0;
}

/// 0, or a negative errno. A second name for the file costs no space, of which there may be none
/// left, and keeps its access rights; a file system without such names gets a copy.
int makeCopy(const QString& path, const QString& copy)
{
    if (::link(QFile::encodeName(path).constData(), QFile::encodeName(copy).constData()) == 0)
        return 0;
    const int error = errno;
    return error != EEXIST && QFile::copy(path, copy) ? 0 : -error;
}

} // namespace

void DamagedFiles::add(const QString& path, bool isUnread)
{
    const QMutexLocker locked(&paths().mutex);
    paths().damaged.insert(path, isUnread);
}

void DamagedFiles::remove(const QString& path)
{
    const QMutexLocker locked(&paths().mutex);
    paths().damaged.remove(path);
}

bool DamagedFiles::isUnread(const QString& path)
{
    const QMutexLocker locked(&paths().mutex);
    return paths().damaged.value(path, false);
}

bool DamagedFiles::keep(const QString& path)
{
    const QFileInfo info(path);
    {
        const QMutexLocker locked(&paths().mutex);
        if (!paths().damaged.contains(path) || !info.exists())
            return true;
    }
    const QString file = info.canonicalFilePath(); // a link is followed, as Qt follows it
    for (int n = 1; n <= mostKept; ++n) {
        const QString copy = QStringLiteral("%1.damaged-%2").arg(path, QString::number(n));
        if (QFileInfo::exists(copy)) {
            if (haveSameBytes(file, copy)) // of a write that failed after this
                return isSynced(copy);
            continue;
        }
        const int code = makeCopy(file, copy);
        if (code == -EEXIST)
            continue;
        if (code < 0 || !isSynced(copy))
            break;
        settingsWarning(
            QStringLiteral("The damaged settings file %1 is kept as %2").arg(path, copy));
        return true;
    }
    settingsWarning(
        QStringLiteral("The damaged settings file %1 can't be kept aside and is not replaced")
            .arg(path));
    return false;
}
