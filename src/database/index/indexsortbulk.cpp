// SPDX-License-Identifier: MIT
// What sorts all rows of an index at once.
#include "concurrent/blockingmap.h"
#include "index/indexsortwork_p.h"
#include "index/keyedsort_p.h"
#include "index/masterindex.h"

#include <QScopeGuard>

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

using LiveTable::SortItem;
using LiveTable::Unwritten;

/// Rows to be brought into an index's order, by keys of so many words and its compare().
template <int Words>
class IndexSortWork::BulkSort
{
public:
    using Item = SortItem<Words>;

    BulkSort(IndexSort* index, int count)
        : q(index)
        , items(static_cast<size_t>(count))
    {}

    /// Notes the next rows, which must stay where they are until they are sorted.
    void take(const Record* records, int n)
    {
        constexpr int longest = 4096; // so that all threads get their share
        for (int i = 0; i < n; i += longest) {
            const int count = std::min(longest, n - i);
            runs.push_back({records + i, count, items.begin() + taken});
            taken += static_cast<size_t>(count);
        }
    }

    void sort()
    {
        const auto fill = [this](const Run& run) {
            for (int i = 0; i < run.count; ++i) {
                run.items[i].setKey(Words > 0 ? q->sortKey(run.records[i]) : SortKey());
                run.items[i].row = run.records[i].row();
            }
        };
        if (items.size() > ConcurrentSort::serialLimit)
            LiveTable::blockingMap(runs, fill);
        else
            std::for_each(runs.cbegin(), runs.cend(), fill);
        const auto lessThan = [this](const Item& a, const Item& b) {
            if (Words > 0 && a.key() != b.key())
                return a.key() < b.key();
            if (Words > 0 && q->isSortKeyExact(a.key()))
                return false;
            return q->compare(Record::borrowed(a.row), Record::borrowed(b.row)) < 0;
        };
        LiveTable::KeyedSort<Item, decltype(lessThan)>(items, lessThan).run(Words > 0);
    }

    /// Gives a list that holds these very rows their order.
    void reorder(PartitionList<Record>& ordered) const noexcept
    {
        ordered.reorder([this](int i, void* slot, SortKey* key) {
            const Item& item = items[static_cast<size_t>(i)];
            std::memcpy(slot, &item.row, sizeof(Record));
            *key = item.key();
        });
    }
    /// Fills an empty list.
    void writeTo(PartitionList<Record>& empty) const
    {
        const auto onAllThreads = [this](std::vector<int>& parts, auto work) {
            if (items.size() > ConcurrentSort::serialLimit)
                LiveTable::blockingMap(parts, work);
            else
                std::for_each(parts.begin(), parts.end(), work);
        };
        empty.assign(static_cast<int>(items.size()), onAllThreads,
                     [this](int i, void* slot, SortKey* key) {
                         constexpr int ahead = 16; // rows lie anywhere, and each is counted
                         const Item* const item = items.begin() + i;
                         if (items.end() - item > ahead)
                             __builtin_prefetch(item[ahead].row, 1);
                         new (slot) Record(item->row);
                         *key = item->key();
                     });
    }

private:
    struct Run
    {
        const Record* records;
        int count;
        Item* items;
    };

    IndexSort* q;
    Unwritten<Item> items;
    size_t taken = 0;
    std::vector<Run> runs;
};

// Calls work with the number of words in the list's keys, as a type.
template <typename Work>
void IndexSortWork::withKeyWords(Work work)
{
    const int words = d->keys == IndexListPrivate::SortKeys ? list.keyWords() : 0;
    if (words == 0)
        work(std::integral_constant<int, 0>());
    else if (words == 1)
        work(std::integral_constant<int, 1>());
    else
        work(std::integral_constant<int, 2>());
}

void IndexSortWork::sortAll()
{
    withKeyWords([this](auto words) {
        BulkSort<words()> bulk(q, list.count());
        list.forEachRun([&](const Record* records, int n) { bulk.take(records, n); });
        bulk.sort();
        bulk.reorder(list);
    });
}

bool IndexSortWork::fillSorted()
{
    Table* table = d->table.data();
    const MasterIndex* master = table ? table->masterIndex() : nullptr;
    if (!master || master == q || !list.isEmpty() || d->keys == IndexListPrivate::ArrivalNumbers)
        return false;
    table->lock();
    const auto unlock = qScopeGuard([table] { table->unlock(); });
    d->needsRebuild = true; // until it has come to its end
    const PartitionList<Record>& rows = master->records();
    std::vector<Record> accepted;
    const bool acceptsAll = gatherAccepted(rows, accepted);
    const int count = acceptsAll ? rows.count() : static_cast<int>(accepted.size());
    try {
        withKeyWords([&](auto words) {
            BulkSort<words()> bulk(q, count);
            if (acceptsAll)
                rows.forEachRun([&](const Record* records, int n) { bulk.take(records, n); });
            else
                bulk.take(accepted.data(), count);
            bulk.sort();
            bulk.writeTo(list);
        });
    } catch (...) { // the rows are there all the same, out of order
        q->IndexList::build();
        d->needsResort = true;
        throw;
    }
    d->needsRebuild = false;
    return true;
}

// Most views accept all rows: true, and nothing is gathered. Else what is accepted.
bool IndexSortWork::gatherAccepted(const PartitionList<Record>& rows,
                                   std::vector<Record>& accepted) const
{
    int passed = 0;
    bool acceptsAll = true;
    rows.forEachRun([&](const Record* records, int n) {
        for (int i = 0; i < n; ++i, ++passed) {
            const bool isAccepted = q->filter(records[i]);
            if (!isAccepted && acceptsAll) {
                acceptsAll = false;
                accepted.assign(rows.begin(), rows.begin() + passed);
            } else if (isAccepted && !acceptsAll) {
                accepted.push_back(records[i]);
            }
        }
    });
    return acceptsAll;
}

// So many come in that sorting all is less than placing each; often they are in order.
void IndexSortWork::appendAll(const QList<Record>& inserted)
{
    prepare();
    bool isInOrder = true;
    Place last{0, 0, 0};
    const Record* previous = nullptr;
    SortKey previousKey;
    if (!list.isEmpty()) {
        last = list.place(list.count() - 1);
        previous = &list.at(last);
        previousKey = list.keyAt(last);
    }
    for (const Record& record : inserted) {
        if (!q->filter(record))
            continue;
        const SortKey key = keyToInsert(record);
        isInOrder = isInOrder && (!previous || order(previousKey, *previous, key, record) <= 0);
        d->append(record, key);
        previous = &record;
        previousKey = key;
    }
    resort(isInOrder);
}

// As the virtual call, which has little to do where the order is right already.
void IndexSortWork::resort(bool isFresh)
{
    d->isFresh = isFresh;
    const auto done = qScopeGuard([this] { d->isFresh = false; });
    q->resort();
}
