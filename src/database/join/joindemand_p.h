// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include "index/indexsort.h"
#include "join/keylookup_p.h"
#include "join/tablejoin.h"
#include "table/table.h"

/// The keys that main rows have, each once, as rows of a table; and those who are told of them.
class JoinDemandKeys
{
public:
    JoinDemandKeys(const Table* main, const QVector<int>& keyColumns);

    const Table* table() const { return &keys; }
    void addObserver(JoinDemand* observer);
    void removeObserver(JoinDemand* observer) { observers.removeOne(observer); }
    bool isObserved() const { return !observers.isEmpty(); }

    /// The key of a main row is wanted.
    void want(const Record& mainRow);
    /// A row of this key has left: is it the last? `rows` are the main rows by key, `except` one
    /// that counts no more.
    void release(const Record& mainRow, const IndexSort* rows, const Record& except);
    /// All keys of these rows, and no others, are wanted.
    void reset(const IndexSort* rows);
    /// Tells what has changed since.
    void flush();

private:
    static QVector<Col> numbered(const QVector<int>& columns);
    Record find(const Record& mainRow);
    void take(const Record& key);

    Table keys;
    QVector<Col> toKeys;   // to: keys, from: main
    QVector<Col> fromKeys; // to: main, from: keys
    LiveTable::KeyProbe probe;
    QList<Record> wanted; // since the last flush()
    QList<Record> unwanted;
    QVector<JoinDemand*> observers;
};
