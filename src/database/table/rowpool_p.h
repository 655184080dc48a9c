// SPDX-License-Identifier: MIT
// Private: not installed, may change at any time.
#pragma once

#include <QtGlobal>

#include <cstddef>
#include <cstring>
#include <mutex>

class Table;

namespace LiveTable {

/// Where the rows of one table layout come from: fixed-size slots in chunks of 64 KiB.
///
/// Threads: allocate() and free() may be called on any thread; one uncontended lock each.
/// Invariants:
///  1. A chunk is aligned to ChunkBytes, and the first row of a chunk begins within its first
///     ChunkBytes, so the chunk, and through it the pool, is found from a row's address alone.
///  2. A slot is a tag word and a row block of rowSize bytes, 8-byte aligned. In a free slot the
///  tag
///     word links to the next free one.
///  3. A chunk stands in the list of chunks with room exactly when it has a free slot.
///  4. The pool lives until its table has let go of it and its last row is freed.
class RowPool
{
public:
    /// Throws std::bad_alloc.
    static RowPool* create(size_t rowSize);

    /// A block with tag 0 and undefined content; null when memory ran out.
    unsigned char* allocate() noexcept;
    static void free(unsigned char* row) noexcept;
    /// The table needs the pool no more: rows that live on lose their owner.
    void abandon() noexcept;

    /// How many live rows have a tag.
    size_t taggedCount() noexcept;

    /// The hidden word before each row, for the master index that holds the row: 0 while none does.
    static quint64 tag(const unsigned char* row) noexcept
    {
        quint64 value;
        std::memcpy(&value, row - sizeof(value), sizeof(value));
        return value;
    }
    static void setTag(unsigned char* row, quint64 value) noexcept
    {
        std::memcpy(row - sizeof(value), &value, sizeof(value));
    }

private:
    static constexpr size_t ChunkBytes = 65536;
    static constexpr size_t MaximumSlots =
        1536; // a slot has at least 8 + 16 bytes, and more in use

    struct Chunk
    {
        RowPool* pool;
        Chunk* next; // of all chunks
        Chunk* previous;
        Chunk* nextWithRoom;
        Chunk* previousWithRoom;
        unsigned char* freeSlot;
        quint32 used; // slots ever handed out
        quint32 live;
        quint64 liveBits[MaximumSlots / 64];
    };

    explicit RowPool(size_t size);
    ~RowPool();
    Chunk* addChunk() noexcept;
    void dropChunk(Chunk* chunk) noexcept;
    void linkRoom(Chunk* chunk) noexcept;
    void unlinkRoom(Chunk* chunk) noexcept;
    unsigned char* slotAt(Chunk* chunk, size_t i) const noexcept;
    template <typename Visit>
    void forEachLive(Visit visit) noexcept; // under the lock

    const size_t rowSize;
    const size_t slotSize;
    size_t slotsPerChunk;
    size_t chunkSize;
    std::mutex mutex;
    Chunk* chunks = nullptr;
    Chunk* withRoom = nullptr;
    size_t live = 0;
    bool abandoned = false;
};

} // namespace LiveTable
