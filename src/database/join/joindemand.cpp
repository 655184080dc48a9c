// SPDX-License-Identifier: MIT
#include "join/joindemand_p.h"

#include "index/masterindex.h"

JoinDemand::JoinDemand() = default;
JoinDemand::~JoinDemand() = default;

JoinDemandKeys::JoinDemandKeys(const Table* main, const QVector<int>& keyColumns)
    : keys(main->name())
    , toKeys(numbered(keyColumns))
    , probe(&keys, toKeys)
{
    QList<int> all;
    for (const Col& col : qAsConst(toKeys)) {
        keys.addColumn(*main->columnDef(col.from));
        fromKeys.append(Col{col.from, col.to});
        all.append(col.to);
    }
    keys.setMasterIndex(new MasterIndex_Column_Pure(&keys, all));
}

QVector<Col> JoinDemandKeys::numbered(const QVector<int>& columns)
{
    QVector<Col> mapping;
    for (const int column : columns)
        mapping.append(Col{mapping.size(), column});
    return mapping;
}

void JoinDemandKeys::addObserver(JoinDemand* observer)
{
    flush();
    observers.append(observer);
    QList<Record> present;
    for (const Record& key : *keys.masterIndex())
        present.append(key);
    if (!present.isEmpty())
        observer->demandChanged(present, QList<Record>());
}

// The row of a main row's key; null when it is not wanted.
Record JoinDemandKeys::find(const Record& mainRow)
{
    const LiveTable::KeyRun run = probe.run(keys.masterIndex(), mainRow);
    return run.begin < run.end ? keys.at(run.begin) : Record();
}

void JoinDemandKeys::want(const Record& mainRow)
{
    if (!find(mainRow).isNull())
        return;
    Record key(&keys);
    TableJoin::setFields(key, mainRow, toKeys);
    keys.appendRow(key.row());
    wanted.append(key);
}

void JoinDemandKeys::take(const Record& key)
{
    unwanted.append(key);
    keys.remove(key);
}

void JoinDemandKeys::release(const Record& mainRow, const IndexSort* rows, const Record& except)
{
    if (rows) {
        const LiveTable::KeyRun run = LiveTable::runOf(rows, mainRow);
        const int count = run.end - run.begin;
        if (count > 1 || (count == 1 && rows->at(run.begin) != except))
            return; // another one is there
    }
    const Record key = find(mainRow);
    if (!key.isNull())
        take(key);
}

void JoinDemandKeys::reset(const IndexSort* rows)
{
    LiveTable::KeyProbe toMain(rows ? rows->table() : nullptr, fromKeys);
    QList<Record> gone;
    for (const Record& key : *keys.masterIndex()) {
        const LiveTable::KeyRun run = toMain.run(rows, key);
        if (run.begin == run.end)
            gone.append(key);
    }
    for (const Record& key : qAsConst(gone))
        take(key);
    if (rows)
        for (const Record& row : *rows)
            want(row);
}

void JoinDemandKeys::flush()
{
    if (wanted.isEmpty() && unwanted.isEmpty())
        return;
    QList<Record> come;
    QList<Record> gone;
    come.swap(wanted);
    gone.swap(unwanted);
    const QVector<JoinDemand*> told = observers;
    for (JoinDemand* observer : told)
        if (observers.contains(observer))
            observer->demandChanged(come, gone);
}
