// Where the framework's objects get their memory.
//
// Small blocks. A route costs about a dozen small objects (the route and its alternatives, their
// via tables, the reactors that watch them, its via set). From malloc each pays a 16-byte chunk
// header and the allocator's bookkeeping, and at millions of routes malloc's bins become the
// hottest code of an install. Entities, reactors and small hash-table blocks therefore come from
// per-thread free lists, one per 16-byte size class up to kSmallBlockMax, carved from 2 MiB
// slabs (mapped on a 2 MiB boundary so that one huge page can back each, and faulted in whole):
// allocation and release are a few instructions and a block costs its rounded size only.
// A freed block goes to the free list of the thread that frees it. Slabs are never returned to
// the system: a table that shrinks leaves its blocks for the next routes to reuse, so memory
// levels off at the high-water mark of each size class. Built with AddressSanitizer, every block
// comes from operator new instead, so that use after free is still caught.
//
// Large blocks. A table of a million routes regrows dozens of times on its way up, each time
// freeing a block of megabytes. Given to malloc, every such free makes it consolidate its small
// free chunks and raises its threshold for mapping blocks, so that later big blocks come from the
// heap and fragment it. Blocks from largeAllocate are mapped and unmapped whole: their memory goes
// back to the system the moment they are freed. Those of 2 MiB or more start on a 2 MiB boundary,
// for huge pages, as slabs do.
#pragma once

#include <cstddef>
#include <new>

namespace Kel {

// The largest block smallAllocate serves; larger requests go to operator new.
inline constexpr size_t kSmallBlockMax = 512;
// Blocks at least this large come from largeAllocate.
inline constexpr size_t kLargeBlockBytes = size_t(256) << 10;

// A block of `bytes` aligned to 16; std::bad_alloc when there is no memory.
void* smallAllocate(size_t bytes);
// Frees a block from smallAllocate; `bytes` is the size it was asked for.
void smallFree(void* p, size_t bytes) noexcept;

// Zero-filled memory of `bytes`, page-aligned (2 MiB-aligned from 2 MiB on); std::bad_alloc when
// the system has none.
void* largeAllocate(size_t bytes);
// Frees a block from largeAllocate; `bytes` is the size it was asked for.
void largeFree(void* p, size_t bytes) noexcept;

// Bytes of slabs taken from the system so far, by all threads.
size_t smallBlockSlabBytes() noexcept;

// An allocator over small blocks, for containers of a few elements held by the million (the
// alternatives of a route): a block costs its rounded size only, without malloc's chunk header.
template <class T>
struct SmallBlockAllocator {
  using value_type = T;
  SmallBlockAllocator() noexcept = default;
  template <class U>
  SmallBlockAllocator(const SmallBlockAllocator<U>&) noexcept {}  // NOLINT: rebinding converts
  T* allocate(size_t n) { return static_cast<T*>(smallAllocate(n * sizeof(T))); }
  void deallocate(T* p, size_t n) noexcept { smallFree(p, n * sizeof(T)); }
  template <class U>
  bool operator==(const SmallBlockAllocator<U>&) const noexcept {
    return true;
  }
};

// Every class with its objects in small blocks derives from this (or declares the same
// operators): allocation by its dynamic size, release by the size its virtual destructor reports.
class SmallBlockObject {
 public:
  static void* operator new(size_t bytes) { return smallAllocate(bytes); }
  static void operator delete(void* p, size_t bytes) noexcept { smallFree(p, bytes); }
  // Over-aligned derived types bypass the free lists (they are 16-aligned).
  static void* operator new(size_t bytes, std::align_val_t al) { return ::operator new(bytes, al); }
  static void operator delete(void* p, size_t, std::align_val_t al) noexcept { ::operator delete(p, al); }
};

}  // namespace Kel
