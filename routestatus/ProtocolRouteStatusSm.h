// RouteStatusSm: one VRF and address family of the agent's route table, turned into RIB route
// configuration.
//
// For every prefix the most preferred alternative with at least one usable via wins: its vias
// become a via set, deduplicated in the via-set configuration, and one RIB route points at it. A
// prefix without a usable alternative is removed from the RIB. A prefix is evaluated at once when
// the agent changes it, when its looping status changes, and when the via-metric state machine
// stamps it; on top of that, any change of the VRF's via metrics restarts a review of every route
// (the RIB does not say which routes a metric change affects), run in slices of `reviewQuantum`
// seconds so that a large table never holds up the loop. The first complete review also removes
// RIB routes left over from an earlier run of the agent, and each complete review tells readiness
// that the family has been reviewed.
//
// A RIB table at its capacity refuses a route (or its new via set) with Kel::TableFullException.
// When the agent's own write caused the evaluation, the error reaches the agent, which may give
// the route up. When the RIB's side caused it (a metric stamp, a looping route, a review), there
// is no writer to tell: the route waits, its RIB entry left as it was, and is tried again, oldest
// first, on the turn after the RIB configuration changes (a delete makes room), for as long as it
// waits. Nothing watches the RIB configuration while no route waits.
#pragma once

#include <deque>
#include <string>
#include <unordered_set>

#include "keys/ProtocolContainerKey.h"
#include "platform/bfd/Bfd.h"
#include "platform/kel/Activity.h"
#include "platform/kel/Attribute.h"
#include "platform/kel/Reactor.h"
#include "platform/rib/RouteConfig.h"
#include "platform/rib/ViaMetric.h"
#include "platform/rib/ViaSetConfig.h"
#include "root/ProtocolGrTypes.h"
#include "routestatus/ProtocolRouteStatus.h"

namespace Routing::Protocol {

class RouteStatusSm : public Kel::StateMachine {
 public:
  KEL_ENTITY(RouteStatusSm, "Routing::Protocol::RouteStatusSm");
  class NotifieeConst : public Kel::NotifieeConstOf<RouteStatusSm> {
   public:
    virtual void onReviewBookmark() {}
    virtual void onReviewQuantum() {}
  };
  KEL_CREATOR(RouteStatusSm);

  // ---- Reactors ----
  class KelRoute;
  // One alternative of a watched route.
  class KelRoutePref : public Kel::Reactor<KelRoute, RoutePref> {
   public:
    using Reactor::Reactor;
    void onDedupViaKey(const Rib::ViaKey&) override { reevaluate(); }
    void onDedupEvpnVtepIpViaKey(const Rib::ViaKey&) override { reevaluate(); }
    void onInstallInFib() override { reevaluate(); }
    void onTag() override { reevaluate(); }

   private:
    void reevaluate();
  };
  // One route of the status, with a reactor per alternative.
  class KelRoute : public Kel::NestingReactor<RouteStatusSm, Route> {
   public:
    KEL_REACTOR_OWNER_NAME("Routing::Protocol::RouteStatusSm::KelRoute");
    KelRoute(RouteStatusSm* owner, const Route::PtrConst& route);
    void onRoutePref(Routing::RoutePreference pref) override;
    void onRouteChangedAt() override;
    KEL_NESTED_REACTOR_COLL_OF(::Kel::SmallReactorMap, KelRoutePref, Routing::RoutePreference,
                               routePref);
  };
  class KelStatus : public Kel::Reactor<RouteStatusSm, Status> {
   public:
    using Reactor::Reactor;
    void onRoute(const Velnet::IpGenPrefix& prefix) override;
  };
  class KelLoopingRouteStatus : public Kel::Reactor<RouteStatusSm, Rib::LoopingRouteStatus> {
   public:
    using Reactor::Reactor;
    void onLoopingRoute(const Velnet::IpGenPrefix& prefix) override;
  };
  class KelViaMetricStatus : public Kel::Reactor<RouteStatusSm, Rib::ViaMetricStatus> {
   public:
    using Reactor::Reactor;
    void onViaMetric(const Rib::ViaKey&) override;
  };
  class KelClock : public Kel::Reactor<RouteStatusSm, Kel::Clock> {
   public:
    using Reactor::Reactor;
    void onTime() override;
  };
  // Held only while routes wait for room.
  class KelRibConfig : public Kel::Reactor<RouteStatusSm, Rib::RouteConfig> {
   public:
    using Reactor::Reactor;
    void onRoute(const Rib::RouteKey&) override;
  };
  class KelRetryClock : public Kel::Reactor<RouteStatusSm, Kel::Clock> {
   public:
    using Reactor::Reactor;
    void onTime() override;
  };

  // ---- Constructor parameters ----
  KEL_CTOR_PARAM(L3::VrfName, vrfName);
  KEL_CTOR_PARAM(Velnet::AddressFamily, af);
  KEL_CTOR_PARAM(Vrf::VrfIdMap::VrfId, vrfId);
  KEL_CTOR_PARAM(Status::Ptr, status);
  KEL_CTOR_PARAM(Rib::ViaMetricStatus::PtrConst, ipViaMetricStatus);
  KEL_CTOR_PARAM(Rib::ViaMetricStatus::PtrConst, evpnViaMetricStatus);
  KEL_CTOR_PARAM(Rib::LoopingRouteStatus::PtrConst, loopingRouteStatus);
  KEL_CTOR_PARAM(Rib::RouteConfig::Ptr, ribConfig);
  KEL_CTOR_PARAM(Rib::ViaSetConfig::Ptr, viaSetConfig);
  KEL_CTOR_PARAM(Rib::RoutingProtocol, routingProtocol);
  KEL_CTOR_PARAM(Rib::ViaMetricStatus::PtrConst, ipv4DefaultVrfViaMetricStatus);
  KEL_CTOR_PARAM(Rib::ViaMetricStatus::PtrConst, ipv6DefaultVrfViaMetricStatus);
  KEL_CTOR_PARAM(VrfReadyStatus::Ptr, vrfReadyStatus);
  KEL_CTOR_PARAM(Bfd::AppConfig::Ptr, bfdAppConfig);
  KEL_CTOR_PARAM(Rib::Ip::ViaConfig::PtrConst, ipViaConfig);
  KEL_CTOR_PARAM(Rib::ViaMetricStatusByVrf::PtrConst, viaMetricStatusByVrf);
  KEL_CTOR_PARAM(std::string, ribString);

  // ---- Review state ----
  const Kel::Ptr<Kel::Clock const>& clock() const noexcept { return clock_; }
  // Where the next slice resumes; empty: at the beginning.
  KEL_SCALAR(Velnet::IpGenPrefix, reviewBookmark, ReviewBookmark);
  // Seconds one slice may run (it always evaluates at least one route).
  KEL_SCALAR(double, reviewQuantum, ReviewQuantum, 0.1);
  bool reviewedOnce() const noexcept { return reviewedOnce_; }
  // Storing a changed value runs the clean-up of leftover RIB routes.
  void reviewedOnceIs(bool v);

  // ---- Routes waiting for room in a full RIB table ----
  size_t waitingRoutes() const noexcept { return waiting_.size(); }
  bool routeWaiting(const Velnet::IpGenPrefix& prefix) const { return waiting_.count(prefix) != 0; }

  // ---- Reactors held ----
  KEL_REACTOR(KelStatus, statusReactor);
  KEL_REACTOR(KelLoopingRouteStatus, loopingRouteStatusReactor);
  KEL_REACTOR(KelViaMetricStatus, ipViaMetricStatusReactor);
  KEL_REACTOR(KelViaMetricStatus, evpnViaMetricStatusReactor);
  KEL_REACTOR(KelClock, clockReactor);
  KEL_REACTOR(KelRibConfig, ribConfigReactor);
  KEL_REACTOR(KelRetryClock, retryClockReactor);
  // One reactor per route of `status`, by prefix.
  KEL_REACTOR_COLL(KelRoute, Velnet::IpGenPrefix, route);

  // ---- Handlers ----
  // Evaluates one prefix and brings the RIB into line with it. A RIB table too full for the
  // result makes the prefix wait (and the error is thrown on).
  void handleRoute(const Velnet::IpGenPrefix& prefix);
  // The RIB configuration changed while routes wait: try them again on the next turn.
  void handleRibChangeWhileWaiting();
  // One pass over the waiting routes, oldest first, up to the first that still does not fit.
  void doRetryWaitingRoutes();
  // Schedules a review of every route, restarting one under way.
  void handleRoute();
  void doAddRoute(const Velnet::IpGenPrefix& prefix, const RoutePref::Ptr& routePref,
                  const Rib::Shmtab::ViaSet& viaSet, Vrf::VrfIdMap::VrfId srcVrfId);
  void doDelRoute(const Velnet::IpGenPrefix& prefix);
  // Whether `via` may be used now for `prefix`; `evpnVtepIpVia` is an EVPN via's companion.
  bool validVia(const Velnet::IpGenPrefix& prefix, const Rib::ViaKey& via, const Rib::ViaKey& evpnVtepIpVia) const;
  // Requests (add) or withdraws a BFD session for a next hop of this VRF.
  void processBfdReq(const Velnet::IpGenAddr& nextHopAddr, const Velnet::IntfId& intfId, bool add);
  void handleInitialized();
  // One slice of the review.
  void doReview();
  void updateRouteReviewState(bool complete);
  void doCleanupRibConfig();

  ~RouteStatusSm() override;

 private:
  RouteStatusSm(const L3::VrfName& vrfName, Velnet::AddressFamily af, Vrf::VrfIdMap::VrfId vrfId,
                const Status::Ptr& status, const Rib::ViaMetricStatus::PtrConst& ipViaMetricStatus,
                const Rib::ViaMetricStatus::PtrConst& evpnViaMetricStatus,
                const Rib::LoopingRouteStatus::PtrConst& loopingRouteStatus, const Rib::RouteConfig::Ptr& ribConfig,
                const Rib::ViaSetConfig::Ptr& viaSetConfig, Rib::RoutingProtocol routingProtocol,
                const Rib::ViaMetricStatus::PtrConst& ipv4DefaultVrfViaMetricStatus,
                const Rib::ViaMetricStatus::PtrConst& ipv6DefaultVrfViaMetricStatus,
                const VrfReadyStatus::Ptr& vrfReadyStatus, const Bfd::AppConfig::Ptr& bfdAppConfig,
                const Rib::Ip::ViaConfig::PtrConst& ipViaConfig,
                const Rib::ViaMetricStatusByVrf::PtrConst& viaMetricStatusByVrf, const std::string& ribString);

  using RouteIter = decltype(std::declval<const Status&>().routeColl().begin());
  // The position after `prefix` in the status's hash order, found again by hash so that changes
  // made while `prefix` was evaluated cannot leave the walk on a stale position.
  RouteIter routeAfter(const Velnet::IpGenPrefix& prefix) const;
  // How many routes ahead of its evaluation the review starts loading a route's objects.
  static constexpr size_t kReviewLookahead = 4;
  void prefetchForReview(const Route& route, size_t ahead) const noexcept;
  Rib::RouteKey ribKey(const Velnet::IpGenPrefix& prefix) const { return Rib::RouteKey(vrfId_, prefix); }

  // handleRoute(prefix) for a caller that holds the route under `prefix` (a reactor's route, the
  // review's position): evaluateRoute takes `held` as it is while the status still owns it,
  // instead of finding it again by prefix. Null: it is looked up.
  void handleRoute(const Velnet::IpGenPrefix& prefix, const Route* held);
  // Evaluates a prefix for the RIB's side, which cannot act on a refusal: a route the RIB cannot
  // take stays as it was there (and waits, if a table is full); the error is traced.
  void handleRouteForRib(const Velnet::IpGenPrefix& prefix, const Route* held, const char* cause);
  void evaluateRoute(const Velnet::IpGenPrefix& prefix, const Route* held);
  void routeWaitingIs(const Velnet::IpGenPrefix& prefix);
  void routeWaitingDel(const Velnet::IpGenPrefix& prefix);

  struct PrefixHash {
    size_t operator()(const Velnet::IpGenPrefix& p) const noexcept { return p.hash(); }
  };

  Kel::Ptr<Kel::Clock const> clock_;
  Kel::Ptr<Kel::Clock const> retryClock_;
  // The storage evaluateRoute builds via sets in, kept between evaluations (see there).
  Rib::Shmtab::ViaSet viaSetBuffer_;
  bool reviewedOnce_ = false;
  std::unordered_set<Velnet::IpGenPrefix, PrefixHash> waiting_;
  // The waiting prefixes, oldest first; entries no longer in `waiting_` are skipped.
  std::deque<Velnet::IpGenPrefix> waitingOrder_;
};
KEL_FACTORY(RouteStatusSm, routeStatusSmFactory)

}  // namespace Routing::Protocol
