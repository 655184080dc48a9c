// SPDX-License-Identifier: MIT
#include "runtime/runnablemanager.h"

#include "base/exception.h"
#include "base/readwritelock_p.h"

#include <QDebug>
#include <QList>
#include <QSet>
#include <QThreadPool>
#include <QVector>

#include <atomic>
#include <new>

namespace LiveTable {

/// What is left of a job when its wrapper is gone: whoever waits for it or is inside its stop()
/// holds a share.
struct RunnableJob
{
    RunnableJob(Runnable* toRun, QThreadPool* runsOn)
        : payload(toRun)
        , pool(runsOn)
    {}
    ~RunnableJob()
    {
        if (isOwned)
            delete payload;
    }
    Q_DISABLE_COPY(RunnableJob)

    Runnable* const payload;
    QThreadPool* const pool;
    QWaitCondition ended;    // with isDone
    QWaitCondition unpinned; // with pins
    // Calls of stop() under way, changed under the lock only: a job leaves the list when nobody is
    // inside its stop(). Atomic because the lock may be held for reading.
    std::atomic<int> pins{0};
    bool isDone = false;  // under the lock
    bool isOwned = false; // what autoDelete() said while the payload's owner had to keep it
};

struct RunnableState
{
    RunnableState() = default;
    ~RunnableState();
    Q_DISABLE_COPY(RunnableState)

    // Never held while code of a job runs.
    mutable ReadWriteLock lock;
    QList<void*> handles;   // running, in the order of their start
    QSet<void*> reserved;   // running, or finished() not yet delivered
    bool isClosing = false; // the manager is being destroyed
};

namespace {

/// Stands before a wrapper's memory, which is free when both the wrapper has been destroyed and
/// its finished() has been delivered.
struct alignas(std::max_align_t) HandleBlock
{
    std::atomic<int> holders{2};
};

void releaseBlock(void* wrapper)
{
    HandleBlock* block = static_cast<HandleBlock*>(wrapper) - 1;
    if (block->holders.fetch_sub(1) != 1)
        return;
    block->~HandleBlock();
    ::operator delete(block);
}

using Job = QSharedPointer<RunnableJob>;

/// A call of stop() on this thread, with the jobs that it keeps in the list.
struct StopFrame
{
    StopFrame* outer;
    const RunnableState* state;
    QVector<Job> pinned;
    const RunnableJob* current = nullptr;
};

/// A job that runs on this thread.
struct RunFrame
{
    RunFrame* outer;
    const RunnableJob* job;
};

thread_local StopFrame* innermostStop = nullptr;
thread_local RunFrame* innermostRun = nullptr;

bool isInsideRun(const RunnableJob* job)
{
    for (const RunFrame* frame = innermostRun; frame; frame = frame->outer)
        if (frame->job == job)
            return true;
    return false;
}

bool isInsideStop(const RunnableJob* job)
{
    for (const StopFrame* frame = innermostStop; frame; frame = frame->outer)
        if (frame->current == job)
            return true;
    return false;
}

void logJobThrew(const QString& what)
{
    qWarning().noquote() << "RunnableManager : a job threw" << what;
}

/// Calls what belongs to a job and keeps what it throws on this thread.
template <class Call>
void callLogged(Call call)
{
    try {
        call();
    } catch (const Exception& e) {
        logJobThrew(e.message());
        e.dump();
    } catch (const std::exception& e) {
        logJobThrew(QString::fromUtf8(e.what()));
    } catch (const QString& text) {
        logJobThrew(text);
    } catch (const char* text) {
        logJobThrew(QString::fromUtf8(text));
    } catch (...) {
        logJobThrew(QStringLiteral("something of an unknown type"));
    }
}

// The functions below need the lock.

void pin(const QVector<Job>& jobs)
{
    for (const Job& job : jobs)
        ++job->pins;
}

void unpin(const QVector<Job>& jobs)
{
    for (const Job& job : jobs)
        if (--job->pins == 0)
            job->unpinned.wakeAll();
}

/// While it exists, this thread pins nothing: a stop() that waits, or clears a pool, would else
/// wait for a job that waits for it.
class PinsLetGo
{
public:
    explicit PinsLetGo(const RunnableState& ofState)
        : state(ofState)
    {
        forAllFrames(unpin);
    }
    ~PinsLetGo() { forAllFrames(pin); }
    Q_DISABLE_COPY(PinsLetGo)

private:
    void forAllFrames(void (*act)(const QVector<Job>&))
    {
        for (StopFrame* frame = innermostStop; frame; frame = frame->outer)
            if (frame->state == &state)
                act(frame->pinned);
    }

    const RunnableState& state;
};

void waitForEnd(RunnableState& state, const Job& job)
{
    const PinsLetGo letGo(state);
    // A job that waits lends its thread: the other may be queued behind it in a pool of one.
    QThreadPool* lender = innermostRun && !job->isDone ? innermostRun->job->pool : nullptr;
    if (lender)
        lender->releaseThread();
    while (!job->isDone)
        state.lock.waitReading(job->ended);
    if (lender)
        lender->reserveThread();
}

/// Calls the stop() of each job, with the lock, which is held for reading, released meanwhile.
void callStops(RunnableState& state, const QVector<Job>& jobs)
{
    StopFrame frame{innermostStop, &state, jobs};
    pin(frame.pinned);
    innermostStop = &frame;
    for (const Job& job : jobs) {
        // One may have ended while the one before it let go of the pins; its payload may be gone.
        if (job->isDone || isInsideStop(job.data()))
            continue;
        frame.current = job.data();
        state.lock.unlockRead();
        callLogged([&job] { job->payload->stop(); });
        state.lock.lockForRead();
        frame.current = nullptr;
    }
    innermostStop = frame.outer;
    unpin(frame.pinned);
}

} // namespace

RunnableState::~RunnableState()
{
    for (void* handle : qAsConst(reserved))
        releaseBlock(handle);
}

} // namespace LiveTable

using namespace LiveTable;

RunnableWrapper::RunnableWrapper(const Job& toRun, RunnableManager* toNotify,
                                 const QSharedPointer<RunnableState>& sharedState)
    : job(toRun)
    , manager(toNotify)
    , state(sharedState)
{}

RunnableWrapper::~RunnableWrapper()
{
    takeOver(this);
    if (!isEnded)
        end();
}

void* RunnableWrapper::operator new(std::size_t size)
{
    return new (::operator new(sizeof(HandleBlock) + size)) HandleBlock + 1;
}

void RunnableWrapper::operator delete(void* wrapper)
{
    releaseBlock(wrapper);
}

Runnable* RunnableWrapper::payload() const
{
    return job->payload;
}

void RunnableWrapper::run()
{
    takeOver(this);
    RunFrame frame{innermostRun, job.data()};
    innermostRun = &frame;
    callLogged([this] { job->payload->run(); });
    innermostRun = frame.outer;
    end();
}

void RunnableWrapper::end()
{
    isEnded = true;
    HRunnable handle = this;
    // The manager lives: its destructor waits until the handle has left the list.
    QMetaObject::invokeMethod(manager, "finished", Qt::QueuedConnection, Q_ARG(HRunnable, handle));
    QMetaObject::invokeMethod(manager, "releaseHandle", Qt::QueuedConnection,
                              Q_ARG(HRunnable, handle));
    state->lock.lockForWrite();
    {
        const PinsLetGo letGo(*state);
        while (job->pins > 0)
            state->lock.waitWriting(job->unpinned);
    }
    state->handles.removeOne(handle);
    // Once it is not listed, a payload without auto-deletion may be gone at any moment.
    job->isOwned = job->payload->autoDelete();
    job->isDone = true;
    state->lock.unlockWrite();
    job->ended.wakeAll();
}

void RunnableWrapper::wait()
{
    // Copies, because the pool may delete this object meanwhile.
    const Job waitedFor = job;
    const QSharedPointer<RunnableState> sharedState = state;
    waitForEnd(*sharedState, waitedFor);
}

RunnableManager::RunnableManager(QObject* parent)
    : QObject(parent)
    , state(QSharedPointer<RunnableState>::create())
{
    // Known already, but for a static build that leaves the library's start-up object out.
    qRegisterMetaType<HRunnable>("HRunnable");
}

RunnableManager::~RunnableManager()
{
    state->lock.lockForWrite();
    state->isClosing = true;
    state->lock.unlockWrite();
    stopRunnables(true);
}

HRunnable RunnableManager::startRunnable(Runnable* job, QThreadPool* pool, int priority)
{
    if (!job)
        return nullptr;
    if (!pool)
        pool = QThreadPool::globalInstance();
    RunnableWrapper* wrapper = new RunnableWrapper(Job::create(job, pool), this, state);
    HRunnable handle = wrapper;
    state->lock.lockForWrite();
    state->handles.append(handle);
    state->reserved.insert(handle);
    const bool isLate = state->isClosing;
    state->lock.unlockWrite();
    if (isLate)
        callLogged([job] { job->stop(); });
    handOff(wrapper);
    pool->start(wrapper, priority);
    return handle;
}

void RunnableManager::stopRunnable(HRunnable handle, bool wait)
{
    state->lock.lockForRead();
    if (state->handles.contains(handle)) {
        const Job job = static_cast<RunnableWrapper*>(handle)->job;
        callStops(*state, {job});
        if (wait && !isInsideRun(job.data()))
            waitForEnd(*state, job);
    }
    state->lock.unlockRead();
}

void RunnableManager::stopRunnables(bool wait)
{
    state->lock.lockForRead();
    QVector<Job> jobs;
    for (void* handle : qAsConst(state->handles))
        jobs.append(static_cast<RunnableWrapper*>(handle)->job);
    callStops(*state, jobs);
    // The list is read anew after each end: jobs come and go.
    for (int i = 0; wait && i < state->handles.size();) {
        RunnableWrapper* wrapper = static_cast<RunnableWrapper*>(state->handles.at(i));
        if (isInsideRun(wrapper->job.data())) {
            ++i;
            continue;
        }
        wrapper->wait();
        i = 0;
    }
    state->lock.unlockRead();
}

bool RunnableManager::isRunning() const
{
    state->lock.lockForRead();
    const bool result = !state->handles.isEmpty();
    state->lock.unlockRead();
    return result;
}

bool RunnableManager::isRunning(HRunnable handle) const
{
    state->lock.lockForRead();
    const bool result = state->handles.contains(handle);
    state->lock.unlockRead();
    return result;
}

void RunnableManager::releaseHandle(void* handle)
{
    state->lock.lockForWrite();
    const bool isReserved = state->reserved.remove(handle);
    state->lock.unlockWrite();
    if (isReserved)
        releaseBlock(handle);
}
