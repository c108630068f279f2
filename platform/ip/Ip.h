// Interface status of the IP stacks, per VRF, as the platform publishes it at "ip/status" and
// "ip6/status".
//
//   Ip::Status --vrfIpIntfStatus--> VrfIpIntfStatus (one VRF) --ipIntfStatus--> IpIntfStatus
//   Ip6::Status --vrfIp6IntfStatus--> VrfIp6IntfStatus (one VRF) --ip6IntfStatus--> Ip6::IntfStatus
//
// The library only reads these trees: the root waits for a VRF's entry before it builds a
// container, and the interface state machine follows the per-interface entries. Whoever plays the
// platform (the agent, a test) writes them. Parents own their children, so removing a VRF's entry
// removes its interfaces with it.
//
// The two families are separate namespaces with deliberately parallel shapes, not one template:
// on a router they are two independently generated models, and readers name them that way.
#pragma once

#include <cstdint>

#include "platform/kel/Attribute.h"
#include "platform/l3/L3.h"
#include "platform/velnet/Velnet.h"

namespace Ip {

// One interface's IPv4 state in one VRF.
class IpIntfStatus : public Kel::Entity {
 public:
  KEL_ENTITY(IpIntfStatus, "Ip::IpIntfStatus");
  class NotifieeConst : public Kel::NotifieeConstOf<IpIntfStatus> {
   public:
    virtual void onDpRoutingEnabled() {}
    virtual void onAddrWithMask() {}
    virtual void onMtu() {}
  };
  KEL_CREATOR(IpIntfStatus);

  KEL_KEY(Velnet::IntfId, intfId);
  // Whether the data plane routes on this interface: the one fact routing decisions depend on.
  KEL_SCALAR(bool, dpRoutingEnabled, DpRoutingEnabled);
  // The primary address with its subnet length; empty while the interface has none.
  KEL_SCALAR(Velnet::IpGenPrefix, addrWithMask, AddrWithMask);
  KEL_SCALAR(uint32_t, mtu, Mtu);

 private:
  explicit IpIntfStatus(const Velnet::IntfId& intfId) : intfId_(intfId) {}
};
KEL_FACTORY(IpIntfStatus, ipIntfStatusFactory)

// The IPv4 interfaces of one VRF.
class VrfIpIntfStatus : public Kel::Entity {
 public:
  KEL_ENTITY(VrfIpIntfStatus, "Ip::VrfIpIntfStatus");
  class NotifieeConst : public Kel::NotifieeConstOf<VrfIpIntfStatus> {
   public:
    virtual void onIpIntfStatus(const Velnet::IntfId&) {}
  };
  KEL_CREATOR(VrfIpIntfStatus);

  KEL_KEY(L3::VrfName, vrfName);
  KEL_ENTITY_COLL(Ip::IpIntfStatus, Velnet::IntfId, ipIntfStatus, IpIntfStatus);

 private:
  explicit VrfIpIntfStatus(const L3::VrfName& vrfName) : vrfName_(vrfName) {}
};
KEL_FACTORY(VrfIpIntfStatus, vrfIpIntfStatusFactory)

// Every VRF's IPv4 interfaces, by VRF name. Created empty by type name when "ip/status" is mounted.
class Status : public Kel::Entity {
 public:
  KEL_ENTITY(Status, "Ip::Status");
  class NotifieeConst : public Kel::NotifieeConstOf<Status> {
   public:
    virtual void onVrfIpIntfStatus(const L3::VrfName&) {}
  };
  KEL_CREATOR(Status);

  KEL_ENTITY_COLL(Ip::VrfIpIntfStatus, L3::VrfName, vrfIpIntfStatus, VrfIpIntfStatus);

 private:
  Status() = default;
};
KEL_FACTORY(Status, statusFactory)

}  // namespace Ip

namespace Ip6 {

// One interface's IPv6 state in one VRF.
class IntfStatus : public Kel::Entity {
 public:
  KEL_ENTITY(IntfStatus, "Ip6::IntfStatus");
  class NotifieeConst : public Kel::NotifieeConstOf<IntfStatus> {
   public:
    virtual void onDpRoutingEnabled() {}
    virtual void onAddrWithMask() {}
    virtual void onLinkLocalAddr() {}
    virtual void onMtu() {}
  };
  KEL_CREATOR(IntfStatus);

  KEL_KEY(Velnet::IntfId, intfId);
  KEL_SCALAR(bool, dpRoutingEnabled, DpRoutingEnabled);
  // The primary global address with its prefix length; empty while the interface has none.
  KEL_SCALAR(Velnet::IpGenPrefix, addrWithMask, AddrWithMask);
  // The fe80::/10 address that link-local next hops on this interface resolve against.
  KEL_SCALAR(Velnet::IpGenAddr, linkLocalAddr, LinkLocalAddr);
  KEL_SCALAR(uint32_t, mtu, Mtu);

 private:
  explicit IntfStatus(const Velnet::IntfId& intfId) : intfId_(intfId) {}
};
KEL_FACTORY(IntfStatus, intfStatusFactory)

// The IPv6 interfaces of one VRF.
class VrfIp6IntfStatus : public Kel::Entity {
 public:
  KEL_ENTITY(VrfIp6IntfStatus, "Ip6::VrfIp6IntfStatus");
  class NotifieeConst : public Kel::NotifieeConstOf<VrfIp6IntfStatus> {
   public:
    virtual void onIp6IntfStatus(const Velnet::IntfId&) {}
  };
  KEL_CREATOR(VrfIp6IntfStatus);

  KEL_KEY(L3::VrfName, vrfName);
  KEL_ENTITY_COLL(Ip6::IntfStatus, Velnet::IntfId, ip6IntfStatus, Ip6IntfStatus);

 private:
  explicit VrfIp6IntfStatus(const L3::VrfName& vrfName) : vrfName_(vrfName) {}
};
KEL_FACTORY(VrfIp6IntfStatus, vrfIp6IntfStatusFactory)

// Every VRF's IPv6 interfaces, by VRF name. Created empty by type name when "ip6/status" is
// mounted.
class Status : public Kel::Entity {
 public:
  KEL_ENTITY(Status, "Ip6::Status");
  class NotifieeConst : public Kel::NotifieeConstOf<Status> {
   public:
    virtual void onVrfIp6IntfStatus(const L3::VrfName&) {}
  };
  KEL_CREATOR(Status);

  KEL_ENTITY_COLL(Ip6::VrfIp6IntfStatus, L3::VrfName, vrfIp6IntfStatus, VrfIp6IntfStatus);

 private:
  Status() = default;
};
KEL_FACTORY(Status, statusFactory)

}  // namespace Ip6
