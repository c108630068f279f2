// Leaking: 10 source VRFs of N/10 routes each, every route leaking into one of 10 destination
// VRFs, so that N routes end up in the destinations' LeakRouteConfigs.
//
// Measured from the moment the VRFs are handed to the leak root until the loop is idle, which is
// when every destination's configuration is complete: the time, the longest single turn of the
// loop (the multiplexers' first passes run in slices), and the heap the leak machinery takes per
// leaked route. The plain side computes the same destination tables from the same route lists
// with hash maps.
#include <string>
#include <unordered_map>
#include <vector>

#include "bench/BenchCases.h"
#include "leak/ProtocolRouteLeakSm.h"
#include "platform/kel/Activity.h"
#include "platform/routing/RouteList.h"
#include "platform/vrf/VrfIdMap.h"

namespace Bench {

namespace {

using Vrf::VrfIdMap::VrfId;

constexpr uint32_t kSources = 10;
constexpr uint32_t kDestinations = 10;
constexpr VrfId kFirstSource = 1;
constexpr VrfId kFirstDestination = 101;

std::string vrfName(VrfId id) { return "vrf" + std::to_string(id); }

// Host routes, distinct across sources.
Routing::RouteKey routeKey(Family f, uint32_t source, uint32_t i) {
  if (f == Family::ipv4) {
    return Routing::RouteKey(Velnet::IpGenPrefix(
        Velnet::IpGenAddr(Velnet::IpAddr::fromHostOrder((source << 24) | i)), 32));
  }
  Velnet::Ip6Addr::Bytes b{0x20, 0x01, 0x0d, 0xb8, static_cast<uint8_t>(source)};
  for (int k = 0; k < 4; ++k) b[12 + k] = static_cast<uint8_t>(i >> (24 - 8 * k));
  return Routing::RouteKey(Velnet::IpGenPrefix(Velnet::IpGenAddr(Velnet::Ip6Addr(b)), 128));
}

VrfId destinationOf(uint32_t i) { return kFirstDestination + i % kDestinations; }

// The VRF names and every source's route list, as the agent keeps them.
struct LeakInput {
  Vrf::VrfIdMap::NameToIdMap::Ptr names = Vrf::VrfIdMap::nameToIdMapFactory();
  std::vector<Routing::RouteList::Ptr> sources;

  LeakInput(Family f, uint32_t perSource) {
    for (uint32_t s = 0; s < kSources; ++s) {
      names->vrfIdIs(L3::VrfName(vrfName(kFirstSource + s)), kFirstSource + s);
      auto list = Routing::routeListFactory();
      for (uint32_t i = 0; i < perSource; ++i) {
        auto route = Routing::routeFactory(routeKey(f, kFirstSource + s, i));
        route->leakToVrfIs(L3::VrfName(vrfName(destinationOf(i))));
        list->routeIs(route);
      }
      sources.push_back(list);
    }
    for (uint32_t d = 0; d < kDestinations; ++d) {
      names->vrfIdIs(L3::VrfName(vrfName(kFirstDestination + d)), kFirstDestination + d);
    }
  }
};

struct RouteKeyHash {
  size_t operator()(const Routing::RouteKey& k) const noexcept { return k.hash(); }
};

}  // namespace

std::vector<Row> runLeaking(const CaseParams& params) {
  const uint32_t perSource = params.routes / kSources;
  const auto af = addressFamily(params.family);
  LeakInput input(params.family, perSource);
  auto& loop = Kel::activityManager();
  loop.reset();

  const MemoryMark mark = memoryMark();
  const double t0 = wallTime();
  auto root = Routing::Protocol::Leak::rootSmFactory(input.names);
  std::vector<Routing::Protocol::LeakRouteConfig::Ptr> configs;
  loop.longestTurnIs(0);
  const uint64_t turns0 = loop.turns();
  for (uint32_t d = 0; d < kDestinations; ++d) {
    Routing::Protocol::VrfIdAf vrf(kFirstDestination + d, af);
    configs.push_back(Routing::Protocol::leakRouteConfigFactory(vrf));
    root->createVrf(vrf, Routing::routeListFactory(), configs.back());
  }
  for (uint32_t s = 0; s < kSources; ++s) {
    Routing::Protocol::VrfIdAf vrf(kFirstSource + s, af);
    root->createVrf(vrf, input.sources[s], Routing::Protocol::leakRouteConfigFactory(vrf));
  }
  loop.runUntilIdle();
  const double t1 = wallTime();
  const double heap = heapSince(mark);

  size_t total = 0;
  for (uint32_t d = 0; d < kDestinations; ++d) {
    const auto& config = configs[d];
    total += config->leakRoutes();
    check(config->leakRoutes() == size_t(perSource) * kSources / kDestinations,
          vrfName(kFirstDestination + d) + " received " + std::to_string(config->leakRoutes()) +
              " routes");
    for (uint32_t s = 0; s < kSources; ++s) {
      check(config->leakRouteHas(routeKey(params.family, kFirstSource + s, d)),
            vrfName(kFirstDestination + d) + " lacks a route of " + vrfName(kFirstSource + s));
    }
  }
  check(total == params.routes,
        "the destinations hold " + std::to_string(total) + " leaked routes");

  const double n = params.routes, time = t1 - t0;
  return {figure("time", time, "s", true,
                 atMost(2.0 * n / 1e6, "<= " + formatNumber(2.0 * n / 1e6) + " s")),
          figure("rate", n / time, "routes/s"),
          figure("longest turn", loop.longestTurn() * 1e3, "ms"),
          figure("turns", static_cast<double>(loop.turns() - turns0), "turns"),
          figure("heap per route", heap / n, "B", true)};
}

std::vector<Row> runPlainLeaking(const CaseParams& params) {
  const uint32_t perSource = params.routes / kSources;
  LeakInput input(params.family, perSource);
  const MemoryMark mark = memoryMark();
  const double t0 = wallTime();
  std::unordered_map<std::string, VrfId> ids;
  for (const auto& [name, id] : input.names->vrfIdColl()) ids.emplace(name.str(), id);
  std::unordered_map<VrfId,
                     std::unordered_map<Routing::RouteKey, const Routing::Route*, RouteKeyHash>>
      plain;
  for (uint32_t s = 0; s < kSources; ++s) {
    for (const auto& route : input.sources[s]->routeColl()) {
      auto it = ids.find(route->leakToVrf().str());
      if (it == ids.end() || it->second == kFirstSource + s) continue;
      // Sources are visited in ascending VRF id, so the first one to leak a key keeps it.
      plain[it->second].emplace(route->key(), route.get());
    }
  }
  const double t1 = wallTime();
  const double heap = heapSince(mark);
  size_t total = 0;
  for (const auto& [id, routes] : plain) total += routes.size();
  check(total == params.routes,
        "the plain destinations hold " + std::to_string(total) + " leaked routes");
  const double n = params.routes;
  return {figure("time", t1 - t0, "s"), figure("rate", n / (t1 - t0), "routes/s"),
          figure("heap per route", heap / n, "B")};
}

}  // namespace Bench
