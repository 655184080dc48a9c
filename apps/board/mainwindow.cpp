// SPDX-License-Identifier: MIT
#include "mainwindow.h"

#include "figures.h"
#include "gridheader.h"
#include "keyshelp.h"
#include "loader.h"
#include "optionboard.h"
#include "promptbar.h"
#include "quotespane.h"
#include "smileplot.h"
#include "statusline.h"
#include "tapepane.h"
#include "theme.h"
#include "topbar.h"
#include "workplace.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDockWidget>
#include <QTimer>
#include <QVBoxLayout>

#include <cmath>

namespace {

constexpr int FrameMs = 16;
constexpr qint64 FeedBudgetNs = 10'000'000; // of a frame; the rest is for painting and input
constexpr int RefreshMs = 100;
constexpr int FiguresMs = 500;
constexpr QSize StandardSize(1280, 800);

} // namespace

MainWindow::MainWindow(const Options& options)
    : playing(new Player(this))
    , beat(new QTimer(this))
{
    buildPanes();
    buildActions();
    resize(options.size.isValid() ? options.size : StandardSize);
    arrangePanes();
    loadWorkplace(options.workplace.isEmpty() ? Workplace::last() : options.workplace);
    if (options.size.isValid())
        resize(options.size);
    if (options.dark)
        setDark(*options.dark);
    if (options.speed)
        setSpeed(*options.speed);

    connect(playing, &Player::marketLeaves, this, &MainWindow::dropMarket);
    connect(playing, &Player::marketCame, this, &MainWindow::takeMarket);
    connect(playing, &Player::failed, this,
            [this](const QString& message) { report(message, true); });
    connect(playing, &Player::sessionEnded, this,
            [this] { report(tr("The session has ended"), false); });
    playing->open(options.data);
    if (!options.load.isEmpty())
        loadFrom(options.load);

    beat->setTimerType(Qt::PreciseTimer);
    beat->setInterval(FrameMs);
    connect(beat, &QTimer::timeout, this, &MainWindow::frame);
    board->setFocus();
    sinceFrame.start();
    sinceRefresh.start();
    sinceFigures.start();
    beat->start();
}

MainWindow::~MainWindow()
{
    beat->stop();
    dropMarket(); // while the panes are there
}

void MainWindow::buildPanes()
{
    topBar = new TopBar;
    board = new OptionBoard;
    quotesPane = new QuotesPane;
    tapePane = new TapePane;
    smilePlot = new SmilePlot;
    statusLine = new StatusLine;
    files = new Loader;
    prompt = new PromptBar;

    // Docks go around a centre of their own, so that the strips span the window.
    auto* foot = new QWidget;
    auto* footLayout = new QVBoxLayout(foot);
    footLayout->setContentsMargins(0, 0, 0, 0);
    footLayout->setSpacing(0);
    footLayout->addWidget(prompt);
    footLayout->addWidget(files);
    footLayout->addWidget(statusLine);

    auto* panes = new QMainWindow(this, Qt::Widget);
    panes->setObjectName(QStringLiteral("panes"));
    panes->setDockNestingEnabled(true);
    panes->setAnimated(false);
    panes->setCentralWidget(board);
    auto* all = new QWidget;
    auto* layout = new QVBoxLayout(all);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(topBar);
    layout->addSpacing(5);
    layout->addWidget(panes, 1);
    layout->addWidget(foot);
    setCentralWidget(all);
    help = new KeysHelp(this);

    connect(board, &OptionBoard::refused, this,
            [this](const QString& message) { report(message, true); });
    connect(files, &Loader::ended, this, [this](const QString& message, bool isTrouble) {
        cancelFiles->setEnabled(false);
        report(message, isTrouble);
    });
    connect(files, &Loader::loaded, this, [this] {
        playing->adopt(files->takeLoaded());
        pause->setChecked(true);
    });
}

void MainWindow::openData(const QString& folder)
{
    try {
        playing->open(folder);
        pause->setChecked(false);
        report(playing->market()->info.title, false);
    } catch (const InputError& error) {
        report(error.message, true);
    }
}

void MainWindow::saveTo(const QString& folder)
{
    savedFolder = folder;
    if (files->save(*playing->market(), folder))
        cancelFiles->setEnabled(files->isBusy());
    else
        report(tr("Something is being saved or loaded already"), true);
}

void MainWindow::loadFrom(const QString& folder)
{
    savedFolder = folder;
    if (files->load(folder))
        cancelFiles->setEnabled(true);
    else
        report(tr("Something is being saved or loaded already"), true);
}

void MainWindow::dropMarket()
{
    for (const auto drop : {+[](MainWindow* w) { w->board->setMarket(nullptr); },
                            +[](MainWindow* w) { w->quotesPane->setMarket(nullptr); },
                            +[](MainWindow* w) { w->tapePane->setMarket(nullptr); },
                            +[](MainWindow* w) { w->smilePlot->setMarket(nullptr); },
                            +[](MainWindow* w) { w->topBar->setMarket(nullptr); }})
        drop(this);
}

void MainWindow::takeMarket()
{
    Market* market = playing->market();
    board->setMarket(market);
    quotesPane->setMarket(market);
    tapePane->setMarket(market);
    smilePlot->setMarket(market);
    topBar->setMarket(market);
    refresh();
}

void MainWindow::frame()
{
    meter.beat();
    const double seconds = double(sinceFrame.nsecsElapsed()) / 1e9;
    sinceFrame.start();
    constexpr double mostSeconds = 0.1; // a pause of the machine is no reason to hurry after it
    quotesSinceFigures += playing->frame(std::min(seconds, mostSeconds), FeedBudgetNs);
    if (sinceRefresh.elapsed() >= RefreshMs) {
        refresh();
        sinceRefresh.start();
    }
    if (sinceFigures.elapsed() >= FiguresMs)
        showFigures();
    Q_EMIT framed();
}

void MainWindow::refresh()
{
    board->refresh();
    smilePlot->refresh();
    topBar->refresh(playing->timeMs());
}

void MainWindow::showFigures()
{
    const double seconds = double(sinceFigures.restart()) / 1000;
    const double rate = double(std::exchange(quotesSinceFigures, 0)) / seconds;
    statusLine->setFigure(StatusLine::Updates, figureText(rate, 0, true));
    statusLine->setFigure(StatusLine::Frame, figureText(meter.takeRecentWorstMs(), 1));
    statusLine->setFigure(StatusLine::Played,
                          figureText(playing->progress() * 100, 0) + QLatin1Char('%'));
    const Chain::Sum held = playing->market()->chain.held();
    const bool isShown = held.contracts > 0;
    const auto text = [isShown](double value, int decimals) {
        return isShown ? figureText(value, decimals, true) : QString();
    };
    statusLine->setFigure(StatusLine::Held, text(double(held.contracts), 0));
    statusLine->setFigure(StatusLine::HeldDelta, text(held.delta, 1));
    statusLine->setFigure(StatusLine::HeldVega, text(held.vega, 1));
    statusLine->setFigure(StatusLine::HeldTheta, text(held.theta, 1));
}

void MainWindow::report(const QString& message, bool isTrouble)
{
    if (isTrouble)
        qWarning("%s", qUtf8Printable(message));
    else
        qInfo("%s", qUtf8Printable(message));
    statusLine->tell(message, isTrouble);
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    saveWorkplace();
    event->accept();
}
