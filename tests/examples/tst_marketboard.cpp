// SPDX-License-Identifier: MIT
#include "board.h"
#include "price.h"
#include "recalculation.h"
#include "replay.h"
#include "simulation.h"
#include "verifier.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <zlib.h>

#include <map>
#include <set>
#include <tuple>

namespace {

const QString OptionsFile = QStringLiteral("es_options_20200106_quotes.csv.gz");
const QString FuturesFile = QStringLiteral("es_futures_20200106_quotes.csv.gz");
const QString InstrumentsFile = QStringLiteral("instruments.csv.gz");

const QByteArray OptionsText = "time_ms,expiry,right,strike,bid,bid_size,ask,ask_size\n"
                               "0,20200320,C,3000,250.75,15,254,15\n"
                               "0,20200320,P,3000,,0,30.5,7\n"
                               "60000,20200320,C,3000,250.5,11,,0\n"
                               "60000,20200320,P,3000,30.25,3,30.50,7\n"
                               "120000,20200320,P,3000,30.25,3,30.50,7\n"
                               "120000,20200320,P,3000,30.25,3,30.50,7\n"; // nothing new
const QByteArray FuturesText = "time_ms,contract,bid,bid_size,ask,ask_size\n"
                               "0,202003,3223,20,3223.25,20\n"
                               "60000,202003,3223,20,3223.25,21\n";
const QByteArray InstrumentsText =
    "market,symbol,type,description,quote_currency,contract_multiplier,minimum_price_variation,"
    "lot_size,market_ticker,minimum_order_size,price_magnifier,strike_multiplier\n"
    "cme,ES,future,E-mini S&P 500 Futures,USD,50,0.25,1\n"
    "cme,6C,future,Canadian Dollar Futures,USD,100000.0,5e-05,1.0,,1\n";

QByteArray gzip(const QByteArray& bytes)
{
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("packed"));
    gzFile packed = gzopen(QFile::encodeName(path).constData(), "wb");
    gzwrite(packed, bytes.constData(), unsigned(bytes.size()));
    gzclose(packed);
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// A folder with a small recorded day.
class DayFolder
{
public:
    DayFolder()
    {
        write(OptionsFile, gzip(OptionsText));
        write(FuturesFile, gzip(FuturesText));
        write(InstrumentsFile, gzip(InstrumentsText));
    }
    void write(const QString& name, const QByteArray& bytes) const
    {
        QFile file(folder.filePath(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            qFatal("cannot write %s", qPrintable(file.fileName()));
    }
    QString path(const QString& name = QString()) const { return folder.filePath(name); }

private:
    QTemporaryDir folder;
};

struct Outcome
{
    int exitCode;
    QString out;
    QString error;
};

Outcome runBoard(const QStringList& arguments)
{
    const QTemporaryDir settings; // what a run keeps does not reach the next, unless it asks for it
    QProcess process;
    process.start(QStringLiteral(MARKETBOARD),
                  QStringList{"--settings-dir", settings.path()} + arguments);
    if (!process.waitForFinished(120'000) || process.exitStatus() != QProcess::NormalExit)
        return {-1, QString(), process.errorString()};
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

} // namespace

class tst_marketboard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pricesAreExact()
    {
        // With all decimals that are kept; or refused.
        const std::pair<const char*, QString> rows[] = {
            {"254", "254.00"},
            {"0.05", "0.05"},
            {"242.5", "242.50"},
            {"1.500000", "1.50"},
            {"1.000005", "1.000005"},
            {"-37.63", "-37.63"},
            {"999999999.99999", "999999999.99999"},
            {"0.0000001", "refused"},
            {"1000000000", "refused"},
            {"12345678901234567", "refused"},
            {"1.2.3", "refused"},
            {" 1", "refused"},
            {"1,5", "refused"},
            {"nan", "refused"},
        };
        for (const auto& [written, read] : rows) {
            const std::optional<decimal> value = parsePrice(written);
            QCOMPARE(value ? value->toString() : "refused", read);
        }
    }

    void faultyFilesAreNamed()
    {
        // A line behind the others, and what is said of it behind the path.
        const std::pair<QByteArray, QString> lines[] = {
            {"180000,20200320,C,3000,1,1\n", ":8: expected 8 fields, found 6"},
            {"180000,20200320,C,3000,1,1,2,1,\n", ":8: expected 8 fields, found 9"},
            {"180000,2020", ":8: expected 8 fields, found 2"}, // cut off without newline
            {"180000,20200320,C,3000,1.5x,1,2,1\n", ":8: bid is not a price: '1.5x'"},
            {"180000,20200320,C,,1,1,2,1\n", ":8: there is no strike"},
            {"180000,20200320,X,3000,1,1,2,1\n", ":8: right is neither C nor P: 'X'"},
            {"180000,20200230,C,3000,1,1,2,1\n", ":8: 20200230 is no date"},
            {"180000,20200320,C,3000,1,1,2,-1\n",
             ":8: ask_size is not a whole number from 0 to 1000000000: '-1'"},
            {"60000,20200320,C,3000,1,1,2,1\n", ":8: time_ms goes back from 120000 to 60000"},
            {"86400000,20200320,C,3000,1,1,2,1\n",
             ":8: time_ms is not a whole number from 0 to 86399999: '86400000'"},
            {QByteArray(1, '\0') + "\x1b[2J\xff,20200320,C,3000,1,1,2,1\n",
             ":8: time_ms is not a whole number from 0 to 86399999: '\uFFFD\uFFFD[2J\uFFFD'"},
            {QByteArray(100'000, '1'), ":8: the line is longer than 65536 bytes"},
        };
        const QByteArray packed = gzip(OptionsText);
        QByteArray damaged = packed;
        damaged[packed.size() - 6] = char(damaged[packed.size() - 6] ^ 1);
        QVector<std::tuple<QString, QByteArray, QString>> files = {
            {FuturesFile, gzip(FuturesText + "60000,2003,1,1,2,1\n"),
             ":4: contract is not a whole number from 190001 to 299912: '2003'"},
            {InstrumentsFile, gzip(InstrumentsText + "a,b,c,d,e,1,x,1\n"),
             ":4: minimum_price_variation is not a number: 'x'"},
            {OptionsFile, QByteArray(), ": is empty"},
            {OptionsFile, gzip("time,price\n1,2\n"),
             ":1: expected the header time_ms,expiry,right,strike,bid,bid_size,ask,ask_size, found "
             "'time,price'"},
            {OptionsFile, packed.left(packed.size() - 12), ": cannot be read after line"},
            {OptionsFile, damaged, ": cannot be read after line"},
        };
        for (const auto& [line, message] : lines)
            files.append({OptionsFile, gzip(OptionsText + line), message});
        for (const auto& [file, bytes, message] : qAsConst(files)) {
            const DayFolder day;
            day.write(file, bytes);
            QString found;
            try {
                Replay replay(day.path());
                replay.instruments();
                while (replay.next() != Session::Event::End) {
                }
            } catch (const InputError& error) {
                found = error.message;
            }
            const QString wanted = day.path(file) + message;
            QCOMPARE(found.left(wanted.size()), wanted);
        }
    }

    void recalculationFollowsTheFuture()
    {
        Board board;
        board.keepVolatilities();
        const auto side = [](int price) { return Side{decimal(price), 1}; };
        OptionQuote put{0, 20200320, 'P', decimal(3000), side(30), side(31)};
        board.apply(put);
        Recalculation recalculation(board);
        for (const char* what : {"applied", "newer quote", "stopped"}) {
            board.apply(FutureQuote{0, 202003, side(3100 + *what), side(3101 + *what)});
            recalculation.update(0); // what its job finds waits for the event loop
            ++put.timeMs;
            if (*what == 'n')
                board.apply(put);
            const Field live = board.options().at(0).data(Board::Volatility);
            const double shown = live.isNull() ? 0 : live.toDouble();
            while (recalculation.progress() < 1)
                QThread::yieldCurrentThread();
            if (*what == 's')
                recalculation.stop();
            QTRY_VERIFY2(!recalculation.isRunning(), what);
            QVERIFY2((live.toDouble() == shown) == (*what != 'a'), what);
        }
    }

    void checksFindWhatIsWrong()
    {
        // What is written into the put's row behind the views' backs, whether the checks are told
        // of such a quote, and what they find.
        const std::tuple<const char*, const char*, bool, QString> rows[] = {
            {"30.25", "30.50", false, ""},
            {"30.20", "30.50", false, "table, 20200320 P 3000: "},
            {"30.25", "", false, "table, 20200320 P 3000: "},
            {"300.25", "300.50", true, "view by bid, row 0: "},
            {"30.25", "", true, "view by spread, row 0: "}, // a NULL that is not last
        };
        for (const auto& [bid, ask, isQuoted, difference] : rows)
            checkFinds(bid, ask, isQuoted, difference);

        Board board;
        Verifier verifier(board);
        const OptionQuote put{0, 20200320, 'P', decimal(3000), {decimal(30), 1}, {decimal(31), 1}};
        board.apply(put);
        board.apply(FutureQuote{0, 202003, {decimal(3100), 1}, {decimal(3101), 1}});
        verifier.seen(put);
        QVERIFY(!verifier.check(true));
        Record(board.options().at(0)).data(Board::UnderlyingAsk) = 3102;
        QVERIFY(verifier.check(true).value_or(QString()).contains("does not show its future"));
    }

    void programPlays()
    {
        const QString built = "replayed 12000 quotes, 200 contracts, 5 views, \\d+ updates/s, "
                              "tape 10000 rows";
        play({"--quotes", "12000", "--verify"}, 11, built);
        play({"--quotes", "12000", "--top", "3"}, 4, built);
        play({"--quotes", "12000", "--top", "0"}, 0, built);
        play({"--data", "DAY", "--verify"}, 3,
             "replayed 6 quotes, 2 contracts, 5 views, \\d+ updates/s, tape 6 rows");
    }

    void programPrintsSmiles()
    {
        const Outcome outcome = runBoard({"--smile", "--quotes", "5000", "--verify", "--top", "0"});
        QVERIFY2(outcome.exitCode == 0, qPrintable(outcome.error));
        const QStringList parts = outcome.out.split(QStringLiteral("smile of "));
        QVERIFY(parts.value(1).startsWith("20200320, future at ") &&
                parts.value(2).startsWith("20200619, "));
        for (const QString& part : parts.mid(1)) {
            const QStringList lines =
                part.split('\n').filter(QRegularExpression("^ +\\d{4}  [CP] "));
            QVERIFY2(lines.size() > 30, qPrintable(part));
            QVERIFY(lines.first().contains(" P ") && lines.last().contains(" C "));
        }
    }

    void programRemembers()
    {
        const DayFolder day;
        const QTemporaryDir program;
        const QDir shipped(program.filePath("user_distrib/workplaces"));
        QVERIFY(shipped.mkpath("."));
        QFile evening(shipped.filePath("evening.json"));
        QVERIFY(evening.open(QIODevice::WriteOnly));
        evening.write(R"({"board": {"columns": ["ask", "none"], "top": -1, "dataFolder": "/no"}})");
        evening.close();
        const auto table = [&](const QStringList& arguments) {
            const Outcome outcome = runBoard(
                QStringList{"--settings-dir", program.path(), "--quotes", "9"} + arguments);
            return outcome.error + outcome.out.section('\n', 2, -3).simplified();
        };
        QCOMPARE(table({"--data", day.path(), "--columns", "strike,bid-size", "--top", "1"}),
                 QString("strike size 3000 3"));
        QCOMPARE(table({"--data", "last"}), QString("strike size 3000 3"));
        QCOMPARE(table({"--data", "last", "--workplace", "noon", "--columns", "ask"}),
                 QString("ask 30.50"));
        QCOMPARE(table({"--data", "last", "--top", "2"}), QString("strike size 3000 3 3000 11"));
        QCOMPARE(table({"--data", "last", "--workplace", "noon"}), QString("ask 30.50"));
        QCOMPARE(table({"--data", day.path(), "--workplace", "evening"}), QString("ask 30.50 -"));
        QCOMPARE(runBoard({"--settings-dir", program.path(), "--list-workplaces"}).out,
                 QString("evening\nnoon\n"));
    }

    void programRefuses()
    {
        const QTemporaryDir empty;
        const DayFolder broken;
        broken.write(FuturesFile, gzip("time_ms,contract,bid,bid_size,ask,ask_size\nnonsense\n"));
        const std::pair<QStringList, QString> rows[] = {
            {{"--data", "/no/such/folder"}, "/no/such/folder: there is no such folder"},
            {{"--data", empty.path()}, OptionsFile + ": there is no such file"},
            {{"--data", broken.path()}, FuturesFile + ":2: expected 6 fields, found 1"},
            {{"--top", "ten"}, "--top needs a whole number"},
            {{"--top", "-1"}, "--top needs a whole number"},
            {{"--quotes", "0"}, "--quotes needs a whole number"},
            {{"--until", "24:00"}, "--until needs a time"},
            {{"--fast"}, "fast"},
            {{"--columns", "bid,mid"}, "--columns takes"},
            {{"--workplace", "x"}, "no workplace 'x'"},
            {{"--workplace", "../x", "--top", "1"}, "no workplace"},
            {{"--data", "last"}, "no recorded day"},
            {{"fast"}, "unexpected argument 'fast'"},
        };
        for (const auto& [arguments, message] : rows) {
            const Outcome outcome = runBoard(arguments);
            QVERIFY(outcome.exitCode == 2 && outcome.out.isEmpty());
            QVERIFY2(outcome.error.startsWith("marketboard: ") && outcome.error.contains(message),
                     qPrintable(outcome.error));
        }
    }

private:
    void checkFinds(const char* bid, const char* ask, bool isQuoted, const QString& difference);

    void play(QStringList arguments, int tableLines, const QString& lastLine)
    {
        const DayFolder day;
        arguments.replaceInStrings(QStringLiteral("DAY"), day.path());
        const Outcome outcome = runBoard(arguments);
        QCOMPARE(outcome.error, QString()); // no progress, since this is no terminal
        QCOMPARE(outcome.exitCode, 0);

        QStringList lines = outcome.out.split('\n');
        QCOMPARE(lines.takeLast(), QString());
        const QRegularExpression wanted(QRegularExpression::anchoredPattern(lastLine));
        QVERIFY2(wanted.match(lines.last()).hasMatch(), qPrintable(lines.last()));
        const bool verified = arguments.contains(QStringLiteral("--verify"));
        QCOMPARE(lines.size(), 2 + tableLines + (verified ? 1 : 0) + 1);
        if (verified) {
            const QString line = lines[lines.size() - 2];
            QVERIFY2(line.startsWith("verified ") && line.section(' ', 1, 1).toInt() >= 7,
                     qPrintable(line));
        }
        for (int i = 3; i < 2 + tableLines; ++i)
            QCOMPARE(lines[i].size(), lines[2].size()); // aligned
        if (arguments.contains(QStringLiteral("--data"))) {
            QCOMPARE(lines[1],
                     QStringLiteral("E-mini S&P 500 Futures, tick 0.25, multiplier 50, 202003: "
                                    "3223.00 bid, 3223.25 ask"));
            QCOMPARE(lines[3].simplified(),
                     QStringLiteral("20200320 P 3000 30.25 3 30.50 7 0.25 00:02"));
            QCOMPARE(lines[4].simplified(),
                     QStringLiteral("20200320 C 3000 250.50 11 - 0 - 00:01"));
        }
    }
};

void tst_marketboard::checkFinds(const char* bid, const char* ask, bool isQuoted,
                                 const QString& difference)
{
    const DayFolder day;
    Replay replay(day.path());
    Board board;
    Verifier verifier(board);
    for (auto event = replay.next(); event != Session::Event::End; event = replay.next()) {
        if (event == Session::Event::Option) {
            board.apply(replay.option());
            verifier.seen(replay.option());
        }
    }
    // Two contracts were added; of four more quotes the last brought nothing new.
    const Board::Changes changes = board.takeChanges();
    QCOMPARE(std::make_tuple(changes.added, changes.updates, changes.contracts),
             std::make_tuple(2, 3, 2));
    QVERIFY(!verifier.checkChanges(changes));
    QCOMPARE(verifier.checkChanges(changes).value_or(QString()),
             QStringLiteral("watch list: 2 added, 3 updated and 0 removed for 0 changes"));

    OptionQuote quote = replay.option();
    quote.bid.price = parsePrice(bid);
    quote.ask.price = parsePrice(ask);
    Record row = board.option(quote.expiry, quote.right, quote.strike);
    row.data(Board::Bid) = bid;
    row.data(Board::Ask) = ask;
    if (quote.ask.price)
        row.data(Board::Spread) = *quote.ask.price - *quote.bid.price;
    else
        row.data(Board::Spread).setNull();
    if (isQuoted)
        verifier.seen(quote);
    const QString found = verifier.check().value_or(QString());
    QVERIFY2(found.contains(difference) && found.isEmpty() == difference.isEmpty(),
             qPrintable(found));
}

QTEST_GUILESS_MAIN(tst_marketboard)
#include "tst_marketboard.moc"
