// SPDX-License-Identifier: MIT
#include "loader.h"

#include "base/exception.h"

#include <QDir>
#include <QElapsedTimer>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>

#include <atomic>

namespace {

constexpr int BarSteps = 1000;

struct Cancelled
{};

} // namespace

/// What a job shares with the window: the job writes, the window reads `done` meanwhile and the
/// rest once the job has ended.
struct Loader::Work
{
    QString folder;
    Market* target = nullptr;    ///< of a load
    QVector<PackedTable> packed; ///< of a save
    std::atomic<double> done{0}; ///< 0 to 1
    bool isCancelled = false;
    QString trouble;
    SessionInfo info;
    QElapsedTimer timer;
};

class Loader::Job : public Runnable
{
public:
    explicit Job(Work& toDo)
        : work(toDo)
    {}

    void run() override
    {
        const auto progress = [this](double done) {
            work.done = done;
            if (!canRun())
                throw Cancelled();
        };
        try {
            progress(0);
            if (work.target)
                work.info =
                    loadBoard(work.target->board, work.folder, work.target->ownTables(), progress);
            else
                savePacked(work.packed, work.folder, progress);
        } catch (const Cancelled&) {
            work.isCancelled = true;
        } catch (const InputError& error) {
            work.trouble = error.message;
        } catch (const QString& message) {
            work.trouble = message;
        } catch (const Exception& error) {
            work.trouble = error.message();
        } catch (const std::exception& error) {
            work.trouble = QString::fromLocal8Bit(error.what());
        }
    }

private:
    Work& work;
};

Loader::Loader(QWidget* parent)
    : QWidget(parent)
    , caption(new QLabel)
    , bar(new QProgressBar)
    , button(new QPushButton(tr("&Cancel")))
    , poll(new QTimer(this))
{
    setObjectName(QStringLiteral("strip"));
    setAttribute(Qt::WA_StyledBackground);
    bar->setRange(0, BarSteps);
    bar->setTextVisible(false);
    button->setObjectName(QStringLiteral("primary"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(12, 6, 12, 6);
    layout->setSpacing(12);
    layout->addWidget(caption);
    layout->addWidget(bar, 1);
    layout->addWidget(button);
    hide();

    constexpr int pollMs = 33;
    poll->setInterval(pollMs);
    connect(poll, &QTimer::timeout, this, &Loader::showProgress);
    connect(button, &QPushButton::clicked, this, &Loader::cancel);
    connect(&manager, &RunnableManager::finished, this, &Loader::jobEnded);
}

Loader::~Loader()
{
    manager.stopRunnables(true);
}

bool Loader::load(const QString& folder)
{
    if (isBusy())
        return false;
    auto begun = std::make_unique<Work>();
    fresh = std::make_unique<Market>();
    begun->target = fresh.get();
    begun->folder = folder;
    start(std::move(begun), tr("Loading %1").arg(QDir::toNativeSeparators(folder)));
    return true;
}

bool Loader::save(Market& market, const QString& folder)
{
    if (isBusy())
        return false;
    auto begun = std::make_unique<Work>();
    begun->folder = folder;
    try {
        begun->packed = packBoard(market.board, market.info, market.ownTables());
    } catch (const QString& message) {
        Q_EMIT ended(message, true);
        return true;
    }
    start(std::move(begun), tr("Saving to %1").arg(QDir::toNativeSeparators(folder)));
    return true;
}

void Loader::start(std::unique_ptr<Work> begun, const QString& text)
{
    work = std::move(begun);
    work->timer.start();
    caption->setText(text);
    button->setEnabled(true);
    bar->setValue(0);
    show();
    poll->start();
    running = manager.startRunnable(new Job(*work), &pool);
}

void Loader::cancel()
{
    if (!isBusy())
        return;
    button->setEnabled(false);
    manager.stopRunnable(running, false);
}

void Loader::showProgress()
{
    if (work)
        bar->setValue(int(work->done * BarSteps));
}

void Loader::jobEnded(HRunnable handle)
{
    if (!work || handle != running)
        return;
    const std::unique_ptr<Work> finishedWork = std::move(work);
    poll->stop();
    hide();
    const QString folder = QDir::toNativeSeparators(finishedWork->folder);
    const bool isLoad = finishedWork->target != nullptr;
    if (isLoad && (finishedWork->isCancelled || !finishedWork->trouble.isEmpty()))
        fresh.reset();
    if (!finishedWork->trouble.isEmpty()) {
        Q_EMIT ended(finishedWork->trouble, true);
    } else if (finishedWork->isCancelled) {
        Q_EMIT ended(isLoad ? tr("Loading was cancelled") : tr("Saving was cancelled"), false);
    } else {
        if (isLoad) {
            fresh->info = finishedWork->info;
            fresh->chain.follow();
            Q_EMIT loaded();
        }
        Q_EMIT ended((isLoad ? tr("Loaded %1 in %2 ms") : tr("Saved to %1 in %2 ms"))
                         .arg(folder)
                         .arg(finishedWork->timer.elapsed()),
                     false);
    }
}
