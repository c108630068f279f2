// RootSm: the one object an agent creates to join the RIB.
//
// It mounts what the protocol's side of the RIB needs, in two phases (the read-only mounts go in
// the agent's mount group at construction; once the group completes, `doMountsComplete` mounts the
// protocol's own tables and fetches everything), follows VRFs as they come and go, and publishes
// per address family the VRFs complete enough to host a container. The agent builds and destroys
// the containers (ContainerSm) as names enter and leave the three ready sets. The root also keeps
// the readiness-after-restart bookkeeping and watches the RIB's via-metric tree per VRF.
//
// Nothing happens on a VRF event before `initialized` is true: every handler returns at once.
#pragma once

#include <string>

#include "keys/ProtocolContainerKey.h"
#include "platform/ip/Ip.h"
#include "platform/kel/Reactor.h"
#include "platform/rib/ConfigSm.h"
#include "platform/rib/RouteConfig.h"
#include "platform/rib/ViaMetric.h"
#include "platform/rib/ViaSetConfig.h"
#include "platform/shmtab/Shmtab.h"
#include "platform/statedb/Statedb.h"
#include "platform/vrf/VrfIdMap.h"
#include "platform/vrf/VrfIdMapStatus.h"
#include "root/ProtocolContainerSm.h"
#include "root/ProtocolGrTypes.h"
#include "routestatus/ProtocolBfdTrackedNextHop.h"
#include "routestatus/ProtocolRouteStatus.h"
#include "viametric/ProtocolViaMetricStatusSm.h"

namespace Routing::Protocol {

class RootSm : public Kel::StateMachine {
 public:
  KEL_ENTITY(RootSm, "Routing::Protocol::RootSm");
  class NotifieeConst : public Kel::NotifieeConstOf<RootSm> {
   public:
    virtual void onReadyVrfIpv4(const L3::VrfName&) {}
    virtual void onReadyVrfIpv6(const L3::VrfName&) {}
    virtual void onMcReadyVrfIpv4(const L3::VrfName&) {}
    virtual void onInitialized() {}
  };
  KEL_CREATOR(RootSm);

  // ---- Reactors ----
  class KelNameToIdMap : public Kel::Reactor<RootSm, Vrf::VrfIdMap::NameToIdMap> {
   public:
    using Reactor::Reactor;
    void onVrfId(const L3::VrfName& name) override;
  };
  class KelVrfNameStatus : public Kel::Reactor<RootSm, Vrf::VrfIdMap::NameToIdMapWrapper> {
   public:
    using Reactor::Reactor;
    void onNameToIdMap() override;
  };
  class KelVrfIdStatus : public Kel::Reactor<RootSm, Vrf::VrfIdMap::Status> {
   public:
    using Reactor::Reactor;
    void onVrfName(const Vrf::VrfIdMap::VrfId& vrfId) override;
  };
  class KelIpv4IntfStatus : public Kel::Reactor<RootSm, Ip::Status> {
   public:
    using Reactor::Reactor;
    void onVrfIpIntfStatus(const L3::VrfName& name) override;
  };
  class KelIpv6IntfStatus : public Kel::Reactor<RootSm, Ip6::Status> {
   public:
    using Reactor::Reactor;
    void onVrfIp6IntfStatus(const L3::VrfName& name) override;
  };
  // Looping-route status per VRF; `handler` is the ready-set operation to run for a name.
  class KelLoopingRouteStatusByVrf : public Kel::Reactor<RootSm, Rib::LoopingRouteStatusByVrf> {
   public:
    KelLoopingRouteStatusByVrf(RootSm* owner, const Rib::LoopingRouteStatusByVrf::PtrConst& n,
                               void (RootSm::*handler)(const L3::VrfName&))
        : Reactor(owner, n), handler_(handler) {}
    void onLoopingRouteStatus(const L3::VrfName& name) override;

   private:
    void (RootSm::*handler_)(const L3::VrfName&);
  };
  // One transport's protocol statuses of one VRF's via metrics.
  template <bool Mc>
  class KelTransportStatus;
  // One VRF's via metrics by transport (unicast tree, or multicast when Mc).
  template <bool Mc>
  class KelVrfMetricStatus : public Kel::NestingReactor<RootSm, Rib::ViaMetricStatusByTransport> {
   public:
    KEL_REACTOR_OWNER_NAME("Routing::Protocol::RootSm::KelVrfMetricStatus");
    KelVrfMetricStatus(RootSm* owner, const Rib::ViaMetricStatusByTransport::PtrConst& n);
    void onTransportStatus(const Rib::Transport& t) override;
    KEL_NESTED_REACTOR_COLL(KelTransportStatus<Mc>, Rib::Transport, transportStatus);
  };
  template <bool Mc>
  class KelTransportStatus : public Kel::Reactor<KelVrfMetricStatus<Mc>, Rib::ViaMetricStatusByProtocol> {
   public:
    using Kel::Reactor<KelVrfMetricStatus<Mc>, Rib::ViaMetricStatusByProtocol>::Reactor;
    void onProtocolStatus(const Rib::RoutingProtocol&) override;
  };
  template <bool Mc>
  class KelViaMetricStatusByVrf : public Kel::Reactor<RootSm, Rib::ViaMetricStatusByVrf> {
   public:
    using Reactor::Reactor;
    void onVrfStatus(const Vrf::VrfIdMap::VrfId& vrfId) override;
  };
  class KelAllVrfReadyStatus : public Kel::Reactor<RootSm, AllVrfReadyStatus> {
   public:
    using Reactor::Reactor;
    void onVrfReadyStatus(const L3::VrfName& name) override;
  };
  class KelAllVrfRibSeqTrigger : public Kel::Reactor<RootSm, AllVrfRibSeqTrigger> {
   public:
    using Reactor::Reactor;
    void onVrfRibSeqTrigger(const L3::VrfName& name) override;
  };
  class KelVrfReadyStatus : public Kel::Reactor<RootSm, VrfReadyStatus> {
   public:
    using Reactor::Reactor;
    void onV4RouteReviewComplete() override;
    void onV6RouteReviewComplete() override;
  };
  class KelVrfRibSeqTrigger : public Kel::Reactor<RootSm, VrfRibSeqTrigger> {
   public:
    using Reactor::Reactor;
    void onRibReadySeqTrigger() override;
  };
  class KelGrState : public Kel::Reactor<RootSm, GrState> {
   public:
    using Reactor::Reactor;
    void onStartReadyVerification() override;
  };

  // ---- Constructor inputs ----
  KEL_CTOR_PARAM(Statedb::EntityManager::Ptr, em);
  KEL_CTOR_PARAM(Statedb::MountGroup::Ptr, mg);
  KEL_CTOR_PARAM(uint32_t, maxRoutes);
  KEL_CTOR_PARAM(uint32_t, maxViaSets);
  KEL_CTOR_PARAM(uint32_t, maxVrfs);
  KEL_CTOR_PARAM(Rib::RoutingProtocol, rp);
  KEL_CTOR_PARAM(AllVrfReadyStatus::Ptr, allVrfReadyStatus);
  KEL_CTOR_PARAM(AllVrfRibSeqTrigger::Ptr, allVrfRibSeqTrigger);
  KEL_CTOR_PARAM(BfdTrackedNextHopByContainer::Ptr, bfdTrackedNHByContainer);

  // ---- Tables and machines held (filled by the second start-up phase) ----
  const Rib::Ip::ViaConfig::Ptr& ipv4AllVrfViaConfig() const noexcept { return ipv4AllVrfViaConfig_; }
  const Rib::Ip::ViaConfigSm::Ptr& ipv4AllVrfViaConfigSm() const noexcept { return ipv4AllVrfViaConfigSm_; }
  const Rib::Ip::ViaConfig::Ptr& ipv6AllVrfViaConfig() const noexcept { return ipv6AllVrfViaConfig_; }
  const Rib::Ip::ViaConfigSm::Ptr& ipv6AllVrfViaConfigSm() const noexcept { return ipv6AllVrfViaConfigSm_; }
  const Rib::RouteConfig::Ptr& ipv4AllVrfRibConfig() const noexcept { return ipv4AllVrfRibConfig_; }
  const Rib::RouteConfig::Ptr& ipv6AllVrfRibConfig() const noexcept { return ipv6AllVrfRibConfig_; }
  const Rib::RouteConfig::Ptr& mcIpv4AllVrfRibConfig() const noexcept { return mcIpv4AllVrfRibConfig_; }
  const Rib::Ip::ViaConfig::Ptr& mcIpv4AllVrfViaConfig() const noexcept { return mcIpv4AllVrfViaConfig_; }
  const Rib::Ip::ViaConfigSm::Ptr& mcIpv4AllVrfViaConfigSm() const noexcept { return mcIpv4AllVrfViaConfigSm_; }
  const Ip::Status::PtrConst& ipv4IntfStatus() const noexcept { return ipv4IntfStatus_; }
  const Ip6::Status::PtrConst& ipv6IntfStatus() const noexcept { return ipv6IntfStatus_; }
  const Vrf::VrfIdMap::Status::PtrConst& vrfIdStatus() const noexcept { return vrfIdStatus_; }
  const Vrf::VrfIdMap::NameToIdMapWrapper::Ptr& vrfNameStatus() const noexcept { return vrfNameStatus_; }
  const Rib::Ip::ViaConfig::Ptr& ipv4DefaultVrfViaConfig() const noexcept { return ipv4DefaultVrfViaConfig_; }
  const Rib::ViaMetricStatus::PtrConst& ipv4DefaultVrfViaMetricStatus() const noexcept { return ipv4DefaultVrfViaMetricStatus_; }
  const Rib::Ip::ViaConfig::Ptr& ipv6DefaultVrfViaConfig() const noexcept { return ipv6DefaultVrfViaConfig_; }
  const Rib::ViaMetricStatus::PtrConst& ipv6DefaultVrfViaMetricStatus() const noexcept { return ipv6DefaultVrfViaMetricStatus_; }
  const Rib::Ip::ViaConfig::Ptr& mcIpv4DefaultVrfViaConfig() const noexcept { return mcIpv4DefaultVrfViaConfig_; }
  const Rib::ViaMetricStatus::PtrConst& mcIpv4DefaultVrfViaMetricStatus() const noexcept { return mcIpv4DefaultVrfViaMetricStatus_; }
  // Never filled by the root; an agent that needs it sets it.
  void mcIpv4DefaultVrfViaMetricStatusIs(const Rib::ViaMetricStatus::PtrConst& s) { mcIpv4DefaultVrfViaMetricStatus_ = s; }
  const Rib::Evpn::ViaConfig::Ptr& evpnConfig() const noexcept { return evpnConfig_; }
  const Rib::ViaMetricStatus::PtrConst& evpnViaMetricStatus() const noexcept { return evpnViaMetricStatus_; }
  const Rib::ViaSetConfig::Ptr& viaSetConfig() const noexcept { return viaSetConfig_; }
  const Rib::ViaSetConfig::Ptr& mcViaSetConfig() const noexcept { return mcViaSetConfig_; }
  const Rib::ViaSetConfigSm::Ptr& viaSetConfigSm() const noexcept { return viaSetConfigSm_; }
  const Rib::ViaSetConfigSm::Ptr& mcViaSetConfigSm() const noexcept { return mcViaSetConfigSm_; }
  const Rib::ViaMetricStatusByVrf::PtrConst& viaMetricStatusByVrf() const noexcept { return viaMetricStatusByVrf_; }
  const Rib::ViaMetricStatusByVrf::PtrConst& mcViaMetricStatusByVrf() const noexcept { return mcViaMetricStatusByVrf_; }
  const ViaMetricStatusSm::Ptr& viaMetricStatusSm() const noexcept { return viaMetricStatusSm_; }
  const RouteStatusDir::Ptr& routeStatusDir() const noexcept { return routeStatusDir_; }
  const Rib::LoopingRouteStatusByVrf::PtrConst& loopingRouteStatusByVrf4() const noexcept { return loopingRouteStatusByVrf4_; }
  const Rib::LoopingRouteStatusByVrf::PtrConst& loopingRouteStatusByVrf6() const noexcept { return loopingRouteStatusByVrf6_; }
  const Rib::LoopingRouteStatusByVrf::PtrConst& mcLoopingRouteStatusByVrf4() const noexcept { return mcLoopingRouteStatusByVrf4_; }
  GrState::PtrConst grState() const noexcept { return grStateReactor() ? grStateReactor()->notifier() : nullptr; }

  // ---- Outputs: the VRFs ready for a container ----
  KEL_SET(L3::VrfName, readyVrfIpv4, ReadyVrfIpv4);
  KEL_SET(L3::VrfName, readyVrfIpv6, ReadyVrfIpv6);
  KEL_SET(L3::VrfName, mcReadyVrfIpv4, McReadyVrfIpv4);

  // ---- Reactors held ----
  KEL_REACTOR(KelVrfNameStatus, vrfNameStatusReactor);
  KEL_REACTOR(KelNameToIdMap, nameToIdMapReactor);
  KEL_REACTOR(KelVrfIdStatus, vrfIdStatusReactor);
  KEL_REACTOR(KelIpv4IntfStatus, ipv4IntfStatusReactor);
  KEL_REACTOR(KelIpv6IntfStatus, ipv6IntfStatusReactor);
  KEL_REACTOR(KelViaMetricStatusByVrf<false>, viaMetricStatusByVrfReactor);
  KEL_REACTOR(KelViaMetricStatusByVrf<true>, mcViaMetricStatusByVrfReactor);
  KEL_REACTOR(KelAllVrfReadyStatus, allVrfReadyStatusReactor);
  KEL_REACTOR(KelAllVrfRibSeqTrigger, allVrfRibSeqTriggerReactor);
  KEL_REACTOR(KelGrState, grStateReactor);
  KEL_REACTOR_COLL(KelVrfMetricStatus<false>, Vrf::VrfIdMap::VrfId, vrfMetricStatus);
  KEL_REACTOR_COLL(KelVrfMetricStatus<true>, Vrf::VrfIdMap::VrfId, mcVrfMetricStatus);
  KEL_REACTOR_COLL(KelVrfReadyStatus, L3::VrfName, vrfReadyStatus);
  KEL_REACTOR_COLL(KelVrfRibSeqTrigger, L3::VrfName, vrfRibSeqTrigger);

  // ---- Start-up ----
  // Creates the GrState of this start; the agent calls it before doMountsComplete.
  void grStateIs(bool gracefulRestart);
  void handleInitialized();
  // The second start-up phase, once the mount group has completed.
  void doMountsComplete();
  void initializedIs(bool v);

  // ---- Path builders ----
  // "staticConfig" for protocol 2, "routeInput" for 4, "" for any other.
  std::string protocolName() const;
  std::string ribMount(Vrf::VrfIdMap::VrfId vrfId, const std::string& ribName, const std::string& af) const;
  std::string viaConfigMount(Vrf::VrfIdMap::VrfId vrfId, const std::string& ribName, Rib::Transport transport) const;
  std::string allVrfViaConfigMount(const std::string& ribName, Rib::Transport transport) const;

  // ---- VRFs and containers ----
  void handleVrfNameToIdMap();
  void setReadyVrf(const L3::VrfName& name);
  void setReadyVrfIpv4(const L3::VrfName& name);
  void setReadyVrfIpv6(const L3::VrfName& name);
  void setMcReadyVrfIpv4(const L3::VrfName& name);
  void doMountContainer4(const L3::VrfName& name);
  void doMountContainer6(const L3::VrfName& name);
  void doMountMcContainer4(const L3::VrfName& name);
  void doCleanupContainer4(const L3::VrfName& name, Vrf::VrfIdMap::VrfId vrfId);
  void doCleanupContainer6(const L3::VrfName& name, Vrf::VrfIdMap::VrfId vrfId);
  void doCleanupMcContainer4(const L3::VrfName& name, Vrf::VrfIdMap::VrfId vrfId);
  // The id of `name` in the current map, vrfIdNull without a map or an entry.
  Vrf::VrfIdMap::VrfId vrfIdOf(const L3::VrfName& name) const;
  // The unicast route table of a VRF and family: the one shared by all VRFs, else the VRF's own
  // as mounted (null while it is not).
  Rib::RouteConfig::Ptr ribConfigOf(Vrf::VrfIdMap::VrfId vrfId, Velnet::AddressFamily af) const;
  // The unicast container of a ready VRF and family, wired to the root's tables (the VRF's own via
  // and route tables, or those shared by all VRFs), with its readiness and BFD tracking, and its
  // routes filed in routeStatusDir. The caller holds it, and drops it when the VRF leaves the ready
  // set: statusDel of its routes, then the container, then doCleanupContainer4 or 6.
  ContainerSm::Ptr containerSmNew(const ContainerKey& key, const Bfd::AppConfig::Ptr& bfdAppConfig);

  // ---- Readiness after restart ----
  void doCreateOrDeleteVrfAsuState(const L3::VrfName& name);
  void maybeSetRoutesReady(const L3::VrfName& name);
  void handleStartReadyVerification();
  void handleRibSeqTrigger(const L3::VrfName& name);
  void maybeUpdateRibReadySeqStatus(const L3::VrfName& name);

  // ---- Via-metric wiring ----
  Rib::ViaMetricStatus::PtrConst viaMetricStatus(Rib::Transport transport, Vrf::VrfIdMap::VrfId vrfId,
                                                 const std::string& ribName) const;
  void setIpv4DefaultVrfViaMetricStatus(const std::string& ribName);
  void setIpv6DefaultVrfViaMetricStatus(const std::string& ribName);
  void setEvpnViaMetricStatus();
  void handleViaMetricStatus(Vrf::VrfIdMap::VrfId vrfId);
  void handleMcViaMetricStatus(Vrf::VrfIdMap::VrfId vrfId);
  // Deletes one VRF's vias from a via table (one shared by all VRFs).
  void doDeleteViasForVrf(Vrf::VrfIdMap::VrfId vrfId, const Kel::Ptr<Rib::ViaTable>& viaConfig);

  ~RootSm() override;

 private:
  RootSm(const Statedb::EntityManager::Ptr& em, const Statedb::MountGroup::Ptr& mg, uint32_t maxRoutes,
         uint32_t maxViaSets, uint32_t maxVrfs, Rib::RoutingProtocol rp,
         const AllVrfReadyStatus::Ptr& allVrfReadyStatus, const AllVrfRibSeqTrigger::Ptr& allVrfRibSeqTrigger,
         const BfdTrackedNextHopByContainer::Ptr& bfdTrackedNHByContainer);

  // Mounts a shared collection and returns the table, typed.
  template <class T>
  Kel::Ptr<T> mountTable(const std::string& path, const std::string& collection, const std::string& typeName,
                         uint32_t size);
  // The per-VRF route and via tables of one container: mounted (or cleaned up).
  void doMountContainer(const char* op, const L3::VrfName& name, const std::string& ribName, const std::string& af,
                        Rib::Transport transport);
  void doCleanupContainer(const char* op, const L3::VrfName& name, Vrf::VrfIdMap::VrfId vrfId,
                          const std::string& ribName, const std::string& af, Rib::Transport transport,
                          Velnet::AddressFamily family, const Rib::RouteConfig::Ptr& allVrfRibConfig);
  // The root's reading of one ready-set decision for a unicast family.
  void setReadyVrfUnicast(const L3::VrfName& name, bool ipv6);
  // Per-VRF via table: mounted, its transport and protocol set, emptied of an earlier run's vias.
  Rib::Ip::ViaConfig::Ptr mountDefaultVrfViaConfig(const std::string& ribName, Rib::Transport transport);
  void syncKeyedReactors();

  Rib::Ip::ViaConfig::Ptr ipv4AllVrfViaConfig_, ipv6AllVrfViaConfig_, mcIpv4AllVrfViaConfig_;
  Rib::Ip::ViaConfigSm::Ptr ipv4AllVrfViaConfigSm_, ipv6AllVrfViaConfigSm_, mcIpv4AllVrfViaConfigSm_;
  Rib::RouteConfig::Ptr ipv4AllVrfRibConfig_, ipv6AllVrfRibConfig_, mcIpv4AllVrfRibConfig_;
  Ip::Status::PtrConst ipv4IntfStatus_;
  Ip6::Status::PtrConst ipv6IntfStatus_;
  Vrf::VrfIdMap::Status::PtrConst vrfIdStatus_;
  Vrf::VrfIdMap::NameToIdMapWrapper::Ptr vrfNameStatus_;
  Rib::Ip::ViaConfig::Ptr ipv4DefaultVrfViaConfig_, ipv6DefaultVrfViaConfig_, mcIpv4DefaultVrfViaConfig_;
  Rib::ViaMetricStatus::PtrConst ipv4DefaultVrfViaMetricStatus_, ipv6DefaultVrfViaMetricStatus_,
      mcIpv4DefaultVrfViaMetricStatus_, evpnViaMetricStatus_;
  Rib::Evpn::ViaConfig::Ptr evpnConfig_;
  Rib::ViaSetConfig::Ptr viaSetConfig_, mcViaSetConfig_;
  Rib::ViaSetConfigSm::Ptr viaSetConfigSm_, mcViaSetConfigSm_;
  Rib::ViaMetricStatusByVrf::PtrConst viaMetricStatusByVrf_, mcViaMetricStatusByVrf_;
  ViaMetricStatusSm::Ptr viaMetricStatusSm_;
  RouteStatusDir::Ptr routeStatusDir_;
  Rib::LoopingRouteStatusByVrf::PtrConst loopingRouteStatusByVrf4_, loopingRouteStatusByVrf6_,
      mcLoopingRouteStatusByVrf4_;
  Kel::ReactorPtr<KelLoopingRouteStatusByVrf> loopingRouteStatusByVrf4Reactor_{this};
  Kel::ReactorPtr<KelLoopingRouteStatusByVrf> loopingRouteStatusByVrf6Reactor_{this};
  Kel::ReactorPtr<KelLoopingRouteStatusByVrf> mcLoopingRouteStatusByVrf4Reactor_{this};
};
KEL_FACTORY(RootSm, rootSmFactory)

template <class T>
inline Kel::Ptr<T> RootSm::mountTable(const std::string& path, const std::string& collection, const std::string& typeName,
                               uint32_t size) {
  KelShmtab::Mount mount(em_);
  KelShmtab::MountInfo info;
  info.collectionInfoIs(collection, typeName, size);
  return Kel::ptrCast<T>(mount.doMount(path, typeName, info));
}


}  // namespace Routing::Protocol
