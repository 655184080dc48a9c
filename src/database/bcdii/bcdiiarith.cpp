// SPDX-License-Identifier: MIT
#include "bcdii/bcdii.h"
#include "bcdii/bcdii_p.h"

#include <algorithm>
#include <cstring>
#include <utility>

// What an assertion prints is its text, and some are worded with such casts.
#pragma GCC diagnostic ignored "-Wold-style-cast"

namespace LiveTable::Bcdii {
namespace {

// Room for the exact sum of any two types that a type word can name.
constexpr int maximumSum = 2 * maximumSize + 8;

using Limb = unsigned int;

// |a| + |b| with the given sign.
unsigned int add_(void* res, unsigned int resType, const BYTE* a, unsigned int aType, const BYTE* b,
                  unsigned int bType, BCDIIroundstyle style, BYTE sign)
{
    if (Layout(aType).nfrac < Layout(bType).nfrac) {
        std::swap(a, b);
        std::swap(aType, bType);
    }
    const Layout aLayout(aType);
    const Layout bLayout(bType);
    const int a_bfrac = aLayout.bfrac;
    const int b_bfrac = bLayout.bfrac;
    BCDII_ASSERT(a_bfrac >= b_bfrac);
    const int bint = std::max(aLayout.bint, bLayout.bint) + 1; // one for the carry
    const int ball = bint + a_bfrac;

    BYTE tr[maximumSum];
    const int disp = bint - aLayout.bint;
    std::memset(tr, 0, static_cast<std::size_t>(disp));
    std::memcpy(tr + disp, a, static_cast<std::size_t>(aLayout.ball));
    tr[disp] &= 127;

    const BYTE* b_p = b + bLayout.ball;
    BYTE* res_p = tr + (bint + b_bfrac); // bint alone may lie in front of the array
    unsigned int carry = 0;
    while (b_p > b) {
        --b_p;
        --res_p;
        const unsigned int sum = *res_p + byteAt(b, static_cast<int>(b_p - b)) + carry;
        carry = sum > 99;
        *res_p = static_cast<BYTE>(carry ? sum - 100 : sum);
    }
    BCDII_ASSERT(b_p == b);
    BCDII_ASSERT(res_p >= tr);
    while (carry && res_p > tr) {
        --res_p;
        carry = *res_p == 99;
        *res_p = static_cast<BYTE>(carry ? 0 : *res_p + 1);
    }
    tr[0] |= sign;
    return copy_internal(res, resType, tr, BCDIITYPE(2 * ball, 2 * a_bfrac), style);
}

// |a| - |b| with the given sign, where |a| > |b|.
unsigned int sub_(void* res, unsigned int resType, const BYTE* a, unsigned int aType, const BYTE* b,
                  unsigned int bType, BCDIIroundstyle style, BYTE sign)
{
    const Layout aLayout(aType);
    const Layout bLayout(bType);
    const int a_nint = aLayout.nint;
    BCDII_ASSERT(a_nint >= _higherDigPos(b, bType));
    const int bfrac = std::max(aLayout.bfrac, bLayout.bfrac);
    const int ball = aLayout.bint + bfrac;

    BYTE tr[maximumSum];
    std::memcpy(tr, a, static_cast<std::size_t>(aLayout.ball));
    std::memset(tr + aLayout.ball, 0, static_cast<std::size_t>(ball - aLayout.ball));
    tr[0] &= 127;

    BYTE subtrahend[maximumSize];
    std::memcpy(subtrahend, b, static_cast<std::size_t>(bLayout.ball));
    subtrahend[0] &= 127;
    // The bytes of b that stand above those of a are zeros; that may be all of them.
    b = subtrahend + std::clamp(bLayout.bint - aLayout.bint, 0, bLayout.ball);

    const BYTE* b_p = subtrahend + bLayout.ball;
    BYTE* res_p = tr + std::max(aLayout.bint + bLayout.bfrac, 0);
    int borrow = 0;
    while (b_p > b) {
        --b_p;
        --res_p;
        const int difference = *res_p - *b_p - borrow;
        borrow = difference < 0;
        *res_p = static_cast<BYTE>(borrow ? difference + 100 : difference);
    }
    BCDII_ASSERT(b_p == b);
    while (borrow && res_p > tr) {
        --res_p;
        borrow = *res_p == 0;
        *res_p = static_cast<BYTE>(borrow ? 99 : *res_p - 1);
    }
    BCDII_ASSERT(res_p >= tr);
    tr[0] |= sign;
    return copy_internal(res, resType, tr, BCDIITYPE(2 * ball, 2 * bfrac), style);
}

// The significant bytes of a factor without its sign.
struct Factor
{
    BYTE bytes[maximumSize];
    int size;

    Factor(const BYTE* digits, unsigned int type)
    {
        const int ball = Layout(type).ball;
        const int skipped = leadingZeros(digits, ball);
        size = ball - skipped;
        std::memcpy(bytes, digits + skipped, static_cast<std::size_t>(size));
        if (size)
            bytes[0] &= 127; // where another byte comes first here, it has no such bit
    }
};

// Product by a factor of at most three bytes, which is one binary number. tmpRet takes a.size +
// b.size bytes.
void multiplyShort(BYTE* tmpRet, const Factor& a, const Factor& b)
{
    unsigned int multiplier = 0;
    for (int i = 0; i < b.size; ++i)
        multiplier = multiplier * 100 + b.bytes[i];
    BYTE* tmpRetP = tmpRet + a.size + b.size;
    unsigned int tmp = 0;
    for (int i = a.size; i-- > 0; tmp /= 100) {
        tmp += a.bytes[i] * multiplier;
        *--tmpRetP = static_cast<BYTE>(tmp % 100);
    }
    for (int i = b.size - 1; i > 0; --i, tmp /= 100)
        *--tmpRetP = static_cast<BYTE>(tmp % 100);
    BCDII_ASSERT(tmp < 100);
    *--tmpRetP = static_cast<BYTE>(tmp);
    BCDII_ASSERT((BYTE*)tmpRetP >= tmpRet);
}

// The bytes as limbs of base 10 000, most significant first; returns their number.
int toLimbs(Limb* limbs, const BYTE* b, int b_ball)
{
    const BYTE* b2 = b;
    Limb* next = limbs;
    if (b_ball & 1)
        *next++ = *b2++;
    for (; b2 < b + b_ball; b2 += 2)
        *next++ = b2[0] * 100U + b2[1];
    BCDII_ASSERT(b2 == b + b_ball);
    return static_cast<int>(next - limbs);
}

// Product over limbs of base 10 000. tmpRet takes a.size + b.size bytes.
void multiplyLong(BYTE* tmpRet, const Factor& a, const Factor& b)
{
    Limb aLimbs[maximumSize / 2];
    Limb bLimbs[maximumSize / 2];
    const int aCount = toLimbs(aLimbs, a.bytes, a.size);
    const int bCount = toLimbs(bLimbs, b.bytes, b.size);
    Limb product[maximumSize] = {};
    for (int j = bCount; j-- > 0;) {
        Limb tmp = 0;
        for (int i = aCount; i-- > 0; tmp /= 10000) {
            tmp += aLimbs[i] * bLimbs[j] + product[i + j + 1];
            product[i + j + 1] = tmp % 10000;
        }
        BCDII_ASSERT(tmp < 10000);
        product[j] = tmp;
    }

    // Two odd sizes make one limb more than there are bytes for; it is zero. With one odd size the
    // first limb has one byte.
    BYTE* tmpRetP = tmpRet + a.size + b.size;
    const int i_correction = 2 * (aCount + bCount) - (a.size + b.size);
    const int whole = i_correction == 0 ? 0 : 1;
    for (int i = aCount + bCount; i-- > whole;) {
        *--tmpRetP = static_cast<BYTE>(product[i] % 100);
        *--tmpRetP = static_cast<BYTE>(product[i] / 100);
    }
    if (i_correction == 1)
        *--tmpRetP = static_cast<BYTE>(product[0]);
    else if (i_correction != 0)
        BCDII_ASSERT(i_correction == 2);
    BCDII_ASSERT(tmpRetP >= tmpRet);
}

} // namespace
} // namespace LiveTable::Bcdii

using namespace LiveTable::Bcdii;

unsigned int BCDIIAdd(void* res, const void* a, const void* b)
{
    return BCDIIAdd(digitsOf(res), BCDIIGetType(res), digitsOf(a), BCDIIGetType(a), digitsOf(b),
                    BCDIIGetType(b), BCDII_ROUND_HALF_UP);
}

unsigned int BCDIIAdd(void* res, unsigned int resType, const void* a, unsigned int aType,
                      const void* b, unsigned int bType, BCDIIroundstyle style)
{
    const auto* aBytes = static_cast<const BYTE*>(a);
    const auto* bBytes = static_cast<const BYTE*>(b);
    if (isMarked(aBytes) || isMarked(bBytes))
        return mark(static_cast<BYTE*>(res), flagsMarked);
    const BYTE aSign = aBytes[0] & signBit;
    const BYTE bSign = bBytes[0] & signBit;
    if (aSign == bSign)
        return add_(res, resType, aBytes, aType, bBytes, bType, style, aSign);
    const int order = cmp_(aBytes, aType, bBytes, bType);
    if (order == 0) {
        _quickSetNULL(static_cast<BYTE*>(res), resType);
        return BCDII_RESULT_ZERO;
    }
    return order > 0 ? sub_(res, resType, aBytes, aType, bBytes, bType, style, aSign)
                     : sub_(res, resType, bBytes, bType, aBytes, aType, style, bSign);
}

unsigned int BCDIIMul(void* res, const void* a, const void* b)
{
    return BCDIIMul(digitsOf(res), BCDIIGetType(res), digitsOf(a), BCDIIGetType(a), digitsOf(b),
                    BCDIIGetType(b), BCDII_ROUND_HALF_UP);
}

unsigned int BCDIIMul(void* res, unsigned int resType, const void* a, unsigned int aType,
                      const void* b, unsigned int bType, BCDIIroundstyle style)
{
    const auto* aBytes = static_cast<const BYTE*>(a);
    const auto* bBytes = static_cast<const BYTE*>(b);
    if (isMarked(aBytes) || isMarked(bBytes))
        return mark(static_cast<BYTE*>(res), flagsMarked);
    const Factor aFactor(aBytes, aType);
    const Factor bFactor(bBytes, bType);
    if (aFactor.size == 0 || bFactor.size == 0) {
        _quickSetNULL(static_cast<BYTE*>(res), resType);
        return BCDII_RESULT_ZERO;
    }
    const Factor& longer = aFactor.size >= bFactor.size ? aFactor : bFactor;
    const Factor& shorter = aFactor.size >= bFactor.size ? bFactor : aFactor;
    BYTE tmpRet[2 * maximumSize];
    if (shorter.size <= 3)
        multiplyShort(tmpRet, longer, shorter);
    else
        multiplyLong(tmpRet, longer, shorter);
    // Both have written all bytes, as their assertions say, which the analyzer does not follow.
    tmpRet[0] |= (aBytes[0] ^ bBytes[0]) & signBit; // NOLINT(clang-analyzer-core.uninitialized.*)
    const int bfrac = Layout(aType).bfrac + Layout(bType).bfrac;
    return copy_internal(res, resType, tmpRet,
                         BCDIITYPE(2 * (aFactor.size + bFactor.size), 2 * bfrac), style);
}
