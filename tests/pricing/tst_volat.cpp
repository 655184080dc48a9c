// SPDX-License-Identifier: MIT
#include "pricing/volat.h"
#include "support/seed.h"

#include <QtTest>

#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

const double notANumber = std::numeric_limits<double>::quiet_NaN();
const double infinite = std::numeric_limits<double>::infinity();
// What norm_cdf() may be off by: the polynomial's 7.5e-8 and its constants' missing eighth digits.
const double cdfError = 2.1e-7;

VolatInputParams option(double strike, double underlying, double years)
{
    VolatInputParams in;
    in.strike = strike;
    in.underlying = underlying;
    in.sqrtTime = std::sqrt(years);
    return in;
}

/// Every field is told apart, so that one which is written, or filled from another, shows.
VolatOutputParams marked()
{
    return {-11, -12, -13, -14, -15, -16, -17};
}

template <class T>
bool sameBits(const T& a, const T& b)
{
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

double exactCdf(double x)
{
    return 0.5 * std::erfc(-x / std::sqrt(2.0));
}

/// Black's call with the exact distribution function: the oracle of prices and greeks.
double exactCall(double strike, double underlying, double time, double sigma)
{
    const double spread = sigma * std::sqrt(time);
    const double d1 = std::log(underlying / strike) / spread + spread / 2;
    return underlying * exactCdf(d1) - strike * exactCdf(d1 - spread);
}

/// The search as the manual words it, over the public function objects.
double naiveImplied(const VolatInputParams& in, bool put, double price, VolatSearch search)
{
    const double start = std::fabs(search.start / 100) <= 1e-12 ? 0.5 : search.start / 100;
    double lo = search.lo / 100;
    double hi = search.hi / 100;
    bool ok = false;
    const double sigma = numericNewtonRaffson<OptVolatPrice, OptVolatVega>(
        OptVolatPrice(in, put), OptVolatVega(in, put), price, start, lo, hi, &ok, search.priceTol,
        100);
    if (ok)
        return sigma * 100;
    if (!(search.priceTol > 0 && lo <= hi && search.volTol / 100 > 0))
        return -1;
    double mid = (lo + hi) / 2;
    for (int round = 0; round < 100; ++round) {
        if (std::fabs(hi - lo) / 2 < search.volTol / 100)
            return mid * 100;
        VolatOutputParams out;
        calcVolatParamsNorm(out, in, mid);
        const double diff = price - (put ? out.pricePut : out.priceCall);
        if (std::fabs(diff) < search.priceTol)
            return mid * 100;
        (diff > 0 ? lo : hi) += (diff > 0 ? 1 : -1) * (hi - lo) / 2;
        mid = (lo + hi) / 2;
    }
    return -1;
}

} // namespace

class TestVolat : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void constants();
    void distribution();
    void pricesNearExact_data();
    void pricesNearExact();
    void greeksNearDifferences_data();
    void greeksNearDifferences();
    void partsGiveTheWhole();
    void specialPrices();
    void whatIsWritten_data();
    void whatIsWritten();
    void curve_data();
    void curve();
    void curveStaysInBounds();
    void extendedOutputs();
    void extendedInvalid_data();
    void extendedInvalid();
    void newton();
    void functionObjects();
    void roundTrip();
    void searchIsTheSpelledOutOne();
    void failuresOfTheSearch_data();
    void failuresOfTheSearch();
    void reasons_data();
    void reasons();
    void batchesGiveTheSameBits();
};

void TestVolat::constants()
{
    QCOMPARE(gc_dVolatMinDefault, 0.01);
    QCOMPARE(gc_dVolatMaxDefault, 1000.0);
    QCOMPARE(gc_iSecondsTo1900, 68400);
    QCOMPARE(sqrtTimeToExpiry(365 * 86400), 1.0);
    QCOMPARE(sqrtTimeToExpiry(0), 0.0);
    QVERIFY(std::isnan(sqrtTimeToExpiry(-1)));
}

void TestVolat::distribution()
{
    double worst = 0;
    for (int i = -12000; i <= 12000; ++i) {
        const double x = i / 1000.0;
        const double off = std::fabs(norm_cdf(x) - exactCdf(x));
        worst = std::max(worst, off);
        QVERIFY2(off < cdfError, qPrintable(QString("x = %1").arg(x)));
        QCOMPARE(norm_pdf(x), std::exp(-0.5 * x * x) * 0.3989422804014327);
    }
    qInfo("norm_cdf is off by at most %.3g", worst);
    QCOMPARE(norm_cdf(10.5), 1.0);
    QCOMPARE(norm_cdf(-10.5), 0.0);
    QCOMPARE(norm_cdf(infinite), 1.0);
    QCOMPARE(norm_cdf(-infinite), 0.0);
    QVERIFY(norm_cdf(-10) > 0);
    QVERIFY(std::isnan(norm_cdf(notANumber)));
    // 0 belongs to the lower half; the halves do not quite meet.
    QVERIFY(norm_cdf(0) == norm_cdf(-0.0) && norm_cdf(0) != 0.5);
    QCOMPARE(norm_cdf(2.5), 1 - norm_cdf(-2.5));
}

void TestVolat::pricesNearExact_data()
{
    QTest::addColumn<double>("moneyness");
    QTest::addColumn<double>("sigma");
    QTest::addColumn<double>("years");
    const double years[] = {1.0 / 8760, 1.0 / 52, 0.25, 1, 3};
    for (double moneyness : {0.5, 0.8, 0.97, 1.0, 1.03, 1.25, 2.0})
        for (double sigma : {0.01, 0.1, 0.3, 1.0, 3.0})
            for (double time : years)
                QTest::addRow("S/K %g sigma %g T %g", moneyness, sigma, time)
                    << moneyness << sigma << time;
}

void TestVolat::pricesNearExact()
{
    QFETCH(double, moneyness);
    QFETCH(double, sigma);
    QFETCH(double, years);
    const VolatInputParams in = option(100, 100 * moneyness, years);
    const auto prices = theorPriceCallPut(in, sigma);
    const double bound = cdfError * (in.strike + in.underlying);
    QVERIFY(std::fabs(prices.first - exactCall(100, in.underlying, years, sigma)) < bound);
    // Parity holds to rounding, whatever the distribution function is off by.
    QVERIFY(std::fabs(prices.first - prices.second - (in.underlying - in.strike)) < 1e-13 * 100);
    QVERIFY(prices.first > -bound && prices.first < in.underlying + bound);
    QCOMPARE(theorPriceForOutOfTheMoney(100, in.underlying, false, in.sqrtTime, sigma),
             prices.first);
    QCOMPARE(theorPriceForOutOfTheMoney(100, in.underlying, true, in.sqrtTime, sigma),
             prices.second);
}

void TestVolat::greeksNearDifferences_data()
{
    QTest::addColumn<double>("strike");
    QTest::addColumn<double>("sigma");
    QTest::addColumn<double>("years");
    QTest::newRow("in the money") << 90.0 << 0.25 << 0.5;
    QTest::newRow("at the money") << 100.0 << 0.2 << 0.25;
    QTest::newRow("out of the money") << 120.0 << 0.3 << 1.0;
    QTest::newRow("last week") << 101.0 << 0.4 << 0.02;
    QTest::newRow("wild and long") << 150.0 << 2.0 << 3.0;
}

void TestVolat::greeksNearDifferences()
{
    QFETCH(double, strike);
    QFETCH(double, sigma);
    QFETCH(double, years);
    const double s = 100;
    const auto call = [strike](double underlying, double time, double volatility) {
        return exactCall(strike, underlying, time, volatility);
    };
    const double step = 0.01;
    const double delta = (call(s + step, years, sigma) - call(s - step, years, sigma)) / (2 * step);
    const double gammaHere =
        (call(s + step, years, sigma) - 2 * call(s, years, sigma) + call(s - step, years, sigma)) /
        (step * step);
    const double vegaHere = (call(s, years, sigma + 1e-5) - call(s, years, sigma - 1e-5)) / 2e-5;
    const double aDay = 1.0 / 365;
    const double thetaHere =
        (call(s, years - aDay / 100, sigma) - call(s, years + aDay / 100, sigma)) / 2 * 100;

    VolatOutputParams out = marked();
    calcVolatParamsNorm(out, option(strike, s, years), sigma);
    const auto near = [](double got, double wanted) {
        return std::fabs(got - wanted) <= 1e-5 * std::fabs(wanted) + 2 * cdfError;
    };
    QVERIFY(near(out.deltaCall, delta));
    QVERIFY(near(out.deltaPut, delta - 1));
    QVERIFY(near(out.gamma, gammaHere));
    QVERIFY(near(out.vega, vegaHere));
    QVERIFY(near(out.theta, thetaHere));
    QVERIFY(out.theta < 0);
}

void TestVolat::partsGiveTheWhole()
{
    for (double sigma : {0.05, 0.2, 1.5}) {
        const VolatInputParams in = option(95, 101, 0.3);
        VolatOutputParams whole = marked();
        calcVolatParamsNorm(whole, in, sigma);
        const double d1 = d_1(in, sigma);
        const double d2 = d_2(in, sigma, d1);
        const double pdf = norm_pdf(d1);
        const auto prices = theorPriceCallPut(in, norm_cdf(d1), norm_cdf(d2));
        const VolatOutputParams parts = {
            norm_cdf(d1),          norm_cdf(d1) - 1, gamma(in, sigma, pdf), vega(in, pdf),
            theta(in, sigma, pdf), prices.first,     prices.second};
        QVERIFY(sameBits(parts, whole));
        QCOMPARE(theorPriceCallPut(in, sigma), prices);

        VolatOutputParams percent = marked();
        calcVolatParams(percent, in, sigma * 100);
        QCOMPARE(percent.vega, whole.vega / 100);
        QCOMPARE(percent.theta, whole.theta);
        QCOMPARE(percent.priceCall, whole.priceCall);
    }
}

void TestVolat::specialPrices()
{
    using Pair = std::pair<double, double>;
    QCOMPARE(theorPriceCallPut(option(100, 110, 1), 0.0), Pair(10, 0));
    QCOMPARE(theorPriceCallPut(option(110, 100, 1), 0.0), Pair(0, 10));
    QCOMPARE(theorPriceCallPut(option(100, 100, 1), 0.0), Pair(0, 0));
    QCOMPARE(theorPriceCallPut(option(100, 110, 0), 0.2), Pair(10, 0));
    QVERIFY(std::isnan(theorPriceCallPut(option(100, -1, 1), 0.2).first));
    // At the money the short form is the long one.
    const double atTheMoney = theorPriceForInTheMoney(0.2, 0.5, 100);
    QVERIFY(std::fabs(atTheMoney - theorPriceCallPut(option(100, 100, 0.25), 0.2).first) < 1e-12);
    QCOMPARE(theorPriceForInTheMoney(0.5, 0.2, 100), atTheMoney);
}

void TestVolat::whatIsWritten_data()
{
    QTest::addColumn<double>("strike");
    QTest::addColumn<double>("underlying");
    QTest::addColumn<double>("years");
    QTest::addColumn<double>("volat");
    QTest::addColumn<bool>("pricesWritten");
    QTest::addColumn<double>("call");
    QTest::addColumn<double>("put");
    QTest::newRow("no strike") << 0.0 << 100.0 << 1.0 << 20.0 << false << 0.0 << 0.0;
    QTest::newRow("negative strike") << -1.0 << 100.0 << 1.0 << 20.0 << false << 0.0 << 0.0;
    QTest::newRow("no underlying") << 100.0 << 0.0 << 1.0 << 20.0 << false << 0.0 << 0.0;
    QTest::newRow("expired") << 100.0 << 100.0 << 0.0 << 20.0 << false << 0.0 << 0.0;
    QTest::newRow("NaN strike") << notANumber << 100.0 << 1.0 << 20.0 << false << 0.0 << 0.0;
    QTest::newRow("no strike, still") << 0.0 << 100.0 << 1.0 << 0.0 << false << 0.0 << 0.0;
    QTest::newRow("still, call") << 100.0 << 110.0 << 1.0 << 0.0 << true << 10.0 << 0.0;
    QTest::newRow("still, put") << 110.0 << 100.0 << 1.0 << 0.0 << true << 0.0 << 10.0;
    QTest::newRow("still, at the money") << 100.0 << 100.0 << 1.0 << 0.0 << true << 0.0 << 0.0;
    QTest::newRow("NaN volatility") << 100.0 << 110.0 << 1.0 << notANumber << true << 0.0 << 0.0;
    QTest::newRow("negative curve") << 100.0 << 110.0 << 1.0 << -1.0 << true << 0.0 << 0.0;
}

void TestVolat::whatIsWritten()
{
    QFETCH(double, strike);
    QFETCH(double, underlying);
    QFETCH(double, years);
    QFETCH(double, volat);
    QFETCH(bool, pricesWritten);
    VolatOutputParams wanted = marked();
    if (pricesWritten) {
        QFETCH(double, call);
        QFETCH(double, put);
        wanted.priceCall = call;
        wanted.pricePut = put;
    }
    VolatInputParams in = option(strike, underlying, years);
    in.curveLevel = -5;
    in.curveVolatMin = -10;
    in.curveVolatMax = 10;
    VolatOutputParams out = marked();
    calcVolatParams(out, in, volat);
    QVERIFY(sameBits(out, wanted));

    VolatOutputParams norm = marked();
    calcVolatParamsNorm(norm, in, volat < 0 || volat == 0 || !pricesWritten ? volat / 100 : -1);
    QVERIFY(sameBits(norm, marked()));
}

void TestVolat::curve_data()
{
    QTest::addColumn<double>("logMoneyness"); // ln(K / S)
    QTest::addColumn<double>("skewScale");
    QTest::addColumn<double>("shift");
    QTest::addColumn<double>("wanted");
    const auto row = [](const char* name, double log, double scale, double shift, double wanted) {
        QTest::newRow(name) << log << scale << shift << wanted;
    };
    // sqrt T = 0.5, level 20, bell 8, steepness 3, skew -6, bounds 5 and 30
    row("centre", 0, 2, 0, 20);
    row("moved centre", 0.1, 2, 0.1, 20);
    row("right", 0.25, 2, 0,
        20 + 8 * (1 - std::exp(-0.75)) - 3 * 0.785398163397448309616); // x = 0.5, atan(1) = pi / 4
    row("left", -0.25, 2, 0, 20 + 8 * (1 - std::exp(-0.75)) + 3 * 0.785398163397448309616);
    row("straight skew", 0.25, 0, 0, 20 + 8 * (1 - std::exp(-0.75)) - 3);
    row("upper bound", -4, 0, 0, 30);
    row("lower bound", 4, 0, 0, 5);
}

void TestVolat::curve()
{
    QFETCH(double, logMoneyness);
    QFETCH(double, skewScale);
    QFETCH(double, shift);
    QFETCH(double, wanted);
    const VolatInputParams in = {
        100 * std::exp(logMoneyness), 100, 0.5, 20, 8, 3, -6, skewScale, shift, 5, 30};
    QVERIFY(std::fabs(volatByCurve(in) - wanted) < 1e-12);
    VolatOutputParams byCurve = marked();
    VolatOutputParams byVolat = marked();
    calcVolatParams(byCurve, in, -1);
    calcVolatParams(byVolat, in, volatByCurve(in));
    QVERIFY(sameBits(byCurve, byVolat) && byCurve.vega >= 0);
}

void TestVolat::curveStaysInBounds()
{
    const double odd[] = {0, -1, 1, 1e-300, 1e300, infinite, -infinite, notANumber};
    for (double strike : odd)
        for (double scale : odd)
            for (double steepness : odd) {
                const VolatInputParams in = {strike, 100,   0.5, 20, 8, steepness,
                                             -6,     scale, 0,   5,  30};
                const double volat = volatByCurve(in);
                QVERIFY(volat >= 5 && volat <= 30);
            }
    const VolatInputParams crossed = {100, 100, 0.5, 20, 8, 3, -6, 2, 0, 25, 15};
    QCOMPARE(volatByCurve(crossed), 25.0);
}

void TestVolat::extendedOutputs()
{
    VolatInputParamsEx in;
    static_cast<VolatInputParams&>(in) = {90, 100, 99, 20, 8, 3, -6, 2, 0, 5, 30};
    in.volat = 25;
    in.secondsToExpiry = 91.25 * 86400; // a quarter; wins over the square root of 99
    VolatOutputParamsEx out;
    calcVolatParamsEx(out, in);

    VolatInputParams plainIn = in;
    plainIn.sqrtTime = 0.5;
    VolatOutputParams plain;
    calcVolatParams(plain, plainIn, 25);
    QVERIFY(sameBits(static_cast<VolatOutputParams&>(out), plain));
    QCOMPARE(out.volat, 25.0);
    QCOMPARE(out.d1, d_1(plainIn, 0.25));
    QCOMPARE(out.d2, out.d1 - 0.125);
    QCOMPARE(out.intrinsicCall, 10.0);
    QCOMPARE(out.intrinsicPut, 0.0);
    QCOMPARE(out.timeCall, plain.priceCall - 10);
    QCOMPARE(out.timePut, plain.pricePut);

    in.volat = -1;
    in.secondsToExpiry = -1;
    in.sqrtTime = 0.5;
    calcVolatParamsEx(out, in);
    QCOMPARE(out.volat, volatByCurve(plainIn));

    in.volat = 0;
    calcVolatParamsEx(out, in);
    QVERIFY(out.timeCall == 0 && out.d1 == infinite && out.d2 == infinite);
    in.strike = 100;
    calcVolatParamsEx(out, in);
    QVERIFY(out.priceCall == 0 && out.d1 == 0 && out.d2 == 0);
}

void TestVolat::extendedInvalid_data()
{
    QTest::addColumn<double>("strike");
    QTest::addColumn<double>("volat");
    QTest::addColumn<double>("seconds");
    QTest::newRow("no strike") << 0.0 << 20.0 << 86400.0;
    QTest::newRow("expired") << 100.0 << 20.0 << 0.0;
    QTest::newRow("NaN volatility") << 100.0 << notANumber << 86400.0;
    QTest::newRow("negative curve") << 100.0 << -1.0 << 86400.0;
}

void TestVolat::extendedInvalid()
{
    QFETCH(double, strike);
    QFETCH(double, volat);
    QFETCH(double, seconds);
    VolatInputParamsEx in;
    static_cast<VolatInputParams&>(in) = option(strike, 100, 1);
    in.curveVolatMax = in.curveVolatMin = -3;
    in.volat = volat;
    in.secondsToExpiry = seconds;
    VolatOutputParamsEx out;
    static_cast<VolatOutputParams&>(out) = marked();
    out.volat = out.d1 = out.d2 = out.intrinsicCall = out.timePut = -18;
    const VolatOutputParamsEx before = out;
    calcVolatParamsEx(out, in);
    QVERIFY(sameBits(out, before));
}

void TestVolat::newton()
{
    int slopes = 0;
    const auto square = [](double x) { return x * x; };
    const auto slope = [&slopes](double x) {
        ++slopes;
        return 2 * x;
    };
    bool ok = false;
    const double root = numericNewtonRaffson(square, slope, 2.0, 1.0, 0.0, 10.0, &ok, 1e-12, 100);
    QVERIFY(ok && std::fabs(root - std::sqrt(2.0)) < 1e-12);
    QCOMPARE(numericNewtonRaffson(square, slope, 2.0, 1.0, 0.0, 10.0, nullptr, 1e-12, 100), root);

    slopes = 0; // a start that meets the target needs no derivative, and no step is allowed
    QCOMPARE(numericNewtonRaffson(square, slope, 9.0, 3.0, 3.0, 3.0, &ok, 0.0, 0), 3.0);
    QVERIFY(ok && slopes == 0);

    const auto fails = [&](double target, double start, double lo, double hi, int steps) {
        ok = true;
        const double last =
            numericNewtonRaffson(square, slope, target, start, lo, hi, &ok, 1e-12, steps);
        return ok ? notANumber : last;
    };
    QCOMPARE(fails(2, 11, 0, 10, 100), 0.0);               // the start is outside
    QCOMPARE(fails(2, notANumber, 0, 10, 100), 0.0);       // or nowhere
    QCOMPARE(fails(2, 0, 0, 10, 100), 0.0);                // no slope there
    QCOMPARE(fails(2, 1e-13, 0, 10, 100), 1e-13);          // nor here
    QCOMPARE(fails(2, 0.1, 0, 10, 100), 0.1 + 1.99 / 0.2); // a step beyond the range
    QCOMPARE(fails(2, 1, 0, 10, 1), 1.5);                  // out of steps
    QCOMPARE(fails(2, 1, 0, 10, 0), 1.0);
    QCOMPARE(slopes, 4); // none at 11 and NaN, one each but in the last, which may do no step
}

void TestVolat::functionObjects()
{
    const VolatInputParams in = option(95, 100, 0.25);
    VolatOutputParams out;
    calcVolatParamsNorm(out, in, 0.2);
    OptVolatPrice call(in, false);
    OptVolatPrice put(in, true);
    OptVolatVega slope(in, true);
    QCOMPARE(call(-1), 0.0); // what the cache starts at
    for (int i = 0; i < 2; ++i) {
        QCOMPARE(call(0.2), out.priceCall);
        QCOMPARE(put(0.2), out.pricePut);
        QCOMPARE(slope(0.2), out.vega);
        // No answer depends on the one before.
        QCOMPARE(call(0), 0.0);
        QCOMPARE(slope(-0.2), 0.0);
    }
}

// Prices of the exact model over the whole space: either the model meets the price at the
// volatility found, or the price lies so near its intrinsic value that volatility has no say in it.
void TestVolat::roundTrip()
{
    VolatSearch search;
    int found = 0;
    int none = 0;
    for (double years : {1.0 / 8760, 1.0 / 365, 7.0 / 365, 0.25, 1.0, 3.0})
        for (int m = 0; m <= 30; ++m)
            for (double volat = 1; volat <= 300; volat *= 1.35)
                for (bool put : {false, true}) {
                    const double s = 100 * std::pow(2.0, (m - 15) / 15.0);
                    const VolatInputParams in = option(100, s, years);
                    const auto prices = theorPriceCallPut(in, volat / 100);
                    const double price = put ? prices.second : prices.first;
                    const double intrinsic = std::max(0.0, put ? 100 - s : s - 100);
                    const ImpliedVolat got = impliedVolat(in, put, price, search);
                    const QByteArray where = QString("S %1 T %2 volat %3 put %4: %5, reason %6")
                                                 .arg(s)
                                                 .arg(years)
                                                 .arg(volat)
                                                 .arg(put)
                                                 .arg(got.volat)
                                                 .arg(got.reason)
                                                 .toLatin1();
                    if (price <= intrinsic + search.priceTol) {
                        QVERIFY2(got.reason == ImpliedVolat::BelowIntrinsic, where);
                        QCOMPARE(got.volat, -1.0);
                        ++none;
                        continue;
                    }
                    QVERIFY2(got.reason == ImpliedVolat::Found, where);
                    const auto again = theorPriceCallPut(in, got.volat / 100);
                    const double off = std::fabs((put ? again.second : again.first) - price);
                    // Known to a hair where vega is not nearly 0, and repriced closely everywhere.
                    QVERIFY2(off <= 3e-8, where);
                    VolatOutputParams out;
                    calcVolatParams(out, in, volat);
                    if (out.vega > 1e-4)
                        QVERIFY2(std::fabs(got.volat - volat) <= 1e-3 + 1e-8 / out.vega, where);
                    ++found;
                }
    qInfo("%d volatilities found, %d prices without one", found, none);
    QVERIFY(found > 3000 && none > 3000);
}

void TestVolat::searchIsTheSpelledOutOne()
{
    for (quint32 seed : testSeeds(3)) {
        SeedScope scope(seed);
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> unit(0, 1);
        for (int i = 0; i < 5000; ++i) {
            const VolatInputParams in =
                option(100 * unit(random) * 2, 100, 3 * std::pow(unit(random), 4));
            const bool put = random() % 2;
            VolatSearch search;
            const double starts[] = {0, 20, 300, -5, 2000};
            search.start = starts[random() % 5];
            search.lo = random() % 8 ? 0.01 : -50;
            search.hi = random() % 8 ? 1000 : 5;
            search.priceTol = random() % 8 ? 1e-8 : 0;
            search.volTol = random() % 8 ? 1e-6 : 0;
            const double price = 120 * std::pow(unit(random), 2) - (random() % 10 ? 0 : 10);
            const double got = volatByTheorPrice(in, put, price, search.start, search.lo, search.hi,
                                                 search.priceTol, search.volTol);
            QVERIFY(sameBits(got, naiveImplied(in, put, price, search)));
            const ImpliedVolat reasoned = impliedVolat(in, put, price, search);
            if (reasoned.reason == ImpliedVolat::Found)
                QVERIFY(sameBits(reasoned.volat, got));
            else
                QCOMPARE(reasoned.volat, -1.0);
        }
    }
}

void TestVolat::failuresOfTheSearch_data()
{
    QTest::addColumn<double>("start");
    QTest::addColumn<double>("lo");
    QTest::addColumn<double>("hi");
    QTest::addColumn<double>("priceTol");
    QTest::addColumn<double>("volTol");
    QTest::addColumn<double>("wanted"); // percent; the option was priced at 20
    const auto row = [](const char* name, double start, double lo, double hi, double priceTol,
                        double volTol, double wanted) {
        QTest::newRow(name) << start << lo << hi << priceTol << volTol << wanted;
    };
    row("plain", 50, 0.01, 1000, 1e-9, 1e-6, 20);
    row("start 0 is 50", 0, 0.01, 1000, 1e-9, 1e-6, 20);
    row("start outside: bisection", 2000, 0.01, 1000, 1e-9, 1e-6, 20);
    row("and no tolerance of the price", 2000, 0.01, 1000, 0, 1e-6, -1);
    row("and a negative one", 2000, 0.01, 1000, -1, 1e-6, -1);
    row("and no tolerance of the volatility", 2000, 0.01, 1000, 1e-9, 0, -1);
    row("and an empty range", 50, 1000, 0.01, 1e-9, 1e-6, -1);
    row("ends by the width", 2000, 0.01, 1000, 1e-300, 1e-6, 20);
    row("beyond the range: its end", 2, 1, 5, 1e-9, 1e-6, 5);
}

void TestVolat::failuresOfTheSearch()
{
    QFETCH(double, start);
    QFETCH(double, lo);
    QFETCH(double, hi);
    QFETCH(double, priceTol);
    QFETCH(double, volTol);
    QFETCH(double, wanted);
    const VolatInputParams in = option(105, 100, 0.25);
    const double price = theorPriceCallPut(in, 0.2).second;
    const double got = volatByTheorPrice(in, true, price, start, lo, hi, priceTol, volTol);
    QVERIFY2(std::fabs(got - wanted) < 2e-6, qPrintable(QString::number(got, 'g', 17)));
    if (start == 0)
        QCOMPARE(got, volatByTheorPrice(in, true, price, 50, lo, hi, priceTol, volTol));
    // Halving a range that starts at 0 for a hundred rounds does not make it this narrow.
    QCOMPARE(volatByTheorPrice(in, true, -1, 2000, 0, 1000, 1e-9, 1e-300), -1.0);
}

void TestVolat::reasons_data()
{
    QTest::addColumn<double>("strike");
    QTest::addColumn<bool>("put");
    QTest::addColumn<double>("price");
    QTest::addColumn<double>("start");
    QTest::addColumn<double>("lo");
    QTest::addColumn<double>("hi");
    QTest::addColumn<double>("volTol");
    QTest::addColumn<int>("reason");
    const auto row = [](const char* name, double strike, bool put, double price, int reason,
                        double start = 0, double lo = 0.01, double hi = 1000,
                        double volTol = 1e-8) {
        QTest::newRow(name) << strike << put << price << start << lo << hi << volTol << reason;
    };
    using I = ImpliedVolat;
    // The underlying is 100, a quarter of a year to go.
    row("call", 90, false, 11, I::Found);
    row("put", 90, true, 1, I::Found);
    row("call at its intrinsic value", 90, false, 10, I::BelowIntrinsic);
    row("call below it", 90, false, 9.5, I::BelowIntrinsic);
    row("put below it", 110, true, 9.5, I::BelowIntrinsic);
    row("worthless", 110, false, 0, I::BelowIntrinsic);
    row("negative price", 110, false, -1, I::BelowIntrinsic);
    row("call as dear as the underlying", 90, false, 100, I::AboveBound);
    row("put as dear as its strike", 90, true, 90, I::AboveBound);
    row("put just below it", 90, true, 85, I::Found);
    row("put too near it", 90, true, 89.9, I::AboveRange);
    row("calmer than the range", 100, false, 0.1, I::BelowRange, 20, 10);
    row("wilder than the range", 100, false, 30, I::AboveRange, 20, 10, 50);
    row("found by bisection", 100, false, 4, I::Found, 2000);
    row("bisection not allowed", 100, false, 4, I::NoConvergence, 2000, 0.01, 1000, 0);
    row("empty range", 100, false, 4, I::NoConvergence, 20, 50, 10);
    row("no strike", 0, false, 4, I::InvalidInput);
    row("no price", 100, false, notANumber, I::InvalidInput);
    row("endless range", 100, false, 4, I::InvalidInput, 20, 1, infinite);
}

void TestVolat::reasons()
{
    QFETCH(double, strike);
    QFETCH(bool, put);
    QFETCH(double, price);
    QFETCH(int, reason);
    VolatSearch search;
    QFETCH(double, start);
    QFETCH(double, lo);
    QFETCH(double, hi);
    QFETCH(double, volTol);
    search.start = start;
    search.lo = lo;
    search.hi = hi;
    search.volTol = volTol;
    const ImpliedVolat got = impliedVolat(option(strike, 100, 0.25), put, price, search);
    QCOMPARE(int(got.reason), reason);
    QCOMPARE(got.volat > 0, reason == ImpliedVolat::Found);
}

void TestVolat::batchesGiveTheSameBits()
{
    for (quint32 seed : testSeeds(3)) {
        SeedScope scope(seed);
        std::mt19937 random(seed);
        std::uniform_real_distribution<double> unit(0, 1);
        constexpr int count = 1003;
        VolatInputParams market = {7, 100, 0.4, 20, 8, 3, -6, 2, 0, -5, 30};
        std::vector<double> strikes, volats, prices, starts;
        const std::unique_ptr<bool[]> puts(new bool[count]);
        for (int i = 0; i < count; ++i) {
            const double odd[] = {0, -1, notANumber, infinite};
            const bool isOdd = random() % 16 == 0;
            strikes.push_back(isOdd ? odd[random() % 4] : 50 + 100 * unit(random));
            volats.push_back(random() % 16 ? 100 * unit(random) : odd[random() % 4]);
            prices.push_back(60 * unit(random) - 2);
            starts.push_back(random() % 4 ? 100 * unit(random) : 0);
            puts[i] = random() % 2;
        }
        std::vector<VolatOutputParams> percent(count, marked()), norm(count, marked());
        std::vector<double> found(count), foundFrom(starts);
        std::vector<ImpliedVolat> reasoned(count);
        const VolatSearch search;
        calcVolatParamsBatch(percent.data(), market, strikes.data(), volats.data(), count);
        calcVolatParamsNormBatch(norm.data(), market, strikes.data(), volats.data(), count);
        volatByTheorPriceBatch(found.data(), market, strikes.data(), puts.get(), prices.data(),
                               nullptr, search, count);
        volatByTheorPriceBatch(foundFrom.data(), market, strikes.data(), puts.get(), prices.data(),
                               foundFrom.data(), search, count);
        impliedVolatBatch(reasoned.data(), market, strikes.data(), puts.get(), prices.data(),
                          starts.data(), search, count);
        for (int i = 0; i < count; ++i) {
            market.strike = strikes[i];
            VolatOutputParams one = marked();
            calcVolatParams(one, market, volats[i]);
            QVERIFY(sameBits(one, percent[i]));
            one = marked();
            calcVolatParamsNorm(one, market, volats[i]);
            QVERIFY(sameBits(one, norm[i]));
            const auto implied = [&](double start) {
                return volatByTheorPrice(market, puts[i], prices[i], start, search.lo, search.hi,
                                         search.priceTol, search.volTol);
            };
            QVERIFY(sameBits(implied(0), found[i]));
            QVERIFY(sameBits(implied(starts[i]), foundFrom[i]));
            VolatSearch from;
            from.start = starts[i];
            const ImpliedVolat reason = impliedVolat(market, puts[i], prices[i], from);
            QVERIFY(reason.reason == reasoned[i].reason);
            QVERIFY(sameBits(reason.volat, reasoned[i].volat));
        }
        calcVolatParamsBatch(nullptr, market, nullptr, nullptr, 0);
        impliedVolatBatch(nullptr, market, nullptr, nullptr, nullptr, nullptr, search, -1);
    }
}

QTEST_GUILESS_MAIN(TestVolat)

#include "tst_volat.moc"
