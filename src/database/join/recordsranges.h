// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"
#include "container/rangeset.h"
#include "table/record.h"

#include <QList>
#include <QVector>

class IndexSort;
struct Col;

/// For a number of records, the positions in some index that concern each: what a join's searches
/// yield.
///
/// A plain value of two lists of equal length that belong together position by position: the
/// records, in the order of their rows' addresses and each once, and their positions. Threads: as
/// any container. Cost: merge() is a binary search and an insertion, and only an append when
/// records come in address order.
///
///     RecordsRanges found;
///     found.merge(quote, ranges);
///     for (int i = 0; i < found.records().size(); ++i)
///         use(found.records().at(i), found.ranges().at(i));
class LIVETABLE_EXPORT RecordsRanges
{
public:
    /// The records, and at the same places of a second list their positions.
    const QList<Record>& records() const { return rows; }
    const QList<RangeSet<int>>& ranges() const { return positions; }
    /// Whether there are no records.
    bool isEmpty() const { return rows.isEmpty(); }

    /// Adds a record with its positions; to those it has when it is there already.
    void merge(const Record& record, const RangeSet<int>& ranges);
    /// The positions of a record; an empty set when it is not there.
    RangeSet<int> find(const Record& record) const;
    /// Makes room for that many records.
    void reserve(int count);

private:
    int lowerBound(const Record& record) const;

    QList<Record> rows;
    QList<RangeSet<int>> positions;
};

/// Makes one RecordsRanges of several: what ConcurrentExec merges its chunks' results with.
class LIVETABLE_EXPORT RecordsRangesMerger
{
public:
    /// `expected`: for how many records room is made at once.
    explicit RecordsRangesMerger(int expected);
    /// Merges the results from `first` up to, but without, `last`, in order.
    RecordsRanges operator()(const RecordsRanges* first, const RecordsRanges* last) const;

private:
    int count;
};

/// A join's search, over one chunk: for each record the run of positions in `index` whose key cells
/// equal those of the content at the same place of the second list. `columns` maps the key: `to` a
/// column of the index's table, `from` one of the contents'. A record with no match is left out.
LIVETABLE_EXPORT RecordsRanges searchRecords_worker(QList<Record>::const_iterator recordsBegin,
                                                    QList<Record>::const_iterator recordsEnd,
                                                    QList<Record>::const_iterator contentsBegin,
                                                    QList<Record>::const_iterator contentsEnd,
                                                    const IndexSort* index,
                                                    const QVector<Col>* columns);

/// A join's separation of positions that records have left from those where they still (or now)
/// are, over one chunk: each record's positions without those that `present` holds for it. A record
/// with none left is left out.
LIVETABLE_EXPORT RecordsRanges separateUpdates_worker(
    QList<Record>::const_iterator recordsBegin, QList<Record>::const_iterator recordsEnd,
    QList<RangeSet<int>>::const_iterator rangesBegin,
    QList<RangeSet<int>>::const_iterator rangesEnd, const RecordsRanges* present);
