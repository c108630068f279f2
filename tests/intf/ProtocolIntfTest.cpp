// IntfStatus: the change counter's contract and the routing question answered from the
// platform's per-VRF interface status.
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

TEST_F(IntfStatusCounter, SettingTheCurrentValueNotifiesNobody) {
  status->intfStatusChangedIs(0);
  EXPECT_EQ(watch.heard, 0);
  status->intfStatusChangedIs(7);
  status->intfStatusChangedIs(7);
  EXPECT_EQ(watch.heard, 1);
}

TEST_F(IntfStatusCounter, IncOfZeroReturnsTheValueAndNotifiesNobody) {
  status->intfStatusChangedIs(5);
  watch.heard = 0;
  EXPECT_EQ(status->intfStatusChangedInc(0), 5u);
  EXPECT_EQ(watch.heard, 0);
}

TEST_F(IntfStatusCounter, IncAddsAndNotifiesEveryNotifieeOnce) {
  CounterWatch second(status);
  EXPECT_EQ(status->intfStatusChangedInc(3), 3u);
  EXPECT_EQ(status->intfStatusChangedInc(1), 4u);
  EXPECT_EQ(watch.heard, 2);
  EXPECT_EQ(second.heard, 2);
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

TEST_F(IntfStatusQuery, Ipv4AnswersTheRoutingFlagOfThePresentEntryAtCallTime) {
  auto status = ipv4IntfStatusFactory(vrf4);
  EXPECT_FALSE(status->intf(eth1));
  auto entry = vrf4->ipIntfStatusIs(eth1);
  EXPECT_FALSE(status->intf(eth1));
  entry->dpRoutingEnabledIs(true);
  EXPECT_TRUE(status->intf(eth1));
  EXPECT_FALSE(status->intf(eth2));
  vrf4->ipIntfStatusDel(eth1);
  EXPECT_FALSE(status->intf(eth1));
}

TEST_F(IntfStatusQuery, Ipv6AnswersTheRoutingFlagOfThePresentEntryAtCallTime) {
  auto status = ipv6IntfStatusFactory(vrf6);
  EXPECT_FALSE(status->intf(eth1));
  auto entry = vrf6->ip6IntfStatusIs(eth1);
  EXPECT_FALSE(status->intf(eth1));
  entry->dpRoutingEnabledIs(true);
  EXPECT_TRUE(status->intf(eth1));
  entry->dpRoutingEnabledIs(false);
  EXPECT_FALSE(status->intf(eth1));
}

TEST_F(IntfStatusQuery, FamiliesAnswerOnlyFromTheirOwnStatus) {
  vrf4->ipIntfStatusIs(eth1)->dpRoutingEnabledIs(true);
  EXPECT_TRUE(ipv4IntfStatusFactory(vrf4)->intf(eth1));
  EXPECT_FALSE(ipv6IntfStatusFactory(vrf6)->intf(eth1));
}

TEST_F(IntfStatusQuery, WithoutAStatusEveryAnswerIsFalse) {
  EXPECT_FALSE(ipv4IntfStatusFactory(nullptr)->intf(eth1));
  EXPECT_FALSE(ipv6IntfStatusFactory(nullptr)->intf(eth1));
}

TEST_F(IntfStatusQuery, BaseQueryFailsTheMustBeImplementedAssertion) {
  Kel::ScopedThrowingAsserts asserts;
  auto bare = intfStatusFactory();
  try {
    (void)bare->intf(eth1);
    FAIL() << "no assertion";
  } catch (const Kel::AssertionException& e) {
    EXPECT_STREQ(e.what(), "0 && \"Must be implemented in derived class\"");
  }
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

TEST_F(IntfStatusQuery, ReflectionNamesTheModel) {
  const Kel::Registry& r = Kel::Registry::instance();
  const Kel::TypeInfo* base = r.find("Routing::Protocol::IntfStatus");
  const Kel::TypeInfo* v4 = r.find("Routing::Protocol::Ipv4IntfStatus");
  const Kel::TypeInfo* v6 = r.find("Routing::Protocol::Ipv6IntfStatus");
  ASSERT_TRUE(base && v4 && v6);
  ASSERT_EQ(base->attrs.size(), 2u);
  EXPECT_EQ(base->attrs[0].name, "intf");
  EXPECT_EQ(base->attrs[0].kind, Kel::AttrKind::query);
  EXPECT_EQ(base->attrs[1].name, "intfStatusChanged");
  EXPECT_EQ(base->handlers.at("intf").params, std::vector<std::string>{"intfId"});
  ASSERT_NE(v4->attr("status"), nullptr);
  EXPECT_EQ(v4->attr("status")->typeName, "Ip::VrfIpIntfStatus");
  EXPECT_EQ(v4->ctorParams, std::vector<std::string>{"status"});
  ASSERT_NE(v6->attr("status"), nullptr);
  EXPECT_EQ(v6->attr("status")->typeName, "Ip6::VrfIp6IntfStatus");
  EXPECT_NE(v6->attr("intfStatusChanged"), nullptr);
}

}  // namespace
}  // namespace Routing::Protocol
