// The protocol's via-set configuration: deduplicated via sets, published in a shared table.
//
// Route alternatives with equal via sets share one RIB via set: `dedupConfigViaSetIs` returns
// the handle of the set, made and written into the mounted via-set table the first time, and the
// set leaves the table when its last handle is released. The via set's key in the table is the
// handle's id, which RIB routes refer to.
#pragma once

#include <cstdint>

#include "platform/kel/Attribute.h"
#include "platform/l3/L3.h"
#include "platform/rib/RibTypes.h"
#include "platform/rib/ViaSet.h"
#include "platform/shmtab/ShmtabCollection.h"
#include "platform/velk/Velk.h"

namespace Routing::Rib {

namespace Shmtab {

// The shared table of via sets that the RIB reads, by via-set key.
class ViaSetCollection : public Kel::Entity, public KelShmtab::Collection {
 public:
  KEL_ENTITY(ViaSetCollection, "Routing::Rib::Shmtab::ViaSetCollection");
  class NotifieeConst : public Kel::NotifieeConstOf<ViaSetCollection> {
   public:
    virtual void onViaSet(const ViaSetKey&) {}
    virtual void onCapacity() {}
  };
  KEL_CREATOR(ViaSetCollection);
  KEL_SCALAR(uint32_t, capacity, Capacity);

  const ViaSet* viaSet(ViaSetKey key) const noexcept;
  size_t viaSets() const noexcept { return sets_.size(); }
  bool full() const noexcept { return capacity() != 0 && sets_.size() >= capacity(); }
  const auto& viaSetColl() const noexcept { return sets_; }
  // A new key past the capacity is refused with a RangeException.
  void viaSetIs(ViaSetKey key, const ViaSet& set);
  bool viaSetDel(ViaSetKey key);

  void shmtabCapacityIs(uint32_t entries) override { capacityIs(entries); }
  void shmtabCleanup() override;

 private:
  ViaSetCollection() = default;
  Kel::HashMap<ViaSetKey, ViaSet> sets_;
};

}  // namespace Shmtab

// Names a via-set configuration: the protocol and the RIB it configures.
class ViaSetConfigKey {
 public:
  static constexpr bool kelHasStrep = true;
  static constexpr const char* kTypeName = "Routing::Rib::ViaSetConfigKey";

  ViaSetConfigKey() = default;
  ViaSetConfigKey(RoutingProtocol rp, const std::string& ribName = "rib") : rp_(rp), ribName_(ribName) {}  // NOLINT
  explicit ViaSetConfigKey(Kel::TextCursor& c);

  RoutingProtocol rp() const noexcept { return rp_; }
  const std::string& ribName() const noexcept { return ribName_; }
  bool operator==(const ViaSetConfigKey&) const = default;
  std::string strep() const;

 private:
  RoutingProtocol rp_ = RoutingProtocol::unknown;
  std::string ribName_ = "rib";
};

class ViaSetConfig : public Kel::Entity {
 public:
  KEL_ENTITY(ViaSetConfig, "Routing::Rib::ViaSetConfig");
  class NotifieeConst : public Kel::NotifieeConstOf<ViaSetConfig> {
   public:
    virtual void onRestartingVrf(const L3::VrfName&) {}
    virtual void onConfigViaSetColl() {}
  };
  KEL_CREATOR(ViaSetConfig);
  KEL_KEY(ViaSetConfigKey, key);
  // VRFs whose routes are being re-derived after a restart; the RIB keeps their old state meanwhile.
  KEL_SET(L3::VrfName, restartingVrf, RestartingVrf);
  // The mounted table the via sets are published in.
  KEL_REF(Shmtab::ViaSetCollection, configViaSetColl, ConfigViaSetColl);

  // The shared handle of `set`. Refused with a RangeException, with nothing changed, when the
  // set is new and the published table is full.
  Kel::Ptr<DedupViaSetKey const> dedupConfigViaSetIs(const Shmtab::ViaSet& set);
  // The handle of `set` if some alternative holds one.
  Kel::Ptr<DedupViaSetKey const> dedupViaSet(const Shmtab::ViaSet& set) const { return table_->handle(set); }
  size_t viaSets() const noexcept { return table_->size(); }
  // Whether `handle` is this configuration's handle of `set`: then dedupConfigViaSetIs(set) would
  // return it, without the lookup.
  bool holds(const DedupViaSetKey& handle, const Shmtab::ViaSet& set) const noexcept {
    return handle.issuedBy(*table_) && handle.value() == set;
  }

  ~ViaSetConfig() override;

 private:
  explicit ViaSetConfig(const ViaSetConfigKey& key);

  Kel::Ptr<Velk::DedupTable<Shmtab::ViaSet>> table_;
};
KEL_FACTORY(ViaSetConfig, viaSetConfigFactory)

}  // namespace Routing::Rib
