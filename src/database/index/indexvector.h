// SPDX-License-Identifier: MIT
#pragma once

#include "index/index.h"

#include <QPointer>
#include <QVector>

/// A small sorted view in one contiguous vector, for a few hundred records at most: every change
/// and every search is linear. Larger views are an IndexSort.
///
/// A subclass gives compare(), a strict weak order, and may give filter(). Equal records stay in
/// the order in which they came.
///
/// Attachment: from construction to destruction; the table may die first. The constructor cannot
/// fill the view, as compare() belongs to the subclass: call build(). Threads: see Index; build()
/// holds the table's lock, and no two of these indexes may be resorted at the same time.
/// Errors: nothing of its own. When compare() or filter() throws, the exception goes on to the
/// caller and the view builds itself anew at its next notification.
///
///     struct Best : IndexVector {
///         explicit Best(Table* t) : IndexVector(t) { build(); }
///         bool filter(const Record& r) const override { return r.data(rank).toInteger() < 20; }
///         int compare(const Record& a, const Record& b) const override
///         { return a.data(rank).toInteger() - b.data(rank).toInteger(); }
///     };
class LIVETABLE_EXPORT IndexVector : public Index
{
public:
    /// Attaches to the table. Empty until build().
    explicit IndexVector(Table* table);
    ~IndexVector() override;

    /// The records in order. Good until the index changes.
    const QVector<Record>& records() const { return list; }
    /// The viewed table; null once it has been destroyed.
    Table* table() const;

    /// Empties the vector, which keeps its memory.
    void clear() override;
    /// Adds every record of the table's master index that filter() accepts, under Table::lock. Does
    /// not clear first. When something throws, the index is as it was.
    void build() override;
    /// Inserts behind all records that are not greater. Does not ask filter().
    void add(const Record& record) override;
    /// Removes this very record; `position` is not used.
    void remove(const Record& record, int position) override;
    void update(const Record& record, int firstColumn, int lastColumn, int position) override;
    /// As Index::process, but takes all updated records out before the first of them goes to its
    /// new place, which is sought among records that are in order only then.
    void process(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                 int lastColumn, const QList<Record>& inserted) override;
    /// True.
    bool filter(const Record& record) const override;
    /// Whether a record compares equal: search(record, -1) != -1. indexOf() always answers -1.
    bool contains(const Record& record) const override;
    QString getClassName() const override;
    QString verify() const override;

    /// Negative, 0 or positive as `a` sorts before, with or after `b`.
    virtual int compare(const Record& a, const Record& b) const = 0;
    /// The first position behind `after` where compare(key, element) is 0; -1 if there is none.
    virtual int search(const Record& key, int after = -1) const;
    /// Sorts the vector again, stably.
    virtual void resort();

    /// Orders two records by compare() < 0 of the index that was resorted last.
    static bool lessThan(const Record& a, const Record& b);

private:
    friend class TablePrivate;
    bool repair();

    static IndexVector* sortIndex;

    QPointer<Table> viewed;
    QVector<Record> list;
    bool isDamaged = false; // something threw half-way; the content is not to be trusted
};
