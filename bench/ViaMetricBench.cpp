// A via-metric change, fanned out through the reverse index, at up to a million routes.
//
// The table: N IPv4 /24 routes in one status, each with one alternative. Every route lists a
// background via shared with nine neighbours; odd routes list a second via, which for a chosen
// stride is one of the hot vias: the hot via of fan-out K is used by exactly K routes, spread over
// the whole table. A benchmark changes the metric of one hot via and lets the machine stamp its
// users.
//
// Three ways to reach the same stamps, run in this order for each (N, K):
//   plain   writes routeChangedAt on a ready-made list of the K users: the floor;
//   scan    walks the whole table for alternatives that list the via: what no index costs;
//   fanout  publishes the metric and lets ViaMetricStatusSm do it.
// fanout reports `ns_per_route` (per stamped route), `vs_plain` and `vs_scan` (time ratios against
// the runs of the same N and K above; absent when a filter skipped them), and the memory figures
// of its table, measured with mallinfo2 around building it: `table_B_per_route` (the route table
// itself), `machine_B_per_route` (reactors and index), `index_B_per_pair` (the index alone, per
// (route alternative, via) pair, measured by dropping and rebuilding it).
// The fan-out should grow with K and stay flat in N; the scan grows with N.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "platform/kel/Time.h"
#include "platform/rib/ViaMetric.h"
#include "platform/rib/ViaSet.h"
#include "routestatus/ProtocolRouteStatus.h"
#include "viametric/ProtocolViaMetricStatusSm.h"

namespace {

using Routing::Protocol::Route;
using Routing::Protocol::RouteStatusDir;
using Routing::Protocol::RouteStatusKey;
using Routing::Protocol::Status;
using Routing::Protocol::ViaMetricStatusSm;
namespace Rib = Routing::Rib;

constexpr size_t kFanOuts[] = {10, 1'000, 100'000};

size_t heapBytes() {
  struct mallinfo2 m = mallinfo2();
  return m.uordblks + m.hblkhd;
}

Kel::ManualTimeSource& clock() {
  static Kel::ManualTimeSource source(1.0);
  static Kel::ScopedTimeSource installed(source);
  return source;
}

Rib::ViaKey viaAt(uint32_t hostOrder) {
  return Rib::ViaKey(Rib::Transport::ipv4, 0, Rib::RoutingProtocol::staticConfig,
                     Velnet::IpAddr::fromHostOrder(hostOrder), Velnet::IntfId(), 0);
}

// The hot via of fan-out number j, and which routes use it: the odd routes i with
// i % stride == 2j + 1, stride = N / K (a multiple of 10, so the three sets are disjoint).
Rib::ViaKey hotVia(size_t k) { return viaAt((200u << 24) + static_cast<uint32_t>(k)); }

struct Table {
  Rib::ViaMetricStatusByVrf::Ptr rib = Rib::viaMetricStatusByVrfFactory();
  RouteStatusDir::Ptr dir = Routing::Protocol::routeStatusDirFactory();
  Status::Ptr status;
  Rib::ViaMetricStatus::Ptr metrics;
  ViaMetricStatusSm::Ptr sm;
  std::map<size_t, std::vector<Route::Ptr>> usersOf;
  size_t pairs = 0;
  double tableBytesPerRoute = 0;
  double machineBytesPerRoute = 0;
  double indexBytesPerPair = 0;
};

bool fanOutFits(size_t n, size_t k) { return n / k >= 10 && n % k == 0; }

Table& table(size_t n) {
  static std::map<size_t, std::unique_ptr<Table>> tables;
  std::unique_ptr<Table>& slot = tables[n];
  if (slot) return *slot;
  clock();
  slot = std::make_unique<Table>();
  Table& t = *slot;

  size_t before = heapBytes();
  t.status = Routing::Protocol::statusFactory(RouteStatusKey(0, Velnet::AddressFamily::ipv4));
  t.dir->statusIs(t.status);
  for (size_t i = 0; i < n; ++i) {
    const auto index = static_cast<uint32_t>(i);
    auto route = t.status->routeIs(
        Velnet::IpGenPrefix(Velnet::IpAddr::fromHostOrder((16u << 24) + (index << 8)), 24));
    auto routePref = route->routePrefIs(1);
    routePref->dedupViaKeyIs(Rib::dedupViaKeyIs(viaAt((100u << 24) + index / 10)));
    ++t.pairs;
    if (i % 2 == 0) continue;
    Rib::ViaKey second = viaAt((150u << 24) + index / 10);
    for (size_t j = 0; j < std::size(kFanOuts); ++j) {
      const size_t k = kFanOuts[j];
      if (fanOutFits(n, k) && i % (n / k) == 2 * j + 1) {
        second = hotVia(k);
        t.usersOf[k].push_back(route);
      }
    }
    routePref->dedupViaKeyIs(Rib::dedupViaKeyIs(second));
    ++t.pairs;
  }
  t.tableBytesPerRoute = static_cast<double>(heapBytes() - before) / static_cast<double>(n);

  t.metrics = t.rib->viaMetricStatusIs(0, Rib::Transport::ipv4, Rib::RoutingProtocol::staticConfig);
  for (const auto& [k, users] : t.usersOf)
    t.metrics->viaMetricIs(hotVia(k), Rib::ViaMetric(1, 1, false));

  before = heapBytes();
  t.sm = Routing::Protocol::viaMetricStatusSmFactory(t.rib, t.dir);
  t.machineBytesPerRoute = static_cast<double>(heapBytes() - before) / static_cast<double>(n);
  // The index alone: what dropping it gives back. Then it is built again, as a status would be.
  before = heapBytes();
  t.sm->routeByViaKeyDelAll();
  t.indexBytesPerPair = static_cast<double>(before - heapBytes()) / static_cast<double>(t.pairs);
  t.sm->handleRouteStatus(t.status->key(), false);
  return t;
}

// Time per change of the baselines, by (N, K), for the ratios.
std::map<std::pair<size_t, size_t>, double>& plainNs() {
  static std::map<std::pair<size_t, size_t>, double> m;
  return m;
}
std::map<std::pair<size_t, size_t>, double>& scanNs() {
  static std::map<std::pair<size_t, size_t>, double> m;
  return m;
}

// Runs `change` once per iteration and returns the mean wall time of one, in nanoseconds.
template <class F>
double timeChanges(benchmark::State& state, F&& change) {
  auto start = std::chrono::steady_clock::now();
  for (auto _ : state) change();
  auto elapsed =
      std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
  return elapsed / static_cast<double>(state.iterations());
}

bool prepare(benchmark::State& state, size_t& n, size_t& k) {
  n = static_cast<size_t>(state.range(0));
  k = static_cast<size_t>(state.range(1));
  if (!fanOutFits(n, k)) {
    state.SkipWithError("fan-out does not fit the table");
    return false;
  }
  table(n);
  return true;
}

void viaMetricPlain(benchmark::State& state) {
  size_t n, k;
  if (!prepare(state, n, k)) return;
  const auto& users = table(n).usersOf.at(k);
  double ns = timeChanges(state, [&] {
    clock().advance(1.0);
    for (const Route::Ptr& route : users) route->routeChangedAtIs(Kel::currentTime());
  });
  plainNs()[{n, k}] = ns;
  state.counters["ns_per_route"] = ns / static_cast<double>(k);
}

void viaMetricScan(benchmark::State& state) {
  size_t n, k;
  if (!prepare(state, n, k)) return;
  Table& t = table(n);
  const Rib::ViaKey via = hotVia(k);
  size_t stamped = 0;
  double ns = timeChanges(state, [&] {
    clock().advance(1.0);
    stamped = 0;
    for (const Route::Ptr& route : t.status->routeColl()) {
      for (const auto& routePref : route->routePrefColl()) {
        if (!routePref->dedupViaKeyHas(via)) continue;
        route->routeChangedAtIs(Kel::currentTime());
        ++stamped;
      }
    }
  });
  if (stamped != k) state.SkipWithError("scan stamped the wrong number of routes");
  scanNs()[{n, k}] = ns;
  state.counters["ns_per_route"] = ns / static_cast<double>(k);
}

void viaMetricFanOut(benchmark::State& state) {
  size_t n, k;
  if (!prepare(state, n, k)) return;
  Table& t = table(n);
  const Rib::ViaKey via = hotVia(k);
  uint32_t metric = 1;
  double ns = timeChanges(state, [&] {
    clock().advance(1.0);
    t.metrics->viaMetricIs(via, Rib::ViaMetric(++metric, 1, false));
  });
  // Every user, and only they, carry the last change's stamp.
  const double last = clock().time();
  size_t stamped = 0;
  for (const Route::Ptr& route : t.status->routeColl()) stamped += route->routeChangedAt() == last;
  for (const Route::Ptr& route : t.usersOf.at(k)) {
    if (route->routeChangedAt() != last) stamped = 0;
  }
  if (stamped != k) state.SkipWithError("the fan-out stamped the wrong routes");

  state.counters["routes_stamped"] = static_cast<double>(k);
  state.counters["ns_per_route"] = ns / static_cast<double>(k);
  if (auto it = plainNs().find({n, k}); it != plainNs().end())
    state.counters["vs_plain"] = ns / it->second;
  if (auto it = scanNs().find({n, k}); it != scanNs().end())
    state.counters["vs_scan"] = ns / it->second;
  state.counters["table_B_per_route"] = t.tableBytesPerRoute;
  state.counters["machine_B_per_route"] = t.machineBytesPerRoute;
  state.counters["index_B_per_pair"] = t.indexBytesPerPair;
}

void fanOutArgs(benchmark::internal::Benchmark* b) {
  for (int64_t n : {10'000, 100'000, 1'000'000}) {
    for (size_t k : kFanOuts) {
      if (fanOutFits(static_cast<size_t>(n), k)) b->Args({n, static_cast<int64_t>(k)});
    }
  }
  b->ArgNames({"routes", "K"})->Unit(benchmark::kMicrosecond);
}

BENCHMARK(viaMetricPlain)->Apply(fanOutArgs);
BENCHMARK(viaMetricScan)->Apply(fanOutArgs);
BENCHMARK(viaMetricFanOut)->Apply(fanOutArgs);

}  // namespace
