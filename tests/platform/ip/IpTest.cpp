// The platform's per-VRF interface status trees: what the library relies on when it mounts them
// and follows them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/ip/Ip.h"
#include "platform/kel/Reflection.h"

namespace {

using Log = std::vector<std::string>;

class Ipv4IntfWatch : public Ip::IpIntfStatus::NotifieeConst {
 public:
  explicit Ipv4IntfWatch(const Ip::IpIntfStatus::PtrConst& s) { notifierIs(s); }
  void onDpRoutingEnabled() override { log.push_back("dpRoutingEnabled"); }
  void onAddrWithMask() override { log.push_back("addrWithMask"); }
  void onMtu() override { log.push_back("mtu"); }
  Log log;
};

class Ipv6IntfWatch : public Ip6::IntfStatus::NotifieeConst {
 public:
  explicit Ipv6IntfWatch(const Ip6::IntfStatus::PtrConst& s) { notifierIs(s); }
  void onDpRoutingEnabled() override { log.push_back("dpRoutingEnabled"); }
  void onAddrWithMask() override { log.push_back("addrWithMask"); }
  void onLinkLocalAddr() override { log.push_back("linkLocalAddr"); }
  void onMtu() override { log.push_back("mtu"); }
  Log log;
};

TEST(IpStatus, MountCreatesEmptyRootsByTypeName) {
  auto v4 = Kel::createEntity("Ip::Status");
  auto v6 = Kel::createEntity("Ip6::Status");
  auto* s4 = dynamic_cast<Ip::Status*>(v4.get());
  auto* s6 = dynamic_cast<Ip6::Status*>(v6.get());
  ASSERT_NE(s4, nullptr);
  ASSERT_NE(s6, nullptr);
  EXPECT_EQ(s4->vrfIpIntfStatuss(), 0u);
  EXPECT_EQ(s6->vrfIp6IntfStatuss(), 0u);
}

// A watcher of the routing flag must not be woken by address churn, and the reverse: each
// attribute notifies on its own, and only when its value changes.
TEST(IpStatus, Ipv4AttributesNotifySeparatelyAndOnlyOnChange) {
  auto status = Ip::statusFactory();
  auto intf = status->vrfIpIntfStatusIs(L3::VrfName("red"))->ipIntfStatusIs(Velnet::IntfId("eth1"));
  Ipv4IntfWatch watch(intf);
  intf->addrWithMaskIs(Velnet::IpGenPrefix::parse("10.0.0.0/24"));
  intf->addrWithMaskIs(Velnet::IpGenPrefix::parse("10.0.0.0/24"));
  intf->mtuIs(9000);
  intf->dpRoutingEnabledIs(true);
  intf->dpRoutingEnabledIs(true);
  EXPECT_EQ(watch.log, (Log{"addrWithMask", "mtu", "dpRoutingEnabled"}));
}

TEST(IpStatus, Ipv6AttributesNotifySeparatelyAndOnlyOnChange) {
  auto status = Ip6::statusFactory();
  auto intf =
      status->vrfIp6IntfStatusIs(L3::VrfName("red"))->ip6IntfStatusIs(Velnet::IntfId("eth1"));
  Ipv6IntfWatch watch(intf);
  intf->linkLocalAddrIs(Velnet::IpGenAddr::parse("fe80::1"));
  intf->addrWithMaskIs(Velnet::IpGenPrefix::parse("2001:db8::/64"));
  intf->dpRoutingEnabledIs(true);
  intf->dpRoutingEnabledIs(false);
  intf->mtuIs(0);
  EXPECT_EQ(watch.log,
            (Log{"linkLocalAddr", "addrWithMask", "dpRoutingEnabled", "dpRoutingEnabled"}));
}

}  // namespace
