// SPDX-License-Identifier: MIT
// The market board: plays a day of option quotes, each a transaction, through live views.
#include "board.h"
#include "display.h"
#include "recalculation.h"
#include "replay.h"
#include "simulation.h"
#include "storage.h"
#include "verifier.h"
#include "workplaces.h"

#include "base/exception.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTime>

#include <cstdio>
#include <limits>
#include <memory>

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace {

enum ExitCode
{
    Played = 0,
    Differs = 1,
    BadInput = 2,
    Broken = 3
};

struct Arguments
{
    QString folder;
    QString saveTo;
    QString loadFrom;
    QString workplace;
    ViewChange change; ///< what the command line asks to see
    View view;         ///< with what settings say of the rest
    bool verify = false;
    bool volatility = false;
    bool smile = false;
    int untilMs = std::numeric_limits<int>::max();
    qint64 mostQuotes = std::numeric_limits<qint64>::max();
    int soakMinutes = 0;
};

void print(FILE* file, const QString& text)
{
    std::fputs(qPrintable(text), file);
}

int complain(const QString& message, ExitCode code)
{
    print(stderr, QStringLiteral("marketboard: %1\n").arg(message));
    return code;
}

void printBoard(const Board& board, const SessionInfo& session, const View& view)
{
    print(stdout, QStringLiteral("%1, at %2\n").arg(session.title, clockText(session.timeMs)));
    print(stdout, underlyingLine(board, session.underlying));
    print(stdout, spreadTable(board, view.top, view.columns));
}

/// What a run of a session counts, and the time that it takes with the time of checks left out.
class Play
{
public:
    Play(Session& played, const Arguments& given)
        : session(played)
        , arguments(given)
        , verifier(board)
    {
        if (arguments.volatility) {
            board.keepVolatilities();
            recalculation = std::make_unique<Recalculation>(board);
        }
    }

    /// Plays the session to its end. The first difference that a check finds, or nothing.
    std::optional<QString> run();
    void save(const QString& folder) { saveBoard(board, info(), folder); }
    void report() const;

private:
    int timeOf(Session::Event event) const;
    std::optional<QString> applyNext(Session::Event event);
    std::optional<QString> endMinute();
    template <typename Check>
    std::optional<QString> check(Check run);
    SessionInfo info() const { return {session.title(), session.underlying(), timeMs}; }

    Session& session;
    const Arguments& arguments;
    Board board;
    std::unique_ptr<Recalculation> recalculation; ///< null when volatilities are not kept
    Verifier verifier;
    ProgressLine progress;
    QElapsedTimer clock;
    qint64 checkNsecs = 0;
    qint64 playNsecs = 0;
    qint64 quotes = 0;
    int minute = 0;
    int timeMs = 0;
};

template <typename Check>
std::optional<QString> Play::check(Check run)
{
    QElapsedTimer timer;
    timer.start();
    auto difference = run();
    checkNsecs += timer.nsecsElapsed();
    return difference;
}

std::optional<QString> Play::run()
{
    board.load(session.instruments(), session.underlying());
    clock.start();
    std::optional<QString> difference;
    while (!difference && quotes < arguments.mostQuotes) {
        const Session::Event event = session.next();
        if (event == Session::Event::End || timeOf(event) > arguments.untilMs)
            break;
        difference = applyNext(event);
    }
    if (!difference)
        difference = endMinute();
    if (!difference && recalculation)
        recalculation->finish(timeMs);
    if (!difference && arguments.verify)
        difference = check([this] { return verifier.check(true); });
    if (!difference && arguments.verify && recalculation)
        difference = check([this] { return verifier.checkVolatilities(timeMs); });
    playNsecs = clock.nsecsElapsed() - checkNsecs;
    progress.clear();
    return difference;
}

int Play::timeOf(Session::Event event) const
{
    return event == Session::Event::Option ? session.option().timeMs : session.future().timeMs;
}

std::optional<QString> Play::applyNext(Session::Event event)
{
    const bool isOption = event == Session::Event::Option;
    timeMs = timeOf(event);
    if (timeMs / 60'000 != minute) {
        if (auto difference = endMinute())
            return difference;
        minute = timeMs / 60'000;
    }
    if (!isOption) {
        board.apply(session.future());
        return std::nullopt;
    }
    board.apply(session.option());
    ++quotes;
    if (!arguments.verify)
        return std::nullopt;
    verifier.seen(session.option());
    if (!verifier.isDue())
        return std::nullopt;
    return check([this] { return verifier.check(); });
}

std::optional<QString> Play::endMinute()
{
    const Board::Changes changes = board.takeChanges();
    if (recalculation) {
        QCoreApplication::processEvents(); // applies the jobs that have ended
        recalculation->update(timeMs);
    }
    if (progress.isDue())
        progress.show(
            QStringLiteral("%1  %2 %  %3 quotes, %4 contracts changed in the minute")
                .arg(clockText(minute * 60'000))
                .arg(int(session.progress() * 100), 3)
                .arg(quotes)
                .arg(changes.contracts) +
            (recalculation
                 ? QStringLiteral(", volatilities %1 %").arg(int(recalculation->progress() * 100))
                 : QString()));
    if (!arguments.verify)
        return std::nullopt;
    return check([&] { return verifier.checkChanges(changes); });
}

void Play::report() const
{
    const int contracts = board.options().rowCount();
    printBoard(board, info(), arguments.view);
    if (arguments.smile)
        print(stdout, smileTables(board));
    if (arguments.verify)
        print(stdout, QStringLiteral("verified %1 times: every view is as a fresh sort and filter "
                                     "has it\n")
                          .arg(verifier.checks()));
    const double seconds = double(playNsecs) / 1e9;
    print(stdout,
          QStringLiteral("replayed %1 quotes, %2 contracts, %3 views, %4 updates/s, tape %5 "
                         "rows\n")
              .arg(quotes)
              .arg(contracts)
              .arg(board.views().size())
              .arg(seconds > 0 ? qRound64(double(quotes) / seconds) : 0)
              .arg(board.tape().rowCount()));
}

/// The value of a whole-number option; nothing when it is none or below `minimum`.
std::optional<int> wholeNumber(const QCommandLineParser& parser, const QString& option, int minimum)
{
    bool isNumber = false;
    const int value = parser.value(option).toInt(&isNumber);
    return isNumber && value >= minimum ? std::make_optional(value) : std::nullopt;
}

void addOptions(QCommandLineParser& parser)
{
    parser.setApplicationDescription(QStringLiteral(
        "Plays a day of option quotes, each applied as a transaction, through live views.\n"
        "Without --data a built-in session is played.\n\n"
        "Exit code: 0 played; 1 --verify found a difference; 2 bad arguments or bad input;\n"
        "3 anything else."));
    parser.addOption(
        {{QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Show this text.")});
    parser.addOption({QStringLiteral("data"),
                      QStringLiteral("Replay the recorded day in the folder <dir>: "
                                     "es_options_20200106_quotes.csv.gz, "
                                     "es_futures_20200106_quotes.csv.gz, instruments.csv.gz. "
                                     "'last' is the folder of the last time."),
                      QStringLiteral("dir")});
    parser.addOption({QStringLiteral("top"),
                      QStringLiteral("Print the <n> options of the smallest spread (as the last "
                                     "time; 10 at first)."),
                      QStringLiteral("n")});
    parser.addOption(
        {QStringLiteral("verify"),
         QStringLiteral("Compare every view with a fresh sort and filter of the table, "
                        "many times on the way and at the end.")});
    parser.addOption({QStringLiteral("quotes"), QStringLiteral("Stop after <n> option quotes."),
                      QStringLiteral("n")});
    parser.addOption({QStringLiteral("until"),
                      QStringLiteral("Stop after the quotes of this time of the day, <hh:mm>."),
                      QStringLiteral("hh:mm")});
    parser.addOption({QStringLiteral("volatility"),
                      QStringLiteral("Keep the implied volatility and the greeks of every "
                                     "two-sided option, and a view by volatility.")});
    parser.addOption(
        {QStringLiteral("smile"),
         QStringLiteral("As --volatility, and print the volatility by strike of each expiry.")});

    parser.addOption({QStringLiteral("save"),
                      QStringLiteral("Save all tables to the folder <dir> after the session."),
                      QStringLiteral("dir")});
    parser.addOption({QStringLiteral("load"),
                      QStringLiteral("Play nothing: show the board that was saved to <dir>."),
                      QStringLiteral("dir")});
    parser.addOption({QStringLiteral("soak"),
                      QStringLiteral("Play the session over and over for <n> minutes, with --save "
                                     "saved and loaded each time, and fail when memory grows by "
                                     "more than 1 % after the first pass."),
                      QStringLiteral("n")});
    addViewOptions(parser);
}

/// Reads what the command line asks to see, and the settings for the rest.
void parseView(const QCommandLineParser& parser, Arguments& arguments)
{
    chooseSettingsFolder(parser);
    arguments.change.columns = columnsOf(parser);
    if (parser.isSet(QStringLiteral("top"))) {
        arguments.change.top = wholeNumber(parser, QStringLiteral("top"), 0);
        if (!arguments.change.top)
            throw InputError{QStringLiteral("--top needs a whole number of rows, 0 or more")};
    }
    const bool isLast = arguments.folder == QLatin1String("last");
    if (!isLast && !arguments.folder.isEmpty())
        arguments.change.dataFolder = QFileInfo(arguments.folder).absoluteFilePath();
    arguments.workplace = parser.value(QStringLiteral("workplace"));
    if (parser.isSet(QStringLiteral("workplace")) && arguments.workplace.isEmpty())
        throw InputError{QStringLiteral("--workplace needs a name")};
    arguments.view = loadView(arguments.workplace, arguments.change);
    if (!isLast)
        return;
    if (arguments.view.dataFolder.isEmpty())
        throw InputError{QStringLiteral("--data last: no recorded day was played before")};
    arguments.folder = arguments.view.dataFolder;
}

/// Reads the command line; throws InputError when it is no good.
Arguments parse(QCommandLineParser& parser, const QStringList& words)
{
    addOptions(parser);
    if (!parser.parse(words))
        throw InputError{parser.errorText()};
    if (!parser.positionalArguments().isEmpty())
        throw InputError{
            QStringLiteral("unexpected argument '%1'").arg(parser.positionalArguments().first())};

    Arguments arguments;
    arguments.folder = parser.value(QStringLiteral("data"));
    if (parser.isSet(QStringLiteral("data")) && arguments.folder.isEmpty())
        throw InputError{QStringLiteral("--data needs the name of a folder")};
    arguments.saveTo = parser.value(QStringLiteral("save"));
    arguments.loadFrom = parser.value(QStringLiteral("load"));
    for (const QString& option : {QStringLiteral("save"), QStringLiteral("load")})
        if (parser.isSet(option) && parser.value(option).isEmpty())
            throw InputError{QStringLiteral("--%1 needs the name of a folder").arg(option)};
    arguments.verify = parser.isSet(QStringLiteral("verify"));
    parseView(parser, arguments);
    if (parser.isSet(QStringLiteral("quotes"))) {
        const auto quotes = wholeNumber(parser, QStringLiteral("quotes"), 1);
        if (!quotes)
            throw InputError{QStringLiteral("--quotes needs a whole number of quotes, 1 or more")};
        arguments.mostQuotes = *quotes;
    }
    if (parser.isSet(QStringLiteral("until"))) {
        const QTime until =
            QTime::fromString(parser.value(QStringLiteral("until")), QStringLiteral("hh:mm"));
        if (!until.isValid())
            throw InputError{QStringLiteral("--until needs a time from 00:00 to 23:59")};
        arguments.untilMs = until.msecsSinceStartOfDay();
    }
    if (parser.isSet(QStringLiteral("soak"))) {
        const auto minutes = wholeNumber(parser, QStringLiteral("soak"), 1);
        if (!minutes)
            throw InputError{QStringLiteral("--soak needs a whole number of minutes, 1 or more")};
        arguments.soakMinutes = *minutes;
    }
    arguments.smile = parser.isSet(QStringLiteral("smile"));
    arguments.volatility = arguments.smile || parser.isSet(QStringLiteral("volatility"));
    return arguments;
}

/// Shows a board that was saved. The last line tells what was there.
void showSaved(const Arguments& arguments)
{
    Board board;
    if (arguments.volatility)
        board.keepVolatilities();
    const SessionInfo session = loadBoard(board, arguments.loadFrom);
    printBoard(board, session, arguments.view);
    if (arguments.smile)
        print(stdout, smileTables(board));
    print(stdout, QStringLiteral("loaded %1 contracts, %2 views, tape %3 rows\n")
                      .arg(board.options().rowCount())
                      .arg(board.views().size())
                      .arg(board.tape().rowCount()));
}

/// Keeps what was asked to see for the next time, and sees to it that all was printed.
int finish(const Arguments& arguments)
{
    if (!saveView(arguments.workplace, arguments.change))
        print(stderr, QStringLiteral("marketboard: the settings could not be saved\n"));
    return std::fflush(stdout) == 0
               ? Played
               : complain(QStringLiteral("the output could not be written"), Broken);
}

std::unique_ptr<Session> makeSession(const Arguments& arguments)
{
    if (arguments.folder.isEmpty())
        return std::make_unique<Simulation>();
    return std::make_unique<Replay>(arguments.folder);
}

/// Kilobytes that the program has allocated and not given back: what the process holds beside them
/// depends on how they lie.
size_t allocatedKb()
{
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 33)
    const auto info = mallinfo2();
    return (info.uordblks + info.hblkhd) / 1024;
#else
    return 0;
#endif
}

int soak(const Arguments& arguments)
{
    QElapsedTimer clock;
    clock.start();
    size_t first = 0;
    size_t now = 0;
    int passes = 0;
    do {
        const auto session = makeSession(arguments);
        auto play = std::make_unique<Play>(*session, arguments);
        if (const auto difference = play->run())
            return complain(*difference, Differs);
        if (!arguments.saveTo.isEmpty()) {
            play->save(arguments.saveTo);
            Board board;
            if (arguments.volatility)
                board.keepVolatilities();
            loadBoard(board, arguments.saveTo);
        }
        play.reset();
        now = allocatedKb();
        first = passes++ == 0 ? now : first;
        print(stdout, QStringLiteral("pass %1: %2 kB\n").arg(passes).arg(now));
        std::fflush(stdout);
        if (now > first + first / 100)
            return complain(QStringLiteral("memory grew from %1 kB to %2 kB").arg(first).arg(now),
                            Differs);
    } while (passes < 2 || clock.elapsed() < arguments.soakMinutes * qint64(60'000));
    return std::fflush(stdout) == 0 ? Played : Broken;
}

int run(const QStringList& words)
{
    QCommandLineParser parser;
    const Arguments arguments = parse(parser, words);
    if (parser.isSet(QStringLiteral("help"))) {
        print(stdout, parser.helpText());
        return Played;
    }
    if (parser.isSet(QStringLiteral("list-workplaces"))) {
        print(stdout, workplaceLines());
        return Played;
    }

    if (!arguments.loadFrom.isEmpty()) {
        showSaved(arguments);
        return finish(arguments);
    }

    if (arguments.soakMinutes > 0)
        return soak(arguments);
    const std::unique_ptr<Session> session = makeSession(arguments);
    Play play(*session, arguments);
    if (const auto difference = play.run())
        return complain(*difference, Differs);
    if (!arguments.saveTo.isEmpty())
        play.save(arguments.saveTo);
    play.report();
    return finish(arguments);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    try {
        return run(QCoreApplication::arguments());
    } catch (const InputError& error) {
        return complain(error.message, BadInput);
    } catch (const Exception& error) {
        return complain(error.message(), Broken);
    } catch (const QString& message) {
        return complain(message, Broken);
    } catch (const std::exception& error) {
        return complain(QString::fromLocal8Bit(error.what()), Broken);
    }
}
