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

ViaKey staticVia(const char* addr, const char* intf = "", uint32_t vrf = 0) {
  return ViaKey(Transport::ipv4, vrf, RoutingProtocol::staticConfig, IpGenAddr::parse(addr),
                IntfId(intf), 0);
}

// ---- enumerations

TEST(RibEnums, NamesRoundTripThroughTextAndStrings) {
  for (int v = 0; v <= 3; ++v) {
    auto t = static_cast<Transport>(v);
    EXPECT_EQ(Kel::valueToStrep(t), "'" + std::string(stringValue(t)) + "'");
    EXPECT_EQ(Kel::strepToValue<Transport>(Kel::valueToStrep(t)), t);
  }
  EXPECT_STREQ(stringValue(Transport::evpn), "evpn");
  for (int v = 0; v <= 8; ++v) {
    auto p = static_cast<RoutingProtocol>(v);
    EXPECT_EQ(routingProtocolFromString(stringValue(p)), p);
    EXPECT_EQ(Kel::strepToValue<RoutingProtocol>(Kel::valueToStrep(p)), p);
  }
  EXPECT_STREQ(stringValue(RoutingProtocol::staticConfig), "staticConfig");
  EXPECT_STREQ(stringValue(RoutingProtocol::routeInput), "routeInput");
  for (int v = 0; v <= 3; ++v) {
    auto t = static_cast<Fib::RouteType>(v);
    EXPECT_EQ(Kel::strepToValue<Fib::RouteType>(Kel::valueToStrep(t)), t);
  }
  EXPECT_EQ(Kel::valueToStrep(Fib::RouteType::drop), "'drop'");
}

TEST(RibEnums, UnknownNamesAreRangeErrors) {
  EXPECT_THROW(routingProtocolFromString("Bgp"), Kel::RangeException);
  EXPECT_THROW(routingProtocolFromString("invalid"), Kel::RangeException);
  EXPECT_THROW(routingProtocolFromString(""), Kel::RangeException);
  EXPECT_THROW(Kel::strepToValue<Transport>("'mpls'"), Kel::RangeException);
  EXPECT_THROW(Kel::strepToValue<Transport>("256"), Kel::RangeException);
  EXPECT_THROW(Kel::strepToValue<Fib::RouteType>("'unicast'"), Kel::RangeException);
}

// ---- ViaKey

TEST(ViaKey, PrintsExactTextForm) {
  EXPECT_EQ(staticVia("10.0.0.1").strep(),
            "Value('Routing::Rib::ViaKey', ** {'transport': 'ipv4', 'vrfId': 0, "
            "'routingProtocol': 'staticConfig', 'addr': '10.0.0.1', 'intfId': '', 'vni': 0})");
  std::ostringstream os;
  os << ViaKey();
  EXPECT_EQ(os.str(),
            "Value('Routing::Rib::ViaKey', ** {'transport': 'unknown', 'vrfId': 0, "
            "'routingProtocol': 'unknown', 'addr': '', 'intfId': '', 'vni': 0})");
}

TEST(ViaKey, TextFormRoundTrips) {
  std::vector<ViaKey> keys = {
      ViaKey(),
      staticVia("10.0.0.1"),
      ViaKey(Transport::ipv6, 7, RoutingProtocol::bgp, IpGenAddr::parse("fe80::1"),
             IntfId("Ethernet1/1"), 0),
      ViaKey(Transport::evpn, 0xFFFFFF, RoutingProtocol::bgp, IpGenAddr::parse("192.0.2.9"),
             IntfId(), 16777215),
      ViaKey(Transport::ipv6, 4294967295u, RoutingProtocol::isis, IpGenAddr::parse("::"),
             IntfId("Vlan10"), 4294967295u),
  };
  for (const auto& k : keys) {
    EXPECT_EQ(Kel::strepToValue<ViaKey>(k.strep()), k) << k.strep();
  }
}

TEST(ViaKey, LinkLocalNextHopOnDifferentInterfacesAreDistinct) {
  auto ll = [](const char* intf) {
    return ViaKey(Transport::ipv6, 0, RoutingProtocol::bgp, IpGenAddr::parse("fe80::1"),
                  IntfId(intf), 0);
  };
  ViaKey a = ll("Ethernet1");
  ViaKey b = ll("Ethernet2");
  EXPECT_NE(a, b);
  EXPECT_NE(a.hash(), b.hash());
  EXPECT_LT(a, b);
  EXPECT_EQ(Kel::strepToValue<ViaKey>(b.strep()), b);
  EXPECT_NE(Kel::strepToValue<ViaKey>(b.strep()), a);
  EXPECT_EQ(a.str(), "ipv6:0:bgp:fe80::1%Ethernet1");
}

TEST(ViaKey, OrdersFieldByFieldInDeclaredOrder) {
  std::vector<ViaKey> v = {
      ViaKey(Transport::ipv6, 0, RoutingProtocol::connected, IpGenAddr(), IntfId(), 0),
      staticVia("10.0.0.2", "", 0),
      staticVia("10.0.0.1", "Ethernet2", 1),
      staticVia("10.0.0.1", "Ethernet1", 1),
      staticVia("10.0.0.1", "", 1),
      ViaKey(Transport::ipv4, 0, RoutingProtocol::bgp, IpGenAddr::parse("1.1.1.1"), IntfId(), 0),
      ViaKey(Transport::ipv4, 1, RoutingProtocol::connected, IpGenAddr(), IntfId(), 5),
  };
  std::sort(v.begin(), v.end());
  std::vector<std::string> got;
  for (const auto& k : v) got.push_back(k.str());
  EXPECT_EQ(got, (std::vector<std::string>{
                     "ipv4:0:staticConfig:10.0.0.2",
                     "ipv4:0:bgp:1.1.1.1",
                     "ipv4:1:connected::vni5",
                     "ipv4:1:staticConfig:10.0.0.1",
                     "ipv4:1:staticConfig:10.0.0.1%Ethernet1",
                     "ipv4:1:staticConfig:10.0.0.1%Ethernet2",
                     "ipv6:0:connected:",
                 }));
}

// The hash decides the order in which an alternative's vias enter its via set, so it must be
// the same on every host and build: pinned here. Every field must reach it.
TEST(ViaKey, HashIsPinnedAndEveryFieldReachesIt) {
  ViaKey k(Transport::evpn, 0x01020304, RoutingProtocol::bgp, IpGenAddr::parse("10.0.0.9"),
           IntfId("Vxlan1"), 5000);
  EXPECT_EQ(k.hash(), 0x7b1a692eu);
  const uint32_t h = k.hash();
  EXPECT_NE(ViaKey(Transport::ipv4, 0x01020304, RoutingProtocol::bgp, IpGenAddr::parse("10.0.0.9"), IntfId("Vxlan1"), 5000).hash(), h);
  EXPECT_NE(ViaKey(Transport::evpn, 0x01020305, RoutingProtocol::bgp, IpGenAddr::parse("10.0.0.9"), IntfId("Vxlan1"), 5000).hash(), h);
  EXPECT_NE(ViaKey(Transport::evpn, 0x01020304, RoutingProtocol::ospf, IpGenAddr::parse("10.0.0.9"), IntfId("Vxlan1"), 5000).hash(), h);
  EXPECT_NE(ViaKey(Transport::evpn, 0x01020304, RoutingProtocol::bgp, IpGenAddr::parse("10.0.0.8"), IntfId("Vxlan1"), 5000).hash(), h);
  EXPECT_NE(ViaKey(Transport::evpn, 0x01020304, RoutingProtocol::bgp, IpGenAddr::parse("10.0.0.9"), IntfId("Vxlan2"), 5000).hash(), h);
  EXPECT_NE(ViaKey(Transport::evpn, 0x01020304, RoutingProtocol::bgp, IpGenAddr::parse("10.0.0.9"), IntfId("Vxlan1"), 5001).hash(), h);
  // An IPv4 address and its mapped IPv6 form differ by family, so they hash apart.
  EXPECT_NE(staticVia("10.0.0.1").hash(), staticVia("::ffff:10.0.0.1").hash());
  // The same next hop for another protocol or in another VRF hashes elsewhere.
  EXPECT_NE(staticVia("10.0.0.1", "", 0).hash(), staticVia("10.0.0.1", "", 1).hash());
}

TEST(ViaKey, EmptyOnlyWhenEveryFieldIsDefault) {
  EXPECT_TRUE(!ViaKey());
  EXPECT_FALSE(!staticVia("10.0.0.1"));
  EXPECT_FALSE(!ViaKey(Transport::unknown, 0, RoutingProtocol::unknown, IpGenAddr(), IntfId(), 1));
  EXPECT_FALSE(!ViaKey(Transport::unknown, 0, RoutingProtocol::unknown, IpGenAddr(),
                       IntfId("Ethernet1"), 0));
}

TEST(ViaKey, ShortFormShowsInterfaceAndVni) {
  EXPECT_EQ(staticVia("10.0.0.1").str(), "ipv4:0:staticConfig:10.0.0.1");
  ViaKey evpn(Transport::evpn, 3, RoutingProtocol::bgp, IpGenAddr::parse("10.0.0.9"), IntfId(),
              5000);
  EXPECT_EQ(evpn.str(), "evpn:3:bgp:10.0.0.9:vni5000");
}

TEST(ViaKey, RefusedFieldNamesItAndMalformedTextIsParseError) {
  const std::string good = staticVia("10.0.0.1").strep();
  auto with = [&good](const std::string& from, const std::string& to) {
    std::string t = good;
    t.replace(t.find(from), from.size(), to);
    return t;
  };
  struct Case {
    std::string text;
    const char* field;
  };
  const Case refused[] = {
      {with("'vrfId': 0", "'vrfId': 4294967296"), "vrfId"},
      {with("'ipv4'", "'mpls'"), "transport"},
      {with("'staticConfig'", "'static'"), "routingProtocol"},
      {with("'10.0.0.1'", "'10.0.0.256'"), "addr"},
      {with("'intfId': ''", "'intfId': 'Ethernet 1'"), "intfId"},
      {with("'vni': 0", "'vni': 99999999999"), "vni"},
  };
  for (const auto& c : refused) {
    try {
      Kel::strepToValue<ViaKey>(c.text);
      FAIL() << c.text;
    } catch (const Kel::DeserializationException& e) {
      EXPECT_EQ(e.field(), c.field) << c.text;
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
