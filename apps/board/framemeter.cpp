// SPDX-License-Identifier: MIT
#include "framemeter.h"

#include <algorithm>
#include <utility>

void FrameMeter::beat()
{
    if (sinceBeat.isValid()) {
        last = double(sinceBeat.nsecsElapsed()) / 1e6;
        worst = std::max(worst, last);
        recentWorst = std::max(recentWorst, last);
        ++count;
        late += last > LateMs;
    }
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
