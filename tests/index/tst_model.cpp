// SPDX-License-Identifier: MIT
#include "modelworld.h"
#include "support/seed.h"

#include <QtTest>

#include <cstdio>

namespace {

int scans = 0; ///< warnings of positions found by a scan
QtMessageHandler printer = nullptr;

// Warnings that the worlds provoke are counted or dropped.
void filterMessages(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    if (text.contains(QLatin1String("Full search")))
        ++scans;
    else if (type != QtWarningMsg || text.startsWith(QLatin1String("Run it again")))
        printer(type, context, text);
}

} // namespace

/// Drives tables with views of every kind at random and compares them with a naive model after
/// every step. LIVETABLE_SEED repeats one seed; LIVETABLE_SHARD=i/n runs the i-th of n equal parts.
class TestModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { printer = qInstallMessageHandler(filterMessages); }
    void cleanupTestCase() { qInstallMessageHandler(printer); }

    void smallTables() { run(2000, 300, Model::World::Small); }
    void mediumTables() { run(12, 40, Model::World::Medium); }
    void largeTables() { run(3, 12, Model::World::Large); }

private:
    void run(int seeds, int steps, Model::World::Size size);
};

void TestModel::run(int seeds, int steps, Model::World::Size size)
{
    int shard = 0;
    int shards = 1;
    std::sscanf(qgetenv("LIVETABLE_SHARD").constData(), "%d/%d", &shard, &shards);
    for (const quint32 seed : testSeeds(seeds)) {
        if (int(seed) % shards != shard && seeds != 1)
            continue;
        const SeedScope scope(seed);
        Model::World world(seed, size);
        for (int step = 0; step < steps && world.findings.isEmpty(); ++step)
            world.step();
        const int at = world.steps;
        if (world.findings.isEmpty())
            world.end();
        QVERIFY2(world.findings.isEmpty(),
                 qPrintable(QStringLiteral("%1, in step %2").arg(world.findings.text()).arg(at)));
    }
}

QTEST_GUILESS_MAIN(TestModel)

#include "tst_model.moc"
