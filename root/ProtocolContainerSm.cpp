#include "root/ProtocolContainerSm.h"

#include "platform/rib/RibPolicy.h"

namespace Routing::Protocol {

ContainerSm::ContainerSm(const ContainerKey& containerKey, Vrf::VrfIdMap::VrfId vrfId,
                         const Rib::ViaMetricStatus::PtrConst& ipViaMetricStatus,
                         const Rib::Ip::ViaConfig::Ptr& ipViaConfig,
                         const Rib::ViaMetricStatus::PtrConst& evpnViaMetricStatus,
                         const Rib::Evpn::ViaConfig::Ptr& evpnViaConfig, const Rib::ViaSetConfig::Ptr& viaSetConfig,
                         const Rib::RouteConfig::Ptr& ribConfig,
                         const Rib::LoopingRouteStatus::PtrConst& loopingRouteStatus,
                         const IntfStatus::Ptr& intfStatus, const Rib::Ip::ViaConfig::Ptr& ipv4DefaultVrfViaConfig,
                         const Rib::ViaMetricStatus::PtrConst& ipv4DefaultVrfViaMetricStatus,
                         const Rib::Ip::ViaConfig::Ptr& ipv6DefaultVrfViaConfig,
                         const Rib::ViaMetricStatus::PtrConst& ipv6DefaultVrfViaMetricStatus, Rib::RoutingProtocol rp,
                         const VrfReadyStatus::Ptr& vrfReadyStatus,
                         const BfdTrackedNextHopStatus::Ptr& bfdTrackedNextHopStatus,
                         const Bfd::AppConfig::Ptr& bfdAppConfig,
                         const Rib::ViaMetricStatusByVrf::PtrConst& viaMetricStatusByVrf, const std::string& ribString)
    : containerKey_(containerKey),
      vrfId_(vrfId),
      ipViaMetricStatus_(ipViaMetricStatus),
      ipViaConfig_(ipViaConfig),
      evpnViaMetricStatus_(evpnViaMetricStatus),
      evpnViaConfig_(evpnViaConfig),
      viaSetConfig_(viaSetConfig),
      ribConfig_(ribConfig),
      loopingRouteStatus_(loopingRouteStatus),
      intfStatus_(intfStatus),
      ipv4DefaultVrfViaConfig_(ipv4DefaultVrfViaConfig),
      ipv4DefaultVrfViaMetricStatus_(ipv4DefaultVrfViaMetricStatus),
      ipv6DefaultVrfViaConfig_(ipv6DefaultVrfViaConfig),
      ipv6DefaultVrfViaMetricStatus_(ipv6DefaultVrfViaMetricStatus),
      rp_(rp),
      vrfReadyStatus_(vrfReadyStatus),
      bfdTrackedNextHopStatus_(bfdTrackedNextHopStatus),
      bfdAppConfig_(bfdAppConfig),
      viaMetricStatusByVrf_(viaMetricStatusByVrf),
      ribString_(ribString) {
  handleInitialized();
}

void ContainerSm::handleInitialized() {
  initializedIs(true);
  statusIs(RouteStatusKey(vrfId_, containerKey_.af()));
  doInitSm();
}

void ContainerSm::doInitSm() {
  if (ipViaConfig_) {
    const std::string ribName = ViaConfigLib::getRibStringFromIpViaConfig(ipViaConfig_);
    const std::string transport = Rib::stringValue(ipViaConfig_->transport());
    // A via table shared by all VRFs has one state machine, the root's.
    if (!ViaConfigLib::isAllVrfViaConfig(Rib::stringValue(rp_), transport, ribName)) ipViaConfigSmIs();
  }
  if (evpnViaConfig_ && vrfId_ == Vrf::VrfIdMap::defaultVrfId) evpnViaConfigSmIs();
  routeStatusSmIs();
  intfSmIs();
}

Status::Ptr ContainerSm::statusIs(const RouteStatusKey& key) {
  if (!status_ || !(status_->key() == key)) status_ = statusFactory(key);
  return status_;
}

RouteStatusSm::Ptr ContainerSm::routeStatusSmIs() {
  if (!routeStatusSm_) {
    routeStatusSm_ = routeStatusSmFactory(containerKey_.vrfName(), containerKey_.af(), vrfId_, status_,
                                          ipViaMetricStatus_, evpnViaMetricStatus_, loopingRouteStatus_, ribConfig_,
                                          viaSetConfig_, rp_, ipv4DefaultVrfViaMetricStatus_,
                                          ipv6DefaultVrfViaMetricStatus_, vrfReadyStatus_, bfdAppConfig_,
                                          Rib::Ip::ViaConfig::PtrConst(ipViaConfig_), viaMetricStatusByVrf_, ribString_);
  }
  return routeStatusSm_;
}

Rib::Ip::ViaConfigSm::Ptr ContainerSm::ipViaConfigSmIs() {
  if (!ipViaConfigSm_ && ipViaConfig_) ipViaConfigSm_ = Rib::Ip::viaConfigSmFactory(ipViaConfig_);
  return ipViaConfigSm_;
}

Rib::Evpn::ViaConfigSm::Ptr ContainerSm::evpnViaConfigSmIs() {
  if (!evpnViaConfigSm_ && evpnViaConfig_) evpnViaConfigSm_ = Rib::Evpn::viaConfigSmFactory(evpnViaConfig_);
  return evpnViaConfigSm_;
}

Rib::ViaSetConfigSm::Ptr ContainerSm::viaSetConfigSmIs() {
  if (!viaSetConfigSm_ && viaSetConfig_) viaSetConfigSm_ = Rib::viaSetConfigSmFactory(viaSetConfig_);
  return viaSetConfigSm_;
}

IntfSm::Ptr ContainerSm::intfSmIs() {
  if (!intfSm_ && intfStatus_) intfSm_ = intfSmFactory(intfStatus_);
  return intfSm_;
}

}  // namespace Routing::Protocol
