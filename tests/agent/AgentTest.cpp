// The agent against the library: routes reach the RIB, fail over, and refused commands change
// nothing.
#include <gtest/gtest.h>

#include <sstream>

#include "agent/Agent.h"
#include "platform/kel/Exception.h"
#include "tests/agent/AgentHarness.h"

namespace Routing::Protocol::Agent {
namespace {

using AgentTest = AgentHarness;

TEST_F(AgentTest, RouteFailsOverToTheSecondAlternativeAndBack) {
  run("start cold\nvrf add red 5\n"
      "route add red 10.0.0.0/8 pref 1 via 192.0.2.1\nroute add red 10.0.0.0/8 pref 2 via 192.0.2.2\n"
      "metric red ipv4 192.0.2.1 resolved\nmetric red ipv4 192.0.2.2 resolved\nrun");
  auto rib = agent.ribConfigFor(5, Velnet::AddressFamily::ipv4);
  const Rib::RouteKey key(5, Velnet::IpGenPrefix::parse("10.0.0.0/8"));
  ASSERT_NE(rib->route(key), nullptr);
  EXPECT_EQ(rib->route(key)->metricPref(), 1);
  run("metric red ipv4 192.0.2.1 unresolved\nrun");
  EXPECT_EQ(rib->route(key)->metricPref(), 2);
  run("metric red ipv4 192.0.2.2 unresolved\nrun");
  EXPECT_EQ(rib->route(key), nullptr);
  run("metric red ipv4 192.0.2.1 resolved\nrun");
  EXPECT_EQ(rib->route(key)->metricPref(), 1);
}

TEST_F(AgentTest, RefusedCommandsChangeNothing) {
  run("start cold\nvrf add red 5\nroute add red 10.0.0.0/8 pref 1 via 192.0.2.1");
  const std::string before = show("show summary");
  for (const char* bad : {"vrf add red 6", "vrf add blue 5", "vrf del default", "route add red 10.0.0.0/8 pref 1",
                          "route add blue 10.0.0.0/8 pref 1 via 192.0.2.1", "route del red 10.1.0.0/16",
                          "route del red 10.0.0.0/8 pref 9", "metric red ipv4 2001:db8::1 resolved",
                          "intf set red ipv4 Ethernet1 routing on", "start cold", "protocol bgp", "nonsense"}) {
    EXPECT_THROW(run(bad), std::exception) << bad;
  }
  EXPECT_EQ(show("show summary"), before);
}

TEST_F(AgentTest, ReplacingAnAlternativeKeepsOneAndDropsItsOldVias) {
  run("start cold\nvrf add red 5\nmetric red ipv4 192.0.2.1 resolved\nmetric red ipv4 192.0.2.2 resolved\n"
      "route add red 10.0.0.0/8 pref 1 via 192.0.2.1\nroute add red 10.0.0.0/8 pref 1 via 192.0.2.2 label 20\nrun");
  EXPECT_EQ(show("show rib red"),
            "VRF  FAMILY  PREFIX      PREF  VIAS                FLAGS\n"
            "red  ipv4    10.0.0.0/8  1     192.0.2.2 label 20  -\n");
}

TEST_F(AgentTest, AReplacementTheRibCannotTakeLeavesTheAlternativeItsLabelsAndItsSourceVrf) {
  // Room for two via sets (and two vias in the via table), both taken.
  run("limits viasets 2\nstart cold\nvrf add red 5\nvrf add blue 6\n"
      "metric red ipv4 192.0.2.1 resolved\nmetric red ipv4 192.0.2.2 resolved\nmetric red ipv4 192.0.2.3 resolved\n"
      "route add red 10.0.0.0/8 pref 1 via 192.0.2.1 label 10\nroute add red 10.1.0.0/16 pref 1 via 192.0.2.3\nrun");
  const std::string rib = show("show rib red"), summary = show("show summary json");
  // A third via set does not fit; every part the command wrote first (a label changed, a via
  // added to the via table, the source VRF) is put back.
  EXPECT_THROW(run("route add red 10.0.0.0/8 pref 1 via 192.0.2.1 label 11 via 192.0.2.2 label 12 src-vrf 6"),
               Kel::TableFullException);
  run("run");
  EXPECT_EQ(show("show rib red"), rib);
  EXPECT_EQ(show("show summary json"), summary);
  const auto& red = agent.containers().at(ContainerKey(L3::VrfName("red"), Velnet::AddressFamily::ipv4));
  const Route* route = red->status()->route(Velnet::IpGenPrefix::parse("10.0.0.0/8")).get();
  EXPECT_EQ(route->srcVrfId(), 0u);
  EXPECT_EQ(route->routePref(1)->dedupViaKeys(), 1u);
  const auto& vias = red->ipViaConfig();
  ASSERT_EQ(vias->vias(), 1u);
  EXPECT_EQ(vias->viaColl().begin()->mplsLabel(), 10u);
  // The agent goes on; with the old set gone there is room for the new one.
  run("route del red 10.0.0.0/8\nroute add red 10.0.0.0/8 pref 1 via 192.0.2.2 label 12\nrun");
  EXPECT_EQ(show("show rib red"),
            "VRF  FAMILY  PREFIX       PREF  VIAS                FLAGS\n"
            "red  ipv4    10.0.0.0/8   1     192.0.2.2 label 12  -\n"
            "red  ipv4    10.1.0.0/16  1     192.0.2.3           -\n");
}

TEST_F(AgentTest, CommandsBeforeStartAreRefusedButSettingsAreKept) {
  EXPECT_THROW(run("vrf add red 5"), Kel::InvalidOperationException);
  run("protocol routeInput\nlimits routes 10 viasets 5 vrfs 2\nstart cold\nvrf add red 5");
  EXPECT_THROW(run("vrf add blue 6"), Kel::RangeException);  // default and red fill the limit
  EXPECT_NE(agent.root()->ipv4AllVrfRibConfig(), nullptr);
}

}  // namespace
}  // namespace Routing::Protocol::Agent
