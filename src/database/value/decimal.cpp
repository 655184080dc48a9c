// SPDX-License-Identifier: MIT
#include "value/decimal.h"
#include "value/numbertext_p.h"
#include "value/xdecimal.h"

#include <QDataStream>
#include <QHash>
#include <QObject>

#include <algorithm>
#include <cmath>
#include <cstring>

using namespace LiveTable;

namespace {

__extension__ typedef unsigned __int128 uint128;

constexpr quint64 mantissaLimit = quint64(1) << 56;

// Quotients by powers of ten through a multiplication, several times as fast as a division.
// floor(x / 10^n) = floor(x * factor / 2^(64 + shift)), with factor the least integer above
// 2^(64 + shift) / 10^n, is exact while x * 10^n < 2^(64 + shift) [Granlund, Montgomery: Division
// by invariant integers, 1994]; with 2^shift < 10^n < 2^(shift + 1) that holds for x below 2^63.
struct Divisors
{
    quint64 factor[18] = {};
    int shift[18] = {};
    constexpr Divisors()
    {
        for (int n = 1; n < 18; ++n) {
            const auto power = static_cast<quint64>(powersOfTen[n]);
            while (power >> (shift[n] + 1))
                ++shift[n];
            factor[n] = static_cast<quint64>((uint128(1) << (64 + shift[n])) / power + 1);
        }
    }
};
constexpr Divisors divisors;

// x / 10^n for x < 2^57 and n of 0 to 17.
inline quint64 dividedByPower(quint64 x, int n)
{
    if (n == 0)
        return x;
    return static_cast<quint64>(uint128(x) * divisors.factor[n] >> 64) >> divisors.shift[n];
}

inline quint64 magnitudeOf(qint64 n)
{
    return n < 0 ? 0 - static_cast<quint64>(n) : static_cast<quint64>(n);
}

inline qint64 withSign(quint64 magnitude, bool negative)
{
    return static_cast<qint64>(negative ? 0 - magnitude : magnitude);
}

// The number of digits of n > 0; n | 1 has as many as n and is not 0.
inline int digitCount(quint64 n)
{
    // 1233 / 4096 is log10(2), close enough for 64 bits.
    const int guess = (64 - static_cast<int>(qCountLeadingZeroBits(n))) * 1233 >> 12;
    return guess + (n >= static_cast<quint64>(powersOfTen[guess]));
}

// Writes the last `count` digits of n in front of `end`.
inline void writeDigits(char* end, quint64 n, int count)
{
    static constexpr char pairs[] = "00010203040506070809101112131415161718192021222324"
                                    "25262728293031323334353637383940414243444546474849"
                                    "50515253545556575859606162636465666768697071727374"
                                    "75767778798081828384858687888990919293949596979899";
    for (; count >= 2; count -= 2, n /= 100) {
        end -= 2;
        std::memcpy(end, pairs + n % 100 * 2, 2);
    }
    if (count)
        *--end = static_cast<char>('0' + n % 10);
}

// --- reading -------------------------------------------------------------------------------------

template <typename Char>
quint64 accumulate(quint64 n, const Char* p, const Char* end)
{
    for (; p != end; ++p)
        n = n * 10 + static_cast<quint64>(*p - Char('0'));
    return n;
}

// Reads what most texts are: a number of at most 16 digits with a point among them, or 17 without.
template <typename Char>
inline bool readShort(const Char* p, const Char* end, decimal* value)
{
    const bool negative = p != end && *p == Char('-');
    p += negative;
    if (p == end || end - p > 17 || end[-1] == Char('.'))
        return false;
    quint64 mantissa = 0;
    const Char* fraction = end;
    for (; p != end; ++p) {
        const auto digit = static_cast<unsigned int>(*p - Char('0'));
        if (digit <= 9)
            mantissa = mantissa * 10 + digit;
        else if (*p == Char('.') && fraction == end)
            fraction = p + 1;
        else
            return false;
    }
    *value = decimal::fromMantissa(withSign(mantissa, negative), static_cast<int>(end - fraction));
    return true;
}

// Reads every other number, of any length.
template <typename Char>
NumberOutcome readLong(NumberParts<Char> parts, decimal* value)
{
    constexpr int farExponent = 1000;
    const int exponent = exponentOf(parts, farExponent);
    while (parts.integer != parts.integerEnd && *parts.integer == Char('0'))
        ++parts.integer;
    if (parts.integerSize() > 19)
        return NumberOutcome::Refused;
    quint64 mantissa = accumulate<Char>(0, parts.integer, parts.integerEnd);
    if (mantissa > (quint64(1) << 63) - !parts.negative)
        return NumberOutcome::Refused;

    const quint64 largest = mantissaLimit - !parts.negative;
    int scale = -exponent;
    if (scale > decimal::maximumScale)
        return NumberOutcome::BadExponent;
    if (mantissa > largest) {
        for (; mantissa > largest; --scale)
            mantissa /= 10;
        parts.fraction = parts.fractionEnd;
    }
    for (; parts.fraction != parts.fractionEnd; ++scale) {
        const quint64 next = accumulate(mantissa, parts.fraction, parts.fraction + 1);
        if (next > largest)
            break;
        mantissa = next;
        ++parts.fraction;
    }
    if (scale < -decimal::maximumScale)
        return NumberOutcome::BadExponent;
    *value = decimal::fromMantissa(withSign(mantissa, parts.negative), scale);
    return NumberOutcome::Read;
}

template <typename Char>
NumberOutcome read(const Char* begin, const Char* end, NumberParts<Char>* parts, decimal* value)
{
    if (readShort(begin, end, value))
        return NumberOutcome::Read;
    if (!splitNumber(begin, end, Char('.'), BarePoint::Allowed, AsciiDigit(), parts))
        return NumberOutcome::Refused;
    return readLong(*parts, value);
}

NumberOutcome read(QStringView text, NumberParts<char16_t>* parts, decimal* value)
{
    const auto* begin = reinterpret_cast<const char16_t*>(text.utf16());
    return read(begin, begin + text.size(), parts, value);
}

decimal readOrThrow(QStringView text)
{
    NumberParts<char16_t> parts;
    decimal value;
    switch (read(text, &parts, &value)) {
    case NumberOutcome::Read:
        break;
    case NumberOutcome::Refused:
        throw QObject::tr("Невозможно создать decimal по строке '%1'").arg(text);
    case NumberOutcome::BadExponent:
        throw QObject::tr("Невозможно создать decimal по строке '%1' (%2)")
            .arg(text, QStringView(parts.exponent, parts.exponentEnd));
    }
    return value;
}

} // namespace

constexpr decimal decimal::zero = decimal();
constexpr decimal decimal::maximum = decimal::fromMantissa((qint64(1) << 52) - 1, -63);
constexpr decimal decimal::minimum = decimal::fromMantissa(1 - (qint64(1) << 52), -63);

decimal::decimal(const QString& text)
    : decimal(readOrThrow(text))
{}

decimal::decimal(const QStringRef& text)
    : decimal(readOrThrow(text))
{}

void decimal::throwOverflow()
{
    throw QStringLiteral("decimal:overflow");
}

decimal& decimal::setScale(short scale) noexcept
{
    const int target = std::clamp<int>(scale, minimumScale, maximumScale);
    const int current = this->scale();
    const qint64 m = mantissa();
    if (m == 0 || target == current)
        return *this = compose(m, target);
    const bool negative = m < 0;
    quint64 magnitude = magnitudeOf(m);
    if (target < current) {
        // Digits cut before the last one do not change whether that rounds up.
        const int steps = current - target;
        magnitude =
            steps > 17
                ? 0
                : dividedByPower(magnitude + static_cast<quint64>(powersOfTen[steps] / 2), steps);
        return *this = compose(withSign(magnitude, negative), target);
    }
    int steps = std::min(target - current, 16);
    while (magnitude > static_cast<quint64>(mantissaLimits[steps]))
        --steps; // no product is 2^56 itself, so both signs have one limit
    magnitude *= static_cast<quint64>(powersOfTen[steps]);
    return *this = compose(withSign(magnitude, negative), current + steps);
}

decimal decimal::addScaled(qint64 a, int aScale, qint64 b, int bScale)
{
    if (aScale > bScale) {
        std::swap(a, b);
        std::swap(aScale, bScale);
    }
    int steps = a == 0 ? 0 : bScale - aScale;
    if (steps < 17 && magnitudeOf(a) <= static_cast<quint64>(mantissaLimits[steps])) {
        const qint64 sum = a * powersOfTen[steps] + b;
        if (fits(sum))
            return compose(sum, bScale);
    }

    // In 128 bits there is room for 21 steps. If that is not enough, the digits of b that are cut
    // lie at least four places behind the last one kept, so all that matters is that they exist: a
    // difference is then a little less than it looks.
    constexpr int room = 21;
    quint64 bSize = magnitudeOf(b);
    const bool sameSign = (a < 0) == (b < 0);
    if (steps > room) {
        const int cut = steps - room;
        const quint64 rest = cut > 17 ? 0 : dividedByPower(bSize, cut);
        const bool exact = cut <= 17 && rest * static_cast<quint64>(powersOfTen[cut]) == bSize;
        bSize = rest + (!sameSign && !exact && bSize != 0);
        bScale -= cut;
        steps = room;
    }
    const uint128 raised = uint128(magnitudeOf(a)) *
                           static_cast<quint64>(powersOfTen[std::min(steps, 18)]) *
                           static_cast<quint64>(powersOfTen[std::max(steps - 18, 0)]);
    const bool negative = sameSign || raised >= bSize ? a < 0 : b < 0;
    uint128 size = sameSign ? raised + bSize : raised >= bSize ? raised - bSize : bSize - raised;

    const quint64 largest = mantissaLimit - !negative;
    bool roundsUp = false;
    for (; size + roundsUp > largest; --bScale) {
        roundsUp = size % 10 >= 5;
        size /= 10;
    }
    if (bScale < minimumScale)
        throwOverflow();
    return compose(withSign(static_cast<quint64>(size) + roundsUp, negative), bScale);
}

decimal decimal::fromString(const QString& text)
{
    return readOrThrow(text);
}

bool decimal::tryParse(QStringView text, decimal* value) noexcept
{
    NumberParts<char16_t> parts;
    return read(text, &parts, value) == NumberOutcome::Read;
}

bool decimal::tryParse(const char* text, int length, decimal* value) noexcept
{
    NumberParts<char> parts;
    return read(text, text + length, &parts, value) == NumberOutcome::Read;
}

decimal decimal::fromLocaleString(const QString& text, const QLocale& locale, int scale)
{
    bool ok = false;
    const double v = locale.toDouble(text, &ok);
    if (!ok)
        throw QObject::tr("Error in input local string '%1'").arg(text);
    return fromDouble(v, static_cast<short>(std::clamp<int>(scale, minimumScale, maximumScale)));
}

decimal decimal::fromSystemString(const QString& text, int scale)
{
    return fromLocaleString(text, QLocale::system(), scale);
}

decimal decimal::fromAnyString(const QString& text, bool* ok, int scale)
{
    decimal value;
    bool read = tryParse(text, &value);
    if (!read) {
        try {
            value = fromSystemString(text, scale);
            read = true;
        } catch (const QString&) {
        }
    }
    if (ok)
        *ok = read;
    return value;
}

decimal decimal::fromDouble(double v, short scale)
{
    const int places = std::clamp<int>(scale, minimumScale, maximumScale);
    for (int i = 0; i < places; ++i)
        v *= 10.0;
    if (places > 0)
        v += v > 0.0 ? 0.5 : -0.5;
    for (int i = 0; i > places; --i)
        v /= 10.0;
    constexpr auto end = static_cast<double>(limit);
    if (!(v > -end && v < end)) // a not-a-number is in no range
        throwOverflow();
    return compose(static_cast<qint64>(v), places);
}

decimal decimal::fromVariant(const QVariant& value, bool* ok)
{
    constexpr short places = 6;
    bool done = true;
    decimal result;
    try {
        switch (variantKind(value)) {
        case VariantKind::Decimal:
            result = value.value<decimal>();
            break;
        case VariantKind::XDecimal:
            result = value.value<xdecimal>().toDecimal();
            break;
        case VariantKind::Text:
            done = tryParse(value.toString(), &result);
            break;
        case VariantKind::Signed:
            result = decimal(value.toLongLong(&done));
            break;
        case VariantKind::Unsigned:
            result = decimal(value.toULongLong(&done));
            break;
        case VariantKind::Other: {
            const double v = value.toDouble(&done);
            short scale = places;
            while (scale > 0 && std::fabs(v) * double(powersOfTen[scale]) >= double(limit) - 1.0)
                --scale;
            if (done)
                result = fromDouble(v, scale);
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

bool decimal::canConvert(const QString& text, bool emptyIsValid)
{
    return (emptyIsValid && text.isEmpty()) || hasNumberForm(text, BarePoint::Allowed);
}

bool decimal::canConvert(const QVariant& value)
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

int decimal::toChars(char* buffer) const noexcept
{
    const qint64 m = mantissa();
    const int places = scale();
    quint64 magnitude = magnitudeOf(m);
    char* next = buffer;
    if (m < 0)
        *next++ = '-';
    if (places <= 0) {
        const int digits = digitCount(magnitude | 1);
        next += digits;
        writeDigits(next, magnitude, digits);
        const int zeros = m == 0 ? 0 : -places;
        std::memset(next, '0', static_cast<std::size_t>(zeros));
        return static_cast<int>(next - buffer) + zeros;
    }
    // Shown as a double would be.
    magnitude = static_cast<quint64>(static_cast<double>(magnitude));
    const quint64 whole = places > 17 ? 0 : dividedByPower(magnitude, places);
    const int digits = digitCount(whole | 1);
    next += digits;
    writeDigits(next, whole, digits);
    *next++ = '.';
    next += places;
    writeDigits(next, magnitude, places); // those of the whole part stay away
    return static_cast<int>(next - buffer);
}

QString decimal::toString() const
{
    char text[maximumTextSize];
    return QString::fromLatin1(text, toChars(text));
}

QString decimal::toSystemString() const
{
    return QLocale::system().toString(toDouble(), 'f', std::max<int>(scale(), 0));
}

QString decimal::toSystemStringShort() const
{
    return withoutFinalZeros(toSystemString(), QLocale::system());
}

QString decimal::toExcelString() const
{
    return toString().replace(u'.', QLocale::system().decimalPoint());
}

double decimal::toDouble() const noexcept
{
    const int places = scale();
    const auto m = static_cast<double>(mantissa());
    // These powers are exact, so that the table says what pow would.
    if (places >= 0 && places <= 18)
        return m / static_cast<double>(powersOfTen[places]);
    return m / std::pow(10.0, places);
}

QDataStream& operator<<(QDataStream& stream, decimal value)
{
    return stream << value.raw();
}

QDataStream& operator>>(QDataStream& stream, decimal& value)
{
    qint64 word = 0;
    stream >> word;
    value = decimal::fromRaw(word);
    return stream;
}

uint qHash(decimal value, uint seed) noexcept
{
    qint64 mantissa = value.mantissa();
    int scale = mantissa ? value.scale() : 0;
    for (; mantissa && mantissa % 10 == 0; --scale)
        mantissa /= 10;
    return qHash(mantissa, seed) ^ static_cast<uint>(scale) * 0x9E3779B9U;
}
