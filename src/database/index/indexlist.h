// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"
#include "container/rangeset.h"
#include "index/index.h"

#include <QVector>

#include <memory>

class IndexList;
class IndexListPrivate;

/// What one notification did to a list-backed index, in positions. The arrays belong to the index
/// and are good during the call.
///
/// Positions `from`/`removed` count in the list as it was before, `to`/`inserted`/`changed` as it
/// is now. Taking out `removed` and every `from`, then putting in `inserted` and every `to`, each
/// in ascending order of position, turns the old list into the new.
struct IndexChange
{
    /// A record that was at position `from` is at position `to`.
    struct Move
    {
        int from; ///< in the list as it was
        int to;   ///< in the list as it is
    };
    const int* removed = nullptr;  ///< ascending
    int removedCount = 0;          ///< of `removed`
    const Move* moved = nullptr;   ///< ascending by `to`; their content may have changed as well
    int movedCount = 0;            ///< of `moved`
    const int* inserted = nullptr; ///< ascending
    int insertedCount = 0;         ///< of `inserted`
    const int* changed = nullptr;  ///< updated records that stayed where they were, ascending
    int changedCount = 0;          ///< of `changed`
    int firstColumn = -1;          ///< of the update; -1 for the first or the last column
    int lastColumn = -1;           ///< likewise
};

/// Told by a list-backed index what happened to it, after it happened, on the thread that changes
/// the table. An index without observers computes nothing for them.
///
/// Lifetime: remove it from the index before it dies; an index that dies first tells
/// indexDestroyed.
class LIVETABLE_EXPORT IndexObserver
{
public:
    IndexObserver();
    virtual ~IndexObserver();
    /// Records came, went, moved or changed. The arrays of `change` are good during the call.
    virtual void indexChanged(const IndexList& index, const IndexChange& change) = 0;
    /// The content is new as a whole: cleared, built or sorted again.
    virtual void indexReset(const IndexList& index) = 0;
    /// The index is being destroyed; its virtual functions may not be called any more.
    virtual void indexDestroyed(const IndexList& index);

private:
    Q_DISABLE_COPY(IndexObserver)
};

/// An unsorted, filtered subset of a table in arrival order; the base of all sorted indexes.
///
/// Attachment: with `autoAttach` the constructor adds the index to the table and the destructor
/// takes it off, unless the table died first; filling it is build(). Without, its owner attaches
/// it. Threads: see Index; build() holds the table's lock. Cost: finding a record is a linear scan,
/// so a list that sees many updates should be a sorted one.
///
///     struct Open : IndexList {
///         Open(Table* t) : IndexList(t, true) { build(); }
///         bool filter(const Record& r) const override { return !r.data(closed).toInteger(); }
///     };
class LIVETABLE_EXPORT IndexList : public Index, public IndexIterative
{
public:
    /// Over a table; see above for `autoAttach`. Empty until build(). A null table gives an index
    /// that stays empty.
    IndexList(Table* table, bool autoAttach);
    /// The table of that name in ICore::instance(); none, and no attachment, when it is not known.
    IndexList(const QString& tableName, bool autoAttach);
    ~IndexList() override;

    void clear() override;
    /// Appends every record of the table's master index that filter() accepts, in its order, under
    /// Table::lock. What filter() throws is thrown on, with the index as it was.
    void build() override;
    /// As in Index. When something throws, the index is built anew at its next notification.
    void process(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                 int lastColumn, const QList<Record>& inserted) override;
    void update(const Record& record, int firstColumn, int lastColumn, int position) override;
    /// Appends. Does not ask filter().
    void add(const Record& record) override;
    /// Removes the record; a `position` that does not hold it is ignored.
    void remove(const Record& record, int position) override;
    /// True.
    bool filter(const Record& record) const override;
    bool contains(const Record& record) const override;
    /// Scans for this very record; -1 if absent.
    int indexOf(const Record& record) const override;
    QString getClassName() const override;
    QString verify() const override;

    /// The records in index order; at the end of the list begin() + count().
    int count() const override;
    PartitionList<Record>::const_iterator begin() const override;
    PartitionList<Record>::const_iterator end() const override;
    /// The viewed table; null once it has been destroyed.
    Table* table() const override;
    Table* table() override;
    /// Moves the records at `first` to `last`, inclusive, to position `to` of the list without
    /// them. Nothing when `to` is `first` or `last` or a position is out of range. Costs
    /// O(records), and without memory for that throws std::bad_alloc with nothing moved.
    virtual void move(int first, int last, int to);
    /// Removes all positions of the set in one pass.
    virtual void removeRanges(const RangeSet<int>& ranges);

    /// The i-th record; Record::null out of range.
    const Record& at(int i) const;
    /// The list itself, for reading.
    const PartitionList<Record>& records() const;

    /// Observers are told in the order in which they were added.
    void addObserver(IndexObserver* observer);
    void removeObserver(IndexObserver* observer);

protected:
    /// For the library's own indexes.
    IndexListPrivate* listPrivate() const { return listData.get(); }

private:
    friend class IndexListPrivate;
    const std::unique_ptr<IndexListPrivate> listData;
};
