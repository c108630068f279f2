#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
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
  std::vector<std::pair<std::pair<uint32_t, uint32_t>, uint32_t>> seen;
  for (const Entry& e : table) {
    walk.emplace_back(e.key, e.value);
    seen.push_back({{revOf<H>(e.key), e.key}, e.value});
  }
  for (size_t i = 1; i < seen.size(); ++i) ASSERT_LE(seen[i - 1].first.first, seen[i].first.first);
  std::sort(seen.begin(), seen.end());
  std::vector<std::pair<std::pair<uint32_t, uint32_t>, uint32_t>> expected(model.begin(),
                                                                           model.end());
  ASSERT_EQ(seen, expected);
  std::vector<std::pair<uint32_t, uint32_t>> again;
  for (const Entry& e : table) again.emplace_back(e.key, e.value);
  ASSERT_EQ(walk, again);
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
        auto it = byKey.find(key);
        ASSERT_EQ(found != nullptr, it != byKey.end());
        if (found) {
          ASSERT_EQ(found->value, it->second);
        }
      }
    }
    expectMatchesModel<H>(table, model);
    if (!byKey.empty())
      expectResumesAt<H>(table, std::next(byKey.begin(), rng() % byKey.size())->first);
    uint32_t absent = keySpace + rng() % 1000;
    expectResumesAt<H>(table, absent);
    if (lastErased != keySpace) expectResumesAt<H>(table, lastErased);
  }
}

TEST(HashTable, MatchesOrderedModelUnderRandomOperations) {
  for (uint32_t seed : {1u, 2u, 3u, 4u}) runModel<Kel::Hash<uint32_t>>(seed, 4000, 40);
}

TEST(HashTable, MatchesModelWhenWeakHashMakesLongRuns) {
  for (uint32_t seed : {5u, 6u}) runModel<WeakHash>(seed, 600, 24);
}

TEST(HashTable, MatchesModelWhenHundredsOfKeysShareOneHash) {
  for (uint32_t seed : {7u, 8u}) runModel<ConstantForFewHundred>(seed, 1200, 24);
}

TEST(HashTable, MatchesModelWhenRevsLookLikeEmptySlots) {
  for (uint32_t seed : {9u, 10u}) runModel<AllOnesForSome>(seed, 2000, 30);
}

TEST(HashTable, OrderDependsOnKeysNotOnHistory) {
  Map<Kel::Hash<uint32_t>> forward;
  Map<Kel::Hash<uint32_t>> backward;
  for (uint32_t k = 0; k < 3000; ++k) forward.insert(Entry{k, k});
  for (uint32_t k = 6000; k-- > 0;) backward.insert(Entry{k, k});
  // Draining most of `backward` shrinks it into a different layout history.
  for (uint32_t k = 3000; k < 6000; ++k) backward.erase(k);
  std::vector<uint32_t> a;
  std::vector<uint32_t> b;
  for (const Entry& e : forward) a.push_back(e.key);
  for (const Entry& e : backward) b.push_back(e.key);
  EXPECT_EQ(a, b);
}

TEST(HashTable, ResumesAtHashOfDeletedKey) {
  Map<Kel::Hash<uint32_t>> table;
  for (uint32_t k = 0; k < 1000; ++k) table.insert(Entry{k, k});
  // Walk a third of the way, bookmark the next key, then delete it.
  auto it = table.begin();
  for (int i = 0; i < 333; ++i) ++it;
  uint32_t bookmark = it->key;
  uint32_t bookmarkRev = revOf<Kel::Hash<uint32_t>>(bookmark);
  std::set<uint32_t> expected;
  for (const Entry& e : table) {
    if (revOf<Kel::Hash<uint32_t>>(e.key) > bookmarkRev) expected.insert(e.key);
  }
  ASSERT_TRUE(table.erase(bookmark));
  std::set<uint32_t> resumed;
  for (auto r = table.lowerBoundHash(Kel::Hash<uint32_t>()(bookmark)); r != table.end(); ++r) {
    resumed.insert(r->key);
  }
  EXPECT_EQ(resumed, expected);
}

TEST(HashTable, ResumeAfterPauseSeesInsertsAndRegrowth) {
  using H = Kel::Hash<uint32_t>;
  Map<H> table;
  for (uint32_t k = 0; k < 100; ++k) table.insert(Entry{k, k});
  auto it = table.begin();
  for (int i = 0; i < 50; ++i) ++it;
  uint32_t bookmark = it->key;
  size_t bytesBefore = table.bytesUsed();
  for (uint32_t k = 100; k < 5000; ++k) table.insert(Entry{k, k});
  ASSERT_GT(table.bytesUsed(), bytesBefore);
  std::vector<uint32_t> resumed;
  for (auto r = table.lowerBoundHash(H()(bookmark)); r != table.end(); ++r)
    resumed.push_back(r->key);
  std::vector<uint32_t> expected;
  for (const Entry& e : table) {
    if (revOf<H>(e.key) >= revOf<H>(bookmark)) expected.push_back(e.key);
  }
  EXPECT_EQ(resumed, expected);
  EXPECT_EQ(resumed.front(), bookmark);
}

TEST(HashTable, LowerBoundOnEmptyTableIsEnd) {
  Map<Kel::Hash<uint32_t>> table;
  EXPECT_TRUE(table.lowerBoundHash(0) == table.end());
  EXPECT_TRUE(std::as_const(table).lowerBoundHash(0xFFFFFFFFu) == std::as_const(table).end());
  EXPECT_TRUE(table.begin() == table.end());
  table.insert(Entry{1, 1});
  table.erase(1);
  EXPECT_TRUE(table.lowerBoundHash(12345) == table.end());
  EXPECT_EQ(table.bytesUsed(), 0u);
}

TEST(HashTable, LowerBoundPastLastElementIsEnd) {
  Map<Kel::Hash<uint32_t>> table;
  uint32_t maxRev = 0;
  for (uint32_t k = 0; k < 200; ++k) {
    table.insert(Entry{k, k});
    maxRev = std::max(maxRev, revOf<Kel::Hash<uint32_t>>(k));
  }
  ASSERT_LT(maxRev, 0xFFFFFFFFu);
  EXPECT_TRUE(table.lowerBoundHash(Kel::bitReverse32(maxRev + 1)) == table.end());
  EXPECT_EQ(revOf<Kel::Hash<uint32_t>>(table.lowerBoundHash(Kel::bitReverse32(maxRev))->key),
            maxRev);
}

// What a walk prefetches ahead of its lookups: exactly the elements sharing the key's hash,
// found from the key's home slot however long the run that holds them.
TEST(HashTable, HashMatchesAreTheElementsSharingTheKeysHash) {
  Map<ConstantForFewHundred> table;
  for (uint32_t k = 0; k < 2000; k += 2) table.insert(Entry{k, k + 1});
  const auto matches = [&](uint32_t key) {
    std::set<uint32_t> seen;
    table.forHashMatches(key, [&](const Entry& e) { seen.insert(e.key); });
    return seen;
  };
  for (uint32_t key = 0; key < 2100; ++key) {  // present and absent keys, shared hashes or not
    std::set<uint32_t> expected;
    for (uint32_t k = 0; k < 2000; k += 2) {
      if (ConstantForFewHundred()(k) == ConstantForFewHundred()(key)) expected.insert(k);
    }
    ASSERT_EQ(matches(key), expected) << key;
  }
  EXPECT_EQ(matches(7).size(), 200u);  // the run of the keys below 400
  table.prefetch(1000);  // a hint only: nothing changes
  EXPECT_EQ(table.size(), 1000u);
  Map<ConstantForFewHundred> empty;
  empty.forHashMatches(3, [](const Entry&) { ADD_FAILURE() << "an empty table has no elements"; });
}

TEST(HashTable, EraseEveryOtherDuringWalkKeepsTheRest) {
  for (uint32_t n : {1u, 2u, 5u, 37u, 2000u}) {
    Map<WeakHash> table;
    for (uint32_t k = 0; k < n; ++k) table.insert(Entry{k, k});
    std::vector<uint32_t> order;
    for (const Entry& e : table) order.push_back(e.key);
    std::vector<uint32_t> visited;
    std::vector<uint32_t> kept;
    bool eraseThis = true;
    for (auto it = table.begin(); it != table.end();) {
      visited.push_back(it->key);
      if (eraseThis) {
        it = table.erase(it);
      } else {
        kept.push_back(it->key);
        ++it;
      }
      eraseThis = !eraseThis;
    }
    EXPECT_EQ(visited, order) << n;
    ASSERT_TRUE(table.invariantsHold());
    std::vector<uint32_t> rest;
    for (const Entry& e : table) rest.push_back(e.key);
    EXPECT_EQ(rest, kept) << n;
  }
}

TEST(HashTable, ErasingKeepsRunsShortAndGivesMemoryBack) {
  // Worked off in iteration order, the keys left hold the far end of the hash order: a smaller
  // table would pile them into one run that every further erase shifts whole.
  Map<Kel::Hash<uint32_t>> walked;
  for (uint32_t k = 0; k < 20000; ++k) walked.insert(Entry{k, k});
  std::vector<uint32_t> order;
  for (const Entry& e : walked) order.push_back(e.key);
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
  std::vector<uint32_t> keys;
  for (uint32_t k = 0; k < 20000; ++k) {
    scattered.insert(Entry{k, k});
    keys.push_back(k);
  }
  const size_t peak = scattered.bytesUsed();
  std::shuffle(keys.begin(), keys.end(), std::mt19937(7));
  for (size_t i = 0; i < 19000; ++i) ASSERT_TRUE(scattered.erase(keys[i]));
  EXPECT_LT(scattered.bytesUsed(), peak / 4);
  EXPECT_TRUE(scattered.invariantsHold());
  for (size_t i = 19000; i < keys.size(); ++i) EXPECT_TRUE(scattered.contains(keys[i]));
}

TEST(HashTable, ReserveAvoidsRegrowth) {
  Map<Kel::Hash<uint32_t>> table;
  table.reserve(10000);
  size_t reserved = table.bytesUsed();
  ASSERT_GT(reserved, 10000 * sizeof(Entry));
  // Keys whose reversed hashes are spread evenly: no run grows long, so nothing regrows.
  for (uint32_t k = 0; k < 10000; ++k) table.insert(Entry{k, ~k});
  EXPECT_LE(table.bytesUsed(), reserved * 4 / 3 + 64);
  for (uint32_t k = 0; k < 10000; ++k) ASSERT_EQ(table.find(k)->value, ~k);
  EXPECT_TRUE(table.invariantsHold());
}

TEST(HashTable, ImpossibleReserveThrowsAndKeepsContents) {
  Map<Kel::Hash<uint32_t>> table;
  for (uint32_t k = 0; k < 10; ++k) table.insert(Entry{k, k});
  EXPECT_THROW(table.reserve(SIZE_MAX), Kel::RangeException);
  EXPECT_THROW(table.reserve(SIZE_MAX / 2), Kel::RangeException);
  EXPECT_EQ(table.size(), 10u);
  for (uint32_t k = 0; k < 10; ++k) EXPECT_TRUE(table.contains(k));
  EXPECT_TRUE(table.invariantsHold());
}

TEST(HashTable, EmptyAndTinyTablesStaySmall) {
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
}

// A tiny table regrows at every insert and takes the slots its elements need, with none spare:
// two elements with different home slots fit in two, whichever arrives first. Every alternative
// of every route has such a table.
TEST(HashTable, TinyTablesTakeOnlyTheSlotsTheirElementsNeed) {
  struct Identity {  // in a table of two home slots, the lowest bit of the key picks the home
    uint32_t operator()(uint32_t k) const noexcept { return k; }
  };
  Map<Identity> reserved;
  reserved.reserve(2);
  Map<Identity> apart;
  for (uint32_t k : {3u, 2u}) apart.insert({k, k});  // the later one goes before the earlier
  EXPECT_EQ(apart.bytesUsed(), reserved.bytesUsed());
  Map<Identity> together;
  for (uint32_t k : {3u, 1u}) together.insert({k, k});  // one home: the second needs a third slot
  EXPECT_GT(together.bytesUsed(), reserved.bytesUsed());
  for (uint32_t k : {2u, 3u}) EXPECT_TRUE(apart.contains(k));
  for (uint32_t k : {1u, 3u}) EXPECT_TRUE(together.contains(k));
}

TEST(HashTable, KeysArrivingInHashOrderDoNotPileUp) {
  // A walk of one table in iteration order inserting into another: the keys arrive sorted by
  // reversed hash, all in the low part of the order while the walk is young, where they would
  // pile up far from their home slots and make every lookup a long scan.
  Map<Kel::Hash<uint32_t>> source;
  for (uint32_t k = 0; k < 20000; ++k) source.insert(Entry{k, k});
  Map<Kel::Hash<uint32_t>> target;
  size_t inserted = 0;
  for (const auto& e : source) {
    target.insert(Entry{e.key, e.value});
    if (++inserted == 2000) break;  // a tenth of the order: the keys fill a narrow range
  }
  EXPECT_TRUE(target.invariantsHold());
  EXPECT_LE(target.longestDisplacement(), 260u);
}

TEST(HashTable, LookupsAcrossRunsOfThousandsFindEveryKey) {
  // The first keys of a large table's order, copied in that order: the target stops growing for
  // them at an eighth of its load, and they pile into runs thousands of slots long, which lookups,
  // inserts and resumes search by galloping rather than slot by slot.
  Map<Kel::Hash<uint32_t>> source;
  for (uint32_t k = 0; k < 200000; ++k) source.insert(Entry{k, k});
  Map<Kel::Hash<uint32_t>> target;
  std::vector<uint32_t> copied;
  for (const auto& e : source) {
    target.insert(Entry{e.key, ~e.key});
    copied.push_back(e.key);
    if (copied.size() == 3000) break;
  }
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

TEST(HashTable, FloodOfEqualHashesCostsLinearMemory) {
  Map<ConstantForFewHundred> table;
  for (uint32_t k = 0; k < 400; ++k) table.insert(Entry{k, k});
  EXPECT_TRUE(table.invariantsHold());
  EXPECT_LT(table.bytesUsed(), 400 * (sizeof(Entry) + sizeof(uint32_t)) * 3);
  for (uint32_t k = 0; k < 400; ++k) ASSERT_TRUE(table.contains(k));
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
      ASSERT_TRUE(t.payload);
      ASSERT_TRUE(*t.payload == t.key || *t.payload == t.key + 1);
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

TEST(HashTable, InsertKeepsExistingAndInsertOrAssignReplaces) {
  Kel::HashMap<std::string, std::string> table;
  EXPECT_TRUE(table.insert({"via", "first"}).second);
  auto [kept, inserted] = table.insert({"via", "second"});
  EXPECT_FALSE(inserted);
  EXPECT_EQ(kept->value, "first");
  EXPECT_EQ(table.insertOrAssign({"via", "third"})->value, "third");
  EXPECT_EQ(table.size(), 1u);
  EXPECT_EQ(table.find("via")->value, "third");
}

TEST(HashTable, EraseOfNonElementIteratorAsserts) {
  Kel::ScopedThrowingAsserts throwing;
  Kel::HashSet<uint32_t> table;
  table.insert(7);
  try {
    table.erase(table.end());
    FAIL() << "no assertion";
  } catch (const Kel::AssertionException& e) {
    EXPECT_STREQ(e.what(), "HashTable::erase: iterator does not point at an element");
  }
  EXPECT_EQ(table.size(), 1u);
}

}  // namespace
