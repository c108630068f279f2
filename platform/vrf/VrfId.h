// VRF numbers. A plain integer on purpose: it prints and parses as a decimal number through the
// framework's integer text form and hashes as an integer.
#pragma once

#include <cstdint>

namespace Vrf::VrfIdMap {

using VrfId = uint32_t;
// The VRF named "default".
inline constexpr VrfId defaultVrfId = 0;
// No VRF has the name asked about.
inline constexpr VrfId vrfIdNull = 0xFFFFFF;

}  // namespace Vrf::VrfIdMap
