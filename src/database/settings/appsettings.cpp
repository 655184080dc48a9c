// SPDX-License-Identifier: MIT
#include "settings/appsettings.h"

#include "base/icore.h"

#include <QFileInfo>

namespace {

QFileInfo shippedFile(const QString& name)
{
    return QFileInfo(ICore::getDir(QStringLiteral("user_defaults"), true), name);
}

QFileInfo userFile(const QString& name)
{
    return QFileInfo(ICore::getDir(QStringLiteral("settings"), false), name);
}

} // namespace

AppSettings::AppSettings(const QFileInfo& file, const QString& group)
    : Settings(file, group)
{}

AppSettings::AppSettings(const QString& group)
    : Settings(customPath(), group)
{}

QString AppSettings::rawFileName()
{
    return QStringLiteral("settings.json");
}

QFileInfo AppSettings::appPath()
{
    return shippedFile(rawFileName());
}

QFileInfo AppSettings::customPath()
{
    return userFile(rawFileName());
}

bool AppSettings::isReset()
{
    // Asking for the folder by its name would make it.
    return !ICore::getDir(QString(), false).exists(QStringLiteral("settings"));
}

AppSettings AppSettings::createReadOnly(const QString& group)
{
    return {settingsPath(false, group, appPath(), customPath()), group};
}

AppSettings AppSettings::createReadWrite(const QString& group)
{
    return {customPath(), group};
}

AppSettings AppSettings::createDefault(const QString& group)
{
    return {appPath(), group};
}

DefaultSettings::DefaultSettings(const QFileInfo& file, const QString& group)
    : Settings(file, group)
{}

DefaultSettings::DefaultSettings(const QString& group)
    : Settings(customPath(), group)
{}

QString DefaultSettings::rawFileName()
{
    return QStringLiteral("default.json");
}

QFileInfo DefaultSettings::appPath()
{
    return shippedFile(rawFileName());
}

QFileInfo DefaultSettings::customPath()
{
    return userFile(rawFileName());
}

DefaultSettings DefaultSettings::createReadOnly(const QString& group)
{
    return {settingsPath(false, group, appPath(), customPath()), group};
}

DefaultSettings DefaultSettings::createReadWrite(const QString& group)
{
    return {customPath(), group};
}

void DefaultSettings::clear()
{
    QStringList names; // of the groups that were entered one after another, the outermost first
    const QString path = group();
    while (!group().isEmpty()) {
        const QString inner = group();
        endGroup();
        names.prepend(inner.mid(group().isEmpty() ? 0 : group().size() + 1));
    }
    remove(path);
    for (const QString& name : qAsConst(names))
        beginGroup(name);
}
