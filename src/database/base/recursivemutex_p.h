// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include <QMutex>

#if defined(__SANITIZE_THREAD__)
#define LIVETABLE_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define LIVETABLE_TSAN 1
#endif
#endif
#ifdef LIVETABLE_TSAN
#include <sanitizer/tsan_interface.h>
#endif

namespace LiveTable {

/// A recursive QMutex that tells the thread sanitizer what it does: the distribution's Qt is not
/// instrumented, so without these calls every correct use would be reported as a race.
/// Unlike std::recursive_mutex it may be unlocked by another thread than the one that locked it,
/// which shared update brackets need.
class RecursiveMutex
{
public:
    void lock()
    {
        mutex.lock();
#ifdef LIVETABLE_TSAN
        __tsan_acquire(this);
#endif
    }
    void unlock()
    {
#ifdef LIVETABLE_TSAN
        __tsan_release(this);
#endif
        mutex.unlock();
    }

private:
    QRecursiveMutex mutex;
};

} // namespace LiveTable
