// SPDX-License-Identifier: MIT
#include "support/seed.h"
#include "value/boardlist.h"
#include "value/checksum.h"
#include "value/datetime.h"
#include "value/decimal.h"
#include "value/fuzzycompare.h"
#include "value/variantutils.h"
#include "value/xdecimal.h"

#include <QRandomGenerator>
#include <QtTest>

#include <cstring>
#include <ctime>
#include <limits>

/// A host's type whose converters throw.
struct Thrower
{};
Q_DECLARE_METATYPE(Thrower)

namespace {

constexpr qint64 least = std::numeric_limits<qint64>::min();
constexpr qint64 most = std::numeric_limits<qint64>::max();
const char* const forms[] = {"yyyy.MM.dd HH:mm:ss.zzz", "yyyy-MM-dd HH:mm:ss", "yyyy.MM.dd",
                             "yyyy-MM-dd"};

/// Local time rules under which everything runs: the second skips 02:00 to 03:00 and the third
/// midnight on one day of 2017.
void setZone(int zone)
{
    const char* const zones[] = {"UTC", "Europe/Berlin", "America/Sao_Paulo"};
    qputenv("TZ", zones[zone]);
    tzset();
}

/// What Qt reads, in UTC and so without gaps; invalid when it reads nothing.
QVariant readByQt(const QString& text)
{
    setZone(0);
    for (const char* form : forms) {
        QDateTime value = QDateTime::fromString(text, QLatin1String(form));
        value.setTimeSpec(Qt::UTC);
        if (value.isValid())
            return value.toMSecsSinceEpoch();
    }
    return QVariant();
}

/// A valid text of one of the forms, then up to two random changes to it.
QString randomText(QRandomGenerator& random)
{
    const QString alphabet = QStringLiteral("0123456789+- .:Tx");
    const qint64 msecs = qint64(random.generate64() % Q_UINT64_C(250000000000000)) - 60000000000000;
    QString text = QLocale::c().toString(QDateTime::fromMSecsSinceEpoch(msecs, Qt::UTC),
                                         QLatin1String(forms[random.bounded(4)]));
    for (int changes = random.bounded(3); changes > 0; --changes) {
        const int at = random.bounded(text.size());
        const QChar c = alphabet.at(random.bounded(alphabet.size()));
        text.replace(at, random.bounded(2), random.bounded(4) ? QString(c) : QString());
    }
    return text;
}

/// A boardlist with these very numbers in its bytes, as a cell read from a file may hold them.
boardlist fromNumbers(const QVector<qint32>& numbers)
{
    boardlist list;
    std::memcpy(static_cast<void*>(&list), numbers.constData(), size_t(numbers.size()) * 4);
    return list;
}

const auto number = [](const char* text) { return decimal(QString(text)).toVariant(); };
const auto xnumber = [](const char* text) { return xdecimal(text).toVariant(); };
const auto msecs = [](qint64 count) { return QVariant::fromValue(datetime(count)); };

} // namespace

class TestValues : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qRegisterMetaType<Thrower>();
        QMetaType::registerConverter<Thrower, decimal>([](Thrower) -> decimal { throw 1; });
        QMetaType::registerConverter<Thrower, int>([](Thrower) -> int { throw 1; });
    }

    void cleanup() { setZone(0); }

    void datesAreReadAsQtDoes()
    {
        const auto check = [](const QString& text, int zone) {
            const QVariant expected = readByQt(text);
            setZone(zone);
            bool ok = !expected.isValid();
            const datetime value = datetime::fromString(("<" + text).midRef(1), &ok);
            QVERIFY2(ok == expected.isValid(), qPrintable(text));
            QVERIFY2(value.toMSecsSinceEpoch() == expected.toLongLong(), qPrintable(text));
            QCOMPARE(datetime(text), value);
            QCOMPARE(datetime::fromQDateTime(value.toQDateTime()), value);
        };
        for (const char* text : {"2017.03.01 10:00:00.250", "2017-03-26 02:30:00", "2017-10-15",
                                 "0001.01.01", "", "2017.03.01 10:00:00.25",
                                 "2017-03-01 10:00:00.250", "2017.02.29", "２０１７-03-01"}) {
            for (const int zone : {0, 1, 2})
                check(text, zone);
        }
        for (const quint32 seed : testSeeds(3)) {
            const SeedScope scope(seed);
            QRandomGenerator random(seed);
            for (int i = 0; i < 1500; ++i)
                check(randomText(random), i % 3);
        }
        QCOMPARE(datetime(QString("2017-10-15")).toString(), "2017.10.15 00:00:00.000");
    }

    void datesArePrintedAsQtDoes()
    {
        // Beside random ones the ends of years 0001 and 9999, whose digits are written apart.
        QVector<qint64> counts = {
            -62135596800000, -62135596800001, 253402300799999, 253402300800000, most, least};
        QRandomGenerator random(1);
        for (int i = 0; i < 5000; ++i)
            counts.append((qint64(random.generate64()) >> random.bounded(63)) | 1);
        for (int i = 0; i < counts.size(); ++i) {
            setZone(i % 3);
            const QDateTime same = QDateTime::fromMSecsSinceEpoch(counts.at(i), Qt::UTC);
            QCOMPARE(datetime(counts.at(i)).toString(),
                     QLocale::c().toString(same, datetime::defaultFormat));
        }
        QVERIFY(datetime().toString().isNull() && datetime().toSystemString().isNull());
    }

    // Run by ctest under a Russian locale.
    void systemTexts()
    {
        if (QLocale::system().language() != QLocale::Russian)
            QSKIP("the system's locale is not Russian");
        setZone(1);
        const datetime value(QStringLiteral("2017.03.26 02:30:05.000"));
        const auto text = [&](bool withTime, QLocale::FormatType format) {
            return value.toSystemString(withTime, format);
        };
        QCOMPARE(text(true, QLocale::ShortFormat), "26.03.2017 02:30");
        QCOMPARE(text(false, QLocale::ShortFormat), "26.03.2017");
        QCOMPARE(text(true, QLocale::LongFormat), "воскресенье, 26 марта 2017 г. 02:30:05");
        QCOMPARE(text(false, QLocale::LongFormat), "воскресенье, 26 марта 2017 г.");
    }

    void datesTakeFieldsOfQDateTime()
    {
        setZone(1);
        const QTime time(2, 30);
        const QDate skipped(2017, 3, 26);
        const datetime value(QString("2017-03-26 02:30:00"));
        QCOMPARE(datetime::fromQDateTime(QDateTime(skipped, time, Qt::LocalTime)), value);
        QCOMPARE(datetime::fromQDateTime(QDateTime(skipped, time, Qt::OffsetFromUTC, -60)), value);
        QCOMPARE(value.toQDateTime(), QDateTime(skipped, time, Qt::UTC));
        QVERIFY(datetime::fromQDateTime(datetime(most).toQDateTime()).isNull());
        QVERIFY(datetime(least) < datetime() && !(datetime(1) <= datetime()));
    }

    void boardlists()
    {
        const std::pair<const char*, QVector<qint32>> rows[] = {
            {"", {0, 5, 5}},
            {"7:-3", {1, 7, -3}},
            {"10:2 9:1,3", {3, 9, 1, 10, 2, 9, 3}},
            {"-1:5,1,5 0:2", {4, -1, 5, 0, 2, -1, 1, -1, 5}},
        };
        for (const auto& [text, numbers] : rows) {
            boardlist built;
            for (int i = 0; i < numbers.first(); ++i)
                QVERIFY(built.append(numbers.at(1 + 2 * i), numbers.at(2 + 2 * i)));
            QCOMPARE(built.toString(), QString(text));
            QVERIFY(built == fromNumbers(numbers));
        }
        QVector<qint32> numbers(101, 2);
        for (const qint32 count : {50, 51, 0x7fffffff, 0, -1, -0x7fffffff - 1}) {
            numbers[0] = count;
            boardlist list = fromNumbers(numbers);
            QCOMPARE(list.count(), count > 0 ? 50 : 0);
            QCOMPARE(list.toString().count(','), count > 0 ? 49 : 0);
            QVERIFY(count > 0 || list == boardlist());
            QCOMPARE(list.append(3, 4), count <= 0);
        }
        // Numbers below 128, whose bytes compare as they do; a shorter list before the longer one.
        const QVector<qint32> ordered[] = {{-5, 1},         {1, 0, 9}, {1, 1, 1}, {2, 1, 1, 0, 0},
                                           {2, 1, 1, 0, 1}, {1, 1, 2}, {1, -1, 0}};
        for (const QVector<qint32>& a : ordered) {
            for (const QVector<qint32>& b : ordered)
                QCOMPARE(fromNumbers(a).compare(fromNumbers(b)), &a < &b ? -1 : &a > &b);
        }
    }

    void fuzzyCompare()
    {
        constexpr double none = std::numeric_limits<double>::quiet_NaN();
        const std::tuple<double, double, bool> rows[] = {
            {0.0, 1e-13, true},     {-1e-12, 1e-12, true},
            {0.0, 1e-11, false},    {1e-12, 1.0000000001e-12, false},
            {1.0, 1 + 1e-13, true}, {1.0, 1 + 1e-11, false},
            {none, none, false},    {none, 0.0, false},
        };
        for (const auto& [a, b, equal] : rows)
            QVERIFY(commonFuzzyCompare(a, b) == equal && commonFuzzyCompare(-b, -a) == equal);
    }

    void checksum()
    {
        QCOMPARE(qChecksum64(nullptr, 0), quint64(0));
        QCOMPARE(qChecksum64("123456789", 9), Q_UINT64_C(0x62EC59E3F1A4F00A));
        QRandomGenerator random(1);
        for (int length = 1; length < 700; ++length) {
            QByteArray bytes(length, Qt::Uninitialized);
            quint64 crc = ~quint64(0);
            for (char& byte : bytes) {
                byte = char(random.generate());
                crc ^= quint64(uchar(byte)) << 56;
                for (int bit = 0; bit < 8; ++bit)
                    crc = (crc << 1) ^ ((crc >> 63) ? Q_UINT64_C(0x42F0E1EBA9EA3693) : 0);
            }
            QCOMPARE(qChecksum64(bytes.constData(), unsigned(length)), ~crc);
        }
    }

    void variantsCompare()
    {
        const QVariant none;
        const QVariant thrower = QVariant::fromValue(Thrower());
        const QDateTime day(QDate(2017, 3, 1), QTime(1, 0), Qt::UTC);
        // The last number is of the reversed order: the other side's type decides then.
        const std::tuple<QVariant, QVariant, int, int> rows[] = {
            {none, 0, -1, 1},
            {2, 10, -1, 1},
            {9, "10", -1, -1}, // "10" is the lesser text
            {3, 2.5, 0, -1},   // read as an int, 2.5 is 3
            {1.0, 1.0 + 1e-15, 0, 0},
            {1.0, std::numeric_limits<double>::quiet_NaN(), 0, 0},
            {QChar('a'), QChar('B'), 1, -1},
            {"abc", "ABD", 1, -1},
            {day.date(), day.date().addDays(1), -1, 1},
            {day, day.addMSecs(1), -1, 1},
            {1LL, 2LL, 0, 0}, // not ordered
            {number("-1.5"), number("1"), -1, 1},
            {number("-1.5"), "-1.5", -1, 0}, // the text is zero
            {number("-1"), thrower, -1, 0},
            {xnumber("12345678901234567890.5"), xnumber("12345678901234567890.6"), -1, 1},
            {msecs(least), msecs(most), -1, 1},
            {msecs(-5), -5LL, -1, 0}, // the count is unset
        };
        for (const auto& [a, b, expected, reversed] : rows) {
            const char* message = a.typeName();
            QVERIFY2(variant_compare(a, b, Qt::CaseSensitive) == expected, message);
            QVERIFY2(variant_compare(b, a, Qt::CaseSensitive) == reversed, message);
        }
        QCOMPARE(variant_compare("abc", "ABD", Qt::CaseInsensitive), -1);
        QCOMPARE(variant_compare(QChar('a'), QChar('B'), Qt::CaseInsensitive), -1);
    }

    void variantsConvert()
    {
        const int toDec = qMetaTypeId<decimal>();
        const int toXdec = qMetaTypeId<xdecimal>();
        const int toDate = qMetaTypeId<datetime>();
        const QDateTime fields(QDate(2017, 3, 1), QTime(1, 2, 3), Qt::LocalTime);
        const QVariant none; // no conversion
        const std::tuple<QVariant, int, QVariant> rows[] = {
            {number("1.50"), toDec, number("1.50")},
            {"1.5x", toDec, none},
            {72057594037927935LL, toDec, number("72057594037927935")},
            {2.75, toDec, number("2.750000")},
            {xnumber("-1.50"), toDec, number("-1.50")},
            {xdecimal::minimum().toVariant(), toDec, none},
            {1e12, toDec, number("1000000000000.0000")},
            {std::numeric_limits<double>::infinity(), toXdec, none},
            {"-12345678901234567890.5", toXdec, xnumber("-12345678901234567890.5")},
            {number("1.50"), toXdec, xnumber("1.50")},
            {number("-0.50"), QMetaType::QString, "-0.50"},
            {number("-2.99"), QMetaType::Int, -2},
            {number("2147483648"), QMetaType::Int, none},
            {number("4294967295.9"), QMetaType::UInt, 4294967295U},
            {number("-1"), QMetaType::ULongLong, none},
            {xnumber("-9223372036854775808.9"), QMetaType::LongLong, least},
            {"2017-03-01", toDate, msecs(17226 * 86400000LL)},
            {"", toDate, msecs(0)},
            {fields, toDate, msecs(17226 * 86400000LL + 3723000)},
            {fields.date(), toDate, msecs(17226 * 86400000LL)},
            {QDate(), toDate, none},
            {-5LL, toDate, msecs(-5)},
            {msecs(-1), QMetaType::QString, "1969.12.31 23:59:59.999"},
            {msecs(-1), QMetaType::QDateTime, datetime(-1).toQDateTime()},
            {msecs(-1), QMetaType::QDate, QDate(1969, 12, 31)},
            {msecs(-1), QMetaType::LongLong, -1LL},
            {"x", QMetaType::Int, none},
            {QVariant::fromValue(Thrower()), QMetaType::Int, none},
            {none, QMetaType::Int, none},
            {5, -1, none},
        };
        for (const auto& [value, type, expected] : rows) {
            const QVariant found = variant_convert(value, static_cast<unsigned>(type));
            // With the type, so that a value of the wrong one is no match.
            QCOMPARE(QString(found.typeName()) + found.toString(),
                     QString(expected.typeName()) + expected.toString());
        }
    }
};

QTEST_GUILESS_MAIN(TestValues)
#include "tst_values.moc"
