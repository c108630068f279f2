// Route leaking at scale: 10 source VRFs of 100,000 routes each, every route leaking into one of
// 10 destination VRFs, so that 1,000,000 routes end up in the destinations' LeakRouteConfigs (and,
// for the length of one review run alone, the same with a single source).
//
// Measured from the moment the VRFs are handed to the leak root until the loop is idle, which is
// when every destination's configuration is complete: the time, the longest single turn of the
// loop (the multiplexers' first passes run in 0.1-second slices), and the heap that the leak
// machinery takes per leaked route. Beside it, a plain non-reactive computation of the same
// destination tables from the same routes, so that the ratios show what the reactive design costs.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <chrono>
#include <string>
#include <unordered_map>
#include <vector>

#include "leak/ProtocolRouteLeakSm.h"
#include "platform/kel/Kel.h"
#include "platform/routing/RouteList.h"
#include "platform/vrf/VrfIdMap.h"

namespace Routing::Protocol {
namespace {

using Clock = std::chrono::steady_clock;
using Vrf::VrfIdMap::VrfId;

constexpr uint32_t kDestinations = 10;
constexpr VrfId kFirstSource = 1;
constexpr VrfId kFirstDestination = 101;

size_t heapInUse() {
  struct mallinfo2 mi = mallinfo2();
  return mi.uordblks + mi.hblkhd;
}

double seconds(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double>(b - a).count();
}

std::string vrfName(VrfId id) { return "vrf" + std::to_string(id); }

// Host routes, distinct across sources: source s, route i is s.i/32 in the low 24 bits.
Routing::RouteKey routeKey(uint32_t source, uint32_t i) {
  return Routing::RouteKey(Velnet::IpGenPrefix(
      Velnet::IpGenAddr(Velnet::IpAddr::fromHostOrder((source << 24) | i)), 32));
}

VrfId destinationOf(uint32_t i) { return kFirstDestination + i % kDestinations; }

struct RouteKeyHash {
  size_t operator()(const Routing::RouteKey& k) const noexcept { return k.hash(); }
};

void BM_LeakIntoTenDestinations(benchmark::State& state) {
  const uint32_t perSource = static_cast<uint32_t>(state.range(0));
  const uint32_t sourceCount = static_cast<uint32_t>(state.range(1));
  const double leaked = double(perSource) * sourceCount;
  for (auto _ : state) {
    Kel::activityManager().reset();
    auto map = Vrf::VrfIdMap::nameToIdMapFactory();
    std::vector<Routing::RouteList::Ptr> sources;
    for (uint32_t s = 0; s < sourceCount; ++s) {
      map->vrfIdIs(L3::VrfName(vrfName(kFirstSource + s)), kFirstSource + s);
      auto list = Routing::routeListFactory();
      for (uint32_t i = 0; i < perSource; ++i) {
        auto route = Routing::routeFactory(routeKey(kFirstSource + s, i));
        route->leakToVrfIs(L3::VrfName(vrfName(destinationOf(i))));
        list->routeIs(route);
      }
      sources.push_back(list);
    }
    for (uint32_t d = 0; d < kDestinations; ++d) {
      map->vrfIdIs(L3::VrfName(vrfName(kFirstDestination + d)), kFirstDestination + d);
    }

    // The leak machinery: the root, every VRF as a source and a destination, run to the end.
    const size_t heap0 = heapInUse();
    auto t0 = Clock::now();
    auto root = Leak::rootSmFactory(map);
    std::vector<LeakRouteConfig::Ptr> configs;
    Kel::activityManager().longestTurnIs(0);
    const uint64_t turns0 = Kel::activityManager().turns();
    for (uint32_t d = 0; d < kDestinations; ++d) {
      VrfIdAf vrf(kFirstDestination + d, Velnet::AddressFamily::ipv4);
      configs.push_back(leakRouteConfigFactory(vrf));
      root->createVrf(vrf, Routing::routeListFactory(), configs.back());
    }
    for (uint32_t s = 0; s < sourceCount; ++s) {
      VrfIdAf vrf(kFirstSource + s, Velnet::AddressFamily::ipv4);
      root->createVrf(vrf, sources[s], leakRouteConfigFactory(vrf));
    }
    Kel::activityManager().runUntilIdle();
    auto t1 = Clock::now();
    const size_t heap1 = heapInUse();
    size_t total = 0;
    for (const auto& c : configs) total += c->leakRoutes();
    if (total != size_t(leaked)) state.SkipWithError("a destination's configuration is incomplete");

    // The same destination tables, computed plainly from the same routes.
    const size_t heap2 = heapInUse();
    auto p0 = Clock::now();
    std::unordered_map<std::string, VrfId> ids;
    for (const auto& [name, id] : map->vrfIdColl()) ids.emplace(name.str(), id);
    std::unordered_map<VrfId,
                       std::unordered_map<Routing::RouteKey, const Routing::Route*, RouteKeyHash>>
        plain;
    for (uint32_t s = 0; s < sourceCount; ++s) {
      for (const auto& route : sources[s]->routeColl()) {
        auto it = ids.find(route->leakToVrf().str());
        if (it == ids.end() || it->second == kFirstSource + s) continue;
        // Sources are visited in ascending VRF id, so the first one to leak a key keeps it.
        plain[it->second].emplace(route->key(), route.get());
      }
    }
    auto p1 = Clock::now();
    const size_t heap3 = heapInUse();
    size_t plainTotal = 0;
    for (const auto& [id, dst] : plain) plainTotal += dst.size();
    if (plainTotal != total) state.SkipWithError("the plain computation disagrees");

    const double leakTime = seconds(t0, t1), plainTime = seconds(p0, p1);
    const double bytes = double(heap1 - heap0) / leaked,
                 plainBytes = double(heap3 - heap2) / leaked;
    state.counters["complete_ms"] = leakTime * 1e3;
    state.counters["leaked_routes_per_s"] = leaked / leakTime;
    state.counters["longest_turn_ms"] = Kel::activityManager().longestTurn() * 1e3;
    state.counters["turns"] = double(Kel::activityManager().turns() - turns0);
    state.counters["bytes_per_leaked_route"] = bytes;
    state.counters["plain_ms"] = plainTime * 1e3;
    state.counters["plain_bytes_per_route"] = plainBytes;
    state.counters["time_ratio"] = leakTime / plainTime;
    state.counters["memory_ratio"] = bytes / plainBytes;
    state.SetIterationTime(leakTime);
    root = nullptr;
  }
}
// {routes per source, sources}. With one source, the longest turn is one review run of its
// multiplexer; with ten, a turn runs the due slices of all ten.
BENCHMARK(BM_LeakIntoTenDestinations)
    ->Args({100000, 10})
    ->Args({100000, 1})
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace Routing::Protocol
