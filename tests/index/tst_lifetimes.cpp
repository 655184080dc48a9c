// SPDX-License-Identifier: MIT
// Objects that know each other die in every order, at rest and while the table tells of a change:
// what is left goes on.
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "index/watchindex.h"
#include "join/tablejoin.h"
#include "support/journal.h"
#include "table/recordstrans.h"

#include <QtTest>

#include <algorithm>
#include <memory>

namespace {

struct Observer : IndexObserver
{
    explicit Observer(IndexList* followed)
        : list(followed)
    {
        list->addObserver(this);
    }
    ~Observer() override
    {
        if (list)
            list->removeObserver(this);
    }
    void indexChanged(const IndexList&, const IndexChange&) override {}
    void indexReset(const IndexList&) override {}
    void indexDestroyed(const IndexList&) override { list = nullptr; }
    IndexList* list;
};

struct World
{
    World()
    {
        for (Table* table : {main, dependent}) {
            for (int key = 0; key < 5; ++key)
                table->appendRow(row(*table, key, key).row());
        }
        objects.emplace_back(main);
        objects.emplace_back(dependent);
        const auto view = std::make_shared<SortedView>(main, QStringList("-key"), false);
        main->addIndex(view.get()); // which it has to be taken off from all the same
        objects.push_back(view);
        objects.push_back(std::make_shared<Observer>(view.get()));
        objects.push_back(std::make_shared<LiveJoin>(main, dependent, QStringList("dependent")));
        vector = new KeyVector(dependent);
        vector->build();
        objects.emplace_back(vector);
        watch = new WatchIndex(dependent);
        objects.emplace_back(watch);
    }
    bool has(int object) const { return objects[size_t(object)] != nullptr; }
    // Changes the tables that are left. What is wrong then, or nothing.
    QString change(int n)
    {
        for (const int i : {1, 0}) {
            if (!has(i))
                continue;
            Table* table = i ? dependent : main;
            RecordsTrans changes(table);
            changes.update(table->at(n % 5), row(*table, n % 5, n), 1, 1);
            changes.insert(row(*table, n + 10, n));
            changes.execute();
            if (const QString fault = table->verify(); !fault.isEmpty())
                return fault;
        }
        if (has(0) && !has(4) && !main->at(0).data(2).isNull())
            return "a join that has not undone itself";
        if (has(1))
            return QString();
        if (has(5)) {
            vector->rebuild();
            if (vector->table() || !vector->records().isEmpty())
                return "a vector without a table";
        }
        const bool isStale = has(6) && (watch->table() || !watch->added().isEmpty());
        return isStale ? "a watch index without a table" : QString();
    }

    Table* const main = new IntegerTable("main", {"key", "main"}, 1);
    Table* const dependent = new IntegerTable("dependent", {"key", "dependent"}, 1);
    KeyVector* vector = nullptr;
    WatchIndex* watch = nullptr;
    std::vector<std::shared_ptr<void>> objects;
};

} // namespace

class TestLifetimes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyOrder()
    {
        std::vector<int> order{0, 1, 2, 3, 4, 5, 6};
        int orders = 0;
        do {
            World world;
            int n = 0;
            for (const int object : order) {
                world.objects[size_t(object)].reset();
                const QString fault = world.change(++n);
                QVERIFY2(fault.isEmpty(), qPrintable(fault));
            }
            ++orders;
            // Every seventh order: each object still dies before and after each other.
            for (int skip = 0; skip < 6 && std::next_permutation(order.begin(), order.end());)
                ++skip;
        } while (std::next_permutation(order.begin(), order.end()));
        QCOMPARE(orders, 720);
    }
    // A listener before or behind the others has one of them die while a change is told.
    void insideANotification()
    {
        for (const char* event : {"pre", "process", "add", "remove", "update", "clear"})
            for (const bool isFirst : {false, true})
                for (const int object : {2, 3, 4, 5, 6})
                    for (const int at : {0, 1}) {
                        World world;
                        Table& table = at ? *world.dependent : *world.main;
                        QStringList log;
                        Journal journal(log);
                        QList<Index*> indexes = table.indexes();
                        indexes.insert(isFirst ? 0 : indexes.size(), &journal);
                        table.setIndexes(indexes);
                        journal.at(event, [&] { world.objects[size_t(object)].reset(); });
                        world.change(1);
                        table.appendRow(row(table, 30, 1).row());
                        table.updated(table.at(2), 1, 1);
                        table.remove(table.at(1));
                        const QString fault = world.change(2);
                        if (event == QByteArray("clear"))
                            world.objects[size_t(at)].reset();
                        else
                            table.removeIndex(&journal);
                        QVERIFY2(fault.isEmpty() && !world.has(object), qPrintable(fault + event));
                    }
    }
};

QTEST_GUILESS_MAIN(TestLifetimes)
#include "tst_lifetimes.moc"
