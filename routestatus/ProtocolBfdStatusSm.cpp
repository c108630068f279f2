#include "routestatus/ProtocolBfdStatusSm.h"

#include "platform/kel/Trace.h"

namespace Routing::Protocol {

namespace {
constexpr const char* kTraceSource = "ProtocolBfdStatusSm";
Kel::TraceHandle& trace_ = Kel::TraceHandle::handle("Quill::RouteStatusSm");
}  // namespace

void BfdStatusProtocolRouteSm::KelPeerStatus::onState() {
  if (isZombie()) return;
  KEL_TRACE(trace_, 8, "handlePeerStatus" << " Updating peer Status to " << notifier()->state());
  owner()->updatePeerStatus(fwkKey(), notifier()->state());
}

void BfdStatusProtocolRouteSm::KelPeerStatus::handleDel() {
  KEL_TRACE(trace_, 8, "handlePeerStatusDelete" << "Updating PeerStatus to down " << fwkKey());
  owner()->updatePeerStatus(fwkKey(), Bfd::OperState::down);
}

void BfdStatusProtocolRouteSm::KelAppStatus::onPeerStatus(const Bfd::Peer&) {
  if (!isZombie()) owner()->handleAppStatus();
}

BfdStatusProtocolRouteSm::BfdStatusProtocolRouteSm(const Bfd::AppStatus::PtrConst& appStatus,
                                                   const BfdTrackedNextHopByContainer::Ptr& bfdTrackedNHByContainer)
    : appStatus_(appStatus), bfdTrackedNHByContainer_(bfdTrackedNHByContainer) {
  appStatusReactorIs(appStatus_);
  handleAppStatus();
  initializedIs(true);
}

void BfdStatusProtocolRouteSm::handleAppStatus() {
  if (!appStatus_) return;
  for (const Bfd::Peer& peer : peerStatusColl().keys()) {
    if (!appStatus_->peerStatusHas(peer)) peerStatusDel(peer);
  }
  for (const auto& status : appStatus_->peerStatusColl()) {
    peerStatusIs(status);
    KEL_TRACE(trace_, 9, "Updating the peer " << status->peer() << " With the status " << status->state());
    updatePeerStatus(status->peer(), status->state());
  }
}

void BfdStatusProtocolRouteSm::updatePeerStatus(const Bfd::Peer& peer, Bfd::OperState state) {
  KEL_TRACE(trace_, 9, "updatePeer : Peer = " << peer << " , " << peer.vrf().str() << " - status = " << state);
  // The interface belongs to the key only where the address needs it to be unique.
  NextHopBfdKey key(peer.addr(), peer.addr().isLinkLocal() ? peer.intf() : Velnet::IntfId());
  auto status = bfdTrackedNHByContainer_->nextHopStatus(ContainerKey(peer.vrf(), peer.addr().af()));
  if (!status) return;
  auto nextHop = status->nextHop(key);
  if (!nextHop) return;
  // Administratively down counts as usable: an operator taking the session down for maintenance
  // must not take the routes down with it.
  nextHop->bfdStatusIs(state == Bfd::OperState::up || state == Bfd::OperState::adminDown);
}

}  // namespace Routing::Protocol
