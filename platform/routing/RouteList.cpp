#include "platform/routing/RouteList.h"

#include "platform/kel/Reflection.h"

namespace Routing {

RouteKey::RouteKey(const char* begin, const char* end) {
  Kel::TextCursor c(begin, end);
  *this = RouteKey(c);
  c.expectEnd();
}

RouteKey::RouteKey(Kel::TextCursor& c) {
  Kel::ValueFormReader r(c, kTypeName);
  prefix_ = r.field<Velnet::IpGenPrefix>("prefix");
  r.end();
}

std::string RouteKey::strep() const {
  return Kel::ValueFormWriter(kTypeName).field("prefix", prefix_).str();
}

std::ostream& operator<<(std::ostream& os, const RouteKey& k) { return os << k.strep(); }

namespace {

[[maybe_unused]] const bool kRouteKeyRegistered = Kel::registerValueType<RouteKey>(
    RouteKey::kTypeName,
    {Kel::AttrInfo{"prefix", "Velnet::IpGenPrefix", Kel::AttrKind::ctorParam}});

}  // namespace

KEL_REGISTER_ENTITY(RouteList);

}  // namespace Routing
