// Next hops watched by BFD, per container, with the routes that depend on them.
#pragma once

#include <cstdint>
#include <string>

#include "keys/ProtocolContainerKey.h"
#include "platform/kel/Attribute.h"
#include "platform/rib/RibTypes.h"
#include "platform/routing/RouteList.h"
#include "platform/velnet/Velnet.h"

namespace Routing::Protocol {

// A watched next hop: its address, and for an IPv6 link-local address the interface on which
// it is valid (empty otherwise).
class NextHopBfdKey {
 public:
  static constexpr bool kelHasStrep = true;
  static constexpr const char* kTypeName = "Routing::Protocol::NextHopBfdKey";

  NextHopBfdKey() = default;
  NextHopBfdKey(const Velnet::IpGenAddr& nextHopAddr, const Velnet::IntfId& intfId)
      : nextHopAddr_(nextHopAddr), intfId_(intfId) {}
  explicit NextHopBfdKey(Kel::TextCursor& c);

  const Velnet::IpGenAddr& nextHopAddr() const noexcept { return nextHopAddr_; }
  const Velnet::IntfId& intfId() const noexcept { return intfId_; }

  bool operator==(const NextHopBfdKey&) const = default;
  bool operator<(const NextHopBfdKey& o) const noexcept;
  // The address hash (over its 16-byte IPv6 form) XOR the interface's hash.
  uint32_t hash() const noexcept { return nextHopAddr_.hash() ^ intfId_.hash(); }
  std::string strep() const;

 private:
  Velnet::IpGenAddr nextHopAddr_;
  Velnet::IntfId intfId_;
};

class BfdTrackedNextHop : public Kel::Entity {
 public:
  KEL_ENTITY(BfdTrackedNextHop, "Routing::Protocol::BfdTrackedNextHop");
  class NotifieeConst : public Kel::NotifieeConstOf<BfdTrackedNextHop> {
   public:
    virtual void onBfdStatus() {}
    virtual void onViaKey() {}
    virtual void onResolvedIntf() {}
    virtual void onDependentRoute(const Routing::RouteKey&) {}
  };
  KEL_KEY(NextHopBfdKey, nextHopBfdKey);
  // True while the session is usable (up or administratively down).
  KEL_SCALAR(bool, bfdStatus, BfdStatus);
  KEL_SCALAR(Rib::ViaKey, viaKey, ViaKey);
  KEL_SCALAR(Velnet::IntfId, resolvedIntf, ResolvedIntf);
  KEL_SET(Routing::RouteKey, dependentRoute, DependentRoute);

 private:
  explicit BfdTrackedNextHop(const NextHopBfdKey& key) : nextHopBfdKey_(key) {}
};

class BfdTrackedNextHopStatus : public Kel::Entity {
 public:
  KEL_ENTITY(BfdTrackedNextHopStatus, "Routing::Protocol::BfdTrackedNextHopStatus");
  class NotifieeConst : public Kel::NotifieeConstOf<BfdTrackedNextHopStatus> {
   public:
    virtual void onNextHop(const NextHopBfdKey&) {}
  };
  KEL_KEY(ContainerKey, containerKey);
  KEL_ENTITY_COLL(BfdTrackedNextHop, NextHopBfdKey, nextHop, NextHop);

 private:
  explicit BfdTrackedNextHopStatus(const ContainerKey& key) : containerKey_(key) {}
};

class BfdTrackedNextHopByContainer : public Kel::Entity {
 public:
  KEL_ENTITY(BfdTrackedNextHopByContainer, "Routing::Protocol::BfdTrackedNextHopByContainer");
  class NotifieeConst : public Kel::NotifieeConstOf<BfdTrackedNextHopByContainer> {
   public:
    virtual void onNextHopStatus(const ContainerKey&) {}
  };
  KEL_CREATOR(BfdTrackedNextHopByContainer);
  KEL_ENTITY_COLL(BfdTrackedNextHopStatus, ContainerKey, nextHopStatus, NextHopStatus);

 private:
  BfdTrackedNextHopByContainer() = default;
};
KEL_FACTORY(BfdTrackedNextHopByContainer, bfdTrackedNextHopByContainerFactory)

}  // namespace Routing::Protocol
