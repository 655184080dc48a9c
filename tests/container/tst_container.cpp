// SPDX-License-Identifier: MIT
#include "container/partitioncheck-inl.h"
#include "container/partitionlist.h"
#include "container/rangeset.h"
#include "support/seed.h"

#include <QtTest>

#include <limits>
#include <random>
#include <set>

namespace {

// A movable element that counts its living copies: a list that loses or doubles one is found out.
class Counted
{
public:
    explicit Counted(qint64 v = 0)
        : value(v)
    {
        ++living;
    }
    Counted(const Counted& o)
        : value(o.value)
    {
        ++living;
    }
    Counted& operator=(const Counted& o) = default;
    ~Counted() { --living; }
    friend bool operator==(const Counted& a, const Counted& b) { return a.value == b.value; }
    qint64 value;
    static int living;
};
int Counted::living = 0;

} // namespace
Q_DECLARE_TYPEINFO(Counted, Q_MOVABLE_TYPE);

namespace {

using List = PartitionList<Counted>;

QVector<int> sizes(const List& list)
{
    QVector<int> counts;
    for (const auto* part : list.partitions())
        if (part)
            counts.append(part->count());
    return counts;
}

struct Modelled
{
    qint64 value;
    SortKey key;
};

QString broken(const List& list, const std::vector<Modelled>& model)
{
    if (const char* fault = list.verify([](const Counted&, SortKey) { return true; }))
        return QString::fromLatin1(fault);
    if (list.count() != static_cast<int>(model.size()))
        return QStringLiteral("count");
    size_t i = 0;
    for (const Counted& c : list) {
        const List::Place place = list.place(static_cast<int>(i));
        if (c.value != model[i].value || list.at(static_cast<int>(i)).value != c.value ||
            list.position(place) != static_cast<int>(i) ||
            (list.isKeyed() && list.keyAt(place) != model[i].key))
            return QStringLiteral("element %1").arg(i);
        List::Place next = place;
        List::Place previous = place;
        const int last = list.count() - 1;
        if ((list.stepForward(next) ? list.position(next) - 1 : last) != static_cast<int>(i) ||
            (list.stepBack(previous) ? list.position(previous) + 1 : 0) != static_cast<int>(i))
            return QStringLiteral("neighbour of element %1").arg(i);
        ++i;
    }
    return i == model.size() ? QString() : QStringLiteral("iteration ended at %1").arg(i);
}

// Every way to change a list, beside a plain vector.
class Driver
{
public:
    Driver(quint32 seed, int partitionSize, int keyWords)
        : random(seed)
        , list(partitionSize)
    {
        list.setKeyWords(keyWords);
    }

    void step(int largest)
    {
        const int n = list.count();
        const int what = below(n > largest ? 14 : 10);
        switch (what) {
        case 4:
            add(n, n ? model.back().key : SortKey(), true);
            break;
        case 5:
            if (!list.isKeyed()) {
                QList<Counted> run;
                const int at = below(n + 1);
                for (int i = below(3 * list.partitionSize()); i > 0; --i)
                    run.append(Counted(next++));
                list.insert(at, run);
                for (int i = run.size() - 1; i >= 0; --i)
                    model.insert(model.begin() + at, {run.at(i).value, SortKey()});
                break;
            }
            Q_FALLTHROUGH();
        case 6:
        case 7:
        case 8:
            if (n > 0) {
                const int at = below(n);
                list.remove(at);
                model.erase(model.begin() + at);
            }
            list.remove(n + 5); // out of range: nothing
            list.remove(-1);
            break;
        case 9:
            list.joinPartitions();
            break;
        default:
            what < 4 ? insert(below(n + 1)) : removeRanges();
        }
    }

    QString check()
    {
        const QString error = broken(list, model);
        return error.isEmpty() ? wrongSearch() : error;
    }

    int below(int n) { return n > 0 ? int(random() % quint32(n)) : 0; }

    std::mt19937 random;
    List list;
    std::vector<Modelled> model;

private:
    void add(int at, SortKey key, bool append)
    {
        const Counted value(next++);
        if (append)
            list.append(value, key);
        else
            list.insert(at, value, key);
        model.insert(model.begin() + at, {value.value, key});
    }
    void insert(int at)
    {
        SortKey key;
        if (list.isKeyed()) {
            // Keys must not decrease: look the place up by the key, or take a neighbour's.
            key = randomKey();
            const List::Place place =
                list.partitionPoint(true, key, [](const Counted&) { return true; });
            at = list.position(place);
            if (at != bound(key, true))
                qFatal("partition point");
        }
        add(at, key, false);
    }
    SortKey randomKey()
    {
        const quint64 high = random() % (list.keyWords() > 1 ? 7 : 50);
        return {high, list.keyWords() > 1 ? random() % 9 : 0};
    }
    int bound(SortKey key, bool isUpper) const
    {
        return int(std::count_if(model.begin(), model.end(), [&](const Modelled& each) {
            return isUpper ? !(key < each.key) : each.key < key;
        }));
    }
    void removeRanges()
    {
        const int n = list.count();
        RangeSet<int> ranges;
        for (int i = below(6); i >= 0; --i) {
            const int from = below(n + 3) - 1;
            ranges.addRange(from, from + 1 + below(below(4) ? 3 : n));
        }
        list.removeRanges(ranges);
        for (int i = n - 1; i >= 0; --i)
            if (ranges.contains(i))
                model.erase(model.begin() + i);
    }
    QString wrongSearch()
    {
        if (!list.isKeyed())
            return QString();
        const SortKey key = randomKey();
        const auto place = list.partitionPoint(true, key, [](const Counted&) { return false; });
        return list.position(place) == bound(key, false) ? QString() : "lower bound";
    }

    qint64 next = 1;
};

// --- range sets ---

using Set = RangeSet<int>;
using Bounds = QList<int>;

Bounds boundsOf(const std::set<int>& model)
{
    Bounds bounds;
    for (int value : model) {
        if (!bounds.isEmpty() && bounds.last() == value)
            bounds.last() = value + 1;
        else
            bounds << value << value + 1;
    }
    return bounds;
}

std::set<int> within(const std::set<int>& model, int from, int to)
{
    return from < to ? std::set<int>(model.lower_bound(from), model.lower_bound(to))
                     : std::set<int>();
}

} // namespace

class TestContainer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void randomOperations()
    {
        const struct
        {
            int partitionSize, keyWords, largest, steps;
        } rows[] = {
            {4, 0, 40, 4000},       // tiny partitions
            {4, 2, 300, 6000},      // with keys
            {5, 1, 900, 6000},      // more than one group of partitions
            {1500, 0, 4000, 1500},  // partitions of several leaves
            {1000, 2, 3000, 12000}, // with keys
        };
        for (const auto& [partitionSize, keyWords, largest, steps] : rows) {
            const quint32 seed = testSeeds(1).first();
            const SeedScope scope(seed);
            Driver driver(seed, partitionSize, keyWords);
            for (int i = 0; i < steps; ++i) {
                driver.step(largest);
                if (i % (steps / 500) == 0) {
                    const QString error = driver.check();
                    QVERIFY2(error.isEmpty(), qPrintable(error));
                    QCOMPARE(Counted::living, driver.list.count());
                }
            }
            driver.list.clear();
            QCOMPARE(Counted::living, 0);
            QCOMPARE(driver.list.partitions().size(), 1);
        }
    }

    void partitionSizesAreFixed()
    {
        List list(10000);
        for (int i = 0; i < 9999; ++i)
            list.insert(i, Counted(i));
        QCOMPARE(sizes(list), QVector<int>({9999}));
        list.insert(9999, Counted(9999));
        QCOMPARE(sizes(list), QVector<int>({5000, 5000}));
        list.insert(5000, Counted(-1)); // at the boundary: to the end of the earlier one
        QCOMPARE(sizes(list), QVector<int>({5001, 5000}));

        RangeSet<int> most;
        most.addRange(2000, 5001);
        list.removeRanges(most);
        QCOMPARE(sizes(list), QVector<int>({2000, 5000}));
        while (list.count() > 5000)
            list.remove(list.count() - 1);
        QCOMPARE(sizes(list), QVector<int>({2000, 3000}));
        list.remove(4999); // 2999 and 2000: fewer than 5000 together
        QCOMPARE(sizes(list), QVector<int>({4999}));

        List appended(10000);
        for (int i = 0; i < 10000; ++i)
            appended.append(Counted(i));
        QCOMPARE(sizes(appended), QVector<int>({9999, 1}));
        for (int i = 0; i < 9999; ++i)
            appended.remove(0);
        QCOMPARE(sizes(appended), QVector<int>({1}));
        QCOMPARE(appended.at(5).value, qint64(0)); // out of range: a default one
    }

    // Filled at once as if one after the other.
    void assigns()
    {
        const auto inTurn = [](std::vector<int>& parts, auto work) {
            std::for_each(parts.begin(), parts.end(), work);
        };
        const int before = Counted::living;
        for (const int words : {0, 1, 2})
            for (const int n : {0, 1, 16, 17, 61, 62, 64, 65, 399, 400, 1500}) {
                List assigned(400);
                List appended(400);
                assigned.setKeyWords(words);
                appended.setKeyWords(words);
                std::vector<Modelled> model;
                for (int i = 0; i < n; ++i) {
                    const quint64 low = words > 1 ? quint64(i % 7) : 0;
                    model.push_back({i, words > 0 ? SortKey{quint64(i / 7), low} : SortKey()});
                    appended.append(Counted(i), model.back().key);
                }
                assigned.assign(n, inTurn, [&](int i, void* slot, SortKey* key) {
                    new (slot) Counted(i);
                    *key = model[size_t(i)].key;
                });
                QCOMPARE(broken(assigned, model), QString());
                QCOMPARE(sizes(assigned), sizes(appended));
            }
        QCOMPARE(Counted::living, before);
    }

    void iteratorsAreRandomAccess()
    {
        Driver driver(7, 6, 0);
        List& list = driver.list;
        for (int i = 0; i < 100; ++i)
            list.append(Counted(i));
        QCOMPARE(list.end() - list.begin(), 100);
        for (int i = 0; i < 2000; ++i) {
            const int a = driver.below(101);
            const int b = 1 + driver.below(100);
            List::const_iterator it = list.cbegin() + a;
            it += b - a;
            QCOMPARE(it.index(), b);
            QVERIFY(it == list.cend() - (100 - b));
            QCOMPARE((--it)->value, qint64(b - 1));
        }
        const auto less = [](const Counted& x, const Counted& y) { return y.value < x.value; };
        std::stable_sort(list.begin(), list.end(), less);
        QVERIFY(std::is_sorted(list.cbegin(), list.cend(), less));
    }

    void rangesMayBeNamedByTheirOwnBoundaries()
    {
        Set set;
        for (const int from : {5, 10, 20})
            set.addRange(from, from + from / 4 + 2);
        QCOMPARE(set.boundaries(), (Bounds{5, 8, 10, 14, 20, 27}));
        set.addRange(set.end(0), set.begin(1));
        QCOMPARE(set.boundaries(), (Bounds{5, 14, 20, 27}));
        set.remove(set.begin(0), set.begin(1));
        QCOMPARE(set.boundaries(), (Bounds{20, 27}));
    }

    void rangesReachTheLimitsOfInt()
    {
        const int low = std::numeric_limits<int>::min();
        const int high = std::numeric_limits<int>::max();
        Set set;
        set.addRange(low, high);
        QCOMPARE(set.size(), qint64(high) - low);
        QVERIFY(set.contains(low) && set.contains(high - 1) && !set.contains(high));
        set.remove(low, 0);
        set.addRange(low, low + 1);
        QCOMPARE(set.boundaries(), (Bounds{low, low + 1, 0, high}));
        QCOMPARE(set.intersect(low, high), set);
    }

    void rangesFollowAModel()
    {
        for (const quint32 seed : testSeeds(60)) {
            const SeedScope scope(seed);
            std::mt19937 random(seed);
            // Small universes make ranges touch; most cuts are short.
            const int universe = seed % 3 == 0 ? 8 : 40;
            const auto point = [&] { return int(random() % unsigned(universe)) - universe / 4; };
            Set set;
            std::set<int> model;
            for (int step = 0; step < 300; ++step) {
                const int from = point();
                const int to = random() % 4 == 0 ? point() : from + int(random() % 4);
                const Set before = set;
                const Bounds beforeBounds = boundsOf(model);
                if (random() % 5 < 3) {
                    set.addRange(from, to);
                    for (int i = from; i < to; ++i)
                        model.insert(i);
                } else {
                    set.remove(from, to);
                    for (int i = from; i < to; ++i)
                        model.erase(i);
                }
                QCOMPARE(set.boundaries(), boundsOf(model));
                QCOMPARE(before.boundaries(), beforeBounds);
                QCOMPARE(set.size(), qint64(model.size()));
                QCOMPARE(set.isEmpty(), model.empty());
                QCOMPARE(set == before, boundsOf(model) == beforeBounds);
                for (int i = -universe; i < 2 * universe; ++i)
                    QCOMPARE(set.contains(i), model.count(i) > 0);
                const int a = point();
                const int b = point();
                QCOMPARE(set.intersect(a, b).boundaries(), boundsOf(within(model, a, b)));
            }
        }
    }
};

QTEST_APPLESS_MAIN(TestContainer)
#include "tst_container.moc"
