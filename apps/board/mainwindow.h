// SPDX-License-Identifier: MIT
#pragma once

#include "framemeter.h"
#include "options.h"
#include "player.h"

#include <QMainWindow>

class KeysHelp;
class Loader;
class OptionBoard;
class PromptBar;
class QActionGroup;
class QTimer;
class QuotesPane;
class SmilePlot;
class StatusLine;
class TapePane;
class TopBar;

/// The window: the option board in the middle, the other panes as docks around it, the frame timer
/// that plays the session and refreshes what does not follow by itself, and all actions.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(const Options& options);
    ~MainWindow() override;

    Player& player() { return *playing; }
    FrameMeter& frames() { return meter; }
    OptionBoard& optionBoard() { return *board; }
    QuotesPane& quotes() { return *quotesPane; }
    TapePane& tape() { return *tapePane; }
    SmilePlot& smile() { return *smilePlot; }
    StatusLine& status() { return *statusLine; }
    Loader& loader() { return *files; }
    KeysHelp& keys() { return *help; }
    PromptBar& prompts() { return *prompt; }

    /// Plays the recorded day of a folder, or the built-in session for an empty name.
    void openData(const QString& folder);
    void saveTo(const QString& folder);
    void loadFrom(const QString& folder);

    QString workplace() const { return workplaceName; }
    /// Keeps the present workplace and goes over to another, which is made if it is new.
    void useWorkplace(const QString& name);
    void saveWorkplace();

    void setFrozen(bool isFrozen);
    void setDark(bool isDark);
    void setSpeed(double times);
    /// Lists what the keys do.
    void showKeys();

Q_SIGNALS:
    /// A frame was played and everything refreshed.
    void framed();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    struct Pane
    {
        QString name;
        QString title;
        QWidget* widget;
        QWidget* head;
    };

    void buildPanes();
    void arrangePanes();
    void buildActions();
    void buildSessionMenu();
    void buildViewMenu();
    void buildWorkplaceMenu();
    QAction* add(QMenu* menu, const QString& text, const QKeySequence& key,
                 const std::function<void()>& act);
    void loadWorkplace(const QString& name);
    void stepSpeed(int steps);
    void dropMarket();
    void takeMarket();
    void frame();
    void refresh();
    void showFigures();
    void report(const QString& message, bool isTrouble);

    Player* playing;
    FrameMeter meter;
    QTimer* beat;
    QElapsedTimer sinceFrame;
    QElapsedTimer sinceRefresh;
    QElapsedTimer sinceFigures;
    qint64 quotesSinceFigures = 0;

    TopBar* topBar;
    OptionBoard* board;
    QuotesPane* quotesPane;
    TapePane* tapePane;
    SmilePlot* smilePlot;
    StatusLine* statusLine;
    Loader* files;
    PromptBar* prompt;
    KeysHelp* help;
    QVector<QDockWidget*> docks;

    QAction* pause = nullptr;
    QAction* freeze = nullptr;
    QAction* follow = nullptr;
    QAction* darkPalette = nullptr;
    QAction* cancelFiles = nullptr;
    QActionGroup* speeds = nullptr;
    QString workplaceName;
    QString savedFolder; ///< of the last save or load
};
