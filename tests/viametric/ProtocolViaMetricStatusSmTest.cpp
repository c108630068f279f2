// The via-metric state machine: the reverse index from via to routes, the stamps it writes, the
// replay of a protocol status, forced removals, zombies, reflection and exact trace texts.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "platform/kel/Kel.h"
#include "viametric/ProtocolViaMetricStatusSm.h"

namespace Routing::Protocol {
namespace {

using Rib::RoutingProtocol;
using Rib::Transport;
using Velnet::AddressFamily;
using Users = std::vector<PrefixPrefVrfId>;

Rib::ViaKey via(const char* addr) {
  return Rib::ViaKey(Transport::ipv4, 0, RoutingProtocol::staticConfig,
                     Velnet::IpGenAddr::parse(addr), Velnet::IntfId(), 0);
}

Velnet::IpGenPrefix prefix(const char* text) { return Velnet::IpGenPrefix::parse(text); }

// Counts the stamps a route announces.
class StampCounter : public Route::NotifieeConst {
 public:
  explicit StampCounter(const Route::Ptr& route) { notifierIs(route); }
  void onRouteChangedAt() override { ++stamps; }
  int stamps = 0;
};

const Rib::ViaKey kV = via("192.0.2.1");
const Rib::ViaKey kW = via("192.0.2.2");
const Rib::ViaKey kX = via("192.0.2.3");

// The signatures that open the level-8 traces.
const std::string kSm = "void Routing::Protocol::ViaMetricStatusSm::";
const std::string kSigViaMetric = kSm +
                                  "handleViaMetric(Vrf::VrfIdMap::VrfId, Routing::Rib::Transport, "
                                  "Routing::Rib::RoutingProtocol, const Routing::Rib::ViaKey&)";
const std::string kSigRouteStatus =
    kSm + "handleRouteStatus(const Routing::Protocol::RouteStatusKey&, bool)";
const std::string kSigRouteViaKey =
    kSm +
    "handleRouteViaKey(const Routing::Protocol::Status::Ptr&, "
    "const Routing::Protocol::Route::Ptr&, const Routing::Protocol::RoutePref::Ptr&, "
    "const Routing::Rib::ViaKey&, bool)";
const std::string kSigVmsViaMetric = kSm + "KelVms::handleViaMetric(const Routing::Rib::ViaKey&)";
const std::string kSigPrefViaKey = kSm + "KelRoutePref::handleViaKey(const Routing::Rib::ViaKey&)";

// The range error's text for a null notifier handed to reactor collection `attr` of `owner`.
std::string nullText(const std::string& attr, const std::string& owner) {
  return "null _" + attr + " parameter to mutator for " + owner + "::" + attr + " not allowed\"";
}

class ViaMetricStatusSmTest : public ::testing::Test {
 protected:
  void SetUp() override { Kel::activityManager().reset(); }
  void TearDown() override { Kel::activityManager().reset(); }

  Status::Ptr addStatus(Vrf::VrfIdMap::VrfId vrf, AddressFamily af) {
    auto s = statusFactory(RouteStatusKey(vrf, af));
    dir->statusIs(s);
    return s;
  }
  ViaMetricStatusSm::Ptr start() { return viaMetricStatusSmFactory(rib, dir); }
  // Lists `v` in alternative `pref` of the route for `p`, creating both as needed.
  static Route::Ptr use(const Status::Ptr& s, const char* p, Routing::RoutePreference pref,
                        const Rib::ViaKey& v) {
    auto route = s->routeIs(prefix(p));
    route->routePrefIs(pref)->dedupViaKeyIs(Rib::dedupViaKeyIs(v));
    return route;
  }
  static Users users(const ViaMetricStatusSm& sm, const Rib::ViaKey& v) {
    Users out;
    if (auto entry = sm.routeByViaKey(v))
      out.assign(entry->routeColl().begin(), entry->routeColl().end());
    std::sort(out.begin(), out.end());
    return out;
  }
  void publish(Vrf::VrfIdMap::VrfId vrf, Transport t, RoutingProtocol p, const Rib::ViaKey& v,
               uint32_t metric) {
    rib->viaMetricStatusIs(vrf, t, p)->viaMetricIs(v, Rib::ViaMetric(metric, 1, false));
  }

  Kel::ManualTimeSource clock{100.0};
  Kel::ScopedTimeSource scopedClock{clock};
  Rib::ViaMetricStatusByVrf::Ptr rib = Rib::viaMetricStatusByVrfFactory();
  RouteStatusDir::Ptr dir = routeStatusDirFactory();
  Status::Ptr v4 = addStatus(5, AddressFamily::ipv4);
};

TEST_F(ViaMetricStatusSmTest, ViaNewToARouteIsIndexedAndStampsItOnce) {
  auto sm = start();
  auto route = v4->routeIs(prefix("10.1.0.0/16"));
  StampCounter counter(route);
  auto rp = route->routePrefIs(1);
  rp->dedupViaKeyIs(Rib::dedupViaKeyIs(kV));
  EXPECT_EQ(users(*sm, kV), (Users{PrefixPrefVrfId(prefix("10.1.0.0/16"), 1, 5)}));
  EXPECT_EQ(route->routeChangedAt(), 100.0);
  EXPECT_EQ(counter.stamps, 1);

  // Heard again, or walked again with the whole status: already indexed, so no new stamp.
  clock.timeIs(200.0);
  rp->dedupViaKeyNotify(kV);
  sm->handleRouteStatus(v4->key(), false);
  EXPECT_EQ(route->routeChangedAt(), 100.0);
  EXPECT_EQ(counter.stamps, 1);

  // Another route taking up the same via is stamped; the first is left alone.
  auto other = use(v4, "10.2.0.0/16", 1, kV);
  EXPECT_EQ(other->routeChangedAt(), 200.0);
  EXPECT_EQ(route->routeChangedAt(), 100.0);
  EXPECT_EQ(users(*sm, kV).size(), 2u);
}

// An agent may build a route (or an alternative) apart and hand it over whole; it must be indexed
// as if its vias had come one by one, and a route replaced under its prefix must take its old
// vias out of the index.
TEST_F(ViaMetricStatusSmTest, RouteOrAlternativeBuiltApartIsIndexedAndReplacedCleanly) {
  auto sm = start();
  auto built = routeFactory(prefix("10.1.0.0/16"));
  built->routePrefIs(1)->dedupViaKeyIs(Rib::dedupViaKeyIs(kV));
  built->routePrefIs(2)->dedupViaKeyIs(Rib::dedupViaKeyIs(kW));
  v4->routeIs(built);
  EXPECT_EQ(users(*sm, kV), (Users{PrefixPrefVrfId(prefix("10.1.0.0/16"), 1, 5)}));
  EXPECT_EQ(users(*sm, kW), (Users{PrefixPrefVrfId(prefix("10.1.0.0/16"), 2, 5)}));
  EXPECT_EQ(built->routeChangedAt(), 100.0);

  clock.timeIs(200.0);
  auto replacement = routeFactory(prefix("10.1.0.0/16"));
  replacement->routePrefIs(1)->dedupViaKeyIs(Rib::dedupViaKeyIs(kV));
  replacement->routePrefIs(1)->dedupViaKeyIs(Rib::dedupViaKeyIs(kX));
  v4->routeIs(replacement);
  EXPECT_EQ(users(*sm, kV), (Users{PrefixPrefVrfId(prefix("10.1.0.0/16"), 1, 5)}));
  EXPECT_EQ(users(*sm, kX), (Users{PrefixPrefVrfId(prefix("10.1.0.0/16"), 1, 5)}));
  EXPECT_FALSE(sm->routeByViaKeyHas(kW));
  EXPECT_EQ(replacement->routeChangedAt(), 200.0);
  // The old route is nobody's concern any more: changing it reaches no index.
  built->routePref(2)->dedupViaKeyIs(Rib::dedupViaKeyIs(kW));
  EXPECT_FALSE(sm->routeByViaKeyHas(kW));

  // An alternative built apart, replacing preference 1.
  auto pref = routePrefFactory(Routing::RoutePreference(1));
  pref->dedupViaKeyIs(Rib::dedupViaKeyIs(kW));
  replacement->routePrefIs(pref);
  EXPECT_EQ(users(*sm, kW), (Users{PrefixPrefVrfId(prefix("10.1.0.0/16"), 1, 5)}));
  EXPECT_FALSE(sm->routeByViaKeyHas(kV));
  EXPECT_FALSE(sm->routeByViaKeyHas(kX));
}

TEST_F(ViaMetricStatusSmTest, RoutesAlreadyPresentAreIndexedAtStart) {
  use(v4, "10.1.0.0/16", 1, kV);
  use(v4, "10.1.0.0/16", 2, kW);
  auto v6 = addStatus(7, AddressFamily::ipv6);
  use(v6, "2001:db8::/32", 9, kV);
  auto sm = start();
  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(users(*sm, kV), (Users{PrefixPrefVrfId(prefix("10.1.0.0/16"), 1, 5),
                                   PrefixPrefVrfId(prefix("2001:db8::/32"), 9, 7)}));
  EXPECT_EQ(users(*sm, kW), (Users{PrefixPrefVrfId(prefix("10.1.0.0/16"), 2, 5)}));
}

TEST_F(ViaMetricStatusSmTest, EntryGoesWithItsLastUserAndRemovalsNeverStamp) {
  auto sm = start();
  auto a = use(v4, "10.1.0.0/16", 1, kV);
  auto b = use(v4, "10.2.0.0/16", 1, kV);
  use(v4, "10.2.0.0/16", 2, kV);
  use(v4, "10.2.0.0/16", 2, kW);
  clock.timeIs(200.0);
  StampCounter counterA(a), counterB(b);

  a->routePref(1)->dedupViaKeyDel(kV);
  EXPECT_EQ(users(*sm, kV), (Users{PrefixPrefVrfId(prefix("10.2.0.0/16"), 1, 5),
                                   PrefixPrefVrfId(prefix("10.2.0.0/16"), 2, 5)}));
  b->routePrefDel(2);
  EXPECT_EQ(users(*sm, kV), (Users{PrefixPrefVrfId(prefix("10.2.0.0/16"), 1, 5)}));
  EXPECT_FALSE(sm->routeByViaKeyHas(kW));
  v4->routeDel(prefix("10.2.0.0/16"));
  EXPECT_FALSE(sm->routeByViaKeyHas(kV));
  EXPECT_EQ(sm->routeByViaKeys(), 0u);
  EXPECT_EQ(counterA.stamps, 0);
  EXPECT_EQ(counterB.stamps, 0);
  EXPECT_EQ(a->routeChangedAt(), 100.0);
}

TEST_F(ViaMetricStatusSmTest, MetricChangeStampsEveryUserWhateverItsVrfTransportOrProtocol) {
  auto v6 = addStatus(7, AddressFamily::ipv6);
  auto sm = start();
  auto r4 = use(v4, "10.1.0.0/16", 1, kV);
  auto r6 = use(v6, "2001:db8::/32", 3, kV);
  auto bystander = use(v4, "10.3.0.0/16", 1, kW);
  StampCounter c4(r4), c6(r6), cb(bystander);
  clock.timeIs(300.0);
  // Neither VRF 9, EVPN nor BGP is what the routes are in: the fan-out does not filter.
  publish(9, Transport::evpn, RoutingProtocol::bgp, kV, 10);
  EXPECT_EQ(r4->routeChangedAt(), 300.0);
  EXPECT_EQ(r6->routeChangedAt(), 300.0);
  EXPECT_EQ(bystander->routeChangedAt(), 100.0);
  EXPECT_EQ(c4.stamps, 1);
  EXPECT_EQ(c6.stamps, 1);
  EXPECT_EQ(cb.stamps, 0);

  // A via no route uses changes nothing; nor does the removal of a metric of an unused via.
  clock.timeIs(400.0);
  publish(0, Transport::ipv4, RoutingProtocol::staticConfig, kX, 5);
  rib->viaMetricStatus(0, Transport::ipv4, RoutingProtocol::staticConfig)->viaMetricDel(kX);
  EXPECT_EQ(c4.stamps + c6.stamps + cb.stamps, 2);
  // Removing a used via's metric is a change like any other.
  rib->viaMetricStatus(9, Transport::evpn, RoutingProtocol::bgp)->viaMetricDel(kV);
  EXPECT_EQ(r4->routeChangedAt(), 400.0);
  EXPECT_EQ(c6.stamps, 2);
}

TEST_F(ViaMetricStatusSmTest, RouteUsingTheViaInTwoAlternativesIsStampedTwiceWithTheSameTime) {
  auto sm = start();
  use(v4, "10.1.0.0/16", 1, kV);
  auto route = use(v4, "10.1.0.0/16", 2, kV);
  StampCounter counter(route);
  clock.timeIs(300.0);
  publish(0, Transport::ipv4, RoutingProtocol::staticConfig, kV, 10);
  // One stamp per index entry, both at the same time, each heard.
  EXPECT_EQ(route->routeChangedAt(), 300.0);
  EXPECT_EQ(counter.stamps, 2);
  // Taking the via out of one alternative leaves one entry, so one stamp.
  route->routePref(2)->dedupViaKeyDel(kV);
  clock.timeIs(400.0);
  publish(0, Transport::ipv4, RoutingProtocol::staticConfig, kV, 20);
  EXPECT_EQ(route->routeChangedAt(), 400.0);
  EXPECT_EQ(counter.stamps, 3);
}

TEST_F(ViaMetricStatusSmTest, DeletedStatusLeavesTheIndexWithoutStamping) {
  auto v6 = addStatus(7, AddressFamily::ipv6);
  auto sm = start();
  auto a = use(v4, "10.1.0.0/16", 1, kV);
  auto b = use(v4, "10.2.0.0/16", 4, kW);
  use(v6, "2001:db8::/32", 1, kV);
  StampCounter ca(a), cb(b);
  clock.timeIs(200.0);
  dir->statusDel(v4->key());
  EXPECT_EQ(users(*sm, kV), (Users{PrefixPrefVrfId(prefix("2001:db8::/32"), 1, 7)}));
  EXPECT_FALSE(sm->routeByViaKeyHas(kW));
  EXPECT_FALSE(sm->routeStatusHas(v4->key()));
  EXPECT_EQ(ca.stamps + cb.stamps, 0);
  // Its routes are no longer followed.
  use(v4, "10.9.0.0/16", 1, kV);
  EXPECT_EQ(users(*sm, kV).size(), 1u);
}

TEST_F(ViaMetricStatusSmTest, StatusReplacedUnderItsKeyTakesItsRoutesOutOfTheIndex) {
  auto sm = start();
  use(v4, "10.1.0.0/16", 1, kV);
  auto replacement = statusFactory(v4->key());
  auto fresh = use(replacement, "10.2.0.0/16", 1, kV);
  clock.timeIs(200.0);
  dir->statusIs(replacement);
  EXPECT_EQ(users(*sm, kV), (Users{PrefixPrefVrfId(prefix("10.2.0.0/16"), 1, 5)}));
  EXPECT_EQ(fresh->routeChangedAt(), 200.0);
  // The old status is no longer watched.
  use(v4, "10.3.0.0/16", 1, kV);
  EXPECT_EQ(users(*sm, kV).size(), 1u);
}

TEST_F(ViaMetricStatusSmTest, ProtocolStatusBuiltAfterTheRoutesReplaysItsViaKeys) {
  auto sm = start();
  auto a = use(v4, "10.1.0.0/16", 1, kV);
  auto b = use(v4, "10.2.0.0/16", 1, kW);
  auto c = use(v4, "10.3.0.0/16", 1, kX);
  // A status that arrives with its metrics already in it, as a table mounted from the RIB does:
  // filled while nothing watched it, then handed to the machine.
  auto status = rib->viaMetricStatusIs(3, Transport::ipv6, RoutingProtocol::bgp);
  auto* byProto = sm->vmsByTransport(3)->vmsByProto(Transport::ipv6);
  byProto->vmsDel(RoutingProtocol::bgp);
  status->viaMetricIs(kV, Rib::ViaMetric(1, 1, false));
  status->viaMetricIs(kW, Rib::ViaMetric(2, 1, false));
  clock.timeIs(500.0);
  EXPECT_EQ(a->routeChangedAt(), 100.0);
  byProto->vmsIs(status);
  EXPECT_TRUE(byProto->vms(RoutingProtocol::bgp)->initialized());
  EXPECT_EQ(a->routeChangedAt(), 500.0);
  EXPECT_EQ(b->routeChangedAt(), 500.0);
  EXPECT_EQ(c->routeChangedAt(), 100.0);
}

TEST_F(ViaMetricStatusSmTest, EveryProtocolStatusReplaysWhenTheMachineStarts) {
  publish(0, Transport::ipv4, RoutingProtocol::staticConfig, kV, 1);
  publish(4, Transport::evpn, RoutingProtocol::bgp, kW, 1);
  Kel::ScopedTraceCapture capture("Quill::ViaMetricStatusSm/8");
  auto sm = start();
  auto texts = capture.texts();
  auto has = [&](const std::string& t) {
    return std::find(texts.begin(), texts.end(), t) != texts.end();
  };
  EXPECT_TRUE(has(kSigVmsViaMetric + " for " + kV.strep() + " in protocol 'staticConfig'"));
  EXPECT_TRUE(has(kSigVmsViaMetric + " for " + kW.strep() + " in protocol 'bgp'"));
  EXPECT_TRUE(has(kSigViaMetric + " vrf: 4 transport: 'evpn' proto: 'bgp' key: " + kW.strep()));
  // The replay comes before the routes are indexed: it has nothing to stamp yet.
  auto init = std::find(texts.begin(), texts.end(), kSm + "handleInitialized()");
  auto replay = std::find(texts.begin(), texts.end(), kSm + "KelVms::handleInitialized()");
  ASSERT_NE(init, texts.end());
  EXPECT_LT(replay, init);
}

TEST_F(ViaMetricStatusSmTest, ZombieReactorsIgnoreNotifications) {
  auto sm = start();
  auto rp = v4->routeIs(prefix("10.1.0.0/16"))->routePrefIs(1);
  auto* reactor = sm->routeStatus(v4->key())->route(prefix("10.1.0.0/16"))->routePref(1);
  reactor->kelDoZombieReactors(true);
  rp->dedupViaKeyIs(Rib::dedupViaKeyIs(kV));
  EXPECT_FALSE(sm->routeByViaKeyHas(kV));
  // Switching the machine's delivery off and on reaches the zombie too; it must still not act.
  sm->hasNotificationActiveIs(false);
  sm->hasNotificationActiveIs(true);
  ASSERT_TRUE(reactor->hasNotificationActive());
  rp->dedupViaKeyIs(Rib::dedupViaKeyIs(kW));
  EXPECT_FALSE(sm->routeByViaKeyHas(kW));
  reactor->kelDoZombieReactors(false);
  rp->dedupViaKeyIs(Rib::dedupViaKeyIs(kX));
  EXPECT_TRUE(sm->routeByViaKeyHas(kX));

  auto route = v4->route(prefix("10.1.0.0/16"));
  auto status = rib->viaMetricStatusIs(0, Transport::ipv4, RoutingProtocol::staticConfig);
  auto* vms =
      sm->vmsByTransport(0)->vmsByProto(Transport::ipv4)->vms(RoutingProtocol::staticConfig);
  vms->kelDoZombieReactors(true);
  sm->hasNotificationActiveIs(false);
  sm->hasNotificationActiveIs(true);
  clock.timeIs(300.0);
  status->viaMetricIs(kX, Rib::ViaMetric(1, 1, false));
  EXPECT_EQ(route->routeChangedAt(), 100.0);
  vms->kelDoZombieReactors(false);
  status->viaMetricIs(kX, Rib::ViaMetric(2, 1, false));
  EXPECT_EQ(route->routeChangedAt(), 300.0);
}

TEST_F(ViaMetricStatusSmTest, NullReactorIsRefusedWithTheOwnersName) {
  auto sm = start();
  rib->viaMetricStatusIs(0, Transport::ipv4, RoutingProtocol::staticConfig);
  use(v4, "10.1.0.0/16", 1, kV);
  auto text = [](auto&& mutate) {
    try {
      mutate();
    } catch (const Kel::RangeException& e) {
      return std::string(e.what());
    }
    return std::string("no exception");
  };
  const std::string machine = "Routing::Protocol::ViaMetricStatusSm";
  EXPECT_EQ(text([&] { sm->vmsByTransportIs(nullptr); }), nullText("vmsByTransport", machine));
  EXPECT_EQ(text([&] { sm->routeStatusIs(nullptr); }), nullText("routeStatus", machine));
  auto* byTransport = sm->vmsByTransport(0);
  EXPECT_EQ(text([&] { byTransport->vmsByProtoIs(nullptr); }),
            nullText("vmsByProto", machine + "::KelVmsByTransport"));
  EXPECT_EQ(text([&] { byTransport->vmsByProto(Transport::ipv4)->vmsIs(nullptr); }),
            nullText("vms", machine + "::KelVmsByProto"));
  auto* kelStatus = sm->routeStatus(v4->key());
  EXPECT_EQ(text([&] { kelStatus->routeIs(nullptr); }),
            nullText("route", machine + "::KelRouteStatus"));
  EXPECT_EQ(text([&] { kelStatus->route(prefix("10.1.0.0/16"))->routePrefIs(nullptr); }),
            nullText("routePref", machine + "::KelRoute"));
  // The one text spelt out in full, closing double-quote included.
  EXPECT_EQ(nullText("vmsByTransport", machine),
            "null _vmsByTransport parameter to mutator for "
            "Routing::Protocol::ViaMetricStatusSm::vmsByTransport not allowed\"");
}

TEST_F(ViaMetricStatusSmTest, MissingEntityInAnIndexUpdateIsAnAssertion) {
  auto sm = start();
  auto route = use(v4, "10.1.0.0/16", 1, kV);
  Kel::ScopedThrowingAsserts throwing;
  try {
    sm->handleRouteViaKey(v4, route, nullptr, kV, false);
    FAIL();
  } catch (const Kel::AssertionException& e) {
    EXPECT_STREQ(e.what(), "rs && route && routePref");
  }
}

TEST_F(ViaMetricStatusSmTest, HandlersAreCallableByNameWithTextArguments) {
  auto v6 = addStatus(7, AddressFamily::ipv6);
  auto sm = start();
  auto r4 = use(v4, "10.1.0.0/16", 1, kV);
  auto r6 = use(v6, "2001:db8::/32", 1, kW);
  clock.timeIs(200.0);
  Kel::callHandler(
      *sm, "handleViaMetric",
      {{"vrfId", 3}, {"transport", "'ipv6'"}, {"proto", "'isis'"}, {"key", kV.strep()}});
  EXPECT_EQ(r4->routeChangedAt(), 200.0);
  EXPECT_EQ(r6->routeChangedAt(), 100.0);

  Kel::callHandler(*sm, "handleRouteStatus", {{"key", v6->key().strep()}, {"forceDel", true}});
  EXPECT_FALSE(sm->routeByViaKeyHas(kW));
  Kel::callHandler(*sm, "handleRouteStatus", {{"key", v6->key().strep()}, {"forceDel", "False"}});
  EXPECT_TRUE(sm->routeByViaKeyHas(kW));

  Kel::callHandler(*sm, "handleRouteViaKey",
                   {{"status", v4},
                    {"route", r4},
                    {"routePref", r4->routePref(1)},
                    {"key", kV.strep()},
                    {"forceDel", true}});
  EXPECT_FALSE(sm->routeByViaKeyHas(kV));

  EXPECT_THROW(
      Kel::callHandler(*sm, "handleRouteStatus", {{"key", "(RSK 7, 2)"}, {"forceDel", false}}),
      Kel::ParseException);
  EXPECT_THROW(Kel::callHandler(*sm, "handleViaMetric", {{"vrfId", 3}, {"key", kV.strep()}}),
               Kel::InvalidOperationException);
}

TEST_F(ViaMetricStatusSmTest, TraceTextsAreExact) {
  auto sm = start();
  auto route = use(v4, "10.1.0.0/16", 1, kV);
  // Entries that no longer lead to a route: its status left the directory, or it left its status.
  auto detached = statusFactory(RouteStatusKey(8, AddressFamily::ipv4));
  auto gone = routeFactory(prefix("10.7.0.0/16"));
  auto gonePref = gone->routePrefIs(2);
  gonePref->dedupViaKeyIs(Rib::dedupViaKeyIs(kV));
  sm->handleRouteViaKey(detached, gone, gonePref, kV, false);
  sm->handleRouteViaKey(v4, gone, gonePref, kV, false);

  Kel::ScopedTraceCapture capture("Quill::ViaMetricStatusSm/8-9");
  sm->handleViaMetric(1, Transport::ipv4, RoutingProtocol::staticConfig, kV);
  sm->handleRouteStatus(RouteStatusKey(6, AddressFamily::ipv6), false);
  auto entry = [](const char* p, int pref, int vrf) {
    return "Value('Routing::Protocol::PrefixPrefVrfId', ** {'prefix': '" + std::string(p) +
           "', 'pref': " + std::to_string(pref) + ", 'vrfId': " + std::to_string(vrf) + "})";
  };
  const std::string p5 = entry("10.1.0.0/16", 1, 5);
  const std::string g8 = entry("10.7.0.0/16", 2, 8);
  const std::string g5 = entry("10.7.0.0/16", 2, 5);
  std::vector<std::string> expected = {
      kSigViaMetric + " vrf: 1 transport: 'ipv4' proto: 'staticConfig' key: " + kV.strep()};
  // The entries come in the set's hash order; each tells its own story.
  for (const PrefixPrefVrfId& p : sm->routeByViaKey(kV)->routeColl()) {
    if (p == PrefixPrefVrfId(prefix("10.1.0.0/16"), 1, 5)) {
      expected.push_back("handleViaMetric looking at " + p5);
      expected.push_back("handleViaMetric setting route changed on " + p5);
    } else if (p.vrfId() == 8) {
      expected.push_back("handleViaMetric looking at " + g8);
      expected.push_back("handleViaMetric no status for this route");
    } else {
      expected.push_back("handleViaMetric looking at " + g5);
      expected.push_back(
          "handleViaMetric no route from "
          "Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': 5, 'af': 'ipv4'})");
    }
  }
  expected.push_back(
      kSigRouteStatus +
      " for Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': 6, 'af': 'ipv6'})"
      " forceDel is 0");
  expected.push_back("handleRouteStatus no routeStatus");
  EXPECT_EQ(capture.texts(), expected);

  capture.clear();
  route->routePrefIs(1)->dedupViaKeyDel(kV);
  EXPECT_EQ(capture.texts(),
            (std::vector<std::string>{
                kSigPrefViaKey + " for " + kV.strep(),
                kSigRouteViaKey +
                    " rsk:  (RSK 5, ipv4) prefix: '10.1.0.0/16' pref 1 viaKey: " + kV.strep()}));
}

TEST_F(ViaMetricStatusSmTest, ObserverDeletingRoutesDuringTheFanOutIsSafe) {
  auto sm = start();
  std::vector<Route::Ptr> routes;
  for (int i = 0; i < 40; ++i) {
    routes.push_back(use(v4, ("10." + std::to_string(i) + ".0.0/16").c_str(), 1, kV));
  }
  // The first route stamped takes every route off the via: half of them by deleting the route,
  // the other half by dropping the via from it. None of them may be stamped after that.
  struct Deleter : Route::NotifieeConst {
    Status::Ptr status;
    int calls = 0;
    void onRouteChangedAt() override {
      ++calls;
      for (const auto& k : status->routeColl().keys()) {
        if (k.address().v4().hostOrder() & 0x10000) {  // odd second byte
          status->route(k)->routePref(1)->dedupViaKeyDel(kV);
        } else {
          status->routeDel(k);
        }
      }
    }
  };
  std::vector<std::unique_ptr<Deleter>> deleters;
  for (const auto& r : routes) {
    deleters.push_back(std::make_unique<Deleter>());
    deleters.back()->status = v4;
    deleters.back()->notifierIs(r);
  }
  clock.timeIs(200.0);
  publish(0, Transport::ipv4, RoutingProtocol::staticConfig, kV, 1);
  int calls = 0;
  int stamped = 0;
  for (size_t i = 0; i < routes.size(); ++i) {
    calls += deleters[i]->calls;
    stamped += routes[i]->routeChangedAt() == 200.0;
  }
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(stamped, 1);
  EXPECT_FALSE(sm->routeByViaKeyHas(kV));
  EXPECT_EQ(v4->routes(), 20u);
}

TEST_F(ViaMetricStatusSmTest, RoutesDeletedDuringTheStartingWalkStayOutOfTheIndex) {
  // Whichever route the walk indexes first deletes all the others when it is stamped.
  struct Pruner : Route::NotifieeConst {
    Status::Ptr status;
    void onRouteChangedAt() override {
      for (const auto& k : status->routeColl().keys()) {
        if (!(k == notifier()->routeKey())) status->routeDel(k);
      }
    }
  };
  std::vector<std::unique_ptr<Pruner>> pruners;
  for (int i = 0; i < 10; ++i) {
    auto route = use(v4, ("10." + std::to_string(i) + ".0.0/16").c_str(), 1, kV);
    pruners.push_back(std::make_unique<Pruner>());
    pruners.back()->status = v4;
    pruners.back()->notifierIs(route);
  }
  auto sm = start();
  ASSERT_EQ(v4->routes(), 1u);
  const auto& survivor = *v4->routeColl().begin();
  EXPECT_EQ(users(*sm, kV), (Users{PrefixPrefVrfId(survivor->routeKey(), 1, 5)}));
}

TEST_F(ViaMetricStatusSmTest, DestroyingTheMachineReleasesItsReactorsAndLeavesRoutesAlone) {
  auto route = use(v4, "10.1.0.0/16", 1, kV);
  auto status = rib->viaMetricStatusIs(0, Transport::ipv4, RoutingProtocol::staticConfig);
  {
    auto sm = start();
    EXPECT_EQ(route->notifieeList().size(), 1u);
    EXPECT_EQ(status->notifieeList().size(), 1u);
  }
  EXPECT_EQ(route->notifieeList().size(), 0u);
  EXPECT_EQ(route->routePref(1)->notifieeList().size(), 0u);
  EXPECT_EQ(status->notifieeList().size(), 0u);
  EXPECT_EQ(dir->notifieeList().size(), 0u);
  EXPECT_EQ(route->routeChangedAt(), 100.0);
  EXPECT_EQ(v4->routes(), 1u);
}

}  // namespace
}  // namespace Routing::Protocol
