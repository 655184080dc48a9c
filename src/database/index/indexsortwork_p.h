// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "index/indexlist_p.h"
#include "index/indexsort.h"

#include <utility>
#include <vector>

/// The working side of a sorted index: searches by place, and the application of transactions.
/// It lives for one call.
class IndexSortWork
{
public:
    using Place = PartitionList<Record>::Place;
    using Hint = IndexListPrivate::Hint;

    explicit IndexSortWork(const IndexSort* index)
        : q(const_cast<IndexSort*>(index))
        , d(IndexListPrivate::get(index))
        , list(d->records)
    {}

    /// Before the first record comes in: looks up columns, decides on keys.
    void prepare();
    /// Fills an empty view with the table's rows that it accepts, in its order. False, with nothing
    /// done, where that is not the way to fill this index.
    bool fillSorted();
    /// Calls the index's resort(), with a word that the list is in order.
    void resort(bool isFresh);
    /// Brings the list into order. When it throws the list is as it was.
    void sortAll();
    SortKey keyOf(const Record& record) const;
    SortKey keyToSearch(const Record& record) const
    {
        return d->keys == IndexListPrivate::SortKeys ? q->sortKey(record) : SortKey();
    }
    SortKey keyToInsert(const Record& record);
    /// Orders an element against a record by key, then compare().
    int order(SortKey keyA, const Record& a, SortKey keyB, const Record& b) const;
    /// The first place whose record does not sort before `record`.
    Place lower(const Record& record) const;
    Place lower(SortKey key, const Record& record) const;
    bool isExact(SortKey key) const
    {
        return d->keys == IndexListPrivate::SortKeys && q->isSortKeyExact(key);
    }
    /// The first place whose record sorts behind `record`.
    Place upper(const Record& record) const;
    Place upper(SortKey key, const Record& record) const;
    /// The positions of the records that compare equal to `record`: the first and the one behind
    /// the last; equal ones when there is none.
    std::pair<int, int> equalRange(const Record& record) const;
    /// Searches this very row; true and its place when it is where its values say.
    bool find(const Record& record, Place& place) const;
    Hint locate(const Record& record) const;
    /// Before a small transaction: finds, in all indexes side by side, the places that it will
    /// touch. Throws nothing; host functions that throw do so again when they are needed.
    static void locateAhead(const std::vector<const IndexSort*>& indexes,
                            const QList<Record>& removed, const QList<Record>& updated,
                            int firstColumn, int lastColumn, const QList<Record>& inserted,
                            const QList<Record>& changed) noexcept;
    /// Finds where removed and updated records stand, unless that is known already.
    void locateAll(const QList<Record>& removed, const QList<Record>& updated) const;
    /// Whether its cells were changed in place and no index has heard of it yet.
    bool isUntold(const Record& record) const;
    /// Whether an update of these columns alone cannot concern the index.
    bool canSkip(const QList<Record>& removed, int firstColumn, int lastColumn,
                 const QList<Record>& inserted) const;
    /// Whether an update of these columns leaves every row in the index where it stands, and the
    /// others outside.
    bool isSpared(int firstColumn, int lastColumn) const;
    bool isOutOfOrder(const Place& place, SortKey key, const Record& record) const;
    int insert(const Record& record, const Hint* hint = nullptr);
    /// Moves the record at a place to where it belongs; true when it had to move. `hint` may tell
    /// where that is.
    bool move(Place place, SortKey key, const Hint* hint, int& from, int& to);
    /// Where a record that was changed in place is found by its new value; -1 where it is not.
    int positionByRows(const Record& record) const;
    /// A record was changed in place.
    void update(const Record& record, int firstColumn, int lastColumn, int position);
    void recover(const QList<Record>& removed, const QList<Record>& updated,
                 const QList<Record>& inserted);

    /// A transaction.
    void apply(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
               int lastColumn, const QList<Record>& inserted);

    static constexpr int FewRecords = 8; // up to here one by one is the quickest

private:
    using KeySearch = IndexListPrivate::KeySearch;
    // How many searches wait for the memory side by side: what they fetch must stay in the cache.
    static constexpr int SideBySide = 16;

    struct Item // a removed or updated record
    {
        const Record* record;
        int order; // in removed, then updated
        int position;
        Place place; // the same, as long as the list is as it was
        SortKey key;
        bool isRemoval;
        bool isLeaving; // its position is to be deleted
        bool isIncoming;
    };
    struct Node // of the chain of records around changed places
    {
        int item; // or -1: an unchanged neighbour
        Place place;
        int previous;
        int next;
    };
    struct Incoming
    {
        const Record* record;
        SortKey key;
        int from; // its old position, or -1
        int to;
    };

    template <int Words>
    class BulkSort;
    template <typename Work>
    void withKeyWords(Work work);
    bool gatherAccepted(const PartitionList<Record>& rows, std::vector<Record>& accepted) const;
    bool knowsAll(const QList<Record>& removed, const QList<Record>& updated) const;
    const Hint* hintOf(const Record& record) const;
    const Place* targetOf(const Hint* hint, SortKey key) const;
    void locateFrom(Place place, const Record& record, Hint& hint) const;
    bool placeNow(const Record& record, const Hint* hint, Place& place) const;
    bool isDoubtful(Place place, SortKey key, bool isBehind) const;
    /// Whether updates are of any interest: to nobody where they move nothing and none listens.
    bool listsUpdates() const { return !spares || d->isObserved(); }
    void follow(const Place& place, SortKey key, const Hint* hint, int firstColumn, int lastColumn);
    void takeOut(const Record& record);
    void appendAll(const QList<Record>& inserted);
    void applyOne(const Record& record, bool isRemoval, int firstColumn, int lastColumn);
    void collect(const QList<Record>& removed, const QList<Record>& updated);
    void findPositions(const std::vector<Hint>& hints);
    void sortByPlace();
    void scanFor(std::vector<Item*>& missing);
    void decide();
    void findOutOfOrder();
    void findOutOfOrder(size_t first, size_t end);
    std::vector<Node> neighbours(size_t first, size_t end) const;
    bool fits(const std::vector<Node>& nodes, int left, int right) const;
    void takeIncoming(const QList<Record>& inserted);
    void sortIncoming();
    void putIncoming();
    void putOneByOne();
    void putByKey();
    void tellAll(int firstColumn, int lastColumn);

    IndexSort* q;
    IndexListPrivate* d;
    PartitionList<Record>& list;
    bool spares = false;            // the updates leave everything where it stands
    std::vector<Item> items;        // by position, those without one last
    size_t orders = 0;              // how many there were before each row was there once
    std::vector<Incoming> incoming; // equal ones in the order in which they came
};
