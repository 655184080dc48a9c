// SPDX-License-Identifier: MIT
#include "container/rangeset.h"

#include "support/seed.h"

#include <QTest>

#include <limits>
#include <random>
#include <set>

using Set = RangeSet<int>;
using Bounds = QList<int>;

namespace {

Set made(const Bounds& bounds)
{
    Set set;
    for (int i = 0; i + 1 < bounds.size(); i += 2)
        set.addRange(bounds.at(i), bounds.at(i + 1));
    return set;
}

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

class TestRangeSet : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void argumentsMayBeItsOwnBoundaries();
    void limitsOfInt();
    void followsAModel();
};

void TestRangeSet::argumentsMayBeItsOwnBoundaries()
{
    Set set = made({5, 8, 10, 12, 20, 30});
    set.addRange(set.end(0), set.begin(1));
    QCOMPARE(set.boundaries(), (Bounds{5, 12, 20, 30}));
    set.remove(set.begin(0), set.begin(1));
    QCOMPARE(set.boundaries(), (Bounds{20, 30}));
}

void TestRangeSet::limitsOfInt()
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

void TestRangeSet::followsAModel()
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

QTEST_APPLESS_MAIN(TestRangeSet)

#include "tst_rangeset.moc"
