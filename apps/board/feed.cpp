// SPDX-License-Identifier: MIT
#include "feed.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

constexpr double MinuteMs = 60'000;

int timeOf(const std::variant<OptionQuote, FutureQuote>& quote)
{
    return std::visit([](const auto& any) { return any.timeMs; }, quote);
}

} // namespace

Feed::Feed(Session& playedSession, Market& target, int fromMs)
    : session(playedSession)
    , market(target)
    , passOverMs(fromMs)
{
    if (fromMs >= 0) {
        startMs = fromMs;
        clockMs = fromMs;
    }
}

int Feed::play(double seconds, qint64 budgetNs)
{
    QElapsedTimer timer;
    timer.start();
    const bool isFast = std::isinf(speed);
    double untilMs =
        isFast ? std::numeric_limits<double>::infinity() : clockMs + seconds * speed * 1000;
    if (startMs >= 0)
        untilMs = std::min(untilMs, startMs + lastMinute * MinuteMs);
    int quotes = 0;
    while (timer.nsecsElapsed() < budgetNs) {
        if (played == minute.size() && !readAhead(budgetNs, timer)) {
            if (failure)
                throw InputError(*std::exchange(failure, std::nullopt));
            break;
        }
        if (startMs < 0) {
            startMs = clockMs = dueMs(0);
            untilMs = std::min(isFast ? untilMs : clockMs, startMs + lastMinute * MinuteMs);
        }
        if (dueMs(played) > untilMs) {
            clockMs = untilMs;
            break;
        }
        clockMs = std::max(clockMs, dueMs(played));
        apply(minute[played++]);
        ++quotes;
    }
    if (clockMs >= 0)
        market.info.timeMs = int(clockMs);
    return quotes;
}

/// Collects the quotes of the next time. False at the end, and when time is up while quotes are
/// passed over.
bool Feed::readAhead(qint64 deadlineNs, const QElapsedTimer& timer)
{
    minute.clear();
    played = 0;
    minute.swap(first);
    while (!hasEnded) {
        Session::Event event = Session::Event::End;
        try {
            event = session.next();
        } catch (const InputError& error) {
            failure = error; // what came before it is played first
        }
        if (event == Session::Event::End) {
            hasEnded = true;
            break;
        }
        const Quote quote =
            event == Session::Event::Option ? Quote(session.option()) : Quote(session.future());
        if (timeOf(quote) <= passOverMs) {
            if (timer.nsecsElapsed() >= deadlineNs)
                return false;
            continue;
        }
        if (!minute.empty() && timeOf(quote) != timeOf(minute.front())) {
            first.push_back(quote);
            break;
        }
        minute.push_back(quote);
    }
    return !minute.empty();
}

double Feed::dueMs(size_t i) const
{
    return timeOf(minute.front()) + MinuteMs * double(i) / double(minute.size());
}

void Feed::apply(const Quote& quote)
{
    std::visit([this](const auto& any) { market.board.apply(any); }, quote);
}
