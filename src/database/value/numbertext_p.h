// SPDX-License-Identifier: MIT
#pragma once

// Not part of the interface: what decimal and xdecimal share in reading and showing numbers.

#include <QLocale>
#include <QString>
#include <QVariant>

namespace LiveTable {

/// The parts of a number's text. A part that the text does not have is empty.
template <typename Char>
struct NumberParts
{
    bool negative = false;
    const Char* integer = nullptr;
    const Char* integerEnd = nullptr;
    const Char* fraction = nullptr;
    const Char* fractionEnd = nullptr;
    const Char* exponent = nullptr; ///< with its sign
    const Char* exponentEnd = nullptr;

    int integerSize() const { return static_cast<int>(integerEnd - integer); }
    int fractionSize() const { return static_cast<int>(fractionEnd - fraction); }
    bool hasExponent() const { return exponent != exponentEnd; }
};

/// Whether "5.e3", a point with nothing between it and the exponent, is a number.
enum class BarePoint
{
    Allowed,
    Refused
};

/// How the reading of a number's text ended: a text that is none, or a number out of range, is
/// refused.
enum class NumberOutcome
{
    Read,
    Refused,
    BadExponent
};

struct AsciiDigit
{
    template <typename Char>
    constexpr bool operator()(Char c) const
    {
        return c >= Char('0') && c <= Char('9');
    }
};

/// Finds the parts of [p, end) if that, to the last character, is one of
///
///     [+-]digits      [+-][digits]Pdigits      [+-]digits[P][digits]e[+-]digits
///
/// with the character `point` as P.
template <typename Char, typename IsDigit>
bool splitNumber(const Char* p, const Char* end, Char point, BarePoint barePoint, IsDigit isDigit,
                 NumberParts<Char>* parts)
{
    const auto skipDigits = [&] {
        while (p != end && isDigit(*p))
            ++p;
        return p;
    };
    if (p != end && (*p == Char('+') || *p == Char('-')))
        parts->negative = *p++ == Char('-');
    parts->integer = p;
    parts->integerEnd = skipDigits();
    parts->fraction = parts->fractionEnd = parts->exponent = parts->exponentEnd = p;
    const bool hasInteger = parts->integer != parts->integerEnd;
    if (p == end)
        return hasInteger;
    const bool hasPoint = *p == point;
    if (hasPoint) {
        parts->fraction = ++p;
        parts->fractionEnd = skipDigits();
        if (p == end)
            return parts->fraction != parts->fractionEnd;
    }
    if (*p != Char('e') || !hasInteger)
        return false;
    if (hasPoint && barePoint == BarePoint::Refused && parts->fraction == parts->fractionEnd)
        return false;
    parts->exponent = ++p;
    if (p != end && (*p == Char('+') || *p == Char('-')))
        ++p;
    const Char* const digits = p;
    parts->exponentEnd = skipDigits();
    return p == end && p != digits;
}

/// The exponent as a number; one beyond +-limit as that limit.
template <typename Char>
int exponentOf(const NumberParts<Char>& parts, int limit)
{
    const Char* p = parts.exponent;
    if (p == parts.exponentEnd)
        return 0;
    const bool negative = *p == Char('-');
    if (negative || *p == Char('+'))
        ++p;
    int value = 0;
    for (; p != parts.exponentEnd && value < limit; ++p)
        value = value * 10 + static_cast<int>(*p - Char('0'));
    value = qMin(value, limit);
    return negative ? -value : value;
}

/// Whether the text has a form that canConvert accepts: a number with a point (of the given
/// strictness), or with a comma. Any Unicode digits count.
bool hasNumberForm(const QString& text, BarePoint barePoint);

/// How a variant is turned into a number.
enum class VariantKind
{
    Decimal,
    XDecimal,
    Text,
    Signed,
    Unsigned,
    Other
};
VariantKind variantKind(const QVariant& value);

/// Text of a number ("-1234.50") by the rules of a locale, digit by digit.
QString localized(const QString& number, const QLocale& locale);

/// The reverse, for a text that the locale reads as a number.
QString delocalized(const QString& text, const QLocale& locale);

/// Removes zeros behind the locale's decimal point, then the point if it ends the text.
QString withoutFinalZeros(QString text, const QLocale& locale);

} // namespace LiveTable
