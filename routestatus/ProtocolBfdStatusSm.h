// BfdStatusProtocolRouteSm: carries BFD session states into the tracked next hops.
//
// The agent creates one, over its BFD application status and the same
// BfdTrackedNextHopByContainer it gives the root. Each session's state lands in the `bfdStatus` of
// the tracked next hop with the same address (and, for an IPv6 link-local address, interface) in
// the container of the session's VRF and address family; sessions nobody tracks are ignored. A
// session that disappears counts as down.
#pragma once

#include "platform/bfd/Bfd.h"
#include "platform/kel/Reactor.h"
#include "routestatus/ProtocolBfdTrackedNextHop.h"

namespace Routing::Protocol {

class BfdStatusProtocolRouteSm : public Kel::StateMachine {
 public:
  KEL_ENTITY(BfdStatusProtocolRouteSm, "Routing::Protocol::BfdStatusProtocolRouteSm");
  class NotifieeConst : public Kel::NotifieeConstOf<BfdStatusProtocolRouteSm> {};
  KEL_CREATOR(BfdStatusProtocolRouteSm);

  // One session.
  class KelPeerStatus : public Kel::Reactor<BfdStatusProtocolRouteSm, Bfd::BfdPeerStatus> {
   public:
    using Reactor::Reactor;
    void onState() override;
    // The session left the application status: it counts as down.
    void handleDel() override;
  };
  // The application's sessions as a whole.
  class KelAppStatus : public Kel::Reactor<BfdStatusProtocolRouteSm, Bfd::AppStatus> {
   public:
    using Reactor::Reactor;
    void onPeerStatus(const Bfd::Peer&) override;
  };

  KEL_CTOR_PARAM(Bfd::AppStatus::PtrConst, appStatus);
  KEL_CTOR_PARAM(BfdTrackedNextHopByContainer::Ptr, bfdTrackedNHByContainer);
  KEL_REACTOR(KelAppStatus, appStatusReactor);
  KEL_REACTOR_COLL(KelPeerStatus, Bfd::Peer, peerStatus);

  // Brings the per-session reactors in line with the application status and pushes every state.
  void handleAppStatus();
  void updatePeerStatus(const Bfd::Peer& peer, Bfd::OperState state);

 private:
  BfdStatusProtocolRouteSm(const Bfd::AppStatus::PtrConst& appStatus,
                           const BfdTrackedNextHopByContainer::Ptr& bfdTrackedNHByContainer);
};
KEL_FACTORY(BfdStatusProtocolRouteSm, bfdStatusProtocolRouteSmFactory)

}  // namespace Routing::Protocol
