// SPDX-License-Identifier: MIT
#pragma once

#include "base/export.h"

#include <cstddef>

namespace LiveTable {

/// Memory for the equal blocks that large tables are made of: rows and the leaves of lists.
///
/// A walk through millions of rows in pages of 4 KiB misses the processor's list of pages at every
/// step. So once a size is asked for often (2 MiB together), its blocks are cut from regions of
/// 2 MiB, for which the system is asked for large pages. Small tables never get there: their blocks
/// come from malloc.
///
/// Threads: both functions may be called on any thread; one uncontended lock each. While a table
/// grows past 16 MiB an idle thread of Qt's global pool makes the next region ready. Cost: a few
/// instructions; a region is given back when its last block is. Errors: none; see allocate().
class LIVETABLE_EXPORT Slab
{
public:
    struct Block
    {
        void* memory; ///< null when memory ran out
        bool isPlain; ///< to be given back with the block
    };
    /// A block of `size` bytes, aligned to 64; one of 65536 bytes is aligned to its size, and its
    /// last 64 must be left alone. `size` is 65536, or a multiple of 64 up to 4096.
    static Block allocate(size_t size) noexcept;
    /// Takes a block of this size back. Null is no error.
    static void free(Block block, size_t size) noexcept;
    /// Bytes of all regions held now, by every table of the program. Plain blocks are malloc's.
    static size_t regionBytes() noexcept;
    static constexpr bool isServed(size_t size)
    {
        return size == LargestBlock || (size > 0 && size <= LargestSmall && size % 64 == 0);
    }

    /// What LargePages calls: n items of `size` bytes each.
    static void* allocateLarge(size_t n, size_t size);
    static void freeLarge(void* memory, size_t bytes) noexcept;

    static constexpr size_t LargestBlock = 65536;
    static constexpr size_t LargestSmall = 4096;
};

/// For vectors of many megabytes: an allocator that asks for large pages, too.
///
///     std::vector<Slot, LargePages<Slot>> slots(1000000);
template <typename T>
struct LargePages
{
    using value_type = T;
    LargePages() = default;
    template <typename U>
    LargePages(const LargePages<U>&) noexcept
    {}
    /// Throws std::bad_alloc.
    T* allocate(size_t n) { return static_cast<T*>(Slab::allocateLarge(n, sizeof(T))); }
    void deallocate(T* memory, size_t n) noexcept { Slab::freeLarge(memory, n * sizeof(T)); }
    friend bool operator==(LargePages, LargePages) { return true; }
    friend bool operator!=(LargePages, LargePages) { return false; }
};

} // namespace LiveTable
