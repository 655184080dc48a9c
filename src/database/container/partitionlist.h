// SPDX-License-Identifier: MIT
#pragma once

#include "container/rangeset.h"
#include "container/sortkey.h"

#include <QList>
#include <QVector>

#include <algorithm>
#include <iterator>
#include <vector>

template <typename T>
class PartitionList;

/// One partition of a PartitionList: a run of at most partitionSize() elements.
///
/// Inside, the run is cut into leaves: blocks of at most LeafCapacity elements, each with, in a
/// keyed list, the elements' keys beside them. So an insertion moves at most one leaf's
/// worth of pointers, and a search by key never leaves the key arrays until it has found its place.
/// A partition belongs to its list and is changed by it alone.
template <typename T>
class APartList
{
public:
    /// Elements held; at least 1 except while the list is at work.
    int count() const noexcept { return total; }
    /// Slots allocated, used or not.
    int capacity() const noexcept;
    /// The i-th element of the partition, 0 <= i < count().
    const T& at(int i) const;
    /// The list it is part of.
    const PartitionList<T>* list() const noexcept { return owner; }

private:
    friend class PartitionList<T>;
    static constexpr int LeafCapacity = 64;
    static constexpr int FirstLeafCapacity = 16; // so that a list of a few records stays small
    // How far a keyed list that is appended to fills its leaves: such a list is a sorted one, and
    // the first record that moves would split a full leaf.
    static constexpr int FilledLeaf = 61;

    struct Leaf
    {
        T* items;
        int capacity;
        /// Behind the items in the same block: all high words, then all low ones.
        quint64* keys() const { return reinterpret_cast<quint64*>(items + capacity); }
    };

    explicit APartList(PartitionList<T>* list)
        : owner(list)
    {}
    ~APartList();
    Q_DISABLE_COPY(APartList)

    Leaf allocateLeaf(int capacity) const;
    void moveWithin(int leaf, int to, int from, int n) noexcept;
    void copyOver(const Leaf& to, int at, const Leaf& source, int from, int n) const noexcept;
    SortKey keyAt(int leaf, int offset) const noexcept;
    void setKey(int leaf, int offset, SortKey key) noexcept;
    LiveTable::KeySpan keysOf(int leaf) const noexcept;
    static void freeLeaf(const Leaf& leaf) noexcept;
    int leafOf(int& offset) const noexcept; // offset in the partition -> leaf, offset in the leaf
    int leafCount() const noexcept { return static_cast<int>(leaves.size()); }
    void reserveLeaves(int extra);
    void makeLeaves(int n);                                     // empty ones, for so many elements
    void putLeaf(int at, const Leaf& leaf, int count) noexcept; // after reserveLeaves
    void dropLeaf(int at) noexcept;
    void openLeaf(int& leaf, int& offset, bool atListEnd); // makes room for one at (leaf, offset)
    void growLeaf(int leaf, int capacity);
    void splitLeaf(int leaf, int at);
    void shrinkAround(int leaf) noexcept;
    bool mergeLeaf(int leaf) noexcept;
    void noteFirst(int leaf) noexcept;
    const char* verify(bool isKeyed) const;

    PartitionList<T>* owner;
    int total = 0;
    std::vector<Leaf> leaves;
    using Count = quint8;         // of at most LeafCapacity
    std::vector<Count> counts;    // of each leaf: searched and summed without touching the leaves
    LiveTable::KeyColumns firsts; // first key of each leaf, in a keyed list
};

/// An ordered list cut into partitions of bounded size, so that inserting or removing in the middle
/// of millions of elements moves few of them. Every index keeps its records in one.
///
/// The sizes are fixed: a partition that reaches partitionSize() elements is split in half, and two
/// neighbours are joined when a removal leaves them with fewer than minimumSize() together. No
/// partition is ever empty. What lies inside a partition is told at APartList.
///
/// A list may be *keyed*: each element then carries a key given at insertion, and
/// partitionPoint() searches by it. Keys must not decrease along the list; the owner sees to that.
///
/// Elements must be movable by plain memory copy (Q_MOVABLE_TYPE); the list owns its elements and
/// moves them without touching them. Errors: std::bad_alloc (nothing changed then).
/// Threads: none of its own; readers on several threads may share an unchanging list.
/// Cost: with n elements, insertion and removal at a known place move at most a few hundred bytes;
/// finding a position steps over at most n/5000 partition counts and one partition's leaves.
///
///     PartitionList<Record> list(10000);
///     list.append(record);
///     for (const Record& r : list) ...
template <typename T>
class PartitionList
{
    static_assert(!QTypeInfo<T>::isStatic, "elements are moved by memory copy");

    /// A random-access iterator that steps through the partitions. It stays valid until the list
    /// changes. Positions further than count() are clamped to the end.
    template <bool Const>
    class Iterator
    {
    public:
        using iterator_category = std::random_access_iterator_tag;
        using value_type = T;
        using difference_type = int;
        using reference = std::conditional_t<Const, const T&, T&>;
        using pointer = std::conditional_t<Const, const T*, T*>;

        Iterator() = default;
        /// A const iterator from a mutable one.
        template <bool C = Const, typename = std::enable_if_t<C>>
        Iterator(const Iterator<false>& other)
            : list(other.list)
            , position(other.position)
            , current(other.current)
            , leafBegin(other.leafBegin)
            , leafEnd(other.leafEnd)
        {}

        reference operator*() const { return *current; }
        pointer operator->() const { return current; }
        reference operator[](int n) const { return *(*this + n); }
        Iterator& operator++()
        {
            return ++current, ++position, current == leafEnd ? seek() : *this;
        }
        Iterator& operator--() { return current == leafBegin ? *this += -1 : step(-1); }
        Iterator operator++(int)
        {
            Iterator old = *this;
            ++*this;
            return old;
        }
        Iterator operator--(int)
        {
            Iterator old = *this;
            --*this;
            return old;
        }
        Iterator& operator+=(int n)
        {
            if (n < leafEnd - current && n >= leafBegin - current && current != leafEnd)
                return step(n);
            position += n;
            return seek();
        }
        Iterator& operator-=(int n) { return *this += -n; }
        friend Iterator operator+(Iterator it, int n) { return it += n; }
        friend Iterator operator+(int n, Iterator it) { return it += n; }
        friend Iterator operator-(Iterator it, int n) { return it += -n; }
        friend int operator-(const Iterator& a, const Iterator& b)
        {
            return a.position - b.position;
        }
        friend bool operator==(const Iterator& a, const Iterator& b)
        {
            return a.position == b.position;
        }
        friend bool operator!=(const Iterator& a, const Iterator& b)
        {
            return a.position != b.position;
        }
        friend bool operator<(const Iterator& a, const Iterator& b)
        {
            return a.position < b.position;
        }
        friend bool operator>(const Iterator& a, const Iterator& b)
        {
            return a.position > b.position;
        }
        friend bool operator<=(const Iterator& a, const Iterator& b)
        {
            return a.position <= b.position;
        }
        friend bool operator>=(const Iterator& a, const Iterator& b)
        {
            return a.position >= b.position;
        }
        /// The position in the list, 0 for the first element, count() at the end.
        int index() const { return position; }

    private:
        friend class PartitionList;
        template <bool>
        friend class Iterator;
        using List = std::conditional_t<Const, const PartitionList, PartitionList>;
        Iterator(List* l, int at)
            : list(l)
            , position(at)
        {
            seek();
        }
        Iterator& step(int n) { return current += n, position += n, *this; }
        Iterator& seek();

        List* list = nullptr;
        int position = 0;
        pointer current = nullptr;
        pointer leafBegin = nullptr;
        pointer leafEnd = nullptr;
    };

public:
    using value_type = T; ///< what the list holds
    /// Writing through it in a keyed list leaves the keys as they are.
    using iterator = Iterator<false>;
    /// Reads only. Random access, as iterator; both are invalid once the list changes.
    using const_iterator = Iterator<true>;

    /// An empty list. `partitionSize` of at least 2.
    explicit PartitionList(int partitionSize = 10000);
    ~PartitionList() { clear(); }

    /// Elements in the list.
    int count() const noexcept { return total; }
    int size() const noexcept { return total; }
    /// Whether there are none.
    bool isEmpty() const noexcept { return total == 0; }
    /// No partition reaches this many elements.
    int partitionSize() const noexcept { return maximum; }
    /// Half the partition size, rounded down.
    int minimumSize() const noexcept { return maximum / 2; }
    /// The partitions in order, then one null pointer.
    const QVector<APartList<T>*>& partitions() const noexcept { return parts; }

    /// The i-th element; a shared default-constructed one when `i` is out of range.
    const T& at(int i) const;
    const T& operator[](int i) const { return at(i); }
    /// The elements in order.
    const_iterator begin() const { return const_iterator(this, 0); }
    const_iterator end() const { return const_iterator(this, total); }
    const_iterator cbegin() const { return begin(); }
    const_iterator cend() const { return end(); }
    iterator begin() { return iterator(this, 0); }
    iterator end() { return iterator(this, total); }

    /// Adds behind the last element: to the last partition while it holds fewer than
    /// partitionSize() - 1, else in a new one (so a list that is only appended to is densely
    /// packed).
    void append(T value, SortKey key = SortKey());
    /// Inserts before position i, clamped to 0..count(). At a boundary the element goes to the end
    /// of the earlier partition; a partition that reaches partitionSize() is then split in half.
    void insert(int i, const T& value, SortKey key = SortKey());
    /// Inserts a run in order. No partition reaches partitionSize(): an overfull one is cut into
    /// parts of about half the size.
    void insert(int i, const QList<T>& values);
    /// Removes the element at i; nothing when i is out of range. A partition left empty is dropped;
    /// otherwise it is joined with its next, then its previous neighbour where together they hold
    /// fewer than minimumSize().
    void remove(int i);
    /// Removes all positions of the set (those in range) in one forward pass, each touched leaf
    /// compacted once; small neighbours are joined around touched partitions only.
    void removeRanges(const RangeSet<int>& ranges);
    /// Joins every pair of neighbours that together hold fewer than minimumSize().
    void joinPartitions();
    /// Empties the list. The partitions are detached first, their elements released after.
    void clear() noexcept;
    /// Exchanges the contents, sizes and keys of two lists; nothing is copied.
    void swap(PartitionList& other) noexcept;

    // For indexes: places and keys.

    /// A place between or on elements: partition, leaf in it, offset in the leaf (which may be one
    /// behind the leaf's last element). Invalid once the list changes.
    struct Place
    {
        int part;   ///< the partition
        int leaf;   ///< the leaf in it
        int offset; ///< the element in that
    };
    /// How many key words an empty list is to keep for each element: 0, 1 or 2.
    void setKeyWords(int count);
    /// What setKeyWords() said, and whether that was not 0.
    int keyWords() const noexcept { return words; }
    bool isKeyed() const noexcept { return words > 0; }
    /// Rises with every change of the list; tells whether a Place is still good.
    quint32 version() const noexcept { return changes; }
    /// Rises with every partition and leaf that comes or goes: while it stays, a change at one
    /// Place leaves the places before it as they are.
    quint32 shape() const noexcept { return shapes; }

    /// The place of the element at position i, 0 <= i < count().
    Place place(int i) const noexcept { return locate(i, false); }
    /// Where an element inserted at position i goes, 0 <= i <= count().
    Place insertPlace(int i) const noexcept { return locate(i, true); }
    /// The position of a place.
    int position(const Place& place) const noexcept;
    /// Moves a place that stands behind a leaf's last element on to the next element. False at the
    /// end of the list.
    bool normalize(Place& place) const noexcept;
    /// Steps to the element before; false at the first. `place` may stand at the end.
    bool stepBack(Place& place) const noexcept;
    /// Steps from an element to the one behind it; false at the last.
    bool stepForward(Place& place) const noexcept;
    /// The element, or its key, on a place that stands on one.
    const T& at(const Place& p) const { return parts.at(p.part)->leaves[leaf(p)].items[p.offset]; }
    SortKey keyAt(const Place& p) const { return parts.at(p.part)->keyAt(p.leaf, p.offset); }
    /// Gives the element on a place another key.
    void setKey(const Place& place, SortKey key) noexcept;
    /// Gives every element of the list a key of one word; keyOf(element) must not decrease.
    template <typename KeyOf>
    void rekey(KeyOf keyOf);

    /// The first place whose element is not before the searched one; every element before it is.
    /// In a keyed list, and with `byKey`, an element is before when its key is smaller, or equal
    /// and `before(element)`; else when `before(element)`. `before` must be true for a first run of
    /// the elements and false for the rest. About log2(n) calls at most.
    template <typename Before>
    Place partitionPoint(bool byKey, SortKey key, Before before) const;

    /// A search by key alone in a keyed list: for the first element whose key is not below `key`,
    /// or with `behindEquals` for the first whose key is above it.
    struct KeySearch
    {
        KeySearch() = default;
        /// A search to be made by search(), which sets the rest.
        // NOLINTNEXTLINE(clang-analyzer-optin.cplusplus.UninitializedObject)
        KeySearch(const PartitionList* searched, SortKey sought, bool behind)
            : list(searched)
            , key(sought)
            , behindEquals(behind)
        {}
        const PartitionList* list; ///< to be searched; not empty, and keyed
        SortKey key;               ///< to be searched for; changed by the search
        bool behindEquals;         ///< see above; changed, too
        Place place;               ///< found: as from partitionPoint()

    private: // of the search under way
        friend class PartitionList;
        int guess;
        const APartList<T>* part;
        const typename APartList<T>::Leaf* leaf;
        LiveTable::KeySpan keys;
    };
    /// Searches several lists at once, level by level, so that the waits for memory overlap: one
    /// wait costs as much as a hundred instructions, and a search alone has several in a row.
    static void search(KeySearch* first, int n) noexcept;
    Place search(SortKey key, bool behindEquals) const noexcept
    {
        KeySearch one(this, key, behindEquals);
        search(&one, 1);
        return one.place;
    }

    /// Inserts at a place got from this list in its present state.
    void insertAt(Place place, T value, SortKey key);
    /// Removes and returns the element at a place.
    T takeAt(Place place);
    /// Moves the element at `from` before the one at `to` (another element's place, or behind a
    /// leaf's last) and gives it a new key. Does nothing and returns false where partitions or
    /// leaves would have to be split or joined for it: then takeAt() and insertAt() are the way.
    bool relocate(Place from, Place to, SortKey key) noexcept;

    /// The first broken invariant in words; null when the list is whole. `isKeyOf(element, key)`
    /// judges the keys of a keyed list. Cost: O(n). A list that ran out of memory may have a
    /// partition too large or too small until it next changes there. The body is in
    /// partitioncheck-inl.h, for those who call it.
    template <typename IsKeyOf>
    const char* verify(IsKeyOf isKeyOf) const;

    /// Fills an empty list with n elements as append() would, but several partitions at once.
    /// forEach(parts, work) calls work(part) for each number of a vector, on any threads, and
    /// passes on what it throws; next(i, slot, key) makes the i-th element at `slot`, an owned one,
    /// and writes its key to `*key`; it may not throw.
    template <typename ForEach, typename Next>
    void assign(int n, ForEach forEach, Next next);
    /// Calls visit(items, n) for each run of elements in order.
    template <typename Visit>
    void forEachRun(Visit visit) const;
    /// Replaces the order: next(i, slot, key) writes the bits of the element that comes i-th to
    /// `slot` and its key to `*key`. It must give each present element once; nothing is copied or
    /// released.
    template <typename Next>
    void reorder(Next next) noexcept;

private:
    friend class APartList<T>;
    static size_t leaf(const Place& p) { return static_cast<size_t>(p.leaf); }
    int partCount() const noexcept { return parts.size() - 1; }
    template <typename Next>
    static void writePart(APartList<T>* part, int first, int n, Next& next) noexcept;
    APartList<T>* createPart(int at);
    void dropPart(int at) noexcept;
    void split(int index, int at);
    bool join(int index);
    void joinAround(int part);
    static void compactLeaf(APartList<T>* part, size_t leaf, int position,
                            const RangeSet<int>& ranges, int& range, std::vector<T>& dead);
    void tidyPart(int index);
    void countChanged(int part, int by) noexcept;
    void partsChanged() noexcept;
    void noteFirst(int part) noexcept;
    Place locate(int i, bool toInsert) const noexcept;

    template <typename IsBefore, typename Ahead>
    static int lastBefore(int n, IsBefore isBefore, Ahead ahead); // -1 when none is
    template <typename IsBefore>
    static int lastFirst(LiveTable::KeySpan firsts, SortKey key, IsBefore isBefore);
    bool staysWhole(int index, int leafAt) const noexcept;

    int total = 0;
    int maximum;
    int words = 0;
    quint32 changes = 0;
    quint32 shapes = 0;
    QVector<APartList<T>*> parts;
    // Beside the partitions, so that searches and sums stay out of them: their counts, sums of
    // counts over groups of them, and their first keys.
    static constexpr int GroupSize = 32;
    std::vector<int> partCounts;
    std::vector<int> groupCounts;
    LiveTable::KeyColumns partFirsts;
};

#include "container/partitionlist-inl.h"
#include "container/partitionsearch-inl.h"
