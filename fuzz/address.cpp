// Addresses (platform/velnet/Velnet.h): the unquoted parsers IpAddr::parse, Ip6Addr::parse and
// IpGenAddr::parse with their str() forms, and the quoted text forms of all three.
//
// Selector: '4' IPv4, '6' IPv6, 'g' either family (unquoted text); 'Q' the quoted forms.
#include "fuzz/FuzzCheck.h"
#include "platform/velnet/Velnet.h"

using ProtoribFuzz::check;
using ProtoribFuzz::strepRoundTrip;

namespace {

// parse(text) -> str() -> parse: the same value and the same text again.
template <class A>
std::optional<A> plainRoundTrip(std::string_view text) {
  std::optional<A> a;
  try {
    a.emplace(A::parse(text));
  } catch (const Kel::Exception&) {
    return std::nullopt;
  }
  std::string printed = a->str();
  std::optional<A> again;
  try {
    again.emplace(A::parse(printed));
  } catch (const Kel::Exception& e) {
    ProtoribFuzz::fail("the printed address is refused", text, printed + " -> " + e.what());
  }
  check(*again == *a, "the printed address parses to another", text, printed);
  check(again->str() == printed, "the address prints differently once parsed back", text, printed);
  return a;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto in = ProtoribFuzz::split(data, size);
  if (!in) return 0;
  const std::string_view t = in->text;
  switch (ProtoribFuzz::pick(in->selector, "46gQ")) {
    case 0:
      if (auto a = plainRoundTrip<Velnet::IpAddr>(t)) {
        Velnet::IpGenAddr g(*a);
        check(g.af() == Velnet::AddressFamily::ipv4 && g.v4() == *a, "IPv4 into IpGenAddr", t);
        check(g.hash() == a->hash(), "an IPv4 address hashes unlike its IpGenAddr", t);
      }
      break;
    case 1:
      if (auto a = plainRoundTrip<Velnet::Ip6Addr>(t)) {
        Velnet::IpGenAddr g(*a);
        check(g.asV6Bytes() == a->bytes() && g.v6() == *a, "IPv6 into IpGenAddr", t);
      }
      break;
    case 2:
      if (auto g = plainRoundTrip<Velnet::IpGenAddr>(t)) {
        // Whichever family the text has, the family's own parser agrees.
        if (g->af() == Velnet::AddressFamily::ipv4) {
          check(Velnet::IpAddr::parse(t) == g->v4(), "IpGenAddr and IpAddr disagree", t);
        } else if (g->af() == Velnet::AddressFamily::ipv6) {
          check(Velnet::Ip6Addr::parse(t) == g->v6(), "IpGenAddr and Ip6Addr disagree", t);
        } else {
          check(t.empty(), "only the empty text is the empty address", t);
        }
      }
      break;
    default:
      strepRoundTrip<Velnet::IpAddr>(t, ProtoribFuzz::OnRefusal::cursorKept);
      strepRoundTrip<Velnet::Ip6Addr>(t, ProtoribFuzz::OnRefusal::cursorKept);
      strepRoundTrip<Velnet::IpGenAddr>(t, ProtoribFuzz::OnRefusal::cursorKept);
  }
  return 0;
}
