// SPDX-License-Identifier: MIT
// Decimals of both kinds as numbers of the oracle.
#pragma once

#include "support/numberoracle.h"
#include "value/decimal.h"
#include "value/xdecimal.h"

namespace Oracle {

inline Number numberOf(decimal value)
{
    return {Big(value.mantissa()), value.scale()};
}

/// By its bytes as one integer of base 100.
inline Number numberOf(const xdecimal& value)
{
    const auto* bytes = static_cast<const quint8*>(value.data());
    Big n = 0;
    for (unsigned int i = 0; i < BCDIISIZE(value.type()); ++i)
        n = n * 100 + (i ? bytes[2 + i] : bytes[2] & 127);
    n /= value.type() & 1 ? 10 : 1;
    return {bytes[2] & 128 ? Big(-n) : n, value.scale()};
}

inline bool same(const Number& a, const Number& b)
{
    return a.n == b.n && a.scale == b.scale;
}

} // namespace Oracle
