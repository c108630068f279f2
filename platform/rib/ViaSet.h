// The RIB's via set as the protocol writes it, and the deduplicated handles of vias and via sets.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/kel/Ptr.h"
#include "platform/kel/Text.h"
#include "platform/rib/RibTypes.h"
#include "platform/velk/Velk.h"

namespace Routing::Rib {

// A via as its route alternatives hold it: one handle per distinct via key, process-wide.
using DedupViaKey = Velk::DedupHandle<ViaKey>;
Kel::Ptr<DedupViaKey const> dedupViaKeyIs(const ViaKey& key);
// Distinct via keys held by some route alternative now.
size_t dedupViaKeys() noexcept;

namespace Shmtab {

// The next hops of one RIB route: up to 512 vias, all unlabelled or all labelled, a type byte
// (the forwarding-equivalence-class type) and three flag bits.
class ViaSet {
 public:
  static constexpr bool kelHasStrep = true;
  static constexpr const char* kTypeName = "Routing::Rib::Shmtab::ViaSet";
  static constexpr uint32_t viaIndexMin = 0;
  static constexpr uint32_t viaIndexMax = 511;
  static constexpr uint8_t flagsMax = 0x7;
  // Flag bits the protocol sets: the family of the routes that use the set.
  static constexpr uint8_t flagIpv4 = 0x2;
  static constexpr uint8_t flagIpv6 = 0x4;

  ViaSet() = default;
  explicit ViaSet(Kel::TextCursor& c);

  uint8_t type() const noexcept { return type_; }
  void typeIs(uint8_t t) noexcept { type_ = t; }
  uint8_t flags() const noexcept { return flags_; }
  // A value above 7 is refused: "Flags::value > 0x7 not allowed".
  void flagsIs(uint8_t f);
  bool labelled() const noexcept { return labelled_; }
  void labelledIs(bool l) noexcept { labelled_ = l; }

  uint32_t viaCount() const noexcept { return static_cast<uint32_t>(vias_.size()); }
  const ViaKey& via(uint32_t index) const { return vias_.at(index); }
  const std::vector<ViaKey>& vias() const noexcept { return vias_; }
  // Stores `v` at `index`, which must be within 0..511 ("ViaIndex::value < ViaIndex::min or >
  // ViaIndex::max not allowed") and at most the current count (the set has no holes).
  void viaIs(uint32_t index, const ViaKey& v);
  void viaDelAll() noexcept { vias_.clear(); }
  // Back to the default set, keeping the storage of its vias for the next one built in it.
  void clear() noexcept {
    vias_.clear();
    type_ = 0;
    flags_ = 0;
    labelled_ = false;
  }

  bool operator==(const ViaSet&) const = default;
  uint32_t hash() const noexcept;
  std::string strep() const;
  // A short form for trace lines: "{type 0 flags 2 [v1, v2]}".
  std::string str() const;

 private:
  std::vector<ViaKey> vias_;
  uint8_t type_ = 0;
  uint8_t flags_ = 0;
  bool labelled_ = false;
};

std::ostream& operator<<(std::ostream& os, const ViaSet& v);

}  // namespace Shmtab

// A via set as configured in the RIB: one handle per distinct via set of a via-set table; its
// id is the via set's key, which RIB routes refer to.
using DedupViaSetKey = Velk::DedupHandle<Shmtab::ViaSet>;
using ViaSetKey = uint32_t;

}  // namespace Routing::Rib
