#include "keys/ProtocolContainerKey.h"

#include "platform/kel/Hash.h"
#include "platform/kel/Reflection.h"

namespace Routing::Protocol {

namespace {

// Families order as signed 32-bit numbers.
int32_t afOrder(Velnet::AddressFamily af) noexcept { return static_cast<int32_t>(static_cast<uint32_t>(af)); }
uint32_t afBits(Velnet::AddressFamily af) noexcept { return static_cast<uint32_t>(af); }

}  // namespace

// ---- ContainerKey ----

ContainerKey::ContainerKey(const char* begin, const char* end) {
  Kel::TextCursor c(begin, end);
  *this = ContainerKey(c);
}

ContainerKey::ContainerKey(Kel::TextCursor& c) {
  Kel::ValueFormReader r(c, kTypeName);
  vrfName_ = r.field<L3::VrfName>("vrfName");
  af_ = r.field<Velnet::AddressFamily>("af");
  r.end();
}

bool ContainerKey::operator<(const ContainerKey& o) const noexcept {
  if (vrfName_ != o.vrfName_) return vrfName_ < o.vrfName_;
  return afOrder(af_) < afOrder(o.af_);
}

std::string ContainerKey::strep() const {
  return Kel::ValueFormWriter(kTypeName).field("vrfName", vrfName_).field("af", af_).str();
}

// ---- RouteStatusKey ----

RouteStatusKey::RouteStatusKey(const char* begin, const char* end) {
  Kel::TextCursor c(begin, end);
  *this = RouteStatusKey(c);
}

RouteStatusKey::RouteStatusKey(Kel::TextCursor& c) {
  Kel::ValueFormReader r(c, kTypeName);
  vrfId_ = r.field<Vrf::VrfIdMap::VrfId>("vrfId");
  af_ = r.field<Velnet::AddressFamily>("af");
  r.end();
}

bool RouteStatusKey::operator<(const RouteStatusKey& o) const noexcept {
  if (vrfId_ != o.vrfId_) return vrfId_ < o.vrfId_;
  return afOrder(af_) < afOrder(o.af_);
}

uint32_t RouteStatusKey::hash() const noexcept {
  Kel::OneAtATime h;
  h.addLe32(vrfId_);
  h.addLe32(afBits(af_));
  return h.value();
}

std::string RouteStatusKey::strep() const {
  return Kel::ValueFormWriter(kTypeName).field("vrfId", vrfId_).field("af", af_).str();
}

std::string RouteStatusKey::str() const {
  return " (RSK " + std::to_string(vrfId_) + ", " + Velnet::afName(af_) + ")";
}

// ---- PrefixPrefVrfId ----

PrefixPrefVrfId::PrefixPrefVrfId(const char* begin, const char* end) {
  Kel::TextCursor c(begin, end);
  *this = PrefixPrefVrfId(c);
}

PrefixPrefVrfId::PrefixPrefVrfId(Kel::TextCursor& c) {
  Kel::ValueFormReader r(c, kTypeName);
  prefix_ = r.field<Velnet::IpGenPrefix>("prefix");
  pref_ = r.field<Routing::RoutePreference>("pref");
  vrfId_ = r.field<Vrf::VrfIdMap::VrfId>("vrfId");
  r.end();
}

bool PrefixPrefVrfId::operator<(const PrefixPrefVrfId& o) const noexcept {
  if (prefix_ != o.prefix_) return prefix_ < o.prefix_;
  if (pref_ != o.pref_) return pref_ < o.pref_;
  return vrfId_ < o.vrfId_;
}

uint32_t PrefixPrefVrfId::hash() const noexcept {
  // The prefix's own hash is the Wang hash of (address ^ length) for IPv4 and IPv6, 0 otherwise.
  Kel::OneAtATime h;
  h.addLe32(prefix_.hash());
  h.add(pref_);
  h.addLe32(vrfId_);
  return h.value();
}

std::string PrefixPrefVrfId::strep() const {
  return Kel::ValueFormWriter(kTypeName).field("prefix", prefix_).field("pref", pref_).field("vrfId", vrfId_).str();
}

std::string PrefixPrefVrfId::str() const {
  return " (" + prefix_.str() + ", pref: " + std::to_string(pref_) + ", vrf: " + std::to_string(vrfId_) + ")";
}

// ---- VrfIdAf ----

VrfIdAf::VrfIdAf(Kel::TextCursor& c) {
  Kel::ValueFormReader r(c, kTypeName);
  vrfId_ = r.field<Vrf::VrfIdMap::VrfId>("vrfId");
  af_ = r.field<Velnet::AddressFamily>("af");
  r.end();
}

bool VrfIdAf::operator<(const VrfIdAf& o) const noexcept {
  if (vrfId_ != o.vrfId_) return vrfId_ < o.vrfId_;
  return afOrder(af_) < afOrder(o.af_);
}

uint32_t VrfIdAf::hash() const noexcept {
  Kel::OneAtATime h;
  h.addLe32(vrfId_);
  h.addLe32(afBits(af_));
  return h.value();
}

std::string VrfIdAf::strep() const {
  return Kel::ValueFormWriter(kTypeName).field("vrfId", vrfId_).field("af", af_).str();
}

std::string VrfIdAf::str() const { return "(" + std::to_string(vrfId_) + ", " + Velnet::afName(af_) + ")"; }

// ---- VrfPairAf ----

VrfPairAf::VrfPairAf(Kel::TextCursor& c) {
  Kel::ValueFormReader r(c, kTypeName);
  srcVrf_ = r.field<Vrf::VrfIdMap::VrfId>("srcVrf");
  dstVrf_ = r.field<Vrf::VrfIdMap::VrfId>("dstVrf");
  af_ = r.field<Velnet::AddressFamily>("af");
  r.end();
}

bool VrfPairAf::operator<(const VrfPairAf& o) const noexcept {
  if (srcVrf_ != o.srcVrf_) return srcVrf_ < o.srcVrf_;
  if (dstVrf_ != o.dstVrf_) return dstVrf_ < o.dstVrf_;
  return afOrder(af_) < afOrder(o.af_);
}

uint32_t VrfPairAf::hash() const noexcept {
  Kel::OneAtATime h;
  h.addLe32(srcVrf_);
  h.addLe32(dstVrf_);
  h.addLe32(afBits(af_));
  return h.value();
}

std::string VrfPairAf::strep() const {
  return Kel::ValueFormWriter(kTypeName).field("srcVrf", srcVrf_).field("dstVrf", dstVrf_).field("af", af_).str();
}

std::string VrfPairAf::str() const {
  return "(" + std::to_string(srcVrf_) + "-" + std::to_string(dstVrf_) + ", " + Velnet::afName(af_) + ")";
}

std::ostream& operator<<(std::ostream& os, const ContainerKey& k) { return os << k.strep(); }
std::ostream& operator<<(std::ostream& os, const RouteStatusKey& k) { return os << k.strep(); }
std::ostream& operator<<(std::ostream& os, const PrefixPrefVrfId& k) { return os << k.strep(); }
std::ostream& operator<<(std::ostream& os, const VrfIdAf& k) { return os << k.strep(); }
std::ostream& operator<<(std::ostream& os, const VrfPairAf& k) { return os << k.strep(); }

namespace {

using Kel::AttrInfo;
using Kel::AttrKind;

[[maybe_unused]] const bool kRegistered = [] {
  Kel::registerValueType<ContainerKey>(ContainerKey::kTypeName,
                                       {AttrInfo{"vrfName", "L3::VrfName", AttrKind::ctorParam},
                                        AttrInfo{"af", "Velnet::AddressFamily", AttrKind::ctorParam}});
  Kel::registerValueType<RouteStatusKey>(RouteStatusKey::kTypeName,
                                         {AttrInfo{"vrfId", "Vrf::VrfIdMap::VrfId", AttrKind::ctorParam},
                                          AttrInfo{"af", "Velnet::AddressFamily", AttrKind::ctorParam}});
  Kel::registerValueType<PrefixPrefVrfId>(PrefixPrefVrfId::kTypeName,
                                          {AttrInfo{"prefix", "Velnet::IpGenPrefix", AttrKind::ctorParam},
                                           AttrInfo{"pref", "Routing::RoutePreference", AttrKind::ctorParam},
                                           AttrInfo{"vrfId", "Vrf::VrfIdMap::VrfId", AttrKind::ctorParam}});
  Kel::registerValueType<VrfIdAf>(VrfIdAf::kTypeName,
                                  {AttrInfo{"vrfId", "Vrf::VrfIdMap::VrfId", AttrKind::ctorParam},
                                   AttrInfo{"af", "Velnet::AddressFamily", AttrKind::ctorParam}});
  Kel::registerValueType<VrfPairAf>(VrfPairAf::kTypeName,
                                    {AttrInfo{"srcVrf", "Vrf::VrfIdMap::VrfId", AttrKind::ctorParam},
                                     AttrInfo{"dstVrf", "Vrf::VrfIdMap::VrfId", AttrKind::ctorParam},
                                     AttrInfo{"af", "Velnet::AddressFamily", AttrKind::ctorParam}});
  return true;
}();

}  // namespace

KEL_REGISTER_ENTITY(ContainerKeySet);

}  // namespace Routing::Protocol
