// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

/// Everything that the price of one option depends on, as plain values: what a job may take along.
///
/// The model is that of pricing/volat.h: Black-76 on the future at an interest rate of zero.
struct OptionInput
{
    double strike = 0;
    bool put = false;
    double mid = 0;     ///< between the option's bid and ask; 0 for none
    double future = 0;  ///< between the future's bid and ask; 0 for none
    double seconds = 0; ///< to the expiry
};

/// The implied volatility of an option and its greeks at that volatility.
struct Greeks
{
    double volatility; ///< a year, as a fraction (0.15)
    double delta;      ///< of the call or the put, whichever it is
    double gamma;      ///< change of delta for a point of the future
    double vega;       ///< change of the price for one percent of volatility
    double theta;      ///< change of the price in one calendar day
};

/// Nothing when no volatility gives this price, or when something that it takes is missing.
std::optional<Greeks> greeksOf(const OptionInput& option);

/// Seconds from a time of the session's day, 2020-01-06, to the expiry (a date as YYYYMMDD). An
/// option expires at 21:00 UTC of its day. A year has 365 calendar days.
double secondsToExpiry(int expiry, int timeMs);
