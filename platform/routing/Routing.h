// Routing value types shared by the protocol side and the RIB: route preferences and the kind of
// forwarding a route asks of the FIB.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "platform/kel/Text.h"

namespace Routing {

// Lower is preferred. A plain integer: it prints as a decimal number.
using RoutePreference = uint8_t;

namespace Fib {

// What the forwarding plane does with packets matching a route.
enum class RouteType : uint8_t {
  forward = 0,   // send them to the route's next hops
  drop = 1,      // discard them silently
  receive = 2,   // deliver them to this router (its own addresses)
  attached = 3,  // the prefix is on a connected interface: resolve hosts there directly
};

// "forward", "drop", "receive", "attached"; "invalid" for a value with no enumerator.
const char* stringValue(RouteType t) noexcept;
// Writes the text form (the quoted name).
std::ostream& operator<<(std::ostream& os, RouteType t);

}  // namespace Fib
}  // namespace Routing

namespace Kel {

template <>
struct Strep<Routing::Fib::RouteType> {
  static std::string print(Routing::Fib::RouteType t);
  static Routing::Fib::RouteType parse(TextCursor& c);
};

}  // namespace Kel
