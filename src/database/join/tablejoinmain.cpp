// SPDX-License-Identifier: MIT
#include "join/tablejoinmain.h"

#include "join/mainfill_p.h"
#include "table/table_p.h"

#include <QScopeGuard>

#include <algorithm>

using LiveTable::RowPool;

// --- what it keeps ---

TableJoinMainPrivate::TableJoinMainPrivate(TableJoinMain* index, IndexJoinMain* main,
                                           const QVector<QSharedPointer<IndexJoinDep>>& dependents)
    : q(index)
    , shared(main)
    , deps(dependents)
    , table(main->table)
    , keyColumns(main->keyColumns)
    , rows(main->table, main->keyColumns)
{}

bool TableJoinMainPrivate::isTouched(int firstColumn, int lastColumn) const
{
    const int last = lastColumn < 0 ? table->columnCount() - 1 : lastColumn;
    if (q->isKeyIntersected(std::max(firstColumn, 0), last))
        return true;
    for (const auto& dep : deps)
        for (const Col& col : qAsConst(dep->columns))
            if (LiveTable::isInRange(col.to, firstColumn, lastColumn))
                return true;
    return false;
}

quint64 TableJoinMainPrivate::version() const
{
    quint64 sum = 0;
    for (const auto& dep : deps)
        sum += dep->index ? dep->index->d->version : 0;
    return sum;
}

bool TableJoinMainPrivate::hasAbsentUpdates() const
{
    return table && TablePrivate::get(table)->hasAbsentUpdates;
}

// --- the index ---

TableJoinMain::TableJoinMain(IndexJoinMain* main, const QVector<QSharedPointer<IndexJoinDep>>& deps)
    : d(new TableJoinMainPrivate(this, main, deps))
{
    main->index = this;
    for (const auto& dep : deps)
        if (dep->index)
            dep->index->d->connectTo(this);
}

TableJoinMain::~TableJoinMain()
{
    if (d->shared)
        d->shared->index = nullptr;
    for (const auto& dep : d->deps)
        if (dep->index && dep->index->d->main == this)
            dep->index->d->connectTo(nullptr);
    if (d->table && d->table->indexes().contains(this))
        d->table->removeIndex(this);
}

IndexJoinMain::~IndexJoinMain()
{
    if (index)
        index->d->shared = nullptr;
}

void TableJoinMain::clear()
{
    d->rows.notify([](Index* list) { list->clear(); });
    d->late.clear();
    const bool isEmptied = d->isLive() && TablePrivate::get(d->table)->isClearing;
    if (d->demand && isEmptied) { // else the rows come again
        d->demand->reset(nullptr);
        d->demand->flush();
    }
}

void TableJoinMain::build()
{
    d->isDamaged = false;
    d->late.clear();
    d->rows.rebuild();
    for (const auto& dep : d->deps)
        if (dep->index)
            dep->index->d->rows.rebuild();
    if (!d->isLive())
        return;
    const IndexSort* rows = d->rows.index();
    {
        MainFill fill(d.get());
        fill.lookAt(rows, {0, rows->count()}, false);
        fill.send();
        // While the table's indexes are off it, joins of which it is a dependent hear nothing.
        const QList<Index*> dependents =
            fill.isUnheard() ? d->table->dependentIndexes() : QList<Index*>();
        for (Index* index : dependents)
            if (auto* next = dynamic_cast<TableJoinDep*>(index))
                next->build();
    }
    if (d->demand) {
        d->demand->reset(rows);
        d->demand->flush();
    }
}

QString TableJoinMain::verify() const
{
    if (!d->isLive())
        return QString();
    if (d->isDamaged)
        return QStringLiteral("it is to be put right at the next notification");
    for (const Record& row : *d->table->masterIndex()) {
        for (const auto& dep : d->deps) {
            if (!dep->index || !dep->index->d->isLive())
                continue;
            const Record shown = dep->index->d->rowFor(row, Record());
            for (const Col& col : qAsConst(dep->columns)) {
                const Field cell = row.data(col.to);
                const Field source = shown.data(col.from);
                if (cell.isNull() != (shown.isNull() || source.isNull()) ||
                    (!cell.isNull() && cell.compare(source) != 0))
                    return QStringLiteral("column %1 is not what the dependent holds").arg(col.to);
            }
        }
    }
    return QString();
}

// The join is over.
void TableJoinMain::makeNull()
{
    if (!d->isLive())
        return;
    MainFill fill(d.get());
    fill.clearAll();
    const IndexSort* rows = d->rows.index();
    fill.lookAt(rows, {0, rows->count()}, false);
    fill.send();
}

void TableJoinMain::add(const Record& record)
{
    d->rows.notify([&](Index* list) { list->add(record); });
    d->isAnnounced = false;
    d->isListed = true;
    const auto listed = qScopeGuard([this] { d->isListed = false; });
    process(QList<Record>(), QList<Record>(), -1, -1, {record});
}

void TableJoinMain::remove(const Record& record, int)
{
    d->rows.notify([&](Index* list) { list->remove(record, -1); });
    if (!d->demand || !d->isLive())
        return;
    d->demand->release(record, d->rows.index(), record);
    d->demand->flush();
}

void TableJoinMain::update(const Record& record, int firstColumn, int lastColumn, int)
{
    d->rows.notify([&](Index* list) { list->update(record, firstColumn, lastColumn, -1); });
    d->isAnnounced = false;
    d->isListed = true;
    const auto listed = qScopeGuard([this] { d->isListed = false; });
    d->late.append(record);
    process(QList<Record>(), {record}, firstColumn, lastColumn, QList<Record>());
}

// Sets the joined cells of rows that come in, and those in the new contents of rows that change.
void TableJoinMain::preprocess(const QList<Record>& removed, const QList<Record>& updated,
                               int firstColumn, int lastColumn, const QList<Record>& inserted,
                               const QList<Record>& changes)
{
    d->rows.notify([&](Index* list) {
        list->preprocess(removed, updated, firstColumn, lastColumn, inserted, changes);
    });
    d->late.clear();
    d->oldKeys.clear();
    d->isAnnounced = true;
    d->hasUnknownKeys = false;
    d->seenVersion = d->version();
    if (!d->isLive() || d->isOwn)
        return;
    if (d->hasAbsentUpdates() || d->isTouched(firstColumn, lastColumn))
        preprocessUpdates(updated, firstColumn, lastColumn, changes);
    if (inserted.isEmpty())
        return;
    MainFill fill(d.get());
    for (const Record& record : inserted) {
        if (RowPool::tag(record.row()) == 0)
            fill.write(record);
        else // it takes a new place; until then it stands in the views with its old cells
            d->late.append(record);
    }
}

void TableJoinMain::preprocessUpdates(const QList<Record>& updated, int firstColumn, int lastColumn,
                                      const QList<Record>& changes)
{
    MainFill fill(d.get());
    const int last = lastColumn < 0 ? d->table->columnCount() - 1 : lastColumn;
    const bool isKey = isKeyIntersected(std::max(firstColumn, 0), last);
    const auto inRange = [&](int column) {
        return LiveTable::isInRange(column, firstColumn, lastColumn);
    };
    const bool allInRange =
        std::all_of(fill.joinedColumns().begin(), fill.joinedColumns().end(), inRange);
    Record keyRow; // the key that a row will have
    QVector<const unsigned char*> contents;
    for (int i = 0; i < updated.size(); ++i) {
        const Record& row = updated.at(i);
        Record content = i < changes.size() ? changes.at(i) : Record();
        if (content == row)
            content = Record(); // changed in place: the views still look for the old cells
        const bool isIn = RowPool::tag(row.row()) != 0;
        if (TablePrivate::get(d->table)->untoldNow.contains(row.row()))
            d->hasUnknownKeys = true;
        if (isIn && content.isNull()) {
            d->late.append(row);
            d->hasUnknownKeys = true;
            continue;
        }
        const Record* key = &row;
        if (isKey && !content.isNull()) {
            if (keyRow.isNull() && (keyRow = Record(d->table)).isNull())
                throw std::bad_alloc();
            for (const int column : d->keyColumns)
                keyRow.copy(inRange(column) ? content : row, column, column);
            key = &keyRow;
            if (d->demand && isIn)
                d->oldKeys.append(row.clone());
        }
        const Record& joined = fill.contentFor(*key);
        for (const int column : fill.joinedColumns()) {
            if (!content.isNull() && inRange(column))
                content.copy(joined, column, column);
            if (!isIn)
                Record(row).copy(joined, column, column);
        }
        if (isIn && isKey && !allInRange)
            d->late.append(row);
        contents.append(content.row());
    }
    // One row of contents that stands for several rows can hold the cells of the last of them only.
    std::sort(contents.begin(), contents.end());
    if (std::adjacent_find(contents.cbegin(), contents.cend()) != contents.cend())
        d->late = updated;
}

void TableJoinMain::process(const QList<Record>& removed, const QList<Record>& updated,
                            int firstColumn, int lastColumn, const QList<Record>& inserted)
{
    restartTimer();
    const auto timed = qScopeGuard([this] { addElapsed(); });
    if (!d->isListed)
        d->rows.notify([&](Index* list) {
            list->process(removed, updated, firstColumn, lastColumn, inserted);
        });
    const bool isAnnounced = std::exchange(d->isAnnounced, false);
    d->isOwn = false; // what follows in the same call is not
    QList<Record> late;
    late.swap(d->late);
    if (!d->isLive())
        return;
    const bool isTouched = d->hasAbsentUpdates() || d->isTouched(firstColumn, lastColumn);
    if (d->demand) {
        const int last = lastColumn < 0 ? d->table->columnCount() - 1 : lastColumn;
        const bool isKey =
            d->hasAbsentUpdates() || isKeyIntersected(std::max(firstColumn, 0), last);
        d->followDemand(removed, isKey ? updated : QList<Record>(), inserted,
                        isAnnounced && !d->hasUnknownKeys);
    }
    if (!isAnnounced || d->seenVersion != d->version()) {
        // Nobody has set the cells, or dependents have changed since.
        late = inserted;
        if (isTouched)
            late += updated;
    }
    if (d->isDamaged) {
        build();
        return;
    }
    if (late.isEmpty())
        return;
    MainFill fill(d.get());
    for (const Record& record : qAsConst(late))
        fill.look(record);
    fill.send();
}

void TableJoinMainPrivate::followDemand(const QList<Record>& removed, const QList<Record>& updated,
                                        const QList<Record>& inserted, bool areKeysKnown)
{
    const IndexSort* sorted = rows.index();
    if (!areKeysKnown && !updated.isEmpty()) {
        demand->reset(sorted);
    } else {
        for (const QList<Record>* come : {&inserted, &updated})
            for (const Record& record : *come)
                if (RowPool::tag(record.row()) != 0)
                    demand->want(record);
        for (const QList<Record>* gone : {&removed, &qAsConst(oldKeys)})
            for (const Record& record : *gone)
                demand->release(record, sorted, Record());
    }
    oldKeys.clear();
    demand->flush();
}

bool TableJoinMain::filter(const Record&) const
{
    return true;
}

bool TableJoinMain::contains(const Record& record) const
{
    return d->table && record.table() == d->table && record.inTable();
}

QString TableJoinMain::getClassName() const
{
    return QStringLiteral("TableJoinMain");
}

bool TableJoinMain::isKeyIntersected(int firstColumn, int lastColumn) const
{
    return !d->keyColumns.isEmpty() && d->keyColumns.last() >= firstColumn &&
           d->keyColumns.first() <= lastColumn;
}

const IndexJoinMain* TableJoinMain::description() const
{
    return d->shared;
}

const QVector<QSharedPointer<IndexJoinDep>>& TableJoinMain::dependents() const
{
    return d->deps;
}
