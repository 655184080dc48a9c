// SPDX-License-Identifier: MIT
#pragma once

#include "index/indexdependbase.h"
#include "index/indexlimit.h"
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "model.h"
#include "table/recordstrans.h"

namespace Model {

class World;

/// Listens to the table as its first index, drives the model by what it hears, and checks what it
/// hears against what the driver did.
class Recorder : public Index
{
public:
    explicit Recorder(World& listener)
        : world(listener)
    {}
    void clear() override {}
    void build() override {}
    void add(const Record& record) override;
    void preprocess(const QList<Record>& removed, const QList<Record>& updated, int first, int last,
                    const QList<Record>& inserted, const QList<Record>& changes) override;
    void process(const QList<Record>& removed, const QList<Record>& updated, int first, int last,
                 const QList<Record>& inserted) override;
    void remove(const Record& record, int position) override;
    void update(const Record& record, int first, int last, int position) override;
    bool filter(const Record&) const override { return true; }
    bool contains(const Record&) const override { return false; }
    void beginUpdate() override { ++openBrackets; }
    void endUpdate() override { --openBrackets; }
    void dependentBeginUpdate(Table*) override { ++openDependents; }
    void dependentEndUpdate(Table*) override { --openDependents; }
    QString getClassName() const override { return QStringLiteral("Recorder"); }

    int openBrackets = 0;
    int openDependents = 0;

private:
    World& world;
    struct
    {
        QList<Record> removed, updated, inserted;
        int first = 0, last = 0;
    } announced;
};

/// Now and then raises changes from inside a notification.
class Raiser : public Index
{
public:
    explicit Raiser(World& target)
        : world(target)
    {}
    void clear() override {}
    void build() override {}
    void add(const Record&) override { raise(true); }
    void preprocess(const QList<Record>&, const QList<Record>&, int, int, const QList<Record>&,
                    const QList<Record>&) override
    {
        raise();
    }
    void process(const QList<Record>&, const QList<Record>&, int, int,
                 const QList<Record>&) override
    {
        raise(true);
    }
    void remove(const Record&, int) override { raise(); }
    void update(const Record&, int, int, int) override { raise(true); }
    bool filter(const Record&) const override { return true; }
    bool contains(const Record&) const override { return false; }
    QString getClassName() const override { return QStringLiteral("Raiser"); }

private:
    void raise(bool isSettled = false);
    World& world;
};

/// One table with indexes of every kind, its model, and the operations on both.
class World
{
public:
    enum Size
    {
        Small,
        Medium,
        Large
    };

    World(quint32 seed, Size size);
    ~World();
    Q_DISABLE_COPY(World)

    /// Does something at random and checks everything after it.
    void step();
    /// Takes the world down in a random order of table and indexes, with records left over.
    void end();

    Findings findings;
    int steps = 0;

private:
    friend class Recorder;
    friend class Raiser;

    // Building the world.
    void addColumns();
    void makeMaster();
    void makeViews();
    Filter makeFilter(std::function<bool(const Record&)>* real, QVector<int>* columns);
    Compare compareBy(const QVector<SortColumn>& columns) const;
    QVector<SortColumn> randomOrder(bool hostStyle);
    void addListView(IndexList* list, const QString& name, Filter filter);
    SortedModel* addSorted(const QString& name, IndexSort* index, Index* notified, Filter filter,
                           Compare compare);
    template <typename T>
    T* keep(std::unique_ptr<T> index)
    {
        T* pointer = index.get();
        owned.push_back(std::move(index));
        return pointer;
    }

    // Rows.
    int pick(int n) { return int(random() % quint32(n)); }
    bool chance(int oneIn) { return pick(oneIn) == 0; }
    int randomCode(int column);
    Row* adopt(const Record& record);
    Row* newRow();
    Row* rowOf(const Record& record);
    Row* anyRow(bool inTable);
    Cells randomCells(int first, int last);
    Record contentFor(const Row& row, const Cells& cells);
    void write(Row* row, const Cells& cells);

    // What the driver and the raiser do.
    Transaction fill(RecordsTrans& real);
    void transact();
    void transactByLists();
    void singleRow();
    void updateInPlace();
    void raiseInPlace();
    void changeUntold();
    void rebuildSome();
    void attachOrDetach();
    void addColumn();
    void bracket();
    void raise();
    void expect(const Transaction& transaction);

    // What the recorder reports.
    void beginPass(const QList<Record>& removed, const QList<Record>& updated, int first, int last,
                   const QList<Record>& inserted, const QList<Record>& changes);
    void endPass(const QList<Record>& removed, const QList<Record>& updated,
                 const QList<Record>& inserted);
    void checkLimit(const Rows& removed, const Rows& updated, const Rows& inserted,
                    const QSet<Row*>& asked);
    void told(const std::function<void(View&)>& notify);
    void checkViews();
    void checkAll();
    void checkRows();
    void checkCells(const Row& row);
    Rows masterOrder();
    Rows toRows(const QList<Record>& records);
    template <typename... Args>
    void trace(const char* format, Args... args) const
    {
        if (isTraced)
            qInfo(format, args...);
    }
    bool check(bool condition, const char* what)
    {
        return condition || findings.check(false, table ? table->name() : QString(), what);
    }

    std::mt19937 random;
    const bool isTraced = qEnvironmentVariableIsSet("LIVETABLE_TRACE");
    const Size size;
    int domain; ///< codes in use: few of them make many equal keys
    std::unique_ptr<Table> table;
    QVector<Column> columns;
    std::vector<std::unique_ptr<Row>> rows;
    int lastId = 0;
    std::unordered_map<const unsigned char*, Row*> byAddress;

    std::vector<std::unique_ptr<Index>> owned;
    std::vector<std::unique_ptr<View>> views;
    std::vector<std::unique_ptr<IndexDependBase>> bases;
    QVector<SortedModel*> sorted;
    SortedModel* master = nullptr;
    Compare masterCompare; ///< null without a key
    SortedModel* limited = nullptr;
    int limit = 0;
    Recorder* recorder = nullptr;

    bool isUntold = false;  ///< cells were changed that no index has heard of: none can be right
    bool isCurrent = false; ///< the transaction that the driver has just handed over
    Transaction current;
    Transaction pending;
    Transaction running;
    QSet<Row*> extraRemovals;
    QSet<Row*> updatedSince; ///< updated by the last pass, unchecked with the observers
    int raisesLeft = 0;
    int depth = 0;
};

} // namespace Model
