// SPDX-License-Identifier: MIT
#pragma once

#include "index/indexlist.h"
#include "index/indexsort.h"
#include "index/indexvector.h"
#include "index/watchindex.h"
#include "table/table.h"

#include <QHash>
#include <QMap>
#include <QSet>
#include <QString>
#include <QVector>

#include <functional>
#include <memory>
#include <random>
#include <unordered_map>
#include <vector>

/// A naive second implementation of a table and its views, to compare the real one with.
///
/// Every cell holds one of a few values of its column, numbered in ascending order: its *code*.
/// Code 0 is NULL, zeroCode the zero of numbers. The model keeps codes only, so that nothing in it
/// rests on how the library reads, compares or finds anything.
namespace Model {

constexpr int zeroCode = 4;
constexpr int codeCount = 9;

struct Column
{
    FieldType::Type type;
    int length;
    bool nullable;
};

/// Writes the value of a code in one of its spellings (1.5 and 1.50, 0.0 and -0.0).
void setCell(Field field, const Column& column, int code, unsigned spelling);
bool cellIs(const Field& field, const Column& column, int code);
/// Whether a cell that is not NULL holds less than the value of a code.
bool cellBelow(const Field& field, const Column& column, int code);

struct Row
{
    Record record;
    QVector<int> codes;
    bool inTable = false;
    // Scratch of the checks:
    enum Mark
    {
        Still,
        Touched,
        Fresh,
        Gone
    } mark = Still;
    int rank = 0;
    int count = 0;
    int id = 0; ///< for the trace
};
using Rows = QVector<Row*>;
using Cells = QMap<int, int>; ///< column to code
using Compare = std::function<int(const Row&, const Row&)>;
using Filter = std::function<bool(const Row&)>;

/// Collects what is wrong; the first finding is kept.
class Findings
{
public:
    bool isEmpty() const { return first.isEmpty(); }
    const QString& text() const { return first; }
    bool check(bool condition, const QString& where, const char* what)
    {
        if (!condition && first.isEmpty())
            first = where + QStringLiteral(": ") + QLatin1String(what);
        return condition;
    }

private:
    QString first;
};

/// What a transaction holds: at most one operation for each row, by the rules of RecordsTrans.
struct Transaction
{
    enum Kind
    {
        Insert = 1,
        Remove = 2,
        Update = 3
    };
    struct Operation
    {
        Row* row;
        Kind kind;
        Cells cells;
    };

    Operation* find(const Row* row);
    void insert(Row* row);
    void remove(Row* row);
    void update(Row* row, const Cells& cells);
    void merge(const Transaction& other);
    /// The code that the row will have if the transaction is applied now.
    int code(const Row* row, int column);

    QString toString() const;

    std::vector<Operation> operations;
};

/// Follows a list by what its observers are told, and compares.
class Mirror : public IndexObserver
{
public:
    Mirror(QString label, IndexList* list, Findings* sink);
    ~Mirror() override;
    void indexChanged(const IndexList& list, const IndexChange& change) override;
    void indexReset(const IndexList& list) override;
    void indexDestroyed(const IndexList& list) override;
    /// To be called when all is still.
    void check();
    bool holds(const Record& record) const;
    /// The rows, by address, that were told to have been inserted, moved or changed.
    QSet<const unsigned char*> told;

private:
    static std::vector<const unsigned char*> contents(const IndexList& list);
    bool check(bool condition, const char* what) { return findings->check(condition, name, what); }

    const QString name;
    IndexList* observed;
    Findings* const findings;
    std::vector<const unsigned char*> copy;
};

/// One index under test and the model of what it must hold. The functions that are named like
/// notifications are called when the index is told the same.
class View
{
public:
    View(QString label, Index* tested, Filter accepts)
        : name(std::move(label))
        , index(tested)
        , filter(std::move(accepts))
    {}
    virtual ~View() = default;
    Q_DISABLE_COPY(View)

    virtual void reset(const Rows& masterOrder) = 0;
    virtual void add(Row* row) = 0;
    virtual void remove(Row* row) = 0;
    virtual void update(Row* row) = 0;
    virtual void process(const Rows& removed, const Rows& updated, const Rows& inserted);
    /// Compares the index with the model.
    virtual void check(Findings& findings) = 0;

    const QString name;
    Index* const index;
    const Filter filter;
    bool isAttached = true;
    std::unique_ptr<Mirror> mirror; ///< may be null
};

using RowOf = std::function<Row*(const Record&)>;

/// A view whose whole order is fixed: lists and vectors. With a compare a row goes behind its
/// equals, without one to the end.
class ExactView : public View
{
public:
    using Read = std::function<Rows()>;
    ExactView(QString label, Index* tested, Filter accepts, Compare order, Read contents)
        : View(std::move(label), tested, std::move(accepts))
        , compare(std::move(order))
        , read(std::move(contents))
    {}
    void reset(const Rows& masterOrder) override;
    void add(Row* row) override;
    void remove(Row* row) override;
    void update(Row* row) override;
    void process(const Rows& removed, const Rows& updated, const Rows& inserted) override;
    void check(Findings& findings) override;

private:
    const Compare compare;
    const Read read;
    Rows expected;
};

/// A sorted view. Which of several updated rows moves among its equals is not fixed, so the order
/// of the rows before each notification is kept and compared with the order after it.
class SortedModel : public View
{
public:
    /// A view without a compare keeps arrival order and moves nothing.
    SortedModel(QString label, const IndexSort* tested, Index* notified, Filter accepts,
                Compare comparing, RowOf rowOf)
        : View(std::move(label), notified, std::move(accepts))
        , sorted(tested)
        , compare(std::move(comparing))
        , toRow(std::move(rowOf))
    {}
    void reset(const Rows& masterOrder) override;
    void add(Row* row) override;
    void remove(Row* row) override;
    void update(Row* row) override;
    void process(const Rows& removed, const Rows& updated, const Rows& inserted) override;
    void check(Findings& findings) override;

    /// Compares the look-ups by the key cells of any row with their linear definitions.
    void checkSearches(const Row& key, int after, Findings& findings) const;
    const Rows& rows() const { return order; }

    const IndexSort* const sorted;

private:
    int compared(const Row* a, const Row* b) const { return compare ? compare(*a, *b) : 0; }
    bool checkContent(const Rows& actual, Findings& findings) const;
    void checkPlaces(const Rows& actual, Findings& findings) const;
    void checkArrival(const Rows& actual, Findings& findings) const;

    const Compare compare;
    const RowOf toRow;
    Rows order;           ///< as it was before the notifications since the last check
    Rows gone;            ///< of these: no longer in the view
    Rows touched;         ///< updated and still in it
    Rows fresh;           ///< new in it, in order of arrival
    bool isExact = false; ///< `order` is what it must be now
};

/// The three lists of a WatchIndex.
class WatchModel : public View
{
public:
    WatchModel(QString label, WatchIndex* tested, RowOf rowOf)
        : View(std::move(label), tested, [](const Row&) { return true; })
        , watch(tested)
        , toRow(std::move(rowOf))
    {}
    void reset(const Rows& masterOrder) override;
    void add(Row* row) override;
    void remove(Row* row) override;
    void update(Row* row) override;
    void check(Findings& findings) override;

private:
    WatchIndex* const watch;
    const RowOf toRow;
    Rows lists[3];
};

/// Counts add up, a null pointer ends the partitions, and none is empty or too large.
void checkPartitions(const IndexList& list, const QString& name, Findings& findings);

} // namespace Model
