// RouteStatusSm through the real RIB platform objects: the choice of alternative, via validity,
// the labelled switch, via-set sharing, and the time-sliced review.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/fasttrace/FastTrace.h"
#include "platform/kel/Kel.h"
#include "routestatus/ProtocolRouteStatusSm.h"

namespace Routing::Protocol {
namespace {

using Rib::RoutingProtocol;
using Rib::Transport;
using Velnet::AddressFamily;

constexpr Vrf::VrfIdMap::VrfId kVrf = 5;
const Rib::ViaMetric kResolved(10, 1, false);

Velnet::IpGenPrefix prefix(const std::string& text) { return Velnet::IpGenPrefix::parse(text); }

Rib::ViaKey via(const std::string& addr, Vrf::VrfIdMap::VrfId vrf = kVrf,
                Transport t = Transport::ipv4, uint32_t vni = 0) {
  return Rib::ViaKey(t, vrf, RoutingProtocol::staticConfig, Velnet::IpGenAddr::parse(addr),
                     Velnet::IntfId(), vni);
}

class RouteStatusSmTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Kel::activityManager().reset();
    viaSetConfig->configViaSetCollIs(viaSetColl);
    loopingByVrf->loopingRouteStatusIs(L3::VrfName("red"));
  }
  void TearDown() override {
    sm = nullptr;
    Kel::activityManager().reset();
  }

  Rib::ViaMetricStatus::Ptr metrics(Vrf::VrfIdMap::VrfId vrf = kVrf,
                                    Transport t = Transport::ipv4) {
    return vmsByVrf->viaMetricStatusIs(vrf, t, RoutingProtocol::staticConfig);
  }
  void makeSm(bool withReadyStatus = true) {
    sm = routeStatusSmFactory(
        L3::VrfName("red"), AddressFamily::ipv4, kVrf, status, metrics(), evpnMetrics,
        Rib::LoopingRouteStatus::PtrConst(loopingByVrf->loopingRouteStatus(L3::VrfName("red"))),
        ribConfig, viaSetConfig, RoutingProtocol::staticConfig, ipv4Default, ipv6Default,
        withReadyStatus ? readyStatus : VrfReadyStatus::Ptr(), bfdAppConfig, ipViaConfig, vmsByVrf,
        std::string("rib"));
  }
  RoutePref::Ptr addRoute(const std::string& p, Routing::RoutePreference pref,
                          const std::vector<Rib::ViaKey>& vias) {
    auto rp = status->routeIs(prefix(p))->routePrefIs(pref);
    for (const auto& v : vias) rp->dedupViaKeyIs(Rib::dedupViaKeyIs(v));
    return rp;
  }
  const Rib::Route* rib(const std::string& p) {
    return ribConfig->route(Rib::RouteKey(kVrf, prefix(p)));
  }
  const Rib::Shmtab::ViaSet* ribViaSet(const std::string& p) {
    const Rib::Route* r = rib(p);
    return r ? viaSetColl->viaSet(r->viaSetKey()) : nullptr;
  }
  void settle() { Kel::activityManager().runUntilIdle(); }

  Kel::ManualTimeSource time{1000.0};
  Kel::ScopedTimeSource scopedTime{time};
  Status::Ptr status = statusFactory(RouteStatusKey(kVrf, AddressFamily::ipv4));
  Rib::ViaMetricStatusByVrf::Ptr vmsByVrf = Rib::viaMetricStatusByVrfFactory();
  Rib::ViaMetricStatus::Ptr evpnMetrics =
      Rib::viaMetricStatusFactory(RoutingProtocol::staticConfig);
  Rib::ViaMetricStatus::Ptr ipv4Default =
      Rib::viaMetricStatusFactory(RoutingProtocol::staticConfig);
  Rib::ViaMetricStatus::Ptr ipv6Default =
      Rib::viaMetricStatusFactory(RoutingProtocol::staticConfig);
  Rib::LoopingRouteStatusByVrf::Ptr loopingByVrf = Rib::loopingRouteStatusByVrfFactory();
  Rib::RouteConfig::Ptr ribConfig = Rib::routeConfigFactory();
  Rib::ViaSetConfig::Ptr viaSetConfig = Rib::viaSetConfigFactory(RoutingProtocol::staticConfig);
  Rib::Shmtab::ViaSetCollection::Ptr viaSetColl =
      Rib::Shmtab::ViaSetCollection::ViaSetCollectionIs();
  Rib::Ip::ViaConfig::Ptr ipViaConfig = Rib::Ip::viaConfigFactory();
  Bfd::AppConfig::Ptr bfdAppConfig = Bfd::appConfigFactory(std::string("staticConfig"));
  VrfReadyStatus::Ptr readyStatus = vrfReadyStatusFactory(L3::VrfName("red"));
  RouteStatusSm::Ptr sm;
};

TEST_F(RouteStatusSmTest, FirstUsableAlternativeByAscendingPreferenceWinsAndNoneRemovesIt) {
  metrics()->viaMetricIs(via("10.0.0.2"), kResolved);
  makeSm();
  addRoute("192.168.0.0/16", 1, {via("10.0.0.1")});
  addRoute("192.168.0.0/16", 2, {via("10.0.0.2")});
  ASSERT_NE(rib("192.168.0.0/16"), nullptr);
  EXPECT_EQ(rib("192.168.0.0/16")->metricPref(), 2);
  EXPECT_EQ(ribViaSet("192.168.0.0/16")->vias(), std::vector<Rib::ViaKey>{via("10.0.0.2")});
  EXPECT_EQ(rib("192.168.0.0/16")->routingProtocol(), RoutingProtocol::staticConfig);
  // The better via resolves: the metric change reviews every route and the route moves back.
  metrics()->viaMetricIs(via("10.0.0.1"), kResolved);
  settle();
  EXPECT_EQ(rib("192.168.0.0/16")->metricPref(), 1);
  EXPECT_EQ(ribViaSet("192.168.0.0/16")->vias(), std::vector<Rib::ViaKey>{via("10.0.0.1")});
  EXPECT_EQ(ribViaSet("192.168.0.0/16")->flags(), Rib::Shmtab::ViaSet::flagIpv4);
  // Neither via usable: the prefix leaves the RIB.
  metrics()->viaMetricDel(via("10.0.0.1"));
  metrics()->viaMetricDel(via("10.0.0.2"));
  settle();
  EXPECT_EQ(rib("192.168.0.0/16"), nullptr);
  // An alternative of FEC type 2 needs no usable via, and goes in with an empty via set.
  addRoute("192.168.0.0/16", 3, {via("10.0.0.9")})->fecTypeIs(2);
  status->route(prefix("192.168.0.0/16"))->routeChangedAtIs(1.0);
  ASSERT_NE(rib("192.168.0.0/16"), nullptr);
  EXPECT_EQ(rib("192.168.0.0/16")->metricPref(), 3);
  EXPECT_EQ(ribViaSet("192.168.0.0/16")->viaCount(), 0u);
  EXPECT_EQ(ribViaSet("192.168.0.0/16")->type(), 2);
}

// A machine that was not listening missed a route's replacement and a route's removal, and still
// watches both old routes: a stamp on either evaluates the prefix as the status holds it now.
TEST_F(RouteStatusSmTest, StampOnARouteTheStatusNoLongerHoldsEvaluatesThePrefixAsItIsNow) {
  metrics()->viaMetricIs(via("10.0.0.1"), kResolved);
  metrics()->viaMetricIs(via("10.0.0.2"), kResolved);
  makeSm();
  addRoute("192.168.0.0/16", 1, {via("10.0.0.1")});
  addRoute("10.9.0.0/16", 1, {via("10.0.0.1")});
  const Route::Ptr replaced = status->route(prefix("192.168.0.0/16"));
  const Route::Ptr removed = status->route(prefix("10.9.0.0/16"));
  sm->hasNotificationActiveIs(false);
  const Route::Ptr replacement = routeFactory(prefix("192.168.0.0/16"));
  replacement->routePrefIs(2)->dedupViaKeyIs(Rib::dedupViaKeyIs(via("10.0.0.2")));
  status->routeIs(replacement);
  status->routeDel(prefix("10.9.0.0/16"));
  sm->hasNotificationActiveIs(true);
  ASSERT_EQ(rib("192.168.0.0/16")->metricPref(), 1);
  ASSERT_NE(rib("10.9.0.0/16"), nullptr);

  replaced->routeChangedAtIs(2.0);
  removed->routeChangedAtIs(2.0);
  ASSERT_NE(rib("192.168.0.0/16"), nullptr);
  EXPECT_EQ(rib("192.168.0.0/16")->metricPref(), 2);
  EXPECT_EQ(ribViaSet("192.168.0.0/16")->vias(), std::vector<Rib::ViaKey>{via("10.0.0.2")});
  EXPECT_EQ(rib("10.9.0.0/16"), nullptr);
}

TEST_F(RouteStatusSmTest, OneLabelledViaDiscardsTheUnlabelledOnesForGood) {
  std::vector<Rib::ViaKey> vias{via("10.0.1.1"), via("10.0.1.2"), via("10.0.1.3"), via("10.0.1.4")};
  for (const auto& v : vias) metrics()->viaMetricIs(v, kResolved);
  makeSm();
  auto rp = addRoute("192.168.0.0/16", 1, vias);
  // The vias as the alternative meets them (hash order): label the second and the fourth.
  std::vector<Rib::ViaKey> met;
  for (const auto& h : rp->dedupViaKeyColl()) met.push_back(h->value());
  ipViaConfig->viaIs(Rib::Via(met[1], 100));
  ipViaConfig->viaIs(Rib::Via(met[3], 0xFFFFF));  // the largest label there is
  status->route(prefix("192.168.0.0/16"))->routeChangedAtIs(1.0);
  const auto* vs = ribViaSet("192.168.0.0/16");
  ASSERT_NE(vs, nullptr);
  EXPECT_TRUE(vs->labelled());
  EXPECT_EQ(vs->vias(), (std::vector<Rib::ViaKey>{met[1], met[3]}));
  // A label past 20 bits is no label: the fourth via no longer counts as labelled.
  ipViaConfig->viaIs(Rib::Via(met[3], 0x100000));
  status->route(prefix("192.168.0.0/16"))->routeChangedAtIs(2.0);
  EXPECT_EQ(ribViaSet("192.168.0.0/16")->vias(), (std::vector<Rib::ViaKey>{met[1]}));
}

// An EVPN via with an IPv4 companion resolved or not in the default VRF is checked end to end by
// the EVPN scenario and the differential test; scripts can neither leave the companion out nor
// make it IPv6.
TEST_F(RouteStatusSmTest, EvpnViaNeedsACompanionAndAnIpv6OneResolvedInTheIpv6DefaultVrf) {
  Rib::ViaKey evpn = via("10.9.9.9", kVrf, Transport::evpn, 5000);
  Rib::ViaKey vtep6 = via("2001:db8::1", 0, Transport::ipv6);
  evpnMetrics->viaMetricIs(evpn, kResolved);
  ipv4Default->viaMetricIs(vtep6, kResolved);
  makeSm();
  auto rp = addRoute("192.168.0.0/16", 1, {evpn});
  EXPECT_EQ(rib("192.168.0.0/16"), nullptr);  // its own metric alone does not do
  rp->dedupEvpnVtepIpViaKeyIs(evpn, Rib::dedupViaKeyIs(vtep6));
  EXPECT_EQ(rib("192.168.0.0/16"), nullptr);  // resolved in the IPv4 table only
  ipv6Default->viaMetricIs(vtep6, kResolved);
  status->route(prefix("192.168.0.0/16"))->routeChangedAtIs(1.0);
  EXPECT_NE(rib("192.168.0.0/16"), nullptr);
}

TEST_F(RouteStatusSmTest, ViaTablesAreChosenByTheViaKeysOwnVrf) {
  metrics(9)->viaMetricIs(via("10.0.0.1", 9), kResolved);
  makeSm();
  addRoute("192.168.0.0/16", 1, {via("10.0.0.1", 9)});
  EXPECT_NE(rib("192.168.0.0/16"), nullptr);  // resolved in VRF 9, used by a route of VRF 5
  addRoute("192.169.0.0/16", 1, {via("10.0.0.1", 42)});
  EXPECT_EQ(rib("192.169.0.0/16"), nullptr);  // VRF 42 has no metric table at all
}

TEST_F(RouteStatusSmTest, TooManyViasLeaveTheRibAsItWas) {
  std::vector<Rib::ViaKey> vias;
  for (int i = 0; i < 513; ++i) {
    vias.push_back(via("10.1." + std::to_string(i / 256) + "." + std::to_string(i % 256)));
    metrics()->viaMetricIs(vias.back(), kResolved);
  }
  makeSm();
  auto rp =
      addRoute("192.168.0.0/16", 1, std::vector<Rib::ViaKey>(vias.begin(), vias.begin() + 512));
  ASSERT_EQ(ribViaSet("192.168.0.0/16")->viaCount(), 512u);
  Rib::Route before = *rib("192.168.0.0/16");
  EXPECT_THAT([&] { rp->dedupViaKeyIs(Rib::dedupViaKeyIs(vias[512])); },
              testing::ThrowsMessage<Kel::RangeException>(testing::StrEq(
                  "ViaIndex::value < ViaIndex::min or > ViaIndex::max not allowed")));
  EXPECT_EQ(*rib("192.168.0.0/16"), before);
  // A review meets the same route and goes on past it.
  metrics()->viaMetricIs(via("10.0.0.99"), kResolved);
  settle();
  EXPECT_TRUE(readyStatus->v4RouteReviewComplete());
}

TEST_F(RouteStatusSmTest, RoutesTheRibCannotTakeWaitAndGoInOldestFirstAsRoomIsMade) {
  ribConfig->capacityIs(2);
  makeSm();
  for (const char* p : {"10.1.0.0/16", "10.2.0.0/16", "10.3.0.0/16"})
    addRoute(p, 1, {via("10.0.0.1")});
  ASSERT_EQ(ribConfig->routes(), 0u);
  // The via resolves; the via-metric machine stamps every user. The RIB's side cannot act on a
  // refusal: the stamps must not throw, the routes that fit go in, the other waits.
  metrics()->viaMetricIs(via("10.0.0.1"), kResolved);
  for (const char* p : {"10.1.0.0/16", "10.2.0.0/16", "10.3.0.0/16"}) {
    EXPECT_NO_THROW(status->route(prefix(p))->routeChangedAtIs(1.0));
  }
  settle();
  EXPECT_EQ(ribConfig->routes(), 2u);
  ASSERT_EQ(sm->waitingRoutes(), 1u);
  EXPECT_TRUE(sm->routeWaiting(prefix("10.3.0.0/16")));
  EXPECT_TRUE(readyStatus->v4RouteReviewComplete());
  // The agent's own write is refused to its face, and the route it left in the status waits too.
  EXPECT_THROW(addRoute("10.4.0.0/16", 1, {via("10.0.0.1")}), Kel::TableFullException);
  EXPECT_EQ(sm->waitingRoutes(), 2u);

  // Room for one: the oldest waiting route takes it on the next turn, the other keeps waiting.
  status->routeDel(prefix("10.1.0.0/16"));
  EXPECT_EQ(rib("10.3.0.0/16"), nullptr);
  settle();
  EXPECT_NE(rib("10.3.0.0/16"), nullptr);
  EXPECT_EQ(rib("10.4.0.0/16"), nullptr);
  EXPECT_EQ(sm->waitingRoutes(), 1u);
  // A waiting route that goes stops waiting; with none left, nothing watches the RIB.
  status->routeDel(prefix("10.4.0.0/16"));
  EXPECT_EQ(sm->waitingRoutes(), 0u);
  EXPECT_EQ(sm->ribConfigReactor(), nullptr);
  status->routeDel(prefix("10.2.0.0/16"));
  settle();
  EXPECT_EQ(ribConfig->routes(), 1u);
}

// Whenever a via set leaves the RIB's table, no RIB route may still point at it.
class DanglingViaSetWatch : public Rib::Shmtab::ViaSetCollection::NotifieeConst {
 public:
  DanglingViaSetWatch(const Rib::Shmtab::ViaSetCollection::PtrConst& sets,
                      const Rib::RouteConfig::PtrConst& routes)
      : routes_(routes) {
    notifierIs(sets);
  }
  void onViaSet(const Rib::ViaSetKey& key) override {
    if (notifier()->viaSet(key)) return;
    for (const Rib::Route& r : routes_->routeColl()) dangling += r.viaSetKey() == key;
  }
  int dangling = 0;

 private:
  Rib::RouteConfig::PtrConst routes_;
};

TEST_F(RouteStatusSmTest, ARouteLeavesItsViaSetBeforeTheSetLeavesAndAFullTableKeepsBoth) {
  DanglingViaSetWatch watch(viaSetColl, ribConfig);
  for (const char* a : {"10.0.0.1", "10.0.0.2", "10.0.0.3"})
    metrics()->viaMetricIs(via(a), kResolved);
  makeSm();
  auto rp = addRoute("192.168.0.0/16", 1, {via("10.0.0.1")});
  // The route moves to a new set and was the old one's last user.
  rp->dedupViaKeyIs(Rib::dedupViaKeyIs(via("10.0.0.2")));
  rp->dedupViaKeyDel(via("10.0.0.1"));
  EXPECT_EQ(ribViaSet("192.168.0.0/16")->vias(), std::vector<Rib::ViaKey>{via("10.0.0.2")});
  EXPECT_EQ(viaSetColl->viaSets(), 1u);
  EXPECT_EQ(watch.dangling, 0);

  // No room for the set the route would move to: the route stays on its set, the set stays, and
  // no half-made set is left behind.
  viaSetColl->capacityIs(1);
  const Rib::Route before = *rib("192.168.0.0/16");
  EXPECT_THROW(rp->dedupViaKeyIs(Rib::dedupViaKeyIs(via("10.0.0.3"))), Kel::TableFullException);
  EXPECT_EQ(*rib("192.168.0.0/16"), before);
  EXPECT_EQ(viaSetColl->viaSets(), 1u);
  EXPECT_NE(ribViaSet("192.168.0.0/16"), nullptr);
  EXPECT_TRUE(sm->routeWaiting(prefix("192.168.0.0/16")));
  // The writer takes the via back: the route fits as it is and stops waiting.
  rp->dedupViaKeyDel(via("10.0.0.3"));
  EXPECT_FALSE(sm->routeWaiting(prefix("192.168.0.0/16")));
  EXPECT_EQ(watch.dangling, 0);
}

TEST_F(RouteStatusSmTest, RemovedRouteLeavesAtOnceAndAViaSetLeavesWithItsLastUser) {
  metrics()->viaMetricIs(via("10.0.0.1"), kResolved);
  makeSm();
  addRoute("192.168.0.0/16", 1, {via("10.0.0.1")});
  addRoute("192.169.0.0/16", 1, {via("10.0.0.1")});
  EXPECT_EQ(rib("192.168.0.0/16")->viaSetKey(), rib("192.169.0.0/16")->viaSetKey());
  EXPECT_EQ(viaSetColl->viaSets(), 1u);
  status->routeDel(prefix("192.168.0.0/16"));
  EXPECT_EQ(rib("192.168.0.0/16"), nullptr);
  EXPECT_EQ(viaSetColl->viaSets(), 1u);
  status->routeDel(prefix("192.169.0.0/16"));
  EXPECT_EQ(viaSetColl->viaSets(), 0u);
  EXPECT_EQ(sm->routes(), 0u);
}

// ---- The review ----

TEST_F(RouteStatusSmTest, EmptyStatusFinishesAtOnceAndCleansOnlyItsOwnLeftovers) {
  Rib::Route mine(Rib::RouteKey(kVrf, prefix("10.10.0.0/16")));
  Rib::Route other(Rib::RouteKey(6, prefix("10.10.0.0/16")));
  ribConfig->routeAdd(mine);
  ribConfig->routeAdd(other);
  makeSm();
  EXPECT_TRUE(viaSetConfig->restartingVrfHas(L3::VrfName("red")));
  EXPECT_FALSE(readyStatus->v4RouteReviewComplete());
  Kel::activityManager().runOnce();
  EXPECT_TRUE(sm->reviewedOnce());
  EXPECT_TRUE(readyStatus->v4RouteReviewComplete());
  EXPECT_EQ(ribConfig->route(mine.key()), nullptr);
  EXPECT_NE(ribConfig->route(other.key()), nullptr);  // a shared table: another VRF's route stays
  EXPECT_FALSE(viaSetConfig->restartingVrfHas(L3::VrfName("red")));
}

class RouteStatusReviewTest : public RouteStatusSmTest {
 protected:
  void SetUp() override {
    RouteStatusSmTest::SetUp();
    for (int i = 0; i < 10; ++i) {
      std::string p = "10." + std::to_string(i) + ".0.0/16";
      addRoute(p, 1, {via("10.0.0.1")});
    }
    metrics()->viaMetricIs(via("10.0.0.1"), kResolved);
    makeSm();
    settle();
    for (const auto& r : status->routeColl()) order.push_back(r->routeKey());
  }
  // Runs one turn of the loop and returns the prefixes evaluated by the review in it.
  std::vector<Velnet::IpGenPrefix> slice() {
    Kel::ScopedTraceCapture capture("Quill::RouteStatusSm/8");
    Kel::activityManager().runOnce();
    std::vector<Velnet::IpGenPrefix> seen;
    for (const auto& t : capture.texts()) {
      auto at = t.find("handleRoute (");
      if (at != std::string::npos) seen.push_back(prefix(t.substr(at + 13, t.size() - at - 14)));
    }
    return seen;
  }
  std::vector<Velnet::IpGenPrefix> order;
};

TEST_F(RouteStatusReviewTest, SliceStopsOnceTheQuantumIsSpentAndResumesInHashOrder) {
  time.stepPerReadIs(0.04);  // every read of the clock moves it on by 0.04 s
  metrics()->viaMetricIs(via("10.0.0.7"), kResolved);
  EXPECT_FALSE(readyStatus->v4RouteReviewComplete());
  // Deadline read at t, then t+0.04, t+0.08, t+0.12: three routes fit before the quantum is spent.
  auto first = slice();
  EXPECT_EQ(first, std::vector<Velnet::IpGenPrefix>(order.begin(), order.begin() + 3));
  EXPECT_EQ(sm->reviewBookmark(), order[3]);
  auto second = slice();
  EXPECT_EQ(second, std::vector<Velnet::IpGenPrefix>(order.begin() + 3, order.begin() + 6));
  time.stepPerReadIs(0);
  auto rest = slice();
  EXPECT_EQ(rest, std::vector<Velnet::IpGenPrefix>(order.begin() + 6, order.end()));
  EXPECT_TRUE(readyStatus->v4RouteReviewComplete());
  EXPECT_TRUE(sm->reviewBookmark().isEmpty());
}

TEST_F(RouteStatusReviewTest, ResumesPastADeletedBookmarkAndAddedRoutesAndRestartsOnAMetric) {
  sm->reviewQuantumIs(0);  // the clock is read after each route: one route per slice
  metrics()->viaMetricIs(via("10.0.0.7"), kResolved);
  EXPECT_EQ(slice(), std::vector<Velnet::IpGenPrefix>{order[0]});
  ASSERT_EQ(sm->reviewBookmark(), order[1]);
  status->routeDel(order[1]);
  EXPECT_EQ(slice(), std::vector<Velnet::IpGenPrefix>{order[2]});
  // A metric change during a pause may concern routes already passed: start over.
  metrics()->viaMetricIs(via("10.0.0.8"), kResolved);
  EXPECT_TRUE(sm->reviewBookmark().isEmpty());
  EXPECT_EQ(slice(), std::vector<Velnet::IpGenPrefix>{order[0]});
  EXPECT_EQ(slice(), std::vector<Velnet::IpGenPrefix>{order[2]});
  // Routes added during a pause, enough for the table to regrow: the review still meets every
  // route it had not reached, once.
  for (int i = 0; i < 40; ++i)
    addRoute("10.100." + std::to_string(i) + ".0/24", 1, {via("10.0.0.1")});
  std::vector<Velnet::IpGenPrefix> rest;
  for (int n = 0; n < 100 && !readyStatus->v4RouteReviewComplete(); ++n) {
    auto one = slice();
    ASSERT_EQ(one.size(), 1u);
    rest.push_back(one.front());
  }
  EXPECT_TRUE(readyStatus->v4RouteReviewComplete());
  for (size_t i = 3; i < order.size(); ++i) {
    EXPECT_EQ(std::count(rest.begin(), rest.end(), order[i]), 1) << order[i].str();
  }
}

TEST_F(RouteStatusSmTest, ReviewRunsWithoutAReadyStatus) {
  metrics()->viaMetricIs(via("10.0.0.1"), kResolved);
  addRoute("192.168.0.0/16", 1, {via("10.0.0.1")});
  makeSm(false);
  settle();
  EXPECT_TRUE(sm->reviewedOnce());
  EXPECT_NE(rib("192.168.0.0/16"), nullptr);
  EXPECT_FALSE(readyStatus->v4RouteReviewComplete());
}

// The plain entry texts ("Vrf: red, handleRoute (...)") are checked end to end by the
// review-after-metric scenario.
TEST_F(RouteStatusSmTest, TraceTextsAreExact) {
  metrics()->viaMetricIs(via("10.0.0.1"), kResolved);
  makeSm();
  settle();
  Kel::ScopedTraceCapture capture("Quill::RouteStatusSm/8-9,FastTrace");
  FastTrace::clear();
  addRoute("192.168.0.0/16", 1, {via("10.0.0.2")});
  addRoute("192.168.0.0/16", 2, {via("10.0.0.1")});
  const std::string v1 = via("10.0.0.1").str(), v2 = via("10.0.0.2").str();
  const std::string route = "Vrf: red, handleRoute (192.168.0.0/16), Preference: ";
  auto texts = capture.textsOf("Quill::RouteStatusSm");
  auto fast = FastTrace::lines();
  for (const auto& [lines, line] :
       {std::pair{&texts, route + "1, Via " + v2 + " is unresolved"},
        std::pair{&texts, route + "2, Adding Via " + v1 + " to Via Set"},
        std::pair{&fast, "Vrf Id: 5, RouteStatusSm, route 192.168.0.0/16 adding Via " + v1 +
                             " to Via Set"}}) {
    EXPECT_NE(std::find(lines->begin(), lines->end(), line), lines->end()) << line;
  }
  capture.clear();
  sm->reviewQuantumIs(0);
  addRoute("192.169.0.0/16", 1, {via("10.0.0.1")});
  metrics()->viaMetricIs(via("10.0.0.3"), kResolved);
  Kel::activityManager().runOnce();
  texts = capture.textsOf("Quill::RouteStatusSm");
  EXPECT_EQ(std::count_if(texts.begin(), texts.end(),
                          [](const std::string& t) {
                            return t.rfind("Vrf: red, Suspending review at: ", 0) == 0;
                          }),
            1);
}

TEST_F(RouteStatusSmTest, BfdPeersAreRequestedOncePerNextHop) {
  makeSm();
  Kel::ScopedThrowingAsserts throwing;
  auto addr = Velnet::IpGenAddr::parse("10.0.0.1");
  Kel::callHandler(*sm, "processBfdReq",
                   {{"nextHopAddr", "'10.0.0.1'"}, {"intfId", "'Ethernet1'"}, {"add", true}});
  EXPECT_TRUE(bfdAppConfig->peerConfigHas(Bfd::Peer(addr, L3::VrfName("red"))));
  EXPECT_THAT([&] { sm->processBfdReq(addr, Velnet::IntfId("Ethernet1"), true); },
              testing::ThrowsMessage<Kel::AssertionException>(
                  testing::StrEq("bfdAppConfig()->peerConfig( bfdPeer ) == __null")));
  sm->processBfdReq(addr, Velnet::IntfId("Ethernet1"), false);
  sm->processBfdReq(addr, Velnet::IntfId("Ethernet1"), false);  // absent: nothing changes
  EXPECT_EQ(bfdAppConfig->peerConfigs(), 0u);
}

}  // namespace
}  // namespace Routing::Protocol
