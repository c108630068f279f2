#include "platform/kel/Memory.h"

#include <sys/mman.h>

#include <atomic>
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
  if (aligned + bytes != end) ::munmap(reinterpret_cast<void*>(aligned + bytes), end - aligned - bytes);
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
constexpr size_t kGranule = 16;
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
#endif

}  // namespace

#ifdef KEL_SMALL_BLOCKS_FROM_NEW

void* smallAllocate(size_t bytes) { return ::operator new(bytes); }
void smallFree(void* p, size_t) noexcept { ::operator delete(p); }

#else

void* smallAllocate(size_t bytes) {
  if (bytes > kSmallBlockMax) return ::operator new(bytes);
  size_t c = bytes == 0 ? 0 : (bytes - 1) / kGranule;
  Pool& p = pool;
  if (FreeBlock* b = p.free[c]) {
    p.free[c] = b->next;
    return b;
  }
  size_t rounded = (c + 1) * kGranule;
  if (static_cast<size_t>(p.bumpEnd - p.bump) < rounded) {
    // The rest of the old slab (less than one block of this class) is left unused.
    p.bump = static_cast<char*>(newSlab());
    p.bumpEnd = p.bump + kSlabBytes;
  }
  void* out = p.bump;
  p.bump += rounded;
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
