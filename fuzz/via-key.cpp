// Via keys and via metrics (platform/rib/RibTypes.h, platform/rib/ViaMetric.h) in their
// "Value('Routing::Rib::ViaKey', ** {...})" text forms.
//
// Selector: 'k' Rib::ViaKey, 'm' Rib::ViaMetric.
#include "fuzz/FuzzCheck.h"
#include "platform/rib/RibTypes.h"
#include "platform/rib/ViaMetric.h"

using ProtoribFuzz::check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto in = ProtoribFuzz::split(data, size);
  if (!in) return 0;
  const std::string_view t = in->text;
  if (ProtoribFuzz::pick(in->selector, "km") == 0) {
    if (auto k = ProtoribFuzz::strepRoundTrip<Routing::Rib::ViaKey>(t)) {
      // Order and equality agree, and the short trace form is printable for every key.
      check(!(*k < *k) && *k <= *k, "a via key is ordered before itself", t);
      check(!k->str().empty(), "a via key's short form is empty", t);
    }
  } else {
    ProtoribFuzz::strepRoundTrip<Routing::Rib::ViaMetric>(t);
  }
  return 0;
}
