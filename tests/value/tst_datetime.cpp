// SPDX-License-Identifier: MIT
#include "support/seed.h"
#include "value/datetime.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QTextStream>
#include <QtTest>

#include <cstring>
#include <ctime>
#include <limits>

namespace {

/// Local time rules under which every case runs: the second skips 02:00 to 03:00 and the third
/// midnight on one day of 2017.
const char* const zones[] = {"UTC", "Europe/Berlin", "America/Sao_Paulo"};

class ZoneScope
{
public:
    explicit ZoneScope(const char* zone)
        : before(qgetenv("TZ"))
        , wasSet(qEnvironmentVariableIsSet("TZ"))
    {
        qputenv("TZ", zone);
        tzset();
    }
    ~ZoneScope()
    {
        if (wasSet)
            qputenv("TZ", before);
        else
            qunsetenv("TZ");
        tzset();
    }
    Q_DISABLE_COPY(ZoneScope)

private:
    QByteArray before;
    bool wasSet;
};

const char* const inputFormats[] = {"yyyy.MM.dd HH:mm:ss.zzz", "yyyy-MM-dd HH:mm:ss", "yyyy.MM.dd",
                                    "yyyy-MM-dd"};

/// What Qt reads, in UTC and so without gaps; null when it reads nothing.
QVariant readByQt(const QString& text)
{
    const ZoneScope utc("UTC");
    for (const char* format : inputFormats) {
        QDateTime value = QDateTime::fromString(text, QLatin1String(format));
        if (value.isValid()) {
            value.setTimeSpec(Qt::UTC);
            return value.toMSecsSinceEpoch();
        }
    }
    return QVariant();
}

QString printByQt(qint64 msecs)
{
    return QDateTime::fromMSecsSinceEpoch(msecs, Qt::UTC).toString(datetime::defaultFormat);
}

/// A valid text of one of the forms, then up to two random changes to it.
QString randomText(QRandomGenerator& random)
{
    const QString alphabet = QStringLiteral("0123456789+- .:Tx");
    const qint64 msecs = qint64(random.generate64() % Q_UINT64_C(250000000000000)) - 60000000000000;
    QString text = QDateTime::fromMSecsSinceEpoch(msecs, Qt::UTC)
                       .toString(QLatin1String(inputFormats[random.bounded(4)]));
    for (int changes = random.bounded(3); changes > 0; --changes) {
        const int at = random.bounded(text.size());
        const QChar c = alphabet.at(random.bounded(alphabet.size()));
        switch (random.bounded(4)) {
        case 0:
            text.insert(at, c);
            break;
        case 1:
            text.remove(at, 1);
            break;
        default:
            text[at] = c;
        }
    }
    return text;
}

} // namespace

class TestDatetime : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsTheFourForms_data();
    void readsTheFourForms();
    void readsAsQtDoes();
    void printsAsQtDoes();
    void survivesTimeChanges();
    void takesFieldsOfQDateTime();
    void ordersByCount();
    void systemTextHasNoZone_data();
    void systemTextHasNoZone();
};

void TestDatetime::readsTheFourForms_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("printed"); // empty: not a date and time
    QTest::newRow("first") << "2017.03.01 10:00:00.250"
                           << "2017.03.01 10:00:00.250";
    QTest::newRow("second") << "2017-03-01 23:59:59"
                            << "2017.03.01 23:59:59.000";
    QTest::newRow("third") << "2017.03.01"
                           << "2017.03.01 00:00:00.000";
    QTest::newRow("fourth") << "2017-03-01"
                            << "2017.03.01 00:00:00.000";
    QTest::newRow("first year") << "0001-01-01"
                                << "0001.01.01 00:00:00.000";
    QTest::newRow("last year") << "9999.12.31 23:59:59.999"
                               << "9999.12.31 23:59:59.999";
    QTest::newRow("leap day") << "2016.02.29"
                              << "2016.02.29 00:00:00.000";
    for (const char* text :
         {"", "2017", "2017.02.29", "2017.03.01 ", " 2017.03.01", "2017.03.01 10:00:00",
          "2017.03.01 10:00:00.25", "2017.03.01 10:00:00.2500", "2017-03-01 10:00:00.250",
          "2017-03.01", "2017-03-01 24:00:00", "2017-03-01 23:59:60", "2017-03-01 1:00:00",
          "0000-01-01", "-017-01-01", "2017-13-01", "２０１７-03-01"})
        QTest::addRow("not '%s'", text) << QString::fromUtf8(text) << QString();
}

void TestDatetime::readsTheFourForms()
{
    QFETCH(QString, text);
    QFETCH(QString, printed);
    for (const char* zone : zones) {
        const ZoneScope scope(zone);
        QCOMPARE(datetime(text).toString(), printed);
        const QString around = "<" + text + ">";
        QCOMPARE(datetime(around.midRef(1, text.size())), datetime(text));
    }
}

void TestDatetime::readsAsQtDoes()
{
    for (const quint32 seed : testSeeds(3)) {
        const SeedScope scope(seed);
        QRandomGenerator random(seed);
        int readable = 0;
        for (int i = 0; i < 1500; ++i) {
            const QString text = randomText(random);
            const QVariant expected = readByQt(text);
            readable += expected.isValid();
            for (const char* zone : zones) {
                const ZoneScope zoneScope(zone);
                bool ok = !expected.isValid();
                const datetime value = datetime::fromString(QStringRef(&text), &ok);
                QVERIFY2(ok == expected.isValid(), qPrintable(text));
                QVERIFY2(value.toMSecsSinceEpoch() == expected.toLongLong(), qPrintable(text));
            }
        }
        QVERIFY(readable > 300);
    }
}

void TestDatetime::printsAsQtDoes()
{
    QVector<qint64> counts = {1, -1, 999, -999, 86399999, 86400000, -86400000, -86400001,
                              // the ends of years 0001 and 9999, whose digits are written apart
                              -62135596800000, -62135596800001, 253402300799999, 253402300800000,
                              std::numeric_limits<qint64>::max(),
                              std::numeric_limits<qint64>::min()};
    for (const quint32 seed : testSeeds(1)) {
        const SeedScope scope(seed);
        QRandomGenerator random(seed);
        for (int i = 0; i < 5000; ++i)
            counts.append(qint64(random.generate64()) >> random.bounded(64));
        for (const char* zone : zones) {
            const ZoneScope zoneScope(zone);
            for (const qint64 count : qAsConst(counts)) {
                if (count != 0)
                    QCOMPARE(datetime(count).toString(), printByQt(count));
            }
        }
    }
    QCOMPARE(datetime().toString(), QString());
    QCOMPARE(datetime(-1).toString(), QString("1969.12.31 23:59:59.999"));
}

void TestDatetime::survivesTimeChanges()
{
    for (const char* zone : zones) {
        const ZoneScope scope(zone);
        for (const char* day : {"2017.03.26", "2017.10.15", "2017.10.29"}) {
            const qint64 midnight = datetime(QString(day)).toMSecsSinceEpoch();
            for (int minute = 0; minute < 24 * 60; minute += 7) {
                const QString text = QString("%1 %2:%3:00.001")
                                         .arg(day)
                                         .arg(minute / 60, 2, 10, QChar('0'))
                                         .arg(minute % 60, 2, 10, QChar('0'));
                const datetime value(text);
                QCOMPARE(value.toMSecsSinceEpoch(), midnight + minute * 60000 + 1);
                QCOMPARE(value.toString(), text);
                QCOMPARE(datetime::fromQDateTime(value.toQDateTime()), value);
            }
        }
    }
}

void TestDatetime::takesFieldsOfQDateTime()
{
    const ZoneScope scope("Europe/Berlin");
    const QDate date(2017, 7, 1);
    const QTime time(10, 20, 30, 4);
    const datetime expected(QStringLiteral("2017.07.01 10:20:30.004"));
    QCOMPARE(datetime::fromQDateTime(QDateTime(date, time, Qt::LocalTime)), expected);
    QCOMPARE(datetime::fromQDateTime(QDateTime(date, time, Qt::UTC)), expected);
    QCOMPARE(datetime::fromQDateTime(QDateTime(date, time, Qt::OffsetFromUTC, -3600)), expected);
    QCOMPARE(expected.toQDateTime(), QDateTime(date, time, Qt::UTC));
    QCOMPARE(datetime().toQDateTime(), QDateTime(QDate(1970, 1, 1), QTime(0, 0), Qt::UTC));
    QVERIFY(datetime::fromQDateTime(QDateTime()).isNull());
    // Skipped by the change to summer time: not a valid QDateTime here, but it has fields.
    const QDateTime skipped(QDate(2017, 3, 26), QTime(2, 30), Qt::LocalTime);
    QVERIFY(!skipped.isValid());
    QCOMPARE(datetime::fromQDateTime(skipped).toString(), QString("2017.03.26 02:30:00.000"));
    for (const qint64 end :
         {std::numeric_limits<qint64>::max(), std::numeric_limits<qint64>::min()})
        QVERIFY(datetime::fromQDateTime(QDateTime::fromMSecsSinceEpoch(end, Qt::UTC)).isNull());
}

void TestDatetime::ordersByCount()
{
    const QVector<datetime> ordered = {datetime(std::numeric_limits<qint64>::min()), datetime(-1),
                                       datetime(), datetime(1)};
    for (int i = 0; i < ordered.size(); ++i) {
        for (int k = 0; k < ordered.size(); ++k) {
            QCOMPARE(ordered[i] < ordered[k], i < k);
            QCOMPARE(ordered[i] <= ordered[k], i <= k);
            QCOMPARE(ordered[i] > ordered[k], i > k);
            QCOMPARE(ordered[i] >= ordered[k], i >= k);
            QCOMPARE(ordered[i] == ordered[k], i == k);
            QCOMPARE(ordered[i] != ordered[k], i != k);
        }
    }
}

void TestDatetime::systemTextHasNoZone_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<bool>("withTime");
    QTest::addColumn<bool>("longFormat");
    QTest::addColumn<QString>("expected");
    QTest::newRow("short") << "ru_RU.UTF-8" << true << false << "26.03.2017 02:30";
    QTest::newRow("short date") << "ru_RU.UTF-8" << false << false << "26.03.2017";
    QTest::newRow("long") << "en_US.UTF-8" << true << true << "Sunday, March 26, 2017 2:30:05 AM";
    QTest::newRow("long date") << "en_US.UTF-8" << false << true << "Sunday, March 26, 2017";
}

void TestDatetime::systemTextHasNoZone()
{
    QFETCH(QString, language);
    QFETCH(bool, withTime);
    QFETCH(bool, longFormat);
    QFETCH(QString, expected);
    // The system locale is read once a process.
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("LC_ALL", language);
    environment.insert("TZ", "Europe/Berlin");
    process.setProcessEnvironment(environment);
    process.start(QCoreApplication::applicationFilePath(),
                  {"--system", withTime ? "time" : "date", longFormat ? "long" : "short"});
    QVERIFY(process.waitForFinished());
    QCOMPARE(QString::fromUtf8(process.readAllStandardOutput()), expected);
    QCOMPARE(datetime().toSystemString(withTime), QString());
}

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (argc == 4 && arguments.at(1) == "--system") {
        const QLocale::FormatType format =
            arguments.at(3) == "long" ? QLocale::LongFormat : QLocale::ShortFormat;
        const datetime value(QStringLiteral("2017.03.26 02:30:05.000"));
        QTextStream out(stdout);
        out.setCodec("UTF-8");
        out << value.toSystemString(arguments.at(2) == "time", format);
        return 0;
    }
    TestDatetime test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_datetime.moc"
