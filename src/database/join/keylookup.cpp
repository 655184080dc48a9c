// SPDX-License-Identifier: MIT
#include "join/keylookup_p.h"

#include "index/indexsortwork_p.h"
#include "table/roworder_p.h"
#include "table/table.h"

#include <algorithm>
#include <new>

namespace LiveTable {

namespace {

RowOrder keyOrder(const QVector<int>& columns)
{
    std::vector<RowOrder::Column> order;
    for (const int column : columns)
        order.push_back({column, false, false});
    return RowOrder(std::move(order));
}

} // namespace

/// The rows of a table by key, those of one key in the order of the master index.
class KeyOrder : public IndexSort
{
public:
    KeyOrder(Table* table, const QVector<int>& columns)
        : IndexSort(table, false)
        , order(keyOrder(columns))
    {
        order.resolve(table);
    }

    int compare(const Record& a, const Record& b) const override
    {
        const int sign = order.compare(a.row(), b.row());
        return sign || isProbing ? sign : compareInMaster(a, b);
    }
    int sortKeyWords() const override { return order.keyWords(); }
    SortKey sortKey(const Record& record) const override { return order.key(record.row()); }
    bool isAffected(int firstColumn, int lastColumn) const override
    {
        const MasterIndex* master = masterIndex();
        return order.touches(firstColumn, lastColumn) || !master ||
               master->isAffected(firstColumn, lastColumn);
    }
    QString getClassName() const override { return QStringLiteral("KeyOrder"); }

    /// While it lives on a thread, a key finds all rows that have it, whatever their order.
    struct Probing
    {
        Probing() { isProbing = true; }
        ~Probing() { isProbing = false; }
        Q_DISABLE_COPY(Probing)
    };

    int compareInMaster(const Record& a, const Record& b) const
    {
        const MasterIndex* master = masterIndex();
        if (!master)
            return 0;
        if (const int sign = master->compare(a, b))
            return sign;
        if (IndexListPrivate::get(master)->keys != IndexListPrivate::ArrivalNumbers)
            return 0;
        const quint64 x = RowPool::tag(a.row());
        const quint64 y = RowPool::tag(b.row());
        return (x > y) - (x < y);
    }
    const MasterIndex* masterIndex() const
    {
        const Table* viewed = table();
        return viewed ? viewed->masterIndex() : nullptr;
    }

protected:
    void prepare() override { order.resolve(table()); }

private:
    RowOrder order;
    // Of each thread, since searches run on several at once.
    static thread_local bool isProbing;
};

thread_local bool KeyOrder::isProbing = false;

// --- KeyProbe ---

namespace {

bool isNumber(FieldType::Type type)
{
    return type == FieldType::Integer || type == FieldType::Integer64 ||
           type == FieldType::Double || type == FieldType::Decimal || type == FieldType::XDecimal;
}

} // namespace

KeyProbe::KeyProbe(Table* searched, const QVector<Col>& columns)
    : table(searched)
    , mapping(columns)
{}

bool KeyProbe::isSearchable(const Table* table, const Table* from, const QVector<Col>& mapping)
{
    return std::all_of(mapping.cbegin(), mapping.cend(), [&](const Col& col) {
        const FieldType::Type a = table->columnType(col.to);
        const FieldType::Type b = from->columnType(col.from);
        return a == b || (isNumber(a) && isNumber(b));
    });
}

bool KeyProbe::fill(const Record& source)
{
    if (!table || !source.table())
        return false;
    if (!isJudged) {
        for (const Col& col : qAsConst(mapping)) {
            const TableColumnDef* a = table->columnDef(col.to);
            const TableColumnDef* b = source.table()->columnDef(col.from);
            isExact = isExact && a && b && a->type == b->type && a->length == b->length;
        }
        isJudged = true;
    }
    if (row.table() != table) { // also after columns were added
        row = Record(table);
        if (row.isNull())
            throw std::bad_alloc();
    }
    try {
        for (const Col& col : qAsConst(mapping)) {
            Field cell = row.data(col.to);
            const Field value = source.data(col.from);
            if (value.isNull())
                cell.setNull();
            else
                cell = value;
        }
    } catch (const std::bad_alloc&) {
        throw;
    } catch (...) { // a value that the searched column cannot take is in no row of it
        return false;
    }
    return true;
}

bool KeyProbe::matches(const Record& found, const Record& source) const
{
    return std::all_of(mapping.cbegin(), mapping.cend(), [&](const Col& col) {
        return found.data(col.to).compare(source.data(col.from)) == 0;
    });
}

KeyRun runOf(const IndexSort* index, const Record& row)
{
    const KeyOrder::Probing probing;
    const auto [first, end] = IndexSortWork(index).equalRange(row);
    return {first, end};
}

KeyRun KeyProbe::run(const IndexSort* index, const Record& source)
{
    if (!index || !fill(source))
        return KeyRun();
    const KeyRun found = runOf(index, row);
    return found.begin < found.end && (isExact || matches(index->at(found.begin), source))
               ? found
               : KeyRun();
}

// --- KeyLookup ---

KeyLookup::KeyLookup(Table* searched, const QVector<int>& keyColumns)
    : table(searched)
    , columns(keyColumns)
{}

KeyLookup::~KeyLookup() = default;

Index* KeyLookup::ownIndex() const
{
    return own.get();
}

// A master index of a host's own may compare otherwise than by the cells, and one by raw bytes
// tells apart the spellings of one decimal.
bool KeyLookup::isSortedByKey(const MasterIndex* master) const
{
    const bool isPlain = dynamic_cast<const MasterIndex_Column_Pure*>(master);
    const bool isByBytes = dynamic_cast<const MasterIndex_Fast_Pure*>(master);
    QVector<int> sorted = master->columns().toVector();
    std::sort(sorted.begin(), sorted.end());
    QVector<int> wanted = columns;
    std::sort(wanted.begin(), wanted.end());
    if (!isPlain || sorted != wanted)
        return false;
    return !isByBytes || std::none_of(wanted.cbegin(), wanted.cend(), [this](int column) {
        const FieldType::Type type = table->columnType(column);
        return type == FieldType::Decimal || type == FieldType::XDecimal;
    });
}

const IndexSort* KeyLookup::index()
{
    const MasterIndex* master = table ? table->masterIndex() : nullptr;
    if (!master)
        return nullptr;
    if (master != judgedMaster || master->columns() != judgedColumns) {
        judgedMaster = master;
        judgedColumns = master->columns();
        own.reset();
        if (!isSortedByKey(master)) {
            own = std::make_unique<KeyOrder>(table, columns);
            own->build();
        }
    }
    return searched();
}

void KeyLookup::rebuild()
{
    judgedMaster = nullptr;
    index();
}

bool KeyLookup::isOrderAffected(int firstColumn, int lastColumn) const
{
    return own && own->isAffected(firstColumn, lastColumn);
}

const IndexSort* KeyLookup::searched() const
{
    return own ? static_cast<const IndexSort*>(own.get()) : judgedMaster;
}

// Rows that are equal for the master index too stand there as they came; in the own list a row that
// got its key later stands behind them.
int KeyLookup::lastOfEquals(int begin, int i,
                            const std::function<bool(const Record&)>& isGone) const
{
    int found = i;
    int position = -1;
    for (int k = i - 1; k >= begin && own->compareInMaster(own->at(k), own->at(i)) == 0; --k) {
        if (isGone(own->at(k)))
            continue;
        if (position < 0)
            position = judgedMaster->indexOf(own->at(i));
        const int other = judgedMaster->indexOf(own->at(k));
        if (other > position) {
            position = other;
            found = k;
        }
    }
    return found;
}

} // namespace LiveTable
