// SPDX-License-Identifier: MIT
#include "settings/variantstream_p.h"

#include <QBuffer>
#include <QDataStream>
#include <QHash>
#include <QMap>
#include <QStringList>

namespace {

constexpr QDataStream::Version versions[] = {QDataStream::Qt_4_0, QDataStream::Qt_5_6};
constexpr int mostNested = 100; // containers in one another; each takes a stack frame to read

QByteArray written(const QVariant& value, QDataStream::Version version)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(version);
    stream << value;
    return bytes;
}

/// Reads one value of a version. Containers are read here, element by element, as far as the bytes
/// last; single values are left to Qt.
class Reader
{
public:
    Reader(const QByteArray& bytes, QDataStream::Version version)
    {
        buffer.setData(bytes);
        buffer.open(QIODevice::ReadOnly);
        stream.setDevice(&buffer);
        stream.setVersion(version);
    }

    QVariant read()
    {
        const QVariant value = readValue(0);
        return isFine() && buffer.atEnd() ? value : QVariant();
    }

private:
    int readType();
    QVariant readValue(int depth);
    QVariant readLeaf(qint64 start, int type);
    template <typename ReadOne>
    void readCounted(ReadOne readOne);
    template <typename Map>
    QVariant readMap(int depth);
    template <typename Text, typename List>
    QVariant readTexts();
    bool isFine() const { return stream.status() == QDataStream::Ok; }
    void refuse() { stream.setStatus(QDataStream::ReadCorruptData); }

    QBuffer buffer;
    QDataStream stream;
};

/// The meta-type that the head of a value names, which streams of Qt 4 number differently.
int Reader::readType()
{
    constexpr quint32 userOfQt4 = 127;
    constexpr quint32 shiftOfQt4 = 97; // of types that Qt 4 did not have
    const bool isQt4 = stream.version() < QDataStream::Qt_5_0;
    quint32 id = 0;
    stream >> id;
    if (!isQt4) {
        qint8 isNull = 0;
        stream >> isNull;
    }
    if (id == (isQt4 ? userOfQt4 : quint32(QMetaType::User))) {
        QByteArray name;
        stream >> name;
        const int type = QMetaType::type(name.constData());
        return type != QMetaType::UnknownType ? type : QMetaType::Void;
    }
    if (isQt4 && id > userOfQt4 && id <= QMetaType::LastCoreType + shiftOfQt4)
        id -= shiftOfQt4;
    return id < QMetaType::User ? static_cast<int>(id) : QMetaType::Void;
}

QVariant Reader::readLeaf(qint64 start, int type)
{
    switch (type) {
    case QMetaType::Void:
    case QMetaType::QVariant:     // nests without a bound
    case QMetaType::QEasingCurve: // reads the address of a function, and calls it
    case QMetaType::QRegExp:      // compiles the pattern at once, whatever it takes
        refuse();
        return QVariant();
    default:
        break;
    }
    QVariant value;
    if (type != QMetaType::UnknownType && !QMetaType::isRegistered(type)) {
        refuse(); // Qt would, with a message in the log
        return value;
    }
    buffer.seek(start);
    stream >> value;
    return value;
}

template <typename ReadOne>
void Reader::readCounted(ReadOne readOne)
{
    quint32 count = 0;
    stream >> count;
    // No element is without bytes, so the count is not believed beyond them.
    for (quint32 i = 0; i < count && isFine(); ++i)
        readOne();
}

template <typename Map>
QVariant Reader::readMap(int depth)
{
    Map map;
    readCounted([&] {
        QString key;
        stream >> key;
        map.insert(key, readValue(depth + 1));
    });
    return map;
}

template <typename Text, typename List>
QVariant Reader::readTexts()
{
    List list;
    readCounted([&] {
        Text text;
        stream >> text;
        list.append(text);
    });
    return QVariant::fromValue(list);
}

QVariant Reader::readValue(int depth)
{
    const qint64 start = buffer.pos();
    const int type = readType();
    if (!isFine() || depth > mostNested) {
        refuse();
        return QVariant();
    }
    switch (type) {
    case QMetaType::QVariantList: {
        QVariantList list;
        readCounted([&] { list.append(readValue(depth + 1)); });
        return list;
    }
    case QMetaType::QVariantMap:
        return readMap<QVariantMap>(depth);
    case QMetaType::QVariantHash:
        return readMap<QVariantHash>(depth);
    case QMetaType::QStringList:
        return readTexts<QString, QStringList>();
    case QMetaType::QByteArrayList:
        return readTexts<QByteArray, QByteArrayList>();
    default:
        return readLeaf(start, type);
    }
}

template <typename Map>
bool areStreamable(const Map& values)
{
    for (const QVariant& value : values)
        if (!LiveTable::isStreamable(value))
            return false;
    return true;
}

} // namespace

bool LiveTable::isStreamable(const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::UnknownType:
        return true;
    case QMetaType::QVariantList:
        return areStreamable(value.toList());
    case QMetaType::QVariantMap:
        return areStreamable(value.toMap());
    case QMetaType::QVariantHash:
        return areStreamable(value.toHash());
    default:
        break;
    }
    // Asked of the type itself: QVariant would complain in the log.
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    return QMetaType::save(stream, value.userType(), value.constData());
}

QByteArray LiveTable::variantToBytes(const QVariant& value)
{
    for (const QDataStream::Version version : versions) {
        QByteArray bytes = written(value, version);
        if (isSameVariant(variantFromBytes(bytes), value))
            return bytes;
    }
    return written(value, versions[0]);
}

QVariant LiveTable::variantFromBytes(const QByteArray& bytes)
{
    for (const QDataStream::Version version : versions) {
        try {
            QVariant value = Reader(bytes, version).read();
            if (value.isValid())
                return value;
        } catch (...) { // a type of the host's
        }
    }
    return QVariant();
}

bool LiveTable::isSameVariant(const QVariant& a, const QVariant& b)
{
    if (a.userType() != b.userType())
        return false;
    // A hash has no order of its own. Other values compare by all that they hold, which == does not
    // do for instants, nor for types without a comparison.
    if (a.userType() == QMetaType::QVariantHash)
        return a == b;
    return written(a, versions[1]) == written(b, versions[1]);
}
