// SPDX-License-Identifier: MIT
#include "base/icore.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QMutex>
#include <QStandardPaths>

#include <atomic>

#if defined(Q_CC_GNU) && !defined(Q_OS_WIN)
#define LIVETABLE_WEAK __attribute__((weak, visibility("default")))
#else
#define LIVETABLE_WEAK
#endif

namespace {

std::atomic<ICore*> installedCore{nullptr};

bool isBundle(const QDir& executableDir)
{
    return executableDir.dirName().endsWith(QLatin1String("MacOS"));
}

QDir resourcesDir(const QDir& executableDir)
{
    return QDir(QFileInfo(executableDir.absolutePath()).path() + QLatin1String("/Resources"));
}

struct ProgramDir
{
    QMutex mutex;
    QString path; // empty: where the executable is
};

ProgramDir& programDir()
{
    static ProgramDir dir;
    return dir;
}

QDir executableDir()
{
    const QMutexLocker locked(&programDir().mutex);
    const QString& path = programDir().path;
    return QDir(path.isEmpty() ? QCoreApplication::applicationDirPath() : path);
}

/// Enters `sub`, creating it first when it is missing; a failure leaves `dir` where it was.
void enterOrCreate(QDir& dir, const QString& sub)
{
    if (!dir.cd(sub) && dir.mkpath(sub))
        dir.cd(sub);
}

} // namespace

ICore::~ICore()
{
    ICore* self = this;
    installedCore.compare_exchange_strong(self, nullptr);
}

LIVETABLE_WEAK ICore* ICore::instance()
{
    return installedCore.load(std::memory_order_acquire);
}

void ICore::setInstance(ICore* core)
{
    installedCore.store(core, std::memory_order_release);
}

bool ICore::isPortable()
{
    const QString mark = QStringLiteral(".installed");
    const QDir dir = executableDir();
    if (QFileInfo::exists(dir.filePath(mark)))
        return false;
    return !isBundle(dir) || !QFileInfo::exists(resourcesDir(dir).filePath(mark));
}

void ICore::setProgramDir(const QString& dir)
{
    const QMutexLocker locked(&programDir().mutex);
    programDir().path = dir.isEmpty() ? dir : QDir(dir).absolutePath();
}

QDir ICore::getDir(const QString& sub, bool app)
{
    QDir dir;
    const bool portable = isPortable();
    if (!app && !portable) {
        dir = QDir(QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation));
    } else {
        dir = executableDir();
        if (isBundle(dir))
            dir = resourcesDir(dir);
        if (!app)
            enterOrCreate(dir, QStringLiteral("user"));
    }
    if (sub.isEmpty())
        return dir;
    if (app)
        dir.cd(sub);
    else
        enterOrCreate(dir, sub);
    return dir;
}
