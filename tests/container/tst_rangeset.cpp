// SPDX-License-Identifier: MIT
#include "container/rangeset.h"

#include "support/seed.h"

#include <QElapsedTimer>

#include <limits>
#include <random>
#include <set>

using Set = RangeSet<int>;
using Bounds = QList<int>;

Q_DECLARE_METATYPE(Set)

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
    void fixedCases_data();
    void fixedCases();
    void argumentsMayBeItsOwnBoundaries();
    void limitsOfInt();
    void ascendingAppendsAreCheap();
    void followsAModel();
};

void TestRangeSet::fixedCases_data()
{
    QTest::addColumn<Set>("result");
    QTest::addColumn<Bounds>("expected");
    const auto add = [](Set set, int from, int to) {
        set.addRange(from, to);
        return set;
    };
    const auto cut = [](Set set, int from, int to) {
        set.remove(from, to);
        return set;
    };
    const Set one = made({5, 8});
    const Set two = made({5, 8, 10, 12});

    QTest::newRow("add to empty") << add(Set(), 5, 8) << Bounds{5, 8};
    QTest::newRow("add ending at a begin") << add(one, 3, 5) << Bounds{3, 8};
    QTest::newRow("add beginning at an end") << add(one, 8, 9) << Bounds{5, 9};
    QTest::newRow("add between, touching both") << add(two, 8, 10) << Bounds{5, 12};
    QTest::newRow("add one short of both")
        << add(made({1, 3, 9, 12}), 4, 8) << Bounds{1, 3, 4, 8, 9, 12};
    QTest::newRow("add over all") << add(two, 0, 20) << Bounds{0, 20};
    QTest::newRow("add inside") << add(one, 6, 7) << Bounds{5, 8};
    QTest::newRow("add the same") << add(two, 10, 12) << Bounds{5, 8, 10, 12};
    QTest::newRow("add nothing") << add(one, 6, 6) << Bounds{5, 8};
    QTest::newRow("add nothing outside") << add(one, 2, 2) << Bounds{5, 8};
    QTest::newRow("add backwards") << add(one, 7, 2) << Bounds{5, 8};

    QTest::newRow("remove inside") << cut(one, 6, 7) << Bounds{5, 6, 7, 8};
    QTest::newRow("remove exactly") << cut(two, 5, 8) << Bounds{10, 12};
    QTest::newRow("remove the tail") << cut(one, 7, 8) << Bounds{5, 7};
    QTest::newRow("remove the head") << cut(one, 5, 6) << Bounds{6, 8};
    QTest::newRow("remove a gap") << cut(two, 8, 10) << Bounds{5, 8, 10, 12};
    QTest::newRow("remove across") << cut(two, 7, 11) << Bounds{5, 7, 11, 12};
    QTest::newRow("remove all") << cut(two, 0, 100) << Bounds{};
    QTest::newRow("remove nothing") << cut(one, 6, 6) << Bounds{5, 8};
    QTest::newRow("remove backwards") << cut(one, 8, 5) << Bounds{5, 8};

    QTest::newRow("intersect empty") << Set().intersect(0, 100) << Bounds{};
    QTest::newRow("intersect cut and whole") << two.intersect(6, 20) << Bounds{6, 8, 10, 12};
    QTest::newRow("intersect inside one") << two.intersect(6, 7) << Bounds{6, 7};
    QTest::newRow("intersect a gap") << two.intersect(8, 10) << Bounds{};
    QTest::newRow("intersect up to a begin") << two.intersect(0, 10) << Bounds{5, 8};
    QTest::newRow("intersect both ends cut") << two.intersect(7, 11) << Bounds{7, 8, 10, 11};
    QTest::newRow("intersect nothing") << two.intersect(6, 6) << Bounds{};
    QTest::newRow("intersect backwards") << two.intersect(11, 6) << Bounds{};
}

void TestRangeSet::fixedCases()
{
    QFETCH(Set, result);
    QFETCH(Bounds, expected);
    QCOMPARE(result.boundaries(), expected);
}

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

// Quadratic appends of this many ranges would take minutes.
void TestRangeSet::ascendingAppendsAreCheap()
{
    const int n = 300'000;
    QElapsedTimer timer;
    timer.start();
    Set apart;
    Set touching;
    for (int i = 0; i < n; ++i) {
        apart.addRange(2 * i, 2 * i + 1);
        touching.addRange(i, i + 1);
    }
    QCOMPARE(apart.rangeCount(), n);
    QCOMPARE(touching.boundaries(), (Bounds{0, n}));
    QVERIFY2(timer.elapsed() < 10'000, qPrintable(QString::number(timer.elapsed())));
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
