#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/kel/Assert.h"
#include "platform/kel/HashTable.h"
#include "platform/kel/Ptr.h"

namespace {

// Hash functions that put the table's collision handling under stress.
struct WeakHash {  // 64 distinct values: long runs everywhere
  uint32_t operator()(uint32_t k) const noexcept { return Kel::Hash<uint32_t>()(k) & 0x3F; }
};
struct ConstantForFewHundred {  // keys below 400 all share one hash
  uint32_t operator()(uint32_t k) const noexcept { return k < 400 ? 42 : Kel::Hash<uint32_t>()(k); }
};
struct AllOnesForSome {  // a rev of 0xFFFFFFFF is also what an empty slot holds
  uint32_t operator()(uint32_t k) const noexcept {
    return k % 5 == 0 ? 0xFFFFFFFFu : Kel::Hash<uint32_t>()(k);
  }
};

template <class H>
using Map = Kel::HashMap<uint32_t, uint32_t, H>;
using Entry = Kel::MapEntry<uint32_t, uint32_t>;
// (rev, key) -> value: the order the table must walk in, up to ties between equal revs.
using Model = std::map<std::pair<uint32_t, uint32_t>, uint32_t>;
using Row = std::pair<std::pair<uint32_t, uint32_t>, uint32_t>;

template <class H>
uint32_t revOf(uint32_t key) {
  return Kel::bitReverse32(H()(key));
}

// The model orders by (rev, key); the table may order equal revs any way, so its walk is compared
// rev by rev and as a set, and must repeat itself while the table is unchanged.
template <class H>
void expectMatchesModel(const Map<H>& table, const Model& model) {
  ASSERT_TRUE(table.invariantsHold());
  ASSERT_EQ(table.size(), model.size());
  std::vector<std::pair<uint32_t, uint32_t>> walk;
  std::vector<Row> seen;
  for (const Entry& e : table) {
    walk.emplace_back(e.key, e.value);
    seen.push_back({{revOf<H>(e.key), e.key}, e.value});
  }
  for (size_t i = 1; i < seen.size(); ++i) ASSERT_LE(seen[i - 1].first.first, seen[i].first.first);
  std::sort(seen.begin(), seen.end());
  ASSERT_EQ(seen, std::vector<Row>(model.begin(), model.end()));
  std::vector<std::pair<uint32_t, uint32_t>> again;
  for (const Entry& e : table) again.emplace_back(e.key, e.value);
  ASSERT_EQ(walk, again);
}

template <class H>
std::vector<uint32_t> keysOf(const Map<H>& table) {
  std::vector<uint32_t> keys;
  for (const Entry& e : table) keys.push_back(e.key);
  return keys;
}

// lowerBoundHash must land exactly where a linear walk finds the first rev >= the key's rev.
template <class H>
void expectResumesAt(const Map<H>& table, uint32_t key) {
  uint32_t rev = revOf<H>(key);
  auto expected = table.begin();
  while (expected != table.end() && revOf<H>(expected->key) < rev) ++expected;
  EXPECT_TRUE(table.lowerBoundHash(H()(key)) == expected) << "key " << key;
}

template <class H>
void runModel(uint32_t seed, uint32_t keySpace, int batches) {
  SCOPED_TRACE(seed);
  std::mt19937 rng(seed);
  Map<H> table;
  Model model;
  std::map<uint32_t, uint32_t> byKey;
  for (int batch = 0; batch < batches; ++batch) {
    // Grow for the first half, then drain, so that both regrowth and shrinking happen.
    int insertPercent = batch < batches / 2 ? 70 : 25;
    uint32_t lastErased = keySpace;
    for (int op = 0; op < 150; ++op) {
      uint32_t key = rng() % keySpace;
      int roll = static_cast<int>(rng() % 100);
      if (roll < insertPercent) {
        uint32_t value = rng();
        bool fresh = !byKey.count(key);
        auto [elem, inserted] = table.insert(Entry{key, value});
        ASSERT_EQ(inserted, fresh);
        if (fresh) {
          byKey[key] = value;
          model[{revOf<H>(key), key}] = value;
        }
        ASSERT_EQ(elem->value, byKey[key]);
      } else if (roll < insertPercent + 10) {
        uint32_t value = rng();
        ASSERT_EQ(table.insertOrAssign(Entry{key, value})->value, value);
        byKey[key] = value;
        model[{revOf<H>(key), key}] = value;
      } else if (roll < 90) {
        bool present = byKey.erase(key) > 0;
        model.erase({revOf<H>(key), key});
        ASSERT_EQ(table.erase(key), present);
        lastErased = key;
      } else {
        const Entry* found = std::as_const(table).find(key);
        ASSERT_EQ(found != nullptr, byKey.count(key) == 1);
        if (found) {
          ASSERT_EQ(found->value, byKey[key]);
        }
        // What a walk prefetches ahead of its lookups: exactly the elements sharing the key's
        // hash however long their run, and none for the rev of an empty slot (a hint only).
        std::set<uint32_t> matches, expected;
        table.forHashMatches(key, [&](const Entry& e) { matches.insert(e.key); });
        for (const auto& kv : byKey) {
          if (H()(kv.first) == H()(key) && revOf<H>(key) != 0xFFFFFFFFu) expected.insert(kv.first);
        }
        ASSERT_EQ(matches, expected) << key;
      }
    }
    expectMatchesModel<H>(table, model);
    if (!byKey.empty())
      expectResumesAt<H>(table, std::next(byKey.begin(), rng() % byKey.size())->first);
    expectResumesAt<H>(table, keySpace + rng() % 1000);  // absent
    if (lastErased != keySpace) expectResumesAt<H>(table, lastErased);
  }
}

// The good hash, then the three above: long runs, hundreds of keys in one run, and revs that look
// like empty slots.
TEST(HashTable, MatchesOrderedModelUnderRandomOperations) {
  for (uint32_t seed : {1u, 2u, 3u, 4u}) runModel<Kel::Hash<uint32_t>>(seed, 4000, 40);
  for (uint32_t seed : {5u, 6u}) runModel<WeakHash>(seed, 600, 24);
  for (uint32_t seed : {7u, 8u}) runModel<ConstantForFewHundred>(seed, 1200, 24);
  for (uint32_t seed : {9u, 10u}) runModel<AllOnesForSome>(seed, 2000, 30);
}

// A walk parked at a bookmark resumes from the bookmark's hash however the table changed during
// the pause: the bookmarked element deleted, thousands inserted, the table regrown.
TEST(HashTable, ResumesAfterPauseWhenBookmarkIsDeletedAndTableRegrows) {
  using H = Kel::Hash<uint32_t>;
  Map<H> table;
  for (uint32_t k = 0; k < 1000; ++k) table.insert(Entry{k, k});
  auto it = std::next(table.begin(), 333);
  const uint32_t deleted = it->key, kept = std::next(it)->key;
  ASSERT_TRUE(table.erase(deleted));
  expectResumesAt<H>(table, deleted);
  const size_t bytesBefore = table.bytesUsed();
  for (uint32_t k = 1000; k < 6000; ++k) table.insert(Entry{k, k});
  ASSERT_GT(table.bytesUsed(), bytesBefore);
  expectResumesAt<H>(table, deleted);
  EXPECT_EQ(table.lowerBoundHash(H()(kept))->key, kept);
}

TEST(HashTable, EmptyTableHasNoMatchesAndLowerBoundThereOrPastTheLastElementIsEnd) {
  using H = Kel::Hash<uint32_t>;
  Map<H> table;
  EXPECT_TRUE(table.lowerBoundHash(0) == table.end());
  EXPECT_TRUE(std::as_const(table).lowerBoundHash(0xFFFFFFFFu) == std::as_const(table).end());
  EXPECT_TRUE(table.begin() == table.end());
  table.insert(Entry{1, 1});
  table.erase(1);
  EXPECT_TRUE(table.lowerBoundHash(12345) == table.end());
  EXPECT_EQ(table.bytesUsed(), 0u);
  table.forHashMatches(3, [](const Entry&) { ADD_FAILURE() << "an empty table has no elements"; });
  table.prefetch(3);  // a hint only, even with no block
  uint32_t maxRev = 0;
  for (uint32_t k = 0; k < 200; ++k) {
    table.insert(Entry{k, k});
    maxRev = std::max(maxRev, revOf<H>(k));
  }
  ASSERT_LT(maxRev, 0xFFFFFFFFu);
  EXPECT_TRUE(table.lowerBoundHash(Kel::bitReverse32(maxRev + 1)) == table.end());
  EXPECT_EQ(revOf<H>(table.lowerBoundHash(Kel::bitReverse32(maxRev))->key), maxRev);
}

TEST(HashTable, FloodOfEqualHashesCostsLinearMemory) {
  Map<ConstantForFewHundred> table;
  for (uint32_t k = 0; k < 400; ++k) table.insert(Entry{k, k});
  EXPECT_TRUE(table.invariantsHold());
  EXPECT_LT(table.bytesUsed(), 400 * (sizeof(Entry) + sizeof(uint32_t)) * 3);
  for (uint32_t k = 0; k < 400; ++k) ASSERT_TRUE(table.contains(k));
}

TEST(HashTable, EraseEveryOtherDuringWalkKeepsTheRest) {
  for (uint32_t n : {1u, 2u, 5u, 37u, 2000u}) {
    Map<WeakHash> table;
    for (uint32_t k = 0; k < n; ++k) table.insert(Entry{k, k});
    const std::vector<uint32_t> order = keysOf(table);
    std::vector<uint32_t> visited, kept;
    bool eraseThis = true;
    for (auto it = table.begin(); it != table.end(); eraseThis = !eraseThis) {
      visited.push_back(it->key);
      if (eraseThis) {
        it = table.erase(it);
      } else {
        kept.push_back((it++)->key);
      }
    }
    EXPECT_EQ(visited, order) << n;
    ASSERT_TRUE(table.invariantsHold());
    EXPECT_EQ(keysOf(table), kept) << n;
  }
}

TEST(HashTable, ErasingKeepsRunsShortGivesMemoryBackAndForgetsHistory) {
  // Worked off in iteration order, the keys left hold the far end of the hash order: a smaller
  // table would pile them into one run that every further erase shifts whole.
  Map<Kel::Hash<uint32_t>> walked;
  for (uint32_t k = 0; k < 20000; ++k) walked.insert(Entry{k, k});
  const std::vector<uint32_t> order = keysOf(walked);
  std::vector<uint32_t> visited;
  for (auto it = walked.begin(); it != walked.end();) {
    visited.push_back(it->key);
    it = walked.erase(it);
    if (walked.size() % 500 == 0) {
      ASSERT_LE(walked.longestDisplacement(), 256u) << walked.size();
    }
  }
  EXPECT_EQ(visited, order);
  EXPECT_TRUE(walked.empty());
  EXPECT_EQ(walked.bytesUsed(), 0u);

  // Erased all over the order, the table shrinks as it empties.
  Map<Kel::Hash<uint32_t>> scattered;
  std::vector<uint32_t> keys(20000);
  std::iota(keys.begin(), keys.end(), 0u);
  for (uint32_t k : keys) scattered.insert(Entry{k, k});
  const size_t peak = scattered.bytesUsed();
  std::shuffle(keys.begin(), keys.end(), std::mt19937(7));
  for (size_t i = 0; i < 19000; ++i) ASSERT_TRUE(scattered.erase(keys[i]));
  EXPECT_LT(scattered.bytesUsed(), peak / 4);
  EXPECT_TRUE(scattered.invariantsHold());
  // Its order depends on the keys it holds, not on the history that left them there.
  Map<Kel::Hash<uint32_t>> fresh;
  for (size_t i = keys.size(); i-- > 19000;) fresh.insert(Entry{keys[i], keys[i]});
  EXPECT_EQ(keysOf(scattered), keysOf(fresh));
}

TEST(HashTable, ReserveAvoidsRegrowthAndAnImpossibleReserveKeepsTheContents) {
  Map<Kel::Hash<uint32_t>> table;
  table.reserve(10000);
  const size_t reserved = table.bytesUsed();
  ASSERT_GT(reserved, 10000 * sizeof(Entry));
  // Keys whose reversed hashes are spread evenly: no run grows long, so nothing regrows.
  for (uint32_t k = 0; k < 10000; ++k) table.insert(Entry{k, ~k});
  EXPECT_LE(table.bytesUsed(), reserved * 4 / 3 + 64);
  EXPECT_THROW(table.reserve(SIZE_MAX), Kel::RangeException);
  EXPECT_THROW(table.reserve(SIZE_MAX / 2), Kel::RangeException);
  ASSERT_EQ(table.size(), 10000u);
  for (uint32_t k = 0; k < 10000; ++k) ASSERT_EQ(table.find(k)->value, ~k);
  EXPECT_TRUE(table.invariantsHold());
}

// Every alternative of every route has a tiny table. One regrows at every insert and takes the
// slots its elements need, with none spare: two elements with different home slots fit in two,
// whichever arrives first.
TEST(HashTable, EmptyAndTinyTablesTakeOnlyTheSlotsTheirElementsNeed) {
  static_assert(sizeof(Kel::HashMap<uint64_t, void*>) == sizeof(void*));
  static_assert(sizeof(Kel::HashSet<std::string>) == sizeof(void*));
  Kel::HashMap<uint64_t, void*> table;
  EXPECT_EQ(table.bytesUsed(), 0u);
  constexpr size_t kSlot = sizeof(Kel::MapEntry<uint64_t, void*>) + sizeof(uint32_t);
  for (uint64_t k = 1; k <= 4; ++k) {
    table.insert({k, nullptr});
    // A header, the sentinels, and at most one spare slot.
    EXPECT_LE(table.bytesUsed(), 40 + (k + 1) * kSlot) << k;
  }
  for (uint64_t k = 1; k <= 4; ++k) EXPECT_TRUE(table.contains(k));
  EXPECT_FALSE(table.contains(5));

  struct Identity {  // in a table of two home slots, the lowest bit of the key picks the home
    uint32_t operator()(uint32_t k) const noexcept { return k; }
  };
  Map<Identity> reserved, apart, together;
  reserved.reserve(2);
  for (uint32_t k : {3u, 2u}) apart.insert({k, k});     // the later one goes before the earlier
  for (uint32_t k : {3u, 1u}) together.insert({k, k});  // one home: the second needs a third slot
  EXPECT_EQ(apart.bytesUsed(), reserved.bytesUsed());
  EXPECT_GT(together.bytesUsed(), reserved.bytesUsed());
  for (uint32_t k : {2u, 3u}) EXPECT_TRUE(apart.contains(k));
  for (uint32_t k : {1u, 3u}) EXPECT_TRUE(together.contains(k));
}

// The first `count` keys of a table of `total` in its iteration order, as a walk of one table
// inserting into another delivers them: sorted by reversed hash, all in a narrow low part of the
// order, where they would pile up far from their home slots and make every lookup a long scan.
std::vector<uint32_t> firstKeysInOrder(uint32_t total, size_t count) {
  Map<Kel::Hash<uint32_t>> source;
  for (uint32_t k = 0; k < total; ++k) source.insert(Entry{k, k});
  std::vector<uint32_t> keys;
  for (auto it = source.begin(); keys.size() < count; ++it) keys.push_back(it->key);
  return keys;
}

TEST(HashTable, KeysArrivingInHashOrderDoNotPileUp) {
  Map<Kel::Hash<uint32_t>> target;
  for (uint32_t k : firstKeysInOrder(20000, 2000)) target.insert(Entry{k, k});
  EXPECT_TRUE(target.invariantsHold());
  EXPECT_LE(target.longestDisplacement(), 260u);
}

TEST(HashTable, LookupsAcrossRunsOfThousandsFindEveryKey) {
  // The first keys of a large table's order: the target stops growing for them at an eighth of
  // its load, and they pile into runs thousands of slots long, which lookups, inserts and resumes
  // search by galloping rather than slot by slot.
  const std::vector<uint32_t> copied = firstKeysInOrder(200000, 3000);
  Map<Kel::Hash<uint32_t>> target;
  for (uint32_t k : copied) target.insert(Entry{k, ~k});
  ASSERT_TRUE(target.invariantsHold());
  ASSERT_GT(target.longestDisplacement(), 1000u);
  for (uint32_t key : copied) {
    const Entry* found = target.find(key);
    ASSERT_TRUE(found != nullptr) << key;
    ASSERT_EQ(found->value, ~key);
    expectResumesAt<Kel::Hash<uint32_t>>(target, key);
    size_t matches = 0;
    target.forHashMatches(key, [&](const Entry& e) { matches += e.key == key; });
    ASSERT_EQ(matches, 1u) << key;
  }
  // Keys further along the order are absent; an insert among the piled keys lands in place.
  for (uint32_t k = 200000; k < 201000; ++k) {
    ASSERT_FALSE(target.contains(k)) << k;
    expectResumesAt<Kel::Hash<uint32_t>>(target, k);
  }
  for (uint32_t k = 0; k < 200000; k += 97) target.insert(Entry{k, ~k});
  ASSERT_TRUE(target.invariantsHold());
  for (uint32_t key : copied) ASSERT_EQ(target.find(key)->value, ~key);
}

// Counts live objects and catches a destroy or move of an object that is not alive, or of one
// that was moved by copying its bytes (it remembers its own address).
struct Tracked {
  static constexpr uint32_t kAlive = 0xA11CE;
  static inline int live = 0;
  static inline int faults = 0;

  Tracked(uint32_t k, uint32_t v) : key(k), payload(std::make_unique<uint32_t>(v)) { ++live; }
  Tracked(Tracked&& o) noexcept : key(o.key), payload(std::move(o.payload)) {
    if (!o.sound()) ++faults;
    ++live;
  }
  Tracked& operator=(Tracked&&) = delete;
  ~Tracked() {
    if (!sound()) ++faults;
    magic = 0;
    --live;
  }
  bool sound() const { return magic == kAlive && self == this; }

  uint32_t key;
  std::unique_ptr<uint32_t> payload;
  uint32_t magic = kAlive;
  const Tracked* self = this;
};
struct TrackedKey {
  const uint32_t& operator()(const Tracked& t) const noexcept { return t.key; }
};
using TrackedTable = Kel::HashTable<Tracked, TrackedKey, uint32_t, WeakHash>;
static_assert(!Kel::IsTriviallyRelocatable<Tracked>::value);

TEST(HashTable, MoveOnlyElementsAreDestroyedExactlyOnce) {
  Tracked::live = 0;
  Tracked::faults = 0;
  {
    TrackedTable table;
    std::mt19937 rng(11);
    for (int i = 0; i < 3000; ++i) {
      uint32_t key = rng() % 500;
      switch (rng() % 4) {
        case 0:
        case 1: table.insert(Tracked(key, key)); break;
        case 2: table.insertOrAssign(Tracked(key, key + 1)); break;
        default: table.erase(key);
      }
      ASSERT_EQ(Tracked::live, static_cast<int>(table.size()));
    }
    ASSERT_TRUE(table.invariantsHold());
    for (const Tracked& t : table) {
      ASSERT_TRUE(t.sound());
      ASSERT_TRUE(t.payload && (*t.payload == t.key || *t.payload == t.key + 1)) << t.key;
    }
    TrackedTable moved(std::move(table));
    EXPECT_TRUE(table.empty());
    EXPECT_EQ(Tracked::live, static_cast<int>(moved.size()));
    TrackedTable assigned;
    assigned.insert(Tracked(9999, 0));
    assigned = std::move(moved);
    EXPECT_EQ(Tracked::live, static_cast<int>(assigned.size()));
    bool eraseThis = false;
    for (auto it = assigned.begin(); it != assigned.end();) {
      it = (eraseThis = !eraseThis) ? assigned.erase(it) : std::next(it);
    }
    EXPECT_EQ(Tracked::live, static_cast<int>(assigned.size()));
    TrackedTable cleared;
    cleared.insert(Tracked(1, 1));
    cleared.clear();
    EXPECT_EQ(Tracked::live, static_cast<int>(assigned.size()));
  }
  EXPECT_EQ(Tracked::live, 0);
  EXPECT_EQ(Tracked::faults, 0);
}

struct Counted : Kel::PtrInterface {
  static inline int deleted = 0;
  ~Counted() override { ++deleted; }
};

TEST(HashTable, CountedPointersMovedBytewiseKeepTheirCounts) {
  static_assert(Kel::IsTriviallyRelocatable<Kel::MapEntry<uint32_t, Kel::Ptr<Counted>>>::value);
  Counted::deleted = 0;
  std::vector<Kel::Ptr<Counted>> objects;
  for (int i = 0; i < 1000; ++i) objects.emplace_back(new Counted);
  {
    Kel::HashMap<uint32_t, Kel::Ptr<Counted>, WeakHash> table;
    for (uint32_t k = 0; k < 1000; ++k) table.insert({k, objects[k]});
    for (uint32_t k = 0; k < 1000; k += 2) table.erase(k);
    for (uint32_t k = 0; k < 1000; ++k) {
      ASSERT_EQ(objects[k]->references(), k % 2 ? 2u : 1u) << k;
      if (k % 2) {
        ASSERT_EQ(table.find(k)->value.get(), objects[k].get());
      }
    }
  }
  for (auto& p : objects) EXPECT_EQ(p->references(), 1u);
  objects.clear();
  EXPECT_EQ(Counted::deleted, 1000);
}

TEST(HashTable, EraseOfNonElementIteratorAsserts) {
  Kel::ScopedThrowingAsserts throwing;
  Kel::HashSet<uint32_t> table;
  table.insert(7);
  EXPECT_THAT([&] { table.erase(table.end()); },
              testing::ThrowsMessage<Kel::AssertionException>(
                  testing::StrEq("HashTable::erase: iterator does not point at an element")));
  EXPECT_EQ(table.size(), 1u);
}

}  // namespace
