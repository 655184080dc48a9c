// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <QMap>
#include <QObject>
#include <QSettings>
#include <QString>
#include <QVariant>

class QIODevice;

/**
 * The settings format "json": QSettings objects of SettingsInitializer::jsonFormat() are files with
 * one JSON object. The part of a key before each "/" names an object within it, and a value is text
 * in the syntax of qjson.h.
 *
 * | in QSettings                                  | in the file                                  |
 * |-----------------------------------------------|----------------------------------------------|
 * | "board/top" = 5                               | "board": { "top": "5" }                      |
 * | "board/columns" = a list                      | "board": { "columns": [ "bid", "ask" ] }     |
 * | "board/seen" = a map                          | "board": { "@Map_seen": { ... } }            |
 * | an array of Qt's, 2 entries                   | "fills": { "1": {...}, "2": {...}, "size": "2"
 * } | | what a list or map of JSON would alter        | "@Variant(...)", see qjson.h |
 *
 * Files written by hand may also hold numbers, booleans and null, which are read as they are, and
 * an array of objects, which is read as an array of Qt's. In an object that names a member twice
 * the last one counts.
 *
 * Some keys cannot be written, and a warning in the log names each: one that is also a group (the
 * group is kept), one in a group whose name starts with "@Map_", a "size" in a group with all but
 * one of the entries 1 to that size (these become a list without names, and what else the group
 * holds is lost), one of a list that starts with a map (it is written as an array of objects, and
 * read as an array of Qt's), one with a part that starts with U+FEFF, and one with 500 parts or
 * more.
 *
 * Crashes and others: a file is replaced as a whole, and only after every byte is on the disk; when
 * that fails the old file stays, the change is kept in memory and QSettings::status() is
 * AccessError. Programs that write the same file take turns, and see each other's changes. A file
 * that could not be read, or not all of it, is kept beside the new one as NAME.damaged-1 (-2, ...)
 * before the first write; when even that fails nothing is written. One that the system could not
 * read to its end is not read again by the process until it has changed.
 *
 * Messages go to the logging category "QGuiLog". Threads: as QSettings has it; the functions here
 * may be called from any thread. Errors: none is thrown; any bytes may be read.
 *
 * @code
 * QSettings settings(path, SettingsInitializer::jsonFormat());
 * settings.setValue("board/top", 5);
 * @endcode
 */
class LIVETABLE_EXPORT QtJsonSettings : public QObject
{
    Q_OBJECT

public:
    /// A file with more bytes is not read.
    static constexpr qint64 mostBytes = 128 << 20;
    /// Nor one whose keys, all written out in full, have more characters.
    static constexpr qint64 mostKeyCharacters = 32 << 20;

    /**
     * Adds what is read from the device, which is open, to the map. Returns false, with a message
     * in the log and the map as it was, when that is no JSON in UTF-8. A byte-order mark (of UTF-8,
     * or of UTF-16 in either order) is skipped; the text is taken for UTF-8 all the same.
     */
    static bool readJsonFile(QIODevice& device, QMap<QString, QVariant>& map);

    /**
     * Writes the whole map, as an indented JSON document, to the device, which is open. Entries
     * with an empty key are left out. Returns whether it did: for a file, that the system has taken
     * every byte (for a QSaveFile: that they are on the disk), for other devices, that any was
     * taken.
     */
    static bool writeJsonFile(QIODevice& device, const QMap<QString, QVariant>& map);
};

/**
 * Registers the formats "json" and "map" (see MapSettings) with QSettings, in that order, so that
 * they are CustomFormat1 and CustomFormat2 unless the program has registered others before. There
 * is nothing to be done: it happens when the library is loaded.
 */
class LIVETABLE_EXPORT SettingsInitializer
{
public:
    /// Registers both, unless that was done.
    SettingsInitializer();

    /// What to hand to QSettings for a JSON file, and for settings in memory.
    static QSettings::Format jsonFormat();
    static QSettings::Format mapFormat();
};
