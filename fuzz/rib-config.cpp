// The RIB configuration values (platform/rib/RouteConfig.h, ViaSet.h, ViaSetConfig.h) and the
// FIB route key (platform/routing/RouteList.h) in their text forms; a via set holds up to 512 via
// keys, all labelled or none.
//
// Selector: 'k' Rib::RouteKey, 'r' Rib::Route, 'v' Rib::Via, 's' Rib::Shmtab::ViaSet,
// 'c' Rib::ViaSetConfigKey, 'f' Routing::RouteKey.
#include "fuzz/FuzzCheck.h"
#include "platform/rib/RouteConfig.h"
#include "platform/rib/ViaSet.h"
#include "platform/rib/ViaSetConfig.h"
#include "platform/routing/RouteList.h"

using ProtoribFuzz::check;
using ProtoribFuzz::strepRoundTrip;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto in = ProtoribFuzz::split(data, size);
  if (!in) return 0;
  const std::string_view t = in->text;
  switch (ProtoribFuzz::pick(in->selector, "krvscf")) {
    case 0: strepRoundTrip<Routing::Rib::RouteKey>(t); break;
    case 1: strepRoundTrip<Routing::Rib::Route>(t); break;
    case 2: strepRoundTrip<Routing::Rib::Via>(t); break;
    case 3:
      if (auto s = strepRoundTrip<Routing::Rib::Shmtab::ViaSet>(t)) {
        check(s->viaCount() <= Routing::Rib::Shmtab::ViaSet::viaIndexMax + 1, "too many vias", t);
        check(s->flags() <= Routing::Rib::Shmtab::ViaSet::flagsMax, "flags past their bits", t);
      }
      break;
    case 4: strepRoundTrip<Routing::Rib::ViaSetConfigKey>(t); break;
    default: ProtoribFuzz::rangeAgrees(t, strepRoundTrip<Routing::RouteKey>(t)); break;
  }
  return 0;
}
