#include "routestatus/ProtocolRouteStatusSm.h"

#include "platform/fasttrace/FastTrace.h"
#include "platform/kel/Assert.h"
#include "platform/kel/Hash.h"
#include "platform/kel/Reflection.h"
#include "platform/kel/Trace.h"

namespace Routing::Protocol {

namespace {

constexpr const char* kTraceSource = "ProtocolRouteStatusSm";
Kel::TraceHandle& trace_ = Kel::TraceHandle::handle("Quill::RouteStatusSm");

// The fecType that makes an alternative eligible even when none of its vias is usable.
constexpr uint8_t kFecTypeNoViaNeeded = 2;

}  // namespace

// ---- Reactors ----

void RouteStatusSm::KelRoutePref::reevaluate() {
  if (isZombie()) return;
  KelRoute* route = owner();
  route->owner()->handleRoute(route->fwkKey(), route->notifier().get());
}

RouteStatusSm::KelRoute::KelRoute(RouteStatusSm* owner, const Route::PtrConst& route) : NestingReactor(owner, route) {
  for (const auto& rp : route->routePrefColl()) routePrefIs(rp);
}

void RouteStatusSm::KelRoute::onRoutePref(Routing::RoutePreference pref) {
  if (isZombie()) return;
  if (auto rp = notifier()->routePref(pref)) {
    routePrefIs(rp);
  } else {
    routePrefDel(pref);
  }
  owner()->handleRoute(fwkKey(), notifier().get());
}

void RouteStatusSm::KelRoute::onRouteChangedAt() {
  if (isZombie()) return;
  // Stamped by the via-metric machine for a metric change: the RIB's side, not the agent.
  owner()->handleRouteForRib(fwkKey(), notifier().get(), "onRouteChangedAt");
}

void RouteStatusSm::KelStatus::onRoute(const Velnet::IpGenPrefix& prefix) {
  if (isZombie()) return;
  RouteStatusSm* sm = owner();
  const Route::PtrConst route = notifier()->route(prefix);
  if (route) {
    // Both tables are cold at a million routes: load the RIB's slot while the reactor is filed.
    sm->ribConfig_->routeColl().prefetch(sm->ribKey(prefix));
    sm->routeColl().prefetchForInsert(prefix);
    sm->routeIs(route);
  } else {
    sm->routeDel(prefix);
  }
  sm->handleRoute(prefix, route.get());
}

void RouteStatusSm::KelLoopingRouteStatus::onLoopingRoute(const Velnet::IpGenPrefix& prefix) {
  if (isZombie()) return;
  owner()->handleRouteForRib(prefix, nullptr, "onLoopingRoute");
}

void RouteStatusSm::KelViaMetricStatus::onViaMetric(const Rib::ViaKey&) {
  if (isZombie()) return;
  owner()->handleRoute();
}

void RouteStatusSm::KelClock::onTime() {
  if (isZombie()) return;
  owner()->doReview();
}

void RouteStatusSm::KelRibConfig::onRoute(const Rib::RouteKey&) {
  if (isZombie()) return;
  owner()->handleRibChangeWhileWaiting();
}

void RouteStatusSm::KelRetryClock::onTime() {
  if (isZombie()) return;
  owner()->doRetryWaitingRoutes();
}

// ---- Construction ----

RouteStatusSm::RouteStatusSm(const L3::VrfName& vrfName, Velnet::AddressFamily af, Vrf::VrfIdMap::VrfId vrfId,
                             const Status::Ptr& status, const Rib::ViaMetricStatus::PtrConst& ipViaMetricStatus,
                             const Rib::ViaMetricStatus::PtrConst& evpnViaMetricStatus,
                             const Rib::LoopingRouteStatus::PtrConst& loopingRouteStatus,
                             const Rib::RouteConfig::Ptr& ribConfig, const Rib::ViaSetConfig::Ptr& viaSetConfig,
                             Rib::RoutingProtocol routingProtocol,
                             const Rib::ViaMetricStatus::PtrConst& ipv4DefaultVrfViaMetricStatus,
                             const Rib::ViaMetricStatus::PtrConst& ipv6DefaultVrfViaMetricStatus,
                             const VrfReadyStatus::Ptr& vrfReadyStatus, const Bfd::AppConfig::Ptr& bfdAppConfig,
                             const Rib::Ip::ViaConfig::PtrConst& ipViaConfig,
                             const Rib::ViaMetricStatusByVrf::PtrConst& viaMetricStatusByVrf,
                             const std::string& ribString)
    : vrfName_(vrfName),
      af_(af),
      vrfId_(vrfId),
      status_(status),
      ipViaMetricStatus_(ipViaMetricStatus),
      evpnViaMetricStatus_(evpnViaMetricStatus),
      loopingRouteStatus_(loopingRouteStatus),
      ribConfig_(ribConfig),
      viaSetConfig_(viaSetConfig),
      routingProtocol_(routingProtocol),
      ipv4DefaultVrfViaMetricStatus_(ipv4DefaultVrfViaMetricStatus),
      ipv6DefaultVrfViaMetricStatus_(ipv6DefaultVrfViaMetricStatus),
      vrfReadyStatus_(vrfReadyStatus),
      bfdAppConfig_(bfdAppConfig),
      ipViaConfig_(ipViaConfig),
      viaMetricStatusByVrf_(viaMetricStatusByVrf),
      ribString_(ribString) {
  KEL_ASSERT(status_ && ribConfig_ && viaSetConfig_);
  statusReactorIs(status_);
  for (const auto& route : status_->routeColl()) routeIs(route);
  loopingRouteStatusReactorIs(loopingRouteStatus_);
  ipViaMetricStatusReactorIs(ipViaMetricStatus_);
  evpnViaMetricStatusReactorIs(evpnViaMetricStatus_);
  handleInitialized();
}

RouteStatusSm::~RouteStatusSm() {
  if (clock_) clock_->timeMinDel();
  if (retryClock_) retryClock_->timeMinDel();
}

// ---- Evaluating one prefix ----

void RouteStatusSm::handleRoute(const Velnet::IpGenPrefix& prefix) { handleRoute(prefix, nullptr); }

void RouteStatusSm::handleRoute(const Velnet::IpGenPrefix& prefix, const Route* held) {
  KEL_TRACE(trace_, 8, "Vrf: " << vrfName_.str() << ", " << "handleRoute" << " (" << prefix.str() << ")");
  try {
    evaluateRoute(prefix, held);
  } catch (const Kel::TableFullException&) {
    routeWaitingIs(prefix);
    throw;
  }
  if (!waiting_.empty()) routeWaitingDel(prefix);
}

void RouteStatusSm::handleRouteForRib(const Velnet::IpGenPrefix& prefix, const Route* held,
                                      const char* cause) {
  try {
    handleRoute(prefix, held);
  } catch (const Kel::RangeException& e) {
    KEL_TRACE(trace_, 3, "Vrf: " << vrfName_.str() << ", " << cause << " (" << prefix.str() << "), " << e.what());
  }
}

void RouteStatusSm::evaluateRoute(const Velnet::IpGenPrefix& prefix, const Route* held) {
  // The RIB's entry is read last, after the alternatives and their vias: start loading it now.
  ribConfig_->routeColl().prefetch(ribKey(prefix));
  // A route the status still owns is its route under that prefix (one per key, and leaving the
  // status clears the owner): a hash and a probe of a table of up to millions fewer.
  const Route::PtrConst route =
      held && held->parent() == status_.get() && held->routeKey() == prefix
          ? Route::PtrConst(held)
          : Route::PtrConst(status_->route(prefix));
  if (!route) {
    doDelRoute(prefix);
    return;
  }
  const uint8_t familyFlag =
      prefix.af() == Velnet::AddressFamily::ipv4 ? Rib::Shmtab::ViaSet::flagIpv4 : Rib::Shmtab::ViaSet::flagIpv6;
  // The via set is built in storage that earlier evaluations grew, so that an evaluation allocates
  // nothing. It is taken rather than borrowed: an evaluation nested in this one's RIB write finds
  // it gone and builds in storage of its own.
  Rib::Shmtab::ViaSet viaSet = std::move(viaSetBuffer_);
  const RoutePref::Ptr* chosen = nullptr;
  for (const RoutePref::Ptr& rp : route->routePrefColl()) {
    const unsigned pref = rp->preference();
    viaSet.clear();
    viaSet.typeIs(rp->fecType());
    uint32_t count = 0;
    for (const auto& handle : rp->dedupViaKeyColl()) {
      const Rib::ViaKey& via = handle->value();
      auto companion = rp->dedupEvpnVtepIpViaKey(via);
      if (!validVia(prefix, via, companion ? companion->value() : Rib::ViaKey())) {
        KEL_TRACE(trace_, 9, "Vrf: " << vrfName_.str() << ", " << "handleRoute" << " (" << prefix.str() << "), Preference: " << pref
                                     << ", Via " << via.str() << " is unresolved");
        KEL_FAST_TRACE("Vrf Id: " << vrfId_ << ", " << "RouteStatusSm, route " << prefix.str() << ", preference " << pref
                                  << ", via " << via.str() << " is unresolved");
        continue;
      }
      const Rib::Via* configured = ipViaConfig_ ? ipViaConfig_->via(via) : nullptr;
      const bool labelled = (configured ? *configured : Rib::Via(via)).labelled();
      if (!viaSet.labelled() && labelled) {
        // The first labelled via discards the unlabelled ones gathered so far and admits only
        // labelled vias from here on: an alternative is forwarded either entirely by label or not
        // at all, never a mix, so the switch is one-way.
        KEL_TRACE(trace_, 9, " First occurrence of labeled Via " << via.str());
        KEL_FAST_TRACE("Vrf Id: " << vrfId_ << ", " << "RouteStatusSm, route " << prefix.str() << " is labelled");
        viaSet.viaDelAll();
        count = 0;
        viaSet.labelledIs(true);
      } else if (viaSet.labelled() && !labelled) {
        KEL_TRACE(trace_, 9, " not a labelled Via " << via.str());
        KEL_FAST_TRACE("Vrf Id: " << vrfId_ << ", " << "RouteStatusSm, route " << prefix.str() << " is not labelled");
        continue;
      }
      KEL_TRACE(trace_, 9, "Vrf: " << vrfName_.str() << ", " << "handleRoute" << " (" << prefix.str() << "), Preference: " << pref
                                   << ", Adding Via " << via.str() << " to Via Set");
      KEL_FAST_TRACE("Vrf Id: " << vrfId_ << ", " << "RouteStatusSm, route " << prefix.str() << " adding Via " << via.str()
                                << " to Via Set");
      viaSet.viaIs(count++, via);
    }
    if (count != 0 || rp->fecType() == kFecTypeNoViaNeeded) {
      viaSet.flagsIs(static_cast<uint8_t>(viaSet.flags() | familyFlag));
      chosen = &rp;
      break;
    }
  }
  if (chosen) {
    doAddRoute(prefix, *chosen, viaSet, route->srcVrfId());
  } else {
    doDelRoute(prefix);
  }
  viaSetBuffer_ = std::move(viaSet);
}

void RouteStatusSm::doAddRoute(const Velnet::IpGenPrefix& prefix, const RoutePref::Ptr& routePref,
                               const Rib::Shmtab::ViaSet& viaSet, Vrf::VrfIdMap::VrfId srcVrfId) {
  // A re-evaluation mostly reaches the via set the alternative already holds: no lookup then.
  Kel::Ptr<Rib::DedupViaSetKey const> handle = routePref->dedupViaSetKey();
  if (!handle || !viaSetConfig_->holds(*handle, viaSet)) handle = viaSetConfig_->dedupConfigViaSetIs(viaSet);
  const unsigned pref = routePref->preference();
  KEL_TRACE(trace_, 9, "Vrf: " << vrfName_.str() << ", " << "doAddRoute" << "(" << prefix.str() << "), Adding route, Preference: " << pref
                               << ", ViaSet: " << viaSet.str());
  KEL_FAST_TRACE("Vrf Id: " << vrfId_ << ", " << "RouteStatusSm: add route " << prefix.str() << " to RIB, preference: " << pref
                            << " ViaSet: " << handle->id());
  Rib::Route r(ribKey(prefix));
  r.viaSetKeyIs(handle->id());
  r.metricPrefIs(routePref->preference());
  r.routingProtocolIs(routingProtocol_);
  r.tagIs(routePref->tag());
  r.fibRouteTypeIs(routePref->fibRouteType());
  r.srcVrfIdIs(srcVrfId);
  if (!routePref->installInFib()) r.flagsIs(r.flags() | Rib::Route::flagNoFibInstall);
  // A full route table refuses here, before anything changed: a via set made for this route
  // leaves with `handle`.
  ribConfig_->routeAdd(r);
  // Holding the handle in the alternative keeps the RIB via set alive while the alternative uses
  // it. The set it used before is released only now that the RIB route no longer points at it.
  routePref->dedupViaSetKeyIs(handle);
}

void RouteStatusSm::doDelRoute(const Velnet::IpGenPrefix& prefix) {
  KEL_TRACE(trace_, 9, "Vrf: " << vrfName_.str() << ", " << "doDelRoute" << "(" << prefix.str() << "), Deleting route");
  KEL_FAST_TRACE("Vrf Id: " << vrfId_ << ", " << "RouteConfigSm: deleting route " << prefix.str());
  ribConfig_->routeDel(ribKey(prefix));
}

bool RouteStatusSm::validVia(const Velnet::IpGenPrefix& prefix, const Rib::ViaKey& via,
                             const Rib::ViaKey& evpnVtepIpVia) const {
  KEL_TRACE(trace_, 9, "Vrf: " << vrfName_.str() << ", " << "validVia" << " for " << prefix.str() << " and " << via.str() << " evpn "
                               << evpnVtepIpVia.str());
  if (via.transport() == Rib::Transport::evpn) {
    if (!evpnViaMetricStatus_) return false;
    const auto& companionStatus = evpnVtepIpVia.transport() == Rib::Transport::ipv4 ? ipv4DefaultVrfViaMetricStatus_
                                                                                   : ipv6DefaultVrfViaMetricStatus_;
    // A via without a recorded companion is looked up with the empty key, which never resolves.
    Rib::ViaMetric companion = companionStatus ? companionStatus->viaMetric(evpnVtepIpVia) : Rib::ViaMetric();
    if (!evpnViaMetricStatus_->viaMetric(via).resolved() || !companion.resolved()) return false;
  } else {
    // The metric tables are chosen by the via key's own VRF, transport and protocol, not by this
    // machine's: a via may resolve in another VRF than the route's.
    auto vmt = viaMetricStatusByVrf_ ? viaMetricStatusByVrf_->vrfStatus(via.vrfId()) : nullptr;
    if (!vmt) {
      KEL_TRACE(trace_, 9, "Vrf: " << vrfName_.str() << ", " << "validVia" << " no vmt");
      return false;
    }
    auto vmp = vmt->transportStatus(via.transport());
    KEL_ASSERT(vmp);
    auto vms = vmp->protocolStatus(via.routingProtocol());
    KEL_ASSERT(vms);
    Rib::ViaMetric metric = vms->viaMetric(via);
    if (!metric.resolved()) return false;
    if (metric.loopCheck() && loopingRouteStatus_ && loopingRouteStatus_->loopingRoute(prefix) != 0) {
      KEL_TRACE(trace_, 9, "Vrf: " << vrfName_.str() << ", " << "validVia" << "(" << via.str() << ", looping route");
      KEL_FAST_TRACE("Vrf Id: " << vrfId_ << ", " << "RouteStatusSm, Looping Route" << " (" << prefix
                                << "), Looping Via: " << via.str());
      return false;
    }
  }
  KEL_TRACE(trace_, 9, "Vrf: " << vrfName_.str() << ", " << "validVia" << " Route: " << prefix.str() << ", valid via: " << via.str());
  return true;
}

// ---- BFD ----

void RouteStatusSm::processBfdReq(const Velnet::IpGenAddr& nextHopAddr, const Velnet::IntfId& intfId, bool add) {
  KEL_TRACE(trace_, 8, "Vrf: " << vrfName_.str() << ", " << "processBfdReq");
  // A link-local address is only meaningful on its interface, so the interface is part of the
  // peer; any other address names the peer on its own.
  Bfd::Peer bfdPeer(nextHopAddr, vrfName_, nextHopAddr.isLinkLocal() ? intfId : Velnet::IntfId());
  KEL_TRACE(trace_, 9, "Vrf: " << vrfName_.str() << ", " << "Called for peer with ip = " << nextHopAddr.str() << "Intf = " << intfId.name());
  if (!bfdAppConfig_) return;
  if (add) {
    KEL_TRACE(trace_, 9, "Vrf: " << vrfName_.str() << ", " << "Adding the peer");
    KEL_ASSERT_TEXT(!bfdAppConfig_->peerConfig(bfdPeer), "bfdAppConfig()->peerConfig( bfdPeer ) == __null");
    bfdAppConfig_->peerConfigIs(bfdPeer, intfId);
  } else {
    KEL_TRACE(trace_, 9, "Vrf: " << vrfName_.str() << ", " << "Deleting the peer");
    bfdAppConfig_->peerConfigDel(bfdPeer);
  }
}

// ---- The review ----

void RouteStatusSm::handleInitialized() {
  KEL_TRACE(trace_, 8, "Vrf: " << vrfName_.str() << ", " << "handleInitialized");
  clock_ = Kel::activityManager().clockNew();
  clockReactorIs(clock_);
  initializedIs(true);
  viaSetConfig_->restartingVrfIs(vrfName_);
  handleRoute();
}

void RouteStatusSm::handleRoute() {
  KEL_TRACE(trace_, 8, "Vrf: " << vrfName_.str() << ", " << "handleRoute");
  KEL_FAST_TRACE("Vrf Id: " << vrfId_ << ", " << "RouteStatusSm, schedule review");
  updateRouteReviewState(false);
  // A review under way restarts from the beginning: the routes it already passed may be the
  // ones whose vias just changed.
  reviewBookmarkIs(Velnet::IpGenPrefix());
  if (clock_) clock_->timeMinIs(Kel::currentTime());
}

RouteStatusSm::RouteIter RouteStatusSm::routeAfter(const Velnet::IpGenPrefix& prefix) const {
  const auto& routes = status_->routeColl();
  const uint32_t h = prefix.hash();
  auto it = routes.lowerBoundHash(h);
  for (auto scan = it; scan != routes.end() && (*scan)->routeKey().hash() == h; ++scan) {
    if ((*scan)->routeKey() == prefix) return ++scan;
  }
  // `prefix` is gone: the next route is the first at or after its hash position (routes sharing
  // its hash are taken again, which is harmless).
  return it;
}

// The review walks routes in hash order, which scatters them over the heap, and evaluating one is
// a chain of cache misses: the route, its list of alternatives, the alternatives, their via tables
// and via sets, the RIB's entry. Each link is started one route earlier than the next, the first
// kReviewLookahead routes ahead, so that the misses of several routes overlap instead of following
// one another. Only what an earlier step brought in is read here; the rest is a hint.
void RouteStatusSm::prefetchForReview(const Route& route, size_t ahead) const noexcept {
  const auto both = [](const void* p) {  // the objects of the chain span up to two cache lines
    __builtin_prefetch(p);
    __builtin_prefetch(static_cast<const char*>(p) + 64);
  };
  static_assert(kReviewLookahead == 4, "one step per route ahead");
  switch (ahead) {
    case 4:
      both(&route);
      break;
    case 3:
      if (!route.routePrefColl().empty()) __builtin_prefetch(&*route.routePrefColl().begin());
      break;
    case 2:
      for (const RoutePref::Ptr& rp : route.routePrefColl()) both(rp.get());
      break;
    case 1:
      for (const RoutePref::Ptr& rp : route.routePrefColl()) {
        rp->dedupViaKeyColl().table().prefetchFront();
        if (const auto& viaSet = rp->dedupViaSetKey()) __builtin_prefetch(viaSet.get());
      }
      ribConfig_->routeColl().prefetch(ribKey(route.routeKey()));
      break;
    default:
      break;
  }
}

void RouteStatusSm::doReview() {
  KEL_TRACE(trace_, 8, "Vrf: " << vrfName_.str() << ", " << "doReview");
  if (!initialized()) return;
  const auto& routes = status_->routeColl();
  Route::Ptr next;
  if (reviewBookmark().isEmpty()) {
    if (routes.begin() != routes.end()) next = *routes.begin();
    KEL_TRACE(trace_, 9, "Vrf: " << vrfName_.str() << ", " << "Starting review at " << (next ? next->routeKey().str() : std::string()));
    KEL_FAST_TRACE("Vrf Id: " << vrfId_ << ", " << "RouteStatusSm: Starting review at "
                              << (next ? next->routeKey().str() : std::string()));
  } else {
    // Resuming by hash position costs O(1) and works whether or not the bookmarked route is
    // still there.
    auto it = routes.lowerBoundHash(reviewBookmark().hash());
    if (it != routes.end()) next = *it;
    KEL_TRACE(trace_, 9, "Vrf: " << vrfName_.str() << ", " << "Resuming review at " << reviewBookmark().str());
    KEL_FAST_TRACE("Vrf Id: " << vrfId_ << ", " << "RouteStatusSm: Resuming review at " << reviewBookmark().str());
  }
  const double deadline = Kel::currentTime() + reviewQuantum();
  while (next) {
    const Velnet::IpGenPrefix prefix = next->routeKey();
    // A route the RIB cannot take (too many vias, a full table) stays as it was; the review goes on.
    handleRouteForRib(prefix, next.get(), "doReview");
    // The clock is read after the evaluation, so every slice evaluates at least one route.
    const bool spent = Kel::currentTime() >= deadline;
    auto at = routeAfter(prefix);
    next = at == routes.end() ? Route::Ptr() : *at;
    if (next && !spent) {
      // Nothing runs between here and the next evaluation, so the position stays valid.
      for (size_t ahead = 1; ahead <= kReviewLookahead && ++at != routes.end(); ++ahead) {
        prefetchForReview(**at, ahead);
      }
    }
    if (spent && next) {
      reviewBookmarkIs(next->routeKey());
      KEL_TRACE(trace_, 9, "Vrf: " << vrfName_.str() << ", " << "Suspending review at: " << next->routeKey().str());
      KEL_FAST_TRACE("Vrf Id: " << vrfId_ << ", " << "RouteStatusSm: Suspending review at " << next->routeKey().str());
      clock_->timeMinIs(Kel::currentTime());
      return;
    }
  }
  updateRouteReviewState(true);
  KEL_TRACE(trace_, 9, "Vrf: " << vrfName_.str() << ", " << "Finished review");
  KEL_FAST_TRACE("Vrf Id: " << vrfId_ << ", " << "RouteStatusSm: Finished review ");
  reviewBookmarkIs(Velnet::IpGenPrefix());
  reviewedOnceIs(true);
}

void RouteStatusSm::updateRouteReviewState(bool complete) {
  if (!vrfReadyStatus_) return;
  if (af_ == Velnet::AddressFamily::ipv4) {
    vrfReadyStatus_->v4RouteReviewCompleteIs(complete);
  } else {
    vrfReadyStatus_->v6RouteReviewCompleteIs(complete);
  }
}

void RouteStatusSm::reviewedOnceIs(bool v) {
  if (v == reviewedOnce_) return;
  reviewedOnce_ = v;
  doCleanupRibConfig();
}

void RouteStatusSm::doCleanupRibConfig() {
  KEL_TRACE(trace_, 8, "Vrf: " << vrfName_.str() << ", " << "doCleanupRibConfig");
  // Only this VRF's routes: the table may be shared by all VRFs of the protocol.
  std::vector<Velnet::IpGenPrefix> leftovers;
  for (const Rib::Route& r : ribConfig_->routeColl()) {
    const Rib::RouteKey& key = r.key();
    if (key.vrfId() == vrfId_ && key.prefix().af() == af_ && !status_->routeHas(key.prefix())) {
      leftovers.push_back(key.prefix());
    }
  }
  for (const auto& prefix : leftovers) doDelRoute(prefix);
  viaSetConfig_->restartingVrfDel(vrfName_);
}

// ---- Routes waiting for room ----

void RouteStatusSm::routeWaitingIs(const Velnet::IpGenPrefix& prefix) {
  if (!waiting_.insert(prefix).second) return;
  waitingOrder_.push_back(prefix);
  KEL_TRACE(trace_, 3, "Vrf: " << vrfName_.str() << ", " << "routeWaitingIs" << " (" << prefix.str() << "), "
                               << waiting_.size() << " waiting for room in the RIB");
  if (!ribConfigReactor()) ribConfigReactorIs(ribConfig_);
}

void RouteStatusSm::routeWaitingDel(const Velnet::IpGenPrefix& prefix) {
  if (waiting_.erase(prefix) == 0) return;
  if (!waiting_.empty()) return;
  waitingOrder_.clear();
  ribConfigReactorDel();
  if (retryClock_) retryClock_->timeMinDel();
}

void RouteStatusSm::handleRibChangeWhileWaiting() {
  if (waiting_.empty()) return;
  if (!retryClock_) {
    retryClock_ = Kel::activityManager().clockNew();
    retryClockReactorIs(retryClock_);
  }
  // Every change of the turn is coalesced into one pass on the next.
  retryClock_->timeMinIs(Kel::currentTime());
}

void RouteStatusSm::doRetryWaitingRoutes() {
  KEL_TRACE(trace_, 8, "Vrf: " << vrfName_.str() << ", " << "doRetryWaitingRoutes" << ", " << waiting_.size() << " waiting");
  for (size_t left = waitingOrder_.size(); left != 0 && !waitingOrder_.empty(); --left) {
    const Velnet::IpGenPrefix prefix = waitingOrder_.front();
    waitingOrder_.pop_front();
    if (!waiting_.count(prefix)) continue;
    try {
      handleRoute(prefix);
    } catch (const Kel::TableFullException& e) {
      // Still no room; the routes behind it would most likely meet the same table. It goes to
      // the back, so that one refused by another table than the one that made room does not
      // keep the rest waiting.
      waitingOrder_.push_back(prefix);
      KEL_TRACE(trace_, 3, "Vrf: " << vrfName_.str() << ", " << "doRetryWaitingRoutes" << " (" << prefix.str() << "), " << e.what());
      return;
    } catch (const Kel::RangeException& e) {
      // Refused for itself now (too many vias): no room will help; it is evaluated again when it
      // changes.
      routeWaitingDel(prefix);
      KEL_TRACE(trace_, 3, "Vrf: " << vrfName_.str() << ", " << "doRetryWaitingRoutes" << " (" << prefix.str() << "), " << e.what());
    }
  }
}

KEL_REGISTER_HANDLER(RouteStatusSm, processBfdReq, "nextHopAddr", "intfId", "add");

}  // namespace Routing::Protocol
