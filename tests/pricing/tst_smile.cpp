// SPDX-License-Identifier: MIT
#include "pricing/volat.h"

#include <QDate>
#include <QDir>
#include <QMap>
#include <QProcess>
#include <QtTest>

namespace {

// 2020-01-06, 10:00 UTC: options on the E-mini S&P 500 future and their futures, best bid and ask.
// Source: the sample data of QuantConnect/Lean, Apache-2.0.
const int momentMs = 36000000;
const QDate today(2020, 1, 6);

struct Smile
{
    QDate expiry;
    QByteArray contract;
    double future;
    QMap<double, double> wanted; // volatilities as fractions, to 0.002
};

const Smile smiles[] = {
    {QDate(2020, 3, 20), "202003", 3213.625, {{3020, 0.187}, {3170, 0.152}, {3410, 0.101}}},
    {QDate(2020, 6, 19), "202006", 3213.375, {{2900, 0.199}, {3200, 0.149}, {3440, 0.111}}},
};

struct Quote
{
    double strike;
    double bid;
    double ask;
};

double implied(const Smile& smile, const Quote& quote)
{
    VolatInputParams in;
    in.strike = quote.strike;
    in.underlying = smile.future;
    in.sqrtTime = sqrtTimeToExpiry(double(today.daysTo(smile.expiry)) * 86400);
    const bool put = quote.strike < smile.future; // the one that is out of the money
    const ImpliedVolat got = impliedVolat(in, put, (quote.bid + quote.ask) / 2);
    return got.reason == ImpliedVolat::Found ? got.volat / 100 : -1;
}

/// The lines of a compressed file of the data folder, split; without its header.
QList<QByteArrayList> rows(const QString& path)
{
    QProcess gzip;
    gzip.start("gzip", {"-dc", path});
    gzip.waitForFinished();
    QList<QByteArrayList> result;
    for (const QByteArray& line : gzip.readAllStandardOutput().split('\n'))
        result.append(line.split(','));
    return result.mid(1);
}

} // namespace

class TestSmile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void quotesOfTheMoment();
    void wholeDay();
};

void TestSmile::quotesOfTheMoment()
{
    const QVector<Quote> quotes[] = {
        {{3020, 35, 35.5},
         {3100, 49.5, 50.25},
         {3170, 66.75, 67.5},
         {3250, 59, 59.75},
         {3410, 6.5, 7}},
        {{2900, 51.75, 52.5},
         {3020, 73, 74},
         {3200, 120.75, 121.75},
         {3300, 75.75, 76.25},
         {3440, 23.75, 24.25}},
    };
    for (int i = 0; i < 2; ++i) {
        double last = 1;
        for (const Quote& quote : quotes[i]) {
            const double got = implied(smiles[i], quote);
            QVERIFY(got > 0 && got < last); // falls from strike to strike
            last = got;
            const double wanted = smiles[i].wanted.value(quote.strike, got);
            QVERIFY2(std::fabs(got - wanted) <= 0.002, qPrintable(QString::number(got)));
        }
    }
}

// Every two-sided quote of the day that is out of the money has a volatility.
void TestSmile::wholeDay()
{
    const QString folder = qEnvironmentVariable("LIVETABLE_DATA");
    if (folder.isEmpty() || !QDir(folder).exists())
        QSKIP("LIVETABLE_DATA names no folder with the recorded day");
    QMap<QByteArray, QMap<int, double>> futures; // by contract and time
    for (const QByteArrayList& row : rows(folder + "/es_futures_20200106_quotes.csv.gz"))
        if (row.size() == 6 && !row[2].isEmpty() && !row[4].isEmpty())
            futures[row[1]][row[0].toInt()] = (row[2].toDouble() + row[4].toDouble()) / 2;
    int solved = 0;
    int failed = 0;
    int checked = 0;
    double sum = 0;
    for (const QByteArrayList& row : rows(folder + "/es_options_20200106_quotes.csv.gz")) {
        if (row.size() != 8 || row[4].isEmpty() || row[6].isEmpty())
            continue;
        const int time = row[0].toInt();
        for (Smile smile : smiles) {
            const QMap<int, double>& prices = futures[smile.contract];
            const auto price = prices.constFind(time);
            if (row[1] != smile.expiry.toString("yyyyMMdd").toLatin1() || price == prices.end())
                continue;
            if (time == momentMs)
                QCOMPARE(*price, smile.future);
            smile.future = *price;
            const Quote quote = {row[3].toDouble(), row[4].toDouble(), row[6].toDouble()};
            if ((row[2] == "P") != (quote.strike < smile.future))
                continue;
            const double got = implied(smile, quote);
            ++(got > 0 ? solved : failed);
            sum += got;
            if (time == momentMs && smile.wanted.contains(quote.strike)) {
                QVERIFY(std::fabs(got - smile.wanted.value(quote.strike)) <= 0.002);
                ++checked;
            }
        }
    }
    qInfo("%d volatilities, mean %.4f", solved, sum / solved);
    QCOMPARE(failed, 0);
    QCOMPARE(checked, 6);
    QVERIFY(solved > 100000);
}

QTEST_GUILESS_MAIN(TestSmile)

#include "tst_smile.moc"
