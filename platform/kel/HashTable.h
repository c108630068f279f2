// Kel::HashTable: the framework's hash collection, and the HashMap and HashSet built on it.
//
// Why it is built this way
// ------------------------
// Every keyed collection of the system is one of these, some with millions of entries, and three
// things are asked of it besides O(1) expected lookups and inserts:
//
//  1. Iteration runs in ascending order of bitReverse32(hash(key)). That order is observable
//     (reviews and tests depend on it), so it must not change with capacity or history.
//  2. A long walk is cut into slices and remembers only a key between slices; it resumes at the
//     first element whose reversed hash is >= the reversed hash of that key, whether the key is
//     still present or not. Resuming must cost O(1) expected at any size.
//  3. Memory per entry must not exceed that of a node-based hash map.
//
// The table is an ordered linear-probing table (Amble and Knuth's "ordered hash table"). Write
// rev(e) for the reversed hash of an element. Each element has a home slot
//
//     home(rev) = (rev * homeSlots) >> 32
//
// which is monotone in rev: a larger rev never has an earlier home. (With a power-of-two count
// this is "the top bits of rev"; the multiply form lets the home count grow by a third instead
// of doubling, which keeps the load, and so the bytes per entry, within a narrower band.) Elements
// are kept in one slot array under three invariants:
//
//   (a) an element sits at or after its home slot, never before it;
//   (b) every slot from an element's home up to the element is occupied (no holes in a run);
//   (c) occupied slots, read in index order, have non-decreasing rev.
//
// From (a)-(c), walking the slot array in index order IS the iteration order, and the first
// element with rev >= r is found by going to home(r) and skipping the occupied slots with rev < r:
// nothing before home(r) can have rev >= r (its home would be at or after home(r)), and an empty
// slot ends the search because anything after it has its home past it, hence a larger rev. Both
// lookups and resumes therefore cost one run of the table, O(1) expected at bounded load. Since
// the occupied slots from home(r) on read "below r" up to one point and "not below" after it, the
// skip gallops over long runs (see firstNotBelow), so even a run of thousands costs a logarithm.
//
// An insert finds its place inside the run (after any equal revs) and shifts the rest of the run
// right by one slot into the next empty slot; an erase shifts the following elements that are not
// at their home left by one (backward-shift deletion), which keeps (a)-(c) with no tombstones.
// The position of every element is a function of the sorted sequence alone (the k-th element sits
// at max(home, previous + 1)), which is what makes regrowth a single in-order pass.
//
// Runs do not wrap around the end of the array, which would break (c). Instead the array has a
// tail of spare slots after the last home slot; the tail grows on demand when a run spills into it
// (a flood of equal hashes lengthens the tail rather than forcing the home count to keep doubling),
// and the home count grows by load factor alone.
//
// Memory layout
// -------------
// The table object is a single pointer; an empty table holds no memory. The heap block is
//
//     Header | rev[capacity + 1] | Elem[capacity] | occupancy bitmap
//
// Probes scan the 4-byte revs, sixteen to a cache line, and touch an element only where the rev
// matches. An empty slot holds rev 0xFFFFFFFF, which stops every "rev < r" scan without a look at
// the bitmap; the bitmap is consulted only to tell an empty slot from an element whose rev really
// is 0xFFFFFFFF, and to skip empty slots 32 or 64 at a time during iteration. The extra rev slot at
// `capacity` (always 0xFFFFFFFF) and a set bitmap bit at `capacity` are sentinels that end scans
// and iteration without bound checks. Tables of up to four elements are filled to 100% (their runs
// are at most four long anyway) so that the sets of one or two vias that abound cost a few words.
//
// Beyond that the load stays between 7/8 (then the home slots grow by a third) and about 1/5 (then
// the table shrinks, so that skipping empty slots stays O(1), unless shrinking would pile the
// elements left into one end of it; see shrinkIfSparse). The numbers come from memory: a slot
// costs sizeof(Elem) + 4 bytes and a bit, and right after growing the load is 21/32, so an entry
// costs at most about 1.52 * (sizeof(Elem) + 4) bytes. A node-based map pays sizeof(Elem) plus a
// next pointer, rounded up to the allocator's 16 bytes with 8 bytes of chunk header, plus 8 to 16
// bytes of bucket array: more, for every element up to about 40 bytes (entities themselves are
// held by pointer). The price is longer runs: 4.5 slots per successful lookup at the 7/8 peak,
// but of 4-byte revs, so a lookup stays within a cache line or two; and near the peak an insert
// shifts a few dozen slots. Ordering by rev gives the low variance of Robin Hood hashing for
// free: a run is sorted by home slot.
//
// Elements are relocated by inserts, erases and regrowth: by memmove when IsTriviallyRelocatable
// says so, otherwise by move construction then destruction, which must not throw. Any insert or
// erase invalidates every iterator and element pointer, except that erase(iterator) returns a
// valid iterator to the element that followed the erased one. Order among elements with equal
// hashes is arbitrary but stable while the table is not modified.
//
// Const operations write nothing, so concurrent readers are safe; a writer needs them excluded.
//
// Failure: if an allocation fails, the table is left exactly as it was (nothing is moved before
// the new block exists) and the element being inserted is destroyed with the argument. A shrink
// that cannot allocate is skipped, so erase never fails.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include "platform/kel/Assert.h"
#include "platform/kel/Exception.h"
#include "platform/kel/Hash.h"
#include "platform/kel/Memory.h"

namespace Kel {

template <class T>
class Ptr;

// Whether a T can be moved to another address by copying its bytes and forgetting the original.
// True for trivially copyable types and for owning pointers that do not point into themselves;
// specialise it for a type of your own that qualifies, and its tables shift with memmove.
template <class T>
struct IsTriviallyRelocatable : std::is_trivially_copyable<T> {};
template <class T>
struct IsTriviallyRelocatable<Ptr<T>> : std::true_type {};
template <class T>
struct IsTriviallyRelocatable<std::unique_ptr<T>> : std::true_type {};

// The element of a HashMap.
template <class K, class V>
struct MapEntry {
  K key;
  V value;
};

template <class K, class V>
struct IsTriviallyRelocatable<MapEntry<K, V>>
    : std::bool_constant<IsTriviallyRelocatable<K>::value && IsTriviallyRelocatable<V>::value> {};

struct MapEntryKeyOf {
  template <class K, class V>
  const K& operator()(const MapEntry<K, V>& e) const noexcept {
    return e.key;
  }
};

struct IdentityKeyOf {
  template <class T>
  const T& operator()(const T& v) const noexcept {
    return v;
  }
};

// Elem: the stored element; it may be move-only, but moving it must not throw.
// KeyOf: `const Key& operator()(const Elem&) const`; the key may live inside the element.
// HashFn: `uint32_t operator()(const Key&) const`; equal keys must hash equal.
// KeyOf, HashFn and Eq must not throw; when they are empty types the table is one pointer wide.
template <class Elem, class KeyOf, class Key, class HashFn = Hash<Key>,
          class Eq = std::equal_to<Key>>
class HashTable {
  static_assert(std::is_nothrow_move_constructible_v<Elem>,
                "HashTable relocates elements and needs a non-throwing move constructor");
  static_assert(std::is_nothrow_destructible_v<Elem>);

  using Word = size_t;
  static constexpr size_t kWordBits = sizeof(Word) * 8;
  static constexpr uint32_t kEmptyRev = 0xFFFFFFFFu;
  // Up to this many home slots the table may be full; beyond it the load is kept at or under
  // kMaxLoad, and a full table grows its home slots by kGrowth.
  static constexpr size_t kTinySlots = 4;
  static constexpr uint64_t kMaxLoadNum = 7;
  static constexpr uint64_t kMaxLoadDen = 8;
  static constexpr uint64_t kGrowthNum = 4;
  static constexpr uint64_t kGrowthDen = 3;
  // Below this load the table shrinks, so that skipping empty slots stays O(1).
  static constexpr size_t kMinLoadDen = 5;
  // Tables with fewer home slots than this are never shrunk: skipping their empty slots is cheap.
  static constexpr size_t kMinShrinkSlots = 16;
  static constexpr bool kRelocatable = IsTriviallyRelocatable<Elem>::value;

  struct Header {
    uint32_t size;
    uint32_t homeSlots;
    uint32_t capacity;  // home slots plus tail slots
    // Nothing more: the offsets of the bitmap and the elements follow from the capacity, and the
    // tables of one or two elements that every route has fit a 48-byte block instead of a 64.
  };
  static constexpr size_t kBlockAlign = std::max({alignof(Header), alignof(Word), alignof(Elem)});

  template <bool Const>
  class Iter {
   public:
    using iterator_category = std::forward_iterator_tag;
    using iterator_concept = std::forward_iterator_tag;
    using value_type = Elem;
    using difference_type = std::ptrdiff_t;
    using pointer = std::conditional_t<Const, const Elem*, Elem*>;
    using reference = std::conditional_t<Const, const Elem&, Elem&>;

    Iter() noexcept = default;
    // iterator converts to const_iterator, implicitly as in the standard containers.
    template <bool C = Const, std::enable_if_t<C, int> = 0>
    Iter(const Iter<false>& o) noexcept : block_(o.block_), slot_(o.slot_) {}  // NOLINT

    reference operator*() const noexcept { return elemsOf(block_)[slot_]; }
    pointer operator->() const noexcept { return elemsOf(block_) + slot_; }
    Iter& operator++() noexcept {
      slot_ = nextOccupied(block_, slot_ + 1);
      return *this;
    }
    Iter operator++(int) noexcept {
      Iter before = *this;
      ++*this;
      return before;
    }
    friend bool operator==(const Iter& a, const Iter& b) noexcept {
      return a.slot_ == b.slot_ && a.block_ == b.block_;
    }

   private:
    friend class HashTable;
    template <bool>
    friend class Iter;
    Iter(Header* block, size_t slot) noexcept : block_(block), slot_(slot) {}

    Header* block_ = nullptr;
    size_t slot_ = 0;
  };

 public:
  using key_type = Key;
  using value_type = Elem;
  using iterator = Iter<false>;
  using const_iterator = Iter<true>;

  HashTable() noexcept = default;
  HashTable(HashTable&& o) noexcept
      : block_(std::exchange(o.block_, nullptr)),
        keyOf_(std::move(o.keyOf_)),
        hashFn_(std::move(o.hashFn_)),
        eq_(std::move(o.eq_)) {}
  HashTable& operator=(HashTable&& o) noexcept {
    if (this != &o) {
      clear();
      block_ = std::exchange(o.block_, nullptr);
      keyOf_ = std::move(o.keyOf_);
      hashFn_ = std::move(o.hashFn_);
      eq_ = std::move(o.eq_);
    }
    return *this;
  }
  HashTable(const HashTable&) = delete;
  HashTable& operator=(const HashTable&) = delete;
  ~HashTable() { clear(); }

  size_t size() const noexcept { return block_ ? block_->size : 0; }
  bool empty() const noexcept { return size() == 0; }

  Elem* find(const Key& key) noexcept {
    if (!block_) return nullptr;
    Probe p = probe(revOfKey(key), key);
    return p.found ? elemsOf(block_) + p.slot : nullptr;
  }
  const Elem* find(const Key& key) const noexcept {
    return const_cast<HashTable*>(this)->find(key);
  }
  bool contains(const Key& key) const noexcept { return find(key) != nullptr; }

  // Inserts unless the key is present; returns the element in the table and whether it was
  // inserted. When the key is present, `e` is dropped and the table is unchanged.
  std::pair<Elem*, bool> insert(Elem e) {
    uint32_t rev = revOfKey(keyOf_(e));
    if (block_) {
      Probe p = probe(rev, keyOf_(e));
      if (p.found) return {elemsOf(block_) + p.slot, false};
      if (block_->size < maxSize(block_->homeSlots) && !crowded(rev, p.slot)) {
        return {placeAt(p.slot, rev, std::move(e)), true};
      }
    }
    growFor(size() + 1, rev);
    return {placeAt(insertionSlot(rev), rev, std::move(e)), true};
  }

  // Inserts, or replaces the element with an equal key; returns the element in the table.
  Elem* insertOrAssign(Elem e) {
    uint32_t rev = revOfKey(keyOf_(e));
    if (block_) {
      Probe p = probe(rev, keyOf_(e));
      if (p.found) {
        // Same key, so same rev: the replacement keeps the old element's slot.
        Elem* slot = elemsOf(block_) + p.slot;
        std::destroy_at(slot);
        std::construct_at(slot, std::move(e));
        return slot;
      }
      if (block_->size < maxSize(block_->homeSlots) && !crowded(rev, p.slot)) {
        return placeAt(p.slot, rev, std::move(e));
      }
    }
    growFor(size() + 1, rev);
    return placeAt(insertionSlot(rev), rev, std::move(e));
  }

  // Returns true if an element was removed.
  bool erase(const Key& key) noexcept {
    if (!block_) return false;
    Probe p = probe(revOfKey(key), key);
    if (!p.found) return false;
    removeAt(p.slot);
    size_t ignored = 0;
    shrinkIfSparse(ignored);
    return true;
  }

  // Removes the element at `it` (which must point at an element of this table) and returns an
  // iterator to the element that followed it, so that a walk can erase as it goes.
  iterator erase(iterator it) {
    bool valid = it.block_ && it.block_ == block_ && it.slot_ < block_->capacity &&
                 occupied(bitsOf(block_), it.slot_);
    KEL_ASSERT_TEXT(valid, "HashTable::erase: iterator does not point at an element");
    if (!valid) return end();
    removeAt(it.slot_);
    // Backward shift moved the following element into the freed slot, or left it where it was.
    size_t next = nextOccupied(block_, it.slot_);
    shrinkIfSparse(next);
    return iterator(block_, next);
  }

  void clear() noexcept {
    if (!block_) return;
    if constexpr (!std::is_trivially_destructible_v<Elem>) {
      Elem* elems = elemsOf(block_);
      for (size_t i = nextOccupied(block_, 0); i < block_->capacity;
           i = nextOccupied(block_, i + 1)) {
        std::destroy_at(elems + i);
      }
    }
    deallocate(block_);
    block_ = nullptr;
  }

  // Makes room for `n` elements in all, so that inserting up to that many does not regrow for
  // load (keys crowding into a narrow part of the hash order may still spread the table, and an
  // erase that leaves it sparse may shrink it).
  void reserve(size_t n) {
    if (n == 0 || (block_ && n <= maxSize(block_->homeSlots))) return;
    rebuild(homeSlotsFor(n), tailSlack(homeSlotsFor(n)), 0);
  }

  iterator begin() noexcept { return block_ ? iterator(block_, nextOccupied(block_, 0)) : end(); }
  iterator end() noexcept { return iterator(block_, block_ ? block_->capacity : 0); }
  const_iterator begin() const noexcept { return const_cast<HashTable*>(this)->begin(); }
  const_iterator end() const noexcept { return const_cast<HashTable*>(this)->end(); }
  const_iterator cbegin() const noexcept { return begin(); }
  const_iterator cend() const noexcept { return end(); }

  // The first element whose bitReverse32(hash) is >= bitReverse32(hash), or end(). This is where a
  // walk resumes from a remembered key, present or not. O(1) expected.
  iterator lowerBoundHash(uint32_t hash) noexcept {
    if (!block_) return end();
    uint32_t rev = bitReverse32(hash);
    size_t i = firstNotBelow(block_, homeOf(rev, block_->homeSlots), rev);
    // Slot i is empty, the sentinel, or the first element with rev >= `rev`.
    return iterator(block_, nextOccupied(block_, i));
  }
  const_iterator lowerBoundHash(uint32_t hash) const noexcept {
    return const_cast<HashTable*>(this)->lowerBoundHash(hash);
  }

  // Starts loading, without waiting, the cache lines that a lookup of `key` reads first: its
  // home slot's rev and element. A walk over scattered data issues this some steps ahead so that
  // the misses of several lookups overlap. Changes nothing and never faults.
  void prefetch(const Key& key) const noexcept { prefetchHome(key, false); }
  // The same and the occupancy word of the home slot, which an insert sets: a writer about to
  // insert into several large tables issues it for each first, so that their misses overlap.
  void prefetchForInsert(const Key& key) const noexcept { prefetchHome(key, true); }
  // Calls `f` on every element whose hash is `key`'s, without comparing keys: the element with
  // `key` if present, and rarely others. A walk uses it after prefetch(key) to start loading what
  // an element points to (an entity holding its own key) before the lookup that compares it.
  template <class F>
  void forHashMatches(const Key& key, F&& f) const {
    if (!block_) return;
    const uint32_t rev = revOfKey(key);
    if (rev == kEmptyRev) return;  // would need the bitmap; not worth it for a hint
    const uint32_t* revs = revsOf(block_);
    const Elem* elems = elemsOf(block_);
    for (size_t i = firstNotBelow(block_, homeOf(rev, block_->homeSlots), rev); revs[i] == rev;
         ++i) {
      f(elems[i]);
    }
  }
  // The same for iteration from the start: the header, the first revs and the first elements.
  void prefetchFront() const noexcept {
    if (!block_) return;
    __builtin_prefetch(block_);
    __builtin_prefetch(elemsOf(block_));
  }

  // The farthest any element sits from its home slot: what a lookup may have to scan (for tests).
  size_t longestDisplacement() const noexcept {
    if (!block_) return 0;
    size_t longest = 0;
    const Word* bits = bitsOf(block_);
    const uint32_t* revs = revsOf(block_);
    for (size_t i = 0; i < block_->capacity; ++i) {
      if (occupied(bits, i)) longest = std::max(longest, i - homeOf(revs[i], block_->homeSlots));
    }
    return longest;
  }

  // Heap bytes held by the table itself (not by what its elements own).
  size_t bytesUsed() const noexcept { return block_ ? layoutFor(block_->capacity).bytes : 0; }

  // Checks every structural invariant, including that each stored rev matches its element's key
  // and that no key appears twice. O(n); for tests and debugging.
  bool invariantsHold() const {
    if (!block_) return true;
    const Header* h = block_;
    size_t cap = h->capacity;
    const uint32_t* revs = revsOf(h);
    const Word* bits = bitsOf(h);
    const Elem* elems = elemsOf(h);
    if (h->homeSlots == 0 || h->homeSlots > cap || h->size > maxSize(h->homeSlots)) return false;
    if (revs[cap] != kEmptyRev || !occupied(bits, cap)) return false;
    for (size_t i = cap + 1; i < layoutFor(cap).words * kWordBits; ++i) {
      if (occupied(bits, i)) return false;
    }
    size_t count = 0;
    size_t groupStart = 0;  // first slot of the current run of equal revs
    for (size_t i = 0; i < cap; ++i) {
      if (!occupied(bits, i)) {
        if (revs[i] != kEmptyRev) return false;
        continue;
      }
      ++count;
      uint32_t rev = revs[i];
      if (rev != revOfKey(keyOf_(elems[i]))) return false;
      size_t home = homeOf(rev, h->homeSlots);
      if (home > i) return false;
      if (home < i && !occupied(bits, i - 1)) return false;
      if (i > 0 && occupied(bits, i - 1) && revs[i - 1] > rev) return false;
      if (i == 0 || !occupied(bits, i - 1) || revs[i - 1] != rev) groupStart = i;
      for (size_t j = groupStart; j < i; ++j) {
        if (eq_(keyOf_(elems[j]), keyOf_(elems[i]))) return false;
      }
    }
    return count == h->size;
  }

 private:
  struct Layout {
    size_t bitsOffset;
    size_t words;
    size_t elemsOffset;
    size_t bytes;
  };
  struct Probe {
    size_t slot;  // the key's slot if found, else where an element with its rev belongs
    bool found;
  };

  static constexpr size_t alignUp(uint64_t n, size_t a) {
    return static_cast<size_t>((n + a - 1) / a * a);
  }

  // Byte offsets for a block of `cap` slots. Callers have checked `cap` with maxCapacity().
  static constexpr Layout layoutFor(size_t cap) noexcept {
    Layout l{};
    // The elements come right after the revs, so that a lookup finds them in a shift and an
    // add from the capacity; the bitmap, which lookups do not read, comes last.
    l.elemsOffset = alignUp(sizeof(Header) + sizeof(uint32_t) * (cap + 1), alignof(Elem));
    l.bitsOffset = alignUp(l.elemsOffset + sizeof(Elem) * cap, alignof(Word));
    l.words = (cap + 1 + kWordBits - 1) / kWordBits;
    l.bytes = l.bitsOffset + sizeof(Word) * l.words;
    return l;
  }
  // The most slots a block may have: the header's 32-bit fields must hold the count (with
  // room to spare), and half the address space the block.
  static constexpr uint64_t maxCapacity() noexcept {
    uint64_t perSlot = sizeof(Elem) + sizeof(uint32_t) + 1;
    uint64_t byMemory = (uint64_t(PTRDIFF_MAX) - 4096) / perSlot;
    uint64_t byHeader = (uint64_t(UINT32_MAX) - 4096) / (sizeof(uint32_t) + 1);
    return std::min(byMemory, byHeader);
  }

  static uint32_t* revsOf(const Header* h) noexcept {
    return reinterpret_cast<uint32_t*>(const_cast<Header*>(h) + 1);
  }
  static Word* bitsOf(const Header* h) noexcept {
    return reinterpret_cast<Word*>(reinterpret_cast<char*>(const_cast<Header*>(h)) +
                                   layoutFor(h->capacity).bitsOffset);
  }
  static Elem* elemsOf(const Header* h) noexcept {
    return reinterpret_cast<Elem*>(reinterpret_cast<char*>(const_cast<Header*>(h)) +
                                   layoutFor(h->capacity).elemsOffset);
  }
  static bool occupied(const Word* bits, size_t i) noexcept {
    return (bits[i / kWordBits] >> (i % kWordBits)) & 1;
  }
  static void occupiedIs(Word* bits, size_t i, bool on) noexcept {
    Word mask = Word(1) << (i % kWordBits);
    if (on) {
      bits[i / kWordBits] |= mask;
    } else {
      bits[i / kWordBits] &= ~mask;
    }
  }
  // The first occupied slot at or after `i` (<= capacity), or capacity: the sentinel bit stops it.
  static size_t nextOccupied(const Header* h, size_t i) noexcept {
    const Word* bits = bitsOf(h);
    size_t w = i / kWordBits;
    Word x = bits[w] & (~Word(0) << (i % kWordBits));
    while (x == 0) x = bits[++w];
    return w * kWordBits + static_cast<size_t>(std::countr_zero(x));
  }
  // The first empty slot at or after `i`, or capacity if every slot from `i` on is taken.
  static size_t nextEmpty(const Header* h, size_t i) noexcept {
    const Word* bits = bitsOf(h);
    size_t words = layoutFor(h->capacity).words;
    size_t w = i / kWordBits;
    Word x = ~bits[w] & (~Word(0) << (i % kWordBits));
    while (x == 0) {
      if (++w == words) return h->capacity;
      x = ~bits[w];
    }
    return std::min<size_t>(w * kWordBits + static_cast<size_t>(std::countr_zero(x)), h->capacity);
  }

  // The first slot from `i` on whose rev is not below `rev` (an empty slot, the sentinel or an
  // element), where `i` is at or after rev's home and no element before `i` in its run is at or
  // above `rev`. Linear over the first cache line of revs, then galloping and bisecting: keys
  // that arrive in hash order (a walk copied into another table) pile up in runs of thousands in
  // a table sized for the keys so far, and scanning those slot by slot made such a copy
  // quadratic. The search is sound because an element below `rev` past its home proves every
  // slot between occupied by elements below `rev` (an empty slot between would put that
  // element's home, and so its rev, past `rev`'s), so "rev not below" holds from one slot on.
  static size_t firstNotBelow(const Header* h, size_t i, uint32_t rev) noexcept {
    const uint32_t* revs = revsOf(h);
    // The sentinel at `capacity` stops this loop at the latest.
    for (const size_t end = i + kLinearScan; i < end; ++i) {
      if (revs[i] >= rev) return i;
    }
    size_t below = i - 1, at = h->capacity;  // revs[below] < rev <= revs[at]
    for (size_t step = kLinearScan; below + step < at; step *= 2) {
      if (revs[below + step] >= rev) {
        at = below + step;
        break;
      }
      below += step;
    }
    while (at - below > 1) {
      const size_t mid = below + (at - below) / 2;
      (revs[mid] < rev ? below : at) = mid;
    }
    return at;
  }
  static constexpr size_t kLinearScan = 16;

  static size_t homeOf(uint32_t rev, size_t homeSlots) noexcept {
    return static_cast<size_t>((uint64_t(rev) * homeSlots) >> 32);
  }
  // How many elements `homeSlots` home slots may hold: all of them for tiny tables.
  // Non-decreasing in homeSlots.
  static size_t maxSize(size_t homeSlots) noexcept {
    if (homeSlots <= kTinySlots) return homeSlots;
    return std::max<size_t>(kTinySlots,
                            static_cast<size_t>(uint64_t(homeSlots) * kMaxLoadNum / kMaxLoadDen));
  }
  // The fewest home slots that may hold `n` elements.
  static size_t homeSlotsFor(uint64_t n) {
    if (n <= kTinySlots) return static_cast<size_t>(n);
    if (n > maxCapacity()) tooManyElements(n);
    uint64_t h = (n * kMaxLoadDen + kMaxLoadNum - 1) / kMaxLoadNum;
    if (h > maxCapacity()) tooManyElements(n);
    while (maxSize(static_cast<size_t>(h)) < n) ++h;
    return static_cast<size_t>(h);
  }
  // Spare slots kept after the last home slot, so that runs spilling over the end rarely force
  // a regrowth. Small against the table, bounded because such spills are short at bounded load.
  // Tiny tables get none: every insert regrows them anyway.
  static size_t tailSlack(size_t homeSlots) noexcept {
    return homeSlots <= kTinySlots ? 0 : std::min<size_t>(homeSlots / 32, 32) + 1;
  }

  [[noreturn]] static void tooManyElements(uint64_t n) {
    throw RangeException("HashTable: cannot hold " + std::to_string(n) + " elements");
  }

  void prefetchHome(const Key& key, bool forInsert) const noexcept {
    if (!block_) return;
    const size_t home = homeOf(revOfKey(key), block_->homeSlots);
    __builtin_prefetch(revsOf(block_) + home);
    __builtin_prefetch(elemsOf(block_) + home);
    if (forInsert) __builtin_prefetch(bitsOf(block_) + home / kWordBits);
  }

  uint32_t revOfKey(const Key& key) const noexcept {
    return bitReverse32(static_cast<uint32_t>(hashFn_(key)));
  }

  Probe probe(uint32_t rev, const Key& key) const noexcept {
    const uint32_t* revs = revsOf(block_);
    const Elem* elems = elemsOf(block_);
    size_t i = firstNotBelow(block_, homeOf(rev, block_->homeSlots), rev);
    if (rev != kEmptyRev) [[likely]] {
      for (; revs[i] == rev; ++i) {
        if (eq_(keyOf_(elems[i]), key)) return {i, true};
      }
    } else {
      // Empty slots carry this rev too; only the bitmap tells them apart.
      const Word* bits = bitsOf(block_);
      for (; i < block_->capacity && occupied(bits, i); ++i) {
        if (eq_(keyOf_(elems[i]), key)) return {i, true};
      }
    }
    return {i, false};
  }
  // Where an element with `rev` goes: after every element with rev <= `rev` in its run.
  size_t insertionSlot(uint32_t rev) const noexcept {
    const uint32_t* revs = revsOf(block_);
    size_t i = firstNotBelow(block_, homeOf(rev, block_->homeSlots), rev);
    if (rev != kEmptyRev) [[likely]] {
      while (revs[i] == rev) ++i;
    } else {
      const Word* bits = bitsOf(block_);
      while (i < block_->capacity && occupied(bits, i)) ++i;
    }
    return i;
  }

  // A run longer than this is no longer O(1) to scan or to shift.
  static constexpr size_t kLongRun = 256;

  // Whether inserting at `at` would make a run too long to keep operations O(1): the load is
  // bounded only on average, and keys that arrive in (or stay within) a narrow range of the hash
  // order, as a walk in iteration order inserts them into another table, pile up in a few home
  // slots. Growing spreads them. A run of equal hashes gains nothing from more slots, and under an
  // eighth of the average load the table no longer grows for this, so memory stays bounded.
  bool crowded(uint32_t rev, size_t at) const noexcept {
    size_t home = homeOf(rev, block_->homeSlots);
    if (nextEmpty(block_, at) - home <= kLongRun) return false;
    if (revsOf(block_)[home] == rev) return false;
    return block_->size * 8 > block_->homeSlots;
  }

  // Regrows for `n` elements, one of them about to be inserted with `rev`: the new block has
  // exactly the slots that element needs past the others, so that a tiny table of two
  // elements whose homes differ takes two slots, not three.
  void growFor(size_t n, uint32_t rev) {
    if (!block_) {
      size_t home = homeSlotsFor(n);
      rebuild(home, tailSlack(home), 0, nullptr, &rev);
      return;
    }
    size_t home = block_->homeSlots;
    size_t grown = std::max<size_t>(homeSlotsFor(n), uint64_t(home) * kGrowthNum / kGrowthDen);
    rebuild(grown, tailSlack(grown), 0, nullptr, &rev);
  }

  // Puts `e` at slot `at` (its insertion slot), shifting the rest of the run right by one.
  Elem* placeAt(size_t at, uint32_t rev, Elem&& e) {
    size_t hole = nextEmpty(block_, at);
    if (hole == block_->capacity) {
      // The run reaches the end of the tail: lengthen the tail, keeping the home slots.
      size_t home = block_->homeSlots;
      size_t tail = block_->capacity - home;
      rebuild(home, std::max(2 * tail, tailSlack(home)), 1);
      at = insertionSlot(rev);
      hole = nextEmpty(block_, at);
    }
    uint32_t* revs = revsOf(block_);
    Elem* elems = elemsOf(block_);
    if (hole > at) {
      std::memmove(revs + at + 1, revs + at, sizeof(uint32_t) * (hole - at));
      if constexpr (kRelocatable) {
        std::memmove(static_cast<void*>(elems + at + 1), static_cast<const void*>(elems + at),
                     sizeof(Elem) * (hole - at));
      } else {
        for (size_t k = hole; k > at; --k) relocate(elems + k, elems + k - 1);
      }
    }
    revs[at] = rev;
    occupiedIs(bitsOf(block_), hole, true);
    std::construct_at(elems + at, std::move(e));
    ++block_->size;
    return elems + at;
  }

  // Destroys the element at `at` and closes the gap by backward shift.
  void removeAt(size_t at) noexcept {
    uint32_t* revs = revsOf(block_);
    Word* bits = bitsOf(block_);
    Elem* elems = elemsOf(block_);
    size_t cap = block_->capacity;
    size_t home = block_->homeSlots;
    std::destroy_at(elems + at);
    // Every element after `at` that is not at its home moves back by one; the first one at its
    // home (or an empty slot) ends it, since (c) puts every later home past that point.
    size_t end = at + 1;
    while (end < cap && occupied(bits, end) && homeOf(revs[end], home) < end) ++end;
    size_t moved = end - at - 1;
    if (moved > 0) {
      std::memmove(revs + at, revs + at + 1, sizeof(uint32_t) * moved);
      if constexpr (kRelocatable) {
        std::memmove(static_cast<void*>(elems + at), static_cast<const void*>(elems + at + 1),
                     sizeof(Elem) * moved);
      } else {
        for (size_t k = at; k < end - 1; ++k) relocate(elems + k, elems + k + 1);
      }
    }
    revs[end - 1] = kEmptyRev;
    occupiedIs(bits, end - 1, false);
    --block_->size;
  }

  // Keeps the load above about a tenth so that skipping empty slots stays O(1); frees an emptied
  // table. `slot` is a slot index to carry over into the new layout. A failed allocation skips the
  // shrink.
  //
  // The elements left after a walk that erases as it goes (a backlog worked off in iteration
  // order) hold only the far end of the hash order; in fewer home slots their homes would crowd
  // into that end of the table as one long run, which every following erase at its front shifts
  // whole, making the rest of the walk quadratic. So the smaller table is laid out in a dry run
  // first and taken only if no element would sit more than a long run from its home; otherwise
  // the next power of two of home slots is tried, up to half the present table. The check runs
  // when the size reaches a power of two, so a refused shrink costs its passes once per halving.
  void shrinkIfSparse(size_t& slot) noexcept {
    size_t n = block_->size;
    if (n == 0) {
      deallocate(block_);
      block_ = nullptr;
      slot = 0;
      return;
    }
    if (block_->homeSlots < kMinShrinkSlots || n >= block_->homeSlots / kMinLoadDen ||
        !std::has_single_bit(n)) {
      return;
    }
    try {
      for (size_t home = homeSlotsFor(n + n / 2); home <= block_->homeSlots / 2; home *= 2) {
        if (longestDisplacementIn(home) > kLongRun) continue;
        rebuild(home, tailSlack(home), 0, &slot);
        return;
      }
    } catch (const std::bad_alloc&) {
    }
  }

  // How far from its home the farthest element would sit in a layout of `homeSlots` home slots.
  size_t longestDisplacementIn(size_t homeSlots) const noexcept {
    const uint32_t* revs = revsOf(block_);
    size_t next = 0, longest = 0;
    for (size_t i = nextOccupied(block_, 0); i < block_->capacity;
         i = nextOccupied(block_, i + 1)) {
      size_t home = homeOf(revs[i], homeSlots);
      size_t at = std::max(home, next);
      longest = std::max(longest, at - home);
      next = at + 1;
    }
    return longest;
  }

  // Moves every element into a new block of `homeSlots` home slots, in order, each at
  // max(its home, previous slot + 1). The block has at least `minTail` tail slots and at least
  // `spare` empty slots after the last element; with `incoming`, also room for an element of
  // that rev inserted next. If `track` names a slot of the old block (or its capacity), it is
  // updated to the same element's slot (or the new capacity).
  void rebuild(size_t homeSlots, size_t minTail, size_t spare, size_t* track = nullptr,
               const uint32_t* incoming = nullptr) {
    Header* old = block_;
    uint64_t needed = 0;
    bool pending = incoming != nullptr;  // the incoming element goes after equal revs
    if (old) {
      const uint32_t* revs = revsOf(old);
      for (size_t i = nextOccupied(old, 0); i < old->capacity; i = nextOccupied(old, i + 1)) {
        if (pending && *incoming < revs[i]) {
          needed = std::max<uint64_t>(homeOf(*incoming, homeSlots), needed) + 1;
          pending = false;
        }
        needed = std::max<uint64_t>(homeOf(revs[i], homeSlots), needed) + 1;
      }
    }
    if (pending) needed = std::max<uint64_t>(homeOf(*incoming, homeSlots), needed) + 1;
    uint64_t cap = std::max<uint64_t>(needed + spare, uint64_t(homeSlots) + minTail);
    if (cap > maxCapacity()) tooManyElements(size() + spare);
    Header* fresh = newBlock(homeSlots, static_cast<size_t>(cap));
    if (old) {
      const uint32_t* oldRevs = revsOf(old);
      Elem* oldElems = elemsOf(old);
      uint32_t* revs = revsOf(fresh);
      Word* bits = bitsOf(fresh);
      Elem* elems = elemsOf(fresh);
      size_t next = 0;
      for (size_t i = nextOccupied(old, 0); i < old->capacity; i = nextOccupied(old, i + 1)) {
        size_t at = std::max(homeOf(oldRevs[i], homeSlots), next);
        revs[at] = oldRevs[i];
        occupiedIs(bits, at, true);
        relocate(elems + at, oldElems + i);
        if (track && *track == i) *track = at;
        next = at + 1;
      }
      if (track && *track == old->capacity) *track = fresh->capacity;
      fresh->size = old->size;
      deallocate(old);
    }
    block_ = fresh;
  }

  static void relocate(Elem* to, Elem* from) noexcept {
    if constexpr (kRelocatable) {
      std::memcpy(static_cast<void*>(to), static_cast<const void*>(from), sizeof(Elem));
    } else {
      std::construct_at(to, std::move(*from));
      std::destroy_at(from);
    }
  }

  static Header* newBlock(size_t homeSlots, size_t cap) {
    Layout l = layoutFor(cap);
    void* raw;
    if (l.bytes >= kLargeBlockBytes) {
      raw = largeAllocate(l.bytes);  // page-aligned, so kBlockAlign holds too
    } else if (kBlockAlign <= 16 && l.bytes <= kSmallBlockMax) {
      // The one- and two-element tables that every route has. A small block is 16-aligned only
      // when its size is a multiple of 16.
      raw = smallAllocate(alignUp(l.bytes, kBlockAlign));
    } else if (kBlockAlign <= 64) {
      raw = mediumAllocate(l.bytes);
    } else if constexpr (kBlockAlign > __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
      raw = ::operator new(l.bytes, std::align_val_t(kBlockAlign));
    } else {
      raw = ::operator new(l.bytes);
    }
    Header* h = static_cast<Header*>(raw);
    h->size = 0;
    h->homeSlots = static_cast<uint32_t>(homeSlots);
    h->capacity = static_cast<uint32_t>(cap);
    std::fill_n(revsOf(h), cap + 1, kEmptyRev);
    Word* bits = bitsOf(h);
    std::fill_n(bits, l.words, Word(0));
    occupiedIs(bits, cap, true);
    return h;
  }
  static void deallocate(Header* h) noexcept {
    if (h == nullptr) return;
    if (size_t bytes = layoutFor(h->capacity).bytes; bytes >= kLargeBlockBytes) {
      largeFree(h, bytes);
    } else if (kBlockAlign <= 16 && bytes <= kSmallBlockMax) {
      smallFree(h, alignUp(bytes, kBlockAlign));
    } else if (kBlockAlign <= 64) {
      mediumFree(h, bytes);
    } else if constexpr (kBlockAlign > __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
      ::operator delete(h, std::align_val_t(kBlockAlign));
    } else {
      ::operator delete(h);
    }
  }

  Header* block_ = nullptr;  // null when empty; owns the elements in its occupied slots
  [[no_unique_address]] KeyOf keyOf_;
  [[no_unique_address]] HashFn hashFn_;
  [[no_unique_address]] Eq eq_;
};

template <class K, class V, class H = Hash<K>>
using HashMap = HashTable<MapEntry<K, V>, MapEntryKeyOf, K, H>;

template <class K, class H = Hash<K>>
using HashSet = HashTable<K, IdentityKeyOf, K, H>;

}  // namespace Kel
