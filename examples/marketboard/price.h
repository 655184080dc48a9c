// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QtGlobal>

#include <optional>
#include <string_view>

/// An exact price, mantissa / 10^scale, as feeds carry it. The scale is 2, or as much more as the
/// value needs (at most MaximumScale), so that equal prices have equal members.
struct Price
{
    static constexpr int MinimumScale = 2;
    static constexpr int MaximumScale = 12;
    /// A mantissa stays inside what a decimal cell holds, with room for the sum of two.
    static constexpr qint64 MantissaLimit = 10'000'000'000'000'000; // 16 digits

    qint64 mantissa = 0;
    int scale = MinimumScale;

    /// The price that `text` writes: an optional '-', digits, and an optional fraction after a point.
    /// Nothing when the text is no such number, or has more digits than a price can hold.
    static std::optional<Price> parse(std::string_view text);

    /// A whole number of hundredths.
    static Price fromHundredths(qint64 hundredths) { return {hundredths, MinimumScale}; }

    bool operator==(const Price& other) const
    {
        return mantissa == other.mantissa && scale == other.scale;
    }
};

/// a - b, exactly. Nothing when the difference has more digits than a price can hold.
std::optional<Price> operator-(const Price& a, const Price& b);
