// SPDX-License-Identifier: MIT
#include "base/exception.h"
#include "runtime/runnablemanager.h"
#include "support/seed.h"

#include <QThreadPool>
#include <QtTest>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

std::atomic<int> alive{0};

/// A job made of two functions; by default it runs until it is stopped.
class Job : public Runnable
{
public:
    using Work = std::function<void(Job&)>;

    explicit Job(Work work = untilStopped, Work atStop = Work())
        : working(std::move(work))
        , stopping(std::move(atStop))
    {
        ++alive;
    }
    ~Job() override { --alive; }

    void run() override { working(*this); }
    void stop() override
    {
        Runnable::stop();
        ++stops;
        if (stopping)
            stopping(*this);
    }

    static void untilStopped(Job& job)
    {
        while (job.canRun())
            std::this_thread::yield();
    }

    std::atomic<int> stops{0};

private:
    const Work working;
    const Work stopping;
};

void sleepMs(int ms)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

void waitUntil(const std::function<bool()>& condition)
{
    while (!condition())
        std::this_thread::yield();
}

/// A manager whose finished() signals are kept in the order of their arrival.
struct Listened
{
    Listened()
    {
        QObject::connect(&manager, &RunnableManager::finished,
                         [this](void* handle) { ended.append(handle); });
    }
    void deliver() { QCoreApplication::sendPostedEvents(&manager); }

    QVector<void*> ended;
    RunnableManager manager;
};

constexpr int maxJobs = 4;

/// A manager's life in all orders of its operations. Returns whether each job was announced once.
bool liveOnce(std::mt19937& random, QThreadPool* shared)
{
    Listened all;
    QVector<HRunnable> handles;
    const int count = 1 + int(random() % maxJobs);
    for (int i = 0; i < count; ++i) {
        Job* job = random() % 2 ? new Job : new Job([](Job&) {});
        handles.append(all.manager.startRunnable(job, shared, int(random() % 3)));
        if (random() % 4 == 0)
            all.manager.stopRunnable(handles.at(int(random() % unsigned(handles.size()))),
                                     random() % 2);
        if (random() % 16 == 0)
            shared->clear(); // and those of the other threads
        if (random() % 8 == 0)
            all.deliver();
    }
    if (random() % 2)
        return true; // destroyed as it is
    all.manager.stopRunnables(true);
    const bool isIdle = !all.manager.isRunning();
    all.deliver();
    return isIdle && all.ended.size() == count;
}

} // namespace

class TestRunnableManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        pool.reset(new QThreadPool);
        pool->setMaxThreadCount(4);
    }

    void cleanup()
    {
        pool.reset(); // waits until the last wrapper is gone
        QThreadPool::globalInstance()->waitForDone();
        QCOMPARE(alive.load(), 0);
    }

    // The signal is posted while the handle is still listed.
    void orderOfTheEnd()
    {
        Listened all;
        std::atomic<bool> mayStopReturn{false};
        HRunnable handle = start(all.manager, Job::untilStopped,
                                 [&](Job&) { waitUntil([&] { return mayStopReturn.load(); }); });
        std::thread stopper([&] { all.manager.stopRunnable(handle, true); });
        waitUntil([&] {
            all.deliver();
            return !all.ended.isEmpty();
        });
        sleepMs(20);
        QVERIFY(all.manager.isRunning(handle));
        mayStopReturn = true;
        stopper.join();
        QVERIFY(!all.manager.isRunning(handle));
    }

    // A handle that the host has not yet been told to be dead never names another job.
    void handlesAreNotReusedEarly()
    {
        Listened all;
        QSet<void*> handles;
        for (int i = 0; i < 1000; ++i) {
            Job* const job = new Job([](Job&) {});
            HRunnable handle = all.manager.startRunnable(job, i == 0 ? nullptr : pool.get(), 0);
            QVERIFY(handle && !handles.contains(handle));
            handles.insert(handle);
            all.manager.stopRunnable(handle, true);
            if (i % 100 == 99)
                pool->waitForDone(); // every wrapper is gone
        }
        QVERIFY(all.ended.isEmpty()); // not before the event loop is reached
        bool isNew = true;
        connect(&all.manager, &RunnableManager::finished, &all.manager, [&](void* handle) {
            // Started from inside the announcement: still another one.
            isNew = isNew && start(all.manager) != handle;
        });
        all.deliver();
        QVERIFY(all.ended.size() == 1000 && isNew);
    }

    void stopCallsBack()
    {
        enum Target
        {
            Itself,
            TheOther,
            All,
            AnotherJob // is started, and when waiting taken out of the pool again
        };
        pool->setMaxThreadCount(2);
        for (int i = 0; i < 16; ++i) {
            const auto target = Target(i / 4);
            const bool stopsAll = i & 1;
            const bool waits = i & 2;
            Listened all;
            HRunnable self = nullptr;
            HRunnable other = nullptr;
            bool isDone = false;
            bool isInside = false;
            self = start(all.manager, Job::untilStopped, [&](Job&) {
                QVERIFY(!isInside);
                if (std::exchange(isDone, true))
                    return;
                isInside = true;
                QVERIFY(all.manager.isRunning(self) && all.manager.isRunning(other));
                if (target == All)
                    all.manager.stopRunnables(waits);
                else if (target != AnotherJob)
                    all.manager.stopRunnable(target == Itself ? self : other, waits);
                else if (start(all.manager, [](Job&) {}) && waits)
                    pool->clear();
                if (waits && target != AnotherJob)
                    QVERIFY(!all.manager.isRunning(target == TheOther ? other : self));
                isInside = false;
            });
            other = start(all.manager);
            stopsAll ? all.manager.stopRunnables(true) : all.manager.stopRunnable(self, true);
            QVERIFY(isDone && !all.manager.isRunning(self));
            all.manager.stopRunnables(true);
            all.deliver();
            QVERIFY(all.ended.count(self) == 1 && all.ended.count(other) == 1);
        }
    }

    void stopsThatWaitForEachOther()
    {
        RunnableManager manager;
        HRunnable handles[2] = {};
        std::atomic<int> inside{0};
        for (int i = 0; i < 2; ++i)
            handles[i] = start(manager, Job::untilStopped, [&, i](Job& me) {
                if (me.stops > 1)
                    return;
                ++inside;
                waitUntil([&] { return inside == 2; });
                manager.stopRunnable(handles[1 - i], true);
            });
        std::thread second([&] { manager.stopRunnable(handles[1], true); });
        manager.stopRunnable(handles[0], true);
        second.join();
        QVERIFY(!manager.isRunning());
    }

    void jobThatStopsItself()
    {
        RunnableManager manager;
        std::atomic<bool> go{false};
        std::atomic<int> left{-1};
        HRunnable self = nullptr;
        self = start(manager, [&](Job& me) {
            waitUntil([&] { return go.load(); });
            manager.stopRunnable(self, true);
            manager.stopRunnables(true); // waits for the others only
            left = me.canRun() ? -2 : int(manager.isRunning());
        });
        start(manager);
        go = true;
        waitUntil([&] { return !manager.isRunning(); });
        QCOMPARE(left.load(), 1); // itself
    }

    void jobThatWaitsForAQueuedOne()
    {
        pool->setMaxThreadCount(1);
        RunnableManager manager;
        std::atomic<bool> hasWaited{false};
        start(manager, [&](Job&) {
            HRunnable queued = start(manager);
            manager.stopRunnable(queued, true);
            hasWaited = !manager.isRunning(queued);
        });
        waitUntil([&] { return !manager.isRunning(); });
        QVERIFY(hasWaited);
        QCOMPARE(pool->maxThreadCount(), 1);
    }

    void throwingJobs()
    {
        const std::pair<QByteArray, void (*)()> rows[] = {
            {"сбой", [] { throw Exception(QString("сбой")); }},
            {"bad luck", [] { throw std::runtime_error("bad luck"); }},
            {"%1 text", [] { throw QString("%1 text"); }},
            {"xdecimal:nan", [] { throw "xdecimal:nan"; }},
            {"something of an unknown type", [] { throw 5; }},
        };
        for (const auto& row : rows) {
            const auto throwIt = row.second;
            for (int i = 0; i < 2; ++i)
                QTest::ignoreMessage(QtWarningMsg, "RunnableManager : a job threw " + row.first);
            Listened all;
            std::atomic<bool> go{false};
            HRunnable first = start(all.manager, [&](Job&) {
                waitUntil([&] { return go.load(); });
                throwIt();
            });
            std::thread waiting([&] { all.manager.stopRunnable(first, true); });
            go = true;
            waiting.join();
            HRunnable second = start(all.manager, Job::untilStopped, [&](Job&) { throwIt(); });
            all.manager.stopRunnables(true);
            all.deliver();
            QCOMPARE(all.ended, QVector<void*>({first, second}));
        }
    }

    void destroyedWhileJobsRun()
    {
        QVector<int> stopped;
        std::atomic<int> ended{0};
        {
            RunnableManager manager;
            const auto work = [&ended](Job& me) {
                Job::untilStopped(me);
                sleepMs(5);
                ++ended;
            };
            for (int i = 0; i < 8; ++i) // more than the pool has threads
                start(manager, work, [&stopped, i](Job&) { stopped.append(i); });
        }
        QCOMPARE(ended.load(), 8);
        QCOMPARE(stopped, QVector<int>({0, 1, 2, 3, 4, 5, 6, 7})); // in the order of their start
    }

    // A manager, a pool and a job that is its owner's, once the job has ended or its manager's end
    // has it end, with its signal delivered or not.
    void everyOrderOfDeaths()
    {
        std::vector<int> order{0, 1, 2};
        for (int i = 0; i < 12; ++i, std::next_permutation(order.begin(), order.end())) {
            auto* const all = new Listened;
            auto* const threads = new QThreadPool;
            auto* const job = new Job;
            job->setAutoDelete(false);
            std::shared_ptr<void> objects[] = {std::shared_ptr<Listened>(all),
                                               std::shared_ptr<QThreadPool>(threads),
                                               std::shared_ptr<Job>(job)};
            HRunnable handle = all->manager.startRunnable(job, threads);
            if (i < 6 || order[0] != 0)
                all->manager.stopRunnable(handle, true);
            if (i < 6)
                all->deliver();
            QCOMPARE(all->ended.size(), int(i < 6));
            for (const int who : order)
                objects[who].reset();
        }
    }

    void manyCycles()
    {
        constexpr int threadCount = 4;
        constexpr int cycles = 2500; // each
        // A thread for every job that can be there: else all might run jobs that nobody has
        // stopped, while every manager waits for a job that is still queued.
        pool->setMaxThreadCount(threadCount * maxJobs);
        for (quint32 seed : testSeeds(1)) {
            SeedScope scope(seed);
            std::atomic<int> failures{0};
            std::vector<std::thread> threads;
            for (unsigned t = 0; t < threadCount; ++t)
                threads.emplace_back([this, seed, t, &failures] {
                    std::mt19937 random(seed * threadCount + t);
                    for (int i = 0; i < cycles; ++i)
                        failures += liveOnce(random, pool.get()) ? 0 : 1;
                });
            for (std::thread& thread : threads)
                thread.join();
            QCOMPARE(failures.load(), 0);
        }
    }

private:
    HRunnable start(RunnableManager& manager, Job::Work work = Job::untilStopped,
                    Job::Work atStop = Job::Work())
    {
        return manager.startRunnable(new Job(std::move(work), std::move(atStop)), pool.get(), 0);
    }

    std::unique_ptr<QThreadPool> pool;
};

QTEST_GUILESS_MAIN(TestRunnableManager)

#include "tst_runnablemanager.moc"
