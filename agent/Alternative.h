// One alternative of a route as the agent configured it, and how it is written into the route
// status.
//
// Most routes are written once, straight from the command, and the agent keeps no copy: the
// route status is the copy. A route whose next hops BFD watches is different: the agent leaves
// the vias of a failed session out of what it writes, so it must remember what it was asked for
// in order to put them back. `Alternative` is that memory; `viasIs` brings a written alternative
// in line with it, touching only the vias that differ, so that a session flapping under a route
// of many vias costs one change per affected via rather than a rewrite of the route.
#pragma once

#include <functional>
#include <map>
#include <vector>

#include "platform/rib/RibTypes.h"
#include "platform/routing/Routing.h"
#include "routestatus/ProtocolRouteStatus.h"

namespace Routing::Protocol::Agent {

struct Alternative {
  uint8_t fecType = 0;
  bool installInFib = true;
  Fib::RouteType fibType = Fib::RouteType::forward;
  uint32_t tag = 0;
  std::vector<Rib::ViaKey> vias;
  // EVPN via -> its VTEP IP via in the default VRF.
  std::map<Rib::ViaKey, Rib::ViaKey> evpnCompanions;

  // What `rp` holds now.
  static Alternative of(const RoutePref& rp);
};

// Keeps a via (true) or leaves it out (false).
using ViaFilter = std::function<bool(const Rib::ViaKey&)>;

// Creates or replaces alternative `pref` of `route` with the vias `keep` admits. The alternative
// is built apart and handed over whole: the route is evaluated once for it, and an alternative it
// replaces gives way in the same step, so the route never leaves the RIB in between and a refusal
// leaves the one it replaced for the caller to put back.
void alternativeIs(Route& route, Routing::RoutePreference pref, const Alternative& alt, const ViaFilter& keep);

// Brings the vias of an existing alternative in line with `alt` filtered by `keep`; an EVPN
// via's companion goes in before the via and leaves after it, so the via is never judged without it.
void viasIs(RoutePref& rp, const Alternative& alt, const ViaFilter& keep);

}  // namespace Routing::Protocol::Agent
