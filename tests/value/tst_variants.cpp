// SPDX-License-Identifier: MIT
#include "value/datetime.h"
#include "value/decimal.h"
#include "value/variantutils.h"
#include "value/xdecimal.h"

#include <QtTest>

#include <limits>

namespace {

constexpr qint64 least = std::numeric_limits<qint64>::min();
constexpr qint64 most = std::numeric_limits<qint64>::max();

QVariant dec(const char* text)
{
    return decimal(QString(text)).toVariant();
}

QVariant xdec(const char* text)
{
    return xdecimal(text).toVariant();
}

QVariant date(const char* text)
{
    return QVariant::fromValue(datetime(QString(text)));
}

QVariant msecs(qint64 count)
{
    return QVariant::fromValue(datetime(count));
}

/// Type and text, so that a value of the wrong type is no match.
QString shown(const QVariant& value)
{
    return QString("%1 %2").arg(value.typeName(), value.toString());
}

/// A host's type whose converters throw.
struct Thrower
{};

} // namespace

Q_DECLARE_METATYPE(Thrower)

class TestVariants : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void compares_data();
    void compares();
    void comparesByCase();
    void converts_data();
    void converts();
};

void TestVariants::initTestCase()
{
    qRegisterMetaType<Thrower>();
    QMetaType::registerConverter<Thrower, decimal>([](Thrower) -> decimal { throw 1; });
    QMetaType::registerConverter<Thrower, int>([](Thrower) -> int { throw 1; });
}

void TestVariants::compares_data()
{
    QTest::addColumn<QVariant>("a");
    QTest::addColumn<QVariant>("b");
    QTest::addColumn<int>("expected");
    QTest::addColumn<int>("reversed"); // the other side's type decides then
    const auto row = [](const char* name, const QVariant& a, const QVariant& b, int expected,
                        int reversed) { QTest::newRow(name) << a << b << expected << reversed; };
    const QVariant none;
    const QVariant thrower = QVariant::fromValue(Thrower());
    const QDateTime day(QDate(2017, 3, 1), QTime(1, 0), Qt::UTC);
    row("invalid", none, none, 0, 0);
    row("invalid and valid", none, 0, -1, 1);
    row("int", 2, 10, -1, 1);
    row("int and text", 9, "10", -1, -1); // "10" is the lesser text
    row("int and double", 3, 2.5, 0, -1); // read as an int, 2.5 is 3
    row("double", -0.5, 0.25, -1, 1);
    row("doubles that == takes for equal", 1.0, 1.0 + 1e-15, 0, 0);
    row("double and NaN", 1.0, std::numeric_limits<double>::quiet_NaN(), 0, 0);
    row("character", QChar('b'), QChar('a'), 1, -1);
    row("text", "z", "a", 1, -1);
    row("date", day.date(), day.date().addDays(1), -1, 1);
    row("time", QTime(10, 0), QTime(9, 0), 1, -1);
    row("date and time", day, day.addMSecs(1), -1, 1);
    row("qlonglong is not ordered", 1LL, 2LL, 0, 0);
    row("decimal", dec("1.5"), dec("1.50"), 0, 0);
    row("decimal, less", dec("-1.5"), dec("1"), -1, 1);
    row("decimal and a text, which is zero", dec("-1.5"), "-1.5", -1, 0);
    row("decimal and a converter that throws", dec("-1"), thrower, -1, 0);
    row("xdecimal", xdec("12345678901234567890.5"), xdec("12345678901234567890.50"), 0, 0);
    row("xdecimal, less", xdec("12345678901234567890.5"), xdec("12345678901234567890.6"), -1, 1);
    row("datetime", msecs(least), msecs(most), -1, 1);
    row("datetime and a count, which is unset", msecs(-5), -5LL, -1, 0);
    row("other types", thrower, thrower, 0, 0);
}

void TestVariants::compares()
{
    QFETCH(QVariant, a);
    QFETCH(QVariant, b);
    QTEST(variant_compare(a, b, Qt::CaseSensitive), "expected");
    QTEST(variant_compare(b, a, Qt::CaseSensitive), "reversed");
}

void TestVariants::comparesByCase()
{
    QCOMPARE(variant_compare("abc", "ABD", Qt::CaseSensitive), 1);
    QCOMPARE(variant_compare("abc", "ABD", Qt::CaseInsensitive), -1);
    QCOMPARE(variant_compare("abc", "ABC", Qt::CaseInsensitive), 0);
    QCOMPARE(variant_compare(QChar('a'), QChar('B'), Qt::CaseSensitive), 1);
    QCOMPARE(variant_compare(QChar('a'), QChar('B'), Qt::CaseInsensitive), -1);
}

void TestVariants::converts_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<int>("type");
    QTest::addColumn<QVariant>("expected"); // invalid: no conversion
    const auto row = [](const char* name, const QVariant& value, int type,
                        const QVariant& expected = QVariant()) {
        QTest::newRow(name) << value << type << expected;
    };
    const int toDec = qMetaTypeId<decimal>();
    const int toXdec = qMetaTypeId<xdecimal>();
    const int toDate = qMetaTypeId<datetime>();
    const QDateTime fields(QDate(2017, 3, 1), QTime(1, 2, 3), Qt::LocalTime);
    row("same type", dec("1.50"), toDec, dec("1.50"));
    row("text to decimal", "1.50", toDec, dec("1.50"));
    row("no number to decimal", "1.5x", toDec);
    row("qlonglong to decimal", 72057594037927935LL, toDec, dec("72057594037927935"));
    row("double to decimal", 2.75, toDec, dec("2.750000"));
    row("xdecimal to decimal", xdec("-1.50"), toDec, dec("-1.50"));
    row("datetime to decimal", msecs(5), toDec);
    row("text to xdecimal", "-12345678901234567890.5", toXdec, xdec("-12345678901234567890.5"));
    row("qlonglong to xdecimal", least, toXdec, xdec("-9223372036854775808"));
    row("decimal to xdecimal", dec("1.50"), toXdec, xdec("1.50"));
    row("decimal to text", dec("-0.50"), QMetaType::QString, "-0.50");
    row("xdecimal to text", xdec("0.50"), QMetaType::QString, "0.50");
    row("decimal to double", dec("0.1"), QMetaType::Double, 0.1);
    row("decimal to int", dec("-2.99"), QMetaType::Int, -2);
    row("decimal to int, too big", dec("2147483648"), QMetaType::Int);
    row("decimal to uint", dec("4294967295.9"), QMetaType::UInt, 4294967295U);
    row("decimal to qulonglong, negative", dec("-1"), QMetaType::ULongLong);
    row("xdecimal to qlonglong", xdec("-9223372036854775808.9"), QMetaType::LongLong, least);
    row("xdecimal to qlonglong, too big", xdec("9223372036854775808"), QMetaType::LongLong);
    row("decimal to date", dec("1"), QMetaType::QDate);
    row("text to datetime", "2017-03-01", toDate, date("2017.03.01"));
    row("empty text to datetime", "", toDate, msecs(0));
    row("no date to datetime", "2017-02-30", toDate);
    row("QDateTime to datetime", fields, toDate, date("2017-03-01 01:02:03"));
    row("QDate to datetime", fields.date(), toDate, date("2017-03-01"));
    row("invalid QDate to datetime", QDate(), toDate);
    row("qlonglong to datetime", -5LL, toDate, msecs(-5));
    row("double to datetime", 5.0, toDate);
    row("datetime to text", msecs(-1), QMetaType::QString, "1969.12.31 23:59:59.999");
    row("datetime to QDateTime", msecs(-1), QMetaType::QDateTime, datetime(-1).toQDateTime());
    row("datetime to QDate", msecs(-1), QMetaType::QDate, QDate(1969, 12, 31));
    row("datetime to QTime", msecs(-1), QMetaType::QTime, QTime(23, 59, 59, 999));
    row("datetime to qlonglong", msecs(-1), QMetaType::LongLong, -1LL);
    row("datetime to int", msecs(-1), QMetaType::Int);
    row("text to int", "5", QMetaType::Int, 5);
    row("no number to int", "x", QMetaType::Int);
    row("converter that throws", QVariant::fromValue(Thrower()), QMetaType::Int);
    row("invalid", QVariant(), QMetaType::Int);
    row("no type", 5, 0);
    row("unknown type", 5, -1);
}

void TestVariants::converts()
{
    QFETCH(QVariant, value);
    QFETCH(int, type);
    QFETCH(QVariant, expected);
    QCOMPARE(shown(variant_convert(value, static_cast<unsigned>(type))), shown(expected));
}

QTEST_GUILESS_MAIN(TestVariants)

#include "tst_variants.moc"
