// Where the framework's objects get their memory.
//
// Small blocks. A route costs about a dozen small objects (the route and its alternatives, their
// via tables, the reactors that watch them, its via set). From malloc each pays a 16-byte chunk
// header and the allocator's bookkeeping, and at millions of routes malloc's bins become the
// hottest code of an install. Entities, reactors and small hash-table blocks therefore come from
// per-thread free lists, one per 8-byte size class up to kSmallBlockMax, carved from 2 MiB
// slabs (mapped on a 2 MiB boundary so that one huge page can back each, and faulted in whole):
// allocation and release are a few instructions and a block costs its rounded size only.
// A freed block goes to the free list of the thread that frees it. Slabs are never returned to
// the system: a table that shrinks leaves its blocks for the next routes to reuse, so memory
// levels off at the high-water mark of each size class. Built with AddressSanitizer, every block
// comes from operator new instead, so that use after free is still caught.
//
// Medium blocks, between the two, are the tables of a few dozen to a few thousand entries: above
// all the reverse index's set of routes per via, ten thousand of them over hundreds of megabytes
// at a million routes, touched at random by every install and failover. From malloc they sit on
// 4 KiB pages, and nearly every touch missed the TLB as well as the cache. Those of a page or more
// (kMediumSlabBlockMin) come instead from 2 MiB slabs like the small blocks, one size class per
// slab, eight classes to each doubling of size (a block wastes at most an eighth); smaller ones
// stay with malloc, which packs them as well, where a slab per class would hold up to 2 MiB for a
// few blocks. Unlike small blocks they go back: a table that grows frees its old block, and the
// tables of one workload grow in step, so whole slabs empty out and are returned to the system
// (one empty slab is kept for the next class to need one). Blocks are aligned to 64 and may be
// freed by any thread.
//
// Large blocks. A table of a million routes regrows dozens of times on its way up, each time
// freeing a block of megabytes. Given to malloc, every such free makes it consolidate its small
// free chunks and raises its threshold for mapping blocks, so that later big blocks come from the
// heap and fragment it. Blocks from largeAllocate are mapped and unmapped whole: their memory goes
// back to the system the moment they are freed. Those of 2 MiB or more start on a 2 MiB boundary,
// for huge pages, as slabs do.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

namespace Kel {

// The largest block smallAllocate serves; larger requests go to operator new.
inline constexpr size_t kSmallBlockMax = 512;
// Blocks at least this large come from largeAllocate.
inline constexpr size_t kLargeBlockBytes = size_t(256) << 10;
// mediumAllocate serves blocks from this size up to kLargeBlockBytes from its slabs.
inline constexpr size_t kMediumSlabBlockMin = 4096;

// A block of `bytes` aligned to 16, or to 8 only when `bytes` rounded up to a multiple of 8 is an
// odd multiple of it (24, 40, ...): an alternative's reactor of three words takes 24 bytes, not
// 32. std::bad_alloc when there is no memory.
void* smallAllocate(size_t bytes);
// Frees a block from smallAllocate; `bytes` is the size it was asked for.
void smallFree(void* p, size_t bytes) noexcept;

// A block of `bytes` aligned to 64: from operator new below kMediumSlabBlockMin, from
// largeAllocate from kLargeBlockBytes on, from the slabs between; std::bad_alloc when there is
// no memory.
void* mediumAllocate(size_t bytes);
// Frees a block from mediumAllocate; `bytes` is the size it was asked for.
void mediumFree(void* p, size_t bytes) noexcept;
// Bytes of the medium blocks' slabs held from the system now, the empty one kept included.
size_t mediumBlockSlabBytes() noexcept;

// Zero-filled memory of `bytes`, page-aligned (2 MiB-aligned from 2 MiB on); std::bad_alloc when
// the system has none.
void* largeAllocate(size_t bytes);
// Frees a block from largeAllocate; `bytes` is the size it was asked for.
void largeFree(void* p, size_t bytes) noexcept;

// Bytes of slabs taken from the system so far, by all threads.
size_t smallBlockSlabBytes() noexcept;

// A vector of a few elements, held by the million (the alternatives of a route): its elements
// in one small block, without malloc's header, and itself a pointer and two 32-bit counts, 16
// bytes where std::vector takes 24 (which takes a route from a 112-byte block to a 96-byte one).
// It grows by doubling, gives its block back when emptied, and offers what a sorted list of
// members needs. Elements move by their move constructor, which must not throw.
template <class T>
class SmallVector {
  static_assert(std::is_nothrow_move_constructible_v<T> && std::is_nothrow_move_assignable_v<T>);
  static_assert(alignof(T) <= 8, "small blocks are aligned to 8 at least, not always to 16");

 public:
  using iterator = T*;
  using const_iterator = const T*;

  SmallVector() noexcept = default;
  SmallVector(const SmallVector&) = delete;
  SmallVector& operator=(const SmallVector&) = delete;
  ~SmallVector() { clear(); }

  size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  iterator begin() noexcept { return data_; }
  iterator end() noexcept { return data_ + size_; }
  const_iterator begin() const noexcept { return data_; }
  const_iterator end() const noexcept { return data_ + size_; }

  // Inserts `v` before `pos`. A block that cannot be had (std::bad_alloc) leaves the vector as
  // it was.
  iterator insert(const_iterator pos, T v) {
    const size_t at = static_cast<size_t>(pos - data_);
    if (size_ == cap_) {
      const uint32_t cap = cap_ == 0 ? 1 : cap_ * 2;
      T* grown = static_cast<T*>(smallAllocate(cap * sizeof(T)));
      for (size_t i = 0; i < at; ++i) relocate(data_ + i, grown + i);
      for (size_t i = at; i < size_; ++i) relocate(data_ + i, grown + i + 1);
      if (data_) smallFree(data_, cap_ * sizeof(T));
      data_ = grown;
      cap_ = cap;
    } else if (at < size_) {  // room at the end: shift the tail by one and assign
      ::new (data_ + size_) T(std::move(data_[size_ - 1]));
      for (size_t i = size_ - 1; i > at; --i) data_[i] = std::move(data_[i - 1]);
      data_[at] = std::move(v);
      ++size_;
      return data_ + at;
    }
    ::new (data_ + at) T(std::move(v));
    ++size_;
    return data_ + at;
  }
  iterator erase(const_iterator pos) noexcept {
    const size_t at = static_cast<size_t>(pos - data_);
    for (size_t i = at + 1; i < size_; ++i) data_[i - 1] = std::move(data_[i]);
    data_[--size_].~T();
    if (size_ == 0) release();
    return data_ + at;
  }
  void clear() noexcept {
    for (size_t i = 0; i < size_; ++i) data_[i].~T();
    size_ = 0;
    release();
  }

 private:
  static void relocate(T* from, T* to) noexcept {
    ::new (to) T(std::move(*from));
    from->~T();
  }
  void release() noexcept {
    if (data_) smallFree(std::exchange(data_, nullptr), cap_ * sizeof(T));
    cap_ = 0;
  }

  T* data_ = nullptr;
  uint32_t size_ = 0;
  uint32_t cap_ = 0;
};

// Every class with its objects in small blocks derives from this (or declares the same
// operators): allocation by its dynamic size, release by the size its virtual destructor reports.
class SmallBlockObject {
 public:
  static void* operator new(size_t bytes) { return smallAllocate(bytes); }
  static void operator delete(void* p, size_t bytes) noexcept { smallFree(p, bytes); }
  // Over-aligned derived types bypass the free lists (they are 16-aligned).
  static void* operator new(size_t bytes, std::align_val_t al) { return ::operator new(bytes, al); }
  static void operator delete(void* p, size_t, std::align_val_t al) noexcept {
    ::operator delete(p, al);
  }
};

}  // namespace Kel
