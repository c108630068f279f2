// The agent's route table: the routes that a protocol wants in the RIB.
//
//   RouteStatusDir --status--> Status (one VRF and family) --route--> Route (one prefix)
//                                   --routePref--> RoutePref (one preference, with its vias)
//
// The agent writes it; the route-status state machine turns it into RIB route configuration and
// the via-metric state machine indexes it by via. Both learn of every change through the
// notifications below. The only attribute the library writes is `RoutePref::dedupViaSetKey`.
// Parents own their children: deleting a route or an alternative releases every dedup handle it
// holds, and with the last holder gone the via or via set leaves its table.
#pragma once

#include <cstdint>

#include "keys/ProtocolContainerKey.h"
#include "platform/kel/Attribute.h"
#include "platform/rib/RibTypes.h"
#include "platform/rib/ViaSet.h"
#include "platform/routing/Routing.h"
#include "platform/velnet/Velnet.h"

namespace Routing::Protocol {

// One alternative of a route: its preference and its vias.
class RoutePref : public Kel::Entity {
 public:
  KEL_ENTITY(RoutePref, "Routing::Protocol::RoutePref");
  class NotifieeConst : public Kel::NotifieeConstOf<RoutePref> {
   public:
    virtual void onFecType() {}
    virtual void onInstallInFib() {}
    virtual void onFibRouteType() {}
    virtual void onTag() {}
    virtual void onDedupViaKey(const Rib::ViaKey&) {}
    virtual void onDedupViaSetKey() {}
    virtual void onDedupEvpnVtepIpViaKey(const Rib::ViaKey&) {}
    virtual void onBfdTrackedViaColl(const Rib::ViaKey&) {}
  };
  KEL_CREATOR(RoutePref);

  KEL_KEY(Routing::RoutePreference, preference);
  // Copied into the via set's type byte; 2 makes the alternative eligible with no usable via.
  KEL_SCALAR(uint8_t, fecType, FecType);
  // When false, the RIB route carries flag bit 0: do not install in the FIB.
  KEL_SCALAR(bool, installInFib, InstallInFib, true);
  KEL_SCALAR(Routing::Fib::RouteType, fibRouteType, FibRouteType);
  KEL_SCALAR(uint32_t, tag, Tag);
  // The vias of the alternative, each a dedup handle filed by the via key it carries.
  KEL_PTR_COLL(Rib::DedupViaKey const, Rib::ViaKey, dedupViaKey, DedupViaKey);
  // The via set last configured in the RIB for this alternative; holding it keeps it there.
  KEL_SCALAR(Kel::Ptr<Rib::DedupViaSetKey const>, dedupViaSetKey, DedupViaSetKey);
  // For an EVPN via (by its key in dedupViaKey), the handle of its VTEP IP via.
  KEL_MAP(Rib::ViaKey, Kel::Ptr<Rib::DedupViaKey const>, dedupEvpnVtepIpViaKey, DedupEvpnVtepIpViaKey);
  // Vias whose next hop BFD tracks.
  KEL_SET(Rib::ViaKey, bfdTrackedViaColl, BfdTrackedViaColl);

 private:
  explicit RoutePref(Routing::RoutePreference preference) : preference_(preference) {}
};
KEL_FACTORY(RoutePref, routePrefFactory)

// One prefix in one VRF, with its alternatives in ascending preference.
class Route : public Kel::Entity {
 public:
  KEL_ENTITY(Route, "Routing::Protocol::Route");
  class NotifieeConst : public Kel::NotifieeConstOf<Route> {
   public:
    virtual void onRoutePref(Routing::RoutePreference) {}
    virtual void onSrcVrfId() {}
    virtual void onRouteChangedAt() {}
  };
  KEL_CREATOR(Route);

  KEL_KEY(Velnet::IpGenPrefix, routeKey);
  // The VRF the route was learnt from (leaked routes); copied into the RIB route. Declared beside
  // the prefix, whose 18 bytes leave room for it: a million routes are 88 bytes each, not 96.
  KEL_SCALAR(Vrf::VrfIdMap::VrfId, srcVrfId, SrcVrfId);
  // The alternatives; the first usable one in this (ascending) order wins.
  KEL_ORDERED_ENTITY_COLL(RoutePref, Routing::RoutePreference, routePref, RoutePref);
  // Written whenever something the route depends on changed: every write is the signal to
  // re-evaluate it, even one that repeats the time already held.
  KEL_STAMP(routeChangedAt, RouteChangedAt);

 private:
  explicit Route(const Velnet::IpGenPrefix& prefix) : routeKey_(prefix) {}
};
KEL_FACTORY(Route, routeFactory)

// All routes of one VRF and address family, in a hash table by prefix.
class Status : public Kel::Entity {
 public:
  KEL_ENTITY(Status, "Routing::Protocol::Status");
  class NotifieeConst : public Kel::NotifieeConstOf<Status> {
   public:
    virtual void onRoute(const Velnet::IpGenPrefix&) {}
  };
  KEL_CREATOR(Status);

  KEL_KEY(RouteStatusKey, key);
  KEL_ENTITY_COLL(Route, Velnet::IpGenPrefix, route, Route);

 private:
  explicit Status(const RouteStatusKey& key) : key_(key) {}
};
KEL_FACTORY(Status, statusFactory)

// The agent's statuses, by VRF and family.
class RouteStatusDir : public Kel::Entity {
 public:
  KEL_ENTITY(RouteStatusDir, "Routing::Protocol::RouteStatusDir");
  class NotifieeConst : public Kel::NotifieeConstOf<RouteStatusDir> {
   public:
    virtual void onStatus(const RouteStatusKey&) {}
  };
  KEL_CREATOR(RouteStatusDir);

  KEL_PTR_COLL(Status, RouteStatusKey, status, Status);

 private:
  RouteStatusDir() = default;
};
KEL_FACTORY(RouteStatusDir, routeStatusDirFactory)

// The reverse index entry of one via: every (prefix, preference, VRF) whose alternative lists it.
class RouteByViaKey : public Kel::Entity {
 public:
  KEL_ENTITY(RouteByViaKey, "Routing::Protocol::RouteByViaKey");
  class NotifieeConst : public Kel::NotifieeConstOf<RouteByViaKey> {
   public:
    virtual void onRoute(const PrefixPrefVrfId&) {}
  };
  KEL_CREATOR(RouteByViaKey);

  KEL_KEY(Rib::ViaKey, viaKey);
  KEL_SET(PrefixPrefVrfId, route, Route);

 private:
  explicit RouteByViaKey(const Rib::ViaKey& viaKey) : viaKey_(viaKey) {}
};
KEL_FACTORY(RouteByViaKey, routeByViaKeyFactory)

}  // namespace Routing::Protocol
