#include "leak/ProtocolRouteLeak.h"

namespace Routing::Protocol {

LeakRoute::LeakRoute(const VrfIdAf& vrfAf, const Kel::Ptr<Routing::Route const>& route)
    : vrfAf_(vrfAf), route_(route) {
  // The key is read through the route, so a leak route without one cannot exist.
  if (!route_) Kel::throwNullParameter(kTypeName, "route");
}

LeakRoute::LeakRoute(const Routing::RouteKey&, const VrfIdAf& vrfAf,
                     const Kel::Ptr<Routing::Route const>& route)
    : LeakRoute(vrfAf, route) {}

Kel::Ptr<LeakRoute> LeakRouteDir::leakRouteIs(const VrfIdAf& vrfAf,
                                              const Kel::Ptr<Routing::Route const>& route) {
  if (!route) Kel::throwNullParameter(kTypeName, "leakRoute");
  auto [p, added] = leakRoute_.instantiate(*this, "leakRoute", route->key(), vrfAf, route);
  if (added) notify(&NotifieeConst::onLeakRoute, p->key());
  return p;
}

KEL_REGISTER_ENTITY(LeakRouteDir);
KEL_REGISTER_ENTITY(LeakRouteListSetDir);
KEL_REGISTER_ENTITY(LeakRouteListPtrSetDir);

}  // namespace Routing::Protocol
