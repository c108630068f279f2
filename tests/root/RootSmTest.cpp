// RootSm end to end through the in-process platform, as an agent uses it, and its VRF, container,
// readiness and via-metric behaviour.
#include <gtest/gtest.h>

#include <algorithm>

#include "root/ProtocolContainerSm.h"
#include "tests/root/RootHarness.h"

namespace Routing::Protocol {
namespace {

using Rib::RoutingProtocol;
using Rib::Transport;
using Test::RootHarness;
using Velnet::AddressFamily;

const Rib::ViaMetric kResolved(10, 1, false);

Rib::ViaKey via(const char* addr, Vrf::VrfIdMap::VrfId vrf, RoutingProtocol rp) {
  return Rib::ViaKey(Transport::ipv4, vrf, rp, Velnet::IpGenAddr::parse(addr), Velnet::IntfId(), 0);
}

Velnet::IpGenPrefix prefix(const char* text) { return Velnet::IpGenPrefix::parse(text); }

bool contains(const std::vector<std::string>& texts, const std::string& t) {
  return std::find(texts.begin(), texts.end(), t) != texts.end();
}

class RootSmTest : public ::testing::Test {
 protected:
  Kel::ManualTimeSource time{100.0};
  Kel::ScopedTimeSource scoped{time};
};

// The road of one route, for a protocol with per-VRF tables and one with tables for all VRFs.
void roadOfOneRoute(RoutingProtocol rp, const std::string& ribPath, const std::string& viaPath) {
  RootHarness h(rp);
  h.start();
  h.publishVrf("red", 5);
  ASSERT_TRUE(h.root->readyVrfIpv4Has(L3::VrfName("red")));
  auto ready = h.allVrfReadyStatus->vrfReadyStatus(L3::VrfName("red"));
  // A cold start marks both families ready at once, whatever the interfaces.
  EXPECT_TRUE(ready->v4RoutesReady() && ready->v6RoutesReady());
  auto c = h.container("red", AddressFamily::ipv4);
  ASSERT_NE(c, nullptr);
  auto rib = Kel::ptrCast<Rib::RouteConfig>(h.em->getEntity(ribPath));
  ASSERT_NE(rib, nullptr);
  EXPECT_EQ(c->ribConfig(), rib);
  EXPECT_EQ(h.em->getEntity(viaPath), c->ipViaConfig());

  Rib::ViaKey v = via("10.0.0.1", 5, rp);
  auto rp1 = c->status()->routeIs(prefix("192.168.0.0/16"))->routePrefIs(1);
  rp1->dedupViaKeyIs(Rib::dedupViaKeyIs(v));
  EXPECT_EQ(rib->route(Rib::RouteKey(5, prefix("192.168.0.0/16"))), nullptr);
  h.metricsOf(5, Transport::ipv4)->viaMetricIs(v, kResolved);
  Kel::activityManager().runUntilIdle();
  const Rib::Route* r = rib->route(Rib::RouteKey(5, prefix("192.168.0.0/16")));
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(h.root->viaSetConfig()->configViaSetColl()->viaSet(r->viaSetKey())->vias(),
            std::vector<Rib::ViaKey>{v});
  // Cleanups for a name that never had a container, or for red's name with another VRF's id,
  // touch nothing.
  for (const auto& [name, id] : {std::pair{"green", 9u}, std::pair{"red", 6u}}) {
    h.root->doCleanupContainer4(L3::VrfName(name), id);
    h.root->doCleanupContainer6(L3::VrfName(name), id);
    h.root->doCleanupMcContainer4(L3::VrfName(name), id);
  }
  Kel::activityManager().runUntilIdle();
  ASSERT_NE(rib->route(Rib::RouteKey(5, prefix("192.168.0.0/16"))), nullptr);
  EXPECT_EQ(h.em->getEntity(ribPath), rib);
  EXPECT_EQ(h.em->getEntity(viaPath), c->ipViaConfig());

  // The via-metric machine indexed the route: the RIB marking the via unresolved removes it.
  EXPECT_EQ(h.root->viaMetricStatusSm()->routeByViaKey(v)->routes(), 1u);
  h.metricsOf(5, Transport::ipv4)->viaMetricDel(v);
  EXPECT_EQ(rib->route(Rib::RouteKey(5, prefix("192.168.0.0/16"))), nullptr);
  EXPECT_FALSE(ready->v4RouteReviewComplete());
  Kel::activityManager().runUntilIdle();
  EXPECT_TRUE(ready->v4RouteReviewComplete());

  // The VRF goes: the container is dropped and its routes leave the RIB.
  h.metricsOf(5, Transport::ipv4)->viaMetricIs(v, kResolved);
  Kel::activityManager().runUntilIdle();
  ASSERT_NE(rib->route(Rib::RouteKey(5, prefix("192.168.0.0/16"))), nullptr);
  h.vrfDel("red", 5);
  EXPECT_FALSE(h.root->readyVrfIpv4Has(L3::VrfName("red")));
  EXPECT_EQ(h.container("red", AddressFamily::ipv4), nullptr);
  EXPECT_TRUE(contains(h.cleanups, "red/4"));
  auto after = Kel::ptrCast<Rib::RouteConfig>(h.em->getEntity(ribPath));
  EXPECT_TRUE(!after || after->route(Rib::RouteKey(5, prefix("192.168.0.0/16"))) == nullptr);
}

TEST_F(RootSmTest, RouteReachesThePerVrfTableAndLeavesWithItsViaOrItsVrf) {
  roadOfOneRoute(RoutingProtocol::staticConfig, "routing/rib/routeConfig/ipv4/5/staticConfig",
                 "routing/rib/viaConfig/ipv4/5/staticConfig");
}

TEST_F(RootSmTest, RouteReachesTheAllVrfTableAndCleanupDeletesOnlyItsVrf) {
  roadOfOneRoute(RoutingProtocol::routeInput, "routing/rib/routeConfig/ipv4/allVrfs/routeInput",
                 "routing/rib/viaConfig/ipv4/routeInput");
}

TEST_F(RootSmTest, SharedTableCleanupKeepsOtherVrfsAndTheViaWalkStopsAtACorruption) {
  RootHarness h(RoutingProtocol::routeInput);
  h.start();
  auto rib = h.root->ipv4AllVrfRibConfig();
  ASSERT_NE(rib, nullptr);
  rib->routeAdd(Rib::Route(Rib::RouteKey(6, prefix("10.0.0.0/8"))));
  rib->routeAdd(Rib::Route(Rib::RouteKey(5, prefix("10.0.0.0/8"))));
  h.root->doCleanupContainer4(L3::VrfName("red"), 5);
  EXPECT_EQ(rib->route(Rib::RouteKey(5, prefix("10.0.0.0/8"))), nullptr);
  EXPECT_NE(rib->route(Rib::RouteKey(6, prefix("10.0.0.0/8"))), nullptr);
  auto vias = h.root->ipv4AllVrfViaConfig();
  auto addVias = [&] {
    for (const char* a : {"10.0.0.1", "10.0.0.2", "10.0.0.3"})
      vias->viaIs(Rib::Via(via(a, 5, RoutingProtocol::routeInput)));
  };
  addVias();
  vias->viaIs(Rib::Via(via("10.0.0.1", 6, RoutingProtocol::routeInput)));
  h.root->doDeleteViasForVrf(5, vias);
  EXPECT_EQ(vias->vias(), 1u);

  addVias();
  std::vector<std::string> reports;
  vias->corruptionHandlerIs([&](const std::string& m) { reports.push_back(m); });
  vias->corruptAfterChecksIs(1);
  h.root->doDeleteViasForVrf(5, vias);
  EXPECT_EQ(vias->vias(), 3u);  // the one seen before the corruption is gone, the walk stopped
  EXPECT_EQ(reports, std::vector<std::string>{"Routing::Rib::Ip::ViaConfig is corrupted"});
}

TEST_F(RootSmTest, FirstPhaseMountsInOrderAndMribOnlyForAnMribProtocol) {
  RootHarness stat(RoutingProtocol::staticConfig);
  std::vector<std::string> paths;
  for (const auto& m : stat.mg->mounts()) {
    paths.push_back(m.path);
    EXPECT_EQ(m.mode, "r");
  }
  EXPECT_EQ(paths,
            (std::vector<std::string>{
                "vrf/vrfNameStatus", "ip/status", "ip6/status", "routing/rib/viaMetricStatus",
                "routing/rib/loopingRouteStatus", "routing6/rib/loopingRouteStatus",
                "routing/mrib/viaMetricStatus", "routing/mrib/loopingRouteStatus"}));
  RootHarness input(RoutingProtocol::routeInput);
  input.start();
  for (const auto& path : input.em->paths())
    EXPECT_EQ(path.find("mrib"), std::string::npos) << path;
  Kel::ScopedTraceCapture capture("Quill::ProtocolRootSm/9");
  input.publishVrf("red", 5);
  EXPECT_EQ(input.root->mcReadyVrfIpv4s(), 0u);
  // Nothing between the two texts: this is how the trace reads.
  EXPECT_TRUE(contains(capture.textsOf("Quill::ProtocolRootSm"),
                       "setMcReadyVrfIpv4No Mrib routing protocol configured"));
}

TEST_F(RootSmTest, PathBuildersAndTableSizes) {
  RootHarness bgp(RoutingProtocol::bgp);
  EXPECT_EQ(bgp.root->protocolName(), "");
  EXPECT_EQ(bgp.root->viaConfigMount(5, "rib", Transport::ipv4), "routing/rib/viaConfig/ipv4/5/");
  EXPECT_EQ(bgp.root->ribMount(5, "mrib", "ipv6"), "routing/mrib/routeConfig/ipv6/5/");
  RootHarness input(RoutingProtocol::routeInput, false, 1000, 100, 10);
  input.start();
  EXPECT_EQ(input.root->allVrfViaConfigMount("rib", Transport::evpn),
            "routing/rib/viaConfig/evpn/routeInput");
  EXPECT_EQ(input.root->ipv4AllVrfViaConfig()->capacity(), 1000u);
  EXPECT_EQ(input.root->ipv6DefaultVrfViaConfig(), input.root->ipv6AllVrfViaConfig());
  RootHarness stat(RoutingProtocol::staticConfig, false, 1000, 100, 10);
  stat.start();
  EXPECT_EQ(stat.root->ipv4DefaultVrfViaConfig()->capacity(), 100u);
  EXPECT_EQ(stat.root->ipv4DefaultVrfViaConfig(),
            stat.em->getEntity("routing/rib/viaConfig/ipv4/0/staticConfig"));
  // The IPv6 default-VRF via table of a per-VRF protocol is not mounted at start-up.
  EXPECT_EQ(stat.root->ipv6DefaultVrfViaConfig(), nullptr);
}

TEST_F(RootSmTest, NothingHappensBeforeTheSecondPhase) {
  RootHarness h(RoutingProtocol::staticConfig);
  h.mg->doClose();
  Kel::activityManager().runUntilIdle();
  auto map = Vrf::VrfIdMap::nameToIdMapFactory();
  Kel::ptrCast<Vrf::VrfIdMap::NameToIdMapWrapper>(h.em->getEntity("vrf/vrfNameStatus"))
      ->nameToIdMapIs(map);
  map->vrfIdIs(L3::VrfName("red"), 5);
  h.root->setReadyVrf(L3::VrfName("red"));
  EXPECT_FALSE(h.root->initialized());
  EXPECT_EQ(h.root->readyVrfIpv4s(), 0u);
  EXPECT_EQ(h.allVrfReadyStatus->vrfReadyStatuss(), 0u);
  EXPECT_EQ(h.root->viaMetricStatusSm(), nullptr);
}

TEST_F(RootSmTest, EveryMissingInputIsTracedAndTablesAreMountedAnyway) {
  RootHarness h(RoutingProtocol::staticConfig);
  h.start();
  Kel::ScopedTraceCapture capture("Quill::ProtocolRootSm/9");
  h.ipStatus()->vrfIpIntfStatusIs(L3::VrfName("red"));
  h.vrfIs("red", 5);
  auto texts = capture.textsOf("Quill::ProtocolRootSm");
  for (const char* t : {"setReadyVrfIpv4, No V4 ViaMetricStatus for vrf red",
                        "setReadyVrfIpv4, No Evpn ViaMetricStatus for vrf red",
                        "setReadyVrfIpv4, No V4 LoopingRouteStatus for vrf red",
                        "setReadyVrfIpv4, No V4 DefaultVrf ViaMetricStatus",
                        "setReadyVrfIpv4, No V6 DefaultVrf ViaMetricStatus",
                        "setReadyVrfIpv6, No V6 LoopingRouteStatus vrf red",
                        "setReadyVrfIpv4, Deleting container sm for vrf red",
                        "setMcReadyVrfIpv4, No V4 McLoopingRouteStatus for vrf red"}) {
    EXPECT_TRUE(contains(texts, t)) << t;
  }
  EXPECT_FALSE(contains(texts, "setReadyVrfIpv4, No V4 IpIntfStatus for vrf red"));
  EXPECT_FALSE(h.root->readyVrfIpv4Has(L3::VrfName("red")));
  EXPECT_NE(h.em->getEntity("routing/rib/routeConfig/ipv4/5/staticConfig"), nullptr);
  EXPECT_NE(h.em->getEntity("routing/rib/viaConfig/ipv6/5/staticConfig"), nullptr);
}

TEST_F(RootSmTest, DefaultVrfStatusesAppearingLaterWaitForTheVrfsOwnNextEvent) {
  RootHarness h(RoutingProtocol::staticConfig);
  h.start();
  h.vrfIs("blue", 7);
  h.ipStatus()->vrfIpIntfStatusIs(L3::VrfName("blue"));
  h.looping("routing/rib/loopingRouteStatus")->loopingRouteStatusIs(L3::VrfName("blue"));
  h.metricsOf(7, Transport::ipv4);
  EXPECT_FALSE(h.root->readyVrfIpv4Has(L3::VrfName("blue")));
  h.vrfIs("default", 0);
  h.metricsOf(0, Transport::ipv4);
  h.metricsOf(0, Transport::ipv6);
  h.metricsOf(0, Transport::evpn);
  EXPECT_NE(h.root->ipv4DefaultVrfViaMetricStatus(), nullptr);
  EXPECT_NE(h.root->evpnViaMetricStatus(), nullptr);
  EXPECT_FALSE(h.root->readyVrfIpv4Has(L3::VrfName("blue")));
  h.ipStatus()->vrfIpIntfStatus(L3::VrfName("blue"))->ipIntfStatusIs(Velnet::IntfId("Ethernet2"));
  h.ipStatus()->vrfIpIntfStatusDel(L3::VrfName("blue"));
  h.ipStatus()->vrfIpIntfStatusIs(L3::VrfName("blue"));
  EXPECT_TRUE(h.root->readyVrfIpv4Has(L3::VrfName("blue")));
}

TEST_F(RootSmTest, VrfInTheMetricTreeWithoutAnIdEntryIsOnlyTraced) {
  RootHarness h(RoutingProtocol::staticConfig);
  h.start();
  Kel::ScopedTraceCapture capture("Quill::ProtocolRootSm/9");
  h.metricsOf(9, Transport::ipv4);
  EXPECT_TRUE(
      contains(capture.textsOf("Quill::ProtocolRootSm"), "handleViaMetricStatus(9), No Vrf Entry"));
  EXPECT_EQ(h.root->readyVrfIpv4s(), 0u);
  EXPECT_EQ(h.root->viaMetricStatus(Transport::ipv4, 9, "other"), nullptr);
}

TEST_F(RootSmTest, RemovedVrfLeavesEveryReadySetAndLosesItsReadinessAndBfdEntries) {
  RootHarness h(RoutingProtocol::staticConfig);
  h.start();
  h.publishVrf("red", 5);
  h.metricsOf(5, Transport::ipv4, "mrib");
  h.looping("routing/mrib/loopingRouteStatus")->loopingRouteStatusIs(L3::VrfName("red"));
  EXPECT_TRUE(h.root->readyVrfIpv4Has(L3::VrfName("red")));
  EXPECT_TRUE(h.root->readyVrfIpv6Has(L3::VrfName("red")));
  EXPECT_TRUE(h.root->mcReadyVrfIpv4Has(L3::VrfName("red")));
  EXPECT_TRUE(h.allVrfRibSeqTrigger->vrfRibSeqTriggerHas(L3::VrfName("red")));
  const ContainerKey key(L3::VrfName("red"), AddressFamily::ipv4);
  ASSERT_TRUE(h.bfdByContainer->nextHopStatusHas(key));
  h.vrfDel("red", 5);
  EXPECT_FALSE(h.bfdByContainer->nextHopStatusHas(key));  // the container's cleanup took it
  EXPECT_EQ(h.root->readyVrfIpv4s() + h.root->readyVrfIpv6s() + h.root->mcReadyVrfIpv4s(), 0u);
  EXPECT_FALSE(h.allVrfReadyStatus->vrfReadyStatusHas(L3::VrfName("red")));
  EXPECT_FALSE(h.allVrfRibSeqTrigger->vrfRibSeqTriggerHas(L3::VrfName("red")));
  EXPECT_FALSE(h.root->vrfReadyStatusHas(L3::VrfName("red")));
}

TEST_F(RootSmTest, OnlyTheDefaultVrfsContainerGetsAnEvpnViaMachine) {
  RootHarness h(RoutingProtocol::staticConfig);
  h.start();
  h.publishVrf("default", 0);
  h.publishVrf("red", 5);
  ASSERT_NE(h.container("default", AddressFamily::ipv4), nullptr);
  EXPECT_NE(h.container("default", AddressFamily::ipv4)->evpnViaConfigSm(), nullptr);
  EXPECT_EQ(h.container("red", AddressFamily::ipv4)->evpnViaConfigSm(), nullptr);
  EXPECT_NE(h.container("red", AddressFamily::ipv4)->ipViaConfigSm(),
            nullptr);  // per-VRF via table
}

TEST_F(RootSmTest, SequenceTriggerCompletesAtOnceWithoutContainersElseAfterBothReviews) {
  RootHarness h(RoutingProtocol::staticConfig, true);
  h.start();
  h.vrfIs("blue", 6);
  auto blue = h.allVrfReadyStatus->vrfReadyStatus(L3::VrfName("blue"));
  h.allVrfRibSeqTrigger->vrfRibSeqTrigger(L3::VrfName("blue"))->ribReadySeqTriggerIs(7);
  EXPECT_TRUE(blue->v4RouteReviewComplete());
  EXPECT_TRUE(blue->v6RouteReviewComplete());
  EXPECT_EQ(blue->ribReadySeqStatus(), 7u);

  h.publishVrf("red", 5);
  auto s = h.allVrfReadyStatus->vrfReadyStatus(L3::VrfName("red"));
  Kel::ScopedTraceCapture capture("Quill::ProtocolRootSm/8");
  h.allVrfRibSeqTrigger->vrfRibSeqTrigger(L3::VrfName("red"))->ribReadySeqTriggerIs(3);
  EXPECT_EQ(s->ribReadySeqStatus(), 0u);  // the containers' first reviews have not run
  Kel::activityManager().runUntilIdle();
  EXPECT_EQ(s->ribReadySeqStatus(), 3u);
  capture.clear();
  h.root->handleRibSeqTrigger(L3::VrfName("red"));  // the same trigger again: only traced
  auto texts = capture.textsOf("Quill::ProtocolRootSm");
  EXPECT_TRUE(contains(texts, "Vrf : red, ribReadySeqTrigger received : 3"));
  EXPECT_FALSE(contains(texts, "Vrf : red, ribReadySeqStatus : 3"));
  EXPECT_EQ(s->ribReadySeqStatus(), 3u);
}

}  // namespace
}  // namespace Routing::Protocol
