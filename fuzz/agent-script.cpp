// The agent's command parser (agent/Script.h): a script cut into lines, each line into words, the
// typed readers on every word, and `route add` read in full.
//
// Round trips: a line's words joined by single blanks cut into the same words; a `route add`
// printed back in its canonical order reads as the same route; every number, prefix and address
// a reader accepts prints as text the reader accepts as the same value. No selector: the input is
// the script itself.
#include <string>
#include <vector>

#include "agent/Script.h"
#include "fuzz/FuzzCheck.h"
#include "platform/rib/RouteConfig.h"

namespace Agent = Routing::Protocol::Agent;
using ProtoribFuzz::check;

namespace {

// The canonical text of a `route add`: the words parseRouteAdd reads, each option once.
std::string print(const Agent::RouteAdd& r) {
  std::string out = "route add " + r.vrf + " " + r.prefix.str() + " pref " +
                    std::to_string(r.preference);
  for (const Agent::ViaSpec& v : r.vias) {
    out += (v.evpn ? " evpn " : " via ") + v.nextHop.str();
    if (v.evpn) out += " vni " + std::to_string(v.vni);
    if (v.vtep) out += " vtep " + v.vtep->str();
    if (v.label != Routing::Rib::Via::noLabel) out += " label " + std::to_string(v.label);
    if (!v.intf.empty()) out += " intf " + v.intf;
  }
  if (r.fecType != 0) out += " fec " + std::to_string(r.fecType);
  if (r.tag != 0) out += " tag " + std::to_string(r.tag);
  if (!r.installInFib) out += " nofib";
  if (r.fibType != Routing::Fib::RouteType::forward) {
    out += " fib-type " + std::string(Routing::Fib::stringValue(r.fibType));
  }
  if (r.srcVrfId) out += " src-vrf " + std::to_string(*r.srcVrfId);
  if (r.leakTo) out += " leak-to " + *r.leakTo;
  if (r.mrib) out += " mrib";
  return out;
}

bool sameRoute(const Agent::RouteAdd& a, const Agent::RouteAdd& b) {
  if (a.vias.size() != b.vias.size()) return false;
  for (size_t i = 0; i < a.vias.size(); ++i) {
    if (a.vias[i].nextHop != b.vias[i].nextHop || a.vias[i].intf != b.vias[i].intf ||
        a.vias[i].label != b.vias[i].label || a.vias[i].evpn != b.vias[i].evpn ||
        a.vias[i].vni != b.vias[i].vni || a.vias[i].vtep != b.vias[i].vtep) {
      return false;
    }
  }
  return a.vrf == b.vrf && a.prefix == b.prefix && a.preference == b.preference &&
         a.fecType == b.fecType && a.tag == b.tag && a.installInFib == b.installInFib &&
         a.fibType == b.fibType && a.srcVrfId == b.srcVrfId && a.leakTo == b.leakTo &&
         a.mrib == b.mrib;
}

std::vector<std::string_view> routeAddWords(const Agent::Command& c) {
  return std::vector<std::string_view>(c.args.begin() + 1, c.args.end());
}

void checkRouteAdd(const Agent::Command& c, std::string_view line) {
  std::optional<Agent::RouteAdd> r;
  try {
    r.emplace(Agent::parseRouteAdd(routeAddWords(c)));
  } catch (const Kel::Exception&) {
    return;
  }
  check(!r->vias.empty() && r->vias.size() <= 512, "a route with no via or too many", line);
  check(r->preference <= 255, "a preference past 255", line);
  std::string printed = print(*r);
  auto again = Agent::parseLine(printed);
  check(again && again->verb == "route" && again->args.size() >= 2 && again->args[0] == "add",
        "the printed route is no route add", line, printed);
  try {
    check(sameRoute(Agent::parseRouteAdd(routeAddWords(*again)), *r),
          "the printed route reads as another", line, printed);
  } catch (const Kel::Exception& e) {
    ProtoribFuzz::fail("the printed route is refused", line, printed + " -> " + e.what());
  }
}

// One typed reader on one word, picked by the word's place in its line: a refusal is an exception,
// and exceptions under the sanitizers are slow enough that every reader on every word would cut
// the fuzzer's speed sevenfold. What a reader accepts must read back from its printed form.
void checkReader(std::string_view w, size_t which) {
  try {
    switch (which % 7) {
      case 0: {
        uint64_t v = Agent::parseUnsigned(w, "number", UINT64_MAX);
        check(Agent::parseUnsigned(std::to_string(v), "number", UINT64_MAX) == v, "a number", w);
        break;
      }
      case 1: {
        Velnet::IpGenPrefix p = Agent::parsePrefix(w);
        check(Agent::parsePrefix(p.str()) == p, "a prefix", w, p.str());
        break;
      }
      case 2: {
        Velnet::IpGenAddr a = Agent::parseAddress(w);
        check(Agent::parseAddress(a.str()) == a, "an address", w, a.str());
        break;
      }
      case 3:
        check(Routing::Rib::stringValue(Agent::parseTransport(w)) == w, "a transport", w);
        break;
      case 4: check(Velnet::afName(Agent::parseFamily(w)) == w, "a family", w); break;
      case 5: check((Agent::parseOnOff(w) ? "on" : "off") == w, "on or off", w); break;
      default:
        check(Routing::Fib::stringValue(Agent::parseFibType(w)) == w, "a fib-type", w);
        break;
    }
  } catch (const Kel::Exception&) {
  }
}

void checkLine(std::string_view line) {
  auto c = Agent::parseLine(line);
  if (!c) return;
  std::string joined(c->verb);
  for (std::string_view a : c->args) {
    check(!a.empty(), "an empty word", line);
    joined += ' ';
    joined += a;
  }
  auto again = Agent::parseLine(joined);
  check(again && again->verb == c->verb && again->args == c->args,
        "a line's words joined by blanks cut differently", line, joined);
  if (c->verb == "route" && !c->args.empty() && c->args[0] == "add") checkRouteAdd(*c, line);
  for (size_t i = 0; i < c->args.size(); ++i) checkReader(c->args[i], i);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view script(reinterpret_cast<const char*>(data), size);
  while (!script.empty()) {
    size_t nl = script.find('\n');
    checkLine(script.substr(0, nl));
    if (nl == std::string_view::npos) break;
    script.remove_prefix(nl + 1);
  }
  return 0;
}
