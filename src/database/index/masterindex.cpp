// SPDX-License-Identifier: MIT
#include "index/masterindex.h"

#include "index/indexlist_p.h"
#include "table/roworder_p.h"
#include "table/table_p.h"

#include <QtEndian>

#include <algorithm>
#include <cstring>
#include <typeinfo>

using LiveTable::RowOrder;

// --- MasterIndex ---

MasterIndex::MasterIndex(Table* table)
    : IndexSort(table, false)
{}

MasterIndex::MasterIndex(Table* table, const QList<int>& columns)
    : IndexSort(table, false)
    , keyColumns(columns)
{}

MasterIndex::~MasterIndex()
{
    listPrivate()->clear(); // the rows that live on are in no table
}

QString MasterIndex::getClassName() const
{
    return QStringLiteral("MasterIndex");
}

Record MasterIndex::findRecord(const QString& text) const
{
    return find(fromText(text), -1);
}

QStringList MasterIndex::columnNames() const
{
    QStringList names;
    const Table* viewed = table();
    for (const int column : keyColumns)
        names.append(viewed ? viewed->columnName(column) : QString());
    return names;
}

void MasterIndex::keepArrivalOrder()
{
    listPrivate()->keepsArrival = true;
}

// The table takes this index as its master: its rows are tagged from now on.
void MasterIndex::install()
{
    IndexListPrivate* d = listPrivate();
    d->isMaster = true;
    if (d->records.isEmpty())
        return;
    if (d->keepsArrival) {
        d->keys = IndexListPrivate::ArrivalNumbers;
        d->renumber();
        return;
    }
    for (const Record& record : *this)
        LiveTable::RowPool::setTag(record.row(), 1);
}

// --- MasterIndex_Column_Pure ---

namespace {

QList<int> columnNumbers(const Table* table, const QStringList& names)
{
    QList<int> numbers;
    for (const QString& name : names) {
        const int number = table ? table->columnIndex(name) : -1;
        if (number < 0)
            throw QStringLiteral("Column '%1' not found to create index.").arg(name);
        numbers.append(number);
    }
    return numbers;
}

RowOrder* ascendingOrder(const QList<int>& columns)
{
    std::vector<RowOrder::Column> order;
    for (const int column : columns)
        order.push_back({column, false, false});
    return new RowOrder(std::move(order));
}

// A subclass may give another compare(), of which the class's keys and columns tell nothing.
template <typename Class>
bool isJust(const MasterIndex& index)
{
    return typeid(index) == typeid(Class);
}

} // namespace

MasterIndex_Column_Pure::MasterIndex_Column_Pure(Table* table, const QString& column)
    : MasterIndex_Column_Pure(table, QStringList(column))
{}

MasterIndex_Column_Pure::MasterIndex_Column_Pure(Table* table, const QStringList& columns)
    : MasterIndex_Column_Pure(table, columnNumbers(table, columns))
{}

MasterIndex_Column_Pure::MasterIndex_Column_Pure(Table* table, const QList<int>& columns)
    : MasterIndex(table, columns)
    , order(ascendingOrder(columns))
{
    order->resolve(table);
}

MasterIndex_Column_Pure::~MasterIndex_Column_Pure() = default;

void MasterIndex_Column_Pure::prepare()
{
    order->resolve(table());
}

int MasterIndex_Column_Pure::compare(const Record& a, const Record& b) const
{
    return order->compare(a.row(), b.row());
}

int MasterIndex_Column_Pure::sortKeyWords() const
{
    return isJust<MasterIndex_Column_Pure>(*this) ? order->keyWords() : 0;
}

SortKey MasterIndex_Column_Pure::sortKey(const Record& record) const
{
    return order->key(record.row());
}

bool MasterIndex_Column_Pure::isSortKeyExact(SortKey key) const
{
    return order->isExact(key);
}

bool MasterIndex_Column_Pure::isAffected(int firstColumn, int lastColumn) const
{
    return order->touches(firstColumn, lastColumn) ||
           !(isJust<MasterIndex_Column_Pure>(*this) || isJust<MasterIndex_Fast_Pure>(*this));
}

QString MasterIndex_Column_Pure::toText(const Record& record) const
{
    if (record.isNull())
        return QString();
    QStringList parts;
    for (const int column : columns())
        parts.append(record.data(column).toString());
    return parts.join(QLatin1Char(','));
}

Record MasterIndex_Column_Pure::fromText(const QString& text) const
{
    const QVector<QStringRef> parts = text.splitRef(QLatin1Char(','));
    if (parts.size() != columns().size())
        throw QStringLiteral(
            "Master index can't restore from text. Incorrect columns numbers: %1 != %2")
            .arg(QString::number(parts.size()), QString::number(columns().size()));
    Record key(table());
    if (key.isNull())
        return key;
    for (int i = 0; i < parts.size(); ++i) {
        Field cell = key.data(columns().at(i));
        cell = parts.at(i);
    }
    return key;
}

QByteArray MasterIndex_Column_Pure::keyRecord(const Record& record) const
{
    QByteArray bytes;
    const Table* owner = record.table();
    for (const int column : columns()) {
        const TableColumnDef* def = owner ? owner->columnDef(column) : nullptr;
        if (def)
            bytes.append(reinterpret_cast<const char*>(record.row() + sizeof(LiveTable::RowHeader) +
                                                       def->offset),
                         static_cast<int>(def->size));
    }
    return bytes;
}

// --- MasterIndex_Fast_Pure ---

MasterIndex_Fast_Pure::MasterIndex_Fast_Pure(Table* table, const QStringList& columns)
    : MasterIndex_Column_Pure(table, columns)
{
    setup();
}

MasterIndex_Fast_Pure::MasterIndex_Fast_Pure(Table* table, const QList<int>& columns)
    : MasterIndex_Column_Pure(table, columns)
{
    setup();
}

MasterIndex_Fast_Pure::~MasterIndex_Fast_Pure() = default;

void MasterIndex_Fast_Pure::setup()
{
    static constexpr FieldType::Type supported[] = {FieldType::Integer,  FieldType::Integer64,
                                                    FieldType::Decimal,  FieldType::VarChar,
                                                    FieldType::DateTime, FieldType::XDecimal};
    int expected = columns().isEmpty() ? 0 : columns().first();
    for (const int column : columns()) {
        const QString name = table()->columnName(column);
        if (column != expected)
            throw QStringLiteral("Columns must be sequenced: %1(%3) / %2")
                .arg(QString::number(column), QString::number(expected), name);
        const TableColumnDef* def = table()->columnDef(column);
        const FieldType::Type type = def ? def->type : FieldType::Undefined;
        if (std::find(std::begin(supported), std::end(supported), type) == std::end(supported))
            throw QStringLiteral("Type '%1' unsuported for %2")
                .arg(QLatin1String(FieldType::typeName(type)), name);
        if (def->nullable)
            throw QStringLiteral("Columns can't be nullable %1").arg(name);
        if (length == 0)
            offset = static_cast<unsigned>(def->offset) + sizeof(LiveTable::RowHeader);
        length += static_cast<unsigned>((def->size + 7) / 8 * 8);
        ++expected;
    }
}

int MasterIndex_Fast_Pure::compare(const Record& a, const Record& b) const
{
    return std::memcmp(a.row() + offset, b.row() + offset, length);
}

int MasterIndex_Fast_Pure::sortKeyWords() const
{
    if (!isJust<MasterIndex_Fast_Pure>(*this))
        return 0;
    return length > 8 ? 2 : length > 0 ? 1 : 0; // a key's length is a multiple of 8
}

SortKey MasterIndex_Fast_Pure::sortKey(const Record& record) const
{
    // The first bytes, in the order in which memcmp looks at them.
    const unsigned char* block = record.row() + offset;
    return {length > 0 ? qFromBigEndian<quint64>(block) : 0,
            length > 8 ? qFromBigEndian<quint64>(block + 8) : 0};
}

bool MasterIndex_Fast_Pure::isSortKeyExact(SortKey) const
{
    return length <= 16;
}

// --- MasterIndexOrdered ---

MasterIndexOrdered::MasterIndexOrdered(Table* table)
    : MasterIndex(table)
{
    keepArrivalOrder();
}

MasterIndexOrdered::~MasterIndexOrdered() = default;

int MasterIndexOrdered::compare(const Record&, const Record&) const
{
    return 0;
}

QString MasterIndexOrdered::toText(const Record&) const
{
    return QString();
}

Record MasterIndexOrdered::fromText(const QString&) const
{
    return Record(table());
}

bool MasterIndexOrdered::isAffected(int, int) const
{
    return false;
}
