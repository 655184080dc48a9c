// SPDX-License-Identifier: MIT
#include "concurrent/blockingmap.h"

#include <QThread>
#include <QThreadPool>
#include <QVector>
#include <QtConcurrent>

#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <utility>

namespace {

/// How long a caller lets the pool stand still before it takes items itself. Far more than a pool
/// thread needs to wake up on a busy machine: this is the way out of rare races, not the usual
/// path.
constexpr std::chrono::milliseconds patience(100);

/// What the caller and the pool's threads share. A map that the pool starts late, when the caller
/// has done everything and gone, still finds this object: it finds nothing left to take and ends
/// without touching `work` or `context`.
class SharedWork
{
public:
    SharedWork(int itemCount, void (*function)(void*, int), void* argument)
        : tickets(itemCount)
        , count(itemCount)
        , work(function)
        , context(argument)
    {}

    /// Takes the next item and runs it; false when none was left. Never throws. The lock also shows
    /// the thread all that the caller has written, in a way that the thread sanitizer can see.
    bool runNext()
    {
        int i = 0;
        {
            const std::lock_guard<std::mutex> guard(mutex);
            if (begun == count)
                return false;
            i = begun++;
        }
        std::exception_ptr error;
        try {
            work(context, i);
        } catch (...) {
            error = std::current_exception();
        }
        const std::lock_guard<std::mutex> guard(mutex);
        if (error && !firstError)
            firstError = std::move(error);
        if (++done == count)
            allDone.notify_all();
        return true;
    }

    void hold()
    {
        const std::lock_guard<std::mutex> guard(mutex);
        ++holders;
    }
    /// The last one to let go deletes it.
    void release()
    {
        bool isLast = false;
        {
            const std::lock_guard<std::mutex> guard(mutex);
            isLast = --holders == 0;
        }
        if (isLast)
            delete this;
    }

    /// Waits until all items are done (true), or until none is running and none was begun for a
    /// while (false).
    bool waitForProgress()
    {
        std::unique_lock<std::mutex> lock(mutex);
        int seen = -1;
        while (done != count) {
            if (done == seen && begun == done)
                return false;
            seen = done;
            allDone.wait_for(lock, patience);
        }
        return true;
    }

    /// Waits until all items are done and throws the first exception that one of them threw.
    void finish()
    {
        std::unique_lock<std::mutex> lock(mutex);
        allDone.wait(lock, [this] { return done == count; });
        if (firstError)
            std::rethrow_exception(std::exchange(firstError, nullptr));
    }

    /// The sequence that QtConcurrent maps over. Each of its calls runs whichever item is next.
    QVector<int> tickets;

private:
    ~SharedWork() = default;

    const int count;
    void (*const work)(void*, int);
    void* const context;
    std::mutex mutex; // guards what follows
    std::condition_variable allDone;
    int holders = 0;
    int begun = 0;
    int done = 0;
    std::exception_ptr firstError;
};

/// One of those who share the work. Counted under the mutex, see runNext().
class Holder
{
public:
    explicit Holder(SharedWork* held)
        : work(held)
    {
        work->hold();
    }
    Holder(const Holder& other)
        : Holder(other.work)
    {}
    Holder& operator=(const Holder&) = delete;
    ~Holder() { work->release(); }
    SharedWork* operator->() const { return work; }

private:
    SharedWork* const work;
};

/// Qt does not tell which pool a thread belongs to, or whether it belongs to one, except by the
/// name of its class. This is no more than a hint: a wrong answer costs time, not correctness.
bool isPoolThread()
{
    return qstrcmp(QThread::currentThread()->metaObject()->className(), "QThreadPoolThread") == 0;
}

} // namespace

void LiveTable::runOnPool(int count, void (*work)(void* context, int i), void* context)
{
    if (count < 1)
        return;
    const Holder shared(new SharedWork(count, work, context));
    const QThreadPool* pool = QThreadPool::globalInstance();
    bool helpAtOnce = isPoolThread() || pool->activeThreadCount() >= pool->maxThreadCount();
    try {
        QtConcurrent::map(shared->tickets.begin(), shared->tickets.end(),
                          [shared](int) { shared->runNext(); });
    } catch (...) {
        helpAtOnce = true; // no memory for a thread; those that did start are waited for
    }
    if (helpAtOnce || !shared->waitForProgress()) {
        while (shared->runNext()) {
        }
    }
    shared->finish();
}
