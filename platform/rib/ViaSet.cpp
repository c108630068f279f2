#include "platform/rib/ViaSet.h"

#include <sstream>

#include "platform/kel/Exception.h"
#include "platform/kel/Hash.h"

namespace Routing::Rib {

namespace {

Velk::DedupTable<ViaKey>& viaKeyTable() {
  // Never destroyed: handles may be released during static destruction.
  static auto* table = Velk::DedupTable<ViaKey>::DedupTableIs("Routing::Rib::DedupViaKey").release();
  return *table;
}

}  // namespace

Kel::Ptr<DedupViaKey const> dedupViaKeyIs(const ViaKey& key) { return viaKeyTable().handleIs(key); }

size_t dedupViaKeys() noexcept { return viaKeyTable().size(); }

namespace Shmtab {

ViaSet::ViaSet(Kel::TextCursor& c) {
  Kel::ValueFormReader r(c, kTypeName);
  type_ = r.field<uint8_t>("type");
  uint8_t flags = r.field<uint8_t>("flags");
  labelled_ = r.field<bool>("labelled");
  c.expect(", 'vias': [");
  while (!c.accept("]")) {
    if (!vias_.empty()) c.expect(", ");
    viaIs(viaCount(), ViaKey(c));
  }
  r.end();
  flagsIs(flags);
}

void ViaSet::flagsIs(uint8_t f) {
  if (f > flagsMax) throw Kel::RangeException("Flags::value > 0x7 not allowed");
  flags_ = f;
}

void ViaSet::viaIs(uint32_t index, const ViaKey& v) {
  if (index > viaIndexMax) throw Kel::RangeException("ViaIndex::value < ViaIndex::min or > ViaIndex::max not allowed");
  if (index > vias_.size()) throw Kel::RangeException("ViaIndex::value past the via count not allowed");
  if (index == vias_.size()) {
    vias_.push_back(v);
  } else {
    vias_[index] = v;
  }
}

uint32_t ViaSet::hash() const noexcept {
  Kel::OneAtATime h;
  h.add(type_);
  h.add(flags_);
  h.add(labelled_);
  for (const ViaKey& v : vias_) h.addLe32(v.hash());
  return h.value();
}

std::string ViaSet::strep() const {
  std::string out = Kel::ValueFormWriter(kTypeName).field("type", type_).field("flags", flags_).field("labelled", labelled_).str();
  out.resize(out.size() - 2);  // reopen the field list for the vias
  out += ", 'vias': [";
  for (size_t i = 0; i < vias_.size(); ++i) out += (i ? ", " : "") + vias_[i].strep();
  out += "]})";
  return out;
}

std::string ViaSet::str() const {
  std::ostringstream os;
  os << "{type " << unsigned(type_) << " flags " << unsigned(flags_) << (labelled_ ? " labelled" : "") << " [";
  for (size_t i = 0; i < vias_.size(); ++i) os << (i ? ", " : "") << vias_[i].str();
  os << "]}";
  return os.str();
}

std::ostream& operator<<(std::ostream& os, const ViaSet& v) { return os << v.str(); }

}  // namespace Shmtab
}  // namespace Routing::Rib
