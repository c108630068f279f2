// The value keys of the protocol side's collections.
//
// Their hashes are fixed functions of their fields (one-at-a-time over a little-endian layout,
// the framework's string hash for VRF names) because hash order is iteration order: a review
// visits routes, and a trace lists entries, in ascending bit-reversed hash, and that order must
// not depend on the host or the build.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "platform/kel/Attribute.h"
#include "platform/kel/Text.h"
#include "platform/l3/L3.h"
#include "platform/routing/Routing.h"
#include "platform/velnet/Velnet.h"
#include "platform/vrf/VrfId.h"

namespace Routing::Protocol {

// One per-VRF, per-address-family container.
class ContainerKey {
 public:
  static constexpr bool kelHasStrep = true;
  static constexpr const char* kTypeName = "Routing::Protocol::ContainerKey";

  ContainerKey() = default;
  ContainerKey(const L3::VrfName& vrfName, Velnet::AddressFamily af) : vrfName_(vrfName), af_(af) {}
  // Parses the text form from [begin, end).
  ContainerKey(const char* begin, const char* end);
  explicit ContainerKey(Kel::TextCursor& c);

  const L3::VrfName& vrfName() const noexcept { return vrfName_; }
  Velnet::AddressFamily af() const noexcept { return af_; }

  // True exactly for the default key: empty name, family 0.
  bool operator!() const { return *this == ContainerKey(); }
  bool operator==(const ContainerKey&) const = default;
  bool operator<(const ContainerKey& o) const noexcept;
  // The string hash of the name XOR the family's value.
  uint32_t hash() const noexcept { return vrfName_.hash() ^ static_cast<uint32_t>(af_); }
  std::string strep() const;

 private:
  L3::VrfName vrfName_;
  Velnet::AddressFamily af_ = Velnet::AddressFamily::none;
};

// One route-status collection: a VRF by number and an address family.
class RouteStatusKey {
 public:
  static constexpr bool kelHasStrep = true;
  static constexpr const char* kTypeName = "Routing::Protocol::RouteStatusKey";

  RouteStatusKey() = default;
  RouteStatusKey(Vrf::VrfIdMap::VrfId vrfId, Velnet::AddressFamily af) : vrfId_(vrfId), af_(af) {}
  RouteStatusKey(const char* begin, const char* end);
  explicit RouteStatusKey(Kel::TextCursor& c);

  Vrf::VrfIdMap::VrfId vrfId() const noexcept { return vrfId_; }
  Velnet::AddressFamily af() const noexcept { return af_; }

  bool operator==(const RouteStatusKey&) const = default;
  // VRF number, then family as a signed 32-bit number.
  bool operator<(const RouteStatusKey& o) const noexcept;
  uint32_t hash() const noexcept;
  std::string strep() const;
  // " (RSK <vrf>, <af>)": begins with a blank so that it can be appended to a trace text.
  std::string str() const;

 private:
  Vrf::VrfIdMap::VrfId vrfId_ = 0;
  Velnet::AddressFamily af_ = Velnet::AddressFamily::none;
};

// One route of one preference in one VRF.
class PrefixPrefVrfId {
 public:
  static constexpr bool kelHasStrep = true;
  static constexpr const char* kTypeName = "Routing::Protocol::PrefixPrefVrfId";

  PrefixPrefVrfId() = default;
  PrefixPrefVrfId(const Velnet::IpGenPrefix& prefix, Routing::RoutePreference pref, Vrf::VrfIdMap::VrfId vrfId)
      : prefix_(prefix), pref_(pref), vrfId_(vrfId) {}
  PrefixPrefVrfId(const char* begin, const char* end);
  explicit PrefixPrefVrfId(Kel::TextCursor& c);

  const Velnet::IpGenPrefix& prefix() const noexcept { return prefix_; }
  Routing::RoutePreference pref() const noexcept { return pref_; }
  Vrf::VrfIdMap::VrfId vrfId() const noexcept { return vrfId_; }

  bool operator==(const PrefixPrefVrfId&) const = default;
  bool operator<(const PrefixPrefVrfId& o) const noexcept;
  uint32_t hash() const noexcept;
  std::string strep() const;
  // " (<prefix>, pref: <pref>, vrf: <vrf>)", beginning with a blank.
  std::string str() const;

 private:
  Velnet::IpGenPrefix prefix_;
  Routing::RoutePreference pref_ = 0;
  Vrf::VrfIdMap::VrfId vrfId_ = 0;
};

// One VRF and address family of route leaking.
class VrfIdAf {
 public:
  static constexpr bool kelHasStrep = true;
  static constexpr const char* kTypeName = "Routing::Protocol::VrfIdAf";

  VrfIdAf() = default;
  VrfIdAf(Vrf::VrfIdMap::VrfId vrfId, Velnet::AddressFamily af) : vrfId_(vrfId), af_(af) {}
  explicit VrfIdAf(Kel::TextCursor& c);

  Vrf::VrfIdMap::VrfId vrfId() const noexcept { return vrfId_; }
  Velnet::AddressFamily af() const noexcept { return af_; }

  bool operator==(const VrfIdAf&) const = default;
  bool operator<(const VrfIdAf& o) const noexcept;
  uint32_t hash() const noexcept;
  std::string strep() const;
  // "(<vrf>, <af>)"
  std::string str() const;

 private:
  Vrf::VrfIdMap::VrfId vrfId_ = 0;
  Velnet::AddressFamily af_ = Velnet::AddressFamily::none;
};

// One source-to-destination pair of VRFs in one address family.
class VrfPairAf {
 public:
  static constexpr bool kelHasStrep = true;
  static constexpr const char* kTypeName = "Routing::Protocol::VrfPairAf";

  VrfPairAf() = default;
  VrfPairAf(Vrf::VrfIdMap::VrfId srcVrf, Vrf::VrfIdMap::VrfId dstVrf, Velnet::AddressFamily af)
      : srcVrf_(srcVrf), dstVrf_(dstVrf), af_(af) {}
  explicit VrfPairAf(Kel::TextCursor& c);

  Vrf::VrfIdMap::VrfId srcVrf() const noexcept { return srcVrf_; }
  Vrf::VrfIdMap::VrfId dstVrf() const noexcept { return dstVrf_; }
  Velnet::AddressFamily af() const noexcept { return af_; }

  bool operator==(const VrfPairAf&) const = default;
  bool operator<(const VrfPairAf& o) const noexcept;
  uint32_t hash() const noexcept;
  std::string strep() const;
  // "(<src>-<dst>, <af>)"
  std::string str() const;

 private:
  Vrf::VrfIdMap::VrfId srcVrf_ = 0;
  Vrf::VrfIdMap::VrfId dstVrf_ = 0;
  Velnet::AddressFamily af_ = Velnet::AddressFamily::none;
};

std::ostream& operator<<(std::ostream& os, const ContainerKey& k);
std::ostream& operator<<(std::ostream& os, const RouteStatusKey& k);
std::ostream& operator<<(std::ostream& os, const PrefixPrefVrfId& k);
std::ostream& operator<<(std::ostream& os, const VrfIdAf& k);
std::ostream& operator<<(std::ostream& os, const VrfPairAf& k);

template <class K>
std::string valueToStrep(const K& k) {
  return k.strep();
}

// A plain set of container keys.
class ContainerKeySet : public Kel::Entity {
 public:
  KEL_ENTITY(ContainerKeySet, "Routing::Protocol::ContainerKeySet");
  class NotifieeConst : public Kel::NotifieeConstOf<ContainerKeySet> {
   public:
    virtual void onContainerKey(const ContainerKey&) {}
  };
  KEL_CREATOR(ContainerKeySet);
  KEL_SET(ContainerKey, containerKey, ContainerKey);

 private:
  ContainerKeySet() = default;
};
KEL_FACTORY(ContainerKeySet, containerKeySetFactory)

}  // namespace Routing::Protocol
