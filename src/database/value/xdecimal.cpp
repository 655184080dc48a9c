// SPDX-License-Identifier: MIT
#include "value/xdecimal.h"
#include "bcdii/bcdii_p.h"
#include "value/numbertext_p.h"

#include <QDataStream>
#include <QHash>
#include <QObject>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

using namespace LiveTable;
using LiveTable::Bcdii::notANumber;
using LiveTable::Bcdii::signBit;

namespace {

[[noreturn]] void throwOverflow()
{
    throw "xdecimal:overflow";
}
[[noreturn]] void throwNaN()
{
    throw "xdecimal:nan";
}
[[noreturn]] void throwBadOperand()
{
    throw "xdecimal:bad operand";
}

constexpr bool isScale(int scale)
{
    return scale >= xdecimal::minimumScale && scale <= xdecimal::maximumScale;
}

// The bytes of an xdecimal, while they are being made.
struct Packed
{
    quint16 type;
    quint8 digits[14] = {};

    explicit Packed(int scale)
        : type(static_cast<quint16>(BCDIITYPE(xdecimal::precision, scale)))
    {}

    xdecimal value() const
    {
        xdecimal result;
        std::memcpy(static_cast<void*>(&result), this, sizeof result);
        return result;
    }

    /// Does operation(digits, type), which returns the flags of a BCDII function, at the largest
    /// scale of [lowest, highest] at which its result fits. False if there is none.
    template <typename Operation>
    bool fill(int highest, int lowest, Operation operation)
    {
        const auto fits = [&](int scale) {
            type = static_cast<quint16>(BCDIITYPE(xdecimal::precision, scale));
            return (operation(digits, type) & BCDII_RESULT_ERROR) == 0;
        };
        bool done = fits(highest);
        if (!done && lowest < highest && fits(lowest)) {
            // What fits at one scale fits at all below.
            int low = lowest;
            for (int high = highest; high - low > 1;) {
                const int middle = low + (high - low) / 2;
                (fits(middle) ? low : high) = middle;
            }
            done = fits(low);
        }
        if ((type & 1) == 0)
            digits[13] = 0; // a try at an odd scale may have left something here
        return done;
    }
};
static_assert(sizeof(Packed) == sizeof(xdecimal));

const quint8* digitsOf(const xdecimal& value)
{
    return static_cast<const quint8*>(value.data()) + sizeof(quint16);
}

// Brings bytes that come from outside into a state that the class knows. False if they were no
// xdecimal and had to become the mark.
bool normalize(Packed* packed)
{
    static constexpr quint8 zeros[sizeof(Packed)] = {};
    if (std::memcmp(packed, zeros, sizeof zeros) == 0) {
        *packed = Packed(0);
        return true;
    }
    const bool isType = packed->type >> 8 == xdecimal::precision && BCDIICheckType(packed->type);
    const unsigned int found = isType ? BCDIICheck(packed->digits, packed->type) : 0U;
    if (isType && (found & BCDII_RESULT_INVALID) == 0) {
        if ((packed->type & 1) == 0)
            packed->digits[13] = 0;
        return true;
    }
    Packed marked(isType ? static_cast<qint8>(packed->type & 255) : 0);
    marked.digits[0] = notANumber;
    *packed = marked;
    return (found & BCDII_RESULT_NAN) != 0;
}

// The leading digits of a number's text, packed.
struct Digits
{
    // More than a value can keep. Rounding looks at the first digit cut, which is one of these.
    static constexpr int most = 40;
    quint8 bytes[most / 2 + 1] = {};
    int count = 0;
    qptrdiff scale; // place of the last digit

    Digits(const NumberParts<char16_t>& parts, qptrdiff scaleOfText)
        : scale(scaleOfText)
    {
        quint8 digits[most + 1];
        const auto take = [&](const char16_t* p, const char16_t* end) {
            for (; p != end; ++p) {
                if (count == most)
                    --scale;
                else if (count || *p != u'0')
                    digits[count++] = static_cast<quint8>(*p - u'0');
            }
        };
        take(parts.integer, parts.integerEnd);
        take(parts.fraction, parts.fractionEnd);
        // Pairs end at an even place; the first pair may lack its first digit.
        int size = count;
        if (scale & 1)
            digits[size++] = 0;
        quint8* next = bytes;
        int i = size & 1;
        if (i)
            *next++ = digits[0];
        for (; i < size; i += 2)
            *next++ = static_cast<quint8>(digits[i] * 10 + digits[i + 1]);
        if (parts.negative)
            bytes[0] |= signBit;
    }
};

NumberOutcome read(const QString& text, BarePoint barePoint, NumberParts<char16_t>* parts,
                   xdecimal* value)
{
    const auto* begin = reinterpret_cast<const char16_t*>(text.utf16());
    if (!splitNumber(begin, begin + text.size(), u'.', barePoint, AsciiDigit(), parts))
        return NumberOutcome::Refused;
    constexpr int farExponent = 1000;
    const int exponent = parts->hasExponent() ? exponentOf(*parts, farExponent) : 0;
    const qptrdiff scale = (parts->fractionEnd - parts->fraction) - exponent;
    if (-exponent > xdecimal::maximumScale || scale < xdecimal::minimumScale)
        return NumberOutcome::BadExponent;

    const int highest = static_cast<int>(std::min<qptrdiff>(scale, xdecimal::maximumScale));
    const int lowest = std::min(highest, 0); // digits before the point are not rounded away
    const Digits digits(*parts, scale);
    constexpr int farBelow = xdecimal::maximumScale + Digits::most + 1;
    if (digits.count == 0 || digits.scale > farBelow) {
        *value = Packed(highest).value();
        return NumberOutcome::Read;
    }
    if (digits.scale < lowest) // more digits than fit stand in front of this place
        return NumberOutcome::Refused;
    const unsigned int digitsType = BCDIITYPE(digits.count, static_cast<int>(digits.scale));
    Packed packed(highest);
    const bool done = packed.fill(highest, lowest, [&](void* out, unsigned int type) {
        return BCDIICopy(out, type, digits.bytes, digitsType, BCDII_ROUND_HALF_UP);
    });
    *value = packed.value();
    return done ? NumberOutcome::Read : NumberOutcome::Refused;
}

xdecimal readOrThrow(const QString& text, const QString& shown, BarePoint barePoint)
{
    NumberParts<char16_t> parts;
    xdecimal value;
    switch (read(text, barePoint, &parts, &value)) {
    case NumberOutcome::Read:
        break;
    case NumberOutcome::Refused:
        throw QObject::tr("Невозможно создать xdecimal по строке '%1'").arg(shown);
    case NumberOutcome::BadExponent:
        throw QObject::tr("Невозможно создать xdecimal по строке '%1' (%2)")
            .arg(shown, QStringView(parts.exponent, parts.exponentEnd));
    }
    return value;
}

} // namespace

// 13 bytes of 99, at scale -62. The sign is a bit of the first one.
constexpr xdecimal::xdecimal(NoCheck, int scale, quint8 first, quint8 others) noexcept
    : m_type(typeOf(scale))
{
    for (int i = 0; i < 13; ++i)
        m_digits[i] = i == 0 ? first : others;
}

constexpr xdecimal xdecimal::zero = xdecimal();
constexpr xdecimal xdecimal::d[2] = {xdecimal(NoCheck(), minimumScale, 99 | signBit, 99),
                                     xdecimal(NoCheck(), minimumScale, 99, 99)};

xdecimal::xdecimal(const QString& text)
    : xdecimal(fromString(text))
{}

xdecimal::xdecimal(const QStringRef& text)
    : xdecimal(fromString(text.toString()))
{}

xdecimal::xdecimal(const char* text)
    : xdecimal(fromString(QString::fromUtf8(text)))
{}

xdecimal::xdecimal(decimal value) noexcept
    : xdecimal(fromDecimal(value))
{}

void xdecimal::setInteger(qint64 n) noexcept
{
    BCDIIGetFromInt64(m_digits, m_type, n, 0);
}

void xdecimal::setUnsigned(quint64 n) noexcept
{
    BCDIIGetFromUInt64(m_digits, m_type, n, 0);
}

xdecimal xdecimal::fromRaw(const void* bytes) noexcept
{
    Packed packed(0);
    std::memcpy(static_cast<void*>(&packed), bytes, sizeof packed);
    normalize(&packed);
    return packed.value();
}

void xdecimal::toRaw(void* bytes) const noexcept
{
    std::memcpy(bytes, this, sizeof *this);
}

bool xdecimal::isNaN() const noexcept
{
    return m_digits[0] == notANumber;
}

unsigned int xdecimal::setScale(short scale)
{
    if (!isScale(scale) || isNaN())
        throwBadOperand();
    Packed packed(scale);
    BCDIICopy(packed.digits, packed.type, m_digits, m_type, BCDII_ROUND_HALF_UP);
    *this = packed.value();
    const unsigned int result = BCDIICheck(m_digits, m_type);
    if (result & BCDII_RESULT_INVALID)
        throwBadOperand();
    return result;
}

xdecimal operator+(const xdecimal& a, const xdecimal& b)
{
    if (a.isNaN() || b.isNaN())
        throwNaN();
    Packed sum(0);
    const auto add = [&](void* out, unsigned int type) {
        return BCDIIAdd(out, type, digitsOf(a), a.type(), digitsOf(b), b.type(),
                        BCDII_ROUND_HALF_UP);
    };
    if (!sum.fill(std::max(a.scale(), b.scale()), xdecimal::minimumScale, add))
        throwOverflow();
    return sum.value();
}

xdecimal operator-(const xdecimal& a, const xdecimal& b)
{
    return a + -b;
}

xdecimal operator*(const xdecimal& a, const xdecimal& b)
{
    if (a.isNaN() || b.isNaN())
        throwNaN();
    Packed product(0);
    const auto multiply = [&](void* out, unsigned int type) {
        return BCDIIMul(out, type, digitsOf(a), a.type(), digitsOf(b), b.type(),
                        BCDII_ROUND_HALF_UP);
    };
    const int scale =
        std::clamp(a.scale() + b.scale(), xdecimal::minimumScale, xdecimal::maximumScale);
    if (!product.fill(scale, xdecimal::minimumScale, multiply))
        throwOverflow();
    return product.value();
}

xdecimal xdecimal::operator-() const
{
    if (isNaN())
        throwNaN();
    xdecimal result = *this;
    BCDIINeg(result.m_digits, result.m_type);
    return result;
}

int xdecimal::compare(const xdecimal& other) const noexcept
{
    return BCDIICmp(m_digits, m_type, other.m_digits, other.m_type);
}

xdecimal xdecimal::fromDecimal(decimal value) noexcept
{
    qint64 n = value.mantissa();
    int scale = value.scale();
    if (scale > maximumScale) {
        n = (n + (n < 0 ? -5 : 5)) / 10;
        --scale;
    }
    for (; scale < minimumScale; ++scale)
        n *= 10; // by 100 at most, and 2^56 has room for that
    Packed packed(scale);
    BCDIIGetFromInt64(packed.digits, packed.type, n, scale);
    return packed.value();
}

decimal xdecimal::toDecimal() const
{
    if (isNaN())
        throwNaN();
    for (int places = scale(); places >= -decimal::maximumScale; --places) {
        long long n = 0;
        const unsigned int result = BCDII2Int64(&n, m_digits, m_type, places, BCDII_ROUND_HALF_UP);
        if ((result & BCDII_RESULT_ERROR) == 0 && decimal::fits(n))
            return decimal::compose(n, places);
    }
    decimal::throwOverflow();
}

xdecimal xdecimal::fromInt64(qint64 n, int scale)
{
    if (!isScale(scale))
        throwBadOperand();
    Packed packed(scale);
    BCDIIGetFromInt64(packed.digits, packed.type, n, scale);
    return packed.value();
}

xdecimal xdecimal::fromString(const QString& text)
{
    return readOrThrow(text, text, BarePoint::Refused);
}

xdecimal xdecimal::fromLocaleString(const QString& text, const QLocale& locale)
{
    bool ok = false;
    locale.toDouble(text, &ok);
    return readOrThrow(ok ? delocalized(text, locale) : QString(), text, BarePoint::Allowed);
}

xdecimal xdecimal::fromSystemString(const QString& text)
{
    return fromLocaleString(text, QLocale::system());
}

xdecimal xdecimal::fromAnyString(const QString& text, bool* ok)
{
    NumberParts<char16_t> parts;
    xdecimal value;
    bool done = read(text, BarePoint::Refused, &parts, &value) == NumberOutcome::Read;
    if (!done) {
        try {
            value = fromSystemString(text);
            done = true;
        } catch (const QString&) {
            value = zero;
        }
    }
    if (ok)
        *ok = done;
    return value;
}

xdecimal xdecimal::fromDouble(double v, short scale)
{
    Packed packed(scale);
    if (!BCDIICheckType(packed.type))
        throwBadOperand();
    const unsigned int result = BCDIIGetFromDouble(packed.digits, v, packed.type);
    if (result & BCDII_RESULT_ERROR)
        throwOverflow();
    if (result & BCDII_RESULT_OVERFLOW)
        throwNaN();
    return packed.value();
}

xdecimal xdecimal::fromVariant(const QVariant& value, bool* ok)
{
    constexpr short places = 6;
    bool done = true;
    xdecimal result;
    try {
        switch (variantKind(value)) {
        case VariantKind::Decimal:
            result = fromDecimal(value.value<decimal>());
            break;
        case VariantKind::XDecimal:
            result = value.value<xdecimal>();
            break;
        case VariantKind::Text:
            result = fromString(value.toString());
            break;
        case VariantKind::Signed:
            result = xdecimal(value.toLongLong(&done));
            break;
        case VariantKind::Unsigned:
            result = xdecimal(value.toULongLong(&done));
            break;
        case VariantKind::Other: {
            const double v = value.toDouble(&done);
            if (done)
                result = fromDouble(v, places);
            break;
        }
        }
    } catch (const QString&) {
        done = false;
    } catch (const char*) {
        done = false;
    }
    if (ok)
        *ok = done;
    return result;
}

bool xdecimal::canConvert(const QString& text, bool emptyIsValid)
{
    return (emptyIsValid && text.isEmpty()) || hasNumberForm(text, BarePoint::Refused);
}

bool xdecimal::canConvert(const QVariant& value)
{
    switch (variantKind(value)) {
    case VariantKind::Text:
        return canConvert(value.toString(), false);
    case VariantKind::Other:
        return value.canConvert(QMetaType::Double);
    default:
        return true;
    }
}

QString xdecimal::toString() const
{
    if (isNaN())
        return QStringLiteral("NaN");
    char* const sequence = BCDII2StringSequence(m_digits, m_type, nullptr);
    Q_CHECK_PTR(sequence);
    QString text = QString::fromLatin1(sequence);
    std::free(sequence);
    if (text.isEmpty())
        return QStringLiteral("0");
    const int sign = text.at(0) == u'-' ? 1 : 0;
    if (text.at(sign) == u'.')
        text.insert(sign, u'0');
    return text;
}

QString xdecimal::toSystemString() const
{
    return isNaN() ? toString() : localized(toString(), QLocale::system());
}

QString xdecimal::toSystemStringShort() const
{
    return withoutFinalZeros(toSystemString(), QLocale::system());
}

QString xdecimal::toExcelString() const
{
    return toString().replace(u'.', QLocale::system().decimalPoint());
}

double xdecimal::toDouble() const noexcept
{
    double v = std::numeric_limits<double>::quiet_NaN();
    BCDII2Double(&v, m_digits, m_type);
    return v;
}

QDataStream& operator<<(QDataStream& stream, const xdecimal& value)
{
    stream << static_cast<quint16>(value.type());
    stream.writeRawData(reinterpret_cast<const char*>(digitsOf(value)), sizeof Packed::digits);
    return stream;
}

QDataStream& operator>>(QDataStream& stream, xdecimal& value)
{
    Packed packed(0);
    stream >> packed.type;
    stream.readRawData(reinterpret_cast<char*>(packed.digits), sizeof packed.digits);
    if (stream.status() == QDataStream::Ok && !normalize(&packed))
        stream.setStatus(QDataStream::ReadCorruptData);
    value = stream.status() == QDataStream::Ok ? packed.value() : xdecimal::zero;
    return stream;
}

uint qHash(const xdecimal& value, uint seed) noexcept
{
    // Equal values have equal bytes at equal distances from the point. What differs is how many
    // zero bytes surround them.
    quint8 bytes[sizeof Packed::digits];
    std::memcpy(bytes, digitsOf(value), sizeof bytes);
    const bool negative = bytes[0] & signBit;
    bytes[0] &= 127;
    const int size = static_cast<int>(BCDIISIZE(value.type()));
    int end = size;
    while (end > 0 && bytes[end - 1] == 0)
        --end;
    if (end == 0)
        return qHash(0, seed);
    int begin = 0;
    while (bytes[begin] == 0)
        ++begin;
    const int placesBelow = ((value.scale() + 1) >> 1) - (size - end);
    return qHashBits(bytes + begin, static_cast<std::size_t>(end - begin), seed) ^
           (static_cast<uint>(placesBelow) * 2U + negative) * 0x9E3779B9U;
}
