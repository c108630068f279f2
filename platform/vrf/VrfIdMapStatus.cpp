#include "platform/vrf/VrfIdMapStatus.h"

namespace Vrf::VrfIdMap {

KEL_REGISTER_ENTITY(Status);
KEL_REGISTER_ENTITY(NameToIdMapWrapper);

}  // namespace Vrf::VrfIdMap
