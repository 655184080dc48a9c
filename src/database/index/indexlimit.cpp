// SPDX-License-Identifier: MIT
#include "index/indexlimit.h"

#include "index/masterindex.h"
#include "table/table.h"

#include <algorithm>

namespace {

// Where in a list in master order the record's equals end.
QList<Record>::const_iterator upperBound(const MasterIndex* master, const QList<Record>& list,
                                         const Record& record)
{
    return std::upper_bound(list.cbegin(), list.cend(), record, IndexSort::LessThan(master));
}

} // namespace

IndexLimit::IndexLimit(int limit, Table* table)
    : IndexSort(table, true)
    , maximum(limit)
    , masterAtStart(table->masterIndex())
{
    table->setIndexName(QStringLiteral("IndexLimit"), this);
}

IndexLimit::~IndexLimit() = default;

bool IndexLimit::filter(const Record&) const
{
    return true;
}

QString IndexLimit::getClassName() const
{
    return QStringLiteral("IndexLimit");
}

// The table may have got another master since, and deleted the one remembered.
MasterIndex* IndexLimit::master() const
{
    const Table* limited = table();
    MasterIndex* now = limited ? limited->masterIndex() : nullptr;
    return now == masterAtStart ? masterAtStart : now;
}

int IndexLimit::toRemove(int n, QList<Record>& removed, const QList<Record>& updated)
{
    const int held = count();
    const qint64 excess = qint64(n) + held - maximum;
    const MasterIndex* order = master();
    if (excess < 1 || held < 1 || !order)
        return 0;
    int added = 0;
    auto it = begin();
    for (qint64 i = 0; i < excess && i < held; ++i, ++it) {
        const Record& lowest = *it;
        if (containsRecord(removed, lowest) || containsRecord(updated, lowest))
            continue;
        const auto place = upperBound(order, removed, lowest);
        removed.insert(static_cast<int>(place - removed.cbegin()), lowest);
        ++added;
    }
    return added;
}

bool IndexLimit::containsRecord(const QList<Record>& list, const Record& record) const
{
    const MasterIndex* order = master();
    if (!order)
        return false;
    if (order->columns().isEmpty())
        return list.contains(record);
    const auto at =
        std::lower_bound(list.cbegin(), list.cend(), record, IndexSort::LessThan(order));
    return at != list.cend() && order->compare(*at, record) == 0;
}
