// SPDX-License-Identifier: MIT
#include "index/indexdependbase.h"
#include "index/indexlimit.h"
#include "index/indexvector.h"
#include "index/keyindex.h"
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "index/watchindex.h"
#include "join/tablejoin.h"
#include "support/files.h"
#include "support/journal.h"
#include "support/outcome.h"
#include "table/recordstrans.h"

#include <QScopeGuard>
#include <QtTest>

#include <dlfcn.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

// What a host's own functions throw must reach the caller as it is, and the table and all views
// must be right again: whichever call it was that threw.

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define REAL(name) __interceptor_##name
#else
#define REAL(name) __libc_##name
#endif
extern "C" void* REAL(malloc)(size_t);
extern "C" void* REAL(memalign)(size_t, size_t);

namespace {

enum Column
{
    Key,
    Group
};

/// Throws at the n-th call of any function of the host's.
struct Bomb
{
    static void tick()
    {
        if (left > 0 && --left == 0)
            throw QStringLiteral("bomb");
    }
    static std::atomic<int> left; ///< some calls come from the threads of a sort
};
std::atomic<int> Bomb::left{0};

/// Lets the library's n-th own allocation fail, and all that follow. What Qt allocates for it is
/// left alone.
struct Shortage
{
    static bool strikes(const void* caller)
    {
        Dl_info from;
        int now = left;
        if (now == 0 || !dladdr(caller, &from) || !strstr(from.dli_fname, "liblivetable.so"))
            return false;
        if (now > 0 && (now = --left) == 0 && isLasting)
            left = now = lasting;
        return now == 0 || now == lasting;
    }
    static constexpr int lasting = -1000;
    static std::atomic<int> left;
    static bool isLasting;
};
std::atomic<int> Shortage::left{0};
bool Shortage::isLasting = false;

/// A row that is not short of memory.
template <class... Cells>
Record made(const Table& table, Cells... cells)
{
    const int left = Shortage::left.exchange(0);
    const Record record = row(table, cells...);
    Shortage::left = left;
    return record;
}

int keyOf(const Record& record)
{
    const Field cell = record.data(Key);
    return cell.isNull() ? -1000 : cell.toInteger();
}

int byKey(const Record& a, const Record& b)
{
    Bomb::tick();
    return keyOf(a) - keyOf(b);
}

bool isWanted(const Record& record)
{
    return record.data(Group).toInteger() < 2;
}

bool wanted(const Record& record)
{
    Bomb::tick();
    return isWanted(record);
}

/// A list, a sorted one or a vector; a list has no compare().
#pragma GCC diagnostic ignored "-Wsuggest-override"
template <class Base>
struct Bombed : Base
{
    template <class... Args>
    explicit Bombed(Args... args)
        : Base(args...)
    {
        Bombed::build();
    }
    virtual int compare(const Record& a, const Record& b) const { return byKey(a, b); }
    bool filter(const Record& record) const override { return wanted(record); }
};

struct BombKeyed : Bombed<IndexSort>
{
    explicit BombKeyed(Table* table)
        : Bombed(table, true)
    {
        rebuild(); // now with keys
    }
    int sortKeyWords() const override { return 1; }
    SortKey sortKey(const Record& record) const override
    {
        Bomb::tick();
        return {quint64(keyOf(record) + 1000) / 4, 0};
    }
};

struct BombMaster : MasterIndex
{
    explicit BombMaster(Table* table)
        : MasterIndex(table, QList<int>{Key})
    {}
    int compare(const Record& a, const Record& b) const override { return byKey(a, b); }
    QString toText(const Record&) const override { return QString(); }
    Record fromText(const QString&) const override { return Record(table()); }
};

struct BombLimit : IndexLimit
{
    BombLimit(int limit, Table* table)
        : IndexLimit(limit, table)
    {
        build();
    }
    int compare(const Record& a, const Record& b) const override { return byKey(a, b); }
};

using Rows = QList<Record>;

struct FilledTable
{
    FilledTable(bool keyedMaster, int count, int width)
    {
        table.addColumn("key", FieldType::Integer);
        table.addColumn("group", FieldType::Integer);
        table.addColumn("wide", FieldType::VarChar, width); // so that each row is a block
        if (keyedMaster)
            table.setMasterIndex(new BombMaster(&table));
        Rows rows;
        for (int i = 0; i < count; ++i)
            rows.append(made(table, i * 7 % count / 2, i % 3));
        table.appendList(rows);
        first.always = last.always = Bomb::tick;
        table.addIndex(&first);
    }
    QStringList log;
    Journal first{log};
    Journal last{log};
    Table table{"table"};
};

/// A table with all kinds of views that throw, some of them twice so that each has neighbours on
/// both sides.
struct Fixture : FilledTable
{
    Fixture(bool keyedMaster, int count, bool limited, int width)
        : FilledTable(keyedMaster, count, width)
    {
        ready.setFilter(wanted, {Group});
        if (limited)
            limit = std::make_unique<BombLimit>(count, &table);
        table.addIndex(&last);
    }

    // Changes of each kind, by single calls or by a transaction.
    void heal(int key, int kind)
    {
        const int count = table.rowCount();
        if (kind % 4 == 1) {
            table.appendRow();
        } else if (kind % 4 == 2 && count > 0) {
            table.remove(table.at(0));
        } else if (kind % 4 == 3 && count > 0) {
            table.at(count / 2).data(Key) = key;
            table.updated(table.at(count / 2), Key, Key);
        } else {
            changes.insert(made(table, key, 0));
            changes.insert(made(table, key, 2));
            if (count > 3) {
                changes.update(table.at(0), made(table, key + 1, 1), Key, Key);
                changes.update(table.at(1), made(table, key - 3, 2));
                changes.update(table.at(2), made(table, key - 40, 0));
                changes.remove(table.at(count - 1));
            }
        }
        changes.execute();
    }

    Bombed<IndexList> list{&table, true};
    Bombed<IndexSort> sorted{&table, true};
    BombKeyed keyed{&table};
    Bombed<IndexVector> vector{&table};
    SortedView ready{&table, QStringList("key")};
    WatchIndex watch{&table};
    KeyIndex keys{&table, QStringLiteral("key")};
    std::unique_ptr<BombLimit> limit;
    RecordsTrans changes{&table};
};

struct Step
{
    const char* name;
    int rows; // at first
    void (*act)(Fixture& f);
};

const Step steps[] = {
    {"transaction", 12, [](Fixture& f) { f.heal(40, 0); }},
    {"one update", 12, [](Fixture& f) { f.changes.update(f.table.at(5), made(f.table, 2, 1)); }},
    {"one removal", 12, [](Fixture& f) { f.changes.remove(f.table.at(6)); }},
    {"many insertions", 6,
     [](Fixture& f) {
         Rows rows;
         for (int i = 0; i < 20; ++i)
             rows.append(made(f.table, i * 7 % 20, i % 3));
         f.table.appendList(rows);
     }},
    {"append a row", 6, [](Fixture& f) { f.table.appendRow(made(f.table, 3, 1).row()); }},
    {"remove a row", 12, [](Fixture& f) { f.heal(0, 2); }},
    {"update in place", 12, [](Fixture& f) { f.heal(30, 3); }},
    {"clear", 12, [](Fixture& f) { f.table.clear(); }},
    {"add a column", 8,
     [](Fixture& f) {
         f.watch.clear();
         f.table.addColumn("more", FieldType::Integer);
     }},
    {"rebuild", 8,
     [](Fixture& f) {
         for (Index* index : f.table.indexes())
             index->rebuild();
     }},
    {"join", 8,
     [](Fixture& f) {
         if (f.table.masterIndex()->columns().isEmpty())
             return;
         f.watch.clear();
         Table prices("prices");
         prices.addColumn("key", FieldType::Integer);
         prices.addColumn("price", FieldType::Double);
         prices.setMasterIndex(new MasterIndex_Column_Pure(&prices, QString("key")));
         for (int key = 0; key < 5; ++key)
             prices.appendRow(made(prices, key, key / 2.0).row());
         LiveJoin join(&f.table, &prices, {"price"});
         prices.remove(prices.at(2));
     }},
    {"move", 12,
     [](Fixture& f) {
         f.list.move(1, 5, 0);
         if (f.table.masterIndex()->columns().isEmpty())
             f.table.masterIndex()->move(2, 3, 7);
     }},
    {"read", 12,
     [](Fixture& f) {
         if (f.limit || !f.table.masterIndex()->columns().isEmpty())
             return;
         Table copy("copy");
         static const QByteArray saved = bytesOf(f.table); // first in the run that is not hurt
         QDataStream stream(saved);
         const SortedView view(&copy, QVector<SortColumn>());
         const auto check = qScopeGuard([&] { // that all is right with the next change
             const int left = Shortage::left.exchange(0);
             copy.appendRow();
             if (!copy.verify().isEmpty() || copy.indexes().size() != 1)
                 qFatal("what was read: %s", qPrintable(copy.verify()));
             Shortage::left = left;
         });
         TableIO(&copy).read(stream, true);
     }},
    {"resort", 8,
     [](Fixture& f) {
         f.sorted.resort();
         f.keyed.resort();
         f.vector.resort();
     }},
};

} // namespace

class TestThrows : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // Rows changed in place are scanned for, with a warning each.
        QLoggingCategory::setFilterRules(QStringLiteral("default.warning=false"));
    }
    void anyCallMayThrow() { runAll(Bomb::left, 4); }
    void anyAllocationMayFail()
    {
        for (const bool isLasting : {false, true}) {
            Shortage::isLasting = isLasting;
            runAll(Shortage::left, 16000);
        }
    }

private:
    void runAll(std::atomic<int>& left, int width)
    {
        for (const Step& step : steps)
            for (const bool keyedMaster : {false, true})
                for (const bool limited : {false, true})
                    run(step, keyedMaster, limited, left, width);
    }
    static void apply(const Step& step, Fixture& fixture)
    {
        step.act(fixture);
        fixture.changes.execute();
    }
    void run(const Step& step, bool keyedMaster, bool limited, std::atomic<int>& left, int width)
    {
        Fixture unhurt(keyedMaster, step.rows, limited, width);
        apply(step, unhurt);
        const int rowsAfter = unhurt.table.rowCount();
        QCOMPARE(unhurt.table.verify(), QString());
        bool isSpent = true;
        for (int n = 1; isSpent; ++n) {
            Fixture fixture(keyedMaster, step.rows, limited, width);
            const QList<Index*> indexes = fixture.table.indexes();
            const QString where = QString("%1, %2 %3, keyed master %4, limited %5, for good %6: ")
                                      .arg(step.name, &left == &Bomb::left ? "call" : "allocation")
                                      .arg(n)
                                      .arg(keyedMaster)
                                      .arg(limited)
                                      .arg(Shortage::isLasting);
            left = n;
            const QString text = outcome([&] {
                try {
                    apply(step, fixture);
                } catch (const std::bad_alloc&) {
                    throw QStringLiteral("bomb");
                }
            });
            isSpent = left <= 0;
            const bool lasts = left == Shortage::lasting;
            left = 0;
            const bool thrown = text == "Q:bomb";
            QVERIFY2(thrown || text.isNull(), qPrintable(where + text));
            QCOMPARE(fixture.table.indexes(), indexes);
            const int rows = fixture.table.rowCount();
            // While memory stays short a part of what comes in may be in; nothing else is lost.
            const int least = limited ? 0 : qMin(rowsAfter, step.rows) - 1;
            const bool isPartial = lasts && rowsAfter != step.rows && rows >= least &&
                                   rows <= qMax(rowsAfter, step.rows);
            QVERIFY2(rows == rowsAfter || (thrown && (isPartial || rows == step.rows)),
                     qPrintable(where + QString::number(rows)));
            for (int key : {5, -7}) {
                fixture.heal(key, n);
                const QString fault = fixture.table.verify();
                QVERIFY2(fault.isEmpty(), qPrintable(where + fault));
            }
            if (fixture.table.rowCount() > 6)
                apply(step, fixture); // now it works
            const QString fault = fixture.table.verify();
            QVERIFY2(fault.isEmpty(), qPrintable(where + "again: " + fault));
            QVERIFY(n < 5000);
        }
    }
};

// --- what takes the place of the allocators of the program and all its libraries ---

// The first of these are called before the sanitizers are ready for code of theirs.
#define NOT_WATCHED __attribute__((no_sanitize("address", "undefined", "thread")))

NOT_WATCHED static bool isShort(const void* caller)
{
    return __atomic_load_n(reinterpret_cast<const int*>(&Shortage::left), __ATOMIC_RELAXED) &&
           Shortage::strikes(caller);
}

extern "C" NOT_WATCHED void* malloc(size_t size)
{
    return isShort(__builtin_return_address(0)) ? nullptr : REAL(malloc)(size);
}

extern "C" NOT_WATCHED int posix_memalign(void** block, size_t alignment, size_t size)
{
    if (isShort(__builtin_return_address(0)))
        return ENOMEM;
    *block = REAL(memalign)(alignment, size);
    return *block ? 0 : ENOMEM;
}

void* operator new(size_t size)
{
    void* block = isShort(__builtin_return_address(0)) ? nullptr : REAL(malloc)(size ? size : 1);
    return block ? block : throw std::bad_alloc();
}

void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    return isShort(__builtin_return_address(0)) ? nullptr : REAL(malloc)(size ? size : 1);
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, size_t) noexcept
{
    std::free(block);
}

QTEST_GUILESS_MAIN(TestThrows)

#include "tst_throws.moc"
