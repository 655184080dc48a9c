// SPDX-License-Identifier: MIT
#include "table/field.h"

#include "base/exception.h"
#include "table/cell_p.h"

#include <QDateTime>
#include <QDebug>
#include <QLocale>

#include <limits>

using namespace LiveTable;

namespace {

const TableColumnDef& undefinedDef()
{
    static const TableColumnDef def;
    return def;
}

// Of every default-made Field; stays 0, because nothing can be written to an undefined type.
unsigned char undefinedNullByte = 0;

[[noreturn]] void throwIncorrectConversion()
{
    throw Exception(QStringLiteral("Incorrect type conversion."));
}

[[noreturn]] void throwIncorrectType()
{
    throw QStringLiteral("Incorrect type of field.");
}

[[noreturn]] void throwCharLength(int length)
{
    throw QStringLiteral("String length is not 1 for QChar: %1.").arg(length);
}

[[noreturn]] void throwUnreadable(const QStringRef& text, FieldType::Type type)
{
    throw Exception(QStringLiteral("Can't convert from '%1'' to %2")
                        .arg(text.toString(), QLatin1String(FieldType::typeName(type))));
}

[[noreturn]] void throwDecimalToDatetime()
{
    throw Exception(QStringLiteral("Can't convert from decimal to datetime."));
}

int saturated(qint64 value)
{
    using Limits = std::numeric_limits<qint32>;
    return static_cast<int>(qBound<qint64>(Limits::min(), value, Limits::max()));
}

/// Toward zero; the nearest limit for what does not fit, 0 for a NaN.
template <class Int>
Int truncated(double value)
{
    using Limits = std::numeric_limits<Int>;
    // The limits as doubles: the lower is exact, the upper may be one more than the largest number.
    constexpr auto low = static_cast<double>(Limits::min());
    if (value != value)
        return 0;
    if (value <= low)
        return Limits::min();
    return value >= -low ? Limits::max() : static_cast<Int>(value);
}

/// A column's length as the scale that numbers are brought to; what no scale can be stays so.
short scaleOf(int length)
{
    return static_cast<short>(qBound(-1000, length, 1000));
}

decimal rescaled(decimal value, int length)
{
    return value.scale() == length ? value : value.setScale(scaleOf(length));
}

xdecimal rescaled(xdecimal value, int length)
{
    if (value.scale() != length)
        value.setScale(scaleOf(length));
    return value;
}

bool isInteger(FieldType::Type type)
{
    return type == FieldType::Integer || type == FieldType::Integer64;
}

bool isNumber(FieldType::Type type)
{
    return isInteger(type) || type == FieldType::Double || type == FieldType::Decimal ||
           type == FieldType::XDecimal;
}

/// The exact value of a number that is not a Double.
xdecimal exactNumber(const Field& field)
{
    return isInteger(field.type()) ? xdecimal(field.toInteger64()) : field.toXDecimal();
}

} // namespace

// --- the cell ------------------------------------------------------------------------------------

Field::Field() noexcept
    : Field(&undefinedDef(), nullptr, &undefinedNullByte, 1)
{}

const char* Field::typeName() const noexcept
{
    switch (type()) {
    case FieldType::Undefined:
        return "Invalid";
    case FieldType::VarChar:
        return "String";
    case FieldType::Integer:
    case FieldType::Integer64:
    case FieldType::Double:
    case FieldType::Decimal:
    case FieldType::DateTime:
    case FieldType::XDecimal:
        return FieldType::typeName(type());
    case FieldType::BoardList:
        break;
    }
    return "undefined";
}

void Field::setNull() noexcept
{
    if (!isNull()) // the shared byte of undefined cells is never written
        *m_nullByte = static_cast<unsigned char>(*m_nullByte & ~m_nullMask);
}

void Field::incompatibleType(FieldType::Type sourceType) const
{
    incompatibleType(type(), sourceType);
}

void Field::incompatibleType(FieldType::Type columnType, FieldType::Type sourceType)
{
    throw Exception(QStringLiteral("Can't convert from %1 to %2")
                        .arg(QLatin1String(FieldType::typeName(sourceType)),
                             QLatin1String(FieldType::typeName(columnType))));
}

QDebug operator<<(QDebug debug, const Field& field)
{
    if (field.isNull())
        debug << "NULL";
    else
        debug << field.toString();
    return debug;
}

// --- reading -------------------------------------------------------------------------------------

int Field::toInteger() const
{
    if (isNull())
        return 0;
    switch (type()) {
    case FieldType::Integer:
        return load<qint32>(m_data);
    case FieldType::Integer64:
        return saturated(load<qint64>(m_data));
    default:
        throwIncorrectConversion();
    }
}

qint64 Field::toInteger64() const
{
    if (isNull())
        return 0;
    switch (type()) {
    case FieldType::Integer:
        return load<qint32>(m_data);
    case FieldType::Integer64:
        return load<qint64>(m_data);
    default:
        throwIncorrectConversion();
    }
}

double Field::toDouble() const
{
    if (isNull())
        return 0.0;
    switch (type()) {
    case FieldType::Integer:
        return load<qint32>(m_data);
    case FieldType::Integer64:
        return static_cast<double>(load<qint64>(m_data));
    case FieldType::Double:
        return load<double>(m_data);
    case FieldType::Decimal:
        return load<decimal>(m_data).toDouble();
    case FieldType::XDecimal:
        return load<xdecimal>(m_data).toDouble();
    default:
        throwIncorrectConversion();
    }
}

decimal Field::toDecimal() const
{
    if (isNull())
        return decimal();
    if (type() != FieldType::Decimal)
        throwIncorrectConversion();
    return load<decimal>(m_data);
}

xdecimal Field::toXDecimal() const
{
    if (isNull())
        return xdecimal();
    switch (type()) {
    case FieldType::XDecimal:
        return load<xdecimal>(m_data);
    case FieldType::Decimal:
        return xdecimal::fromDecimal(load<decimal>(m_data));
    default:
        throwIncorrectConversion();
    }
}

datetime Field::toDatetime() const
{
    if (isNull())
        return datetime();
    switch (type()) {
    case FieldType::DateTime:
        return load<datetime>(m_data);
    case FieldType::VarChar: {
        const StaticString shared = FieldType::getStaticString(m_data, m_def->length);
        return datetime(QString(shared));
    }
    default:
        throwIncorrectConversion();
    }
}

boardlist Field::toBoardList() const
{
    if (isNull())
        return boardlist();
    if (type() != FieldType::BoardList)
        throwIncorrectConversion();
    return load<boardlist>(m_data);
}

QString Field::toString() const
{
    if (isNull())
        return QString();
    switch (type()) {
    case FieldType::Undefined:
        return QString();
    case FieldType::Integer:
        return QString::number(load<qint32>(m_data));
    case FieldType::Integer64:
        return QString::number(load<qint64>(m_data));
    case FieldType::Double:
        return QString::number(load<double>(m_data), 'g', QLocale::FloatingPointShortest);
    case FieldType::Decimal:
        return load<decimal>(m_data).toString();
    case FieldType::VarChar:
        return FieldType::getString(m_data, m_def->length);
    case FieldType::DateTime:
        return load<datetime>(m_data).toString();
    case FieldType::BoardList:
        return QStringLiteral("[BoardList]");
    case FieldType::XDecimal:
        return load<xdecimal>(m_data).toString();
    }
    throwIncorrectType();
}

QString Field::toSystemString() const
{
    if (isNull())
        return QString();
    switch (type()) {
    case FieldType::Integer:
        return QLocale::system().toString(load<qint32>(m_data));
    case FieldType::Integer64:
        return QLocale::system().toString(load<qint64>(m_data));
    case FieldType::Double:
        return QLocale::system().toString(load<double>(m_data), 'g', 6);
    case FieldType::Decimal:
        return load<decimal>(m_data).toSystemString();
    case FieldType::DateTime:
        return load<datetime>(m_data).toSystemString();
    case FieldType::BoardList:
        return load<boardlist>(m_data).toString();
    case FieldType::XDecimal:
        return load<xdecimal>(m_data).toSystemString();
    case FieldType::Undefined:
    case FieldType::VarChar:
        break;
    }
    return toString();
}

QChar Field::toChar() const
{
    if (isNull())
        return QChar();
    if (type() != FieldType::VarChar)
        throwIncorrectType();
    if (m_def->length == 0)
        return QChar();
    if (m_def->length != 1)
        throwCharLength(m_def->length);
    return QChar(unitAt(m_data, 0));
}

QChar Field::asChar() const
{
    if (isNull())
        throw QStringLiteral("String is null for QChar");
    if (type() == FieldType::VarChar && m_def->length == 0)
        throwCharLength(0);
    return toChar();
}

StaticString Field::asStaticString() const
{
    if (isNull())
        return StaticString();
    if (type() != FieldType::VarChar)
        throwIncorrectType();
    return FieldType::getStaticString(m_data, m_def->length);
}

QVariant Field::toVariant() const
{
    if (isNull())
        return QVariant();
    switch (type()) {
    case FieldType::Integer:
        return QVariant(load<qint32>(m_data));
    case FieldType::Integer64:
        return QVariant(load<qint64>(m_data));
    case FieldType::Double:
        return QVariant(load<double>(m_data));
    case FieldType::Decimal:
        return load<decimal>(m_data).toVariant();
    case FieldType::VarChar:
        return QVariant(FieldType::getString(m_data, m_def->length));
    case FieldType::DateTime:
        return QVariant(load<datetime>(m_data).toQDateTime());
    case FieldType::BoardList:
        return QVariant(load<boardlist>(m_data).toString());
    case FieldType::XDecimal:
        return load<xdecimal>(m_data).toVariant();
    case FieldType::Undefined:
        break;
    }
    return QVariant();
}

int Field::compare(const Field& other) const
{
    if (isNull() || other.isNull())
        return int(other.isNull()) - int(isNull());
    if (type() == other.type()) {
        if (type() == FieldType::VarChar)
            return compareText(m_data, m_def->length, other.m_data, other.m_def->length);
        return compareSameType(type(), m_def->length, m_data, other.m_data);
    }
    if (isInteger(type()) && isInteger(other.type()))
        return compareValues(toInteger64(), other.toInteger64());
    if (isNumber(type()) && isNumber(other.type())) {
        if (type() == FieldType::Double || other.type() == FieldType::Double)
            return compareValues(toDouble(), other.toDouble());
        return exactNumber(*this).compare(exactNumber(other));
    }
    return qBound(-1, QString::compare(toString(), other.toString()), 1);
}

// --- writing -------------------------------------------------------------------------------------

template <class T>
Field& Field::put(const T& value) noexcept
{
    store(m_data, value);
    setPresent();
    return *this;
}

// NOLINTBEGIN(misc-unconventional-assign-operator): put() returns *this
Field& Field::operator=(int value)
{
    switch (type()) {
    case FieldType::Integer:
        return put<qint32>(value);
    case FieldType::Integer64:
    case FieldType::Double:
    case FieldType::Decimal:
    case FieldType::VarChar:
    case FieldType::XDecimal:
        return *this = qlonglong(value);
    default:
        incompatibleType(FieldType::Integer);
    }
}

Field& Field::operator=(qlonglong value)
{
    switch (type()) {
    case FieldType::Integer:
        return put<qint32>(saturated(value));
    case FieldType::Integer64:
        return put<qint64>(value);
    case FieldType::Double:
        return put(static_cast<double>(value));
    case FieldType::Decimal:
        return put(rescaled(decimal(value), m_def->length));
    case FieldType::VarChar:
        return *this = QString::number(value);
    case FieldType::XDecimal:
        return put(rescaled(xdecimal(value), m_def->length));
    default:
        incompatibleType(FieldType::Integer64);
    }
}

Field& Field::operator=(qulonglong value)
{
    constexpr auto max = std::numeric_limits<qlonglong>::max();
    if (value <= qulonglong(max))
        return *this = qlonglong(value);
    switch (type()) {
    case FieldType::Double:
        return put(static_cast<double>(value));
    case FieldType::Decimal:
        return put(rescaled(decimal(value), m_def->length));
    case FieldType::VarChar:
        return *this = QString::number(value);
    case FieldType::XDecimal:
        return put(rescaled(xdecimal(value), m_def->length));
    default:
        return *this = max;
    }
}

Field& Field::operator=(double value)
{
    switch (type()) {
    case FieldType::Integer:
        return put(truncated<qint32>(value));
    case FieldType::Integer64:
        return put(truncated<qint64>(value));
    case FieldType::Double:
        return put(value);
    case FieldType::Decimal:
        return put(rescaled(decimal::fromDouble(value, 6), m_def->length));
    case FieldType::VarChar:
        return *this = QString::number(value, 'f', 6);
    case FieldType::DateTime:
        throw Exception(QStringLiteral("Can't convert double to datetime."));
    case FieldType::XDecimal:
        return put(rescaled(xdecimal::fromDouble(value, 6), m_def->length));
    default:
        incompatibleType(FieldType::Double);
    }
}

Field& Field::operator=(const decimal& value)
{
    switch (type()) {
    case FieldType::Integer:
    case FieldType::Integer64:
    case FieldType::Double:
        return *this = value.toDouble();
    case FieldType::Decimal:
        return put(value);
    case FieldType::VarChar:
        return *this = value.toString();
    case FieldType::DateTime:
        throwDecimalToDatetime();
    case FieldType::XDecimal:
        return put(xdecimal::fromDecimal(value));
    default:
        incompatibleType(FieldType::Decimal);
    }
}

Field& Field::operator=(const xdecimal& value)
{
    switch (type()) {
    case FieldType::Integer:
    case FieldType::Integer64:
    case FieldType::Double:
        return *this = value.toDouble();
    case FieldType::Decimal:
        return put(value.toDecimal());
    case FieldType::VarChar:
        return *this = value.toString();
    case FieldType::DateTime:
        throwDecimalToDatetime();
    case FieldType::XDecimal:
        return put(value);
    default:
        incompatibleType(FieldType::Decimal);
    }
}

Field& Field::operator=(const datetime& value)
{
    switch (type()) {
    case FieldType::VarChar:
        return *this = value.toString();
    case FieldType::DateTime:
        return put(value);
    default:
        incompatibleType(FieldType::DateTime);
    }
}

Field& Field::operator=(const boardlist& value)
{
    if (type() != FieldType::BoardList)
        incompatibleType(FieldType::BoardList);
    return put(value);
}

Field& Field::operator=(const QString& text)
{
    return *this = QStringRef(&text);
}

Field& Field::operator=(const char* text)
{
    return *this = QString::fromUtf8(text);
}

Field& Field::operator=(const QStringRef& text)
{
    if (text.isEmpty()) {
        setNull();
        return *this;
    }
    bool ok = false;
    switch (type()) {
    case FieldType::Integer: {
        const int value = text.toInt(&ok, 10);
        if (ok)
            return put<qint32>(value);
        break;
    }
    case FieldType::Integer64: {
        const qint64 value = text.toLongLong(&ok, 10);
        if (ok)
            return put(value);
        break;
    }
    case FieldType::Double: {
        const double value = text.toDouble(&ok);
        if (ok)
            return put(value);
        break;
    }
    case FieldType::Decimal:
        return put(decimal(text));
    case FieldType::VarChar:
        FieldType::setString(m_data, m_def->length, text);
        setPresent();
        return *this;
    case FieldType::DateTime:
        return put(datetime(text));
    case FieldType::XDecimal:
        return put(xdecimal(text));
    default:
        incompatibleType(FieldType::VarChar);
    }
    throwUnreadable(text, type());
}

// NOLINTEND(misc-unconventional-assign-operator)

// NOLINTNEXTLINE(bugprone-unhandled-self-assignment): two fields may be one cell, memmove copes
Field& Field::operator=(const Field& other)
{
    if (other.isNull())
        setNull();
    else
        copyValue(other);
    return *this;
}

void Field::copyValue(const Field& other)
{
    const bool sameLayout =
        m_def->length == other.m_def->length || !FieldType::typeHasLength(type());
    if (type() == other.type() && type() != FieldType::Undefined && sameLayout) {
        const qint64 width = FieldType::typeLength(type(), m_def->length);
        std::memmove(m_data, other.m_data, size_t(width));
        setPresent();
        return;
    }
    switch (other.type()) {
    case FieldType::Integer:
        *this = other.toInteger();
        return;
    case FieldType::Integer64:
        *this = other.toInteger64();
        return;
    case FieldType::Double:
        *this = other.toDouble();
        return;
    case FieldType::Decimal:
        *this = other.toDecimal();
        return;
    case FieldType::VarChar: {
        const StaticString shared = other.asStaticString();
        *this = QString(shared);
        return;
    }
    case FieldType::DateTime:
        *this = other.toDatetime();
        return;
    case FieldType::XDecimal:
        *this = other.toXDecimal();
        return;
    default:
        incompatibleType(other.type());
    }
}
