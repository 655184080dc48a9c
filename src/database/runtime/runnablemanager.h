// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"
#include "runtime/hrunnable.h"
#include "runtime/runnable.h"

#include <QObject>
#include <QRunnable>
#include <QSharedPointer>

#include <cstddef>

class QThreadPool;
class RunnableManager;

namespace LiveTable {
struct RunnableJob;
struct RunnableState;
} // namespace LiveTable

/**
 * What the pool really runs in place of a job; its address is the job's handle. Made by
 * RunnableManager::startRunnable() and deleted by the pool, so it is of use only to code that knows
 * the job to be running.
 *
 * It ends its job exactly once: at the end of run(), or when it is deleted without having run, as
 * QThreadPool::clear() does with what is still queued.
 */
class LIVETABLE_EXPORT RunnableWrapper : public QRunnable
{
public:
    ~RunnableWrapper() override;

    /// The job.
    Runnable* payload() const;

    /// Runs the job, posts the manager's finished(), removes the handle, wakes who waits; in this
    /// order. Called by the pool. Throws nothing.
    void run() override;

    /// Sleeps until the job has ended. The manager's lock must be held once, for reading: it is
    /// released while sleeping and held again on return, when this object may be gone.
    void wait();

    /// A handle's address is not used for another job before finished() has been delivered, even
    /// though the wrapper itself is gone by then.
    static void* operator new(std::size_t size);
    static void operator delete(void* wrapper);

private:
    friend class RunnableManager;
    RunnableWrapper(const QSharedPointer<LiveTable::RunnableJob>& toRun, RunnableManager* toNotify,
                    const QSharedPointer<LiveTable::RunnableState>& sharedState);
    void end();

    const QSharedPointer<LiveTable::RunnableJob> job;
    RunnableManager* const manager;
    const QSharedPointer<LiveTable::RunnableState> state;
    bool isEnded = false; // touched by the thread alone that runs or deletes it
};

/**
 * Runs jobs on thread pools, asks them to stop, waits for them, and tells of each end.
 *
 * Handles: a job is running from startRunnable() until its work has ended and its handle has left
 * the manager's list; finished() comes after that through the event loop, once for every handle,
 * also when the job threw or was cleared from its pool without having run. A handle is not given
 * out anew before finished() for it was delivered to the receivers in the manager's thread; without
 * an event loop there, that is never and each job leaves some hundred bytes until the manager dies.
 *
 * Lifetime: a job with autoDelete() is deleted by its pool after it has left the list (a moment
 * later than a wait ends), or by a caller of its stop() that is still inside. One without belongs
 * to its owner, who may delete it as soon as it is not running any more. The manager's destructor
 * stops all jobs and waits for them; a job that is started meanwhile is told to stop at once. Pools
 * must outlive their jobs.
 *
 * Threads: all functions but the destructor may be called from any thread. finished() is emitted in
 * the manager's thread.
 *
 * Calling back: stop() overrides are called without any lock held. They may call all functions of
 * their manager, waiting ones included, start jobs and clear pools; a job's stop() is not called
 * again from inside itself. The job stays listed until its stop() has returned or is itself
 * waiting in the manager. A running job may also call everything; from inside a job, waiting leaves
 * out that job, which could not end, and lends its thread to the pool meanwhile. Two jobs that wait
 * for each other wait for ever.
 *
 * Cost: 2 to 3 us a job, from its start to its finished().
 * Errors: what a job throws, from run() or stop(), is written to Qt's log as a warning and goes no
 * further.
 *
 * @code
 * RunnableManager manager;
 * connect(&manager, &RunnableManager::finished, this, &Board::jobEnded);
 * HRunnable handle = manager.startRunnable(new Recalculation, QThreadPool::globalInstance(), 0);
 * manager.stopRunnable(handle, true); // asks, and waits for the end
 * @endcode
 */
class LIVETABLE_EXPORT RunnableManager : public QObject
{
    Q_OBJECT

public:
    /// A manager without jobs.
    explicit RunnableManager(QObject* parent = nullptr);

    /// stopRunnables(true). Must not be called from inside a job of this manager's.
    ~RunnableManager() override;

    /// Queues the job in the pool (null stands for Qt's global one); jobs of a higher priority
    /// start earlier. Returns its handle, null only for a null job. The job may have ended on
    /// return.
    HRunnable startRunnable(Runnable* job, QThreadPool* pool, int priority = 0);

    /// Calls the job's stop() and, if `wait`, returns only when it has ended. Does nothing for a
    /// handle that is not running.
    void stopRunnable(HRunnable handle, bool wait);

    /// Calls stop() of every running job in the order of their start and, if `wait`, returns only
    /// when none is running, including those that were started meanwhile (which are not stopped).
    void stopRunnables(bool wait);

    /// Whether any job is running or queued.
    bool isRunning() const;

    /// Whether this job is running or queued. False for a handle never given out.
    bool isRunning(HRunnable handle) const;

Q_SIGNALS:
    /// The job has ended. Emitted from the manager's event loop; the handle is good only to be
    /// compared. Travels as "HRunnable" through queued connections.
    void finished(void* handle);

private Q_SLOTS:
    void releaseHandle(void* handle); // posted right behind each finished()

private:
    friend class RunnableWrapper;
    const QSharedPointer<LiveTable::RunnableState> state;
};
