#include "root/ProtocolGrTypes.h"

namespace Routing::Protocol {

KEL_REGISTER_ENTITY(AllVrfReadyStatus);
KEL_REGISTER_ENTITY(AllVrfRibSeqTrigger);

}  // namespace Routing::Protocol
