// SPDX-License-Identifier: MIT
#include "index/index.h"

#include "index/timerchain_p.h"
#include "table/table_p.h"

#include <QSet>

#include <atomic>
#include <chrono>
#include <utility>

namespace {

// Relaxed: a sum for display, which indexes of tables on several threads add to.
std::atomic<qint64> nsecsInIndexes{0};

} // namespace

thread_local qint64 LiveTable::TimerChain::lastReading = 0;
thread_local bool LiveTable::TimerChain::isOpen = false;

qint64 LiveTable::TimerChain::read()
{
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

Index::Index() = default;
Index::~Index() = default;

void Index::rebuild()
{
    clear();
    build();
}

void Index::preprocess(const QList<Record>&, const QList<Record>&, int, int, const QList<Record>&,
                       const QList<Record>&)
{}

void Index::process(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                    int lastColumn, const QList<Record>& inserted)
{
    restartTimer();
    QSet<Record> gone; // needed only where a record may be in both lists
    for (const Record& record : removed) {
        remove(record, -1);
        if (!updated.isEmpty())
            gone.insert(record);
    }
    for (const Record& record : updated)
        if (gone.isEmpty() || !gone.contains(record))
            update(record, firstColumn, lastColumn, -1);
    for (const Record& record : inserted)
        if (filter(record))
            add(record);
    addElapsed();
}

void Index::update(const Record& record, int, int, int position)
{
    remove(record, position);
    if (filter(record))
        add(record);
}

QString Index::verify() const
{
    return QString();
}

int Index::indexOf(const Record&) const
{
    return -1;
}

void Index::beginUpdate() {}
void Index::endUpdate() {}
void Index::dependentBeginUpdate(Table*) {}
void Index::dependentEndUpdate(Table*) {}

void Index::restartTimer()
{
    qint64& last = LiveTable::TimerChain::lastReading;
    started = last != 0 ? std::exchange(last, 0) : LiveTable::TimerChain::read();
}

void Index::addElapsed()
{
    const qint64 now = LiveTable::TimerChain::read();
    elapsed += now - started;
    nsecsInIndexes.fetch_add(now - started, std::memory_order_relaxed);
    LiveTable::TimerChain::lastReading = LiveTable::TimerChain::isOpen ? now : 0;
}

qint64 Index::nsecsElapsedTotal()
{
    return nsecsInIndexes.load(std::memory_order_relaxed);
}

decimal Index::percentElapsed() const
{
    return LiveTable::shareInPercent(elapsed, nsecsElapsedTotal());
}

IndexIterative::IndexIterative() = default;
IndexIterative::~IndexIterative() = default;
