// SPDX-License-Identifier: MIT
#include "join/tablejoindep.h"

#include "concurrent/concurrentexec.h"
#include "join/mainfill_p.h"
#include "join/recordsranges.h"
#include "table/table_p.h"

#include <QScopeGuard>

#include <algorithm>
#include <new>

using LiveTable::isInRange;
using LiveTable::KeyRun;
using LiveTable::RowPool;

namespace {

using Exec = ConcurrentExec<256, 512, 32>;

QVector<int> sources(const QVector<Col>& mapping)
{
    QVector<int> columns;
    for (const Col& col : mapping)
        columns.append(col.from);
    return columns;
}

bool touches(const QVector<Col>& mapping, int firstColumn, int lastColumn)
{
    return std::any_of(mapping.cbegin(), mapping.cend(), [&](const Col& col) {
        return isInRange(col.from, firstColumn, lastColumn);
    });
}

// The positions in `index` of the keys that the contents hold, by record. Records go in by address,
// so that merging what was found only appends.
RecordsRanges search(const QList<Record>& records, const QList<Record>& contents,
                     const IndexSort* index, const QVector<Col>& mapping)
{
    QVector<QPair<Record, Record>> pairs;
    pairs.reserve(records.size());
    for (int i = 0; i < records.size(); ++i)
        pairs.append(qMakePair(records.at(i), contents.at(i)));
    std::sort(pairs.begin(), pairs.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    QList<Record> sorted;
    QList<Record> keys;
    sorted.reserve(pairs.size());
    keys.reserve(pairs.size());
    for (const auto& [record, content] : qAsConst(pairs)) {
        sorted.append(record);
        keys.append(content);
    }
    using Pair = ConcurrentParamIterPair<QList<Record>::const_iterator>;
    return Exec::execute_result<decltype(&searchRecords_worker), RecordsRangesMerger>(
        sorted.size(), &searchRecords_worker, Pair(sorted.cbegin(), sorted.cend()),
        Pair(keys.cbegin(), keys.cend()), ConcurrentParamPlain<const IndexSort*>(index),
        ConcurrentParamPlain<const QVector<Col>*>(&mapping));
}

RecordsRanges separate(const RecordsRanges& left, const RecordsRanges& present)
{
    using Records = ConcurrentParamIterPair<QList<Record>::const_iterator>;
    using Ranges = ConcurrentParamIterPair<QList<RangeSet<int>>::const_iterator>;
    return Exec::execute_result<decltype(&separateUpdates_worker), RecordsRangesMerger>(
        left.records().size(), &separateUpdates_worker,
        Records(left.records().cbegin(), left.records().cend()),
        Ranges(left.ranges().cbegin(), left.ranges().cend()),
        ConcurrentParamPlain<const RecordsRanges*>(&present));
}

void collect(std::vector<KeyRun>& runs, const RecordsRanges& found)
{
    for (const RangeSet<int>& ranges : found.ranges())
        for (int i = 0; i < ranges.rangeCount(); ++i)
            runs.push_back({ranges.begin(i), ranges.end(i)});
}

} // namespace

// --- what it keeps ---

TableJoinDepPrivate::TableJoinDepPrivate(TableJoinDep* index, IndexJoinDep* dep)
    : q(index)
    , shared(dep)
    , table(dep->table)
    , rows(dep->table, sources(dep->keyMapping))
    , toDependent(dep->table, dep->reverseKey)
    , toMain(nullptr, dep->keyMapping)
{
    if (!table)
        return;
    QObject::connect(table.data(), &Table::indexAdded, &listener, [this](Index* added) {
        if (added == q)
            isAttached = wasAttached = true;
    });
    QObject::connect(table.data(), &Table::indexRemoved, &listener, [this](Index* gone) {
        if (gone == q)
            isAttached = false;
    });
}

void TableJoinDepPrivate::connectTo(TableJoinMain* mainIndex)
{
    try {
        closeBracket();
    } catch (...) { // of an index of the main table
    }
    main = mainIndex;
    if (!main || !shared || !table || !main->d->table)
        return;
    toMain = LiveTable::KeyProbe(main->d->table, shared->keyMapping);
    isSearchable = LiveTable::KeyProbe::isSearchable(main->d->table, table, shared->keyMapping);
}

bool TableJoinDepPrivate::isKeyTouched(int firstColumn, int lastColumn) const
{
    return touches(shared->keyMapping, firstColumn, lastColumn);
}

bool TableJoinDepPrivate::isTouched(int firstColumn, int lastColumn) const
{
    return touches(shared->columns, firstColumn, lastColumn) ||
           isKeyTouched(firstColumn, lastColumn) || rows.isOrderAffected(firstColumn, lastColumn);
}

Record TableJoinDepPrivate::rowFor(const Record& mainRow, const Record& except)
{
    const TablePrivate* t = TablePrivate::get(table);
    if (t->isClearing)
        return Record();
    const auto isGone = [&](const Record& row) {
        return row == except || row.row() == t->leavingRow;
    };
    if (isSearchable) {
        const IndexSort* index = rows.index();
        return rows.last(toDependent.run(index, mainRow), isGone);
    }
    for (int i = table->rowCount() - 1; i >= 0; --i)
        if (!isGone(table->at(i)) && toDependent.matches(table->at(i), mainRow))
            return table->at(i);
    return Record();
}

void TableJoinDepPrivate::spreadToAll()
{
    MainFill fill(this, Record());
    const IndexSort* mainRows = main->d->rows.index();
    fill.lookAt(mainRows, {0, mainRows->count()}, false);
    fill.send();
}

void TableJoinDepPrivate::spread(const QList<Record>& present, const QList<Record>& left,
                                 const QList<Record>& leftKeys)
{
    MainFill fill(this, Record());
    const IndexSort* mainRows = main->d->rows.index();
    if (present.size() + left.size() == 1) {
        const Record& key = present.isEmpty() ? leftKeys.first() : present.first();
        fill.lookAt(mainRows, toMain.run(mainRows, key), true);
        fill.send();
        return;
    }
    std::vector<KeyRun> runs;
    const RecordsRanges now = search(present, present, mainRows, shared->keyMapping);
    collect(runs, now);
    if (!left.isEmpty())
        collect(runs, separate(search(left, leftKeys, mainRows, shared->keyMapping), now));
    std::sort(runs.begin(), runs.end(),
              [](const KeyRun& a, const KeyRun& b) { return a.begin < b.begin; });
    int done = 0; // several dependents may have one key: each main row is looked at once
    for (const KeyRun& run : runs) {
        fill.lookAt(mainRows, {std::max(run.begin, done), run.end}, false);
        done = std::max(done, run.end);
    }
    fill.send();
}

void TableJoinDepPrivate::closeBracket()
{
    if (std::exchange(holdsBracket, false) && main && main->d->table)
        main->d->table->endUpdate();
}

// --- the index ---

TableJoinDep::TableJoinDep(IndexJoinDep* dep)
    : d(new TableJoinDepPrivate(this, dep))
{
    dep->index = this;
}

TableJoinDep::~TableJoinDep()
{
    if (d->shared)
        d->shared->index = nullptr;
    try {
        d->closeBracket();
    } catch (...) { // of an index of the main table
    }
    if (!d->table)
        return;
    if (d->table->dependentIndexes().contains(this))
        d->table->removeDependentIndex(this);
    if (d->table->indexes().contains(this))
        d->table->removeIndex(this);
}

IndexJoinDep::~IndexJoinDep()
{
    if (index)
        index->d->shared = nullptr;
}

void TableJoinDep::clear()
{
    d->rows.notify([](Index* list) { list->clear(); });
    d->moved.clear();
    d->oldKeys.clear();
    const bool comesAgain = d->wasAttached && !d->isAttached;
    if (comesAgain || !d->isLive() ||
        (d->table->rowCount() == 0 && !TablePrivate::get(d->table)->isClearing))
        return;
    ++d->version;
    MainFill fill(d.get(), Record());
    fill.clearAll();
    const IndexSort* mainRows = d->main->d->rows.index();
    fill.lookAt(mainRows, {0, mainRows->count()}, false);
    fill.send();
}

void TableJoinDep::build()
{
    d->rows.rebuild();
    if (!d->isLive())
        return;
    ++d->version;
    d->spreadToAll();
}

void TableJoinDep::add(const Record& record)
{
    d->rows.notify([&](Index* list) { list->add(record); });
    if (!d->isLive())
        return;
    const QVector<Col>& cols = d->shared->columns;
    if (!cols.isEmpty())
        setRecordData(record, false, cols.first().from, cols.last().from);
}

void TableJoinDep::remove(const Record& record, int)
{
    d->rows.notify([&](Index* list) { list->remove(record, -1); });
    if (!d->isLive())
        return;
    const QVector<Col>& cols = d->shared->columns;
    if (!cols.isEmpty())
        setRecordData(record, true, cols.first().from, cols.last().from);
}

void TableJoinDep::update(const Record& record, int firstColumn, int lastColumn, int)
{
    d->rows.notify([&](Index* list) { list->update(record, firstColumn, lastColumn, -1); });
    d->isUpdatingInPlace = true;
    const auto done = qScopeGuard([this] { d->isUpdatingInPlace = false; });
    setRecordData(record, false, firstColumn, lastColumn);
}

void TableJoinDep::setRecordData(const Record& record, bool isRemoved, int firstColumn,
                                 int lastColumn)
{
    if (!d->isLive() || !d->isTouched(firstColumn, lastColumn))
        return;
    ++d->version;
    const bool isKeyLost = d->isUpdatingInPlace && d->isKeyTouched(firstColumn, lastColumn);
    if (d->main->d->isDamaged)
        d->main->build(); // of which removals take away again what is wrong
    MainFill fill(d.get(), isRemoved ? record : Record());
    const IndexSort* mainRows = d->main->d->rows.index();
    if (isKeyLost || !d->isSearchable)
        fill.lookAt(mainRows, {0, mainRows->count()}, false);
    else
        fill.lookAt(mainRows, d->toMain.run(mainRows, record), true);
    fill.send();
}

// Remembers the keys that rows are about to lose.
void TableJoinDep::preprocess(const QList<Record>& removed, const QList<Record>& updated,
                              int firstColumn, int lastColumn, const QList<Record>& inserted,
                              const QList<Record>& changes)
{
    d->rows.notify([&](Index* list) {
        list->preprocess(removed, updated, firstColumn, lastColumn, inserted, changes);
    });
    d->moved.clear();
    d->oldKeys.clear();
    d->isAnnounced = true;
    d->hasUnknownKeys = false;
    if (!d->isLive() || !d->isKeyTouched(firstColumn, lastColumn))
        return;
    for (int i = 0; i < updated.size(); ++i) {
        const Record& row = updated.at(i);
        if (RowPool::tag(row.row()) == 0)
            continue;
        if (i >= changes.size() || changes.at(i) == row ||
            TablePrivate::get(d->table)->untoldNow.contains(row.row())) { // changed in place
            d->hasUnknownKeys = true;
            continue;
        }
        const Record& content = changes.at(i);
        const QVector<Col>& key = d->shared->keyMapping;
        const bool isMoved = std::any_of(key.cbegin(), key.cend(), [&](const Col& col) {
            return isInRange(col.from, firstColumn, lastColumn) &&
                   !LiveTable::isSameCell(row.row(), content.row(), d->table->columnDef(col.from));
        });
        if (!isMoved)
            continue;
        const Record old = row.clone();
        if (old.isNull())
            throw std::bad_alloc();
        d->moved.append(row);
        d->oldKeys.append(old);
    }
}

void TableJoinDep::process(const QList<Record>& removed, const QList<Record>& updated,
                           int firstColumn, int lastColumn, const QList<Record>& inserted)
{
    restartTimer();
    const auto timed = qScopeGuard([this] { addElapsed(); });
    d->rows.notify(
        [&](Index* list) { list->process(removed, updated, firstColumn, lastColumn, inserted); });
    const bool isAnnounced = std::exchange(d->isAnnounced, false);
    const bool hasUnknownKeys = std::exchange(d->hasUnknownKeys, false);
    QList<Record> left;
    QList<Record> leftKeys;
    left.swap(d->moved);
    leftKeys.swap(d->oldKeys);
    if (!d->isLive())
        return;
    const bool isTouched =
        TablePrivate::get(d->table)->hasAbsentUpdates || d->isTouched(firstColumn, lastColumn);
    QList<Record> present = isTouched ? updated : QList<Record>();
    present += inserted;
    left += removed;
    leftKeys += removed;
    if (present.isEmpty() && left.isEmpty())
        return;
    ++d->version;
    const bool areKeysLost = hasUnknownKeys || (!isAnnounced && !updated.isEmpty() &&
                                                d->isKeyTouched(firstColumn, lastColumn));
    if (d->main->d->isDamaged)
        d->main->build();
    else if (areKeysLost || !d->isSearchable)
        d->spreadToAll();
    else
        d->spread(present, left, leftKeys);
}

namespace {

// Tables whose bracket is being opened on this thread: in a circle of joins the first is met again.
thread_local std::vector<const Table*> opening;

} // namespace

void TableJoinDep::dependentBeginUpdate(Table* table)
{
    Table* const mainTable = d->isLive() ? d->main->d->table.data() : nullptr;
    if (!mainTable || mainTable == table || d->holdsBracket ||
        std::find(opening.begin(), opening.end(), mainTable) != opening.end())
        return;
    opening.push_back(table);
    const auto opened = qScopeGuard([] { opening.pop_back(); });
    mainTable->beginUpdate();
    d->holdsBracket = true;
}

void TableJoinDep::dependentEndUpdate(Table*)
{
    d->closeBracket();
}

bool TableJoinDep::filter(const Record&) const
{
    return true;
}

bool TableJoinDep::contains(const Record& record) const
{
    return d->table && record.table() == d->table && record.inTable();
}

QString TableJoinDep::getClassName() const
{
    return QStringLiteral("TableJoinDep");
}

const IndexJoinDep* TableJoinDep::description() const
{
    return d->shared;
}
