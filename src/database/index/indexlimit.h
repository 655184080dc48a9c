// SPDX-License-Identifier: MIT
#pragma once

#include "index/indexsort.h"

class MasterIndex;

/// A sorted index that keeps its table within a number of records: before a transaction that would
/// exceed the limit is applied, the lowest-sorted records are added to its removals.
///
/// It is attached by its constructor under the name "IndexLimit", by which the table finds it; a
/// table has one. It counts its own records, so build() it when rows exist. Single-row calls are
/// not trimmed, and records that a transaction inserts are never dropped by it: after a large one
/// the table exceeds its limit until the next. A record that the same transaction updates is
/// spared, but counted, so the table may exceed its limit by as many. Cost of trimming: O(excess
/// log n). The ready SortedLimit needs no subclass.
///
///     SortedLimit tape(10000, &trades, QStringList{"number"});   // keeps the newest 10000
class LIVETABLE_EXPORT IndexLimit : public IndexSort
{
public:
    /// Remembers the table's master index, whose order the transaction's lists are in.
    IndexLimit(int limit, Table* table);
    ~IndexLimit() override;

    /// True.
    bool filter(const Record& record) const override;
    QString getClassName() const override;

    /// The greatest number of records.
    int limit() const { return maximum; }
    /// Called by the table before anything else. `n` is what the transaction adds net; `removed`
    /// and `updated` are in master order, and records are put into `removed` in that order. Returns
    /// how many.
    virtual int toRemove(int n, QList<Record>& removed, const QList<Record>& updated);
    /// Whether a list in master order holds a record with the same key; under a master without key
    /// columns, whether it holds this very record.
    bool containsRecord(const QList<Record>& list, const Record& record) const;

private:
    MasterIndex* master() const;

    int maximum;
    MasterIndex* masterAtStart;
};
