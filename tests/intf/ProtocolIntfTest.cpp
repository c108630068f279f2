// IntfStatus: the change counter's contract and the routing question answered from the
// platform's per-VRF interface status.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <variant>

#include "intf/ProtocolIntf.h"
#include "platform/kel/Assert.h"
#include "platform/kel/Reflection.h"

namespace Routing::Protocol {
namespace {

class CounterWatch : public IntfStatus::NotifieeConst {
 public:
  explicit CounterWatch(const IntfStatus::PtrConst& s) { notifierIs(s); }
  void onIntfStatusChanged() override { ++heard; }
  int heard = 0;
};

class IntfStatusCounter : public ::testing::Test {
 protected:
  IntfStatus::Ptr status = intfStatusFactory();
  CounterWatch watch{status};
};

// Readers wake once per change, each of them, and never for a write that changes nothing.
TEST_F(IntfStatusCounter, NotifiesEveryNotifieeOncePerChangeAndOnlyThen) {
  CounterWatch second(status);
  status->intfStatusChangedIs(0);
  EXPECT_EQ(watch.heard, 0);
  EXPECT_EQ(status->intfStatusChangedInc(3), 3u);
  EXPECT_EQ(status->intfStatusChangedInc(1), 4u);
  EXPECT_EQ(status->intfStatusChangedInc(0), 4u);
  EXPECT_EQ(watch.heard, 2);
  status->intfStatusChangedIs(7);
  status->intfStatusChangedIs(7);
  EXPECT_EQ(watch.heard, 3);
  EXPECT_EQ(second.heard, 3);
}

TEST_F(IntfStatusCounter, WrapsAtTwoToTheThirtyTwoAndStillNotifies) {
  status->intfStatusChangedIs(std::numeric_limits<uint32_t>::max());
  watch.heard = 0;
  EXPECT_EQ(status->intfStatusChangedInc(1), 0u);
  EXPECT_EQ(status->intfStatusChanged(), 0u);
  EXPECT_EQ(watch.heard, 1);
  // A delta past the top lands where modular arithmetic says.
  EXPECT_EQ(status->intfStatusChangedInc(std::numeric_limits<uint32_t>::max()),
            std::numeric_limits<uint32_t>::max());
  EXPECT_EQ(status->intfStatusChangedInc(3), 2u);
  EXPECT_EQ(watch.heard, 3);
}

// The derived types' notifiees hear the same counter and see their notifier as the derived type.
TEST_F(IntfStatusCounter, DerivedNotifieeHearsTheCounterOfItsOwnType) {
  struct Watch : Ipv4IntfStatus::NotifieeConst {
    void onIntfStatusChanged() override { seen = notifier()->status(); }
    Kel::Ptr<Ip::VrfIpIntfStatus const> seen;
  };
  auto vrf = Ip::vrfIpIntfStatusFactory(L3::VrfName("red"));
  auto v4 = ipv4IntfStatusFactory(vrf);
  Watch w;
  w.notifierIs(v4);
  v4->intfStatusChangedInc(1);
  EXPECT_EQ(w.seen, vrf);
}

class IntfStatusQuery : public ::testing::Test {
 protected:
  const Velnet::IntfId eth1{"eth1"};
  const Velnet::IntfId eth2{"eth2"};
  Ip::VrfIpIntfStatus::Ptr vrf4 = Ip::vrfIpIntfStatusFactory(L3::VrfName("red"));
  Ip6::VrfIp6IntfStatus::Ptr vrf6 = Ip6::vrfIp6IntfStatusFactory(L3::VrfName("red"));
};

// The answer is read at call time from the entry present then, never remembered.
TEST_F(IntfStatusQuery, AnswersTheRoutingFlagOfThePresentEntryAtCallTime) {
  auto status4 = ipv4IntfStatusFactory(vrf4);
  EXPECT_FALSE(status4->intf(eth1));
  auto entry4 = vrf4->ipIntfStatusIs(eth1);
  EXPECT_FALSE(status4->intf(eth1));
  entry4->dpRoutingEnabledIs(true);
  EXPECT_TRUE(status4->intf(eth1));
  EXPECT_FALSE(status4->intf(eth2));
  vrf4->ipIntfStatusDel(eth1);
  EXPECT_FALSE(status4->intf(eth1));

  auto status6 = ipv6IntfStatusFactory(vrf6);
  auto entry6 = vrf6->ip6IntfStatusIs(eth1);
  EXPECT_FALSE(status6->intf(eth1));
  entry6->dpRoutingEnabledIs(true);
  EXPECT_TRUE(status6->intf(eth1));
  entry6->dpRoutingEnabledIs(false);
  EXPECT_FALSE(status6->intf(eth1));
}

TEST_F(IntfStatusQuery, FamiliesAnswerOnlyFromTheirOwnStatusAndFalseWithoutOne) {
  vrf4->ipIntfStatusIs(eth1)->dpRoutingEnabledIs(true);
  EXPECT_TRUE(ipv4IntfStatusFactory(vrf4)->intf(eth1));
  EXPECT_FALSE(ipv6IntfStatusFactory(vrf6)->intf(eth1));
  EXPECT_FALSE(ipv4IntfStatusFactory(nullptr)->intf(eth1));
  EXPECT_FALSE(ipv6IntfStatusFactory(nullptr)->intf(eth1));
}

TEST_F(IntfStatusQuery, BaseQueryFailsTheMustBeImplementedAssertion) {
  Kel::ScopedThrowingAsserts asserts;
  auto bare = intfStatusFactory();
  EXPECT_THAT([&] { (void)bare->intf(eth1); },
              testing::ThrowsMessage<Kel::AssertionException>(
                  testing::StrEq("0 && \"Must be implemented in derived class\"")));
}

// Through reflection the call reaches the derived answer.
TEST_F(IntfStatusQuery, QueryCallableByNameWithIntfId) {
  vrf4->ipIntfStatusIs(eth1)->dpRoutingEnabledIs(true);
  auto status = ipv4IntfStatusFactory(vrf4);
  Kel::Value yes = Kel::callHandler(*status, "intf", {{"intfId", Kel::Value("'eth1'")}});
  Kel::Value no = Kel::callHandler(*status, "intf", {{"intfId", Kel::Value("'eth2'")}});
  ASSERT_TRUE(std::holds_alternative<bool>(yes.storage()));
  EXPECT_TRUE(std::get<bool>(yes.storage()));
  EXPECT_FALSE(std::get<bool>(no.storage()));
}

}  // namespace
}  // namespace Routing::Protocol
