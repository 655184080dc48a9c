// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "pricing/volat.h"

#include <cmath>

namespace LiveTable {

// The steps below are shared by every function of the floor. Whatever one of them computes, another
// computes with the same operations in the same order, so that prices agree to the last bit.

/// exp(-x^2 / 2), which the density and the distribution function have in common.
inline double normalExp(double x)
{
    return std::exp(-0.5 * x * x);
}

inline double normalDensity(double expOfX)
{
    return expOfX * 0.3989422804014327;
}

/// Abramowitz and Stegun 26.2.17; `expOfX` is normalExp(x). No branch on the sign: it is as good as
/// random from strike to strike.
inline double normalDistribution(double x, double expOfX)
{
    const double k = 1 / (1 + 0.2316419 * std::fabs(x));
    const double n = 0.3989423 * expOfX;
    const double p =
        n * k * (0.3193815 + k * (-0.3565638 + k * (1.781478 + k * (-1.821256 + k * 1.330274))));
    const double inside = x > 0 ? 1 - p : p;
    return x > 10 ? 1.0 : x < -10 ? 0.0 : inside;
}

inline double d1At(double logMoneyness, double sqrtTime, double sigma)
{
    return (logMoneyness + 0.5 * (sqrtTime * sqrtTime) * (sigma * sigma)) / (sqrtTime * sigma);
}

inline bool isPriceable(const VolatInputParams& in)
{
    return in.strike > 0 && in.underlying > 0 && in.sqrtTime > 0;
}

} // namespace LiveTable
