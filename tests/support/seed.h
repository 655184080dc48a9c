// SPDX-License-Identifier: MIT
#pragma once

#include <QTest>
#include <QVector>

/// The seeds that a random test runs with: 1 .. count, or the one in LIVETABLE_SEED alone.
inline QVector<quint32> testSeeds(int count)
{
    bool isSet = false;
    const int wanted = qEnvironmentVariableIntValue("LIVETABLE_SEED", &isSet);
    if (isSet)
        return {quint32(wanted)};
    QVector<quint32> seeds;
    for (int i = 1; i <= count; ++i)
        seeds.append(quint32(i));
    return seeds;
}

/// Names the seed when the test function has failed at the end of the scope.
class SeedScope
{
public:
    explicit SeedScope(quint32 value)
        : seed(value)
    {}
    ~SeedScope()
    {
        if (QTest::currentTestFailed())
            qWarning("Run it again with LIVETABLE_SEED=%u", seed);
    }
    Q_DISABLE_COPY(SeedScope)

private:
    quint32 seed;
};
