#include "agent/Leaking.h"

#include "platform/kel/Exception.h"
#include "platform/kel/Reflection.h"

namespace Routing::Protocol::Agent {

namespace {
constexpr Velnet::AddressFamily kFamilies[2] = {Velnet::AddressFamily::ipv4, Velnet::AddressFamily::ipv6};
}

Leaking::Leaking(const Vrf::VrfIdMap::NameToIdMap::PtrConst& names) : root_(Leak::rootSmFactory(names)) {}

Leaking::~Leaking() = default;

void Leaking::vrfIs(const std::string& name, Vrf::VrfIdMap::VrfId id) {
  VrfSide side;
  side.id = id;
  for (int i = 0; i < 2; ++i) {
    const VrfIdAf key(id, kFamilies[i]);
    side.routes[i] = Routing::routeListFactory();
    side.config[i] = leakRouteConfigFactory(key);
    Kel::callHandler(*root_, "createVrf",
                     {{"vrfIdAf", Kel::toValue(key)},
                      {"routeConfig", Kel::Value(side.routes[i])},
                      {"leakRouteConfig", Kel::Value(side.config[i])}});
  }
  vrfs_[name] = std::move(side);
  // Routes that named this VRF before it existed leak into it from now on.
  decideAgain(L3::VrfName(name));
}

void Leaking::decideAgain(const L3::VrfName& vrf) {
  // The multiplexers decide a route's leak when the route changes, not when its leak-to name
  // starts or stops resolving: the routes that name `vrf` are filed anew (a replaced route object
  // is a change of the route).
  for (auto& [source, s] : vrfs_) {
    for (const auto& list : s.routes) {
      for (const auto& route : list->routeColl().keys()) {
        auto old = list->route(route);
        if (!(old->leakToVrf() == vrf)) continue;
        auto fresh = Routing::routeFactory(route);
        fresh->leakToVrfIs(vrf);
        list->routeIs(fresh);
      }
    }
  }
}

void Leaking::vrfDel(const std::string& name) {
  auto it = vrfs_.find(name);
  if (it == vrfs_.end()) return;
  for (auto af : kFamilies) {
    Kel::callHandler(*root_, "deleteVrf", {{"vrfIdAf", Kel::toValue(VrfIdAf(it->second.id, af))}});
  }
  vrfs_.erase(it);
}

void Leaking::leakToIs(const std::string& vrf, const Velnet::IpGenPrefix& prefix, const L3::VrfName& leakTo) {
  auto it = vrfs_.find(vrf);
  if (it == vrfs_.end()) throw Kel::RangeException("unknown VRF '" + vrf + "'");
  const auto& list = it->second.routes[index(prefix.af())];
  const Routing::RouteKey key(prefix);
  if (leakTo.str().empty()) {
    list->routeDel(key);
    return;
  }
  if (auto route = list->route(key)) {
    route->leakToVrfIs(leakTo);
    return;
  }
  auto route = Routing::routeFactory(key);
  route->leakToVrfIs(leakTo);
  list->routeIs(route);
}

void Leaking::routeDel(const std::string& vrf, const Velnet::IpGenPrefix& prefix) {
  auto it = vrfs_.find(vrf);
  if (it != vrfs_.end()) it->second.routes[index(prefix.af())]->routeDel(Routing::RouteKey(prefix));
}

void Leaking::routesDel(const std::string& vrf, Velnet::AddressFamily af) {
  auto it = vrfs_.find(vrf);
  if (it != vrfs_.end()) it->second.routes[index(af)]->routeDelAll();
}

L3::VrfName Leaking::leakTo(const std::string& vrf, const Velnet::IpGenPrefix& prefix) const {
  auto it = vrfs_.find(vrf);
  if (it == vrfs_.end()) return L3::VrfName();
  auto route = it->second.routes[index(prefix.af())]->route(Routing::RouteKey(prefix));
  return route ? route->leakToVrf() : L3::VrfName();
}

}  // namespace Routing::Protocol::Agent
