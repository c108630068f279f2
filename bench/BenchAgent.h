// The agent the workloads run: the entry objects, both start-up phases, one container per name in
// a ready set, and the RIB service's side (VRF name map and id table, interface status, looping
// routes, via metrics) played in the same process, as the reference agent does.
//
// Everything the library does here it does as it would under a router's agent: routes reach the
// RIB configuration through the container's route-status machine, metric changes reach the
// routes through the root's via-metric machine and its reverse index, and reviews run in slices
// on the one event loop. The loop runs on the monotonic clock, not on a manual time source: the
// figures that matter for a review are its slices measured in real seconds, and only a real clock
// makes the review cut its walk where a router's would.
#pragma once

#include <map>
#include <string>

#include "bench/BenchWorld.h"
#include "platform/kel/Kel.h"
#include "root/ProtocolContainerSm.h"
#include "root/ProtocolRootSm.h"

namespace Bench {

class BenchAgent : public Routing::Protocol::RootSm::NotifieeConst {
 public:
  // `maxRoutes` and `maxViaSets` size the RIB tables the root mounts.
  BenchAgent(uint32_t maxRoutes, uint32_t maxViaSets);
  ~BenchAgent() override;
  BenchAgent(const BenchAgent&) = delete;
  BenchAgent& operator=(const BenchAgent&) = delete;

  // Publishes the VRF with everything its containers need (both families) and returns once the
  // containers exist and their first reviews have run.
  void vrfIs(const std::string& name, Vrf::VrfIdMap::VrfId id);

  Routing::Protocol::ContainerSm::Ptr container(const std::string& name, Family f) const;
  // The RIB's metrics of the protocol's vias in one VRF and transport, made on first use.
  Routing::Rib::ViaMetricStatus::Ptr metricsOf(Vrf::VrfIdMap::VrfId id, Routing::Rib::Transport t);
  const Routing::Protocol::RootSm::Ptr& root() const noexcept { return root_; }
  const Routing::Protocol::AllVrfReadyStatus::Ptr& readyStatus() const noexcept {
    return allVrfReadyStatus_;
  }

  void onReadyVrfIpv4(const L3::VrfName& name) override { follow(name, Family::ipv4); }
  void onReadyVrfIpv6(const L3::VrfName& name) override { follow(name, Family::ipv6); }

 private:
  void follow(const L3::VrfName& name, Family f);
  template <class T>
  Kel::Ptr<T> mounted(const std::string& path) const;

  const Routing::Rib::RoutingProtocol rp_ = Routing::Rib::RoutingProtocol::staticConfig;
  Statedb::EntityManager::Ptr em_;
  Statedb::MountGroup::Ptr mg_;
  Routing::Protocol::AllVrfReadyStatus::Ptr allVrfReadyStatus_;
  Routing::Protocol::AllVrfRibSeqTrigger::Ptr allVrfRibSeqTrigger_;
  Routing::Protocol::BfdTrackedNextHopByContainer::Ptr bfdByContainer_;
  Bfd::AppConfig::Ptr bfdAppConfig_;
  Routing::Protocol::RootSm::Ptr root_;
  Vrf::VrfIdMap::NameToIdMap::Ptr nameMap_;
  std::map<Routing::Protocol::ContainerKey, Routing::Protocol::ContainerSm::Ptr> containers_;
};

}  // namespace Bench
