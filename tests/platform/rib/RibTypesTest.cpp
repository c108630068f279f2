#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "platform/kel/Hash.h"
#include "platform/rib/RibTypes.h"
#include "platform/routing/Routing.h"

namespace Routing::Rib {
namespace {

using Velnet::IntfId;
using Velnet::IpGenAddr;

ViaKey key(Transport t, uint32_t vrf, RoutingProtocol p, const char* addr, const char* intf = "",
           uint32_t vni = 0) {
  return ViaKey(t, vrf, p, IpGenAddr::parse(addr), IntfId(intf), vni);
}

ViaKey staticVia(const char* addr, const char* intf = "", uint32_t vrf = 0) {
  return key(Transport::ipv4, vrf, RoutingProtocol::staticConfig, addr, intf);
}

// ---- enumerations

TEST(RibEnums, NamesRoundTripAndUnknownNamesAreRangeErrors) {
  for (int v = 0; v <= 3; ++v) {
    auto t = static_cast<Transport>(v);
    EXPECT_EQ(Kel::valueToStrep(t), "'" + std::string(stringValue(t)) + "'");
    EXPECT_EQ(Kel::strepToValue<Transport>(Kel::valueToStrep(t)), t);
    auto f = static_cast<Fib::RouteType>(v);
    EXPECT_EQ(Kel::strepToValue<Fib::RouteType>(Kel::valueToStrep(f)), f);
  }
  for (int v = 0; v <= 8; ++v) {
    auto p = static_cast<RoutingProtocol>(v);
    EXPECT_EQ(routingProtocolFromString(stringValue(p)), p);
    EXPECT_EQ(Kel::strepToValue<RoutingProtocol>(Kel::valueToStrep(p)), p);
  }
  // These names appear in mount paths.
  EXPECT_STREQ(stringValue(Transport::evpn), "evpn");
  EXPECT_STREQ(stringValue(RoutingProtocol::staticConfig), "staticConfig");
  EXPECT_STREQ(stringValue(RoutingProtocol::routeInput), "routeInput");
  EXPECT_EQ(Kel::valueToStrep(Fib::RouteType::drop), "'drop'");
  for (const char* name : {"Bgp", "invalid", ""}) {
    EXPECT_THROW(routingProtocolFromString(name), Kel::RangeException) << name;
  }
  EXPECT_THROW(Kel::strepToValue<Transport>("'mpls'"), Kel::RangeException);
  EXPECT_THROW(Kel::strepToValue<Transport>("256"), Kel::RangeException);
  EXPECT_THROW(Kel::strepToValue<Fib::RouteType>("'unicast'"), Kel::RangeException);
}

// ---- ViaKey

TEST(ViaKey, TextFormIsExactAndRoundTripsAtTheFieldLimits) {
  EXPECT_EQ(staticVia("10.0.0.1").strep(),
            "Value('Routing::Rib::ViaKey', ** {'transport': 'ipv4', 'vrfId': 0, "
            "'routingProtocol': 'staticConfig', 'addr': '10.0.0.1', 'intfId': '', 'vni': 0})");
  std::ostringstream os;
  os << ViaKey();
  EXPECT_EQ(os.str(),
            "Value('Routing::Rib::ViaKey', ** {'transport': 'unknown', 'vrfId': 0, "
            "'routingProtocol': 'unknown', 'addr': '', 'intfId': '', 'vni': 0})");
  for (const ViaKey& k :
       {ViaKey(), staticVia("10.0.0.1"),
        key(Transport::ipv6, 7, RoutingProtocol::bgp, "fe80::1", "Ethernet1/1"),
        key(Transport::evpn, 0xFFFFFF, RoutingProtocol::bgp, "192.0.2.9", "", 16777215),
        key(Transport::ipv6, 4294967295u, RoutingProtocol::isis, "::", "Vlan10", 4294967295u)}) {
    EXPECT_EQ(Kel::strepToValue<ViaKey>(k.strep()), k) << k.strep();
  }
}

TEST(ViaKey, LinkLocalNextHopOnDifferentInterfacesAreDistinct) {
  ViaKey a = key(Transport::ipv6, 0, RoutingProtocol::bgp, "fe80::1", "Ethernet1");
  ViaKey b = key(Transport::ipv6, 0, RoutingProtocol::bgp, "fe80::1", "Ethernet2");
  EXPECT_NE(a, b);
  EXPECT_NE(a.hash(), b.hash());
  EXPECT_EQ(a.str(), "ipv6:0:bgp:fe80::1%Ethernet1");
}

// Compared in the short form, which shows the interface and the VNI only when they are set.
TEST(ViaKey, OrdersFieldByFieldInDeclaredOrder) {
  std::vector<ViaKey> v = {key(Transport::evpn, 3, RoutingProtocol::bgp, "10.0.0.9", "", 5000),
                           key(Transport::ipv6, 0, RoutingProtocol::connected, ""),
                           staticVia("10.0.0.2", "", 0),
                           staticVia("10.0.0.1", "Ethernet2", 1),
                           staticVia("10.0.0.1", "Ethernet1", 1),
                           staticVia("10.0.0.1", "", 1),
                           key(Transport::ipv4, 0, RoutingProtocol::bgp, "1.1.1.1"),
                           key(Transport::ipv4, 1, RoutingProtocol::connected, "", "", 5)};
  std::sort(v.begin(), v.end());
  std::vector<std::string> got;
  for (const auto& k : v) got.push_back(k.str());
  EXPECT_EQ(got, (std::vector<std::string>{"ipv4:0:staticConfig:10.0.0.2", "ipv4:0:bgp:1.1.1.1",
                                           "ipv4:1:connected::vni5", "ipv4:1:staticConfig:10.0.0.1",
                                           "ipv4:1:staticConfig:10.0.0.1%Ethernet1",
                                           "ipv4:1:staticConfig:10.0.0.1%Ethernet2",
                                           "ipv6:0:connected:", "evpn:3:bgp:10.0.0.9:vni5000"}));
}

// The hash decides the order in which an alternative's vias enter its via set, so it must be
// the same on every host and build: pinned here. Every field must reach it.
TEST(ViaKey, HashIsPinnedAndEveryFieldReachesIt) {
  const uint32_t h =
      key(Transport::evpn, 0x01020304, RoutingProtocol::bgp, "10.0.0.9", "Vxlan1", 5000).hash();
  EXPECT_EQ(h, 0x7b1a692eu);
  for (const ViaKey& other :
       {key(Transport::ipv4, 0x01020304, RoutingProtocol::bgp, "10.0.0.9", "Vxlan1", 5000),
        key(Transport::evpn, 0x01020305, RoutingProtocol::bgp, "10.0.0.9", "Vxlan1", 5000),
        key(Transport::evpn, 0x01020304, RoutingProtocol::ospf, "10.0.0.9", "Vxlan1", 5000),
        key(Transport::evpn, 0x01020304, RoutingProtocol::bgp, "10.0.0.8", "Vxlan1", 5000),
        key(Transport::evpn, 0x01020304, RoutingProtocol::bgp, "10.0.0.9", "Vxlan2", 5000),
        key(Transport::evpn, 0x01020304, RoutingProtocol::bgp, "10.0.0.9", "Vxlan1", 5001)}) {
    EXPECT_NE(other.hash(), h) << other.str();
  }
  // An IPv4 address and its mapped IPv6 form differ by family, so they hash apart.
  EXPECT_NE(staticVia("10.0.0.1").hash(), staticVia("::ffff:10.0.0.1").hash());
}

TEST(ViaKey, EmptyOnlyWhenEveryFieldIsDefault) {
  EXPECT_TRUE(!ViaKey());
  EXPECT_FALSE(!staticVia("10.0.0.1"));
  EXPECT_FALSE(!key(Transport::unknown, 0, RoutingProtocol::unknown, "", "", 1));
  EXPECT_FALSE(!key(Transport::unknown, 0, RoutingProtocol::unknown, "", "Ethernet1"));
}

TEST(ViaKey, RefusedFieldNamesItAndMalformedTextIsParseError) {
  const std::string good = staticVia("10.0.0.1").strep();
  auto with = [&good](const std::string& from, const std::string& to) {
    std::string t = good;
    t.replace(t.find(from), from.size(), to);
    return t;
  };
  const std::pair<std::string, const char*> refused[] = {
      {with("'vrfId': 0", "'vrfId': 4294967296"), "vrfId"},
      {with("'ipv4'", "'mpls'"), "transport"},
      {with("'staticConfig'", "'static'"), "routingProtocol"},
      {with("'10.0.0.1'", "'10.0.0.256'"), "addr"},
      {with("'intfId': ''", "'intfId': 'Ethernet 1'"), "intfId"},
      {with("'vni': 0", "'vni': 99999999999"), "vni"}};
  for (const auto& [text, field] : refused) {
    try {
      Kel::strepToValue<ViaKey>(text);
      FAIL() << text;
    } catch (const Kel::DeserializationException& e) {
      EXPECT_EQ(e.field(), field) << text;
    }
  }
  for (const std::string& t :
       {with("'addr': ", "'address': "), with("'10.0.0.1'", "'10.0.0'"), with("})", "}"),
        good + " ", good.substr(0, good.size() - 1), std::string(""),
        with("Routing::Rib::ViaKey", "Routing::Rib::Via")}) {
    EXPECT_THROW(Kel::strepToValue<ViaKey>(t), Kel::ParseException) << t;
  }
  // A refused text leaves the cursor where it was.
  std::string bad = with("'vrfId': 0", "'vrfId': x");
  Kel::TextCursor c(bad);
  EXPECT_THROW(ViaKey{c}, Kel::ParseException);
  EXPECT_EQ(c.pos(), bad.data());
}

static_assert(sizeof(ViaKey) <= 32, "every route preference holds its via keys");

}  // namespace
}  // namespace Routing::Rib
