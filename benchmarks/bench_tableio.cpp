// SPDX-License-Identifier: MIT
// What saving and loading a large table costs, plain and gzip, with and without live views, beside
// SQLite's backup API to and from a file with the same rows (when SQLite was found).
//
//     bench_tableio DIR [ROWS]
//
// One line per figure: subject workload figure value unit. Each figure is the best of three runs.
// What was loaded is compared with what was saved; a difference ends the program with exit code 1.
#include "base/hostcore.h"
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "io/tableio.h"
#include "table/table.h"

#include <QDir>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#ifdef LIVETABLE_WITH_SQLITE
#include <sqlite3.h>
#endif

namespace {

constexpr int repeats = 3;

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

double best(const std::function<void()>& work)
{
    double least = 1e9;
    for (int i = 0; i < repeats; ++i) {
        const double start = seconds();
        work();
        least = std::min(least, seconds() - start);
    }
    return least;
}

void report(const char* subject, const char* workload, const char* figure, double value,
            const char* unit)
{
    std::printf("%s %s %s %.3f %s\n", subject, workload, figure, value, unit);
    std::fflush(stdout);
}

void addColumns(Table& table)
{
    table.addColumn(QStringLiteral("id"), FieldType::Integer64, 0, false);
    table.addColumn(QStringLiteral("board"), FieldType::Integer64);
    table.addColumn(QStringLiteral("symbol"), FieldType::VarChar, 8);
    table.addColumn(QStringLiteral("price"), FieldType::Decimal, 2);
    table.addColumn(QStringLiteral("bid"), FieldType::Decimal, 2);
    table.addColumn(QStringLiteral("ask"), FieldType::Decimal, 2);
    table.addColumn(QStringLiteral("quantity"), FieldType::Integer64);
    table.addColumn(QStringLiteral("volume"), FieldType::Double);
    table.addColumn(QStringLiteral("time"), FieldType::DateTime);
    table.addColumn(QStringLiteral("status"), FieldType::Integer);
}

void fill(Table& table, int rows)
{
    Random random;
    QList<Record> records;
    records.reserve(rows);
    for (int i = 0; i < rows; ++i) {
        const Record row(&table);
        const qint64 price = 1000 + random.below(1000000);
        row.data(0) = static_cast<qint64>(i);
        row.data(1) = static_cast<qint64>(random.below(20));
        row.data(2) = QStringLiteral("SYM%1").arg(random.below(5000), 4, 10, QLatin1Char('0'));
        row.data(3) = decimal::fromMantissa(price, 2);
        row.data(4) = decimal::fromMantissa(price - 1, 2);
        row.data(5) = decimal::fromMantissa(price + 1, 2);
        row.data(6) = static_cast<qint64>(random.below(100000));
        row.data(7) = random.below(1000000) * 0.5;
        row.data(8) = datetime(1500000000000 + random.below(86400000));
        row.data(9) = random.below(4);
        records.append(row);
    }
    table.appendList(records);
}

std::vector<std::unique_ptr<SortedView>> fourViews(Table& table)
{
    std::vector<std::unique_ptr<SortedView>> views;
    for (const char* column : {"price", "-quantity", "symbol", "time"})
        views.push_back(std::make_unique<SortedView>(&table, QStringList(QLatin1String(column))));
    return views;
}

bool isSame(const Table& a, const Table& b)
{
    if (a.rowCount() != b.rowCount() || a.rowSize() != b.rowSize())
        return false;
    const int bytes = static_cast<int>(a.rowSize()) - 16;
    for (auto x = a.masterIndex()->begin(), y = b.masterIndex()->begin(),
              end = a.masterIndex()->end();
         x != end; ++x, ++y)
        if (std::memcmp(x->row() + 16, y->row() + 16, static_cast<size_t>(bytes)) != 0)
            return false;
    return true;
}

bool runTables(Table& table, const QDir& dir, HostCore& core)
{
    for (const bool compress : {false, true}) {
        core.setCompressTables(compress);
        const char* kind = compress ? "gzip" : "plain";
        TableIO io(&table);
        report("livetable", kind, "save", best([&] { io.write(dir); }), "s");
        if (io.status() != TableIO::Ok) {
            std::fprintf(stderr, "%s\n", qPrintable(io.errorString()));
            return false;
        }
        for (const bool strict : {false, true}) {
            double least = 1e9;
            bool isRight = true;
            for (int i = 0; i < repeats; ++i) {
                Table copy(table.name());
                addColumns(copy);
                TableIO in(&copy);
                in.setStrict(strict);
                const double start = seconds();
                in.read(dir, false);
                least = std::min(least, seconds() - start);
                isRight = isRight && in.status() == TableIO::Ok && isSame(table, copy);
            }
            report("livetable", kind, strict ? "load-strict" : "load", least, "s");
            if (!isRight)
                return false;
        }
        double least = 1e9;
        double sorting = 1e9;
        for (int i = 0; i < repeats; ++i) {
            Table copy(table.name());
            addColumns(copy);
            const auto views = fourViews(copy);
            double start = seconds();
            TableIO(&copy).read(dir, false);
            least = std::min(least, seconds() - start);
            start = seconds();
            for (const auto& view : views)
                view->rebuild();
            sorting = std::min(sorting, seconds() - start);
        }
        report("livetable", kind, "load-4-views", least, "s");
        report("livetable", kind, "sort-4-views", sorting, "s");
    }
    return true;
}

#ifdef LIVETABLE_WITH_SQLITE

void check(int code, sqlite3* db)
{
    if (code != SQLITE_OK && code != SQLITE_DONE && code != SQLITE_ROW)
        qFatal("sqlite: %s", sqlite3_errmsg(db));
}

void backup(sqlite3* to, sqlite3* from)
{
    sqlite3_backup* job = sqlite3_backup_init(to, "main", from, "main");
    check(sqlite3_backup_step(job, -1), to);
    check(sqlite3_backup_finish(job), to);
}

void runSqlite(const Table& table, const QDir& dir)
{
    sqlite3* memory = nullptr;
    check(sqlite3_open(":memory:", &memory), memory);
    check(sqlite3_exec(memory,
                       "create table quotes(id integer primary key, board int, symbol text, price"
                       " int, bid int, ask int, quantity int, volume real, time int, status int);"
                       "begin",
                       nullptr, nullptr, nullptr),
          memory);
    sqlite3_stmt* insert = nullptr;
    check(sqlite3_prepare_v2(memory, "insert into quotes values(?,?,?,?,?,?,?,?,?,?)", -1, &insert,
                             nullptr),
          memory);
    for (const Record& row : *table.masterIndex()) {
        for (const int c : {0, 1, 6})
            sqlite3_bind_int64(insert, c + 1, row.data(c).toInteger64());
        for (const int c : {3, 4, 5})
            sqlite3_bind_int64(insert, c + 1, row.data(c).toDecimal().raw());
        const QByteArray symbol = row.data(2).toString().toUtf8();
        sqlite3_bind_text(insert, 3, symbol.constData(), symbol.size(), SQLITE_TRANSIENT);
        sqlite3_bind_double(insert, 8, row.data(7).toDouble());
        sqlite3_bind_int64(insert, 9, row.data(6).toInteger64() + 1500000000000);
        sqlite3_bind_int64(insert, 10, row.data(9).toInteger());
        check(sqlite3_step(insert), memory);
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    check(sqlite3_exec(memory, "commit", nullptr, nullptr, nullptr), memory);

    const QByteArray path = dir.filePath(QStringLiteral("peer.sqlite")).toLocal8Bit();
    report("sqlite", "backup", "save", best([&] {
               std::remove(path.constData());
               sqlite3* file = nullptr;
               check(sqlite3_open(path.constData(), &file), file);
               backup(file, memory);
               sqlite3_close(file);
           }),
           "s");
    report("sqlite", "backup", "load", best([&] {
               sqlite3* file = nullptr;
               sqlite3* copy = nullptr;
               check(sqlite3_open(path.constData(), &file), file);
               check(sqlite3_open(":memory:", &copy), copy);
               backup(copy, file);
               sqlite3_close(copy);
               sqlite3_close(file);
           }),
           "s");
    sqlite3_close(memory);
    std::remove(path.constData());
}

#endif

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: bench_tableio DIR [ROWS]\n");
        return 2;
    }
    const QDir dir(QString::fromLocal8Bit(argv[1]));
    const int rows = argc > 2 ? std::atoi(argv[2]) : 1000000;
    HostCore core;
    ICore::setInstance(&core);
    Table table(QStringLiteral("bench_quotes"));
    addColumns(table);
    fill(table, rows);
    report("livetable", "rows", "raw", double(table.rowLengthUnaligned() + 2) * rows / 1e6, "MB");
    const bool isRight = runTables(table, dir, core);
#ifdef LIVETABLE_WITH_SQLITE
    runSqlite(table, dir);
#endif
    QFile::remove(dir.filePath(table.name() + QLatin1String(".gz")));
    return isRight ? 0 : 1;
}
