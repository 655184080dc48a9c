// SPDX-License-Identifier: MIT
#include "index/indexdependbase.h"
#include "index/indexvector.h"
#include "index/watchindex.h"
#include "support/journal.h"

#include <QtTest>

#include <memory>

namespace {

struct KeyVector : IndexVector
{
    using IndexVector::IndexVector;
    int compare(const Record& a, const Record& b) const override
    {
        return a.data(0).compare(b.data(0));
    }
};

} // namespace

class TestSmallIndexes : public QObject
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

    void dependentsAreToldAll()
    {
        Table table("t");
        table.addColumn("n", FieldType::Integer);
        const Record eight = row(table, 8);
        QStringList log;
        Journal a(log, "a");
        Journal b(log, "b");
        IndexDependBase base(&a);
        QCOMPARE(base.index(), &a);
        base.add(eight); // nobody hears it
        for (Journal* dependent : {&b, &a, &b})
            base.addDependentIndex(dependent);
        base.add(eight);
        base.removeDependentIndex(&b);
        QCOMPARE(base.dependentIndexes(), (QList<Index*>{&a, &b}));
        base.removeDependentIndex(&b);
        base.removeDependentIndex(&b);
        base.clear();
        base.build();
        base.remove(eight, 3);
        base.update(eight, 1, 2, 4);
        base.preprocess({eight}, {eight, eight}, 5, 6, {}, {eight, eight, eight});
        base.process({}, {eight}, -1, 3, {eight, eight});
        QCOMPARE(log, (QStringList{"b add 8", "a add 8", "b add 8", "a clear", "a build",
                                   "a remove 3 : 8", "a update 1-2 4 : 8",
                                   "a pre 1 2 0 5-6 state -1 : 8 8", "a new 8 8 8",
                                   "a process 0 1 2 -1-3 state -1 : 8"}));
    }

    void dependentsMayComeAndGo()
    {
        QStringList log;
        IndexDependBase base;
        std::unique_ptr<Journal> journals[4];
        for (std::size_t i = 0; i < 4; ++i)
            journals[i] = std::make_unique<Journal>(log, QString(QChar('a' + int(i))));
        for (std::size_t i = 0; i < 3; ++i)
            base.addDependentIndex(journals[i].get());
        const auto leave = [&](std::size_t i) {
            base.removeDependentIndex(journals[i].get());
            journals[i].reset();
        };
        journals[1]->at("clear", [&] {
            base.addDependentIndex(journals[3].get());
            for (const std::size_t i : {0u, 1u, 2u})
                leave(i);
        });
        base.clear();
        journals[3]->at("build", [&] { leave(3); });
        base.build();
        base.build();
        QCOMPARE(log, (QStringList{"a clear", "b clear", "d build"}));
    }

    void tablesMayDieFirst()
    {
        auto table = std::make_unique<Table>("t");
        table->addColumn("n", FieldType::Integer);
        table->appendList({row(*table, 1)});
        WatchIndex watch(table.get());
        KeyVector vector(table.get());
        vector.rebuild();
        watch.add(vector.records().at(0));
        QCOMPARE(vector.indexOf(vector.records().at(0)), -1);
        QCOMPARE(vector.getClassName(), QString("IndexVector"));
        QVERIFY(watch.table() == table.get() && vector.table() == table.get());
        table.reset();
        QVERIFY(!watch.table() && !vector.table());
        vector.rebuild();
        QVERIFY(watch.added().isEmpty() && vector.records().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestSmallIndexes)

#include "tst_smallindexes.moc"
