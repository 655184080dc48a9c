// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <vector>

/// The options that the pricing benchmark works on, one array a property.
struct Chain
{
    double underlying = 0;
    double sqrtTime = 0;
    std::vector<double> strikes;
    std::vector<double> volats; ///< percent
    std::vector<char> puts;
};

/// What a contender answers for a chain: sums keep the work from being optimized away, and let the
/// contenders be compared.
struct Answer
{
    double sum = 0;
    std::size_t unsolved = 0;
};

/// QuantLib's BlackCalculator: price, delta, gamma, vega and theta of every option.
Answer quantlibGreeks(const Chain& chain);

/// QuantLib's prices of the chain, the input of quantlibImplied().
std::vector<double> quantlibPrices(const Chain& chain);

/// QuantLib's blackFormulaImpliedStdDev() of every price, without a guess.
Answer quantlibImplied(const Chain& chain, const std::vector<double>& prices, double accuracy);
