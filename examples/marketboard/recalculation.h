// SPDX-License-Identifier: MIT
#pragma once

#include "board.h"

#include "runtime/runnablemanager.h"

#include <QThreadPool>

#include <map>
#include <memory>
#include <vector>

/// Prices whole expiries anew when their future has moved, on a pool of its own.
///
/// A job gets a copy of all that it needs and touches no table. What it found is applied on the
/// thread of this object, in one transaction, when the event loop there delivers its end; an option
/// that was quoted after the copy was made keeps the newer values of its quote.
///
/// Lifetime: within that of the board. The destructor stops the jobs and drops what they found.
class Recalculation
{
public:
    explicit Recalculation(Board& priced);
    ~Recalculation();
    Recalculation(const Recalculation&) = delete;
    Recalculation& operator=(const Recalculation&) = delete;

    /// Starts a job for each expiry whose future moved since its last one. An expiry whose job is
    /// still running has to wait for the next call.
    void update(int timeMs);

    /// Stops what is running, prices every expiry once more, and returns when that is applied.
    void finish(int timeMs);

    /// Asks all jobs to stop and waits for them; nothing of theirs will be applied.
    void stop();

    /// Whether there are jobs whose results are not applied yet.
    bool isRunning() const { return !running.empty(); }

    /// How much of the running jobs is done, 0 to 1; 1 when none is running.
    double progress() const;

private:
    struct Batch;
    struct Expiry;
    class Job;
    struct Running
    {
        std::shared_ptr<Batch> batch;
        std::vector<Record> rows; ///< of the batch's options; not for the job
    };

    std::vector<Expiry> takeInputs(int timeMs) const;
    void start(Expiry&& expiry);
    void jobEnded(HRunnable handle);

    Board& board;
    std::map<int, double> pricedAt; ///< the future's price that each expiry's last job took
    std::map<HRunnable, Running> running;
    QThreadPool pool;        // outlives its jobs,
    RunnableManager manager; // which end with this
};
