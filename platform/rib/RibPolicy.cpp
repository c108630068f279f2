#include "platform/rib/RibPolicy.h"

namespace Routing {

namespace {

// The one row of the policy table that differs from the default.
bool keepsAllVrfTables(const std::string& protocol) {
  return protocol == Rib::stringValue(Rib::RoutingProtocol::routeInput);
}

}  // namespace

bool Rib::RoutingProtocolHelper::mribProtocol(RoutingProtocol rp) noexcept { return rp == RoutingProtocol::staticConfig; }

bool ViaConfigLib::isAllVrfViaConfig(const std::string& protocol, const std::string&, const std::string&) {
  return keepsAllVrfTables(protocol);
}

std::string ViaConfigLib::getRibStringFromIpViaConfig(const Kel::Ptr<Rib::Ip::ViaConfig const>& viaConfig) {
  return viaConfig ? viaConfig->ribName() : std::string("rib");
}

bool RouteConfigLib::isAllVrfRouteConfig(const std::string& protocol, const std::string&, const std::string&) {
  return keepsAllVrfTables(protocol);
}

std::string RouteConfigLib::allVrfRibMount(const std::string& protocol, const std::string& af, const std::string& ribName) {
  return "routing/" + ribName + "/routeConfig/" + af + "/allVrfs/" + protocol;
}

}  // namespace Routing
