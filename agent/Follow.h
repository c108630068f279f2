// Following the RIB configuration as it changes: one line per route added, changed or removed
// in a RIB route table, per via set added or removed, and per route leaked into or withdrawn from
// a VRF.
//
// Nothing is diffed. The follower is a notifiee of each table the library writes (the RIB route
// tables, unicast and multicast, per VRF or shared by all VRFs; the via-set tables; each VRF's
// leak configuration) and prints what a notification names, reading the entry it names at that
// moment. Because the notifications are synchronous, lines come out in the order the library
// made the changes, interleaved with traces, and a change undone within one command still shows
// as two lines: that is what the RIB saw. The one thing remembered is which route keys a table
// held, so that a route written anew can be told from a route changed in place.
//
// The agent attaches a table when it starts using it (a container is created, a VRF is
// published) and detaches it when it stops; a table shared by several containers is attached
// once and counted.
#pragma once

#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>

#include "leak/ProtocolRouteLeak.h"
#include "platform/kel/HashTable.h"
#include "platform/rib/RouteConfig.h"
#include "platform/rib/ViaSetConfig.h"

namespace Routing::Protocol::Agent {

class Follower {
 public:
  // `vrfName` names a VRF id (its number when unknown); `routeText` writes what a RIB route says
  // after its prefix (preference, vias, flags), resolving its via set in the given configuration.
  using VrfNameOf = std::function<std::string(Vrf::VrfIdMap::VrfId)>;
  using RouteText = std::function<std::string(const Rib::Route&, const Rib::ViaSetConfig&)>;

  Follower(std::ostream& out, VrfNameOf vrfName, RouteText routeText);
  ~Follower();
  Follower(const Follower&) = delete;
  Follower& operator=(const Follower&) = delete;

  // `rib` ("rib" or "mrib") starts each line of the table; `viaSets` resolves its routes' via sets.
  void routeTableIs(const Rib::RouteConfig::Ptr& table, const char* rib, const Rib::ViaSetConfig::Ptr& viaSets);
  void routeTableDel(const Rib::RouteConfig::Ptr& table);
  void viaSetTableIs(const Rib::ViaSetConfig::Ptr& viaSets, const char* rib);
  void leakConfigIs(const LeakRouteConfig::Ptr& config);
  void leakConfigDel(const LeakRouteConfig::Ptr& config);

 private:
  class RouteTable;
  class ViaSetTable;
  class LeakConfig;

  std::ostream& out_;
  VrfNameOf vrfName_;
  RouteText routeText_;
  std::map<const void*, std::unique_ptr<RouteTable>> routeTables_;
  std::map<const void*, std::unique_ptr<ViaSetTable>> viaSetTables_;
  std::map<const void*, std::unique_ptr<LeakConfig>> leakConfigs_;
};

}  // namespace Routing::Protocol::Agent
