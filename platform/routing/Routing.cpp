#include "platform/routing/Routing.h"

#include <iterator>

#include "platform/velnet/Velnet.h"

namespace Routing::Fib {

namespace {
constexpr const char* kRouteTypeNames[] = {"forward", "drop", "receive", "attached"};
}  // namespace

const char* stringValue(RouteType t) noexcept {
  auto v = static_cast<size_t>(t);
  return v < std::size(kRouteTypeNames) ? kRouteTypeNames[v] : "invalid";
}

std::ostream& operator<<(std::ostream& os, RouteType t) {
  return os << Kel::Strep<RouteType>::print(t);
}

}  // namespace Routing::Fib

namespace Kel {

std::string Strep<Routing::Fib::RouteType>::print(Routing::Fib::RouteType t) {
  return Velnet::detail::enumStrep(static_cast<uint8_t>(t), Routing::Fib::kRouteTypeNames);
}

Routing::Fib::RouteType Strep<Routing::Fib::RouteType>::parse(TextCursor& c) {
  return static_cast<Routing::Fib::RouteType>(Velnet::detail::enumParse(
      c, Routing::Fib::kRouteTypeNames, UINT8_MAX, "Routing::Fib::RouteType"));
}

}  // namespace Kel
