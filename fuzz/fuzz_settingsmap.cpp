// SPDX-License-Identifier: MIT
// Settings made of the input's bytes: what is written is read back the same, and so is every text
// of the codec. Its reader also gets the bytes as they are.
#include "settings/qjson.h"
#include "settings/qtjsonsettings.h"
#include "value/decimal.h"

#include <QBuffer>
#include <QDateTime>
#include <QLoggingCategory>
#include <QRect>
#include <QTextCodec>

#include <cstdlib>
#include <cstring>

namespace {

void require(bool isTrue)
{
    if (!isTrue)
        std::abort();
}

/// Makes values of the bytes, of zeros when they are used up.
class Source
{
public:
    Source(const unsigned char* data, size_t size)
        : at(data)
        , left(size)
    {}

    bool isEmpty() const { return left == 0; }
    int below(int end)
    {
        if (left == 0)
            return 0;
        --left;
        return *at++ % end;
    }
    template <typename T>
    T number()
    {
        T value = {};
        for (size_t i = 0; i < sizeof(T); ++i)
            value = static_cast<T>(value << 8 | below(256));
        return value;
    }
    QString text(bool isName = false)
    {
        static const QString usual = QStringLiteral("@()\"\\,;= \t/0aAf:Ж\u00A0\uFEFF\uFFFF");
        QString result(QLatin1String("")); // a null text is no text
        for (int size = below(12); size > 0; --size)
            result += below(3) ? usual.at(below(usual.size())) : QChar(number<ushort>());
        if (isName) // no group, and what UTF-8 can carry
            result = QString::fromUtf8(result.toUtf8()).remove(QLatin1Char('/'));
        return result;
    }
    QVariant value(int depth = 0);

private:
    const unsigned char* at;
    size_t left;
};

QVariant Source::value(int depth)
{
    switch (below(depth > 4 ? 12 : 16)) {
    case 0:
        return text();
    case 1:
        return text().toUtf8();
    case 2:
        return QVariant::fromValue(decimal(number<qint64>() >> 8, 2));
    case 3:
        return QRect(number<int>() / 4, number<int>() / 4, below(9), number<int>() / 4);
    case 4:
        return QSize(number<int>(), below(100));
    case 5:
        return QPoint(number<int>(), number<int>());
    case 6:
        return QVariant();
    case 7:
        return QDateTime::fromMSecsSinceEpoch(number<quint32>(), Qt::OffsetFromUTC, below(99) * 60);
    case 8:
        return QChar(number<ushort>());
    case 9:
        return QVariant::fromValue(number<short>());
    case 10:
        return QPointF(number<int>(), 0.1);
    case 11:
        return QTime::fromMSecsSinceStartOfDay(below(256) * 1001);
    case 12: {
        QVariantMap map;
        for (int i = below(4); i > 0; --i)
            map.insert(text(), value(depth + 1));
        return map;
    }
    case 13: {
        QVariantHash hash;
        hash.insert(text(), value(depth + 1));
        return hash;
    }
    default: {
        QVariantList list;
        for (int i = below(4); i > 0; --i)
            list.append(value(depth + 1));
        return list;
    }
    }
}

void checkMap(Source source)
{
    QMap<QString, QVariant> map;
    for (int i = 0; i < 40 && !source.isEmpty(); ++i) {
        QString key; // groups start with 'g' and values with 'v': no key is a group of another
        for (int level = source.below(4); level > 0; --level)
            key += QLatin1Char('g') + source.text(true) + QLatin1Char('/');
        map.insert(key + QLatin1Char('v') + source.text(true), source.value());
    }
    QBuffer buffer;
    buffer.open(QIODevice::ReadWrite);
    require(QtJsonSettings::writeJsonFile(buffer, map));
    buffer.seek(0);
    QMap<QString, QVariant> back;
    require(QtJsonSettings::readJsonFile(buffer, back));
    require(back.keys() == map.keys());
    for (auto entry = map.begin(); entry != map.end(); ++entry) {
        const QVariant& value = back[entry.key()];
        require(value.userType() == entry->userType() && value == *entry);
    }
}

void checkCodec(Source source, const QByteArray& bytes)
{
    static QTextCodec* const codecs[] = {QTextCodec::codecForName("UTF-8"),
                                         QTextCodec::codecForName("ISO-8859-1"),
                                         QTextCodec::codecForName("KOI8-R"), nullptr};
    for (QTextCodec* const codec : codecs) {
        Source own = source;
        QStringList texts;
        for (int i = own.below(5); i >= 0; --i)
            texts.append(own.text());
        QByteArray line;
        QJson::escapedStringList(texts, line, codec);
        QString single;
        QStringList several;
        const bool isList =
            QJson::unescapedStringList(line, 0, line.size(), single, several, codec);
        require(isList == (texts.size() > 1));
        require(isList ? several == texts : single == texts.first());
        QJson::unescapedStringList(bytes, own.number<int>(), bytes.size(), single, several, codec);
    }
    const QString any = QString::fromLatin1(bytes);
    const QVariant value =
        QJson::stringToVariant(QLatin1String("@Variant(") + any + QLatin1Char(')'));
    require(QJson::stringToVariant(QJson::variantToString(any)) == any);
    QJson::stringToVariant(QJson::variantToString(value));
    QJson::splitArgs(any, source.number<int>());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    static const bool isQuiet = [] {
        QLoggingCategory::setFilterRules(QStringLiteral("*=false"));
        return true;
    }();
    Q_UNUSED(isQuiet)
    checkMap(Source(data, size));
    checkCodec(Source(data, size),
               QByteArray(reinterpret_cast<const char*>(data), static_cast<int>(size)));
    return 0;
}
