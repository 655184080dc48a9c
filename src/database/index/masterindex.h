// SPDX-License-Identifier: MIT
#pragma once

#include "index/indexsort.h"

#include <QByteArray>
#include <QStringList>

namespace LiveTable {
class RowOrder;
}

/// The index that holds a table's rows and defines its key: see Table::setMasterIndex, which takes
/// ownership. All other indexes are built in its order.
///
/// Records can be named by *key text*: the key cells' texts joined by single commas, without
/// quoting or escaping; a key value with a comma in it cannot be read back. Two records of equal
/// key are both kept, in arrival order; the table does not enforce uniqueness.
///
///     table.setMasterIndex(new MasterIndex_Column_Pure(&table, {"expiry", "right", "strike"}));
///     Record r = table.masterIndex()->findRecord("20200320,C,3200");
class LIVETABLE_EXPORT MasterIndex : public IndexSort
{
public:
    /// A master without key columns. Empty; build() takes the table's rows over from the master
    /// that it is to replace.
    explicit MasterIndex(Table* table);
    ~MasterIndex() override;

    /// "MasterIndex", for all master indexes.
    QString getClassName() const override;
    /// The record's key as text; an empty string for a null record.
    virtual QString toText(const Record& record) const = 0;
    /// A fresh, unattached row with the key of the text, to search with. Throws; see the classes.
    virtual Record fromText(const QString& text) const = 0;

    /// The first record whose key equals the text's; null if there is none.
    Record findRecord(const QString& text) const;
    /// The names of the key columns, the most significant first.
    QStringList columnNames() const;
    /// The numbers of the key columns, the most significant first.
    const QList<int>& columns() const { return keyColumns; }

protected:
    /// With these key columns, the most significant first.
    MasterIndex(Table* table, const QList<int>& columns);
    /// For a master whose order is arrival: rows get a hidden, rising number.
    void keepArrivalOrder();

    /// What columns() answers.
    QList<int> keyColumns;

private:
    friend class Table;
    void install();
};

/// A master index that compares key columns value by value (Field::compare), most significant
/// first. A subclass may give another compare(); sort keys are then in use only if it gives those,
/// too, and every update counts unless it says otherwise in isAffected().
///
/// Errors: the constructors throw the QString "Column '%1' not found to create index." for an
/// unknown name; numbers are taken as they are. fromText throws "Master index can't restore from
/// text. Incorrect columns numbers: %1 != %2" when the parts are not as many as the key columns,
/// and what the cells throw for text that does not convert. An empty part is a NULL key cell.
class LIVETABLE_EXPORT MasterIndex_Column_Pure : public MasterIndex
{
public:
    /// By the names or numbers of the key columns, the most significant first.
    MasterIndex_Column_Pure(Table* table, const QString& column);
    MasterIndex_Column_Pure(Table* table, const QStringList& columns);
    MasterIndex_Column_Pure(Table* table, const QList<int>& columns);
    ~MasterIndex_Column_Pure() override;

    int compare(const Record& a, const Record& b) const override;
    int sortKeyWords() const override;
    SortKey sortKey(const Record& record) const override;
    bool isSortKeyExact(SortKey key) const override;
    bool isAffected(int firstColumn, int lastColumn) const override;
    QString toText(const Record& record) const override;
    Record fromText(const QString& text) const override;
    /// The stored bytes of the key cells in key order, each without its padding; empty for null.
    QByteArray keyRecord(const Record& record) const;

protected:
    void prepare() override;

private:
    const std::unique_ptr<LiveTable::RowOrder> order;
};

/// A master index that compares one contiguous block of raw row bytes: exact for equality, but in
/// the order of the bytes in memory, not of the values. Two spellings of one decimal (1.5 and 1.50)
/// are different keys.
///
/// The key columns must follow each other in the table, be of type Integer, Integer64, Decimal,
/// VarChar, DateTime or XDecimal, and not be nullable. Errors, besides those of
/// MasterIndex_Column_Pure, are QStrings thrown by the constructors, with the table's old master
/// index left in place: "Columns must be sequenced: %1(%3) / %2", "Type '%1' unsuported for %2",
/// "Columns can't be nullable %1".
class LIVETABLE_EXPORT MasterIndex_Fast_Pure : public MasterIndex_Column_Pure
{
public:
    /// By the names or numbers of the key columns, in the order in which they lie in the table.
    MasterIndex_Fast_Pure(Table* table, const QStringList& columns);
    MasterIndex_Fast_Pure(Table* table, const QList<int>& columns);
    ~MasterIndex_Fast_Pure() override;

    int compare(const Record& a, const Record& b) const override;
    int sortKeyWords() const override;
    SortKey sortKey(const Record& record) const override;
    bool isSortKeyExact(SortKey key) const override;
    /// Where the key block begins, in bytes from the start of the row block, and its length.
    unsigned keyOffset() const { return offset; }
    unsigned keyLength() const { return length; }

private:
    void setup();

    unsigned offset = 0;
    unsigned length = 0;
};

/// A master index without a key: it keeps arrival order, and every record compares equal to every
/// other. The master of a new table.
///
/// Any text finds the oldest record. Whether a row is in the table, and where, is nonetheless found
/// by its hidden arrival number, in O(log n), as long as the index is the table's master.
class LIVETABLE_EXPORT MasterIndexOrdered : public MasterIndex
{
public:
    /// For a table. Empty until build().
    explicit MasterIndexOrdered(Table* table);
    ~MasterIndexOrdered() override;

    /// 0.
    int compare(const Record& a, const Record& b) const override;
    /// The empty string.
    QString toText(const Record& record) const override;
    /// A fresh row with default cells.
    Record fromText(const QString& text) const override;
    bool isAffected(int firstColumn, int lastColumn) const override;
};
