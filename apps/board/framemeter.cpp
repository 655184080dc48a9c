// SPDX-License-Identifier: MIT
#include "framemeter.h"

#include <algorithm>
#include <ctime>
#include <utility>

namespace {

/// What the calling thread has worked so far.
double threadMs()
{
#ifdef CLOCK_THREAD_CPUTIME_ID
    timespec time{};
    if (clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time) == 0)
        return double(time.tv_sec) * 1e3 + double(time.tv_nsec) / 1e6;
#endif
    return 0;
}

} // namespace

void FrameMeter::beat()
{
    const double work = threadMs();
    if (sinceBeat.isValid()) {
        last = double(sinceBeat.nsecsElapsed()) / 1e6;
        worst = std::max(worst, last);
        recentWorst = std::max(recentWorst, last);
        ++count;
        late += last > LateMs;
        worstWork = std::max(worstWork, work - workAtBeat);
        lateWork += work - workAtBeat > LateMs;
    }
    workAtBeat = work;
    sinceBeat.start();
}

void FrameMeter::restart()
{
    *this = FrameMeter();
}

double FrameMeter::takeRecentWorstMs()
{
    return std::exchange(recentWorst, 0.0);
}
