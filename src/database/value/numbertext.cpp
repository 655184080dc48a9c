// SPDX-License-Identifier: MIT
#include "value/decimal.h"
#include "value/numbertext_p.h"
#include "value/xdecimal.h"

namespace LiveTable {

bool hasNumberForm(const QString& text, BarePoint barePoint)
{
    const auto* begin = reinterpret_cast<const char16_t*>(text.utf16());
    const auto* end = begin + text.size();
    const auto isDigit = [](char16_t c) { return QChar::isDigit(c); };
    NumberParts<char16_t> parts;
    return splitNumber(begin, end, u'.', barePoint, isDigit, &parts) ||
           splitNumber(begin, end, u',', BarePoint::Allowed, isDigit, &parts);
}

VariantKind variantKind(const QVariant& value)
{
    const int type = value.userType();
    switch (type) {
    case QMetaType::QString:
    case QMetaType::QByteArray:
    case QMetaType::QChar:
        return VariantKind::Text;
    case QMetaType::Int:
    case QMetaType::Short:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Char:
    case QMetaType::SChar:
        return VariantKind::Signed;
    case QMetaType::Bool:
    case QMetaType::UInt:
    case QMetaType::UShort:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UChar:
        return VariantKind::Unsigned;
    default:
        break;
    }
    if (type == decimal::metatypeId())
        return VariantKind::Decimal;
    return type == xdecimal::metatypeId() ? VariantKind::XDecimal : VariantKind::Other;
}

QString localized(const QString& number, const QLocale& locale)
{
    const bool grouped = !locale.numberOptions().testFlag(QLocale::OmitGroupSeparator);
    const int zero = locale.zeroDigit().unicode();
    int point = number.indexOf(u'.');
    if (point < 0)
        point = number.size();
    QString text;
    text.reserve(number.size() + point / 3);
    for (int i = 0; i < number.size(); ++i) {
        const QChar c = number.at(i);
        if (c == u'-') {
            text += locale.negativeSign();
            continue;
        }
        if (c == u'.') {
            text += locale.decimalPoint();
            continue;
        }
        text += QChar(zero + (c.unicode() - u'0'));
        const int left = point - i - 1; // integer digits that follow
        if (grouped && left > 0 && left % 3 == 0)
            text += locale.groupSeparator();
    }
    return text;
}

QString delocalized(const QString& text, const QLocale& locale)
{
    const QChar group = locale.groupSeparator();
    const ushort zero = locale.zeroDigit().unicode();
    QString number;
    number.reserve(text.size());
    for (const QChar c : text) {
        if (c == locale.decimalPoint())
            number += u'.';
        else if (c == group || c.isSpace()) // a space stands for a no-break one, or around it all
            continue;
        else if (c == locale.negativeSign())
            number += u'-';
        else if (c == locale.positiveSign())
            number += u'+';
        else if (c.toLower() == locale.exponential().toLower())
            number += u'e';
        else if (c.unicode() >= zero && c.unicode() < zero + 10)
            number += QChar(u'0' + (c.unicode() - zero));
        else
            number += c;
    }
    if (number.endsWith(u'.'))
        number.chop(1);
    return number;
}

QString withoutFinalZeros(QString text, const QLocale& locale)
{
    if (!text.contains(locale.decimalPoint()))
        return text;
    int size = text.size();
    while (size > 0 && text.at(size - 1) == locale.zeroDigit())
        --size;
    if (size > 0 && text.at(size - 1) == locale.decimalPoint())
        --size;
    text.truncate(size);
    return text;
}

} // namespace LiveTable
