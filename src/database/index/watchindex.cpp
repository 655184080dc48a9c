// SPDX-License-Identifier: MIT
#include "index/watchindex.h"

#include "table/table.h"

WatchIndex::WatchIndex(Table* table)
    : watched(table)
{
    if (watched)
        watched->addIndex(this);
}

WatchIndex::~WatchIndex()
{
    if (watched)
        watched->removeIndex(this);
}

Table* WatchIndex::table() const
{
    return watched;
}

void WatchIndex::clear()
{
    arrivals.clear();
    departures.clear();
    updates.clear();
    departed.clear();
}

void WatchIndex::build()
{
    WatchIndex::clear();
}

void WatchIndex::add(const Record& record)
{
    const auto found = departed.find(record);
    if (found == departed.end()) {
        arrivals.append(record);
        return;
    }
    if (--*found == 0)
        departed.erase(found);
    departures.removeOne(record);
    updates.append(record);
}

void WatchIndex::remove(const Record& record, int)
{
    departures.append(record);
    ++departed[record];
}

void WatchIndex::update(const Record& record, int, int, int)
{
    updates.append(record);
}

bool WatchIndex::filter(const Record&) const
{
    return true;
}

bool WatchIndex::contains(const Record& record) const
{
    return arrivals.contains(record) || updates.contains(record);
}

QString WatchIndex::getClassName() const
{
    return QStringLiteral("WatchIndex");
}
