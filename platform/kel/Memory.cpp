#include "platform/kel/Memory.h"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#define KEL_SMALL_BLOCKS_FROM_NEW 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KEL_SMALL_BLOCKS_FROM_NEW 1
#endif
#endif

namespace Kel {

namespace {

constexpr size_t kPageBytes = 4096;
size_t pageRounded(size_t bytes) { return (bytes + kPageBytes - 1) & ~(kPageBytes - 1); }

std::atomic<size_t> slabBytes{0};

// Transparent huge pages, where the system gives them on request. At millions of routes the
// objects of one route lie far apart, and with 4 KiB pages nearly every object a review or a
// failover touches costs a TLB miss (a two-level walk in a VM): a review of 1,000,000 routes
// took about a quarter longer and its first slices several times longer.
constexpr size_t kHugePageBytes = size_t(2) << 20;

// Zero-filled memory of `bytes` (a multiple of the page size) at a multiple of `align` (a power of
// two, at least a page), advised for huge pages when it spans one, and faulted in whole: one call
// costs far less than a fault per page, above all in a VM. Kernels without the advice refuse it,
// and the pages come on first touch as usual.
void* mapAligned(size_t bytes, size_t align) {
  const size_t span = bytes + align - kPageBytes;
  void* raw = ::mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) throw std::bad_alloc();
  // The mapping is page-aligned: trim the head up to the alignment and the tail beyond `bytes`.
  const uintptr_t start = reinterpret_cast<uintptr_t>(raw);
  const uintptr_t aligned = (start + align - 1) & ~(align - 1);
  if (aligned != start) ::munmap(raw, aligned - start);
  const uintptr_t end = start + span;
  if (aligned + bytes != end)
    ::munmap(reinterpret_cast<void*>(aligned + bytes), end - aligned - bytes);
  void* p = reinterpret_cast<void*>(aligned);
#ifdef MADV_HUGEPAGE
  if (bytes >= kHugePageBytes) ::madvise(p, bytes, MADV_HUGEPAGE);
#endif
#ifdef MADV_POPULATE_WRITE
  ::madvise(p, bytes, MADV_POPULATE_WRITE);
#endif
  return p;
}

#ifndef KEL_SMALL_BLOCKS_FROM_NEW
constexpr size_t kGranule = 8;
constexpr size_t kClasses = kSmallBlockMax / kGranule;
constexpr size_t kSlabBytes = kHugePageBytes;

struct FreeBlock {
  FreeBlock* next;
};

struct Pool {
  FreeBlock* free[kClasses] = {};
  char* bump = nullptr;
  char* bumpEnd = nullptr;
};
thread_local Pool pool;

// Every slab stays listed for the life of the process, so that the memory of blocks in use is
// always reachable (and leak checkers see it so).
void* newSlab() {
  static std::mutex mutex;
  static auto* slabs = new std::vector<void*>();
  void* slab = mapAligned(kSlabBytes, kSlabBytes);
  std::lock_guard lock(mutex);
  try {
    slabs->push_back(slab);
  } catch (...) {
    ::munmap(slab, kSlabBytes);
    throw;
  }
  slabBytes.fetch_add(kSlabBytes, std::memory_order_relaxed);
  return slab;
}

// Medium blocks: a slab serves one class, its header in its first 64 bytes and its blocks after
// it, so that a block finds its slab by masking its address.
constexpr size_t kMediumAlign = 64;
constexpr size_t kMediumClassesPerDoubling = 8;
constexpr unsigned kMediumFirstExponent = 12;  // the first doubling: 4 to 8 KiB
constexpr size_t kMediumClasses =
    (std::bit_width(kLargeBlockBytes - 1) - kMediumFirstExponent) * kMediumClassesPerDoubling;

// The class of a block of `bytes`, and the bytes of each block of a class: 2^e * (1 + (j+1)/8)
// for the j-th class of the doubling from 2^e.
size_t mediumClassOf(size_t bytes) noexcept {
  const size_t last = std::max(bytes, (size_t(1) << kMediumFirstExponent) + 1) - 1;
  const unsigned e = static_cast<unsigned>(std::bit_width(last)) - 1;
  const size_t step = size_t(1) << (e - 3);
  return (e - kMediumFirstExponent) * kMediumClassesPerDoubling + (last - (size_t(1) << e)) / step;
}
size_t mediumClassBytes(size_t c) noexcept {
  const unsigned e = kMediumFirstExponent + static_cast<unsigned>(c / kMediumClassesPerDoubling);
  return (size_t(1) << e) + (c % kMediumClassesPerDoubling + 1) * (size_t(1) << (e - 3));
}
// How far apart a class's blocks lie: an odd number of cache lines. Blocks of a power of two
// (or of a large power-of-two multiple) side by side would put every table's header, the line
// each lookup reads first, in the same few sets of the caches, which hold then only a few dozen
// of the ten thousand tables of a million routes.
size_t mediumStride(size_t c) noexcept {
  const size_t bytes = mediumClassBytes(c);
  return (bytes / kMediumAlign) % 2 == 0 ? bytes + kMediumAlign : bytes;
}
// The blocks of successive slabs start a varying number of lines in, for the same reason.
constexpr size_t kMediumColours = 16;

struct MediumSlab {
  MediumSlab* prev;  // in its class's list of slabs with room
  MediumSlab* next;
  FreeBlock* free;  // blocks freed and not yet handed out again
  uint32_t cls;
  uint32_t live;    // blocks handed out and not freed
  uint32_t carved;  // blocks handed out at least once, from the front
  uint32_t capacity;
  uint32_t first;  // the offset of the first block
};
static_assert(sizeof(MediumSlab) <= kMediumAlign);

struct MediumHeap {
  std::mutex mutex;
  MediumSlab* roomy[kMediumClasses] = {};  // per class, the slabs with a block to give
  MediumSlab* spare = nullptr;             // an empty slab, kept for the next class to need one
  size_t slabsTaken = 0;                   // picks each new slab's colour
  std::atomic<size_t> slabBytes{0};
};

// Never destroyed: blocks may be freed by other objects' destructors at exit.
MediumHeap& mediumHeap() {
  static auto* heap = new MediumHeap();
  return *heap;
}

MediumSlab* mediumSlabOf(void* p) noexcept {
  return reinterpret_cast<MediumSlab*>(reinterpret_cast<uintptr_t>(p) & ~(kSlabBytes - 1));
}

void roomyIs(MediumHeap& h, MediumSlab* s) noexcept {
  s->prev = nullptr;
  s->next = h.roomy[s->cls];
  if (s->next) s->next->prev = s;
  h.roomy[s->cls] = s;
}

void roomyDel(MediumHeap& h, MediumSlab* s) noexcept {
  (s->prev ? s->prev->next : h.roomy[s->cls]) = s->next;
  if (s->next) s->next->prev = s->prev;
}

#endif

}  // namespace

#ifdef KEL_SMALL_BLOCKS_FROM_NEW

void* smallAllocate(size_t bytes) { return ::operator new(bytes); }
void smallFree(void* p, size_t) noexcept { ::operator delete(p); }

void* mediumAllocate(size_t bytes) { return ::operator new(bytes, std::align_val_t(64)); }
void mediumFree(void* p, size_t) noexcept { ::operator delete(p, std::align_val_t(64)); }
size_t mediumBlockSlabBytes() noexcept { return 0; }

#else

void* smallAllocate(size_t bytes) {
  if (bytes > kSmallBlockMax) return ::operator new(bytes);
  size_t c = bytes == 0 ? 0 : (bytes - 1) / kGranule;
  Pool& p = pool;
  if (FreeBlock* b = p.free[c]) {
    p.free[c] = b->next;
    return b;
  }
  const size_t rounded = (c + 1) * kGranule;
  // A class of an odd multiple of 8 bytes is carved two blocks at a time, the second onto its free
  // list, so that the bump pointer stays on 16 bytes for the classes that promise it.
  const size_t carved = rounded % 16 == 0 ? rounded : 2 * rounded;
  if (static_cast<size_t>(p.bumpEnd - p.bump) < carved) {
    // The rest of the old slab (less than one carving of this class) is left unused.
    p.bump = static_cast<char*>(newSlab());
    p.bumpEnd = p.bump + kSlabBytes;
  }
  void* out = p.bump;
  p.bump += carved;
  if (carved != rounded) {
    auto* second = reinterpret_cast<FreeBlock*>(static_cast<char*>(out) + rounded);
    second->next = nullptr;
    p.free[c] = second;
  }
  return out;
}

void smallFree(void* ptr, size_t bytes) noexcept {
  if (ptr == nullptr) return;
  if (bytes > kSmallBlockMax) {
    ::operator delete(ptr);
    return;
  }
  size_t c = bytes == 0 ? 0 : (bytes - 1) / kGranule;
  auto* b = static_cast<FreeBlock*>(ptr);
  b->next = pool.free[c];
  pool.free[c] = b;
}

void* mediumAllocate(size_t bytes) {
  if (bytes >= kLargeBlockBytes) return largeAllocate(bytes);
  if (bytes < kMediumSlabBlockMin) return ::operator new(bytes, std::align_val_t(kMediumAlign));
  const size_t c = mediumClassOf(bytes);
  MediumHeap& h = mediumHeap();
  std::lock_guard lock(h.mutex);
  MediumSlab* s = h.roomy[c];
  if (s == nullptr) {
    if (h.spare != nullptr) {
      s = std::exchange(h.spare, nullptr);
    } else {
      s = static_cast<MediumSlab*>(mapAligned(kSlabBytes, kSlabBytes));
      h.slabBytes.fetch_add(kSlabBytes, std::memory_order_relaxed);
    }
    s->free = nullptr;
    s->cls = static_cast<uint32_t>(c);
    s->live = 0;
    s->carved = 0;
    s->first = static_cast<uint32_t>(kMediumAlign * (1 + h.slabsTaken++ % kMediumColours));
    s->capacity = static_cast<uint32_t>((kSlabBytes - s->first) / mediumStride(c));
    roomyIs(h, s);
  }
  void* out;
  if (s->free != nullptr) {
    out = s->free;
    s->free = s->free->next;
  } else {
    out = reinterpret_cast<char*>(s) + s->first + size_t(s->carved++) * mediumStride(c);
  }
  if (++s->live == s->capacity) roomyDel(h, s);
  return out;
}

void mediumFree(void* p, size_t bytes) noexcept {
  if (p == nullptr) return;
  if (bytes >= kLargeBlockBytes) {
    largeFree(p, bytes);
    return;
  }
  if (bytes < kMediumSlabBlockMin) {
    ::operator delete(p, std::align_val_t(kMediumAlign));
    return;
  }
  MediumSlab* s = mediumSlabOf(p);
  MediumHeap& h = mediumHeap();
  std::lock_guard lock(h.mutex);
  const bool wasFull = s->live == s->capacity;
  auto* b = static_cast<FreeBlock*>(p);
  b->next = s->free;
  s->free = b;
  if (--s->live == 0) {
    if (!wasFull) roomyDel(h, s);
    if (h.spare == nullptr) {
      h.spare = s;
    } else {
      ::munmap(s, kSlabBytes);
      h.slabBytes.fetch_sub(kSlabBytes, std::memory_order_relaxed);
    }
  } else if (wasFull) {
    roomyIs(h, s);
  }
}

size_t mediumBlockSlabBytes() noexcept {
  return mediumHeap().slabBytes.load(std::memory_order_relaxed);
}

#endif

size_t smallBlockSlabBytes() noexcept { return slabBytes.load(std::memory_order_relaxed); }

void* largeAllocate(size_t bytes) {
  const size_t mapped = pageRounded(bytes);
  return mapAligned(mapped, mapped >= kHugePageBytes ? kHugePageBytes : kPageBytes);
}

void largeFree(void* p, size_t bytes) noexcept {
  if (p != nullptr) ::munmap(p, pageRounded(bytes));
}

}  // namespace Kel
