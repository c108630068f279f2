#include "platform/rib/RibTypes.h"

#include <iterator>
#include <tuple>

#include "platform/kel/Hash.h"

namespace Routing::Rib {

namespace {

constexpr const char* kTransportNames[] = {"unknown", "ipv4", "ipv6", "evpn"};
constexpr const char* kProtocolNames[] = {
    "unknown", "connected", "staticConfig", "bgp", "routeInput", "ospf", "isis", "ospf3", "rip"};

}  // namespace

const char* stringValue(Transport t) noexcept {
  auto v = static_cast<size_t>(t);
  return v < std::size(kTransportNames) ? kTransportNames[v] : "invalid";
}

std::ostream& operator<<(std::ostream& os, Transport t) {
  return os << Kel::Strep<Transport>::print(t);
}

const char* stringValue(RoutingProtocol p) noexcept {
  auto v = static_cast<size_t>(p);
  return v < std::size(kProtocolNames) ? kProtocolNames[v] : "invalid";
}

RoutingProtocol routingProtocolFromString(std::string_view name) {
  size_t i = Velnet::detail::enumIndex(name, kProtocolNames);
  if (i == std::size(kProtocolNames)) {
    throw Kel::RangeException("unknown Routing::Rib::RoutingProtocol " + Kel::quote(name) +
                              " not allowed");
  }
  return static_cast<RoutingProtocol>(i);
}

std::ostream& operator<<(std::ostream& os, RoutingProtocol p) {
  return os << Kel::Strep<RoutingProtocol>::print(p);
}

// ---- ViaKey

namespace {

constexpr std::string_view kViaKeyHead = "Value('Routing::Rib::ViaKey', ** {";

}  // namespace

ViaKey::ViaKey(Kel::TextCursor& c) {
  // Parse on a copy so that a refused text leaves the caller's cursor where it was.
  Kel::TextCursor p = c;
  p.expect(kViaKeyHead);
  p.expect("'transport': ");
  auto transport = Kel::parseField<Transport>(p, "transport");
  p.expect(", 'vrfId': ");
  auto vrfId = Kel::parseField<Vrf::VrfIdMap::VrfId>(p, "vrfId");
  p.expect(", 'routingProtocol': ");
  auto protocol = Kel::parseField<RoutingProtocol>(p, "routingProtocol");
  p.expect(", 'addr': ");
  auto addr = Kel::parseField<Velnet::IpGenAddr>(p, "addr");
  p.expect(", 'intfId': ");
  auto intf = Kel::parseField<Velnet::IntfId>(p, "intfId");
  p.expect(", 'vni': ");
  auto vni = Kel::parseField<uint32_t>(p, "vni");
  p.expect("})");
  *this = ViaKey(transport, vrfId, protocol, addr, intf, vni);
  c = p;
}

bool ViaKey::operator<(const ViaKey& o) const noexcept {
  return std::tie(transport_, vrfId_, routingProtocol_, addr_, intfId_, vni_) <
         std::tie(o.transport_, o.vrfId_, o.routingProtocol_, o.addr_, o.intfId_, o.vni_);
}

// Every route evaluation hashes each of its vias several times (the route's own via table, the
// metric tables, the via configuration), so this is one of the hottest functions of the system:
// four words, each multiplied by its own odd constant, summed and mixed once.
uint32_t ViaKey::hash() const noexcept {
  const auto bytes = addr_.asV6Bytes();
  const uint64_t head = uint64_t(static_cast<uint8_t>(transport_)) |
                        uint64_t(static_cast<uint8_t>(routingProtocol_)) << 8 |
                        uint64_t(static_cast<uint8_t>(addr_.af())) << 16 | uint64_t(vrfId_) << 32;
  const uint64_t tail = uint64_t(intfId_.hash()) | uint64_t(vni_) << 32;
  const uint64_t h =
      head * 0x9e3779b97f4a7c15ULL + Kel::loadLe64(bytes.data()) * 0xc2b2ae3d27d4eb4fULL +
      Kel::loadLe64(bytes.data() + 8) * 0x165667b19e3779f9ULL + tail * 0xd6e8feb86659fd93ULL;
  return Kel::mix64To32(h);
}

std::string ViaKey::strep() const {
  std::string out(kViaKeyHead);
  out += "'transport': ";
  out += Kel::valueToStrep(transport_);
  out += ", 'vrfId': ";
  out += Kel::valueToStrep(vrfId_);
  out += ", 'routingProtocol': ";
  out += Kel::valueToStrep(routingProtocol_);
  out += ", 'addr': ";
  out += addr_.strep();
  out += ", 'intfId': ";
  out += intfId_.strep();
  out += ", 'vni': ";
  out += std::to_string(vni_);
  out += "})";
  return out;
}

std::string ViaKey::str() const {
  std::string out = stringValue(transport_);
  out += ':';
  out += std::to_string(vrfId_);
  out += ':';
  out += stringValue(routingProtocol_);
  out += ':';
  out += addr_.str();
  if (!!intfId_) {
    out += '%';
    out += intfId_.name();
  }
  if (vni_ != 0) {
    out += ":vni";
    out += std::to_string(vni_);
  }
  return out;
}

std::ostream& operator<<(std::ostream& os, const ViaKey& k) { return os << k.strep(); }

}  // namespace Routing::Rib

namespace Kel {

std::string Strep<Routing::Rib::Transport>::print(Routing::Rib::Transport t) {
  return Velnet::detail::enumStrep(static_cast<uint8_t>(t), Routing::Rib::kTransportNames);
}

Routing::Rib::Transport Strep<Routing::Rib::Transport>::parse(TextCursor& c) {
  return static_cast<Routing::Rib::Transport>(Velnet::detail::enumParse(
      c, Routing::Rib::kTransportNames, UINT8_MAX, "Routing::Rib::Transport"));
}

std::string Strep<Routing::Rib::RoutingProtocol>::print(Routing::Rib::RoutingProtocol p) {
  return Velnet::detail::enumStrep(static_cast<uint8_t>(p), Routing::Rib::kProtocolNames);
}

Routing::Rib::RoutingProtocol Strep<Routing::Rib::RoutingProtocol>::parse(TextCursor& c) {
  return static_cast<Routing::Rib::RoutingProtocol>(Velnet::detail::enumParse(
      c, Routing::Rib::kProtocolNames, UINT8_MAX, "Routing::Rib::RoutingProtocol"));
}

}  // namespace Kel
