// SPDX-License-Identifier: MIT
#include "workplace.h"

#include "settings/appsettings.h"
#include "settings/workplacesettings.h"

namespace {

const QString Group = QStringLiteral("desk");
const QString LastKey = QStringLiteral("workplace");

} // namespace

QString Workplace::standardName()
{
    return QStringLiteral("Standard");
}

QStringList Workplace::names()
{
    QStringList all;
    for (const bool isCustom : {true, false})
        for (const WorkplaceSettings::Workplace& workplace :
             WorkplaceSettings::workplaces(isCustom))
            all << workplace.first;
    all.removeDuplicates();
    all.removeAll(standardName());
    all.sort(Qt::CaseInsensitive);
    all.prepend(standardName());
    return all;
}

QString Workplace::last()
{
    const QString name = AppSettings::createReadOnly(Group).value(LastKey).toString();
    return WorkplaceSettings::isName(name) ? name : standardName();
}

void Workplace::setLast(const QString& name)
{
    AppSettings settings = AppSettings::createReadWrite(Group);
    settings.setValue(LastKey, name);
}

Settings Workplace::toRead(const QString& name)
{
    WorkplaceSettings settings(name);
    settings.beginGroup(Group);
    return std::move(settings);
}

Settings Workplace::toWrite(const QString& name)
{
    WorkplaceSettings::customDir(); // is there from now on
    return Settings(WorkplaceSettings::fileInfoByName(name, true), Group);
}
