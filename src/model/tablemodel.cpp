// SPDX-License-Identifier: MIT
#include "model/tablemodel.h"

#include "model/tablemodel_p.h"

#include <QScopeGuard>

namespace {

bool isNumber(FieldType::Type type)
{
    switch (type) {
    case FieldType::Integer:
    case FieldType::Integer64:
    case FieldType::Double:
    case FieldType::Decimal:
    case FieldType::XDecimal:
        return true;
    default:
        return false;
    }
}

QVariant sortValue(const Field& cell)
{
    switch (cell.type()) {
    case FieldType::Decimal:
    case FieldType::XDecimal:
        return cell.isNull() ? QVariant() : cell.toDouble();
    default:
        return cell.toVariant();
    }
}

/// Throws a QString when the table has no such column.
int checkedColumn(const Table* table, int column)
{
    if (column < 0 || !table || column >= table->columnCount())
        throw QStringLiteral("Column '%1' not found to create model.").arg(column);
    return column;
}

QVector<int> columnsNamed(const Table* table, const QStringList& names)
{
    QVector<int> columns;
    for (const QString& name : names) {
        const int column = table ? table->columnIndex(name) : -1;
        if (column < 0)
            throw QStringLiteral("Column '%1' not found to create model.").arg(name);
        columns.append(column);
    }
    return columns;
}

} // namespace

TableModel::TableModel(IndexList* index, QObject* parent)
    : TableModel(index, QStringList(), parent)
{}

TableModel::TableModel(IndexList* index, const QStringList& columns, QObject* parent)
    : QAbstractTableModel(parent)
    , d(new TableModelPrivate(this, index))
{
    qRegisterMetaType<Highlight>();
    setColumns(columns);
}

TableModel::~TableModel() = default;

IndexList* TableModel::source() const
{
    return d->index;
}

// --- columns ---

void TableModelPrivate::setColumns(const QVector<int>& wanted)
{
    const TableLockScope lock(table);
    hasAllColumns = wanted.isEmpty();
    columns = wanted;
    isEditable.clear();
    reset();
    if (isPending()) // what slots have changed
        resume();
}

void TableModel::setColumns(const QStringList& names)
{
    d->setColumns(columnsNamed(d->table, names));
}

void TableModel::setColumns(const QVector<int>& tableColumns)
{
    for (const int column : tableColumns)
        checkedColumn(d->table, column);
    d->setColumns(tableColumns);
}

QVector<int> TableModel::columns() const
{
    return d->columns;
}

int TableModel::modelColumn(int tableColumn) const
{
    return d->columns.indexOf(tableColumn);
}

void TableModel::setEditable(int column, bool isEditable)
{
    if (column >= 0 && column < d->isEditable.size())
        d->isEditable[column] = isEditable;
}

bool TableModel::isEditable(int column) const
{
    return d->isEditable.value(column);
}

// --- rows ---

Record TableModel::record(int row) const
{
    const TableLockScope lock(d->table);
    return d->recordAt(row);
}

int TableModel::rowOf(const Record& record) const
{
    const TableLockScope lock(d->table);
    return d->rowOf(record);
}

int TableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : d->rows;
}

int TableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : d->columns.size();
}

QVariant TableModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.model() != this || index.column() >= d->columns.size())
        return QVariant();
    const bool isAlignment = role == Qt::TextAlignmentRole;
    if (role != Qt::DisplayRole && role != Qt::EditRole && role < SortRole && !isAlignment)
        return QVariant();
    const TableLockScope lock(d->table);
    if (isAlignment) {
        const Table* table = d->table;
        const bool isRight = table && isNumber(table->columnType(d->columns.at(index.column())));
        return int((isRight ? Qt::AlignRight : Qt::AlignLeft) | Qt::AlignVCenter);
    }
    const Record& content = d->contentAt(index.row());
    const Field cell = content.data(d->columns.at(index.column()));
    switch (role) {
    case RecordRole:
        return QVariant::fromValue(d->recordAt(index.row()));
    case HighlightRole:
        return d->highlights.at(d->recordAt(index.row()), index.column(),
                                d->listener.frozen.time());
    case Qt::DisplayRole:
        return content.isNull() ? QVariant() : cell.isNull() ? QString() : cell.toSystemString();
    case Qt::EditRole:
        return content.isNull() ? QVariant() : cell.isNull() ? QString() : cell.toString();
    case SortRole:
        return sortValue(cell);
    case ValueRole:
        return cell.toVariant();
    default:
        return QVariant();
    }
}

QVariant TableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Vertical)
        return QAbstractTableModel::headerData(section, orientation, role);
    const TableLockScope lock(d->table);
    const int column = d->columns.value(section, -1);
    const TableColumnDef* def = d->table ? d->table->columnDef(column) : nullptr;
    if (!def)
        return QVariant();
    if (role == Qt::DisplayRole)
        return def->title.isEmpty() ? def->name : def->title;
    if (role == Qt::ToolTipRole && !def->description.isEmpty())
        return def->description;
    return QVariant();
}

Qt::ItemFlags TableModel::flags(const QModelIndex& index) const
{
    Qt::ItemFlags flags = QAbstractTableModel::flags(index);
    if (index.isValid() && isEditable(index.column()))
        flags |= Qt::ItemIsEditable;
    return flags;
}

QHash<int, QByteArray> TableModel::roleNames() const
{
    QHash<int, QByteArray> names = QAbstractTableModel::roleNames();
    names.insert(SortRole, QByteArrayLiteral("sort"));
    names.insert(ValueRole, QByteArrayLiteral("value"));
    names.insert(RecordRole, QByteArrayLiteral("record"));
    names.insert(HighlightRole, QByteArrayLiteral("highlight"));
    return names;
}

// --- editing ---

bool TableModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    d->lastError.clear();
    if (!index.isValid() || index.model() != this || !isEditable(index.column()))
        d->lastError = QStringLiteral("This cell cannot be edited.");
    else if (role != Qt::EditRole)
        d->lastError = QStringLiteral("Only the value of a cell can be edited.");
    else
        d->lastError = d->write(record(index.row()), d->columns.at(index.column()), value);
    if (d->lastError.isNull())
        return true;
    Q_EMIT editFailed(index, d->lastError);
    return false;
}

QString TableModel::lastError() const
{
    return d->lastError;
}

// --- batches and highlights ---

void TableModel::setFlushInterval(int milliseconds)
{
    const TableLockScope lock(d->table);
    d->intervalMs = qMax(milliseconds, 0);
    d->flush();
}

int TableModel::flushInterval() const
{
    return d->intervalMs;
}

void TableModel::freeze()
{
    d->freeze();
}

void TableModel::thaw()
{
    d->thaw();
}

bool TableModel::isFrozen() const
{
    return d->isFrozen;
}

bool TableModel::hasPendingChanges() const
{
    const TableLockScope lock(d->table);
    return d->isPending();
}

void TableModel::flush()
{
    d->flush();
}

void TableModel::setLayoutThreshold(int signalCount)
{
    d->layoutThreshold = qMax(signalCount, 0);
}

int TableModel::layoutThreshold() const
{
    return d->layoutThreshold;
}

void TableModel::setHighlightTime(int milliseconds)
{
    const TableLockScope lock(d->table);
    d->highlights.setTime(milliseconds);
}

int TableModel::highlightTime() const
{
    return d->highlights.time();
}
