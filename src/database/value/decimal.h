// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <QMetaType>
#include <QString>
#include <QStringView>
#include <QVariant>

#include <type_traits>

class QDataStream;
class QLocale;

namespace LiveTable {
/// 10 to the power of 0..18: all that 64 bits hold.
struct PowersOfTen
{
    qint64 power[19] = {1};
    constexpr PowersOfTen() noexcept
    {
        for (int i = 1; i < 19; ++i)
            power[i] = power[i - 1] * 10;
    }
    constexpr qint64 operator[](int exponent) const noexcept { return power[exponent]; }
};
/// The only one of its kind.
inline constexpr PowersOfTen powersOfTen;

/// The largest magnitudes of a decimal's mantissa that may be multiplied by 10 to the power of
/// 0..16 and stay a mantissa: 2^56 / 10^i.
struct MantissaLimits
{
    qint64 limit[17] = {};
    constexpr MantissaLimits() noexcept
    {
        for (int i = 0; i < 17; ++i)
            limit[i] = (qint64(1) << 56) / powersOfTen[i];
    }
    constexpr qint64 operator[](int steps) const noexcept { return limit[steps]; }
};
/// The only one of its kind.
inline constexpr MantissaLimits mantissaLimits;

/// The types that are taken for numbers: a bool or a character hardly means one.
template <typename T>
inline constexpr bool isPlainInteger =
    std::is_integral_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, char> &&
    !std::is_same_v<T, wchar_t> && !std::is_same_v<T, char16_t> && !std::is_same_v<T, char32_t>;
} // namespace LiveTable

/// An exact decimal number in 64 bits, for prices and quantities: a mantissa of 57 bits (sign
/// included) and the number of its fraction digits. The value is mantissa / 10^scale.
///
/// Layout of the word: bits 0-55 hold the low bits of the mantissa in two's complement, bits 56-62
/// the scale (signed, -64 to 63), bit 63 the sign of the mantissa. Every word is a valid decimal.
/// The mantissa lies in -2^56 .. 2^56 - 1, so that every number of 16 digits is exact (its text is
/// up to a mantissa of 2^53, see toString()). A result
/// with more digits than that lowers its scale, as each function says; it never wraps.
///
/// It adds, subtracts and compares; products are toXDecimal() * toXDecimal(). There is no division.
///
/// The scale is kept, not normalised: 1.5 and 1.50 are two words of one value. All comparisons and
/// qHash go by value; raw() tells the words apart.
///
/// **Errors** are thrown as `QString`, through QObject::tr(), so in the language that the host
/// translates them to, else as they stand here:
/// "Невозможно создать decimal по строке '%1'" for a text, the same with " (%2)" for an exponent
/// out of range, "decimal:overflow" for a number out of range, "Error in input local string '%1'"
/// for a text that the locale does not read. Nothing else is thrown; `noexcept` functions throw
/// nothing.
///
/// **Threads:** a plain value. **Cost:** comparing, adding, rescaling, reading and printing take
/// nanoseconds and no memory, save for the QString that is returned.
///
///     decimal price(QStringLiteral("101.25"));
///     price += decimal::fromMantissa(5, 2); // 101.30
///     if (price > decimal(100))
///         qInfo() << price.setScale(1).toString(); // "101.3"
class LIVETABLE_EXPORT decimal
{
public:
    /// The word 0: zero at scale 0.
    constexpr decimal() noexcept = default;

    /// fromString(text).
    explicit decimal(const QString& text);
    explicit decimal(const QStringRef& text);

    /// fromMantissa(mantissa, scale); with one argument the integer itself.
    template <typename Int, std::enable_if_t<LiveTable::isPlainInteger<Int>, int> = 0>
    explicit decimal(Int mantissa, int scale = 0);
    /// Not there: a double needs a scale to be rounded to, see fromDouble.
    template <typename Real, std::enable_if_t<std::is_floating_point_v<Real>, int> = 0>
    explicit decimal(Real, int = 0) = delete;

    static const decimal zero;    ///< the word 0
    static const decimal maximum; ///< mantissa 2^52 - 1 at scale -63: doubles hold such mantissas
    static const decimal minimum; ///< the same, negative

    /// The bounds of a scale: fraction digits, negative for zeros before the point.
    static constexpr int maximumScale = 63;
    static constexpr int minimumScale = -64;

    /// mantissa / 10^scale. A mantissa out of range loses its last digits (cut toward zero) and the
    /// scale goes down with them, to -63 at most, then "decimal:overflow" is thrown. Digits beyond
    /// 63 places are cut too; a scale below -64 multiplies the mantissa or throws.
    static constexpr decimal fromMantissa(qint64 mantissa, int scale);

    /// The decimal of a word: of a cell, or of a file. Any word will do.
    static constexpr decimal fromRaw(qint64 word) noexcept { return decimal(Raw{word}); }
    /// The word.
    constexpr qint64 raw() const noexcept { return m_word; }

    /// -2^56 .. 2^56 - 1.
    constexpr qint64 mantissa() const noexcept
    {
        return (m_word & lowMask) | (m_word >> 63) * (qint64(1) << mantissaBits);
    }

    /// Number of fraction digits, -64 to 63.
    constexpr short scale() const noexcept
    {
        return static_cast<short>(static_cast<qint64>(quint64(m_word) << 1) >> 57);
    }

    /// Brings the value to `scale` fraction digits (-64..63, what lies outside counts as the limit)
    /// and returns it. Fewer digits round half away from zero: 1.25 becomes 1.3. More digits are
    /// zeros; where the mantissa has no room for all of them the scale stays at the last that fits.
    decimal& setScale(short scale) noexcept;

    // --- arithmetic ------------------------------------------------------------------------------

    /// The exact sum or difference at the larger of both scales. One with more digits than fit is
    /// rounded, half away from zero, at the largest scale at which it does; "decimal:overflow" when
    /// it does not fit at scale -64. The operators are the same functions.
    static decimal add(decimal a, decimal b);
    static decimal subtract(decimal a, decimal b);
    friend decimal operator+(decimal a, decimal b) { return add(a, b); }
    friend decimal operator-(decimal a, decimal b) { return subtract(a, b); }
    /// Zero minus the value.
    decimal operator-() const { return subtract(compose(0, scale()), *this); }
    decimal& operator+=(decimal other) { return *this = add(*this, other); }
    decimal& operator-=(decimal other) { return *this = subtract(*this, other); }

    // --- comparison: by value, at any scales -----------------------------------------------------

    /// -1, 0 or 1 as this is less than, equal to or greater than `other`.
    constexpr int compare(decimal other) const noexcept
    {
        if (((m_word ^ other.m_word) & scaleMask) == 0)
            return (m_word > other.m_word) - (m_word < other.m_word);
        return compareScaled(mantissa(), other.mantissa(), scale() - other.scale());
    }
    friend constexpr bool operator==(decimal a, decimal b) noexcept { return a.compare(b) == 0; }
    friend constexpr bool operator!=(decimal a, decimal b) noexcept { return a.compare(b) != 0; }
    friend constexpr bool operator<(decimal a, decimal b) noexcept { return a.compare(b) < 0; }
    friend constexpr bool operator<=(decimal a, decimal b) noexcept { return a.compare(b) <= 0; }
    friend constexpr bool operator>(decimal a, decimal b) noexcept { return a.compare(b) > 0; }
    friend constexpr bool operator>=(decimal a, decimal b) noexcept { return a.compare(b) >= 0; }

    // --- from text and numbers -------------------------------------------------------------------

    /// Reads, exactly and to the last character, one of
    ///
    ///     [+-]digits           [+-][digits].digits           [+-]digits[.][digits]e[+-]digits
    ///
    /// The scale is the number of fraction digits less the exponent: "1.50" has scale 2, "5e3"
    /// scale -3. Digits beyond the mantissa's range are cut as in fromMantissa, so are fraction
    /// digits beyond 63 places. Throws when the text has another form, when its integer digits
    /// exceed 64 bits, and, with the exponent's text in the message, when the exponent leads to a
    /// scale outside -63..63. No blanks, no "E", no comma.
    static decimal fromString(const QString& text);

    /// fromString over any range of characters, without exceptions: false for a text that it would
    /// refuse, `*value` is then left alone. The second form reads `length` bytes of ASCII.
    static bool tryParse(QStringView text, decimal* value) noexcept;
    static bool tryParse(const char* text, int length, decimal* value) noexcept;

    /// The locale's own number text (group separators, its decimal point), through a double and
    /// fromDouble(value, scale). Throws when the locale does not read it, and as fromDouble.
    static decimal fromLocaleString(const QString& text, const QLocale& locale, int scale);
    static decimal fromSystemString(const QString& text, int scale);

    /// fromString, or else fromSystemString. `*ok`, if given, tells whether one of them read the
    /// text; if not, the result is zero. Throws nothing.
    static decimal fromAnyString(const QString& text, bool* ok, int scale);

    /// v at `scale` fraction digits. Rounds half away from zero for a scale above 0, but cuts
    /// toward zero for a scale of 0 or less: 2.75 at 1 is 2.8, 2.7 at 0 is 2. Throws
    /// "decimal:overflow" when the mantissa reaches +-2^56 and for an infinity or not-a-number. A
    /// scale outside -64..63 counts as the limit.
    static decimal fromDouble(double v, short scale);

    /// A decimal as it is; an xdecimal as xdecimal::toDecimal; texts as fromString; integers
    /// exactly; any other type through its double at 6 fraction digits (fewer for values that have
    /// no room for 6). `*ok`, if given, tells whether that was possible; if not, the result is
    /// zero.
    static decimal fromVariant(const QVariant& value, bool* ok = nullptr);

    /// True when the text has one of the forms of fromString or one of these with a comma for the
    /// point, and for an empty text when `emptyIsValid` is set. Tests the form only: a text with
    /// too many digits, non-ASCII digits or a comma passes, yet fromString refuses it.
    static bool canConvert(const QString& text, bool emptyIsValid);

    /// True when fromVariant may succeed: a decimal, an xdecimal, a text that canConvert accepts,
    /// or a type that converts to double.
    static bool canConvert(const QVariant& value);

    // --- to text and numbers ---------------------------------------------------------------------

    /// Digits with a point and `scale` fraction digits: "-0.50"; at a scale of 0 or less an integer
    /// with its zeros: "500" for 5 at scale -2, "0" for zero. At a scale above 0 a mantissa beyond
    /// 2^53 prints as the nearest double.
    QString toString() const;

    /// Writes toString() as ASCII, without a terminator, and returns its length: at most
    /// maximumTextSize.
    int toChars(char* buffer) const noexcept;
    /// Bytes that the longest text takes.
    static constexpr int maximumTextSize = 82;

    /// By the rules of QLocale::system(): group separators, decimal point, max(scale, 0) fraction
    /// digits. Through a double.
    QString toSystemString() const;

    /// The same without zeros at the end of the fraction, and without a point that ends the text.
    QString toSystemStringShort() const;

    /// toString() with the system locale's decimal point.
    QString toExcelString() const;

    /// mantissa / 10^scale, in arithmetic on doubles.
    double toDouble() const noexcept;
    /// A variant of the type "decimal".
    QVariant toVariant() const;

    /// The type's id in Qt's meta-type system, where its name is "decimal".
    static int metatypeId();

private:
    struct Raw
    {
        qint64 word;
    };
    constexpr explicit decimal(Raw raw) noexcept
        : m_word(raw.word)
    {}

    static constexpr int mantissaBits = 56;
    static constexpr qint64 limit = qint64(1) << mantissaBits;
    static constexpr qint64 lowMask = limit - 1;
    static constexpr qint64 scaleMask = qint64(127) << mantissaBits;

    static constexpr bool fits(qint64 mantissa) { return mantissa >= -limit && mantissa < limit; }

    // The word of parts that are known to be in range.
    static constexpr decimal compose(qint64 mantissa, int scale) noexcept
    {
        return decimal(Raw{(mantissa & ~scaleMask) | (qint64(scale & 127) << mantissaBits)});
    }
    static constexpr int compareScaled(qint64 a, qint64 b, int scaleDifference) noexcept;
    static constexpr int compareRaised(qint64 a, qint64 b, int steps) noexcept;
    static decimal addScaled(qint64 a, int aScale, qint64 b, int bScale);
    [[noreturn]] static void throwOverflow();

    friend class xdecimal;

    qint64 m_word = 0;
};

/// One signed 64-bit word, raw(), in the stream's byte order. Every word reads back.
LIVETABLE_EXPORT QDataStream& operator<<(QDataStream& stream, decimal value);
LIVETABLE_EXPORT QDataStream& operator>>(QDataStream& stream, decimal& value);

/// Equal for equal values, whatever their scales.
LIVETABLE_EXPORT uint qHash(decimal value, uint seed = 0) noexcept;

Q_DECLARE_TYPEINFO(decimal, Q_PRIMITIVE_TYPE);
Q_DECLARE_METATYPE(decimal)

// --- bodies --------------------------------------------------------------------------------------

inline int decimal::metatypeId()
{
    return qMetaTypeId<decimal>();
}

inline QVariant decimal::toVariant() const
{
    return QVariant::fromValue(*this);
}

template <typename Int, std::enable_if_t<LiveTable::isPlainInteger<Int>, int>>
decimal::decimal(Int mantissa, int scale)
{
    if constexpr (std::is_unsigned_v<Int> && sizeof(Int) == sizeof(qint64)) {
        if (mantissa > Int(-1) / 2) { // loses digits in any case: one here, then it is a qint64
            if (scale <= minimumScale)
                throwOverflow();
            *this = fromMantissa(static_cast<qint64>(mantissa / 10), scale - 1);
            return;
        }
    }
    *this = fromMantissa(static_cast<qint64>(mantissa), scale);
}

constexpr decimal decimal::fromMantissa(qint64 mantissa, int scale)
{
    for (; scale > maximumScale && mantissa != 0; --scale)
        mantissa /= 10;
    for (; scale < minimumScale && mantissa != 0 && fits(mantissa); ++scale)
        mantissa *= 10;
    if (mantissa == 0) // has no digits to fit in: the nearest scale there is
        scale = scale > maximumScale ? maximumScale : scale < minimumScale ? minimumScale : scale;
    for (; !fits(mantissa) && scale > -maximumScale; --scale)
        mantissa /= 10;
    if (!fits(mantissa) || scale < minimumScale)
        throwOverflow();
    return compose(mantissa, scale);
}

inline decimal decimal::add(decimal a, decimal b)
{
    const qint64 sum = a.mantissa() + b.mantissa();
    if (((a.m_word ^ b.m_word) & scaleMask) == 0 && fits(sum))
        return compose(sum, a.scale());
    return addScaled(a.mantissa(), a.scale(), b.mantissa(), b.scale());
}

inline decimal decimal::subtract(decimal a, decimal b)
{
    const qint64 difference = a.mantissa() - b.mantissa();
    if (((a.m_word ^ b.m_word) & scaleMask) == 0 && fits(difference))
        return compose(difference, a.scale());
    return addScaled(a.mantissa(), a.scale(), -b.mantissa(), b.scale());
}

// Compares a / 10^n with b where n = scaleDifference (below 0: a with b / 10^-n).
constexpr int decimal::compareScaled(qint64 a, qint64 b, int scaleDifference) noexcept
{
    if (a == 0 || b == 0 || (a ^ b) < 0)
        return (a > b) - (a < b);
    const int sign = a < 0 ? -1 : 1;
    if (scaleDifference > 0)
        return -sign * compareRaised(b * sign, a * sign, scaleDifference);
    return sign * compareRaised(a * sign, b * sign, -scaleDifference);
}

// Compares a * 10^steps with b, both positive and mantissas, so that b is below 10^17.
constexpr int decimal::compareRaised(qint64 a, qint64 b, int steps) noexcept
{
    if (steps >= 17 || a > LiveTable::mantissaLimits[steps])
        return 1;
    a *= LiveTable::powersOfTen[steps];
    return (a > b) - (a < b);
}
