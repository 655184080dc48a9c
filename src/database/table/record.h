// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"
#include "table/field.h"

#include <QAtomicInt>
#include <QHash>
#include <QMetaType>
#include <QString>

#include <functional>
#include <utility>

class Table;

namespace LiveTable {
/// The first 16 bytes of every row block.
struct RowHeader
{
    QBasicAtomicInt references; ///< how many Records and lists hold the row
    qint32 zero;                ///< keeps the pointer aligned
    Table* table;               ///< the owner; null once the row is detached
};
static_assert(sizeof(RowHeader) == 16, "the row header is 16 bytes on every supported machine");

/// Returns a row block to where it came from. Works without the row's table.
LIVETABLE_EXPORT void freeRowBlock(unsigned char* row) noexcept;
} // namespace LiveTable

/// A counted handle on one row of a Table; everything outside the table refers to rows by Records.
///
/// Ownership: a row lives as long as any Record or record list holds it, in its table or not, and
/// the last one frees it. A Record may outlive its table, and may be held across Table::addColumn,
/// which moves every row of the table to a new place: in both cases it becomes *detached*. A
/// detached record can be copied and dropped safely, but table() is null and its cells read NULL.
///
/// Threads: the count is atomic, so Records may be copied and dropped on any thread. Cells are read
/// and written with plain accesses: hold Table::lock, or work on a row no other thread can reach.
///
/// Cost: one pointer. Copying is one atomic increment; moving touches nothing but the handle.
/// Identity: two Records are equal when they are the same row, never by content.
///
///     Record quote(&table);            // a new row, in no table list yet
///     quote.data("price") = decimal(QStringLiteral("12.50"));
///     table.appendList({quote});
///     Record copy = quote.clone();     // another row with the same cells
class LIVETABLE_EXPORT Record
{
public:
    /// The null record: no row.
    constexpr Record() noexcept
        : block(nullptr)
    {}
    /// A new row of the table with default cells: NULL where the column is nullable, else zero.
    /// Null when `table` is null or memory ran out. The row is not added to the table.
    explicit Record(const Table* table);
    /// The table's row whose master key reads as `key` (see MasterIndex::fromText); null when there
    /// is none, when the key is empty, or when the table has no master index. Throws QString when
    /// the text does not have one part for each key column, and whatever a cell throws for a part
    /// that does not convert. With an arrival-ordered master every key names the oldest row.
    Record(const Table* table, const QString& key);
    /// A handle on a row block made by Table::allocRow or Table::cloneRow, or on any live row.
    explicit Record(unsigned char* row) noexcept
        : block(row)
    {
        acquire();
    }
    Record(const Record& other) noexcept
        : block(other.block)
    {
        acquire();
    }
    Record(Record&& other) noexcept
        : block(std::exchange(other.block, nullptr))
    {}
    ~Record() { release(); }
    Record& operator=(const Record& other) noexcept
    {
        Record copy(other);
        swap(copy);
        return *this;
    }
    Record& operator=(Record&& other) noexcept
    {
        Record moved(std::move(other));
        swap(moved);
        return *this;
    }
    /// Exchanges the rows that both stand for.
    void swap(Record& other) noexcept { std::swap(block, other.block); }

    /// The shared null record.
    static const Record null;

    /// Whether there is no row, and whether there is one.
    bool isNull() const noexcept { return !block; }
    explicit operator bool() const noexcept { return block; }
    /// The row block, or null. Its layout is told in table.h.
    unsigned char* row() const noexcept { return block; }
    /// The owning table; null for the null record and for a detached one.
    Table* table() const noexcept { return block ? header()->table : nullptr; }
    /// How many Records and lists hold this row now; 0 for the null record.
    int referenceCount() const noexcept { return block ? header()->references.loadRelaxed() : 0; }

    /// A new row with a copy of this row's cells, in no index. Null for the null record, for a
    /// detached one, or when memory ran out.
    Record clone() const;
    /// Copies all cells and null flags of `source`. Nothing when both are the same row, when either
    /// is null or detached, or when their tables differ.
    void copy(const Record& source);
    /// The same for columns `first` to `last`, inclusive; -1 means the first or the last column.
    void copy(const Record& source, int first, int last);

    /// The cell of a column, by name (exact case) or number. It is valid while the row lives and no
    /// column is added. For an unknown column, a null or a detached record the answer is a cell of
    /// type FieldType::Undefined that is NULL; it must not be written.
    Field data(const QString& column) const;
    Field data(int column) const;

    /// Whether the table's master index holds this very row. False for null and detached records.
    bool inTable() const;
    /// The row's key as text (see MasterIndex::toText); a null string for the null record.
    QString toString() const;
    /// Everything there is to see, for logs: table, address, reference count and cells, each as
    /// name=text, or name="" when NULL (left out with `skipNull`). "{ NULL }" for the null record.
    QString dump(bool skipNull = false) const;

    friend bool operator==(const Record& a, const Record& b) noexcept { return a.block == b.block; }
    friend bool operator!=(const Record& a, const Record& b) noexcept { return a.block != b.block; }
    /// By row address: an order for maps, without meaning.
    friend bool operator<(const Record& a, const Record& b) noexcept
    {
        return std::less<const unsigned char*>()(a.block, b.block);
    }
    friend uint qHash(const Record& r, uint seed = 0) noexcept
    {
        return ::qHash(reinterpret_cast<quintptr>(r.block), seed);
    }

    /// Asks for the row's first bytes, before a search looks at them. Of no consequence otherwise.
    friend void prefetchElement(const Record& r) noexcept
    {
        for (int line = 0; line < 192; line += 64)
            __builtin_prefetch(r.block + line);
    }

    /// For sorts over bare row pointers: the pointer itself seen as a Record, with no count taken.
    static const Record& borrowed(unsigned char* const& row) noexcept
    {
        return reinterpret_cast<const Record&>(row);
    }

private:
    LiveTable::RowHeader* header() const noexcept
    {
        return reinterpret_cast<LiveTable::RowHeader*>(block);
    }
    void acquire() noexcept
    {
        if (block)
            header()->references.ref();
    }
    void release() noexcept
    {
        if (block && !header()->references.deref())
            LiveTable::freeRowBlock(block);
    }

    unsigned char* block;
};

// A record list moves its elements by plain memory moves and never touches a count for it. This
// must stand before the first list of records.
Q_DECLARE_TYPEINFO(Record, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(Record)
static_assert(sizeof(Record) == sizeof(void*) && std::is_nothrow_move_constructible<Record>::value,
              "records are moved as bare pointers");
