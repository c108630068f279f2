// The command parser: words, comments, and the typed readers' refusals.
#include <gtest/gtest.h>

#include "agent/Script.h"
#include "platform/kel/Exception.h"

namespace Routing::Protocol::Agent {
namespace {

std::vector<std::string_view> words(std::string_view line) {
  auto c = parseLine(line);
  std::vector<std::string_view> w;
  if (!c) return w;
  w.push_back(c->verb);
  w.insert(w.end(), c->args.begin(), c->args.end());
  return w;
}

TEST(AgentScript, SplitsOnBlanksAndTabsAndDropsComments) {
  EXPECT_EQ(words("  route\tadd  red 10.0.0.0/8 # pref 1"),
            (std::vector<std::string_view>{"route", "add", "red", "10.0.0.0/8"}));
  EXPECT_EQ(words("show rib\r"), (std::vector<std::string_view>{"show", "rib"}));
  EXPECT_FALSE(parseLine("   # only a comment").has_value());
  EXPECT_FALSE(parseLine("").has_value());
  EXPECT_FALSE(parseLine(" \t ").has_value());
}

TEST(AgentScript, NumbersAreWholeDecimalWithinTheirLimit) {
  EXPECT_EQ(parseUnsigned("255", "preference", 255), 255u);
  EXPECT_THROW(parseUnsigned("256", "preference", 255), Kel::RangeException);
  EXPECT_THROW(parseUnsigned("12x", "preference", 255), Kel::ParseException);
  EXPECT_THROW(parseUnsigned("-1", "preference", 255), Kel::ParseException);
  EXPECT_THROW(parseUnsigned("", "preference", 255), Kel::ParseException);
  try {
    parseUnsigned("many", "route limit", 10);
    FAIL();
  } catch (const Kel::ParseException& e) {
    EXPECT_STREQ(e.what(), "bad route limit 'many': expected a number");
  }
}

TEST(AgentScript, RouteAddCollectsViasWithTheirLabelsAndOptions) {
  auto c = parseLine("route add red 10.0.0.0/8 pref 3 via 192.0.2.1 label 16 intf Ethernet1 via 192.0.2.2 "
                     "fec 2 tag 9 nofib fib-type drop src-vrf 4");
  ASSERT_TRUE(c);
  std::vector<std::string_view> rest(c->args.begin() + 1, c->args.end());
  RouteAdd r = parseRouteAdd(rest);
  EXPECT_EQ(r.vrf, "red");
  EXPECT_EQ(r.prefix.str(), "10.0.0.0/8");
  EXPECT_EQ(r.preference, 3u);
  ASSERT_EQ(r.vias.size(), 2u);
  EXPECT_EQ(r.vias[0].label, 16u);
  EXPECT_EQ(r.vias[0].intf, "Ethernet1");
  EXPECT_EQ(r.vias[1].nextHop.str(), "192.0.2.2");
  EXPECT_EQ(r.vias[1].label, 0xFFFFFFFFu);
  EXPECT_EQ(r.fecType, 2);
  EXPECT_EQ(r.tag, 9u);
  EXPECT_FALSE(r.installInFib);
  EXPECT_EQ(r.fibType, Fib::RouteType::drop);
  EXPECT_EQ(r.srcVrfId, 4u);
}

TEST(AgentScript, RouteAddRefusesMalformedPieces) {
  auto refuse = [](std::string_view line) {
    auto c = parseLine(line);
    std::vector<std::string_view> rest(c->args.begin() + 1, c->args.end());
    EXPECT_THROW(parseRouteAdd(rest), Kel::Exception) << line;
  };
  refuse("route add red 10.0.0.0/8 pref 1");
  refuse("route add red 10.0.0.0/8 via 192.0.2.1 pref 1");
  refuse("route add red 10.0.0.0/33 pref 1 via 192.0.2.1");
  refuse("route add red 10.0.0.0/8 pref 1 via 192.0.2.1 label");
  refuse("route add red 10.0.0.0/8 pref 1 via 192.0.2.1 label 1048576");
  refuse("route add red 10.0.0.0/8 pref 1 via 192.0.2.300");
  refuse("route add red 10.0.0.0/8 pref 1 via 192.0.2.1 fib-type sideways");
  refuse("route add red 10.0.0.0/8 pref 1 via 192.0.2.1 colour blue");
}

TEST(AgentScript, AnAlternativeTakesAtMost512Vias) {
  auto vias = [](int n) {
    std::string line = "route add red 10.0.0.0/8 pref 1";
    for (int i = 0; i < n; ++i) line += " via 10.9." + std::to_string(i / 256) + "." + std::to_string(i % 256);
    return line;
  };
  auto parse = [](const std::string& line) {
    auto c = parseLine(line);
    std::vector<std::string_view> rest(c->args.begin() + 1, c->args.end());
    return parseRouteAdd(rest);
  };
  EXPECT_EQ(parse(vias(512)).vias.size(), 512u);
  try {
    parse(vias(513));
    FAIL();
  } catch (const Kel::RangeException& e) {
    EXPECT_STREQ(e.what(), "at most 512 vias per alternative");
  }
}

TEST(AgentScript, EvpnViasCarryTheirVniAndVtepAndRouteOptionsTheirTargets) {
  auto c = parseLine("route add red 10.0.0.0/8 pref 1 evpn 10.9.9.9 vni 5000 vtep 2001:db8::9 via 192.0.2.1 "
                     "evpn 10.9.9.8 vni 7 leak-to blue");
  std::vector<std::string_view> rest(c->args.begin() + 1, c->args.end());
  RouteAdd r = parseRouteAdd(rest);
  ASSERT_EQ(r.vias.size(), 3u);
  EXPECT_TRUE(r.vias[0].evpn);
  EXPECT_EQ(r.vias[0].vni, 5000u);
  EXPECT_EQ(r.vias[0].vtep->str(), "2001:db8::9");
  EXPECT_FALSE(r.vias[1].evpn);
  EXPECT_FALSE(r.vias[2].vtep.has_value());  // the agent then uses the via's own address
  EXPECT_EQ(r.leakTo, "blue");
  EXPECT_FALSE(r.mrib);
  c = parseLine("route add red 10.0.0.0/8 pref 1 via 192.0.2.1 mrib");
  rest.assign(c->args.begin() + 1, c->args.end());
  EXPECT_TRUE(parseRouteAdd(rest).mrib);
}

TEST(AgentScript, EvpnOptionsBelongToAnEvpnVia) {
  auto refuse = [](std::string_view line) {
    auto c = parseLine(line);
    std::vector<std::string_view> rest(c->args.begin() + 1, c->args.end());
    EXPECT_THROW(parseRouteAdd(rest), Kel::ParseException) << line;
  };
  refuse("route add red 10.0.0.0/8 pref 1 via 192.0.2.1 vni 5");
  refuse("route add red 10.0.0.0/8 pref 1 evpn 10.9.9.9");
  refuse("route add red 10.0.0.0/8 pref 1 evpn 10.9.9.9 vni 5 label 16");
  refuse("route add red 10.0.0.0/8 pref 1 evpn 10.9.9.9 vni 5 vtep nowhere");
  const std::string line = "route add red 10.0.0.0/8 pref 1 via 192.0.2.1 leak-to " + std::string(101, 'x');
  auto c = parseLine(line);  // the words view `line`
  std::vector<std::string_view> rest(c->args.begin() + 1, c->args.end());
  EXPECT_THROW(parseRouteAdd(rest), Kel::RangeException);  // the VRF name's own limit
}

TEST(AgentScript, KeywordReadersAcceptOnlyTheirWords) {
  EXPECT_EQ(parseTransport("evpn"), Rib::Transport::evpn);
  EXPECT_THROW(parseTransport("mpls"), Kel::ParseException);
  EXPECT_THROW(parseFamily("evpn"), Kel::ParseException);
  EXPECT_TRUE(parseOnOff("on"));
  EXPECT_THROW(parseOnOff("yes"), Kel::ParseException);
  EXPECT_EQ(parseFibType("receive"), Fib::RouteType::receive);
}

}  // namespace
}  // namespace Routing::Protocol::Agent
