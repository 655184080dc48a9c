// SPDX-License-Identifier: MIT
#pragma once

#include "settings/settings.h"

#include <QDir>
#include <QFileInfo>
#include <QList>
#include <QPair>

#include <functional>

/**
 * Workplaces: named sets of settings, each a file NAME.json, shipped with the program in
 * "user_distrib/workplaces" or the user's own in "workplaces" (see ICore::getDir()). A user's
 * workplace hides a shipped one of the same name.
 *
 * A name is what the file is called, so it may be anything a file may be called, dots included, but
 * no path. Ownership, threads and errors as in Settings; all functions need a QCoreApplication.
 *
 * @code
 * for (const WorkplaceSettings::Workplace& workplace : WorkplaceSettings::workplaces(true))
 *     menu << workplace.first;
 * WorkplaceSettings settings("morning");
 * @endcode
 */
class LIVETABLE_EXPORT WorkplaceSettings : public Settings
{
public:
    /// A workplace's name and its file.
    using Workplace = QPair<QString, QFileInfo>;

    /// The user's workplace of that name, or the shipped one where only that exists. Where there is
    /// none, what is set makes the user's.
    explicit WorkplaceSettings(const QString& name);

    /// The folder of the user's workplaces, which is made when it is not there.
    static QDir customDir();
    /// The folder of the shipped ones; the last one above it that exists when it does not.
    static QDir appDir();
    /// The user's workplaces (`custom` true) or the shipped ones, in the order of their names.
    static QList<Workplace> workplaces(bool custom);
    /// Whether a workplace may be called so: a file of the folder may, and the name is not empty.
    static bool isName(const QString& name);
    /// The file of a name, existing or not.
    static QFileInfo fileInfoByName(const QString& name, bool custom);
    /// The workplace of a name, existing or not.
    static Workplace workplace(const QString& name, bool custom);

    /**
     * Gives the workplace another name and moves its file to the user's folder, a shipped one as
     * well; one without a file gets an empty one. `workplace` then has the new name and file.
     * Returns false, and leaves all as it was, when the new name is taken or is none, or the file
     * cannot be moved. Settings that are open on the old file would write it anew.
     */
    static bool rename(Workplace& workplace, const QString& newName);

    /// Finds names for new workplaces: the function returns the name it is given, or else the first
    /// of "name 2", "name 3" and so on, that no workplace of the user's has.
    static std::function<QString(const QString&)> fallbackName();
};
