// SPDX-License-Identifier: MIT
#include "bcdii/bcdii.h"
#include "bcdii/bcdii_p.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace LiveTable::Bcdii {
namespace {

// Every scale that a byte holds may stand in a temporary's type, and beyond these nothing changes:
// any number times 10^127 overflows, any number times 10^-128 has no digit left.
int clampScale(int scale)
{
    return std::clamp(scale, -128, 127);
}

// Powers of ten as doubles, by repeated multiplication or division: beyond 10^22 these are not the
// nearest doubles, and results must not depend on how a compiler reads a literal.
class Powers
{
public:
    constexpr Powers()
    {
        power[offset] = 1.0;
        for (int i = 1; i <= offset; ++i) {
            power[offset + i] = power[offset + i - 1] * 10.0;
            power[offset - i] = power[offset - i + 1] / 10.0;
        }
    }
    constexpr double operator[](int exponent) const { return power[offset + exponent]; }

private:
    static constexpr int offset = 128;
    double power[2 * offset + 1] = {};
};
constexpr Powers powers;

// Fills the digit bytes (which are 0) from the integer m of 2^53 or more. Doubles have no such
// digits to lose here: each step rounds, and the digits are those that the steps leave.
unsigned int fillFromLargeDouble(BYTE* digits, unsigned int type, double m)
{
    const Layout layout(type);
    BYTE* next = digits + layout.ball;
    int left = layout.nint + layout.nfrac;
    if (layout.nfrac & 1) {
        const double digit = std::fmod(m, 10.0);
        *--next = static_cast<BYTE>(digit * 10.0);
        m = std::floor((m - digit) / 10.0 + 0.125);
        --left;
    }
    for (; left >= 2 && m > 0.125; left -= 2) {
        const double pair = std::fmod(m, 100.0);
        *--next = static_cast<BYTE>(pair);
        m = std::floor((m - pair) / 100.0 + 0.125);
    }
    if (left == 1 && m > 0.125) {
        const double digit = std::fmod(m, 10.0);
        *--next = static_cast<BYTE>(digit);
        m = std::floor((m - digit) / 10.0 + 0.125);
    }
    return m > 0.125 ? mark(digits, flagsOverflow) : 0U;
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

BYTE pairOf(const char* p)
{
    return static_cast<BYTE>((p[0] - '0') * 10 + (p[1] - '0'));
}

const char* skipDigits(const char* p)
{
    while (isDigit(*p))
        ++p;
    return p;
}

const char* skipZeros(const char* p)
{
    while (*p == '0')
        ++p;
    return p;
}

// What a text holds: digits without zeros in front, as long as the text is.
struct NumberText
{
    bool negative = false;
    bool zeroSeen = false;
    const char* integer = nullptr;
    const char* fraction = nullptr;
    std::ptrdiff_t integerDigits = 0;
    std::ptrdiff_t fractionZeros = 0; // in front of the fraction, where there are no integer digits
    std::ptrdiff_t fractionDigits = 0;

    explicit NumberText(const char* p)
    {
        while (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r')
            ++p;
        if (*p == '+' || *p == '-')
            negative = *p++ == '-';
        integer = skipZeros(p);
        zeroSeen = integer != p;
        p = skipDigits(integer);
        integerDigits = p - integer;
        if (*p != '.' && *p != ',')
            return;
        fraction = ++p;
        if (integerDigits == 0) {
            fraction = skipZeros(p);
            fractionZeros = fraction - p;
            zeroSeen = zeroSeen || fractionZeros > 0;
        }
        fractionDigits = skipDigits(fraction) - fraction;
    }
};

// Packs the digits of a text, cut to n_frac places, behind the point of a temporary. Returns its
// type. n_int is the number of integer digits, or minus that of the fraction's leading zeros.
unsigned int pack(BYTE* tmp, const NumberText& text, int n_int, int n_frac)
{
    const int n_all = Layout(n_int, n_frac).ball;
    BYTE* p_tmp = tmp;
    if (text.integerDigits > 0) {
        const char* p = text.integer;
        const char* end = p + n_int;
        if (n_int & 1)
            *p_tmp++ = static_cast<BYTE>(*p++ - '0');
        for (; p < end; p += 2)
            *p_tmp++ = pairOf(p);
        BCDII_ASSERT(p_tmp == tmp + (n_int + 1) / 2);
    }

    const char* f_fst = nullptr;
    const char* f_lspl = nullptr;
    if (n_frac > 0) {
        f_fst = text.fraction;
        f_lspl = f_fst + std::min<std::ptrdiff_t>(text.fractionDigits, n_frac + std::min(n_int, 0));
    } else {
        BCDII_ASSERT(f_lspl == 0); // NOLINT(modernize-use-nullptr): the text is the message
    }
    if (n_int < 0 && (n_int & 1)) // an odd number of zeros: the first digit has its byte alone
        *p_tmp++ = static_cast<BYTE>(*f_fst++ - '0');
    for (; f_lspl - f_fst >= 2; f_fst += 2)
        *p_tmp++ = pairOf(f_fst);
    if (f_fst != f_lspl) {
        BCDII_ASSERT(f_fst == f_lspl - 1);
        BCDII_ASSERT(p_tmp == tmp + n_all - 1);
        *p_tmp++ = static_cast<BYTE>((*f_fst - '0') * 10);
    }
    tmp[0] |= text.negative ? signBit : 0;
    return BCDIITYPE(n_int + n_frac, n_frac);
}

} // namespace
} // namespace LiveTable::Bcdii

using namespace LiveTable::Bcdii;

unsigned int BCDIIGetFromInt64(void* p, long long n, int scale)
{
    return BCDIIGetFromInt64(digitsOf(p), BCDIIGetType(p), n, scale);
}

unsigned int BCDIIGetFromInt64(void* digits, unsigned int type, long long n, int scale)
{
    const auto magnitude = static_cast<unsigned long long>(n);
    if (n >= 0)
        return BCDIIGetFromUInt64(digits, type, magnitude, scale);
    const unsigned int result = BCDIIGetFromUInt64(digits, type, 0 - magnitude, scale);
    static_cast<BYTE*>(digits)[0] |= signBit;
    return result | BCDII_RESULT_NEGATIVE;
}

unsigned int BCDIIGetFromUInt64(void* p, unsigned long long n, int scale)
{
    return BCDIIGetFromUInt64(digitsOf(p), BCDIIGetType(p), n, scale);
}

unsigned int BCDIIGetFromUInt64(void* digits, unsigned int type, unsigned long long n, int scale)
{
    scale = clampScale(scale);
    BYTE tmp[11]; // 20 digits, moved by one at an odd scale
    BYTE* const end = tmp + sizeof tmp;
    BYTE* first = end;
    if (scale & 1) {
        *--first = static_cast<BYTE>(n % 10 * 10);
        n /= 10;
    }
    while (n || first == end) {
        *--first = static_cast<BYTE>(n % 100);
        n /= 100;
    }
    const int precision = 2 * static_cast<int>(end - first) - (scale & 1);
    return copy_internal(digits, type, first, BCDIITYPE(precision, scale), BCDII_ROUND_DOWN);
}

unsigned int BCDII2Int64(long long* out, const void* p, int scale)
{
    return BCDII2Int64(out, digitsOf(p), BCDIIGetType(p), scale, BCDII_ROUND_HALF_UP);
}

unsigned int BCDII2Int64(long long* out, const void* digits, unsigned int type, int scale,
                         BCDIIroundstyle style)
{
    const auto* bytes = static_cast<const BYTE*>(digits);
    if (isMarked(bytes))
        return flagsMarked;
    if (leadingZeros(bytes, Layout(type).ball) == Layout(type).ball) {
        *out = 0;
        return BCDII_RESULT_ZERO;
    }
    scale = clampScale(scale);
    BYTE tmpBcd[10];
    const unsigned int ret = copy_internal(tmpBcd, BCDIITYPE(19, scale), bytes, type, style);
    if (ret & BCDII_RESULT_ERROR)
        return flagsOverflow;
    if (ret & BCDII_RESULT_ZERO) {
        *out = 0;
        return ret;
    }

    const bool neg = isNegative(tmpBcd);
    BCDII_ASSERT(neg == !!(ret & BCDII_RESULT_NEGATIVE));
    tmpBcd[0] &= 127;
    const BYTE* p = tmpBcd;
    while (*p == 0)
        ++p;
    BCDII_ASSERT(p <= tmpBcd + 9);
    unsigned long long magnitude = 0; // 19 digits fit
    for (; p < tmpBcd + 9; ++p)
        magnitude = magnitude * 100 + *p;
    magnitude = scale & 1 ? magnitude * 10 + *p / 10 : magnitude * 100 + *p;
    constexpr unsigned long long limit = std::numeric_limits<long long>::max();
    if (magnitude > limit + neg)
        return flagsOverflow;
    *out = static_cast<long long>(neg ? 0 - magnitude : magnitude);
    return ret;
}

unsigned int BCDIIGetFromDouble(void* p, double v)
{
    return BCDIIGetFromDouble(digitsOf(p), v, BCDIIGetType(p));
}

unsigned int BCDIIGetFromDouble(void* digits, double v, unsigned int type)
{
    auto* bytes = static_cast<BYTE*>(digits);
    const int scale = Layout(type).nfrac;
    const double m = std::floor(std::fabs(v) * powers[scale] + 0.5);
    std::memset(bytes, 0, BCDIISIZE(type));
    if (!std::isfinite(m))
        return mark(bytes, flagsOverflow);
    if (m < 0.125)
        return BCDII_RESULT_ZERO;
    // Below 2^53 the steps on a double are exact, and those on an integer are faster.
    const unsigned int result =
        m < 9007199254740992.0
            ? BCDIIGetFromUInt64(bytes, type, static_cast<unsigned long long>(m), scale)
            : fillFromLargeDouble(bytes, type, m);
    if (result & BCDII_RESULT_ERROR)
        return result;
    if (!std::signbit(v))
        return 0;
    bytes[0] |= signBit;
    return BCDII_RESULT_NEGATIVE;
}

unsigned int BCDII2Double(double* out, const void* p)
{
    return BCDII2Double(out, digitsOf(p), BCDIIGetType(p));
}

unsigned int BCDII2Double(double* out, const void* digits, unsigned int type)
{
    const auto* bytes = static_cast<const BYTE*>(digits);
    if (isMarked(bytes))
        return flagsMarked;
    const Layout layout(type);
    double acc = 0.0;
    for (int i = leadingZeros(bytes, layout.ball); i < layout.ball; ++i)
        acc = acc * 100.0 + byteAt(bytes, i);
    if (acc == 0.0) {
        *out = 0.0;
        return BCDII_RESULT_ZERO;
    }
    acc /= powers[2 * layout.bfrac];
    const bool negative = isNegative(bytes);
    *out = negative ? -acc : acc;
    return negative ? BCDII_RESULT_NEGATIVE : 0U;
}

unsigned int BCDIIFromString(void* digits, unsigned int& type, const char* s)
{
    constexpr int maximumScale = 62;
    auto* bytes = static_cast<BYTE*>(digits);
    const NumberText text(s ? s : "");
    if (text.integerDigits == 0 && text.fractionDigits == 0) {
        if (!text.zeroSeen)
            return mark(bytes, BCDII_RESULT_OVERFLOW | BCDII_RESULT_INVALID);
        _quickSetNULL(bytes, type);
        return BCDII_RESULT_ZERO;
    }
    const std::ptrdiff_t integerDigits =
        text.integerDigits > 0 ? text.integerDigits : -text.fractionZeros;
    if (integerDigits > Layout(type).nint)
        return mark(bytes, flagsOverflow);

    // One digit more than a scale can have decides how the last is rounded; what follows it, not.
    const std::ptrdiff_t places = text.fractionZeros + text.fractionDigits;
    const int scale = static_cast<int>(std::min<std::ptrdiff_t>(places, maximumScale));
    const int n_frac = static_cast<int>(std::min<std::ptrdiff_t>(places, maximumScale + 1));
    type = BCDIITYPE(static_cast<int>(type >> 8 & 255U), scale);
    if (integerDigits + n_frac <= 0) { // only zeros are left
        _quickSetNULL(bytes, type);
        return BCDII_RESULT_ROUNDED | BCDII_RESULT_ZERO;
    }
    BYTE tmp[2 * maximumSize];
    const unsigned int tmpType = pack(tmp, text, static_cast<int>(integerDigits), n_frac);
    const unsigned int result = copy_internal(bytes, type, tmp, tmpType, BCDII_ROUND_HALF_UP);
    if (result & BCDII_RESULT_ERROR)
        return result;
    const char* const cut = text.fraction + (n_frac - text.fractionZeros);
    return result | (places > n_frac && isDigit(*skipZeros(cut)) ? BCDII_RESULT_ROUNDED : 0U);
}

unsigned int BCDIIFromString(void* p, const char* s, bool* ok)
{
    unsigned int type = BCDIIGetType(p);
    BCDIIFromString(digitsOf(p), type, s);
    const auto word = static_cast<unsigned short>(type);
    std::memcpy(p, &word, sizeof word);
    const unsigned int result = BCDIICheck(p);
    if (ok) {
        constexpr unsigned int bad = BCDII_RESULT_ERROR | BCDII_RESULT_OVERFLOW |
                                     BCDII_RESULT_INVALID | BCDII_RESULT_ROUNDED | BCDII_RESULT_NAN;
        *ok = (result & bad) == 0;
    }
    return result;
}

char* BCDII2StringSequence(const void* p, char* old)
{
    return BCDII2StringSequence(digitsOf(p), BCDIIGetType(p), old);
}

char* BCDII2StringSequence(const void* digits, unsigned int type, char* old)
{
    const auto* bytes = static_cast<const BYTE*>(digits);
    const Layout layout(type);
    const int lastPlace = std::max(layout.nfrac, 0);
    const std::size_t longest = static_cast<std::size_t>(std::max(layout.nint, 0) + lastPlace) + 3;
    auto* const text = static_cast<char*>(std::malloc(longest));
    if (!text)
        return nullptr;
    char* next = text;
    if (isNegative(bytes))
        *next++ = '-';
    // Place 0 is the units, 1 the tenths. A byte holds an odd place and the even one after it.
    bool leading = true;
    for (int place = 1 - std::max(layout.nint, 0); place <= lastPlace; ++place) {
        if (place == 1) {
            *next++ = '.';
            leading = false;
        }
        const int i = layout.bint + ((place - 1) >> 1);
        const int byte = i >= 0 && i < layout.ball ? byteAt(bytes, i) : 0;
        const int digit = place & 1 ? byte / 10 : byte % 10;
        leading = leading && digit == 0;
        if (!leading)
            *next++ = static_cast<char>('0' + digit);
    }
    *next = '\0';
    std::free(old);
    return text;
}
