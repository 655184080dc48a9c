// SPDX-License-Identifier: MIT
#include "join/mainfill_p.h"

#include "index/indexlist_p.h"
#include "index/sortedview.h"
#include "table/table_p.h"

#include <QScopeGuard>

#include <algorithm>
#include <new>
#include <typeinfo>

using LiveTable::KeyRun;
using LiveTable::RowOrder;

namespace {

RowOrder ascending(const QVector<int>& columns)
{
    std::vector<RowOrder::Column> order;
    order.reserve(size_t(columns.size()));
    for (const int column : columns)
        order.push_back({column, false, false});
    return RowOrder(std::move(order));
}

} // namespace

MainFill::MainFill(TableJoinMainPrivate* joinMain, TableJoinDepPrivate* dependent)
    : main(joinMain)
    , only(dependent)
    , table(joinMain->table)
    , lock(table)
    , pieces(table)
    , keyOrder(ascending(joinMain->keyColumns))
{
    for (const auto& dep : joinMain->deps)
        if (!only || only->shared == dep.data())
            for (const Col& col : qAsConst(dep->columns))
                numbers.push_back(col.to);
    std::sort(numbers.begin(), numbers.end());
    defs.reserve(numbers.size());
    for (const int column : numbers)
        defs.push_back(table->columnDef(column));
    isOneRun = numbers.empty() || numbers.back() - numbers.front() + 1 == int(numbers.size());
    if (isOneRun && !numbers.empty())
        cells = LiveTable::CellRange(defs.front(), defs.back());
    const TablePrivate* t = TablePrivate::get(table);
    someLeave = t->isClearing || t->leavingRow || (t->leavingRows && !t->leavingRows->isEmpty());
    keyOrder.resolve(table);
    unheard = isOneRun && areAllDeaf();
}

MainFill::MainFill(TableJoinDepPrivate* dependent, const Record& left)
    : MainFill(dependent->main->d.get(), dependent)
{
    except = left;
}

MainFill::MainFill(TableJoinMainPrivate* joinMain)
    : MainFill(joinMain, nullptr)
{}

// Whether the index would do anything about an update of the joined columns.
bool MainFill::hears(const Index* index) const
{
    const int first = numbers.front();
    const int last = numbers.back();
    const std::type_info& type = typeid(*index);
    if (type == typeid(SortedView)) {
        const auto* view = static_cast<const SortedView*>(index);
        return view->isAffected(first, last) || IndexListPrivate::get(view)->isObserved();
    }
    if (type == typeid(TableJoinMain))
        return index != main->q &&
               static_cast<const TableJoinMain*>(index)->d->isTouched(first, last);
    if (type == typeid(TableJoinDep)) {
        const auto& dependent = static_cast<const TableJoinDep*>(index)->d;
        return dependent->isLive() && dependent->isTouched(first, last);
    }
    return true;
}

bool MainFill::areAllDeaf() const
{
    const TablePrivate* t = TablePrivate::get(table);
    if (numbers.empty() || t->transactionState != 0 || t->limit || !t->master)
        return false;
    const std::type_info& type = typeid(*t->master);
    const bool isOurs =
        type == typeid(MasterIndex_Column_Pure) || type == typeid(MasterIndex_Fast_Pure);
    return isOurs && !IndexListPrivate::get(t->master)->isObserved() &&
           !t->master->isAffected(numbers.front(), numbers.back()) &&
           std::none_of(t->indexes.cbegin(), t->indexes.cend(),
                        [this](const Index* index) { return hears(index); });
}

void MainFill::clearAll()
{
    isClearing = true;
}

bool MainFill::hasKeyOf(const Record& row) const
{
    return !content.isNull() && keyOrder.compare(row.row(), content.row()) == 0;
}

// The contents for a key: from each dependent the row that has it, or NULLs.
void MainFill::compute(const Record& keyRow)
{
    if (content.isNull() || isContentUsed) {
        content = Record(table);
        isContentUsed = false;
        if (content.isNull())
            throw std::bad_alloc();
    }
    known = Record();
    for (const int column : main->keyColumns)
        content.copy(keyRow, column, column);
    for (const auto& dep : main->deps) {
        if (only && only->shared != dep.data())
            continue;
        const Record source = !isClearing && dep->index && dep->index->d->isLive()
                                  ? dep->index->d->rowFor(keyRow, except)
                                  : Record();
        if (source.isNull())
            TableJoin::clearFields(content, dep->columns);
        else
            TableJoin::setFields(content, source, dep->columns);
    }
}

const Record& MainFill::contentFor(const Record& keyRow)
{
    if (!hasKeyOf(keyRow))
        compute(keyRow);
    return content;
}

// Whether joined cells of the row differ from the contents; notes which. Rows of one key mostly
// hold the same cells, so a row like the one before tells nothing new.
bool MainFill::findDifference(const Record& row)
{
    if (!known.isNull() && cells.isSame(row.row(), known.row()))
        return true;
    bool differs = false;
    for (size_t i = 0; i < numbers.size(); ++i) {
        if (LiveTable::isSameCell(row.row(), content.row(), defs[i]))
            continue;
        differs = true;
        firstChanged = std::min(firstChanged, numbers[i]);
        lastChanged = std::max(lastChanged, numbers[i]);
    }
    if (differs && isOneRun)
        known = row;
    return differs;
}

// Rows that are leaving the table would be brought back by an update that waits.
bool MainFill::isAmongLeaving(const Record& row)
{
    const TablePrivate* t = TablePrivate::get(table);
    if (t->isClearing || t->leavingRow == row.row())
        return true;
    if (!t->leavingRows)
        return false;
    if (!leaving) { // made once: the transaction does not change while it is told
        leaving.emplace(t->leavingRows->cbegin(), t->leavingRows->cend());
        for (const Record& comesBack : *t->comingRows)
            leaving->remove(comesBack);
    }
    return leaving->contains(row);
}

void MainFill::look(const Record& row)
{
    contentFor(row);
    take(row);
}

void MainFill::take(const Record& row)
{
    if (unheard) {
        if (!cells.isSame(row.row(), content.row()))
            cells.copy(row.row(), content.row());
        return;
    }
    if (!findDifference(row) || isLeaving(row))
        return;
    if (isOneRun) {
        updated.append(row);
        changed.append(content);
        isContentUsed = true;
        return;
    }
    // Between the joined columns lie others, whose cells are not the join's.
    RecordUpdater updater(pieces, row);
    for (const int column : numbers)
        updater.data(column) = content.data(column);
}

// Rows lie anywhere in memory, so those that are needed soon are asked for early.
template <typename Visit>
void MainFill::forEach(const IndexSort* index, KeyRun run, Visit visit) const
{
    constexpr int Ahead = 24;
    const size_t joined =
        numbers.empty() ? 0 : sizeof(LiveTable::RowHeader) + size_t(defs.front()->offset);
    const size_t bits =
        numbers.empty() ? 0 : sizeof(LiveTable::RowHeader) + size_t(defs.back()->nullByte);
    auto next = index->begin() + run.begin;
    auto ahead = next;
    const auto fetch = [&](int n) {
        for (int i = 0; i < n; ++i, ++ahead) {
            const unsigned char* row = (*ahead).row();
            if (!unheard)
                __builtin_prefetch(row - sizeof(quint64), 1);
            __builtin_prefetch(row + joined, 1);
            __builtin_prefetch(row + bits, 1);
        }
    };
    const int n = run.end - run.begin;
    fetch(std::min(n, Ahead));
    for (int i = 0; i < n; ++i, ++next) {
        if (i + Ahead < n)
            fetch(1);
        visit(*next);
    }
}

void MainFill::lookAt(const IndexSort* index, KeyRun run, bool isOneKey)
{
    if (run.begin >= run.end)
        return;
    if (!isOneKey) {
        forEach(index, run, [this](const Record& row) { look(row); });
        return;
    }
    if (!unheard) {
        updated.reserve(run.end - run.begin);
        changed.reserve(run.end - run.begin);
    }
    compute(index->at(run.begin));
    forEach(index, run, [this](const Record& row) { take(row); });
}

void MainFill::send()
{
    if (updated.isEmpty() && pieces.isEmpty())
        return;
    QList<Record> removed;
    const auto apply = [&] {
        try {
            if (!pieces.isEmpty())
                pieces.execute();
            else
                table->process(removed, updated, firstChanged, lastChanged, QList<Record>(),
                               changed);
        } catch (...) {
            main->isDamaged = true;
            throw;
        }
    };
    if (table->transactionState() != 0) { // it waits, and is checked again when its turn comes
        apply();
        return;
    }
    LiveTable::UpdateBracket bracket(table);
    {
        main->isOwn = true;
        const auto done = qScopeGuard([this] { main->isOwn = false; });
        apply();
    }
    bracket.end();
}

void MainFill::write(const Record& row)
{
    contentFor(row);
    if (isOneRun) {
        cells.copy(row.row(), content.row());
        return;
    }
    for (const int column : numbers)
        table->copyRowContent(row.row(), content.row(), column, column);
}
