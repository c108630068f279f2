// RootSm: construction, the two start-up phases, path builders and the VRF name-to-id map.
// Containers, readiness and the via-metric wiring are in the sibling files.
#include "root/ProtocolRootSm.h"

#include "platform/kel/Trace.h"
#include "platform/rib/RibPolicy.h"
#include "platform/rova/Rova.h"
#include "platform/shmtab/Shmtab.h"

namespace Routing::Protocol {

namespace {
constexpr const char* kTraceSource = "ProtocolRootSm";
Kel::TraceHandle& trace_ = Kel::TraceHandle::handle("Quill::ProtocolRootSm");
}  // namespace

// ---- Reactors ----

void RootSm::KelNameToIdMap::onVrfId(const L3::VrfName& name) {
  if (isZombie()) return;
  RootSm* root = owner();
  if (!root->initialized()) return;
  root->doCreateOrDeleteVrfAsuState(name);
  root->setReadyVrf(name);
  root->setMcReadyVrfIpv4(name);
}

void RootSm::KelVrfNameStatus::onNameToIdMap() {
  if (isZombie()) return;
  owner()->nameToIdMapReactorIs(notifier()->nameToIdMap());
  owner()->handleVrfNameToIdMap();
}

void RootSm::KelVrfIdStatus::onVrfName(const Vrf::VrfIdMap::VrfId& vrfId) {
  if (isZombie()) return;
  owner()->handleViaMetricStatus(vrfId);
  owner()->handleMcViaMetricStatus(vrfId);
}

void RootSm::KelIpv4IntfStatus::onVrfIpIntfStatus(const L3::VrfName& name) {
  if (isZombie()) return;
  owner()->setReadyVrfIpv4(name);
  owner()->setMcReadyVrfIpv4(name);
}

void RootSm::KelIpv6IntfStatus::onVrfIp6IntfStatus(const L3::VrfName& name) {
  if (isZombie()) return;
  owner()->setReadyVrfIpv6(name);
}

void RootSm::KelLoopingRouteStatusByVrf::onLoopingRouteStatus(const L3::VrfName& name) {
  if (isZombie()) return;
  (owner()->*handler_)(name);
}

template <bool Mc>
RootSm::KelVrfMetricStatus<Mc>::KelVrfMetricStatus(RootSm* owner, const Rib::ViaMetricStatusByTransport::PtrConst& n)
    : NestingReactor(owner, n) {
  for (const auto& t : n->transportStatusColl()) transportStatusIs(t);
}

template <bool Mc>
void RootSm::KelVrfMetricStatus<Mc>::onTransportStatus(const Rib::Transport& t) {
  if (this->isZombie()) return;
  if (auto byProtocol = this->notifier()->transportStatus(t)) {
    transportStatusIs(byProtocol);
  } else {
    transportStatusDel(t);
  }
  if (Mc) {
    this->owner()->handleMcViaMetricStatus(this->fwkKey());
  } else {
    this->owner()->handleViaMetricStatus(this->fwkKey());
  }
}

template <bool Mc>
void RootSm::KelTransportStatus<Mc>::onProtocolStatus(const Rib::RoutingProtocol&) {
  if (this->isZombie()) return;
  KelVrfMetricStatus<Mc>* vrf = this->owner();
  if (Mc) {
    vrf->owner()->handleMcViaMetricStatus(vrf->fwkKey());
  } else {
    vrf->owner()->handleViaMetricStatus(vrf->fwkKey());
  }
}

template <bool Mc>
void RootSm::KelViaMetricStatusByVrf<Mc>::onVrfStatus(const Vrf::VrfIdMap::VrfId& vrfId) {
  if (this->isZombie()) return;
  RootSm* root = this->owner();
  auto entry = this->notifier()->vrfStatus(vrfId);
  if (Mc) {
    if (entry) {
      root->mcVrfMetricStatusIs(entry);
    } else {
      root->mcVrfMetricStatusDel(vrfId);
    }
    root->handleMcViaMetricStatus(vrfId);
  } else {
    if (entry) {
      root->vrfMetricStatusIs(entry);
    } else {
      root->vrfMetricStatusDel(vrfId);
    }
    root->handleViaMetricStatus(vrfId);
  }
}

void RootSm::KelAllVrfReadyStatus::onVrfReadyStatus(const L3::VrfName& name) {
  if (isZombie()) return;
  if (auto s = notifier()->vrfReadyStatus(name)) {
    owner()->vrfReadyStatusIs(s);
  } else {
    owner()->vrfReadyStatusDel(name);
  }
}

void RootSm::KelAllVrfRibSeqTrigger::onVrfRibSeqTrigger(const L3::VrfName& name) {
  if (isZombie()) return;
  if (auto t = notifier()->vrfRibSeqTrigger(name)) {
    owner()->vrfRibSeqTriggerIs(t);
  } else {
    owner()->vrfRibSeqTriggerDel(name);
  }
}

void RootSm::KelVrfReadyStatus::onV4RouteReviewComplete() {
  if (!isZombie()) owner()->maybeUpdateRibReadySeqStatus(fwkKey());
}

void RootSm::KelVrfReadyStatus::onV6RouteReviewComplete() {
  if (!isZombie()) owner()->maybeUpdateRibReadySeqStatus(fwkKey());
}

void RootSm::KelVrfRibSeqTrigger::onRibReadySeqTrigger() {
  if (!isZombie()) owner()->handleRibSeqTrigger(fwkKey());
}

void RootSm::KelGrState::onStartReadyVerification() {
  if (!isZombie()) owner()->handleStartReadyVerification();
}

// ---- Construction and the first phase ----

RootSm::RootSm(const Statedb::EntityManager::Ptr& em, const Statedb::MountGroup::Ptr& mg, uint32_t maxRoutes,
               uint32_t maxViaSets, uint32_t maxVrfs, Rib::RoutingProtocol rp,
               const AllVrfReadyStatus::Ptr& allVrfReadyStatus, const AllVrfRibSeqTrigger::Ptr& allVrfRibSeqTrigger,
               const BfdTrackedNextHopByContainer::Ptr& bfdTrackedNHByContainer)
    : em_(em),
      mg_(mg),
      maxRoutes_(maxRoutes),
      maxViaSets_(maxViaSets),
      maxVrfs_(maxVrfs),
      rp_(rp),
      allVrfReadyStatus_(allVrfReadyStatus),
      allVrfRibSeqTrigger_(allVrfRibSeqTrigger),
      bfdTrackedNHByContainer_(bfdTrackedNHByContainer) {
  KEL_ASSERT(em_ && mg_ && allVrfReadyStatus_ && allVrfRibSeqTrigger_ && bfdTrackedNHByContainer_);
  syncKeyedReactors();
  handleInitialized();
  if (vrfNameStatus_) nameToIdMapReactorIs(vrfNameStatus_->nameToIdMap());
}

RootSm::~RootSm() = default;

void RootSm::syncKeyedReactors() {
  allVrfReadyStatusReactorIs(allVrfReadyStatus_);
  allVrfRibSeqTriggerReactorIs(allVrfRibSeqTrigger_);
  for (const auto& t : allVrfRibSeqTrigger_->vrfRibSeqTriggerColl()) vrfRibSeqTriggerIs(t);
  for (const auto& name : vrfRibSeqTriggerColl().keys()) {
    if (!allVrfRibSeqTrigger_->vrfRibSeqTriggerHas(name)) vrfRibSeqTriggerDel(name);
  }
  for (const auto& s : allVrfReadyStatus_->vrfReadyStatusColl()) vrfReadyStatusIs(s);
  for (const auto& name : vrfReadyStatusColl().keys()) {
    if (!allVrfReadyStatus_->vrfReadyStatusHas(name)) vrfReadyStatusDel(name);
  }
  // The via-metric tables are not fetched yet; drop any reactor that outlived its entry.
  for (auto vrf : vrfMetricStatusColl().keys()) {
    if (!viaMetricStatusByVrf_ || !viaMetricStatusByVrf_->vrfStatusHas(vrf)) vrfMetricStatusDel(vrf);
  }
  for (auto vrf : mcVrfMetricStatusColl().keys()) {
    if (!mcViaMetricStatusByVrf_ || !mcViaMetricStatusByVrf_->vrfStatusHas(vrf)) mcVrfMetricStatusDel(vrf);
  }
}

void RootSm::handleInitialized() {
  KEL_TRACE(trace_, 8, "handleInitialized");
  routeStatusDir_ = routeStatusDirFactory();
  mg_->doMount({"vrf/vrfNameStatus", "Vrf::VrfIdMap::NameToIdMapWrapper", "r"});
  Rova::RovaIpStatusMounter(mg_).doMountEntities(true, true);
  mg_->doMount({"routing/rib/viaMetricStatus", "Routing::Rib::ViaMetricStatusByVrf", "r"});
  mg_->doMount({"routing/rib/loopingRouteStatus", "Routing::Rib::LoopingRouteStatusByVrf", "r"});
  mg_->doMount({"routing6/rib/loopingRouteStatus", "Routing::Rib::LoopingRouteStatusByVrf", "r"});
  if (Rib::RoutingProtocolHelper::mribProtocol(rp_)) {
    mg_->doMount({"routing/mrib/viaMetricStatus", "Routing::Rib::ViaMetricStatusByVrf", "r"});
    mg_->doMount({"routing/mrib/loopingRouteStatus", "Routing::Rib::LoopingRouteStatusByVrf", "r"});
  }
}

void RootSm::grStateIs(bool gracefulRestart) {
  grStateReactorIs(grStateFactory(gracefulRestart));
  handleStartReadyVerification();
}

void RootSm::initializedIs(bool v) {
  if (v == initialized()) return;
  StateMachine::initializedIs(v);
  notify(&NotifieeConst::onInitialized);
}

// ---- The second phase ----

Rib::Ip::ViaConfig::Ptr RootSm::mountDefaultVrfViaConfig(const std::string& ribName, Rib::Transport transport) {
  auto table =
      mountTable<Rib::Ip::ViaConfig>(viaConfigMount(0, ribName, transport), "via", "Routing::Rib::Ip::ViaConfig", maxViaSets_);
  table->transportIs(transport);
  table->rpIs(rp_);
  // Vias written by an earlier run of the agent must not survive it.
  table->viaDelAll();
  return table;
}

void RootSm::doMountsComplete() {
  KEL_TRACE(trace_, 8, "doMountsComplete");
  const std::string proto = Rib::stringValue(rp_);
  const bool mrib = Rib::RoutingProtocolHelper::mribProtocol(rp_);
  const uint32_t sharedSize = maxViaSets_ * maxVrfs_;

  vrfIdStatus_ = mountTable<Vrf::VrfIdMap::Status>("vrf/vrfIdMapStatus", "vrfIdMapStatus", "Vrf::VrfIdMap::Status", 0);
  vrfIdStatusReactorIs(vrfIdStatus_);
  vrfNameStatus_ = Kel::ptrCast<Vrf::VrfIdMap::NameToIdMapWrapper>(em_->getEntity("vrf/vrfNameStatus"));
  vrfNameStatusReactorIs(vrfNameStatus_);
  if (vrfNameStatus_) nameToIdMapReactorIs(vrfNameStatus_->nameToIdMap());
  ipv4IntfStatus_ = Kel::ptrCast<Ip::Status const>(em_->getEntity("ip/status"));
  ipv4IntfStatusReactorIs(ipv4IntfStatus_);
  ipv6IntfStatus_ = Kel::ptrCast<Ip6::Status const>(em_->getEntity("ip6/status"));
  ipv6IntfStatusReactorIs(ipv6IntfStatus_);

  if (ViaConfigLib::isAllVrfViaConfig(proto, "ipv4", "rib")) {
    ipv4AllVrfViaConfig_ = mountTable<Rib::Ip::ViaConfig>(allVrfViaConfigMount("rib", Rib::Transport::ipv4), "via",
                                                          "Routing::Rib::Ip::ViaConfig", sharedSize);
    ipv4DefaultVrfViaConfig_ = ipv4AllVrfViaConfig_;
    KEL_TRACE(trace_, 8, "doInitIpv4AllVrfViaConfigSm");
    ipv4AllVrfViaConfigSm_ = Rib::Ip::viaConfigSmFactory(ipv4AllVrfViaConfig_);
  } else {
    ipv4DefaultVrfViaConfig_ = mountDefaultVrfViaConfig("rib", Rib::Transport::ipv4);
  }
  // Unlike IPv4, a per-VRF IPv6 via table of the default VRF is not mounted here: it comes with
  // the default VRF's container.
  if (ViaConfigLib::isAllVrfViaConfig(proto, "ipv6", "rib")) {
    ipv6AllVrfViaConfig_ = mountTable<Rib::Ip::ViaConfig>(allVrfViaConfigMount("rib", Rib::Transport::ipv6), "via",
                                                          "Routing::Rib::Ip::ViaConfig", sharedSize);
    ipv6AllVrfViaConfigSm_ = Rib::Ip::viaConfigSmFactory(ipv6AllVrfViaConfig_);
    ipv6DefaultVrfViaConfig_ = ipv6AllVrfViaConfig_;
  }
  if (mrib) {
    if (ViaConfigLib::isAllVrfViaConfig(proto, "ipv4", "mrib")) {
      mcIpv4AllVrfViaConfig_ = mountTable<Rib::Ip::ViaConfig>(allVrfViaConfigMount("mrib", Rib::Transport::ipv4), "via",
                                                              "Routing::Rib::Ip::ViaConfig", sharedSize);
      mcIpv4AllVrfViaConfigSm_ = Rib::Ip::viaConfigSmFactory(mcIpv4AllVrfViaConfig_);
      mcIpv4DefaultVrfViaConfig_ = mcIpv4AllVrfViaConfig_;
    } else {
      mcIpv4DefaultVrfViaConfig_ = mountDefaultVrfViaConfig("mrib", Rib::Transport::ipv4);
    }
  }
  struct AllVrfRoutes {
    const char* af;
    const char* ribName;
    Rib::RouteConfig::Ptr* table;
  };
  for (const AllVrfRoutes& t : {AllVrfRoutes{"ipv4", "rib", &ipv4AllVrfRibConfig_},
                                AllVrfRoutes{"ipv6", "rib", &ipv6AllVrfRibConfig_},
                                AllVrfRoutes{"ipv4", "mrib", &mcIpv4AllVrfRibConfig_}}) {
    if (std::string(t.ribName) == "mrib" && !mrib) continue;
    if (!RouteConfigLib::isAllVrfRouteConfig(proto, t.af, t.ribName)) continue;
    *t.table = mountTable<Rib::RouteConfig>(RouteConfigLib::allVrfRibMount(proto, t.af, t.ribName), "route",
                                            "Routing::Rib::RouteConfig", maxRoutes_ * maxVrfs_);
  }
  if (ViaConfigLib::isAllVrfViaConfig(proto, "evpn", "rib")) {
    evpnConfig_ = mountTable<Rib::Evpn::ViaConfig>(allVrfViaConfigMount("rib", Rib::Transport::evpn), "via",
                                                   "Routing::Rib::Evpn::ViaConfig", sharedSize);
    evpnConfig_->transportIs(Rib::Transport::evpn);
    evpnConfig_->rpIs(rp_);
    evpnConfig_->doDeleteViasForVrf(0);
  } else {
    evpnConfig_ = mountTable<Rib::Evpn::ViaConfig>(viaConfigMount(0, "rib", Rib::Transport::evpn), "via",
                                                   "Routing::Rib::Evpn::ViaConfig", maxViaSets_);
    evpnConfig_->transportIs(Rib::Transport::evpn);
    evpnConfig_->rpIs(rp_);
    evpnConfig_->viaDelAll();
  }
  Rib::ViaSetConfigKey key(rp_, "rib");
  if (!viaSetConfig_ || !(viaSetConfig_->key() == key)) viaSetConfig_ = Rib::viaSetConfigFactory(key);
  if (mrib) {
    Rib::ViaSetConfigKey mcKey(rp_, "mrib");
    if (!mcViaSetConfig_ || !(mcViaSetConfig_->key() == mcKey)) mcViaSetConfig_ = Rib::viaSetConfigFactory(mcKey);
  }
  viaSetConfig_->configViaSetCollIs(mountTable<Rib::Shmtab::ViaSetCollection>(
      "routing/rib/viaSetConfig/" + protocolName(), "viaSet", "Routing::Rib::Shmtab::ViaSetCollection", maxViaSets_));
  viaSetConfigSm_ = Rib::viaSetConfigSmFactory(viaSetConfig_);

  viaMetricStatusByVrf_ = Kel::ptrCast<Rib::ViaMetricStatusByVrf const>(em_->getEntity("routing/rib/viaMetricStatus"));
  if (viaMetricStatusByVrf_) {
    for (const auto& vrf : viaMetricStatusByVrf_->vrfStatusColl()) vrfMetricStatusIs(vrf);
  }
  viaMetricStatusByVrfReactorIs(viaMetricStatusByVrf_);
  setIpv4DefaultVrfViaMetricStatus("rib");
  setIpv6DefaultVrfViaMetricStatus("rib");
  setEvpnViaMetricStatus();

  loopingRouteStatusByVrf4_ =
      Kel::ptrCast<Rib::LoopingRouteStatusByVrf const>(em_->getEntity("routing/rib/loopingRouteStatus"));
  loopingRouteStatusByVrf4Reactor_.is(this, loopingRouteStatusByVrf4_, &RootSm::setReadyVrfIpv4);
  loopingRouteStatusByVrf6_ =
      Kel::ptrCast<Rib::LoopingRouteStatusByVrf const>(em_->getEntity("routing6/rib/loopingRouteStatus"));
  loopingRouteStatusByVrf6Reactor_.is(this, loopingRouteStatusByVrf6_, &RootSm::setReadyVrfIpv6);

  if (mrib) {
    mcViaSetConfig_->configViaSetCollIs(mountTable<Rib::Shmtab::ViaSetCollection>(
        "routing/mrib/viaSetConfig/" + protocolName(), "viaSet", "Routing::Rib::Shmtab::ViaSetCollection",
        maxViaSets_));
    mcViaSetConfigSm_ = Rib::viaSetConfigSmFactory(mcViaSetConfig_);
    mcViaMetricStatusByVrf_ =
        Kel::ptrCast<Rib::ViaMetricStatusByVrf const>(em_->getEntity("routing/mrib/viaMetricStatus"));
    if (mcViaMetricStatusByVrf_) {
      for (const auto& vrf : mcViaMetricStatusByVrf_->vrfStatusColl()) mcVrfMetricStatusIs(vrf);
    }
    mcViaMetricStatusByVrfReactorIs(mcViaMetricStatusByVrf_);
    mcLoopingRouteStatusByVrf4_ =
        Kel::ptrCast<Rib::LoopingRouteStatusByVrf const>(em_->getEntity("routing/mrib/loopingRouteStatus"));
    mcLoopingRouteStatusByVrf4Reactor_.is(this, mcLoopingRouteStatusByVrf4_, &RootSm::setMcReadyVrfIpv4);
  }

  initializedIs(true);
  KEL_TRACE(trace_, 8, "doMountsComplete" << " Initialized --> True");
  handleVrfNameToIdMap();
  if (viaMetricStatusByVrf_) viaMetricStatusSm_ = viaMetricStatusSmFactory(viaMetricStatusByVrf_, routeStatusDir_);
}

// ---- Path builders ----

std::string RootSm::protocolName() const {
  switch (rp_) {
    case Rib::RoutingProtocol::staticConfig: return "staticConfig";
    case Rib::RoutingProtocol::routeInput: return "routeInput";
    default: return "";
  }
}

std::string RootSm::ribMount(Vrf::VrfIdMap::VrfId vrfId, const std::string& ribName, const std::string& af) const {
  return "routing/" + ribName + "/routeConfig/" + af + "/" + std::to_string(vrfId) + "/" + protocolName();
}

std::string RootSm::viaConfigMount(Vrf::VrfIdMap::VrfId vrfId, const std::string& ribName,
                                   Rib::Transport transport) const {
  return "routing/" + ribName + "/viaConfig/" + Rib::stringValue(transport) + "/" + std::to_string(vrfId) + "/" +
         protocolName();
}

std::string RootSm::allVrfViaConfigMount(const std::string& ribName, Rib::Transport transport) const {
  return "routing/" + ribName + "/viaConfig/" + Rib::stringValue(transport) + "/" + protocolName();
}

// ---- The VRF name-to-id map ----

Vrf::VrfIdMap::VrfId RootSm::vrfIdOf(const L3::VrfName& name) const {
  if (!vrfNameStatus_ || !vrfNameStatus_->nameToIdMap()) return Vrf::VrfIdMap::vrfIdNull;
  return vrfNameStatus_->nameToIdMap()->vrfId(name);
}

void RootSm::handleVrfNameToIdMap() {
  KEL_TRACE(trace_, 8, "handleVrfNameToIdMap");
  if (!initialized() || !vrfNameStatus_ || !vrfNameStatus_->nameToIdMap()) return;
  auto map = vrfNameStatus_->nameToIdMap();
  for (const L3::VrfName& name : map->vrfIdColl().keys()) {
    doCreateOrDeleteVrfAsuState(name);
    setReadyVrf(name);
    setMcReadyVrfIpv4(name);
  }
}

}  // namespace Routing::Protocol
