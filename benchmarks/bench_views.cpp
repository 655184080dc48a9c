// SPDX-License-Identifier: MIT
// A large table with four live views, ours and its peers':
//
//     bench_views --list
//     bench_views CONTENDER [--rows N] [--views N] [--updates N] [--label NAME] [WORKLOAD...]
//
//     W1  load the rows and build the views; the first thing a fresh process does
//     W2  single-row transactions: a random id gets a new price and the present time
//     W3  transactions of 700 updates, 150 insertions and 150 removals
//     W4  the first 50 rows of a view as text (symbol, price, bid, ask, quantity), between updates
//     W5  find a row by its key and read a cell
//     W8  memory
//
// One line per figure: subject workload figure value unit; W2 goes by the label's name. After each
// change of the rows every view is checked for order and content outside the clock; a difference
// ends the program with code 1.
#include "views.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <tuple>

namespace bench {
namespace {

const Contender contenders[] = {
    {"livetable", makeTable, 1},
    {"livetable-compare", makeTableWithCompare, 1},
#ifdef HAVE_ABSL
    {"absl-btree", makeBtree, 1},
#endif
#ifdef HAVE_BOOST
    {"boost-multiindex", makeMultiIndex, 1},
    {"boost-multiindex-ranked", makeRankedMultiIndex, 1},
#endif
#ifdef HAVE_SQLITE
    {"sqlite-memory", makeSqlite, 1},
#endif
    {"qt-item-models", makeItemModels, 1000},
};

bool isBefore(View view, const Quote& a, const Quote& b)
{
    switch (view) {
    case ByPrice:
        return a.price < b.price;
    case BySymbolPrice: {
        const int order = std::strcmp(symbolText(a.symbol), symbolText(b.symbol));
        return order ? order < 0 : a.price < b.price;
    }
    case ByTime:
        return a.time < b.time;
    case ByQuantity:
        break;
    }
    return a.quantity > b.quantity;
}

/// A store at work, beside a plain list of what it must hold.
class Run
{
public:
    Run(const Contender& which, int rowCount, int updateCount)
        : contender(which)
        , rows(rowCount)
        , operations(updateCount)
        , store(which.make())
        , model(makeQuotes(random, rowCount))
        , isLive(static_cast<size_t>(rowCount), 1)
        , liveCount(rowCount)
    {}

    void load(bool reportsTime, bool reportsMemory)
    {
        symbolText(0); // made before the clock runs
        const double before = usedBytes();
        const double time = timed([&] { store->load(model); });
        const double bytes = (usedBytes() - before) / rows;
        if (reportsTime) {
            report(contender.name, "W1", "load", time, "s");
            check();
        }
        if (reportsMemory)
            report(contender.name, "W8", "bytes_per_row", bytes, "B");
    }

    void updates(const char* label)
    {
        const int n = std::max(20, operations / contender.share);
        std::vector<double> times;
        for (int i = 0; i < n; ++i) {
            const Update update = randomUpdate();
            times.push_back(timed([&] { store->update(update); }));
        }
        reportTimes(contender.name, label, n, times);
        check();
    }

    void batches()
    {
        const int n = std::max(2, operations / 1000 / contender.share);
        const int size = contender.share > 1 ? 1 : 50; // a smaller batch costs no more per row
        std::vector<double> times;
        for (int i = 0; i < n; ++i) {
            const Batch batch = randomBatch(14 * size, 3 * size);
            times.push_back(timed([&] { store->apply(batch); }));
        }
        reportTimes(contender.name, "W3", 20.0 * size * n, times);
        check();
    }

    void pages()
    {
        const int n = std::max(20, operations / 5 / contender.share);
        std::vector<double> times;
        qint64 length = 0;
        for (int i = 0; i < n; ++i) {
            store->update(randomUpdate());
            const View view = View(i % viewCount);
            times.push_back(timed([&] { length = store->page(view); }));
        }
        reportTimes(contender.name, "W4", n, times);
        // The last page against the texts it must hold.
        qint64 wanted = 0;
        int row = 0;
        visitAll(View((n - 1) % viewCount), [&](const Quote& quote) {
            if (row++ < pageRows)
                wanted += textLength(quote);
        });
        require(length == wanted, contender.name, "a page is not right");
    }

    void finds()
    {
        std::vector<qint64> ids;
        qint64 wanted = 0;
        for (int i = 0; i < 1000000; ++i) {
            ids.push_back(randomLive());
            wanted += at(ids.back()).quantity;
        }
        qint64 sum = 0 * store->find(ids.front()); // who makes an index for it does so now
        const double time = timed([&] {
            for (const qint64 id : ids)
                sum += store->find(id);
        });
        require(sum == wanted, contender.name, "a row is not found");
        report(contender.name, "W5", "by_key", static_cast<double>(ids.size()) / time, "1/s");
        if (store->findText(QString::number(ids.front())) < 0)
            return;
        std::vector<QString> texts;
        for (const qint64 id : ids)
            texts.push_back(QString::number(id));
        sum = 0;
        const double textTime = timed([&] {
            for (const QString& text : texts)
                sum += store->findText(text);
        });
        require(sum == wanted, contender.name, "a row is not found by its key's text");
        report(contender.name, "W5", "by_key_text", static_cast<double>(ids.size()) / textTime,
               "1/s");
    }

private:
    Quote& at(qint64 id) { return model[static_cast<size_t>(id)]; }

    qint64 randomLive()
    {
        for (;;) {
            const int id = random.below(static_cast<int>(model.size()));
            if (isLive[static_cast<size_t>(id)])
                return id;
        }
    }

    Update randomUpdate() { return write({randomLive(), randomPrice(random), now += 1}); }

    Update write(const Update& update)
    {
        at(update.id).price = update.price;
        at(update.id).time = update.time;
        return update;
    }

    Batch randomBatch(int updateCount, int insertCount)
    {
        Batch batch;
        std::set<qint64> touched;
        const auto untouched = [&] {
            qint64 id = randomLive();
            while (!touched.insert(id).second)
                id = randomLive();
            return id;
        };
        now += 1;
        for (int i = 0; i < updateCount; ++i)
            batch.updates.push_back(write({untouched(), randomPrice(random), now}));
        for (int i = 0; i < insertCount; ++i) {
            batch.removals.push_back(untouched());
            isLive[static_cast<size_t>(batch.removals.back())] = 0;
        }
        for (int i = 0; i < insertCount; ++i) {
            model.push_back(makeQuote(random, static_cast<qint64>(model.size())));
            isLive.push_back(1);
            batch.inserts.push_back(model.back());
        }
        return batch;
    }

    static qint64 textLength(const Quote& quote)
    {
        size_t length =
            std::strlen(symbolText(quote.symbol)) + std::to_string(quote.quantity).size();
        for (const qint64 price : {quote.price, quote.bid, quote.ask})
            length += std::to_string(price).size() + 1; // all are above 1.00
        return static_cast<qint64>(length);
    }

    template <typename Visit>
    void visitAll(View view, Visit visit)
    {
        store->visit(view, [&](const Quote& quote) { visit(quote); });
    }

    void check()
    {
        for (int i = 0; i < std::min(viewCount, tableViews); ++i) {
            std::vector<char> seen(model.size(), 0);
            int count = 0;
            bool isRight = true;
            Quote last{};
            visitAll(View(i), [&](const Quote& quote) {
                const auto id = static_cast<size_t>(quote.id);
                isRight = isRight && id < model.size() && isLive[id] && !seen[id] &&
                          quote == model[id] && (count == 0 || !isBefore(View(i), quote, last));
                if (isRight)
                    seen[id] = 1;
                last = quote;
                ++count;
            });
            require(isRight && count == liveCount, contender.name, "a view is not right");
        }
    }

    const Contender& contender;
    const int rows;
    const int operations;
    Random random;
    std::unique_ptr<Store> store;
    std::vector<Quote> model; // by id
    std::vector<char> isLive;
    int liveCount; // as many come in as leave
    qint64 now = startOfDay + 86400000;
};

} // namespace
} // namespace bench

int main(int argc, char** argv)
{
    using namespace bench;
    const std::vector<std::string> words(argv + 1, argv + argc);
    const Contender* contender = nullptr;
    std::set<std::string> workloads;
    int rows = 1000000;
    int updates = 200000;
    std::string label = "W2";
    for (size_t i = 0; i < words.size(); ++i) {
        const bool hasValue = i + 1 < words.size();
        const auto number = [&] { return std::atoi(words[++i].c_str()); };
        if (words[i] == "--list") {
            for (const Contender& one : contenders)
                std::puts(one.name);
            return 0;
        }
        if (words[i] == "--rows" && hasValue)
            rows = std::max(5000, number());
        else if (words[i] == "--views" && hasValue)
            tableViews = std::clamp(number(), 1, 8);
        else if (words[i] == "--updates" && hasValue)
            updates = number();
        else if (words[i] == "--label" && hasValue)
            label = words[++i];
        else if (contender)
            workloads.insert(words[i]);
        else
            contender = std::find_if(std::begin(contenders), std::end(contenders),
                                     [&](const Contender& one) { return words[i] == one.name; });
    }
    if (!contender || contender == std::end(contenders)) {
        std::fprintf(stderr, "usage: bench_views --list | CONTENDER [--rows N] [--views N] "
                             "[--updates N] [--label NAME] [WORKLOAD...]\n");
        return 2;
    }
    const auto isWanted = [&](const char* name) {
        return workloads.empty() || workloads.count(name) > 0;
    };
    Run run(*contender, rows, updates);
    run.load(isWanted("W1"), isWanted("W8"));
    if (isWanted("W2"))
        run.updates(label.c_str());
    if (isWanted("W3"))
        run.batches();
    if (isWanted("W4"))
        run.pages();
    if (isWanted("W5"))
        run.finds();
    return 0;
}
