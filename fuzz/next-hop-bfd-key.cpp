// The BFD-tracked next hop's key (routestatus/ProtocolBfdTrackedNextHop.h) and the BFD peer it
// maps to (platform/bfd/Bfd.h), in their text forms.
//
// Selector: 'n' NextHopBfdKey, 'p' Bfd::Peer.
#include "fuzz/FuzzCheck.h"
#include "platform/bfd/Bfd.h"
#include "routestatus/ProtocolBfdTrackedNextHop.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto in = ProtoribFuzz::split(data, size);
  if (!in) return 0;
  if (ProtoribFuzz::pick(in->selector, "np") == 0) {
    ProtoribFuzz::strepRoundTrip<Routing::Protocol::NextHopBfdKey>(in->text);
  } else {
    ProtoribFuzz::strepRoundTrip<Bfd::Peer>(in->text);
  }
  return 0;
}
