// SPDX-License-Identifier: MIT
// Four QSortFilterProxyModels over a typed item model. Each change of a row makes each proxy number
// its rows anew, so only a small share of the operations is done.
#include "views_flat.h"

#include <QAbstractTableModel>
#include <QHash>
#include <QSortFilterProxyModel>

namespace bench {
namespace {

enum ShownColumn
{
    ShownSymbol,
    ShownPrice,
    ShownBid,
    ShownAsk,
    ShownQuantity,
    ShownTime,
    ShownCount
};

class QuoteModel : public QAbstractTableModel
{
public:
    int rowCount(const QModelIndex& parent = QModelIndex()) const override
    {
        return parent.isValid() ? 0 : static_cast<int>(rows.size());
    }
    int columnCount(const QModelIndex&) const override { return ShownCount; }
    QVariant data(const QModelIndex& index, int role) const override
    {
        if (role != Qt::DisplayRole)
            return QVariant();
        const FlatRow& row = rows[static_cast<size_t>(index.row())];
        const auto price = [](qint64 mantissa) {
            return decimal::fromMantissa(mantissa, 2).toString();
        };
        switch (index.column()) {
        case ShownSymbol:
            return QString::fromLatin1(row.symbol,
                                       static_cast<int>(strnlen(row.symbol, sizeof(row.symbol))));
        case ShownPrice:
            return price(row.price);
        case ShownBid:
            return price(row.bid);
        case ShownAsk:
            return price(row.ask);
        case ShownQuantity:
            return row.quantity;
        default:
            return datetime(row.time).toString();
        }
    }

    void load(const std::vector<Quote>& quotes)
    {
        beginResetModel();
        rows.reserve(quotes.size());
        for (const Quote& quote : quotes) {
            places.insert(quote.id, static_cast<int>(rows.size()));
            rows.emplace_back(quote);
        }
        endResetModel();
    }
    void update(const Update& update)
    {
        const int at = places.value(update.id);
        FlatRow& row = rows[static_cast<size_t>(at)];
        row.price = update.price;
        row.time = update.time;
        Q_EMIT dataChanged(index(at, ShownPrice), index(at, ShownTime));
    }
    void insert(const Quote& quote)
    {
        const int at = static_cast<int>(rows.size());
        beginInsertRows(QModelIndex(), at, at);
        places.insert(quote.id, at);
        rows.emplace_back(quote);
        endInsertRows();
    }
    // The last row takes its place: removing in the middle would renumber all behind.
    void remove(qint64 id)
    {
        const int at = places.take(id);
        const int last = static_cast<int>(rows.size()) - 1;
        if (at != last) {
            rows[static_cast<size_t>(at)] = rows.back();
            places.insert(rows.back().id, at);
            Q_EMIT dataChanged(index(at, 0), index(at, ShownTime));
        }
        beginRemoveRows(QModelIndex(), last, last);
        rows.pop_back();
        endRemoveRows();
    }

    std::vector<FlatRow> rows;
    QHash<qint64, int> places;
};

template <View view>
class Proxy : public QSortFilterProxyModel
{
public:
    explicit Proxy(const QuoteModel& quotes)
        : model(quotes)
    {}

protected:
    bool lessThan(const QModelIndex& a, const QModelIndex& b) const override
    {
        const std::integral_constant<View, view> which;
        return keyOf(which, model.rows[static_cast<size_t>(a.row())]) <
               keyOf(which, model.rows[static_cast<size_t>(b.row())]);
    }

private:
    const QuoteModel& model;
};

class ItemModels : public Store
{
public:
    void load(const std::vector<Quote>& quotes) override
    {
        model.load(quotes);
        // A change of the price moves rows by symbol and price, too.
        const int columns[] = {ShownPrice, ShownPrice, ShownTime, ShownQuantity};
        QSortFilterProxyModel* const all[] = {&byPrice, &bySymbol, &byTime, &byQuantity};
        for (int i = 0; i < viewCount; ++i) {
            views[i] = all[i];
            views[i]->setSourceModel(&model);
            views[i]->setDynamicSortFilter(true);
            views[i]->sort(columns[i]);
        }
    }
    void update(const Update& update) override { model.update(update); }
    void apply(const Batch& batch) override
    {
        for (const qint64 id : batch.removals)
            model.remove(id);
        for (const Update& one : batch.updates)
            model.update(one);
        for (const Quote& quote : batch.inserts)
            model.insert(quote);
    }
    qint64 page(View view) override
    {
        qint64 length = 0;
        for (int row = 0; row < pageRows; ++row)
            for (int column = ShownSymbol; column <= ShownQuantity; ++column)
                length += views[view]->index(row, column).data().toString().size();
        return length;
    }
    qint64 find(qint64 id) override
    {
        return model.rows[static_cast<size_t>(model.places.value(id))].quantity;
    }
    void visit(View view, const std::function<void(const Quote&)>& visitor) override
    {
        for (int row = 0; row < views[view]->rowCount(); ++row)
            visitor(model
                        .rows[static_cast<size_t>(
                            views[view]->mapToSource(views[view]->index(row, 0)).row())]
                        .toQuote());
    }

private:
    QuoteModel model;
    Proxy<ByPrice> byPrice{model};
    Proxy<BySymbolPrice> bySymbol{model};
    Proxy<ByTime> byTime{model};
    Proxy<ByQuantity> byQuantity{model};
    QSortFilterProxyModel* views[viewCount] = {};
};

} // namespace

std::unique_ptr<Store> makeItemModels()
{
    return std::make_unique<ItemModels>();
}

} // namespace bench
