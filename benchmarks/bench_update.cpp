// SPDX-License-Identifier: MIT
// What one price update costs in a large table with live views: loads the rows, builds four sorted
// views, then changes the price and the time of random rows, one transaction each.
//
//     bench_update [ROWS] [UPDATES] [observed]
//
// One line per figure: subject workload figure value unit. At the end every view is compared with a
// fresh sort of the table; a difference ends the program with exit code 1.
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "table/recordstrans.h"
#include "table/recordupdater.h"
#include "table/table.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace {

enum Column
{
    Id,
    Board,
    Symbol,
    Price,
    Bid,
    Ask,
    Quantity,
    Volume,
    Time,
    Status
};

// Deterministic, the same on every machine (xorshift64*).
class Random
{
public:
    quint64 next()
    {
        state ^= state >> 12;
        state ^= state << 25;
        state ^= state >> 27;
        return state * 2685821657736338717ull;
    }
    int below(int n) { return static_cast<int>(next() % static_cast<quint64>(n)); }

private:
    quint64 state = 88172645463325252ull;
};

double seconds()
{
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

void report(const char* workload, const char* figure, double value, const char* unit)
{
    std::printf("livetable %s %s %.2f %s\n", workload, figure, value, unit);
}

void addColumns(Table& table)
{
    table.addColumn(QStringLiteral("id"), FieldType::Integer64, 0, false);
    table.addColumn(QStringLiteral("board"), FieldType::Integer);
    table.addColumn(QStringLiteral("symbol"), FieldType::VarChar, 16);
    table.addColumn(QStringLiteral("price"), FieldType::Decimal, 2);
    table.addColumn(QStringLiteral("bid"), FieldType::Decimal, 2);
    table.addColumn(QStringLiteral("ask"), FieldType::Decimal, 2);
    table.addColumn(QStringLiteral("quantity"), FieldType::Integer64);
    table.addColumn(QStringLiteral("volume"), FieldType::Double);
    table.addColumn(QStringLiteral("time"), FieldType::DateTime);
    table.addColumn(QStringLiteral("status"), FieldType::VarChar, 4);
}

Record makeRow(const Table& table, Random& random, qint64 id)
{
    const Record row(&table);
    const qint64 price = 1000 + random.below(1000000);
    row.data(Id) = id;
    row.data(Board) = random.below(20);
    row.data(Symbol) = QStringLiteral("SYM%1").arg(random.below(5000), 4, 10, QLatin1Char('0'));
    row.data(Price) = decimal::fromMantissa(price, 2);
    row.data(Bid) = decimal::fromMantissa(price - 1, 2);
    row.data(Ask) = decimal::fromMantissa(price + 1, 2);
    row.data(Quantity) = static_cast<qint64>(random.below(100000));
    row.data(Volume) = random.below(1000000) * 0.5;
    row.data(Time) = datetime(1500000000000 + random.below(86400000));
    row.data(Status) = QStringLiteral("OPEN");
    return row;
}

bool isRight(const IndexSort& view, const Table& table)
{
    if (view.count() != table.rowCount())
        return false;
    std::vector<const unsigned char*> have;
    const Record* last = nullptr;
    for (const Record& record : view) {
        if (last && view.compare(*last, record) > 0)
            return false;
        last = &record;
        have.push_back(record.row());
    }
    std::vector<const unsigned char*> want;
    for (const Record& record : *table.masterIndex())
        want.push_back(record.row());
    std::sort(have.begin(), have.end());
    std::sort(want.begin(), want.end());
    return have == want;
}

class Positions : public IndexObserver
{
public:
    void indexChanged(const IndexList&, const IndexChange& change) override
    {
        for (int i = 0; i < change.movedCount; ++i)
            sum += change.moved[i].from - change.moved[i].to;
    }
    void indexReset(const IndexList&) override {}
    qint64 sum = 0;
};

using Views = std::vector<std::unique_ptr<SortedView>>;

// Fills the table and builds the views; returns the rows by id.
std::vector<Record> load(Table& table, Views& views, Random& random, int rows)
{
    double start = seconds();
    QList<Record> batch;
    for (int i = 0; i < rows; ++i)
        batch.append(makeRow(table, random, i));
    report("load", "make rows", seconds() - start, "s");
    start = seconds();
    table.appendList(batch);
    report("load", "insert", seconds() - start, "s");
    start = seconds();
    for (const QStringList& columns : {QStringList{QStringLiteral("price")},
                                       {QStringLiteral("symbol"), QStringLiteral("price")},
                                       {QStringLiteral("time")},
                                       {QStringLiteral("-quantity")}})
        views.push_back(std::make_unique<SortedView>(&table, columns));
    report("load", "build 4 views", seconds() - start, "s");
    return std::vector<Record>(batch.cbegin(), batch.cend());
}

void update(Table& table, const std::vector<Record>& rows, Random& random, int updates)
{
    std::vector<float> micros;
    micros.reserve(static_cast<size_t>(updates));
    RecordsTrans changes(&table);
    table.beginUpdate();
    const double start = seconds();
    for (int i = 0; i < updates; ++i) {
        const Record& row = rows[static_cast<size_t>(random.below(static_cast<int>(rows.size())))];
        const decimal price = decimal::fromMantissa(1000 + random.below(1000000), 2);
        const double before = seconds();
        RecordUpdater updater(changes, row);
        updater.data(Price) = price;
        updater.data(Time) = datetime(1500086400000 + i);
        updater.commit();
        changes.execute();
        micros.push_back(static_cast<float>((seconds() - before) * 1e6));
    }
    const double took = seconds() - start;
    table.endUpdate();
    std::sort(micros.begin(), micros.end());
    const auto percentile = [&](double p) {
        return double(micros[static_cast<size_t>(p * static_cast<double>(updates - 1))]);
    };
    report("single-row update", "rate", updates / took, "1/s");
    report("single-row update", "p50", percentile(0.5), "us");
    report("single-row update", "p99", percentile(0.99), "us");
}

} // namespace

int main(int argc, char** argv)
{
    const int rows = argc > 1 ? std::atoi(argv[1]) : 1000000;
    const int updates = argc > 2 ? std::atoi(argv[2]) : 200000;
    const bool observed = argc > 3;
    if (rows < 1 || updates < 1) {
        std::printf("usage: bench_update [ROWS] [UPDATES] [observed]\n");
        return 2;
    }
    Random random;
    Table table(QStringLiteral("quotes"));
    addColumns(table);
    table.setMasterIndex(new MasterIndex_Column_Pure(&table, QStringLiteral("id")));
    Views views;
    const std::vector<Record> all = load(table, views, random, rows);

    Positions positions;
    for (const auto& view : views)
        if (observed)
            view->addObserver(&positions);
    update(table, all, random, updates);
    if (observed)
        report("single-row update", "sum of moves", static_cast<double>(positions.sum),
               "positions");

    for (const auto& view : views) {
        if (!isRight(*view, table)) {
            std::printf("livetable: a view is not right\n");
            return 1;
        }
        view->removeObserver(&positions);
    }
    return 0;
}
