// The in-process RIB services: the state database and its mount group, shared tables with their
// capacity, via-set deduplication and the configuration state machines.
#include <gtest/gtest.h>

#include <string>

#include "platform/kel/Kel.h"
#include "platform/rib/ConfigSm.h"
#include "platform/rib/RibPolicy.h"
#include "platform/rib/ViaMetric.h"
#include "platform/shmtab/Shmtab.h"
#include "platform/statedb/Statedb.h"

namespace {

using namespace Routing;
using Rib::RoutingProtocol;

Rib::ViaKey via(const char* addr) {
  return Rib::ViaKey(Rib::Transport::ipv4, 0, RoutingProtocol::staticConfig,
                     Velnet::IpGenAddr::parse(addr), Velnet::IntfId(), 0);
}

class RibServicesTest : public ::testing::Test {
 protected:
  void SetUp() override { Kel::activityManager().reset(); }
  void TearDown() override { Kel::activityManager().reset(); }
  Kel::ManualTimeSource time{0};
  Kel::ScopedTimeSource scoped{time};
  Statedb::EntityManager::Ptr em = Statedb::entityManagerFactory();
};

TEST_F(RibServicesTest, MountGroupCompletesOnALaterTurnAndCreatesMissingEntities) {
  auto mg = Statedb::mountGroupFactory(em);
  struct Waiter : Statedb::MountGroup::NotifieeConst {
    int completions = 0;
    void onComplete() override { ++completions; }
  } waiter;
  waiter.notifierIs(mg);
  mg->doMount({"routing/rib/viaMetricStatus", "Routing::Rib::ViaMetricStatusByVrf", "r"});
  mg->doClose();
  EXPECT_EQ(em->getEntity("routing/rib/viaMetricStatus"), nullptr);
  Kel::activityManager().runUntilIdle();
  EXPECT_EQ(waiter.completions, 1);
  auto e = em->getEntity("routing/rib/viaMetricStatus");
  ASSERT_NE(e, nullptr);
  EXPECT_STREQ(e->typeName(), "Routing::Rib::ViaMetricStatusByVrf");
  EXPECT_THROW(em->entityIs("routing/rib/viaMetricStatus", "Routing::Rib::LoopingRouteStatusByVrf"),
               Kel::InvalidOperationException);
  EXPECT_THROW(em->entityIs("x", "No::SuchType"), Kel::InvalidOperationException);
}

TEST_F(RibServicesTest, SharedTableRefusesAnInsertPastItsSizeAndChangesNothing) {
  const std::string path = "routing/mrib/viaConfig/ipv4/5/staticConfig";
  KelShmtab::Mount mount(em);
  KelShmtab::MountInfo info;
  info.collectionInfoIs("via", "Routing::Rib::Ip::ViaConfig", 2);
  auto table =
      Kel::ptrCast<Rib::Ip::ViaConfig>(mount.doMount(path, "Routing::Rib::Ip::ViaConfig", info));
  EXPECT_EQ(table->ribName(), "mrib");
  EXPECT_EQ(ViaConfigLib::getRibStringFromIpViaConfig(table), "mrib");
  table->viaIs(Rib::Via(via("10.0.0.1")));
  table->viaIs(Rib::Via(via("10.0.0.2")));
  EXPECT_THROW(table->viaIs(Rib::Via(via("10.0.0.3"))), Kel::RangeException);
  EXPECT_EQ(table->vias(), 2u);
  table->viaIs(Rib::Via(via("10.0.0.2"), 16));  // replacing needs no room
  EXPECT_EQ(table->via(via("10.0.0.2"))->mplsLabel(), 16u);
  // Mounting the same path again shares the table.
  EXPECT_EQ(mount.doMount(path, "Routing::Rib::Ip::ViaConfig", info), table);
  mount.doCleanup(path);
  EXPECT_EQ(table->vias(), 0u);
  EXPECT_TRUE(mount.doUnmount(path));
  EXPECT_EQ(mount.getEntity(path), nullptr);
}

TEST_F(RibServicesTest, RouteTableCapacityAndPerVrfDeletion) {
  auto rc = Rib::routeConfigFactory();
  rc->capacityIs(2);
  auto p = Velnet::IpGenPrefix::parse("10.0.0.0/8");
  rc->routeAdd(Rib::Route(Rib::RouteKey(1, p)));
  rc->routeAdd(Rib::Route(Rib::RouteKey(2, p)));
  EXPECT_THROW(rc->routeAdd(Rib::Route(Rib::RouteKey(3, p))), Kel::RangeException);
  rc->doDeleteRoutesForVrf(1);
  EXPECT_EQ(rc->routes(), 1u);
  EXPECT_NE(rc->route(Rib::RouteKey(2, p)), nullptr);
}

TEST_F(RibServicesTest, ViaSetTableFullRefusesOnlyNewSets) {
  auto config = Rib::viaSetConfigFactory(Rib::ViaSetConfigKey(RoutingProtocol::staticConfig));
  auto coll = Rib::Shmtab::ViaSetCollection::ViaSetCollectionIs();
  coll->capacityIs(1);
  config->configViaSetCollIs(coll);
  Rib::Shmtab::ViaSet a, b;
  a.viaIs(0, via("10.0.0.1"));
  b.viaIs(0, via("10.0.0.2"));
  auto ha = config->dedupConfigViaSetIs(a);
  EXPECT_EQ(config->dedupConfigViaSetIs(a), ha);
  EXPECT_THROW(config->dedupConfigViaSetIs(b), Kel::RangeException);
  EXPECT_EQ(config->viaSets(), 1u);
  ha = nullptr;
  EXPECT_EQ(coll->viaSets(), 0u);
  EXPECT_NO_THROW(config->dedupConfigViaSetIs(b));
}

TEST_F(RibServicesTest, ConfigurationMachinesCountChanges) {
  auto table = Rib::Ip::viaConfigFactory();
  auto sm = Rib::Ip::viaConfigSmFactory(table);
  table->viaIs(Rib::Via(via("10.0.0.1")));
  table->viaIs(Rib::Via(via("10.0.0.1")));  // unchanged
  table->viaDel(via("10.0.0.1"));
  EXPECT_EQ(sm->generation(), 2u);
  auto config = Rib::viaSetConfigFactory(Rib::ViaSetConfigKey(RoutingProtocol::staticConfig));
  auto vsm = Rib::viaSetConfigSmFactory(config);
  config->restartingVrfIs(L3::VrfName("red"));
  config->restartingVrfDel(L3::VrfName("red"));
  EXPECT_EQ(vsm->generation(), 2u);
}

}  // namespace
