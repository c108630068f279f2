// Route leaking in the agent: the protocol's route lists that the leak machines read, and the
// configurations they fill.
//
// Each VRF the agent knows has, per address family, a Routing::RouteList (its routes as a source)
// and a LeakRouteConfig (what other VRFs leak into it), both handed to Leak::RootSm through
// createVrf when the VRF is published and taken back through deleteVrf when it is withdrawn; the
// agent reaches both handlers through reflection, as a router's agent would.
//
// Only routes that name a leak-to VRF are filed in the lists: a route without one has nothing to
// leak, and keeping a second entity for each of a million unleaked routes would cost memory for
// nothing. Filing a route, changing its leak-to VRF and withdrawing it are what the leak
// machines hear; a leak-to VRF is a name, so it may name a VRF that does not exist yet (the
// route then leaks nowhere until the VRF comes and the route's leak is decided again).
#pragma once

#include <map>
#include <string>

#include "leak/ProtocolRouteLeak.h"
#include "leak/ProtocolRouteLeakSm.h"
#include "platform/routing/RouteList.h"
#include "platform/vrf/VrfIdMap.h"

namespace Routing::Protocol::Agent {

class Leaking {
 public:
  explicit Leaking(const Vrf::VrfIdMap::NameToIdMap::PtrConst& names);
  ~Leaking();
  Leaking(const Leaking&) = delete;
  Leaking& operator=(const Leaking&) = delete;

  struct VrfSide {
    Vrf::VrfIdMap::VrfId id = 0;
    Routing::RouteList::Ptr routes[2];       // by family: ipv4, ipv6
    LeakRouteConfig::Ptr config[2];
  };

  const Leak::RootSm::Ptr& root() const noexcept { return root_; }
  const std::map<std::string, VrfSide>& vrfs() const noexcept { return vrfs_; }

  // A VRF was published (both families are created for leaking) or withdrawn.
  void vrfIs(const std::string& name, Vrf::VrfIdMap::VrfId id);
  void vrfDel(const std::string& name);
  // `vrf` started or stopped resolving in the name map: the routes that name it have their leak
  // decided again. `vrfIs` does it itself; a withdrawal needs it once the name has left the map,
  // or the routes would keep leaking into the id it had (and into the next VRF given that id).
  void decideAgain(const L3::VrfName& vrf);

  // The route `prefix` of `vrf` leaks into `leakTo`; an empty name stops the leak.
  void leakToIs(const std::string& vrf, const Velnet::IpGenPrefix& prefix, const L3::VrfName& leakTo);
  // The route left the agent's table.
  void routeDel(const std::string& vrf, const Velnet::IpGenPrefix& prefix);
  // Every route of one VRF and family left the agent's table (its container went).
  void routesDel(const std::string& vrf, Velnet::AddressFamily af);
  // The VRF `prefix` of `vrf` leaks into now; empty when none.
  L3::VrfName leakTo(const std::string& vrf, const Velnet::IpGenPrefix& prefix) const;

 private:
  static int index(Velnet::AddressFamily af) { return af == Velnet::AddressFamily::ipv4 ? 0 : 1; }

  Leak::RootSm::Ptr root_;
  std::map<std::string, VrfSide> vrfs_;
};

}  // namespace Routing::Protocol::Agent
