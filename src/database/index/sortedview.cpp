// SPDX-License-Identifier: MIT
#include "index/sortedview.h"

#include "table/roworder_p.h"
#include "table/table.h"

#include <algorithm>
#include <limits>

/// The order of a typed view: as its user gave it, and as rows are compared by it.
class SortOrder
{
public:
    SortOrder(const Table* viewed, const QVector<SortColumn>& sortColumns)
        : columns(sortColumns)
        , rows(rowColumns(viewed, sortColumns))
    {
        rows.resolve(viewed);
    }

    const QVector<SortColumn> columns;
    LiveTable::RowOrder rows;

private:
    static std::vector<LiveTable::RowOrder::Column> rowColumns(const Table* viewed,
                                                               const QVector<SortColumn>& columns)
    {
        std::vector<LiveTable::RowOrder::Column> order;
        for (const SortColumn& column : columns) {
            if (!viewed || !viewed->columnDef(column.column))
                throw QStringLiteral("Column '%1' not found to create index.").arg(column.column);
            order.push_back({column.column, column.order == SortColumn::Descending,
                             column.nulls == SortColumn::NullsLast});
        }
        return order;
    }
};

namespace {

QVector<SortColumn> namedColumns(const Table* table, const QStringList& names)
{
    QVector<SortColumn> columns;
    for (const QString& name : names) {
        const bool descending = name.startsWith(QLatin1Char('-'));
        const QString column = descending ? name.mid(1) : name;
        const int number = table ? table->columnIndex(column) : -1;
        if (number < 0)
            throw QStringLiteral("Column '%1' not found to create index.").arg(column);
        columns.append({number, descending ? SortColumn::Descending : SortColumn::Ascending,
                        SortColumn::NullsFirst});
    }
    return columns;
}

} // namespace

// --- SortedView ---

SortedView::SortedView(Table* table, const QVector<SortColumn>& columns, bool autoAttach)
    : IndexSort(table, autoAttach)
    , order(new SortOrder(table, columns))
{
    SortedView::build();
}

SortedView::SortedView(Table* table, const QStringList& columns, bool autoAttach)
    : SortedView(table, namedColumns(table, columns), autoAttach)
{}

SortedView::~SortedView() = default;

void SortedView::setFilter(std::function<bool(const Record&)> filter, const QVector<int>& columns)
{
    accepts = std::move(filter);
    firstFilterColumn = 0;
    lastFilterColumn = accepts && columns.isEmpty() ? std::numeric_limits<int>::max() : -1;
    if (accepts && !columns.isEmpty()) {
        firstFilterColumn = *std::min_element(columns.cbegin(), columns.cend());
        lastFilterColumn = *std::max_element(columns.cbegin(), columns.cend());
    }
    rebuild();
}

void SortedView::prepare()
{
    order->rows.resolve(table());
}

int SortedView::compare(const Record& a, const Record& b) const
{
    return order->rows.compare(a.row(), b.row());
}

bool SortedView::filter(const Record& record) const
{
    return !accepts || accepts(record);
}

int SortedView::sortKeyWords() const
{
    return order->rows.keyWords();
}

SortKey SortedView::sortKey(const Record& record) const
{
    return order->rows.key(record.row());
}

bool SortedView::isSortKeyExact(SortKey key) const
{
    return order->rows.isExact(key);
}

bool SortedView::isAffected(int firstColumn, int lastColumn) const
{
    const int last = lastColumn < 0 ? std::numeric_limits<int>::max() : lastColumn;
    return (firstFilterColumn <= last && lastFilterColumn >= firstColumn) ||
           order->rows.touches(firstColumn, lastColumn);
}

QString SortedView::getClassName() const
{
    return QStringLiteral("SortedView");
}

const QVector<SortColumn>& SortedView::columns() const
{
    return order->columns;
}

// --- SortedLimit ---

SortedLimit::SortedLimit(int limit, Table* table, const QVector<SortColumn>& columns)
    : IndexLimit(limit, table)
    , order(new SortOrder(table, columns))
{
    SortedLimit::build();
}

SortedLimit::SortedLimit(int limit, Table* table, const QStringList& columns)
    : SortedLimit(limit, table, namedColumns(table, columns))
{}

SortedLimit::~SortedLimit() = default;

void SortedLimit::prepare()
{
    order->rows.resolve(table());
}

int SortedLimit::compare(const Record& a, const Record& b) const
{
    return order->rows.compare(a.row(), b.row());
}

int SortedLimit::sortKeyWords() const
{
    return order->rows.keyWords();
}

SortKey SortedLimit::sortKey(const Record& record) const
{
    return order->rows.key(record.row());
}

bool SortedLimit::isSortKeyExact(SortKey key) const
{
    return order->rows.isExact(key);
}

bool SortedLimit::isAffected(int firstColumn, int lastColumn) const
{
    return order->rows.touches(firstColumn, lastColumn);
}

const QVector<SortColumn>& SortedLimit::columns() const
{
    return order->columns;
}
