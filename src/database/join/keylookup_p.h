// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "index/masterindex.h"
#include "join/tablejoin.h"

#include <QPointer>

#include <functional>
#include <memory>

namespace LiveTable {

/// A run of positions in an index: begin .. end-1.
struct KeyRun
{
    int begin = 0;
    int end = 0;
};

/// Searches the rows of one table by the key cells of another's rows. `mapping`: `to` a column of
/// the searched table, `from` one of the rows whose key is looked for.
///
/// Keeps one row to search with; so each thread has its own probe. Nothing is thrown but
/// std::bad_alloc: a key that the searched table cannot express has an empty run.
class KeyProbe
{
public:
    KeyProbe(Table* searched, const QVector<Col>& columns);

    /// Whether equal keys are found by converting them. Between a text and a number they are not,
    /// and the whole table must be looked through.
    static bool isSearchable(const Table* table, const Table* from, const QVector<Col>& mapping);
    /// The rows of `index` with the key of `source`. The index must be sorted by the key columns.
    KeyRun run(const IndexSort* index, const Record& source);
    /// Whether a row of the searched table has the key of `source`.
    bool matches(const Record& found, const Record& source) const;

private:
    bool fill(const Record& source);

    QPointer<Table> table;
    QVector<Col> mapping;
    Record row;
    bool isExact = true; // the columns are of the same kinds: what is found needs no second look
    bool isJudged = false;
};

/// The run of rows that have the key of `row`, a row of the index's own table. The index is a
/// master index sorted by the key columns, or the own list of a KeyLookup.
KeyRun runOf(const IndexSort* index, const Record& row);

class KeyOrder;

/// Finds the rows of a table that have a key, in the table's master index where that is sorted by
/// the key columns, else in a sorted list of its own; and of several rows the one that is last in
/// the order of the master index.
///
/// The own list must hear of every change of the table: the index that keeps a KeyLookup tells it
/// by notify(), before it searches.
class KeyLookup
{
public:
    KeyLookup(Table* searched, const QVector<int>& keyColumns);
    ~KeyLookup();

    /// The sorted index to search in; null once the table or its master index is gone. A list of
    /// its own is built where it is needed and not there yet.
    const IndexSort* index();
    /// Builds the own list anew, if there is to be one.
    void rebuild();
    template <typename Notify>
    void notify(Notify tell)
    {
        if (own)
            tell(ownIndex());
    }
    /// Whether a change of these columns can change which of several rows with one key is the last.
    bool isOrderAffected(int firstColumn, int lastColumn) const;
    /// The last row of the run for which isGone() is false; null when there is none.
    template <typename IsGone>
    Record last(KeyRun run, IsGone isGone) const
    {
        int i = run.end - 1;
        while (i >= run.begin && isGone(searched()->at(i)))
            --i;
        if (i < run.begin)
            return Record();
        if (own && i > run.begin)
            i = lastOfEquals(run.begin, i, [&](const Record& row) { return isGone(row); });
        return searched()->at(i);
    }

private:
    Q_DISABLE_COPY(KeyLookup)
    Index* ownIndex() const;
    const IndexSort* searched() const;
    int lastOfEquals(int begin, int i, const std::function<bool(const Record&)>& isGone) const;
    bool isSortedByKey(const MasterIndex* master) const;

    QPointer<Table> table;
    const QVector<int> columns;
    const MasterIndex* judgedMaster = nullptr;
    QList<int> judgedColumns;
    std::unique_ptr<KeyOrder> own;
};

} // namespace LiveTable
