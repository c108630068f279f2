// The framework's small-block free lists, medium-block slabs and large mapped blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/kel/Kel.h"
#include "platform/kel/Memory.h"

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kFreeLists = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kFreeLists = false;
#else
constexpr bool kFreeLists = true;
#endif
#else
constexpr bool kFreeLists = true;
#endif

// A block is aligned to 16 unless its size rounds to an odd multiple of 8, and then to 8: blocks
// of those classes come two at a time, and the ones of the other classes carved after them still
// start on 16. Freed on another thread, blocks go to that thread's lists, which it can then use.
TEST(SmallBlocks, BlocksAreAlignedDisjointWritableToTheirFullSizeAndFreeableAnywhere) {
  std::vector<std::pair<char*, size_t>> blocks;
  for (size_t bytes : {1, 15, 16, 17, 24, 33, 48, 100, 255, 256, 511, 512, 513, 4000}) {
    for (int i = 0; i < 50; ++i) {
      auto* p = static_cast<char*>(Kel::smallAllocate(bytes));
      const size_t align = (bytes + 7) / 8 % 2 == 1 && bytes <= Kel::kSmallBlockMax ? 8 : 16;
      EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % align, 0u) << bytes;
      std::memset(p, static_cast<int>(blocks.size() & 0xFF), bytes);
      blocks.emplace_back(p, bytes);
    }
  }
  // Every block still holds its own fill: none overlaps another.
  for (size_t i = 0; i < blocks.size(); ++i) {
    for (size_t j = 0; j < blocks[i].second; ++j) {
      ASSERT_EQ(static_cast<unsigned char>(blocks[i].first[j]), i & 0xFF) << "block " << i;
    }
  }
  std::thread([&] {
    for (auto [p, bytes] : blocks) Kel::smallFree(p, bytes);
    Kel::smallFree(Kel::smallAllocate(24), 24);
  }).join();
  void* p = Kel::smallAllocate(24);
  std::memset(p, 0xAB, 24);
  Kel::smallFree(p, 24);
}

// A freed block is served again within its size class only, and slabs come from the system only
// when the free lists run dry.
TEST(SmallBlocks, FreedBlocksAreReusedWithinTheirSizeClassBeforeNewSlabs) {
  if (!kFreeLists) GTEST_SKIP() << "built with AddressSanitizer: blocks come from operator new";
  void* a = Kel::smallAllocate(40);
  Kel::smallFree(a, 40);
  void* other = Kel::smallAllocate(100);  // another class: does not take a's block
  EXPECT_NE(other, a);
  void* b = Kel::smallAllocate(33);  // same 40-byte class as 40
  EXPECT_EQ(b, a);
  Kel::smallFree(b, 33);
  Kel::smallFree(other, 100);
  std::vector<void*> blocks;
  for (int i = 0; i < 100000; ++i) blocks.push_back(Kel::smallAllocate(64));
  const size_t slabs = Kel::smallBlockSlabBytes();
  for (void* p : blocks) Kel::smallFree(p, 64);
  for (void*& p : blocks) p = Kel::smallAllocate(64);
  EXPECT_EQ(Kel::smallBlockSlabBytes(), slabs);  // the same memory served again
  for (void* p : blocks) Kel::smallFree(p, 64);
  // A class of three words costs three words a block: an alternative's reactor is 24 bytes, and a
  // million routes have four of them each.
  const size_t before = Kel::smallBlockSlabBytes();
  blocks.assign(1000000, nullptr);
  for (void*& p : blocks) p = Kel::smallAllocate(24);
  EXPECT_LE(Kel::smallBlockSlabBytes() - before, 24u * blocks.size() + (size_t(2) << 20));
  for (void* p : blocks) Kel::smallFree(p, 24);
}

// Blocks allocated and freed in random order, of sizes across every class and at the edges of
// classes, keep their contents and their alignment; once all are freed, every slab but the one
// kept empty has gone back to the system.
TEST(MediumBlocks, KeepTheirContentsThroughRandomUseAndEmptySlabsGoBack) {
  const size_t before = Kel::mediumBlockSlabBytes();
  std::mt19937 rng(7);
  // Either side of the slabs' band and of its first classes' edges (4,608 and 5,120 bytes).
  const size_t min = Kel::kMediumSlabBlockMin, large = Kel::kLargeBlockBytes;
  std::vector<size_t> sizes = {1,       513,         min - 1,         min,
                               min + 1, min * 9 / 8, min * 9 / 8 + 1, 16385,
                               131072,  large - 1,   large + 1};
  std::uniform_int_distribution<size_t> anySize(Kel::kSmallBlockMax + 1, large - 1);
  for (int i = 0; i < 300; ++i) sizes.push_back(anySize(rng) / (i % 3 == 0 ? 1 : 16));
  struct Block {
    unsigned char* p;
    size_t bytes;
    unsigned char fill;
  };
  std::vector<Block> live;
  size_t peak = 0;
  const auto check = [](const Block& b) {
    for (size_t i = 0; i < b.bytes; i += 61) ASSERT_EQ(b.p[i], b.fill) << b.bytes << " at " << i;
    ASSERT_EQ(b.p[b.bytes - 1], b.fill) << b.bytes;
  };
  for (int step = 0; step < 4000; ++step) {
    if (live.empty() || rng() % 5 < 3) {
      const size_t bytes = std::max<size_t>(1, sizes[rng() % sizes.size()]);
      auto* p = static_cast<unsigned char*>(Kel::mediumAllocate(bytes));
      ASSERT_EQ(reinterpret_cast<uintptr_t>(p) % 64, 0u) << bytes;
      const auto fill = static_cast<unsigned char>(step);
      std::memset(p, fill, bytes);
      live.push_back({p, bytes, fill});
    } else {
      const size_t at = rng() % live.size();
      check(live[at]);
      Kel::mediumFree(live[at].p, live[at].bytes);
      live[at] = live.back();
      live.pop_back();
    }
    peak = std::max(peak, Kel::mediumBlockSlabBytes());
  }
  for (const Block& b : live) {
    check(b);
    Kel::mediumFree(b.p, b.bytes);
  }
  if (!kFreeLists) return;
  EXPECT_GT(peak, before + (size_t(8) << 20));
  EXPECT_LE(Kel::mediumBlockSlabBytes(), before + (size_t(2) << 20));
}

// Tables that grow in step, as the index's sets of routes per via do, free whole slabs of the
// sizes they leave behind; and a block freed by another thread goes back to its slab.
TEST(MediumBlocks, TablesGrowingInStepLeaveNoSlabsOfTheirPastSizes) {
  const size_t before = Kel::mediumBlockSlabBytes();
  {
    std::vector<Kel::HashSet<uint64_t>> sets(1000);
    for (uint64_t i = 0; i < 1000 * 1600; ++i) sets[i % 1000].insert(i);
    size_t blocks = 0;
    for (const auto& set : sets) blocks += set.bytesUsed();
    // What the sets hold now, and little more: not the slabs of every size they grew through.
    if (kFreeLists) {
      EXPECT_LT(Kel::mediumBlockSlabBytes() - before, blocks * 3 / 2 + (size_t(4) << 20));
    }
    std::thread t([&] { sets.clear(); });
    t.join();
  }
  if (kFreeLists) {
    EXPECT_LE(Kel::mediumBlockSlabBytes(), before + (size_t(2) << 20));
  }
}

// Blocks of a huge page or more start on a huge-page boundary, or the system cannot back them
// with huge pages; their neighbours' trimmed margins must not overlap them.
TEST(LargeBlocks, AreZeroedAlignedAndGoBackWhole) {
  const size_t hugePage = size_t(2) << 20;
  for (size_t bytes : {Kel::kLargeBlockBytes + 12345, hugePage, 3 * hugePage + 12345}) {
    SCOPED_TRACE(bytes);
    auto* p = static_cast<unsigned char*>(Kel::largeAllocate(bytes));
    auto* q = static_cast<unsigned char*>(Kel::largeAllocate(bytes));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % (bytes >= hugePage ? hugePage : 4096), 0u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(q) % (bytes >= hugePage ? hugePage : 4096), 0u);
    size_t nonZero = 0;
    for (size_t i = 0; i < bytes; i += 997) nonZero += p[i] != 0 || q[i] != 0;
    EXPECT_EQ(nonZero, 0u);
    std::memset(p, 1, bytes);
    std::memset(q, 2, bytes);
    EXPECT_EQ(p[bytes - 1], 1);
    Kel::largeFree(p, bytes);
    Kel::largeFree(q, bytes);
  }
}

// A table crossing both thresholds on its way up and down keeps every element.
TEST(LargeBlocks, HashTableGrowsThroughEveryKindOfBlockAndBack) {
  Kel::HashSet<uint64_t> set;
  constexpr uint64_t kN = 200000;  // a block of several MiB
  for (uint64_t i = 0; i < kN; ++i) ASSERT_TRUE(set.insert(i * 7919).second);
  for (uint64_t i = 0; i < kN; i += 2) ASSERT_TRUE(set.erase(i * 7919));
  for (uint64_t i = 0; i < kN; ++i) ASSERT_EQ(set.contains(i * 7919), i % 2 == 1);
  for (uint64_t i = 1; i < kN; i += 2) ASSERT_TRUE(set.erase(i * 7919));
  EXPECT_TRUE(set.empty());
}

// A route's list of alternatives: elements inserted anywhere through several regrowths and
// erased from anywhere stay in order, each constructed and destroyed exactly once, and the list
// itself stays a pointer and two counts.
TEST(SmallVector, KeepsOrderAndEveryElementAliveExactlyOnceThroughGrowthAndErasure) {
  static_assert(sizeof(Kel::SmallVector<std::string>) == sizeof(void*) + 2 * sizeof(uint32_t));
  static int alive = 0;
  struct Counted {
    explicit Counted(int v) : v(v) { ++alive; }
    Counted(Counted&& o) noexcept : v(o.v) { ++alive; }
    Counted& operator=(Counted&& o) noexcept {
      v = o.v;
      return *this;
    }
    ~Counted() { --alive; }
    int v;
  };
  {
    Kel::SmallVector<Counted> v;
    std::vector<int> model;
    const auto same = [&] {
      ASSERT_EQ(v.size(), model.size());
      std::vector<int> got;
      for (const Counted& c : v) got.push_back(c.v);
      ASSERT_EQ(got, model);
      ASSERT_EQ(alive, int(model.size()));
    };
    // Front, back and middle, in turn: crosses capacities 1, 2, 4, 8, 16 and 32.
    for (int i = 0; i < 20; ++i) {
      const size_t at = i % 3 == 0 ? 0 : i % 3 == 1 ? model.size() : model.size() / 2;
      auto it = v.insert(v.begin() + at, Counted(i));
      EXPECT_EQ(it->v, i);
      model.insert(model.begin() + long(at), i);
      same();
    }
    for (size_t k = 0; !model.empty(); ++k) {
      const size_t at = k % 3 == 0 ? model.size() / 2 : k % 3 == 1 ? 0 : model.size() - 1;
      auto it = v.erase(v.begin() + at);
      model.erase(model.begin() + long(at));
      EXPECT_EQ(it, v.begin() + at);
      same();
    }
    EXPECT_TRUE(v.empty());
    for (int i = 0; i < 5; ++i) v.insert(v.end(), Counted(i));  // after being emptied
    EXPECT_EQ(alive, 5);
  }
  EXPECT_EQ(alive, 0);
}

}  // namespace
