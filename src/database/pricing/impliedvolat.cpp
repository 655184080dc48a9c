// SPDX-License-Identifier: MIT
#include "pricing/volat.h"

#include "pricing/volatmodel_p.h"

using namespace LiveTable;

namespace {

/// Price and vega of one option as functions of sigma, with what does not depend on sigma computed
/// once and each sigma evaluated once; the numbers are those of OptVolatPrice and OptVolatVega.
class SearchModel
{
public:
    SearchModel(const VolatInputParams& params, bool isPut)
        : in(params)
        , put(isPut)
        , isValid(isPriceable(params))
        , logMoneyness(isValid ? std::log(in.underlying / in.strike) : 0)
    {}

    double price(double sigma)
    {
        evaluate(sigma);
        return lastPrice;
    }
    double vega(double sigma)
    {
        evaluate(sigma);
        return lastVega;
    }

private:
    void evaluate(double sigma)
    {
        if (sigma == lastSigma)
            return;
        lastSigma = sigma;
        if (!(isValid && sigma > 0)) {
            lastPrice = 0;
            lastVega = 0;
            return;
        }
        const double d1 = d1At(logMoneyness, in.sqrtTime, sigma);
        const double d2 = d1 - sigma * in.sqrtTime;
        const double exp1 = normalExp(d1);
        const double call = in.underlying * normalDistribution(d1, exp1) -
                            in.strike * normalDistribution(d2, normalExp(d2));
        lastPrice = put ? call - in.underlying + in.strike : call;
        lastVega = normalDensity(exp1) * in.underlying * in.sqrtTime;
    }

    const VolatInputParams& in;
    const bool put;
    const bool isValid;
    const double logMoneyness;
    double lastSigma = -1;
    double lastPrice = 0;
    double lastVega = 0;
};

enum class Ending
{
    PriceMet,
    WidthMet,
    Failed
};

struct SearchResult
{
    double sigma;
    Ending ending;
};

constexpr int roundLimit = 100;

SearchResult bisect(SearchModel& model, double price, double lo, double hi, double priceTol,
                    double sigmaTol)
{
    if (!(priceTol > 0 && lo <= hi && sigmaTol > 0))
        return {0, Ending::Failed};
    double mid = (lo + hi) / 2;
    for (int round = 0; round < roundLimit; ++round) {
        const double half = (hi - lo) / 2;
        if (std::fabs(half) < sigmaTol)
            return {mid, Ending::WidthMet};
        const double diff = price - model.price(mid);
        if (std::fabs(diff) < priceTol)
            return {mid, Ending::PriceMet};
        if (diff > 0)
            lo += half;
        else
            hi -= half;
        mid = (lo + hi) / 2;
    }
    return {mid, Ending::Failed};
}

SearchResult searchSigma(SearchModel& model, double price, const VolatSearch& search)
{
    const double start = std::fabs(search.start / 100) <= 1e-12 ? 0.5 : search.start / 100;
    const double lo = search.lo / 100;
    const double hi = search.hi / 100;
    bool ok = false;
    const double sigma = numericNewtonRaffson([&model](double s) { return model.price(s); },
                                              [&model](double s) { return model.vega(s); }, price,
                                              start, lo, hi, &ok, search.priceTol, roundLimit);
    if (ok)
        return {sigma, Ending::PriceMet};
    return bisect(model, price, lo, hi, search.priceTol, search.volTol / 100);
}

double foundVolat(const VolatInputParams& in, bool put, double price, const VolatSearch& search)
{
    SearchModel model(in, put);
    const SearchResult result = searchSigma(model, price, search);
    return result.ending == Ending::Failed ? -1 : result.sigma * 100;
}

bool isSearchable(const VolatInputParams& in, double price, const VolatSearch& search)
{
    return isPriceable(in) && std::isfinite(in.strike) && std::isfinite(in.underlying) &&
           std::isfinite(in.sqrtTime) && std::isfinite(price) && std::isfinite(search.start) &&
           std::isfinite(search.lo) && std::isfinite(search.hi) && std::isfinite(search.priceTol) &&
           std::isfinite(search.volTol);
}

ImpliedVolat explain(const VolatInputParams& in, bool put, double price, const VolatSearch& search)
{
    if (!isSearchable(in, price, search))
        return {-1, ImpliedVolat::InvalidInput};
    const double value = put ? in.strike - in.underlying : in.underlying - in.strike;
    if (price <= (value > 0 ? value : 0) + search.priceTol)
        return {-1, ImpliedVolat::BelowIntrinsic};
    if (price >= (put ? in.strike : in.underlying))
        return {-1, ImpliedVolat::AboveBound};

    SearchModel model(in, put);
    const SearchResult result = searchSigma(model, price, search);
    if (result.ending != Ending::PriceMet && search.lo <= search.hi) {
        // Bisection closes in on an end of the range when the answer lies beyond it.
        if (price < model.price(search.lo / 100))
            return {-1, ImpliedVolat::BelowRange};
        if (price > model.price(search.hi / 100))
            return {-1, ImpliedVolat::AboveRange};
    }
    if (result.ending == Ending::Failed)
        return {-1, ImpliedVolat::NoConvergence};
    return {result.sigma * 100, ImpliedVolat::Found};
}

} // namespace

double volatByTheorPrice(const VolatInputParams& in, bool put, double price, double start,
                         double lo, double hi, double priceTol, double volTol)
{
    VolatSearch search;
    search.start = start;
    search.lo = lo;
    search.hi = hi;
    search.priceTol = priceTol;
    search.volTol = volTol;
    return foundVolat(in, put, price, search);
}

ImpliedVolat impliedVolat(const VolatInputParams& in, bool put, double price,
                          const VolatSearch& search)
{
    return explain(in, put, price, search);
}

void volatByTheorPriceBatch(double* volats, const VolatInputParams& market, const double* strikes,
                            const bool* puts, const double* prices, const double* starts,
                            const VolatSearch& search, int count)
{
    VolatInputParams in = market;
    VolatSearch own = search;
    for (int i = 0; i < count; ++i) {
        in.strike = strikes[i];
        if (starts)
            own.start = starts[i];
        volats[i] = foundVolat(in, puts[i], prices[i], own);
    }
}

void impliedVolatBatch(ImpliedVolat* volats, const VolatInputParams& market, const double* strikes,
                       const bool* puts, const double* prices, const double* starts,
                       const VolatSearch& search, int count)
{
    VolatInputParams in = market;
    VolatSearch own = search;
    for (int i = 0; i < count; ++i) {
        in.strike = strikes[i];
        if (starts)
            own.start = starts[i];
        volats[i] = explain(in, puts[i], prices[i], own);
    }
}
