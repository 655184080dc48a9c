// SPDX-License-Identifier: MIT
#include "price.h"

#include <cstdlib>

std::optional<decimal> parsePrice(std::string_view text)
{
    constexpr int minimumScale = 2;
    constexpr int maximumScale = 6;
    constexpr size_t maximumLength = 16; // so that no digit can be cut off
    constexpr qint64 billion = 1'000'000'000;

    decimal value;
    if (text.size() > maximumLength || !decimal::tryParse(text.data(), int(text.size()), &value))
        return std::nullopt;
    while (value.scale() > minimumScale && value.mantissa() % 10 == 0)
        value.setScale(short(value.scale() - 1));
    if (value.scale() < minimumScale)
        value.setScale(minimumScale);
    if (value.scale() < minimumScale || value.scale() > maximumScale || value >= decimal(billion) ||
        value <= decimal(-billion))
        return std::nullopt;
    return value;
}
