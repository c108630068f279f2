#include "platform/l3/L3.h"

namespace L3 {

namespace {

void checkLength(std::string_view name) {
  if (name.size() > VrfName::maxLength) {
    throw Kel::RangeException("VrfName::bytes > VrfName::maxLength not allowed");
  }
}

}  // namespace

VrfName::VrfName(std::string_view name) {
  checkLength(name);
  name_ = name;
}

VrfName::VrfName(Kel::TextCursor& c) {
  Kel::TextCursor probe = c;
  std::string name = probe.readQuoted();
  checkLength(name);
  name_ = std::move(name);
  c = probe;
}

std::ostream& operator<<(std::ostream& os, const VrfName& n) { return os << n.strep(); }

const VrfName& defaultVrfName() {
  static const VrfName name("default");
  return name;
}

}  // namespace L3
