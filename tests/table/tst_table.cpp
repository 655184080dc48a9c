// SPDX-License-Identifier: MIT
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "support/seed.h"
#include "table/recordstrans.h"
#include "table/recordupdater.h"
#include "table/table.h"

#include <QtTest>

#include <functional>
#include <random>

namespace {

// Writes down every notification, and can act from inside one.
class Journal : public Index
{
public:
    explicit Journal(Table* watched = nullptr, QString prefix = QString())
        : table(watched)
        , name(std::move(prefix))
    {
        if (table)
            table->addIndex(this);
    }
    ~Journal() override
    {
        if (table)
            table->removeIndex(this);
    }
    void clear() override { note("clear"); }
    void build() override { note("build"); }
    void add(const Record& r) override { note("add", {r}); }
    void remove(const Record& r, int) override { note("remove", {r}); }
    void update(const Record& r, int first, int last, int) override
    {
        note(QStringLiteral("update %1-%2").arg(first).arg(last), {r});
    }
    void preprocess(const QList<Record>& removed, const QList<Record>& updated, int first, int last,
                    const QList<Record>& inserted, const QList<Record>& changes) override
    {
        note(QStringLiteral("pre %1 %2 %3 %4-%5 state %6")
                 .arg(removed.size())
                 .arg(updated.size())
                 .arg(inserted.size())
                 .arg(first)
                 .arg(last)
                 .arg(table ? table->transactionState() : -1),
             updated);
        note("new", changes);
        if (onPreprocess)
            onPreprocess();
    }
    void process(const QList<Record>& removed, const QList<Record>& updated, int first, int last,
                 const QList<Record>& inserted) override
    {
        note(QStringLiteral("process %1 %2 %3 %4-%5 state %6")
                 .arg(removed.size())
                 .arg(updated.size())
                 .arg(inserted.size())
                 .arg(first)
                 .arg(last)
                 .arg(table ? table->transactionState() : -1),
             updated);
        if (onProcess)
            onProcess();
    }
    bool filter(const Record&) const override { return true; }
    bool contains(const Record&) const override { return false; }
    void beginUpdate() override { note("begin"); }
    void endUpdate() override { note("end"); }
    void dependentBeginUpdate(Table*) override { note("dependent begin"); }
    void dependentEndUpdate(Table*) override { note("dependent end"); }
    QString getClassName() const override { return QStringLiteral("Journal"); }

    QStringList take() { return std::exchange(*log, {}); }

    Table* table;
    QString name;
    QStringList own;
    QStringList* log = &own;
    std::function<void()> onPreprocess;
    std::function<void()> onProcess;

private:
    void note(const QString& what, const QList<Record>& records = {})
    {
        QString line = name + what;
        for (const Record& r : records)
            line += ' ' + r.data(0).toString();
        log->append(line);
    }
};

int value(const Record& r, int column = 0)
{
    return r.data(column).toInteger();
}

Record row(const Table& table, int a)
{
    Record r(&table);
    r.data(0) = a;
    return r;
}

void put(const Record& r, int column, int v)
{
    r.data(column) = v;
}

std::function<QString()> thrown(const std::function<void()>& call)
{
    return [call] {
        try {
            call();
        } catch (const QString& message) {
            return message;
        }
        return QString();
    };
}

} // namespace

class TestTable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Every range of columns against a copy cell by cell.
    void copyOfColumnRange()
    {
        std::mt19937 random(1);
        Table table("t");
        for (int i = 0; i < 19; ++i)
            table.addColumn(QString::number(i), i % 3 ? FieldType::Integer : FieldType::VarChar, 5);
        for (int first = -1; first < 19; ++first) {
            for (int last = -1; last < 19; ++last) {
                Record rows[2] = {Record(&table), Record(&table)};
                for (Record& r : rows)
                    for (int c = 0; c < 19; ++c)
                        if (random() % 2)
                            put(r, c, int(random() % 99999));
                const Record before = rows[0].clone();
                rows[0].copy(rows[1], first, last);
                const int to = last < 0 ? 18 : last;
                for (int c = 0; c < 19; ++c) {
                    const Record& want = c >= first && c <= to ? rows[1] : before;
                    QCOMPARE(rows[0].data(c).isNull(), want.data(c).isNull());
                    QCOMPARE(rows[0].data(c).toString(), want.data(c).toString());
                }
            }
        }
    }

    void columnClashes_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("length");
        QTest::addColumn<QString>("error");
        const QString clash("Column '%1' already exists for table 'T'.");
        QTest::newRow("no name") << "" << 1 << 0 << "Column name can't be empty.";
        QTest::newRow("same") << "LONG" << 2 << 0 << "";
        QTest::newRow("integer in integer64") << "long" << 1 << 0 << "";
        QTest::newRow("shorter text") << "text" << 5 << 3 << "";
        QTest::newRow("longer text") << "text" << 5 << 9 << clash.arg("text");
        QTest::newRow("integer64 over integer") << "int" << 2 << 0 << clash.arg("int");
        QTest::newRow("other type, other case") << "Text" << 3 << 0 << clash.arg("Text");
        QTest::newRow("percent in the name") << "a%2" << 1 << 0 << "";
        QTest::newRow("empty text") << "new" << 5 << 0 << "Length of string can't be zero";
        QTest::newRow("no type") << "new" << 9 << 0 << "Type is undefined.";
    }
    void columnClashes()
    {
        QFETCH(QString, name);
        QFETCH(int, type);
        QFETCH(int, length);
        Table table("T");
        table.addColumn("long", FieldType::Integer64);
        table.addColumn("text", FieldType::VarChar, 4);
        table.addColumn("int", FieldType::Integer);
        table.appendRow();
        const unsigned char* before = table.at(0).row();
        const QString error =
            thrown([&] { table.addColumn(name, FieldType::Type(type), length); })();
        QTEST(error, "error");
        const bool added = table.columnCount() == 4;
        QCOMPARE(added, name == QLatin1String("a%2"));
        QCOMPARE(table.at(0).row() == before,
                 !added); // refused or accepted in silence: nothing has moved
    }

    // Columns come while rows are there: cells stay, new ones read NULL, old handles are harmless.
    void addColumnMovesRows()
    {
        Table table("t");
        table.addColumn("a", FieldType::Integer);
        SortedView view(&table, QStringList("-a"));
        for (int i = 0; i < 20; ++i)
            table.appendList({row(table, i)});
        for (int c = 1; c < 18; ++c) {
            const Record held = table.at(3);
            QTest::ignoreMessage(QtWarningMsg, "Table::addColumn : Ref count in realloc is 1");
            table.addColumn(QStringLiteral("c%1").arg(c),
                            c % 4 == 3 ? FieldType::XDecimal : FieldType::Integer, 2, c % 2);
            QVERIFY(!held.table() && held.data(0).isNull() && held.clone().isNull());
            QCOMPARE(held.dump(), QString("{ NULL }"));
            QVERIFY(!held.inTable());
            for (int i = 0; i < 20; ++i) {
                QCOMPARE(value(table.at(i)), i);
                QCOMPARE(value(view.at(19 - i)), i);
                QVERIFY(table.at(i).inTable());
                for (int before = 1; before < c; ++before)
                    QCOMPARE(table.at(i).data(before).toString(),
                             QString::number(before * i) + (before % 4 == 3 ? ".00" : ""));
                QVERIFY(table.at(i).data(c).isNull());
                table.at(i).data(c) = c * i;
            }
        }
        const Record fresh(&table);
        QVERIFY(!fresh.data(2).isNull() && fresh.data(1).isNull());
        QCOMPARE(fresh.data(4).toInteger(), 0);
    }

    void notificationsComeInOrder()
    {
        Table table("t");
        table.addColumn("a", FieldType::Integer);
        table.addColumn("b", FieldType::Integer);
        Journal one(&table, "1:");
        Journal two(&table, "2:");
        two.log = one.log;
        Journal dependent;
        dependent.log = one.log;
        table.addDependentIndex(&dependent);
        table.beginUpdate();
        table.beginUpdate();
        table.appendList({row(table, 1), row(table, 2), row(table, 3)});
        RecordsTrans changes(&table);
        RecordUpdater(changes, table.at(0)).data(0) = 7;
        changes.remove(table.at(1));
        changes.execute();
        QVERIFY(changes.isEmpty());
        table.endUpdate();
        table.endUpdate();
        const QStringList want{"dependent begin",
                               "1:begin",
                               "2:begin",
                               "1:pre 0 0 3 -1--1 state 1",
                               "1:new",
                               "2:pre 0 0 3 -1--1 state 1",
                               "2:new",
                               "1:process 0 0 3 -1--1 state 2",
                               "2:process 0 0 3 -1--1 state 2",
                               "1:pre 1 1 0 0-0 state 1 1",
                               "1:new 7",
                               "2:pre 1 1 0 0-0 state 1 1",
                               "2:new 7",
                               "1:process 1 1 0 0-0 state 2 7",
                               "2:process 1 1 0 0-0 state 2 7",
                               "1:end",
                               "2:end",
                               "dependent end"};
        QCOMPARE(one.take(), want);

        const Record first = table.at(0);
        table.updated(first, 0, 1);
        table.remove(first);
        table.appendRow(table.allocRow());
        table.clear();
        QCOMPARE(one.take(), QStringList({"1:update 0-1 7", "2:update 0-1 7", "1:remove 7",
                                          "2:remove 7", "1:add ", "2:add ", "1:clear", "2:clear"}));
        table.removeDependentIndex(&dependent);
    }

    // What a notification raises is applied afterwards, in one transaction, by whichever call it
    // came.
    void changesFromInsideWait()
    {
        Table table("t");
        table.addColumn("a", FieldType::Integer);
        table.addColumn("b", FieldType::Integer);
        SortedView view(&table, QStringList("a"));
        table.appendList({row(table, 1), row(table, 2)});
        Journal journal(&table);
        int rounds = 0;
        const auto raise = [&] {
            QVERIFY(table.transactionState() != 0);
            if (++rounds > 1)
                return;
            RecordsTrans inner(&table);
            RecordUpdater(inner, table.at(1)).data(1) = 22; // column b, while the outer changes a
            inner.execute();
            QVERIFY(inner.isEmpty());
            table.appendRow(row(table, 9).row());
            QCOMPARE(thrown([&] { table.addColumn("c", FieldType::Integer); })(),
                     QString("Columns can't be added while a transaction is applied."));
        };
        for (const bool early : {true, false}) {
            rounds = 0;
            (early ? journal.onPreprocess : journal.onProcess) = raise;
            journal.take();
            const int before = table.rowCount();
            RecordsTrans outer(&table);
            RecordUpdater(outer, table.at(1)).data(0) = early ? 5 : 6;
            outer.execute();
            QCOMPARE(value(table.at(1), 0), early ? 5 : 6);
            QCOMPARE(value(table.at(1), 1), 22);
            QCOMPARE(table.rowCount(), before + 1);
            QCOMPARE(view.count(), before + 1);
            QCOMPARE(journal.take().filter("process").size(), 2);
            journal.onPreprocess = journal.onProcess = nullptr;
        }
        Journal early(&table);
        struct Raiser : Journal
        {
            using Journal::Journal;
            void add(const Record&) override
            {
                if (const auto act = std::exchange(onProcess, nullptr))
                    act();
            }
        } raiser(&table);
        raiser.onProcess = [&] { table.appendRow(); };
        Journal late(&table);
        early.take();
        table.appendRow();
        // Each row once for every index, also for the one behind the raiser.
        QCOMPARE(early.take(), QStringList({"add ", "pre 0 0 1 -1--1 state 1", "new",
                                            "process 0 0 1 -1--1 state 2"}));
        QCOMPARE(late.take().size(), 4);
    }

    void misuseIsHarmless()
    {
        Table table("t");
        table.addColumn("a", FieldType::Integer);
        Table other("o");
        other.addColumn("a", FieldType::BoardList);
        table.appendList({row(table, 1), row(table, 2)});
        SortedView view(&table, QStringList("a"));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("Table::process : rows of another"));
        table.appendList({Record(&other), row(table, 3), Record()});
        QCOMPARE(table.rowCount(), 3);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("Table::appendRow"));
        table.appendRow(table.at(0).row());
        QCOMPARE(table.rowCount(), 3);
        table.appendList({table.at(0)}); // in it already: takes a new place
        QCOMPARE(table.rowCount(), 3);
        QCOMPARE(value(table.at(2)), 1);
        QCOMPARE(view.count(), 3);
        table.remove(Record(&other));
        table.updated(Record());
        table.updatedRow(17);
        table.setNull(-1, 0);
        table.setNull(0, 9);
        QVERIFY(table.at(-1).isNull() && table.at(3).isNull() && table.data(9, 9).isNull());
        QVERIFY(&table.at(-1) == &Record::null);
        table.setMasterIndex(nullptr);
        QCOMPARE(table.rowCount(), 0);
        QVERIFY(!table.appendRow().inTable() && Record(&table, "x").isNull());
    }

    void rowsOutliveTheirTable()
    {
        Record kept;
        RecordsTrans waiting;
        {
            Table table("t");
            table.addColumn("a", FieldType::Integer);
            for (int i = 0; i < 3000; ++i)
                table.appendRow();
            kept = table.at(1500);
            waiting.update(table.at(7), table.at(8));
        }
        QVERIFY(!kept.table() && kept.data("a").isNull() && kept.toString().isNull());
        Record copy = kept;
        copy.copy(kept, 0, 0);
        copy = Record();
        waiting.clear();
    }

    // Transactions merged into one do what they do one after the other.
    void mergedTransactions()
    {
        for (const quint32 seed : testSeeds(300)) {
            const SeedScope scope(seed);
            std::mt19937 random(seed);
            Table one("one");
            Table merged("merged");
            Table* const tables[2] = {&one, &merged};
            std::vector<Record> rows[2];
            for (const int t : {0, 1}) {
                for (int c = 0; c < 70; ++c) // more than fit in one word of a column set
                    tables[t]->addColumn(QString::number(c), FieldType::Integer);
                for (int i = 0; i < 14; ++i) {
                    rows[t].push_back(row(*tables[t], i));
                    if (i < 12) // the last two are yet to be inserted
                        tables[t]->appendList({rows[t].back()});
                }
            }
            RecordsTrans sum(&merged);
            bool gone[14] = {};
            for (int n = int(random() % 6); n >= 0; --n) {
                const bool asLists = random() % 2;
                if (asLists) // lists have one range for all: the same only with nothing pending
                    sum.execute();
                RecordsTrans part[2] = {RecordsTrans(&one), RecordsTrans(&merged)};
                for (int k = int(random() % 12); k >= 0; --k) {
                    const size_t i = random() % 14;
                    const int column = 1 + int(random() % 69);
                    const int what = int(random() % 8);
                    const int v = int(random() % 3);
                    for (const int t : {0, 1}) {
                        const Record& r = rows[t][i];
                        if (i >= 12) {
                            if (n == 0)
                                part[t].insert(r);
                        } else if (what == 0) {
                            part[t].remove(r);
                        } else if (!gone[i] && what < 5) {
                            RecordUpdater(part[t], r).data(column) = v;
                        } else if (!gone[i]) {
                            const Record content = r.clone();
                            put(content, column, v);
                            part[t].update(r, content, column, column);
                        }
                    }
                    gone[i] = gone[i] || (i < 12 && what == 0);
                }
                part[0].execute();
                if (asLists) {
                    sum.merge(part[1].removed(), part[1].updated(), part[1].firstColumn(),
                              part[1].lastColumn(), part[1].inserted(), part[1].changed());
                    sum.execute();
                } else {
                    sum.merge(part[1]);
                }
            }
            sum.execute();
            QVERIFY(sum.isEmpty() && sum.lastColumn() < sum.firstColumn());
            for (size_t i = 0; i < 14; ++i) {
                QCOMPARE(rows[1][i].inTable(), rows[0][i].inTable());
                QCOMPARE(rows[1][i].referenceCount(), rows[1][i].inTable() ? 2 : 1);
                for (int c = 0; c < 70 && rows[0][i].inTable(); ++c)
                    QCOMPARE(rows[1][i].data(c).toVariant(), rows[0][i].data(c).toVariant());
            }
        }
    }

    void mergeRules()
    {
        Table table("t");
        table.addColumn("a", FieldType::Integer);
        table.addColumn("b", FieldType::Integer);
        table.appendList({row(table, 1)});
        using Call = std::function<void(RecordsTrans&, const Record&)>;
        const Call calls[] = {nullptr, [](RecordsTrans& t, const Record& r) { t.insert(r); },
                              [](RecordsTrans& t, const Record& r) { t.remove(r); },
                              [](RecordsTrans& t, const Record& r) { t.update(r, r, 1, 1); }};
        // [held][next] -> operation, for a row that is not in the table
        const int want[4][4] = {{0, 1, 2, 3}, {1, 1, 2, 1}, {2, 1, 2, 2}, {3, 1, 2, 3}};
        for (int held = 0; held < 4; ++held) {
            for (int next = 1; next < 4; ++next) {
                RecordsTrans trans;
                const Record r = row(table, 2);
                if (held)
                    calls[held](trans, r);
                calls[next](trans, r);
                QCOMPARE(trans.operation(r), want[held][next]);
                QCOMPARE(trans.content(r).isNull(), trans.operation(r) != 3);
                QCOMPARE(trans.count(), 1);
            }
        }
        RecordsTrans nothing(&table);
        {
            RecordUpdater updater(nothing, table.at(0));
            updater.data(0) = 1; // as it is
            updater.data(1) = 3;
            updater.setNull(1); // and back again
            QVERIFY(!updater.isChanged());
            QVERIFY(updater.data("nope").isNull() && updater.data(-1).isNull());
        }
        QVERIFY(nothing.isEmpty());
        RecordsTrans whole(&table);
        whole.insert(row(table, 4));
        Journal journal(&table);
        whole.execute();
        QCOMPARE(journal.take().first(), QString("pre 0 0 1 0-1 state 1"));
    }

    void dumps()
    {
        Table table("T%2");
        table.addColumn("a", FieldType::Integer);
        table.addColumn("b", FieldType::VarChar, 9);
        Record r = row(table, 5);
        const QString head = QStringLiteral("T%2:(ptr:0x%1 ref:1) ")
                                 .arg(quintptr(r.row()), 16, 16, QLatin1Char('0'));
        QCOMPARE(r.dump(false), head + "{ a=5 b=\"\" }");
        QCOMPARE(r.dump(true), head + "{ a=5 }");
        r.data(1) = QString("x %1 %4");
        QCOMPARE(r.dump(true), head + "{ a=5 b=x %1 %4 }");
        QCOMPARE(Record::null.dump(), QString("{ NULL }"));
    }
};

QTEST_GUILESS_MAIN(TestTable)
#include "tst_table.moc"
