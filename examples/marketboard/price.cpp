// SPDX-License-Identifier: MIT
#include "price.h"

#include <algorithm>

namespace {

std::optional<Price> normalized(qint64 mantissa, int scale)
{
    while (scale > Price::MinimumScale && mantissa % 10 == 0) {
        mantissa /= 10;
        --scale;
    }
    for (; scale < Price::MinimumScale; ++scale) {
        if (std::abs(mantissa) >= Price::MantissaLimit / 10)
            return std::nullopt;
        mantissa *= 10;
    }
    if (std::abs(mantissa) >= Price::MantissaLimit || scale > Price::MaximumScale)
        return std::nullopt;
    return Price{mantissa, scale};
}

/// The mantissa of `price` at a scale that is not below its own; nothing when it grows too long.
std::optional<qint64> mantissaAt(const Price& price, int scale)
{
    qint64 mantissa = price.mantissa;
    for (int at = price.scale; at < scale; ++at) {
        if (std::abs(mantissa) >= Price::MantissaLimit)
            return std::nullopt;
        mantissa *= 10;
    }
    return mantissa;
}

} // namespace

std::optional<Price> Price::parse(std::string_view text)
{
    const bool negative = !text.empty() && text.front() == '-';
    if (negative)
        text.remove_prefix(1);

    qint64 mantissa = 0;
    int digits = 0;
    int scale = -1; // no point yet
    for (const char c : text) {
        if (c == '.' && scale < 0) {
            scale = 0;
            continue;
        }
        if (c < '0' || c > '9' || mantissa >= MantissaLimit)
            return std::nullopt;
        mantissa = mantissa * 10 + (c - '0');
        ++digits;
        if (scale >= 0)
            ++scale;
    }
    // "5." and "." are cut off in the middle rather than numbers.
    if (digits == 0 || scale == 0)
        return std::nullopt;
    return normalized(negative ? -mantissa : mantissa, std::max(scale, 0));
}

std::optional<Price> operator-(const Price& a, const Price& b)
{
    const int scale = std::max(a.scale, b.scale);
    const auto left = mantissaAt(a, scale);
    const auto right = mantissaAt(b, scale);
    if (!left || !right)
        return std::nullopt;
    return normalized(*left - *right, scale);
}
