// SPDX-License-Identifier: MIT
#include "index/sortedview.h"
#include "support/seed.h"
#include "table/table.h"

#include <QtTest>

#include <climits>
#include <cmath>
#include <limits>
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

} // namespace

class TestSortedView : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Keys must never contradict the order that Field::compare gives, whatever the cells hold.
    void keysKeepTheOrder()
    {
        for (const quint32 seed : testSeeds(60)) {
            const SeedScope scope(seed);
            Random random(seed);
            Table table("t");
            addAllColumns(table);
            QList<Record> rows;
            for (int i = 0; i < 50; ++i)
                rows.append(random.row(table));
            const QVector<SortColumn> columns = random.order(table);
            SortedView view(&table, columns);
            for (const Record& a : rows) {
                for (const Record& b : rows) {
                    const int want = plainCompare(columns, a, b);
                    QCOMPARE(qBound(-1, view.compare(a, b), 1), want);
                    const SortKey x = view.sortKey(a);
                    const SortKey y = view.sortKey(b);
                    QVERIFY(view.sortKeyWords() == 2 || (x.low == 0 && y.low == 0));
                    QVERIFY2(!(x < y) || want < 0, qPrintable(a.dump() + '\n' + b.dump()));
                    QVERIFY(x != y || !view.isSortKeyExact(x) || want == 0);
                }
            }
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

QTEST_APPLESS_MAIN(TestSortedView)
#include "tst_sortedview.moc"
