// The BFD application's side: which peers a protocol asks sessions for (AppConfig), and the
// state of each session (AppStatus).
#pragma once

#include <cstdint>
#include <string>

#include "platform/kel/Attribute.h"
#include "platform/l3/L3.h"
#include "platform/velnet/Velnet.h"

namespace Bfd {

// RFC 5880 session states, with its numbering.
enum class OperState : uint8_t { adminDown = 0, down = 1, init = 2, up = 3 };
const char* stringValue(OperState s) noexcept;
std::ostream& operator<<(std::ostream& os, OperState s);

// One BFD peer: the address, its VRF, and for an IPv6 link-local address the interface on which
// it is valid (empty otherwise).
class Peer {
 public:
  static constexpr bool kelHasStrep = true;
  static constexpr const char* kTypeName = "Bfd::Peer";

  Peer() = default;
  Peer(const Velnet::IpGenAddr& addr, const L3::VrfName& vrf, const Velnet::IntfId& intf = Velnet::IntfId())
      : addr_(addr), vrf_(vrf), intf_(intf) {}
  explicit Peer(Kel::TextCursor& c);

  const Velnet::IpGenAddr& addr() const noexcept { return addr_; }
  const L3::VrfName& vrf() const noexcept { return vrf_; }
  const Velnet::IntfId& intf() const noexcept { return intf_; }

  bool operator==(const Peer&) const = default;
  bool operator<(const Peer& o) const noexcept;
  uint32_t hash() const noexcept;
  std::string strep() const;
  // "10.0.0.1 vrf red" (+ " intf Ethernet1").
  std::string str() const;

 private:
  Velnet::IpGenAddr addr_;
  L3::VrfName vrf_;
  Velnet::IntfId intf_;
};

std::ostream& operator<<(std::ostream& os, const Peer& p);

// A session asked for one peer, on an interface.
class PeerConfig : public Kel::Entity {
 public:
  KEL_ENTITY(PeerConfig, "Bfd::PeerConfig");
  class NotifieeConst : public Kel::NotifieeConstOf<PeerConfig> {};
  KEL_KEY(Peer, peer);
  KEL_CTOR_PARAM(Velnet::IntfId, intfId);
  void kelCheckCtorParams(const Velnet::IntfId& intf) const { Kel::checkCtorParam(*this, "intfId", intfId_, intf); }

 private:
  PeerConfig(const Peer& peer, const Velnet::IntfId& intf) : peer_(peer), intfId_(intf) {}
};

// The peers an application asks BFD sessions for.
class AppConfig : public Kel::Entity {
 public:
  KEL_ENTITY(AppConfig, "Bfd::AppConfig");
  class NotifieeConst : public Kel::NotifieeConstOf<AppConfig> {
   public:
    virtual void onPeerConfig(const Peer&) {}
  };
  KEL_CREATOR(AppConfig);
  KEL_KEY(std::string, appName);
  KEL_ENTITY_COLL(PeerConfig, Peer, peerConfig, PeerConfig);

 private:
  explicit AppConfig(const std::string& appName) : appName_(appName) {}
};
KEL_FACTORY(AppConfig, appConfigFactory)

// The state of one session.
class BfdPeerStatus : public Kel::Entity {
 public:
  KEL_ENTITY(BfdPeerStatus, "Bfd::BfdPeerStatus");
  class NotifieeConst : public Kel::NotifieeConstOf<BfdPeerStatus> {
   public:
    virtual void onState() {}
  };
  KEL_KEY(Peer, peer);
  KEL_SCALAR(OperState, state, State, OperState::down);

 private:
  explicit BfdPeerStatus(const Peer& peer) : peer_(peer) {}
};

// The sessions of one application, by peer.
class AppStatus : public Kel::Entity {
 public:
  KEL_ENTITY(AppStatus, "Bfd::AppStatus");
  class NotifieeConst : public Kel::NotifieeConstOf<AppStatus> {
   public:
    virtual void onPeerStatus(const Peer&) {}
  };
  KEL_CREATOR(AppStatus);
  KEL_KEY(std::string, appName);
  KEL_ENTITY_COLL(BfdPeerStatus, Peer, peerStatus, PeerStatus);

 private:
  explicit AppStatus(const std::string& appName) : appName_(appName) {}
};
KEL_FACTORY(AppStatus, appStatusFactory)

}  // namespace Bfd

namespace Kel {
template <>
struct Strep<Bfd::OperState> {
  static std::string print(Bfd::OperState s);
  static Bfd::OperState parse(TextCursor& c);
};
}  // namespace Kel
