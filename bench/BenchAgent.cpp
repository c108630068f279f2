#include "bench/BenchAgent.h"

namespace Bench {

using namespace Routing::Protocol;
namespace Rib = Routing::Rib;

BenchAgent::BenchAgent(uint32_t maxRoutes, uint32_t maxViaSets)
    : em_(Statedb::entityManagerFactory()),
      mg_(Statedb::mountGroupFactory(em_)),
      allVrfReadyStatus_(allVrfReadyStatusFactory()),
      allVrfRibSeqTrigger_(allVrfRibSeqTriggerFactory()),
      bfdByContainer_(bfdTrackedNextHopByContainerFactory()),
      bfdAppConfig_(Bfd::appConfigFactory(std::string("protorib-bench"))) {
  Kel::activityManager().reset();
  // First phase: the root's read-only mounts go into the group; the second phase runs once the
  // group has completed on a later turn of the loop.
  root_ = rootSmFactory(em_, mg_, maxRoutes, maxViaSets, uint32_t{4}, rp_, allVrfReadyStatus_,
                        allVrfRibSeqTrigger_, bfdByContainer_);
  notifierIs(root_);
  root_->grStateIs(false);
  mg_->doClose();
  Kel::activityManager().runUntilIdle();
  nameMap_ = Vrf::VrfIdMap::nameToIdMapFactory();
  mounted<Vrf::VrfIdMap::NameToIdMapWrapper>("vrf/vrfNameStatus")->nameToIdMapIs(nameMap_);
  root_->doMountsComplete();
  check(root_->initialized(), "the root did not initialise after its mounts completed");
}

BenchAgent::~BenchAgent() {
  // Containers first, as the agent drops them, then the loop's leftovers.
  containers_.clear();
  Kel::activityManager().reset();
}

template <class T>
Kel::Ptr<T> BenchAgent::mounted(const std::string& path) const {
  auto p = Kel::ptrCast<T>(em_->getEntity(path));
  check(p != nullptr, "nothing of the expected type is mounted at " + path);
  return p;
}

Rib::ViaMetricStatus::Ptr BenchAgent::metricsOf(Vrf::VrfIdMap::VrfId id, Rib::Transport t) {
  return mounted<Rib::ViaMetricStatusByVrf>("routing/rib/viaMetricStatus")
      ->viaMetricStatusIs(id, t, rp_);
}

void BenchAgent::vrfIs(const std::string& name, Vrf::VrfIdMap::VrfId id) {
  auto idStatus = mounted<Vrf::VrfIdMap::Status>("vrf/vrfIdMapStatus");
  auto publishId = [&](const std::string& n, Vrf::VrfIdMap::VrfId i) {
    idStatus->vrfNameIs(i, L3::VrfName(n));
    nameMap_->vrfIdIs(L3::VrfName(n), i);
  };
  // Every container waits for the default VRF's metrics, which come through its id entry.
  if (!idStatus->vrfNameHas(Vrf::VrfIdMap::defaultVrfId))
    publishId("default", Vrf::VrfIdMap::defaultVrfId);
  for (auto t : {Rib::Transport::ipv4, Rib::Transport::ipv6, Rib::Transport::evpn}) {
    metricsOf(Vrf::VrfIdMap::defaultVrfId, t);
  }
  publishId(name, id);
  const L3::VrfName vrf(name);
  mounted<Ip::Status>("ip/status")
      ->vrfIpIntfStatusIs(vrf)
      ->ipIntfStatusIs(Velnet::IntfId("Ethernet1"))
      ->dpRoutingEnabledIs(true);
  mounted<Ip6::Status>("ip6/status")->vrfIp6IntfStatusIs(vrf);
  mounted<Rib::LoopingRouteStatusByVrf>("routing/rib/loopingRouteStatus")
      ->loopingRouteStatusIs(vrf);
  mounted<Rib::LoopingRouteStatusByVrf>("routing6/rib/loopingRouteStatus")
      ->loopingRouteStatusIs(vrf);
  metricsOf(id, Rib::Transport::ipv4);
  metricsOf(id, Rib::Transport::ipv6);
  Kel::activityManager().runUntilIdle();
  check(container(name, Family::ipv4) && container(name, Family::ipv6),
        "VRF " + name + " did not get both its containers");
}

ContainerSm::Ptr BenchAgent::container(const std::string& name, Family f) const {
  auto it = containers_.find(ContainerKey(L3::VrfName(name), addressFamily(f)));
  return it == containers_.end() ? nullptr : it->second;
}

// One container per name in a ready set: built when the name enters, dropped (and the root's
// clean-up run) when it leaves.
void BenchAgent::follow(const L3::VrfName& name, Family f) {
  const bool v4 = f == Family::ipv4;
  const ContainerKey key(name, addressFamily(f));
  const bool ready = v4 ? root_->readyVrfIpv4Has(name) : root_->readyVrfIpv6Has(name);
  auto it = containers_.find(key);
  if (!ready) {
    if (it == containers_.end()) return;
    root_->routeStatusDir()->statusDel(it->second->status()->key());
    const Vrf::VrfIdMap::VrfId id = it->second->vrfId();
    containers_.erase(it);
    v4 ? root_->doCleanupContainer4(name, id) : root_->doCleanupContainer6(name, id);
    return;
  }
  if (it != containers_.end()) return;
  containers_[key] = root_->containerSmNew(key, bfdAppConfig_);
}

}  // namespace Bench
