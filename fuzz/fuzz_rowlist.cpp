// SPDX-License-Identifier: MIT
// Record lists from outside, one behind the other: into a table of their own, into the host's, and
// of tables that the host does not know.
#include "base/hostcore.h"
#include "believed.h"
#include "io/tableio.h"
#include "require.h"
#include "table/table.h"

#include <QDataStream>

#include <memory>

namespace {

constexpr int mostLists = 8;

struct Host
{
    Host()
    {
        table.addColumn(QStringLiteral("c0"), FieldType::Integer);
        table.addColumn(QStringLiteral("c1"), FieldType::VarChar, 5);
        table.addColumn(QStringLiteral("c2"), FieldType::BoardList);
        core.addTable(table.name(), &table);
        ICore::setInstance(&core);
    }
    HostCore core;
    Table table{QStringLiteral("quotes")};
};

bool isSmall(const QByteArray& bytes)
{
    QDataStream start(bytes);
    QString name;
    start >> name;
    return !isLarge(start);
}

void readAll(const QByteArray& bytes, Table* table, bool strict, bool createTable)
{
    QDataStream stream(bytes);
    TableIO io(table);
    io.setStrict(strict);
    FilterProgressTrue all;
    for (int i = 0; i < (strict ? mostLists : 1); ++i) {
        std::unique_ptr<Table> created; // dies after its records
        PartitionList<Record> records;
        io.readRowList(all, stream, records, createTable);
        require(!strict || records.count() <= bytes.size());
        if (createTable && !records.isEmpty())
            created.reset(records.at(0).table());
        for (const Record& record : records)
            record.dump();
        records.clear();
        if (io.status() != TableIO::Ok && io.status() != TableIO::UnknownTable)
            break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    static Host host;
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<int>(size));
    for (const bool createTable : {false, true}) {
        readAll(bytes, &host.table, true, createTable);
        if (isSmall(bytes))
            readAll(bytes, &host.table, false, createTable);
    }
    return 0;
}
