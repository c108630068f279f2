#include "routestatus/ProtocolBfdTrackedNextHop.h"

namespace Routing::Protocol {

NextHopBfdKey::NextHopBfdKey(Kel::TextCursor& c) {
  Kel::ValueFormReader r(c, kTypeName);
  nextHopAddr_ = r.field<Velnet::IpGenAddr>("nextHopAddr");
  intfId_ = r.field<Velnet::IntfId>("intfId");
  r.end();
}

bool NextHopBfdKey::operator<(const NextHopBfdKey& o) const noexcept {
  if (!(nextHopAddr_ == o.nextHopAddr_)) return nextHopAddr_ < o.nextHopAddr_;
  return intfId_ < o.intfId_;
}

std::string NextHopBfdKey::strep() const {
  return Kel::ValueFormWriter(kTypeName).field("nextHopAddr", nextHopAddr_).field("intfId", intfId_).str();
}

KEL_REGISTER_ENTITY(BfdTrackedNextHopByContainer);

}  // namespace Routing::Protocol
