// SPDX-License-Identifier: MIT
#include "base/slab.h"

#include "base/asan_p.h"

#include <QRunnable>
#include <QThreadPool>
#include <QtGlobal>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <type_traits>
#include <utility>

#ifdef Q_OS_LINUX
#include <sys/mman.h>
#endif

namespace LiveTable {
namespace {

constexpr size_t RegionBytes = size_t(2) << 20;
constexpr size_t Alignment = 64;
constexpr size_t RegionsBeforeAhead = 8;

std::atomic<size_t> regionCount{0};

// The address sanitizer watches over blocks of malloc only.
#if defined(Q_OS_LINUX) && !defined(LIVETABLE_ASAN)
constexpr bool hasRegions = true;

// Where the system has none to give, small ones do.
void adviseLargePages(void* memory, size_t bytes) noexcept
{
    madvise(memory, bytes, MADV_HUGEPAGE);
}

void* mapRegion() noexcept
{
    // Twice as much, and what is not needed for an aligned half is given back.
    void* mapped = mmap(nullptr, 2 * RegionBytes, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (mapped == MAP_FAILED)
        return nullptr;
    char* const begin = static_cast<char*>(mapped);
    const size_t skipped = (RegionBytes - reinterpret_cast<uintptr_t>(begin)) % RegionBytes;
    char* const region = begin + skipped;
    if (skipped > 0)
        munmap(begin, skipped);
    munmap(region + RegionBytes, RegionBytes - skipped);
    adviseLargePages(region, RegionBytes);
    return region;
}

void unmapRegion(void* region) noexcept
{
    munmap(region, RegionBytes);
}

void clearPages(void* region) noexcept
{
    // Large pages take one touch each, small ones many.
    constexpr size_t pageBytes = 4096;
    for (size_t at = 0; at < RegionBytes; at += pageBytes)
        static_cast<volatile char*>(region)[at] = 0;
}
#else
constexpr bool hasRegions = false;
void adviseLargePages(void*, size_t) noexcept {}
void* mapRegion() noexcept
{
    return nullptr;
}
void unmapRegion(void*) noexcept {}
void clearPages(void*) noexcept {}
#endif

// At the end of a region, where no block reaches.
struct Region
{
    Region* next; // of those with room
    Region* previous;
    void* freeBlock; // each links to the next
    size_t used;     // bytes cut so far
    size_t live;     // blocks
};
static_assert(sizeof(Region) <= Alignment);

char* begin(Region* region) noexcept
{
    return reinterpret_cast<char*>(region) + Alignment - RegionBytes;
}

Region* regionOf(void* block) noexcept
{
    const auto address = reinterpret_cast<uintptr_t>(block);
    return reinterpret_cast<Region*>((address | (RegionBytes - 1)) + 1 - Alignment);
}

// All blocks of one size.
class Size
{
public:
    Slab::Block allocate(size_t size) noexcept
    {
        const std::lock_guard<std::mutex> guard(mutex);
        if (hasRegions && plainBytes + size > RegionBytes && (withRoom || addRegion()))
            return {cut(size), false};
        void* memory = nullptr;
        if (posix_memalign(&memory, size == Slab::LargestBlock ? size : Alignment, size) != 0)
            return {nullptr, true};
        plainBytes += size;
        return {memory, true};
    }

    void free(Slab::Block block, size_t size) noexcept
    {
        const std::lock_guard<std::mutex> guard(mutex);
        if (block.isPlain) {
            std::free(block.memory);
            plainBytes -= size;
            return;
        }
        Region* region = regionOf(block.memory);
        if (isFull(region, size))
            link(region);
        std::memcpy(block.memory, &region->freeBlock, sizeof(void*));
        region->freeBlock = block.memory;
        // One empty region is kept, so that a block coming and going does not cost one each time.
        if (--region->live == 0 && (region->next || region->previous)) {
            unlink(region);
            unmapRegion(begin(region));
            --regionCount;
            --regions;
        }
    }

private:
    static bool isFull(const Region* region, size_t size) noexcept
    {
        // The last block of 64 KiB shares its end with the region.
        const size_t room = size == Slab::LargestBlock ? RegionBytes : RegionBytes - Alignment;
        return !region->freeBlock && region->used + size > room;
    }

    bool addRegion() noexcept
    {
        void* memory = std::exchange(ahead, nullptr);
        if (!memory) {
            memory = mapRegion();
            if (!memory)
                return false;
            ++regionCount;
        }
        link(new (regionOf(memory)) Region{nullptr, nullptr, nullptr, 0, 0});
        ++regions;
        return true;
    }

    // A table that grows and grows waits longer for the system to clear its pages than for anything
    // else. If a thread of the pool has nothing to do, it makes the next region ready meanwhile.
    void prepareNext()
    {
        if (isPreparing || ahead || regions < RegionsBeforeAhead)
            return;
        QRunnable* job = QRunnable::create([this] { prepare(); });
        isPreparing = QThreadPool::globalInstance()->tryStart(job);
        if (!isPreparing)
            delete job;
    }

    void prepare() noexcept
    {
        void* memory = mapRegion();
        if (memory) {
            clearPages(memory);
            ++regionCount;
        }
        const std::lock_guard<std::mutex> guard(mutex);
        ahead = memory;
        isPreparing = false;
    }

    void* cut(size_t size) noexcept
    {
        Region* region = withRoom;
        void* block = region->freeBlock;
        if (size == Slab::LargestBlock && region->used == RegionBytes / 2 && !block) {
            try {
                prepareNext();
            } catch (...) { // it was only to save time
            }
        }
        if (block) {
            std::memcpy(&region->freeBlock, block, sizeof(void*));
        } else {
            block = begin(region) + region->used;
            region->used += size;
        }
        ++region->live;
        if (isFull(region, size))
            unlink(region);
        return block;
    }

    void link(Region* region) noexcept
    {
        region->previous = nullptr;
        region->next = withRoom;
        if (withRoom)
            withRoom->previous = region;
        withRoom = region;
    }

    void unlink(Region* region) noexcept
    {
        (region->previous ? region->previous->next : withRoom) = region->next;
        if (region->next)
            region->next->previous = region->previous;
        region->next = region->previous = nullptr;
    }

    std::mutex mutex;
    Region* withRoom = nullptr;
    size_t plainBytes = 0;
    size_t regions = 0;
    void* ahead = nullptr; // the next region, its pages ready
    bool isPreparing = false;
};

Size& sizeOf(size_t size) noexcept
{
    // Made before the program starts and never destroyed, as rows may live longer than anything.
    static Size sizes[Slab::LargestSmall / Alignment + 1];
    static_assert(std::is_trivially_destructible_v<Size>);
    return sizes[size == Slab::LargestBlock ? 0 : size / Alignment];
}

} // namespace

Slab::Block Slab::allocate(size_t size) noexcept
{
    Q_ASSERT(isServed(size));
    return sizeOf(size).allocate(size);
}

void Slab::free(Block block, size_t size) noexcept
{
    if (block.memory)
        sizeOf(size).free(block, size);
}

void* Slab::allocateLarge(size_t n, size_t size)
{
    size_t bytes = 0;
    if (__builtin_mul_overflow(n, size, &bytes))
        throw std::bad_alloc();
    if (bytes < RegionBytes)
        return ::operator new(bytes);
    void* memory = nullptr;
    if (posix_memalign(&memory, RegionBytes, bytes) != 0)
        throw std::bad_alloc();
    adviseLargePages(memory, bytes);
    return memory;
}

void Slab::freeLarge(void* memory, size_t bytes) noexcept
{
    if (bytes < RegionBytes)
        ::operator delete(memory);
    else
        std::free(memory);
}

size_t Slab::regionBytes() noexcept
{
    return regionCount * RegionBytes;
}

} // namespace LiveTable
