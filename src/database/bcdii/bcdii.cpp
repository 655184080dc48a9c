// SPDX-License-Identifier: MIT
#include "bcdii/bcdii.h"
#include "bcdii/bcdii_p.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

// What an assertion prints is its text, and some are worded with such casts.
#pragma GCC diagnostic ignored "-Wold-style-cast"

namespace LiveTable::Bcdii {

void assertionFailed(const char* expression, const char* function)
{
    std::fprintf(stderr, "src/database/bcdii: %s: assertion failed: %s\n", function, expression);
    std::abort();
}

namespace {

bool s_isNull(const BYTE* bytes, int sz)
{
    BCDII_ASSERT(sz > 0);
    for (int i = 0; i < sz; ++i) {
        if (bytes[i])
            return false;
    }
    return true;
}

bool isNull(const BYTE* digits, int ball)
{
    return (digits[0] & 127) == 0 && (ball == 1 || s_isNull(digits + 1, ball - 1));
}

bool _quickIsNULL(const BYTE* digits, unsigned int type)
{
    BCDII_ASSERT(BCDIICheckType(type));
    return s_isNull(digits, static_cast<int>(BCDIISIZE(type)));
}

// Adds `unit` (1 or 10) to byte i. The first byte takes what arrives; it has room for it, and the
// caller judges whether the number has.
void _addtodigit(BYTE* bcd, int i, BYTE unit)
{
    for (; i > 0; --i) {
        bcd[i] = static_cast<BYTE>(bcd[i] + unit);
        if (bcd[i] < 100)
            return;
        bcd[i] = static_cast<BYTE>(bcd[i] - 100);
        unit = 1;
    }
    BCDII_ASSERT(i == 0);
    bcd[0] = static_cast<BYTE>(bcd[0] + unit);
}

// Whether a number gets one more kept unit when digits, of which this is the first, are discarded.
bool roundsAway(int digit, bool negative, BCDIIroundstyle style)
{
    switch (style) {
    case BCDII_ROUND_HALF_UP:
        return digit >= 5;
    case BCDII_ROUND_CEILING:
        return !negative;
    case BCDII_ROUND_FLOOR:
        return negative;
    case BCDII_ROUND_UP:
        return true;
    case BCDII_ROUND_DOWN:
        return false;
    }
    assertionFailed("!\"Wrong roundstyle parameter\"", "round_internal");
}

// Rounds in place to `target` fraction digits, those discarded become 0.
unsigned int round_internal(BYTE* bcd, unsigned int type, int target, BCDIIroundstyle style)
{
    const Layout layout(type);
    const int ball = layout.ball;
    const bool negative = isNegative(bcd);
    const unsigned int signFlag = negative ? BCDII_RESULT_NEGATIVE : 0U;
    if (isNull(bcd, ball))
        return BCDII_RESULT_ZERO;
    if (target >= layout.nfrac) {
        BCDII_ASSERT(!isNull(bcd, ball));
        return signFlag;
    }
    if (layout.nint <= -target) { // no digit is kept, and one unit has no room
        const BYTE first = byteAt(bcd, 0);
        const int digit = layout.nint < -target ? 0 : layout.nint & 1 ? first : first / 10;
        const bool isDirected = style == BCDII_ROUND_CEILING || style == BCDII_ROUND_FLOOR;
        if (roundsAway(digit, negative, style))
            return mark(bcd, flagsOverflow | (isDirected ? BCDII_RESULT_NEGATIVE : 0U));
        std::memset(bcd, 0, static_cast<std::size_t>(ball));
        return BCDII_RESULT_ROUNDED | BCDII_RESULT_ZERO;
    }

    // The first discarded digit: the tens of byte i when target is even, else its ones.
    const int i = layout.bint + (target >> 1);
    const bool wholeByte = (target & 1) == 0;
    const int digit = wholeByte ? byteAt(bcd, i) / 10 : byteAt(bcd, i) % 10;
    const bool byteIsNull = (wholeByte ? byteAt(bcd, i) : digit) == 0;
    if (byteIsNull && (i + 1 == ball || s_isNull(bcd + i + 1, ball - i - 1)))
        return signFlag;

    const bool increment = roundsAway(digit, negative, style);
    bcd[0] &= 127;
    bcd[i] = static_cast<BYTE>(wholeByte ? 0 : bcd[i] - digit);
    std::memset(bcd + i + 1, 0, static_cast<std::size_t>(ball - i - 1));
    if (!increment) {
        if (isNull(bcd, ball))
            return BCDII_RESULT_ROUNDED | BCDII_RESULT_ZERO;
    } else {
        _addtodigit(bcd, wholeByte ? i - 1 : i, wholeByte ? 1 : 10);
        if (bcd[0] >= (layout.nint & 1 ? 10 : 100))
            return mark(bcd, flagsOverflow | BCDII_RESULT_ROUNDED);
    }
    bcd[0] |= negative ? signBit : 0;
    return BCDII_RESULT_ROUNDED | signFlag;
}

void setNines(BYTE* digits, unsigned int type, BYTE sign)
{
    const Layout layout(type);
    if (layout.ball <= 0)
        return;
    std::memset(digits, 99, static_cast<std::size_t>(layout.ball));
    if (layout.nint & 1)
        digits[0] = 9;
    if (layout.nfrac & 1)
        digits[layout.ball - 1] = 90;
    digits[0] |= sign;
}

} // namespace

void _quickSetNULL(BYTE* digits, unsigned int type)
{
    BCDII_ASSERT(BCDIICheckType(type));
    std::memset(digits, 0, BCDIISIZE(type));
}

int leadingZeros(const BYTE* digits, int ball)
{
    int i = 0;
    while (i < ball && byteAt(digits, i) == 0)
        ++i;
    return i;
}

int _higherDigPos(const BYTE* digits, unsigned int type)
{
    const Layout layout(type);
    const int skipped = leadingZeros(digits, layout.ball);
    if (skipped == layout.ball)
        return std::numeric_limits<int>::min();
    return 2 * (layout.bint - skipped) - (byteAt(digits, skipped) > 9 ? 0 : 1);
}

int cmp_(const BYTE* a, unsigned int aType, const BYTE* b, unsigned int bType)
{
    const Layout aLayout(aType);
    const Layout bLayout(bType);
    int i = 0;
    int j = 0;
    for (; i < aLayout.ball && aLayout.bint - i > bLayout.bint; ++i) {
        if (byteAt(a, i))
            return 1;
    }
    for (; j < bLayout.ball && bLayout.bint - j > aLayout.bint; ++j) {
        if (byteAt(b, j))
            return -1;
    }
    // If the bytes of one number end above the first of the other, only the last loop or the one
    // before it has anything left to look at.
    for (; i < aLayout.ball && j < bLayout.ball; ++i, ++j) {
        if (byteAt(a, i) != byteAt(b, j))
            return byteAt(a, i) < byteAt(b, j) ? -1 : 1;
    }
    for (; i < aLayout.ball; ++i) {
        if (byteAt(a, i))
            return 1;
    }
    for (; j < bLayout.ball; ++j) {
        if (byteAt(b, j))
            return -1;
    }
    return 0;
}

unsigned int copy_internal(void* dst_, unsigned int dstType, const void* src_, unsigned int srcType,
                           BCDIIroundstyle style)
{
    BCDII_ASSERT(dst_ != src_);
    auto* dst = static_cast<BYTE*>(dst_);
    const auto* src = static_cast<const BYTE*>(src_);
    const Layout dstLayout(dstType);
    const Layout srcLayout(srcType);
    const int skipped = leadingZeros(src, srcLayout.ball);
    if (skipped == srcLayout.ball) {
        _quickSetNULL(dst, dstType);
        return BCDII_RESULT_ZERO;
    }
    if (dstLayout.nint < _higherDigPos(src, srcType))
        return mark(dst, flagsOverflow);

    const BYTE sign = src[0] & signBit;
    const int t_src_bint = srcLayout.bint - skipped;
    const auto used = static_cast<std::size_t>(srcLayout.ball - skipped);
    if (srcLayout.nfrac <= dstLayout.nfrac) {
        const int disp = dstLayout.bint - t_src_bint;
        std::memset(dst, 0, static_cast<std::size_t>(dstLayout.ball));
        std::memcpy(dst + disp, src + skipped, used);
        dst[disp] &= 127;
        dst[0] |= sign;
        return sign ? BCDII_RESULT_NEGATIVE : 0U;
    }

    // Round in a temporary that has the integer digits of dst and all fraction digits of src.
    const int dst_nint = dstLayout.nint;
    const int src_nint = srcLayout.nint;
    const int tmp_nfrac = srcLayout.nfrac;
    const unsigned int tmpType = BCDIITYPE(dst_nint + tmp_nfrac, tmp_nfrac);
    const int tmp_ball = dstLayout.bint + srcLayout.bfrac;
    const int tmpDisp = dstLayout.bint - t_src_bint;
    BCDII_ASSERT((unsigned int)(((dst_nint + 1) >> 1) + ((tmp_nfrac + 1) >> 1)) ==
                 BCDIISIZE(tmpType));
    BCDII_ASSERT((unsigned int)(tmp_ball - tmpDisp) ==
                 BCDIISIZE(srcType) - ((src_nint + 1) >> 1) + t_src_bint);
    BYTE tmp[maximumSize];
    std::memset(tmp, 0, static_cast<std::size_t>(tmpDisp));
    std::memcpy(tmp + tmpDisp, src + skipped, used);
    tmp[tmpDisp] &= 127;
    tmp[0] |= sign;
    const unsigned int result = round_internal(tmp, tmpType, dstLayout.nfrac, style);
    if (result & BCDII_RESULT_OVERFLOW)
        return mark(dst, result);
    std::memcpy(dst, tmp, BCDIISIZE(dstType));
    return result;
}

} // namespace LiveTable::Bcdii

using namespace LiveTable::Bcdii;

void BCDIIInit(void* p, unsigned int type)
{
    BCDII_ASSERT(BCDIICheckType(type));
    const auto word = static_cast<unsigned short>(type);
    std::memcpy(p, &word, sizeof word);
    digitsOf(p)[0] = notANumber;
}

bool BCDIICheckType(unsigned int type)
{
    const int scale = scaleOf(type);
    const unsigned int precision = type >> 8 & 255U;
    return scale >= -62 && scale <= 62 && precision >= 1 && precision <= 63;
}

unsigned int BCDIIGetType(const void* p)
{
    unsigned short word;
    std::memcpy(&word, p, sizeof word);
    return word;
}

unsigned int BCDIICheck(const void* p)
{
    return BCDIICheck(digitsOf(p), BCDIIGetType(p));
}

unsigned int BCDIICheck(const void* digits, unsigned int type)
{
    if (!BCDIICheckType(type))
        return BCDII_RESULT_INVALID;
    const auto* bytes = static_cast<const BYTE*>(digits);
    if (bytes[0] == notANumber)
        return BCDII_RESULT_NAN | BCDII_RESULT_INVALID;
    const Layout layout(type);
    const int ball = layout.ball;
    BCDII_ASSERT(BCDIISIZE(type) == (unsigned int)ball);
    if (layout.nfrac & 1) {
        const BYTE last = bytes[ball - 1] & 127;
        if (last > 90 || last % 10)
            return BCDII_RESULT_INVALID;
    }
    BYTE any = byteAt(bytes, 0);
    if (any > (layout.nint & 1 ? 9 : 99))
        return BCDII_RESULT_INVALID;
    for (int i = 1; i < ball; ++i) {
        if (bytes[i] > 99)
            return BCDII_RESULT_INVALID;
        any |= bytes[i];
    }
    if (any == 0)
        return isNegative(bytes) ? BCDII_RESULT_INVALID : BCDII_RESULT_ZERO;
    return isNegative(bytes) ? BCDII_RESULT_NEGATIVE : 0U;
}

void BCDIISetZero(void* p)
{
    _quickSetNULL(digitsOf(p), BCDIIGetType(p));
}

void BCDIISetMin(void* p)
{
    BCDIISetMin(digitsOf(p), BCDIIGetType(p));
}

void BCDIISetMin(void* digits, unsigned int type)
{
    setNines(static_cast<BYTE*>(digits), type, signBit);
}

void BCDIISetMax(void* p)
{
    BCDIISetMax(digitsOf(p), BCDIIGetType(p));
}

void BCDIISetMax(void* digits, unsigned int type)
{
    setNines(static_cast<BYTE*>(digits), type, 0);
}

unsigned int BCDIINeg(void* p)
{
    return BCDIINeg(digitsOf(p), BCDIIGetType(p));
}

unsigned int BCDIINeg(void* digits, unsigned int type)
{
    auto* bytes = static_cast<BYTE*>(digits);
    if (isMarked(bytes))
        return flagsMarked;
    if (_quickIsNULL(bytes, type))
        return BCDII_RESULT_ZERO;
    bytes[0] ^= signBit;
    return isNegative(bytes) ? BCDII_RESULT_NEGATIVE : 0U;
}

unsigned int BCDIICopy(void* dst, const void* src)
{
    return BCDIICopy(digitsOf(dst), BCDIIGetType(dst), digitsOf(src), BCDIIGetType(src),
                     BCDII_ROUND_HALF_UP);
}

unsigned int BCDIICopy(void* dst, unsigned int dstType, const void* src, unsigned int srcType,
                       BCDIIroundstyle style)
{
    if (isMarked(static_cast<const BYTE*>(src)))
        return mark(static_cast<BYTE*>(dst), flagsMarked);
    BYTE copy[maximumSize];
    if (dst == src) {
        std::memcpy(copy, src, static_cast<std::size_t>(Layout(srcType).ball));
        src = copy;
    }
    return copy_internal(dst, dstType, src, srcType, style);
}

int BCDIICmp(const void* a, const void* b)
{
    return BCDIICmp(digitsOf(a), BCDIIGetType(a), digitsOf(b), BCDIIGetType(b));
}

int BCDIICmp(const void* a, unsigned int aType, const void* b, unsigned int bType)
{
    const auto* aBytes = static_cast<const BYTE*>(a);
    const auto* bBytes = static_cast<const BYTE*>(b);
    const bool negative = isNegative(aBytes);
    if (negative != isNegative(bBytes))
        return negative ? -1 : 1;
    // Bytes of one layout order as their numbers do; an equal sign bit on both sides is no matter.
    const int order = ((aType ^ bType) & typeMask) == 0 ? std::memcmp(a, b, BCDIISIZE(aType))
                                                        : cmp_(aBytes, aType, bBytes, bType);
    return (negative ? -1 : 1) * ((order > 0) - (order < 0));
}
