// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"
#include "value/decimal.h"

#include <QMetaType>
#include <QString>
#include <QVariant>

#include <type_traits>

class QDataStream;
class QLocale;

/// An exact decimal number of up to 26 digits in 16 bytes, for sums and products that outgrow a
/// `decimal`.
///
/// The bytes are a self-describing packed decimal (bcdii/bcdii.h): the type word, of precision 26
/// and a scale of -62 to 62 that each value has for itself, then the digit bytes: 13 of them at
/// even scales, the last byte then being 0, and 14 at odd ones. A scale of -62 reaches 26 nines
/// with 62 zeros behind them. The class keeps the bytes valid: they hold a number or the
/// not-a-number mark.
///
/// **Not-a-number.** No function returns it. It comes from outside (fromRaw, a stream) and from a
/// setScale that has thrown; isNaN() finds it. It prints as "NaN", its double is a NaN, arithmetic
/// refuses it, and in comparisons it stands for the digits it is made of: above every number of its
/// own scale.
///
/// **Errors.** Text errors are thrown as `QString`, in the user's language where the host has a
/// translation: "Невозможно создать xdecimal по строке '%1'", the same with " (%2)" for an exponent
/// out of range. Numeric errors are thrown as `const char*`: "xdecimal:overflow" when a result does
/// not fit, "xdecimal:nan" for a marked operand, "xdecimal:bad operand" for a scale that cannot be.
///
/// **Threads:** a plain value. **Cost:** no memory but for the texts that are returned; some tens
/// of nanoseconds an operation.
///
///     xdecimal turnover;
///     turnover += xdecimal(QStringLiteral("101.25")) * xdecimal(1500000000000);
///     qInfo() << turnover.toString(); // "151875000000000.00"
class LIVETABLE_EXPORT xdecimal
{
public:
    /// Digits of a value, and the bounds of its scale.
    static constexpr int precision = 26;
    static constexpr int maximumScale = 62;
    static constexpr int minimumScale = -62;

    /// Zero at scale 0.
    constexpr xdecimal() noexcept = default;

    /// fromString(text); bytes are UTF-8, a null pointer is an empty text.
    explicit xdecimal(const QString& text);
    explicit xdecimal(const QStringRef& text);
    explicit xdecimal(const char* text);

    /// fromDecimal(value).
    explicit xdecimal(decimal value) noexcept;

    /// The integer, at scale 0.
    template <typename Int, std::enable_if_t<LiveTable::isPlainInteger<Int>, int> = 0>
    explicit xdecimal(Int n) noexcept
    {
        if constexpr (std::is_signed_v<Int>)
            setInteger(n);
        else
            setUnsigned(n);
    }
    /// Not there: a double needs a scale to be rounded to, see fromDouble.
    template <typename Real, std::enable_if_t<std::is_floating_point_v<Real>, int> = 0>
    explicit xdecimal(Real) = delete;

    static const xdecimal zero; ///< zero at scale 0
    static const xdecimal d[2]; ///< {minimum, maximum}: 26 nines and 62 zeros, of either sign
    /// The least and the greatest value: d[0] and d[1].
    static const xdecimal& minimum() noexcept { return d[0]; }
    static const xdecimal& maximum() noexcept { return d[1]; }

    // --- the bytes -------------------------------------------------------------------------------

    /// The value of 16 bytes, at any address: of a cell, or of a file. Sixteen zero bytes (a cell
    /// that was never written) are zero at scale 0; bytes that are no valid xdecimal become the
    /// not-a-number mark; a spare last byte is cleared.
    static xdecimal fromRaw(const void* bytes) noexcept;

    /// Writes the 16 bytes.
    void toRaw(void* bytes) const noexcept;

    /// The value as the BCDII functions read it, of type type(). Valid as long as this object.
    const void* data() const noexcept { return this; }

    /// The type word: 0x1A00 and the scale in the low byte.
    constexpr unsigned int type() const noexcept { return m_type; }

    /// Number of fraction digits, -62 to 62.
    constexpr short scale() const noexcept { return static_cast<qint8>(m_type & 255); }

    /// Whether the bytes are the not-a-number mark.
    bool isNaN() const noexcept;

    /// Brings the value to `scale` fraction digits, rounded half away from zero, and returns what
    /// BCDIICheck says of it. Throws "xdecimal:bad operand": for a scale outside -62..62 or a
    /// marked value, which leave the value alone, and when the digits do not fit at that scale,
    /// which leaves the mark behind.
    unsigned int setScale(short scale);

    // --- arithmetic ------------------------------------------------------------------------------

    /// Exact at the larger of both scales, for products at the sum of both (within -62..62). What
    /// has more than 26 digits is rounded, half away from zero, at the largest scale at which it
    /// fits; "xdecimal:overflow" when none down to -62 does, "xdecimal:nan" for a marked operand.
    friend LIVETABLE_EXPORT xdecimal operator+(const xdecimal& a, const xdecimal& b);
    friend LIVETABLE_EXPORT xdecimal operator-(const xdecimal& a, const xdecimal& b);
    friend LIVETABLE_EXPORT xdecimal operator*(const xdecimal& a, const xdecimal& b);
    /// Zero minus the value.
    xdecimal operator-() const;
    xdecimal& operator+=(const xdecimal& other) { return *this = *this + other; }
    xdecimal& operator-=(const xdecimal& other) { return *this = *this - other; }
    xdecimal& operator*=(const xdecimal& other) { return *this = *this * other; }

    // --- comparison: by value, at any scales -----------------------------------------------------

    /// -1, 0 or 1 as this is less than, equal to or greater than `other`.
    int compare(const xdecimal& other) const noexcept;
    friend bool operator==(const xdecimal& a, const xdecimal& b) { return a.compare(b) == 0; }
    friend bool operator!=(const xdecimal& a, const xdecimal& b) { return a.compare(b) != 0; }
    friend bool operator<(const xdecimal& a, const xdecimal& b) { return a.compare(b) < 0; }
    friend bool operator<=(const xdecimal& a, const xdecimal& b) { return a.compare(b) <= 0; }
    friend bool operator>(const xdecimal& a, const xdecimal& b) { return a.compare(b) > 0; }
    friend bool operator>=(const xdecimal& a, const xdecimal& b) { return a.compare(b) >= 0; }

    // --- from decimals, text and numbers ---------------------------------------------------------

    /// The same value at the same scale, always exact but for scale 63, which rounds half away from
    /// zero to 62. Scales -63 and -64 become -62.
    static xdecimal fromDecimal(decimal value) noexcept;

    /// The value at its own scale, or, if its digits do not fit a decimal there, rounded half away
    /// from zero at the largest scale at which they do. Throws the `QString` "decimal:overflow"
    /// when none down to -63 does, and "xdecimal:nan" for a marked value.
    decimal toDecimal() const;

    /// n / 10^scale. Throws "xdecimal:bad operand" for a scale outside -62..62.
    static xdecimal fromInt64(qint64 n, int scale = 0);

    /// Reads, exactly and to the last character, one of
    ///
    ///     [+-]digits       [+-][digits].digits       [+-]digits[.digits]e[+-]digits
    ///
    /// The scale is the number of fraction digits less the exponent, "0.50" has scale 2. A fraction
    /// with more digits than 26 have room for, or than 62 places, is rounded half away from zero.
    /// Throws when the text has another form, when the digits in front of the point do not fit,
    /// and, with the exponent's text in the message, when the exponent itself leads to a scale
    /// outside -62..62. No blanks, no "E", no comma, no "NaN".
    static xdecimal fromString(const QString& text);

    /// The locale's own number text (group separators, its decimal point), exactly; the scale
    /// follows the text as in fromString. Throws the text error for what the locale does not read.
    static xdecimal fromLocaleString(const QString& text, const QLocale& locale);
    static xdecimal fromSystemString(const QString& text);

    /// fromString, or else fromSystemString. `*ok`, if given, tells whether one of them read the
    /// text; if not, the result is zero. Throws nothing.
    static xdecimal fromAnyString(const QString& text, bool* ok = nullptr);

    /// v at `scale` fraction digits (the low byte of `scale` counts), half away from zero. Throws
    /// "xdecimal:overflow" for what does not fit, an infinity or not-a-number included, and
    /// "xdecimal:bad operand" for a scale outside -62..62.
    static xdecimal fromDouble(double v, short scale);

    /// An xdecimal or decimal as it is; texts as fromString; integers exactly; any other type
    /// through its double at 6 fraction digits. `*ok`, if given, tells whether that was possible;
    /// if not, the result is zero.
    static xdecimal fromVariant(const QVariant& value, bool* ok = nullptr);

    /// True when the text has one of the forms of fromString or one with a comma for the point
    /// (then also digits, comma, exponent), and for an empty text when `emptyIsValid` is set. Tests
    /// the form only, as decimal::canConvert does.
    static bool canConvert(const QString& text, bool emptyIsValid);

    /// True when fromVariant may succeed: an xdecimal, a decimal, a text that canConvert accepts,
    /// or a type that converts to double.
    static bool canConvert(const QVariant& value);

    // --- to text and numbers ---------------------------------------------------------------------

    /// Digits with a point and `scale` fraction digits: "-0.50"; at a scale of 0 or less an integer
    /// with all its zeros.
    QString toString() const;

    /// By the rules of QLocale::system(): group separators, decimal point. Every digit is exact.
    QString toSystemString() const;

    /// The same without zeros at the end of the fraction, and without a point that ends the text.
    QString toSystemStringShort() const;

    /// toString() with the system locale's decimal point.
    QString toExcelString() const;

    /// In arithmetic on doubles: the nearest double for up to 15 digits and 22 places.
    double toDouble() const noexcept;
    /// A variant of the type "xdecimal".
    QVariant toVariant() const;

    /// The type's id in Qt's meta-type system, where its name is "xdecimal".
    static int metatypeId();

private:
    struct NoCheck
    {};
    constexpr xdecimal(NoCheck, int scale, quint8 first, quint8 others) noexcept;
    void setInteger(qint64 n) noexcept;
    void setUnsigned(quint64 n) noexcept;

    static constexpr quint16 typeOf(int scale) noexcept
    {
        return static_cast<quint16>(precision << 8 | (scale & 255));
    }

    quint16 m_type = typeOf(0);
    quint8 m_digits[14] = {};
};

static_assert(sizeof(xdecimal) == 16 && alignof(xdecimal) == 2);
static_assert(std::is_trivially_copyable_v<xdecimal>);

/// The type word as a quint16 in the stream's byte order, then the 14 digit bytes. Reading checks:
/// what is no valid xdecimal (see fromRaw) sets QDataStream::ReadCorruptData and gives zero.
LIVETABLE_EXPORT QDataStream& operator<<(QDataStream& stream, const xdecimal& value);
LIVETABLE_EXPORT QDataStream& operator>>(QDataStream& stream, xdecimal& value);

/// Equal for equal values, whatever their scales.
LIVETABLE_EXPORT uint qHash(const xdecimal& value, uint seed = 0) noexcept;

Q_DECLARE_TYPEINFO(xdecimal, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(xdecimal)

inline int xdecimal::metatypeId()
{
    return qMetaTypeId<xdecimal>();
}

inline QVariant xdecimal::toVariant() const
{
    return QVariant::fromValue(*this);
}
