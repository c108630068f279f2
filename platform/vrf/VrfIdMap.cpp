#include "platform/vrf/VrfIdMap.h"

namespace Vrf::VrfIdMap {

KEL_REGISTER_ENTITY(NameToIdMap);

}  // namespace Vrf::VrfIdMap
