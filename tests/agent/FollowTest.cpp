// Following the RIB: the lines the follower prints for each change, in order.
#include <gtest/gtest.h>

#include "tests/agent/AgentHarness.h"

namespace Routing::Protocol::Agent {
namespace {

class AgentFollowTest : public AgentHarness {
 protected:
  void SetUp() override {
    run("start cold\nvrf add red 5\nmetric red ipv4 192.0.2.1 resolved\nmetric red ipv4 192.0.2.2 resolved");
  }
};

TEST_F(AgentFollowTest, RouteAddedChangedAndRemovedAreOneLineEach) {
  run("follow on");
  EXPECT_EQ(show("route add red 10.0.0.0/8 pref 1 via 192.0.2.1"),
            "rib viaset add 1 192.0.2.1\nrib add red ipv4 10.0.0.0/8 pref 1 via 192.0.2.1\n");
  EXPECT_EQ(show("route add red 10.0.0.0/8 pref 1 via 192.0.2.1 tag 4"),
            "rib change red ipv4 10.0.0.0/8 pref 1 via 192.0.2.1 tag 4\n");
  EXPECT_EQ(show("route del red 10.0.0.0/8"), "rib del red ipv4 10.0.0.0/8\nrib viaset del 1\n");
}

TEST_F(AgentFollowTest, ReplacingAllViasOfTheWinningAlternativeNeverRemovesTheRoute) {
  run("route add red 10.0.0.0/8 pref 1 via 192.0.2.1\nrun\nfollow on");
  const std::string lines = show("route add red 10.0.0.0/8 pref 1 via 192.0.2.2\nrun");
  EXPECT_EQ(lines.find("rib del"), std::string::npos) << lines;
  EXPECT_NE(lines.find("rib change red ipv4 10.0.0.0/8 pref 1 via 192.0.2.2\n"), std::string::npos) << lines;
}

TEST_F(AgentFollowTest, TablesPresentBeforeFollowingStartsAreFollowedWithTheirRoutes) {
  run("route add red 10.0.0.0/8 pref 1 via 192.0.2.1\nrun\nfollow on");
  // Known before: a change, not an addition.
  EXPECT_EQ(show("route add red 10.0.0.0/8 pref 1 via 192.0.2.1 nofib"),
            "rib change red ipv4 10.0.0.0/8 pref 1 via 192.0.2.1 nofib\n");
  run("follow off");
  EXPECT_EQ(show("route del red 10.0.0.0/8"), "");
}

TEST_F(AgentFollowTest, VrfWithdrawalIsReportedUnderItsName) {
  run("route add red 10.0.0.0/8 pref 1 via 192.0.2.1\nrun\nfollow on");
  EXPECT_EQ(show("vrf del red"), "rib del red ipv4 10.0.0.0/8\nrib viaset del 1\n");
  // A container made after following started is followed too.
  run("vrf add red 5\nmetric red ipv4 192.0.2.1 resolved");
  EXPECT_EQ(show("route add red 10.0.0.0/8 pref 1 via 192.0.2.1"),
            "rib viaset add 1 192.0.2.1\nrib add red ipv4 10.0.0.0/8 pref 1 via 192.0.2.1\n");
}

}  // namespace
}  // namespace Routing::Protocol::Agent
