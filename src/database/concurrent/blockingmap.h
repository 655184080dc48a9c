// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <memory>
#include <type_traits>

namespace LiveTable {

/// Calls work(context, i) once for each i in 0 .. count-1 on the threads of Qt's global pool, in
/// any order and several at once, and returns when all calls have returned. See blockingMap().
LIVETABLE_EXPORT void runOnPool(int count, void (*work)(void* context, int i), void* context);

/// Runs function(item) for every item of a random-access container on Qt's global thread pool and
/// waits until all are done: QtConcurrent::blockingMap without its two traps.
///
/// Exceptions: one of any type that a call throws reaches the caller as that type; QtConcurrent
/// itself turns all but QException into QUnhandledException. The other items still run to their
/// end, and of several exceptions the first one thrown wins.
///
/// Progress: the caller normally only waits, and the items run on pool threads. It works along when
/// it is itself a thread of a pool, or when the pool has no free thread, or none that takes up an
/// item within some milliseconds. So the call ends even if every pool thread is waiting in such a
/// call, or for a lock that the caller holds. Items must not wait for each other.
///
/// The function is shared by all threads; it and the items must stand being used from several at
/// once. Everything the items wrote is visible to the caller afterwards.
///
///     std::vector<Chunk> chunks = cut(list);
///     LiveTable::blockingMap(chunks, [](Chunk& chunk) { sortChunk(chunk); });
template <typename Items, typename Function>
void blockingMap(Items& items, Function&& function)
{
    struct Context
    {
        decltype(items.begin()) first;
        std::remove_reference_t<Function>* function;
    };
    Context context = {items.begin(), std::addressof(function)};
    runOnPool(
        int(items.size()),
        [](void* opaque, int i) {
            const Context& call = *static_cast<Context*>(opaque);
            (*call.function)(call.first[i]);
        },
        &context);
}

} // namespace LiveTable
