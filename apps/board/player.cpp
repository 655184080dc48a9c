// SPDX-License-Identifier: MIT
#include "player.h"

#include "replay.h"
#include "simulation.h"

#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace {

std::unique_ptr<Session> makeSession(const QString& folder)
{
    if (folder.isEmpty())
        return std::make_unique<Simulation>();
    return std::make_unique<Replay>(folder);
}

} // namespace

Player::Player(QObject* parent)
    : QObject(parent)
{}

Player::~Player() = default;

void Player::open(const QString& dataFolder)
{
    std::unique_ptr<Session> opened = makeSession(dataFolder);
    const QVector<Instrument> directory = opened->instruments();
    drop(); // nothing is thrown from here on, and there are never two markets in memory
    auto market = std::make_unique<Market>();
    market->info.title = opened->title();
    market->info.underlying = opened->underlying();
    market->board.load(directory, opened->underlying());
    folder = dataFolder;
    constexpr int fromItsBegin = -1;
    install(std::move(market), std::move(opened), fromItsBegin);
}

void Player::adopt(std::unique_ptr<Market> loaded)
{
    std::unique_ptr<Session> opened;
    const int fromMs = loaded->info.timeMs;
    if (session && session->title() == loaded->info.title) {
        try {
            opened = makeSession(folder);
            opened->instruments();
        } catch (const InputError& error) {
            opened.reset();
            Q_EMIT failed(error.message);
        }
    }
    paused = true;
    drop();
    install(std::move(loaded), std::move(opened), fromMs);
}

void Player::drop()
{
    Q_EMIT marketLeaves();
    feed.reset();
    session.reset();
    current.reset();
#ifdef __GLIBC__
    malloc_trim(0); // the rows of a day are given back before those of the next come
#endif
}

void Player::install(std::unique_ptr<Market> next, std::unique_ptr<Session> nextSession, int fromMs)
{
    session = std::move(nextSession);
    current = std::move(next);
    hasEnded = false;
    if (session) {
        feed = std::make_unique<Feed>(*session, *current, fromMs);
        feed->setSpeed(factor);
        feed->stopAt(stopMinute);
    }
    sincePricing.start();
    Q_EMIT marketCame();
}

int Player::frame(double seconds, qint64 budgetNs)
{
    constexpr int pricingMs = 200;
    if (!current)
        return 0;
    int quotes = 0;
    if (feed && !paused) {
        try {
            quotes = feed->play(seconds, budgetNs);
        } catch (const InputError& error) {
            hasEnded = true;
            Q_EMIT failed(error.message);
        }
        if (feed->isAtEnd() && !hasEnded) {
            hasEnded = true;
            Q_EMIT sessionEnded();
        }
    }
    current->board.takeChanges(); // what is shown follows the tables themselves
    current->chain.flush();
    if (sincePricing.elapsed() >= pricingMs && timeMs() >= 0) {
        current->recalculation.update(timeMs());
        sincePricing.start();
    }
    return quotes;
}

int Player::timeMs() const
{
    if (feed)
        return feed->timeMs();
    return current ? current->info.timeMs : -1;
}

void Player::setPaused(bool isPaused)
{
    paused = isPaused;
}

void Player::setSpeed(double times)
{
    factor = times;
    if (feed)
        feed->setSpeed(factor);
}

void Player::stopAt(double minute)
{
    stopMinute = minute;
    if (feed)
        feed->stopAt(minute);
}
