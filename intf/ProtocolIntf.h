// Interface status as route processing sees it: "is routing enabled on this interface in this
// VRF?", plus a counter that moves whenever any answer may have moved.
//
// The counter says nothing about which interface changed, on purpose: a reader keeps whatever it
// derived from `intf(...)` until the counter moves, then re-asks what it cares about. That keeps
// the platform's per-interface churn (addresses, MTUs, interfaces of no interest) from fanning out
// into per-route work, and lets one notifiee list serve every reader. The interface state machine
// (ProtocolIntfSm.h) is the only writer of the counter.
//
// `IntfStatus` hides the address family. The agent builds an `Ipv4IntfStatus` or `Ipv6IntfStatus`
// over the VRF's entry of the platform status and hands it to the container; `intf` reads that
// entry at the time of the call, so an answer is never stale even between counter bumps.
#pragma once

#include <cstdint>

#include "platform/ip/Ip.h"
#include "platform/kel/Attribute.h"
#include "platform/velnet/Velnet.h"

namespace Routing::Protocol {

class IntfStatus : public Kel::Entity {
 public:
  KEL_ENTITY(IntfStatus, "Routing::Protocol::IntfStatus");
  class NotifieeConst : public Kel::NotifieeConstOf<IntfStatus> {
   public:
    virtual void onIntfStatusChanged() {}
  };
  KEL_CREATOR(IntfStatus);

  // True when routing is enabled on the interface. Only the derived types can answer; the base's
  // version is a programming error and fails an assertion.
  virtual bool intf(Velnet::IntfId intfId) const;
  [[maybe_unused]] static inline const bool kelAttr_intf =
      Kel::registerAttr(kTypeName, "intf", "bool", Kel::AttrKind::query);

  // Bumped once per interface event; wraps at 2^32. `xIs` and `xInc` notify only on a change.
  KEL_COUNTER(uint32_t, intfStatusChanged, IntfStatusChanged);

 protected:
  IntfStatus() = default;
};
KEL_FACTORY(IntfStatus, intfStatusFactory)

// Answers from one VRF's IPv4 interface status.
class Ipv4IntfStatus : public IntfStatus {
 public:
  KEL_ENTITY(Ipv4IntfStatus, "Routing::Protocol::Ipv4IntfStatus");
  // Same notifications as the base; only the notifier's type is narrower.
  class NotifieeConst : public IntfStatus::NotifieeConst {
   public:
    using Notifier = Ipv4IntfStatus;
    Kel::Ptr<Ipv4IntfStatus const> notifier() const noexcept {
      return static_cast<Ipv4IntfStatus const*>(notifierBase());
    }
    void notifierIs(const Kel::Ptr<Ipv4IntfStatus const>& n) {
      IntfStatus::NotifieeConst::notifierIs(n);
    }
  };
  KEL_CREATOR(Ipv4IntfStatus);

  // False for an interface absent from the VRF, or for every interface when `status` is null.
  bool intf(Velnet::IntfId intfId) const override;

  // The VRF's entry of "ip/status"; fixed for the object's life, may be null.
  const Kel::Ptr<::Ip::VrfIpIntfStatus const>& status() const noexcept { return status_; }

 private:
  explicit Ipv4IntfStatus(const Kel::Ptr<::Ip::VrfIpIntfStatus const>& status) : status_(status) {}

  // Registered here rather than by the base so that this type's entry lists the whole model.
  [[maybe_unused]] static inline const bool kelAttrsInherited_ =
      Kel::registerAttr(kTypeName, "intf", "bool", Kel::AttrKind::query) &&
      Kel::registerAttr(kTypeName, "intfStatusChanged", "uint32_t", Kel::AttrKind::counter) &&
      Kel::registerAttr(kTypeName, "status", "Ip::VrfIpIntfStatus", Kel::AttrKind::ctorParam);

  Kel::Ptr<::Ip::VrfIpIntfStatus const> status_;
};
KEL_FACTORY(Ipv4IntfStatus, ipv4IntfStatusFactory)

// Answers from one VRF's IPv6 interface status.
class Ipv6IntfStatus : public IntfStatus {
 public:
  KEL_ENTITY(Ipv6IntfStatus, "Routing::Protocol::Ipv6IntfStatus");
  class NotifieeConst : public IntfStatus::NotifieeConst {
   public:
    using Notifier = Ipv6IntfStatus;
    Kel::Ptr<Ipv6IntfStatus const> notifier() const noexcept {
      return static_cast<Ipv6IntfStatus const*>(notifierBase());
    }
    void notifierIs(const Kel::Ptr<Ipv6IntfStatus const>& n) {
      IntfStatus::NotifieeConst::notifierIs(n);
    }
  };
  KEL_CREATOR(Ipv6IntfStatus);

  // False for an interface absent from the VRF, or for every interface when `status` is null.
  bool intf(Velnet::IntfId intfId) const override;

  // The VRF's entry of "ip6/status"; fixed for the object's life, may be null.
  const Kel::Ptr<::Ip6::VrfIp6IntfStatus const>& status() const noexcept { return status_; }

 private:
  explicit Ipv6IntfStatus(const Kel::Ptr<::Ip6::VrfIp6IntfStatus const>& status)
      : status_(status) {}

  [[maybe_unused]] static inline const bool kelAttrsInherited_ =
      Kel::registerAttr(kTypeName, "intf", "bool", Kel::AttrKind::query) &&
      Kel::registerAttr(kTypeName, "intfStatusChanged", "uint32_t", Kel::AttrKind::counter) &&
      Kel::registerAttr(kTypeName, "status", "Ip6::VrfIp6IntfStatus", Kel::AttrKind::ctorParam);

  Kel::Ptr<::Ip6::VrfIp6IntfStatus const> status_;
};
KEL_FACTORY(Ipv6IntfStatus, ipv6IntfStatusFactory)

}  // namespace Routing::Protocol
