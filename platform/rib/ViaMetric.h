// What the RIB publishes about the protocol's vias and routes: per VRF, transport and routing
// protocol, a metric for every via it resolved; per VRF, the prefixes it found looping.
//
//   ViaMetricStatusByVrf --vrfStatus--> ViaMetricStatusByTransport (one VRF)
//     --transportStatus--> ViaMetricStatusByProtocol (one transport)
//     --protocolStatus--> ViaMetricStatus (one routing protocol) --viaMetric--> ViaMetric by ViaKey
//
// The RIB service (in this project the agent, or a test) writes these; the library only reads.
#pragma once

#include <cstdint>
#include <string>

#include "platform/kel/Attribute.h"
#include "platform/l3/L3.h"
#include "platform/rib/RibTypes.h"
#include "platform/velnet/Velnet.h"
#include "platform/vrf/VrfId.h"

namespace Routing::Rib {

// The RIB's verdict on one via. The default value means unresolved: a lookup of a via the RIB
// has not resolved yields it. `loopCheck` is the flag byte after the numeric fields: when set,
// routes through the via are checked against the RIB's looping routes.
class ViaMetric {
 public:
  static constexpr bool kelHasStrep = true;
  static constexpr const char* kTypeName = "Routing::Rib::ViaMetric";
  static constexpr uint32_t unresolvedMetric = 0xFFFFFFFF;

  ViaMetric() = default;
  ViaMetric(uint32_t metric, uint8_t distance, bool loopCheck) : metric_(metric), distance_(distance), loopCheck_(loopCheck) {}
  explicit ViaMetric(Kel::TextCursor& c);

  uint32_t metric() const noexcept { return metric_; }
  uint8_t distance() const noexcept { return distance_; }
  bool loopCheck() const noexcept { return loopCheck_; }
  bool resolved() const noexcept { return !(*this == ViaMetric()); }

  bool operator==(const ViaMetric&) const = default;
  std::string strep() const;

 private:
  uint32_t metric_ = unresolvedMetric;
  uint8_t distance_ = 255;
  bool loopCheck_ = false;
};

// The metrics of one routing protocol's vias in one VRF and transport.
class ViaMetricStatus : public Kel::Entity {
 public:
  KEL_ENTITY(ViaMetricStatus, "Routing::Rib::ViaMetricStatus");
  class NotifieeConst : public Kel::NotifieeConstOf<ViaMetricStatus> {
   public:
    virtual void onViaMetric(const ViaKey&) {}
  };
  KEL_CREATOR(ViaMetricStatus);
  KEL_KEY(RoutingProtocol, protocol);
  // Absent vias read as the unresolved default metric.
  KEL_MAP(ViaKey, ViaMetric, viaMetric, ViaMetric);

 private:
  explicit ViaMetricStatus(RoutingProtocol protocol) : protocol_(protocol) {}
};
KEL_FACTORY(ViaMetricStatus, viaMetricStatusFactory)

class ViaMetricStatusByProtocol : public Kel::Entity {
 public:
  KEL_ENTITY(ViaMetricStatusByProtocol, "Routing::Rib::ViaMetricStatusByProtocol");
  class NotifieeConst : public Kel::NotifieeConstOf<ViaMetricStatusByProtocol> {
   public:
    virtual void onProtocolStatus(const RoutingProtocol&) {}
  };
  KEL_CREATOR(ViaMetricStatusByProtocol);
  KEL_KEY(Transport, transport);
  KEL_ENTITY_COLL(ViaMetricStatus, RoutingProtocol, protocolStatus, ProtocolStatus);

 private:
  explicit ViaMetricStatusByProtocol(Transport transport) : transport_(transport) {}
};

class ViaMetricStatusByTransport : public Kel::Entity {
 public:
  KEL_ENTITY(ViaMetricStatusByTransport, "Routing::Rib::ViaMetricStatusByTransport");
  class NotifieeConst : public Kel::NotifieeConstOf<ViaMetricStatusByTransport> {
   public:
    virtual void onTransportStatus(const Transport&) {}
  };
  KEL_CREATOR(ViaMetricStatusByTransport);
  KEL_KEY(Vrf::VrfIdMap::VrfId, vrfId);
  KEL_ENTITY_COLL(ViaMetricStatusByProtocol, Transport, transportStatus, TransportStatus);

 private:
  explicit ViaMetricStatusByTransport(Vrf::VrfIdMap::VrfId vrfId) : vrfId_(vrfId) {}
};

// The root of the tree, mounted at "routing/rib/viaMetricStatus" (and "routing/mrib/...").
class ViaMetricStatusByVrf : public Kel::Entity {
 public:
  KEL_ENTITY(ViaMetricStatusByVrf, "Routing::Rib::ViaMetricStatusByVrf");
  class NotifieeConst : public Kel::NotifieeConstOf<ViaMetricStatusByVrf> {
   public:
    virtual void onVrfStatus(const Vrf::VrfIdMap::VrfId&) {}
  };
  KEL_CREATOR(ViaMetricStatusByVrf);
  KEL_ENTITY_COLL(ViaMetricStatusByTransport, Vrf::VrfIdMap::VrfId, vrfStatus, VrfStatus);

  // The status of (vrf, transport, protocol), created with its branch if absent: how the RIB
  // side publishes.
  Kel::Ptr<ViaMetricStatus> viaMetricStatusIs(Vrf::VrfIdMap::VrfId vrf, Transport t, RoutingProtocol p);
  // The status of (vrf, transport, protocol), or null.
  Kel::Ptr<ViaMetricStatus> viaMetricStatus(Vrf::VrfIdMap::VrfId vrf, Transport t, RoutingProtocol p) const;

 private:
  ViaMetricStatusByVrf() = default;
};
KEL_FACTORY(ViaMetricStatusByVrf, viaMetricStatusByVrfFactory)

// The prefixes of one VRF that the RIB found looping. An entry holds how many times the loop was
// seen; 0 is the empty entry, which means no loop.
class LoopingRouteStatus : public Kel::Entity {
 public:
  KEL_ENTITY(LoopingRouteStatus, "Routing::Rib::LoopingRouteStatus");
  class NotifieeConst : public Kel::NotifieeConstOf<LoopingRouteStatus> {
   public:
    virtual void onLoopingRoute(const Velnet::IpGenPrefix&) {}
  };
  KEL_CREATOR(LoopingRouteStatus);
  KEL_KEY(L3::VrfName, vrfName);
  KEL_MAP(Velnet::IpGenPrefix, uint32_t, loopingRoute, LoopingRoute);

 private:
  explicit LoopingRouteStatus(const L3::VrfName& vrfName) : vrfName_(vrfName) {}
};
KEL_FACTORY(LoopingRouteStatus, loopingRouteStatusFactory)

// Looping-route status per VRF name, mounted at "routing/rib/loopingRouteStatus" and the like.
class LoopingRouteStatusByVrf : public Kel::Entity {
 public:
  KEL_ENTITY(LoopingRouteStatusByVrf, "Routing::Rib::LoopingRouteStatusByVrf");
  class NotifieeConst : public Kel::NotifieeConstOf<LoopingRouteStatusByVrf> {
   public:
    virtual void onLoopingRouteStatus(const L3::VrfName&) {}
  };
  KEL_CREATOR(LoopingRouteStatusByVrf);
  KEL_ENTITY_COLL(LoopingRouteStatus, L3::VrfName, loopingRouteStatus, LoopingRouteStatus);

 private:
  LoopingRouteStatusByVrf() = default;
};
KEL_FACTORY(LoopingRouteStatusByVrf, loopingRouteStatusByVrfFactory)

}  // namespace Routing::Rib
