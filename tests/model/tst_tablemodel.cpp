// SPDX-License-Identifier: MIT
// Models over every kind of index, followed by Qt's strict tester and by a list that knows nothing
// but the signals.
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "io/tableindexrebuilder.h"
#include "model/tablemodel.h"
#include "support/journal.h"
#include "support/seed.h"
#include "table/recordstrans.h"
#include "table/recordupdater.h"
#include "table/table.h"

#include <QAbstractItemModelTester>
#include <QtTest>

#include <algorithm>
#include <random>
#include <thread>

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int seedCount = 200; // which take as long as a thousand else
#else
constexpr int seedCount = 1000;
#endif

enum Kind
{
    List,
    HostSort,
    View,
    FilteredView,
    Limit,
    Arrival,
    KeyedMaster,
    Kinds
};

struct OddList : IndexList
{
    explicit OddList(Table* t)
        : IndexList(t, true)
    {}
    bool filter(const Record& r) const override { return r.data(0).toInteger() % 2; }
};
struct ByPrice : IndexSort
{
    explicit ByPrice(Table* t)
        : IndexSort(t, true)
    {}
    int compare(const Record& a, const Record& b) const override
    {
        return a.data(1).compare(b.data(1));
    }
};

/// A table with an index of some kind.
struct World
{
    explicit World(Kind kind, int rows = 0)
        : table(new Table("quotes"))
    {
        table->addColumn("id", FieldType::Integer, 0, false, "Number", true, "Unique");
        table->addColumn("price", FieldType::Decimal, 2);
        table->addColumn("text", FieldType::VarChar, 4);
        table->addColumn("time", FieldType::DateTime);
        if (kind == KeyedMaster)
            table->setMasterIndex(new MasterIndex_Column_Pure(table.get(), QString("price")));
        if (kind == List)
            owned.reset(new OddList(table.get()));
        else if (kind == HostSort)
            owned.reset(new ByPrice(table.get()));
        else if (kind == View || kind == FilteredView)
            owned.reset(new SortedView(table.get(), QStringList{"-price", "id"}));
        else if (kind == Limit)
            owned.reset(new SortedLimit(16, table.get(), QStringList("price")));
        if (kind == FilteredView)
            static_cast<SortedView*>(owned.get())->setFilter([](const Record& r) {
                return r.data(1).isNull() || r.data(1).toDouble() < 4;
            });
        index = owned ? owned.get() : table->masterIndex();
        for (int i = 0; i < rows; ++i)
            table->appendList({makeRow(i, i)});
    }
    Record makeRow(int id, int price)
    {
        const Record row(table.get());
        row.data(0) = id;
        row.data(1) = decimal::fromMantissa(price, 2);
        return row;
    }
    void setPrice(const Record& row, int price)
    {
        RecordsTrans changes(table.get());
        RecordUpdater(changes, row).data(1) = decimal::fromMantissa(price, 2);
        changes.execute();
    }
    std::unique_ptr<Table> table;
    std::unique_ptr<IndexList> owned; // dies first
    IndexList* index;
};

/// What the signals of a model say that it holds.
struct Shadow : QObject
{
    struct Row
    {
        Record record;
        QStringList texts;
    };

    explicit Shadow(TableModel* followed)
        : model(followed)
    {
        const auto readAll = [this] {
            rows.clear();
            for (int row = 0; row < model->rowCount(); ++row)
                rows.push_back(read(row));
        };
        readAll();
        connect(model, &TableModel::modelReset, this, [this, readAll] { readAll(), ++resets; });
        connect(model, &TableModel::rowsInserted, this, [this](auto&, int first, int last) {
            for (int row = first; row <= last; ++row)
                rows.insert(rows.begin() + row, read(row));
        });
        connect(model, &TableModel::rowsRemoved, this, [this](auto&, int first, int last) {
            rows.erase(rows.begin() + first, rows.begin() + last + 1);
        });
        connect(model, &TableModel::rowsMoved, this,
                [this](auto&, int first, int last, auto&, int to) {
                    const auto begin = rows.begin();
                    if (to > last)
                        std::rotate(begin + first, begin + last + 1, begin + to);
                    else
                        std::rotate(begin + to, begin + first, begin + last + 1);
                });
        connect(model, &TableModel::layoutAboutToBeChanged, this, [this] {
            for (int row = 0; row < model->rowCount(); ++row)
                places.emplace_back(model->index(row, 0));
        });
        connect(model, &TableModel::layoutChanged, this, [this] {
            std::vector<Row> arranged(rows.size());
            for (size_t i = 0; i < rows.size(); ++i)
                arranged[size_t(places[i].row())] = rows[i];
            rows.swap(arranged);
            places.clear();
            ++layouts;
        });
        connect(model, &TableModel::dataChanged, this,
                [this](const QModelIndex& first, const QModelIndex& last) {
                    for (int row = first.row(); row <= last.row(); ++row)
                        for (int column = first.column(); column <= last.column(); ++column) {
                            QString& text = rows[size_t(row)].texts[column];
                            const QString now = textAt(row, column);
                            needless += text == now;
                            text = now;
                        }
                });
    }
    QString textAt(int row, int column) const
    {
        return model->index(row, column).data(Qt::EditRole).toString();
    }
    Row read(int row) const
    {
        QStringList texts;
        for (int column = 0; column < model->columnCount(); ++column)
            texts.append(textAt(row, column));
        return {model->record(row), texts};
    }
    /// Empty when it equals the index, down to each text. While changes wait: when the model has
    /// the rows as told, and null records where one has left.
    QString fault(const IndexList& index) const
    {
        const bool isPending = model->hasPendingChanges();
        if (model->rowCount() != int(rows.size()) ||
            (!isPending && index.count() != int(rows.size())))
            return QString("%1 rows for %2").arg(rows.size()).arg(index.count());
        for (int row = 0; row < model->rowCount(); ++row) {
            const Row& told = rows[size_t(row)];
            const Record now = model->record(row);
            const bool isLost = isPending && now.isNull();
            if (isLost ? index.contains(told.record) && model->rowOf(told.record) >= 0
                       : now != told.record || model->rowOf(now) != row)
                return QString("row %1").arg(row);
            if (!isPending && (now != index.at(row) || told.texts != read(row).texts))
                return QString("content of row %1").arg(row);
        }
        return QString();
    }

    TableModel* model;
    std::vector<Row> rows;
    std::vector<QPersistentModelIndex> places;
    int resets = 0;
    int layouts = 0;
    int needless = 0; // cells told that had not changed
};

/// One seed: an index kind and a way of telling, and random changes.
class Run : public QObject
{
public:
    explicit Run(quint32 seed)
        : random(seed)
        , kind(Kind(seed % Kinds))
        , batches(seed / Kinds % 4)
        , world(kind, seed % 250 ? 6 : 700) // of several leaves
        , model(world.index)
        , tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal)
        , shadow(&model)
    {
        if (batches == 1)
            model.setLayoutThreshold(2);
        if (batches == 3)
            model.setFlushInterval(3600000);
        // What a slot changes comes after, or into the next batch.
        const auto change = [this] {
            if (isNested && below(4) == 0)
                isNested = false, world.setPrice(anyRow(), below(600));
        };
        connect(&model, &TableModel::rowsMoved, this, change);
        connect(&model, &TableModel::dataChanged, this, change);
    }
    QString step()
    {
        isNested = below(8) == 0;
        const bool wasNested = isNested;
        shadow.resets = shadow.needless = 0;
        const QPersistentModelIndex held = model.index(below(8), 1);
        const Record heldRecord = held.data(TableModel::RecordRole).value<Record>();
        const int act = below(40);
        const QStringList before = cells();
        change(act);
        if (model.isFrozen() && !shadow.resets && act != 1 && cells() != before)
            return "frozen cells have changed";
        const QString pendingFault = shadow.fault(*world.index);
        if (batches == 2 && below(3) == 0)
            model.isFrozen() ? model.thaw() : model.freeze();
        while (model.hasPendingChanges() && !model.isFrozen() && below(3))
            model.flush();
        const QString fault = pendingFault + shadow.fault(*world.index);
        if (!fault.isEmpty())
            return fault;
        if (shadow.resets > (act == 0))
            return "a reset for an update";
        if (shadow.needless && batches == 0 && act > 3 && act < 24 && !wasNested)
            return "cells told that have not changed";
        if (heldRecord.isNull() || shadow.resets)
            return QString();
        if (held.isValid() && model.record(held.row()) != heldRecord &&
            !model.record(held.row()).isNull())
            return "a persistent index lost its row";
        if (!held.isValid() && kind != List && !wasNested && !model.hasPendingChanges() &&
            world.index->contains(heldRecord))
            return "a persistent index died";
        return QString();
    }

private:
    QStringList cells() const // of a frozen model
    {
        QStringList texts;
        for (int row = 0; row < (model.isFrozen() ? model.rowCount() : 0); ++row)
            for (int column = 0; column < 3; ++column)
                texts += model.index(row, column).data(Qt::EditRole).toString();
        return texts;
    }
    int below(int n) { return int(random() % quint32(n)); }
    Record anyRow() { return world.table->at(below(std::max(world.table->rowCount(), 1))); }
    void edit(RecordsTrans& changes, const Record& row)
    {
        RecordUpdater updater(changes, row);
        const int column = below(3);
        if (column == 0)
            updater.data(0) = below(100);
        else if (column == 1 && below(8) == 0)
            updater.setNull(1);
        else if (column == 1) // two spellings of one value
            updater.data(1) = below(2) ? decimal::fromMantissa(below(60), 1)
                                       : decimal::fromMantissa(below(60) * 10, 2);
        else
            updater.data(2) = QString(QChar('a' + below(26)));
    }
    void change(int act)
    {
        Table* table = world.table.get();
        const Record row = anyRow();
        RecordsTrans changes(table);
        if (act == 0) {
            if (auto* sorted = dynamic_cast<IndexSort*>(world.index))
                sorted->resort();
        } else if (act == 1 && !row.isNull()) { // in place, of which nobody knows the old value
            row.data(2) = QString(QChar('a' + below(26)));
            table->updated(row, 2, 2);
        } else if (act == 2) {
            table->appendRow();
        } else if (act == 3) {
            table->remove(row);
        } else if (act < 24) {
            edit(changes, row);
        } else { // a group of changes, now and then of nearly all rows
            const int most = act > 36 ? 40 : 6;
            for (int i = below(most); i > 0; --i)
                edit(changes, anyRow());
            for (int i = below(table->rowCount() < 16 ? 4 : 2); i > 0; --i)
                changes.insert(world.makeRow(below(100), below(600)));
            for (int i = below(table->rowCount() > 8 ? 5 : 2); i > 0; --i)
                changes.remove(anyRow());
        }
        changes.execute();
    }

    std::mt19937 random;
    const Kind kind;
    const quint32 batches; // 0: none, 1: small threshold, 2: freezes, 3: interval
    World world;
    TableModel model;
    QAbstractItemModelTester tester;
    Shadow shadow;
    bool isNested = false;
};

} // namespace

class tst_TableModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void randomChanges()
    {
        const QVector<quint32> seeds = testSeeds(seedCount);
        for (const quint32 seed : seeds) {
            const SeedScope scope(seed);
            Run run(seed);
            for (int i = 0; i < 300; ++i) {
                const QString fault = run.step();
                QVERIFY2(fault.isEmpty(), qPrintable(QString("step %1: %2").arg(i).arg(fault)));
            }
        }
    }

    // A frozen model over far more changes than fit into one chunk of what waits.
    void manyPieces()
    {
        World world(View, 3000);
        TableModel model(world.index);
        Shadow shadow(&model);
        model.freeze();
        std::mt19937 random(1);
        for (int i = 0; i < 20000; ++i) {
            const Record row = world.table->at(int(random() % 3000));
            if (random() % 8)
                world.setPrice(row, int(random() % 100000));
            else
                world.table->remove(row), world.table->appendList({world.makeRow(i, i)});
        }
        QCOMPARE(shadow.fault(*world.index), QString());
        model.thaw();
        QCOMPARE(shadow.fault(*world.index), QString());
        QVERIFY(shadow.layouts == 1 && shadow.resets == 0);
    }

    void roles()
    {
        World world(Arrival, 1);
        const Record row = world.table->at(0);
        row.data(1) = decimal::fromMantissa(123450, 2);
        row.data(3) = datetime("2017.03.01 10:00:00.250");
        TableModel model(world.index, {"price", "id", "time", "text"});
        QCOMPARE(model.columns(), QVector<int>({1, 0, 3, 2}));
        const auto data = [&](int column, int role) { return model.index(0, column).data(role); };
        QCOMPARE(data(0, Qt::DisplayRole).toString(), row.data(1).toSystemString());
        QCOMPARE(data(0, Qt::EditRole).toString(), QString("1234.50"));
        QCOMPARE(data(2, Qt::DisplayRole).toString(), row.data(3).toSystemString());
        QCOMPARE(data(2, Qt::EditRole).toString(), QString("2017.03.01 10:00:00.250"));
        QCOMPARE(data(0, TableModel::SortRole), QVariant(1234.5));
        QCOMPARE(data(0, TableModel::ValueRole).value<decimal>(), row.data(1).toDecimal());
        QVERIFY(!data(3, TableModel::SortRole).isValid());
        QVERIFY(data(0, Qt::TextAlignmentRole).toInt() & Qt::AlignRight);
        QVERIFY(data(3, Qt::TextAlignmentRole).toInt() & Qt::AlignLeft);
        QCOMPARE(model.headerData(1, Qt::Horizontal).toString(), QString("Number"));
        QCOMPARE(model.headerData(1, Qt::Horizontal, Qt::ToolTipRole).toString(),
                 QString("Unique"));
        QCOMPARE(model.headerData(0, Qt::Horizontal).toString(), QString("price"));
        QVERIFY_EXCEPTION_THROWN(model.setColumns(QStringList{"price", "none"}), QString);
        QCOMPARE(model.columnCount(), 4);
        model.setColumns(QStringList());
        world.table->addColumn("late", FieldType::Double);
        QCOMPARE(model.columnCount(), 5);
    }

    void edit()
    {
        const QVariant value = QVariant::fromValue(decimal::fromMantissa(5, 1));
        const std::tuple<int, QVariant, const char*> rows[] = {
            // what is in the cell then; or refused
            {0, "12", "12"},
            {0, "12x", nullptr},
            {0, qint64(1) << 40, nullptr},
            {0, 1.5, nullptr},
            {0, "", nullptr},
            {1, "1234.50", "1234.50"},
            {1, value, "0.5"},
            {1, "1 234,50", nullptr},
            {1, qQNaN(), nullptr},
            {1, QVariant(), ""},
            {2, "abcd", "abcd"},
            {2, "abcde", nullptr},
            {3, "2017-03-01 10:00:00", "2017.03.01 10:00:00.000"},
            {3, "yesterday", nullptr}};
        for (const auto& [column, written, result] : rows) {
            World world(View, 3);
            TableModel model(world.index);
            Shadow shadow(&model);
            const QPersistentModelIndex cell = model.index(1, column);
            const QString before = cell.data(Qt::EditRole).toString();
            QVERIFY(!model.setData(cell, written) && !(cell.flags() & Qt::ItemIsEditable));
            model.setEditable(column);
            QSignalSpy failures(&model, &TableModel::editFailed);
            if (column == 1)
                model.freeze();
            QCOMPARE(model.setData(cell, written), result != nullptr);
            QCOMPARE(cell.data(Qt::EditRole).toString(), result ? QString(result) : before);
            QCOMPARE(failures.size(), int(!result));
            QCOMPARE(model.lastError().isNull(), result != nullptr);
            QCOMPARE(shadow.fault(*world.index), QString());
        }
    }

    void batches()
    {
        World world(View, 3);
        TableModel model(world.index, {"id", "price"});
        QSignalSpy changes(&model, &TableModel::dataChanged);
        model.setFlushInterval(20);
        model.setHighlightTime(200);
        const Record row = world.table->at(1);
        world.setPrice(row, 900);
        for (int i = 0; i < 5; ++i)
            world.setPrice(row, 101 + i % 2);
        QVERIFY(changes.isEmpty());
        QTRY_COMPARE(changes.size(), 1);
        QCOMPARE(changes.first().first().toModelIndex(), model.index(0, 1));
        const QVariant highlight = model.index(0, 1).data(TableModel::HighlightRole);
        QCOMPARE(highlight.value<TableModel::Highlight>().direction, -1);
        QVERIFY(qAbs(highlight.value<TableModel::Highlight>().changedMs -
                     QDateTime::currentMSecsSinceEpoch()) < 200);
        QVERIFY(!model.index(0, 0).data(TableModel::HighlightRole).isValid());
        QTRY_VERIFY(!model.index(0, 1).data(TableModel::HighlightRole).isValid());
        model.freeze();
        world.setPrice(row, 300);
        world.table->appendList({world.makeRow(7, 50000)});
        model.flush();
        QTest::qWait(60);
        QVERIFY(changes.size() == 1 && model.rowCount() == 3 && model.record(0) == row);
        QVERIFY(!model.index(0, 1).data(TableModel::HighlightRole).isValid());
        model.thaw();
        QVERIFY(changes.size() == 2 && model.rowCount() == 4 && model.record(1) == row);
    }

    void deaths()
    {
        QVector<int> order{0, 1, 2};
        do {
            for (const int isFrozen : {0, 1})
                for (const Kind kind : {View, Arrival}) {
                    World world(kind, 5);
                    auto* model = new TableModel(world.index);
                    QAbstractItemModelTester tester(
                        model, QAbstractItemModelTester::FailureReportingMode::Fatal);
                    if (isFrozen)
                        model->freeze();
                    world.table->remove(world.table->at(0));
                    TableIndexRebuilder(
                        world.table.get()); // takes all indexes off and puts them back
                    bool isAlive = true;
                    for (const int who : qAsConst(order)) {
                        if (who == 0)
                            delete model, isAlive = false;
                        else if (who == 1)
                            world.owned.reset();
                        else
                            world.table.reset();
                        if (who != 2 && world.table)
                            world.table->appendRow();
                        if (!isAlive && world.table)
                            QCOMPARE(world.table->indexes().size(), world.owned ? 1 : 0);
                        if (isAlive && (who == 2 || kind == View)) {
                            QCOMPARE(model->rowCount(), 0);
                            QVERIFY(model->record(0).isNull() && model->rowOf(Record()) == -1);
                        }
                    }
                }
        } while (std::next_permutation(order.begin(), order.end()));
    }

    // A listener of the table before or behind the model's, or a slot of another model, has it or
    // its index die while a change is told.
    void deathsInsideChanges()
    {
        for (int i = 0; i < 5 * 8 + 4; ++i) {
            QStringList log;
            Journal journal(log); // outlives the table
            const int order = i & 1;
            const bool isIndex = i & 4 && i < 40; // which must not die in a slot of its own model
            World world(View, 5);
            Table& table = *world.table;
            std::unique_ptr<TableModel> models[2];
            for (auto& model : models)
                model.reset(new TableModel(world.index));
            TableModel& other = *models[1 - order];
            if (i & 2)
                models[order]->freeze();
            const auto die = [&] { isIndex ? world.owned.reset() : models[order].reset(); };
            QList<Index*> indexes = table.indexes();
            indexes.insert(order ? 0 : indexes.size(), &journal);
            table.setIndexes(indexes);
            const char* const events[] = {"pre", "process", "add", "remove", "update", "none"};
            journal.at(events[i / 8], die);
            if (i >= 40)
                connect(&other, &TableModel::rowsMoved, &table, die);
            world.setPrice(table.at(4), 900);
            world.setPrice(table.at(0), 950);
            table.appendRow();
            table.updated(table.at(2), 1, 1);
            table.remove(table.at(1));
            QCOMPARE(table.verify(), QString());
            QCOMPARE(other.rowCount(), isIndex ? 0 : 5);
            QVERIFY(isIndex ? models[order]->rowCount() == 0 : !models[order]);
        }
    }

    void otherThread()
    {
        World world(View, 50);
        TableModel model(world.index);
        QAbstractItemModelTester tester(&model,
                                        QAbstractItemModelTester::FailureReportingMode::Fatal);
        Shadow shadow(&model);
        connect(&model, &TableModel::rowsMoved, &model,
                [&] { QCOMPARE(QThread::currentThread(), model.thread()); });
        std::thread writer([&] {
            for (int i = 0; i < 500; ++i) {
                world.table->beginUpdate();
                world.setPrice(world.table->at(i * 7 % 50), i * 31 % 997);
                if (i % 10 == 0)
                    world.table->remove(world.table->at(i % 50)),
                        world.table->appendList({world.makeRow(i, i)});
                world.table->endUpdate();
            }
        });
        for (int i = 0; i < 200; ++i) {
            QCoreApplication::processEvents();
            shadow.read(i % 50);
        }
        writer.join();
        QTRY_VERIFY(!model.hasPendingChanges());
        QCOMPARE(shadow.fault(*world.index), QString());
        QCOMPARE(shadow.resets, 0);
    }
};

QTEST_GUILESS_MAIN(tst_TableModel)
#include "tst_tablemodel.moc"
