// SPDX-License-Identifier: MIT
#include "concurrent/concurrentsort.h"

#include "support/seed.h"

#include <QException>
#include <QMutex>
#include <QSemaphore>
#include <QSet>
#include <QThread>
#include <QThreadPool>

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <stdexcept>
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

void startOnPool(std::function<void()> payload)
{
    QThreadPool::globalInstance()->start(std::move(payload));
}

/// A dead-locked pool cannot be taken down in an orderly way.
void waitForPool()
{
    if (!QThreadPool::globalInstance()->waitForDone(60'000))
        qFatal("The thread pool is dead-locked");
}

class OwnException : public QException
{
public:
    void raise() const override { throw *this; }
    OwnException* clone() const override { return new OwnException(*this); }
    int detail = 7;
};

struct ThrownPlain
{
    int detail;
};

// What the item throws, of the n-th kind; and of which kind it is that a call throws.
[[noreturn]] void throwKind(int kind, int item)
{
    switch (kind) {
    case 0:
        throw QStringLiteral("text");
    case 1:
        throw "xdecimal:nan";
    case 2:
        throw std::runtime_error("standard");
    case 3:
        throw OwnException();
    case 4:
        throw ThrownPlain{item};
    default:
        throw item;
    }
}
int kindThrown(const std::function<void()>& call, int item)
{
    try {
        call();
    } catch (const QString& text) {
        return text == QLatin1String("text") ? 0 : -2;
    } catch (const char* text) {
        return qstrcmp(text, "xdecimal:nan") == 0 ? 1 : -2;
    } catch (const std::runtime_error& error) {
        return qstrcmp(error.what(), "standard") == 0 ? 2 : -2;
    } catch (const OwnException& error) {
        return error.detail == 7 ? 3 : -2;
    } catch (const ThrownPlain& error) {
        return error.detail == item ? 4 : -2;
    } catch (int number) {
        return number == item ? 5 : -2;
    }
    return -1;
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
                std::vector<Element> array = vector;
                std::deque<Element> deque(vector.begin(), vector.end());
                ConcurrentSort::stableSortHelper(vector.begin(), vector.end(), keyLess);
                ConcurrentSort::stableSortHelper(array.data(), array.data() + n, keyLess);
                ConcurrentSort::stableSortHelper(deque.begin(), deque.end(), keyLess);
                QVERIFY(isStablySorted(vector.begin(), vector.end()));
                QVERIFY(isStablySorted(array.begin(), array.end()));
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
        // On a machine that is busy with something else the caller may have to do all of it.
        const auto threadsUsed = [](int n) {
            std::vector<Element> elements = randomElements(n, 1);
            QMutex mutex;
            QSet<QThread*> threads;
            ConcurrentSort::stableSortHelper(elements.begin(), elements.end(),
                                             [&](const Element& a, const Element& b) {
                                                 const QMutexLocker lock(&mutex);
                                                 threads.insert(QThread::currentThread());
                                                 return a.key < b.key;
                                             });
            return threads.contains(QThread::currentThread()) ? threads.size() : 0;
        };
        for (int i = 0; i < 100; ++i)
            QCOMPARE(threadsUsed(511), 1);
        QTRY_VERIFY(threadsUsed(512) > 1);
    }

    void throwingOrder()
    {
        // By the number of comparisons before it: in a chunk, in each merge and in the caller's
        // own.
        for (const int call : {1, 100, 2000, 8000, 9000, 9900, 10500}) {
            std::vector<Element> elements = randomElements(1200, 1);
            std::atomic<int> calls{0};
            const auto sort = [&] {
                ConcurrentSort::stableSortHelper(elements.begin(), elements.end(),
                                                 [&](const Element& a, const Element& b) {
                                                     if (++calls == call)
                                                         throwKind(0, 0);
                                                     return a.key < b.key;
                                                 });
            };
            QCOMPARE(kindThrown(sort, 0), 0);
        }
    }

    void mapCarriesExceptions()
    {
        for (int i = 0; i < 6 * 8; ++i) {
            const int kind = i / 8;
            const int thrower = i % 8;
            std::atomic<int> finished{0};
            std::vector<int> items(8);
            std::iota(items.begin(), items.end(), 0);
            const auto map = [&] {
                LiveTable::blockingMap(items, [&](int item) {
                    if (item == thrower)
                        throwKind(kind, item);
                    QThread::usleep(200);
                    ++finished;
                });
            };
            QCOMPARE(kindThrown(map, thrower), kind);
            QCOMPARE(finished.load(), 7);
        }
    }

    void poolFullOfCallers()
    {
        for (const int threads : {1, 2, 8}) {
            const PoolSize size(threads);
            std::atomic<int> sorted{0};
            QSemaphore gate;
            for (int i = 0; i < 12; ++i) {
                startOnPool([&, i] {
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
                    startOnPool([&] {
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
