// SPDX-License-Identifier: MIT
#pragma once

#include "join/tablejoin.h"

class TableJoinDepPrivate;

/// The join index that watches one dependent table of a join: brings changes of its rows to the
/// main rows of their keys, in one transaction on the main table for each that the dependent is
/// told of.
///
/// Several rows are searched in the main table in chunks on Qt's global thread pool when they are
/// more than 512 (ConcurrentExec), while the caller waits. A key cell changed in place
/// (Table::updated) leaves no trace of the old key: then all main rows are looked at.
///
/// Ownership: see TableJoin. It works once the join's TableJoinMain exists, and does nothing when
/// that, the join or a table is gone. When it dies it takes itself off its table.
class LIVETABLE_EXPORT TableJoinDep : public Index
{
public:
    /// Made by TableJoin::setup(); the description must outlive it or tell it of its end.
    explicit TableJoinDep(IndexJoinDep* dep);
    ~TableJoinDep() override;

    /// The dependent table is being cleared: makes the joined cells NULL. Where that is part of
    /// building anew (a bulk load, a new column) the cells wait for build().
    void clear() override;
    /// Brings all main rows up to date with this dependent.
    void build() override;
    /// setRecordData() over all copied columns.
    void add(const Record& record) override;
    void remove(const Record& record, int position) override;
    /// setRecordData() over the changed ones.
    void update(const Record& record, int firstColumn, int lastColumn, int position) override;
    void preprocess(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                    int lastColumn, const QList<Record>& inserted,
                    const QList<Record>& changes) override;
    void process(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                 int lastColumn, const QList<Record>& inserted) override;
    /// Opens and closes the main table's bracket around the dependent's.
    void dependentBeginUpdate(Table* table) override;
    void dependentEndUpdate(Table* table) override;
    /// True.
    bool filter(const Record& record) const override;
    /// Whether the record is in the dependent table.
    bool contains(const Record& record) const override;
    /// "TableJoinDep".
    QString getClassName() const override;

    /// Brings one dependent record to the main rows of its key; with `isRemoved` as if it were not
    /// there. `firstColumn` to `lastColumn` are the dependent's columns that changed.
    void setRecordData(const Record& record, bool isRemoved, int firstColumn, int lastColumn);
    /// The mapping of this dependent; null once the join has gone.
    const IndexJoinDep* description() const;

private:
    friend class MainFill;
    friend class TableJoin;
    friend class TableJoinMain;
    friend class TableJoinMainPrivate;
    friend class TableJoinPrivate;
    friend struct IndexJoinDep;

    const std::unique_ptr<TableJoinDepPrivate> d;
};
