// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <QMutex>
#include <QRunnable>

/**
 * A job that can be asked to stop: derive from it, do the work in run(), and look at canRun() at
 * convenient points. Stopping is cooperative: a job that never looks runs to its end.
 *
 * Lifetime: a job started by a RunnableManager is deleted when it has ended, if autoDelete() is
 * true (the default), else it stays its owner's. It must not be started again while it is running.
 * Threads: stop() and canRun() may be called from any thread, run() is called by a pool thread.
 * Errors: what run() throws ends the job; RunnableManager writes it to Qt's log.
 *
 * @code
 * class Recalculation : public Runnable
 * {
 * public:
 *     void run() override
 *     {
 *         for (int i = 0; i < steps && canRun(); ++i)
 *             calculate(i);
 *     }
 * };
 * @endcode
 */
class LIVETABLE_EXPORT Runnable : public QRunnable
{
public:
    Runnable();

    /// The work. Called once, on a thread of the pool; when stop() came before, it is still called
    /// and finds canRun() false.
    void run() override = 0;

    ~Runnable() override;

    /// Makes canRun() false for good. An override calls this one, and may call back into the
    /// manager that calls it (see RunnableManager). May come more than once, and before run().
    virtual void stop();

    /// True until stop() is called.
    virtual bool canRun() const;

private:
    mutable QMutex mutex; // guards the flag
    bool mayRun = true;
};
