// SPDX-License-Identifier: MIT
#include "support/seed.h"
#include "value/boardlist.h"
#include "value/checksum.h"
#include "value/fuzzycompare.h"

#include <QMap>
#include <QRandomGenerator>
#include <QtTest>

#include <cstring>
#include <limits>

namespace {

/// A boardlist with these very bytes at its start, as a cell read from a file may hold them.
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
    void boardlistIsLimited();
    void boardlistSurvivesAnyCount();
    void boardlistOrderIsTotal();

    void fuzzyCompare_data();
    void fuzzyCompare();

    void checksumOfKnownTexts();
    void checksumMatchesBitwise();
};

void TestValues::boardlistPrintsByGroup_data()
{
    QTest::addColumn<QVector<qint32>>("numbers");
    QTest::addColumn<QString>("text");
    QTest::newRow("empty") << QVector<qint32>{0} << "";
    QTest::newRow("one") << QVector<qint32>{1, 7, -3} << "7:-3";
    QTest::newRow("groups by their text") << QVector<qint32>{3, 9, 1, 10, 2, 9, 3} << "10:2 9:1,3";
    QTest::newRow("boards as they came")
        << QVector<qint32>{4, -1, 5, 0, 2, -1, 1, -1, 5} << "-1:5,1,5 0:2";
    QTest::newRow("bytes behind the count are not used") << QVector<qint32>{0, 5, 5} << "";
}

void TestValues::boardlistPrintsByGroup()
{
    QFETCH(QVector<qint32>, numbers);
    QFETCH(QString, text);
    QCOMPARE(fromNumbers(numbers).toString(), text);

    boardlist built;
    for (int i = 0; i < numbers.first(); ++i)
        QVERIFY(built.append(numbers.at(1 + 2 * i), numbers.at(2 + 2 * i)));
    QCOMPARE(built.toString(), text);
    QCOMPARE(built.isEmpty(), numbers.first() == 0);
    QVERIFY(built == fromNumbers(numbers));
}

void TestValues::boardlistIsLimited()
{
    boardlist list;
    for (int i = 0; i < boardlist::capacity; ++i)
        QVERIFY(list.append(1, i));
    const boardlist full = list;
    QVERIFY(!list.append(1, 1));
    QCOMPARE(list.count(), 50);
    QVERIFY(std::memcmp(&list, &full, sizeof list) == 0);
    QCOMPARE(list.group(49), 1);
    QCOMPARE(list.board(49), 49);
    list.clear();
    QVERIFY(list == boardlist());
}

void TestValues::boardlistSurvivesAnyCount()
{
    QVector<qint32> numbers(101, 2);
    for (const qint32 count : {51, 1000, std::numeric_limits<qint32>::max()}) {
        numbers[0] = count;
        boardlist list = fromNumbers(numbers);
        QCOMPARE(list.count(), 50);
        QCOMPARE(list.toString().count(','), 49);
        QVERIFY(!list.append(1, 1));
        QVERIFY(list == list);
    }
    for (const qint32 count : {-1, std::numeric_limits<qint32>::min()}) {
        numbers[0] = count;
        boardlist list = fromNumbers(numbers);
        QVERIFY(list.isEmpty());
        QCOMPARE(list.toString(), QString());
        QVERIFY(list == boardlist());
        QVERIFY(list.append(3, 4));
        QCOMPARE(list.toString(), QString("3:4"));
    }
}

void TestValues::boardlistOrderIsTotal()
{
    QVector<boardlist> lists;
    for (const QVector<qint32>& numbers :
         {QVector<qint32>{0}, QVector<qint32>{-5, 1}, QVector<qint32>{1, 1, 1},
          QVector<qint32>{1, 1, 2}, QVector<qint32>{2, 1, 1, 0, 0}, QVector<qint32>{1, -1, 0}})
        lists.append(fromNumbers(numbers));
    for (const boardlist& a : qAsConst(lists)) {
        for (const boardlist& b : qAsConst(lists)) {
            QCOMPARE(a.compare(b), -b.compare(a));
            QCOMPARE(a == b, a.toString() == b.toString());
            for (const boardlist& c : qAsConst(lists))
                QVERIFY(a.compare(b) > 0 || b.compare(c) > 0 || a.compare(c) <= 0);
        }
    }
    QCOMPARE(lists.at(2).compare(lists.at(4)), -1); // the beginning of the longer one
    QCOMPARE(lists.at(2).compare(lists.at(3)), -1); // {1, 1} and {1, 2}
}

void TestValues::fuzzyCompare_data()
{
    const double infinity = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    QTest::addColumn<double>("a");
    QTest::addColumn<double>("b");
    QTest::addColumn<bool>("equal");
    QTest::newRow("zeros") << 0.0 << 1e-13 << true;
    QTest::newRow("zeros of both signs") << -1e-12 << 1e-12 << true;
    QTest::newRow("one zero") << 0.0 << 1e-11 << false;
    QTest::newRow("near the zero limit") << 1e-12 << 1.0000000001e-12 << false;
    QTest::newRow("small") << 1e-11 << 1e-11 * (1 + 1e-13) << true;
    QTest::newRow("ones") << 1.0 << 1 + 1e-13 << true;
    QTest::newRow("ones apart") << 1.0 << 1 + 1e-11 << false;
    QTest::newRow("big") << 1e300 << 1e300 * (1 + 5e-13) << true;
    QTest::newRow("overflowing") << 1e308 << -1e308 << false;
    QTest::newRow("signs") << 1.0 << -1.0 << false;
    QTest::newRow("infinities") << infinity << infinity << false;
    QTest::newRow("nan") << nan << nan << false;
    QTest::newRow("nan and zero") << nan << 0.0 << false;
}

void TestValues::fuzzyCompare()
{
    QFETCH(double, a);
    QFETCH(double, b);
    QFETCH(bool, equal);
    QCOMPARE(commonFuzzyCompare(a, b), equal);
    QCOMPARE(commonFuzzyCompare(b, a), equal);
    QCOMPARE(commonFuzzyCompare(-a, -b), equal);
}

void TestValues::checksumOfKnownTexts()
{
    QCOMPARE(qChecksum64(nullptr, 0), quint64(0));
    QCOMPARE(qChecksum64("123456789", 9), Q_UINT64_C(0x62EC59E3F1A4F00A));
}

void TestValues::checksumMatchesBitwise()
{
    for (const quint32 seed : testSeeds(2)) {
        const SeedScope scope(seed);
        QRandomGenerator random(seed);
        QByteArray bytes(600, Qt::Uninitialized);
        for (char& byte : bytes)
            byte = char(random.generate());
        for (int length = 1; length < 100; ++length) {
            const int start = random.bounded(500);
            QCOMPARE(qChecksum64(bytes.constData() + start, unsigned(length)),
                     naiveCrc(bytes.mid(start, length)));
        }
        QCOMPARE(qChecksum64(bytes.constData(), 600), naiveCrc(bytes));
    }
}

QTEST_APPLESS_MAIN(TestValues)

#include "tst_values.moc"
