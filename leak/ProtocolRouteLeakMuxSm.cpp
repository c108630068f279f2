// The multiplexer: one source VRF's routes sorted into per-destination lists.
//
// For each route key the multiplexer remembers where the key is leaked now (`oldLeakTo`), so that
// a change of leak-to VRF moves the leak route in one handler run: out of the old list, into the
// new one, and the old list deleted if that emptied it. A list exists only while it holds a leak
// route, which is what lets the wiring and the demultiplexers treat "a list appeared" as "a source
// started leaking here".
//
// The first pass over the VRF's routes goes through the backlog in slices, so that creating a VRF
// with a million routes never holds the loop for longer than one quantum plus one route. Routes
// that change meanwhile are handled at once by the reactors; when the review reaches their keys it
// finds nothing to change, since the decision depends only on the route as it is now.
#include <cstdint>
#include <iterator>

#include "leak/ProtocolRouteLeakSm.h"
#include "platform/kel/Assert.h"
#include "platform/kel/Time.h"
#include "platform/kel/Trace.h"

namespace Routing::Protocol::Leak {

namespace {

constexpr const char* kTraceSource = "ProtocolRouteLeakSm";
Kel::TraceHandle& gTrace = Kel::TraceHandle::handle("Quill::ProtocolRouteLeakSm");

}  // namespace

MuxSm::MuxSm(const VrfIdAf& vrfIdAf, const Routing::RouteList::PtrConst& routeConfig,
             const Vrf::VrfIdMap::NameToIdMap::PtrConst& vrfNameToIdMap)
    : vrfIdAf_(vrfIdAf), routeConfig_(routeConfig), vrfNameToIdMap_(vrfNameToIdMap) {
  // The clock comes first: reactors bound below may already ask for a review.
  clockIs(Kel::activityManager().clockNew());
  kelRouteConfigIs(routeConfig_);
  if (routeConfig_) {
    for (const auto& route : routeConfig_->routeColl()) routeIs(route);
  }
  handleInitialized();
}

MuxSm::~MuxSm() {
  // Lists and leak routes may outlive this machine in the hands of destinations.
  detail::orphan(outputLeakRouteListSet_);
  detail::orphan(leakRouteDir_);
}

void MuxSm::kelCheckCtorParams(const Routing::RouteList::PtrConst& routeConfig,
                               const Vrf::VrfIdMap::NameToIdMap::PtrConst& vrfNameToIdMap) const {
  if (!(routeConfig == routeConfig_)) {
    Kel::throwPointerReinstantiation("routeConfig", Kel::messageText(routeConfig),
                                     Kel::messageText(routeConfig_));
  }
  if (!(vrfNameToIdMap == vrfNameToIdMap_)) {
    Kel::throwPointerReinstantiation("vrfNameToIdMap", Kel::messageText(vrfNameToIdMap),
                                     Kel::messageText(vrfNameToIdMap_));
  }
}

LeakRouteListSet::Ptr MuxSm::outputLeakRouteListSetIs(const VrfIdAf& key) {
  if (outputLeakRouteListSet_) {
    Kel::checkCtorParam(*outputLeakRouteListSet_, "key", outputLeakRouteListSet_->key(), key);
    return outputLeakRouteListSet_;
  }
  detail::instantiateChild(*this, "outputLeakRouteListSet", outputLeakRouteListSet_, key);
  notify(&NotifieeConst::onOutputLeakRouteListSet);
  return outputLeakRouteListSet_;
}

LeakRouteDir::Ptr MuxSm::leakRouteDirIs() {
  if (detail::instantiateChild(*this, "leakRouteDir", leakRouteDir_))
    notify(&NotifieeConst::onLeakRouteDir);
  return leakRouteDir_;
}

// ---- reactors

void MuxSm::KelRouteConfig::onRoute(const Routing::RouteKey& keyIn) {
  if (isZombie()) return;
  const Routing::RouteKey key = keyIn;
  owner()->handleRoute(key);
  if (auto route = notifier()->route(key)) {
    owner()->routeIs(route);
  } else {
    owner()->routeDel(key);
  }
}

MuxSm::KelRoute::KelRoute(MuxSm* owner, const Routing::Route::PtrConst& route)
    : Reactor(owner, route) {
  handleRoute();
}

void MuxSm::KelRoute::onLeakToVrf() {
  if (isZombie()) return;
  handleRoute();
}

void MuxSm::KelRoute::handleRoute() {
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::MuxSm::KelRoute::handleRoute()"
                << " for " << fwkKey());
  owner()->handleRoute(fwkKey());
}

void MuxSm::KelRoute::handleRouteDelete() {
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::MuxSm::KelRoute::handleRouteDelete()"
                << " for " << fwkKey());
  owner()->handleRouteDelete(fwkKey());
}

void MuxSm::KelClock::onTime() {
  if (isZombie()) return;
  owner()->doReview();
}

// ---- handlers

void MuxSm::handleInitialized() {
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::MuxSm::handleInitialized()"
                << " src " << vrfIdAf_);
  outputLeakRouteListSetIs(vrfIdAf_);
  bookmarkValidIs(false);
  leakRouteDirIs();
  initializedIs(true);
  handleRoute();
}

void MuxSm::handleRoute() {
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::MuxSm::handleRoute()"
                << " src " << vrfIdAf_);
  if (routeConfig_) {
    for (const auto& route : routeConfig_->routeColl()) backlogIs(route->key());
  }
  scheduleReview();
}

void MuxSm::handleRoute(const Routing::RouteKey& keyIn) {
  // A copy: the caller's key may live in an entity that this run releases.
  const Routing::RouteKey key = keyIn;
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::MuxSm::handleRoute(const Routing::RouteKey&)"
                << " src " << vrfIdAf_ << " with " << key);
  if (!initialized()) return;

  Routing::Route::PtrConst route =
      routeConfig_ ? routeConfig_->route(key) : Routing::Route::PtrConst();
  if (!route || route->leakToVrf().empty()) {
    handleRouteDelete(key);
    return;
  }
  const Vrf::VrfIdMap::VrfId newId =
      vrfNameToIdMap_ ? vrfNameToIdMap_->vrfId(route->leakToVrf()) : vrfIdNull;
  KEL_TRACE(gTrace, 9,
            "handleRoute"
                << " leak to vrf is " << route->leakToVrf() << " (" << newId << ")");
  // Never into its own VRF; and a leak-to VRF that does not exist (yet) withdraws the leak until
  // the route is handled again.
  if (newId == vrfIdNull || newId == vrfIdAf_.vrfId()) {
    handleRouteDelete(key);
    return;
  }

  LeakRoute::Ptr lr = leakRouteDir_->leakRoute(key);
  if (lr && lr->route() != route) {
    // The agent replaced the route object under the same key: leak the new one instead.
    KEL_TRACE(gTrace, 9,
              "handleRoute"
                  << " route leaked with key " << key
                  << " has changed, deleting old one and recreating");
    handleRouteDelete(key);
    lr = nullptr;
  }
  if (!lr) {
    KEL_TRACE(gTrace, 9,
              "handleRoute"
                  << " creating leakRoute for " << key);
    lr = leakRouteDir_->leakRouteIs(vrfIdAf_, route);
  }
  KEL_ASSERT(lr->route() == route);

  const VrfIdAf old = oldLeakTo(key);
  KEL_TRACE(gTrace, 9,
            "handleRoute"
                << " old leak to is " << old);
  LeakRouteList::Ptr oldLrl = findLrl(old.vrfId(), false);
  LeakRouteList::Ptr newLrl = findLrl(newId, true);

  if (old.vrfId() == vrfIdNull || old.vrfId() != newId) {
    if (oldLrl) {
      KEL_TRACE(gTrace, 9,
                "handleRoute"
                    << " deleting route from old vrf ");
      oldLrl->leakRouteDel(key);
    }
    KEL_ASSERT(newLrl);
    if (!newLrl) return;
    newLrl->leakRouteIs(lr);
    oldLeakToIs(key, VrfIdAf(newId, key.prefix().af()));
    // The former destination's list goes when this was its last route.
    maybeCleanupLrl(old.vrfId());
    return;
  }

  KEL_TRACE(gTrace, 9,
            "handleRoute"
                << " old and new VRF are same ");
  KEL_ASSERT_TEXT(oldLrl && oldLrl == newLrl, "oldLrl && ( oldLrl == newLrl )");
  if (!newLrl) return;
  if (newLrl->leakRoute(key) == lr) {
    KEL_TRACE(gTrace, 9,
              "handleRoute"
                  << " no change for " << key);
  } else {
    newLrl->leakRouteIs(lr);
    KEL_TRACE(gTrace, 9,
              "handleRoute"
                  << " replacing leak route with key " << key << " in vrf " << newId);
  }
}

void MuxSm::handleRouteDelete(const Routing::RouteKey& keyIn) {
  const Routing::RouteKey key = keyIn;
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::MuxSm::handleRouteDelete(const Routing::RouteKey&)"
                << " src " << vrfIdAf_ << " with " << key);
  if (!initialized()) return;
  // Out of the directory first: the lists still hold the leak route while it leaves them.
  if (leakRouteDir_->leakRouteHas(key)) leakRouteDir_->leakRouteDel(key);
  if (!oldLeakToHas(key)) return;
  const VrfIdAf old = oldLeakTo(key);
  LeakRouteList::Ptr oldLrl = findLrl(old.vrfId(), false);
  KEL_ASSERT(oldLrl);
  if (oldLrl) oldLrl->leakRouteDel(key);
  oldLeakToDel(key);
  maybeCleanupLrl(old.vrfId());
}

LeakRouteList::Ptr MuxSm::findLrl(Vrf::VrfIdMap::VrfId vrfId, bool create) {
  KEL_TRACE(gTrace, 8,
            "Routing::Protocol::LeakRouteList::Ptr "
            "Routing::Protocol::Leak::MuxSm::findLrl(Vrf::VrfIdMap::VrfId, bool)"
                << " src " << vrfIdAf_ << " vrf " << vrfId << " create: " << create);
  KEL_ASSERT(initialized());
  if (vrfId == vrfIdNull) return nullptr;
  const VrfPairAf vpa(vrfIdAf_.vrfId(), vrfId, vrfIdAf_.af());
  if (LeakRouteList::Ptr lrl = outputLeakRouteListSet_->leakRouteList(vpa)) return lrl;
  if (!create) return nullptr;
  KEL_TRACE(gTrace, 9,
            "findLrl"
                << " creating LRL from " << vrfIdAf_ << " to " << vrfId);
  return outputLeakRouteListSet_->leakRouteListIs(vpa);
}

void MuxSm::maybeCleanupLrl(Vrf::VrfIdMap::VrfId vrfId) {
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::MuxSm::maybeCleanupLrl(Vrf::VrfIdMap::VrfId)"
                << " src " << vrfIdAf_ << " vrf " << vrfId);
  KEL_ASSERT(initialized());
  const VrfPairAf vpa(vrfIdAf_.vrfId(), vrfId, vrfIdAf_.af());
  LeakRouteList::Ptr lrl = outputLeakRouteListSet_->leakRouteList(vpa);
  if (lrl && lrl->leakRoutes() == 0) {
    KEL_TRACE(gTrace, 9,
              "maybeCleanupLrl"
                  << " deleting LRL destined to " << vrfId);
    outputLeakRouteListSet_->leakRouteListDel(vpa);
  } else {
    KEL_TRACE(gTrace, 9,
              "maybeCleanupLrl"
                  << " nothing to do!");
  }
}

void MuxSm::scheduleReview() {
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::MuxSm::scheduleReview()"
                << " src " << vrfIdAf_);
  if (backlog_.empty()) return;
  KEL_ASSERT(clock_);
  if (clock_) clock_->notifier()->timeMinIs(0);
}

void MuxSm::doReview() {
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::MuxSm::doReview()"
                << " src " << vrfIdAf_);
  if (!initialized()) return;
  const double deadline = Kel::currentTime() + reviewQuantum_;
  // Resuming costs one probe of the backlog's table, whether the bookmarked key is still there
  // or not.
  auto it = bookmarkValid_ ? detail::positionOf(backlog_, bookmark_) : backlog_.begin();
  uint64_t count = 0;
  while (it != backlog_.end()) {
    const Routing::RouteKey key = *it;
    auto after = std::next(it);
    const bool hasNext = after != backlog_.end();
    const Routing::RouteKey next = hasNext ? *after : Routing::RouteKey();
    ++count;
    handleRoute(key);
    backlogDel(key);
    // The deletion moved the table: find the next key again.
    if (!hasNext) break;
    it = detail::positionOf(backlog_, next);
    if (Kel::currentTime() >= deadline) {
      KEL_TRACE(gTrace, 9,
                "doReview"
                    << " pausing review after " << count << " checks this run.");
      bookmarkValidIs(true);
      bookmarkIs(next);
      scheduleReview();
      return;
    }
  }
  bookmarkValidIs(false);
  KEL_TRACE(gTrace, 9,
            "doReview"
                << " review complete with " << count << " checks this run.");
}

}  // namespace Routing::Protocol::Leak
