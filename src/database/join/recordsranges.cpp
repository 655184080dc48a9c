// SPDX-License-Identifier: MIT
#include "join/recordsranges.h"

#include "join/keylookup_p.h"

#include <algorithm>

int RecordsRanges::lowerBound(const Record& record) const
{
    if (rows.isEmpty() || rows.last() < record)
        return rows.size();
    return int(std::lower_bound(rows.cbegin(), rows.cend(), record) - rows.cbegin());
}

void RecordsRanges::merge(const Record& record, const RangeSet<int>& ranges)
{
    const int place = lowerBound(record);
    if (place == rows.size() || rows.at(place) != record) {
        rows.insert(place, record);
        positions.insert(place, ranges);
        return;
    }
    RangeSet<int>& held = positions[place];
    for (int i = 0; i < ranges.rangeCount(); ++i)
        held.addRange(ranges.begin(i), ranges.end(i));
}

RangeSet<int> RecordsRanges::find(const Record& record) const
{
    const int place = lowerBound(record);
    return place < rows.size() && rows.at(place) == record ? positions.at(place) : RangeSet<int>();
}

void RecordsRanges::reserve(int count)
{
    rows.reserve(count);
    positions.reserve(count);
}

RecordsRangesMerger::RecordsRangesMerger(int expected)
    : count(expected)
{}

RecordsRanges RecordsRangesMerger::operator()(const RecordsRanges* first,
                                              const RecordsRanges* last) const
{
    RecordsRanges merged;
    merged.reserve(count);
    for (; first != last; ++first)
        for (int i = 0; i < first->records().size(); ++i)
            merged.merge(first->records().at(i), first->ranges().at(i));
    return merged;
}

RecordsRanges searchRecords_worker(QList<Record>::const_iterator recordsBegin,
                                   QList<Record>::const_iterator recordsEnd,
                                   QList<Record>::const_iterator contentsBegin,
                                   QList<Record>::const_iterator contentsEnd,
                                   const IndexSort* index, const QVector<Col>* columns)
{
    RecordsRanges found;
    LiveTable::KeyProbe probe(index->table(), *columns);
    for (; recordsBegin != recordsEnd && contentsBegin != contentsEnd;
         ++recordsBegin, ++contentsBegin) {
        const LiveTable::KeyRun run = probe.run(index, *contentsBegin);
        if (run.begin == run.end)
            continue;
        RangeSet<int> positions;
        positions.addRange(run.begin, run.end);
        found.merge(*recordsBegin, positions);
    }
    return found;
}

RecordsRanges separateUpdates_worker(QList<Record>::const_iterator recordsBegin,
                                     QList<Record>::const_iterator recordsEnd,
                                     QList<RangeSet<int>>::const_iterator rangesBegin,
                                     QList<RangeSet<int>>::const_iterator rangesEnd,
                                     const RecordsRanges* present)
{
    RecordsRanges separated;
    for (; recordsBegin != recordsEnd && rangesBegin != rangesEnd; ++recordsBegin, ++rangesBegin) {
        RangeSet<int> left = *rangesBegin;
        const RangeSet<int> stays = present->find(*recordsBegin);
        for (int i = 0; i < stays.rangeCount(); ++i)
            left.remove(stays.begin(i), stays.end(i));
        if (!left.isEmpty())
            separated.merge(*recordsBegin, left);
    }
    return separated;
}
