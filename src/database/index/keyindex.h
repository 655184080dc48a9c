// SPDX-License-Identifier: MIT
#pragma once

#include "index/index.h"

#include <QPointer>

#include <vector>

/// Finds a table's rows by one whole-number column, in one step: a hash table that follows the
/// table. For feeds that name a row by its number thousands of times a second; the master index
/// finds by any key, in order, in several steps.
///
/// The column is of type Integer, Integer64 or DateTime (its count). Rows whose cell is NULL are
/// not held. Of several rows with one number find() gives any; the index is meant for unique ones.
///
/// Ownership: as every index; it attaches itself, and detaches when it dies. The table may die
/// first: the index is empty then.
/// Threads: see Index; a reader on another thread than the writer holds Table::lock.
/// Cost: one or two cache misses a search, none of them waiting for another, and 24 to 48 bytes a
/// row. A change of the column in place, told by Table::updated() alone, costs a pass over the
/// index. Errors: the constructor throws QString when the column is missing or of another type.
///
///     KeyIndex byId(&quotes, "id");
///     qint64 quantity = byId.find(4711).data(Quantity).toInteger64();
class LIVETABLE_EXPORT KeyIndex : public Index
{
public:
    /// Holds the rows that are there, and follows the table from here on.
    KeyIndex(Table* table, const QString& column);
    ~KeyIndex() override;

    /// The row with this number, or Record::null. The reference holds until the table changes: copy
    /// the Record to keep the row.
    const Record& find(qint64 key) const noexcept
    {
        for (size_t i = home(key);; i = (i + 1) & mask) {
            const Slot& slot = places[i];
            if (slot.key == key || slot.row.isNull())
                return slot.row;
        }
    }
    /// Rows held.
    int count() const noexcept { return static_cast<int>(used); }
    /// The viewed table; null once it has been destroyed.
    Table* table() const;

    void clear() override;
    void build() override;
    void add(const Record& record) override;
    void remove(const Record& record, int position) override;
    void preprocess(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                    int lastColumn, const QList<Record>& inserted,
                    const QList<Record>& changes) override;
    void process(const QList<Record>& removed, const QList<Record>& updated, int firstColumn,
                 int lastColumn, const QList<Record>& inserted) override;
    void update(const Record& record, int firstColumn, int lastColumn, int position) override;
    /// Whether the row has a number.
    bool filter(const Record& record) const override;
    bool contains(const Record& record) const override;
    QString getClassName() const override;
    /// Every row with a number is held once, where its number is looked for.
    QString verify() const override;

private:
    struct Slot
    {
        qint64 key;
        Record row; // null: free
    };
    size_t home(qint64 key) const noexcept
    {
        // The upper bits of the product depend on all bits of the key.
        return static_cast<size_t>((static_cast<quint64>(key) * Q_UINT64_C(0x9E3779B97F4A7C15)) >>
                                   shift);
    }
    bool touches(int firstColumn, int lastColumn) const noexcept;
    qint64 keyOf(const Record& record) const;
    bool isNumbered(const Record& record) const;
    bool isUntold(const Record& record) const;
    void insert(const Record& record);
    void take(size_t slot) noexcept;
    void takeRow(qint64 key, const Record& row) noexcept;
    void grow(size_t rows);
    void reset();
    bool heal();

    QPointer<Table> viewed;
    const int column;
    std::vector<Slot> places; // a power of two, at most two thirds in use
    size_t mask = 0;
    int shift = 63;
    size_t used = 0;
    std::vector<Slot> leaving; // of the transaction announced: the rows and their old numbers
    bool isDamaged = false;    // memory ran out: to be built anew
};
