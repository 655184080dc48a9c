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
#include "support/bench.h"
#include "table/table.h"

#include <QDir>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#ifdef HAVE_SQLITE
#include "support/sqlitequotes.h"
#endif

namespace {

using namespace bench;

constexpr int repeats = 3;

double best(const std::function<void()>& work)
{
    double least = 1e9;
    for (int i = 0; i < repeats; ++i)
        least = std::min(least, timed(work));
    return least;
}

void fill(Table& table, int rows)
{
    Random random;
    QList<Record> records;
    records.reserve(rows);
    for (int i = 0; i < rows; ++i)
        records.append(makeRow(table, makeQuote(random, i)));
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
        const auto print = [&](const char* figure, double value) {
            report("livetable", compress ? "IO-gzip" : "IO", figure, value, "s");
        };
        TableIO io(&table);
        print("save", best([&] { io.write(dir); }));
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
            print(strict ? "load_strict" : "load", least);
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
        print("load_4_views", least);
        print("sort_4_views", sorting);
    }
    return true;
}

#ifdef HAVE_SQLITE

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
    {
        runSql(memory, "begin");
        QuoteInserter inserter(memory);
        for (const Record& row : *table.masterIndex())
            inserter.run(toQuote(row));
        runSql(memory, "commit");
    }
    const QByteArray path = dir.filePath(QStringLiteral("peer.sqlite")).toLocal8Bit();
    report("sqlite-backup", "IO", "save", best([&] {
               std::remove(path.constData());
               sqlite3* file = nullptr;
               check(sqlite3_open(path.constData(), &file), file);
               backup(file, memory);
               sqlite3_close(file);
           }),
           "s");
    report("sqlite-backup", "IO", "load", best([&] {
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
    report("livetable", "IO", "rows", double(table.rowLengthUnaligned() + 2) * rows / 1e6, "MB");
    const bool isRight = runTables(table, dir, core);
#ifdef HAVE_SQLITE
    runSqlite(table, dir);
#endif
    QFile::remove(dir.filePath(table.name() + QLatin1String(".gz")));
    return isRight ? 0 : 1;
}
