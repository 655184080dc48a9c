// SPDX-License-Identifier: MIT
#pragma once

#include <QElapsedTimer>

/// Tells how long frames take, by the time from each beat of the frame timer to the next: what a
/// user waits for, painting and all other work of the event loop included. Beside it stands the
/// processor time that the thread took of it, which other programs on the machine do not change.
class FrameMeter
{
public:
    static constexpr double LateMs = 50;

    /// To be called at each beat.
    void beat();

    /// Forgets what was counted and begins with the next beat.
    void restart();

    double lastMs() const { return last; }
    double worstMs() const { return worst; }
    qint64 frames() const { return count; }
    /// How many frames took longer than LateMs.
    qint64 lateFrames() const { return late; }
    /// The same by processor time; 0 where the system does not tell it.
    double worstWorkMs() const { return worstWork; }
    qint64 lateByWork() const { return lateWork; }
    /// The worst frame since the last call.
    double takeRecentWorstMs();

private:
    QElapsedTimer sinceBeat;
    double last = 0;
    double worst = 0;
    double recentWorst = 0;
    double workAtBeat = 0; ///< of the thread, in milliseconds
    double worstWork = 0;
    qint64 lateWork = 0;
    qint64 count = 0;
    qint64 late = 0;
};
