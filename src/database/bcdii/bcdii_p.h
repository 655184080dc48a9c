// SPDX-License-Identifier: MIT
#pragma once

// Not part of the interface: what the three sources of the packed-decimal layer share.
//
// Terms. `nint` and `nfrac` count the digits before and behind the point; either may be negative
// (5 digits at scale 8: nint -3). `bint` and `bfrac` count the bytes of each part, `ball` all of
// them. Byte i of a number stands for 100 to the power of (bint - 1 - i), whatever its type:
// numbers are aligned by moving bytes, never by shifting digits. Hence all arithmetic is in base
// 100.

#include "bcdii/bcdii.h"

namespace LiveTable::Bcdii {

using BYTE = unsigned char;

constexpr BYTE signBit = 128;
constexpr BYTE notANumber = 101;

/// Digit bytes of the largest type that a type word can name, valid or not.
constexpr int maximumSize = 128;

constexpr unsigned int flagsOverflow = BCDII_RESULT_OVERFLOW | BCDII_RESULT_ERROR;
constexpr unsigned int flagsMarked =
    BCDII_RESULT_NAN | BCDII_RESULT_INVALID | BCDII_RESULT_OVERFLOW;

/// Writes the broken assertion to stderr and aborts.
[[noreturn]] void assertionFailed(const char* expression, const char* function);

// Active in every build: an impossible type would make the code below write over foreign memory.
#define BCDII_ASSERT(expression)                                                                   \
    ((expression) ? static_cast<void>(0)                                                           \
                  : ::LiveTable::Bcdii::assertionFailed(#expression, __func__))

/// The low byte of a type word is signed.
constexpr int scaleOf(unsigned int type) noexcept
{
    return static_cast<signed char>(type & 255U);
}

struct Layout
{
    int nint, nfrac, bint, bfrac, ball;

    constexpr Layout(int integerDigits, int fractionDigits) noexcept
        : nint(integerDigits)
        , nfrac(fractionDigits)
        , bint((integerDigits + 1) >> 1)
        , bfrac((fractionDigits + 1) >> 1)
        , ball(bint + bfrac)
    {}
    constexpr explicit Layout(unsigned int type) noexcept
        : Layout(static_cast<int>(type >> 8 & 255U) - scaleOf(type), scaleOf(type))
    {}
};

constexpr unsigned int typeMask = 0xFFFF;
constexpr int headerSize = 2;

inline BYTE* digitsOf(void* p)
{
    return static_cast<BYTE*>(p) + headerSize;
}
inline const BYTE* digitsOf(const void* p)
{
    return static_cast<const BYTE*>(p) + headerSize;
}

/// Byte i of a number without the sign.
inline BYTE byteAt(const BYTE* digits, int i)
{
    return i == 0 ? digits[0] & 127 : digits[i];
}

inline bool isNegative(const BYTE* digits)
{
    return (digits[0] & signBit) != 0;
}

/// True for a first byte of 100 or more, which no number has.
inline bool isMarked(const BYTE* digits)
{
    return (digits[0] & 124) > 99;
}

inline unsigned int mark(BYTE* digits, unsigned int flags)
{
    digits[0] = notANumber;
    return flags;
}

/// Sets every digit byte to 0. Asserts the type.
void _quickSetNULL(BYTE* digits, unsigned int type);

/// Number of zero bytes in front, the sign not counted; `ball` for zero.
int leadingZeros(const BYTE* digits, int ball);

/// How many digits stand before the point when leading zeros are not written: 3 for 123.4, -2 for
/// 0.004. A number that is zero has fewer than any other.
int _higherDigPos(const BYTE* digits, unsigned int type);

/// Compares the magnitudes of two numbers of any types: -1, 0 or 1.
int cmp_(const BYTE* a, unsigned int aType, const BYTE* b, unsigned int bType);

/// Copies the number (which carries no mark) with rounding; the flags are those of BCDIICopy.
/// srcType may be one of a temporary, beyond what BCDIICheckType accepts.
unsigned int copy_internal(void* dst_, unsigned int dstType, const void* src_, unsigned int srcType,
                           BCDIIroundstyle style);

} // namespace LiveTable::Bcdii
