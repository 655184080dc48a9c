// SPDX-License-Identifier: MIT
#include "model/tablemodel.h"

#include "table/table.h"

class TableModelPrivate : public IndexObserver
{
public:
    TableModelPrivate(TableModel* model, IndexList* shown)
        : q(model)
        , index(shown)
    {
        index->addObserver(this);
        rows = index->count();
    }
    ~TableModelPrivate() override
    {
        if (index)
            index->removeObserver(this);
    }
    void indexChanged(const IndexList& changed, const IndexChange&) override
    {
        indexReset(changed);
    }
    void indexReset(const IndexList& changed) override
    {
        q->beginResetModel();
        rows = changed.count();
        q->endResetModel();
    }
    void indexDestroyed(const IndexList&) override
    {
        q->beginResetModel();
        index = nullptr;
        rows = 0;
        q->endResetModel();
    }

    TableModel* const q;
    IndexList* index;
    int rows = 0;
    QVector<int> columns;
};

TableModel::TableModel(IndexList* index, QObject* parent)
    : QAbstractTableModel(parent)
    , d(new TableModelPrivate(this, index))
{
    for (int i = 0; i < index->table()->columnCount(); ++i)
        d->columns.append(i);
}

TableModel::~TableModel() = default;

IndexList* TableModel::source() const
{
    return d->index;
}

int TableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : d->rows;
}

int TableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : d->columns.size();
}

QVariant TableModel::data(const QModelIndex& cell, int role) const
{
    if (!cell.isValid() || !d->index || role != Qt::DisplayRole)
        return QVariant();
    return d->index->at(cell.row()).data(d->columns.at(cell.column())).toSystemString();
}

TableModel::TableModel(IndexList* index, const QStringList&, QObject* parent)
    : TableModel(index, parent)
{}

QVariant TableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    return QAbstractTableModel::headerData(section, orientation, role);
}

Qt::ItemFlags TableModel::flags(const QModelIndex& index) const
{
    return QAbstractTableModel::flags(index);
}

bool TableModel::setData(const QModelIndex&, const QVariant&, int)
{
    return false;
}

QHash<int, QByteArray> TableModel::roleNames() const
{
    return QAbstractTableModel::roleNames();
}
