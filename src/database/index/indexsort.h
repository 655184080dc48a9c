// SPDX-License-Identifier: MIT
#pragma once

#include "index/indexlist.h"

#include <QMap>

/// A live sorted view: an IndexList kept in the order of a three-way comparison, the heart of the
/// store. Equal records stay in the order in which they came; a record that is new or has moved
/// goes behind its equals. The ready SortedView needs no subclass.
///
/// A subclass gives compare() and may give filter(). compare() must be a strict weak order over the
/// cells of the two rows, must not allocate where speed matters, and may be called from threads of
/// Qt's global pool while the caller waits. A subclass may also offer sortKey(), of which the same
/// holds: an order-preserving number kept beside each record, so that searches read no rows.
///
/// A transaction costs, for each changed record, one search for its old place before the rows
/// change and one for its new place after: O(log n), with no scan. A record that is still in order
/// does not move. Positions that cannot be found by value (a cell was written without telling) are
/// found by a scan.
///
/// Errors: nothing of its own. When compare() or filter() throws while a transaction is applied,
/// the exception goes on to the caller, and the index sorts or builds itself anew at its next
/// notification; all rows are in the table.
///
///     struct ByPrice : IndexSort {
///         explicit ByPrice(Table* t) : IndexSort(t, true) { build(); }
///         int compare(const Record& a, const Record& b) const override
///         { return a.data(price).toDecimal().compare(b.data(price).toDecimal()); }
///     };
class LIVETABLE_EXPORT IndexSort : public IndexList
{
public:
    /// As IndexList. Empty until build(), which belongs into the constructor of the subclass: here
    /// compare() is not there yet.
    IndexSort(Table* table, bool autoAttach);
    IndexSort(const QString& tableName, bool autoAttach);
    ~IndexSort() override;

    /// Orders two records by compare() < 0.
    class LessThan
    {
    public:
        /// The order of `sorted`, which must outlive it.
        explicit LessThan(const IndexSort* sorted)
            : index(sorted)
        {}
        /// Whether `a` sorts before `b`.
        bool operator()(const Record& a, const Record& b) const { return index->compare(a, b) < 0; }

    private:
        const IndexSort* index;
    };
    /// Compares an element with a key record.
    class Compare
    {
    public:
        /// The order of `sorted`, which must outlive it.
        explicit Compare(const IndexSort* sorted)
            : index(sorted)
        {}
        /// compare(element, key).
        int operator()(const Record& element, const Record& key) const
        {
            return index->compare(element, key);
        }

    private:
        const IndexSort* index;
    };

    /// Fills in master order, then sorts. When compare() throws, the records are there, unsorted.
    void build() override;
    /// Inserts at indexOfAdd(); does not ask filter().
    void add(const Record& record) override;
    /// Finds the places of removed and updated records by their old values.
    void preprocess(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                    int lastColumn, const QList<Record>& inserted,
                    const QList<Record>& changes) override;
    /// Applies a whole transaction: one range removal, one sort of what comes in, grouped
    /// insertions. Updated records that are absent but pass filter() are inserted.
    void process(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                 int lastColumn, const QList<Record>& inserted) override;
    /// A record was changed in place: moves it where it belongs. `position` is trusted. With -1 it
    /// is searched by its new value, and when its key changed that takes a scan of the list and a
    /// warning, "update" "Full search can impact the performance".
    void update(const Record& record, int firstColumn, int lastColumn, int position) override;
    /// The position of this very record: by search, and by a scan where that fails.
    int indexOf(const Record& record) const override;
    void move(int first, int last, int to) override;
    QString getClassName() const override;
    QString verify() const override;

    /// Negative, 0 or positive as `a` sorts before, with or after `b`.
    virtual int compare(const Record& a, const Record& b) const = 0;
    /// The record at search(key, after), or a null one.
    virtual Record find(const Record& key, int after = -1) const;
    /// The first record that compares equal to `key`, or a null one. The quickest way to a row by
    /// its key where nobody asks for positions: it does not go through search().
    ///
    ///     Record key(&table); // once
    ///     key.data(id) = 4711;
    ///     Record row = table.masterIndex()->findFirst(key);
    Record findFirst(const Record& key) const;
    /// The first position behind `after` whose record compares equal to `key`; -1 if there is none.
    /// `key` may be any row of the table, in it or not; a null record is found nowhere, here and
    /// below. `after` -1 searches everything.
    virtual int search(const Record& key, int after = -1) const;
    /// The last such position.
    virtual int searchLast(const Record& key, int after = -1) const;
    /// Linear: how many records behind `after` come before the first that compares equal (so the
    /// position itself only when `after` is -1); -1 if none does. Works on lists out of order.
    virtual int searchFull(const Record& key, int after = -1) const;
    /// Sorts the whole list again, stably; lists above 511 records on Qt's global thread pool while
    /// the caller waits.
    virtual void resort();

    /// How many words of sortKey() are in use: 0 for none (the default), 1 or 2. Asked when the
    /// index is empty and begins to fill.
    virtual int sortKeyWords() const;
    /// An order-preserving key: sortKey(a) < sortKey(b) must mean compare(a, b) < 0. Equal keys
    /// mean nothing, compare() then decides. With one word in use `low` must be 0.
    virtual SortKey sortKey(const Record& record) const;
    /// Whether two records that both have this key compare equal. The default says no. A yes spares
    /// reading their rows.
    virtual bool isSortKeyExact(SortKey key) const;
    /// Whether a change confined to these columns can move a record in the index, bring one in or
    /// throw one out. Default true. A false lets the index skip updates.
    virtual bool isAffected(int firstColumn, int lastColumn) const;

    /// Where a new record would go: behind every record that is not greater.
    int indexOfAdd(const Record& record) const;
    /// The positions of those of the records that are in the index.
    QMap<Record, int> indexOfs(QList<Record> records) const;
    /// The first position behind `after` where threeWay(element, key) is 0, by binary search.
    template <typename Key, typename ThreeWay>
    int searchBinary(const Key& key, int after, ThreeWay threeWay) const;

protected:
    /// Called when the empty index begins to fill, and so after every change of the table's
    /// columns: the time to look up where they lie. The default does nothing.
    virtual void prepare();

private:
    friend class TablePrivate;
    friend class IndexSortWork;
    void locate(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                int lastColumn, const QList<Record>& inserted);
};

template <typename Key, typename ThreeWay>
int IndexSort::searchBinary(const Key& key, int after, ThreeWay threeWay) const
{
    int low = after < -1 ? 0 : after + 1;
    int high = count();
    int result = -1;
    while (low < high) {
        const int middle = low + (high - low) / 2;
        const int order = threeWay(at(middle), key);
        if (order == 0)
            result = middle;
        if (order < 0)
            low = middle + 1;
        else
            high = middle;
    }
    return result;
}
