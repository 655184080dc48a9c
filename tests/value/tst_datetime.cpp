// SPDX-License-Identifier: MIT
#include "support/seed.h"
#include "value/datetime.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QtTest>

#include <ctime>
#include <limits>

namespace {

/// Local time rules under which everything runs: the second skips 02:00 to 03:00 and the third
/// midnight on one day of 2017.
const char* const zones[] = {"UTC", "Europe/Berlin", "America/Sao_Paulo"};

void setZone(const char* zone)
{
    qputenv("TZ", zone);
    tzset();
}

const char* const forms[] = {"yyyy.MM.dd HH:mm:ss.zzz", "yyyy-MM-dd HH:mm:ss", "yyyy.MM.dd",
                             "yyyy-MM-dd"};

/// What Qt reads, in UTC and so without gaps; invalid when it reads nothing.
QVariant readByQt(const QString& text)
{
    setZone("UTC");
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

} // namespace

class TestDatetime : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { setZone("UTC"); }
    void readsTheFourForms_data();
    void readsTheFourForms();
    void readsAsQtDoes();
    void printsAsQtDoes();
    void takesFieldsOfQDateTime();
    void ordersByCount();
    void systemTextHasNoZone_data();
    void systemTextHasNoZone();
};

void TestDatetime::readsTheFourForms_data()
{
    QTest::addColumn<QString>("printed"); // empty: not a date and time
    QTest::newRow("2017.03.01 10:00:00.250") << "2017.03.01 10:00:00.250";
    QTest::newRow("2017-03-26 02:30:00") << "2017.03.26 02:30:00.000"; // skipped in Berlin
    QTest::newRow("2017-10-15") << "2017.10.15 00:00:00.000";          // skipped in Sao Paulo
    QTest::newRow("0001.01.01") << "0001.01.01 00:00:00.000";
    for (const char* text :
         {"", "2017.03.01 10:00:00.25", "2017-03-01 10:00:00.250", "2017.02.29", "２０１７-03-01"})
        QTest::newRow(text) << QString();
}

void TestDatetime::readsTheFourForms()
{
    QFETCH(QString, printed);
    const QString text = QString::fromUtf8(QTest::currentDataTag());
    for (const char* zone : zones) {
        setZone(zone);
        const datetime value(text);
        QCOMPARE(value.toString(), printed);
        QCOMPARE(datetime(("<" + text + ">").midRef(1, text.size())), value);
        QCOMPARE(datetime::fromQDateTime(value.toQDateTime()), value);
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
            setZone(zones[i % 3]);
            bool ok = !expected.isValid();
            const datetime value = datetime::fromString(QStringRef(&text), &ok);
            QVERIFY2(ok == expected.isValid(), qPrintable(text));
            QVERIFY2(value.toMSecsSinceEpoch() == expected.toLongLong(), qPrintable(text));
        }
        QVERIFY(readable > 300);
    }
}

void TestDatetime::printsAsQtDoes()
{
    // Beside random ones the ends of years 0001 and 9999, whose digits are written apart.
    QVector<qint64> counts = {-62135596800000,
                              -62135596800001,
                              253402300799999,
                              253402300800000,
                              std::numeric_limits<qint64>::max(),
                              std::numeric_limits<qint64>::min()};
    QRandomGenerator random(1);
    for (int i = 0; i < 5000; ++i)
        counts.append(qint64(random.generate64()) >> random.bounded(64));
    counts.removeAll(0);
    for (const char* zone : zones) {
        setZone(zone);
        for (const qint64 count : qAsConst(counts)) {
            const QDateTime same = QDateTime::fromMSecsSinceEpoch(count, Qt::UTC);
            QCOMPARE(datetime(count).toString(),
                     QLocale::c().toString(same, datetime::defaultFormat));
        }
    }
    QCOMPARE(datetime().toString(), QString());
}

void TestDatetime::takesFieldsOfQDateTime()
{
    setZone("Europe/Berlin");
    const QTime time(2, 30);
    for (const QDate& date : {QDate(2017, 7, 1), QDate(2017, 3, 26)}) { // the second is skipped
        const datetime value(QLocale::c().toString(date, "yyyy-MM-dd") + " 02:30:00");
        QCOMPARE(datetime::fromQDateTime(QDateTime(date, time, Qt::LocalTime)), value);
        QCOMPARE(datetime::fromQDateTime(QDateTime(date, time, Qt::OffsetFromUTC, -60)), value);
        QCOMPARE(value.toQDateTime(), QDateTime(date, time, Qt::UTC));
    }
    QCOMPARE(datetime().toQDateTime().toMSecsSinceEpoch(), 0);
    QVERIFY(datetime::fromQDateTime(QDateTime()).isNull());
    for (const qint64 end :
         {std::numeric_limits<qint64>::max(), std::numeric_limits<qint64>::min()})
        QVERIFY(datetime::fromQDateTime(datetime(end).toQDateTime()).isNull());
}

void TestDatetime::ordersByCount()
{
    const qint64 counts[] = {std::numeric_limits<qint64>::min(), -1, 0, 1};
    for (const qint64 a : counts) {
        for (const qint64 b : counts) {
            const datetime x(a);
            const datetime y(b);
            QVERIFY((x < y) == (a < b) && (x <= y) == (a <= b) && (x > y) == (a > b));
            QVERIFY((x >= y) == (a >= b) && (x == y) == (a == b) && (x != y) == (a != b));
        }
    }
}

void TestDatetime::systemTextHasNoZone_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("expected");
    QTest::newRow("short time") << "ru_RU.UTF-8"
                                << "26.03.2017 02:30";
    QTest::newRow("short date") << "ru_RU.UTF-8"
                                << "26.03.2017";
    QTest::newRow("long time") << "en_US.UTF-8"
                               << "Sunday, March 26, 2017 2:30:05 AM";
    QTest::newRow("long date") << "en_US.UTF-8"
                               << "Sunday, March 26, 2017";
}

void TestDatetime::systemTextHasNoZone()
{
    QFETCH(QString, language);
    QProcess process; // the system locale is read once a process
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("LC_ALL", language);
    environment.insert("TZ", "Europe/Berlin");
    process.setProcessEnvironment(environment);
    process.start(QCoreApplication::applicationFilePath(), {"--system", QTest::currentDataTag()});
    QVERIFY(process.waitForFinished());
    QTEST(QString::fromUtf8(process.readAllStandardOutput()), "expected");
    QCOMPARE(datetime().toSystemString(), QString());
}

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QString kind = application.arguments().last();
    if (argc == 3 && application.arguments().at(1) == "--system") {
        const datetime value(QStringLiteral("2017.03.26 02:30:05.000"));
        const auto format = kind.startsWith("long") ? QLocale::LongFormat : QLocale::ShortFormat;
        fputs(value.toSystemString(kind.endsWith("time"), format).toUtf8(), stdout);
        return 0;
    }
    TestDatetime test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_datetime.moc"
