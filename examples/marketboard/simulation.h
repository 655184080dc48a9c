// SPDX-License-Identifier: MIT
#pragma once

#include "session.h"

#include <vector>

/// A made-up trading day: one future whose price drifts, and calls and puts on it for two expiries
/// and fifty strikes, quoted each minute around their Black-76 prices under a volatility smile.
/// Quotes come and go on either side. Every run plays the same day: chance comes from a generator
/// of this class, and whatever decides on it is whole numbers.
class Simulation : public Session
{
public:
    static constexpr int Minutes = 23 * 60; ///< the day has a pause from 22:00 to 23:00
    static constexpr int StrikeCount = 50;

    Simulation();

    QString title() const override;
    QString underlying() const override;
    QVector<Instrument> instruments() override;
    Event next() override;
    double progress() const override;

private:
    struct Contract
    {
        int expiry;        ///< YYYYMMDD
        double yearsToEnd; ///< from the first minute of the day
        char right;
        int strike; ///< whole points
        bool bidGone = false;
        bool askGone = false;
    };

    /// SplitMix64: small, and the same everywhere, which the standard's distributions are not.
    class Chance
    {
    public:
        quint64 next();
        /// Whether an event of that many in ten thousand happens.
        bool happens(int inTenThousand) { return below(10'000) < inTenThousand; }
        /// A whole number in 0..bound-1.
        int below(int bound) { return int(next() % quint64(bound)); }

    private:
        quint64 state = 20'200'106;
    };

    int timeMs() const;
    void moveFuture();
    void quote(Contract& contract);

    Chance chance;
    std::vector<Contract> contracts;
    int minute = -1;
    size_t nextContract; ///< of the running minute
    int futureTicks;     ///< the price of the future in quarters of a point
    int smileLevel = 0;  ///< shift of all volatilities, in hundredths of a percent
};
