// SPDX-License-Identifier: MIT
// A table with one index of every kind, driven by chosen operations; after each of them every index
// is compared with what a naive model of the rows says it must hold.
#pragma once

#include "index/indexdependbase.h"
#include "index/indexvector.h"
#include "index/keyindex.h"
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "index/watchindex.h"
#include "table/recordstrans.h"
#include "table/recordupdater.h"
#include "table/table.h"

#include <QPointer>
#include <QScopeGuard>
#include <QSet>

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <unordered_map>

namespace Model {

constexpr int Columns = 4; // that the model knows; the table may get more
using Codes = std::array<int, Columns>;
using Order = QVector<SortColumn>;

/// A row as the model has it: small numbers that stand for cell values, in their order; 0 is NULL.
struct Row
{
    Record record;
    Codes codes{};
    bool inTable = false;
    int seen = 0; // the last look at a view that found it
    enum
    {
        Untouched,
        Touched,
        Fresh
    } mark = Untouched; // by the operation being checked
};
using Rows = QVector<Row*>;

inline void setCell(Field cell, int code)
{
    if (code == 0)
        cell.setNull();
    else if (cell.type() == FieldType::Integer)
        cell = code;
    else if (cell.type() == FieldType::Decimal) // two spellings of one value
        cell = code % 2 ? decimal::fromMantissa(code * 10, 2) : decimal::fromMantissa(code, 1);
    else if (cell.type() == FieldType::VarChar)
        cell = QString("aabbccddeeff").left(code); // shorter sorts first
    else
        cell = code - 2.5;
}

inline int compareCodes(const Order& order, const Row& a, const Row& b)
{
    for (const SortColumn& column : order) {
        const int x = a.codes[size_t(column.column)];
        const int y = b.codes[size_t(column.column)];
        if ((x == 0) != (y == 0))
            return (x == 0) == (column.nulls == SortColumn::NullsFirst) ? -1 : 1;
        if (x != y)
            return (x < y) == (column.order == SortColumn::Ascending) ? -1 : 1;
    }
    return 0;
}

// --- indexes as a host writes them ---

inline bool isOdd(const Record& record)
{
    return record.data(0).toInteger() % 2;
}

struct HostList : IndexList
{
    explicit HostList(Table* t)
        : IndexList(t, true)
    {
        build();
    }
    bool filter(const Record& record) const override { return isOdd(record); }
};

/// An IndexSort or an IndexVector.
template <class Base>
struct HostOrder : Base
{
    template <class... Args>
    HostOrder(Order by, Args... args)
        : Base(args...)
        , order(std::move(by))
    {
        HostOrder::build();
    }
    int compare(const Record& a, const Record& b) const override
    {
        for (const SortColumn& column : order) {
            const int sign = a.data(column.column).compare(b.data(column.column));
            if (sign)
                return column.order == SortColumn::Ascending ? sign : -sign;
        }
        return 0;
    }
    bool filter(const Record& record) const override { return !isOdd(record); }
    const Order order;
};

/// Passes everything on to a dependent view, and now and then raises a change of its own.
struct Relay : Index
{
    Relay(Table* t, Index* follower)
        : table(t)
        , dependent(follower)
    {
        base.addDependentIndex(follower);
        table->addIndex(this);
    }
    ~Relay() override
    {
        if (table)
            table->removeIndex(this);
    }
    void clear() override { base.clear(); }
    void build() override { base.build(); }
    void add(const Record& r) override { base.add(r), raise(); }
    void remove(const Record& r, int position) override { base.remove(r, position), raise(); }
    void update(const Record& r, int first, int last, int position) override
    {
        base.update(r, first, last, position);
        raise();
    }
    void preprocess(const QList<Record>& removed, const QList<Record>& updated, int first, int last,
                    const QList<Record>& inserted, const QList<Record>& changes) override
    {
        base.preprocess(removed, updated, first, last, inserted, changes);
        raise();
    }
    void process(const QList<Record>& removed, const QList<Record>& updated, int first, int last,
                 const QList<Record>& inserted) override
    {
        base.process(removed, updated, first, last, inserted);
        raise();
    }
    bool filter(const Record&) const override { return true; }
    bool contains(const Record&) const override { return false; }
    QString getClassName() const override { return QStringLiteral("Relay"); }
    void raise()
    {
        if (const auto act = onNotification) // which may take itself away
            act();
    }

    QPointer<Table> table;
    const std::unique_ptr<Index> dependent; // must not die before the base that tells it
    IndexDependBase base{this};
    std::function<void()> onNotification;
};

using Addresses = std::vector<const unsigned char*>;

/// Follows a view by what an observer is told alone.
struct Shadow : IndexObserver
{
    explicit Shadow(IndexList* followed)
        : view(followed)
    {
        view->addObserver(this);
        indexReset(*view);
    }
    ~Shadow() override { view->removeObserver(this); }
    void indexChanged(const IndexList& index, const IndexChange& change) override
    {
        std::vector<int> out(change.removed, change.removed + change.removedCount);
        std::vector<int> in(change.inserted, change.inserted + change.insertedCount);
        for (int i = 0; i < change.movedCount; ++i) {
            const auto& move = change.moved[i];
            out.push_back(move.from);
            in.push_back(move.to);
            isWrong = isWrong || rows.at(size_t(move.from)) != index.at(move.to).row();
        }
        std::sort(out.begin(), out.end());
        std::sort(in.begin(), in.end());
        for (auto it = out.rbegin(); it != out.rend(); ++it)
            rows.erase(rows.begin() + *it);
        for (const int at : in)
            rows.insert(rows.begin() + at, index.at(at).row());
    }
    void indexReset(const IndexList& index) override
    {
        rows.clear();
        for (const Record& record : index)
            rows.push_back(record.row());
    }

    IndexList* view;
    Addresses rows;
    bool isWrong = false; // a move from where the row was not
};

template <typename Records>
std::function<void(Addresses&)> reader(const Records& records)
{
    return [&records](Addresses& read) {
        for (const Record& record : records)
            read.push_back(record.row());
    };
}

/// One index and what it must hold.
struct View
{
    const char* name;
    Order order; // empty: as the rows came
    std::function<bool(const Row&)> accepts;
    std::function<void(Addresses&)> read;
    const IndexSort* sorted;
    Rows before;
    const IndexVector* vector = nullptr;
    const Shadow* shadow = nullptr;
};

inline bool all(const Row&)
{
    return true;
}

// --- the world ---

class World
{
public:
    /// `choose` gives a number from 0 to below its argument, which is at least 1; `kind`, 0 to 3,
    /// is that of the table's master index.
    World(std::function<int(int)> choose, int kind, int rowsAtFirst)
        : chosen(std::move(choose))
        , table("world")
        , flavour(kind)
        , size(rowsAtFirst + 8)
    {
        table.addColumn("i", FieldType::Integer, 0, flavour != 3);
        table.addColumn("d", FieldType::Decimal, 1);
        table.addColumn("s", FieldType::VarChar, 12);
        table.addColumn("f", FieldType::Double);
        const QList<int> keys[] = {{}, {0}, {1, 2}, {0}};
        if (flavour == 3)
            table.setMasterIndex(new MasterIndex_Fast_Pure(&table, keys[3]));
        else if (flavour)
            table.setMasterIndex(new MasterIndex_Column_Pure(&table, keys[flavour]));
        for (const int column : keys[flavour])
            masterOrder.append(SortColumn{column});
        if (below(2))
            makeIndexes();
        QList<Record> first;
        for (int i = 0; i < rowsAtFirst; ++i) {
            Row* row = newRow();
            row->inTable = true;
            row->mark = Row::Fresh;
            first.append(row->record);
        }
        table.appendList(first);
        if (views.isEmpty())
            makeIndexes();
        rebuilt = true;
        check();
    }
    ~World()
    {
        shadows.clear();
        // In some worlds the indexes die before their table, in any order, in others after it.
        while (!owned.empty() && below(30) > 0)
            owned.erase(owned.begin() + below(int(owned.size())));
    }

    void step()
    {
        const int what = below(40);
        if (what < 26)
            transaction();
        else if (what < 36)
            singleCall();
        else if (what == 36)
            bracketed();
        else if (what == 37 && table.columnCount() < 12)
            addColumn();
        else if (what == 38 && below(4) == 0)
            clear();
        else if (Index* index = table.indexes().at(below(table.indexes().size())))
            index->rebuild(), rebuilt = true;
        check();
    }

    QString failure;

private:
    int below(int n)
    {
        if (n <= 0)
            return 0;
        return isLooking ? int(looking() % unsigned(n)) : chosen(n);
    }
    int randomCode(int column)
    {
        if (flavour == 3 && column == 0)
            return 1 + below(9);
        return below(3) ? below(4) : below(10);
    }
    Row* newRow()
    {
        // Rows that have left the table come back now and then, or make room for new ones.
        const auto dead = std::find_if(rows.begin(), rows.end(), [](const auto& row) {
            return !row->inTable && row->record.referenceCount() == 1;
        });
        if (dead != rows.end() && int(rows.size()) > 2 * size) {
            byRecord.erase((*dead)->record.row());
            rows.erase(dead);
        }
        rows.push_back(std::make_unique<Row>());
        Row* row = rows.back().get();
        row->record = Record(&table);
        for (int c = 0; c < Columns; ++c)
            write(row, c, randomCode(c), row->record.data(c));
        byRecord[row->record.row()] = row;
        return row;
    }
    void write(Row* row, int column, int code, Field cell)
    {
        row->codes[size_t(column)] = code;
        setCell(cell, code);
    }
    Row* anyRow() { return rows.empty() ? newRow() : rows[size_t(below(int(rows.size())))].get(); }

    template <typename T>
    T* own(T* index)
    {
        owned.emplace_back(index);
        return index;
    }
    void add(const char* name, Order order, std::function<bool(const Row&)> accepts,
             IndexList* list)
    {
        views.append({name,
                      std::move(order),
                      std::move(accepts),
                      reader(*list),
                      dynamic_cast<IndexSort*>(list),
                      {}});
        for (int n = below(3); n > 0; --n) {
            shadows.push_back(std::make_unique<Shadow>(list));
            views.last().shadow = shadows.back().get();
        }
    }
    void makeIndexes()
    {
        using S = SortColumn;
        const auto odd = [](const Row& row) { return row.codes[0] % 2 != 0; };
        const auto even = [](const Row& row) { return row.codes[0] % 2 == 0; };
        const auto priced = [](const Row& row) { return row.codes[1] > 1; };
        add("list", {}, odd, own(new HostList(&table)));
        add("host", {{1}, {0, S::Descending, S::NullsLast}}, even,
            own(new HostOrder<IndexSort>({{1}, {0, S::Descending, S::NullsLast}}, &table, true)));
        add("ascending", {{1, S::Ascending, S::NullsLast}}, all,
            own(new SortedView(&table, Order{{1, S::Ascending, S::NullsLast}})));
        add("descending", {{2, S::Descending}, {3}}, all,
            own(new SortedView(&table, Order{{2, S::Descending}, {3}})));
        auto* filtered = own(new SortedView(&table, QStringList{"-f", "i"}));
        filtered->setFilter([](const Record& r) { return r.data(1).toDecimal() > decimal(1, 1); },
                            {1});
        add("filtered", {{3, S::Descending}, {0}}, priced, filtered);
        auto* dependent = new SortedView(&table, QStringList("s"), false);
        add("dependent", {{2}}, all, dependent);
        relay = own(new Relay(&table, dependent));
        dependent->rebuild();
        auto* vector = own(new HostOrder<IndexVector>({{0}}, &table));
        views.append({"vector", {{0}}, even, reader(vector->records()), nullptr, {}, vector});
        watch = own(new WatchIndex(&table));
        byNumber = own(new KeyIndex(&table, QStringLiteral("i")));
        if (flavour == 0 && below(2)) {
            limit = 12 + below(20);
            add("limit", {{3}}, all, own(new SortedLimit(limit, &table, QStringList("f"))));
        }
    }

    // What a transaction holds for each row, by the rules of RecordsTrans.
    struct Operation
    {
        int kind = RecordsTrans::None;
        std::array<int, Columns> codes{-1, -1, -1, -1};
    };
    using Operations = std::map<int, std::pair<Row*, Operation>>; // by order of arrival

    void touch(RecordsTrans& changes, Operations& held, Row* row)
    {
        const auto isOf = [&](const auto& entry) { return entry.second.first == row; };
        auto it = std::find_if(held.begin(), held.end(), isOf);
        if (it == held.end())
            it = held.insert({int(held.size()), {row, Operation()}}).first;
        Operation& operation = it->second.second;
        const int what = below(10);
        if (row->inTable && (what == 0 || (what < 5 && table.rowCount() > size))) {
            changes.remove(row->record);
            operation = Operation{RecordsTrans::Remove};
        } else if (what == 1 ||
                   (!row->inTable && operation.kind == RecordsTrans::None && below(8))) {
            changes.insert(row->record);
            operation = Operation{RecordsTrans::Insert};
        } else {
            const int first = below(Columns);
            const int last = first + below(Columns - first);
            RecordUpdater updater(changes, row->record);
            const bool ignored = operation.kind == RecordsTrans::Remove;
            const bool inPlace = operation.kind == RecordsTrans::Insert && !row->inTable;
            for (int c = first; c <= last; ++c) {
                const int code = randomCode(c);
                setCell(updater.data(c), code);
                if (inPlace)
                    row->codes[size_t(c)] = code;
                else if (!ignored)
                    operation.codes[size_t(c)] = code;
            }
            updater.commit();
            if (!ignored && !inPlace && changes.operation(row->record) == RecordsTrans::Update)
                operation.kind = RecordsTrans::Update;
            if (!row->inTable && operation.kind == RecordsTrans::None)
                held.erase(it); // nothing holds that row: it may make room for a new one
        }
    }
    // The limit removes as many of the lowest rows as come in, but for those that change.
    void trim(Operations& held)
    {
        int net = 0;
        QSet<const Row*> spared;
        for (const auto& [order, entry] : held) {
            const auto& [row, operation] = entry;
            net += operation.kind == RecordsTrans::Insert && !row->inTable;
            net -= operation.kind == RecordsTrans::Remove;
            if (operation.kind != RecordsTrans::None)
                spared.insert(row);
        }
        if (!limit || spared.isEmpty())
            return;
        const Rows& before = views.last().before;
        for (int i = 0; i < before.size() && i < net + before.size() - limit; ++i)
            if (!spared.contains(before.at(i)))
                held[1000000 + i] = {before.at(i), Operation{RecordsTrans::Remove}};
    }
    void expect(Operations held)
    {
        trim(held);
        for (auto& [order, entry] : held) {
            auto& [row, operation] = entry;
            if (operation.kind == RecordsTrans::None)
                continue;
            for (size_t c = 0; c < Columns; ++c)
                if (operation.codes[c] >= 0)
                    row->codes[c] = operation.codes[c];
            const bool stays = operation.kind == RecordsTrans::Update && row->inTable;
            row->inTable = operation.kind != RecordsTrans::Remove;
            row->mark = stays ? (row->mark == Row::Fresh ? Row::Fresh : Row::Touched) : Row::Fresh;
        }
    }
    void transaction()
    {
        RecordsTrans changes(&table);
        Operations held;
        for (int i = below(below(4) ? 6 : 40); i >= 0; --i)
            touch(changes, held, below(5) ? anyRow() : newRow());
        // A notification may raise a change of rows that the transaction leaves alone, or of other
        // columns of the same rows: both must be there at the end.
        Operations raised;
        if (below(3) == 0 && !limit) {
            Row* row = anyRow();
            const bool early = below(2);
            const auto isHeld = [&](const auto& entry) { return entry.second.first == row; };
            if (row->inTable && std::none_of(held.begin(), held.end(), isHeld)) {
                relay->onNotification = [=, &raised] {
                    if (table.transactionState() != (early ? 1 : 2))
                        return;
                    relay->onNotification = nullptr;
                    RecordsTrans inner(&table);
                    touch(inner, raised, row);
                    inner.execute();
                };
            }
        }
        if (!changes.isEmpty() && below(3) == 0) {
            QList<Record> removed = changes.removed();
            QList<Record> updated = changes.updated();
            table.process(removed, updated, below(2) ? 0 : -1, below(2) ? Columns - 1 : -1,
                          changes.inserted(), changes.changed());
        } else {
            changes.execute();
        }
        relay->onNotification = nullptr;
        expect(held);
        expect(raised);
    }
    void singleCall()
    {
        Row* row = anyRow();
        if (below(3) == 0 || !row->inTable) {
            row = newRow();
            table.appendRow(row->record.row());
            row->inTable = true;
            row->mark = Row::Fresh;
        } else if (below(3) == 0) {
            const int position = table.masterIndex()->indexOf(row->record);
            if (below(3) == 0 && flavour != 3) { // which nobody is told of
                const int column = below(Columns);
                table.setNull(position, column);
                row->codes[size_t(column)] = 0;
            }
            table.remove(row->record, below(2) ? position : below(2) ? -1 : below(50));
            row->inTable = false;
        } else {
            const int column = below(Columns);
            const int position = table.masterIndex()->indexOf(row->record);
            write(row, column, randomCode(column), row->record.data(column));
            if (below(2))
                table.updated(row->record, column, column, below(2) ? position : -1);
            else
                table.updatedRow(position);
            row->mark = Row::Touched;
        }
    }
    void bracketed()
    {
        table.beginUpdate();
        table.beginUpdate();
        transaction();
        check();
        table.endUpdate();
        singleCall();
        table.endUpdate();
    }
    // Rows move in memory: the model finds its own again by their order in the table.
    void addColumn()
    {
        Rows order;
        for (const Record& record : *table.masterIndex())
            order.append(byRecord.at(record.row()));
        byRecord.clear();
        for (const auto& row : rows)
            row->record = Record();
        std::vector<std::unique_ptr<Row>> kept;
        for (auto& row : rows)
            if (row->inTable)
                kept.push_back(std::move(row));
        rows = std::move(kept);
        table.addColumn(QString::number(table.columnCount()), FieldType::Type(1 + below(4)), 1,
                        below(2));
        for (int i = 0; i < order.size(); ++i) {
            order.at(i)->record = table.at(i);
            byRecord[table.at(i).row()] = order.at(i);
        }
        rebuilt = true;
    }
    void clear()
    {
        table.clear();
        for (const auto& row : rows)
            row->inTable = false;
    }

    void fail(const char* view, const char* what)
    {
        if (failure.isEmpty())
            failure = QStringLiteral("%1: %2").arg(QLatin1String(view), QLatin1String(what));
    }
    void check()
    {
        isLooking = true;
        const auto done = qScopeGuard([this] { isLooking = false; });
        View master{
            "master",    masterOrder, all, reader(*table.masterIndex()), table.masterIndex(),
            masterBefore};
        if (flavour == 3)
            master.order.clear(); // in the order of raw bytes: its content alone is compared
        checkView(master);
        masterBefore = master.before;
        for (View& view : views)
            checkView(view);
        checkKeyText();
        checkKeys();
        for (const QString& fault : {table.verify(), relay->base.verify()})
            if (!fault.isEmpty())
                fail("verify", qPrintable(fault));
        for (const auto& row : rows) {
            if (row->mark != Row::Untouched && !rebuilt && !watch->contains(row->record) &&
                row->inTable)
                fail("watch", "a change is missing");
            row->mark = Row::Untouched;
        }
        rebuilt = false;
        if (below(4) == 0)
            watch->clear();
    }
    void checkView(View& view)
    {
        Rows now;
        Addresses addresses;
        view.read(addresses);
        if (view.shadow && (view.shadow->isWrong || view.shadow->rows != addresses))
            return fail(view.name, "an observer was misled");
        now.reserve(int(addresses.size()));
        ++looks;
        for (const unsigned char* address : addresses) {
            const auto row = byRecord.find(address);
            if (row == byRecord.end() || !row->second->inTable || !view.accepts(*row->second))
                return fail(view.name, "holds a row too many");
            if (row->second->seen == looks)
                return fail(view.name, "holds a row twice");
            row->second->seen = looks;
            now.append(row->second);
        }
        const auto belongs = [&](const auto& row) { return row->inTable && view.accepts(*row); };
        if (now.size() != std::count_if(rows.begin(), rows.end(), belongs))
            return fail(view.name, "a row is missing");
        const bool byOrder = view.name != QByteArray("master") || flavour != 3;
        for (int i = 1; byOrder && i < now.size(); ++i) {
            const int order = compareCodes(view.order, *now.at(i - 1), *now.at(i));
            if (order > 0)
                return fail(view.name, "out of order");
            if (order == 0 && !rebuilt && now.at(i - 1)->mark == Row::Fresh &&
                now.at(i)->mark == Row::Untouched)
                return fail(view.name, "a new row stands before its equal");
        }
        checkArrival(view, now);
        if ((view.sorted || view.vector) && byOrder)
            checkSearches(view, now);
        view.before = now;
    }
    // Rows that nothing has happened to keep their order among themselves.
    void checkArrival(const View& view, const Rows& now)
    {
        const auto next = [](const Rows& list, int i) {
            while (i < list.size() && (list.at(i)->mark != Row::Untouched || !list.at(i)->inTable))
                ++i;
            return i;
        };
        int i = next(view.before, 0);
        int j = next(now, 0);
        while (i < view.before.size() && j < now.size() && view.before.at(i) == now.at(j)) {
            i = next(view.before, i + 1);
            j = next(now, j + 1);
        }
        if (!rebuilt && !view.before.isEmpty() && (i < view.before.size() || j < now.size()))
            fail(view.name, "rows that nothing happened to have moved");
    }
    void checkSearches(const View& view, const Rows& now)
    {
        const Row* key = anyRow();
        const int after = below(now.size() + 2) - 1;
        int first = -1, last = -1, add = 0, full = -1;
        for (int i = 0; i < now.size(); ++i) {
            const int order = compareCodes(view.order, *now.at(i), *key);
            add = order <= 0 ? i + 1 : add;
            if (order != 0 || i <= after)
                continue;
            last = i;
            if (first < 0)
                first = i, full = i - (after + 1);
        }
        const Record& record = key->record;
        if (view.vector) {
            if (view.vector->search(record, after) != first ||
                view.vector->contains(record) != (view.vector->search(record) >= 0))
                fail(view.name, "a search is wrong");
            return;
        }
        const IndexSort& index = *view.sorted;
        if (index.search(record, after) != first || index.searchLast(record, after) != last ||
            index.searchFull(record, after) != full || index.indexOfAdd(record) != add ||
            index.searchBinary(record, after, IndexSort::Compare(&index)) != first ||
            index.find(record, after) != (first < 0 ? Record() : now.at(first)->record) ||
            index.findFirst(record) != index.find(record, -1))
            fail(view.name, "a search is wrong");
        if (index.indexOf(record) != now.indexOf(const_cast<Row*>(key)))
            fail(view.name, "indexOf is wrong");
    }
    void checkKeyText()
    {
        const Row* row = anyRow();
        if (flavour == 0 || flavour == 3 || !row->inTable)
            return;
        const MasterIndex& master = *table.masterIndex();
        const Record found = Record(&table, row->record.toString());
        if (!row->record.toString().isEmpty() &&
            (found.isNull() || master.compare(found, row->record) != 0 ||
             master.findRecord(row->record.toString()) != found))
            fail("master", "a row is not found by its key text");
        if (row->record.inTable() != row->inTable)
            fail("master", "inTable is wrong");
    }

    void checkKeys()
    {
        const Row* row = anyRow();
        const Record& found = byNumber->find(row->codes[0]);
        if ((found.isNull() && byNumber->contains(row->record)) ||
            (!found.isNull() && (found.data(0).toInteger() != row->codes[0] || !found.inTable())))
            fail("keys", "a row is not found by its number");
    }

    const std::function<int(int)> chosen;
    std::minstd_rand looking; // chooses what the checks look at
    bool isLooking = false;
    std::vector<std::unique_ptr<Shadow>> shadows;
    std::vector<std::unique_ptr<Index>> owned; // some outlive the table, as a host's may
    Table table;
    const int flavour;
    const int size; // about which the table is kept
    Order masterOrder;
    Rows masterBefore;
    QVector<View> views;
    Relay* relay = nullptr;
    WatchIndex* watch = nullptr;
    KeyIndex* byNumber = nullptr;
    int limit = 0;
    int looks = 0;
    bool rebuilt = false;
    std::vector<std::unique_ptr<Row>> rows;
    std::unordered_map<const unsigned char*, Row*> byRecord;
};

} // namespace Model
