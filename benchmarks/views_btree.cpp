// SPDX-License-Identifier: MIT
// absl::btree_set with the key in the entry, and a flat hash of the ids. Tells no positions and
// rolls nothing back.
#include "views_flat.h"

#include <absl/container/btree_set.h>
#include <absl/container/flat_hash_map.h>

#include <algorithm>
#include <deque>

namespace bench {
namespace {

template <View view>
class Sorted
{
public:
    using Which = std::integral_constant<View, view>;
    using Key = decltype(keyOf(Which(), std::declval<const FlatRow&>()));
    using Entry = std::pair<Key, const FlatRow*>;

    static Entry entry(const FlatRow& row) { return {keyOf(Which(), row), &row}; }
    void build(const std::deque<FlatRow>& rows)
    {
        std::vector<Entry> sorted;
        sorted.reserve(rows.size());
        for (const FlatRow& row : rows)
            sorted.push_back(entry(row));
        std::sort(sorted.begin(), sorted.end());
        entries = absl::btree_set<Entry>(sorted.begin(), sorted.end());
    }
    absl::btree_set<Entry> entries;
};

class Btree : public Store
{
public:
    void load(const std::vector<Quote>& quotes) override
    {
        byId.reserve(quotes.size());
        for (const Quote& quote : quotes) {
            rows.emplace_back(quote);
            byId.emplace(quote.id, &rows.back());
        }
        byPrice.build(rows);
        bySymbol.build(rows);
        byTime.build(rows);
        byQuantity.build(rows);
    }

    void update(const Update& update) override
    {
        FlatRow& row = *byId.find(update.id)->second;
        byPrice.entries.erase(byPrice.entry(row));
        bySymbol.entries.erase(bySymbol.entry(row));
        byTime.entries.erase(byTime.entry(row));
        row.price = update.price;
        row.time = update.time;
        byPrice.entries.insert(byPrice.entry(row));
        bySymbol.entries.insert(bySymbol.entry(row));
        byTime.entries.insert(byTime.entry(row));
    }

    void apply(const Batch& batch) override
    {
        for (const qint64 id : batch.removals)
            remove(id);
        for (const Update& one : batch.updates)
            update(one);
        for (const Quote& quote : batch.inserts)
            insert(quote);
    }

    qint64 page(View view) override
    {
        qint64 length = 0;
        int n = 0;
        walk(view, [&](const FlatRow& row) {
            length += writeTexts(row);
            return ++n < pageRows;
        });
        return length;
    }

    qint64 find(qint64 id) override { return byId.find(id)->second->quantity; }

    void visit(View view, const std::function<void(const Quote&)>& visitor) override
    {
        walk(view, [&](const FlatRow& row) {
            visitor(row.toQuote());
            return true;
        });
    }

private:
    template <typename Visit>
    void walk(View view, Visit visit) const
    {
        const auto all = [&](const auto& entries) {
            for (const auto& entry : entries)
                if (!visit(*entry.second))
                    return;
        };
        switch (view) {
        case ByPrice:
            return all(byPrice.entries);
        case BySymbolPrice:
            return all(bySymbol.entries);
        case ByTime:
            return all(byTime.entries);
        case ByQuantity:
            return all(byQuantity.entries);
        }
    }

    void insert(const Quote& quote)
    {
        FlatRow* row = nullptr;
        if (unused.empty()) {
            rows.emplace_back(quote);
            row = &rows.back();
        } else {
            row = unused.back();
            unused.pop_back();
            *row = FlatRow(quote);
        }
        byId.emplace(quote.id, row);
        byPrice.entries.insert(byPrice.entry(*row));
        bySymbol.entries.insert(bySymbol.entry(*row));
        byTime.entries.insert(byTime.entry(*row));
        byQuantity.entries.insert(byQuantity.entry(*row));
    }

    void remove(qint64 id)
    {
        const auto found = byId.find(id);
        FlatRow& row = *found->second;
        byPrice.entries.erase(byPrice.entry(row));
        bySymbol.entries.erase(bySymbol.entry(row));
        byTime.entries.erase(byTime.entry(row));
        byQuantity.entries.erase(byQuantity.entry(row));
        byId.erase(found);
        unused.push_back(&row);
    }

    std::deque<FlatRow> rows;
    std::vector<FlatRow*> unused;
    absl::flat_hash_map<qint64, FlatRow*> byId;
    Sorted<ByPrice> byPrice;
    Sorted<BySymbolPrice> bySymbol;
    Sorted<ByTime> byTime;
    Sorted<ByQuantity> byQuantity;
};

} // namespace

std::unique_ptr<Store> makeBtree()
{
    return std::make_unique<Btree>();
}

} // namespace bench
