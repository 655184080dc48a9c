// SPDX-License-Identifier: MIT
#pragma once

#include "index/indexlimit.h"
#include "index/indexsort.h"

#include <QStringList>
#include <QVector>

#include <functional>

/// One column of a sort order.
struct SortColumn
{
    /// The smallest value first, or the greatest.
    enum Order
    {
        Ascending,
        Descending
    };
    /// Where cells without a value stand.
    enum Nulls
    {
        NullsFirst,
        NullsLast
    };
    int column;               ///< the column's number
    Order order = Ascending;  ///< of the values
    Nulls nulls = NullsFirst; ///< where NULL cells go, in either order
};

class SortOrder;

/// A ready sorted view: by one or more columns, each ascending or descending with its NULLs first
/// or last, with an optional filter. Use it wherever it fits: it reads cells in place and keeps a
/// sort key beside each record, which no compare() of a host's own can match.
///
/// Values compare as in Field::compare. Construction attaches (with `autoAttach`) and builds the
/// view, so it is right from the first moment on. Its order is that of its columns for good: for a
/// compare() of your own subclass IndexSort. Ownership, threads and errors: see IndexSort.
///
///     SortedView best(&quotes, {{spread, SortColumn::Ascending, SortColumn::NullsLast}});
///     SortedView top(&quotes, QStringList{"-price", "time"});
///     top.setFilter([=](const Record& r) { return !r.data(price).isNull(); }, {price});
class LIVETABLE_EXPORT SortedView : public IndexSort
{
public:
    /// Throws the QString "Column '%1' not found to create index." for a number out of range.
    SortedView(Table* table, const QVector<SortColumn>& columns, bool autoAttach = true);
    /// The same by column names; a leading "-" asks for descending order. Throws as above.
    SortedView(Table* table, const QStringList& columns, bool autoAttach = true);
    ~SortedView() override;

    /// Sets which records belong to the view, and builds it anew. `columns` are all columns that
    /// the filter reads: updates that touch neither them nor the sort columns are then skipped.
    /// Empty means any column. A null function accepts all. The filter may be called from the
    /// thread that changes the table only.
    void setFilter(std::function<bool(const Record&)> filter,
                   const QVector<int>& columns = QVector<int>());

    int compare(const Record& a, const Record& b) const override;
    bool filter(const Record& record) const override;
    int sortKeyWords() const override;
    SortKey sortKey(const Record& record) const override;
    bool isSortKeyExact(SortKey key) const override;
    bool isAffected(int firstColumn, int lastColumn) const override;
    /// "SortedView".
    QString getClassName() const override;
    /// The sort order, the most significant column first.
    const QVector<SortColumn>& columns() const;

protected:
    void prepare() override;

private:
    const std::unique_ptr<SortOrder> order;
    std::function<bool(const Record&)> accepts;
    int firstFilterColumn = 0; // the hull of what the filter reads
    int lastFilterColumn = -1;
};

/// A ready limit index over typed columns: the table keeps the `limit` highest-sorted records.
///
///     SortedLimit newest(10000, &tape, QStringList("sequence"));
class LIVETABLE_EXPORT SortedLimit : public IndexLimit
{
public:
    /// Attaches under the name "IndexLimit" and builds. Throws as SortedView.
    SortedLimit(int limit, Table* table, const QVector<SortColumn>& columns);
    SortedLimit(int limit, Table* table, const QStringList& columns);
    ~SortedLimit() override;

    int compare(const Record& a, const Record& b) const override;
    int sortKeyWords() const override;
    SortKey sortKey(const Record& record) const override;
    bool isSortKeyExact(SortKey key) const override;
    bool isAffected(int firstColumn, int lastColumn) const override;
    /// The sort order, the most significant column first.
    const QVector<SortColumn>& columns() const;

protected:
    void prepare() override;

private:
    const std::unique_ptr<SortOrder> order;
};
