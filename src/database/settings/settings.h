// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <QSettings>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>

class QFileInfo;
class SettingsPrivate;

/**
 * A QSettings object that is handed around: over a file of the format "json" (qtjsonsettings.h), or
 * over any QSettings of the caller's. Its functions are those of QSettings, one to one. Walking
 * through groups and arrays is const although it moves the position: reading needs it.
 *
 * Ownership: copies share one QSettings with one position. That of a file lives as long as the last
 * of them; a wrapped one is the caller's and must outlive them all. Threads: as QSettings, one at a
 * time; several objects over the same file may be used by several threads. Errors: none is thrown,
 * see status().
 *
 * Changes are written when Qt's event loop gets to it, when the last copy goes, and by sync().
 *
 * @code
 * Settings settings(QFileInfo(path), "board");
 * settings.setValue("top", 5);
 * settings.sync();
 * @endcode
 */
class LIVETABLE_EXPORT Settings
{
public:
    /**
     * Over a file, which need not exist, with `group` entered unless it is empty. When the file
     * cannot be opened or read, three messages in the logging category "QGuiLog" tell that, why,
     * and its path; the object then has no values, and status() is not QSettings::NoError.
     */
    explicit Settings(const QFileInfo& file, const QString& group = QString());

    /// Over an object of the caller's, at its present position. Must not be null.
    explicit Settings(QSettings* settings);
    Settings(const Settings&);
    Settings& operator=(const Settings&);
    virtual ~Settings();

    /**
     * Which file to read of a setting that is shipped (`appFile`) and may be the user's own
     * (`customFile`): the user's if it has the top-level group, and also if nothing is shipped or
     * `flag` is true; else the shipped one. Reads the user's file.
     */
    static QFileInfo settingsPath(bool flag, const QString& group, const QFileInfo& appFile,
                                  const QFileInfo& customFile);

    /// These do what the functions of QSettings do that are called so.
    void beginGroup(const QString& prefix) const;
    void endGroup() const;
    QString group() const;
    QStringList childGroups() const;
    QStringList childKeys() const;
    QStringList allKeys() const;
    QVariant value(const QString& key, const QVariant& defaultValue = QVariant()) const;
    void setValue(const QString& key, const QVariant& value);
    bool contains(const QString& key) const;
    void remove(const QString& key);
    int beginReadArray(const QString& prefix) const;
    void beginWriteArray(const QString& prefix, int size = -1);
    void setArrayIndex(int i) const;
    void endArray() const;

    /// Writes what has changed and reads what others have. Of a file of the format "json" that was
    /// changed through this class the folder is synced as well, so that the change survives the
    /// loss of power. A file that could not be written stays as it was: see status().
    void sync();

    /// The format of the wrapped object.
    QSettings::Format format() const;

    /// As QSettings::status(), which stays at the first error. Also FormatError for a damaged file
    /// that another object has tried to read before, and AccessError when sync() could not sync the
    /// folder. Of a MapSettings it says nothing.
    QSettings::Status status() const;

    /// The wrapped object. Never null.
    QSettings* getQSettings() const;

private:
    std::shared_ptr<SettingsPrivate> d;
};
