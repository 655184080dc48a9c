// SPDX-License-Identifier: MIT
#include "pricing/volat.h"
#include "support/seed.h"

#include <QDate>
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

} // namespace

class TestVolat : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void distribution()
    {
        for (int i = -12000; i <= 12000; ++i) {
            const double x = i / 1000.0;
            QVERIFY2(std::fabs(norm_cdf(x) - exactCdf(x)) < cdfError, QByteArray::number(x));
            QCOMPARE(norm_pdf(x), std::exp(-0.5 * x * x) * 0.3989422804014327);
        }
        for (const double far : {10.5, infinite})
            QVERIFY(norm_cdf(far) == 1 && norm_cdf(-far) == 0);
        QVERIFY(norm_cdf(-10) > 0);
        QVERIFY(std::isnan(norm_cdf(notANumber)));
        // 0 belongs to the lower half; the halves do not quite meet.
        QVERIFY(norm_cdf(0) == norm_cdf(-0.0) && norm_cdf(0) != 0.5);
        QCOMPARE(norm_cdf(2.5), 1 - norm_cdf(-2.5));
    }

    void pricesNearExact()
    {
        const double sigmas[] = {0.01, 0.1, 0.3, 1.0, 3.0};
        const double times[] = {1.0 / 8760, 1.0 / 52, 0.25, 1, 3};
        for (double underlying : {50.0, 80.0, 97.0, 100.0, 103.0, 125.0, 200.0}) {
            for (int i = 0; i < 25; ++i) {
                const double sigma = sigmas[i % 5];
                const VolatInputParams in = option(100, underlying, times[i / 5]);
                const auto [call, put] = theorPriceCallPut(in, sigma);
                const double bound = cdfError * (in.strike + underlying);
                QVERIFY(std::fabs(call - exactCall(100, underlying, times[i / 5], sigma)) < bound);
                // Parity holds to rounding, whatever the distribution function is off by.
                QVERIFY(std::fabs(call - put - (underlying - in.strike)) < 1e-13 * 100);
                QVERIFY(call > -bound && call < underlying + bound);
                for (const bool isPut : {false, true})
                    QCOMPARE(theorPriceForOutOfTheMoney(100, underlying, isPut, in.sqrtTime, sigma),
                             isPut ? put : call);
                const double sum = sigma * in.sqrtTime;
                if (underlying == 100)
                    QCOMPARE(theorPriceForInTheMoney(sigma, in.sqrtTime, 100),
                             100 * norm_cdf(sum / 2) - 100 * norm_cdf(-sum / 2));
            }
        }
    }

    void greeksNearDifferences()
    {
        const std::tuple<double, double, double> rows[] = {
            {90, 0.25, 0.5}, {100, 0.2, 0.25}, {120, 0.3, 1}, {101, 0.4, 0.02}, {150, 2, 3}};
        for (const auto& [strike, sigma, years] : rows) {
            const double s = 100;
            const auto call = [k = strike](double underlying, double time, double volatility) {
                return exactCall(k, underlying, time, volatility);
            };
            const double up = call(s + 0.01, years, sigma);
            const double down = call(s - 0.01, years, sigma);
            const double vegaHere =
                (call(s, years, sigma + 1e-5) - call(s, years, sigma - 1e-5)) / 2e-5;
            const double day = 1.0 / 365;
            const double thetaHere =
                (call(s, years - day / 100, sigma) - call(s, years + day / 100, sigma)) / 2 * 100;
            VolatOutputParams out = marked();
            calcVolatParamsNorm(out, option(strike, s, years), sigma);
            const std::pair<double, double> greeks[] = {
                {out.deltaCall, (up - down) / 0.02},
                {out.deltaPut, (up - down) / 0.02 - 1},
                {out.gamma, (up - 2 * call(s, years, sigma) + down) / 1e-4},
                {out.vega, vegaHere},
                {out.theta, thetaHere}};
            for (const auto& [got, wanted] : greeks)
                QVERIFY(std::fabs(got - wanted) <= 1e-5 * std::fabs(wanted) + 2 * cdfError);
            QVERIFY(out.theta < 0);
        }
    }

    void whatIsWritten()
    {
        const struct
        {
            double strike, underlying, years, volat;
            bool pricesWritten;
            double call, put;
        } rows[] = {
            {0, 100, 1, 20, false, 0, 0},
            {-1, 100, 1, 20, false, 0, 0},
            {100, 0, 1, 20, false, 0, 0},
            {100, 100, 0, 20, false, 0, 0},
            {notANumber, 100, 1, 20, false, 0, 0},
            {0, 100, 1, 0, false, 0, 0},
            {100, 110, 1, 0, true, 10, 0}, // stands still: the intrinsic values
            {110, 100, 1, 0, true, 0, 10},
            {100, 100, 1, 0, true, 0, 0},
            {100, 110, 1, notANumber, true, 0, 0},
            {100, 110, 1, -1, true, 0, 0}, // by a curve that is negative
        };
        for (const auto& row : rows) {
            VolatOutputParams wanted = marked();
            if (row.pricesWritten) {
                wanted.priceCall = row.call;
                wanted.pricePut = row.put;
            }
            VolatInputParamsEx in;
            static_cast<VolatInputParams&>(in) = option(row.strike, row.underlying, row.years);
            in.curveLevel = -5;
            in.curveVolatMin = -10;
            in.curveVolatMax = 10;
            VolatOutputParams out = marked();
            calcVolatParams(out, in, row.volat);
            QVERIFY(sameBits(out, wanted));
            out = marked();
            calcVolatParamsNorm(out, in,
                                row.volat <= 0 || !row.pricesWritten ? row.volat / 100 : -1);
            QVERIFY(sameBits(out, marked()));
            // The extended outputs are written where the volatility is one.
            in.volat = row.volat;
            in.secondsToExpiry = row.years * 365 * 86400;
            VolatOutputParamsEx extended;
            extended.intrinsicCall = -1;
            calcVolatParamsEx(extended, in);
            const bool isWritten = row.pricesWritten && row.volat == 0;
            QCOMPARE(extended.intrinsicCall, isWritten ? row.call : -1.0);
            QCOMPARE(extended.timePut, 0.0);
        }
    }

    void curve()
    {
        VolatInputParamsEx in;
        static_cast<VolatInputParams&>(in) = option(100 * std::exp(0.3), 100, 1);
        in.volat = -1;
        in.curveLevel = 20;
        in.curveBell = 8;
        in.curveSteepness = 3;
        in.curveSkew = -6;
        in.curveSkewScale = 2;
        in.curveShift = 0.1;
        in.curveVolatMax = 90;
        const double wanted = 20 + 8 * (1 - std::exp(-3 * 0.04)) - 3 * std::atan(0.4);
        QCOMPARE(volatByCurve(in), wanted);
        VolatOutputParamsEx out;
        calcVolatParamsEx(out, in);
        VolatOutputParams same;
        calcVolatParams(same, in, wanted);
        QCOMPARE(out.volat, wanted);
        QCOMPARE(out.d1, d_1(in, wanted / 100));
        QCOMPARE(out.timeCall, same.priceCall);
        QCOMPARE(out.intrinsicPut, in.strike - in.underlying);
        in.curveSkewScale = 0; // its limit
        QCOMPARE(volatByCurve(in), 20 + 8 * (1 - std::exp(-3 * 0.04)) - 6 * 0.2);
        in.curveVolatMax = 10;
        QCOMPARE(volatByCurve(in), 10.0);
        in.curveVolatMin = 12; // wins
        QCOMPARE(volatByCurve(in), 12.0);
    }

    // Prices of the exact model over the whole space: either the model meets the price at the
    // volatility found, or the price lies so near its intrinsic value that volatility has no say.
    void roundTrip()
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
                        const QByteArray where = QByteArray::number(s) + ' ' +
                                                 QByteArray::number(years) + ' ' +
                                                 QByteArray::number(put ? -volat : volat) + ": " +
                                                 QByteArray::number(got.volat);
                        if (price <= intrinsic + search.priceTol) {
                            QVERIFY2(got.reason == ImpliedVolat::BelowIntrinsic, where);
                            QCOMPARE(got.volat, -1.0);
                            ++none;
                            continue;
                        }
                        QVERIFY2(got.reason == ImpliedVolat::Found, where);
                        const auto again = theorPriceCallPut(in, got.volat / 100);
                        const double off = std::fabs((put ? again.second : again.first) - price);
                        // Known to a hair where vega is not nearly 0, and repriced closely
                        // everywhere.
                        QVERIFY2(off <= 3e-8, where);
                        VolatOutputParams out;
                        calcVolatParams(out, in, volat);
                        if (out.vega > 1e-4)
                            QVERIFY2(std::fabs(got.volat - volat) <= 1e-3 + 1e-8 / out.vega, where);
                        ++found;
                    }
        QVERIFY(found > 3000 && none > 3000);
    }

    // 2020-01-06, 10:00 UTC: options on the E-mini S&P 500 future, best bid and ask.
    // Source: the sample data of QuantConnect/Lean, Apache-2.0.
    void smilesOfTheMarket()
    {
        const struct
        {
            QDate expiry;
            double future, strike, bid, ask;
            double wanted; // percent, to 0.2
        } rows[] = {
            {QDate(2020, 3, 20), 3213.625, 3020, 35, 35.5, 18.7},
            {QDate(2020, 3, 20), 3213.625, 3170, 66.75, 67.5, 15.2},
            {QDate(2020, 3, 20), 3213.625, 3410, 6.5, 7, 10.1},
            {QDate(2020, 6, 19), 3213.375, 2900, 51.75, 52.5, 19.9},
            {QDate(2020, 6, 19), 3213.375, 3200, 120.75, 121.75, 14.9},
            {QDate(2020, 6, 19), 3213.375, 3440, 23.75, 24.25, 11.1},
        };
        for (const auto& row : rows) {
            VolatInputParams in;
            in.strike = row.strike;
            in.underlying = row.future;
            in.sqrtTime = sqrtTimeToExpiry(double(QDate(2020, 1, 6).daysTo(row.expiry)) * 86400);
            const bool put = row.strike < row.future; // the one that is out of the money
            const double got = impliedVolat(in, put, (row.bid + row.ask) / 2).volat;
            QVERIFY2(std::fabs(got - row.wanted) <= 0.2, QByteArray::number(got));
        }
    }

    void failuresOfTheSearch()
    {
        const VolatInputParams in = option(105, 100, 0.25);
        const double price = theorPriceCallPut(in, 0.2).second;
        const auto found = [&](double start, double lo, double hi, double priceTol, double volTol) {
            return volatByTheorPrice(in, true, price, start, lo, hi, priceTol, volTol);
        };
        QVERIFY(std::fabs(found(50, 0.01, 1000, 1e-9, 1e-6) - 20) < 2e-6);
        QVERIFY(found(0, 0.01, 1000, 1e-9, 1e-6) == found(50, 0.01, 1000, 1e-9, 1e-6));
        // A start outside is for bisection, which needs both tolerances and a range.
        QVERIFY(std::fabs(found(2000, 0.01, 1000, 1e-9, 1e-6) - 20) < 2e-6);
        QVERIFY(std::fabs(found(2000, 0.01, 1000, 1e-300, 1e-6) - 20) < 2e-6); // by the width
        QCOMPARE(found(2000, 0.01, 1000, 0, 1e-6), -1.0);
        QCOMPARE(found(2000, 0.01, 1000, -1, 1e-6), -1.0);
        QVERIFY(std::fabs(found(2, 1, 5, 1e-9, 1e-6) - 5) < 2e-6); // the end of the range
        // Halving a range that starts at 0 for a hundred rounds does not make it this narrow.
        QCOMPARE(volatByTheorPrice(in, true, -1, 2000, 0, 1000, 1e-9, 1e-300), -1.0);
    }

    void reasons()
    {
        using I = ImpliedVolat;
        // The underlying is 100, a quarter of a year to go.
        const struct
        {
            double strike;
            bool put;
            double price;
            int reason;
            double start = 0, lo = 0.01, hi = 1000, volTol = 1e-8;
        } rows[] = {
            {90, false, 11, I::Found},
            {90, true, 1, I::Found},
            {90, false, 10, I::BelowIntrinsic},
            {90, false, 9.5, I::BelowIntrinsic},
            {110, true, 9.5, I::BelowIntrinsic},
            {110, false, 0, I::BelowIntrinsic},
            {110, false, -1, I::BelowIntrinsic},
            {90, false, 100, I::AboveBound}, // as dear as the underlying
            {90, true, 90, I::AboveBound},   // as its strike
            {90, true, 85, I::Found},
            {90, true, 89.9, I::AboveRange},
            {100, false, 0.1, I::BelowRange, 20, 10},
            {100, false, 30, I::AboveRange, 20, 10, 50},
            {100, false, 4, I::Found, 2000}, // by bisection
            {100, false, 4, I::NoConvergence, 2000, 0.01, 1000, 0},
            {100, false, 4, I::NoConvergence, 20, 50, 10},
            {0, false, 4, I::InvalidInput},
            {100, false, notANumber, I::InvalidInput},
            {100, false, 4, I::InvalidInput, 20, 1, infinite},
        };
        for (const auto& row : rows) {
            VolatSearch search;
            search.start = row.start;
            search.lo = row.lo;
            search.hi = row.hi;
            search.volTol = row.volTol;
            const I got = impliedVolat(option(row.strike, 100, 0.25), row.put, row.price, search);
            QVERIFY2(int(got.reason) == row.reason, QByteArray::number(row.price));
            QCOMPARE(got.volat > 0, row.reason == I::Found);
        }
    }

    void batchesGiveTheSameBits()
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
            volatByTheorPriceBatch(foundFrom.data(), market, strikes.data(), puts.get(),
                                   prices.data(), foundFrom.data(), search, count);
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
                if (one.gamma != -13) { // from the single functions
                    const double sigma = volats[i];
                    const double d1 = d_1(market, sigma);
                    const double d2 = d_2(market, sigma, d1);
                    const auto [call, put] = theorPriceCallPut(market, norm_cdf(d1), norm_cdf(d2));
                    QCOMPARE(gamma(market, sigma, norm_pdf(d1)), one.gamma);
                    QCOMPARE(vega(market, norm_pdf(d1)), one.vega);
                    QCOMPARE(theta(market, sigma, norm_pdf(d1)), one.theta);
                    QVERIFY(sameBits(call, one.priceCall) && sameBits(put, one.pricePut));
                    OptVolatPrice price(market, puts[i]);
                    OptVolatVega slope(market, puts[i]);
                    QVERIFY(sameBits(price(sigma), puts[i] ? one.pricePut : one.priceCall));
                    QCOMPARE(slope(sigma), one.vega);
                }
                const auto implied = [&](double start) {
                    return volatByTheorPrice(market, puts[i], prices[i], start, search.lo,
                                             search.hi, search.priceTol, search.volTol);
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
};

QTEST_GUILESS_MAIN(TestVolat)

#include "tst_volat.moc"
