// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <QMap>
#include <QScopedPointer>
#include <QSettings>
#include <QString>
#include <QVariant>

class MapSettingsPrivate;
class QIODevice;
class Settings;

/**
 * Settings in memory: a QSettings without a file, to collect values, hand them around as a Settings
 * and copy them into or out of a file. Qt keeps the values of all MapSettings in one place, so each
 * has a group of its own there, which its constructor enters; nothing of it is left when it goes.
 *
 * Keys are relative to the group that is open: copying to or from an object in which the caller has
 * opened a group is about that group alone. endAllGroups() goes back to the top.
 *
 * Ownership: the Settings of asSetRef(), and copies of it, are good as long as this object. Copies
 * of a MapSettings share nothing. Threads: as QSettings: one object from one thread at a time.
 * Errors: none is thrown. status() means nothing here: Qt looks for a file to write now and then
 * (not when the event loop runs, but at sync() and when another object is made), finds none, and
 * then says AccessError. No file is written; a ".lock" may stand in the working directory
 * meanwhile.
 *
 * @code
 * MapSettings chosen;
 * dialog.fill(chosen.asSetRef());
 * AppSettings settings;
 * chosen.store(settings, "board"); // the group holds exactly what was chosen
 * @endcode
 */
class LIVETABLE_EXPORT MapSettings : public QSettings
{
    Q_OBJECT

public:
    /// Empty.
    MapSettings();
    /// With a copy of every key below the group that is open in the source.
    explicit MapSettings(const QSettings& src);
    explicit MapSettings(const Settings& src);
    MapSettings(const MapSettings& other);
    /// All is dropped, and replaced by a copy of what is below the other's group; groups that are
    /// open here are closed. Assigning an object to itself changes nothing.
    MapSettings& operator=(const MapSettings& other);
    ~MapSettings() override;

    /// Drops every key and closes every group of the caller's.
    void clear();
    /// Closes every group that the caller has opened.
    void endAllGroups();

    /// Makes the group `prefix` of `dst` (empty: the one that is open there) hold exactly the keys
    /// of this object. `dst` is then at the group where it was.
    void store(QSettings& dst, const QString& prefix);
    void store(Settings& dst, const QString& prefix);
    /// The same, but keys there that this object has not stay.
    void storeAdd(QSettings& dst, const QString& prefix);

    /// Copies every key of the group `prefix` of `src` (empty: the one that is open there) into
    /// this object; its other keys stay. `src` is then at the group where it was.
    void restore(const Settings& src, const QString& prefix);
    void restore(QSettings& src, const QString& prefix);
    void restore(const QSettings& src);

    /// This object as a Settings.
    Settings& asSetRef();
    const Settings& asSetRef() const;

protected:
    /// Keeps the event loop from looking for a file.
    bool event(QEvent* event) override;

private:
    void init();

    const QScopedPointer<MapSettingsPrivate> d;
};

/// The format "map", in which MapSettings are: reads nothing and returns true.
LIVETABLE_EXPORT bool readMapSettings(QIODevice& device, QMap<QString, QVariant>& map);

/// Writes nothing, removes the file if the device is a QFile, and returns true.
LIVETABLE_EXPORT bool writeMapSettings(QIODevice& device, const QMap<QString, QVariant>& map);
