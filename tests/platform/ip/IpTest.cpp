// The platform's per-VRF interface status trees: what the library relies on when it follows them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/ip/Ip.h"

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

// A watcher of the routing flag must not be woken by address churn, and the reverse: each
// attribute notifies on its own, and only when its value changes.
TEST(IpStatus, AttributesNotifySeparatelyAndOnlyOnChange) {
  auto v4 = Ip::statusFactory()
                ->vrfIpIntfStatusIs(L3::VrfName("red"))
                ->ipIntfStatusIs(Velnet::IntfId("eth1"));
  Ipv4IntfWatch watch4(v4);
  v4->addrWithMaskIs(Velnet::IpGenPrefix::parse("10.0.0.0/24"));
  v4->addrWithMaskIs(Velnet::IpGenPrefix::parse("10.0.0.0/24"));
  v4->mtuIs(9000);
  v4->dpRoutingEnabledIs(true);
  v4->dpRoutingEnabledIs(true);
  EXPECT_EQ(watch4.log, (Log{"addrWithMask", "mtu", "dpRoutingEnabled"}));

  auto v6 = Ip6::statusFactory()
                ->vrfIp6IntfStatusIs(L3::VrfName("red"))
                ->ip6IntfStatusIs(Velnet::IntfId("eth1"));
  Ipv6IntfWatch watch6(v6);
  v6->linkLocalAddrIs(Velnet::IpGenAddr::parse("fe80::1"));
  v6->addrWithMaskIs(Velnet::IpGenPrefix::parse("2001:db8::/64"));
  v6->dpRoutingEnabledIs(true);
  v6->dpRoutingEnabledIs(false);
  v6->mtuIs(0);
  EXPECT_EQ(watch6.log,
            (Log{"linkLocalAddr", "addrWithMask", "dpRoutingEnabled", "dpRoutingEnabled"}));
}

}  // namespace
