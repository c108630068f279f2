// The library's value keys (keys/ProtocolContainerKey.h) in their text forms, and the range
// constructors that read the first three from a mount path.
//
// Selector: 'c' ContainerKey, 'r' RouteStatusKey, 'p' PrefixPrefVrfId, 'v' VrfIdAf,
// 'l' VrfPairAf.
#include "fuzz/FuzzCheck.h"
#include "keys/ProtocolContainerKey.h"

using ProtoribFuzz::strepRoundTrip;
namespace P = Routing::Protocol;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto in = ProtoribFuzz::split(data, size);
  if (!in) return 0;
  const std::string_view t = in->text;
  switch (ProtoribFuzz::pick(in->selector, "crpvl")) {
    case 0: ProtoribFuzz::rangeAgrees(t, strepRoundTrip<P::ContainerKey>(t)); break;
    case 1: ProtoribFuzz::rangeAgrees(t, strepRoundTrip<P::RouteStatusKey>(t)); break;
    case 2: ProtoribFuzz::rangeAgrees(t, strepRoundTrip<P::PrefixPrefVrfId>(t)); break;
    case 3: strepRoundTrip<P::VrfIdAf>(t); break;
    default: strepRoundTrip<P::VrfPairAf>(t); break;
  }
  return 0;
}
