// The interface state machine: turns each interface event of one VRF's platform IP status into
// one bump of an IntfStatus counter (ProtocolIntf.h).
//
// It watches two levels of the platform tree: the VRF's entry (interfaces arriving and leaving)
// and, through one reactor per interface, each interface's `dpRoutingEnabled` flag. An interface
// added, an interface removed and a flip of its flag each bump the counter exactly once; nothing
// else about an interface does, so address or MTU churn never wakes the counter's readers.
//
// What stays true:
//  - there is one `ipv4IntfStatus` (or `ipv6IntfStatus`) reactor for every interface present in
//    the watched VRF entry and none for any other: the constructor creates them for interfaces
//    already there, and the VRF reactor keeps the collection in step afterwards;
//  - only one family is watched, the one of the IntfStatus given at construction; any other
//    IntfStatus is a programming error caught when the machine initialises;
//  - reactors hold plain pointers back to the machine. The counter's notifiees run inside our
//    handlers and may drop the machine; a reactor that finds itself a zombie after bumping the
//    counter therefore touches its owner no more.
#pragma once

#include "intf/ProtocolIntf.h"
#include "platform/ip/Ip.h"
#include "platform/kel/Reactor.h"
#include "platform/velnet/Velnet.h"

namespace Routing::Protocol {

class IntfSm : public Kel::StateMachine {
 public:
  KEL_ENTITY(IntfSm, "Routing::Protocol::IntfSm");
  class NotifieeConst : public Kel::NotifieeConstOf<IntfSm> {
   public:
    virtual void onIpv4IntfStatus(const Velnet::IntfId&) {}
    virtual void onIpv6IntfStatus(const Velnet::IntfId&) {}
  };
  KEL_CREATOR(IntfSm);

  // On the machine's own output. Nothing reacts to the counter (the machine is its writer); the
  // reactor keeps the input under the same delivery switch as every other watched entity.
  class KelIntfStatus : public Kel::Reactor<IntfSm, IntfStatus> {
   public:
    using Reactor::Reactor;
  };

  // On the VRF's IPv4 entry: interfaces arriving and leaving.
  class KelIpv4Status : public Kel::Reactor<IntfSm, ::Ip::VrfIpIntfStatus> {
   public:
    using Reactor::Reactor;
    void onIpIntfStatus(const Velnet::IntfId& intfId) override;
  };

  class KelIpv6Status : public Kel::Reactor<IntfSm, ::Ip6::VrfIp6IntfStatus> {
   public:
    using Reactor::Reactor;
    void onIp6IntfStatus(const Velnet::IntfId& intfId) override;
  };

  // On one interface's IPv4 status: only its routing flag matters.
  class KelIpv4IntfStatus : public Kel::Reactor<IntfSm, ::Ip::IpIntfStatus> {
   public:
    using Reactor::Reactor;
    void onDpRoutingEnabled() override;
  };

  class KelIpv6IntfStatus : public Kel::Reactor<IntfSm, ::Ip6::IntfStatus> {
   public:
    using Reactor::Reactor;
    void onDpRoutingEnabled() override;
  };

  // The object whose counter is bumped; null once `intfStatusDel` has run, after which events
  // are still followed but bump nothing.
  const Kel::Ptr<IntfStatus>& intfStatus() const noexcept { return intfStatus_; }
  void intfStatusDel();

  // Set by handleInitialized for the family of `intfStatus`; the other stays empty.
  KEL_REACTOR(KelIpv4Status, ipv4Status);
  KEL_REACTOR(KelIpv6Status, ipv6Status);
  // One reactor per interface present in the watched VRF entry, by interface.
  KEL_REACTOR_COLL(KelIpv4IntfStatus, Velnet::IntfId, ipv4IntfStatus);
  KEL_REACTOR_COLL(KelIpv6IntfStatus, Velnet::IntfId, ipv6IntfStatus);
  // Announce an interface's reactor to the machine's notifiees without a change.
  void ipv4IntfStatusNotify(const Velnet::IntfId& intfId) const;
  void ipv6IntfStatusNotify(const Velnet::IntfId& intfId) const;

  // Sets `initialized` and starts watching the VRF entry of `intfStatus`'s family. Asserts that
  // `intfStatus` is an Ipv4IntfStatus or an Ipv6IntfStatus.
  void handleInitialized();
  // Something about `intfId` changed that may change an answer of `intfStatus->intf(...)`.
  void handleIntfStatus(Velnet::IntfId intfId);

 private:
  explicit IntfSm(const Kel::Ptr<IntfStatus>& intfStatus);

  Kel::Ptr<IntfStatus> intfStatus_;
  Kel::ReactorPtr<KelIntfStatus> intfStatusReactor_{this};
};
KEL_FACTORY(IntfSm, intfSmFactory)

}  // namespace Routing::Protocol
