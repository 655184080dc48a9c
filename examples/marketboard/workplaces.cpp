// SPDX-License-Identifier: MIT
#include "workplaces.h"

#include "display.h"
#include "session.h"

#include "base/icore.h"
#include "settings/appsettings.h"
#include "settings/workplacesettings.h"

#include <QCommandLineParser>

#include <map>

namespace {

const QString group = QStringLiteral("board");
const QString columnsKey = QStringLiteral("columns");
const QString topKey = QStringLiteral("top");
const QString folderKey = QStringLiteral("dataFolder");

/// The names among `names` that are columns; a file may hold anything.
QStringList knownColumns(const QStringList& names)
{
    const QStringList all = spreadColumns();
    QStringList known;
    for (const QString& name : names)
        if (all.contains(name))
            known.append(name);
    return known;
}

/// Takes what the settings have of a view.
void read(const Settings& settings, View& view)
{
    bool isNumber = false;
    const int top = settings.value(topKey).toInt(&isNumber);
    if (isNumber && top >= 0)
        view.top = top;
    if (settings.contains(columnsKey))
        view.columns = knownColumns(settings.value(columnsKey).toStringList());
    if (settings.contains(folderKey))
        view.dataFolder = settings.value(folderKey).toString();
}

bool exists(const QString& workplace)
{
    return WorkplaceSettings::fileInfoByName(workplace, true).exists() ||
           WorkplaceSettings::fileInfoByName(workplace, false).exists();
}

} // namespace

void addViewOptions(QCommandLineParser& parser)
{
    parser.addOption({QStringLiteral("columns"),
                      QStringLiteral("Print these columns, in this order: ") +
                          spreadColumns().join(QLatin1Char(',')) + QLatin1Char('.'),
                      QStringLiteral("names")});
    parser.addOption({QStringLiteral("workplace"),
                      QStringLiteral("Show the board as in the workplace <name>, and keep what "
                                     "--columns, --top and --data say there."),
                      QStringLiteral("name")});
    parser.addOption({QStringLiteral("list-workplaces"),
                      QStringLiteral("Print the names of all workplaces, and play nothing.")});
    parser.addOption({QStringLiteral("settings-dir"),
                      QStringLiteral("Look for settings below <dir>, as if the program lay there."),
                      QStringLiteral("dir")});
}

void chooseSettingsFolder(const QCommandLineParser& parser)
{
    if (!parser.isSet(QStringLiteral("settings-dir")))
        return;
    const QString folder = parser.value(QStringLiteral("settings-dir"));
    if (folder.isEmpty())
        throw InputError{QStringLiteral("--settings-dir needs the name of a folder")};
    if (!QDir().mkpath(folder))
        throw InputError{QStringLiteral("%1: the folder cannot be made").arg(folder)};
    ICore::setProgramDir(folder);
}

std::optional<QStringList> columnsOf(const QCommandLineParser& parser)
{
    if (!parser.isSet(QStringLiteral("columns")))
        return std::nullopt;
    const QStringList names =
        parser.value(QStringLiteral("columns")).split(QLatin1Char(','), Qt::SkipEmptyParts);
    if (knownColumns(names) != names)
        throw InputError{QStringLiteral("--columns takes names among %1")
                             .arg(spreadColumns().join(QLatin1Char(',')))};
    return names;
}

View loadView(const QString& workplace, const ViewChange& change)
{
    View view;
    read(AppSettings::createReadOnly(group), view);
    if (!workplace.isEmpty()) {
        if (!WorkplaceSettings::isName(workplace) || (!exists(workplace) && change.isEmpty()))
            throw InputError{QStringLiteral("there is no workplace '%1'").arg(workplace)};
        const WorkplaceSettings settings(workplace);
        settings.beginGroup(group);
        read(settings, view);
    }
    view.columns = change.columns.value_or(view.columns);
    view.top = change.top.value_or(view.top);
    return view;
}

bool saveView(const QString& workplace, const ViewChange& change)
{
    if (change.isEmpty())
        return true;
    // A group is read from one file, so the user's gets the whole view, not the change alone.
    View view = loadView(workplace, change);
    view.dataFolder = change.dataFolder.value_or(view.dataFolder);
    Settings settings = workplace.isEmpty()
                            ? Settings(AppSettings::createReadWrite())
                            : Settings(WorkplaceSettings::fileInfoByName(workplace, true));
    settings.beginGroup(group);
    settings.setValue(columnsKey, view.columns);
    settings.setValue(topKey, view.top);
    settings.setValue(folderKey, view.dataFolder);
    settings.sync();
    return settings.status() != QSettings::AccessError;
}

QString workplaceLines()
{
    std::map<QString, QString> lines;
    for (const auto& workplace : WorkplaceSettings::workplaces(false))
        lines[workplace.first] = QStringLiteral("%1 (shipped)\n").arg(workplace.first);
    for (const auto& workplace : WorkplaceSettings::workplaces(true))
        lines[workplace.first] = workplace.first + QLatin1Char('\n');
    QString text;
    for (const auto& [name, line] : lines)
        text += line;
    return text;
}
