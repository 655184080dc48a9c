// SPDX-License-Identifier: MIT
// Settings made of the input's bytes: what is written is read back the same, and so is every text
// of the codec. Its reader also gets the bytes as they are.
#include "require.h"
#include "settings/qjson.h"
#include "settings/qtjsonsettings.h"
#include "source.h"
#include "value/decimal.h"

#include <QBuffer>
#include <QDateTime>
#include <QRect>
#include <QTextCodec>

namespace {

/// Makes values of the bytes.
struct Source : ByteSource
{
    int number() { return below(256) << 23 | below(256) << 8 | below(256); }
    QString text()
    {
        static const QString usual = QStringLiteral("@()\"\\,;= \t0aAf:Ж\u00A0\uFEFF\uFFFF");
        QString result(QLatin1String("")); // a null text is no text
        for (int size = below(12); size > 0; --size)
            result +=
                below(3) ? usual.at(below(usual.size())) : QChar(below(256) << 8 | below(256));
        return result;
    }
    QVariant value(int depth = 0)
    {
        switch (below(depth > 4 ? 6 : 9)) {
        case 0:
            return text();
        case 1:
            return text().toUtf8();
        case 2:
            return QVariant::fromValue(decimal(number(), below(9)));
        case 3:
            return QRect(number() / 4, -below(100), number() / 4, below(9));
        case 4:
            return QDateTime::fromMSecsSinceEpoch(number(), Qt::OffsetFromUTC, below(99) * 60);
        case 5:
            return QVariant();
        case 6:
            return QVariantHash{{text(), value(depth + 1)}};
        case 7: {
            QVariantMap map;
            for (int i = below(4); i > 0; --i)
                map.insert(text(), value(depth + 1));
            return map;
        }
        default: {
            QVariantList list;
            for (int i = below(4); i > 0; --i)
                list.append(value(depth + 1));
            if (depth == 0 && list.value(0).userType() == QMetaType::QVariantMap)
                list.prepend(0); // a list of maps is read as an array of Qt's
            return list;
        }
        }
    }
};

void checkMap(Source source)
{
    QMap<QString, QVariant> map, back;
    for (int i = 0; i < 12 && source.left > 0; ++i) {
        QString key; // groups start with 'g' and values with 'v': no key is a group of another
        for (int level = source.below(4); level > 0; --level)
            key += QLatin1Char('g') + source.text().remove(QLatin1Char('/')) + QLatin1Char('/');
        map.insert(key + QLatin1Char('v') + source.text().remove(QLatin1Char('/')), source.value());
    }
    QBuffer buffer;
    buffer.open(QIODevice::ReadWrite);
    require(QtJsonSettings::writeJsonFile(buffer, map));
    buffer.seek(0);
    require(QtJsonSettings::readJsonFile(buffer, back));
    require(back == map);
    for (auto entry = map.begin(); entry != map.end(); ++entry)
        require(back[entry.key()].userType() == entry->userType());
}

void checkCodec(Source source, const QByteArray& bytes)
{
    QStringList texts{source.text()};
    for (int i = source.below(5); i > 0; --i)
        texts.append(source.text());
    static QTextCodec* const codecs[] = {QTextCodec::codecForName("UTF-8"),
                                         QTextCodec::codecForName("ISO-8859-1"), nullptr};
    for (QTextCodec* const codec : codecs) {
        QByteArray line;
        QJson::escapedStringList(texts, line, codec);
        QString text;
        QStringList list;
        if (!QJson::unescapedStringList(line, 0, line.size(), text, list, codec))
            list.append(text);
        require(list == texts);
        QJson::unescapedStringList(bytes, source.number(), bytes.size(), text, list, codec);
    }
    const QString any = QString::fromLatin1(bytes);
    require(QJson::stringToVariant(QJson::variantToString(any)) == any);
    QJson::variantToString(
        QJson::stringToVariant(QLatin1String("@Variant(") + any + QLatin1Char(')')));
    QJson::splitArgs(any, source.number());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    checkMap({data, size});
    checkCodec({data, size},
               QByteArray(reinterpret_cast<const char*>(data), static_cast<int>(size)));
    return 0;
}
