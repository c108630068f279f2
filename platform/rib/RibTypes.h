// The RIB's value types that protocols share with it: transports, routing protocols and the via
// key that names one next hop as the RIB resolves it.
//
// A ViaKey is held by every route preference of every route (through dedup handles) and indexes
// the via-metric tables, so it is kept to 32 bytes: its members are laid out largest first, while
// equality, order, hashing and the text form all follow the field order below.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "platform/kel/Text.h"
#include "platform/velnet/Velnet.h"
#include "platform/vrf/VrfId.h"

namespace Routing::Rib {

// The kind of table a via is resolved in.
enum class Transport : uint8_t { unknown = 0, ipv4 = 1, ipv6 = 2, evpn = 3 };

// "unknown", "ipv4", "ipv6", "evpn" (these appear in mount paths); "invalid" for a value with no
// enumerator.
const char* stringValue(Transport t) noexcept;
// Writes the text form (the quoted name).
std::ostream& operator<<(std::ostream& os, Transport t);

// The source of a route. The names are part of table paths and of the text forms.
enum class RoutingProtocol : uint8_t {
  unknown = 0,
  connected = 1,
  staticConfig = 2,
  bgp = 3,
  routeInput = 4,
  ospf = 5,
  isis = 6,
  ospf3 = 7,
  rip = 8,
};

// The enumerator's name ("staticConfig", "routeInput", ...); "invalid" for a value with no
// enumerator.
const char* stringValue(RoutingProtocol p) noexcept;
// The inverse of stringValue; a RangeException for any other text, "invalid" included.
RoutingProtocol routingProtocolFromString(std::string_view name);
// Writes the text form (the quoted name).
std::ostream& operator<<(std::ostream& os, RoutingProtocol p);

// One via (next hop) of a route, as the RIB resolves it: in VRF `vrfId`, over `transport`, on
// behalf of `routingProtocol`, towards `addr` (the next hop, or for EVPN the remote VTEP), through
// `intfId` when the address alone does not say (IPv6 link-local next hops), with `vni` for EVPN
// (0 otherwise). The default key, transport unknown and everything else zero or empty, is the
// empty via key.
class ViaKey {
 public:
  static constexpr bool kelHasStrep = true;

  ViaKey() = default;
  ViaKey(Transport transport, Vrf::VrfIdMap::VrfId vrfId, RoutingProtocol routingProtocol,
         const Velnet::IpGenAddr& addr, Velnet::IntfId intfId, uint32_t vni) noexcept
      : vrfId_(vrfId),
        intfId_(intfId),
        vni_(vni),
        addr_(addr),
        transport_(transport),
        routingProtocol_(routingProtocol) {}
  // Parses the text form. A field whose value is refused raises a DeserializationException that
  // names it.
  explicit ViaKey(Kel::TextCursor& c);

  Transport transport() const noexcept { return transport_; }
  Vrf::VrfIdMap::VrfId vrfId() const noexcept { return vrfId_; }
  RoutingProtocol routingProtocol() const noexcept { return routingProtocol_; }
  const Velnet::IpGenAddr& addr() const noexcept { return addr_; }
  Velnet::IntfId intfId() const noexcept { return intfId_; }
  uint32_t vni() const noexcept { return vni_; }

  bool operator!() const noexcept { return *this == ViaKey(); }
  bool operator==(const ViaKey& o) const noexcept {
    return addr_ == o.addr_ && vrfId_ == o.vrfId_ && transport_ == o.transport_ &&
           routingProtocol_ == o.routingProtocol_ && intfId_ == o.intfId_ && vni_ == o.vni_;
  }
  // Field by field in the order above; the interface by name.
  bool operator<(const ViaKey& o) const noexcept;
  bool operator!=(const ViaKey& o) const noexcept { return !(*this == o); }
  bool operator>(const ViaKey& o) const noexcept { return o < *this; }
  bool operator<=(const ViaKey& o) const noexcept { return !(o < *this); }
  bool operator>=(const ViaKey& o) const noexcept { return !(*this < o); }

  // A multiply-and-mix hash over every field: transport, routing protocol, the address family
  // and the address's 16-byte IPv6 form (IpGenAddr::asV6Bytes, read little-endian), vrfId, the
  // interface name's string hash (the name, not the intern id, so that the hash does not depend
  // on interning order) and vni. The same on every host.
  uint32_t hash() const noexcept;
  // "Value('Routing::Rib::ViaKey', ** {'transport': 'ipv4', 'vrfId': 0, 'routingProtocol':
  // 'staticConfig', 'addr': '10.0.0.1', 'intfId': '', 'vni': 0})"
  std::string strep() const;
  // The short form for trace lines: transport:vrfId:protocol:address, then "%" and the interface
  // when there is one and ":vni" and the VNI when it is not 0, e.g.
  // "ipv6:0:bgp:fe80::1%Ethernet1" or "evpn:3:bgp:10.0.0.9:vni5000".
  std::string str() const;

 private:
  Vrf::VrfIdMap::VrfId vrfId_ = 0;
  Velnet::IntfId intfId_;
  uint32_t vni_ = 0;
  Velnet::IpGenAddr addr_;
  Transport transport_ = Transport::unknown;
  RoutingProtocol routingProtocol_ = RoutingProtocol::unknown;
};

// Writes the text form.
std::ostream& operator<<(std::ostream& os, const ViaKey& k);

}  // namespace Routing::Rib

namespace Kel {

template <>
struct Strep<Routing::Rib::Transport> {
  static std::string print(Routing::Rib::Transport t);
  static Routing::Rib::Transport parse(TextCursor& c);
};

template <>
struct Strep<Routing::Rib::RoutingProtocol> {
  static std::string print(Routing::Rib::RoutingProtocol p);
  static Routing::Rib::RoutingProtocol parse(TextCursor& c);
};

}  // namespace Kel
