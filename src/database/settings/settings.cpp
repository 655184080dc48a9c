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

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int deadAfterMs = 1000;

/// Removes a lock whose maker was killed before writing into it who has it. Qt would wait half a
/// minute for that; anybody alive writes within a millisecond, and holds the file locked as well.
/// Returns whether the lock may yet turn out to be such a one.
bool mayBeDeadLock(const QByteArray& path)
{
    const int file = ::open(path.constData(), O_RDWR | O_CLOEXEC);
    if (file < 0)
        return false;
    struct stat open = {};
    struct stat there = {};
    const bool isEmpty = ::fstat(file, &open) == 0 && open.st_size == 0;
    const qint64 changedMs =
        qint64(open.st_mtim.tv_sec) * 1000 + qint64(open.st_mtim.tv_nsec) / 1000000;
    const bool isOld = qAbs(QDateTime::currentMSecsSinceEpoch() - changedMs) >= deadAfterMs;
    if (isEmpty && isOld && ::flock(file, LOCK_EX | LOCK_NB) == 0 &&
        ::stat(path.constData(), &there) == 0 && there.st_ino == open.st_ino)
        ::unlink(path.constData());
    ::close(file);
    return isEmpty && !isOld;
}

void removeDeadLock(const QSettings& settings)
{
    constexpr int stepMs = 10;
    const QByteArray lock = QFile::encodeName(settings.fileName()) + ".lock";
    for (int waitedMs = 0; mayBeDeadLock(lock) && waitedMs <= 2 * deadAfterMs; waitedMs += stepMs)
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
    {
        mayBeDeadLock(QFile::encodeName(own->fileName()) + ".lock");
    }
    ~SettingsPrivate()
    {
        if (own && isChanged)
            removeDeadLock(*own); // what is left is written now
    }

    bool isFile() const { return settings->format() == SettingsInitializer::jsonFormat(); }

    const std::unique_ptr<QSettings> own; ///< null when the object is the caller's
    QSettings* const settings;
    bool isChanged = false;
    bool isFolderSynced = true;
};

namespace {

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
    : d(std::make_shared<SettingsPrivate>(
          std::make_unique<QSettings>(file.filePath(), SettingsInitializer::jsonFormat())))
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
        removeDeadLock(*d->settings);
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
