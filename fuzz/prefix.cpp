// Prefixes (platform/velnet/Velnet.h): IpGenPrefix::parse with str(), and the quoted text form.
//
// Selector: 'p' unquoted text, 'Q' the quoted form.
#include "fuzz/FuzzCheck.h"
#include "platform/velnet/Velnet.h"

using ProtoribFuzz::check;

namespace {

void checkPrefix(const Velnet::IpGenPrefix& p, std::string_view text) {
  check(p.len() <= Velnet::IpGenPrefix::maxLength(p.af()), "a length past the family's maximum",
        text);
  if (p.isEmpty()) {
    check(p.len() == 0 && p.hash() == 0, "the empty prefix is not plain", text);
    return;
  }
  // Host bits are cleared: the prefix is its own address masked to its length.
  check(Velnet::IpGenPrefix(p.address(), p.len()) == p, "host bits left set", text, p.str());
  check(p.contains(p.address()), "a prefix does not contain its own address", text, p.str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto in = ProtoribFuzz::split(data, size);
  if (!in) return 0;
  const std::string_view t = in->text;
  if (ProtoribFuzz::pick(in->selector, "pQ") == 0) {
    std::optional<Velnet::IpGenPrefix> p;
    try {
      p.emplace(Velnet::IpGenPrefix::parse(t));
    } catch (const Kel::Exception&) {
      return 0;
    }
    checkPrefix(*p, t);
    std::string printed = p->str();
    std::optional<Velnet::IpGenPrefix> again;
    try {
      again.emplace(Velnet::IpGenPrefix::parse(printed));
    } catch (const Kel::Exception& e) {
      ProtoribFuzz::fail("the printed prefix is refused", t, printed + " -> " + e.what());
    }
    check(*again == *p, "the printed prefix parses to another", t, printed);
    check(again->str() == printed, "the prefix prints differently once parsed back", t, printed);
  } else if (auto p = ProtoribFuzz::strepRoundTrip<Velnet::IpGenPrefix>(
                 t, ProtoribFuzz::OnRefusal::cursorKept)) {
    checkPrefix(*p, t);
  }
  return 0;
}
