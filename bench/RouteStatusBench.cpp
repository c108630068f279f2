// The route-status state machine at scale: 1,000,000 IPv4 prefixes, two alternatives of two vias
// each out of 10,000 vias. Beside it, a plain non-reactive computation of the same RIB
// configuration from the same input, so that the ratio shows what the reactive design costs.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <chrono>
#include <unordered_map>
#include <vector>

#include "platform/kel/Kel.h"
#include "routestatus/ProtocolRouteStatusSm.h"

namespace Routing::Protocol {
namespace {

using Rib::RoutingProtocol;
using Rib::Transport;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kVias = 10000;
constexpr Vrf::VrfIdMap::VrfId kVrf = 5;

size_t heapInUse() {
  struct mallinfo2 mi = mallinfo2();
  return mi.uordblks + mi.hblkhd;
}

double seconds(Clock::time_point a, Clock::time_point b) { return std::chrono::duration<double>(b - a).count(); }

Rib::ViaKey viaKey(uint32_t i) {
  Velnet::IpGenAddr addr = Velnet::IpGenAddr(Velnet::IpAddr::fromHostOrder(0x0A000000u + i));
  return Rib::ViaKey(Transport::ipv4, kVrf, RoutingProtocol::staticConfig, addr, Velnet::IntfId(), 0);
}

Velnet::IpGenPrefix routePrefix(uint32_t i) {
  return Velnet::IpGenPrefix(Velnet::IpGenAddr(Velnet::IpAddr::fromHostOrder(0x40000000u + (i << 8))), 24);
}

// The four vias of route i: alternative 1 uses the first two, alternative 2 the last two.
uint32_t viaOf(uint32_t route, uint32_t n) { return (route * 7 + n * 1237) % kVias; }

struct World {
  Status::Ptr status = statusFactory(RouteStatusKey(kVrf, Velnet::AddressFamily::ipv4));
  Rib::ViaMetricStatusByVrf::Ptr vmsByVrf = Rib::viaMetricStatusByVrfFactory();
  Rib::ViaMetricStatus::Ptr metrics = vmsByVrf->viaMetricStatusIs(kVrf, Transport::ipv4, RoutingProtocol::staticConfig);
  Rib::RouteConfig::Ptr ribConfig = Rib::routeConfigFactory();
  Rib::ViaSetConfig::Ptr viaSetConfig = Rib::viaSetConfigFactory(RoutingProtocol::staticConfig);
  Rib::Shmtab::ViaSetCollection::Ptr viaSetColl = Rib::Shmtab::ViaSetCollection::ViaSetCollectionIs();
  Rib::Ip::ViaConfig::Ptr ipViaConfig = Rib::Ip::viaConfigFactory();
  std::vector<Kel::Ptr<Rib::DedupViaKey const>> handles;
  RouteStatusSm::Ptr sm;

  World() {
    viaSetConfig->configViaSetCollIs(viaSetColl);
    for (uint32_t v = 0; v < kVias; ++v) {
      handles.push_back(Rib::dedupViaKeyIs(viaKey(v)));
      metrics->viaMetricIs(viaKey(v), Rib::ViaMetric(10, 1, false));
    }
  }
  void makeSm() {
    sm = routeStatusSmFactory(L3::VrfName("red"), Velnet::AddressFamily::ipv4, kVrf, status, metrics,
                              Rib::ViaMetricStatus::PtrConst(), Rib::LoopingRouteStatus::PtrConst(), ribConfig,
                              viaSetConfig, RoutingProtocol::staticConfig, Rib::ViaMetricStatus::PtrConst(),
                              Rib::ViaMetricStatus::PtrConst(), VrfReadyStatus::Ptr(), Bfd::AppConfig::Ptr(),
                              ipViaConfig, vmsByVrf, std::string("rib"));
  }
  void writeRoute(uint32_t i) {
    auto route = status->routeIs(routePrefix(i));
    for (Routing::RoutePreference pref : {1, 2}) {
      auto rp = route->routePrefIs(pref);
      rp->dedupViaKeyIs(handles[viaOf(i, pref * 2 - 2)]);
      rp->dedupViaKeyIs(handles[viaOf(i, pref * 2 - 1)]);
    }
  }
};

// The same result computed plainly: a map of routes, a set of resolved vias, a map of via sets.
struct PlainRib {
  struct Alt {
    uint8_t pref;
    std::vector<uint32_t> vias;
  };
  struct RibRoute {
    uint8_t pref;
    uint32_t viaSet;
  };
  struct VecHash {
    size_t operator()(const std::vector<uint32_t>& v) const noexcept {
      size_t h = 0;
      for (uint32_t x : v) h = h * 1000003u ^ x;
      return h;
    }
  };
  std::unordered_map<uint32_t, std::vector<Alt>> routes;
  std::vector<bool> resolved = std::vector<bool>(kVias, true);
  std::unordered_map<std::vector<uint32_t>, uint32_t, VecHash> viaSets;
  std::unordered_map<uint32_t, RibRoute> rib;

  void compute() {
    for (const auto& [prefix, alts] : routes) {
      for (const Alt& a : alts) {
        std::vector<uint32_t> usable;
        for (uint32_t v : a.vias) {
          if (resolved[v]) usable.push_back(v);
        }
        if (usable.empty()) continue;
        auto [it, added] = viaSets.emplace(usable, static_cast<uint32_t>(viaSets.size()));
        rib[prefix] = RibRoute{a.pref, it->second};
        break;
      }
    }
  }
};

void BM_RouteStatusInstallAndReview(benchmark::State& state) {
  const uint32_t routes = static_cast<uint32_t>(state.range(0));
  for (auto _ : state) {
    Kel::activityManager().reset();
    size_t heap0 = heapInUse();
    World w;
    w.makeSm();
    Kel::activityManager().runUntilIdle();
    size_t heap1 = heapInUse();
    auto t0 = Clock::now();
    for (uint32_t i = 0; i < routes; ++i) w.writeRoute(i);
    Kel::activityManager().runUntilIdle();
    auto t1 = Clock::now();
    size_t heap2 = heapInUse();
    if (w.ribConfig->routes() != routes) state.SkipWithError("RIB configuration incomplete");

    // One full review, as a via-metric change starts it.
    Kel::activityManager().longestTurnIs(0);
    auto t2 = Clock::now();
    w.metrics->viaMetricIs(viaKey(0), Rib::ViaMetric(20, 1, false));
    Kel::activityManager().runUntilIdle();
    auto t3 = Clock::now();

    PlainRib plain;
    size_t heap3 = heapInUse();
    auto p0 = Clock::now();
    for (uint32_t i = 0; i < routes; ++i) {
      auto& alts = plain.routes[routePrefix(i).address().v4().hostOrder()];
      alts.push_back({1, {viaOf(i, 0), viaOf(i, 1)}});
      alts.push_back({2, {viaOf(i, 2), viaOf(i, 3)}});
    }
    plain.compute();
    auto p1 = Clock::now();
    size_t heap4 = heapInUse();

    double install = seconds(t0, t1), review = seconds(t2, t3), plainTime = seconds(p0, p1);
    state.counters["install_routes_per_s"] = routes / install;
    state.counters["review_routes_per_s"] = routes / review;
    state.counters["review_longest_slice_ms"] = Kel::activityManager().longestTurn() * 1e3;
    state.counters["bytes_per_route"] = double(heap2 - heap1) / routes;
    state.counters["sm_fixed_bytes"] = double(heap1 - heap0);
    state.counters["plain_routes_per_s"] = routes / plainTime;
    state.counters["plain_bytes_per_route"] = double(heap4 - heap3) / routes;
    state.counters["install_time_ratio"] = install / plainTime;
    state.counters["memory_ratio"] = double(heap2 - heap1) / double(heap4 - heap3);
    state.SetIterationTime(install);
    w.sm = nullptr;
  }
}
BENCHMARK(BM_RouteStatusInstallAndReview)->Arg(100000)->Arg(1000000)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace Routing::Protocol
