// The protocol's own routes of one VRF, as route leaking reads them.
//
//   RouteList --route--> Route (one prefix, with the VRF it leaks into)
//
// The agent owns these: it files each route under its key, names a leak-to VRF on it (empty when
// the route stays where it is), and may replace a route object by another under the same key. The
// list therefore holds counted references rather than creating its members, and a reader that
// cares whether a route changed compares the objects, not only the keys.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "platform/kel/Attribute.h"
#include "platform/kel/Text.h"
#include "platform/l3/L3.h"
#include "platform/velnet/Velnet.h"

namespace Routing {

// The key of a protocol route: its prefix. Hashes as the prefix does, so that every table keyed
// by it iterates in the prefix hash order.
class RouteKey {
 public:
  static constexpr bool kelHasStrep = true;
  static constexpr const char* kTypeName = "Routing::RouteKey";

  RouteKey() = default;
  explicit RouteKey(const Velnet::IpGenPrefix& prefix) : prefix_(prefix) {}
  // Parses the text form from [begin, end).
  RouteKey(const char* begin, const char* end);
  explicit RouteKey(Kel::TextCursor& c);

  const Velnet::IpGenPrefix& prefix() const noexcept { return prefix_; }

  bool operator==(const RouteKey&) const = default;
  bool operator<(const RouteKey& o) const noexcept { return prefix_ < o.prefix_; }
  uint32_t hash() const noexcept { return prefix_.hash(); }
  // "Value('Routing::RouteKey', ** {'prefix': '10.0.0.0/8'})"
  std::string strep() const;
  // The prefix alone, "10.0.0.0/8".
  std::string str() const { return prefix_.str(); }

 private:
  Velnet::IpGenPrefix prefix_;
};

// Writes the text form.
std::ostream& operator<<(std::ostream& os, const RouteKey& k);

// One protocol route.
class Route : public Kel::Entity {
 public:
  KEL_ENTITY(Route, "Routing::Route");
  class NotifieeConst : public Kel::NotifieeConstOf<Route> {
   public:
    virtual void onLeakToVrf() {}
  };
  KEL_CREATOR(Route);

  KEL_KEY(RouteKey, key);
  // The VRF into which the route is to be leaked; empty for none.
  KEL_SCALAR(L3::VrfName, leakToVrf, LeakToVrf);

 private:
  explicit Route(const RouteKey& key) : key_(key) {}
};
KEL_FACTORY(Route, routeFactory)

// The routes of one VRF and address family, by key.
class RouteList : public Kel::Entity {
 public:
  KEL_ENTITY(RouteList, "Routing::RouteList");
  class NotifieeConst : public Kel::NotifieeConstOf<RouteList> {
   public:
    virtual void onRoute(const RouteKey&) {}
  };
  KEL_CREATOR(RouteList);

  // Counted references: `routeIs(route)` files a route under its own key, replacing the object
  // there (one notification) unless it is the same one.
  KEL_PTR_COLL(Route, RouteKey, route, Route);

 private:
  RouteList() = default;
};
KEL_FACTORY(RouteList, routeListFactory)

}  // namespace Routing
