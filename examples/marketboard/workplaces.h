// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

#include <optional>

class QCommandLineParser;

/// What the board shows, and where it last found recorded quotes.
struct View
{
    QStringList columns; ///< of spreadTable(), in this order; empty means all
    int top = 10;        ///< rows
    QString dataFolder;  ///< of the last recorded day that was played; empty: none was
};

/// What of a view was asked for on the command line, and is kept for the next time.
struct ViewChange
{
    std::optional<QStringList> columns;
    std::optional<int> top;
    std::optional<QString> dataFolder;

    bool isEmpty() const { return !columns && !top && !dataFolder; }
};

/// Adds the options --columns, --workplace, --list-workplaces and --settings-dir.
void addViewOptions(QCommandLineParser& parser);

/// Says where settings are, if the command line does; to be called before all below.
void chooseSettingsFolder(const QCommandLineParser& parser);

/// The columns that the command line names, if it does. Throws InputError for unknown ones.
std::optional<QStringList> columnsOf(const QCommandLineParser& parser);

/// The view of a workplace, and for what that does not tell, and without a workplace, that of the
/// application's settings. Throws InputError when there is no such workplace and `change` does not
/// make one, or its name is none.
View loadView(const QString& workplace, const ViewChange& change);

/// Writes the change to the user's workplace, or without one to the application's settings. False
/// when it could not be written.
bool saveView(const QString& workplace, const ViewChange& change);

/// The names of all workplaces, a line for each; those that are shipped and not changed are marked.
QString workplaceLines();
