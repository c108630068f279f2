#include "platform/ip/Ip.h"

#include "platform/kel/Reflection.h"

// A mount of "ip/status" or "ip6/status" creates the root of the tree by its type name.
namespace Ip {
KEL_REGISTER_ENTITY(Status);
}  // namespace Ip

namespace Ip6 {
KEL_REGISTER_ENTITY(Status);
}  // namespace Ip6
