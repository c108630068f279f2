// Layer-3 value types: the name of a VRF.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "platform/kel/Hash.h"
#include "platform/kel/Text.h"

namespace L3 {

// A VRF name: at most 100 bytes, any bytes, empty by default. Every way of making one (from a
// string, from its text form) refuses a longer name with a RangeException whose text is
// "VrfName::bytes > VrfName::maxLength not allowed", so a held name is always within the limit.
class VrfName {
 public:
  static constexpr bool kelHasStrep = true;
  static constexpr size_t maxLength = 100;

  VrfName() = default;
  explicit VrfName(std::string_view name);
  // Parses the quoted text form.
  explicit VrfName(Kel::TextCursor& c);

  const std::string& str() const noexcept { return name_; }
  bool empty() const noexcept { return name_.empty(); }

  bool operator==(const VrfName&) const = default;
  // Byte-wise string order.
  auto operator<=>(const VrfName&) const = default;
  // The framework's string hash of the name; 0 for the empty name.
  uint32_t hash() const noexcept { return Kel::stringHash(name_); }
  std::string strep() const { return Kel::quote(name_); }

 private:
  std::string name_;
};

std::ostream& operator<<(std::ostream& os, const VrfName& n);

// The VRF that always exists, with VRF id 0.
const VrfName& defaultVrfName();

}  // namespace L3
