// SPDX-License-Identifier: MIT
#pragma once

#include "join/tablejoin.h"

class TableJoinDep;
class TableJoinMainPrivate;

/// The join index that watches a join's main table: fills the joined cells of rows that come in or
/// change their key, and puts back joined cells that somebody writes.
///
/// New rows of a transaction, and updated ones whose new content covers the joined columns, are
/// filled before the transaction is applied, in place; rows told one at a time, and rows of which
/// only the key changes, by a transaction of their own that follows at once. Then every view has
/// them where they belong.
///
/// Ownership: see TableJoin; it shares the dependents' descriptions and must outlive neither the
/// tables nor the join. When it dies it takes itself off its table. Threads, cost: see TableJoin.
class LIVETABLE_EXPORT TableJoinMain : public Index
{
public:
    /// Made by TableJoin::setup().
    TableJoinMain(IndexJoinMain* main, const QVector<QSharedPointer<IndexJoinDep>>& deps);
    ~TableJoinMain() override;

    /// Nothing: the joined cells of rows that leave need no care.
    void clear() override;
    /// Fills the joined columns of all main rows; see TableJoin for what is told.
    void build() override;
    /// process() with this record as the one inserted.
    void add(const Record& record) override;
    void remove(const Record& record, int position) override;
    /// process() with this record as the one updated.
    void update(const Record& record, int firstColumn, int lastColumn, int position) override;
    void preprocess(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                    int lastColumn, const QList<Record>& inserted,
                    const QList<Record>& changes) override;
    void process(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                 int lastColumn, const QList<Record>& inserted) override;
    /// True.
    bool filter(const Record& record) const override;
    /// Whether the record is in the main table.
    bool contains(const Record& record) const override;
    /// "TableJoinMain".
    QString getClassName() const override;
    /// Whether the joined cells of every main row are those of its dependent row: O(n log n).
    QString verify() const override;

    /// Whether the range meets the span from the first to the last key column.
    bool isKeyIntersected(int firstColumn, int lastColumn) const;
    /// The main side; null once the join has gone.
    const IndexJoinMain* description() const;
    /// The dependents, in the order of TableJoin::setup().
    const QVector<QSharedPointer<IndexJoinDep>>& dependents() const;

private:
    friend class LiveJoin;
    friend class MainFill;
    friend class TableJoin;
    friend class TableJoinDep;
    friend class TableJoinDepPrivate;
    friend class TableJoinPrivate;
    friend struct IndexJoinMain;
    void makeNull();
    void preprocessUpdates(const QList<Record>& updated, int firstColumn, int lastColumn,
                           const QList<Record>& changes);

    const std::unique_ptr<TableJoinMainPrivate> d;
};
