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

// The platform's shared enumeration form, as for every other enumeration: a refused text leaves
// the cursor where it was, and a value with no enumerator prints as its number and reads back.
namespace {
constexpr const char* kOperStateNames[] = {"adminDown", "down", "init", "up"};
}  // namespace

std::string Strep<Bfd::OperState>::print(Bfd::OperState s) {
  return Velnet::detail::enumStrep(static_cast<uint8_t>(s), kOperStateNames);
}

Bfd::OperState Strep<Bfd::OperState>::parse(TextCursor& c) {
  return static_cast<Bfd::OperState>(
      Velnet::detail::enumParse(c, kOperStateNames, UINT8_MAX, "Bfd::OperState"));
}

}  // namespace Kel
