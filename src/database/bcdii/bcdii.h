// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

/// \file
/// Packed decimal numbers ("BCDII" values): fixed-point decimals of up to 63 digits in plain byte
/// buffers. This is the layer below the class `xdecimal`; most programs want that class instead.
///
/// **Type word.** Sixteen bits say how the digits of a buffer are to be read: bits 8-15 hold the
/// precision (number of stored digits, 1 to 63), bits 0-7 the scale (number of those that stand
/// behind the point, signed, -62 to 62; a negative scale means that many implied zeros in front of
/// the point). Bits above 15 of a type argument are not looked at. BCDIITYPE(26, 2) is 0x1A02.
///
/// **Digit bytes.** BCDIISIZE(type) bytes, most significant first, two digits a byte as a binary
/// number 0 to 99. Digits are paired outward from the point: an odd number of integer digits
/// (precision - scale) leaves one digit, 0 to 9, in the first byte; an odd scale leaves its last
/// digit in the tens place of the last byte. Bit 7 of the first byte is the sign. With precision 5:
///
///     scale 2:   123.45  =  1 23 45        -123.45  =  129 23 45
///     scale 3:   12.345  =  12 34 50
///
/// Zero is all bytes 0; a negative zero is not valid. A first byte of 101 marks a value that is not
/// a number: set by BCDIIInit and by every overflow, handed on by every operation.
///
/// **Two forms.** The self-describing form takes a buffer that starts with the type word (host byte
/// order, no alignment needed) and goes on with the digit bytes; the typed form takes the digit
/// bytes alone and the type beside them. Self-describing forms round half away from zero.
///
/// **Results.** A set of BCDII_RESULT_ flags; 0 is an exact, positive, non-zero result. Test bits,
/// not whole codes. An overflow never wraps or saturates.
///
/// **Errors.** Nothing is thrown. Bad data shows in the flags. A misuse (a type or rounding style
/// that does not exist where one is asserted) writes the broken assertion to stderr and aborts, in
/// every build type.
///
/// **Memory and threads.** No state, so any thread may call on buffers that no other is writing.
/// No heap, except for the text that BCDII2StringSequence returns. The result may be the same
/// buffer as an operand; buffers that overlap in another way are not allowed.
///
///     quint8 price[2 + BCDIISIZE(BCDIITYPE(9, 2))];
///     BCDIIInit(price, BCDIITYPE(9, 2));
///     BCDIIGetFromInt64(price, 12345, 1); // 1234.50
///     char* text = BCDII2StringSequence(price); // "1234.50"
///     free(text);

/// What an operation reports, or'ed together.
enum BCDIIresult : unsigned int
{
    BCDII_RESULT_ERROR = 0x01,    ///< the result is of no use; comes with every overflow
    BCDII_RESULT_ZERO = 0x02,     ///< the result is zero
    BCDII_RESULT_NEGATIVE = 0x04, ///< the result is negative
    BCDII_RESULT_OVERFLOW = 0x10, ///< the result does not fit; the destination carries the mark
    BCDII_RESULT_INVALID = 0x20,  ///< the type or the digit bytes are not valid
    BCDII_RESULT_ROUNDED = 0x40,  ///< digits other than 0 were rounded away
    BCDII_RESULT_NAN = 0x80,      ///< the operand carries the not-a-number mark
};

/// When the last kept digit is raised by one (in magnitude) as digits are discarded.
enum BCDIIroundstyle
{
    BCDII_ROUND_HALF_UP = 0, ///< the first discarded digit is 5 or more: half away from zero
    BCDII_ROUND_CEILING = 1, ///< the value is positive and a discarded digit is not 0
    BCDII_ROUND_FLOOR = 2,   ///< the value is negative and a discarded digit is not 0
    BCDII_ROUND_UP = 3,      ///< a discarded digit is not 0: away from zero
    BCDII_ROUND_DOWN = 4,    ///< never: toward zero
};

/// The type word of `precision` digits, `scale` of them behind the point. Checks nothing.
constexpr unsigned int BCDIITYPE(int precision, int scale)
{
    return (static_cast<unsigned int>(precision) & 255U) << 8 |
           (static_cast<unsigned int>(scale) & 255U);
}

/// Number of digit bytes of a type: 0 for a precision of 0, else the bytes of the integer digits
/// and of the fraction digits, each rounded up. At most 32 for valid types.
constexpr unsigned int BCDIISIZE(unsigned int type)
{
    const unsigned int precision = type >> 8 & 255U;
    return precision ? (precision >> 1) + ((precision | type) & 1U) : 0U;
}

/// Makes `p` (2 + BCDIISIZE(type) bytes) a self-describing buffer of `type` that carries the
/// not-a-number mark; the other digit bytes are not written. Asserts that the type is valid.
LIVETABLE_EXPORT void BCDIIInit(void* p, unsigned int type);

/// True for a scale of -62 to 62 and a precision of 1 to 63.
LIVETABLE_EXPORT bool BCDIICheckType(unsigned int type);

/// The type word of a self-describing buffer, 0 to 0xFFFF.
LIVETABLE_EXPORT unsigned int BCDIIGetType(const void* p);

/// Validates type and digit bytes. Returns BCDII_RESULT_INVALID for a type, a digit byte or a
/// negative zero that cannot be; BCDII_RESULT_NAN | BCDII_RESULT_INVALID for the mark; else
/// BCDII_RESULT_ZERO, BCDII_RESULT_NEGATIVE or 0.
LIVETABLE_EXPORT unsigned int BCDIICheck(const void* p);
LIVETABLE_EXPORT unsigned int BCDIICheck(const void* digits, unsigned int type);

/// Sets all digits to 0. Asserts that the type is valid.
LIVETABLE_EXPORT void BCDIISetZero(void* p);

/// The least value of the type: every digit 9, negative. Checks nothing.
LIVETABLE_EXPORT void BCDIISetMin(void* p);
LIVETABLE_EXPORT void BCDIISetMin(void* digits, unsigned int type);

/// The greatest value of the type: every digit 9. Checks nothing.
LIVETABLE_EXPORT void BCDIISetMax(void* p);
LIVETABLE_EXPORT void BCDIISetMax(void* digits, unsigned int type);

/// Changes the sign in place; zero stays zero. The flags tell the new sign. A marked value stays as
/// it is and gives NAN | OVERFLOW | INVALID (0xB0). Asserts that the type is valid.
LIVETABLE_EXPORT unsigned int BCDIINeg(void* p);
LIVETABLE_EXPORT unsigned int BCDIINeg(void* digits, unsigned int type);

/// dst = src, converted to dst's type. An integer part too long for it marks dst and gives
/// OVERFLOW | ERROR whatever the style; a rounding that carries out of the type gives these and
/// ROUNDED. A marked source marks dst and gives 0xB0. `dst` may be `src`, then also with two types.
LIVETABLE_EXPORT unsigned int BCDIICopy(void* dst, const void* src);
LIVETABLE_EXPORT unsigned int BCDIICopy(void* dst, unsigned int dstType, const void* src,
                                        unsigned int srcType, BCDIIroundstyle style);

/// -1, 0 or 1 as a is less than, equal to or greater than b by value, whatever the types. Marks are
/// not looked for: a marked value compares as the digits it holds, so above every positive value of
/// its own type.
LIVETABLE_EXPORT int BCDIICmp(const void* a, const void* b);
LIVETABLE_EXPORT int BCDIICmp(const void* a, unsigned int aType, const void* b, unsigned int bType);

/// res = a + b: the exact sum, rounded once into res. The flags are those of BCDIICopy; a marked
/// operand marks res and gives 0xB0. To subtract, negate a copy of b first.
LIVETABLE_EXPORT unsigned int BCDIIAdd(void* res, const void* a, const void* b);
LIVETABLE_EXPORT unsigned int BCDIIAdd(void* res, unsigned int resType, const void* a,
                                       unsigned int aType, const void* b, unsigned int bType,
                                       BCDIIroundstyle style);

/// res = a * b: the exact product, rounded once into res. Flags as for BCDIIAdd.
LIVETABLE_EXPORT unsigned int BCDIIMul(void* res, const void* a, const void* b);
LIVETABLE_EXPORT unsigned int BCDIIMul(void* res, unsigned int resType, const void* a,
                                       unsigned int aType, const void* b, unsigned int bType,
                                       BCDIIroundstyle style);

/// value = n / 10^scale, cut (not rounded) to the digits of the type. Flags of BCDIICopy.
/// A negative n sets the sign bit and NEGATIVE whatever became of the digits: one that is cut to
/// nothing leaves a negative zero, which BCDIICheck refuses, and one that overflows leaves the mark
/// with the sign bit. Test OVERFLOW and ZERO first.
LIVETABLE_EXPORT unsigned int BCDIIGetFromInt64(void* p, long long n, int scale);
LIVETABLE_EXPORT unsigned int BCDIIGetFromInt64(void* digits, unsigned int type, long long n,
                                                int scale);
LIVETABLE_EXPORT unsigned int BCDIIGetFromUInt64(void* p, unsigned long long n, int scale);
LIVETABLE_EXPORT unsigned int BCDIIGetFromUInt64(void* digits, unsigned int type,
                                                 unsigned long long n, int scale);

/// *out = value * 10^scale, rounded to an integer. *out is left alone on errors: OVERFLOW | ERROR
/// when it does not fit, 0xB0 for a marked value. Else the flags of BCDIICopy.
LIVETABLE_EXPORT unsigned int BCDII2Int64(long long* out, const void* p, int scale);
LIVETABLE_EXPORT unsigned int BCDII2Int64(long long* out, const void* digits, unsigned int type,
                                          int scale, BCDIIroundstyle style);

/// value = v, half away from zero at the type's scale. Note that the type comes last. Gives
/// NEGATIVE, ZERO (a negative v that rounds to zero has no sign) or 0; what does not fit, an
/// infinity and a not-a-number give OVERFLOW | ERROR and the mark. Digits beyond the 15 or so that
/// a double carries are what the arithmetic on doubles makes of them.
LIVETABLE_EXPORT unsigned int BCDIIGetFromDouble(void* p, double v);
LIVETABLE_EXPORT unsigned int BCDIIGetFromDouble(void* digits, double v, unsigned int type);

/// *out = value. Gives ZERO, NEGATIVE or 0; a marked value gives 0xB0 and leaves *out alone.
LIVETABLE_EXPORT unsigned int BCDII2Double(double* out, const void* p);
LIVETABLE_EXPORT unsigned int BCDII2Double(double* out, const void* digits, unsigned int type);

/// Reads a number: blanks, an optional sign, digits, and optional "." or "," with more digits. What
/// follows is ignored, so that "12x" is 12. There are no exponents.
///
/// The type keeps its precision but takes as its scale the number of fraction digits read (at most
/// 62, a longer fraction is rounded half away from zero); a zero without any other digit keeps the
/// scale. An odd new scale may need one digit byte more than the old type had: the buffer must have
/// room for it. More integer digits than the *old* type holds give OVERFLOW | ERROR; digits that do
/// not fit the new type likewise; no digit at all (a null `s` too) gives OVERFLOW | INVALID (0x30).
/// The value is then marked.
LIVETABLE_EXPORT unsigned int BCDIIFromString(void* digits, unsigned int& type, const char* s);

/// The same on a self-describing buffer, whose type word is rewritten. Returns what BCDIICheck says
/// of the buffer afterwards (0xA0 for every failure); `ok`, if given, is set to true for a valid
/// value and to false otherwise.
LIVETABLE_EXPORT unsigned int BCDIIFromString(void* p, const char* s, bool* ok = nullptr);

/// The value as text with all `scale` fraction digits but no zero before the point: "1.20", ".50",
/// "-.50"; zero is ".00" at scale 2 and an empty text at scale 0. A negative scale is written out
/// in zeros. The text comes from malloc and is the caller's to `free`. `old`, which may be null, is
/// freed: pass the last text to a call in a loop. Null when memory is out, `old` then lives on.
/// A marked value has no meaningful text.
LIVETABLE_EXPORT char* BCDII2StringSequence(const void* p, char* old = nullptr);
LIVETABLE_EXPORT char* BCDII2StringSequence(const void* digits, unsigned int type, char* old);
