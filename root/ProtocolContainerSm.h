// ContainerSm: the state machines of one VRF and address family (IPv4 unicast, IPv6 unicast or
// IPv4 multicast).
//
// The agent builds one when the VRF's name enters a ready set of RootSm, from the tables the root
// holds for that VRF, and destroys it (then calls the root's clean-up) when the name leaves. The
// container creates and owns the route status of the VRF and family, its RouteStatusSm, its
// IntfSm and, where the protocol keeps per-VRF via tables, the via-configuration machines. For
// the via-metric state machine to index the container's routes, the agent enters `status()` in
// the root's RouteStatusDir while the container lives.
#pragma once

#include <string>

#include "intf/ProtocolIntf.h"
#include "intf/ProtocolIntfSm.h"
#include "keys/ProtocolContainerKey.h"
#include "platform/bfd/Bfd.h"
#include "platform/kel/Reactor.h"
#include "platform/rib/ConfigSm.h"
#include "platform/rib/RouteConfig.h"
#include "platform/rib/ViaMetric.h"
#include "platform/rib/ViaSetConfig.h"
#include "root/ProtocolGrTypes.h"
#include "routestatus/ProtocolBfdTrackedNextHop.h"
#include "routestatus/ProtocolRouteStatus.h"
#include "routestatus/ProtocolRouteStatusSm.h"

namespace Routing::Protocol {

class ContainerSm : public Kel::StateMachine {
 public:
  KEL_ENTITY(ContainerSm, "Routing::Protocol::ContainerSm");
  class NotifieeConst : public Kel::NotifieeConstOf<ContainerSm> {};
  KEL_CREATOR(ContainerSm);

  KEL_CTOR_PARAM(ContainerKey, containerKey);
  KEL_CTOR_PARAM(Vrf::VrfIdMap::VrfId, vrfId);
  KEL_CTOR_PARAM(Rib::ViaMetricStatus::PtrConst, ipViaMetricStatus);
  KEL_CTOR_PARAM(Rib::Ip::ViaConfig::Ptr, ipViaConfig);
  KEL_CTOR_PARAM(Rib::ViaMetricStatus::PtrConst, evpnViaMetricStatus);
  KEL_CTOR_PARAM(Rib::Evpn::ViaConfig::Ptr, evpnViaConfig);
  KEL_CTOR_PARAM(Rib::ViaSetConfig::Ptr, viaSetConfig);
  KEL_CTOR_PARAM(Rib::RouteConfig::Ptr, ribConfig);
  KEL_CTOR_PARAM(Rib::LoopingRouteStatus::PtrConst, loopingRouteStatus);
  KEL_CTOR_PARAM(IntfStatus::Ptr, intfStatus);
  KEL_CTOR_PARAM(Rib::Ip::ViaConfig::Ptr, ipv4DefaultVrfViaConfig);
  KEL_CTOR_PARAM(Rib::ViaMetricStatus::PtrConst, ipv4DefaultVrfViaMetricStatus);
  KEL_CTOR_PARAM(Rib::Ip::ViaConfig::Ptr, ipv6DefaultVrfViaConfig);
  KEL_CTOR_PARAM(Rib::ViaMetricStatus::PtrConst, ipv6DefaultVrfViaMetricStatus);
  KEL_CTOR_PARAM(Rib::RoutingProtocol, rp);
  KEL_CTOR_PARAM(VrfReadyStatus::Ptr, vrfReadyStatus);
  KEL_CTOR_PARAM(BfdTrackedNextHopStatus::Ptr, bfdTrackedNextHopStatus);
  KEL_CTOR_PARAM(Bfd::AppConfig::Ptr, bfdAppConfig);
  KEL_CTOR_PARAM(Rib::ViaMetricStatusByVrf::PtrConst, viaMetricStatusByVrf);
  KEL_CTOR_PARAM(std::string, ribString);

  // ---- Owned ----
  const Status::Ptr& status() const noexcept { return status_; }
  const RouteStatusSm::Ptr& routeStatusSm() const noexcept { return routeStatusSm_; }
  const Rib::Ip::ViaConfigSm::Ptr& ipViaConfigSm() const noexcept { return ipViaConfigSm_; }
  const Rib::Evpn::ViaConfigSm::Ptr& evpnViaConfigSm() const noexcept { return evpnViaConfigSm_; }
  const Rib::ViaSetConfigSm::Ptr& viaSetConfigSm() const noexcept { return viaSetConfigSm_; }
  const IntfSm::Ptr& intfSm() const noexcept { return intfSm_; }

  Status::Ptr statusIs(const RouteStatusKey& key);
  void statusDel() { status_ = nullptr; }
  RouteStatusSm::Ptr routeStatusSmIs();
  void routeStatusSmDel() { routeStatusSm_ = nullptr; }
  Rib::Ip::ViaConfigSm::Ptr ipViaConfigSmIs();
  void ipViaConfigSmDel() { ipViaConfigSm_ = nullptr; }
  Rib::Evpn::ViaConfigSm::Ptr evpnViaConfigSmIs();
  void evpnViaConfigSmDel() { evpnViaConfigSm_ = nullptr; }
  // Not made at start-up; an agent that wants one sets it.
  Rib::ViaSetConfigSm::Ptr viaSetConfigSmIs();
  void viaSetConfigSmDel() { viaSetConfigSm_ = nullptr; }
  IntfSm::Ptr intfSmIs();
  void intfSmDel() { intfSm_ = nullptr; }

  void handleInitialized();
  void doInitSm();

 private:
  ContainerSm(const ContainerKey& containerKey, Vrf::VrfIdMap::VrfId vrfId,
              const Rib::ViaMetricStatus::PtrConst& ipViaMetricStatus, const Rib::Ip::ViaConfig::Ptr& ipViaConfig,
              const Rib::ViaMetricStatus::PtrConst& evpnViaMetricStatus, const Rib::Evpn::ViaConfig::Ptr& evpnViaConfig,
              const Rib::ViaSetConfig::Ptr& viaSetConfig, const Rib::RouteConfig::Ptr& ribConfig,
              const Rib::LoopingRouteStatus::PtrConst& loopingRouteStatus, const IntfStatus::Ptr& intfStatus,
              const Rib::Ip::ViaConfig::Ptr& ipv4DefaultVrfViaConfig,
              const Rib::ViaMetricStatus::PtrConst& ipv4DefaultVrfViaMetricStatus,
              const Rib::Ip::ViaConfig::Ptr& ipv6DefaultVrfViaConfig,
              const Rib::ViaMetricStatus::PtrConst& ipv6DefaultVrfViaMetricStatus, Rib::RoutingProtocol rp,
              const VrfReadyStatus::Ptr& vrfReadyStatus, const BfdTrackedNextHopStatus::Ptr& bfdTrackedNextHopStatus,
              const Bfd::AppConfig::Ptr& bfdAppConfig, const Rib::ViaMetricStatusByVrf::PtrConst& viaMetricStatusByVrf,
              const std::string& ribString);

  Status::Ptr status_;
  RouteStatusSm::Ptr routeStatusSm_;
  Rib::Ip::ViaConfigSm::Ptr ipViaConfigSm_;
  Rib::Evpn::ViaConfigSm::Ptr evpnViaConfigSm_;
  Rib::ViaSetConfigSm::Ptr viaSetConfigSm_;
  IntfSm::Ptr intfSm_;
};
KEL_FACTORY(ContainerSm, containerSmFactory)

}  // namespace Routing::Protocol
