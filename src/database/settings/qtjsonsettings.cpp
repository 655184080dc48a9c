// SPDX-License-Identifier: MIT
#include "settings/qtjsonsettings.h"

#include "base/fileio_p.h"
#include "settings/damagedfiles_p.h"
#include "settings/jsonmembers_p.h"
#include "settings/mapsettings.h"
#include "settings/qjson.h"
#include "settings/settingslog_p.h"
#include "settings/variantstream_p.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QTextCodec>

#include <algorithm>
#include <cmath>
#include <limits>

using LiveTable::DamagedFiles;

namespace {

const QLatin1String mapMark("@Map_");
const QLatin1String sizeKey("size");
constexpr QLatin1Char slash('/');
constexpr int mostLevels = 500; // of a key; Qt reads 1024 levels of JSON

QTextCodec* utf8()
{
    // Kept: looking for it takes Qt milliseconds.
    static QTextCodec* const codec = QTextCodec::codecForName("utf-8");
    return codec;
}

void skipByteOrderMark(QIODevice& device)
{
    const QByteArray start = device.peek(3);
    for (const char* const mark : {"\xEF\xBB\xBF", "\xFE\xFF", "\xFF\xFE"})
        if (start.startsWith(mark)) {
            device.read(qint64(qstrlen(mark)));
            return;
        }
}

/// All that is left, or a little more than is too much.
QByteArray readAll(QIODevice& device)
{
    constexpr qint64 chunk = 64 << 10;
    QByteArray bytes;
    while (bytes.size() <= QtJsonSettings::mostBytes) {
        const QByteArray more = device.read(chunk);
        if (more.isEmpty())
            break;
        bytes += more;
    }
    return bytes;
}

/// Turns nested objects into a flat map.
class KeyMapper
{
public:
    explicit KeyMapper(QMap<QString, QVariant>& flat)
        : map(flat)
    {}

    /// `key` is the prefix so far, with a "/" at its end unless it is empty. It is as it was when
    /// this returns.
    void processReadKey(QString& key, const QVariant& value);
    bool isTooLarge() const { return charactersLeft < 0; }
    /// Whether something will be missing when the map is written.
    bool hasLeftOut() const { return isLeftOut; }

private:
    void processMember(QString& key, const QString& name, const QVariant& value);
    void store(const QString& key, const QVariant& value);
    static QVariant textValue(const QString& text);

    QMap<QString, QVariant>& map;
    qint64 charactersLeft = QtJsonSettings::mostKeyCharacters;
    bool isLeftOut = false;
};

void KeyMapper::store(const QString& key, const QVariant& value)
{
    // A long name over many members would take a multiple of the file's size.
    charactersLeft -= key.size();
    const bool isTooDeep = key.count(slash) >= mostLevels;
    // Nor can an empty key be written again, nor one that comes twice ("a/b" and, in "a", "b").
    isLeftOut = isLeftOut || isTooDeep || key.isEmpty() || map.contains(key);
    if (!isTooDeep && !isTooLarge())
        map.insert(key, value);
}

QVariant KeyMapper::textValue(const QString& text)
{
    const QByteArray bytes = text.toUtf8();
    QString single;
    QStringList several;
    if (QJson::unescapedStringList(bytes, 0, bytes.size(), single, several, utf8()))
        return QJson::stringListToVariantList(several);
    return QJson::stringToVariant(single);
}

void KeyMapper::processMember(QString& key, const QString& name, const QVariant& value)
{
    const int size = key.size();
    key += name + slash;
    processReadKey(key, value);
    key.truncate(size);
}

void KeyMapper::processReadKey(QString& key, const QVariant& value)
{
    if (isTooLarge())
        return;
    const QString path = key.left(key.size() - 1);
    const int segment = path.lastIndexOf(slash) + 1;
    switch (value.userType()) {
    case QMetaType::QVariantMap: {
        const QVariantMap object = value.toMap();
        if (path.midRef(segment).startsWith(mapMark)) {
            store(path.left(segment) + path.mid(segment + mapMark.size()), object);
            break;
        }
        for (auto member = object.begin(); member != object.end(); ++member)
            processMember(key, member.key(), member.value());
        break;
    }
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        if (list.value(0).userType() != QMetaType::QVariantMap) {
            store(path, list);
            break;
        }
        store(key + sizeKey, list.size());
        for (int i = 0; i < list.size(); ++i)
            processMember(key, QString::number(i + 1), list.at(i));
        break;
    }
    case QMetaType::QString:
        store(path, textValue(value.toString()));
        break;
    default:
        store(path, value);
    }
}

/// Qt drops a byte-order mark at the start of a text, and keeps all else.
bool isTextCarried(const QString& text)
{
    return !text.startsWith(QChar(QChar::ByteOrderMark));
}

/// Whether JSON gives the value back as it is, in another type of number or list at most.
bool isCarriedByJson(const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::QString:
        return isTextCarried(value.toString());
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::Nullptr:
        return true;
    case QMetaType::ULongLong:
        return value.toULongLong() <= quint64(std::numeric_limits<qint64>::max());
    case QMetaType::Double:
        return std::isfinite(value.toDouble());
    case QMetaType::QStringList: {
        const QStringList texts = value.toStringList();
        return std::all_of(texts.begin(), texts.end(), isTextCarried);
    }
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        return std::all_of(list.begin(), list.end(), isCarriedByJson);
    }
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        return isCarriedByJson(QVariant(QStringList(map.keys()))) &&
               std::all_of(map.begin(), map.end(), isCarriedByJson);
    }
    default:
        return false;
    }
}

/// Whether a list or map stays one in the file. What JSON would alter does not, if there is a text
/// for it that is read as the same again.
bool isKept(const QVariant& value)
{
    return isCarriedByJson(value) || !LiveTable::isStreamable(value) ||
           !LiveTable::isSameVariant(LiveTable::variantFromBytes(LiveTable::variantToBytes(value)),
                                     value);
}

QVariant writtenValue(const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::QVariantMap:
    case QMetaType::QVariantList:
    case QMetaType::QStringList:
        if (isKept(value))
            return value;
        break;
    case QMetaType::QString:
        if (value.toString().isNull())
            return value;
        break;
    default:
        break;
    }
    QByteArray bytes;
    QJson::escapedString(QJson::variantToString(value), bytes, utf8());
    return QString::fromUtf8(bytes); // of empty bytes Qt's JSON would make a null
}

/// The list that a group becomes by its key "size", or an invalid value. Files have it that way: a
/// group of n entries, all there, stays an object, and becomes an array when one of them is
/// missing; what else is there is lost.
QVariant processWriteList(const QVariantMap& map, const QString& key, const QVariant& value)
{
    bool isNumber = false;
    const int n = key == sizeKey ? value.toInt(&isNumber) : 0;
    if (!isNumber || n < 1 || n - 1 > map.size())
        return QVariant();
    QVariantList list;
    int counter = 1;
    for (int i = 1; i <= n; ++i) {
        const auto entry = map.constFind(QString::number(i));
        counter += entry != map.constEnd();
        list.append(entry != map.constEnd() ? *entry : QVariant());
    }
    return counter == n ? list : QVariant();
}

/// Puts the value into the tree below the node, in place.
void processWriteKey(QVariant& node, const QString& key, const QVariant& value, bool isRoot)
{
    if (node.userType() != QMetaType::QVariantMap)
        node = QVariantMap();
    auto& map = *static_cast<QVariantMap*>(node.data());
    const int split = key.indexOf(slash);
    if (split >= 0) {
        processWriteKey(map[key.left(split)], key.mid(split + 1), value, false);
        return;
    }
    const QVariant list = processWriteList(map, key, value);
    if (list.isValid() && !isRoot) // the document is an object
        node = list;
    else if (value.userType() == QMetaType::QVariantMap)
        map.insert(mapMark + key, value);
    else
        map.insert(key, value);
}

/// Reads a document as it will be read from the file; false, with the reason, when it would not be.
bool readDocument(QByteArray bytes, QMap<QString, QVariant>& map, QJsonParseError& error,
                  bool& isWhole)
{
    if (bytes.size() > QtJsonSettings::mostBytes) {
        error = {int(QtJsonSettings::mostBytes), QJsonParseError::DocumentTooLarge};
        return false;
    }
    isWhole = !LiveTable::blankRepeatedMembers(bytes);
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError)
        return false;
    KeyMapper mapper(map);
    QString prefix;
    mapper.processReadKey(prefix, document.object().toVariantMap());
    if (mapper.isTooLarge())
        error = {bytes.size(), QJsonParseError::DocumentTooLarge};
    isWhole = isWhole && document.isObject() && !mapper.hasLeftOut();
    return !mapper.isTooLarge();
}

/// Whether the document can be read again, with a word on the keys that are lost in it.
bool isReadable(const QByteArray& bytes, const QMap<QString, QVariant>& map)
{
    QMap<QString, QVariant> carried;
    QJsonParseError error = {};
    bool isWhole = false;
    if (!readDocument(bytes, carried, error, isWhole)) {
        LiveTable::settingsWarning(
            QStringLiteral("The settings could not be read again and are not written: ") +
            error.errorString());
        return false;
    }
    for (auto entry = map.begin(); entry != map.end(); ++entry)
        if (!entry.key().isEmpty() && !carried.contains(entry.key()))
            LiveTable::settingsWarning(QStringLiteral("The settings file can't hold the key ") +
                                       entry.key());
    return true;
}

/// Gives the file a time of change later than that of the file it replaces. QSettings tells by size
/// and time whether another program has written, and a clock of some milliseconds is too coarse.
void makeNewer(QSaveFile& file)
{
    const QFileInfo old(file.fileName());
    qint64 time = QDateTime::currentMSecsSinceEpoch();
    if (old.exists())
        time = qMax(time, old.lastModified().toMSecsSinceEpoch() + 1);
    file.setFileTime(QDateTime::fromMSecsSinceEpoch(time), QFileDevice::FileModificationTime);
}

bool writeAll(QIODevice& device, const QByteArray& bytes)
{
    qint64 done = 0;
    while (done < bytes.size()) {
        const qint64 written = device.write(bytes.constData() + done, bytes.size() - done);
        if (written <= 0)
            break;
        done += written;
    }
    auto* const file = qobject_cast<QFileDevice*>(&device);
    if (!file)
        return done > 0;
    if (done < bytes.size() || !file->flush())
        return false;
    auto* const save = qobject_cast<QSaveFile*>(file);
    if (!save)
        return true;
    makeNewer(*save);
    // Qt syncs as well, and goes on when that fails.
    return LiveTable::FileIo::instance().sync(save->handle()) >= 0;
}

} // namespace

bool QtJsonSettings::readJsonFile(QIODevice& device, QMap<QString, QVariant>& map)
{
    const auto* const file = qobject_cast<QFile*>(&device);
    const QString path = file ? file->fileName() : QString();
    skipByteOrderMark(device);
    QMap<QString, QVariant> flat;
    QJsonParseError error = {};
    bool isWhole = false;
    const bool isRead = readDocument(readAll(device), flat, error, isWhole);
    if (isRead && isWhole)
        DamagedFiles::remove(path);
    else if (file)
        DamagedFiles::add(path, !isRead);
    if (!isRead) {
        LiveTable::settingsDebug(
            tr("Ошибка при чтении настроек JSON:\n %1 \n %2 в строке %3")
                .arg(file ? path : QString::fromLatin1(device.metaObject()->className()),
                     error.errorString(), QString::number(error.offset)));
        return false;
    }
    for (auto entry = flat.begin(); entry != flat.end(); ++entry)
        map.insert(entry.key(), entry.value());
    return true;
}

bool QtJsonSettings::writeJsonFile(QIODevice& device, const QMap<QString, QVariant>& map)
{
    const auto* const file = qobject_cast<QSaveFile*>(&device);
    if (file && !DamagedFiles::keep(file->fileName()))
        return false;
    QVariant root = QVariantMap();
    for (auto entry = map.begin(); entry != map.end(); ++entry)
        if (!entry.key().isEmpty() && entry.key().count(slash) < mostLevels)
            processWriteKey(root, entry.key(), writtenValue(entry.value()), true);
    const QByteArray bytes = QJsonDocument(QJsonObject::fromVariantMap(root.toMap())).toJson();
    if (!isReadable(bytes, map) || !writeAll(device, bytes))
        return false;
    if (file)
        DamagedFiles::remove(file->fileName());
    return true;
}

SettingsInitializer::SettingsInitializer()
{
    jsonFormat();
    mapFormat();
}

QSettings::Format SettingsInitializer::jsonFormat()
{
    static const QSettings::Format format = QSettings::registerFormat(
        QStringLiteral("json"), QtJsonSettings::readJsonFile, QtJsonSettings::writeJsonFile);
    return format;
}

QSettings::Format SettingsInitializer::mapFormat()
{
    jsonFormat(); // the order counts
    static const QSettings::Format format =
        QSettings::registerFormat(QStringLiteral("map"), readMapSettings, writeMapSettings);
    return format;
}

static const SettingsInitializer settingsInitializer;
