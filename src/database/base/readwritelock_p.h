// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "base/recursivemutex_p.h"

#include <QMutex>
#include <QReadWriteLock>
#include <QWaitCondition>

namespace LiveTable {

/// A QReadWriteLock that tells the thread sanitizer what it does, for the reason given at
/// RecursiveMutex. Not recursive. The two unlocking functions differ only for the sanitizer.
class ReadWriteLock
{
public:
    ReadWriteLock() = default;
    Q_DISABLE_COPY(ReadWriteLock)

    void lockForRead()
    {
        lock.lockForRead();
        announce(Taken, Read);
    }
    void lockForWrite()
    {
        lock.lockForWrite();
        announce(Taken, Write);
    }
    void unlockRead()
    {
        announce(Given, Read);
        lock.unlock();
    }
    void unlockWrite()
    {
        announce(Given, Write);
        lock.unlock();
    }

    /// Sleeps on the condition with the lock released, which the caller holds once for reading or
    /// for writing; holds it in the same way on return.
    void waitReading(QWaitCondition& condition) { wait(condition, Read); }
    void waitWriting(QWaitCondition& condition) { wait(condition, Write); }

private:
    enum Event
    {
        Taken,
        Given
    };
    enum Mode
    {
        Read,
        Write
    };

    void wait(QWaitCondition& condition, Mode mode)
    {
        announce(Given, mode);
        condition.wait(&lock);
        announce(Taken, mode);
    }

#ifdef LIVETABLE_TSAN
    // A reader must not seem to hand anything to another reader, or a write under a mere read lock
    // would stay unseen: readers leave their mark in an address of their own for the next writer.
    void announce(Event event, Mode mode)
    {
        if (event == Taken) {
            __tsan_acquire(&writers);
            if (mode == Write)
                __tsan_acquire(&readers);
        } else {
            __tsan_release(mode == Write ? &writers : &readers);
        }
    }
    char writers = 0;
    char readers = 0;
#else
    void announce(Event, Mode) {}
#endif

    QReadWriteLock lock;
};

/// Tells the thread sanitizer that what happened before handOff(p) in one thread happened before
/// takeOver(p) in another, where Qt carries something from the one to the other.
inline void handOff(void* address)
{
#ifdef LIVETABLE_TSAN
    __tsan_release(address);
#endif
    Q_UNUSED(address)
}
inline void takeOver(void* address)
{
#ifdef LIVETABLE_TSAN
    __tsan_acquire(address);
#endif
    Q_UNUSED(address)
}

/// Holds a QMutex for a scope, telling the thread sanitizer.
class ScopedMutex
{
public:
    explicit ScopedMutex(QMutex& toLock)
        : mutex(toLock)
    {
        mutex.lock();
        takeOver(&mutex);
    }
    ~ScopedMutex()
    {
        handOff(&mutex);
        mutex.unlock();
    }
    Q_DISABLE_COPY(ScopedMutex)

private:
    QMutex& mutex;
};

} // namespace LiveTable
