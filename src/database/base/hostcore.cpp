// SPDX-License-Identifier: MIT
#include "base/hostcore.h"

#include <QMap>

#include <mutex>

struct HostCore::Private
{
    mutable std::mutex mutex; // guards everything below
    QMap<QString, Table*> tables;
    QList<TableJoin*> joins;
    bool compressTables = false;
};

using Guard = std::lock_guard<std::mutex>;

HostCore::HostCore()
    : d(new Private)
{}

HostCore::~HostCore() = default;

bool HostCore::hasTable(const QString& name) const
{
    return table(name) != nullptr;
}

Table* HostCore::table(const QString& name) const
{
    const Guard guard(d->mutex);
    return d->tables.value(name, nullptr);
}

bool HostCore::compressTables() const
{
    const Guard guard(d->mutex);
    return d->compressTables;
}

void HostCore::registerJoin(TableJoin* join)
{
    const Guard guard(d->mutex);
    if (join && !d->joins.contains(join))
        d->joins.append(join);
}

void HostCore::addTable(const QString& name, Table* table)
{
    const Guard guard(d->mutex);
    if (table)
        d->tables.insert(name, table);
    else
        d->tables.remove(name);
}

void HostCore::removeTable(const QString& name)
{
    const Guard guard(d->mutex);
    d->tables.remove(name);
}

QStringList HostCore::tableNames() const
{
    const Guard guard(d->mutex);
    return d->tables.keys();
}

void HostCore::setCompressTables(bool compress)
{
    const Guard guard(d->mutex);
    d->compressTables = compress;
}

QList<TableJoin*> HostCore::joins() const
{
    const Guard guard(d->mutex);
    return d->joins;
}

void HostCore::unregisterJoin(TableJoin* join)
{
    const Guard guard(d->mutex);
    d->joins.removeOne(join);
}
