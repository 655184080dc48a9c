// SPDX-License-Identifier: MIT
#include "settings/settings.h"

#include "base/fileio_p.h"
#include "settings/damagedfiles_p.h"
#include "settings/qtjsonsettings.h"
#include "settings/settingslog_p.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QThread>

#include <cstdlib>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int deadAfterMs = 1000; // since a lock was written
constexpr int freeForMs = 1000;   // of one with content: who unlocked it may be about to remove it

/// Watches a lock file and removes it when it is nobody's: its maker was killed before writing into
/// it who has it, or it was this process, which could not remove it, or an earlier one of the same
/// number. Qt would wait half a minute for that. Whoever lives writes within a millisecond, and
/// holds the file locked from before that until just before removing it.
class LockWatch
{
public:
    explicit LockWatch(const QString& file)
        : path(QFile::encodeName(file) + ".lock")
    {}

    /// Looks at it once. Whether it may yet turn out to be such a one.
    bool mayBeDead(int sinceMs)
    {
        const int file = ::open(path.constData(), O_RDWR | O_CLOEXEC);
        if (file < 0)
            return false;
        struct stat now = {};
        struct stat there = {};
        const bool isEmpty = ::fstat(file, &now) == 0 && now.st_size == 0;
        const qint64 changedNs = qint64(now.st_mtim.tv_sec) * 1000000000 + now.st_mtim.tv_nsec;
        const qint64 ageMs = QDateTime::currentMSecsSinceEpoch() - changedNs / 1000000;
        const bool isOld = qAbs(ageMs) >= deadAfterMs;
        char owner[16] = "";
        const bool isOurs =
            ::read(file, owner, sizeof owner - 1) > 0 && std::atoi(owner) == ::getpid();
        const bool isFree = (isEmpty ? isOld : isOurs) && ::flock(file, LOCK_EX | LOCK_NB) == 0;
        if (!isFree || changedNs != freeNs)
            freeSinceMs = sinceMs;
        freeNs = isFree ? changedNs : 0;
        const bool isDead = isFree && isOld && (isEmpty || sinceMs - freeSinceMs >= freeForMs);
        if (isDead && ::stat(path.constData(), &there) == 0 && there.st_ino == now.st_ino)
            ::unlink(path.constData());
        ::close(file);
        return !isDead && (isFree || (isEmpty && !isOld));
    }

private:
    const QByteArray path;
    qint64 freeNs = 0; // when the lock was written that was free at the last look
    int freeSinceMs = 0;
};

void removeDeadLock(const QString& file)
{
    constexpr int stepMs = 10;
    LockWatch watch(file);
    for (int waitedMs = 0; watch.mayBeDead(waitedMs) && waitedMs <= 2 * deadAfterMs;
         waitedMs += stepMs)
        QThread::msleep(stepMs);
}

} // namespace

class SettingsPrivate
{
    Q_DISABLE_COPY(SettingsPrivate)

public:
    explicit SettingsPrivate(QSettings* wrapped)
        : settings(wrapped)
    {}
    explicit SettingsPrivate(std::unique_ptr<QSettings> opened)
        : own(std::move(opened))
        , settings(own.get())
    {}
    ~SettingsPrivate()
    {
        if (own && isChanged)
            removeDeadLock(own->fileName()); // what is left is written now
    }

    bool isFile() const { return settings->format() == SettingsInitializer::jsonFormat(); }

    const std::unique_ptr<QSettings> own; ///< null when the object is the caller's
    QSettings* const settings;
    bool isChanged = false;
    bool isFolderSynced = true;
};

namespace {

std::unique_ptr<QSettings> opened(const QFileInfo& file)
{
    removeDeadLock(file.absoluteFilePath()); // Qt writes here what other objects have changed
    return std::make_unique<QSettings>(file.filePath(), SettingsInitializer::jsonFormat());
}

void tellOfFailure(QSettings::Status status, const QString& path)
{
    const auto translated = [](const char* text) {
        return QCoreApplication::translate("Settings", text);
    };
    LiveTable::settingsDebug(translated("Файл конфигурации не может быть загружен."));
    if (status == QSettings::AccessError)
        LiveTable::settingsDebug(translated("Невозможно открыть файл."));
    else if (status == QSettings::FormatError)
        LiveTable::settingsDebug(translated("Формат файла не соответствует заданному."));
    LiveTable::settingsDebug(path);
}

} // namespace

Settings::Settings(const QFileInfo& file, const QString& group)
    : d(std::make_shared<SettingsPrivate>(opened(file)))
{
    if (status() != QSettings::NoError)
        tellOfFailure(status(), file.filePath());
    if (!group.isEmpty())
        beginGroup(group);
}

Settings::Settings(QSettings* settings)
    : d(std::make_shared<SettingsPrivate>(settings))
{}

Settings::Settings(const Settings&) = default;
Settings& Settings::operator=(const Settings&) = default;
Settings::~Settings() = default;

QFileInfo Settings::settingsPath(bool flag, const QString& group, const QFileInfo& appFile,
                                 const QFileInfo& customFile)
{
    if (flag || !appFile.exists())
        return customFile;
    return Settings(customFile).childGroups().contains(group) ? customFile : appFile;
}

void Settings::beginGroup(const QString& prefix) const
{
    d->settings->beginGroup(prefix);
}

void Settings::endGroup() const
{
    d->settings->endGroup();
}

QString Settings::group() const
{
    return d->settings->group();
}

QStringList Settings::childGroups() const
{
    return d->settings->childGroups();
}

QStringList Settings::childKeys() const
{
    return d->settings->childKeys();
}

QStringList Settings::allKeys() const
{
    return d->settings->allKeys();
}

QVariant Settings::value(const QString& key, const QVariant& defaultValue) const
{
    return d->settings->value(key, defaultValue);
}

void Settings::setValue(const QString& key, const QVariant& value)
{
    d->isChanged = true;
    d->settings->setValue(key, value);
}

bool Settings::contains(const QString& key) const
{
    return d->settings->contains(key);
}

void Settings::remove(const QString& key)
{
    d->isChanged = true;
    d->settings->remove(key);
}

int Settings::beginReadArray(const QString& prefix) const
{
    return d->settings->beginReadArray(prefix);
}

void Settings::beginWriteArray(const QString& prefix, int size)
{
    d->isChanged = true;
    d->settings->beginWriteArray(prefix, size);
}

void Settings::setArrayIndex(int i) const
{
    d->settings->setArrayIndex(i);
}

void Settings::endArray() const
{
    d->settings->endArray();
}

void Settings::sync()
{
    if (d->isChanged && d->isFile())
        removeDeadLock(d->settings->fileName());
    d->settings->sync();
    if (!d->isChanged || !d->isFile() || d->settings->status() != QSettings::NoError)
        return;
    const QString folder = QFileInfo(d->settings->fileName()).absolutePath();
    d->isFolderSynced = LiveTable::FileIo::instance().syncFolder(QFile::encodeName(folder)) >= 0;
    d->isChanged = !d->isFolderSynced;
}

QSettings::Format Settings::format() const
{
    return d->settings->format();
}

QSettings::Status Settings::status() const
{
    const QSettings::Status status = d->settings->status();
    if (status != QSettings::NoError || !d->isFile())
        return status;
    if (!d->isFolderSynced)
        return QSettings::AccessError;
    // Qt reads a file once for all objects of the process, and tells only the first of them.
    return LiveTable::DamagedFiles::isUnread(d->settings->fileName()) ? QSettings::FormatError
                                                                      : QSettings::NoError;
}

QSettings* Settings::getQSettings() const
{
    return d->settings;
}
