// SPDX-License-Identifier: MIT
#include "automation.h"

#include "grid.h"
#include "keyshelp.h"
#include "loader.h"
#include "mainwindow.h"
#include "optionboard.h"
#include "promptbar.h"
#include "quotespane.h"
#include "smileplot.h"
#include "tapepane.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QMenu>
#include <QMenuBar>
#include <QPixmap>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace {

/// What the program holds in memory; 0 where the system does not tell.
double residentMegabytes()
{
    QFile file(QStringLiteral("/proc/self/statm"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const double pages = file.readAll().split(' ').value(1).toDouble();
    return pages * double(sysconf(_SC_PAGESIZE)) / 1e6;
}

} // namespace

Automation::Automation(MainWindow& automated, const Options& given)
    : window(automated)
    , options(given)
{
    if (!options.screenshotAt.isEmpty())
        window.player().stopAt(options.screenshotAt.first());
    if (options.replayLoopMinutes > 0) {
        sinceBegin.start();
        sincePass.start();
        window.frames().restart();
    }
    if (!options.screenshotAt.isEmpty() || options.replayLoopMinutes > 0)
        connect(&window, &MainWindow::framed, this, &Automation::frame);
}

void Automation::frame()
{
    Player& player = window.player();
    if (nextPicture < options.screenshotAt.size() && (player.isStopped() || player.isAtEnd())) {
        constexpr int settleMs = 350; // models and panes have told all; tints are still there
        if (!sinceStop.isValid())
            sinceStop.start();
        if (sinceStop.elapsed() < settleMs || window.loader().isBusy())
            return;
        sinceStop.invalidate();
        takePictures(options.screenshotAt[nextPicture]);
        if (++nextPicture == options.screenshotAt.size())
            window.close();
        else
            player.stopAt(options.screenshotAt[nextPicture]);
    }
    if (options.replayLoopMinutes > 0) {
        if (player.isAtEnd())
            endPass();
        if (double(sinceBegin.elapsed()) >= options.replayLoopMinutes * 60'000)
            endLoop();
    }
}

void Automation::takePictures(double minute)
{
    const QTemporaryDir folder;
    QDir().mkpath(options.screenshotDir);
    save(window, minute, QStringLiteral("window"));
    save(window.optionBoard(), minute, QStringLiteral("optionboard"));
    save(*window.quotes().parentWidget(), minute, QStringLiteral("quotes"));
    save(*window.smile().parentWidget(), minute, QStringLiteral("smile"));
    save(*window.tape().parentWidget(), minute, QStringLiteral("tape"));
    const QList<QAction*> menus = window.menuBar()->actions();
    for (const QAction* action : menus) {
        Q_EMIT action->menu()->aboutToShow(); // some are filled then
        save(*action->menu(), minute,
             QStringLiteral("menu-") + action->text().remove(QLatin1Char('&')).toLower());
    }
    window.showKeys();
    save(window, minute, QStringLiteral("keys"));
    window.keys().leave();
    window.findChild<QAction*>(QStringLiteral("save"))->trigger();
    QApplication::processEvents(QEventLoop::ExcludeUserInputEvents); // lays the strip out
    save(window, minute, QStringLiteral("prompt"));
    window.prompts().dismiss();
    window.saveTo(folder.path());
    QApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
    save(window, minute, QStringLiteral("saving"));
    window.loader().cancel();
    while (window.loader().isBusy()) // it writes to the folder
        QApplication::processEvents(QEventLoop::ExcludeUserInputEvents |
                                    QEventLoop::WaitForMoreEvents);
}

void Automation::save(QWidget& screen, double minute, const QString& name)
{
    const QString path = QDir(options.screenshotDir)
                             .filePath(QStringLiteral("minute-%1-%2.png")
                                           .arg(int(minute), 3, 10, QLatin1Char('0'))
                                           .arg(name));
    if (!screen.grab().save(path)) {
        std::fprintf(stderr, "board: %s cannot be written\n", qPrintable(path));
        QApplication::exit(3);
    }
}

void Automation::endPass()
{
    ++passes;
    const double megabytes = residentMegabytes();
    if (passes == 1)
        firstMegabytes = megabytes;
    else
        mostMegabytes = std::max(mostMegabytes, megabytes);
    std::printf("pass %d: %.1f s, %.1f MB\n", passes, double(sincePass.elapsed()) / 1000,
                megabytes);
    std::fflush(stdout);
    sincePass.start();
    window.player().reopen();
}

void Automation::endLoop()
{
    disconnect(&window, nullptr, this, nullptr);
    const FrameMeter& frames = window.frames();
    std::printf("passes %d, first %.1f MB, most %.1f MB, end %.1f MB, frames %lld, late %lld, "
                "worst %.1f ms, late by work %lld, worst work %.1f ms\n",
                passes, firstMegabytes, mostMegabytes, residentMegabytes(), frames.frames(),
                frames.lateFrames(), frames.worstMs(), frames.lateByWork(), frames.worstWorkMs());
    std::fflush(stdout);
    window.close();
}
