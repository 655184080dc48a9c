// SPDX-License-Identifier: MIT
#include "settings/workplacesettings.h"

#include "base/icore.h"

#include <QFile>

namespace {

const QLatin1String suffix(".json");

QFileInfo fileToOpen(const QString& name)
{
    const QFileInfo own = WorkplaceSettings::fileInfoByName(name, true);
    const QFileInfo shipped = WorkplaceSettings::fileInfoByName(name, false);
    return !own.exists() && shipped.exists() ? shipped : own;
}

} // namespace

WorkplaceSettings::WorkplaceSettings(const QString& name)
    : Settings(fileToOpen(name))
{}

QDir WorkplaceSettings::customDir()
{
    return ICore::getDir(QStringLiteral("workplaces"), false);
}

QDir WorkplaceSettings::appDir()
{
    return ICore::getDir(QStringLiteral("user_distrib/workplaces"), true);
}

QList<WorkplaceSettings::Workplace> WorkplaceSettings::workplaces(bool custom)
{
    const QDir dir = custom ? customDir() : appDir();
    const QFileInfoList files =
        dir.entryInfoList({QLatin1Char('*') + suffix}, QDir::Files, QDir::Name);
    QList<Workplace> result;
    for (const QFileInfo& file : files)
        result.append({file.completeBaseName(), file});
    return result;
}

bool WorkplaceSettings::isName(const QString& name)
{
    return !name.isEmpty() && !name.contains(QChar::Null) && QFileInfo(name).fileName() == name;
}

QFileInfo WorkplaceSettings::fileInfoByName(const QString& name, bool custom)
{
    const QDir dir = custom ? customDir() : appDir();
    return QFileInfo(dir.absolutePath() + QDir::separator() + name + suffix);
}

WorkplaceSettings::Workplace WorkplaceSettings::workplace(const QString& name, bool custom)
{
    return {name, fileInfoByName(name, custom)};
}

bool WorkplaceSettings::rename(Workplace& workplace, const QString& newName)
{
    if (!isName(newName))
        return false;
    const QFileInfo target = fileInfoByName(newName, true);
    QFile file(workplace.second.filePath());
    const bool isNew = !file.exists();
    if (isNew) {
        if (!file.open(QIODevice::WriteOnly))
            return false;
        file.close();
    }
    if (!file.rename(target.filePath())) {
        if (isNew)
            file.remove();
        return false;
    }
    workplace = {newName, target};
    workplace.second.refresh();
    return true;
}

std::function<QString(const QString&)> WorkplaceSettings::fallbackName()
{
    return [](const QString& name) {
        QString result = name;
        for (int n = 2; fileInfoByName(result, true).exists(); ++n)
            result = QStringLiteral("%1 %2").arg(name, QString::number(n));
        return result;
    };
}
