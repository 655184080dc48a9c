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

} // namespace

class TestVolat : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void distribution();
    void pricesNearExact_data();
    void pricesNearExact();
    void greeksNearDifferences_data();
    void greeksNearDifferences();
    void whatIsWritten_data();
    void whatIsWritten();
    void roundTrip();
    void failuresOfTheSearch_data();
    void failuresOfTheSearch();
    void reasons_data();
    void reasons();
    void batchesGiveTheSameBits();
};

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
