// A minimal agent for the root's tests: it creates the entry objects as an agent does, keeps
// containers as names enter and leave the ready sets, and plays the RIB service's side.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "platform/kel/Kel.h"
#include "root/ProtocolContainerSm.h"
#include "root/ProtocolRootSm.h"

namespace Routing::Protocol::Test {

class RootHarness : public RootSm::NotifieeConst {
 public:
  explicit RootHarness(Rib::RoutingProtocol rp, bool gracefulRestart = false,
                       uint32_t maxRoutes = 1000, uint32_t maxViaSets = 100, uint32_t maxVrfs = 10)
      : rp_(rp) {
    Kel::activityManager().reset();
    root = rootSmFactory(em, mg, maxRoutes, maxViaSets, maxVrfs, rp, allVrfReadyStatus,
                         allVrfRibSeqTrigger, bfdByContainer);
    notifierIs(root);
    root->grStateIs(gracefulRestart);
  }
  ~RootHarness() override {
    containers.clear();
    Kel::activityManager().reset();
  }

  // Completes the mounts and runs the second start-up phase.
  void start() {
    mg->doClose();
    Kel::activityManager().runUntilIdle();
    nameMap = Vrf::VrfIdMap::nameToIdMapFactory();
    Kel::ptrCast<Vrf::VrfIdMap::NameToIdMapWrapper>(em->getEntity("vrf/vrfNameStatus"))
        ->nameToIdMapIs(nameMap);
    root->doMountsComplete();
  }

  // ---- The RIB service's side ----
  Kel::Ptr<Vrf::VrfIdMap::Status> vrfIdStatus() const {
    return Kel::ptrCast<Vrf::VrfIdMap::Status>(em->getEntity("vrf/vrfIdMapStatus"));
  }
  Kel::Ptr<Ip::Status> ipStatus() const {
    return Kel::ptrCast<Ip::Status>(em->getEntity("ip/status"));
  }
  Kel::Ptr<Ip6::Status> ip6Status() const {
    return Kel::ptrCast<Ip6::Status>(em->getEntity("ip6/status"));
  }
  Kel::Ptr<Rib::ViaMetricStatusByVrf> metrics(const std::string& rib = "rib") const {
    return Kel::ptrCast<Rib::ViaMetricStatusByVrf>(
        em->getEntity("routing/" + rib + "/viaMetricStatus"));
  }
  Kel::Ptr<Rib::LoopingRouteStatusByVrf> looping(const std::string& path) const {
    return Kel::ptrCast<Rib::LoopingRouteStatusByVrf>(em->getEntity(path));
  }
  void vrfIs(const std::string& name, Vrf::VrfIdMap::VrfId id) {
    vrfIdStatus()->vrfNameIs(id, L3::VrfName(name));
    nameMap->vrfIdIs(L3::VrfName(name), id);
  }
  void vrfDel(const std::string& name, Vrf::VrfIdMap::VrfId id) {
    nameMap->vrfIdDel(L3::VrfName(name));
    vrfIdStatus()->vrfNameDel(id);
  }
  Rib::ViaMetricStatus::Ptr metricsOf(Vrf::VrfIdMap::VrfId vrf, Rib::Transport t,
                                      const std::string& rib = "rib") {
    return metrics(rib)->viaMetricStatusIs(vrf, t, rp_);
  }
  // Everything a VRF needs for unicast containers in both families, and the default VRF's
  // metrics every container waits for.
  void publishVrf(const std::string& name, Vrf::VrfIdMap::VrfId id, bool withInterfaces = true) {
    // The default VRF's statuses are picked up through its id entry.
    if (!vrfIdStatus()->vrfNameHas(0)) vrfIs("default", 0);
    metricsOf(0, Rib::Transport::ipv4);
    metricsOf(0, Rib::Transport::ipv6);
    metricsOf(0, Rib::Transport::evpn);
    vrfIs(name, id);
    auto v4 = ipStatus()->vrfIpIntfStatusIs(L3::VrfName(name));
    auto v6 = ip6Status()->vrfIp6IntfStatusIs(L3::VrfName(name));
    if (withInterfaces) v4->ipIntfStatusIs(Velnet::IntfId("Ethernet1"))->dpRoutingEnabledIs(true);
    looping("routing/rib/loopingRouteStatus")->loopingRouteStatusIs(L3::VrfName(name));
    looping("routing6/rib/loopingRouteStatus")->loopingRouteStatusIs(L3::VrfName(name));
    metricsOf(id, Rib::Transport::ipv4);
    metricsOf(id, Rib::Transport::ipv6);
  }

  // ---- The agent's containers ----
  void onReadyVrfIpv4(const L3::VrfName& name) override {
    follow(name, Velnet::AddressFamily::ipv4);
  }
  void onReadyVrfIpv6(const L3::VrfName& name) override {
    follow(name, Velnet::AddressFamily::ipv6);
  }

  ContainerSm::Ptr container(const std::string& name, Velnet::AddressFamily af) const {
    auto it = containers.find(ContainerKey(L3::VrfName(name), af));
    return it == containers.end() ? nullptr : it->second;
  }

  Statedb::EntityManager::Ptr em = Statedb::entityManagerFactory();
  Statedb::MountGroup::Ptr mg = Statedb::mountGroupFactory(em);
  AllVrfReadyStatus::Ptr allVrfReadyStatus = allVrfReadyStatusFactory();
  AllVrfRibSeqTrigger::Ptr allVrfRibSeqTrigger = allVrfRibSeqTriggerFactory();
  BfdTrackedNextHopByContainer::Ptr bfdByContainer = bfdTrackedNextHopByContainerFactory();
  Bfd::AppConfig::Ptr bfdAppConfig = Bfd::appConfigFactory(std::string("test"));
  RootSm::Ptr root;
  Vrf::VrfIdMap::NameToIdMap::Ptr nameMap;
  std::map<ContainerKey, ContainerSm::Ptr> containers;
  std::vector<std::string> cleanups;

 private:
  void follow(const L3::VrfName& name, Velnet::AddressFamily af) {
    const bool v4 = af == Velnet::AddressFamily::ipv4;
    const ContainerKey key(name, af);
    const bool ready = v4 ? root->readyVrfIpv4Has(name) : root->readyVrfIpv6Has(name);
    auto it = containers.find(key);
    if (!ready) {
      if (it == containers.end()) return;
      root->routeStatusDir()->statusDel(it->second->status()->key());
      Vrf::VrfIdMap::VrfId id = it->second->vrfId();
      containers.erase(it);
      cleanups.push_back(name.str() + (v4 ? "/4" : "/6"));
      v4 ? root->doCleanupContainer4(name, id) : root->doCleanupContainer6(name, id);
      return;
    }
    if (it != containers.end()) return;
    containers[key] = root->containerSmNew(key, bfdAppConfig);
  }

  Rib::RoutingProtocol rp_;
};

}  // namespace Routing::Protocol::Test
