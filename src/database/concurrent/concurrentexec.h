// SPDX-License-Identifier: MIT
#pragma once

#include "concurrent/blockingmap.h"

#include <QList>
#include <QVector>

#include <algorithm>
#include <tuple>
#include <type_traits>
#include <utility>

/// A parameter that ConcurrentExec cuts: a run of a list, of which each chunk gets its part as two
/// iterators.
template <typename It>
struct ConcurrentParamIterPair
{
    /// The run [first, last).
    ConcurrentParamIterPair(It first, It last)
        : begin(std::move(first))
        , end(std::move(last))
    {}
    It begin; ///< where the run begins
    It end;   ///< behind its last item
};

/// A parameter that every chunk gets as it is.
template <typename T>
struct ConcurrentParamPlain
{
    /// Every chunk gets a copy of `shared`.
    explicit ConcurrentParamPlain(T shared)
        : value(std::move(shared))
    {}
    T value; ///< what every chunk gets
};

/// The parts of ConcurrentExec; not for direct use.
namespace concurrent_exec_ns {

/// The arguments that a wrapped parameter becomes for the items first .. last-1. In the last chunk
/// a run ends exactly where it was said to end.
template <typename It>
std::tuple<It, It> arguments(const ConcurrentParamIterPair<It>& run, qint64 first, qint64 last,
                             bool isLast)
{
    using Step = typename std::iterator_traits<It>::difference_type;
    return {run.begin + Step(first), isLast ? run.end : run.begin + Step(last)};
}
template <typename T>
std::tuple<T> arguments(const ConcurrentParamPlain<T>& shared, qint64, qint64, bool)
{
    return std::tuple<T>(shared.value);
}

/// One chunk: its number and what its worker is called with.
template <typename Arguments>
struct Chunk
{
    int number;
    Arguments arguments;
};

/// What runs on the pool: calls the worker with a chunk's arguments and puts the result into the
/// chunk's place. The vector must have the places already.
template <typename Fn, typename Result>
class CallerResult
{
public:
    CallerResult(Fn fn, QVector<Result>* into)
        : worker(std::move(fn))
        , slot(into->data()) // taken once: no thread may make the vector detach
    {}
    template <typename Arguments>
    void operator()(const Chunk<Arguments>& chunk) const
    {
        slot[chunk.number] = std::apply(worker, chunk.arguments);
    }

private:
    Fn worker;
    Result* slot;
};

} // namespace concurrent_exec_ns

/// Runs a worker over long lists in chunks on Qt's global thread pool while the caller waits, and
/// over short ones in one call on the calling thread.
///
/// `MinChunk` is the least number of items of a chunk, `SerialLimit` the longest list that is done
/// in one call, `MaxChunks` the most chunks there are. n > SerialLimit items make
/// k = min(n / MinChunk, MaxChunks) chunks, the i-th with the items n*i/k to n*(i+1)/k - 1.
///
/// A worker is a function or a copyable function object; it gets two iterators for each
/// ConcurrentParamIterPair and the value of each ConcurrentParamPlain, in the order of the
/// parameters, and returns a default-constructible value. It runs on several threads at once, so it
/// may only read what is shared. What it throws reaches the caller as it is.
///
///     using Exec = ConcurrentExec<256, 512, 32>;
///     const QVector<int> sums = Exec::execute_nonmerged(
///         list.size(), sumOf, ConcurrentParamIterPair(list.cbegin(), list.cend()));
template <int MinChunk, int SerialLimit, int MaxChunks>
class ConcurrentExec
{
    static_assert(MinChunk > 0 && SerialLimit >= MinChunk && MaxChunks > 0,
                  "a list above the serial limit must make at least one chunk");

    template <typename... Params>
    using Arguments = decltype(std::tuple_cat(
        concurrent_exec_ns::arguments(std::declval<const Params&>(), 0, 0, false)...));

public:
    /// Names the result of a worker called with these wrapped parameters: `Result`.
    template <typename Fn, typename... Params>
    struct HelperResult
    {
        /// What the worker returns, without reference and const.
        using Result = std::decay_t<decltype(std::apply(std::declval<Fn&>(),
                                                        std::declval<Arguments<Params...>&>()))>;
    };

    /// The results of all chunks, in chunk order; one for `count` <= SerialLimit, 0 included.
    /// `count` is the number of items in each run.
    template <typename Fn, typename... Params>
    static QVector<typename HelperResult<Fn, Params...>::Result> execute_nonmerged(int count, Fn fn,
                                                                                   Params... params)
    {
        using Result = typename HelperResult<Fn, Params...>::Result;
        using Chunk = concurrent_exec_ns::Chunk<Arguments<Params...>>;
        const auto cut = [&](qint64 first, qint64 last, bool isLast) {
            return std::tuple_cat(concurrent_exec_ns::arguments(params, first, last, isLast)...);
        };
        QVector<Result> results(1);
        if (count <= SerialLimit) {
            results[0] = std::apply(fn, cut(0, count, true));
            return results;
        }
        const int k = std::min(count / MinChunk, MaxChunks);
        QList<Chunk> chunks;
        chunks.reserve(k);
        for (int i = 0; i < k; ++i)
            chunks.append(
                Chunk{i, cut(qint64(count) * i / k, qint64(count) * (i + 1) / k, i == k - 1)});
        results.resize(k);
        const concurrent_exec_ns::CallerResult<Fn, Result> caller(fn, &results);
        LiveTable::blockingMap(chunks, caller);
        return results;
    }

    /// The same as one result: the single one as it is, or what Merger(count) makes of all:
    /// merger(first, last), with pointers to the first result and behind the last.
    template <typename Fn, typename Merger, typename... Params>
    static typename HelperResult<Fn, Params...>::Result execute_result(int count, Fn fn,
                                                                       Params... params)
    {
        const auto results = execute_nonmerged(count, fn, params...);
        if (count <= SerialLimit)
            return results.first();
        return Merger(count)(results.constData(), results.constData() + results.size());
    }
};
