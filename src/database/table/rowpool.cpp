// SPDX-License-Identifier: MIT
#include "table/rowpool_p.h"

#include "table/record.h"

#include <cstdlib>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define LIVETABLE_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define LIVETABLE_ASAN 1
#endif
#endif
#ifdef LIVETABLE_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace LiveTable {
namespace {

// A freed row is poisoned, so that the sanitizer sees its use as it would with malloc.
void poison(unsigned char* row, size_t size)
{
#ifdef LIVETABLE_ASAN
    __asan_poison_memory_region(row, size);
#else
    Q_UNUSED(row)
    Q_UNUSED(size)
#endif
}

void unpoison(unsigned char* row, size_t size)
{
#ifdef LIVETABLE_ASAN
    __asan_unpoison_memory_region(row, size);
#else
    Q_UNUSED(row)
    Q_UNUSED(size)
#endif
}

constexpr size_t TagBytes = sizeof(quint64);

size_t roundUp(size_t n, size_t to)
{
    return (n + to - 1) / to * to;
}

} // namespace

void freeRowBlock(unsigned char* row) noexcept
{
    RowPool::free(row);
}

RowPool* RowPool::create(size_t rowSize)
{
    return new RowPool(rowSize);
}

RowPool::RowPool(size_t size)
    : rowSize(size)
    , slotSize(TagBytes + roundUp(size, 8))
{
    // The allocator's own few bytes must fit in as well, or each aligned chunk would cost two.
    const size_t room = ChunkBytes - 64 - roundUp(sizeof(Chunk), 64);
    slotsPerChunk = qBound<size_t>(1, room / slotSize, MaximumSlots);
    chunkSize = roundUp(sizeof(Chunk), 64) + slotsPerChunk * slotSize;
}

RowPool::~RowPool()
{
    while (chunks) {
        Q_ASSERT(!chunks->previous);
        dropChunk(chunks);
    }
}

RowPool::Chunk* RowPool::addChunk() noexcept
{
    void* memory = nullptr;
    if (posix_memalign(&memory, ChunkBytes, chunkSize) != 0)
        return nullptr;
    auto* chunk = new (memory) Chunk{this, chunks, nullptr, nullptr, nullptr, nullptr, 0, 0, {}};
    if (chunks)
        chunks->previous = chunk;
    chunks = chunk;
    linkRoom(chunk);
    for (size_t i = 0; i < slotsPerChunk; ++i)
        poison(slotAt(chunk, i) + TagBytes, slotSize - TagBytes);
    return chunk;
}

void RowPool::dropChunk(Chunk* chunk) noexcept
{
    (chunk->previous ? chunk->previous->next : chunks) = chunk->next;
    if (chunk->next)
        chunk->next->previous = chunk->previous;
    unpoison(reinterpret_cast<unsigned char*>(chunk), chunkSize);
    std::free(chunk);
}

void RowPool::linkRoom(Chunk* chunk) noexcept
{
    chunk->previousWithRoom = nullptr;
    chunk->nextWithRoom = withRoom;
    if (withRoom)
        withRoom->previousWithRoom = chunk;
    withRoom = chunk;
}

void RowPool::unlinkRoom(Chunk* chunk) noexcept
{
    (chunk->previousWithRoom ? chunk->previousWithRoom->nextWithRoom : withRoom) =
        chunk->nextWithRoom;
    if (chunk->nextWithRoom)
        chunk->nextWithRoom->previousWithRoom = chunk->previousWithRoom;
}

unsigned char* RowPool::slotAt(Chunk* chunk, size_t i) const noexcept
{
    return reinterpret_cast<unsigned char*>(chunk) + roundUp(sizeof(Chunk), 64) + i * slotSize;
}

unsigned char* RowPool::allocate() noexcept
{
    const std::lock_guard<std::mutex> guard(mutex);
    Chunk* chunk = withRoom ? withRoom : addChunk();
    if (!chunk)
        return nullptr;
    unsigned char* slot = chunk->freeSlot;
    if (slot)
        std::memcpy(&chunk->freeSlot, slot, sizeof(chunk->freeSlot));
    else
        slot = slotAt(chunk, chunk->used++);
    if (++chunk->live == slotsPerChunk)
        unlinkRoom(chunk);
    ++live;
    const size_t index = static_cast<size_t>(slot - slotAt(chunk, 0)) / slotSize;
    chunk->liveBits[index / 64] |= quint64(1) << (index % 64);
    unsigned char* row = slot + TagBytes;
    unpoison(row, rowSize);
    setTag(row, 0);
    return row;
}

void RowPool::free(unsigned char* row) noexcept
{
    auto* chunk =
        reinterpret_cast<Chunk*>(reinterpret_cast<quintptr>(row) & ~quintptr(ChunkBytes - 1));
    RowPool* pool = chunk->pool;
    bool last = false;
    {
        const std::lock_guard<std::mutex> guard(pool->mutex);
        unsigned char* slot = row - TagBytes;
        const size_t index = static_cast<size_t>(slot - pool->slotAt(chunk, 0)) / pool->slotSize;
        Q_ASSERT(chunk->liveBits[index / 64] >> (index % 64) & 1);
        chunk->liveBits[index / 64] &= ~(quint64(1) << (index % 64));
        std::memcpy(slot, &chunk->freeSlot, sizeof(chunk->freeSlot));
        chunk->freeSlot = slot;
        poison(row, pool->slotSize - TagBytes);
        if (chunk->live-- == pool->slotsPerChunk)
            pool->linkRoom(chunk);
        // One empty chunk is kept, so that a row coming and going does not cost a chunk each time.
        if (chunk->live == 0 && (pool->withRoom != chunk || chunk->nextWithRoom)) {
            pool->unlinkRoom(chunk);
            pool->dropChunk(chunk);
        }
        last = --pool->live == 0 && pool->abandoned;
    }
    if (last)
        delete pool;
}

template <typename Visit>
void RowPool::forEachLive(Visit visit) noexcept
{
    for (Chunk* chunk = chunks; chunk; chunk = chunk->next)
        for (size_t i = 0; i < chunk->used; ++i)
            if (chunk->liveBits[i / 64] >> (i % 64) & 1)
                visit(slotAt(chunk, i) + TagBytes);
}

void RowPool::abandon() noexcept
{
    bool last;
    {
        const std::lock_guard<std::mutex> guard(mutex);
        abandoned = true;
        last = live == 0;
        if (!last)
            forEachLive([](unsigned char* row) {
                reinterpret_cast<RowHeader*>(row)->table = nullptr;
                setTag(row, 0);
            });
    }
    if (last)
        delete this;
}

size_t RowPool::taggedCount() noexcept
{
    const std::lock_guard<std::mutex> guard(mutex);
    size_t tagged = 0;
    forEachLive([&](unsigned char* row) { tagged += tag(row) != 0; });
    return tagged;
}

} // namespace LiveTable
