// SPDX-License-Identifier: MIT
// What one price change costs through to the signals of a sorted item model: TableModel over a
// SortedView, beside QSortFilterProxyModel over a typed model of the same rows.
//
//     bench_model [MOST ROWS [CHANGES]]
//
// Workloads M-1000, M-10000, ... up to the most rows; the proxy, which numbers its rows anew at
// each move, gets a small share of the changes. One line per figure: subject workload figure value
// unit. Afterwards, outside the clock, order, content and what the signals told are checked; a
// difference ends the program with exit code 1.
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "model/tablemodel.h"
#include "support/bench.h"
#include "table/recordstrans.h"
#include "table/recordupdater.h"

#include <QSortFilterProxyModel>

#include <algorithm>
#include <cstdlib>

namespace {

using namespace bench;

struct Change
{
    int row; // its id
    qint64 price;
};

std::vector<Change> makeChanges(int rows, int count)
{
    Random random;
    std::vector<Change> changes;
    for (int i = 0; i < count; ++i)
        changes.push_back({random.below(rows), randomPrice(random)});
    return changes;
}

/// The price of each row after the changes.
std::vector<qint64> lastPrices(const std::vector<Quote>& quotes, const std::vector<Change>& changes)
{
    std::vector<qint64> prices;
    for (const Quote& quote : quotes)
        prices.push_back(quote.price);
    for (const Change& change : changes)
        prices[static_cast<size_t>(change.row)] = change.price;
    return prices;
}

/// Counts what a view would hear.
class Listener : public QObject
{
public:
    explicit Listener(const QAbstractItemModel& model)
    {
        const auto hear = [this] { ++heard; };
        connect(&model, &QAbstractItemModel::rowsMoved, this, hear);
        connect(&model, &QAbstractItemModel::rowsInserted, this, hear);
        connect(&model, &QAbstractItemModel::layoutChanged, this, hear);
        connect(&model, &QAbstractItemModel::dataChanged, this, hear);
        connect(&model, &QAbstractItemModel::modelReset, this, [this] { ++resets; });
    }
    size_t heard = 0;
    int resets = 0;
};

template <typename Apply>
void measure(const char* subject, const char* workload, const std::vector<Change>& changes,
             Apply apply)
{
    std::vector<double> times;
    times.reserve(changes.size());
    double sum = 0;
    for (const Change& change : changes) {
        times.push_back(timed([&] { apply(change); }));
        sum += times.back();
    }
    reportTimes(subject, workload, double(times.size()), times);
    report(subject, workload, "mean", sum / double(times.size()) * 1e6, "us");
}

// --- this library ---

void runTableModel(const char* workload, const std::vector<Quote>& quotes,
                   const std::vector<Change>& changes)
{
    Table table("quotes");
    addColumns(table);
    table.setMasterIndex(new MasterIndex_Column_Pure(&table, QString("id")));
    QList<Record> rows;
    for (const Quote& quote : quotes)
        rows.append(makeRow(table, quote));
    table.appendList(rows);
    const std::unique_ptr<SortedView> byPrice(new SortedView(&table, QStringList{"price", "id"}));
    TableModel model(byPrice.get(), {"symbol", "price", "bid", "ask", "quantity", "time"});
    const Listener listener(model);
    measure("livetable", workload, changes, [&](const Change& change) {
        RecordsTrans transaction(&table);
        RecordUpdater(transaction, rows.at(change.row)).data(Price) =
            decimal::fromMantissa(change.price, 2);
        transaction.execute();
    });
    const std::vector<qint64> prices = lastPrices(quotes, changes);
    require(listener.heard >= changes.size() && !listener.resets, "livetable", "signals");
    require(model.rowCount() == rows.size(), "livetable", "rows");
    std::pair<qint64, qint64> before{-1, -1};
    for (int row = 0; row < model.rowCount(); ++row) {
        const Quote quote = toQuote(model.record(row));
        const std::pair<qint64, qint64> key{quote.price, quote.id};
        require(before < key, "livetable", "order");
        require(quote.price == prices[size_t(quote.id)] &&
                    model.index(row, 1).data(TableModel::ValueRole).value<decimal>() ==
                        decimal::fromMantissa(quote.price, 2),
                "livetable", "content");
        before = key;
    }
}

// --- Qt's proxy ---

class QuoteModel : public QAbstractTableModel
{
public:
    explicit QuoteModel(const std::vector<Quote>& quotes)
        : rows(quotes)
    {}
    int rowCount(const QModelIndex& parent = QModelIndex()) const override
    {
        return parent.isValid() ? 0 : int(rows.size());
    }
    int columnCount(const QModelIndex&) const override { return 6; }
    QVariant data(const QModelIndex& index, int role) const override
    {
        const Quote& quote = rows[size_t(index.row())];
        return role == Qt::DisplayRole && index.column() == 1 ? quote.price : QVariant();
    }
    void apply(const Change& change)
    {
        rows[size_t(change.row)].price = change.price;
        Q_EMIT dataChanged(index(change.row, 1), index(change.row, 1));
    }
    std::vector<Quote> rows;
};

/// By the typed price and id: no variants.
class ByPrice : public QSortFilterProxyModel
{
public:
    explicit ByPrice(QuoteModel& quotes)
        : model(quotes)
    {
        setSourceModel(&model);
        setDynamicSortFilter(true);
        sort(1);
    }
    std::pair<qint64, qint64> key(int sourceRow) const
    {
        const Quote& quote = model.rows[size_t(sourceRow)];
        return {quote.price, quote.id};
    }

protected:
    bool lessThan(const QModelIndex& a, const QModelIndex& b) const override
    {
        return key(a.row()) < key(b.row());
    }

private:
    QuoteModel& model;
};

void runProxy(const char* workload, const std::vector<Quote>& quotes,
              const std::vector<Change>& changes)
{
    QuoteModel model(quotes);
    const ByPrice proxy(model);
    const Listener listener(proxy);
    measure("qsortfilterproxymodel", workload, changes,
            [&](const Change& change) { model.apply(change); });
    const std::vector<qint64> prices = lastPrices(quotes, changes);
    require(listener.heard >= changes.size(), "qsortfilterproxymodel", "signals");
    require(proxy.rowCount() == int(quotes.size()), "qsortfilterproxymodel", "rows");
    std::pair<qint64, qint64> before{-1, -1};
    for (int row = 0; row < proxy.rowCount(); ++row) {
        const auto key = proxy.key(proxy.mapToSource(proxy.index(row, 1)).row());
        require(before < key, "qsortfilterproxymodel", "order");
        require(key.first == prices[size_t(key.second)], "qsortfilterproxymodel", "content");
        before = key;
    }
}

} // namespace

int main(int argc, char** argv)
{
    const int most = argc > 1 ? std::atoi(argv[1]) : 1000000;
    const int count = argc > 2 ? std::atoi(argv[2]) : 200000;
    for (int rows = 1000; rows <= most; rows *= 10) {
        const QByteArray workload = "M-" + QByteArray::number(rows);
        Random random;
        const std::vector<Quote> quotes = makeQuotes(random, rows);
        runTableModel(workload, quotes, makeChanges(rows, count));
        const int share = std::clamp(int(qint64(count) * 50 / rows), 10, count);
        runProxy(workload, quotes, makeChanges(rows, share));
    }
    return 0;
}
