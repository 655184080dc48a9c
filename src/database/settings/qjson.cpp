// SPDX-License-Identifier: MIT
#include "settings/qjson.h"

#include "settings/settingslog_p.h"
#include "settings/variantstream_p.h"

#include <QPoint>
#include <QRect>
#include <QSize>
#include <QTextCodec>
#include <QVector>

#include <cstring>

namespace {

const char escapedCharacters[] = "\a\b\f\n\r\t\v\"\\"; // and what stands for each, in its place
const char escapeLetters[] = "abfnrtv\"\\";

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

int hexDigit(int c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    const int letter = c | 0x20;
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

void appendHex(QByteArray& result, ushort unit)
{
    result += "\\x" + QByteArray::number(unit, 16);
}

/// The whole numbers of "@Rect(1 2 3 4)"; empty unless there are exactly `count`.
QVector<int> numbers(const QString& text, int bracket, int count)
{
    const QStringList parts = QJson::splitArgs(text, bracket);
    QVector<int> result;
    for (const QString& part : parts) {
        bool isNumber = false;
        result.append(part.toInt(&isNumber));
        if (!isNumber)
            return {};
    }
    return result.size() == count ? result : QVector<int>();
}

QString latin1Text(const char* form, const QByteArray& bytes)
{
    return QLatin1String(form) + QString::fromLatin1(bytes.constData(), bytes.size()) +
           QLatin1Char(')');
}

/// The value of a text that starts with '@' and ends with ')'; a plain text when it is no form.
QVariant valueOfForm(const QString& text)
{
    const int bracket = text.indexOf(QLatin1Char('('));
    const QStringRef form = text.leftRef(bracket + 1);
    const QString inside = text.mid(bracket + 1, text.size() - bracket - 2);
    if (form == QLatin1String("@ByteArray("))
        return inside.toLatin1();
    if (form == QLatin1String("@String("))
        return inside;
    if (form == QLatin1String("@Variant(") || form == QLatin1String("@DateTime("))
        return LiveTable::variantFromBytes(inside.toLatin1());
    if (text == QLatin1String("@Invalid()"))
        return QVariant();
    QVector<int> n;
    if (form == QLatin1String("@Rect(") && !(n = numbers(text, bracket, 4)).isEmpty())
        return QRect(n[0], n[1], n[2], n[3]);
    if (form == QLatin1String("@Size(") && !(n = numbers(text, bracket, 2)).isEmpty())
        return QSize(n[0], n[1]);
    if (form == QLatin1String("@Point(") && !(n = numbers(text, bracket, 2)).isEmpty())
        return QPoint(n[0], n[1]);
    return text;
}

/// Reads one line of elements.
class Unescaper
{
public:
    Unescaper(const QByteArray& text, int from, int to, QTextCodec* used)
        : at(text.constData() + qBound(0, from, text.size()))
        , end(text.constData() + qBound(0, qMax(from, to), text.size()))
        , codec(used)
    {}

    /// Reads an element and the comma behind it; returns whether there was one.
    bool readElement(QString& element);

private:
    void readEscape(QString& element);
    void skipBlanks();
    QString decoded(const char* start) const;

    const char* at;
    const char* const end;
    QTextCodec* const codec;
};

void Unescaper::skipBlanks()
{
    while (at < end && isBlank(*at))
        ++at;
}

QString Unescaper::decoded(const char* start) const
{
    const int size = static_cast<int>(at - start);
    if (!codec)
        return QString::fromLatin1(start, size);
    QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
    return codec->toUnicode(start, size, &state);
}

void Unescaper::readEscape(QString& element)
{
    ++at;
    if (at == end)
        return;
    const char c = *at++;
    if (const char* const letter = std::strchr(escapeLetters, c); letter && c) {
        element += QLatin1Char(escapedCharacters[letter - escapeLetters]);
        return;
    }
    ushort unit = 0;
    if (c == 'x' && at < end && hexDigit(*at) >= 0) {
        for (; at < end && hexDigit(*at) >= 0; ++at)
            unit = static_cast<ushort>(unit * 16 + hexDigit(*at));
        element += QChar(unit);
    } else if (c >= '0' && c <= '7') {
        unit = static_cast<ushort>(c - '0');
        for (; at < end && *at >= '0' && *at <= '7'; ++at)
            unit = static_cast<ushort>(unit * 8 + (*at - '0'));
        element += QChar(unit);
    } else if (c == '\r' && at < end && *at == '\n') {
        ++at;
    }
}

bool Unescaper::readElement(QString& element)
{
    element.clear();
    int kept = 0; // what is before this is quoted or escaped: no blank of it is dropped
    bool isQuoted = false;
    skipBlanks();
    while (at < end) {
        if (*at == '\\') {
            readEscape(element);
            kept = element.size();
        } else if (*at == '"') {
            ++at;
            isQuoted = !isQuoted;
            kept = element.size();
            if (!isQuoted)
                skipBlanks();
        } else if (*at == ',' && !isQuoted) {
            break;
        } else {
            const char* const start = at;
            while (at < end && *at != '\\' && *at != '"' && (isQuoted || *at != ','))
                ++at;
            element += decoded(start);
            if (isQuoted)
                kept = element.size();
        }
    }
    while (element.size() > kept && isBlank(element.at(element.size() - 1).toLatin1()))
        element.chop(1);
    if (at == end)
        return false;
    ++at;
    return true;
}

} // namespace

QString QJson::variantToString(const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::UnknownType:
        return QStringLiteral("@Invalid()");
    case QMetaType::QByteArray:
        return latin1Text("@ByteArray(", value.toByteArray());
    case QMetaType::QRect: {
        const QRect r = value.toRect();
        return QString::asprintf("@Rect(%d %d %d %d)", r.x(), r.y(), r.width(), r.height());
    }
    case QMetaType::QSize:
        return QString::asprintf("@Size(%d %d)", value.toSize().width(), value.toSize().height());
    case QMetaType::QPoint:
        return QString::asprintf("@Point(%d %d)", value.toPoint().x(), value.toPoint().y());
    case QMetaType::QString:
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
        break;
    default:
        const QByteArray bytes =
            LiveTable::isStreamable(value) ? LiveTable::variantToBytes(value) : QByteArray();
        if (LiveTable::variantFromBytes(bytes).isValid())
            return latin1Text("@Variant(", bytes);
        if (!value.canConvert(QMetaType::QString)) {
            LiveTable::settingsWarning(QStringLiteral("Settings can't hold a value of the type ") +
                                       QLatin1String(value.typeName()));
            return QStringLiteral("@Invalid()");
        }
    }
    const QString text = value.toString();
    return text.startsWith(QLatin1Char('@')) ? QLatin1Char('@') + text : text;
}

QVariant QJson::stringToVariant(const QString& text)
{
    if (!text.startsWith(QLatin1Char('@')))
        return text;
    if (text.startsWith(QLatin1String("@@")))
        return text.mid(1);
    return text.endsWith(QLatin1Char(')')) ? valueOfForm(text) : text;
}

void QJson::escapedString(const QString& text, QByteArray& result, QTextCodec* codec)
{
    const int start = result.size();
    const QLatin1Char space(' ');
    bool needsQuotes = text.startsWith(space) || text.endsWith(space);
    bool isBehindHex = false;
    for (int i = 0; i < text.size(); ++i) {
        const ushort unit = text.at(i).unicode();
        const bool isHex = isBehindHex && hexDigit(unit) >= 0;
        isBehindHex = true; // unless it turns out not to be
        if (isHex) {
            appendHex(result, unit);
        } else if (unit == 0) {
            result += "\\0";
        } else if (unit < 0x80 && std::strchr(escapedCharacters, unit)) {
            result += '\\';
            result += escapeLetters[std::strchr(escapedCharacters, unit) - escapedCharacters];
            isBehindHex = false;
        } else if (unit < 0x20 || (unit >= 0x7F && !codec)) {
            appendHex(result, unit);
        } else if (unit < 0x7F) {
            result += static_cast<char>(unit);
            needsQuotes = needsQuotes || std::strchr(",;=", unit);
            isBehindHex = false;
        } else {
            const bool isPair = QChar::isHighSurrogate(unit) && i + 1 < text.size() &&
                                text.at(i + 1).isLowSurrogate();
            const QString character = text.mid(i, isPair ? 2 : 1);
            QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
            const QByteArray bytes =
                codec->fromUnicode(character.constData(), character.size(), &state);
            if (codec->toUnicode(bytes) == character) {
                result += bytes;
                i += isPair;
                isBehindHex = false;
            } else {
                appendHex(result, unit);
            }
        }
    }
    if (needsQuotes)
        result.insert(start, '"').append('"');
}

void QJson::escapedStringList(const QStringList& texts, QByteArray& result, QTextCodec* codec)
{
    bool isFirst = true;
    for (const QString& text : texts.isEmpty() ? QStringList(QString()) : texts) {
        if (!isFirst)
            result += ", ";
        isFirst = false;
        if (text.isNull())
            result += "@Invalid()";
        else
            escapedString(text, result, codec);
    }
}

bool QJson::unescapedStringList(const QByteArray& text, int from, int to, QString& stringResult,
                                QStringList& listResult, QTextCodec* codec)
{
    stringResult = QString();
    listResult.clear();
    Unescaper reader(text, from, to, codec);
    QString element;
    while (reader.readElement(element))
        listResult.append(element);
    if (listResult.isEmpty())
        stringResult = element;
    else
        listResult.append(element);
    return !listResult.isEmpty();
}

QVariant QJson::stringListToVariantList(const QStringList& texts)
{
    QStringList strings;
    QVariantList values;
    for (const QString& text : texts) {
        values.append(stringToVariant(text));
        if (values.last().userType() == QMetaType::QString)
            strings.append(values.last().toString());
    }
    return strings.size() == values.size() ? QVariant(strings) : QVariant(values);
}

QStringList QJson::splitArgs(const QString& text, int idx)
{
    const int last = text.size() - 1;
    if (idx < 0 || idx >= last || text.at(idx) != QLatin1Char('(') ||
        text.at(last) != QLatin1Char(')'))
        return {};
    return text.mid(idx + 1, last - idx - 1).split(QLatin1Char(' '));
}
