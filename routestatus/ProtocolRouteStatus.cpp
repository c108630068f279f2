#include "routestatus/ProtocolRouteStatus.h"

namespace Routing::Protocol {

KEL_REGISTER_ENTITY(RouteStatusDir);

}  // namespace Routing::Protocol
