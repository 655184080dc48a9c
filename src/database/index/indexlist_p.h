// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "index/indexlist.h"
#include "table/rowpool_p.h"
#include "table/table.h"

#include <QPointer>

#include <vector>

/// What a list-backed index keeps. All changes of its list go through here, so that the master
/// index can mark the rows it holds.
class IndexListPrivate
{
public:
    using Place = PartitionList<Record>::Place;

    /// How the list is keyed. Arrival numbers tell where a row stands, but are no sort order: all
    /// records of such an index are equal.
    enum Keys
    {
        NoKeys,
        SortKeys,
        ArrivalNumbers
    };

    /// Where a record stood when a transaction was announced, and where its new content belongs.
    struct Hint
    {
        const unsigned char* row;
        Place place;
        enum State : quint8
        {
            Found,
            Absent,
            Unknown
        } state;
        bool hasTarget = false;
        SortKey targetKey{}; // which the new content had then
        Place target{0, 0, 0};
    };

    using KeySearch = PartitionList<Record>::KeySearch;

    static IndexListPrivate* get(const IndexList* index) { return index->listPrivate(); }

    IndexListPrivate(IndexList* index, Table* viewed, bool attach)
        : q(index)
        , table(viewed)
        , isAttached(attach)
    {}

    void insertAt(const Place& place, const Record& record, SortKey key);
    Record takeAt(const Place& place);
    /// As PartitionList::relocate(): the row stays in the list.
    bool relocate(const Place& from, const Place& to, SortKey key) noexcept
    {
        return records.relocate(from, to, key);
    }
    void append(Record record, SortKey key);
    void removeRanges(const RangeSet<int>& ranges);
    void clear();
    /// Takes the records at first..last out and puts them back at `to`, keys and all.
    void moveBlock(int first, int last, int to);
    /// Takes the whole list out, without a word to the rows; `kept` is empty before.
    void takeAll(PartitionList<Record>& kept);
    /// Puts it back in place of what is there by now. The rows may have got new blocks meanwhile.
    void putBack(PartitionList<Record>& kept, quint64 arrival) noexcept;
    /// Gives the rows of an arrival-ordered master new numbers, in list order.
    void renumber();

    /// A host's filter or compare threw: what the index holds is not to be trusted. A master keeps
    /// its content, which is the table's, and only its order is in doubt.
    void markDamaged() noexcept { (isMaster ? needsResort : needsRebuild) = true; }
    /// Puts a damaged index right. True if it was built anew: the master index has been told of a
    /// change before the others, so the new content has it already.
    bool heal();

    void tellReset();
    void tell(const IndexChange& change);
    void tellInserted(int position);
    void tellRemoved(int position);
    void tellMoved(int from, int to, int firstColumn, int lastColumn);
    void tellStayed(int position, int firstColumn, int lastColumn);
    bool isObserved() const { return !observers.isEmpty(); }

    IndexList* const q;
    QPointer<Table> table;
    const bool isAttached;
    PartitionList<Record> records{10000};
    Keys keys = NoKeys;
    bool isMaster = false;     // of its table: its rows are tagged
    bool keepsArrival = false; // becomes ArrivalNumbers once it is a master
    quint64 lastArrival = 0;
    QVector<IndexObserver*> observers;

    bool needsRebuild = false; // a host's function threw: the content may be wrong

    // Of a sorted index.
    std::vector<Hint> hints;  // in the order removed, updated; then perhaps inserted
    quint32 hintsVersion = 0; // of the list they were taken from
    bool needsResort = false; // content right, order not
    bool isFresh = false;     // just built in order: resort() has nothing to do

private:
    void tag(const Record& record, SortKey key) const
    {
        if (isMaster)
            LiveTable::RowPool::setTag(record.row(), keys == ArrivalNumbers ? key.high : 1);
    }
    void untag(const Record& record) const
    {
        if (isMaster)
            LiveTable::RowPool::setTag(record.row(), 0);
    }
};
