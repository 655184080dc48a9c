// SPDX-License-Identifier: MIT
#pragma once

#include "settings/settings.h"

/**
 * The application's settings: "settings.json", shipped with the program in "user_defaults" (never
 * written by it) and the user's own in "settings". ICore::getDir() says where those lie, in a
 * portable copy and in an installed one.
 *
 * What is shipped holds until the user's file has the group: a group is read as a whole from one of
 * both. Ownership, threads and errors as in Settings; all functions need a QCoreApplication.
 *
 * @code
 * const int top = AppSettings::createReadOnly("board").value("top", 10).toInt();
 * AppSettings::createReadWrite("board").setValue("top", 5);
 * @endcode
 */
class LIVETABLE_EXPORT AppSettings : public Settings
{
public:
    /// The user's file, with the group entered unless it is empty.
    explicit AppSettings(const QString& group = QString());

    /// "settings.json".
    static QString rawFileName();
    /// The shipped file.
    static QFileInfo appPath();
    /// The user's file. Asking makes its folder, and ends isReset().
    static QFileInfo customPath();
    /// Whether the user has no folder "settings" yet.
    static bool isReset();

    /// To read the group from the user's file if that has it, else from the shipped one; without a
    /// shipped file always the user's. `group` is a top-level one.
    static AppSettings createReadOnly(const QString& group = QString());
    /// To read and write the user's file.
    static AppSettings createReadWrite(const QString& group = QString());
    /// To read the shipped file.
    static AppSettings createDefault(const QString& group = QString());

private:
    AppSettings(const QFileInfo& file, const QString& group);
};

/**
 * The same for "default.json": settings that the user may put back to what was shipped, group by
 * group, with clear().
 *
 * @code
 * DefaultSettings::createReadWrite("board").clear(); // what is shipped holds again
 * @endcode
 */
class LIVETABLE_EXPORT DefaultSettings : public Settings
{
public:
    /// The user's file, with the group entered unless it is empty.
    explicit DefaultSettings(const QString& group = QString());

    /// "default.json".
    static QString rawFileName();
    /// The shipped file.
    static QFileInfo appPath();
    /// The user's file. Asking makes its folder.
    static QFileInfo customPath();

    /// As those of AppSettings.
    static DefaultSettings createReadOnly(const QString& group = QString());
    static DefaultSettings createReadWrite(const QString& group = QString());

    /// Removes the present group with all its keys and groups, and stays in it; outside any group
    /// removes everything.
    void clear();

private:
    DefaultSettings(const QFileInfo& file, const QString& group);
};
