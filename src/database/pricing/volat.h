// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <QtGlobal>

#include <cmath>
#include <utility>

/**
 * @file
 * Theoretical prices, greeks and implied volatilities of options on a future.
 *
 * The model is F. Black, "The pricing of commodity contracts", Journal of Financial Economics 3
 * (1976), pp. 167-179, with an interest rate of zero:
 *
 *     call = S N(d1) - K N(d2)      d1 = (ln(S / K) + sigma^2 T / 2) / (sigma sqrt T)
 *     put  = call - S + K           d2 = d1 - sigma sqrt T
 *
 * N is approximated by norm_cdf() to 2.1e-7, so a price is good to that part of S + K. The
 * greeks are the derivatives of the formula above; see for instance J. Hull, "Options, Futures, and
 * Other Derivatives", the chapters on the greek letters and on options on futures.
 *
 * Units. Prices and strikes are in any one currency unit. Time is in years and always given as its
 * square root. A volatility called `sigma` is a fraction a year (0.2), one called `volat` is in
 * percent (20).
 *
 * Threads: pure functions without state; any number of threads may call them at once.
 * Errors: nothing is thrown. What is written for invalid input is said at each function; NaN
 * counts as invalid everywhere.
 * Cost: some 50 ns for a full set of outputs and 300 ns for an implied volatility; 1 us where the
 * Newton search fails and bisection takes over.
 *
 * @code
 * VolatInputParams in;
 * in.strike = 3170;
 * in.underlying = 3213.625;
 * in.sqrtTime = sqrtTimeToExpiry(74 * 86400);
 * const ImpliedVolat found = impliedVolat(in, true, 66.5);   // of the put, at a price of 66.5
 * VolatOutputParams out;
 * if (found.reason == ImpliedVolat::Found)
 *     calcVolatParams(out, in, found.volat);                 // out.deltaPut, out.gamma, ...
 * @endcode
 */

/// What every function prices: one strike on one underlying at one moment, and the smile curve that
/// stands in when no volatility is given. An aggregate of eleven doubles in this order.
struct VolatInputParams
{
    double strike = 0;         ///< K, above 0
    double underlying = 0;     ///< S, the price of the underlying, above 0
    double sqrtTime = 0;       ///< the square root of the years to expiry, above 0
    double curveLevel = 0;     ///< the curve's volatility at its centre, percent
    double curveBell = 0;      ///< what the bell term adds far from the centre, percent
    double curveSteepness = 0; ///< how quickly the bell term is reached
    double curveSkew = 0;      ///< the slope of the skew term at the centre, percent
    double curveSkewScale = 0; ///< how quickly the skew term levels off; 0 never, a straight line
    double curveShift = 0;     ///< where the centre lies, in ln(K / S)
    double curveVolatMin = 0;  ///< the curve's volatility is never below this, percent
    double curveVolatMax = 0;  ///< nor above this, percent: set it whenever the curve is used
};

/// A full set of results. An aggregate of seven doubles in this order.
struct VolatOutputParams
{
    double deltaCall = 0; ///< change of the call for a change of S by 1; 0 to 1
    double deltaPut = 0;  ///< the same of the put; deltaCall - 1
    double gamma = 0;     ///< change of either delta for a change of S by 1
    double vega = 0;      ///< change of either price for a change of the volatility: by 1 (that is,
                          ///< 100 %) from calcVolatParamsNorm(), by one percent from the others
    double theta = 0;     ///< change of either price in one calendar day; not above 0
    double priceCall = 0; ///< theoretical price of the call
    double pricePut = 0;  ///< theoretical price of the put
};

/// Input of calcVolatParamsEx(): adds what the plain function takes beside the structure.
struct VolatInputParamsEx : VolatInputParams
{
    double volat = -1;           ///< percent; below 0 the curve's volatility is taken
    double secondsToExpiry = -1; ///< below 0 `sqrtTime` is taken as it is; else it is ignored and
                                 ///< computed from these seconds, see sqrtTimeToExpiry()
};

/// Output of calcVolatParamsEx(): adds what a screen shows beside the plain set.
struct VolatOutputParamsEx : VolatOutputParams
{
    double volat = 0;         ///< the volatility that was used, percent
    double d1 = 0;            ///< infinite at a volatility of 0 when S differs from K, else 0 there
    double d2 = 0;            ///< as d1
    double intrinsicCall = 0; ///< max(S - K, 0)
    double intrinsicPut = 0;  ///< max(K - S, 0)
    double timeCall = 0;      ///< priceCall - intrinsicCall: not below 0 but for the error of N
    double timePut = 0;       ///< pricePut - intrinsicPut, as timeCall
};

/// The default range in which an implied volatility is searched, percent: 0.01 to 1000.
extern LIVETABLE_EXPORT const double gc_dVolatMinDefault;
extern LIVETABLE_EXPORT const double gc_dVolatMaxDefault; ///< the range's upper end

/// Seconds from midnight to 19:00, the hour of an evening expiry.
extern LIVETABLE_EXPORT const qint32 gc_iSecondsTo1900;

/// @name The normal distribution
/// @{

/// Density of the standard normal distribution: exp(-x^2 / 2) * 0.3989422804014327.
LIVETABLE_EXPORT double norm_pdf(double x);

/// Standard normal distribution function by the polynomial of M. Abramowitz and I. Stegun,
/// "Handbook of Mathematical Functions" (1964), formula 26.2.17. Its stated error is 7.5e-8; here
/// its constants have seven digits, which makes it 2.1e-7, reached near 0 where the two halves are
/// 3e-7 apart. Exactly 1 above 10 and exactly 0 below -10.
LIVETABLE_EXPORT double norm_cdf(double x);

/// @}
/// @name Parts of the formula
/// Plain arithmetic without any check: outside the stated ranges they give what IEEE arithmetic
/// gives. `pdf_d1` is norm_pdf(d1).
/// @{

/// d1 at volatility sigma.
LIVETABLE_EXPORT double d_1(const VolatInputParams& in, double sigma);

/// d2 = d1 - sigma sqrt T.
LIVETABLE_EXPORT double d_2(const VolatInputParams& in, double sigma, double d1);

/// pdf_d1 S sqrt T: change of the price for a change of sigma by 1.
LIVETABLE_EXPORT double vega(const VolatInputParams& in, double pdf_d1);

/// pdf_d1 / (sigma S sqrt T).
LIVETABLE_EXPORT double gamma(const VolatInputParams& in, double sigma, double pdf_d1);

/// -sigma S pdf_d1 / (2 sqrt T) / 365: change of the price in one calendar day.
LIVETABLE_EXPORT double theta(const VolatInputParams& in, double sigma, double pdf_d1);

/// (call, put) from N(d1) and N(d2): S cdf_d1 - K cdf_d2, and the put by parity.
LIVETABLE_EXPORT std::pair<double, double> theorPriceCallPut(const VolatInputParams& in,
                                                             double cdf_d1, double cdf_d2);

/// @}
/// @name Prices and greeks
/// @{

/// (call, put) at volatility sigma. A sigma of 0 gives the intrinsic values; negative or NaN input
/// gives NaN.
LIVETABLE_EXPORT std::pair<double, double> theorPriceCallPut(const VolatInputParams& in,
                                                             double sigma);

/// Price of an option whose strike is the underlying price c, at a total volatility of a * b (a
/// volatility as a fraction and a square root of time, in either order). Call and put are the same.
LIVETABLE_EXPORT double theorPriceForInTheMoney(double a, double b, double c);

/// Price of one call or put, as theorPriceCallPut() gives it, without a structure.
LIVETABLE_EXPORT double theorPriceForOutOfTheMoney(double strike, double underlying, bool put,
                                                   double sqrtTime, double sigma);

/// All outputs at volatility sigma; vega is for a change of sigma by 1. Writes nothing unless K, S,
/// sqrt T and sigma are all above 0.
LIVETABLE_EXPORT void calcVolatParamsNorm(VolatOutputParams& out, const VolatInputParams& in,
                                          double sigma);

/**
 * All outputs at `volat` percent, or at volatByCurve() when `volat` is below 0; vega is for a
 * change of one percent. Writes nothing unless K, S and sqrt T are above 0.
 *
 * A volatility of exactly 0 writes the two intrinsic values as prices and leaves the rest. One that
 * is still negative or NaN (a curve with such bounds) writes two prices of 0 and leaves the rest.
 */
LIVETABLE_EXPORT void calcVolatParams(VolatOutputParams& out, const VolatInputParams& in,
                                      double volat);

/// calcVolatParams() and what a screen shows beside it. At a volatility of exactly 0 the greeks are
/// left as they were. Writes nothing unless K, S and sqrt T are above 0 and the volatility that is
/// to be used is not negative.
LIVETABLE_EXPORT void calcVolatParamsEx(VolatOutputParamsEx& out, const VolatInputParamsEx& in);

/**
 * The smile curve's volatility in percent: with x = (ln(K / S) - shift) / sqrt T
 *
 *     level + bell (1 - exp(-steepness x^2)) + skew atan(scale x) / scale
 *
 * kept within curveVolatMin and curveVolatMax (when these cross, curveVolatMin wins). The form is
 * that of the smile which the Moscow Exchange publishes for the options on its futures. A scale of
 * 0 stands for its limit, skew * x. Where the formula has no value (NaN) it is curveVolatMax.
 */
LIVETABLE_EXPORT double volatByCurve(const VolatInputParams& in);

/// The square root of a time in years of 365 days: sqrt(seconds / 31536000). NaN when negative.
LIVETABLE_EXPORT double sqrtTimeToExpiry(double seconds);

/// @}
/// @name Implied volatility
/// @{

/**
 * The volatility in percent at which the model gives `price`, or -1.
 *
 * @param start where Newton's method starts, percent; 0 stands for 50
 * @param lo, hi the range searched, percent
 * @param priceTol Newton and bisection end when the price is met this closely
 * @param volTol bisection ends, and counts as having found, when the volatility is known this
 *        closely, percent
 *
 * Newton-Raphson, at most 100 steps, see numericNewtonRaffson(); when it fails and priceTol and
 * volTol are above 0 and lo <= hi, bisection, at most 100 rounds. Because bisection may end by its
 * width, a price that no volatility gives is answered with a value beside `lo` or `hi` and not with
 * -1: impliedVolat() tells these apart.
 */
LIVETABLE_EXPORT double volatByTheorPrice(const VolatInputParams& in, bool put, double price,
                                          double start, double lo, double hi, double priceTol,
                                          double volTol);

/// How a volatility is searched; each as in volatByTheorPrice().
struct VolatSearch
{
    double start = 0;                ///< percent; where Newton's method starts
    double lo = gc_dVolatMinDefault; ///< percent; the lowest that is looked at
    double hi = gc_dVolatMaxDefault; ///< percent; the highest
    double priceTol = 1e-8;          ///< how closely the price is met
    double volTol = 1e-8;            ///< percent; the width at which bisection ends
};

/// An implied volatility, or why there is none.
struct ImpliedVolat
{
    /// Why there is no volatility.
    enum Reason
    {
        Found,          ///< volat is the very number that volatByTheorPrice() returns
        InvalidInput,   ///< K, S or sqrt T not above 0, or a NaN or infinite number anywhere
        BelowIntrinsic, ///< not more than priceTol above max(S - K, 0) or max(K - S, 0): no
                        ///< volatility, or every small one, gives this price
        AboveBound,     ///< not below S (call) or K (put), which no volatility reaches
        BelowRange,     ///< a volatility exists in theory, but below `lo`
        AboveRange,     ///< a volatility exists in theory, but above `hi`
        NoConvergence,  ///< Newton's method failed, and bisection was not allowed or ran out of
                        ///< rounds
    };

    double volat = -1;            ///< percent; -1 unless Found
    Reason reason = InvalidInput; ///< Found, or what stood in the way
};

/// volatByTheorPrice() that says why there is no volatility. Costs one or two more prices where
/// the search did not meet the price. A price that falls into the step of norm_cdf() at 0 is met by
/// no volatility; the answer is then the one at the step.
LIVETABLE_EXPORT ImpliedVolat impliedVolat(const VolatInputParams& in, bool put, double price,
                                           const VolatSearch& search = VolatSearch());

/// @}
/// @name Batch forms
/// Each gives element by element, bit for bit, what the single call gives for `market` with its
/// strike replaced by strikes[i]; market.strike itself is not looked at. Every array has `count`
/// elements; a count of 0 or less does nothing. Outputs must not overlap inputs unless it is said.
/// @{

/// calcVolatParams(out[i], ..., volats[i]); volats in percent, below 0 for the curve's. out[i]
/// keeps what it held where the single call would write nothing.
LIVETABLE_EXPORT void calcVolatParamsBatch(VolatOutputParams* out, const VolatInputParams& market,
                                           const double* strikes, const double* volats, int count);

/// calcVolatParamsNorm(out[i], ..., sigmas[i]).
LIVETABLE_EXPORT void calcVolatParamsNormBatch(VolatOutputParams* out,
                                               const VolatInputParams& market,
                                               const double* strikes, const double* sigmas,
                                               int count);

/// volatByTheorPrice() of each price. `puts` says which are puts. `starts` may be null, then
/// search.start is used for all; it may be the same array as `volats` (the last results as the next
/// start: a -1 among them leads to bisection and stays correct).
LIVETABLE_EXPORT void volatByTheorPriceBatch(double* volats, const VolatInputParams& market,
                                             const double* strikes, const bool* puts,
                                             const double* prices, const double* starts,
                                             const VolatSearch& search, int count);

/// impliedVolat() of each price; `starts` as in volatByTheorPriceBatch(), percent, may be null.
LIVETABLE_EXPORT void impliedVolatBatch(ImpliedVolat* volats, const VolatInputParams& market,
                                        const double* strikes, const bool* puts,
                                        const double* prices, const double* starts,
                                        const VolatSearch& search, int count);

/// @}
/// @name The root finder
/// @{

/// What OptVolatPrice and OptVolatVega share: one option, and the outputs at the volatility that
/// was asked for last. Refers to the parameters, which must outlive it. Not for two threads at
/// once.
class OptVolat
{
protected:
    /// For a put or a call with these parameters.
    OptVolat(const VolatInputParams& params, bool isPut)
        : in(&params)
        , put(isPut)
    {}

    /// The outputs at sigma (a fraction); all 0 when there are none.
    const VolatOutputParams& at(double sigma)
    {
        if (sigma != cachedSigma) {
            out = VolatOutputParams();
            calcVolatParamsNorm(out, *in, sigma);
            cachedSigma = sigma;
        }
        return out;
    }

    const VolatInputParams* in; ///< of the option
    bool put;                   ///< whether it is a put

private:
    VolatOutputParams out;
    double cachedSigma = -1;
};

/// The price of one option as a function of its volatility (a fraction); 0 where it has none.
class OptVolatPrice : public OptVolat
{
public:
    /// For a put or a call with these parameters.
    OptVolatPrice(const VolatInputParams& params, bool isPut)
        : OptVolat(params, isPut)
    {}
    /// The price at sigma.
    double operator()(double sigma) { return put ? at(sigma).pricePut : at(sigma).priceCall; }
};

/// The vega of one option as a function of its volatility (a fraction); 0 where it has none.
class OptVolatVega : public OptVolat
{
public:
    /// For a put or a call with these parameters.
    OptVolatVega(const VolatInputParams& params, bool isPut)
        : OptVolat(params, isPut)
    {}
    /// The vega at sigma.
    double operator()(double sigma) { return at(sigma).vega; }
};

/**
 * The sigma at which price(sigma) is `target`, by the Newton-Raphson method.
 *
 * @param priceAt, vegaAt the function and its derivative: anything that takes and returns a double
 * @param ok set to whether a root was found; may be null
 * @param tol a root meets the target this closely, not below 0
 *
 * Fails with 0 when `start` is not within [lo, hi], and with the last sigma when the derivative is
 * within 1e-12 of 0, when a step leaves [lo, hi] and when maxIter steps did not suffice.
 */
template <class Price, class Vega>
double numericNewtonRaffson(Price priceAt, Vega vegaAt, double target, double start, double lo,
                            double hi, bool* ok, double tol, int maxIter)
{
    bool unused;
    bool& found = ok ? *ok : unused;
    found = false;
    // Each test is worded so that a NaN fails it.
    if (!(start >= lo && start <= hi))
        return 0;
    double sigma = start;
    double diff = target - priceAt(sigma);
    for (int i = 0; !(std::fabs(diff) <= tol); ++i) {
        if (i >= maxIter)
            return sigma;
        const double slope = vegaAt(sigma);
        if (!(std::fabs(slope) > 1e-12))
            return sigma;
        sigma += diff / slope;
        if (!(sigma >= lo && sigma <= hi))
            return sigma;
        diff = target - priceAt(sigma);
    }
    found = true;
    return sigma;
}

/// @}
