// SPDX-License-Identifier: MIT
#include "gridheader.h"
#include "keyshelp.h"
#include "loader.h"
#include "mainwindow.h"
#include "optionboard.h"
#include "quotespane.h"
#include "statusline.h"
#include "tapepane.h"
#include "theme.h"

#include "base/icore.h"
#include "index/masterindex.h"
#include "io/tableio.h"
#include "table/recordupdater.h"

#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

namespace {

/// A window that plays the built-in session as fast as it can, with every contract quoted.
class Desk
{
public:
    explicit Desk(const QString& workplace = QString())
    {
        Options options;
        options.size = QSize(1280, 800);
        options.speed = Feed::MaximumSpeed;
        options.workplace = workplace;
        window = std::make_unique<MainWindow>(options);
        window->show();
        QApplication::setActiveWindow(window.get());
        constexpr int patienceMs = 60'000; // sanitizers are slow, and machines are shared
        if (!QTest::qWaitForWindowActive(window.get(), patienceMs) ||
            !QTest::qWaitFor([this] { return isFilled(); }, patienceMs))
            qFatal("there is no filled window");
    }
    bool isFilled()
    {
        constexpr int fewMinutesMs = 300'000;
        return board().options().rowCount() == 200 && quotes()->rowCount() == 200 &&
               window->optionBoard().model() && window->player().timeMs() > fewMinutesMs;
    }
    Board& board() { return window->player().market()->board; }
    Chain& chain() { return window->player().market()->chain; }
    TableModel* quotes() { return window->quotes().model(); }
    void key(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QTest::keyClick(window.get(), Qt::Key(key), modifiers);
    }
    /// Lets some frames be played.
    void play()
    {
        constexpr int frames = 10;
        QSignalSpy played(window.get(), &MainWindow::framed);
        while (played.size() < frames && played.wait()) {
        }
    }
    /// Answers the question at the foot of the window.
    void answer(const QString& text)
    {
        auto* prompt = window->findChild<QLineEdit*>(QStringLiteral("prompt"));
        prompt->clear();
        QTest::keyClicks(prompt, text);
        QTest::keyClick(prompt, Qt::Key_Return);
    }
    bool hasEnded()
    {
        return QTest::qWaitFor([this] { return !window->loader().isBusy(); }, 30'000);
    }
    QString message() { return window->status().message(); }

    std::unique_ptr<MainWindow> window;
};

/// Whether the rows that the model shows are all quotes that `wanted` accepts, in the order of the
/// column, with those that have no value last.
QString faultOf(const TableModel& model, Board& board, int column, bool isDescending,
                const std::function<bool(const Record&)>& wanted)
{
    int count = 0;
    for (int i = 0; i < board.options().rowCount(); ++i)
        count += wanted(board.options().at(i));
    if (model.rowCount() != count)
        return QStringLiteral("%1 rows, not %2").arg(model.rowCount()).arg(count);
    for (int i = 0; i < count; ++i) {
        const Record row = model.record(i);
        if (row.isNull() || !wanted(row))
            return QStringLiteral("row %1 does not belong there").arg(i);
        if (i == 0)
            continue;
        const Field before = model.record(i - 1).data(column);
        const Field here = row.data(column);
        const bool isRight =
            here.isNull() || (!before.isNull() && (isDescending ? before.compare(here) >= 0
                                                                : before.compare(here) <= 0));
        if (!isRight)
            return QStringLiteral("row %1 is out of order").arg(i);
    }
    return QString();
}

/// Adds so many rows to the tape of a saved board that it takes a while to load.
void lengthenTape(const QString& folder)
{
    constexpr int rows = 1'500'000;
    Board board;
    Table& tape = board.tape();
    TableIO io(&tape);
    io.read(QDir(folder), false);
    tape.setIndexes({}); // without its limit
    const Record last = tape.at(tape.rowCount() - 1);
    QList<Record> more;
    for (int i = 0; i < rows; ++i) {
        Record row(&tape);
        for (int column = 0; column < tape.columnCount(); ++column)
            row.data(column) = last.data(column);
        more += row;
    }
    tape.appendList(more);
    io.write(QDir(folder));
    QCOMPARE(io.status(), TableIO::Ok);
}

/// Four quotes of the first minute, two of the next, and then a broken line.
class BrokenSession : public Session
{
public:
    QString title() const override { return QString(); }
    QString underlying() const override { return QString(); }
    QVector<Instrument> instruments() override { return {}; }
    double progress() const override { return 0; }
    Event next() override
    {
        if (++number > 6)
            throw InputError{QStringLiteral("broken")};
        optionQuote.timeMs = number > 4 ? 60'000 : 0;
        optionQuote.expiry = 20200320;
        optionQuote.right = 'C';
        optionQuote.strike = decimal(3000 + number);
        return Event::Option;
    }

private:
    int number = 0;
};

} // namespace

class tst_board : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        ICore::setProgramDir(settings.path());
        Theme::apply(*qApp, true);
    }

    void boardFollowsEveryQuote()
    {
        Desk desk;
        desk.play();
        desk.window->player().setPaused(true);
        desk.chain().flush();
        Record key(&desk.chain().rows());
        for (int i = 0; i < desk.board().options().rowCount(); ++i) {
            const Record option = desk.board().options().at(i);
            key.data(Chain::Expiry) = option.data(Board::Expiry);
            key.data(Chain::Strike) = option.data(Board::Strike);
            const Record row = desk.chain().rows().masterIndex()->find(key);
            QVERIFY(!row.isNull());
            const char right = option.data(Board::Right).toChar().toLatin1();
            const std::pair<Chain::Value, int> cells[] = {{Chain::Bid, Board::Bid},
                                                          {Chain::AskSize, Board::AskSize},
                                                          {Chain::Delta, Board::Delta}};
            for (const auto& [value, column] : cells)
                QCOMPARE(row.data(Chain::column(right, value)).toVariant(),
                         option.data(column).toVariant());
        }
        desk.window->optionBoard().centre();
        const TableModel& shown = *desk.window->optionBoard().model();
        QCOMPARE(shown.rowCount(), 50);
        desk.key(Qt::Key_E, Qt::ControlModifier);
        QCOMPARE(desk.window->optionBoard().expiry(), 20200619);
        QVERIFY(desk.window->optionBoard().model()->record(0).data(Chain::Expiry).toInteger() ==
                20200619);
    }

    void feedSpreadsAMinute()
    {
        constexpr qint64 budgetNs = 1'000'000'000;
        Market market;
        BrokenSession session;
        Feed feed(session, market);
        feed.setSpeed(60);
        QCOMPARE(feed.play(1, budgetNs), 1); // begins with the first, however long it has waited
        QCOMPARE(feed.play(0.25, budgetNs), 1);
        QCOMPARE(feed.play(0.45, 0), 0); // no time for anything
        QCOMPARE(feed.play(0.5, budgetNs), 2);
        QCOMPARE(feed.timeMs(), 45'000);
        feed.stopAt(1.25);
        QCOMPARE(feed.play(10, budgetNs), 1);
        QVERIFY(feed.isStopped() && feed.timeMs() == 75'000);
        feed.stopAt(100);
        feed.setSpeed(Feed::MaximumSpeed);
        QVERIFY_EXCEPTION_THROWN(feed.play(0, budgetNs), InputError); // after the last quote
        QVERIFY(feed.isAtEnd());
        QCOMPARE(feed.play(1, budgetNs), 0); // and is told once
        QCOMPARE(market.board.options().rowCount(), 6);
    }

    void typedWordsFilter()
    {
        // Of 50 strikes from 2750 in steps of 20, two expiries.
        const std::pair<const char*, int> rows[] = {
            {"p", 100},    {"3210", 4}, {"32", 5 * 4}, {"C >3100 <3200", 5 * 2},
            {"jun P", 50}, {"swan", 0}, {" ", 200}};
        Desk desk;
        for (const auto& [typed, count] : rows) {
            desk.key(Qt::Key_F, Qt::ControlModifier);
            QTest::keyClicks(QApplication::focusWidget(), typed);
            QTRY_COMPARE(desk.quotes()->rowCount(), count);
            desk.play(); // and the quotes that come do not change that
            QCOMPARE(desk.quotes()->rowCount(), count);
            desk.window->quotes().setFilter(QString());
            QCOMPARE(desk.quotes()->rowCount(), 200);
        }
    }

    void clickedHeaderSortsLive()
    {
        Desk desk;
        QuotesPane& pane = desk.window->quotes();
        pane.setFilter(QStringLiteral("C"));
        const auto isCall = [](const Record& row) {
            return row.data(Board::Right).toChar() == 'C';
        };
        GridHeader* header = pane.grid()->header();
        for (const int column : {Board::Bid, Board::Spread, Board::Volatility}) {
            for (const bool isDescending : {false, true}) {
                int section = 0;
                while (pane.grid()->columns()[section].source != column)
                    ++section;
                const QPoint at(header->sectionViewportPosition(section) + 9, header->height() / 2);
                QTest::mouseClick(header->viewport(), Qt::LeftButton, Qt::NoModifier, at);
                desk.play();
                desk.quotes()->flush();
                const QString fault =
                    faultOf(*desk.quotes(), desk.board(), column, isDescending, isCall);
                QVERIFY2(fault.isEmpty(), qPrintable(fault));
            }
        }
        pane.setFilter(QString());
    }

    void editedCellIsKept()
    {
        Desk desk;
        Grid* grid = desk.window->optionBoard().grid();
        const auto held = [&desk] {
            return desk.window->optionBoard().model()->record(25).data(
                Chain::column('C', Chain::Held));
        };
        const auto type = [&](const QString& text) {
            grid->setFocus();
            grid->setCurrentIndex(grid->model()->index(25, 0));
            QTest::keyClick(grid, text.at(0).toLatin1()); // begins to edit
            auto* editor = grid->findChild<QLineEdit*>();
            if (!editor)
                return false;
            Q_EMIT grid->model()->dataChanged(grid->model()->index(25, 0),
                                              grid->model()->index(25, 20)); // the row ticks
            QTest::keyClicks(editor, text.mid(1));
            const bool isKept = editor->text() == text;
            QTest::keyClick(editor, Qt::Key_Return);
            return isKept;
        };
        QVERIFY(type(QStringLiteral("-12")));
        QTRY_COMPARE(held().toInteger(), -12);
        QTRY_VERIFY(!desk.window->status().figure(StatusLine::HeldDelta).isEmpty());
        QVERIFY(type(QStringLiteral("7x")));
        QTRY_VERIFY(!desk.message().isEmpty());
        QCOMPARE(held().toInteger(), -12);
        QVERIFY(!grid->model()->index(25, 7).flags().testFlag(Qt::ItemIsEditable));
    }

    void frozenRowsStay()
    {
        Desk desk;
        desk.key(Qt::Key_F6);
        const auto top = [&desk] {
            return desk.window->tape().model()->index(0, 0).data(TableModel::RecordRole);
        };
        TableModel& tape = *desk.window->tape().model();
        QSignalSpy moved(&tape, &QAbstractItemModel::rowsInserted);
        QSignalSpy changed(&tape, &QAbstractItemModel::layoutChanged);
        desk.play();
        QVERIFY(moved.isEmpty() && changed.isEmpty() && tape.hasPendingChanges());
        desk.key(Qt::Key_F6);
        QTRY_VERIFY(!moved.isEmpty() || !changed.isEmpty());
        desk.window->player().setPaused(true);
        tape.flush();
        const Record newest = desk.board().tape().at(desk.board().tape().rowCount() - 1);
        QVERIFY(top().value<Record>() == newest);
        desk.key(Qt::Key_F1);
        QVERIFY(desk.window->keys().isVisible());
        desk.key(Qt::Key_F1);
    }

    void savesCancelsAndLoads()
    {
        const QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("evening"));
        Desk desk;
        Chain& chain = desk.chain();
        RecordsTrans trade(&chain.rows());
        RecordUpdater(trade, chain.rows().at(3)).data(Chain::column('P', Chain::Held)) = 5;
        trade.execute();

        desk.window->saveTo(path); // and at once
        desk.key(Qt::Key_Escape);
        QVERIFY(desk.hasEnded());
        QTRY_COMPARE(desk.message(), QStringLiteral("Saving was cancelled"));
        QVERIFY(!QFile::exists(path + QStringLiteral("/tape")));

        desk.key(Qt::Key_S, Qt::ControlModifier);
        desk.answer(path);
        QVERIFY(desk.hasEnded());
        QTRY_VERIFY2(desk.message().startsWith(QLatin1String("Saved to ")),
                     qPrintable(desk.message()));
        const Market* before = desk.window->player().market();
        desk.window->loadFrom(folder.filePath(QStringLiteral("nothing")));
        QVERIFY(desk.hasEnded());
        QVERIFY(desk.message().contains(QLatin1String("no such table file")));
        QVERIFY(desk.window->player().market() == before);

        desk.window->openData(folder.path());
        QVERIFY(desk.message().contains(QLatin1String("there is no such file")));
        QVERIFY(desk.window->player().market() == before);

        desk.key(Qt::Key_O, Qt::ControlModifier);
        desk.answer(path);
        QVERIFY(desk.hasEnded());
        QTRY_VERIFY(desk.window->player().market() != before);
        QVERIFY(desk.window->player().isPaused());
        QCOMPARE(desk.chain().held().contracts, qint64(5));
        const int savedMs = desk.window->player().timeMs();
        QVERIFY(savedMs > 0);
        const auto newest = [&desk] {
            const Table& tape = desk.board().tape();
            return tape.at(tape.rowCount() - 1);
        };
        const qint64 sequence = newest().data(Board::Sequence).toInteger64();
        desk.key(Qt::Key_F5); // goes on where it was saved
        QTRY_VERIFY(newest().data(Board::Sequence).toInteger64() > sequence + 100);
        QVERIFY(newest().data(Board::TapeTime).toInteger() >= savedMs / 60'000 * 60'000);

        desk.window->player().setPaused(true);
        lengthenTape(path);
        const Market* shown = desk.window->player().market();
        desk.window->loadFrom(path);
        QVERIFY(!desk.window->loader().load(path)); // one at a time
        auto* cancel = desk.window->loader().findChild<QPushButton*>(QStringLiteral("primary"));
        QTest::mouseClick(cancel, Qt::LeftButton);
        QVERIFY(desk.hasEnded());
        QTRY_COMPARE(desk.message(), QStringLiteral("Loading was cancelled"));
        QVERIFY(desk.window->player().market() == shown);

        desk.window->loadFrom(path);
        QTest::qWait(20);
        QVERIFY(desk.window->loader().isBusy());
        QElapsedTimer closing;
        closing.start();
        desk.window->close();
        desk.window.reset();
        QVERIFY2(closing.elapsed() < 3'000, qPrintable(QString::number(closing.elapsed())));
    }

    void workplacesKeepTheWindow()
    {
        {
            Desk desk(QStringLiteral("noon"));
            desk.window->optionBoard().grid()->setColumnHidden(1, true);
            desk.window->optionBoard().setExpiry(20200619);
            desk.window->quotes().setOrder(4, true);
            desk.window->setSpeed(300);
            desk.window->useWorkplace(QStringLiteral("evening"));
            desk.window->optionBoard().grid()->setColumnHidden(1, false);
            desk.window->quotes().setOrder(2, false);
            desk.window->setDark(false);
            desk.window->useWorkplace(QStringLiteral("../noon")); // is none: the standard one
            QCOMPARE(desk.window->workplace(), QStringLiteral("Standard"));
            desk.window->useWorkplace(QStringLiteral("noon"));
            QVERIFY(desk.window->close());
        }
        Desk desk;
        QCOMPARE(desk.window->workplace(), QStringLiteral("noon"));
        QVERIFY(desk.window->optionBoard().grid()->isColumnHidden(1));
        QCOMPARE(desk.window->optionBoard().expiry(), 20200619);
        QCOMPARE(desk.window->quotes().orderColumn(), 4);
        QVERIFY(desk.window->quotes().isDescending() && Theme::current().isDark);
        desk.window->useWorkplace(QStringLiteral("evening"));
        QVERIFY(!desk.window->optionBoard().grid()->isColumnHidden(1));
        QVERIFY(!Theme::current().isDark);
    }

    void commandLineIsRead()
    {
        const std::pair<QStringList, const char*> rows[] = {
            {{}, ""},
            {{"--speed", "max", "--palette", "light", "--size", "1280x800"}, ""},
            {{"--speed", "-1"}, "--speed needs numbers above 0"},
            {{"--replay-loop", "nan"}, "--replay-loop needs"},
            {{"--palette", "grey"}, "--palette is"},
            {{"--size", "1280"}, "--size needs"},
            {{"--screenshot-at", "1"}, "need each other"},
            {{"--screenshot-dir", "x", "--screenshot-at", "1,x"}, "--screenshot-at needs"},
            {{"--fast"}, "fast"},
            {{"fast"}, "unexpected argument"},
        };
        for (const auto& [words, fault] : rows) {
            QString found;
            try {
                parseOptions(QStringList{"board"} + words);
            } catch (const InputError& error) {
                found = error.message;
            }
            QVERIFY2(*fault ? found.contains(fault) : found.isEmpty(), qPrintable(found));
        }
    }

private:
    QTemporaryDir settings;
};

QTEST_MAIN(tst_board)
#include "tst_board.moc"
