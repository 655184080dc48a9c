// SPDX-License-Identifier: MIT
#include "support/seed.h"
#include "value/boardlist.h"
#include "value/checksum.h"
#include "value/fuzzycompare.h"

#include <QRandomGenerator>
#include <QtTest>

#include <cstring>
#include <limits>

namespace {

/// A boardlist with these very numbers in its bytes, as a cell read from a file may hold them.
boardlist fromNumbers(const QVector<qint32>& numbers)
{
    boardlist list;
    std::memcpy(static_cast<void*>(&list), numbers.constData(), size_t(numbers.size()) * 4);
    return list;
}

quint64 naiveCrc(const QByteArray& bytes)
{
    quint64 crc = ~quint64(0);
    for (const char byte : bytes) {
        crc ^= quint64(uchar(byte)) << 56;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc << 1) ^ ((crc >> 63) ? Q_UINT64_C(0x42F0E1EBA9EA3693) : 0);
    }
    return ~crc;
}

} // namespace

class TestValues : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void boardlistPrintsByGroup_data();
    void boardlistPrintsByGroup();
    void boardlistSurvivesAnyCount();
    void boardlistOrderIsTotal();
    void fuzzyCompare_data();
    void fuzzyCompare();
    void checksum();
};

void TestValues::boardlistPrintsByGroup_data()
{
    QTest::addColumn<QVector<qint32>>("numbers");
    using Numbers = QVector<qint32>;
    QTest::newRow("") << Numbers{0, 5, 5};
    QTest::newRow("7:-3") << Numbers{1, 7, -3};
    QTest::newRow("10:2 9:1,3") << Numbers{3, 9, 1, 10, 2, 9, 3};
    QTest::newRow("-1:5,1,5 0:2") << Numbers{4, -1, 5, 0, 2, -1, 1, -1, 5};
}

void TestValues::boardlistPrintsByGroup()
{
    QFETCH(QVector<qint32>, numbers);
    boardlist built;
    for (int i = 0; i < numbers.first(); ++i)
        QVERIFY(built.append(numbers.at(1 + 2 * i), numbers.at(2 + 2 * i)));
    QCOMPARE(built.toString(), QString(QTest::currentDataTag()));
    QVERIFY(built == fromNumbers(numbers));
}

void TestValues::boardlistSurvivesAnyCount()
{
    QVector<qint32> numbers(101, 2);
    for (const qint32 count : {50, 51, std::numeric_limits<qint32>::max()}) {
        numbers[0] = count;
        boardlist list = fromNumbers(numbers);
        QCOMPARE(list.count(), 50);
        QCOMPARE(list.toString().count(','), 49);
        QVERIFY(!list.append(1, 1));
    }
    for (const qint32 count : {0, -1, std::numeric_limits<qint32>::min()}) {
        numbers[0] = count;
        boardlist list = fromNumbers(numbers);
        QVERIFY(list.isEmpty() && list == boardlist());
        QVERIFY(list.append(3, 4));
        QCOMPARE(list.toString(), QString("3:4"));
    }
}

void TestValues::boardlistOrderIsTotal()
{
    // Numbers below 128, whose bytes compare as they do; a shorter list before the longer one.
    const QVector<qint32> ordered[] = {{-5, 1},         {1, 0, 9}, {1, 1, 1}, {2, 1, 1, 0, 0},
                                       {2, 1, 1, 0, 1}, {1, 1, 2}, {1, -1, 0}};
    for (const QVector<qint32>& a : ordered) {
        for (const QVector<qint32>& b : ordered)
            QCOMPARE(fromNumbers(a).compare(fromNumbers(b)), &a < &b ? -1 : &a > &b);
    }
}

void TestValues::fuzzyCompare_data()
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    constexpr double none = std::numeric_limits<double>::quiet_NaN();
    QTest::addColumn<double>("a");
    QTest::addColumn<double>("b");
    QTest::addColumn<bool>("equal");
    QTest::newRow("zeros") << 0.0 << 1e-13 << true;
    QTest::newRow("zeros of both signs") << -1e-12 << 1e-12 << true;
    QTest::newRow("one zero") << 0.0 << 1e-11 << false;
    QTest::newRow("near the zero limit") << 1e-12 << 1.0000000001e-12 << false;
    QTest::newRow("ones") << 1.0 << 1 + 1e-13 << true;
    QTest::newRow("ones apart") << 1.0 << 1 + 1e-11 << false;
    QTest::newRow("overflowing") << 1e308 << -1e308 << false;
    QTest::newRow("infinities") << infinity << infinity << false;
    QTest::newRow("nan") << none << none << false;
    QTest::newRow("nan and zero") << none << 0.0 << false;
}

void TestValues::fuzzyCompare()
{
    QFETCH(double, a);
    QFETCH(double, b);
    QTEST(commonFuzzyCompare(a, b), "equal");
    QTEST(commonFuzzyCompare(-b, -a), "equal");
}

void TestValues::checksum()
{
    QCOMPARE(qChecksum64(nullptr, 0), quint64(0));
    QCOMPARE(qChecksum64("123456789", 9), Q_UINT64_C(0x62EC59E3F1A4F00A));
    for (const quint32 seed : testSeeds(2)) {
        const SeedScope scope(seed);
        QRandomGenerator random(seed);
        QByteArray bytes(600, Qt::Uninitialized);
        for (char& byte : bytes)
            byte = char(random.generate());
        for (int length = 1; length < 100; ++length) {
            const QByteArray part = bytes.mid(random.bounded(500), length);
            QCOMPARE(qChecksum64(part.constData(), unsigned(length)), naiveCrc(part));
        }
    }
}

QTEST_APPLESS_MAIN(TestValues)

#include "tst_values.moc"
