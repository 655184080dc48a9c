// SPDX-License-Identifier: MIT
#pragma once

#include "value/decimal.h"

#include <QString>
#include <QVector>

#include <optional>

/// One side of a quote. A side that nobody quotes has no price.
struct Side
{
    std::optional<decimal> price;
    int size = 0; ///< contracts

    bool operator==(const Side& other) const { return price == other.price && size == other.size; }
};

/// The best bid and ask of one option at one time. The contract is told by expiry, right and
/// strike.
struct OptionQuote
{
    int timeMs = 0; ///< milliseconds since midnight
    int expiry = 0; ///< a date as the number YYYYMMDD
    char right = 0; ///< 'C' for a call, 'P' for a put
    decimal strike;
    Side bid;
    Side ask;
};

/// The best bid and ask of one future.
struct FutureQuote
{
    int timeMs = 0;   ///< milliseconds since midnight
    int contract = 0; ///< the month of delivery as the number YYYYMM
    Side bid;
    Side ask;
};

/// One line of the contract directory.
struct Instrument
{
    QString market;
    QString symbol;
    QString type;
    QString description;
    QString currency;
    decimal multiplier;
    decimal tick;
    decimal lotSize;
};

/// What goes wrong with what was handed in: a missing file, a malformed line. The message names the
/// place and is complete.
struct InputError
{
    QString message;
};

/// A day of quotes in order of time, from wherever it comes.
class Session
{
public:
    enum class Event
    {
        Option,
        Future,
        End
    };

    virtual ~Session() = default;

    /// One line that says what is played.
    virtual QString title() const = 0;

    /// The key of the options' underlying in the contract directory: "market,symbol,type".
    virtual QString underlying() const = 0;

    /// The contract directory. Throws InputError.
    virtual QVector<Instrument> instruments() = 0;

    /// Moves on to the next quote, which option() or future() then holds until the next call. Times
    /// never go back. After End it answers End again. Throws InputError.
    virtual Event next() = 0;

    const OptionQuote& option() const { return optionQuote; }
    const FutureQuote& future() const { return futureQuote; }

    /// How much of the session has been played, 0 to 1; for a display, not exact.
    virtual double progress() const = 0;

protected:
    OptionQuote optionQuote;
    FutureQuote futureQuote;
};
