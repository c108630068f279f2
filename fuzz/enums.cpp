// The platform's enumerations in their text forms: a quoted enumerator name, or for a value with
// no enumerator its decimal number (platform/velnet/Velnet.h's detail::enumParse). Also the name
// lookups that tables and mount paths use: Rib::routingProtocolFromString against stringValue.
//
// Selector: 'a' Velnet::AddressFamily, 't' Rib::Transport, 'p' Rib::RoutingProtocol,
// 'f' Fib::RouteType, 'o' Bfd::OperState, 'n' routingProtocolFromString on the bare text.
#include "fuzz/FuzzCheck.h"
#include "platform/bfd/Bfd.h"
#include "platform/rib/RibTypes.h"
#include "platform/routing/Routing.h"
#include "platform/velnet/Velnet.h"

using ProtoribFuzz::OnRefusal;
using ProtoribFuzz::strepRoundTrip;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto in = ProtoribFuzz::split(data, size);
  if (!in) return 0;
  const std::string_view t = in->text;
  switch (ProtoribFuzz::pick(in->selector, "atpfon")) {
    case 0: strepRoundTrip<Velnet::AddressFamily>(t, OnRefusal::cursorKept); break;
    case 1: strepRoundTrip<Routing::Rib::Transport>(t, OnRefusal::cursorKept); break;
    case 2: strepRoundTrip<Routing::Rib::RoutingProtocol>(t, OnRefusal::cursorKept); break;
    case 3: strepRoundTrip<Routing::Fib::RouteType>(t, OnRefusal::cursorKept); break;
    case 4: strepRoundTrip<Bfd::OperState>(t, OnRefusal::cursorKept); break;
    default: {
      std::optional<Routing::Rib::RoutingProtocol> p;
      try {
        p = Routing::Rib::routingProtocolFromString(t);
      } catch (const Kel::Exception&) {
        return 0;
      }
      ProtoribFuzz::check(Routing::Rib::stringValue(*p) == t,
                          "routingProtocolFromString is not stringValue's inverse", t);
    }
  }
  return 0;
}
