// The via-metric state machine: the reverse index from via to routes, the stamps it writes, the
// replay of a protocol status, forced removals, zombies, reflection and exact trace texts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
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
PrefixPrefVrfId at(const char* p, Routing::RoutePreference pref, Vrf::VrfIdMap::VrfId vrf = 5) {
  return PrefixPrefVrfId(prefix(p), pref, vrf);
}

// Counts the stamps a route announces, and runs `act` on each.
class StampCounter : public Route::NotifieeConst {
 public:
  explicit StampCounter(const Route::Ptr& route, std::function<void()> act = {})
      : act_(std::move(act)) {
    notifierIs(route);
  }
  void onRouteChangedAt() override {
    ++stamps;
    if (act_) act_();
  }
  int stamps = 0;

 private:
  std::function<void()> act_;
};

const Rib::ViaKey kV = via("192.0.2.1");
const Rib::ViaKey kW = via("192.0.2.2");
const Rib::ViaKey kX = via("192.0.2.3");

// The signatures that open the level-8 traces.
const std::string kSm = "void Routing::Protocol::ViaMetricStatusSm::";
const std::string kSigViaMetric = kSm +
                                  "handleViaMetric(Vrf::VrfIdMap::VrfId, Routing::Rib::Transport, "
                                  "Routing::Rib::RoutingProtocol, const Routing::Rib::ViaKey&)";

// Matches a callable that throws an E with exactly this text.
template <class E>
auto throwsText(const std::string& text) {
  return testing::ThrowsMessage<E>(testing::StrEq(text));
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
  Rib::ViaMetricStatus::Ptr metrics(Vrf::VrfIdMap::VrfId vrf = 0, Transport t = Transport::ipv4,
                                    RoutingProtocol p = RoutingProtocol::staticConfig) {
    return rib->viaMetricStatusIs(vrf, t, p);
  }
  void publish(const Rib::ViaKey& v, uint32_t metric, Vrf::VrfIdMap::VrfId vrf = 0,
               Transport t = Transport::ipv4, RoutingProtocol p = RoutingProtocol::staticConfig) {
    metrics(vrf, t, p)->viaMetricIs(v, Rib::ViaMetric(metric, 1, false));
  }

  Kel::ManualTimeSource clock{100.0};
  Kel::ScopedTimeSource scopedClock{clock};
  Rib::ViaMetricStatusByVrf::Ptr rib = Rib::viaMetricStatusByVrfFactory();
  RouteStatusDir::Ptr dir = routeStatusDirFactory();
  Status::Ptr v4 = addStatus(5, AddressFamily::ipv4);
};

TEST_F(ViaMetricStatusSmTest, ViaNewToARouteIsIndexedAndStampedOnceAndLeavesWithoutAStamp) {
  auto sm = start();
  auto a = v4->routeIs(prefix("10.1.0.0/16"));
  StampCounter counterA(a);
  auto rp = a->routePrefIs(1);
  rp->dedupViaKeyIs(Rib::dedupViaKeyIs(kV));
  EXPECT_EQ(users(*sm, kV), (Users{at("10.1.0.0/16", 1)}));
  EXPECT_EQ(a->routeChangedAt(), 100.0);
  EXPECT_EQ(counterA.stamps, 1);

  // Heard again, or walked again with the whole status: already indexed, so no new stamp.
  clock.timeIs(200.0);
  rp->dedupViaKeyNotify(kV);
  sm->handleRouteStatus(v4->key(), false);
  EXPECT_EQ(counterA.stamps, 1);

  // Another route taking up the same via is stamped; the first is left alone.
  auto b = use(v4, "10.2.0.0/16", 1, kV);
  use(v4, "10.2.0.0/16", 2, kV);
  use(v4, "10.2.0.0/16", 2, kW);
  EXPECT_EQ(b->routeChangedAt(), 200.0);
  EXPECT_EQ(a->routeChangedAt(), 100.0);
  EXPECT_EQ(users(*sm, kV),
            (Users{at("10.1.0.0/16", 1), at("10.2.0.0/16", 1), at("10.2.0.0/16", 2)}));

  // Each removal takes exactly its entries out, and an entry goes with its last user; none stamps.
  clock.timeIs(300.0);
  StampCounter counterB(b);
  a->routePref(1)->dedupViaKeyDel(kV);
  EXPECT_EQ(users(*sm, kV), (Users{at("10.2.0.0/16", 1), at("10.2.0.0/16", 2)}));
  b->routePrefDel(2);
  EXPECT_EQ(users(*sm, kV), (Users{at("10.2.0.0/16", 1)}));
  EXPECT_FALSE(sm->routeByViaKeyHas(kW));
  v4->routeDel(prefix("10.2.0.0/16"));
  EXPECT_EQ(sm->routeByViaKeys(), 0u);
  EXPECT_EQ(counterA.stamps, 1);
  EXPECT_EQ(counterB.stamps, 0);
  EXPECT_EQ(a->routeChangedAt(), 100.0);
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
  EXPECT_EQ(users(*sm, kV), (Users{at("10.1.0.0/16", 1)}));
  EXPECT_EQ(users(*sm, kW), (Users{at("10.1.0.0/16", 2)}));
  EXPECT_EQ(built->routeChangedAt(), 100.0);

  clock.timeIs(200.0);
  auto replacement = routeFactory(prefix("10.1.0.0/16"));
  replacement->routePrefIs(1)->dedupViaKeyIs(Rib::dedupViaKeyIs(kV));
  replacement->routePrefIs(1)->dedupViaKeyIs(Rib::dedupViaKeyIs(kX));
  v4->routeIs(replacement);
  EXPECT_EQ(users(*sm, kV), (Users{at("10.1.0.0/16", 1)}));
  EXPECT_EQ(users(*sm, kX), (Users{at("10.1.0.0/16", 1)}));
  EXPECT_FALSE(sm->routeByViaKeyHas(kW));
  EXPECT_EQ(replacement->routeChangedAt(), 200.0);
  // The old route is nobody's concern any more: changing it reaches no index.
  built->routePref(2)->dedupViaKeyIs(Rib::dedupViaKeyIs(kW));
  EXPECT_FALSE(sm->routeByViaKeyHas(kW));

  // An alternative built apart, replacing preference 1.
  auto pref = routePrefFactory(Routing::RoutePreference(1));
  pref->dedupViaKeyIs(Rib::dedupViaKeyIs(kW));
  replacement->routePrefIs(pref);
  EXPECT_EQ(users(*sm, kW), (Users{at("10.1.0.0/16", 1)}));
  EXPECT_FALSE(sm->routeByViaKeyHas(kV));
  EXPECT_FALSE(sm->routeByViaKeyHas(kX));
}

TEST_F(ViaMetricStatusSmTest, MetricChangeStampsEveryUserOncePerIndexEntryWhateverItsTable) {
  auto v6 = addStatus(7, AddressFamily::ipv6);
  auto sm = start();
  use(v4, "10.1.0.0/16", 1, kV);
  auto r4 = use(v4, "10.1.0.0/16", 2, kV);  // the via in two alternatives: two index entries
  auto r6 = use(v6, "2001:db8::/32", 3, kV);
  auto bystander = use(v4, "10.3.0.0/16", 1, kW);
  StampCounter c4(r4), c6(r6), cb(bystander);
  clock.timeIs(300.0);
  // Neither VRF 9, EVPN nor BGP is what the routes are in: the fan-out does not filter.
  publish(kV, 10, 9, Transport::evpn, RoutingProtocol::bgp);
  EXPECT_EQ(r4->routeChangedAt(), 300.0);
  EXPECT_EQ(r6->routeChangedAt(), 300.0);
  EXPECT_EQ(bystander->routeChangedAt(), 100.0);
  EXPECT_EQ(c4.stamps, 2);
  EXPECT_EQ(c6.stamps, 1);
  EXPECT_EQ(cb.stamps, 0);

  // A via no route uses changes nothing; nor does the removal of a metric of an unused via.
  clock.timeIs(400.0);
  publish(kX, 5);
  metrics()->viaMetricDel(kX);
  EXPECT_EQ(c4.stamps + c6.stamps + cb.stamps, 3);
  // Removing a used via's metric is a change like any other; one entry left, one stamp.
  r4->routePref(2)->dedupViaKeyDel(kV);
  metrics(9, Transport::evpn, RoutingProtocol::bgp)->viaMetricDel(kV);
  EXPECT_EQ(r4->routeChangedAt(), 400.0);
  EXPECT_EQ(c4.stamps, 3);
  EXPECT_EQ(c6.stamps, 2);
}

TEST_F(ViaMetricStatusSmTest, StatusDeletedOrReplacedLeavesTheIndexWithoutStamping) {
  auto v6 = addStatus(7, AddressFamily::ipv6);
  auto sm = start();
  auto a = use(v4, "10.1.0.0/16", 1, kV);
  auto b = use(v4, "10.2.0.0/16", 4, kW);
  use(v6, "2001:db8::/32", 1, kV);
  StampCounter ca(a), cb(b);
  clock.timeIs(200.0);
  dir->statusDel(v4->key());
  EXPECT_EQ(users(*sm, kV), (Users{at("2001:db8::/32", 1, 7)}));
  EXPECT_FALSE(sm->routeByViaKeyHas(kW));
  EXPECT_FALSE(sm->routeStatusHas(v4->key()));
  EXPECT_EQ(ca.stamps + cb.stamps, 0);
  // Its routes are no longer followed.
  use(v4, "10.9.0.0/16", 1, kV);
  EXPECT_EQ(users(*sm, kV).size(), 1u);

  // A new status under v6's key: the old one's routes leave, the new one's come in stamped.
  auto replacement = statusFactory(v6->key());
  auto fresh = use(replacement, "2001:db8:1::/48", 1, kV);
  clock.timeIs(300.0);
  dir->statusIs(replacement);
  EXPECT_EQ(users(*sm, kV), (Users{at("2001:db8:1::/48", 1, 7)}));
  EXPECT_EQ(fresh->routeChangedAt(), 300.0);
  use(v6, "2001:db8:2::/48", 1, kV);
  EXPECT_EQ(users(*sm, kV).size(), 1u);
}

TEST_F(ViaMetricStatusSmTest, ProtocolStatusBuiltAfterTheRoutesReplaysItsViaKeys) {
  auto sm = start();
  auto a = use(v4, "10.1.0.0/16", 1, kV);
  auto b = use(v4, "10.2.0.0/16", 1, kW);
  auto c = use(v4, "10.3.0.0/16", 1, kX);
  // A status that arrives with its metrics already in it, as a table mounted from the RIB does:
  // filled while nothing watched it, then handed to the machine.
  auto status = metrics(3, Transport::ipv6, RoutingProtocol::bgp);
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

TEST_F(ViaMetricStatusSmTest, StartReplaysEveryProtocolStatusThenIndexesTheRoutesPresent) {
  publish(kV, 1);
  publish(kW, 1, 4, Transport::evpn, RoutingProtocol::bgp);
  use(v4, "10.1.0.0/16", 1, kV);
  use(v4, "10.1.0.0/16", 2, kW);
  use(addStatus(7, AddressFamily::ipv6), "2001:db8::/32", 9, kV);
  Kel::ScopedTraceCapture capture("Quill::ViaMetricStatusSm/8");
  auto sm = start();
  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(users(*sm, kV), (Users{at("10.1.0.0/16", 1), at("2001:db8::/32", 9, 7)}));
  EXPECT_EQ(users(*sm, kW), (Users{at("10.1.0.0/16", 2)}));
  auto texts = capture.texts();
  const std::string vmsViaMetric = kSm + "KelVms::handleViaMetric(const Routing::Rib::ViaKey&)";
  for (const std::string& t :
       {vmsViaMetric + " for " + kV.strep() + " in protocol 'staticConfig'",
        vmsViaMetric + " for " + kW.strep() + " in protocol 'bgp'",
        kSigViaMetric + " vrf: 4 transport: 'evpn' proto: 'bgp' key: " + kW.strep()}) {
    EXPECT_NE(std::find(texts.begin(), texts.end(), t), texts.end()) << t;
  }
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
  auto status = metrics();
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

TEST_F(ViaMetricStatusSmTest, NullReactorOrMissingEntityIsRefusedWithItsText) {
  auto sm = start();
  metrics();
  auto route = use(v4, "10.1.0.0/16", 1, kV);
  auto* byTransport = sm->vmsByTransport(0);
  auto* kelStatus = sm->routeStatus(v4->key());
  struct Case {
    std::function<void()> mutate;
    const char* attr;
    const char* owner;  // a reactor nested in the machine, or none
  };
  const Case cases[] = {
      {[&] { sm->vmsByTransportIs(nullptr); }, "vmsByTransport", ""},
      {[&] { sm->routeStatusIs(nullptr); }, "routeStatus", ""},
      {[&] { byTransport->vmsByProtoIs(nullptr); }, "vmsByProto", "::KelVmsByTransport"},
      {[&] { byTransport->vmsByProto(Transport::ipv4)->vmsIs(nullptr); }, "vms", "::KelVmsByProto"},
      {[&] { kelStatus->routeIs(nullptr); }, "route", "::KelRouteStatus"},
      {[&] { kelStatus->route(prefix("10.1.0.0/16"))->routePrefIs(nullptr); }, "routePref",
       "::KelRoute"},
  };
  for (const Case& c : cases) {
    EXPECT_THAT(c.mutate, throwsText<Kel::RangeException>(
                              std::string("null _") + c.attr +
                              " parameter to mutator for Routing::Protocol::ViaMetricStatusSm" +
                              c.owner + "::" + c.attr + " not allowed\""));
  }
  Kel::ScopedThrowingAsserts throwing;
  EXPECT_THAT([&] { sm->handleRouteViaKey(v4, route, nullptr, kV, false); },
              throwsText<Kel::AssertionException>("rs && route && routePref"));
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
  std::vector<std::string> expected = {
      kSigViaMetric + " vrf: 1 transport: 'ipv4' proto: 'staticConfig' key: " + kV.strep()};
  // The entries come in the set's hash order; each tells its own story.
  for (const PrefixPrefVrfId& p : sm->routeByViaKey(kV)->routeColl()) {
    expected.push_back("handleViaMetric looking at " + p.strep());
    if (p == at("10.1.0.0/16", 1)) {
      expected.push_back("handleViaMetric setting route changed on " + p.strep());
    } else if (p.vrfId() == 8) {
      expected.push_back("handleViaMetric no status for this route");
    } else {
      expected.push_back(
          "handleViaMetric no route from "
          "Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': 5, 'af': 'ipv4'})");
    }
  }
  expected.push_back(kSm +
                     "handleRouteStatus(const Routing::Protocol::RouteStatusKey&, bool) for "
                     "Value('Routing::Protocol::RouteStatusKey', ** {'vrfId': 6, 'af': 'ipv6'})"
                     " forceDel is 0");
  expected.push_back("handleRouteStatus no routeStatus");
  EXPECT_EQ(capture.texts(), expected);

  capture.clear();
  route->routePrefIs(1)->dedupViaKeyDel(kV);
  EXPECT_EQ(
      capture.texts(),
      (std::vector<std::string>{
          kSm + "KelRoutePref::handleViaKey(const Routing::Rib::ViaKey&) for " + kV.strep(),
          kSm +
              "handleRouteViaKey(const Routing::Protocol::Status::Ptr&, "
              "const Routing::Protocol::Route::Ptr&, const Routing::Protocol::RoutePref::Ptr&, "
              "const Routing::Rib::ViaKey&, bool) rsk:  (RSK 5, ipv4) prefix: '10.1.0.0/16' "
              "pref 1 viaKey: " +
              kV.strep()}));
}

// Observers may delete routes while the fan-out or the starting walk is stamping them; a route
// taken off the via must never be stamped after that, nor stay in the index.
TEST_F(ViaMetricStatusSmTest, ObserverDeletingRoutesDuringTheFanOutIsSafe) {
  auto sm = start();
  // The first route stamped takes every route off the via: half of them by deleting the route,
  // the other half by dropping the via from it.
  auto takeAllOff = [&] {
    for (const auto& k : v4->routeColl().keys()) {
      if (k.address().v4().hostOrder() & 0x10000) {  // odd second byte
        v4->route(k)->routePref(1)->dedupViaKeyDel(kV);
      } else {
        v4->routeDel(k);
      }
    }
  };
  std::vector<Route::Ptr> routes;
  std::vector<std::unique_ptr<StampCounter>> counters;
  for (int i = 0; i < 40; ++i) {
    routes.push_back(use(v4, ("10." + std::to_string(i) + ".0.0/16").c_str(), 1, kV));
    counters.push_back(std::make_unique<StampCounter>(routes.back(), takeAllOff));
  }
  clock.timeIs(200.0);
  publish(kV, 1);
  int calls = 0;
  int stamped = 0;
  for (size_t i = 0; i < routes.size(); ++i) {
    calls += counters[i]->stamps;
    stamped += routes[i]->routeChangedAt() == 200.0;
  }
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(stamped, 1);
  EXPECT_FALSE(sm->routeByViaKeyHas(kV));
  EXPECT_EQ(v4->routes(), 20u);
}

TEST_F(ViaMetricStatusSmTest, RoutesDeletedDuringTheStartingWalkStayOutOfTheIndex) {
  // Whichever route the walk indexes first deletes all the others when it is stamped.
  std::vector<std::unique_ptr<StampCounter>> pruners;
  for (int i = 0; i < 10; ++i) {
    const std::string p = "10." + std::to_string(i) + ".0.0/16";
    auto keep = prefix(p.c_str());
    pruners.push_back(std::make_unique<StampCounter>(use(v4, p.c_str(), 1, kV), [this, keep] {
      for (const auto& k : v4->routeColl().keys()) {
        if (!(k == keep)) v4->routeDel(k);
      }
    }));
  }
  auto sm = start();
  ASSERT_EQ(v4->routes(), 1u);
  const auto& survivor = *v4->routeColl().begin();
  EXPECT_EQ(users(*sm, kV), (Users{PrefixPrefVrfId(survivor->routeKey(), 1, 5)}));
}

TEST_F(ViaMetricStatusSmTest, DestroyingTheMachineReleasesItsReactorsAndLeavesRoutesAlone) {
  auto route = use(v4, "10.1.0.0/16", 1, kV);
  auto status = metrics();
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
