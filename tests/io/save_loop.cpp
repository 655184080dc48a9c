// SPDX-License-Identifier: MIT
// Saves a table again and again, to be killed at it (scripts/kill_saves.py), and checks what is
// left.
//
//     save_loop once|forever|check DIR [NUMBER]
//
// Each state of the table holds one number in all cells of all rows, so that a mixture of two
// states shows. `forever` takes turns between plain and gzip.
#include "base/hostcore.h"
#include "io/tableio.h"
#include "table/table.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr int rows = 3000;
constexpr int columns = 12;

void makeState(Table& table, qint64 number)
{
    table.clear();
    QList<Record> records;
    for (int i = 0; i < rows; ++i) {
        const Record record(&table);
        for (int c = 0; c < columns; ++c)
            record.data(c) = number;
        records.append(record);
    }
    table.appendList(records);
}

int check(const QDir& dir)
{
    Table table(QStringLiteral("state"));
    TableIO io(&table);
    io.setStrict(true);
    io.read(dir, true);
    if (io.status() != TableIO::Ok || table.rowCount() != rows || table.columnCount() != columns) {
        std::printf("status %d, %d rows: %s\n", io.status(), table.rowCount(),
                    qPrintable(io.errorString()));
        return 1;
    }
    const qint64 number = table.data(0, 0).toInteger64();
    for (int i = 0; i < rows; ++i)
        for (int c = 0; c < columns; ++c)
            if (table.data(i, c).toInteger64() != number) {
                std::printf("row %d is of another state\n", i);
                return 1;
            }
    std::printf("%lld\n", static_cast<long long>(number));
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3)
        return 2;
    const QDir dir(QString::fromLocal8Bit(argv[2]));
    if (std::strcmp(argv[1], "check") == 0)
        return check(dir);
    HostCore core;
    ICore::setInstance(&core);
    Table table(QStringLiteral("state"));
    for (int c = 0; c < columns; ++c)
        table.addColumn(QStringLiteral("c%1").arg(c), FieldType::Integer64);
    const bool isOnce = std::strcmp(argv[1], "once") == 0;
    const qint64 start = argc > 3 ? std::atoll(argv[3]) * 1000000 : 0;
    for (qint64 i = 0; i == 0 || !isOnce; ++i) {
        core.setCompressTables(i % 2 == 1);
        makeState(table, start + i);
        if (i == 0) {
            std::printf("saving\n");
            std::fflush(stdout);
        }
        TableIO io(&table);
        io.write(dir);
        if (io.status() != TableIO::Ok)
            return 1;
    }
    return 0;
}
