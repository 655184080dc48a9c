// SPDX-License-Identifier: MIT
// What bench_views measures: stores of quotes that keep four views sorted.
#pragma once

#include "support/bench.h"

#include <functional>
#include <memory>
#include <vector>

namespace bench {

enum View
{
    ByPrice,
    BySymbolPrice,
    ByTime,
    ByQuantity // the largest first
};
constexpr int viewCount = 4;
extern int tableViews; // of the table: 1 to 8
constexpr int pageRows = 50;

struct Update
{
    qint64 id;
    qint64 price;
    qint64 time;
};

struct Batch
{
    std::vector<Update> updates;
    std::vector<Quote> inserts;
    std::vector<qint64> removals;
};

/// A store as its best user would write it. All views are right when a call returns.
class Store
{
public:
    Store() = default;
    virtual ~Store() = default;
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    /// Fills the empty store and builds its views.
    virtual void load(const std::vector<Quote>& quotes) = 0;
    /// One transaction.
    virtual void update(const Update& update) = 0;
    virtual void apply(const Batch& batch) = 0;
    /// Makes the texts of symbol, price, bid, ask and quantity of a view's first 50 rows; their
    /// length in characters.
    virtual qint64 page(View view) = 0;
    /// The quantity of the row.
    virtual qint64 find(qint64 id) = 0;
    /// The same by the text of the key; -1 where the store has no such call.
    virtual qint64 findText(const QString& key)
    {
        Q_UNUSED(key)
        return -1;
    }
    /// All rows in a view's order.
    virtual void visit(View view, const std::function<void(const Quote&)>& visitor) = 0;
};

struct Contender
{
    const char* name;
    std::unique_ptr<Store> (*make)();
    int share; ///< one operation of so many is done: for stores that would take minutes
};

std::unique_ptr<Store> makeTable();
std::unique_ptr<Store> makeTableWithCompare();
std::unique_ptr<Store> makeItemModels();
std::unique_ptr<Store> makeBtree();
std::unique_ptr<Store> makeMultiIndex();
std::unique_ptr<Store> makeRankedMultiIndex();
std::unique_ptr<Store> makeSqlite();

} // namespace bench
