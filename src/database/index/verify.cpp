// SPDX-License-Identifier: MIT
// What Table::verify() asks of the indexes.
#include "container/partitioncheck-inl.h"
#include "index/indexdependbase.h"
#include "index/indexlist_p.h"
#include "index/indexsort.h"
#include "index/indexvector.h"
#include "index/keyindex.h"
#include "index/masterindex.h"
#include "index/watchindex.h"
#include "table/table_p.h"

#include <QSet>

#include <algorithm>

using LiveTable::RowPool;

namespace {

/// Whether the records are rows of the table that is viewed, each of them once.
template <typename Records>
QString verifyRows(const Table* table, const Records& records)
{
    QSet<const unsigned char*> seen;
    seen.reserve(records.size());
    for (const Record& record : records) {
        if (record.isNull() || record.table() != table)
            return QStringLiteral("it holds a row that is not the table's");
        if (seen.contains(record.row()))
            return QStringLiteral("it holds a row twice");
        if (RowPool::tag(record.row()) == 0)
            return QStringLiteral("it holds a row that is not in the table");
        seen.insert(record.row());
    }
    return QString();
}

/// Whether a view that holds these records, each of them once, holds what its filter accepts.
template <typename Records>
QString verifyContent(const Table* table, const Index& view, const Records& records)
{
    for (const Record& record : records)
        if (!view.filter(record))
            return QStringLiteral("it holds a row that its filter refuses");
    int accepted = 0;
    if (const MasterIndex* master = table->masterIndex())
        for (const Record& record : *master)
            accepted += view.filter(record);
    return accepted == records.size() ? QString() : QStringLiteral("a row is missing");
}

template <typename Records, typename View>
QString verifyOrder(const View& view, const Records& records)
{
    const auto outOfOrder = [&](const Record& a, const Record& b) {
        return view.compare(a, b) > 0;
    };
    const auto found = std::adjacent_find(records.begin(), records.end(), outOfOrder);
    return found == records.end() ? QString() : QStringLiteral("it is out of order");
}

} // namespace

QString IndexList::verify() const
{
    const IndexListPrivate* d = listData.get();
    if (!d->table)
        return d->records.isEmpty() ? QString() : QStringLiteral("its table is gone");
    if (d->needsRebuild || d->needsResort)
        return QStringLiteral("it is to be put right at the next notification");
    const auto* sorted =
        d->keys == IndexListPrivate::SortKeys ? static_cast<const IndexSort*>(this) : nullptr;
    const char* fault = d->records.verify([&](const Record& record, SortKey key) {
        return key == (sorted ? sorted->sortKey(record) : SortKey{RowPool::tag(record.row()), 0});
    });
    if (fault)
        return QString::fromLatin1(fault);
    const QString rows = verifyRows(d->table, d->records);
    return rows.isEmpty() && !d->isMaster ? verifyContent(d->table, *this, d->records) : rows;
}

QString IndexSort::verify() const
{
    const QString content = IndexList::verify();
    return content.isEmpty() ? verifyOrder(*this, listPrivate()->records) : content;
}

QString IndexVector::verify() const
{
    if (!viewed)
        return list.isEmpty() ? QString() : QStringLiteral("its table is gone");
    if (isDamaged)
        return QStringLiteral("it is to be put right at the next notification");
    QString fault = verifyRows(viewed, list);
    if (fault.isEmpty())
        fault = verifyContent(viewed, *this, list);
    return fault.isEmpty() ? verifyOrder(*this, list) : fault;
}

QString WatchIndex::verify() const
{
    QHash<Record, int> counted;
    for (const Record& record : departures)
        ++counted[record];
    return counted == departed ? QString() : QStringLiteral("its removals are miscounted");
}

QString KeyIndex::verify() const
{
    if (isDamaged)
        return QStringLiteral("it is to be put right at the next notification");
    size_t numbered = 0;
    if (const MasterIndex* master = viewed ? viewed->masterIndex() : nullptr)
        for (const Record& record : *master) {
            numbered += isNumbered(record);
            if (isNumbered(record) && !contains(record))
                return QStringLiteral("a row is missing");
        }
    return numbered == used ? QString() : QStringLiteral("it holds a row that is not the table's");
}

QString IndexDependBase::verify() const
{
    for (const Index* dependent : dependents) {
        const QString fault = dependent->verify();
        if (!fault.isEmpty())
            return dependent->getClassName() + QStringLiteral(": ") + fault;
    }
    return QString();
}
