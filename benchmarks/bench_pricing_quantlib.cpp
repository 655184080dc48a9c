// SPDX-License-Identifier: MIT
#include "bench_pricing.h"

#include <ql/pricingengines/blackcalculator.hpp>
#include <ql/pricingengines/blackformula.hpp>

#include <cmath>

namespace {

QuantLib::Option::Type typeOf(const Chain& chain, std::size_t i)
{
    return chain.puts[i] ? QuantLib::Option::Put : QuantLib::Option::Call;
}

} // namespace

Answer quantlibGreeks(const Chain& chain)
{
    Answer answer;
    const double time = chain.sqrtTime * chain.sqrtTime;
    for (std::size_t i = 0; i < chain.strikes.size(); ++i) {
        const QuantLib::BlackCalculator option(typeOf(chain, i), chain.strikes[i], chain.underlying,
                                               chain.volats[i] / 100 * chain.sqrtTime);
        // With no interest the forward is the spot.
        answer.sum += option.value() + option.deltaForward() + option.gammaForward() +
                      option.vega(time) / 100 + option.thetaPerDay(chain.underlying, time);
    }
    return answer;
}

std::vector<double> quantlibPrices(const Chain& chain)
{
    std::vector<double> prices;
    for (std::size_t i = 0; i < chain.strikes.size(); ++i)
        prices.push_back(QuantLib::blackFormula(typeOf(chain, i), chain.strikes[i],
                                                chain.underlying,
                                                chain.volats[i] / 100 * chain.sqrtTime));
    return prices;
}

Answer quantlibImplied(const Chain& chain, const std::vector<double>& prices, double accuracy)
{
    Answer answer;
    for (std::size_t i = 0; i < chain.strikes.size(); ++i) {
        try {
            answer.sum += QuantLib::blackFormulaImpliedStdDev(
                              typeOf(chain, i), chain.strikes[i], chain.underlying, prices[i], 1.0,
                              0.0, QuantLib::Null<QuantLib::Real>(), accuracy, 100) /
                          chain.sqrtTime * 100;
        } catch (const QuantLib::Error&) {
            ++answer.unsolved;
        }
    }
    return answer;
}
