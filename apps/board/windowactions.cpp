// SPDX-License-Identifier: MIT
// The actions, docks and workplaces of the window.
#include "gridheader.h"
#include "keyshelp.h"
#include "loader.h"
#include "mainwindow.h"
#include "optionboard.h"
#include "panestrip.h"
#include "promptbar.h"
#include "quotespane.h"
#include "smileplot.h"
#include "tapepane.h"
#include "theme.h"
#include "topbar.h"
#include "workplace.h"

#include "settings/workplacesettings.h"

#include <QActionGroup>
#include <QApplication>
#include <QDockWidget>
#include <QMenu>
#include <QMenuBar>

#include <algorithm>
#include <cmath>
#include <functional>

namespace {

const double Speeds[] = {1, 2, 5, 10, 30, 60, 300, 600, 3000, Feed::MaximumSpeed};

QString speedText(double times)
{
    return std::isinf(times) ? MainWindow::tr("max")
                             : QString::number(times) + QStringLiteral("\u00d7");
}

QKeySequence ctrl(int key)
{
    return QKeySequence(int(Qt::CTRL) + key);
}

QMainWindow* panesOf(const MainWindow* window)
{
    return window->findChild<QMainWindow*>(QStringLiteral("panes"));
}

} // namespace

void MainWindow::arrangePanes()
{
    QMainWindow* panes = panesOf(this);
    const Pane all[] = {
        {QStringLiteral("quotesDock"), tr("&Quotes"), quotesPane, quotesPane->head()},
        {QStringLiteral("smileDock"), tr("S&mile"), smilePlot, new PaneStrip(tr("Smile"))},
        {QStringLiteral("tapeDock"), tr("&Tape"), tapePane, tapePane->head()}};
    for (const Pane& pane : all) {
        auto* dock = new QDockWidget(pane.title, panes);
        dock->setObjectName(pane.name);
        dock->setWidget(pane.widget);
        dock->setTitleBarWidget(pane.head);
        panes->addDockWidget(Qt::BottomDockWidgetArea, dock);
        docks += dock;
    }
    panes->resizeDocks({docks[0], docks[1], docks[2]}, {490, 390, 400}, Qt::Horizontal);
    panes->resizeDocks({docks[0]}, {300}, Qt::Vertical);
    setTabOrder(board->grid(), quotesPane->grid());
    setTabOrder(quotesPane->grid(), smilePlot);
    setTabOrder(smilePlot, tapePane->grid());
}

QAction* MainWindow::add(QMenu* menu, const QString& text, const QKeySequence& key,
                         const std::function<void()>& act)
{
    QAction* action = menu->addAction(text);
    action->setShortcut(key);
    addAction(action); // keys work while the menu bar does not
    connect(action, &QAction::triggered, this, act);
    return action;
}

void MainWindow::buildActions()
{
    buildSessionMenu();
    buildViewMenu();
    buildWorkplaceMenu();
    QMenu* menu = menuBar()->addMenu(tr("&Help"));
    add(menu, tr("&Keys"), Qt::Key_F1, [this] { showKeys(); });
    for (QAction* action : {pause, freeze, follow})
        topBar->addButton(action);
}

void MainWindow::buildSessionMenu()
{
    QMenu* menu = menuBar()->addMenu(tr("&Session"));
    pause = add(menu, tr("&Pause"), Qt::Key_F5, [] {});
    pause->setCheckable(true);
    connect(pause, &QAction::toggled, playing, &Player::setPaused);
    speeds = new QActionGroup(this);
    QMenu* speedMenu = menu->addMenu(tr("S&peed"));
    for (const double times : Speeds) {
        QAction* action = speedMenu->addAction(speedText(times));
        action->setCheckable(true);
        action->setData(times);
        speeds->addAction(action);
    }
    connect(speeds, &QActionGroup::triggered, this,
            [this](QAction* action) { setSpeed(action->data().toDouble()); });
    add(menu, tr("S&lower"), Qt::Key_F7, [this] { stepSpeed(-1); });
    add(menu, tr("&Faster"), Qt::Key_F8, [this] { stepSpeed(1); });
    menu->addSeparator();
    add(menu, tr("Play a &recorded day\u2026"), ctrl(Qt::Key_R), [this] {
        prompt->ask(tr("Folder of the recorded day"), playing->dataFolder(), true,
                    [this](const QString& folder) { openData(folder); });
    });
    add(menu, tr("Play the &built-in session"), ctrl(Qt::Key_B), [this] { openData({}); });
    add(menu, tr("Begin &again"), ctrl(Qt::Key_G), [this] { openData(playing->dataFolder()); });
    menu->addSeparator();
    QAction* save = add(menu, tr("&Save\u2026"), QKeySequence::Save, [this] {
        prompt->ask(tr("Save the board to the folder"), savedFolder, true,
                    [this](const QString& folder) { saveTo(folder); });
    });
    save->setObjectName(QStringLiteral("save"));
    add(menu, tr("L&oad\u2026"), QKeySequence::Open, [this] {
        prompt->ask(tr("Load the board from the folder"), savedFolder, true,
                    [this](const QString& folder) { loadFrom(folder); });
    });
    cancelFiles =
        add(menu, tr("&Cancel saving or loading"), Qt::Key_Escape, [this] { files->cancel(); });
    cancelFiles->setEnabled(false);
    menu->addSeparator();
    add(menu, tr("&Quit"), ctrl(Qt::Key_Q), [this] { close(); });
}

void MainWindow::buildViewMenu()
{
    QMenu* menu = menuBar()->addMenu(tr("&View"));
    freeze = add(menu, tr("Free&ze"), Qt::Key_F6, [] {});
    freeze->setCheckable(true);
    freeze->setToolTip(tr("Hold all tables as they are (F6)"));
    connect(freeze, &QAction::toggled, this, &MainWindow::setFrozen);
    follow = add(menu, tr("Follow the &money"), Qt::Key_F9, [] {});
    follow->setCheckable(true);
    follow->setChecked(true);
    follow->setToolTip(tr("Keep the strike nearest to the future in the middle (F9)"));
    connect(follow, &QAction::toggled, this, [this](bool isOn) { board->setFollowing(isOn); });
    add(menu, tr("&Centre on the money"), ctrl(Qt::Key_M), [this] { board->centre(); });
    add(menu, tr("Next &expiry"), ctrl(Qt::Key_E), [this] { board->nextExpiry(); });
    add(menu, tr("&Filter the quotes"), QKeySequence::Find, [this] {
        docks[0]->show();
        quotesPane->focusFilter();
    });
    menu->addSeparator();
    add(menu, tr("Go to the &option board"), ctrl(Qt::Key_1), [this] { board->setFocus(); });
    const std::pair<QString, QWidget*> panes[] = {{tr("Go to the &quotes"), quotesPane},
                                                  {tr("Go to the &smile"), smilePlot},
                                                  {tr("Go to the &tape"), tapePane}};
    for (int i = 0; i < 3; ++i) {
        QWidget* widget = panes[i].second;
        add(menu, panes[i].first, ctrl(Qt::Key_2 + i), [this, i, widget] {
            docks[i]->show();
            widget->setFocus();
        });
    }
    QMenu* shown = menu->addMenu(tr("&Panes"));
    connect(shown, &QMenu::aboutToShow, this, [this, shown] {
        shown->clear();
        for (QDockWidget* dock : qAsConst(docks))
            shown->addAction(dock->toggleViewAction());
    });
    const auto columnMenu = [menu](const QString& title, Grid* grid) {
        QMenu* columns = menu->addMenu(title);
        connect(columns, &QMenu::aboutToShow, grid, [columns, grid] {
            columns->clear();
            grid->fillColumnMenu(*columns);
        });
    };
    columnMenu(tr("Columns of the option &board"), board->grid());
    columnMenu(tr("Columns of the q&uotes"), quotesPane->grid());
    columnMenu(tr("Columns of the t&ape"), tapePane->grid());
    menu->addSeparator();
    darkPalette = add(menu, tr("&Dark"), ctrl(Qt::Key_D), [] {});
    darkPalette->setCheckable(true);
    darkPalette->setChecked(Theme::current().isDark);
    connect(darkPalette, &QAction::toggled, this, &MainWindow::setDark);
}

void MainWindow::buildWorkplaceMenu()
{
    QMenu* menu = menuBar()->addMenu(tr("&Workplace"));
    connect(menu, &QMenu::aboutToShow, this, [this, menu] {
        const QList<QAction*> before = menu->actions();
        for (QAction* action : before)
            if (action->isCheckable() || action->isSeparator())
                delete action;
        menu->addSeparator();
        QStringList names = Workplace::names();
        if (!names.contains(workplaceName)) // it has no file yet
            names << workplaceName;
        for (const QString& name : qAsConst(names)) {
            QAction* action = menu->addAction(QString(name).replace('&', "&&"));
            action->setCheckable(true);
            action->setChecked(name == workplaceName);
            connect(action, &QAction::triggered, this, [this, name] { useWorkplace(name); });
        }
    });
    add(menu, tr("&New from this one\u2026"), ctrl(Qt::Key_W), [this] {
        prompt->ask(tr("Name of the workplace"), QString(), false, [this](const QString& name) {
            if (!WorkplaceSettings::isName(name)) {
                report(tr("A workplace cannot be called \u201c%1\u201d").arg(name), true);
                return;
            }
            saveWorkplace();
            workplaceName = name;
            saveWorkplace();
            loadWorkplace(name);
        });
    });
}

void MainWindow::showKeys()
{
    help->show(actions());
}

void MainWindow::setFrozen(bool isFrozen)
{
    freeze->setChecked(isFrozen);
    board->setFrozen(isFrozen);
    quotesPane->setFrozen(isFrozen);
    tapePane->setFrozen(isFrozen);
}

void MainWindow::setDark(bool isDark)
{
    darkPalette->setChecked(isDark);
    if (Theme::current().isDark != isDark)
        Theme::apply(*qApp, isDark);
}

void MainWindow::setSpeed(double times)
{
    playing->setSpeed(times);
    topBar->setSpeed(speedText(times));
    for (QAction* action : speeds->actions())
        action->setChecked(action->data().toDouble() == times);
}

void MainWindow::stepSpeed(int steps)
{
    const auto at = std::lower_bound(std::begin(Speeds), std::end(Speeds), playing->speed());
    const auto wanted = int(at - std::begin(Speeds)) + steps;
    setSpeed(Speeds[std::clamp(wanted, 0, int(std::size(Speeds)) - 1)]);
}

void MainWindow::useWorkplace(const QString& name)
{
    if (name == workplaceName)
        return;
    saveWorkplace();
    loadWorkplace(name);
}

void MainWindow::loadWorkplace(const QString& name)
{
    workplaceName = WorkplaceSettings::isName(name) ? name : Workplace::standardName();
    setWindowTitle(tr("Market board \u2013 %1").arg(workplaceName));
    const Settings settings = Workplace::toRead(workplaceName);
    const auto value = [&settings](const char* key) {
        return settings.value(QString::fromLatin1(key));
    };
    restoreGeometry(value("geometry").toByteArray());
    panesOf(this)->restoreState(value("panes").toByteArray());
    board->grid()->loadColumns(settings, QStringLiteral("board"));
    quotesPane->grid()->loadColumns(settings, QStringLiteral("quotes"));
    tapePane->grid()->loadColumns(settings, QStringLiteral("tape"));
    board->setExpiry(value("expiry").toInt());
    follow->setChecked(settings.value(QStringLiteral("follow"), true).toBool());
    quotesPane->setFilter(value("filter").toString());
    quotesPane->setOrder(value("order").toInt(), value("descending").toBool());
    setDark(settings.value(QStringLiteral("dark"), true).toBool());
    const double times = value("speed").toDouble();
    const bool isKnown = std::find(std::begin(Speeds), std::end(Speeds), times) != std::end(Speeds);
    setSpeed(isKnown ? times : playing->speed());
    savedFolder = value("folder").toString();
    Workplace::setLast(workplaceName);
}

void MainWindow::saveWorkplace()
{
    Settings settings = Workplace::toWrite(workplaceName);
    const auto keep = [&settings](const char* key, const QVariant& value) {
        settings.setValue(QString::fromLatin1(key), value);
    };
    keep("geometry", saveGeometry());
    keep("panes", panesOf(this)->saveState());
    board->grid()->saveColumns(settings, QStringLiteral("board"));
    quotesPane->grid()->saveColumns(settings, QStringLiteral("quotes"));
    tapePane->grid()->saveColumns(settings, QStringLiteral("tape"));
    keep("expiry", board->expiry());
    keep("follow", board->isFollowing());
    keep("filter", quotesPane->filter());
    keep("order", quotesPane->orderColumn());
    keep("descending", quotesPane->isDescending());
    keep("dark", Theme::current().isDark);
    keep("speed", playing->speed());
    keep("folder", savedFolder);
    settings.sync();
    if (settings.status() == QSettings::AccessError)
        report(tr("The workplace could not be saved"), true);
}
