// BFD tracking in the agent: which routes watch which next hops, the BFD sessions the agent asks
// for on their behalf, and what a session's state does to the routes.
//
// The library records a watched next hop per container (VRF and the next hop's family) in a
// BfdTrackedNextHop, with the routes that depend on it, and BfdStatusProtocolRouteSm writes the
// session's usability into it. Everything else is the agent's:
//
//  - One BFD peer per tracked next hop, for as long as any route depends on it. The peer is
//    requested (processBfdReq, add) when the first route starts tracking the next hop and
//    withdrawn when the last one stops; a route that stops leaves the session to the others.
//    The peer of a next hop and its BfdTrackedNextHop come and go together, which is what keeps
//    processBfdReq from ever being asked for a peer twice.
//  - The consequence of a session's state. A via whose next hop a route tracks, while that next
//    hop's bfdStatus is false, is left out of the route's alternatives as the agent writes them
//    into the route status; the route-status machine then sees an alternative with fewer (or no)
//    vias and fails over exactly as it would for an unresolved via. When the session is usable
//    again (up, or administratively down) the via is written back. A next hop starts unusable
//    until its session reports: a route does not rely on a next hop BFD has not vouched for.
//  - Only routes that track something pay for it: the agent keeps its own copy of a route's
//    configured alternatives (Alternative) while, and only while, it tracks a next hop.
//
// The agent reaches processBfdReq through reflection, as a router's agent would.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <utility>

#include "agent/Alternative.h"
#include "keys/ProtocolContainerKey.h"
#include "platform/bfd/Bfd.h"
#include "root/ProtocolContainerSm.h"
#include "routestatus/ProtocolBfdStatusSm.h"
#include "routestatus/ProtocolBfdTrackedNextHop.h"

namespace Routing::Protocol::Agent {

class BfdTracking {
 public:
  using Containers = std::map<ContainerKey, ContainerSm::Ptr>;

  // `containers` are the agent's unicast containers; the tracking reads them on every call.
  BfdTracking(const Containers& containers, const BfdTrackedNextHopByContainer::Ptr& byContainer,
              Rib::RoutingProtocol rp);
  ~BfdTracking();
  BfdTracking(const BfdTracking&) = delete;
  BfdTracking& operator=(const BfdTracking&) = delete;

  const Bfd::AppStatus::Ptr& appStatus() const noexcept { return appStatus_; }
  const BfdTrackedNextHopByContainer::Ptr& byContainer() const noexcept { return byContainer_; }
  // The next hop key of an address: the interface counts only for an IPv6 link-local address.
  static NextHopBfdKey keyOf(const Velnet::IpGenAddr& addr, const Velnet::IntfId& intf);

  // ---- Commands ----
  // The route `prefix` of `vrf` depends on `nextHop` (in the container of the next hop's family).
  // Refused unless both containers exist, the route exists, and it does not track it already.
  void trackIs(const L3::VrfName& vrf, const Velnet::IpGenPrefix& prefix, const NextHopBfdKey& nextHop,
               Vrf::VrfIdMap::VrfId vrfId);
  void trackDel(const L3::VrfName& vrf, const Velnet::IpGenPrefix& prefix, const NextHopBfdKey& nextHop);
  // The BFD service's side: a session's state, or the session gone.
  void sessionIs(const Bfd::Peer& peer, Bfd::OperState state);
  void sessionDel(const Bfd::Peer& peer);

  // ---- Hooks of the agent's route commands ----
  bool tracks(const ContainerKey& container, const Velnet::IpGenPrefix& prefix) const {
    return routes_.count({container, prefix}) != 0;
  }
  // Keeps the whole via when the route tracks nothing that is down.
  ViaFilter filterFor(const ContainerKey& container, const Velnet::IpGenPrefix& prefix) const;
  // The agent (re)configured one alternative of a tracked route, or removed one.
  void alternativeIs(const ContainerKey& container, const Velnet::IpGenPrefix& prefix,
                     Routing::RoutePreference pref, const Alternative& alt);
  void alternativeDel(const ContainerKey& container, const Velnet::IpGenPrefix& prefix,
                      Routing::RoutePreference pref);
  // The route is going: it stops tracking everything.
  void routeDel(const ContainerKey& container, const Velnet::IpGenPrefix& prefix);
  // The container is going (its VRF left the ready set): its routes stop tracking, and the next
  // hops tracked in it are withdrawn from every route that depends on them, while its
  // route-status machine can still withdraw their peers.
  void containerDel(const ContainerKey& container);
  // The library dropped `container`'s entry while the container lives on (the multicast
  // container's clean-up shares the IPv4 unicast key): a new entry takes over `old`'s next hops,
  // with their states and dependent routes, and the watchers move to them.
  void statusRestore(const ContainerKey& container, const BfdTrackedNextHopStatus::Ptr& old);

 private:
  struct TrackedRoute {
    std::map<Routing::RoutePreference, Alternative> alternatives;
    std::set<NextHopBfdKey> nextHops;
  };
  using RouteId = std::pair<ContainerKey, Velnet::IpGenPrefix>;
  using NextHopId = std::pair<ContainerKey, NextHopBfdKey>;

  // Hears one tracked next hop's bfdStatus and re-writes the routes that depend on it.
  class NextHopWatcher : public BfdTrackedNextHop::NotifieeConst {
   public:
    NextHopWatcher(BfdTracking* owner, const ContainerKey& container, const BfdTrackedNextHop::PtrConst& nh);
    void onBfdStatus() override;

   private:
    BfdTracking* owner_;
    ContainerKey container_;
  };

  ContainerSm::Ptr containerOf(const ContainerKey& key) const;
  void peerReq(const ContainerKey& container, const NextHopBfdKey& nextHop, bool add);
  // Drops `route`'s dependency on one next hop; the last dependent withdraws the peer.
  void dependencyDel(const RouteId& route, const NextHopId& nextHop);
  // Writes a tracked route's alternatives as its tracked next hops' states allow.
  void rewrite(const RouteId& route);
  void nextHopChanged(const ContainerKey& container, const NextHopBfdKey& key);

  const Containers& containers_;
  BfdTrackedNextHopByContainer::Ptr byContainer_;
  Rib::RoutingProtocol rp_;
  Bfd::AppStatus::Ptr appStatus_;
  BfdStatusProtocolRouteSm::Ptr sm_;
  std::map<RouteId, TrackedRoute> routes_;
  std::map<NextHopId, std::unique_ptr<NextHopWatcher>> watchers_;
};

}  // namespace Routing::Protocol::Agent
