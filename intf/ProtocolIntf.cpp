#include "intf/ProtocolIntf.h"

#include "platform/kel/Assert.h"
#include "platform/kel/Reflection.h"

namespace Routing::Protocol {

bool IntfStatus::intf(Velnet::IntfId) const {
  KEL_ASSERT(0 && "Must be implemented in derived class");
  return false;
}

bool Ipv4IntfStatus::intf(Velnet::IntfId intfId) const {
  if (!status_) return false;
  auto entry = status_->ipIntfStatus(intfId);
  return entry && entry->dpRoutingEnabled();
}

bool Ipv6IntfStatus::intf(Velnet::IntfId intfId) const {
  if (!status_) return false;
  auto entry = status_->ip6IntfStatus(intfId);
  return entry && entry->dpRoutingEnabled();
}

// The agent's own route processing may ask through reflection; a call reaches the derived
// type's answer, so each type that can be named registers it.
KEL_REGISTER_HANDLER(IntfStatus, intf, "intfId");
KEL_REGISTER_HANDLER(Ipv4IntfStatus, intf, "intfId");
KEL_REGISTER_HANDLER(Ipv6IntfStatus, intf, "intfId");

}  // namespace Routing::Protocol
