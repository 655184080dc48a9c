// SPDX-License-Identifier: MIT
#pragma once

// Packed decimals by their definition, on plain integers: a number is n / 10^scale. Knows nothing
// of bytes but how to read and write them as one integer of base 100.

#include "bcdii/bcdii.h"

#include "support/seed.h"

#include <QByteArray>

#include <boost/multiprecision/cpp_int.hpp>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace Oracle {

using Big = boost::multiprecision::number<boost::multiprecision::cpp_int_backend<
    1024, 1024, boost::multiprecision::signed_magnitude, boost::multiprecision::unchecked, void>>;

/// 10 to a power that the integer has room for.
template <typename Int>
constexpr int powers = sizeof(Int) > 16 ? 300 : 18;

template <typename Int>
const Int& power(int exponent)
{
    static const std::vector<Int> table = [] {
        std::vector<Int> all(powers<Int>, Int(1));
        for (std::size_t i = 1; i < all.size(); ++i)
            all[i] = all[i - 1] * 10;
        return all;
    }();
    return table.at(static_cast<std::size_t>(exponent));
}

template <typename Int>
struct Number
{
    Int n = 0;
    int scale = 0;
};

template <typename Int>
Int abs(const Int& n)
{
    return n < 0 ? Int(-n) : n;
}

/// The same number at a larger scale.
template <typename Int>
Int raised(const Number<Int>& number, int scale)
{
    return number.n * power<Int>(scale - number.scale);
}

template <typename Int>
int compare(const Number<Int>& a, const Number<Int>& b)
{
    const int scale = std::max(a.scale, b.scale);
    const Int difference = raised(a, scale) - raised(b, scale);
    return (difference > 0) - (difference < 0);
}

template <typename Int>
Number<Int> sum(const Number<Int>& a, const Number<Int>& b)
{
    const int scale = std::max(a.scale, b.scale);
    return {raised(a, scale) + raised(b, scale), scale};
}

template <typename Int>
Number<Int> product(const Number<Int>& a, const Number<Int>& b)
{
    return {a.n * b.n, a.scale + b.scale};
}

template <typename Int>
struct Stored
{
    unsigned int flags;
    Int n; ///< at the scale it was stored at
    bool isMarked() const { return flags & BCDII_RESULT_ERROR; }
};

/// A number in `precision` digits, `scale` of them behind the point.
template <typename Int>
Stored<Int> store(const Number<Int>& number, int precision, int scale, BCDIIroundstyle style)
{
    const bool negative = number.n < 0;
    const unsigned int sign = negative ? BCDII_RESULT_NEGATIVE : 0U;
    const Int size = abs(number.n);
    if (size == 0)
        return {BCDII_RESULT_ZERO, 0};
    const int room = precision - scale + number.scale;
    if (room < 0 || (room < powers<Int> && size >= power<Int>(room)))
        return {0x11, 0};
    if (scale >= number.scale)
        return {sign, raised(number, scale)};
    const Int& unit = power<Int>(number.scale - scale);
    const Int rest = size % unit;
    if (rest == 0)
        return {sign, number.n / unit};
    const bool up = style == BCDII_ROUND_HALF_UP   ? rest * 2 >= unit
                    : style == BCDII_ROUND_CEILING ? !negative
                    : style == BCDII_ROUND_FLOOR   ? negative
                                                   : style == BCDII_ROUND_UP;
    const Int kept = size / unit + (up ? 1 : 0);
    if (kept >= power<Int>(precision))
        return {0x51, 0};
    if (kept == 0)
        return {0x42, 0};
    return {0x40 | sign, negative ? Int(-kept) : kept};
}

/// A self-describing buffer with a guard byte behind its digits.
struct Buffer
{
    static constexpr unsigned char guard = 0xEE;
    unsigned char bytes[2 + 32 + 1];

    explicit Buffer(unsigned int type = 0) { setType(type); }
    unsigned char* digits() { return bytes + 2; }
    const unsigned char* digits() const { return bytes + 2; }
    unsigned int type() const { return BCDIIGetType(bytes); }
    int precision() const { return static_cast<int>(type() >> 8); }
    int scale() const { return static_cast<signed char>(type() & 255U); }
    void setType(unsigned int type)
    {
        const auto word = static_cast<unsigned short>(type);
        std::memset(bytes, guard, sizeof bytes);
        std::memcpy(bytes, &word, sizeof word);
    }
    bool guarded() const { return digits()[BCDIISIZE(type())] == guard; }
};

template <typename Int>
Buffer encode(const Int& n, unsigned int type)
{
    Buffer buffer(type);
    Int rest = abs(n) * (type & 1 ? 10 : 1);
    for (unsigned int i = BCDIISIZE(type); i-- > 0; rest /= 100)
        buffer.digits()[i] = static_cast<unsigned char>(Int(rest % 100));
    if (n < 0)
        buffer.digits()[0] |= 128;
    return buffer;
}

/// The number's text: all fraction digits, nothing where the integer part is zero.
template <typename Int>
QByteArray text(const Int& n, int scale)
{
    std::string digits = Int(abs(n)).str();
    if (scale < 0)
        digits += std::string(static_cast<std::size_t>(-scale), '0');
    const auto places = static_cast<std::size_t>(std::max(scale, 0));
    if (digits.size() < places)
        digits.insert(0, places - digits.size(), '0');
    std::string whole = digits.substr(0, digits.size() - places);
    whole.erase(0, whole.find_first_not_of('0'));
    if (places)
        whole += '.' + digits.substr(digits.size() - places);
    return QByteArray::fromStdString((n < 0 ? "-" : "") + whole);
}

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
            const int digit = kind < 2    ? below(10)
                              : kind == 2 ? 9
                              : kind == 3 ? (i == 0)
                              : kind == 4 ? (i < turn    ? 9
                                             : i == turn ? 5
                                                         : below(2) * 9)
                                          : (i < turn ? 0 : below(10));
            n = n * 10 + digit;
        }
        return below(2) ? Big(-n) : n;
    }
};

} // namespace Oracle
