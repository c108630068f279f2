#include "agent/Script.h"

#include <charconv>

#include "platform/kel/Exception.h"
#include "platform/rib/RouteConfig.h"

namespace Routing::Protocol::Agent {

namespace {

std::string quoted(std::string_view w) { return "'" + std::string(w) + "'"; }

}  // namespace

std::optional<Command> parseLine(std::string_view line) {
  if (auto hash = line.find('#'); hash != std::string_view::npos) line = line.substr(0, hash);
  Command c;
  size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t' || line[i] == '\r')) ++i;
    size_t start = i;
    while (i < line.size() && line[i] != ' ' && line[i] != '\t' && line[i] != '\r') ++i;
    if (i == start) break;
    if (c.verb.empty()) {
      c.verb = line.substr(start, i - start);
    } else {
      c.args.push_back(line.substr(start, i - start));
    }
  }
  if (c.verb.empty()) return std::nullopt;
  return c;
}

uint64_t parseUnsigned(std::string_view word, std::string_view what, uint64_t max) {
  uint64_t v = 0;
  auto [end, ec] = std::from_chars(word.data(), word.data() + word.size(), v);
  if (word.empty() || ec != std::errc() || end != word.data() + word.size()) {
    throw Kel::ParseException("bad " + std::string(what) + " " + quoted(word) + ": expected a number");
  }
  if (v > max) {
    throw Kel::RangeException("bad " + std::string(what) + " " + quoted(word) + ": at most " + std::to_string(max));
  }
  return v;
}

Velnet::IpGenPrefix parsePrefix(std::string_view word) {
  try {
    return Velnet::IpGenPrefix::parse(word);
  } catch (const Kel::Exception&) {
    throw Kel::ParseException("bad prefix " + quoted(word));
  }
}

Velnet::IpGenAddr parseAddress(std::string_view word) {
  try {
    return Velnet::IpGenAddr::parse(word);
  } catch (const Kel::Exception&) {
    throw Kel::ParseException("bad address " + quoted(word));
  }
}

Rib::Transport parseTransport(std::string_view word) {
  if (word == "ipv4") return Rib::Transport::ipv4;
  if (word == "ipv6") return Rib::Transport::ipv6;
  if (word == "evpn") return Rib::Transport::evpn;
  throw Kel::ParseException("bad transport " + quoted(word) + ": expected ipv4, ipv6 or evpn");
}

Velnet::AddressFamily parseFamily(std::string_view word) {
  if (word == "ipv4") return Velnet::AddressFamily::ipv4;
  if (word == "ipv6") return Velnet::AddressFamily::ipv6;
  throw Kel::ParseException("bad family " + quoted(word) + ": expected ipv4 or ipv6");
}

bool parseOnOff(std::string_view word) {
  if (word == "on") return true;
  if (word == "off") return false;
  throw Kel::ParseException("expected on or off, not " + quoted(word));
}

Fib::RouteType parseFibType(std::string_view word) {
  for (auto t : {Fib::RouteType::forward, Fib::RouteType::drop, Fib::RouteType::receive, Fib::RouteType::attached}) {
    if (word == Fib::stringValue(t)) return t;
  }
  throw Kel::ParseException("bad fib-type " + quoted(word) + ": expected forward, drop, receive or attached");
}

void expectWords(const std::vector<std::string_view>& words, size_t min, size_t max, std::string_view usage) {
  if (words.size() < min || words.size() > max) throw Kel::ParseException("usage: " + std::string(usage));
}

RouteAdd parseRouteAdd(const std::vector<std::string_view>& w) {
  static constexpr std::string_view usage =
      "route add VRF PREFIX pref N via NEXTHOP [label N] [intf X] [via ...] [evpn NEXTHOP vni N [vtep ADDR]] "
      "[fec N] [tag N] [nofib] [fib-type T] [src-vrf ID] [leak-to VRF] [mrib]";
  if (w.size() < 6 || w[2] != "pref" || (w[4] != "via" && w[4] != "evpn")) {
    throw Kel::ParseException("usage: " + std::string(usage));
  }
  RouteAdd r;
  r.vrf = std::string(w[0]);
  r.prefix = parsePrefix(w[1]);
  r.preference = static_cast<unsigned>(parseUnsigned(w[3], "preference", 255));
  auto value = [&](size_t& i) -> std::string_view {
    if (i + 1 >= w.size()) throw Kel::ParseException(std::string(w[i]) + " needs a value");
    return w[++i];
  };
  for (size_t i = 4; i < w.size(); ++i) {
    const std::string_view k = w[i];
    if (k == "via" || k == "evpn") {
      ViaSpec v;
      v.nextHop = parseAddress(value(i));
      v.evpn = k == "evpn";
      r.vias.push_back(v);
    } else if (k == "vni" || k == "vtep") {
      if (r.vias.empty() || !r.vias.back().evpn) throw Kel::ParseException(std::string(k) + " must follow an evpn via");
      if (k == "vni") {
        r.vias.back().vni = static_cast<uint32_t>(parseUnsigned(value(i), "vni", 0xFFFFFF));
      } else {
        r.vias.back().vtep = parseAddress(value(i));
      }
    } else if (k == "label" || k == "intf") {
      if (r.vias.empty()) throw Kel::ParseException(std::string(k) + " must follow a via");
      if (k == "label" && r.vias.back().evpn) throw Kel::ParseException("an evpn via takes no label");
      if (k == "label") {
        r.vias.back().label = static_cast<uint32_t>(parseUnsigned(value(i), "label", Rib::Via::maxLabel));
      } else {
        r.vias.back().intf = std::string(value(i));
      }
    } else if (k == "fec") {
      r.fecType = static_cast<uint8_t>(parseUnsigned(value(i), "fec type", 255));
    } else if (k == "tag") {
      r.tag = static_cast<uint32_t>(parseUnsigned(value(i), "tag", UINT32_MAX));
    } else if (k == "nofib") {
      r.installInFib = false;
    } else if (k == "fib-type") {
      r.fibType = parseFibType(value(i));
    } else if (k == "src-vrf") {
      r.srcVrfId = static_cast<uint32_t>(parseUnsigned(value(i), "src-vrf", UINT32_MAX));
    } else if (k == "leak-to") {
      const std::string_view to = value(i);
      (void)L3::VrfName(to);  // checks the name
      r.leakTo = std::string(to);
    } else if (k == "mrib") {
      r.mrib = true;
    } else {
      throw Kel::ParseException("unknown route option " + quoted(k));
    }
  }
  if (r.vias.size() > 512) throw Kel::RangeException("at most 512 vias per alternative");
  for (const auto& v : r.vias) {
    if (v.evpn && v.vni == 0) throw Kel::ParseException("evpn via " + v.nextHop.str() + " needs a vni");
  }
  return r;
}

}  // namespace Routing::Protocol::Agent
