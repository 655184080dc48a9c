// SPDX-License-Identifier: MIT
#include "simulation.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int MinuteMs = 60'000;
constexpr double MinutesPerYear = 365.0 * 24 * 60;
constexpr int FrontMonth = 202003;
constexpr int FirstStrike = 2750;
constexpr int StrikeStep = 20;

double normalCdf(double x)
{
    return 0.5 * std::erfc(-x / std::sqrt(2.0));
}

/// Black (1976), without discounting.
double black76(char right, double future, double strike, double years, double volatility)
{
    const double deviation = volatility * std::sqrt(years);
    const double d1 = std::log(future / strike) / deviation + deviation / 2;
    const double d2 = d1 - deviation;
    if (right == 'C')
        return future * normalCdf(d1) - strike * normalCdf(d2);
    return strike * normalCdf(-d2) - future * normalCdf(-d1);
}

/// Volatility by moneyness: steep below the future, flat above it, as index options have it.
double smile(double future, double strike, double years)
{
    const double moneyness = std::log(strike / future) / std::sqrt(years);
    return std::max(0.09, 0.142 - 0.29 * moneyness + 0.35 * moneyness * moneyness);
}

decimal hundredths(qint64 count)
{
    return decimal::fromMantissa(count, 2);
}

/// The step between prices of options in hundredths: 0.05 below 5 points, else 0.25.
qint64 tickAt(double points)
{
    return points < 5 ? 5 : 25;
}

qint64 roundDown(double points)
{
    const qint64 tick = tickAt(points);
    return qint64(std::floor(points * 100 / double(tick))) * tick;
}

qint64 roundUp(double points)
{
    const qint64 tick = tickAt(points);
    return qint64(std::ceil(points * 100 / double(tick))) * tick;
}

} // namespace

quint64 Simulation::Chance::next()
{
    quint64 z = state += 0x9E3779B97F4A7C15u;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
}

Simulation::Simulation()
    : futureTicks(4 * 3235)
{
    const struct
    {
        int date;
        int days;
    } expiries[] = {{20200320, 74}, {20200619, 165}};
    for (const auto& expiry : expiries) {
        for (const char right : {'C', 'P'}) {
            for (int i = 0; i < StrikeCount; ++i) {
                Contract contract{};
                contract.expiry = expiry.date;
                contract.yearsToEnd = expiry.days / 365.0;
                contract.right = right;
                contract.strike = FirstStrike + i * StrikeStep;
                contracts.push_back(contract);
            }
        }
    }
    nextContract = contracts.size();
}

QString Simulation::title() const
{
    return QStringLiteral("Simulated options on one index future");
}

QString Simulation::underlying() const
{
    return QStringLiteral("sim,IDX,future");
}

QVector<Instrument> Simulation::instruments()
{
    const auto text = [](const char* latin1) { return QString::fromLatin1(latin1); };
    const Instrument future{
        text("sim"), text("IDX"), text("future"), text("Simulated Index Future"),
        text("USD"), decimal(50), hundredths(25), decimal(1)};
    Instrument option = future;
    option.type = text("futureoption");
    option.description = text("Option on the Simulated Index Future");
    option.tick = hundredths(5);
    return {future, option};
}

Session::Event Simulation::next()
{
    constexpr int quietInTenThousand = 950; // contracts that have nothing to say in a minute
    for (;;) {
        if (nextContract == contracts.size()) {
            if (minute + 1 >= Minutes)
                return Event::End;
            ++minute;
            nextContract = 0;
            moveFuture();
            return Event::Future;
        }
        Contract& contract = contracts[nextContract++];
        if (chance.happens(quietInTenThousand))
            continue;
        quote(contract);
        return Event::Option;
    }
}

int Simulation::timeMs() const
{
    constexpr int pauseFrom = 22 * 60;
    return (minute < pauseFrom ? minute : minute + 60) * MinuteMs;
}

void Simulation::moveFuture()
{
    // Four dice of five faces: from -8 to 8 quarters, mostly small, and a slow rise.
    int move = chance.below(5) + chance.below(5) + chance.below(5) + chance.below(5) - 8;
    if (minute % 30 == 0)
        ++move;
    futureTicks += move;
    smileLevel = std::clamp(smileLevel + chance.below(3) - 1, -150, 150);

    futureQuote.timeMs = timeMs();
    futureQuote.contract = FrontMonth;
    const qint64 bid = qint64(futureTicks) * 25;
    futureQuote.bid = {hundredths(bid), 1 + chance.below(120)};
    futureQuote.ask = {hundredths(bid + 25), 1 + chance.below(120)};
}

void Simulation::quote(Contract& contract)
{
    // A side goes away for a while, about seventeen minutes, and comes back.
    constexpr int goneInTenThousand = 30;
    constexpr int backInTenThousand = 600;
    const auto toggle = [this](bool& gone) {
        if (chance.happens(gone ? backInTenThousand : goneInTenThousand))
            gone = !gone;
    };
    toggle(contract.bidGone);
    toggle(contract.askGone);

    const double future = futureTicks * 0.25 + 0.125;
    const double strike = contract.strike;
    const double years = contract.yearsToEnd - minute / MinutesPerYear;
    const double volatility = smile(future, strike, years) + smileLevel * 0.0001;
    const double fair = black76(contract.right, future, strike, years, volatility);
    // Makers stand further apart where an option costs more, and by a bit of chance.
    const double half = 0.02 + fair * (30 + chance.below(60)) * 0.0001;

    const qint64 bid = roundDown(fair - half);
    const qint64 ask = std::max(roundUp(fair + half), bid + 5);
    optionQuote.timeMs = timeMs();
    optionQuote.expiry = contract.expiry;
    optionQuote.right = contract.right;
    optionQuote.strike = hundredths(contract.strike * 100);
    optionQuote.bid = Side();
    optionQuote.ask = Side();
    if (!contract.bidGone && bid > 0)
        optionQuote.bid = {hundredths(bid), 1 + chance.below(60)};
    if (!contract.askGone)
        optionQuote.ask = {hundredths(ask), 1 + chance.below(60)};
}

double Simulation::progress() const
{
    return double(minute + 1) / Minutes;
}
