// SPDX-License-Identifier: MIT
#pragma once

// Decimals by their definition, on plain integers: a number is n / 10^scale. Of packed digits this
// knows only that they are one integer of base 100.

#include "bcdii/bcdii.h"
#include "support/seed.h"

#include <QByteArray>

#include <boost/multiprecision/cpp_int.hpp>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

namespace Oracle {

using Big = boost::multiprecision::number<boost::multiprecision::cpp_int_backend<
    1024, 1024, boost::multiprecision::signed_magnitude, boost::multiprecision::unchecked, void>>;

/// 10 to a power up to 300.
inline const Big& power(int exponent)
{
    static const std::vector<Big> table = [] {
        std::vector<Big> all(301, Big(1));
        for (std::size_t i = 1; i < all.size(); ++i)
            all[i] = all[i - 1] * 10;
        return all;
    }();
    return table.at(static_cast<std::size_t>(exponent));
}

struct Number
{
    Big n = 0;
    int scale = 0;

    Big at(int largerScale) const { return n * power(largerScale - scale); }
    Number operator-() const { return {Big(-n), scale}; }
    Number operator*(const Number& b) const { return {n * b.n, scale + b.scale}; }
    Number operator+(const Number& b) const
    {
        const int both = std::max(scale, b.scale);
        return {at(both) + b.at(both), both};
    }
    int compare(const Number& other) const { return (*this + -other).n.sign(); }
};

struct Stored
{
    unsigned int flags;
    Big n; ///< at the scale it was stored at
    bool isMarked() const { return flags & BCDII_RESULT_ERROR; }
};

/// A number in `precision` digits, `scale` of them behind the point.
inline Stored store(const Number& number, int precision, int scale,
                    BCDIIroundstyle style = BCDII_ROUND_HALF_UP)
{
    const bool negative = number.n < 0;
    const unsigned int sign = negative ? BCDII_RESULT_NEGATIVE : 0U;
    const Big size = abs(number.n);
    if (size == 0)
        return {BCDII_RESULT_ZERO, 0};
    const int room = precision - scale + number.scale;
    if (room < 0 || (room <= 300 && size >= power(room)))
        return {0x11, 0};
    if (scale >= number.scale)
        return {sign, number.at(scale)};
    const Big& unit = power(number.scale - scale);
    const Big rest = size % unit;
    if (rest == 0)
        return {sign, number.n / unit};
    const bool up[] = {rest * 2 >= unit, !negative, negative, true, false};
    const Big kept = size / unit + (up[style] ? 1 : 0);
    if (kept >= power(precision))
        return {0x51, 0};
    if (kept == 0)
        return {0x42, 0};
    return {0x40 | sign, negative ? Big(-kept) : kept};
}

/// A self-describing buffer with a guard byte behind its digits.
struct Buffer
{
    unsigned char bytes[2 + 32 + 1];
    Number number; ///< what it was made of

    explicit Buffer(unsigned int type)
    {
        const auto word = static_cast<unsigned short>(type);
        std::memset(bytes, 0xEE, sizeof bytes);
        std::memcpy(bytes, &word, sizeof word);
    }
    Buffer(const Big& n, unsigned int type)
        : Buffer(type)
    {
        number = {n, scale()};
        Big rest = abs(n) * (type & 1 ? 10 : 1);
        for (unsigned int i = BCDIISIZE(type); i-- > 0; rest /= 100)
            digits()[i] = static_cast<unsigned char>(Big(rest % 100));
        if (n < 0)
            digits()[0] |= 128;
    }
    unsigned char* digits() { return bytes + 2; }
    const unsigned char* digits() const { return bytes + 2; }
    unsigned int type() const { return BCDIIGetType(bytes); }
    int precision() const { return static_cast<int>(type() >> 8); }
    int scale() const { return static_cast<signed char>(type() & 255U); }
    bool isGuarded() const { return digits()[BCDIISIZE(type())] == 0xEE; }
};

/// Random numbers; a test that fails while one lives says how to repeat it.
class Random
{
    const quint32 seed = testSeeds(1).first();
    const SeedScope scope{seed};

public:
    std::mt19937_64 engine{seed};

    int below(int end) { return static_cast<int>(engine() % static_cast<unsigned int>(end)); }

    /// Up to `precision` digits, often such that carries run and borrows meet zeros.
    Big digits(int precision)
    {
        const int size = below(4) ? below(precision + 1) : precision;
        const int kind = below(6);
        const int turn = below(precision + 1);
        Big n = 0;
        for (int i = 0; i < size; ++i) {
            const int tail = kind == 4 ? (i == turn ? 5 : below(2) * 9) : below(10);
            const int digit = kind == 2   ? 9
                              : kind == 3 ? i == 0
                              : i < turn  ? (kind == 4   ? 9
                                             : kind == 5 ? 0
                                                         : below(10))
                                          : tail;
            n = n * 10 + digit;
        }
        return below(2) ? Big(-n) : n;
    }
};

} // namespace Oracle
