// Kel::HashMap against std::unordered_map at a million entries, in the same run.
//
// Run by `protorib-bench micro`. Each benchmark reports `ns_per_op` and `bytes_per_entry` (heap
// growth around building the table, malloc's blocks and mapped ones alike, so both maps pay their
// allocator's overhead). The Kel runs also report `ns_ratio` and `bytes_ratio` (Kel / std)
// against the std run of the same operation and key, which runs first; they are absent when a
// filter skipped that std run.
//
// Both maps use the framework's hash, so the comparison is about the tables, not the hashes.
// "resume" is where a sliced walk picks up again: for Kel, lowerBoundHash of a random hash (the
// bookmark may be gone) and reading one element; std::unordered_map has no order to resume in,
// so its nearest equivalent is finding a bookmark that is still present and reading one element.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "bench/BenchWorld.h"
#include "platform/kel/Hash.h"
#include "platform/kel/HashTable.h"

namespace {

constexpr size_t kEntries = 1'000'000;

// A 20-byte key, the size of a small route key.
struct Key20 {
  uint32_t w[5];

  uint32_t hash() const noexcept {
    Kel::OneAtATime h;
    for (uint32_t x : w) h.addLe32(x);
    return h.value();
  }
  bool operator==(const Key20&) const = default;
};

struct StdHashOf {
  template <class K>
  size_t operator()(const K& k) const noexcept {
    return Kel::Hash<K>()(k);
  }
};

template <class K>
K keyFrom(std::mt19937_64& rng);
template <>
uint64_t keyFrom<uint64_t>(std::mt19937_64& rng) {
  return rng();
}
template <>
Key20 keyFrom<Key20>(std::mt19937_64& rng) {
  Key20 k;
  for (uint32_t& x : k.w) x = static_cast<uint32_t>(rng());
  return k;
}

template <class K>
const char* keyName();
template <>
const char* keyName<uint64_t>() {
  return "u64";
}
template <>
const char* keyName<Key20>() {
  return "key20";
}

// Distinct random keys, in insertion order.
template <class K>
const std::vector<K>& keys() {
  static const std::vector<K> all = [] {
    std::mt19937_64 rng(42);
    std::vector<K> v;
    v.reserve(kEntries);
    Kel::HashSet<K> seen;
    while (v.size() < kEntries) {
      K k = keyFrom<K>(rng);
      if (seen.insert(k).second) v.push_back(k);
    }
    return v;
  }();
  return all;
}

// The same keys in another order, so that lookups do not follow insertion order.
template <class K>
const std::vector<K>& shuffledKeys() {
  static const std::vector<K> all = [] {
    std::vector<K> v = keys<K>();
    std::shuffle(v.begin(), v.end(), std::mt19937_64(7));
    return v;
  }();
  return all;
}

// The same keys in the Kel table's iteration order: what a walk of one table copying into
// another inserts, the reversed hashes ascending.
template <class K>
const std::vector<K>& hashOrderedKeys() {
  static const std::vector<K> all = [] {
    Kel::HashSet<K> set;
    for (const K& k : keys<K>()) set.insert(k);
    return std::vector<K>(set.begin(), set.end());
  }();
  return all;
}

void* valueFor(size_t i) { return reinterpret_cast<void*>((i + 1) * 8); }

// Large Kel tables are mapped beside malloc, so mallinfo2 alone would not see them.
size_t heapBytes() { return Bench::heapInUse(); }

template <class K>
struct KelMap {
  static constexpr const char* kName = "kel";
  Kel::HashMap<K, void*> map;

  void insert(const K& k, void* v) { map.insert({k, v}); }
  void* find(const K& k) {
    auto* e = map.find(k);
    return e ? e->value : nullptr;
  }
  uintptr_t walk() {
    uintptr_t sum = 0;
    for (const auto& e : map) sum += reinterpret_cast<uintptr_t>(e.value);
    return sum;
  }
  void* resume(const K&, uint32_t hash) {
    auto it = map.lowerBoundHash(hash);
    return it == map.end() ? nullptr : it->value;
  }
};

template <class K>
struct StdMap {
  static constexpr const char* kName = "std";
  std::unordered_map<K, void*, StdHashOf> map;

  void insert(const K& k, void* v) { map.emplace(k, v); }
  void* find(const K& k) {
    auto it = map.find(k);
    return it == map.end() ? nullptr : it->second;
  }
  uintptr_t walk() {
    uintptr_t sum = 0;
    for (const auto& e : map) sum += reinterpret_cast<uintptr_t>(e.second);
    return sum;
  }
  void* resume(const K& bookmark, uint32_t) {
    auto it = map.find(bookmark);
    if (it == map.end()) return nullptr;
    ++it;
    return it == map.end() ? nullptr : it->second;
  }
};

struct Figures {
  double nsPerOp;
  double bytesPerEntry;
};
// The std figures of each operation and key, for the ratios of the Kel run that follows.
std::map<std::string, Figures>& stdFigures() {
  static std::map<std::string, Figures> figures;
  return figures;
}

// Times `body` (which performs `opsPerRun` operations) once per benchmark iteration.
template <class Body>
double timeRuns(benchmark::State& state, size_t opsPerRun, Body body) {
  double totalNs = 0;
  size_t totalOps = 0;
  for (auto _ : state) {
    auto start = std::chrono::steady_clock::now();
    body();
    auto ns = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start);
    state.SetIterationTime(ns.count() * 1e-9);
    totalNs += ns.count();
    totalOps += opsPerRun;
  }
  return totalNs / static_cast<double>(totalOps);
}

template <template <class> class Adapter, class K>
void report(benchmark::State& state, const char* op, double nsPerOp, double bytesPerEntry) {
  std::string key = std::string(op) + "/" + keyName<K>();
  state.counters["ns_per_op"] = nsPerOp;
  state.counters["bytes_per_entry"] = bytesPerEntry;
  state.SetLabel(std::string(Adapter<K>::kName) + " " + key);
  if (std::string(Adapter<K>::kName) == "std") {
    stdFigures()[key] = {nsPerOp, bytesPerEntry};
    return;
  }
  auto it = stdFigures().find(key);
  if (it == stdFigures().end()) return;
  state.counters["ns_ratio"] = nsPerOp / it->second.nsPerOp;
  state.counters["bytes_ratio"] = bytesPerEntry / it->second.bytesPerEntry;
}

// Builds a full table and measures what its heap blocks cost per entry.
template <template <class> class Adapter, class K>
std::unique_ptr<Adapter<K>> build(double& bytesPerEntry) {
  const auto& ks = keys<K>();
  auto m = std::make_unique<Adapter<K>>();
  size_t before = heapBytes();
  for (size_t i = 0; i < ks.size(); ++i) m->insert(ks[i], valueFor(i));
  bytesPerEntry = static_cast<double>(heapBytes() - before) / static_cast<double>(ks.size());
  return m;
}

template <template <class> class Adapter, class K>
void hashTableInsert(benchmark::State& state) {
  const auto& ks = keys<K>();
  double bytesPerEntry = 0;
  build<Adapter, K>(bytesPerEntry);
  std::unique_ptr<Adapter<K>> m;
  double ns = timeRuns(state, ks.size(), [&] {
    m = std::make_unique<Adapter<K>>();
    for (size_t i = 0; i < ks.size(); ++i) m->insert(ks[i], valueFor(i));
    benchmark::ClobberMemory();
  });
  report<Adapter, K>(state, "insert", ns, bytesPerEntry);
}

// Inserting keys that arrive in hash order into an empty table.
template <template <class> class Adapter, class K>
void hashTableCopyInOrder(benchmark::State& state) {
  const auto& ks = hashOrderedKeys<K>();
  double bytesPerEntry = 0;
  build<Adapter, K>(bytesPerEntry);
  std::unique_ptr<Adapter<K>> m;
  double ns = timeRuns(state, ks.size(), [&] {
    m = std::make_unique<Adapter<K>>();
    for (size_t i = 0; i < ks.size(); ++i) m->insert(ks[i], valueFor(i));
    benchmark::ClobberMemory();
  });
  report<Adapter, K>(state, "copy in order", ns, bytesPerEntry);
}

template <template <class> class Adapter, class K>
void hashTableLookup(benchmark::State& state) {
  double bytesPerEntry = 0;
  auto m = build<Adapter, K>(bytesPerEntry);
  const auto& ks = shuffledKeys<K>();
  double ns = timeRuns(state, ks.size(), [&] {
    for (const K& k : ks) benchmark::DoNotOptimize(m->find(k));
  });
  report<Adapter, K>(state, "lookup", ns, bytesPerEntry);
}

template <template <class> class Adapter, class K>
void hashTableIterate(benchmark::State& state) {
  double bytesPerEntry = 0;
  auto m = build<Adapter, K>(bytesPerEntry);
  double ns = timeRuns(state, kEntries, [&] { benchmark::DoNotOptimize(m->walk()); });
  report<Adapter, K>(state, "iterate", ns, bytesPerEntry);
}

template <template <class> class Adapter, class K>
void hashTableResume(benchmark::State& state) {
  double bytesPerEntry = 0;
  auto m = build<Adapter, K>(bytesPerEntry);
  const auto& bookmarks = shuffledKeys<K>();
  std::vector<uint32_t> hashes(bookmarks.size());
  std::mt19937 rng(3);
  for (uint32_t& h : hashes) h = static_cast<uint32_t>(rng());
  double ns = timeRuns(state, bookmarks.size(), [&] {
    for (size_t i = 0; i < bookmarks.size(); ++i) {
      benchmark::DoNotOptimize(m->resume(bookmarks[i], hashes[i]));
    }
  });
  report<Adapter, K>(state, "resume", ns, bytesPerEntry);
}

#define PROTORIB_HASH_BENCH(fn, K)                                                   \
  BENCHMARK_TEMPLATE(fn, StdMap, K)->UseManualTime()->Unit(benchmark::kMillisecond); \
  BENCHMARK_TEMPLATE(fn, KelMap, K)->UseManualTime()->Unit(benchmark::kMillisecond)

PROTORIB_HASH_BENCH(hashTableInsert, uint64_t);
PROTORIB_HASH_BENCH(hashTableCopyInOrder, uint64_t);
PROTORIB_HASH_BENCH(hashTableLookup, uint64_t);
PROTORIB_HASH_BENCH(hashTableIterate, uint64_t);
PROTORIB_HASH_BENCH(hashTableResume, uint64_t);
PROTORIB_HASH_BENCH(hashTableInsert, Key20);
PROTORIB_HASH_BENCH(hashTableCopyInOrder, Key20);
PROTORIB_HASH_BENCH(hashTableLookup, Key20);
PROTORIB_HASH_BENCH(hashTableIterate, Key20);
PROTORIB_HASH_BENCH(hashTableResume, Key20);

}  // namespace
