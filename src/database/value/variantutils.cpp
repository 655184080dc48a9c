// SPDX-License-Identifier: MIT
#include "value/variantutils.h"

#include "bcdii/bcdii.h"
#include "value/datetime.h"
#include "value/decimal.h"
#include "value/xdecimal.h"

#include <QDate>
#include <QDateTime>
#include <QMetaType>
#include <QTime>

namespace {

template <class T>
int compareByLess(const T& a, const T& b)
{
    return a < b ? -1 : b < a;
}

int compareTexts(const QString& a, const QString& b, Qt::CaseSensitivity cs)
{
    return qBound(-1, QString::compare(a, b, cs), 1);
}

/// The variant as a T by way of the meta-type system; T() when there is none.
template <class T>
T valueOrZero(const QVariant& value)
{
    try {
        return value.value<T>();
    } catch (...) { // a converter that the host registered
        return T();
    }
}

template <class T>
bool holds(const QVariant& value)
{
    return value.userType() == qMetaTypeId<T>();
}

int compareUserTypes(const QVariant& a, const QVariant& b)
{
    if (holds<decimal>(a))
        return a.value<decimal>().compare(valueOrZero<decimal>(b));
    if (holds<xdecimal>(a))
        return a.value<xdecimal>().compare(valueOrZero<xdecimal>(b));
    if (holds<datetime>(a))
        return compareByLess(a.value<datetime>(), valueOrZero<datetime>(b));
    return 0;
}

template <class T>
QVariant numberFromVariant(const QVariant& value)
{
    bool ok = false;
    const T number = T::fromVariant(value, &ok);
    return ok ? QVariant::fromValue(number) : QVariant();
}

QVariant datetimeFromVariant(const QVariant& value)
{
    switch (value.userType()) {
    case QMetaType::QString:
    case QMetaType::QByteArray: {
        const QString text = value.toString();
        bool ok = false;
        const datetime read = datetime::fromString(QStringRef(&text), &ok);
        return ok || text.isEmpty() ? QVariant::fromValue(read) : QVariant();
    }
    case QMetaType::QDate:
    case QMetaType::QDateTime: {
        // A date becomes its midnight in UTC, not in local time, where there may be none.
        const QDateTime fields = value.userType() == QMetaType::QDate
                                     ? QDateTime(value.toDate(), QTime(0, 0), Qt::UTC)
                                     : value.toDateTime();
        if (!fields.date().isValid())
            return QVariant();
        return QVariant::fromValue(datetime::fromQDateTime(fields));
    }
    case QMetaType::LongLong:
        return QVariant::fromValue(datetime(value.toLongLong()));
    default:
        return QVariant();
    }
}

QVariant variantFromDatetime(datetime value, int type)
{
    switch (type) {
    case QMetaType::QString:
        return value.toString();
    case QMetaType::QDateTime:
        return value.toQDateTime();
    case QMetaType::QDate:
        return value.toQDateTime().date();
    case QMetaType::QTime:
        return value.toQDateTime().time();
    case QMetaType::LongLong:
        return value.toMSecsSinceEpoch();
    default:
        return QVariant();
    }
}

/// The number cut toward zero as one of the integer types; invalid when it does not fit.
QVariant integerVariant(const xdecimal& number, int type)
{
    const auto* const digits = static_cast<const char*>(number.data()) + sizeof(quint16);
    long long n = 0;
    const unsigned flags = BCDII2Int64(&n, digits, number.type(), 0, BCDII_ROUND_DOWN);
    const bool isUnsigned = type == QMetaType::UInt || type == QMetaType::ULongLong;
    if ((flags & (BCDII_RESULT_ERROR | BCDII_RESULT_NAN)) || (isUnsigned && n < 0))
        return QVariant();
    QVariant result(n);
    return result.convert(type) && result.toLongLong() == n ? result : QVariant();
}

QVariant variantFromNumber(const xdecimal& number, const QString& text, double nearest, int type)
{
    switch (type) {
    case QMetaType::QString:
        return text;
    case QMetaType::Double:
        return nearest;
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return integerVariant(number, type);
    default:
        return QVariant();
    }
}

QVariant convert(const QVariant& value, int type)
{
    if (type == qMetaTypeId<decimal>())
        return numberFromVariant<decimal>(value);
    if (type == qMetaTypeId<xdecimal>())
        return numberFromVariant<xdecimal>(value);
    if (type == qMetaTypeId<datetime>())
        return datetimeFromVariant(value);

    QVariant result;
    if (holds<datetime>(value)) {
        result = variantFromDatetime(value.value<datetime>(), type);
    } else if (holds<decimal>(value)) {
        const auto number = value.value<decimal>();
        result = variantFromNumber(xdecimal::fromDecimal(number), number.toString(),
                                   number.toDouble(), type);
    } else if (holds<xdecimal>(value)) {
        const auto number = value.value<xdecimal>();
        result = variantFromNumber(number, number.toString(), number.toDouble(), type);
    } else {
        result = value;
        if (!result.convert(type))
            result = QVariant();
    }
    return result;
}

} // namespace

int variant_compare(const QVariant& a, const QVariant& b, Qt::CaseSensitivity cs)
{
    if (!a.isValid() || !b.isValid())
        return int(a.isValid()) - int(b.isValid());
    if (a.userType() >= QMetaType::User)
        return compareUserTypes(a, b);
    if (a == b)
        return 0;
    switch (a.userType()) {
    case QMetaType::Int:
        return compareByLess(a.toInt(), b.toInt());
    case QMetaType::Double:
        return compareByLess(a.toDouble(), b.toDouble());
    case QMetaType::QChar:
        return compareTexts(QString(a.toChar()), QString(b.toChar()), cs);
    case QMetaType::QString:
        return compareTexts(a.toString(), b.toString(), cs);
    case QMetaType::QDate:
        return compareByLess(a.toDate(), b.toDate());
    case QMetaType::QTime:
        return compareByLess(a.toTime(), b.toTime());
    case QMetaType::QDateTime:
        return compareByLess(a.toDateTime(), b.toDateTime());
    default:
        return 0;
    }
}

QVariant variant_convert(const QVariant& value, unsigned int type)
{
    const int id = static_cast<int>(type);
    if (!value.isValid() || !QMetaType::isRegistered(id))
        return QVariant();
    if (value.userType() == id)
        return value;
    try {
        return convert(value, id);
    } catch (...) { // a converter that the host registered
        return QVariant();
    }
}
