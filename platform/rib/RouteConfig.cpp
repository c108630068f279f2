#include "platform/rib/RouteConfig.h"

#include <vector>

#include "platform/kel/Exception.h"
#include "platform/kel/Hash.h"

namespace Routing::Rib {

namespace {

[[noreturn]] void throwFull(const char* table, uint32_t capacity) {
  throw Kel::TableFullException(table, capacity);
}

}  // namespace

// ---- RouteKey, Route ----

RouteKey::RouteKey(Kel::TextCursor& c) {
  Kel::ValueFormReader r(c, kTypeName);
  vrfId_ = r.field<Vrf::VrfIdMap::VrfId>("vrfId");
  prefix_ = r.field<Velnet::IpGenPrefix>("prefix");
  r.end();
}

// Hashed on every RIB write and lookup, twice or more per route evaluation: one mix of both words
// instead of a byte at a time.
uint32_t RouteKey::hash() const noexcept {
  return Kel::mix64To32(uint64_t{prefix_.hash()} | uint64_t{vrfId_} << 32);
}

std::string RouteKey::strep() const {
  return Kel::ValueFormWriter(kTypeName).field("vrfId", vrfId_).field("prefix", prefix_).str();
}

Route::Route(Kel::TextCursor& c) {
  Kel::ValueFormReader r(c, kTypeName);
  key_ = r.field<RouteKey>("key");
  viaSetKey_ = r.field<ViaSetKey>("viaSetKey");
  metricPref_ = r.field<uint8_t>("metricPref");
  routingProtocol_ = r.field<RoutingProtocol>("routingProtocol");
  tag_ = r.field<uint32_t>("tag");
  fibRouteType_ = r.field<Fib::RouteType>("fibRouteType");
  srcVrfId_ = r.field<Vrf::VrfIdMap::VrfId>("srcVrfId");
  flags_ = r.field<uint8_t>("flags");
  r.end();
}

std::string Route::strep() const {
  return Kel::ValueFormWriter(kTypeName)
      .field("key", key_)
      .field("viaSetKey", viaSetKey_)
      .field("metricPref", metricPref_)
      .field("routingProtocol", routingProtocol_)
      .field("tag", tag_)
      .field("fibRouteType", fibRouteType_)
      .field("srcVrfId", srcVrfId_)
      .field("flags", flags_)
      .str();
}

// ---- RouteConfig ----

void RouteConfig::routeAdd(const Route& r) {
  if (Route* existing = routes_.find(r.key())) {
    if (*existing == r) return;
    *existing = r;
  } else {
    if (capacity() != 0 && routes_.size() >= capacity()) throwFull("RouteConfig", capacity());
    routes_.insert(r);
  }
  notify(&NotifieeConst::onRoute, r.key());
}

bool RouteConfig::routeDel(const RouteKey& key) {
  if (!routes_.erase(key)) return false;
  notify(&NotifieeConst::onRoute, key);
  return true;
}

template <class Pred>
void RouteConfig::routeDelWhere(Pred pred) {
  // Keys first: each deletion is announced, and observers may change the table meanwhile.
  std::vector<RouteKey> doomed;
  for (const Route& r : routes_) {
    if (pred(r.key())) doomed.push_back(r.key());
  }
  for (const RouteKey& k : doomed) routeDel(k);
}

void RouteConfig::doDeleteRoutesForVrf(Vrf::VrfIdMap::VrfId vrfId) {
  routeDelWhere([vrfId](const RouteKey& k) { return k.vrfId() == vrfId; });
}

void RouteConfig::routeDelAll() {
  routeDelWhere([](const RouteKey&) { return true; });
}

// ---- Via, ViaTable ----

Via::Via(Kel::TextCursor& c) {
  Kel::ValueFormReader r(c, kTypeName);
  key_ = r.field<ViaKey>("key");
  mplsLabel_ = r.field<uint32_t>("mplsLabel");
  r.end();
}

std::string Via::strep() const {
  return Kel::ValueFormWriter(kTypeName).field("key", key_).field("mplsLabel", mplsLabel_).str();
}

void ViaTable::viaIs(const Via& v) {
  if (Via* existing = vias_.find(v.key())) {
    if (*existing == v) return;
    *existing = v;
  } else {
    if (capacity() != 0 && vias_.size() >= capacity()) throwFull(typeName(), capacity());
    vias_.insert(v);
  }
  notify(&NotifieeConst::onVia, v.key());
}

bool ViaTable::viaDel(const ViaKey& key) {
  if (!vias_.erase(key)) return false;
  notify(&NotifieeConst::onVia, key);
  return true;
}

std::vector<ViaKey> ViaTable::viaKeys(Vrf::VrfIdMap::VrfId vrfId) const {
  std::vector<ViaKey> out;
  for (const Via& v : vias_) {
    if (vrfId == kAllVrfs || v.key().vrfId() == vrfId) out.push_back(v.key());
  }
  return out;
}

void ViaTable::viaDelAll() {
  for (const ViaKey& k : viaKeys(kAllVrfs)) viaDel(k);
}

void ViaTable::shmtabPathIs(const std::string& path) {
  // Paths read "routing/<rib>/viaConfig/...".
  const std::string prefix = "routing/";
  if (path.rfind(prefix, 0) != 0) return;
  size_t end = path.find('/', prefix.size());
  if (end != std::string::npos) ribNameIs(path.substr(prefix.size(), end - prefix.size()));
}

void ViaTable::checkIntegrity() const {
  if (checksLeft_ == 0) corrupt_ = true;
  if (checksLeft_ != SIZE_MAX && checksLeft_ != 0) --checksLeft_;
  if (corrupt_) throw Kel::CorruptionException(std::string(typeName()) + " is corrupted");
}

void ViaTable::reportCorruption(const std::string& message) const {
  ++corruptionReports_;
  if (corruptionHandler_) corruptionHandler_(message);
}

void Evpn::ViaConfig::doDeleteViasForVrf(Vrf::VrfIdMap::VrfId vrfId) {
  for (const ViaKey& k : viaKeys(vrfId)) viaDel(k);
}

KEL_REGISTER_ENTITY(RouteConfig);

namespace {
[[maybe_unused]] const bool kViaTablesRegistered = [] {
  Kel::Registry::instance().type(Ip::ViaConfig::kTypeName).createEmpty = [] {
    return Kel::Ptr<Kel::Entity>(Ip::ViaConfig::ViaConfigIs());
  };
  Kel::Registry::instance().type(Evpn::ViaConfig::kTypeName).createEmpty = [] {
    return Kel::Ptr<Kel::Entity>(Evpn::ViaConfig::ViaConfigIs());
  };
  return true;
}();
}  // namespace

}  // namespace Routing::Rib
