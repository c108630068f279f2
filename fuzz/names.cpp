// Names (platform/l3/L3.h, platform/velnet/Velnet.h): VRF names and interface ids in their quoted
// text forms, with the limits every way of making one must keep.
//
// Selector: 'v' VrfName, 'i' IntfId.
#include "fuzz/FuzzCheck.h"
#include "platform/l3/L3.h"
#include "platform/velnet/Velnet.h"

using ProtoribFuzz::check;
using ProtoribFuzz::OnRefusal;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto in = ProtoribFuzz::split(data, size);
  if (!in) return 0;
  const std::string_view t = in->text;
  if (ProtoribFuzz::pick(in->selector, "vi") == 0) {
    if (auto n = ProtoribFuzz::strepRoundTrip<L3::VrfName>(t, OnRefusal::cursorKept)) {
      check(n->str().size() <= L3::VrfName::maxLength, "a VRF name past its limit", t);
      check(L3::VrfName(n->str()) == *n, "a VRF name made from its text differs", t);
    }
  } else if (auto i = ProtoribFuzz::strepRoundTrip<Velnet::IntfId>(t, OnRefusal::cursorKept)) {
    check(i->name().size() <= Velnet::IntfId::maxNameLength, "an interface name past its limit",
          t);
    check(Velnet::IntfId(i->name()) == *i, "an interface interned twice", t);
    check(!*i == i->name().empty(), "the empty interface is not 'no interface'", t);
  }
  return 0;
}
