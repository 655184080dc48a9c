// SPDX-License-Identifier: MIT
#include "pricing/volat.h"

#include "pricing/volatmodel_p.h"

#include <tuple>

using namespace LiveTable;

static_assert(sizeof(VolatInputParams) == 11 * sizeof(double), "eleven fields, no padding");
static_assert(sizeof(VolatOutputParams) == 7 * sizeof(double), "seven fields, no padding");

const double gc_dVolatMinDefault = 0.01;
const double gc_dVolatMaxDefault = 1000.0;
const qint32 gc_iSecondsTo1900 = 19 * 3600;

namespace {

inline std::pair<double, double> callPut(const VolatInputParams& in, double cdf1, double cdf2)
{
    const double call = in.underlying * cdf1 - in.strike * cdf2;
    return {call, call - in.underlying + in.strike};
}

/// Everything of `out`; the caller has seen that all input is above 0. The two exponentials and the
/// logarithm are most of its cost.
inline void fillOutputs(VolatOutputParams& out, const VolatInputParams& in, double sigma)
{
    const double d1 = d1At(std::log(in.underlying / in.strike), in.sqrtTime, sigma);
    const double d2 = d1 - sigma * in.sqrtTime;
    const double exp1 = normalExp(d1);
    const double pdf1 = normalDensity(exp1);
    const double cdf1 = normalDistribution(d1, exp1);
    const double cdf2 = normalDistribution(d2, normalExp(d2));

    out.deltaCall = cdf1;
    out.deltaPut = cdf1 - 1;
    out.gamma = pdf1 / (sigma * in.underlying * in.sqrtTime);
    out.vega = pdf1 * in.underlying * in.sqrtTime;
    out.theta = sigma * in.underlying * pdf1 / (2 * in.sqrtTime) / -365;
    std::tie(out.priceCall, out.pricePut) = callPut(in, cdf1, cdf2);
}

/// calcVolatParams() for input that is priceable.
inline void fillAtVolat(VolatOutputParams& out, const VolatInputParams& in, double volat)
{
    const double used = volat < 0 ? volatByCurve(in) : volat;
    if (used > 0) {
        fillOutputs(out, in, used / 100);
        out.vega /= 100;
        return;
    }
    const bool isIntrinsic = used == 0;
    const double value = isIntrinsic ? in.underlying - in.strike : 0;
    out.priceCall = value > 0 ? value : 0;
    out.pricePut = value < 0 ? -value : 0;
}

} // namespace

double norm_pdf(double x)
{
    return normalDensity(normalExp(x));
}

double norm_cdf(double x)
{
    return normalDistribution(x, normalExp(x));
}

double d_1(const VolatInputParams& in, double sigma)
{
    return d1At(std::log(in.underlying / in.strike), in.sqrtTime, sigma);
}

double d_2(const VolatInputParams& in, double sigma, double d1)
{
    return d1 - sigma * in.sqrtTime;
}

double vega(const VolatInputParams& in, double pdf_d1)
{
    return pdf_d1 * in.underlying * in.sqrtTime;
}

double gamma(const VolatInputParams& in, double sigma, double pdf_d1)
{
    return pdf_d1 / (sigma * in.underlying * in.sqrtTime);
}

double theta(const VolatInputParams& in, double sigma, double pdf_d1)
{
    return sigma * in.underlying * pdf_d1 / (2 * in.sqrtTime) / -365;
}

std::pair<double, double> theorPriceCallPut(const VolatInputParams& in, double cdf_d1,
                                            double cdf_d2)
{
    return callPut(in, cdf_d1, cdf_d2);
}

std::pair<double, double> theorPriceCallPut(const VolatInputParams& in, double sigma)
{
    const double logMoneyness = std::log(in.underlying / in.strike);
    const double d1 = d1At(logMoneyness, in.sqrtTime, sigma);
    // At the money 0 / 0 stands for a distance of 0: both prices are 0, as just beside it.
    if (sigma * in.sqrtTime == 0 && logMoneyness == 0)
        return callPut(in, 0, 0);
    const double d2 = d1 - sigma * in.sqrtTime;
    return callPut(in, normalDistribution(d1, normalExp(d1)),
                   normalDistribution(d2, normalExp(d2)));
}

double theorPriceForInTheMoney(double a, double b, double c)
{
    const double d1 = 0.5 * a * b;
    const double d2 = d1 - a * b;
    return c * norm_cdf(d1) - c * norm_cdf(d2);
}

double theorPriceForOutOfTheMoney(double strike, double underlying, bool put, double sqrtTime,
                                  double sigma)
{
    VolatInputParams in;
    in.strike = strike;
    in.underlying = underlying;
    in.sqrtTime = sqrtTime;
    in.curveVolatMin = gc_dVolatMinDefault;
    in.curveVolatMax = gc_dVolatMaxDefault;
    const auto prices = theorPriceCallPut(in, sigma);
    return put ? prices.second : prices.first;
}

void calcVolatParamsNorm(VolatOutputParams& out, const VolatInputParams& in, double sigma)
{
    if (isPriceable(in) && sigma > 0)
        fillOutputs(out, in, sigma);
}

void calcVolatParams(VolatOutputParams& out, const VolatInputParams& in, double volat)
{
    if (isPriceable(in))
        fillAtVolat(out, in, volat);
}

void calcVolatParamsEx(VolatOutputParamsEx& out, const VolatInputParamsEx& in)
{
    VolatInputParams base = in;
    if (in.secondsToExpiry >= 0)
        base.sqrtTime = sqrtTimeToExpiry(in.secondsToExpiry);
    if (!isPriceable(base))
        return;
    const double used = in.volat < 0 ? volatByCurve(base) : in.volat;
    if (!(used >= 0))
        return;
    fillAtVolat(out, base, used);
    out.volat = used;
    const bool isCentre = used == 0 && base.underlying == base.strike;
    out.d1 = isCentre ? 0 : d_1(base, used / 100);
    out.d2 = d_2(base, used / 100, out.d1);
    const double value = base.underlying - base.strike;
    out.intrinsicCall = value > 0 ? value : 0;
    out.intrinsicPut = value < 0 ? -value : 0;
    out.timeCall = out.priceCall - out.intrinsicCall;
    out.timePut = out.pricePut - out.intrinsicPut;
}

double volatByCurve(const VolatInputParams& in)
{
    const double x = (std::log(in.strike / in.underlying) - in.curveShift) / in.sqrtTime;
    const double scale = in.curveSkewScale;
    const double skew = scale == 0 ? in.curveSkew * x : in.curveSkew * std::atan(scale * x) / scale;
    const double volat =
        in.curveLevel + in.curveBell * (1 - std::exp(-in.curveSteepness * x * x)) + skew;
    // Worded so that a NaN becomes a bound.
    const double capped = volat < in.curveVolatMax ? volat : in.curveVolatMax;
    return capped < in.curveVolatMin ? in.curveVolatMin : capped;
}

double sqrtTimeToExpiry(double seconds)
{
    return std::sqrt(seconds / (365.0 * 86400.0));
}

void calcVolatParamsBatch(VolatOutputParams* out, const VolatInputParams& market,
                          const double* strikes, const double* volats, int count)
{
    VolatInputParams in = market;
    for (int i = 0; i < count; ++i) {
        in.strike = strikes[i];
        if (isPriceable(in))
            fillAtVolat(out[i], in, volats[i]);
    }
}

void calcVolatParamsNormBatch(VolatOutputParams* out, const VolatInputParams& market,
                              const double* strikes, const double* sigmas, int count)
{
    VolatInputParams in = market;
    for (int i = 0; i < count; ++i) {
        in.strike = strikes[i];
        if (isPriceable(in) && sigmas[i] > 0)
            fillOutputs(out[i], in, sigmas[i]);
    }
}
