// The entities of route leaking: what carries a route from the VRF it is configured in (the source)
// into the VRF it names (the destination).
//
// For one route key K of source S leaking into D, address family A:
//
//   MuxSm(S) owns  LeakRouteDir --leakRoute[K]--> LeakRoute (S/A, the protocol's route)
//   MuxSm(S) owns  LeakRouteListSet[S/A] --leakRouteList[(S,D,A)]--> LeakRouteList --> LeakRoute
//   RootSm   owns  LeakRouteListSetDir --lrlSet[S/A]--> LeakRouteListSet
//   RootSm   owns  LeakRouteListPtrSet[D/A] --leakRouteList[(S,D,A)]--> LeakRouteList (by WiringSm)
//   RootSm   owns  LeakRouteListPtrSetDir --lrlpSet[D/A]--> LeakRouteListPtrSet
//   the agent owns LeakRouteConfig[D/A] --leakRoute[K]--> the LeakRoute that DemuxSm(D) chose
//
// A LeakRoute is created in exactly one LeakRouteDir; every other holder is a pointer collection
// with a counted reference, so a leak route stays valid while any list or configuration still
// points at it, even after its multiplexer (and directory) is gone. Owners that go away clear the
// parent link of members that others still hold, so that such a member's `fullName()` never reads
// a destroyed owner.
//
// What stays true between handler runs (the state machines in ProtocolRouteLeakSm.h keep it):
//  - every LeakRoute in a LeakRouteList keyed (S, D, A) has vrfAf S/A, and a list is present only
//    while it holds at least one leak route;
//  - every list in the LeakRouteListPtrSet keyed D/A has dstVrf D and af A;
//  - a LeakRouteConfig keyed D/A holds at most one leak route per key, none from D itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>

#include "keys/ProtocolContainerKey.h"
#include "platform/kel/Attribute.h"
#include "platform/routing/RouteList.h"
#include "platform/vrf/VrfId.h"

namespace Routing::Protocol {

namespace Leak {

// The id that a VRF name the name/id map does not know resolves to.
inline constexpr Vrf::VrfIdMap::VrfId vrfIdNull = Vrf::VrfIdMap::vrfIdNull;
static_assert(vrfIdNull == 16777215);

namespace detail {

// Clears the parent link of every member of an owning collection whose owner is going away.
template <class Coll>
void orphanMembers(const Coll& coll) noexcept {
  for (const auto& p : coll) {
    using T = std::remove_const_t<typename std::remove_reference_t<decltype(p)>::element_type>;
    const_cast<T*>(p.get())->parentIs(nullptr, nullptr);
  }
}

// Creates the single child held in `slot` unless it exists, with `owner` as its parent.
// Returns whether it was created.
template <class T, class... A>
bool instantiateChild(const Kel::Entity& owner, const char* attr, Kel::Ptr<T>& slot, A&&... a) {
  if (slot) return false;
  slot = Kel::Ptr<T>(Kel::Access::create<T>(std::forward<A>(a)...));
  slot->parentIs(&owner, attr);
  return true;
}

// Where `key` is in a hash set of keys, or where it would be: a review resumes there. Exact also
// among keys that share a hash, whose relative order a deletion does not change.
template <class Set, class Key>
auto positionOf(const Set& set, const Key& key) {
  const uint32_t h = key.hash();
  auto first = set.lowerBoundHash(h);
  for (auto at = first; at != set.end() && at->hash() == h; ++at) {
    if (*at == key) return at;
  }
  return first;
}

// Clears the parent link of a single child whose owner is going away.
template <class T>
void orphan(const Kel::Ptr<T>& child) noexcept {
  if (child) const_cast<std::remove_const_t<T>&>(*child).parentIs(nullptr, nullptr);
}

}  // namespace detail

}  // namespace Leak

// One leaked route as seen from its source VRF. Filed everywhere under the key of its route.
class LeakRoute : public Kel::Entity {
 public:
  KEL_ENTITY(LeakRoute, "Routing::Protocol::LeakRoute");
  class NotifieeConst : public Kel::NotifieeConstOf<LeakRoute> {};
  KEL_CREATOR(LeakRoute);

  // The source VRF and address family.
  KEL_CTOR_PARAM(VrfIdAf, vrfAf);
  // The protocol's route being leaked; never null.
  KEL_CTOR_PARAM(Kel::Ptr<Routing::Route const>, route);

  // The key of `route`. Read through the route rather than copied, as there are millions of these.
  const Routing::RouteKey& key() const noexcept { return route_->key(); }
  const Routing::RouteKey& kelKey() const noexcept { return route_->key(); }
  std::string name() const override { return Kel::Strep<Routing::RouteKey>::print(key()); }

  void kelCheckCtorParams(const VrfIdAf& vrfAf, const Kel::Ptr<Routing::Route const>& route) const {
    Kel::checkCtorParam(*this, "vrfAf", vrfAf_, vrfAf);
    Kel::checkCtorParam(*this, "route", route_, route);
  }

 private:
  LeakRoute(const VrfIdAf& vrfAf, const Kel::Ptr<Routing::Route const>& route);
  // As created by LeakRouteDir, which files it under `key` (the route's key).
  LeakRoute(const Routing::RouteKey& key, const VrfIdAf& vrfAf,
            const Kel::Ptr<Routing::Route const>& route);
};
KEL_FACTORY(LeakRoute, leakRouteFactory)

// Owner of the leak routes of one source VRF.
class LeakRouteDir : public Kel::Entity {
 public:
  KEL_ENTITY(LeakRouteDir, "Routing::Protocol::LeakRouteDir");
  class NotifieeConst : public Kel::NotifieeConstOf<LeakRouteDir> {
   public:
    virtual void onLeakRoute(const Routing::RouteKey&) {}
  };
  KEL_CREATOR(LeakRouteDir);
  ~LeakRouteDir() override { Leak::detail::orphanMembers(leakRoute_); }

  // Creates the leak route of `route` unless its key is present, and returns the one filed there.
  // A present one with another vrfAf or route is refused with the name-in-use error: to point a
  // key at another route, delete the old leak route first.
  Kel::Ptr<LeakRoute> leakRouteIs(const VrfIdAf& vrfAf,
                                  const Kel::Ptr<Routing::Route const>& route);
  KEL_DETAIL_COLL_READERS(LeakRoute, Routing::RouteKey, leakRoute, LeakRoute)
  KEL_DETAIL_COLL_DELETERS(Routing::RouteKey, leakRoute, LeakRoute, true)

 private:
  Kel::EntityHashCollection<LeakRoute, Routing::RouteKey> leakRoute_;
  [[maybe_unused]] static inline const bool kelAttr_leakRoute =
      Kel::registerAttr(kTypeName, "leakRoute", "LeakRoute", Kel::AttrKind::collection);

  LeakRouteDir() = default;
};
KEL_FACTORY(LeakRouteDir, leakRouteDirFactory)

// The leak routes of one source VRF destined to one destination VRF.
class LeakRouteList : public Kel::Entity {
 public:
  KEL_ENTITY(LeakRouteList, "Routing::Protocol::LeakRouteList");
  class NotifieeConst : public Kel::NotifieeConstOf<LeakRouteList> {
   public:
    virtual void onLeakRoute(const Routing::RouteKey&) {}
  };
  KEL_CREATOR(LeakRouteList);

  // srcVrf: the source, dstVrf: the destination.
  KEL_KEY(VrfPairAf, key);
  KEL_PTR_COLL(LeakRoute const, Routing::RouteKey, leakRoute, LeakRoute);

 private:
  explicit LeakRouteList(const VrfPairAf& key) : key_(key) {}
};
KEL_FACTORY(LeakRouteList, leakRouteListFactory)

// All LeakRouteLists of one source VRF, one per destination.
class LeakRouteListSet : public Kel::Entity {
 public:
  KEL_ENTITY(LeakRouteListSet, "Routing::Protocol::LeakRouteListSet");
  class NotifieeConst : public Kel::NotifieeConstOf<LeakRouteListSet> {
   public:
    virtual void onLeakRouteList(const VrfPairAf&) {}
  };
  KEL_CREATOR(LeakRouteListSet);
  ~LeakRouteListSet() override { Leak::detail::orphanMembers(leakRouteList_); }

  // The source VRF.
  KEL_KEY(VrfIdAf, key);
  KEL_ENTITY_COLL(LeakRouteList, VrfPairAf, leakRouteList, LeakRouteList);

 private:
  explicit LeakRouteListSet(const VrfIdAf& key) : key_(key) {}
};
KEL_FACTORY(LeakRouteListSet, leakRouteListSetFactory)

// The LeakRouteListSets of all source VRFs.
class LeakRouteListSetDir : public Kel::Entity {
 public:
  KEL_ENTITY(LeakRouteListSetDir, "Routing::Protocol::LeakRouteListSetDir");
  class NotifieeConst : public Kel::NotifieeConstOf<LeakRouteListSetDir> {
   public:
    virtual void onLrlSet(const VrfIdAf&) {}
  };
  KEL_CREATOR(LeakRouteListSetDir);

  KEL_PTR_COLL(LeakRouteListSet, VrfIdAf, lrlSet, LrlSet);

 private:
  LeakRouteListSetDir() = default;
};
KEL_FACTORY(LeakRouteListSetDir, leakRouteListSetDirFactory)

// Every LeakRouteList, from any source, destined to one destination VRF.
class LeakRouteListPtrSet : public Kel::Entity {
 public:
  KEL_ENTITY(LeakRouteListPtrSet, "Routing::Protocol::LeakRouteListPtrSet");
  class NotifieeConst : public Kel::NotifieeConstOf<LeakRouteListPtrSet> {
   public:
    virtual void onLeakRouteList(const VrfPairAf&) {}
  };
  KEL_CREATOR(LeakRouteListPtrSet);

  // The destination VRF.
  KEL_KEY(VrfIdAf, key);
  KEL_PTR_COLL(LeakRouteList const, VrfPairAf, leakRouteList, LeakRouteList);

 private:
  explicit LeakRouteListPtrSet(const VrfIdAf& key) : key_(key) {}
};
KEL_FACTORY(LeakRouteListPtrSet, leakRouteListPtrSetFactory)

// The LeakRouteListPtrSets of all destination VRFs.
class LeakRouteListPtrSetDir : public Kel::Entity {
 public:
  KEL_ENTITY(LeakRouteListPtrSetDir, "Routing::Protocol::LeakRouteListPtrSetDir");
  class NotifieeConst : public Kel::NotifieeConstOf<LeakRouteListPtrSetDir> {
   public:
    virtual void onLrlpSet(const VrfIdAf&) {}
  };
  KEL_CREATOR(LeakRouteListPtrSetDir);

  KEL_PTR_COLL(LeakRouteListPtrSet, VrfIdAf, lrlpSet, LrlpSet);

 private:
  LeakRouteListPtrSetDir() = default;
};
KEL_FACTORY(LeakRouteListPtrSetDir, leakRouteListPtrSetDirFactory)

// The routes leaked into one destination VRF: the output of route leaking, read by the agent.
class LeakRouteConfig : public Kel::Entity {
 public:
  KEL_ENTITY(LeakRouteConfig, "Routing::Protocol::LeakRouteConfig");
  class NotifieeConst : public Kel::NotifieeConstOf<LeakRouteConfig> {
   public:
    virtual void onLeakRoute(const Routing::RouteKey&) {}
  };
  KEL_CREATOR(LeakRouteConfig);

  // The destination VRF.
  KEL_KEY(VrfIdAf, key);
  KEL_PTR_COLL(LeakRoute const, Routing::RouteKey, leakRoute, LeakRoute);

 private:
  explicit LeakRouteConfig(const VrfIdAf& key) : key_(key) {}
};
KEL_FACTORY(LeakRouteConfig, leakRouteConfigFactory)

}  // namespace Routing::Protocol
