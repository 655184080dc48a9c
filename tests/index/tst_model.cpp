// SPDX-License-Identifier: MIT
// Drives a table with one index of every kind by random operations.
#include "support/indexworld.h"
#include "support/seed.h"

#include <QtTest>

#include <random>

class TestModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void firstSeeds() { run(12, 0, 1000, 300); }
    void secondSeeds() { run(12, 1000, 1000, 300); }
    void tablesOfSeveralLeaves() { run(700, 0, 16, 60); }
    void tablesOfSeveralPartitions() { run(10500, 0, 4, 5); }

private:
    static void run(int rows, quint32 offset, int count, int steps)
    {
        // In-place changes without the old position are warned of, as they should be.
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
        const auto restore = qScopeGuard([] { qInstallMessageHandler(nullptr); });
        for (const quint32 seed : testSeeds(count)) {
            std::mt19937 random(seed + offset);
            Model::World world([&](int end) { return int(random() % unsigned(end)); },
                               int((seed + offset) % 4), rows);
            for (int i = 0; i < steps && world.failure.isEmpty(); ++i)
                world.step();
            QVERIFY2(world.failure.isEmpty(),
                     qPrintable(QString("LIVETABLE_SEED=%1: ").arg(seed) + world.failure));
        }
    }
};

QTEST_APPLESS_MAIN(TestModel)
#include "tst_model.moc"
