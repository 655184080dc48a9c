// SPDX-License-Identifier: MIT
#include "recalculation.h"

#include <QCoreApplication>

#include <atomic>

/// What a job shares with the thread that started it. The job alone writes `results`, which may be
/// read once the job has ended.
struct Recalculation::Batch
{
    int expiry = 0;
    double future = 0;
    std::vector<OptionInput> inputs;
    std::vector<int> quoteTimes; ///< when each option's quote came, which tells a later one
    std::vector<std::optional<Greeks>> results;
    std::atomic<size_t> done{0}; ///< how many results there are
};

struct Recalculation::Expiry
{
    std::shared_ptr<Batch> batch;
    std::vector<Record> rows;
};

class Recalculation::Job : public Runnable
{
public:
    explicit Job(std::shared_ptr<Batch> toPrice)
        : batch(std::move(toPrice))
    {}

    void run() override
    {
        for (size_t i = 0; i < batch->inputs.size() && canRun(); ++i) {
            batch->results[i] = greeksOf(batch->inputs[i]);
            batch->done = i + 1;
        }
    }

private:
    const std::shared_ptr<Batch> batch;
};

Recalculation::Recalculation(Board& priced)
    : board(priced)
{
    QObject::connect(&manager, &RunnableManager::finished, &manager,
                     [this](HRunnable handle) { jobEnded(handle); });
}

Recalculation::~Recalculation()
{
    stop();
}

void Recalculation::update(int timeMs)
{
    for (Expiry& expiry : takeInputs(timeMs)) {
        const Batch& batch = *expiry.batch;
        bool isRunning = false;
        for (const auto& job : running)
            isRunning = isRunning || job.second.batch->expiry == batch.expiry;
        const auto before = pricedAt.find(batch.expiry);
        const bool hasMoved = before == pricedAt.end() || before->second != batch.future;
        if (hasMoved && !isRunning)
            start(std::move(expiry));
    }
}

void Recalculation::finish(int timeMs)
{
    stop();
    for (Expiry& expiry : takeInputs(timeMs))
        start(std::move(expiry));
    while (isRunning())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
}

void Recalculation::stop()
{
    running.clear(); // what has ended and was not delivered yet is not known any more
    pricedAt.clear();
    manager.stopRunnables(true);
}

double Recalculation::progress() const
{
    size_t done = 0;
    size_t all = 0;
    for (const auto& job : running) {
        done += job.second.batch->done;
        all += job.second.batch->inputs.size();
    }
    return all ? double(done) / double(all) : 1;
}

/// The view of the two-sided options goes by expiry first.
std::vector<Recalculation::Expiry> Recalculation::takeInputs(int timeMs) const
{
    std::vector<Expiry> expiries;
    for (const Record& row : *board.views()[Board::TwoSided].index) {
        const int date = row.data(Board::Expiry).toInteger();
        if (expiries.empty() || expiries.back().batch->expiry != date) {
            expiries.push_back({std::make_shared<Batch>(), {}});
            expiries.back().batch->expiry = date;
            expiries.back().batch->future = board.futureMid(date);
        }
        Expiry& expiry = expiries.back();
        expiry.batch->inputs.push_back(board.pricingInput(row, expiry.batch->future, timeMs));
        expiry.batch->quoteTimes.push_back(row.data(Board::Time).toInteger());
        expiry.rows.push_back(row);
    }
    return expiries;
}

void Recalculation::start(Expiry&& expiry)
{
    Batch& batch = *expiry.batch;
    batch.results.resize(batch.inputs.size());
    pricedAt[batch.expiry] = batch.future;
    const HRunnable handle = manager.startRunnable(new Job(expiry.batch), &pool);
    // Its end is told through the event loop, so not before this.
    running[handle] = {std::move(expiry.batch), std::move(expiry.rows)};
}

void Recalculation::jobEnded(HRunnable handle)
{
    const auto found = running.find(handle);
    if (found == running.end())
        return; // was stopped
    const Running job = std::move(found->second);
    running.erase(found);
    const Batch& batch = *job.batch;
    QVector<Board::Repriced> repriced;
    for (size_t i = 0; i < batch.done; ++i)
        if (job.rows[i].data(Board::Time).toInteger() == batch.quoteTimes[i])
            repriced.append({job.rows[i], batch.results[i]});
    board.apply(repriced);
}
