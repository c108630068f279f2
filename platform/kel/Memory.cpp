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

std::atomic<size_t> slabBytes{0};

#ifndef KEL_SMALL_BLOCKS_FROM_NEW
constexpr size_t kGranule = 16;
constexpr size_t kClasses = kSmallBlockMax / kGranule;
constexpr size_t kSlabBytes = size_t(1) << 20;

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
  void* slab = std::malloc(kSlabBytes);
  if (slab == nullptr) throw std::bad_alloc();
#ifdef MADV_POPULATE_WRITE
  // One call to fault the whole slab in: a fault per page costs far more, above all in a VM.
  // Kernels without it refuse the advice, and the pages come on first touch as usual.
  ::madvise(reinterpret_cast<void*>(reinterpret_cast<uintptr_t>(slab) & ~uintptr_t(4095)), kSlabBytes,
            MADV_POPULATE_WRITE);
#endif
  std::lock_guard lock(mutex);
  try {
    slabs->push_back(slab);
  } catch (...) {
    std::free(slab);
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
  void* p = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
  if (p == MAP_FAILED) throw std::bad_alloc();
  return p;
}

void largeFree(void* p, size_t bytes) noexcept {
  if (p != nullptr) ::munmap(p, bytes);
}

}  // namespace Kel
