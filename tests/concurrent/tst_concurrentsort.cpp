// SPDX-License-Identifier: MIT
#include "concurrent/concurrentsort.h"

#include "support/seed.h"

#include <QDeadlineTimer>
#include <QException>
#include <QMutex>
#include <QSemaphore>
#include <QSet>
#include <QThread>
#include <QThreadPool>
#include <QWaitCondition>

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

namespace {

/// Sixteen bytes, like what a view sorts: a key and where the element stood.
struct Element
{
    qint64 key;
    qint64 place;
};

bool keyLess(const Element& a, const Element& b)
{
    return a.key < b.key;
}

std::vector<Element> randomElements(int n, quint32 seed)
{
    std::mt19937 random(seed);
    const unsigned keys = 1 + unsigned(n) / unsigned(1 + random() % 50);
    std::vector<Element> elements;
    for (int i = 0; i < n; ++i)
        elements.push_back({qint64(random() % keys), i});
    return elements;
}

template <typename Iterator>
bool isStablySorted(Iterator begin, Iterator end)
{
    return std::is_sorted(begin, end, [](const Element& a, const Element& b) {
        return a.key < b.key || (a.key == b.key && a.place < b.place);
    });
}

/// Sets the size of the global pool for a test.
class PoolSize
{
public:
    explicit PoolSize(int threads) { QThreadPool::globalInstance()->setMaxThreadCount(threads); }
    ~PoolSize()
    {
        QThreadPool::globalInstance()->waitForDone();
        QThreadPool::globalInstance()->setMaxThreadCount(before);
    }
    Q_DISABLE_COPY(PoolSize)

private:
    int before = QThreadPool::globalInstance()->maxThreadCount();
};

/// A dead-locked pool cannot be taken down in an orderly way.
void waitForPool()
{
    if (!QThreadPool::globalInstance()->waitForDone(60'000))
        qFatal("The thread pool is dead-locked");
}

// An exception that Qt carries from thread to thread, and one that it does not.
class OwnException : public QException
{
public:
    explicit OwnException(int n)
        : detail(n)
    {}
    void raise() const override { throw *this; }
    OwnException* clone() const override { return new OwnException(*this); }
    int detail;
};
struct PlainException
{
    int detail;
};

/// What a call throws: the number in it, negative for a plain one.
int thrownBy(const std::function<void()>& call)
{
    try {
        call();
    } catch (const OwnException& error) {
        return error.detail;
    } catch (const PlainException& error) {
        return -error.detail;
    }
    return 0;
}

} // namespace

class TestConcurrentSort : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sortsStably()
    {
        for (const int n : {0, 1, 2, 511, 512, 513, 519, 1000, 4099, 100'000}) {
            for (const quint32 seed : testSeeds(3)) {
                const SeedScope scope(seed);
                std::vector<Element> vector = randomElements(n, seed);
                std::deque<Element> deque(vector.begin(), vector.end());
                ConcurrentSort::stableSortHelper(vector.data(), vector.data() + n, keyLess);
                ConcurrentSort::stableSortHelper(deque.begin(), deque.end(), keyLess);
                QVERIFY(isStablySorted(vector.begin(), vector.end()));
                QVERIFY(isStablySorted(deque.begin(), deque.end()));
            }
        }
    }

    // Two elements are first compared when the chunks that they stood in are joined: within a chunk
    // (level 0), a quarter (1), a half (2), the whole (3). A wrong cut, or a merge that does not
    // wait for its chunks, mixes the levels in the log.
    void cutsAtTheEighths()
    {
        for (const QVector<int>& cuts :
             {QVector<int>{0, 64, 128, 192, 256, 320, 384, 448, 512},
              QVector<int>{0, 125, 250, 375, 500, 625, 750, 875, 1001},
              QVector<int>{0, 127, 255, 383, 511, 639, 767, 895, 1023}}) {
            std::vector<Element> elements = randomElements(cuts.last(), 1);
            const auto chunkOf = [&](const Element& element) {
                const auto end = std::upper_bound(cuts.begin(), cuts.end(), int(element.place));
                return int(end - cuts.begin()) - 1;
            };
            QMutex mutex;
            QVector<int> levels;
            ConcurrentSort::stableSortHelper(
                elements.begin(), elements.end(), [&](const Element& a, const Element& b) {
                    const int apart = chunkOf(a) ^ chunkOf(b);
                    const QMutexLocker lock(&mutex);
                    levels.append(apart == 0 ? 0 : apart == 1 ? 1 : apart < 4 ? 2 : 3);
                    return a.key < b.key;
                });
            QVERIFY(isStablySorted(elements.begin(), elements.end()));
            QVERIFY(std::is_sorted(levels.begin(), levels.end()));
            for (int level = 0; level < 4; ++level)
                QVERIFY(levels.contains(level));
        }
        QCOMPARE(ConcurrentSort::cut(2'147'483'647, 7), 1'879'048'191); // huge ranges
    }

    void usesThePoolAbove511()
    {
        const PoolSize size(2);
        const auto threadsUsed = [](int n, qint64 patienceMs) {
            std::vector<Element> elements = randomElements(n, 1);
            QMutex mutex;
            QWaitCondition another;
            QSet<QThread*> threads;
            const QDeadlineTimer deadline(patienceMs);
            const auto less = [&](const Element& a, const Element& b) {
                const QMutexLocker lock(&mutex);
                threads.insert(QThread::currentThread());
                another.wakeAll();
                // Until another thread has come, however busy the machine is with something else.
                while (threads.size() == 1 && another.wait(&mutex, deadline)) {
                }
                return a.key < b.key;
            };
            ConcurrentSort::stableSortHelper(elements.begin(), elements.end(), less);
            return threads.contains(QThread::currentThread()) ? threads.size() : 0;
        };
        QCOMPARE(threadsUsed(511, 200), 1);
        QVERIFY(threadsUsed(512, 10'000) > 1);
    }

    void throwingOrder()
    {
        // By the number of comparisons before it: in a chunk, in each merge and in the caller's
        // own.
        for (const int call : {1, 100, 2000, 8000, 9000, 9900, 10500}) {
            std::vector<Element> elements = randomElements(1200, 1);
            std::atomic<int> calls{0};
            const auto less = [&](const Element& a, const Element& b) {
                return ++calls == call ? throw PlainException{call} : a.key < b.key;
            };
            QCOMPARE(thrownBy([&] {
                         ConcurrentSort::stableSortHelper(elements.begin(), elements.end(), less);
                     }),
                     -call);
        }
    }

    void mapCarriesExceptions()
    {
        std::vector<int> items(8);
        std::iota(items.begin(), items.end(), 1);
        for (const bool isPlain : {false, true}) {
            for (const int thrower : items) {
                std::atomic<int> finished{0};
                const auto work = [&](int item) {
                    if (item == thrower && isPlain)
                        throw PlainException{item};
                    if (item == thrower)
                        throw OwnException(item);
                    QThread::usleep(200);
                    ++finished;
                };
                QCOMPARE(thrownBy([&] { LiveTable::blockingMap(items, work); }),
                         isPlain ? -thrower : thrower);
                QCOMPARE(finished.load(), 7);
            }
        }
    }

    void poolFullOfCallers()
    {
        for (const int threads : {1, 2, 8}) {
            const PoolSize size(threads);
            std::atomic<int> sorted{0};
            QSemaphore gate;
            for (int i = 0; i < 12; ++i) {
                QThreadPool::globalInstance()->start([&, i] {
                    gate.acquire(); // so that the pool is full of them before the first one sorts
                    std::vector<Element> elements = randomElements(2000, quint32(i));
                    ConcurrentSort::stableSortHelper(elements.begin(), elements.end(), keyLess);
                    sorted += isStablySorted(elements.begin(), elements.end());
                });
            }
            gate.release(12);
            waitForPool();
            QCOMPARE(sorted.load(), 12);
        }
    }

    // A thread outside the pool maps while every thread of the pool waits for it, be it from before
    // the call or as soon as it has begun. The map that Qt starts afterwards must find nothing to
    // do.
    void poolWaitingForTheCaller()
    {
        const PoolSize size(2);
        for (int alreadyWaiting : {0, 1, 2}) {
            QSemaphore waiting;
            QMutex lock;
            std::atomic<int> runs{0};
            {
                const QMutexLocker holder(&lock);
                for (int i = 0; i < 2; ++i) {
                    QThreadPool::globalInstance()->start([&] {
                        waiting.release();
                        const QMutexLocker waiter(&lock);
                    });
                    if (i < alreadyWaiting)
                        waiting.acquire();
                }
                const auto items = std::make_unique<QVector<int>>(8);
                LiveTable::blockingMap(*items, [&runs, use = std::make_shared<int>(1)](int& item) {
                    item += *use;
                    ++runs;
                });
                QCOMPARE(*items, QVector<int>(8, 1));
            }
            waitForPool();
            QCOMPARE(runs.load(), 8);
        }
    }
};

QTEST_GUILESS_MAIN(TestConcurrentSort)

#include "tst_concurrentsort.moc"
