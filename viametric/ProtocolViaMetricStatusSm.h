// ViaMetricStatusSm: tells the protocol's routes when the RIB changes the metric of a via they use.
//
// The RIB publishes a metric per (VRF, transport, routing protocol, via) but says nothing about
// which routes use a via; a route only says which vias each of its alternatives lists. Scanning
// the route table on every metric change would cost the size of the table, so this machine keeps
// the reverse index `routeByViaKey`: via key -> the (prefix, preference, VRF) entries whose
// alternative lists that via. A metric change then costs one lookup plus one step per route that
// uses the via, and each such route gets `routeChangedAt` stamped with the current time, which is
// what makes the route-status machine re-evaluate it.
//
// What stays true:
//  - an index entry exists exactly while at least one route preference lists its via key; entries
//    are created only when a preference starts listing a via and deleted only when their set
//    becomes empty;
//  - a route is stamped when one of its preferences starts using a via (it is new to the index)
//    and on every metric change of such a via, once per index entry (a route that uses the via in
//    two preferences is stamped twice, with the same time); removals never stamp;
//  - the fan-out does not filter by the VRF, transport or protocol of the metric: a via key names
//    its own VRF, and the routes of any VRF may use it.
//
// The reactor tree mirrors the data it watches: the RIB's tree (VRF -> transport -> protocol ->
// metrics) down to one `KelVms` per protocol status, and the route table (directory -> status ->
// route -> preference) down to one `KelRoutePref` per alternative. A `KelVms` replays every metric
// of its status when it is built, so a protocol status that appears after the routes still
// reaches them. Deleting a preference, a route or a status removes its entries from the index
// through the reactor's `handleDel` (forced removal: the deleted entity still lists its vias).
//
// Stamping a route notifies its observers synchronously, and they may change the very tables
// being walked. Every walk here therefore runs over a snapshot of the members and skips a member
// that has left its collection by the time it is reached, so no iterator is ever used across a
// notification.
#pragma once

#include <cstdint>

#include "keys/ProtocolContainerKey.h"
#include "platform/kel/Attribute.h"
#include "platform/kel/Reactor.h"
#include "platform/rib/RibTypes.h"
#include "platform/rib/ViaMetric.h"
#include "platform/routing/Routing.h"
#include "platform/velnet/Velnet.h"
#include "platform/vrf/VrfId.h"
#include "routestatus/ProtocolRouteStatus.h"

namespace Routing::Protocol {

class ViaMetricStatusSm : public Kel::StateMachine {
 public:
  KEL_ENTITY(ViaMetricStatusSm, "Routing::Protocol::ViaMetricStatusSm");
  class NotifieeConst : public Kel::NotifieeConstOf<ViaMetricStatusSm> {
   public:
    virtual void onRouteByViaKey(const Rib::ViaKey&) {}
  };
  KEL_CREATOR(ViaMetricStatusSm);

  // ---- Reactors on the RIB's via-metric tree ----
  class KelVmsByProto;
  class KelVmsByTransport;

  // The metrics of one routing protocol in one VRF and transport.
  class KelVms : public Kel::Reactor<KelVmsByProto, Rib::ViaMetricStatus> {
   public:
    // Replays every metric already present (handleInitialized).
    KelVms(KelVmsByProto* owner, const Rib::ViaMetricStatus::PtrConst& status);
    void onViaMetric(const Rib::ViaKey& viaKey) override;
    // Fans a change of `viaKey` out with this reactor's VRF, transport and protocol.
    void handleViaMetric(const Rib::ViaKey& viaKey);
    // Fans out every via key of the status; does nothing before initialisation.
    void handleViaMetric();
    void handleInitialized();
    bool initialized() const noexcept { return initialized_; }
    void initializedIs(bool v) noexcept { initialized_ = v; }
    ViaMetricStatusSm* machine() const noexcept;

   private:
    bool initialized_ = false;
  };

  // The protocol statuses of one transport in one VRF.
  class KelVmsByProto : public Kel::NestingReactor<KelVmsByTransport, Rib::ViaMetricStatusByProtocol> {
   public:
    KEL_REACTOR_OWNER_NAME("Routing::Protocol::ViaMetricStatusSm::KelVmsByProto");
    KelVmsByProto(KelVmsByTransport* owner,
                  const Rib::ViaMetricStatusByProtocol::PtrConst& byProtocol);
    void onProtocolStatus(const Rib::RoutingProtocol& proto) override;
    KEL_NESTED_REACTOR_COLL(KelVms, Rib::RoutingProtocol, vms);
  };

  // The transports of one VRF.
  class KelVmsByTransport
      : public Kel::NestingReactor<ViaMetricStatusSm, Rib::ViaMetricStatusByTransport> {
   public:
    KEL_REACTOR_OWNER_NAME("Routing::Protocol::ViaMetricStatusSm::KelVmsByTransport");
    KelVmsByTransport(ViaMetricStatusSm* owner,
                      const Rib::ViaMetricStatusByTransport::PtrConst& byTransport);
    void onTransportStatus(const Rib::Transport& transport) override;
    KEL_NESTED_REACTOR_COLL(KelVmsByProto, Rib::Transport, vmsByProto);
  };

  // The root of the RIB's tree: one `vmsByTransport` reactor per VRF present.
  class KelViaMetricStatusByVrf
      : public Kel::Reactor<ViaMetricStatusSm, Rib::ViaMetricStatusByVrf> {
   public:
    using Reactor::Reactor;
    void onVrfStatus(const Vrf::VrfIdMap::VrfId& vrfId) override;
  };

  // ---- Reactors on the protocol's route table ----
  class KelRoute;
  class KelRouteStatus;

  // One alternative of a route: indexes its vias as they come and go.
  class KelRoutePref : public Kel::Reactor<KelRoute, RoutePref> {
   public:
    using Reactor::Reactor;
    void onDedupViaKey(const Rib::ViaKey& viaKey) override;
    // A via added to or removed from the alternative; the index follows `dedupViaKey`.
    void handleViaKey(const Rib::ViaKey& viaKey);
    // The alternative left its route: every via it still lists leaves the index.
    void handleDel() override;
  };

  // One route, with a reactor per alternative.
  class KelRoute : public Kel::NestingReactor<KelRouteStatus, Route> {
   public:
    KEL_REACTOR_OWNER_NAME("Routing::Protocol::ViaMetricStatusSm::KelRoute");
    KelRoute(KelRouteStatus* owner, const Route::PtrConst& route);
    void onRoutePref(Routing::RoutePreference pref) override;
    // The route left its status: the vias of all its alternatives leave the index.
    void handleDel() override;
    KEL_NESTED_REACTOR_COLL_OF(::Kel::SmallReactorMap, KelRoutePref, Routing::RoutePreference,
                               routePref);
  };

  // The routes of one VRF and address family.
  class KelRouteStatus : public Kel::NestingReactor<ViaMetricStatusSm, Status> {
   public:
    KEL_REACTOR_OWNER_NAME("Routing::Protocol::ViaMetricStatusSm::KelRouteStatus");
    KelRouteStatus(ViaMetricStatusSm* owner, const Status::PtrConst& status);
    void onRoute(const Velnet::IpGenPrefix& prefix) override;
    // The status left the directory: all its routes leave the index.
    void handleDel() override;
    // Indexes the vias that an alternative brings with it when it joins a route, or a route
    // built apart joins the status.
    void indexVias(const Route::Ptr& route, const RoutePref::Ptr& routePref);
    KEL_NESTED_REACTOR_COLL(KelRoute, Velnet::IpGenPrefix, route);
  };

  // The directory of statuses: one `routeStatus` reactor per status present.
  class KelRouteStatusDir : public Kel::Reactor<ViaMetricStatusSm, RouteStatusDir> {
   public:
    using Reactor::Reactor;
    void onStatus(const RouteStatusKey& key) override;
  };

  // ---- Inputs ----
  // The RIB's via metrics, per VRF, transport and protocol. Read only.
  KEL_CTOR_PARAM(Rib::ViaMetricStatusByVrf::PtrConst, viaMetricStatusByVrf);
  // The protocol's routes. Only `Route::routeChangedAt` is written.
  KEL_CTOR_PARAM(RouteStatusDir::Ptr, routeStatusDir);

  // ---- Reactors held ----
  KEL_REACTOR(KelViaMetricStatusByVrf, viaMetricStatusByVrfReactor);
  KEL_REACTOR(KelRouteStatusDir, routeStatusDirReactor);
  // One per VRF present in `viaMetricStatusByVrf`.
  KEL_REACTOR_COLL(KelVmsByTransport, Vrf::VrfIdMap::VrfId, vmsByTransport);
  [[maybe_unused]] static inline const bool kelAttr_vmsByTransport = ::Kel::registerAttr(
      kTypeName, "vmsByTransport", "Routing::Protocol::ViaMetricStatusSm::KelVmsByTransport",
      ::Kel::AttrKind::reactorCollection);
  // One per status present in `routeStatusDir`.
  KEL_REACTOR_COLL(KelRouteStatus, RouteStatusKey, routeStatus);
  [[maybe_unused]] static inline const bool kelAttr_routeStatus = ::Kel::registerAttr(
      kTypeName, "routeStatus", "Routing::Protocol::ViaMetricStatusSm::KelRouteStatus",
      ::Kel::AttrKind::reactorCollection);

  // ---- Output ----
  // The reverse index: `routeByViaKeyIs(viaKey)` creates an empty entry or returns the existing
  // one. Invariant: an entry exists exactly while its route set is not empty.
  KEL_ENTITY_COLL(RouteByViaKey, Rib::ViaKey, routeByViaKey, RouteByViaKey);
  [[maybe_unused]] static inline const bool kelAttr_initialized =
      ::Kel::registerAttr(kTypeName, "initialized", "bool", ::Kel::AttrKind::scalar);

  // ---- Handlers ----
  // Sets `initialized` and indexes every status already in the directory.
  void handleInitialized();
  // Stamps every route whose alternatives use `viaKey`. The VRF, transport and protocol of the
  // metric are only traced. Reflection arguments: "vrfId", "transport", "proto", "key".
  void handleViaMetric(Vrf::VrfIdMap::VrfId vrfId, Rib::Transport transport,
                       Rib::RoutingProtocol proto, const Rib::ViaKey& viaKey);
  // Indexes (or with `forceDel` removes from the index) every via of every route of the status
  // watched under `key`; nothing but a trace when no such status is watched. Reflection
  // arguments: "key", "forceDel".
  void handleRouteStatus(const RouteStatusKey& key, bool forceDel);
  // Brings the index entry of `viaKey` into line with whether `routePref` (of `route` in `rs`)
  // still lists it; forced, removes it whatever the alternative says. A route newly indexed is
  // stamped. Precondition: all three entities given (asserted). Reflection arguments: "status",
  // "route", "routePref", "key", "forceDel".
  void handleRouteViaKey(const Status::Ptr& rs, const Route::Ptr& route,
                         const RoutePref::Ptr& routePref, const Rib::ViaKey& viaKey, bool forceDel);

 private:
  // Builds the reactors for everything present in the inputs, then handleInitialized(). Null
  // inputs are tolerated: there is then nothing to watch on that side.
  ViaMetricStatusSm(const Rib::ViaMetricStatusByVrf::PtrConst& viaMetricStatusByVrf,
                    const RouteStatusDir::Ptr& routeStatusDir);
};
KEL_FACTORY(ViaMetricStatusSm, viaMetricStatusSmFactory)

}  // namespace Routing::Protocol
