// SPDX-License-Identifier: MIT
#include "join/tablejoin.h"

#include "base/icore.h"
#include "index/indexdependbase.h"
#include "index/masterindex.h"
#include "join/mainfill_p.h"
#include "table/table_p.h"

#include <QMap>

#include <algorithm>

/// The descriptions that the join indexes share, and where the indexes are to be attached.
class TableJoinPrivate
{
public:
    QPair<Table*, Index*> mainOnTable{nullptr, nullptr};
    QPair<IndexDependBase*, Index*> mainOnBase{nullptr, nullptr};
    QMap<Table*, Index*> depsOnTables;
    QMap<IndexDependBase*, Index*> depsOnBases;
    QSharedPointer<IndexJoinMain> main;
    TableJoinMain* mainIndex() const { return main ? main->index : nullptr; }
    QVector<QSharedPointer<IndexJoinDep>> deps;

    // Tables may die while they stand above.
    QMap<Table*, QPointer<Table>> alive;
    Table* living(Table* table) const { return alive.value(table); }
    TableJoinDep* depIndex(const Index* index) const;
    void bracket(Index* index, bool on);
};

// --- setup ---

namespace {

void checkKeys(const MasterIndex* main, const QList<MasterIndex*>& deps)
{
    if (!main || !main->table() || main->columns().isEmpty())
        throw QStringLiteral("Main table has no key columns.");
    for (const MasterIndex* dep : deps) {
        const Table* table = dep ? dep->table() : nullptr;
        if (!table)
            throw QStringLiteral("A dependent has no master index.");
        for (const QString& name : main->columnNames())
            if (table->columnIndex(name) < 0)
                throw QStringLiteral("Key column '%1' not found in dependent table '%2'.")
                    .arg(name, table->name());
    }
}

QString freeName(const QString& name, const Table* dependent, const QStringList& taken)
{
    const QString candidates[] = {name, name + QLatin1Char('_'),
                                  dependent->name() + QLatin1Char('_') + name};
    for (const QString& candidate : candidates)
        if (!taken.contains(candidate))
            return candidate;
    int number = 2;
    while (taken.contains(name + QString::number(number)))
        ++number;
    return name + QString::number(number);
}

/// A column that the main table is to get.
struct NewColumn
{
    int dependent;
    int from;
    TableColumnDef def;
};

// All columns to add, with the names they get. Throws before any of them is added.
QVector<NewColumn> plan(Table* main, const QList<MasterIndex*>& deps, const QStringList& columns)
{
    QStringList taken;
    for (int i = 0; i < main->columnCount(); ++i)
        taken.append(main->columnName(i));
    QVector<NewColumn> planned;
    for (int i = 0; i < deps.size(); ++i) {
        const Table* table = deps.at(i)->table();
        for (const QString& name : columns) {
            const int from = table->columnIndex(name);
            if (from < 0)
                continue;
            TableColumnDef def(main, *table->columnDef(from));
            def.name = freeName(name, table, taken);
            if (taken.contains(def.name, Qt::CaseInsensitive))
                throw QStringLiteral("Column '%1' already exists for table '%2'.")
                    .arg(def.name, main->name());
            taken.append(def.name);
            planned.append({i, from, def});
        }
    }
    return planned;
}

// Whether `table` is locked after `first`, on any path of joins.
bool isLockedAfter(const Table* table, const Table* first)
{
    const QVector<QPointer<Table>>& later = TablePrivate::get(first)->lockedAfter;
    return std::any_of(later.cbegin(), later.cend(), [&](const QPointer<Table>& next) {
        return next && (next == table || isLockedAfter(table, next));
    });
}

// A QSharedPointer that cannot be made for want of memory deletes nothing, and its create() is not
// safe then.
template <typename T>
QSharedPointer<T> makeShared()
{
    auto made = std::make_unique<T>();
    QSharedPointer<T> shared(made.get());
    static_cast<void>(made.release()); // it has gone to `shared`
    return shared;
}

QSharedPointer<IndexJoinDep> describe(const MasterIndex* main, Table* dependent)
{
    auto dep = makeShared<IndexJoinDep>();
    dep->table = dependent;
    for (const int column : main->columns()) {
        const int from = dependent->columnIndex(main->table()->columnName(column));
        dep->keyMapping.append(Col{column, from});
        dep->reverseKey.append(Col{from, column});
    }
    std::sort(dep->keyMapping.begin(), dep->keyMapping.end(), Col::lessThanByFrom);
    std::sort(dep->reverseKey.begin(), dep->reverseKey.end(), Col::lessThanByFrom);
    return dep;
}

} // namespace

TableJoin::TableJoin() = default;
TableJoin::~TableJoin() = default;

void TableJoin::setup(MasterIndex* main, const QList<MasterIndex*>& deps,
                      const QStringList& columns, bool registerWithHost, Index** mainIndex,
                      QList<Index*>* depIndexes)
{
    checkKeys(main, deps);
    Table* const table = main->table();
    const QVector<NewColumn> planned = plan(table, deps, columns);

    auto fresh = std::make_unique<TableJoinPrivate>();
    fresh->main = makeShared<IndexJoinMain>();
    fresh->main->table = table;
    fresh->main->keyColumns = main->columns().toVector();
    std::sort(fresh->main->keyColumns.begin(), fresh->main->keyColumns.end());
    for (const MasterIndex* dep : deps)
        fresh->deps.append(describe(main, const_cast<MasterIndex*>(dep)->table()));
    for (const NewColumn& column : planned) {
        const int to = table->columnCount();
        table->addColumn(column.def);
        fresh->deps[column.dependent]->columns.append(Col{to, column.from});
    }
    std::vector<std::unique_ptr<TableJoinDep>> indexes;
    for (const auto& dep : qAsConst(fresh->deps)) {
        std::sort(dep->columns.begin(), dep->columns.end(), Col::lessThanByFrom);
        indexes.push_back(std::make_unique<TableJoinDep>(dep.data()));
    }
    auto made = std::make_unique<TableJoinMain>(fresh->main.data(), fresh->deps);

    if (registerWithHost && ICore::instance())
        ICore::instance()->registerJoin(this);
    d = std::move(fresh);
    if (mainIndex)
        *mainIndex = made.release();
    if (depIndexes)
        for (auto& index : indexes)
            depIndexes->append(index.release());
}

// --- attachment ---

void TableJoin::setupIndex(Table* table, Index* index, bool isMain)
{
    if (!d)
        return;
    d->alive.insert(table, table);
    if (isMain) {
        d->mainOnTable = qMakePair(table, index);
        d->mainOnBase = {nullptr, nullptr};
    } else {
        d->depsOnTables.insert(table, index);
    }
}

void TableJoin::setupIndex(IndexDependBase* base, Index* index, bool isMain)
{
    if (!d)
        return;
    if (isMain) {
        d->mainOnBase = qMakePair(base, index);
        d->mainOnTable = {nullptr, nullptr};
    } else {
        d->depsOnBases.insert(base, index);
    }
}

// The index as one of this join's, null when it is another or has died.
TableJoinDep* TableJoinPrivate::depIndex(const Index* index) const
{
    for (const auto& dep : deps)
        if (dep->index && dep->index == index)
            return dep->index;
    return nullptr;
}

// Ties the main table's brackets and lock to the dependent's, or parts them.
void TableJoinPrivate::bracket(Index* index, bool on)
{
    TableJoinDep* dep = depIndex(index);
    Table* const dependent = dep ? dep->d->table.data() : nullptr;
    Table* const mainTable = dep && dep->d->main ? dep->d->main->d->table.data() : nullptr;
    if (!dependent)
        return;
    if (on)
        dependent->addDependentIndex(dep);
    else
        dependent->removeDependentIndex(dep);
    if (!on)
        dep->d->closeBracket();
    if (!mainTable || mainTable == dependent)
        return;
    QVector<QPointer<Table>>& later = TablePrivate::get(mainTable)->lockedAfter;
    if (!on)
        later.removeOne(dependent);
    else if (!isLockedAfter(mainTable, dependent)) // not in a circle
        later.append(dependent);
}

void TableJoin::connectIndexes()
{
    if (!d)
        return;
    if (Table* table = d->living(d->mainOnTable.first))
        table->addIndex(d->mainOnTable.second);
    else if (d->mainOnBase.first)
        d->mainOnBase.first->addDependentIndex(d->mainOnBase.second);
    for (auto it = d->depsOnTables.cbegin(); it != d->depsOnTables.cend(); ++it) {
        if (Table* table = d->living(it.key())) {
            table->addIndex(it.value());
            d->bracket(it.value(), true);
        }
    }
    for (auto it = d->depsOnBases.cbegin(); it != d->depsOnBases.cend(); ++it) {
        it.key()->addDependentIndex(it.value());
        d->bracket(it.value(), true);
    }
}

void TableJoin::disconnectIndexes()
{
    if (!d)
        return;
    if (Table* table = d->living(d->mainOnTable.first))
        table->removeIndex(d->mainOnTable.second);
    else if (d->mainOnBase.first)
        d->mainOnBase.first->removeDependentIndex(d->mainOnBase.second);
    for (auto it = d->depsOnTables.cbegin(); it != d->depsOnTables.cend(); ++it) {
        if (Table* table = d->living(it.key())) {
            table->removeIndex(it.value());
            d->bracket(it.value(), false);
        }
    }
    for (auto it = d->depsOnBases.cbegin(); it != d->depsOnBases.cend(); ++it) {
        it.key()->removeDependentIndex(it.value());
        d->bracket(it.value(), false);
    }
}

void TableJoin::build()
{
    if (!d || !d->mainIndex() || !table())
        return;
    LiveTable::UpdateBracket bracket(table());
    d->mainIndex()->build();
    bracket.end();
}

// --- asking ---

Table* TableJoin::table() const
{
    return d && d->mainIndex() ? d->mainIndex()->d->table.data() : nullptr;
}

Table* TableJoin::table(Index* index)
{
    if (auto* main = dynamic_cast<TableJoinMain*>(index))
        return main->d->table;
    if (auto* dep = dynamic_cast<TableJoinDep*>(index))
        return dep->d->table;
    return nullptr;
}

bool TableJoin::isJoinIndex(Index* index, bool* isDep)
{
    const QString name = index ? index->getClassName() : QString();
    const bool isDependent = name == QLatin1String("TableJoinDep");
    if (!isDependent && name != QLatin1String("TableJoinMain"))
        return false;
    if (isDep)
        *isDep = isDependent;
    return true;
}

int TableJoin::joinedColumn(const Table* dependent, const QString& name) const
{
    if (!d || !dependent)
        return -1;
    const int from = dependent->columnIndex(name);
    for (const auto& dep : qAsConst(d->deps))
        if (dep->table == dependent)
            for (const Col& col : qAsConst(dep->columns))
                if (col.from == from)
                    return col.to;
    return -1;
}

QList<MasterIndex*> TableJoin::typeToMaster(const QList<Table*>& tables)
{
    QList<MasterIndex*> masters;
    for (const Table* table : tables)
        masters.append(table ? table->masterIndex() : nullptr);
    return masters;
}

QList<MasterIndex*> TableJoin::typeToMaster(const QList<IndexDependBase*>& bases)
{
    QList<MasterIndex*> masters;
    for (const IndexDependBase* base : bases)
        masters.append(dynamic_cast<MasterIndex*>(base ? base->index() : nullptr));
    return masters;
}

// --- demand ---

void TableJoin::addDemandObserver(JoinDemand* observer)
{
    TableJoinMain* const main = d ? d->mainIndex() : nullptr;
    if (!main || !main->d->isLive())
        return;
    if (!main->d->demand) {
        main->d->demand = std::make_unique<JoinDemandKeys>(table(), main->d->keyColumns);
        main->d->demand->reset(main->d->rows.index());
    }
    main->d->demand->addObserver(observer);
}

void TableJoin::removeDemandObserver(JoinDemand* observer)
{
    TableJoinMain* const main = d ? d->mainIndex() : nullptr;
    if (main && main->d->demand)
        main->d->demand->removeObserver(observer);
}

const Table* TableJoin::demandedKeys() const
{
    const TableJoinMain* main = d ? d->mainIndex() : nullptr;
    return main && main->d->demand && main->d->demand->isObserved() ? main->d->demand->table()
                                                                    : nullptr;
}

// --- cells ---

void TableJoin::setFields(Record& to, const Record& from, const QVector<Col>& cols)
{
    for (const Col& col : cols) {
        Field cell = to.data(col.to);
        cell = from.data(col.from);
    }
}

void TableJoin::setFields(RecordUpdater& to, const Record& from, const QVector<Col>& cols)
{
    for (const Col& col : cols) {
        Field cell = to.data(col.to);
        cell = from.data(col.from);
    }
}

void TableJoin::clearFields(Record& r, const QVector<Col>& cols)
{
    for (const Col& col : cols) {
        Field cell = r.data(col.to);
        if (cell.type() != FieldType::Undefined)
            cell.setNull();
    }
}

void TableJoin::clearFields(RecordUpdater& r, const QVector<Col>& cols)
{
    for (const Col& col : cols)
        r.setNull(col.to);
}

// --- LiveJoin ---

LiveJoin::LiveJoin(Table* main, Table* dependent, const QStringList& columns)
    : LiveJoin(main, QList<Table*>{dependent}, columns)
{}

LiveJoin::LiveJoin(Table* main, const QList<Table*>& dependents, const QStringList& columns)
{
    QList<Table*> distinct;
    for (Table* table : dependents)
        if (!distinct.contains(table))
            distinct.append(table);
    for (const QString& name : columns)
        if (std::none_of(distinct.cbegin(), distinct.cend(), [&](const Table* table) {
                return table && table->columnIndex(name) >= 0;
            }))
            throw QStringLiteral("Column '%1' not found in any dependent table.").arg(name);
    Index* mainMade = nullptr;
    QList<Index*> depsMade;
    depIndexes.reserve(static_cast<size_t>(distinct.size())); // what is made must not be lost
    tables.setup(main ? main->masterIndex() : nullptr, TableJoin::typeToMaster(distinct), columns,
                 false, &mainMade, &depsMade);
    mainIndex.reset(mainMade);
    for (Index* index : qAsConst(depsMade))
        depIndexes.emplace_back(index);
    tables.setupIndex(main, mainMade, true);
    for (int i = 0; i < depsMade.size(); ++i)
        tables.setupIndex(distinct.at(i), depsMade.at(i), false);
    tables.connectIndexes();
    tables.build();
}

LiveJoin::~LiveJoin()
{
    tables.disconnectIndexes();
    auto* index = static_cast<TableJoinMain*>(mainIndex.get());
    try {
        index->makeNull();
    } catch (...) { // of an index of the main table; the rows are right
    }
}

int LiveJoin::column(const Table* dependent, const QString& name) const
{
    return tables.joinedColumn(dependent, name);
}
