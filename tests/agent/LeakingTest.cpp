// Route leaking driven by the agent: route lists per source VRF, VRFs created and deleted for
// leaking as they are published and withdrawn, and each destination's configuration.
#include <gtest/gtest.h>

#include "platform/kel/Exception.h"
#include "tests/agent/AgentHarness.h"

namespace Routing::Protocol::Agent {
namespace {

class AgentLeakTest : public AgentHarness {
 protected:
  void SetUp() override { run("start cold\nvrf add red 5\nvrf add blue 6\nvrf add yellow 3"); }
  // "prefix<-source" for each route leaked into `vrf` (IPv4), in `show leaked` order.
  std::string leakedInto(const char* vrf) {
    std::string s;
    for (const auto& [name, side] : agent.leaking()->vrfs()) {
      if (name != vrf) continue;
      for (const auto& lr : side.config[0]->leakRouteColl()) {
        s += (s.empty() ? "" : " ") + lr->key().str() + "<-" + agent.vrfName(lr->vrfAf().vrfId());
      }
    }
    return s;
  }
};

TEST_F(AgentLeakTest, EveryPublishedVrfIsASourceAndADestinationInBothFamilies) {
  const auto& root = agent.leaking()->root();
  for (auto af : {Velnet::AddressFamily::ipv4, Velnet::AddressFamily::ipv6}) {
    EXPECT_TRUE(root->muxSmHas(VrfIdAf(5, af)));
    EXPECT_TRUE(root->demuxSmHas(VrfIdAf(0, af)));
  }
  run("vrf del red");
  EXPECT_FALSE(root->muxSmHas(VrfIdAf(5, Velnet::AddressFamily::ipv4)));
  EXPECT_FALSE(root->demuxSmHas(VrfIdAf(5, Velnet::AddressFamily::ipv6)));
  // Back under a new id: created again, no leftover refused as a second creation.
  run("vrf add red 8");
  EXPECT_TRUE(root->muxSmHas(VrfIdAf(8, Velnet::AddressFamily::ipv4)));
}

TEST_F(AgentLeakTest, RouteLeaksMovesAndStopsWithItsLeakTo) {
  run("route add red 10.1.0.0/16 pref 1 via 192.0.2.1 leak-to blue\nrun");
  EXPECT_EQ(leakedInto("blue"), "10.1.0.0/16<-red");
  run("route leak red 10.1.0.0/16 yellow\nrun");
  EXPECT_EQ(leakedInto("blue"), "");
  EXPECT_EQ(leakedInto("yellow"), "10.1.0.0/16<-red");
  // Another alternative without leak-to leaves the route's leak as it is.
  run("route add red 10.1.0.0/16 pref 2 via 192.0.2.2\nrun");
  EXPECT_EQ(leakedInto("yellow"), "10.1.0.0/16<-red");
  run("route del red 10.1.0.0/16\nrun");
  EXPECT_EQ(leakedInto("yellow"), "");
  EXPECT_EQ(agent.leaking()->vrfs().at("red").routes[0]->routes(), 0u);
}

TEST_F(AgentLeakTest, LowerSourceIdWinsAndTheOtherTakesOver) {
  run("route add red 10.9.0.0/16 pref 1 via 192.0.2.1 leak-to blue\n"
      "route add yellow 10.9.0.0/16 pref 1 via 192.0.2.1 leak-to blue\nrun");
  EXPECT_EQ(leakedInto("blue"), "10.9.0.0/16<-yellow");
  run("route del yellow 10.9.0.0/16\nrun");
  EXPECT_EQ(leakedInto("blue"), "10.9.0.0/16<-red");
}

TEST_F(AgentLeakTest, LeakToAVrfThatComesLaterStartsWhenItComes) {
  run("route add red 10.2.0.0/16 pref 1 via 192.0.2.1 leak-to purple\nrun");
  run("vrf add purple 9\nrun");
  EXPECT_EQ(leakedInto("purple"), "10.2.0.0/16<-red");
  // Withdrawn and published again: the leak comes back with it.
  run("vrf del purple\nrun\nvrf add purple 10\nrun");
  EXPECT_EQ(leakedInto("purple"), "10.2.0.0/16<-red");
}

TEST_F(AgentLeakTest, SourceWithdrawalTakesItsLeaksAway) {
  run("route add red 10.1.0.0/16 pref 1 via 192.0.2.1 leak-to blue\nrun\nvrf del red\nrun");
  EXPECT_EQ(leakedInto("blue"), "");
}

TEST_F(AgentLeakTest, LeakRefusals) {
  EXPECT_THROW(run("route leak red 10.1.0.0/16 blue"), Kel::RangeException);  // no such route
  EXPECT_THROW(run("route add red 10.1.0.0/16 pref 1 via 192.0.2.1 leak-to"), Kel::ParseException);
  EXPECT_THROW(run("route add red 10.1.0.0/16 pref 1 via 192.0.2.1 leak-to blue mrib"), Kel::ParseException);
  EXPECT_EQ(agent.leaking()->vrfs().at("red").routes[0]->routes(), 0u);
}

}  // namespace
}  // namespace Routing::Protocol::Agent
