#include "agent/BfdTracking.h"

#include <string>
#include <vector>

#include "platform/kel/Exception.h"
#include "platform/kel/Reflection.h"

namespace Routing::Protocol::Agent {

namespace {

std::string where(const Velnet::IpGenPrefix& prefix, const L3::VrfName& vrf) {
  return "route " + prefix.str() + " in VRF '" + vrf.str() + "'";
}

std::string nextHopText(const NextHopBfdKey& k) {
  std::string s = k.nextHopAddr().str();
  if (!k.intfId().name().empty()) s += "%" + k.intfId().name();
  return s;
}

bool matches(const Rib::ViaKey& via, const NextHopBfdKey& nh) {
  if (via.transport() == Rib::Transport::evpn || !(via.addr() == nh.nextHopAddr())) return false;
  return nh.intfId().name().empty() || via.intfId() == nh.intfId();
}

}  // namespace

BfdTracking::NextHopWatcher::NextHopWatcher(BfdTracking* owner, const ContainerKey& container,
                                            const BfdTrackedNextHop::PtrConst& nh)
    : owner_(owner), container_(container) {
  notifierIs(nh);
}

void BfdTracking::NextHopWatcher::onBfdStatus() { owner_->nextHopChanged(container_, notifier()->nextHopBfdKey()); }

BfdTracking::BfdTracking(const Containers& containers, const BfdTrackedNextHopByContainer::Ptr& byContainer,
                         Rib::RoutingProtocol rp)
    : containers_(containers),
      byContainer_(byContainer),
      rp_(rp),
      appStatus_(Bfd::appStatusFactory(std::string("protorib-agent"))),
      sm_(bfdStatusProtocolRouteSmFactory(Bfd::AppStatus::PtrConst(appStatus_), byContainer_)) {}

BfdTracking::~BfdTracking() = default;

NextHopBfdKey BfdTracking::keyOf(const Velnet::IpGenAddr& addr, const Velnet::IntfId& intf) {
  return NextHopBfdKey(addr, addr.isLinkLocal() ? intf : Velnet::IntfId());
}

ContainerSm::Ptr BfdTracking::containerOf(const ContainerKey& key) const {
  auto it = containers_.find(key);
  return it == containers_.end() ? nullptr : it->second;
}

void BfdTracking::peerReq(const ContainerKey& container, const NextHopBfdKey& nextHop, bool add) {
  auto c = containerOf(container);
  if (!c || !c->routeStatusSm()) return;
  Kel::callHandler(*c->routeStatusSm(), "processBfdReq",
                   {{"nextHopAddr", Kel::toValue(nextHop.nextHopAddr())},
                    {"intfId", Kel::toValue(nextHop.intfId())},
                    {"add", add}});
}

void BfdTracking::trackIs(const L3::VrfName& vrf, const Velnet::IpGenPrefix& prefix, const NextHopBfdKey& nextHop,
                          Vrf::VrfIdMap::VrfId vrfId) {
  const ContainerKey rc(vrf, prefix.af());
  const ContainerKey nc(vrf, nextHop.nextHopAddr().af());
  auto routeContainer = containerOf(rc);
  if (!routeContainer) throw Kel::InvalidOperationException("VRF '" + vrf.str() + "' is not ready for " + prefix.str());
  auto route = routeContainer->status()->route(prefix);
  if (!route) throw Kel::RangeException("no " + where(prefix, vrf));
  if (!containerOf(nc)) {
    throw Kel::InvalidOperationException("VRF '" + vrf.str() + "' is not ready for next hop " + nextHopText(nextHop));
  }
  const RouteId rid{rc, prefix};
  auto it = routes_.find(rid);
  if (it != routes_.end() && it->second.nextHops.count(nextHop)) {
    throw Kel::NameInUseException(where(prefix, vrf) + " already tracks " + nextHopText(nextHop));
  }
  auto status = byContainer_->nextHopStatusIs(nc);
  auto tracked = status->nextHop(nextHop);
  if (!tracked) {
    tracked = status->nextHopIs(nextHop);
    const auto t = nextHop.nextHopAddr().af() == Velnet::AddressFamily::ipv4 ? Rib::Transport::ipv4 : Rib::Transport::ipv6;
    tracked->viaKeyIs(Rib::ViaKey(t, vrfId, rp_, nextHop.nextHopAddr(), nextHop.intfId(), 0));
    tracked->resolvedIntfIs(nextHop.intfId());
    watchers_[{nc, nextHop}] = std::make_unique<NextHopWatcher>(this, nc, tracked);
    peerReq(nc, nextHop, true);
    // The status machine hears changes only: a session that was up before anyone tracked its
    // next hop is pushed once here.
    const Bfd::Peer peer(nextHop.nextHopAddr(), vrf, nextHop.intfId());
    if (auto s = appStatus_->peerStatus(peer)) sm_->updatePeerStatus(peer, s->state());
  }
  if (it == routes_.end()) {
    TrackedRoute tr;
    for (const auto& rp : route->routePrefColl()) tr.alternatives[rp->preference()] = Alternative::of(*rp);
    it = routes_.emplace(rid, std::move(tr)).first;
  }
  it->second.nextHops.insert(nextHop);
  tracked->dependentRouteIs(Routing::RouteKey(prefix));
  rewrite(rid);
}

void BfdTracking::trackDel(const L3::VrfName& vrf, const Velnet::IpGenPrefix& prefix, const NextHopBfdKey& nextHop) {
  const RouteId rid{ContainerKey(vrf, prefix.af()), prefix};
  auto it = routes_.find(rid);
  if (it == routes_.end() || !it->second.nextHops.count(nextHop)) {
    throw Kel::RangeException(where(prefix, vrf) + " does not track " + nextHopText(nextHop));
  }
  dependencyDel(rid, {ContainerKey(vrf, nextHop.nextHopAddr().af()), nextHop});
  it->second.nextHops.erase(nextHop);
  rewrite(rid);
  if (it->second.nextHops.empty()) routes_.erase(it);
}

void BfdTracking::dependencyDel(const RouteId& route, const NextHopId& nextHop) {
  auto status = byContainer_->nextHopStatus(nextHop.first);
  auto tracked = status ? status->nextHop(nextHop.second) : nullptr;
  if (!tracked) return;
  tracked->dependentRouteDel(Routing::RouteKey(route.second));
  if (tracked->dependentRoutes() != 0) return;
  // The last route that needed the session: the peer goes, then its record.
  watchers_.erase(nextHop);
  peerReq(nextHop.first, nextHop.second, false);
  status->nextHopDel(nextHop.second);
}

ViaFilter BfdTracking::filterFor(const ContainerKey& container, const Velnet::IpGenPrefix& prefix) const {
  auto it = routes_.find({container, prefix});
  if (it == routes_.end()) return nullptr;
  std::vector<NextHopBfdKey> down;
  for (const auto& nh : it->second.nextHops) {
    auto status = byContainer_->nextHopStatus(ContainerKey(container.vrfName(), nh.nextHopAddr().af()));
    auto tracked = status ? status->nextHop(nh) : nullptr;
    if (!tracked || !tracked->bfdStatus()) down.push_back(nh);
  }
  if (down.empty()) return nullptr;
  return [down](const Rib::ViaKey& via) {
    for (const auto& nh : down) {
      if (matches(via, nh)) return false;
    }
    return true;
  };
}

void BfdTracking::rewrite(const RouteId& rid) {
  auto c = containerOf(rid.first);
  auto route = c ? c->status()->route(rid.second) : nullptr;
  auto it = routes_.find(rid);
  if (!route || it == routes_.end()) return;
  const ViaFilter keep = filterFor(rid.first, rid.second);
  for (const auto& [pref, alt] : it->second.alternatives) {
    auto rp = route->routePref(pref);
    if (!rp) continue;
    viasIs(*rp, alt, keep);
    for (const auto& v : alt.vias) {
      bool tracked = false;
      for (const auto& nh : it->second.nextHops) tracked = tracked || matches(v, nh);
      if (tracked) rp->bfdTrackedViaCollIs(v);
      else rp->bfdTrackedViaCollDel(v);
    }
  }
}

void BfdTracking::nextHopChanged(const ContainerKey& container, const NextHopBfdKey& key) {
  auto status = byContainer_->nextHopStatus(container);
  auto tracked = status ? status->nextHop(key) : nullptr;
  if (!tracked) return;
  for (const Routing::RouteKey& r : tracked->dependentRouteColl().keys()) {
    rewrite({ContainerKey(container.vrfName(), r.prefix().af()), r.prefix()});
  }
}

void BfdTracking::alternativeIs(const ContainerKey& container, const Velnet::IpGenPrefix& prefix,
                                Routing::RoutePreference pref, const Alternative& alt) {
  auto it = routes_.find({container, prefix});
  if (it == routes_.end()) return;
  it->second.alternatives[pref] = alt;
  rewrite({container, prefix});
}

void BfdTracking::alternativeDel(const ContainerKey& container, const Velnet::IpGenPrefix& prefix,
                                 Routing::RoutePreference pref) {
  auto it = routes_.find({container, prefix});
  if (it != routes_.end()) it->second.alternatives.erase(pref);
}

void BfdTracking::routeDel(const ContainerKey& container, const Velnet::IpGenPrefix& prefix) {
  const RouteId rid{container, prefix};
  auto it = routes_.find(rid);
  if (it == routes_.end()) return;
  for (const auto& nh : it->second.nextHops) {
    dependencyDel(rid, {ContainerKey(container.vrfName(), nh.nextHopAddr().af()), nh});
  }
  routes_.erase(it);
}

void BfdTracking::containerDel(const ContainerKey& container) {
  std::vector<Velnet::IpGenPrefix> own;
  for (const auto& [rid, tr] : routes_) {
    if (rid.first == container) own.push_back(rid.second);
  }
  for (const auto& p : own) routeDel(container, p);
  auto status = byContainer_->nextHopStatus(container);
  if (!status) return;
  for (const NextHopBfdKey& nh : status->nextHopColl().keys()) {
    auto tracked = status->nextHop(nh);
    for (const Routing::RouteKey& r : tracked->dependentRouteColl().keys()) {
      const RouteId rid{ContainerKey(container.vrfName(), r.prefix().af()), r.prefix()};
      auto it = routes_.find(rid);
      dependencyDel(rid, {container, nh});
      if (it == routes_.end()) continue;
      it->second.nextHops.erase(nh);
      rewrite(rid);
      if (it->second.nextHops.empty()) routes_.erase(it);
    }
  }
}

void BfdTracking::statusRestore(const ContainerKey& container, const BfdTrackedNextHopStatus::Ptr& old) {
  auto status = byContainer_->nextHopStatusIs(container);
  for (const auto& was : old->nextHopColl()) {
    auto now = status->nextHopIs(was->nextHopBfdKey());
    now->viaKeyIs(was->viaKey());
    now->resolvedIntfIs(was->resolvedIntf());
    for (const auto& r : was->dependentRouteColl()) now->dependentRouteIs(r);
    watchers_[{container, was->nextHopBfdKey()}] = std::make_unique<NextHopWatcher>(this, container, now);
    now->bfdStatusIs(was->bfdStatus());
  }
}

void BfdTracking::sessionIs(const Bfd::Peer& peer, Bfd::OperState state) {
  appStatus_->peerStatusIs(peer)->stateIs(state);
}

void BfdTracking::sessionDel(const Bfd::Peer& peer) {
  if (!appStatus_->peerStatusDel(peer)) throw Kel::RangeException("no BFD session for " + peer.str());
}

}  // namespace Routing::Protocol::Agent
