// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include <QtGlobal>

namespace LiveTable {

/// While a table tells its indexes one after the other, the moment at which one is done is the
/// moment at which the next one starts: half of the readings of the clock, which cost more than
/// many an index needs, are saved. Lives as long as that round.
class TimerChain
{
public:
    TimerChain()
        : wasOpen(isOpen)
    {
        isOpen = true;
        lastReading = 0;
    }
    ~TimerChain()
    {
        isOpen = wasOpen;
        lastReading = 0;
    }
    /// The index told last keeps no time: the next one starts with a reading of its own.
    static void interrupt() { lastReading = 0; }

    static qint64 read();
    static thread_local qint64 lastReading; // 0: none
    static thread_local bool isOpen;

private:
    Q_DISABLE_COPY(TimerChain)
    const bool wasOpen;
};

} // namespace LiveTable
