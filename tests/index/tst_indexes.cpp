// SPDX-License-Identifier: MIT
#include "index/indexdependbase.h"
#include "index/keyindex.h"
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "index/watchindex.h"
#include "support/journal.h"
#include "support/outcome.h"
#include "support/seed.h"

#include <QtTest>

#include <atomic>
#include <climits>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <random>

namespace {

constexpr double inf = std::numeric_limits<double>::infinity();

class Random
{
public:
    explicit Random(quint32 seed)
        : engine(seed)
    {}
    int below(int n) { return int(engine() % quint32(n)); }
    qint64 wide()
    {
        return qint64((quint64(engine()) << 32 | engine()) >> below(64)) * (below(2) * 2 - 1);
    }

    // Values that make sort keys hard: close together, at every limit, out of what a key can tell.
    void fill(Field cell)
    {
        if (below(6) == 0)
            return cell.setNull();
        switch (cell.type()) {
        case FieldType::Integer:
            cell = int(pick<qint64>({wide() % 5, wide(), INT_MIN, INT_MAX}));
            break;
        case FieldType::Integer64:
        case FieldType::DateTime: {
            const qint64 top = qint64(1) << (57 + below(6));
            const qint64 v = pick({wide() % 5, wide(), top + below(3) - 1, -top + below(3) - 1});
            if (cell.type() == FieldType::DateTime)
                cell = datetime(v);
            else
                cell = v;
            break;
        }
        case FieldType::Double:
            cell = pick({0.0, -0.0, inf, -inf, std::nan(""), 1.0, std::nextafter(1.0, 2.0),
                         double(wide()), 1e-300, -1e300});
            break;
        case FieldType::Decimal: {
            const qint64 m = pick<qint64>({wide() % 5, wide() >> 7, 10 + below(2), -10 - below(2)});
            cell = decimal::fromMantissa(m, below(4) ? below(12) : below(120) - 60);
            break;
        }
        case FieldType::XDecimal:
            cell = xdecimal::fromInt64(wide() % 50, below(3));
            break;
        default: {
            const auto words =
                QString("A|AB|AB |ABCDEFGHI|ABCDEFGHJ|a|ä|Ж|\x01|~|~\x7f|\x7f|\u0080|\037B")
                    .split('|');
            cell = words.at(below(words.size()));
        }
        }
    }
    Record row(const Table& table)
    {
        const Record record(&table);
        for (int c = 0; c < table.columnCount(); ++c)
            fill(record.data(c));
        return record;
    }
    QVector<SortColumn> order(const Table& table)
    {
        QVector<SortColumn> columns;
        for (int i = below(4); i >= 0; --i)
            columns.append({below(table.columnCount()), SortColumn::Order(below(2)),
                            SortColumn::Nulls(below(2))});
        return columns;
    }

private:
    template <class T>
    T pick(std::initializer_list<T> values)
    {
        return values.begin()[below(int(values.size()))];
    }
    std::mt19937 engine;
};

void addAllColumns(Table& table)
{
    table.addColumn("int", FieldType::Integer);
    table.addColumn("long", FieldType::Integer64);
    table.addColumn("double", FieldType::Double);
    table.addColumn("decimal", FieldType::Decimal, 2);
    table.addColumn("text", FieldType::VarChar, 10);
    table.addColumn("time", FieldType::DateTime);
    table.addColumn("char", FieldType::VarChar, 1);
    table.addColumn("wide", FieldType::XDecimal, 2);
}

// The order as its user would write it, from Field::compare alone.
int plainCompare(const QVector<SortColumn>& columns, const Record& a, const Record& b)
{
    for (const SortColumn& column : columns) {
        const Field x = a.data(column.column);
        const Field y = b.data(column.column);
        if (x.isNull() != y.isNull())
            return x.isNull() == (column.nulls == SortColumn::NullsFirst) ? -1 : 1;
        const int order = x.compare(y);
        if (order != 0)
            return (order < 0) == (column.order == SortColumn::Ascending) ? -1 : 1;
    }
    return 0;
}

// A view as a host writes it, without keys.
class HostView : public IndexSort
{
public:
    HostView(Table* table, const QVector<SortColumn>& order)
        : IndexSort(table, true)
        , columns(order)
    {}
    int compare(const Record& a, const Record& b) const override
    {
        if (callsLeft-- == 0)
            throw QStringLiteral("compare");
        return plainCompare(columns, a, b);
    }
    bool filter(const Record& record) const override
    {
        return !isPicky || !record.data(0).isNull();
    }

    const QVector<SortColumn> columns;
    bool isPicky = false;
    mutable std::atomic<int> callsLeft{-1};
};

} // namespace

class TestIndexes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // a .. d stand for rows, + - * for adding, removing and updating, ! for clear, ? for build.
    void watchFollowsScripts()
    {
        const std::pair<QString, QString> scripts[] = {
            // and what is then added/removed/updated
            {"+a+b", "ab//"},   {"-a-b", "/ab/"},        {"*a*b*a", "//aba"},
            {"-a+a", "//a"},    {"+a-a", "a/a/"},        {"+a-a+a", "a//a"},
            {"*a-a", "/a/a"},   {"*a-a+a", "//aa"},      {"-a-b-c+b", "/ac/b"},
            {"-a-a+a", "/a/a"}, {"-a-a+a+a+a", "a//aa"}, {"-a-b-a+a", "/ba/a"},
            {"-a!+a", "a//"},   {"-a?+a", "a//"},        {"+a-b*c!", "//"},
        };
        Table table("rows");
        table.addColumn("name", FieldType::VarChar, 1);
        Record rows[4];
        for (int i = 0; i < 4; ++i)
            rows[i] = row(table, QChar('a' + i));
        const auto text = [](const QList<Record>& records) {
            QString names;
            for (const Record& record : records)
                names += record.data(0).toString();
            return names;
        };
        for (const auto& [script, expected] : scripts) {
            WatchIndex watch(&table);
            for (int i = 0; i < script.size(); ++i) {
                const char operation = script.at(i).toLatin1();
                if (operation == '!')
                    watch.clear();
                else if (operation == '?')
                    watch.build();
                else {
                    const Record& named = rows[script.at(++i).unicode() - 'a'];
                    operation == '+'   ? watch.add(named)
                    : operation == '-' ? watch.remove(named, 7)
                                       : watch.update(named, 0, 0, 3);
                }
            }
            const QString added = text(watch.added());
            const QString updated = text(watch.updated());
            QCOMPARE(added + '/' + text(watch.removed()) + '/' + updated, expected);
            for (const Record& r : rows)
                QCOMPARE(watch.contains(r), (added + updated).contains(r.data(0).toString()));
        }
    }

    void dependentsMayComeAndGo()
    {
        QStringList log;
        IndexDependBase base;
        std::unique_ptr<Journal> journals[4];
        for (std::size_t i = 0; i < 4; ++i)
            journals[i] = std::make_unique<Journal>(log, QString(QChar('a' + int(i))));
        base.clear();                                // nobody hears it
        for (const std::size_t i : {0u, 1u, 2u, 1u}) // told as often as it was added
            base.addDependentIndex(journals[i].get());
        base.add(Record());
        base.removeDependentIndex(journals[1].get()); // the first of its two places
        QCOMPARE(base.dependentIndexes().last(), journals[1].get());
        const auto leave = [&](std::size_t i) {
            base.removeDependentIndex(journals[i].get());
            journals[i].reset();
        };
        journals[2]->at("clear", [&] {
            base.addDependentIndex(journals[3].get());
            base.removeDependentIndex(journals[1].get()); // whose turn would come next
            for (const std::size_t i : {0u, 2u})
                leave(i);
        });
        base.clear();
        journals[3]->at("build", [&] { leave(3); });
        base.build();
        base.build();
        QCOMPARE(log, (QStringList{"a add ", "b add ", "c add ", "b add ", "a clear", "c clear",
                                   "d build"}));
        // Those behind one that throws are told all the same, then the first failure goes on.
        for (const char name : {'x', 'y', 'z'})
            base.addDependentIndex(new Journal(log, QString(name)));
        log.clear();
        const QList<Index*> dependents = base.dependentIndexes();
        for (Index* index : dependents.mid(0, 2))
            static_cast<Journal*>(index)->at("remove", [index] { throw index->getClassName(); });
        QCOMPARE(outcome([&] { base.remove(Record(), 3); }), QString("Q:x"));
        QCOMPARE(log.size(), 3);
        qDeleteAll(dependents);
    }

    // A row that changes behind the table's back is missed nowhere; what kind an index is, others
    // tell by its name.
    void verifyFindsSilentChanges()
    {
        IntegerTable table("t", {"n"});
        for (int n = 0; n < 3; ++n)
            table.appendRow(row(table, n).row());
        const auto isSmall = [](const Record& r) { return r.data(0).toInteger() < 10; };
        struct Small : IndexList
        {
            using IndexList::IndexList;
            bool filter(const Record& r) const override { return r.data(0).toInteger() < 10; }
        } list(&table, true);
        list.build();
        SortedView view(&table, QStringList("n"));
        SortedView filtered(&table, QStringList("-n"));
        filtered.setFilter(isSmall, {0});
        KeyIndex keys(&table, "n");
        KeyVector vector(&table);
        vector.build();
        HostView host(&table, {{0}});
        host.build();
        QStringList names;
        for (const int n : {20, 0}) {
            const Record first = table.at(0);
            first.data(0) = n;
            const QVector<Index*> all{&list, &view, &filtered, &keys, &vector, &host};
            for (Index* index : all) {
                IndexDependBase base(index);
                base.addDependentIndex(base.index());
                const QString fault = base.verify();
                QVERIFY2(fault.isEmpty() == (n == 0), qPrintable(index->getClassName()));
                QVERIFY(n == 0 || fault.startsWith(index->getClassName() + ": "));
                names.append(index->getClassName());
            }
            QCOMPARE(table.verify().isEmpty(), n == 0);
        }
        QCOMPARE(names.mid(6).join(' '),
                 QString("IndexList SortedView SortedView KeyIndex IndexVector IndexSort"));
        // Nor rows that do not belong there.
        const IntegerTable other("other", {"n"});
        const std::pair<Record, const char*> strangers[] = {
            {row(other, 1), "it holds a row that is not the table's"},
            {row(table, 1), "it holds a row that is not in the table"},
            {table.at(1), "it holds a row twice"},
        };
        for (const auto& [stranger, fault] : strangers) {
            list.add(stranger);
            QCOMPARE(list.verify(), QString(fault));
            list.remove(stranger, list.count() - 1);
            QCOMPARE(list.verify(), QString());
        }
        table.at(2).data(0) = -1; // the last one would be the first: it is not found by its value
        QTest::ignoreMessage(QtWarningMsg, "update Full search can impact the performance");
        host.update(table.at(2), 0, 0, -1);
    }

    void refusesWhatCannotBeSorted()
    {
        Table table("t");
        for (const char* name : {"a", "b", "d"})
            table.addColumn(name, FieldType::Integer, 0, name[0] == 'd');
        table.addColumn("c", FieldType::Double, 0, false);
        const auto view = [&](auto columns) { SortedView(&table, columns, false); };
        const auto pure = [&](auto columns) { MasterIndex_Column_Pure(&table, columns); };
        const auto fast = [&](auto columns) { MasterIndex_Fast_Pure(&table, columns); };
        using Names = QStringList;
        using Numbers = QList<int>;
        const std::pair<QString, std::function<void()>> rows[] = {
            {"Column 'x' not found to create index.", [=] { view(Names("-x")); }},
            {"Column '9' not found to create index.", [=] { view(QVector<SortColumn>{{9}}); }},
            {"Column 'x' not found to create index.", [=] { pure(Names("x")); }},
            {"Columns must be sequenced: 3(c) / 1", [=] { fast(Numbers() << 0 << 3); }},
            {"Type 'Double' unsuported for c", [=] { fast(Names("c")); }},
            {"Columns can't be nullable d", [=] { fast(Numbers() << 1 << 2); }},
            {"Column 'c' not found to create index.", [&] { KeyIndex(&table, "c"); }},
        };
        for (const auto& [error, make] : rows)
            QCOMPARE(outcome(make), "Q:" + error);
        auto* master = new MasterIndex_Column_Pure(&table, Names{"b", "a"});
        table.setMasterIndex(master);
        QCOMPARE(outcome([&] { Record(&table, "1,2,3"); }),
                 QString("Q:Master index can't restore from text. Incorrect columns numbers: "
                         "3 != 2"));
        QVERIFY(master->toText(Record()).isNull() && master->keyRecord(Record()).isEmpty());
        QVERIFY(master->search(Record()) < 0 && master->searchLast(Record()) < 0 &&
                master->searchFull(Record()) < 0 && master->findFirst(Record()).isNull());
        QCOMPARE(master->keyRecord(row(table, 1, 258)).toHex(), QByteArray("0201000001000000"));
    }

    void blocksMove()
    {
        IntegerTable table("t", {"n"});
        for (int i = 0; i < 6; ++i)
            table.appendRow();
        SortedView keyed(&table, QStringList("n"));
        for (IndexList* list :
             {static_cast<IndexList*>(&keyed), static_cast<IndexList*>(table.masterIndex())})
            for (int i = 0; i < 8 * 8 * 8; ++i) {
                const int first = i % 8 - 1, last = i / 8 % 8 - 1, to = i / 64 - 1;
                QList<Record> wanted(list->begin(), list->end());
                const int n = last - first + 1;
                if (first >= 0 && n > 0 && last < 6 && to >= 0 && to <= 6 - n && to != last) {
                    const QList<Record> block = wanted.mid(first, n);
                    wanted.erase(wanted.begin() + first, wanted.begin() + last + 1);
                    wanted = wanted.mid(0, to) + block + wanted.mid(to);
                }
                list->move(first, last, to);
                QVERIFY(std::equal(wanted.begin(), wanted.end(), list->begin(), list->end()));
                QCOMPARE(table.masterIndex()->indexOf(table.at(i % 6)), i % 6);
            }
        QCOMPARE(keyed.indexOfs({table.at(5), Record(), row(table, 1)}).keys(),
                 QList<Record>({table.at(5)}));
        // Another master takes the rows over as they stand, and the table goes on.
        for (const bool isKeyed : {false, true}) {
            const QList<Record> wanted(table.masterIndex()->begin(), table.masterIndex()->end());
            auto* next = isKeyed ? new MasterIndex_Column_Pure(&table, QStringList("n"))
                                 : static_cast<MasterIndex*>(new MasterIndexOrdered(&table));
            next->build();
            table.setMasterIndex(next);
            QVERIFY(std::equal(wanted.begin(), wanted.end(), next->begin(), next->end()));
            QCOMPARE(next->verify(), QString());
            table.remove(table.at(2));
            QCOMPARE(next->indexOf(wanted.at(3)), 2);
        }
    }

    // A view built over a full table, on several threads and by keys of each width, against a plain
    // stable sort: keys must never contradict the order of the cells, whatever these hold.
    void buildsInOneGo()
    {
        for (const int n : {0, 1, 511, 512, 30000}) {
            Table table(QStringLiteral("t"));
            addAllColumns(table);
            const quint32 seed = testSeeds(1).first();
            const SeedScope scope(seed);
            Random random(seed + quint32(n));
            QList<Record> rows;
            for (int i = 0; i < n; ++i)
                rows.append(random.row(table));
            table.appendList(rows);
            for (int round = 0; round < (n > 600 ? 6 : 60); ++round) {
                const QVector<SortColumn> columns = random.order(table);
                HostView plain(&table, columns);
                SortedView typed(&table, columns);
                QList<Record> wanted = rows;
                if (round % 2) {
                    plain.isPicky = true;
                    typed.setFilter([&](const Record& record) { return plain.filter(record); },
                                    {0});
                    wanted.erase(std::remove_if(wanted.begin(), wanted.end(),
                                                [&](const Record& r) { return !plain.filter(r); }),
                                 wanted.end());
                }
                std::stable_sort(wanted.begin(), wanted.end(),
                                 [&](const Record& a, const Record& b) {
                                     return plainCompare(columns, a, b) < 0;
                                 });
                plain.build();
                for (const IndexList* view :
                     {static_cast<IndexList*>(&plain), static_cast<IndexList*>(&typed)}) {
                    QVERIFY(std::equal(view->begin(), view->end(), wanted.begin(), wanted.end()));
                    QCOMPARE(view->verify(), QString());
                }
            }
            // A compare() that throws: the rows are there, and in order with the next change.
            HostView broken(&table, {{1, SortColumn::Ascending, SortColumn::NullsFirst}});
            broken.callsLeft = n / 2;
            QCOMPARE(outcome([&] { broken.build(); }), QString(n > 1 ? "Q:compare" : ""));
            QCOMPARE(broken.verify().contains("at the next notification"), n > 1);
            broken.callsLeft = -1;
            QCOMPARE(broken.count(), n);
            table.appendRow();
            QCOMPARE(broken.count(), n + 1);
            QCOMPARE(table.verify(), QString());
        }
    }

    // The usual orders are told by their keys alone: no row is read to search in them.
    void usualKeysAreExact()
    {
        Table table("t");
        addAllColumns(table);
        Record r(&table);
        r.data("int") = 20200320;
        r.data("char") = QString("C");
        r.data("text") = QString("ESH20");
        r.data("decimal") = decimal(QStringLiteral("3213.625"));
        r.data("time") = datetime(1578268800000);
        for (const char* columns : {"decimal", "-time", "text,decimal", "int,char,-decimal"}) {
            const SortedView view(&table, QString(columns).split(','));
            QVERIFY2(view.isSortKeyExact(view.sortKey(r)), columns);
        }
    }
};

QTEST_GUILESS_MAIN(TestIndexes)

#include "tst_indexes.moc"
