// RootSm, per VRF: whether it is ready for a container in each family, the per-VRF tables of a
// container, readiness after a restart, and the wiring of the RIB's via-metric tree.
#include <sstream>

#include "platform/fasttrace/FastTrace.h"
#include "platform/kel/Trace.h"
#include "platform/rib/RibPolicy.h"
#include "platform/shmtab/Shmtab.h"
#include "root/ProtocolRootSm.h"

namespace Routing::Protocol {

namespace {
constexpr const char* kTraceSource = "ProtocolRootSm";
Kel::TraceHandle& trace_ = Kel::TraceHandle::handle("Quill::ProtocolRootSm");

const char* yesNo(bool b) { return b ? "true" : "false"; }

bool hasInterfaces(const Ip::Status::PtrConst& s, const L3::VrfName& name) {
  auto vrf = s ? s->vrfIpIntfStatus(name) : nullptr;
  return vrf && vrf->ipIntfStatuss() != 0;
}

bool hasInterfaces(const Ip6::Status::PtrConst& s, const L3::VrfName& name) {
  auto vrf = s ? s->vrfIp6IntfStatus(name) : nullptr;
  return vrf && vrf->ip6IntfStatuss() != 0;
}

}  // namespace

// ---- Ready sets ----

void RootSm::setReadyVrf(const L3::VrfName& name) {
  setReadyVrfIpv4(name);
  setReadyVrfIpv6(name);
}

void RootSm::setReadyVrfIpv4(const L3::VrfName& name) { setReadyVrfUnicast(name, false); }

void RootSm::setReadyVrfIpv6(const L3::VrfName& name) { setReadyVrfUnicast(name, true); }

void RootSm::setReadyVrfUnicast(const L3::VrfName& name, bool ipv6) {
  const char* op = ipv6 ? "setReadyVrfIpv6" : "setReadyVrfIpv4";
  if (!initialized()) return;
  auto readyDel = [&] { ipv6 ? readyVrfIpv6Del(name) : readyVrfIpv4Del(name); };
  const Vrf::VrfIdMap::VrfId vrfId = vrfIdOf(name);
  if (vrfId == Vrf::VrfIdMap::vrfIdNull) {
    readyDel();
    return;
  }
  // The tables are mounted as soon as the VRF has an id, whatever the checks below say.
  ipv6 ? doMountContainer6(name) : doMountContainer4(name);
  // Every missing item is traced: no check stops the others.
  bool ready = true;
  auto missing = [&](const char* what, bool withName) {
    ready = false;
    KEL_TRACE(trace_, 9, op << what << (withName ? name.str() : std::string()));
  };
  if (!viaMetricStatus(ipv6 ? Rib::Transport::ipv6 : Rib::Transport::ipv4, vrfId, "rib")) {
    missing(ipv6 ? ", No V6 ViaMetricStatus for vrf " : ", No V4 ViaMetricStatus for vrf ", true);
  }
  if (!evpnViaMetricStatus_) missing(", No Evpn ViaMetricStatus for vrf ", true);
  if (ipv6 ? !(ipv6IntfStatus_ && ipv6IntfStatus_->vrfIp6IntfStatusHas(name))
           : !(ipv4IntfStatus_ && ipv4IntfStatus_->vrfIpIntfStatusHas(name))) {
    missing(ipv6 ? ", No V6 IpIntfStatus for vrf " : ", No V4 IpIntfStatus for vrf ", true);
  }
  const auto& looping = ipv6 ? loopingRouteStatusByVrf6_ : loopingRouteStatusByVrf4_;
  if (!(looping && looping->loopingRouteStatusHas(name))) {
    missing(ipv6 ? ", No V6 LoopingRouteStatus vrf " : ", No V4 LoopingRouteStatus for vrf ", true);
  }
  if (!ipv4DefaultVrfViaMetricStatus_) missing(", No V4 DefaultVrf ViaMetricStatus", false);
  if (!ipv6DefaultVrfViaMetricStatus_) missing(", No V6 DefaultVrf ViaMetricStatus", false);
  if (ready) {
    KEL_TRACE(trace_, 9, op << ", " << "Attempt to create container sm for vrf " << name.str());
    ipv6 ? readyVrfIpv6Is(name) : readyVrfIpv4Is(name);
  } else {
    KEL_TRACE(trace_, 9, op << ", " << "Deleting container sm for vrf " << name.str());
    readyDel();
  }
  maybeSetRoutesReady(name);
}

void RootSm::setMcReadyVrfIpv4(const L3::VrfName& name) {
  if (!initialized()) return;
  if (!Rib::RoutingProtocolHelper::mribProtocol(rp_)) {
    KEL_TRACE(trace_, 9, "setMcReadyVrfIpv4" << "No Mrib routing protocol configured");
    mcReadyVrfIpv4Del(name);
    return;
  }
  const Vrf::VrfIdMap::VrfId vrfId = vrfIdOf(name);
  if (vrfId == Vrf::VrfIdMap::vrfIdNull) {
    mcReadyVrfIpv4Del(name);
    return;
  }
  bool ready = true;
  auto missing = [&](const char* what) {
    ready = false;
    KEL_TRACE(trace_, 9, "setMcReadyVrfIpv4" << what << name.str());
  };
  if (!viaMetricStatus(Rib::Transport::ipv4, vrfId, "mrib")) missing(", No V4 McViaMetricStatus for vrf ");
  if (!(ipv4IntfStatus_ && ipv4IntfStatus_->vrfIpIntfStatusHas(name))) missing(", No V4 McIpIntfStatus for vrf ");
  if (!(mcLoopingRouteStatusByVrf4_ && mcLoopingRouteStatusByVrf4_->loopingRouteStatusHas(name))) {
    missing(", No V4 McLoopingRouteStatus for vrf ");
  }
  if (ready) {
    KEL_TRACE(trace_, 9, "setMcReadyVrfIpv4" << ", " << "Attempt to create McContainer sm for vrf " << name.str());
    mcReadyVrfIpv4Is(name);
  } else {
    KEL_TRACE(trace_, 9, "setMcReadyVrfIpv4" << ", " << "Deleting McContainer sm for vrf " << name.str());
    mcReadyVrfIpv4Del(name);
  }
}

// ---- Per-VRF tables of a container ----

void RootSm::doMountContainer(const char* op, const L3::VrfName& name, const std::string& ribName,
                              const std::string& af, Rib::Transport transport) {
  const Vrf::VrfIdMap::VrfId vrfId = vrfIdOf(name);
  KEL_TRACE(trace_, 8, op << "(" << name.str() << "), VRF ID: " << vrfId);
  if (vrfId == Vrf::VrfIdMap::vrfIdNull) return;
  const std::string proto = Rib::stringValue(rp_);
  if (!RouteConfigLib::isAllVrfRouteConfig(proto, af, ribName)) {
    mountTable<Rib::RouteConfig>(ribMount(vrfId, ribName, af), "route", "Routing::Rib::RouteConfig", maxRoutes_);
  }
  if (!ViaConfigLib::isAllVrfViaConfig(proto, af, ribName)) {
    mountTable<Rib::Ip::ViaConfig>(viaConfigMount(vrfId, ribName, transport), "via", "Routing::Rib::Ip::ViaConfig",
                                   maxViaSets_);
  }
}

Rib::RouteConfig::Ptr RootSm::ribConfigOf(Vrf::VrfIdMap::VrfId vrfId,
                                          Velnet::AddressFamily af) const {
  const bool v4 = af == Velnet::AddressFamily::ipv4;
  if (const auto& shared = v4 ? ipv4AllVrfRibConfig_ : ipv6AllVrfRibConfig_) return shared;
  return Kel::ptrCast<Rib::RouteConfig>(
      em_->getEntity(ribMount(vrfId, "rib", v4 ? "ipv4" : "ipv6")));
}

ContainerSm::Ptr RootSm::containerSmNew(const ContainerKey& key,
                                        const Bfd::AppConfig::Ptr& bfdAppConfig) {
  const L3::VrfName& name = key.vrfName();
  const bool v4 = key.af() == Velnet::AddressFamily::ipv4;
  const Vrf::VrfIdMap::VrfId id = vrfIdOf(name);
  const Rib::Transport transport = v4 ? Rib::Transport::ipv4 : Rib::Transport::ipv6;
  Rib::Ip::ViaConfig::Ptr viaConfig = v4 ? ipv4AllVrfViaConfig_ : ipv6AllVrfViaConfig_;
  if (!viaConfig) {
    viaConfig =
        Kel::ptrCast<Rib::Ip::ViaConfig>(em_->getEntity(viaConfigMount(id, "rib", transport)));
  }
  IntfStatus::Ptr intf;
  if (v4) {
    intf = ipv4IntfStatusFactory(
        Ip::VrfIpIntfStatus::PtrConst(ipv4IntfStatus_->vrfIpIntfStatus(name)));
  } else {
    intf = ipv6IntfStatusFactory(
        Ip6::VrfIp6IntfStatus::PtrConst(ipv6IntfStatus_->vrfIp6IntfStatus(name)));
  }
  auto looping =
      (v4 ? loopingRouteStatusByVrf4_ : loopingRouteStatusByVrf6_)->loopingRouteStatus(name);
  auto c = containerSmFactory(
      key, id, viaMetricStatus(transport, id, "rib"), viaConfig, evpnViaMetricStatus_, evpnConfig_,
      viaSetConfig_, ribConfigOf(id, key.af()), Rib::LoopingRouteStatus::PtrConst(looping), intf,
      ipv4DefaultVrfViaConfig_, ipv4DefaultVrfViaMetricStatus_, ipv6DefaultVrfViaConfig_,
      ipv6DefaultVrfViaMetricStatus_, rp_, allVrfReadyStatus_->vrfReadyStatus(name),
      bfdTrackedNHByContainer_->nextHopStatusIs(key), bfdAppConfig, viaMetricStatusByVrf_,
      std::string("rib"));
  routeStatusDir_->statusIs(c->status());
  // The via-metric machine, which has just started watching the status, hears each change of it
  // before the route-status machine does: a route that arrives is indexed before it is evaluated,
  // and the stamps that indexing makes reach no reactor of the route yet, so a route written whole
  // is evaluated once instead of once more per via. A notifiee registered again goes last.
  if (auto* statusReactor = c->routeStatusSm()->statusReactor()) {
    statusReactor->isRegisteredNotifieeIs(false);
    statusReactor->isRegisteredNotifieeIs(true);
  }
  return c;
}

void RootSm::doMountContainer4(const L3::VrfName& name) {
  doMountContainer("doMountContainer4", name, "rib", "ipv4", Rib::Transport::ipv4);
}

void RootSm::doMountContainer6(const L3::VrfName& name) {
  doMountContainer("doMountContainer6", name, "rib", "ipv6", Rib::Transport::ipv6);
}

void RootSm::doMountMcContainer4(const L3::VrfName& name) {
  doMountContainer("doMountMcContainer4", name, "mrib", "ipv4", Rib::Transport::ipv4);
}

void RootSm::doCleanupContainer(const char* op, const L3::VrfName& name, Vrf::VrfIdMap::VrfId vrfId,
                                const std::string& ribName, const std::string& af, Rib::Transport transport,
                                Velnet::AddressFamily family, const Rib::RouteConfig::Ptr& allVrfRibConfig) {
  KEL_TRACE(trace_, 8, op << "(" << name.str() << "), VRF ID: " << vrfId);
  bfdTrackedNHByContainer_->nextHopStatusDel(ContainerKey(name, family));
  const std::string proto = Rib::stringValue(rp_);
  KelShmtab::Mount mount(em_);
  if (!RouteConfigLib::isAllVrfRouteConfig(proto, af, ribName)) {
    mount.doCleanup(ribMount(vrfId, ribName, af));
    mount.doUnmount(ribMount(vrfId, ribName, af));
  } else if (allVrfRibConfig) {
    allVrfRibConfig->doDeleteRoutesForVrf(vrfId);
  }
  // A VRF's vias in a table shared by all VRFs are removed by doDeleteViasForVrf.
  if (!ViaConfigLib::isAllVrfViaConfig(proto, af, ribName)) {
    mount.doCleanup(viaConfigMount(vrfId, ribName, transport));
    mount.doUnmount(viaConfigMount(vrfId, ribName, transport));
  }
}

void RootSm::doCleanupContainer4(const L3::VrfName& name, Vrf::VrfIdMap::VrfId vrfId) {
  doCleanupContainer("doCleanupContainer4", name, vrfId, "rib", "ipv4", Rib::Transport::ipv4,
                     Velnet::AddressFamily::ipv4, ipv4AllVrfRibConfig_);
}

void RootSm::doCleanupContainer6(const L3::VrfName& name, Vrf::VrfIdMap::VrfId vrfId) {
  doCleanupContainer("doCleanupContainer6", name, vrfId, "rib", "ipv6", Rib::Transport::ipv6,
                     Velnet::AddressFamily::ipv6, ipv6AllVrfRibConfig_);
}

void RootSm::doCleanupMcContainer4(const L3::VrfName& name, Vrf::VrfIdMap::VrfId vrfId) {
  doCleanupContainer("doCleanupMcContainer4", name, vrfId, "mrib", "ipv4", Rib::Transport::ipv4,
                     Velnet::AddressFamily::ipv4, mcIpv4AllVrfRibConfig_);
}

// ---- Readiness after restart ----

void RootSm::doCreateOrDeleteVrfAsuState(const L3::VrfName& name) {
  KEL_DUAL_TRACE(trace_, 8, "doCreateOrDeleteVrfAsuState");
  if (!vrfNameStatus_ || !vrfNameStatus_->nameToIdMap()) return;
  if (vrfIdOf(name) == Vrf::VrfIdMap::vrfIdNull) {
    KEL_DUAL_TRACE(trace_, 8, "Deleting vrfReadyStatus and vrfRiSeqTrigger for vrf: " << name.str());
    allVrfReadyStatus_->vrfReadyStatusDel(name);
    allVrfRibSeqTrigger_->vrfRibSeqTriggerDel(name);
  } else {
    KEL_DUAL_TRACE(trace_, 8, "Creating vrfReadyStatus and vrfRibSeqTrigger for vrf: " << name.str());
    allVrfReadyStatus_->vrfReadyStatusIs(name);
    allVrfRibSeqTrigger_->vrfRibSeqTriggerIs(name);
  }
}

void RootSm::maybeSetRoutesReady(const L3::VrfName& name) {
  KEL_DUAL_TRACE(trace_, 8, "maybeSetRoutesReady" << ": Attempting to set routes ready for vrf : " << name.str());
  KEL_ASSERT(grState());
  auto status = allVrfReadyStatus_->vrfReadyStatus(name);
  if (!status) return;  // the VRF's entries come first from the name map; nothing to mark yet
  if (!grState()->gracefulRestart()) {
    KEL_DUAL_TRACE(trace_, 9, "maybeSetRoutesReady" << ": Marking both v4 and v6 routes ready");
    status->v4RoutesReadyIs(true);
    status->v6RoutesReadyIs(true);
    return;
  }
  if (!grState()->startReadyVerification()) return;
  // A family in which the VRF has interfaces reports through its review instead.
  if (!hasInterfaces(ipv6IntfStatus_, name)) {
    KEL_DUAL_TRACE(trace_, 9, "maybeSetRoutesReady" << ": Marking v6 routes ready");
    status->v6RoutesReadyIs(true);
  }
  if (!hasInterfaces(ipv4IntfStatus_, name)) {
    KEL_DUAL_TRACE(trace_, 9, "maybeSetRoutesReady" << " Marking v4 routes ready");
    status->v4RoutesReadyIs(true);
  }
}

void RootSm::handleStartReadyVerification() {
  KEL_DUAL_TRACE(trace_, 8, "handleStartReadyVerification");
  if (!initialized() || !vrfNameStatus_ || !vrfNameStatus_->nameToIdMap()) return;
  for (const L3::VrfName& name : vrfNameStatus_->nameToIdMap()->vrfIdColl().keys()) maybeSetRoutesReady(name);
}

void RootSm::handleRibSeqTrigger(const L3::VrfName& name) {
  KEL_DUAL_TRACE(trace_, 8, "handleRibSeqTrigger");
  if (!initialized()) return;
  auto status = allVrfReadyStatus_->vrfReadyStatus(name);
  auto trigger = allVrfRibSeqTrigger_->vrfRibSeqTrigger(name);
  if (!status || !trigger || trigger->ribReadySeqTrigger() == 0) return;
  KEL_DUAL_TRACE(trace_, 8, "Vrf : " << name.str() << ", ribReadySeqTrigger received : " << trigger->ribReadySeqTrigger());
  // Without a container in a family no review runs there to report it reviewed.
  if (!readyVrfIpv4Has(name)) {
    KEL_DUAL_TRACE(trace_, 8, "Mark v4 route review complete ");
    status->v4RouteReviewCompleteIs(true);
  }
  if (!readyVrfIpv6Has(name)) {
    KEL_DUAL_TRACE(trace_, 8, "Mark v6 route review complete ");
    status->v6RouteReviewCompleteIs(true);
  }
  maybeUpdateRibReadySeqStatus(name);
}

void RootSm::maybeUpdateRibReadySeqStatus(const L3::VrfName& name) {
  KEL_DUAL_TRACE(trace_, 8, "maybeUpdateRibReadySeqStatus");
  if (!initialized()) return;
  auto status = allVrfReadyStatus_->vrfReadyStatus(name);
  auto trigger = allVrfRibSeqTrigger_->vrfRibSeqTrigger(name);
  if (!status || !trigger) return;
  const uint32_t seq = trigger->ribReadySeqTrigger();
  if (seq == 0 || seq == status->ribReadySeqStatus()) return;
  KEL_DUAL_TRACE(trace_, 8, "Attempting to update ribReadySeqStatus for vrf : "
                                << name.str() << " to value : " << seq
                                << ". v4RouteReviewComplete: " << yesNo(status->v4RouteReviewComplete())
                                << ", v6RouteReviewComplete: " << yesNo(status->v6RouteReviewComplete()));
  if (status->v4RouteReviewComplete() && status->v6RouteReviewComplete()) {
    KEL_DUAL_TRACE(trace_, 8, "Vrf : " << name.str() << ", ribReadySeqStatus : " << seq);
    status->ribReadySeqStatusIs(seq);
  }
}

// ---- Via-metric wiring ----

Rib::ViaMetricStatus::PtrConst RootSm::viaMetricStatus(Rib::Transport transport, Vrf::VrfIdMap::VrfId vrfId,
                                                       const std::string& ribName) const {
  Rib::ViaMetricStatusByVrf::PtrConst tree;
  if (ribName == "rib") {
    tree = viaMetricStatusByVrf_;
  } else if (ribName == "mrib") {
    tree = mcViaMetricStatusByVrf_;
  } else {
    return nullptr;
  }
  if (!tree) return nullptr;
  auto byTransport = tree->vrfStatus(vrfId);
  if (!byTransport) {
    KEL_TRACE(trace_, 9, "viaMetricStatus" << "(" << vrfId << "), no Vrf Status");
    return nullptr;
  }
  auto byProtocol = byTransport->transportStatus(transport);
  if (!byProtocol) {
    KEL_TRACE(trace_, 9, "viaMetricStatus" << "(" << vrfId << "), no transport");
    return nullptr;
  }
  return byProtocol->protocolStatus(rp_);
}

void RootSm::setIpv4DefaultVrfViaMetricStatus(const std::string& ribName) {
  if (ribName != "rib") return;
  ipv4DefaultVrfViaMetricStatus_ = viaMetricStatus(Rib::Transport::ipv4, Vrf::VrfIdMap::defaultVrfId, "rib");
}

void RootSm::setIpv6DefaultVrfViaMetricStatus(const std::string& ribName) {
  if (ribName != "rib") return;
  ipv6DefaultVrfViaMetricStatus_ = viaMetricStatus(Rib::Transport::ipv6, Vrf::VrfIdMap::defaultVrfId, "rib");
}

void RootSm::setEvpnViaMetricStatus() {
  // EVPN vias resolve in the default VRF, for the containers of every VRF.
  evpnViaMetricStatus_ = viaMetricStatus(Rib::Transport::evpn, Vrf::VrfIdMap::defaultVrfId, "rib");
}

void RootSm::handleViaMetricStatus(Vrf::VrfIdMap::VrfId vrfId) {
  KEL_TRACE(trace_, 8, "handleViaMetricStatus");
  if (!vrfIdStatus_) {
    KEL_TRACE(trace_, 9, "handleViaMetricStatus" << "(" << vrfId << ")" << ", Vrf ID status is null");
    return;
  }
  if (!vrfIdStatus_->vrfNameHas(vrfId)) {
    KEL_TRACE(trace_, 9, "handleViaMetricStatus" << "(" << vrfId << ")" << ", No Vrf Entry");
    return;
  }
  if (vrfId == Vrf::VrfIdMap::defaultVrfId) {
    setIpv4DefaultVrfViaMetricStatus("rib");
    setIpv6DefaultVrfViaMetricStatus("rib");
    setEvpnViaMetricStatus();
  }
  // Only this VRF is re-evaluated; VRFs waiting for a default-VRF status wait for their own
  // next event.
  setReadyVrf(vrfIdStatus_->vrfName(vrfId));
}

void RootSm::handleMcViaMetricStatus(Vrf::VrfIdMap::VrfId vrfId) {
  KEL_TRACE(trace_, 8, "handleMcViaMetricStatus");
  if (!vrfIdStatus_) {
    KEL_TRACE(trace_, 9, "handleMcViaMetricStatus" << "(" << vrfId << ")" << ", Vrf ID status is null");
    return;
  }
  if (!vrfIdStatus_->vrfNameHas(vrfId)) {
    KEL_TRACE(trace_, 9, "handleMcViaMetricStatus" << "(" << vrfId << ")" << ", No Vrf Entry");
    return;
  }
  setMcReadyVrfIpv4(vrfIdStatus_->vrfName(vrfId));
}

void RootSm::doDeleteViasForVrf(Vrf::VrfIdMap::VrfId vrfId, const Kel::Ptr<Rib::ViaTable>& viaConfig) {
  KEL_TRACE(trace_, 8, "doDeleteViasForVrf" << " (" << vrfId << ")");
  if (!viaConfig) return;
  try {
    for (const Rib::ViaKey& key : viaConfig->viaKeys(vrfId)) {
      viaConfig->checkIntegrity();
      viaConfig->viaDel(key);
    }
  } catch (const Kel::CorruptionException& e) {
    viaConfig->reportCorruption(e.what());
  } catch (const std::exception& e) {
    viaConfig->reportCorruption(e.what());
  }
}

}  // namespace Routing::Protocol
