// SPDX-License-Identifier: MIT
#include "modelworld.h"

#include "table/field.h"
#include "table/recordupdater.h"

#include <algorithm>
#include <numeric>

namespace Model {

namespace {

using RealFilter = std::function<bool(const Record&)>;

int compareFields(const QVector<SortColumn>& columns, const Record& a, const Record& b)
{
    for (const SortColumn& column : columns) {
        const int order = a.data(column.column).compare(b.data(column.column));
        if (order != 0)
            return column.order == SortColumn::Descending ? -order : order;
    }
    return 0;
}

// What a host would write.

class HostList : public IndexList
{
public:
    HostList(Table* table, RealFilter real, bool autoAttach = true)
        : IndexList(table, autoAttach)
        , accepts(std::move(real))
    {
        build();
    }
    bool filter(const Record& record) const override { return !accepts || accepts(record); }

private:
    const RealFilter accepts;
};

/// The keys of its rows are coarse, exact or of two words, or there are none.
class HostSort : public IndexSort
{
public:
    enum Keys
    {
        None,
        Coarse,
        Exact,
        TwoWords
    };

    HostSort(Table* table, const QVector<SortColumn>& order, RealFilter real, Keys kind,
             bool autoAttach = true)
        : IndexSort(table, autoAttach)
        , columns(order)
        , accepts(std::move(real))
        , keys(kind)
    {
        build();
    }
    int compare(const Record& a, const Record& b) const override
    {
        return compareFields(columns, a, b);
    }
    bool filter(const Record& record) const override { return !accepts || accepts(record); }
    int sortKeyWords() const override { return keys == TwoWords ? 2 : keys == None ? 0 : 1; }
    SortKey sortKey(const Record& record) const override
    {
        const bool isDescending = columns.first().order == SortColumn::Descending;
        const quint64 value = quint64(100 + record.data(0).toInteger() * (isDescending ? -1 : 1));
        if (keys == TwoWords)
            return {value / 3, value};
        return {keys == Coarse ? value / 2 : value, 0};
    }
    bool isSortKeyExact(SortKey) const override { return keys == Exact && columns.size() == 1; }

private:
    const QVector<SortColumn> columns;
    const RealFilter accepts;
    const Keys keys;
};

class HostVector : public IndexVector
{
public:
    HostVector(Table* table, const QVector<SortColumn>& order, RealFilter real)
        : IndexVector(table)
        , columns(order)
        , accepts(std::move(real))
    {
        build();
    }
    int compare(const Record& a, const Record& b) const override
    {
        return compareFields(columns, a, b);
    }
    bool filter(const Record& record) const override { return !accepts || accepts(record); }

private:
    const QVector<SortColumn> columns;
    const RealFilter accepts;
};

class HostLimit : public IndexLimit
{
public:
    HostLimit(int limit, Table* table, const QVector<SortColumn>& order)
        : IndexLimit(limit, table)
        , columns(order)
    {
        build();
    }
    int compare(const Record& a, const Record& b) const override
    {
        return compareFields(columns, a, b);
    }

private:
    const QVector<SortColumn> columns;
};

class HostMaster : public MasterIndex
{
public:
    HostMaster(Table* table, const QVector<SortColumn>& order, const QList<int>& keys)
        : MasterIndex(table, keys)
        , columns(order)
    {}
    int compare(const Record& a, const Record& b) const override
    {
        return compareFields(columns, a, b);
    }
    QString toText(const Record& record) const override
    {
        return record.isNull() ? QString() : record.data(0).toString();
    }
    Record fromText(const QString& text) const override
    {
        Record record(table());
        record.data(0) = text;
        return record;
    }

private:
    const QVector<SortColumn> columns;
};

/// Lets indexes depend on it instead of on the table.
class Relay : public Index
{
public:
    explicit Relay(IndexDependBase& target)
        : base(target)
    {}
    void clear() override { base.clear(); }
    void build() override { base.build(); }
    void add(const Record& record) override { base.add(record); }
    void preprocess(const QList<Record>& removed, const QList<Record>& updated, int first, int last,
                    const QList<Record>& inserted, const QList<Record>& changes) override
    {
        base.preprocess(removed, updated, first, last, inserted, changes);
    }
    void process(const QList<Record>& removed, const QList<Record>& updated, int first, int last,
                 const QList<Record>& inserted) override
    {
        base.process(removed, updated, first, last, inserted);
    }
    void remove(const Record& record, int position) override { base.remove(record, position); }
    void update(const Record& record, int first, int last, int position) override
    {
        base.update(record, first, last, position);
    }
    bool filter(const Record&) const override { return true; }
    bool contains(const Record&) const override { return false; }
    QString getClassName() const override { return QStringLiteral("Relay"); }

private:
    IndexDependBase& base;
};

bool acceptsAll(const Row&)
{
    return true;
}

} // namespace

// --- what is told ---

void Recorder::add(const Record& record)
{
    Row* row = world.adopt(record);
    row->inTable = true;
    world.told([&](View& view) {
        if (view.filter(*row))
            view.add(row);
    });
}

void Recorder::remove(const Record& record, int)
{
    Row* row = world.rowOf(record);
    row->inTable = false;
    world.told([&](View& view) { view.remove(row); });
}

void Recorder::update(const Record& record, int, int, int)
{
    Row* row = world.rowOf(record);
    world.told([&](View& view) { view.update(row); });
}

void Recorder::preprocess(const QList<Record>& removed, const QList<Record>& updated, int first,
                          int last, const QList<Record>& inserted, const QList<Record>& changes)
{
    announced = {removed, updated, inserted, first, last};
    world.beginPass(removed, updated, first, last, inserted, changes);
}

void Recorder::process(const QList<Record>& removed, const QList<Record>& updated, int first,
                       int last, const QList<Record>& inserted)
{
    world.check(removed == announced.removed && updated == announced.updated &&
                    inserted == announced.inserted && first == announced.first &&
                    last == announced.last,
                "process is told something else than preprocess");
    announced = {};
    world.endPass(removed, updated, inserted);
}

// `isSettled`: the indexes before this one have followed the change.
void Raiser::raise(bool isSettled)
{
    if (world.raisesLeft > 0 && world.chance(3)) {
        --world.raisesLeft;
        if (isSettled && world.table->indexes().last() == this && world.chance(4))
            world.raiseInPlace();
        else
            world.raise();
    }
}

// --- building the world ---

World::World(quint32 seed, Size worldSize)
    : random(seed)
    , size(worldSize)
    , table(std::make_unique<Table>(QStringLiteral("model")))
{
    const int domains[] = {2, 3, 8};
    domain = domains[pick(3)];
    addColumns();
    makeMaster();
    recorder = keep(std::make_unique<Recorder>(*this));
    table->addIndex(recorder);
    table->addDependentIndex(recorder);
    const bool filledFirst = chance(2);
    if (!filledFirst)
        makeViews();
    QList<Record> first;
    const int counts[] = {pick(16), 400 + pick(1500), 9000 + pick(9000)};
    Transaction insertion;
    for (int i = 0; i < counts[size]; ++i) {
        Row* row = newRow();
        first.append(row->record);
        insertion.operations.push_back({row, Transaction::Insert, {}});
    }
    expect(insertion);
    table->appendList(first);
    if (filledFirst)
        makeViews();
    checkAll();
}

World::~World()
{
    if (table)
        end();
}

void World::addColumns()
{
    const auto add = [this](const char* name, FieldType::Type type, int length, bool nullable) {
        table->addColumn(QLatin1String(name), type, length, nullable);
        columns.append({type, length, nullable});
    };
    add("id", FieldType::Integer, 0, false);
    add("price", FieldType::Decimal, 2, true);
    add("volume", FieldType::Integer64, 0, true);
    add("symbol", FieldType::VarChar, 6, true);
    add("ratio", FieldType::Double, 0, true);
    add("time", FieldType::DateTime, 0, true);
}

Compare World::compareBy(const QVector<SortColumn>& order) const
{
    return [order](const Row& a, const Row& b) {
        for (const SortColumn& column : order) {
            const int left = a.codes.at(column.column);
            const int right = b.codes.at(column.column);
            if (left == right)
                continue;
            if (left == 0 || right == 0)
                return ((left == 0) == (column.nulls == SortColumn::NullsFirst)) ? -1 : 1;
            return (left < right) == (column.order == SortColumn::Ascending) ? -1 : 1;
        }
        return 0;
    };
}

// A host that turns Field::compare around turns the NULLs with it.
QVector<SortColumn> World::randomOrder(bool hostStyle)
{
    QVector<SortColumn> order;
    for (int n = 1 + pick(3); n > 0; --n) {
        SortColumn column{order.isEmpty() && chance(3) ? 0 : pick(columns.size())};
        column.order = chance(2) ? SortColumn::Ascending : SortColumn::Descending;
        const bool last = hostStyle ? column.order == SortColumn::Descending : chance(2);
        column.nulls = last ? SortColumn::NullsLast : SortColumn::NullsFirst;
        order.append(column);
    }
    return order;
}

// One or two columns have to be below a bound. `read` are the columns that decide.
Filter World::makeFilter(RealFilter* real, QVector<int>* read)
{
    if (chance(3))
        return acceptsAll;
    struct Condition
    {
        int column;
        int bound;
        Column definition;
    };
    QVector<Condition> conditions;
    for (int n = 1 + pick(2); n > 0; --n) {
        const int column = pick(columns.size());
        conditions.append({column, zeroCode - domain / 2 + 1 + pick(domain), columns.at(column)});
        if (read)
            read->append(column);
    }
    *real = [conditions](const Record& record) {
        return std::all_of(conditions.begin(), conditions.end(), [&](const Condition& condition) {
            const Field cell = record.data(condition.column);
            return !cell.isNull() && cellBelow(cell, condition.definition, condition.bound);
        });
    };
    return [conditions](const Row& row) {
        return std::all_of(conditions.begin(), conditions.end(), [&](const Condition& condition) {
            const int code = row.codes.at(condition.column);
            return code != 0 && code < condition.bound;
        });
    };
}

void World::makeMaster()
{
    MasterIndex* real = nullptr;
    switch (pick(6)) {
    case 0:
    case 1:
        real = table->masterIndex();
        break;
    case 2: {
        const QStringList names = {QStringLiteral("symbol"), QStringLiteral("id")};
        real = new MasterIndex_Column_Pure(table.get(), names);
        masterCompare = compareBy({{3}, {0}});
        break;
    }
    case 3:
        real = new MasterIndex_Column_Pure(table.get(), QStringLiteral("price"));
        masterCompare = compareBy({{1}});
        break;
    case 4:
        real = new MasterIndex_Fast_Pure(table.get(), QList<int>{0});
        // By the bytes of the value, the lowest first.
        masterCompare = [](const Row& a, const Row& b) {
            const auto bytes = [](const Row& row) {
                const quint32 value = quint32(row.codes.at(0) - zeroCode);
                return value << 24 | (value & 0xFF00) << 8 | (value >> 8 & 0xFF00) | value >> 24;
            };
            return bytes(a) < bytes(b) ? -1 : bytes(a) > bytes(b) ? 1 : 0;
        };
        break;
    default: {
        const QVector<SortColumn> order = {{0, SortColumn::Descending, SortColumn::NullsLast}};
        real = new HostMaster(table.get(), order, {0});
        masterCompare = compareBy(order);
    }
    }
    table->setMasterIndex(real);
    master = addSorted(QStringLiteral("master"), real, real, acceptsAll, masterCompare);
}

void World::addListView(IndexList* list, const QString& name, Filter filter)
{
    const auto read = [=] {
        Rows actual;
        for (const Record& record : *list)
            actual.append(rowOf(record));
        checkPartitions(*list, name, findings);
        return actual;
    };
    views.push_back(std::make_unique<ExactView>(name, list, std::move(filter), nullptr, read));
    views.back()->reset(masterOrder());
    if (chance(2))
        views.back()->mirror = std::make_unique<Mirror>(name, list, &findings);
}

SortedModel* World::addSorted(const QString& name, IndexSort* index, Index* notified, Filter filter,
                              Compare compare)
{
    auto model =
        std::make_unique<SortedModel>(name, index, notified, std::move(filter), std::move(compare),
                                      [this](const Record& r) { return rowOf(r); });
    SortedModel* pointer = model.get();
    views.push_back(std::move(model));
    sorted.append(pointer);
    pointer->reset(masterOrder());
    if (chance(2))
        pointer->mirror = std::make_unique<Mirror>(name, index, &findings);
    return pointer;
}

void World::makeViews()
{
    Table* const t = table.get();
    const auto wanted = [this] { return size == Small ? !chance(4) : chance(2); };
    if (wanted()) {
        RealFilter real;
        const Filter filter = makeFilter(&real, nullptr);
        addListView(keep(std::make_unique<HostList>(t, real)), QStringLiteral("list"), filter);
    }
    for (int i = 0; i < 2 && wanted(); ++i) {
        RealFilter real;
        const Filter filter = makeFilter(&real, nullptr);
        const QVector<SortColumn> order = randomOrder(true);
        const auto keys = order.first().column == 0 ? HostSort::Keys(pick(4)) : HostSort::None;
        auto* view = keep(std::make_unique<HostSort>(t, order, real, keys));
        addSorted(QStringLiteral("host's sorted view %1").arg(i), view, view, filter,
                  compareBy(order));
    }
    for (int i = 0; i < 3 && wanted(); ++i) {
        const QVector<SortColumn> order = randomOrder(false);
        auto* view = keep(std::make_unique<SortedView>(t, order));
        RealFilter real;
        QVector<int> read;
        const Filter filter = makeFilter(&real, chance(2) ? &read : nullptr);
        if (real)
            view->setFilter(real, read);
        addSorted(QStringLiteral("sorted view %1").arg(i), view, view, filter, compareBy(order));
    }
    if (wanted()) {
        Raiser* raiser = keep(std::make_unique<Raiser>(*this));
        t->addIndex(raiser);
    }
    if (wanted()) {
        RealFilter real;
        const Filter filter = makeFilter(&real, nullptr);
        const QVector<SortColumn> order = randomOrder(true);
        auto* vector = keep(std::make_unique<HostVector>(t, order, real));
        views.push_back(std::make_unique<ExactView>(
            QStringLiteral("vector"), vector, filter, compareBy(order), [=] {
                Rows actual;
                for (const Record& record : vector->records())
                    actual.append(rowOf(record));
                return actual;
            }));
        views.back()->reset(masterOrder());
    }
    if (wanted()) {
        auto* watch = keep(std::make_unique<WatchIndex>(t));
        views.push_back(std::make_unique<WatchModel>(QStringLiteral("watch"), watch,
                                                     [this](const Record& r) { return rowOf(r); }));
    }
    if (wanted()) {
        bases.push_back(std::make_unique<IndexDependBase>());
        IndexDependBase& base = *bases.back();
        t->addIndex(keep(std::make_unique<Relay>(base)));
        auto* list = keep(std::make_unique<IndexList>(t, false));
        const QVector<SortColumn> hostOrder = randomOrder(true);
        auto* host = keep(std::make_unique<HostSort>(t, hostOrder, nullptr, HostSort::None, false));
        const QVector<SortColumn> order = randomOrder(false);
        auto* view = keep(std::make_unique<SortedView>(t, order, false));
        for (Index* dependent : std::initializer_list<Index*>{list, host, view})
            base.addDependentIndex(dependent);
        list->build();
        addListView(list, QStringLiteral("dependent list"), acceptsAll);
        addSorted(QStringLiteral("dependent host's view"), host, nullptr, acceptsAll,
                  compareBy(hostOrder));
        addSorted(QStringLiteral("dependent sorted view"), view, nullptr, acceptsAll,
                  compareBy(order));
    }
    if (chance(4)) {
        limit = size == Small ? 1 + pick(15) : 300 + pick(12000);
        const bool isReady = chance(2);
        const QVector<SortColumn> order = randomOrder(!isReady);
        IndexLimit* index = nullptr;
        if (isReady)
            index = keep(std::make_unique<SortedLimit>(limit, t, order));
        else
            index = keep(std::make_unique<HostLimit>(limit, t, order));
        limited = addSorted(QStringLiteral("limit"), index, nullptr, acceptsAll, compareBy(order));
    }
}

// --- rows ---

int World::randomCode(int column)
{
    if (columns.at(column).nullable && chance(5))
        return 0;
    return zeroCode - domain / 2 + (domain == 8 ? 1 : 0) + pick(domain);
}

Row* World::adopt(const Record& record)
{
    const auto found = byAddress.find(record.row());
    if (found != byAddress.end())
        return found->second;
    rows.push_back(std::make_unique<Row>());
    Row* row = rows.back().get();
    row->record = record;
    row->id = ++lastId;
    for (const Column& column : qAsConst(columns))
        row->codes.append(column.nullable ? 0 : zeroCode);
    byAddress.emplace(record.row(), row);
    return row;
}

Row* World::newRow()
{
    Row* row = adopt(Record(table.get()));
    write(row, randomCells(0, columns.size() - 1));
    return row;
}

Row* World::rowOf(const Record& record)
{
    const auto found = byAddress.find(record.row());
    if (found != byAddress.end())
        return found->second;
    check(false, "a row that nobody made");
    return adopt(record);
}

// One that is in the table, or not, if a few tries find it; null if there is no row at all.
Row* World::anyRow(bool inTable)
{
    Row* row = nullptr;
    for (int tries = 0; tries < 8 && !rows.empty(); ++tries) {
        row = rows[std::size_t(pick(int(rows.size())))].get();
        if (row->inTable == inTable)
            break;
    }
    return row;
}

Cells World::randomCells(int first, int last)
{
    Cells cells;
    for (int column = first; column <= last; ++column)
        cells.insert(column, randomCode(column));
    return cells;
}

void World::write(Row* row, const Cells& cells)
{
    for (auto it = cells.cbegin(); it != cells.cend(); ++it) {
        setCell(row->record.data(it.key()), columns.at(it.key()), it.value(), unsigned(random()));
        row->codes[it.key()] = it.value();
    }
}

// A copy of the row with new cells, and with others that must not be taken over.
Record World::contentFor(const Row& row, const Cells& cells)
{
    const Record content = row.record.clone();
    for (int column = 0; column < columns.size(); ++column)
        setCell(content.data(column), columns.at(column), cells.value(column, randomCode(column)),
                unsigned(random()));
    return content;
}

Rows World::toRows(const QList<Record>& records)
{
    Rows result;
    for (const Record& record : records)
        result.append(rowOf(record));
    return result;
}

Rows World::masterOrder()
{
    Rows order;
    for (const Record& record : *table->masterIndex())
        order.append(rowOf(record));
    return order;
}

// --- what is done ---

// While the table is busy, what is handed to it joins what waits.
void World::expect(const Transaction& transaction)
{
    trace("  transaction%s", qPrintable(transaction.toString()));
    if (table->transactionState() != 0) {
        pending.merge(transaction);
    } else {
        current = transaction;
        isCurrent = true;
    }
}

Transaction World::fill(RecordsTrans& real)
{
    Transaction model;
    const int scale[] = {5, 120, 600};
    const int operations = 1 + pick(scale[size]);
    for (int i = 0; i < operations; ++i) {
        const bool isFull = table->rowCount() > (size == Small ? 14 : 20000);
        const int choice = pick(12);
        Row* row = anyRow(!chance(20));
        if (!row || (choice < 3 && !isFull)) {
            row = chance(20) && row ? row : newRow();
            real.insert(row->record);
            model.insert(row);
        } else if (choice < (isFull ? 6 : 5)) {
            real.remove(row->record);
            model.remove(row);
        } else if (choice < 9) {
            const int first = pick(columns.size());
            const int last = first + pick(columns.size() - first);
            const Cells cells = randomCells(first, last);
            const bool isAll = first == 0 && last == columns.size() - 1;
            real.update(row->record, contentFor(*row, cells), isAll ? -1 : first,
                        isAll ? -1 : last);
            model.update(row, cells);
        } else {
            Cells cells;
            RecordUpdater updater(real, row->record);
            for (int n = 1 + pick(3); n > 0; --n) {
                const int column = pick(columns.size());
                const int code = randomCode(column);
                if (cells.contains(column))
                    continue;
                if (code == model.code(row, column)) { // no change, so not to be told
                    updater.data(column) = updater.constData(column);
                    continue;
                }
                cells.insert(column, code);
                if (code == 0 && chance(2))
                    updater.setNull(column);
                else
                    setCell(updater.data(column), columns.at(column), code, unsigned(random()));
            }
            const int before = real.operation(row->record);
            updater.commit();
            if (!cells.isEmpty())
                model.update(row, cells);
            else
                check(real.operation(row->record) == before, "an update without a change");
        }
    }
    return model;
}

void World::transact()
{
    RecordsTrans real(chance(2) ? table.get() : nullptr);
    Transaction model = fill(real);
    if (chance(5)) {
        RecordsTrans second(table.get());
        model.merge(fill(second));
        real.merge(second);
    }
    for (const Transaction::Operation& operation : model.operations)
        check(real.operation(operation.row->record) == operation.kind, "operation of a row");
    expect(model);
    if (chance(2))
        real.execute();
    else
        table->process(real);
    check(real.isEmpty(), "a transaction is not empty after its execution");
}

void World::transactByLists()
{
    Transaction model;
    QList<Record> removed;
    QList<Record> updated;
    QList<Record> changed;
    QList<Record> inserted;
    int first = pick(columns.size());
    int last = first + pick(columns.size() - first);
    QSet<Row*> used;
    const bool isIdle = table->transactionState() == 0;
    const int scale[] = {3, 60, 300};
    for (int n = pick(scale[size]); n > 0; --n) {
        Row* row = anyRow(!chance(10));
        if (!row || used.contains(row))
            continue;
        used.insert(row);
        removed.append(row->record);
        model.remove(row);
    }
    const auto update = [&](Row* row) {
        used.insert(row);
        const Cells cells = randomCells(first, last);
        updated.append(row->record);
        changed.append(contentFor(*row, cells));
        model.update(row, cells);
    };
    for (int n = pick(scale[size] + 1); n > 0; --n) {
        Row* row = anyRow(true);
        // Clashes of the lists: updated and removed, updated twice.
        if (row && (!used.contains(row) || (isIdle && chance(4))))
            update(row);
    }
    for (int n = pick(scale[size]); n > 0 && table->rowCount() < 20000; --n) {
        Row* row = newRow();
        inserted.append(row->record);
        if (isIdle && chance(10)) // an update of a row that is not there brings it in as well
            update(row);
        else
            model.insert(row);
        if (isIdle && chance(10))
            inserted.append(row->record);
    }
    if (isIdle && chance(5)) { // told as updated, but without new content
        Row* row = anyRow(true);
        if (row && row->inTable && !used.contains(row)) {
            updated.append(row->record);
            model.update(row, {});
        }
    }
    if (first == 0 && last == columns.size() - 1)
        first = last = -1;
    expect(model);
    table->process(removed, updated, first, last, inserted, changed);
}

void World::singleRow()
{
    const bool isIdle = table->transactionState() == 0;
    switch (pick(8)) {
    case 0:
    case 1: {
        const Record record = table->appendRow();
        if (isIdle)
            rowOf(record); // the recorder has been told of it
        else
            pending.insert(adopt(record));
        break;
    }
    case 2:
    case 3: {
        Row* row = newRow();
        if (!isIdle)
            pending.insert(row);
        check(table->appendRow(row->record.row()) == row->record, "appendRow of a given row");
        break;
    }
    case 4:
        if (chance(10)) {
            for (const auto& row : rows) {
                if (row->inTable && !isIdle)
                    pending.remove(row.get());
            }
            table->clear();
            if (isIdle) {
                for (const auto& row : rows)
                    row->inTable = false;
                told([](View& view) { view.reset({}); });
            }
        }
        break;
    default:
        Row* row = anyRow(!chance(20));
        if (!row)
            break;
        const int positions[] = {-1, master->rows().indexOf(row), pick(20)};
        if (!isIdle)
            pending.remove(row);
        trace("  remove %d", row->id);
        table->remove(row->record, positions[pick(3)]);
    }
}

void World::updateInPlace()
{
    Row* row = anyRow(true);
    if (!row || !row->inTable)
        return;
    const int first = pick(columns.size());
    const int last = first + pick(columns.size() - first);
    write(row, randomCells(first, last));
    const int position = master->rows().indexOf(row);
    if (chance(3))
        table->updatedRow(position);
    else
        table->updated(row->record, first, last, chance(2) ? -1 : position);
}

// From inside a notification, when all other indexes have been told of it.
void World::raiseInPlace()
{
    Row* row = anyRow(true);
    if (!row || !row->inTable)
        return;
    if (!isUntold)
        checkViews();
    isUntold = true;
    const int first = pick(columns.size());
    const int last = first + pick(columns.size() - first);
    const Cells cells = randomCells(first, last);
    write(row, cells);
    trace("  raised in place: %d", row->id);
    pending.update(row, cells);
    table->updated(row->record, first, last);
}

// Cells are changed without a word; the transaction that then names the rows puts all right.
void World::changeUntold()
{
    Transaction model;
    RecordsTrans real(table.get());
    for (int n = 1 + pick(3); n > 0; --n) {
        Row* row = anyRow(true);
        if (!row || !row->inTable || model.find(row))
            continue;
        for (int column = 1 + pick(2); column < columns.size(); column += 1 + pick(5)) {
            table->setNull(master->rows().indexOf(row), column);
            row->codes[column] = 0;
        }
        isUntold = true;
        if (chance(2)) {
            real.remove(row->record);
            model.remove(row);
        } else {
            const int column = pick(columns.size());
            const Cells cells = randomCells(column, column);
            real.update(row->record, contentFor(*row, cells), column, column);
            model.update(row, cells);
        }
    }
    if (chance(2)) {
        Row* row = newRow();
        real.insert(row->record);
        model.insert(row);
    }
    expect(model);
    table->process(real);
}

void World::rebuildSome()
{
    if (chance(4)) {
        for (const auto& view : views) {
            if (view->index && view->isAttached && view.get() != master)
                view->index->clear();
        }
        for (const auto& base : bases)
            base->clear();
        if (limited)
            const_cast<IndexSort*>(limited->sorted)->clear();
        table->build();
        told([this](View& view) {
            if (&view != master)
                view.reset(masterOrder());
        });
        return;
    }
    SortedModel* model = sorted.at(pick(sorted.size()));
    if (chance(2) && model->isAttached) {
        const_cast<IndexSort*>(model->sorted)->resort(); // changes nothing
        return;
    }
    View& view = *views[std::size_t(pick(int(views.size())))];
    if (&view != master && view.index && view.isAttached) {
        view.index->rebuild();
        view.reset(masterOrder());
    }
}

void World::attachOrDetach()
{
    View& view = *views[std::size_t(pick(int(views.size())))];
    if (&view == master || !view.index || !table->indexes().contains(view.index) == view.isAttached)
        return;
    view.isAttached = !view.isAttached;
    if (view.isAttached) {
        table->addIndex(view.index);
        view.index->rebuild();
        view.reset(masterOrder());
    } else {
        table->removeIndex(view.index);
    }
}

void World::addColumn()
{
    const QString name = QStringLiteral("added%1").arg(columns.size());
    if (table->transactionState() != 0) {
        QString message;
        try {
            table->addColumn(name, FieldType::Integer);
        } catch (const QString& text) {
            message = text;
        }
        check(!message.isEmpty() && table->columnCount() == columns.size(),
              "addColumn inside a notification");
        return;
    }
    if (columns.size() > 9)
        return;
    // All rows move: the model lets go of them and finds them by their places again.
    const Rows order = masterOrder();
    for (const auto& row : rows)
        row->record = Record();
    rows.erase(
        std::remove_if(rows.begin(), rows.end(), [](const auto& row) { return !row->inTable; }),
        rows.end());
    byAddress.clear();
    const bool nullable = chance(2);
    table->addColumn(name, FieldType::Integer, 0, nullable);
    columns.append({FieldType::Integer, 0, nullable});
    for (int i = 0; i < order.size(); ++i) {
        order[i]->record = table->at(i);
        order[i]->codes.append(0);
        byAddress.emplace(order[i]->record.row(), order[i]);
    }
    told([this](View& view) { view.reset(masterOrder()); });
}

void World::bracket()
{
    if (depth > 0 && (depth > 2 || chance(2))) {
        table->endUpdate();
        --depth;
    } else {
        table->beginUpdate();
        ++depth;
    }
}

void World::raise()
{
    trace("  raised in state %d", table->transactionState());
    switch (pick(8)) {
    case 0:
        transactByLists();
        break;
    case 1:
    case 2:
        singleRow();
        break;
    case 3:
        addColumn();
        break;
    case 4:
        if (table->transactionState() == 1) { // between the announcement and the change
            SortedModel* view = sorted.at(pick(sorted.size()));
            const_cast<IndexSort*>(view->sorted)->resort();
            break;
        }
        Q_FALLTHROUGH();
    default:
        transact();
    }
}

void World::step()
{
    ++steps;
    trace("step %d", steps);
    raisesLeft = chance(3) ? 3 : 0;
    const int choice = pick(40);
    if (choice < 18)
        transact();
    else if (choice < 24)
        transactByLists();
    else if (choice < 30)
        singleRow();
    else if (choice < 34)
        updateInPlace();
    else if (choice == 34)
        changeUntold();
    else if (choice == 35)
        rebuildSome();
    else if (choice == 36)
        attachOrDetach();
    else if (choice == 37 && chance(4))
        addColumn();
    else
        bracket();
    checkAll();

    if (rows.size() > 150 && size == Small) { // forget what has left the table
        for (const auto& view : views) {
            if (auto* watch = dynamic_cast<WatchModel*>(view.get())) {
                watch->index->clear();
                watch->reset({});
            }
        }
        rows.erase(std::remove_if(rows.begin(), rows.end(),
                                  [this](const auto& row) {
                                      if (!row->inTable)
                                          byAddress.erase(row->record.row());
                                      return !row->inTable;
                                  }),
                   rows.end());
    }
}

// --- what is checked ---

void World::beginPass(const QList<Record>& removedRecords, const QList<Record>& updatedRecords,
                      int first, int last, const QList<Record>& insertedRecords,
                      const QList<Record>& changes)
{
    if (!isUntold)
        checkViews();
    isUntold = false;
    check(table->transactionState() == 1, "state before the rows change");
    running = isCurrent ? current : pending;
    trace("  pass%s", qPrintable(running.toString()));
    (isCurrent ? current : pending).operations.clear();
    isCurrent = false;

    const Rows removed = toRows(removedRecords);
    const Rows updated = toRows(updatedRecords);
    for (const Row* row : updated)
        checkCells(*row); // they still hold their old values
    QSet<Row*> asked;
    for (const Transaction::Operation& operation : running.operations) {
        if (operation.kind != Transaction::Update)
            asked.insert(operation.row);
    }
    if (isTraced) {
        QString text;
        for (const Rows& list : {removed, updated, toRows(insertedRecords)}) {
            for (Row* row : list)
                text += QStringLiteral(" %1%2").arg(row->id).arg(
                    QLatin1String(row->inTable ? "" : "!"));
            text += QLatin1String(" |");
        }
        trace("    told%s", qPrintable(text));
    }
    extraRemovals.clear();
    for (Row* row : removed) {
        if (!asked.contains(row) && row->inTable)
            extraRemovals.insert(row);
    }
    if (limited)
        checkLimit(removed, updated, toRows(insertedRecords), asked);
    else
        check(extraRemovals.isEmpty(), "a removal that nobody asked for");

    first = std::max(first, 0);
    last = last < 0 ? columns.size() - 1 : last;
    for (int i = 0; i < std::min(changes.size(), updated.size()); ++i) {
        if (updated.lastIndexOf(updated[i]) != i || removed.contains(updated[i]))
            continue; // a later content, or none, counts
        for (int column = first; column <= last; ++column)
            check(cellIs(changes.at(i).data(column), columns.at(column),
                         running.code(updated[i], column)),
                  "content that is going to be copied");
    }
}

// The records that must leave, by the rule for limits: the lowest of the limit's order, as many as
// are too many; those that are named in the transaction already are counted but not named again.
void World::checkLimit(const Rows& removed, const Rows& updated, const Rows& inserted,
                       const QSet<Row*>& asked)
{
    Rows named;
    std::copy_if(removed.begin(), removed.end(), std::back_inserter(named),
                 [&](Row* row) { return asked.contains(row); });
    const int excess = inserted.size() - named.size() + limited->rows().size() - limit;
    const auto holds = [&](const Rows& list, Row* row) {
        return std::any_of(list.begin(), list.end(), [&](const Row* other) {
            return masterCompare ? masterCompare(*other, *row) == 0 : other == row;
        });
    };
    QSet<Row*> expected;
    for (int i = 0; i < excess && i < limited->rows().size(); ++i) {
        Row* row = limited->rows().at(i);
        if (holds(named, row) || holds(updated, row))
            continue;
        named.append(row);
        expected.insert(row);
    }
    check(expected == extraRemovals, "what the limit removes");
}

void World::endPass(const QList<Record>& removedRecords, const QList<Record>& updatedRecords,
                    const QList<Record>& insertedRecords)
{
    check(table->transactionState() == 2, "state after the rows have changed");
    const Rows removed = toRows(removedRecords);
    const Rows updated = toRows(updatedRecords);
    const Rows inserted = toRows(insertedRecords);
    const QSet<Row*> removedRows(removed.begin(), removed.end());
    const QSet<Row*> updatedRows(updated.begin(), updated.end());
    const QSet<Row*> insertedRows(inserted.begin(), inserted.end());
    check(insertedRows.size() == inserted.size(), "a row inserted twice");
    for (Row* row : inserted)
        check(!row->inTable || removedRows.contains(row), "a row inserted that is there already");

    for (Row* row : qAsConst(extraRemovals))
        row->inTable = false;
    for (const Transaction::Operation& operation : running.operations) {
        Row* row = operation.row;
        const bool wasInTable = row->inTable;
        row->inTable = operation.kind != Transaction::Remove;
        if (wasInTable && !row->inTable)
            check(removedRows.contains(row), "a removal is not told");
        if (!wasInTable && row->inTable)
            check(insertedRows.contains(row) || updatedRows.contains(row),
                  "an insertion is not told");
        for (auto it = operation.cells.cbegin(); it != operation.cells.cend(); ++it) {
            if (row->codes.at(it.key()) != it.value())
                check(updatedRows.contains(row) || insertedRows.contains(row),
                      "an update is not told");
            row->codes[it.key()] = it.value();
        }
    }
    running.operations.clear();
    // Whether a row that goes takes its new content along is left open.
    for (Row* row : updatedRows) {
        for (int column = 0; removedRows.contains(row) && column < columns.size(); ++column) {
            int& code = row->codes[column];
            for (int other = 0; other < codeCount; ++other) {
                if (cellIs(row->record.data(column), columns.at(column), other))
                    code = other;
            }
        }
    }
    told([&](View& view) { view.process(removed, updated, inserted); });
    updatedSince = updatedRows;
}

void World::told(const std::function<void(View&)>& notify)
{
    for (const auto& view : views) {
        if (view->isAttached)
            notify(*view);
    }
}

void World::checkViews()
{
    if (!findings.isEmpty())
        return;
    for (const auto& view : views) {
        if (view->isAttached)
            view->check(findings);
    }
    for (const auto& view : views) {
        if (!view->mirror)
            continue;
        view->mirror->check();
        for (Row* row : qAsConst(updatedSince))
            check(!view->isAttached || !view->mirror->holds(row->record) ||
                      view->mirror->told.contains(row->record.row()),
                  "an update that the observers were not told");
        view->mirror->told.clear();
    }
    updatedSince.clear();
}

void World::checkCells(const Row& row)
{
    for (int column = 0; column < columns.size(); ++column)
        check(cellIs(row.record.data(column), columns.at(column), row.codes.at(column)), "a cell");
}

void World::checkRows()
{
    if (size != Small && !chance(8))
        return;
    int count = 0;
    for (const auto& row : rows) {
        count += row->inTable;
        checkCells(*row);
    }
    check(table->rowCount() == count, "the number of rows");
    check(table->masterIndex()->count() == count, "the rows of the master index");
}

void World::checkAll()
{
    if (!findings.isEmpty())
        return;
    check(!isCurrent || current.operations.empty(), "a transaction was not applied");
    check(pending.operations.empty(), "a raised transaction was not applied");
    isCurrent = false;
    check(table->transactionState() == 0, "idle");
    check(recorder->openBrackets == (depth > 0), "brackets");
    check(recorder->openDependents == (depth > 0), "brackets of dependents");
    checkViews();
    checkRows();
    if (!findings.isEmpty() || rows.empty())
        return;

    const SortedModel& view = *sorted.at(pick(sorted.size()));
    const Row& key = *rows[std::size_t(pick(int(rows.size())))];
    if (view.isAttached)
        view.checkSearches(key, chance(2) ? -1 : pick(view.rows().size() + 3) - 1, findings);
    if (key.inTable) {
        const int position = master->rows().indexOf(const_cast<Row*>(&key));
        check(table->at(position) == key.record && key.record.inTable(), "at");
        const QString text = table->masterIndex()->toText(key.record);
        Record first = master->rows().first()->record;
        if (masterCompare) {
            first =
                (*std::find_if(master->rows().begin(), master->rows().end(), [&](const Row* row) {
                    return masterCompare(*row, key) == 0;
                }))->record;
        }
        check(table->masterIndex()->findRecord(text) == first, "findRecord");
    }
    check(table->at(-1).isNull() && table->at(table->rowCount()).isNull(), "at out of range");
}

void World::end()
{
    while (depth > 0) {
        table->endUpdate();
        --depth;
    }
    std::vector<Record> left;
    for (const auto& row : rows)
        left.push_back(std::move(row->record));
    if (chance(2)) {
        table.reset();
        for (const auto& view : views) {
            // The master index is gone, too.
            auto* list = view.get() == master ? nullptr : dynamic_cast<IndexList*>(view->index);
            check(!list || ((list->count() == 0 || !view->isAttached) && !list->table()),
                  "a list without its table");
        }
    }
    for (const auto& view : views) {
        if (chance(2))
            view->mirror.reset();
    }
    while (!owned.empty()) {
        const std::size_t at = std::size_t(pick(int(owned.size())));
        if (table)
            table->removeIndex(owned[at].get());
        for (const auto& base : bases)
            base->removeDependentIndex(owned[at].get());
        owned.erase(owned.begin() + int(at));
    }
    table.reset();
    views.clear();
    for (const Record& record : left) {
        check(record.referenceCount() == 1, "a reference is left behind");
        check(!record.table() && record.data(0).isNull(), "a record without its table");
    }
}

} // namespace Model
