// IntfSm: one counter bump per interface event, per family, and nothing else.
#include <gmock/gmock.h>
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

// A removed interface is watched no more: its entry, still held here, bumps nothing.
TEST_F(IntfSmTest, AddToggleTwiceRemoveBumpsOncePerEventInEitherFamily) {
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
  EXPECT_FALSE(sm->ipv4IntfStatusHas(eth1));
  EXPECT_EQ(entry->notifieeList().size(), 0u);
  entry->dpRoutingEnabledIs(true);
  EXPECT_EQ(status4->intfStatusChanged(), 4u);

  auto sm6 = IntfSm::IntfSmIs(status6);
  auto entry6 = vrf6->ip6IntfStatusIs(eth1);
  entry6->dpRoutingEnabledIs(true);
  entry6->dpRoutingEnabledIs(false);
  EXPECT_EQ(status6->intfStatusChanged(), 3u);
  vrf6->ip6IntfStatusDel(eth1);
  EXPECT_EQ(status6->intfStatusChanged(), 4u);
}

// Address, MTU and link-local churn never wake the counter's readers; nor does the other family.
TEST_F(IntfSmTest, OnlyPresenceAndRoutingFlagOfItsOwnFamilyBump) {
  auto sm4 = intfSmFactory(status4);
  auto sm6 = intfSmFactory(status6);
  EXPECT_EQ(sm6->ipv4Status(), nullptr);
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
  e4->dpRoutingEnabledIs(true);
  vrf4->ipIntfStatusDel(eth1);
  EXPECT_EQ(status6->intfStatusChanged(), 1u);
  EXPECT_EQ(sm6->ipv4IntfStatuss(), 0u);
}

TEST_F(IntfSmTest, InterfacesPresentAtConstructionAreFollowedWithoutABump) {
  vrf4->ipIntfStatusIs(eth1);
  auto e2 = vrf4->ipIntfStatusIs(eth2);
  auto e6 = vrf6->ip6IntfStatusIs(eth1);
  auto sm = intfSmFactory(status4);
  auto sm6 = intfSmFactory(status6);
  EXPECT_EQ(status4->intfStatusChanged(), 0u);
  EXPECT_EQ(sm->ipv4IntfStatuss(), 2u);
  ASSERT_NE(sm->ipv4IntfStatus(eth2), nullptr);
  EXPECT_EQ(sm->ipv4IntfStatus(eth2)->fwkKey(), eth2);
  EXPECT_EQ(sm6->ipv6IntfStatuss(), 1u);
  e2->dpRoutingEnabledIs(true);
  e6->dpRoutingEnabledIs(true);
  EXPECT_EQ(status4->intfStatusChanged(), 1u);
  EXPECT_EQ(status6->intfStatusChanged(), 1u);
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

// Delivery switched back on by hand does not wake a zombie: the machine's own check of the flag
// decides, at both levels and in both families.
TEST_F(IntfSmTest, ZombieStaysDeafWithDeliveryForcedOn) {
  auto sm4 = intfSmFactory(status4);
  auto sm6 = intfSmFactory(status6);
  auto e4 = vrf4->ipIntfStatusIs(eth1);
  auto e6 = vrf6->ip6IntfStatusIs(eth1);
  for (Kel::NotifieeBase* r :
       std::vector<Kel::NotifieeBase*>{sm4->ipv4IntfStatus(eth1), sm4->ipv4Status(),
                                       sm6->ipv6IntfStatus(eth1), sm6->ipv6Status()}) {
    r->kelDoZombieReactors(true);
    r->hasNotificationActiveIs(true);
  }
  e4->dpRoutingEnabledIs(true);
  e6->dpRoutingEnabledIs(true);
  vrf4->ipIntfStatusIs(eth2);
  vrf6->ip6IntfStatusIs(eth2);
  EXPECT_EQ(status4->intfStatusChanged(), 1u);
  EXPECT_EQ(status6->intfStatusChanged(), 1u);
  EXPECT_FALSE(sm4->ipv4IntfStatusHas(eth2));
  EXPECT_FALSE(sm6->ipv6IntfStatusHas(eth2));
}

TEST_F(IntfSmTest, MachineWithoutADerivedIntfStatusFailsTheAssertion) {
  Kel::ScopedThrowingAsserts asserts;
  const auto failsTheAssertion = testing::ThrowsMessage<Kel::AssertionException>(testing::StrEq(
      "0 && \"A derived type of IntfStatus must be supplied as a constructor arg\""));
  EXPECT_THAT([] { intfSmFactory(intfStatusFactory()); }, failsTheAssertion);
  EXPECT_THAT([] { IntfSm::IntfSmIs(IntfStatus::Ptr()); }, failsTheAssertion);
}

TEST_F(IntfSmTest, HandlersTraceTheirEntryAtLevelEight) {
  {
    Kel::ScopedTraceCapture capture("Quill::IntfSm/8");
    auto sm = intfSmFactory(status4);
    auto sm6 = intfSmFactory(status6);
    vrf4->ipIntfStatusIs(eth1)->dpRoutingEnabledIs(true);
    EXPECT_EQ(
        capture.textsOf("Quill::IntfSm"),
        (Texts{"handleInitialized", "handleInitialized(IPv4)", "handleInitialized",
               "handleInitialized(IPv6)", "handleIntfStatus('eth1')", "handleIntfStatus('eth1')"}));
    ASSERT_FALSE(capture.records().empty());
    EXPECT_EQ(capture.records()[0].source, "ProtocolIntfSm");
    EXPECT_EQ(capture.records()[0].level, 8);
  }
  Kel::ScopedTraceCapture capture("Quill::IntfSm/0-7,Quill::IntfSm/9");
  auto sm = intfSmFactory(status4);
  vrf4->ipIntfStatusIs(eth2);
  EXPECT_TRUE(capture.texts().empty());
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
