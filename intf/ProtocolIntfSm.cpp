#include "intf/ProtocolIntfSm.h"

#include "platform/kel/Assert.h"
#include "platform/kel/Reflection.h"
#include "platform/kel/Trace.h"

namespace Routing::Protocol {

namespace {
constexpr const char* kTraceSource = "ProtocolIntfSm";
Kel::TraceHandle& gTrace = Kel::TraceHandle::handle("Quill::IntfSm");
}  // namespace

IntfSm::IntfSm(const Kel::Ptr<IntfStatus>& intfStatus) : intfStatus_(intfStatus) {
  intfStatusReactor_.is(this, Kel::Ptr<IntfStatus const>(intfStatus_));
  // Interfaces already present get their reactors before the VRF entry is watched, so that none
  // is missed and none is announced as new.
  if (auto* v4 = dynamic_cast<Ipv4IntfStatus*>(intfStatus_.get()); v4 && v4->status()) {
    for (const auto& entry : v4->status()->ipIntfStatusColl()) ipv4IntfStatusIs(entry);
  } else if (auto* v6 = dynamic_cast<Ipv6IntfStatus*>(intfStatus_.get()); v6 && v6->status()) {
    for (const auto& entry : v6->status()->ip6IntfStatusColl()) ipv6IntfStatusIs(entry);
  }
  handleInitialized();
}

void IntfSm::intfStatusDel() {
  intfStatusReactor_.clear();
  intfStatus_ = nullptr;
}

void IntfSm::ipv4IntfStatusNotify(const Velnet::IntfId& intfId) const {
  notify(&NotifieeConst::onIpv4IntfStatus, intfId);
}

void IntfSm::ipv6IntfStatusNotify(const Velnet::IntfId& intfId) const {
  notify(&NotifieeConst::onIpv6IntfStatus, intfId);
}

void IntfSm::handleInitialized() {
  KEL_TRACE(gTrace, 8, "handleInitialized");
  initializedIs(true);
  if (auto* v4 = dynamic_cast<Ipv4IntfStatus*>(intfStatus_.get())) {
    KEL_TRACE(gTrace, 8,
              "handleInitialized"
                  << "(IPv4)");
    ipv4StatusIs(v4->status());
  } else if (auto* v6 = dynamic_cast<Ipv6IntfStatus*>(intfStatus_.get())) {
    KEL_TRACE(gTrace, 8,
              "handleInitialized"
                  << "(IPv6)");
    ipv6StatusIs(v6->status());
  } else {
    KEL_ASSERT(0 && "A derived type of IntfStatus must be supplied as a constructor arg");
  }
}

void IntfSm::handleIntfStatus(Velnet::IntfId intfId) {
  KEL_TRACE(gTrace, 8,
            "handleIntfStatus"
                << "(" << intfId << ")");
  if (intfStatus_) intfStatus_->intfStatusChangedInc(1);
}

void IntfSm::KelIpv4Status::onIpIntfStatus(const Velnet::IntfId& intfId) {
  if (isZombie()) return;
  owner()->handleIntfStatus(intfId);
  // The counter's notifiees may have dropped the machine meanwhile (see the header).
  if (isZombie()) return;
  if (auto entry = notifier()->ipIntfStatus(intfId)) {
    owner()->ipv4IntfStatusIs(entry);
  } else {
    owner()->ipv4IntfStatusDel(intfId);
  }
}

void IntfSm::KelIpv6Status::onIp6IntfStatus(const Velnet::IntfId& intfId) {
  if (isZombie()) return;
  owner()->handleIntfStatus(intfId);
  if (isZombie()) return;
  if (auto entry = notifier()->ip6IntfStatus(intfId)) {
    owner()->ipv6IntfStatusIs(entry);
  } else {
    owner()->ipv6IntfStatusDel(intfId);
  }
}

void IntfSm::KelIpv4IntfStatus::onDpRoutingEnabled() {
  if (isZombie()) return;
  owner()->handleIntfStatus(fwkKey());
}

void IntfSm::KelIpv6IntfStatus::onDpRoutingEnabled() {
  if (isZombie()) return;
  owner()->handleIntfStatus(fwkKey());
}

// The model as reflection shows it; the reactor macros leave registration to the type.
[[maybe_unused]] static const bool kelIntfSmAttrs = [] {
  constexpr const char* t = IntfSm::kTypeName;
  Kel::registerAttr(t, "intfStatus", "Routing::Protocol::IntfStatus", Kel::AttrKind::ctorParam);
  Kel::registerAttr(t, "ipv4Status", "Ip::VrfIpIntfStatus", Kel::AttrKind::reactor);
  Kel::registerAttr(t, "ipv6Status", "Ip6::VrfIp6IntfStatus", Kel::AttrKind::reactor);
  Kel::registerAttr(t, "ipv4IntfStatus", "Ip::IpIntfStatus", Kel::AttrKind::reactorCollection);
  Kel::registerAttr(t, "ipv6IntfStatus", "Ip6::IntfStatus", Kel::AttrKind::reactorCollection);
  Kel::registerAttr(t, "initialized", "bool", Kel::AttrKind::scalar);
  return true;
}();

KEL_REGISTER_HANDLER(IntfSm, handleIntfStatus, "intfId");
KEL_REGISTER_HANDLER(IntfSm, handleInitialized);

}  // namespace Routing::Protocol
