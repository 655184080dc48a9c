// SPDX-License-Identifier: MIT
#include "table/recordupdater.h"

#include "table/recordstrans_p.h"
#include "table/table_p.h"

#include <QtDebug>

#include <cstring>
#include <new>

struct RecordUpdater::Columns
{
    LiveTable::ColumnSet set;
};

RecordUpdater::RecordUpdater(RecordsTrans& into, const Record& record)
    : transaction(into)
    , live(record)
{}

RecordUpdater::~RecordUpdater()
{
    try {
        commit();
    } catch (const std::bad_alloc&) {
        qWarning() << "RecordUpdater : out of memory, an update is lost";
    }
}

// What a write starts from: the content the transaction holds already, or the live row.
Record RecordUpdater::base() const
{
    const Record pending = transaction.content(live);
    return pending.isNull() ? live : pending;
}

Field RecordUpdater::data(int column)
{
    Table* table = live.table();
    if (!table || column < 0 || column >= table->columnCount())
        return Field();
    if (content.isNull()) {
        content = base().clone();
        if (content.isNull())
            throw std::bad_alloc();
        columns = std::make_unique<Columns>();
    }
    columns->set.insert(column);
    return content.data(column);
}

Field RecordUpdater::data(const QString& column)
{
    Table* table = live.table();
    return data(table ? table->columnIndex(column) : -1);
}

Field RecordUpdater::constData(int column) const
{
    return content.isNull() ? base().data(column) : content.data(column);
}

void RecordUpdater::setNull(int column)
{
    Field cell = data(column);
    if (cell.type() != FieldType::Undefined)
        cell.setNull();
}

bool RecordUpdater::isChanged() const
{
    if (content.isNull() || !content.table())
        return false;
    const Record before = base();
    for (int column = 0; column < content.table()->columnCount(); ++column)
        if (columns->set.contains(column) &&
            !LiveTable::isSameCell(content.row(), before.row(), content.table()->columnDef(column)))
            return true;
    return false;
}

void RecordUpdater::commit()
{
    Record written;
    written.swap(content);
    const std::unique_ptr<Columns> touched = std::move(columns);
    Table* table = written.table();
    if (!table || live.table() != table)
        return;
    const Record before = base();
    LiveTable::ColumnSet changed;
    int first = -1;
    int last = -1;
    for (int column = 0; column < table->columnCount(); ++column) {
        if (!touched->set.contains(column) ||
            LiveTable::isSameCell(written.row(), before.row(), table->columnDef(column)))
            continue;
        changed.insert(column);
        first = first < 0 ? column : first;
        last = column;
    }
    if (first >= 0 && transaction.d->accepts(live))
        transaction.d->update(live, written, changed, first, last, true);
}
