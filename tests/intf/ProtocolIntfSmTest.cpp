// IntfSm: one counter bump per interface event, per family, and nothing else.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "intf/ProtocolIntfSm.h"
#include "platform/kel/Assert.h"
#include "platform/kel/Reflection.h"
#include "platform/kel/Trace.h"

namespace Routing::Protocol {
namespace {

using Texts = std::vector<std::string>;

class CounterWatch : public IntfStatus::NotifieeConst {
 public:
  explicit CounterWatch(const IntfStatus::PtrConst& s) { notifierIs(s); }
  void onIntfStatusChanged() override {
    if (onHeard) onHeard();
  }
  std::function<void()> onHeard;
};

class IntfSmTest : public ::testing::Test {
 protected:
  const Velnet::IntfId eth1{"eth1"};
  const Velnet::IntfId eth2{"eth2"};
  Ip::VrfIpIntfStatus::Ptr vrf4 = Ip::vrfIpIntfStatusFactory(L3::VrfName("red"));
  Ip6::VrfIp6IntfStatus::Ptr vrf6 = Ip6::vrfIp6IntfStatusFactory(L3::VrfName("red"));
  Ipv4IntfStatus::Ptr status4 = ipv4IntfStatusFactory(vrf4);
  Ipv6IntfStatus::Ptr status6 = ipv6IntfStatusFactory(vrf6);
};

TEST_F(IntfSmTest, Ipv4AddToggleTwiceRemoveBumpsFourTimes) {
  auto sm = intfSmFactory(status4);
  EXPECT_EQ(status4->intfStatusChanged(), 0u);
  auto entry = vrf4->ipIntfStatusIs(eth1);
  EXPECT_EQ(status4->intfStatusChanged(), 1u);
  entry->dpRoutingEnabledIs(true);
  EXPECT_EQ(status4->intfStatusChanged(), 2u);
  entry->dpRoutingEnabledIs(false);
  EXPECT_EQ(status4->intfStatusChanged(), 3u);
  vrf4->ipIntfStatusDel(eth1);
  EXPECT_EQ(status4->intfStatusChanged(), 4u);
}

TEST_F(IntfSmTest, Ipv6AddToggleTwiceRemoveBumpsFourTimes) {
  auto sm = IntfSm::IntfSmIs(status6);
  auto entry = vrf6->ip6IntfStatusIs(eth1);
  entry->dpRoutingEnabledIs(true);
  entry->dpRoutingEnabledIs(false);
  EXPECT_EQ(status6->intfStatusChanged(), 3u);
  vrf6->ip6IntfStatusDel(eth1);
  EXPECT_EQ(status6->intfStatusChanged(), 4u);
}

TEST_F(IntfSmTest, OtherInterfaceAttributesNeverBump) {
  auto sm4 = intfSmFactory(status4);
  auto sm6 = intfSmFactory(status6);
  auto e4 = vrf4->ipIntfStatusIs(eth1);
  auto e6 = vrf6->ip6IntfStatusIs(eth1);
  e4->addrWithMaskIs(Velnet::IpGenPrefix::parse("10.0.0.0/24"));
  e4->mtuIs(1500);
  e4->dpRoutingEnabledIs(false);  // already clear
  e6->addrWithMaskIs(Velnet::IpGenPrefix::parse("2001:db8::/64"));
  e6->linkLocalAddrIs(Velnet::IpGenAddr::parse("fe80::1"));
  e6->mtuIs(1500);
  EXPECT_EQ(status4->intfStatusChanged(), 1u);
  EXPECT_EQ(status6->intfStatusChanged(), 1u);
}

TEST_F(IntfSmTest, Ipv4EventsNeverBumpAnIpv6Status) {
  auto sm = intfSmFactory(status6);
  EXPECT_EQ(sm->ipv4Status(), nullptr);
  auto e4 = vrf4->ipIntfStatusIs(eth1);
  e4->dpRoutingEnabledIs(true);
  vrf4->ipIntfStatusDel(eth1);
  EXPECT_EQ(status6->intfStatusChanged(), 0u);
  EXPECT_EQ(sm->ipv4IntfStatuss(), 0u);
  vrf6->ip6IntfStatusIs(eth1);
  EXPECT_EQ(status6->intfStatusChanged(), 1u);
}

TEST_F(IntfSmTest, InterfacesPresentAtConstructionAreFollowedWithoutABump) {
  vrf4->ipIntfStatusIs(eth1);
  auto e2 = vrf4->ipIntfStatusIs(eth2);
  auto sm = intfSmFactory(status4);
  EXPECT_EQ(status4->intfStatusChanged(), 0u);
  EXPECT_EQ(sm->ipv4IntfStatuss(), 2u);
  ASSERT_NE(sm->ipv4IntfStatus(eth2), nullptr);
  EXPECT_EQ(sm->ipv4IntfStatus(eth2)->fwkKey(), eth2);
  e2->dpRoutingEnabledIs(true);
  EXPECT_EQ(status4->intfStatusChanged(), 1u);
}

TEST_F(IntfSmTest, Ipv6InterfacesPresentAtConstructionAreFollowed) {
  auto e1 = vrf6->ip6IntfStatusIs(eth1);
  auto sm = intfSmFactory(status6);
  EXPECT_EQ(sm->ipv6IntfStatuss(), 1u);
  e1->dpRoutingEnabledIs(true);
  EXPECT_EQ(status6->intfStatusChanged(), 1u);
}

TEST_F(IntfSmTest, RemovedInterfaceIsNoLongerWatched) {
  auto sm = intfSmFactory(status4);
  auto entry = vrf4->ipIntfStatusIs(eth1);
  vrf4->ipIntfStatusDel(eth1);
  EXPECT_FALSE(sm->ipv4IntfStatusHas(eth1));
  EXPECT_EQ(entry->notifieeList().size(), 0u);
  entry->dpRoutingEnabledIs(true);  // a detached entry someone still holds
  EXPECT_EQ(status4->intfStatusChanged(), 2u);
}

TEST_F(IntfSmTest, DroppingTheMachineKeepsTheCounterAndStopsBumping) {
  auto sm = intfSmFactory(status4);
  auto entry = vrf4->ipIntfStatusIs(eth1);
  sm = nullptr;
  EXPECT_EQ(vrf4->notifieeList().size(), 0u);
  EXPECT_EQ(entry->notifieeList().size(), 0u);
  EXPECT_EQ(status4->notifieeList().size(), 0u);
  entry->dpRoutingEnabledIs(true);
  vrf4->ipIntfStatusIs(eth2);
  EXPECT_EQ(status4->intfStatusChanged(), 1u);
}

// A reader of the counter may tear the container down from inside the bump; the reactor that
// caused it must then leave the machine alone.
TEST_F(IntfSmTest, MachineDroppedByACounterNotifieeMidEvent) {
  auto sm = intfSmFactory(status4);
  CounterWatch watch(status4);
  watch.onHeard = [&] { sm = nullptr; };
  vrf4->ipIntfStatusIs(eth1);
  EXPECT_EQ(sm, nullptr);
  EXPECT_EQ(status4->intfStatusChanged(), 1u);
  EXPECT_EQ(vrf4->notifieeList().size(), 0u);
  EXPECT_EQ(vrf4->ipIntfStatus(eth1)->notifieeList().size(), 0u);
}

TEST_F(IntfSmTest, AfterIntfStatusDelEventsAreFollowedButBumpNothing) {
  auto sm = intfSmFactory(status4);
  sm->intfStatusDel();
  EXPECT_EQ(sm->intfStatus(), nullptr);
  EXPECT_EQ(status4->notifieeList().size(), 0u);
  vrf4->ipIntfStatusIs(eth1)->dpRoutingEnabledIs(true);
  EXPECT_TRUE(sm->ipv4IntfStatusHas(eth1));
  EXPECT_EQ(status4->intfStatusChanged(), 0u);
}

TEST_F(IntfSmTest, ZombieReactorsIgnoreNotificationsUntilCleared) {
  auto sm = intfSmFactory(status4);
  auto entry = vrf4->ipIntfStatusIs(eth1);
  sm->ipv4IntfStatus(eth1)->kelDoZombieReactors(true);
  entry->dpRoutingEnabledIs(true);
  EXPECT_EQ(status4->intfStatusChanged(), 1u);
  sm->ipv4IntfStatus(eth1)->kelDoZombieReactors(false);
  entry->dpRoutingEnabledIs(false);
  EXPECT_EQ(status4->intfStatusChanged(), 2u);

  sm->ipv4Status()->kelDoZombieReactors(true);
  vrf4->ipIntfStatusIs(eth2);
  EXPECT_EQ(status4->intfStatusChanged(), 2u);
  EXPECT_FALSE(sm->ipv4IntfStatusHas(eth2));
}

// Delivery switched back on by hand does not wake a zombie: the flag alone decides.
TEST_F(IntfSmTest, ZombieStaysDeafWithDeliveryForcedOn) {
  auto sm = intfSmFactory(status6);
  auto entry = vrf6->ip6IntfStatusIs(eth1);
  auto* reactor = sm->ipv6IntfStatus(eth1);
  reactor->kelDoZombieReactors(true);
  reactor->hasNotificationActiveIs(true);
  entry->dpRoutingEnabledIs(true);
  sm->ipv6Status()->kelDoZombieReactors(true);
  sm->ipv6Status()->hasNotificationActiveIs(true);
  vrf6->ip6IntfStatusIs(eth2);
  EXPECT_EQ(status6->intfStatusChanged(), 1u);
  EXPECT_FALSE(sm->ipv6IntfStatusHas(eth2));
}

TEST_F(IntfSmTest, MachineWithoutADerivedIntfStatusFailsTheAssertion) {
  Kel::ScopedThrowingAsserts asserts;
  const char* text = "0 && \"A derived type of IntfStatus must be supplied as a constructor arg\"";
  try {
    intfSmFactory(intfStatusFactory());
    FAIL() << "no assertion for a bare IntfStatus";
  } catch (const Kel::AssertionException& e) {
    EXPECT_STREQ(e.what(), text);
  }
  try {
    IntfSm::IntfSmIs(IntfStatus::Ptr());
    FAIL() << "no assertion for a null IntfStatus";
  } catch (const Kel::AssertionException& e) {
    EXPECT_STREQ(e.what(), text);
  }
}

TEST_F(IntfSmTest, NullEntryToAReactorCollectionIsARangeError) {
  auto sm = intfSmFactory(status4);
  try {
    sm->ipv4IntfStatusIs(nullptr);
    FAIL();
  } catch (const Kel::RangeException& e) {
    EXPECT_STREQ(e.what(),
                 "null _ipv4IntfStatus parameter to mutator for "
                 "Routing::Protocol::IntfSm::ipv4IntfStatus not allowed\"");
  }
  try {
    sm->ipv6IntfStatusIs(nullptr);
    FAIL();
  } catch (const Kel::RangeException& e) {
    EXPECT_STREQ(e.what(),
                 "null _ipv6IntfStatus parameter to mutator for "
                 "Routing::Protocol::IntfSm::ipv6IntfStatus not allowed\"");
  }
}

TEST_F(IntfSmTest, HandlersTraceTheirEntryAtLevelEight) {
  {
    Kel::ScopedTraceCapture capture("Quill::IntfSm/8");
    auto sm = intfSmFactory(status4);
    vrf4->ipIntfStatusIs(eth1)->dpRoutingEnabledIs(true);
    EXPECT_EQ(capture.textsOf("Quill::IntfSm"),
              (Texts{"handleInitialized", "handleInitialized(IPv4)", "handleIntfStatus('eth1')",
                     "handleIntfStatus('eth1')"}));
    auto records = capture.records();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records[0].source, "ProtocolIntfSm");
    EXPECT_EQ(records[0].level, 8);
  }
  {
    Kel::ScopedTraceCapture capture("Quill::IntfSm/8");
    auto sm = intfSmFactory(status6);
    EXPECT_EQ(capture.texts(), (Texts{"handleInitialized", "handleInitialized(IPv6)"}));
  }
  {
    Kel::ScopedTraceCapture capture("Quill::IntfSm/0-7,Quill::IntfSm/9");
    auto sm = intfSmFactory(status4);
    vrf4->ipIntfStatusIs(eth2);
    EXPECT_TRUE(capture.texts().empty());
  }
}

TEST_F(IntfSmTest, HandlersCallableByName) {
  vrf4->ipIntfStatusIs(eth1);
  auto sm = intfSmFactory(status4);
  Kel::callHandler(*sm, "handleIntfStatus", {{"intfId", Kel::Value("'eth9'")}});
  EXPECT_EQ(status4->intfStatusChanged(), 1u);
  // Running it again re-watches the same entry: nothing doubles.
  Kel::callHandler(*sm, "handleInitialized", {});
  EXPECT_TRUE(sm->initialized());
  EXPECT_EQ(vrf4->notifieeList().size(), 1u);
  EXPECT_EQ(vrf4->ipIntfStatus(eth1)->notifieeList().size(), 1u);
  vrf4->ipIntfStatusIs(eth2);
  EXPECT_EQ(status4->intfStatusChanged(), 2u);
  EXPECT_THROW(Kel::callHandler(*sm, "handleIntfStatus", {}), Kel::InvalidOperationException);
}

class SmWatch : public IntfSm::NotifieeConst {
 public:
  explicit SmWatch(const IntfSm::PtrConst& sm) { notifierIs(sm); }
  void onIpv4IntfStatus(const Velnet::IntfId& i) override { heard.push_back("v4 " + i.name()); }
  void onIpv6IntfStatus(const Velnet::IntfId& i) override { heard.push_back("v6 " + i.name()); }
  Texts heard;
};

TEST_F(IntfSmTest, NotifyAnnouncesAnInterfaceWithoutAChange) {
  auto sm = intfSmFactory(status4);
  SmWatch watch(sm);
  sm->ipv4IntfStatusNotify(eth1);
  sm->ipv6IntfStatusNotify(eth2);
  EXPECT_EQ(watch.heard, (Texts{"v4 eth1", "v6 eth2"}));
  EXPECT_EQ(status4->intfStatusChanged(), 0u);
}

}  // namespace
}  // namespace Routing::Protocol
