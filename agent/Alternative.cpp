#include "agent/Alternative.h"

#include <set>

#include "platform/rib/ViaSet.h"

namespace Routing::Protocol::Agent {

Alternative Alternative::of(const RoutePref& rp) {
  Alternative a;
  a.fecType = rp.fecType();
  a.installInFib = rp.installInFib();
  a.fibType = rp.fibRouteType();
  a.tag = rp.tag();
  for (const auto& handle : rp.dedupViaKeyColl()) a.vias.push_back(handle->value());
  for (const auto& e : rp.dedupEvpnVtepIpViaKeyColl()) a.evpnCompanions[e.key] = e.value->value();
  return a;
}

namespace {

void viaIs(RoutePref& rp, const Alternative& alt, const Rib::ViaKey& v) {
  if (auto c = alt.evpnCompanions.find(v); c != alt.evpnCompanions.end()) {
    rp.dedupEvpnVtepIpViaKeyIs(v, Rib::dedupViaKeyIs(c->second));
  }
  rp.dedupViaKeyIs(Rib::dedupViaKeyIs(v));
}

}  // namespace

void alternativeIs(Route& route, Routing::RoutePreference pref, const Alternative& alt, const ViaFilter& keep) {
  auto rp = routePrefFactory(pref);
  rp->fecTypeIs(alt.fecType);
  rp->installInFibIs(alt.installInFib);
  rp->fibRouteTypeIs(alt.fibType);
  rp->tagIs(alt.tag);
  for (const auto& v : alt.vias) {
    if (!keep || keep(v)) viaIs(*rp, alt, v);
  }
  route.routePrefIs(rp);
}

void viasIs(RoutePref& rp, const Alternative& alt, const ViaFilter& keep) {
  std::set<Rib::ViaKey> wanted;
  for (const auto& v : alt.vias) {
    if (!keep || keep(v)) wanted.insert(v);
  }
  // New vias go in before old ones leave, so that an alternative whose vias are all replaced is
  // never empty in between (the route would leave the RIB and come back).
  for (const auto& v : alt.vias) {
    if (wanted.count(v) && !rp.dedupViaKeyHas(v)) viaIs(rp, alt, v);
  }
  std::vector<Rib::ViaKey> gone;
  for (const auto& handle : rp.dedupViaKeyColl()) {
    if (!wanted.count(handle->value())) gone.push_back(handle->value());
  }
  for (const auto& v : gone) {
    rp.dedupViaKeyDel(v);
    rp.dedupEvpnVtepIpViaKeyDel(v);
  }
  // A kept EVPN via whose companion changed.
  for (const auto& [v, companion] : alt.evpnCompanions) {
    auto held = rp.dedupEvpnVtepIpViaKey(v);
    if (wanted.count(v) && (!held || !(held->value() == companion))) {
      rp.dedupEvpnVtepIpViaKeyIs(v, Rib::dedupViaKeyIs(companion));
    }
  }
}

}  // namespace Routing::Protocol::Agent
