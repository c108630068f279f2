// The agent's command language: one command a line, words separated by blanks, `#` to the end of
// the line a comment. A line is cut into words without copying (the views point into the line),
// so a script of a million routes loads at the speed of its text; each command then reads its
// words through the typed readers below, which raise Kel::ParseException with a message that
// names the word at fault. Nothing here touches the library: a fuzzer can drive it alone.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/rib/RibTypes.h"
#include "platform/routing/Routing.h"
#include "platform/velnet/Velnet.h"

namespace Routing::Protocol::Agent {

// One command: its verb and the words after it, viewing the line it came from.
struct Command {
  std::string_view verb;
  std::vector<std::string_view> args;
};

// The words of `line`; nullopt for a blank or comment-only line.
std::optional<Command> parseLine(std::string_view line);

// Typed readers; `what` names the word in the message ("route limit", "preference").
uint64_t parseUnsigned(std::string_view word, std::string_view what, uint64_t max);
Velnet::IpGenPrefix parsePrefix(std::string_view word);
Velnet::IpGenAddr parseAddress(std::string_view word);
Rib::Transport parseTransport(std::string_view word);  // ipv4, ipv6, evpn
Velnet::AddressFamily parseFamily(std::string_view word);  // ipv4, ipv6
bool parseOnOff(std::string_view word);
Fib::RouteType parseFibType(std::string_view word);

// One via of `route add`: an IP via, or an EVPN via (`evpn ADDR vni N [vtep ADDR]`) whose VTEP
// companion is the IP via to `vtep` (ADDR itself when not given) in the default VRF.
struct ViaSpec {
  Velnet::IpGenAddr nextHop;
  std::string intf;  // empty: none
  uint32_t label = 0xFFFFFFFF;  // Rib::Via::noLabel
  bool evpn = false;
  uint32_t vni = 0;
  std::optional<Velnet::IpGenAddr> vtep;
};

// `route add VRF PREFIX pref N via NH [label N] [intf X] [via ...] [evpn NH vni N [vtep A]]
//  [fec N] [tag N] [nofib] [fib-type T] [src-vrf ID] [leak-to VRF] [mrib]`, with the verb and
//  "add" already taken.
struct RouteAdd {
  std::string vrf;
  Velnet::IpGenPrefix prefix;
  unsigned preference = 0;
  std::vector<ViaSpec> vias;
  uint8_t fecType = 0;
  uint32_t tag = 0;
  bool installInFib = true;
  Fib::RouteType fibType = Fib::RouteType::forward;
  std::optional<uint32_t> srcVrfId;
  std::optional<std::string> leakTo;
  // The alternative goes to the VRF's multicast (mrib) container instead of its unicast one.
  bool mrib = false;
};
RouteAdd parseRouteAdd(const std::vector<std::string_view>& words);

// Throws ParseException "expected <expected>" unless `words` has a size within [min, max].
void expectWords(const std::vector<std::string_view>& words, size_t min, size_t max, std::string_view usage);

}  // namespace Routing::Protocol::Agent
