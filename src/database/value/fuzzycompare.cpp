// SPDX-License-Identifier: MIT
#include "value/fuzzycompare.h"

#include <algorithm>
#include <cmath>

bool commonFuzzyCompare(double a, double b) noexcept
{
    const double magnitudeA = std::fabs(a);
    const double magnitudeB = std::fabs(b);
    const bool zeroA = magnitudeA <= 1e-12;
    const bool zeroB = magnitudeB <= 1e-12;
    if (zeroA || zeroB)
        return zeroA && zeroB;
    return std::fabs(a - b) * 1e12 <= std::min(magnitudeA, magnitudeB);
}
