// BFD tracking in the agent: one peer per tracked next hop for as long as a route depends on it,
// and routes that leave out the vias of an unusable session.
#include <gtest/gtest.h>

#include "platform/kel/Assert.h"
#include "platform/kel/Exception.h"
#include "tests/agent/AgentHarness.h"

namespace Routing::Protocol::Agent {
namespace {

class AgentBfdTest : public AgentHarness {
 protected:
  void SetUp() override {
    run("start cold\nvrf add red 5\nmetric red ipv4 192.0.2.1 resolved\nmetric red ipv4 192.0.2.2 resolved\n"
        "route add red 10.0.0.0/8 pref 1 via 192.0.2.1\nroute add red 10.0.0.0/8 pref 2 via 192.0.2.2\n"
        "route add red 172.16.0.0/12 pref 1 via 192.0.2.1\nroute add red 172.16.0.0/12 pref 2 via 192.0.2.2\nrun");
  }
  size_t peers() const { return agent.bfdAppConfig()->peerConfigs(); }
  bool peer(const char* addr) const {
    return agent.bfdAppConfig()->peerConfigHas(Bfd::Peer(Velnet::IpGenAddr::parse(addr), L3::VrfName("red")));
  }
  // Asking processBfdReq for a peer it has would throw instead of aborting.
  Kel::ScopedThrowingAsserts throwing;
};

TEST_F(AgentBfdTest, TwoRoutesShareOnePeerAndTheOneLeftFollowsTheSession) {
  run("bfd track red 10.0.0.0/8 192.0.2.1\nbfd track red 172.16.0.0/12 192.0.2.1\n"
      "bfd session red 192.0.2.1 up\nrun");
  EXPECT_EQ(peers(), 1u);
  EXPECT_EQ(ribVias("red", "10.0.0.0/8"), "[\"192.0.2.1\"]");
  run("bfd untrack red 172.16.0.0/12 192.0.2.1\nrun");
  EXPECT_TRUE(peer("192.0.2.1"));
  run("bfd session red 192.0.2.1 down\nrun");
  EXPECT_EQ(ribVias("red", "10.0.0.0/8"), "[\"192.0.2.2\"]");
  EXPECT_EQ(ribVias("red", "172.16.0.0/12"), "[\"192.0.2.1\"]");  // no longer tracks: unaffected
  run("bfd session red 192.0.2.1 up\nrun");
  EXPECT_EQ(ribVias("red", "10.0.0.0/8"), "[\"192.0.2.1\"]");
  run("bfd untrack red 10.0.0.0/8 192.0.2.1");
  EXPECT_EQ(peers(), 0u);
}

TEST_F(AgentBfdTest, RouteDeletionWithdrawsThePeerOnlyWithItsLastDependent) {
  run("bfd track red 10.0.0.0/8 192.0.2.1\nbfd track red 172.16.0.0/12 192.0.2.1\nbfd track red 172.16.0.0/12 192.0.2.2");
  EXPECT_EQ(peers(), 2u);
  run("route del red 172.16.0.0/12");
  EXPECT_TRUE(peer("192.0.2.1"));
  EXPECT_FALSE(peer("192.0.2.2"));
  run("route del red 10.0.0.0/8 pref 2");  // the route stays, and so does its tracking
  EXPECT_TRUE(peer("192.0.2.1"));
  run("route del red 10.0.0.0/8 pref 1");
  EXPECT_EQ(peers(), 0u);
  // Tracking again asks for the peer again, once.
  run("route add red 10.0.0.0/8 pref 1 via 192.0.2.1\nbfd track red 10.0.0.0/8 192.0.2.1");
  EXPECT_EQ(peers(), 1u);
}

TEST_F(AgentBfdTest, SessionUpBeforeTrackingIsHeardAtOnce) {
  run("bfd session red 192.0.2.1 up\nbfd track red 10.0.0.0/8 192.0.2.1\nrun");
  EXPECT_EQ(ribVias("red", "10.0.0.0/8"), "[\"192.0.2.1\"]");
}

TEST_F(AgentBfdTest, ReplacedAlternativeKeepsTheDownSessionsViasOut) {
  run("bfd track red 10.0.0.0/8 192.0.2.1\nbfd session red 192.0.2.1 down\n"
      "route add red 10.0.0.0/8 pref 1 via 192.0.2.1 via 192.0.2.2 tag 3\nrun");
  EXPECT_EQ(ribVias("red", "10.0.0.0/8"), "[\"192.0.2.2\"]");
  EXPECT_NE(show("show rib red").find("tag 3"), std::string::npos);  // pref 1 wins, without 192.0.2.1
  run("bfd session red 192.0.2.1 admin-down\nrun");
  EXPECT_EQ(ribVias("red", "10.0.0.0/8"), "[\"192.0.2.1\", \"192.0.2.2\"]");
  // Untracking writes the route as configured, whatever the session says.
  run("bfd session red 192.0.2.1 init\nrun");
  EXPECT_EQ(ribVias("red", "10.0.0.0/8"), "[\"192.0.2.2\"]");
  run("bfd untrack red 10.0.0.0/8 192.0.2.1\nrun");
  EXPECT_EQ(ribVias("red", "10.0.0.0/8"), "[\"192.0.2.1\", \"192.0.2.2\"]");
}

TEST_F(AgentBfdTest, LinkLocalNextHopsOnTwoInterfacesAreTwoPeers) {
  run("intf add red ipv6 Ethernet1\nintf add red ipv6 Ethernet2\n"
      "route add red 2001:db8::/32 pref 1 via fe80::1 intf Ethernet1\n"
      "route add red 2001:db9::/32 pref 1 via fe80::1 intf Ethernet2\n"
      "bfd track red 2001:db8::/32 fe80::1 intf Ethernet1\nbfd track red 2001:db9::/32 fe80::1 intf Ethernet2");
  EXPECT_EQ(peers(), 2u);
  EXPECT_THROW(run("bfd track red 2001:db8::/32 fe80::1"), Kel::ParseException);
}

TEST_F(AgentBfdTest, VrfWithdrawalWithdrawsItsPeersAndTracking) {
  run("bfd track red 10.0.0.0/8 192.0.2.1\nbfd track red 172.16.0.0/12 192.0.2.2\nvrf del red");
  EXPECT_EQ(peers(), 0u);
  EXPECT_EQ(agent.bfd()->byContainer()->nextHopStatuss(), 2u);  // the default VRF's two entries
  // The VRF comes back clean: tracking starts over with one peer per next hop.
  run("vrf add red 5\nroute add red 10.0.0.0/8 pref 1 via 192.0.2.1\nbfd track red 10.0.0.0/8 192.0.2.1");
  EXPECT_EQ(peers(), 1u);
}

TEST_F(AgentBfdTest, RefusalsChangeNothing) {
  run("bfd track red 10.0.0.0/8 192.0.2.1");
  const std::string before = show("show bfd json");
  EXPECT_THROW(run("bfd track red 10.0.0.0/8 192.0.2.1"), Kel::NameInUseException);
  EXPECT_THROW(run("bfd untrack red 172.16.0.0/12 192.0.2.1"), Kel::RangeException);
  EXPECT_THROW(run("bfd track red 10.9.0.0/16 192.0.2.1"), Kel::RangeException);
  EXPECT_THROW(run("bfd track blue 10.0.0.0/8 192.0.2.1"), Kel::RangeException);
  EXPECT_THROW(run("bfd session red 192.0.2.9 withdraw"), Kel::RangeException);
  EXPECT_THROW(run("bfd session red 192.0.2.1 sideways"), Kel::ParseException);
  EXPECT_EQ(show("show bfd json"), before);
  EXPECT_EQ(peers(), 1u);
}

// The multicast container's clean-up removes the BFD entry of the VRF's IPv4 container key, which
// the IPv4 unicast container still uses; the agent hands it back. Disabled: it documents the
// library's behaviour (run with --gtest_also_run_disabled_tests); it passes once the clean-up
// leaves the unicast entry alone.
TEST_F(AgentBfdTest, DISABLED_MulticastCleanupLeavesTheUnicastBfdEntryAlone) {
  run("bfd track red 10.0.0.0/8 192.0.2.1");
  const ContainerKey unicast(L3::VrfName("red"), Velnet::AddressFamily::ipv4);
  agent.root()->doCleanupMcContainer4(L3::VrfName("red"), 5);
  EXPECT_NE(agent.bfd()->byContainer()->nextHopStatus(unicast), nullptr);
}

}  // namespace
}  // namespace Routing::Protocol::Agent
