// SPDX-License-Identifier: MIT
// A Table with live views, each with an observer that receives every old and new position. The
// views are ready SortedViews, or written as a host would, with a compare() of its own.
#include "views.h"

#include "index/keyindex.h"
#include "index/masterindex.h"
#include "index/sortedview.h"
#include "table/cellreader.h"
#include "table/recordstrans.h"
#include "table/recordupdater.h"

#include <optional>

namespace bench {

int tableViews = viewCount;

namespace {

class Positions : public IndexObserver
{
public:
    void indexChanged(const IndexList&, const IndexChange& change) override
    {
        for (int i = 0; i < change.movedCount; ++i)
            sum += change.moved[i].from + change.moved[i].to;
        for (int i = 0; i < change.removedCount; ++i)
            sum += change.removed[i];
        for (int i = 0; i < change.insertedCount; ++i)
            sum += change.inserted[i];
        for (int i = 0; i < change.changedCount; ++i)
            sum += change.changed[i];
    }
    void indexReset(const IndexList&) override {}
    qint64 sum = 0;
};

class HostView : public IndexSort
{
public:
    HostView(Table* table, View order)
        : IndexSort(table, true)
        , view(order)
        , symbol(table, Symbol)
        , price(table, Price)
        , time(table, Time)
        , quantity(table, Quantity)
    {
        build();
    }
    int compare(const Record& a, const Record& b) const override
    {
        switch (view) {
        case ByPrice:
            return price(a).compare(price(b));
        case BySymbolPrice: {
            const int order = symbol(a).compare(symbol(b));
            return order ? order : price(a).compare(price(b));
        }
        case ByTime:
            return sign(time(a), time(b));
        case ByQuantity:
            break;
        }
        return sign(quantity(b), quantity(a));
    }

private:
    template <typename T>
    static int sign(const T& a, const T& b)
    {
        return (b < a) - (a < b);
    }
    const View view;
    const CellReader<QStringView> symbol;
    const CellReader<decimal> price;
    const CellReader<datetime> time;
    const CellReader<qint64> quantity;
};

class TableStore : public Store
{
public:
    explicit TableStore(bool withCompare)
        : hasCompare(withCompare)
        , table(QStringLiteral("quotes"))
        , changes(&table)
    {
        addColumns(table);
        table.setMasterIndex(new MasterIndex_Column_Pure(&table, QStringLiteral("id")));
        key = Record(&table);
        quantity.emplace(&table, Quantity);
    }

    void load(const std::vector<Quote>& quotes) override
    {
        QList<Record> rows;
        rows.reserve(static_cast<int>(quotes.size()));
        for (const Quote& quote : quotes)
            rows.append(makeRow(table, quote));
        table.appendList(rows);
        static const char* const orders[] = {"price",  "symbol,price", "time",  "-quantity",
                                             "-price", "board,price",  "-time", "quantity"};
        for (int i = 0; i < tableViews; ++i) {
            if (hasCompare)
                views.push_back(std::make_unique<HostView>(&table, View(i)));
            else
                views.push_back(std::make_unique<SortedView>(
                    &table, QString::fromLatin1(orders[i]).split(QLatin1Char(','))));
            views.back()->addObserver(&positions);
        }
    }

    void update(const Update& update) override
    {
        {
            RecordUpdater updater(changes, row(update.id));
            updater.data(Price) = decimal::fromMantissa(update.price, 2);
            updater.data(Time) = datetime(update.time);
        }
        execute();
    }

    void apply(const Batch& batch) override
    {
        for (const qint64 id : batch.removals)
            changes.remove(row(id));
        for (const Update& update : batch.updates) {
            RecordUpdater updater(changes, row(update.id));
            updater.data(Price) = decimal::fromMantissa(update.price, 2);
            updater.data(Time) = datetime(update.time);
        }
        for (const Quote& quote : batch.inserts)
            changes.insert(makeRow(table, quote));
        execute();
    }

    qint64 page(View view) override
    {
        qint64 length = 0;
        auto row = views[view]->begin();
        for (int i = 0; i < pageRows; ++i, ++row)
            for (const int column : {Symbol, Price, Bid, Ask, Quantity})
                length += row->data(column).toString().size();
        return length;
    }

    qint64 find(qint64 id) override
    {
        if (!byId) // made for this workload alone
            byId = std::make_unique<KeyIndex>(&table, QStringLiteral("id"));
        return (*quantity)(byId->find(id));
    }

    qint64 findText(const QString& text) override
    {
        return (*quantity)(table.masterIndex()->findRecord(text));
    }

    void visit(View view, const std::function<void(const Quote&)>& visitor) override
    {
        for (const Record& row : *views[view])
            visitor(toQuote(row));
    }

private:
    Record row(qint64 id)
    {
        key.data(Id) = id;
        return table.masterIndex()->findFirst(key);
    }

    void execute()
    {
        table.beginUpdate();
        changes.execute();
        table.endUpdate();
    }

    const bool hasCompare;
    Table table;
    Record key;
    RecordsTrans changes;
    Positions positions;
    std::vector<std::unique_ptr<IndexSort>> views;
    std::unique_ptr<KeyIndex> byId;
    std::optional<CellReader<qint64>> quantity;
};

} // namespace

std::unique_ptr<Store> makeTable()
{
    return std::make_unique<TableStore>(false);
}

std::unique_ptr<Store> makeTableWithCompare()
{
    return std::make_unique<TableStore>(true);
}

} // namespace bench
