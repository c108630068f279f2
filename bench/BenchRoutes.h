// The route table of BenchWorld.h, twice: written into the library through a running agent, and
// computed plainly with hash maps from the same input.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "bench/BenchAgent.h"
#include "bench/BenchWorld.h"
#include "platform/rib/ViaSet.h"
#include "routestatus/ProtocolRouteStatus.h"

namespace Bench {

// An agent with one VRF whose 10,000 vias the RIB has resolved, and the dedup handle of each via,
// made before any route so that routes are written as an agent writes them fast: built apart from
// ready handles and handed over whole.
class LoadedAgent {
 public:
  LoadedAgent(Family f, uint32_t routes);

  Family family() const noexcept { return family_; }
  uint32_t routes() const noexcept { return routes_; }
  BenchAgent& agent() noexcept { return agent_; }
  const Routing::Protocol::ContainerSm::Ptr& container() const noexcept { return container_; }
  const Routing::Protocol::Status::Ptr& status() const noexcept { return container_->status(); }
  const Routing::Rib::ViaMetricStatus::Ptr& metrics() const noexcept { return metrics_; }
  const Routing::Rib::RouteConfig::Ptr& rib() const noexcept { return container_->ribConfig(); }
  const Kel::Ptr<Routing::Rib::DedupViaKey const>& handle(uint32_t via) const {
    return handles_.at(via);
  }

  // Extra vias past the table's 10,000 (the fan-out's hot vias), resolved and with handles; the
  // first has index kVias.
  void extraViasIs(uint32_t count);
  // Route `i` built apart: both alternatives with their vias shifted by `variant`, and `extra`
  // (indices of vias) added to the first alternative.
  Routing::Protocol::Route::Ptr route(uint32_t i, uint32_t variant = 0,
                                      const std::vector<uint32_t>& extra = {}) const;
  // Writes every route and runs the loop until idle.
  void install();
  // The RIB configuration is right: exactly the routes with `present` (all when empty), each on
  // alternative `pref` with that alternative's vias (shifted by `variant[i]` when given).
  void checkRib(unsigned pref, const std::string& when, const std::vector<bool>& present = {},
                const std::vector<uint8_t>& variant = {}) const;
  // The container's last review has completed.
  bool reviewComplete() const;

 private:
  Family family_;
  uint32_t routes_;
  BenchAgent agent_;
  Routing::Protocol::ContainerSm::Ptr container_;
  Routing::Rib::ViaMetricStatus::Ptr metrics_;
  std::vector<Kel::Ptr<Routing::Rib::DedupViaKey const>> handles_;
};

// The same RIB configuration computed the plain way: routes in a hash map, resolution in a bit
// vector, via sets deduplicated in a hash map of vectors, the result in one more hash map. Every
// computation walks every route; nothing is incremental.
struct PlainRib {
  struct Alt {
    uint8_t pref;
    std::vector<uint32_t> vias;
  };
  struct RibRoute {
    uint8_t pref;
    uint32_t viaSet;
  };
  struct PrefixHash {
    size_t operator()(const Velnet::IpGenPrefix& p) const noexcept { return p.hash(); }
  };
  struct VecHash {
    size_t operator()(const std::vector<uint32_t>& v) const noexcept {
      size_t h = 0;
      for (uint32_t x : v) h = h * 1000003u ^ x;
      return h;
    }
  };

  std::unordered_map<Velnet::IpGenPrefix, std::vector<Alt>, PrefixHash> routes;
  std::vector<bool> resolved = std::vector<bool>(kVias, true);
  std::unordered_map<std::vector<uint32_t>, uint32_t, VecHash> viaSets;
  std::unordered_map<Velnet::IpGenPrefix, RibRoute, PrefixHash> rib;

  void load(Family f, uint32_t n);
  void compute();
  void checkRib(Family f, uint32_t n, unsigned pref, const std::string& when) const;
};

}  // namespace Bench
