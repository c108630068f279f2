// The RIB library's policy for each routing protocol, in one place: which tables a protocol keeps
// for all VRFs at once rather than one per VRF, and whether it also feeds the multicast RIB.
//
//   protocol       route tables   IP via tables   EVPN via table   multicast RIB (mrib)
//   staticConfig   per VRF        per VRF         per VRF          yes
//   routeInput     all VRFs       all VRFs        all VRFs         no
//   any other      per VRF        per VRF         per VRF          no
//
// A protocol fed by a bulk input keeps one table for all its VRFs, so that a VRF coming or going
// does not mount or unmount anything; static routes are configured per VRF and also serve
// multicast reverse-path lookups.
#pragma once

#include <string>

#include "platform/rib/RibTypes.h"
#include "platform/rib/RouteConfig.h"

namespace Routing::Rib::RoutingProtocolHelper {
// True when the protocol also feeds the multicast RIB.
bool mribProtocol(RoutingProtocol rp) noexcept;
}  // namespace Routing::Rib::RoutingProtocolHelper

namespace Routing::ViaConfigLib {
// True when `protocol` (its string value) keeps one via table for all VRFs for `af` ("ipv4",
// "ipv6" or "evpn") in the RIB named `ribName` ("rib" or "mrib").
bool isAllVrfViaConfig(const std::string& protocol, const std::string& af, const std::string& ribName);
// "rib" or "mrib": the RIB a via table configures.
std::string getRibStringFromIpViaConfig(const Kel::Ptr<Rib::Ip::ViaConfig const>& viaConfig);
}  // namespace Routing::ViaConfigLib

namespace Routing::RouteConfigLib {
// True when `protocol` keeps one route table for all VRFs for `af` in `ribName`.
bool isAllVrfRouteConfig(const std::string& protocol, const std::string& af, const std::string& ribName);
// The path of such a table: "routing/<rib>/routeConfig/<af>/allVrfs/<protocol>".
std::string allVrfRibMount(const std::string& protocol, const std::string& af, const std::string& ribName);
}  // namespace Routing::RouteConfigLib
