// What the protocol writes into the RIB: routes, the via sets they point at, and the per-via
// configuration the RIB reads labels from.
//
// A route table may belong to one VRF or be shared by all VRFs of a protocol; routes are filed by
// (VRF, prefix) in both cases, so one VRF's routes can be found, and deleted, in a shared table.
// Tables mounted from shared memory have a capacity: an insert past it is refused with a
// RangeException and changes nothing (0 means no limit).
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/kel/Attribute.h"
#include "platform/l3/L3.h"
#include "platform/rib/RibTypes.h"
#include "platform/rib/ViaSet.h"
#include "platform/shmtab/ShmtabCollection.h"
#include "platform/routing/Routing.h"
#include "platform/velnet/Velnet.h"
#include "platform/vrf/VrfId.h"

namespace Routing::Rib {

// The key of a RIB route: its VRF and prefix.
class RouteKey {
 public:
  static constexpr bool kelHasStrep = true;
  static constexpr const char* kTypeName = "Routing::Rib::RouteKey";

  RouteKey() = default;
  RouteKey(Vrf::VrfIdMap::VrfId vrfId, const Velnet::IpGenPrefix& prefix) : vrfId_(vrfId), prefix_(prefix) {}
  explicit RouteKey(Kel::TextCursor& c);

  Vrf::VrfIdMap::VrfId vrfId() const noexcept { return vrfId_; }
  const Velnet::IpGenPrefix& prefix() const noexcept { return prefix_; }

  bool operator==(const RouteKey&) const = default;
  auto operator<=>(const RouteKey&) const = default;
  uint32_t hash() const noexcept;
  std::string strep() const;

 private:
  Vrf::VrfIdMap::VrfId vrfId_ = 0;
  Velnet::IpGenPrefix prefix_;
};

// One RIB route as the protocol configures it.
class Route {
 public:
  static constexpr bool kelHasStrep = true;
  static constexpr const char* kTypeName = "Routing::Rib::Route";
  // Flag bit 0: do not install the route in the FIB.
  static constexpr uint8_t flagNoFibInstall = 0x1;

  Route() = default;
  explicit Route(const RouteKey& key) : key_(key) {}
  explicit Route(Kel::TextCursor& c);

  const RouteKey& key() const noexcept { return key_; }
  const RouteKey& kelKey() const noexcept { return key_; }
  ViaSetKey viaSetKey() const noexcept { return viaSetKey_; }
  void viaSetKeyIs(ViaSetKey k) noexcept { viaSetKey_ = k; }
  uint8_t metricPref() const noexcept { return metricPref_; }
  void metricPrefIs(uint8_t p) noexcept { metricPref_ = p; }
  RoutingProtocol routingProtocol() const noexcept { return routingProtocol_; }
  void routingProtocolIs(RoutingProtocol p) noexcept { routingProtocol_ = p; }
  uint32_t tag() const noexcept { return tag_; }
  void tagIs(uint32_t t) noexcept { tag_ = t; }
  Fib::RouteType fibRouteType() const noexcept { return fibRouteType_; }
  void fibRouteTypeIs(Fib::RouteType t) noexcept { fibRouteType_ = t; }
  Vrf::VrfIdMap::VrfId srcVrfId() const noexcept { return srcVrfId_; }
  void srcVrfIdIs(Vrf::VrfIdMap::VrfId v) noexcept { srcVrfId_ = v; }
  uint8_t flags() const noexcept { return flags_; }
  void flagsIs(uint8_t f) noexcept { flags_ = f; }

  bool operator==(const Route&) const = default;
  std::string strep() const;

 private:
  RouteKey key_;
  ViaSetKey viaSetKey_ = 0;
  uint32_t tag_ = 0;
  Vrf::VrfIdMap::VrfId srcVrfId_ = 0;
  uint8_t metricPref_ = 0;
  RoutingProtocol routingProtocol_ = RoutingProtocol::unknown;
  Fib::RouteType fibRouteType_ = Fib::RouteType::forward;
  uint8_t flags_ = 0;
};

// The protocol's RIB routes of one VRF, or of all VRFs.
class RouteConfig : public Kel::Entity, public KelShmtab::Collection {
 public:
  KEL_ENTITY(RouteConfig, "Routing::Rib::RouteConfig");
  class NotifieeConst : public Kel::NotifieeConstOf<RouteConfig> {
   public:
    virtual void onRoute(const RouteKey&) {}
    virtual void onCapacity() {}
  };
  KEL_CREATOR(RouteConfig);
  KEL_SCALAR(uint32_t, capacity, Capacity);

  // The route at `key`, or null.
  const Route* route(const RouteKey& key) const noexcept { return routes_.find(key); }
  size_t routes() const noexcept { return routes_.size(); }
  const auto& routeColl() const noexcept { return routes_; }
  // Inserts or replaces; silent when the same route is already there.
  void routeAdd(const Route& r);
  // Removes the route; deleting an absent one is harmless. Returns whether one was removed.
  bool routeDel(const RouteKey& key);
  // Removes every route of one VRF (a table shared by all VRFs).
  void doDeleteRoutesForVrf(Vrf::VrfIdMap::VrfId vrfId);
  void routeDelAll();

  void shmtabCapacityIs(uint32_t entries) override { capacityIs(entries); }
  void shmtabCleanup() override { routeDelAll(); }

 private:
  struct KeyOf {
    const RouteKey& operator()(const Route& r) const noexcept { return r.key(); }
  };
  RouteConfig() = default;
  template <class Pred>
  void routeDelWhere(Pred pred);

  Kel::HashTable<Route, KeyOf, RouteKey> routes_;
};
KEL_FACTORY(RouteConfig, routeConfigFactory)

// A via as the RIB's via table holds it: its key and its MPLS label.
class Via {
 public:
  static constexpr bool kelHasStrep = true;
  static constexpr const char* kTypeName = "Routing::Rib::Via";
  // Labels are 20 bits; anything larger means "no label".
  static constexpr uint32_t maxLabel = 0xFFFFF;
  static constexpr uint32_t noLabel = 0xFFFFFFFF;

  Via() = default;
  explicit Via(const ViaKey& key, uint32_t mplsLabel = noLabel) : key_(key), mplsLabel_(mplsLabel) {}
  explicit Via(Kel::TextCursor& c);

  const ViaKey& key() const noexcept { return key_; }
  const ViaKey& kelKey() const noexcept { return key_; }
  uint32_t mplsLabel() const noexcept { return mplsLabel_; }
  bool labelled() const noexcept { return mplsLabel_ <= maxLabel; }

  bool operator==(const Via&) const = default;
  std::string strep() const;

 private:
  ViaKey key_;
  uint32_t mplsLabel_ = noLabel;
};

// A table of vias (the protocol's via configuration for one transport), keyed by via key.
class ViaTable : public Kel::Entity, public KelShmtab::Collection {
 public:
  static constexpr const char* kTypeName = "Routing::Rib::ViaTable";
  class NotifieeConst : public Kel::NotifieeConstOf<ViaTable> {
   public:
    virtual void onVia(const ViaKey&) {}
    virtual void onTransport() {}
    virtual void onRp() {}
    virtual void onCapacity() {}
    virtual void onRibName() {}
  };
  KEL_SCALAR(Transport, transport, Transport);
  KEL_SCALAR(RoutingProtocol, rp, Rp);
  KEL_SCALAR(uint32_t, capacity, Capacity);
  // "rib" or "mrib": the RIB the table configures, taken from its mount path.
  KEL_SCALAR(std::string, ribName, RibName, "rib");

  void shmtabCapacityIs(uint32_t entries) override { capacityIs(entries); }
  void shmtabPathIs(const std::string& path) override;
  void shmtabCleanup() override { viaDelAll(); }

  const Via* via(const ViaKey& key) const noexcept { return vias_.find(key); }
  size_t vias() const noexcept { return vias_.size(); }
  const auto& viaColl() const noexcept { return vias_; }
  void viaIs(const Via& v);
  bool viaDel(const ViaKey& key);
  void viaDelAll();
  // The keys of one VRF's vias (kAllVrfs: of every via), copied so that deleting them is safe.
  static constexpr Vrf::VrfIdMap::VrfId kAllVrfs = 0xFFFFFFFF;
  std::vector<ViaKey> viaKeys(Vrf::VrfIdMap::VrfId vrfId) const;

  // A shared table reports corruption found while walking it; the handler (if any) is told the
  // message. Tests switch corruption on to see how walkers recover.
  bool corrupt() const noexcept { return corrupt_; }
  void corruptIs(bool c) noexcept {
    corrupt_ = c;
    checksLeft_ = SIZE_MAX;
  }
  // The table turns corrupt after `checks` more integrity checks have passed.
  void corruptAfterChecksIs(size_t checks) noexcept { checksLeft_ = checks; }
  // Throws Kel::CorruptionException when the table has been marked corrupt.
  void checkIntegrity() const;
  void corruptionHandlerIs(std::function<void(const std::string&)> h) { corruptionHandler_ = std::move(h); }
  void reportCorruption(const std::string& message) const;
  size_t corruptionReports() const noexcept { return corruptionReports_; }

 protected:
  ViaTable() = default;

 private:
  struct KeyOf {
    const ViaKey& operator()(const Via& v) const noexcept { return v.key(); }
  };
  Kel::HashTable<Via, KeyOf, ViaKey> vias_;
  std::function<void(const std::string&)> corruptionHandler_;
  mutable size_t corruptionReports_ = 0;
  mutable size_t checksLeft_ = SIZE_MAX;
  mutable bool corrupt_ = false;
};

namespace Ip {
// The protocol's IP via configuration (transport IPv4 or IPv6).
class ViaConfig : public ViaTable {
 public:
  static constexpr const char* kTypeName = "Routing::Rib::Ip::ViaConfig";
  const char* typeName() const noexcept override { return kTypeName; }
  using Ptr = Kel::Ptr<ViaConfig>;
  using PtrConst = Kel::Ptr<ViaConfig const>;
  static Ptr ViaConfigIs() { return Ptr(new ViaConfig()); }

 private:
  ViaConfig() = default;
};
inline ViaConfig::Ptr viaConfigFactory() { return ViaConfig::ViaConfigIs(); }
}  // namespace Ip

namespace Evpn {
// The protocol's EVPN via configuration; in a table shared by all VRFs, one VRF's vias can be
// deleted on their own.
class ViaConfig : public ViaTable {
 public:
  static constexpr const char* kTypeName = "Routing::Rib::Evpn::ViaConfig";
  const char* typeName() const noexcept override { return kTypeName; }
  using Ptr = Kel::Ptr<ViaConfig>;
  using PtrConst = Kel::Ptr<ViaConfig const>;
  static Ptr ViaConfigIs() { return Ptr(new ViaConfig()); }
  void doDeleteViasForVrf(Vrf::VrfIdMap::VrfId vrfId);

 private:
  ViaConfig() = default;
};
inline ViaConfig::Ptr viaConfigFactory() { return ViaConfig::ViaConfigIs(); }
}  // namespace Evpn

}  // namespace Routing::Rib
