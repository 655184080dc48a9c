// SPDX-License-Identifier: MIT
#pragma once

#include "market.h"

#include "runtime/runnablemanager.h"

#include <QThreadPool>
#include <QWidget>

#include <memory>

class QLabel;
class QProgressBar;
class QPushButton;
class QTimer;

/// Saves and loads markets on a thread of its own, one after the other, and shows how far it is on
/// a strip with a button (and Escape) to cancel.
///
/// A load fills a fresh Market that nobody else knows until it is whole; a save is of the bytes of
/// one moment, so the market on the screen goes on meanwhile. What is cancelled leaves no trace:
/// files are replaced as a whole or not at all. The destructor cancels and waits.
class Loader : public QWidget
{
    Q_OBJECT

public:
    explicit Loader(QWidget* parent = nullptr);
    ~Loader() override;

    /// False, and nothing happens, while something else is under way.
    bool load(const QString& folder);
    /// The same. Packs the market at once.
    bool save(Market& market, const QString& folder);
    void cancel();
    bool isBusy() const { return work != nullptr; }

Q_SIGNALS:
    /// A market was loaded; the receiver takes it with takeLoaded().
    void loaded();
    /// How a save or a load ended, in a sentence; `isTrouble` for neither done nor cancelled.
    void ended(const QString& message, bool isTrouble);

public:
    std::unique_ptr<Market> takeLoaded() { return std::move(fresh); }

private:
    struct Work;
    class Job;
    void start(std::unique_ptr<Work> begun, const QString& caption);
    void jobEnded(HRunnable handle);
    void showProgress();

    QLabel* caption;
    QProgressBar* bar;
    QPushButton* button;
    QTimer* poll;
    std::unique_ptr<Market> fresh; ///< being loaded, or loaded and not taken
    std::unique_ptr<Work> work;    ///< null when nothing is under way
    HRunnable running = nullptr;
    QThreadPool pool;        // outlives its jobs,
    RunnableManager manager; // which end with this
};
