#include "platform/bfd/Bfd.h"

#include <ostream>

#include "platform/kel/Exception.h"
#include "platform/kel/Hash.h"

namespace Bfd {

const char* stringValue(OperState s) noexcept {
  switch (s) {
    case OperState::adminDown: return "adminDown";
    case OperState::down: return "down";
    case OperState::init: return "init";
    case OperState::up: return "up";
  }
  return "invalid";
}

std::ostream& operator<<(std::ostream& os, OperState s) { return os << stringValue(s); }

Peer::Peer(Kel::TextCursor& c) {
  Kel::ValueFormReader r(c, kTypeName);
  addr_ = r.field<Velnet::IpGenAddr>("addr");
  vrf_ = r.field<L3::VrfName>("vrf");
  intf_ = r.field<Velnet::IntfId>("intf");
  r.end();
}

bool Peer::operator<(const Peer& o) const noexcept {
  if (!(addr_ == o.addr_)) return addr_ < o.addr_;
  if (!(vrf_ == o.vrf_)) return vrf_ < o.vrf_;
  return intf_ < o.intf_;
}

uint32_t Peer::hash() const noexcept {
  Kel::OneAtATime h;
  h.addLe32(addr_.hash());
  h.addLe32(vrf_.hash());
  h.addLe32(intf_.hash());
  return h.value();
}

std::string Peer::strep() const {
  return Kel::ValueFormWriter(kTypeName).field("addr", addr_).field("vrf", vrf_).field("intf", intf_).str();
}

std::string Peer::str() const {
  std::string out = addr_.str() + " vrf " + vrf_.str();
  if (!intf_.name().empty()) out += " intf " + intf_.name();
  return out;
}

std::ostream& operator<<(std::ostream& os, const Peer& p) { return os << p.str(); }

}  // namespace Bfd

namespace Kel {

std::string Strep<Bfd::OperState>::print(Bfd::OperState s) { return quote(Bfd::stringValue(s)); }

Bfd::OperState Strep<Bfd::OperState>::parse(TextCursor& c) {
  std::string name = c.readQuoted();
  for (auto s : {Bfd::OperState::adminDown, Bfd::OperState::down, Bfd::OperState::init, Bfd::OperState::up}) {
    if (name == Bfd::stringValue(s)) return s;
  }
  throw RangeException("Bfd::OperState '" + name + "' not allowed");
}

}  // namespace Kel
