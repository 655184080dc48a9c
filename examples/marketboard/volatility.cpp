// SPDX-License-Identifier: MIT
#include "volatility.h"

#include "pricing/volat.h"

#include <QDate>

std::optional<Greeks> greeksOf(const OptionInput& option)
{
    VolatInputParams in;
    in.strike = option.strike;
    in.underlying = option.future;
    in.sqrtTime = sqrtTimeToExpiry(option.seconds);
    const ImpliedVolat implied = impliedVolat(in, option.put, option.mid);
    if (implied.reason != ImpliedVolat::Found)
        return std::nullopt;
    VolatOutputParams out;
    calcVolatParams(out, in, implied.volat);
    return Greeks{implied.volat / 100, option.put ? out.deltaPut : out.deltaCall, out.gamma,
                  out.vega, out.theta};
}

double secondsToExpiry(int expiry, int timeMs)
{
    static const QDate session(2020, 1, 6);
    constexpr double secondsPerDay = 86'400;
    constexpr double hourOfExpiry = 21 * 3'600;
    const QDate day(expiry / 10'000, expiry / 100 % 100, expiry % 100);
    return double(session.daysTo(day)) * secondsPerDay + hourOfExpiry - timeMs / 1e3;
}
