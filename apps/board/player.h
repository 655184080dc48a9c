// SPDX-License-Identifier: MIT
#pragma once

#include "feed.h"
#include "market.h"

#include <QElapsedTimer>
#include <QObject>

#include <memory>

/// Owns the market that is on the screen and the session that is played into it: the built-in one
/// or a recorded day. It plays when it is told, a frame at a time.
class Player : public QObject
{
    Q_OBJECT

public:
    explicit Player(QObject* parent = nullptr);
    ~Player() override;

    /// Begins a session anew: that of a folder, or the built-in one for an empty name. Throws
    /// InputError, with nothing changed.
    void open(const QString& dataFolder);
    /// Begins the same one anew. Throws as above.
    void reopen() { open(folder); }
    /// Shows a market that was loaded. It goes on, when it is let, where it was saved if the
    /// session at hand is that one; else it stands still.
    void adopt(std::unique_ptr<Market> loaded);

    /// Plays what is due after these seconds of real time, in at most about `budgetNs`. Returns the
    /// number of quotes.
    int frame(double seconds, qint64 budgetNs);

    /// Null before the first open().
    Market* market() const { return current.get(); }
    QString dataFolder() const { return folder; }
    bool isPaused() const { return paused; }
    void setPaused(bool isPaused);
    double speed() const { return factor; }
    void setSpeed(double times);
    bool isAtEnd() const { return !feed || feed->isAtEnd(); }
    /// Of the session, 0 to 1.
    double progress() const { return feed ? feed->progress() : 0; }
    /// The session's clock in milliseconds since midnight; -1 before its first quote.
    int timeMs() const;
    /// See Feed.
    void stopAt(double minute);
    bool isStopped() const { return feed && feed->isStopped(); }

Q_SIGNALS:
    /// The market is about to die: nobody may hold anything of it afterwards.
    void marketLeaves();
    /// There is another one.
    void marketCame();
    /// The session's input is broken; it has ended.
    void failed(const QString& message);
    void sessionEnded();

private:
    void drop();
    void install(std::unique_ptr<Market> next, std::unique_ptr<Session> nextSession, int fromMs);

    QString folder;
    std::unique_ptr<Market> current;
    std::unique_ptr<Session> session;
    std::unique_ptr<Feed> feed; ///< null when the market stands still
    QElapsedTimer sincePricing;
    double factor = 60;
    double stopMinute = std::numeric_limits<double>::infinity();
    bool paused = false;
    bool hasEnded = false; ///< and was told
};
