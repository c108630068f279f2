// A small world for the route-leaking tests: a name/id map, route lists and leak configurations
// per VRF, a leak root, and a manual clock, with helpers that read the outcome as text.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "leak/ProtocolRouteLeak.h"
#include "leak/ProtocolRouteLeakSm.h"
#include "platform/kel/Kel.h"
#include "platform/routing/RouteList.h"
#include "platform/vrf/VrfIdMap.h"

namespace Routing::Protocol::LeakTest {

using Velnet::AddressFamily;
using Vrf::VrfIdMap::VrfId;

inline Routing::RouteKey key(const char* prefix) {
  return Routing::RouteKey(Velnet::IpGenPrefix::parse(prefix));
}
inline VrfIdAf v4(VrfId id) { return VrfIdAf(id, AddressFamily::ipv4); }
inline VrfPairAf pair4(VrfId src, VrfId dst) { return VrfPairAf(src, dst, AddressFamily::ipv4); }

// The keys of a hash set, or the keys of a collection of entities, as prefix texts in iteration
// order.
template <class Coll>
std::vector<std::string> prefixes(const Coll& coll) {
  std::vector<std::string> out;
  for (const auto& e : coll) {
    if constexpr (requires { e->kelKey(); }) {
      out.push_back(e->kelKey().str());
    } else {
      out.push_back(e.str());
    }
  }
  return out;
}

// The last of some trace texts, or "" when there are none.
inline std::string lastOf(const std::vector<std::string>& texts) {
  return texts.empty() ? "" : texts.back();
}
inline bool contains(const std::vector<std::string>& texts, const std::string& text) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

// Matches a callable that throws an E with exactly this text.
template <class E>
auto throwsText(const std::string& text) {
  return testing::ThrowsMessage<E>(testing::StrEq(text));
}

// The long text forms of a VRF and of a source/destination pair, as traces and errors print them.
inline std::string vrfText(VrfId id) {
  return "Value('Routing::Protocol::VrfIdAf', ** {'vrfId': " + std::to_string(id) +
         ", 'af': 'ipv4'})";
}
inline std::string pairText(VrfId src, VrfId dst) {
  return "Value('Routing::Protocol::VrfPairAf', ** {'srcVrf': " + std::to_string(src) +
         ", 'dstVrf': " + std::to_string(dst) + ", 'af': 'ipv4'})";
}

// The routes leaked into a configuration, as "prefix<-source VRF", in iteration order.
inline std::vector<std::string> leaked(const LeakRouteConfig& config) {
  std::vector<std::string> out;
  for (const auto& lr : config.leakRouteColl()) {
    out.push_back(lr->key().str() + "<-" + std::to_string(lr->vrfAf().vrfId()));
  }
  return out;
}

// Every fixture that runs the loop starts and ends with a clean one, on a clock of its own.
class LoopTest : public ::testing::Test {
 protected:
  void SetUp() override { Kel::activityManager().reset(); }
  void TearDown() override { Kel::activityManager().reset(); }
  void settle() { Kel::activityManager().runUntilIdle(10000); }

  Kel::ManualTimeSource time{1000.0};
  Kel::ScopedTimeSource scopedTime{time};
};

// VRFs known by name and id, each with a route list and a leak configuration, under one root.
class LeakWorld : public LoopTest {
 protected:
  struct VrfSide {
    Routing::RouteList::Ptr routes;
    LeakRouteConfig::Ptr config;
  };

  void TearDown() override {
    root = nullptr;
    LoopTest::TearDown();
  }

  // Makes `name` resolve to `id`.
  void nameIs(const std::string& name, VrfId id) { map->vrfIdIs(L3::VrfName(name), id); }
  // Names the VRF "vrf<id>" and hands it to the root.
  void createVrf(VrfId id) {
    nameIs("vrf" + std::to_string(id), id);
    VrfSide& side = vrfs[id];
    if (!side.routes) side.routes = Routing::routeListFactory();
    side.config = leakRouteConfigFactory(v4(id));
    root->createVrf(v4(id), side.routes, side.config);
  }
  // A route of VRF `id` leaking into `leakTo` (a VRF name; "" for none).
  Routing::Route::Ptr routeIs(VrfId id, const char* prefix, const std::string& leakTo) {
    VrfSide& side = vrfs[id];
    if (!side.routes) side.routes = Routing::routeListFactory();
    auto route = Routing::routeFactory(key(prefix));
    route->leakToVrfIs(L3::VrfName(leakTo));
    side.routes->routeIs(route);
    return route;
  }
  std::vector<std::string> leakedInto(VrfId id) { return leaked(*vrfs[id].config); }
  LeakRouteListPtrSet::Ptr ptrSet(VrfId id) { return root->demuxSmSetDir()->lrlpSet(v4(id)); }
  LeakRouteListSet::Ptr outputSet(VrfId id) { return root->muxSmSetDir()->lrlSet(v4(id)); }

  Vrf::VrfIdMap::NameToIdMap::Ptr map = Vrf::VrfIdMap::nameToIdMapFactory();
  Leak::RootSm::Ptr root = Leak::rootSmFactory(map);
  std::map<VrfId, VrfSide> vrfs;
};

}  // namespace Routing::Protocol::LeakTest
