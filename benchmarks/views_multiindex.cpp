// SPDX-License-Identifier: MIT
// Boost.MultiIndex with a hashed id and four ordered indexes; and with four ranked ones, which can
// tell positions, and are asked for the old and the new one of every row that may have moved.
#include "views_flat.h"

#include <boost/multi_index/global_fun.hpp>
#include <boost/multi_index/hashed_index.hpp>
#include <boost/multi_index/member.hpp>
#include <boost/multi_index/ordered_index.hpp>
#include <boost/multi_index/ranked_index.hpp>
#include <boost/multi_index_container.hpp>

namespace bench {
namespace {

namespace mi = boost::multi_index;

template <View view>
auto viewKey(const FlatRow& row)
{
    return keyOf(std::integral_constant<View, view>(), row);
}
template <View view, typename Key>
using KeyFrom = mi::global_fun<const FlatRow&, Key, &viewKey<view>>;
using IdHash = mi::hashed_unique<mi::member<FlatRow, qint64, &FlatRow::id>>;

template <template <typename> class Ordered>
using Container =
    mi::multi_index_container<FlatRow, mi::indexed_by<IdHash, Ordered<KeyFrom<ByPrice, NumberKey>>,
                                                      Ordered<KeyFrom<BySymbolPrice, SymbolKey>>,
                                                      Ordered<KeyFrom<ByTime, NumberKey>>,
                                                      Ordered<KeyFrom<ByQuantity, NumberKey>>>>;
template <typename Key>
using Plain = mi::ordered_non_unique<Key>;
template <typename Key>
using Ranked = mi::ranked_non_unique<Key>;

template <template <typename> class Ordered, bool tellsPositions>
class MultiIndex : public Store
{
public:
    void load(const std::vector<Quote>& quotes) override
    {
        rows.template get<0>().reserve(quotes.size());
        for (const Quote& quote : quotes)
            rows.emplace(quote);
    }

    void update(const Update& update) override
    {
        const auto row = rows.template get<0>().find(update.id);
        tell(row);
        rows.modify(row, [&](FlatRow& changed) {
            changed.price = update.price;
            changed.time = update.time;
        });
        tell(row);
    }

    void apply(const Batch& batch) override
    {
        for (const qint64 id : batch.removals)
            rows.template get<0>().erase(id);
        for (const Update& one : batch.updates)
            update(one);
        for (const Quote& quote : batch.inserts)
            rows.emplace(quote);
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

    qint64 find(qint64 id) override { return rows.template get<0>().find(id)->quantity; }

    void visit(View view, const std::function<void(const Quote&)>& visitor) override
    {
        walk(view, [&](const FlatRow& row) {
            visitor(row.toQuote());
            return true;
        });
    }

private:
    using Rows = Container<Ordered>;

    void tell(typename Rows::iterator row)
    {
        if constexpr (tellsPositions)
            positions += rows.template get<1>().rank(rows.template project<1>(row)) +
                         rows.template get<2>().rank(rows.template project<2>(row)) +
                         rows.template get<3>().rank(rows.template project<3>(row));
        else
            Q_UNUSED(row)
    }

    template <typename Visit>
    void walk(View view, Visit visit) const
    {
        const auto all = [&](const auto& index) {
            for (const FlatRow& row : index)
                if (!visit(row))
                    return;
        };
        switch (view) {
        case ByPrice:
            return all(rows.template get<1>());
        case BySymbolPrice:
            return all(rows.template get<2>());
        case ByTime:
            return all(rows.template get<3>());
        case ByQuantity:
            return all(rows.template get<4>());
        }
    }

    Rows rows;
    size_t positions = 0;
};

} // namespace

std::unique_ptr<Store> makeMultiIndex()
{
    return std::make_unique<MultiIndex<Plain, false>>();
}

std::unique_ptr<Store> makeRankedMultiIndex()
{
    return std::make_unique<MultiIndex<Ranked, true>>();
}

} // namespace bench
