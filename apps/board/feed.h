// SPDX-License-Identifier: MIT
#pragma once

#include "market.h"
#include "session.h"

#include <QElapsedTimer>

#include <limits>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

/// Plays a session into a market, a bit each frame.
///
/// The session's own clock runs at a multiple of the real one. Quotes are told to the minute; those
/// of one minute are spread evenly over it, as a market would bring them. A feed that cannot keep
/// up lets its clock fall behind and never takes longer than it is given.
class Feed
{
public:
    static constexpr double MaximumSpeed = std::numeric_limits<double>::infinity();

    /// Both outlive the feed. Quotes up to and with `fromMs` are passed over: -1 for none.
    Feed(Session& played, Market& target, int fromMs = -1);

    /// Applies what is due after another `seconds` of real time, for at most `budgetNs`. Returns
    /// the number of quotes. Throws InputError for broken input once all before it is played; then
    /// the session is at its end.
    int play(double seconds, qint64 budgetNs);

    void setSpeed(double factor) { speed = factor; }

    /// The session's time in milliseconds since midnight, -1 before its first quote.
    int timeMs() const { return int(clockMs); }
    /// Minutes of the session since the quote it began with.
    double minutes() const { return startMs < 0 ? 0 : (clockMs - startMs) / 60'000; }
    /// Whether the clock stops at a time, see minutes(); infinity for never.
    void stopAt(double minutesPlayed) { lastMinute = minutesPlayed; }
    bool isStopped() const { return minutes() >= lastMinute; }
    bool isAtEnd() const { return hasEnded && played == minute.size(); }
    double progress() const { return session.progress(); }

private:
    using Quote = std::variant<OptionQuote, FutureQuote>;

    bool readAhead(qint64 deadlineNs, const QElapsedTimer& timer);
    double dueMs(size_t i) const;
    void apply(const Quote& quote);

    Session& session;
    Market& market;
    double speed = 1;
    double clockMs = -1;
    double startMs = -1;
    double lastMinute = std::numeric_limits<double>::infinity();
    int passOverMs;
    std::vector<Quote> minute;         ///< quotes of one time, in order
    size_t played = 0;                 ///< of them
    std::vector<Quote> first;          ///< the first one of the next time, if it was read
    std::optional<InputError> failure; ///< that has ended the session
    bool hasEnded = false;
};
