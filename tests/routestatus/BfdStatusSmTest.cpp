// BFD session states reaching the tracked next hops.
#include <gtest/gtest.h>

#include "routestatus/ProtocolBfdStatusSm.h"

namespace Routing::Protocol {
namespace {

using Velnet::AddressFamily;

class BfdStatusSmTest : public ::testing::Test {
 protected:
  BfdTrackedNextHop::Ptr track(const char* vrf, const char* addr, const char* intf = "") {
    auto a = Velnet::IpGenAddr::parse(addr);
    auto status = byContainer->nextHopStatusIs(ContainerKey(L3::VrfName(vrf), a.af()));
    return status->nextHopIs(NextHopBfdKey(a, Velnet::IntfId(intf)));
  }
  Bfd::BfdPeerStatus::Ptr session(const char* vrf, const char* addr, const char* intf = "") {
    return appStatus->peerStatusIs(
        Bfd::Peer(Velnet::IpGenAddr::parse(addr), L3::VrfName(vrf), Velnet::IntfId(intf)));
  }

  Bfd::AppStatus::Ptr appStatus = Bfd::appStatusFactory(std::string("staticConfig"));
  BfdTrackedNextHopByContainer::Ptr byContainer = bfdTrackedNextHopByContainerFactory();
};

TEST_F(BfdStatusSmTest, AdminDownCountsAsUsableAndInitOrAWithdrawnSessionDoesNot) {
  auto nh = track("red", "10.0.0.1");
  auto s = session("red", "10.0.0.1");
  auto sm = bfdStatusProtocolRouteSmFactory(appStatus, byContainer);
  EXPECT_FALSE(nh->bfdStatus());  // a new session starts down
  for (auto [state, usable] : {std::pair{Bfd::OperState::up, true},
                               {Bfd::OperState::init, false},
                               {Bfd::OperState::adminDown, true}}) {
    s->stateIs(state);
    EXPECT_EQ(nh->bfdStatus(), usable);
  }
  appStatus->peerStatusDel(Bfd::Peer(Velnet::IpGenAddr::parse("10.0.0.1"), L3::VrfName("red")));
  EXPECT_FALSE(nh->bfdStatus());
  EXPECT_EQ(sm->peerStatuss(), 0u);
}

TEST_F(BfdStatusSmTest, StatesPresentAtCreationArePushedAtOnce) {
  auto nh = track("red", "10.0.0.1");
  session("red", "10.0.0.1")->stateIs(Bfd::OperState::up);
  auto sm = bfdStatusProtocolRouteSmFactory(appStatus, byContainer);
  EXPECT_TRUE(nh->bfdStatus());
  EXPECT_EQ(sm->peerStatuss(), 1u);
}

TEST_F(BfdStatusSmTest, LinkLocalNextHopsOnTwoInterfacesAreTrackedApart) {
  auto onEth1 = track("red", "fe80::1", "Ethernet1");
  auto onEth2 = track("red", "fe80::1", "Ethernet2");
  EXPECT_NE(onEth1, onEth2);
  auto sm = bfdStatusProtocolRouteSmFactory(appStatus, byContainer);
  session("red", "fe80::1", "Ethernet2")->stateIs(Bfd::OperState::up);
  EXPECT_FALSE(onEth1->bfdStatus());
  EXPECT_TRUE(onEth2->bfdStatus());
}

TEST_F(BfdStatusSmTest, SessionsOfUntrackedContainersOrNextHopsAreIgnored) {
  auto nh = track("red", "10.0.0.1");
  auto sm = bfdStatusProtocolRouteSmFactory(appStatus, byContainer);
  session("blue", "10.0.0.1")->stateIs(Bfd::OperState::up);    // no container for blue
  session("red", "10.0.0.2")->stateIs(Bfd::OperState::up);     // red does not track .2
  session("red", "2001:db8::1")->stateIs(Bfd::OperState::up);  // nor IPv6 at all
  EXPECT_FALSE(nh->bfdStatus());
  EXPECT_FALSE(
      byContainer->nextHopStatusHas(ContainerKey(L3::VrfName("blue"), AddressFamily::ipv4)));
  EXPECT_EQ(
      byContainer->nextHopStatus(ContainerKey(L3::VrfName("red"), AddressFamily::ipv4))->nextHops(),
      1u);
}

}  // namespace
}  // namespace Routing::Protocol
