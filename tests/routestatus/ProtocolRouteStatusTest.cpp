// The agent's route table: ordering of alternatives, ownership, dedup handles and failure texts.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "routestatus/ProtocolRouteStatus.h"

namespace Routing::Protocol {
namespace {

using Velnet::AddressFamily;

Rib::ViaKey via(const char* addr) {
  return Rib::ViaKey(Rib::Transport::ipv4, 0, Rib::RoutingProtocol::staticConfig, Velnet::IpGenAddr::parse(addr),
                     Velnet::IntfId(), 0);
}

Velnet::IpGenPrefix prefix(const char* text) { return Velnet::IpGenPrefix::parse(text); }

class RouteTableTest : public ::testing::Test {
 protected:
  RouteStatusDir::Ptr dir = routeStatusDirFactory();
  Status::Ptr status = statusFactory(RouteStatusKey(5, AddressFamily::ipv4));
};

TEST_F(RouteTableTest, AlternativesIterateInAscendingPreference) {
  auto route = status->routeIs(prefix("10.0.0.0/8"));
  for (Routing::RoutePreference p : {30, 1, 200, 7}) route->routePrefIs(p);
  std::vector<unsigned> order;
  for (const auto& rp : route->routePrefColl()) order.push_back(rp->preference());
  EXPECT_EQ(order, (std::vector<unsigned>{1, 7, 30, 200}));
}

TEST_F(RouteTableTest, RoutePrefIsReturnsTheExistingEntryUnchanged) {
  auto route = status->routeIs(prefix("10.0.0.0/8"));
  struct Counter : Route::NotifieeConst {
    int n = 0;
    void onRoutePref(Routing::RoutePreference) override { ++n; }
  } counter;
  counter.notifierIs(route);
  auto first = route->routePrefIs(1);
  first->tagIs(42);
  auto again = route->routePrefIs(1);
  EXPECT_EQ(again, first);
  EXPECT_EQ(again->tag(), 42u);
  EXPECT_EQ(counter.n, 1);
  EXPECT_EQ(status->routeIs(prefix("10.0.0.0/8")), route);
}

TEST_F(RouteTableTest, EqualViasShareOneHandleAndReinsertingReplacesIt) {
  auto rp = status->routeIs(prefix("10.0.0.0/8"))->routePrefIs(1);
  auto h1 = Rib::dedupViaKeyIs(via("192.0.2.1"));
  EXPECT_EQ(Rib::dedupViaKeyIs(via("192.0.2.1")), h1);
  rp->dedupViaKeyIs(h1);
  // A handle for the same via from another table: it replaces the first, the via stays once.
  auto other = Velk::DedupTable<Rib::ViaKey>::DedupTableIs("Routing::Rib::DedupViaKey");
  auto h2 = other->handleIs(via("192.0.2.1"));
  struct Counter : RoutePref::NotifieeConst {
    int n = 0;
    void onDedupViaKey(const Rib::ViaKey&) override { ++n; }
  } counter;
  counter.notifierIs(rp);
  rp->dedupViaKeyIs(h2);
  rp->dedupViaKeyIs(h2);
  EXPECT_EQ(rp->dedupViaKeys(), 1u);
  EXPECT_EQ(rp->dedupViaKey(via("192.0.2.1")), h2);
  EXPECT_EQ(counter.n, 1);
}

TEST_F(RouteTableTest, DeletingARouteReleasesItsAlternativesAndTheirHandles) {
  size_t before = Rib::dedupViaKeys();
  {
    auto route = status->routeIs(prefix("10.0.0.0/8"));
    auto rp = route->routePrefIs(1);
    rp->dedupViaKeyIs(Rib::dedupViaKeyIs(via("198.51.100.1")));
    rp->dedupViaKeyIs(Rib::dedupViaKeyIs(via("198.51.100.2")));
    rp->dedupEvpnVtepIpViaKeyIs(via("198.51.100.1"), Rib::dedupViaKeyIs(via("198.51.100.9")));
  }
  EXPECT_EQ(Rib::dedupViaKeys(), before + 3);
  EXPECT_TRUE(status->routeDel(prefix("10.0.0.0/8")));
  EXPECT_EQ(Rib::dedupViaKeys(), before);
  EXPECT_EQ(status->routes(), 0u);
}

TEST_F(RouteTableTest, RouteRemovalIsAnnouncedAfterTheRouteIsGone) {
  status->routeIs(prefix("10.0.0.0/8"));
  struct Watcher : Status::NotifieeConst {
    std::vector<std::string> log;
    void onRoute(const Velnet::IpGenPrefix& p) override {
      log.push_back(p.str() + (notifier()->routeHas(p) ? " present" : " absent"));
    }
  } watcher;
  watcher.notifierIs(status);
  status->routeIs(prefix("10.1.0.0/16"));
  status->routeDel(prefix("10.0.0.0/8"));
  EXPECT_EQ(watcher.log, (std::vector<std::string>{"10.1.0.0/16 present", "10.0.0.0/8 absent"}));
}

TEST_F(RouteTableTest, NullHandlesAreRefusedWithTheExactTexts) {
  auto rp = status->routeIs(prefix("10.0.0.0/8"))->routePrefIs(1);
  try {
    rp->dedupViaKeyIs(nullptr);
    FAIL();
  } catch (const Kel::RangeException& e) {
    EXPECT_STREQ(e.what(),
                 "null _dedupViaKey parameter to mutator for Routing::Protocol::RoutePref::dedupViaKey not allowed\"");
  }
  try {
    dir->statusIs(nullptr);
    FAIL();
  } catch (const Kel::RangeException& e) {
    EXPECT_STREQ(e.what(), "null _status parameter to mutator for Routing::Protocol::RouteStatusDir::status not allowed\"");
  }
  EXPECT_EQ(rp->dedupViaKeys(), 0u);
  EXPECT_EQ(dir->statuss(), 0u);
}

TEST_F(RouteTableTest, StatusDirectoryHoldsButDoesNotOwnItsStatuses) {
  dir->statusIs(status);
  EXPECT_EQ(dir->status(RouteStatusKey(5, AddressFamily::ipv4)), status);
  EXPECT_EQ(status->parent(), nullptr);
  EXPECT_TRUE(dir->statusDel(RouteStatusKey(5, AddressFamily::ipv4)));
  EXPECT_EQ(status->references(), 1u);
}

TEST_F(RouteTableTest, ReverseIndexEntryKeepsEachRouteOnce) {
  auto entry = routeByViaKeyFactory(via("192.0.2.1"));
  PrefixPrefVrfId a(prefix("10.0.0.0/8"), 1, 5);
  entry->routeIs(a);
  entry->routeIs(a);
  entry->routeIs(PrefixPrefVrfId(prefix("10.0.0.0/8"), 2, 5));
  EXPECT_EQ(entry->routes(), 2u);
  EXPECT_TRUE(entry->routeDel(a));
  EXPECT_FALSE(entry->routeHas(a));
}

TEST_F(RouteTableTest, FullNamesAreComputedFromKeysAndParents) {
  auto rp = status->routeIs(prefix("10.0.0.0/8"))->routePrefIs(3);
  EXPECT_EQ(rp->fullName(),
            "Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': 5, 'af': 'ipv4'})/route/'10.0.0.0/8'/routePref/3");
}

}  // namespace
}  // namespace Routing::Protocol
