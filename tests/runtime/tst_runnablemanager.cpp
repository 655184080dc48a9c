// SPDX-License-Identifier: MIT
#include "base/exception.h"
#include "runtime/runnablemanager.h"
#include "runtime/watchdog.h"
#include "support/seed.h"

#include <QThreadPool>
#include <QtTest>

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

QStringList logged;

void keepLog(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    if (type == QtWarningMsg)
        logged.append(text);
}

} // namespace

using Act = std::function<void(RunnableManager&, HRunnable, HRunnable, QThreadPool&)>;
using Throw = std::function<void()>;
Q_DECLARE_METATYPE(Act)
Q_DECLARE_METATYPE(Throw)

class TestRunnableManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void oneJob();
    void orderOfTheEnd();
    void finishedCrossesThreads();
    void stopAll();
    void clearedPool();
    void handlesAreNotReusedEarly();
    void stopCallsBack_data();
    void stopCallsBack();
    void stopsThatWaitForEachOther();
    void jobThatStopsItself();
    void jobThatWaitsForAQueuedOne();
    void throwingJobs_data();
    void throwingJobs();
    void destroyedWhileJobsRun();
    void manyCycles();

private:
    std::unique_ptr<Watchdog> watchdog;
    std::unique_ptr<QThreadPool> pool;
};

void TestRunnableManager::init()
{
    watchdog.reset(new Watchdog(QTest::currentTestFunction(), 300));
    pool.reset(new QThreadPool);
    pool->setMaxThreadCount(4);
}

void TestRunnableManager::cleanup()
{
    pool.reset(); // waits until the last wrapper is gone
    QCOMPARE(alive.load(), 0);
    watchdog.reset();
}

void TestRunnableManager::oneJob()
{
    Listened all;
    QVERIFY(!all.manager.isRunning());
    Job* job = new Job;
    HRunnable handle = all.manager.startRunnable(job, pool.get(), 0);
    QVERIFY(handle && all.manager.isRunning() && all.manager.isRunning(handle));
    QCOMPARE(static_cast<RunnableWrapper*>(handle)->payload(), static_cast<Runnable*>(job));
    all.manager.stopRunnable(handle, true);
    QVERIFY(!all.manager.isRunning() && !all.manager.isRunning(handle));
    QVERIFY(all.ended.isEmpty()); // not before the event loop is reached
    all.deliver();
    QCOMPARE(all.ended, QVector<void*>({handle}));
    all.deliver();
    QCOMPARE(all.ended.size(), 1);
}

// The signal is posted while the handle is still listed.
void TestRunnableManager::orderOfTheEnd()
{
    Listened all;
    std::atomic<bool> mayStopReturn{false};
    std::atomic<bool> isInsideStop{false};
    HRunnable handle =
        all.manager.startRunnable(new Job(Job::untilStopped,
                                          [&](Job&) {
                                              isInsideStop = true;
                                              waitUntil([&] { return mayStopReturn.load(); });
                                          }),
                                  pool.get(), 0);
    std::thread stopper([&] { all.manager.stopRunnable(handle, true); });
    waitUntil([&] { return isInsideStop.load(); });
    waitUntil([&] {
        all.deliver();
        return !all.ended.isEmpty();
    });
    QVERIFY(all.manager.isRunning(handle));
    mayStopReturn = true;
    stopper.join();
    QVERIFY(!all.manager.isRunning(handle));
}

void TestRunnableManager::finishedCrossesThreads()
{
    RunnableManager manager;
    QSignalSpy direct(&manager, SIGNAL(finished(void*)));
    QObject receiver;
    QVector<void*> queued;
    connect(
        &manager, &RunnableManager::finished, &receiver,
        [&queued](void* handle) { queued.append(handle); }, Qt::QueuedConnection);
    HRunnable handle = manager.startRunnable(new Job([](Job&) {}), nullptr, 0);
    QTRY_COMPARE(queued, QVector<void*>({handle}));
    QCOMPARE(direct.size(), 1);
    QThreadPool::globalInstance()->waitForDone();
}

void TestRunnableManager::stopAll()
{
    Listened all;
    QVector<int> stopped;
    QVector<HRunnable> handles;
    for (int i = 0; i < 6; ++i) // more than the pool has threads
        handles.append(all.manager.startRunnable(
            new Job(Job::untilStopped, [&stopped, i](Job&) { stopped.append(i); }), pool.get(), 0));
    all.manager.stopRunnables(false);
    all.manager.stopRunnables(true);
    QVERIFY(!all.manager.isRunning());
    QCOMPARE(stopped.mid(0, 6), QVector<int>({0, 1, 2, 3, 4, 5})); // in the order of their start
    all.deliver();
    QCOMPARE(all.ended.size(), 6);
    for (HRunnable handle : handles)
        QCOMPARE(all.ended.count(handle), 1);
}

void TestRunnableManager::clearedPool()
{
    pool->setMaxThreadCount(1);
    Listened all;
    QVector<HRunnable> handles;
    for (int i = 0; i < 5; ++i)
        handles.append(all.manager.startRunnable(new Job, pool.get(), 0));
    std::thread waiting([&] { all.manager.stopRunnable(handles.last(), true); });
    pool->clear(); // deletes what is queued, unrun
    waiting.join();
    waitUntil([&] { return !all.manager.isRunning(handles.at(1)); });
    all.manager.stopRunnables(true);
    QVERIFY(!all.manager.isRunning());
    all.deliver();
    QCOMPARE(all.ended.size(), 5);
    for (HRunnable handle : handles)
        QCOMPARE(all.ended.count(handle), 1);
}

// A handle that the host has not yet been told to be dead never names another job.
void TestRunnableManager::handlesAreNotReusedEarly()
{
    Listened all;
    QSet<void*> handles;
    for (int i = 0; i < 1000; ++i) {
        HRunnable handle = all.manager.startRunnable(new Job([](Job&) {}), pool.get(), 0);
        QVERIFY(!handles.contains(handle));
        handles.insert(handle);
        all.manager.stopRunnable(handle, true);
        if (i % 100 == 99)
            pool->waitForDone(); // every wrapper is gone
    }
    bool isNew = true;
    connect(&all.manager, &RunnableManager::finished, &all.manager, [&](void* handle) {
        // Started from inside the announcement: still another one.
        isNew = isNew && all.manager.startRunnable(new Job, pool.get(), 0) != handle;
    });
    all.deliver();
    QCOMPARE(all.ended.size(), 1000);
    QVERIFY(isNew);
}

void TestRunnableManager::stopCallsBack_data()
{
    QTest::addColumn<Act>("act");
    const auto row = [](const char* name, Act act) { QTest::newRow(name) << act; };
    using M = RunnableManager;
    row("is running", [](M& m, HRunnable self, HRunnable other, QThreadPool&) {
        QVERIFY(m.isRunning() && m.isRunning(self) && m.isRunning(other));
    });
    row("stop itself",
        [](M& m, HRunnable self, HRunnable, QThreadPool&) { m.stopRunnable(self, false); });
    row("wait for itself", [](M& m, HRunnable self, HRunnable, QThreadPool&) {
        m.stopRunnable(self, true);
        QVERIFY(!m.isRunning(self));
    });
    row("stop the other",
        [](M& m, HRunnable, HRunnable other, QThreadPool&) { m.stopRunnable(other, false); });
    row("wait for the other", [](M& m, HRunnable, HRunnable other, QThreadPool&) {
        m.stopRunnable(other, true);
        QVERIFY(!m.isRunning(other));
    });
    row("stop all", [](M& m, HRunnable, HRunnable, QThreadPool&) { m.stopRunnables(false); });
    row("wait for all", [](M& m, HRunnable, HRunnable, QThreadPool&) {
        m.stopRunnables(true);
        QVERIFY(!m.isRunning());
    });
    row("start another", [](M& m, HRunnable, HRunnable, QThreadPool& p) {
        m.startRunnable(new Job([](Job&) {}), &p, 0);
    });
    row("clear the pool", [](M& m, HRunnable, HRunnable, QThreadPool& p) {
        m.startRunnable(new Job, &p, -1);
        p.clear();
    });
}

void TestRunnableManager::stopCallsBack()
{
    QFETCH(Act, act);
    pool->setMaxThreadCount(2);
    for (bool stopsAll : {false, true}) {
        Listened all;
        HRunnable self = nullptr;
        HRunnable other = nullptr;
        bool isDone = false;
        Job* job = new Job(Job::untilStopped, [&](Job& me) {
            QVERIFY(!isDone || me.stops > 1);
            if (isDone)
                return;
            isDone = true;
            act(all.manager, self, other, *pool);
        });
        self = all.manager.startRunnable(job, pool.get(), 0);
        other = all.manager.startRunnable(new Job, pool.get(), 0);
        if (stopsAll)
            all.manager.stopRunnables(true);
        else
            all.manager.stopRunnable(self, true);
        QVERIFY(isDone && !all.manager.isRunning(self));
        all.manager.stopRunnables(true);
        all.deliver();
        QVERIFY(all.ended.count(self) == 1 && all.ended.count(other) == 1);
    }
}

void TestRunnableManager::stopsThatWaitForEachOther()
{
    RunnableManager manager;
    HRunnable handles[2] = {};
    std::atomic<int> inside{0};
    for (int i = 0; i < 2; ++i)
        handles[i] = manager.startRunnable(new Job(Job::untilStopped,
                                                   [&, i](Job& me) {
                                                       if (me.stops > 1)
                                                           return;
                                                       ++inside;
                                                       waitUntil([&] { return inside == 2; });
                                                       manager.stopRunnable(handles[1 - i], true);
                                                   }),
                                           pool.get(), 0);
    std::thread second([&] { manager.stopRunnable(handles[1], true); });
    manager.stopRunnable(handles[0], true);
    second.join();
    QVERIFY(!manager.isRunning());
}

void TestRunnableManager::jobThatStopsItself()
{
    RunnableManager manager;
    std::atomic<bool> go{false};
    std::atomic<int> left{-1};
    HRunnable self = nullptr;
    self = manager.startRunnable(new Job([&](Job& me) {
                                     waitUntil([&] { return go.load(); });
                                     manager.stopRunnable(self, true);
                                     manager.stopRunnables(true); // waits for the others only
                                     left = me.canRun() ? -2 : int(manager.isRunning());
                                 }),
                                 pool.get(), 0);
    manager.startRunnable(new Job, pool.get(), 0);
    go = true;
    waitUntil([&] { return !manager.isRunning(); });
    QCOMPARE(left.load(), 1); // itself
}

void TestRunnableManager::jobThatWaitsForAQueuedOne()
{
    pool->setMaxThreadCount(1);
    RunnableManager manager;
    std::atomic<bool> hasWaited{false};
    manager.startRunnable(new Job([&](Job&) {
                              HRunnable queued = manager.startRunnable(new Job, pool.get(), 0);
                              manager.stopRunnable(queued, true);
                              hasWaited = !manager.isRunning(queued);
                          }),
                          pool.get(), 0);
    waitUntil([&] { return !manager.isRunning(); });
    QVERIFY(hasWaited);
    QCOMPARE(pool->maxThreadCount(), 1);
}

void TestRunnableManager::throwingJobs_data()
{
    QTest::addColumn<Throw>("throwIt");
    QTest::addColumn<QString>("text");
    const auto row = [](const char* name, Throw throwIt, const QString& text) {
        QTest::newRow(name) << throwIt << text;
    };
    row(
        "exception", [] { throw Exception(QString("сбой")); }, QString("сбой"));
    row(
        "standard", [] { throw std::runtime_error("bad luck"); }, "bad luck");
    row(
        "text", [] { throw QString("%1 text"); }, "%1 text");
    row(
        "characters", [] { throw "xdecimal:nan"; }, "xdecimal:nan");
    row(
        "number", [] { throw 5; }, "something of an unknown type");
}

void TestRunnableManager::throwingJobs()
{
    QFETCH(Throw, throwIt);
    QFETCH(QString, text);
    logged.clear();
    const QtMessageHandler previous = qInstallMessageHandler(keepLog);
    Listened all;
    std::atomic<bool> go{false};
    HRunnable handle = all.manager.startRunnable(new Job([&](Job&) {
                                                     waitUntil([&] { return go.load(); });
                                                     throwIt();
                                                 }),
                                                 pool.get(), 0);
    std::thread waiting([&] { all.manager.stopRunnable(handle, true); });
    go = true;
    waiting.join();
    HRunnable second = all.manager.startRunnable(
        new Job(Job::untilStopped, [&](Job&) { throwIt(); }), pool.get(), 0);
    all.manager.stopRunnables(true);
    qInstallMessageHandler(previous);
    all.deliver();
    QCOMPARE(all.ended, QVector<void*>({handle, second}));
    const QString line = "RunnableManager : a job threw " + text;
    QCOMPARE(logged, QStringList({line, line}));
}

void TestRunnableManager::destroyedWhileJobsRun()
{
    std::atomic<int> ended{0};
    {
        RunnableManager manager;
        for (int i = 0; i < 8; ++i)
            manager.startRunnable(new Job([&ended](Job& me) {
                                      Job::untilStopped(me);
                                      sleepMs(5);
                                      ++ended;
                                  }),
                                  pool.get(), 0);
    }
    QCOMPARE(ended.load(), 8);
}

namespace {

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

void TestRunnableManager::manyCycles()
{
    constexpr int threadCount = 4;
    constexpr int cycles = 2500; // each
    // A thread for every job that can be there: else all might run jobs that nobody has stopped,
    // while every manager waits for a job that is still queued.
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

QTEST_GUILESS_MAIN(TestRunnableManager)

#include "tst_runnablemanager.moc"
