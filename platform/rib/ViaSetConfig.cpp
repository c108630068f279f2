#include "platform/rib/ViaSetConfig.h"

#include <vector>

#include "platform/kel/Exception.h"

namespace Routing::Rib {

namespace Shmtab {

const ViaSet* ViaSetCollection::viaSet(ViaSetKey key) const noexcept {
  const auto* e = sets_.find(key);
  return e ? &e->value : nullptr;
}

void ViaSetCollection::viaSetIs(ViaSetKey key, const ViaSet& set) {
  if (auto* e = sets_.find(key)) {
    if (e->value == set) return;
    e->value = set;
  } else {
    if (full()) {
      throw Kel::TableFullException("ViaSetCollection", capacity());
    }
    sets_.insert(Kel::MapEntry<ViaSetKey, ViaSet>{key, set});
  }
  notify(&NotifieeConst::onViaSet, key);
}

bool ViaSetCollection::viaSetDel(ViaSetKey key) {
  if (!sets_.erase(key)) return false;
  notify(&NotifieeConst::onViaSet, key);
  return true;
}

void ViaSetCollection::shmtabCleanup() {
  std::vector<ViaSetKey> keys;
  for (const auto& e : sets_) keys.push_back(e.key);
  for (ViaSetKey k : keys) viaSetDel(k);
}

}  // namespace Shmtab

ViaSetConfigKey::ViaSetConfigKey(Kel::TextCursor& c) {
  Kel::ValueFormReader r(c, kTypeName);
  rp_ = r.field<RoutingProtocol>("rp");
  ribName_ = r.field<std::string>("ribName");
  r.end();
}

std::string ViaSetConfigKey::strep() const {
  return Kel::ValueFormWriter(kTypeName).field("rp", rp_).field("ribName", ribName_).str();
}

ViaSetConfig::ViaSetConfig(const ViaSetConfigKey& key)
    : key_(key), table_(Velk::DedupTable<Shmtab::ViaSet>::DedupTableIs("Routing::Rib::DedupViaSetKey")) {
  // A via set leaves the published table with its last handle. The hook holds no counted
  // reference: the destructor unhooks it, and handles outliving this object leave their sets
  // published, as the routes that still point at them do.
  table_->releaseHookIs([this](const DedupViaSetKey& h) {
    if (configViaSetColl()) configViaSetColl()->viaSetDel(h.id());
  });
}

ViaSetConfig::~ViaSetConfig() { table_->releaseHookIs(nullptr); }

Kel::Ptr<DedupViaSetKey const> ViaSetConfig::dedupConfigViaSetIs(const Shmtab::ViaSet& set) {
  if (auto existing = table_->handle(set)) return existing;
  const auto& coll = configViaSetColl();
  if (coll && coll->full()) {
    throw Kel::TableFullException("ViaSetCollection", coll->capacity());
  }
  auto handle = table_->handleIs(set);
  if (coll) coll->viaSetIs(handle->id(), set);
  return handle;
}

KEL_REGISTER_ENTITY(Shmtab::ViaSetCollection);

}  // namespace Routing::Rib
