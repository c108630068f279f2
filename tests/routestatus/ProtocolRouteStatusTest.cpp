// The agent's route table: ordering of alternatives, dedup handles, names and failure texts. The
// generic collection behaviour (create once, replace, announce removals) is the framework's, tested
// in its own right.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "routestatus/ProtocolRouteStatus.h"

namespace Routing::Protocol {
namespace {

// A million routes: past the entity's own words, a route is its prefix, its source VRF, its list
// of alternatives and its stamp, with no room lost between them.
static_assert(sizeof(Route) <= sizeof(Kel::Entity) + 48);

using Velnet::AddressFamily;

Rib::ViaKey via(const char* addr) {
  return Rib::ViaKey(Rib::Transport::ipv4, 0, Rib::RoutingProtocol::staticConfig,
                     Velnet::IpGenAddr::parse(addr), Velnet::IntfId(), 0);
}

Velnet::IpGenPrefix prefix(const char* text) { return Velnet::IpGenPrefix::parse(text); }

class RouteTableTest : public ::testing::Test {
 protected:
  RouteStatusDir::Ptr dir = routeStatusDirFactory();
  Status::Ptr status = statusFactory(RouteStatusKey(5, AddressFamily::ipv4));
};

TEST_F(RouteTableTest, AlternativesIterateInAscendingPreferenceAndAreCreatedOnce) {
  auto route = status->routeIs(prefix("10.0.0.0/8"));
  struct Counter : Route::NotifieeConst {
    int n = 0;
    void onRoutePref(Routing::RoutePreference) override { ++n; }
  } counter;
  counter.notifierIs(route);
  for (Routing::RoutePreference p : {30, 1, 200, 7}) route->routePrefIs(p);
  std::vector<unsigned> order;
  for (const auto& rp : route->routePrefColl()) order.push_back(rp->preference());
  EXPECT_EQ(order, (std::vector<unsigned>{1, 7, 30, 200}));
  // Asking again returns the existing entry unchanged, and says nothing.
  route->routePref(1)->tagIs(42);
  EXPECT_EQ(route->routePrefIs(1)->tag(), 42u);
  EXPECT_EQ(counter.n, 4);
  EXPECT_EQ(status->routeIs(prefix("10.0.0.0/8")), route);
}

TEST_F(RouteTableTest, EqualViasShareOneHandleReleasedWithTheRouteThatHeldIt) {
  EXPECT_EQ(Rib::dedupViaKeyIs(via("198.51.100.1")), Rib::dedupViaKeyIs(via("198.51.100.1")));
  size_t before = Rib::dedupViaKeys();
  {
    auto route = status->routeIs(prefix("10.0.0.0/8"));
    auto rp = route->routePrefIs(1);
    rp->dedupViaKeyIs(Rib::dedupViaKeyIs(via("198.51.100.1")));
    rp->dedupViaKeyIs(Rib::dedupViaKeyIs(via("198.51.100.2")));
    rp->dedupViaKeyIs(Rib::dedupViaKeyIs(via("198.51.100.2")));
    rp->dedupEvpnVtepIpViaKeyIs(via("198.51.100.1"), Rib::dedupViaKeyIs(via("198.51.100.9")));
  }
  EXPECT_EQ(Rib::dedupViaKeys(), before + 3);
  EXPECT_TRUE(status->routeDel(prefix("10.0.0.0/8")));
  EXPECT_EQ(Rib::dedupViaKeys(), before);
  EXPECT_EQ(status->routes(), 0u);
}

TEST_F(RouteTableTest, FullNameFollowsKeysAndParentsAndNullsAreRefusedWithTheirTexts) {
  auto rp = status->routeIs(prefix("10.0.0.0/8"))->routePrefIs(3);
  EXPECT_EQ(rp->fullName(),
            "Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': 5, 'af': "
            "'ipv4'})/route/'10.0.0.0/8'/routePref/3");
  EXPECT_THAT([&] { rp->dedupViaKeyIs(nullptr); },
              testing::ThrowsMessage<Kel::RangeException>(
                  testing::StrEq("null _dedupViaKey parameter to mutator for "
                                 "Routing::Protocol::RoutePref::dedupViaKey not allowed\"")));
  EXPECT_THAT([&] { dir->statusIs(nullptr); },
              testing::ThrowsMessage<Kel::RangeException>(testing::StrEq(
                  "null _status parameter to mutator for Routing::Protocol::RouteStatusDir::status "
                  "not allowed\"")));
  EXPECT_EQ(rp->dedupViaKeys(), 0u);
  EXPECT_EQ(dir->statuss(), 0u);
}

}  // namespace
}  // namespace Routing::Protocol
