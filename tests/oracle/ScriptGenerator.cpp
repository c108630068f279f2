#include "tests/oracle/ScriptGenerator.h"

#include <set>

#include "tests/oracle/ScriptOracle.h"

namespace Routing::Protocol::Oracle {

namespace {

// splitmix64: the same numbers on every platform and standard library.
class Rng {
 public:
  // The seed is mixed first: neighbouring seeds must not give shifted copies of one stream.
  explicit Rng(uint64_t seed) : state_(seed) { state_ = next() ^ 0x5DEECE66Dull; }
  uint64_t next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  uint32_t below(uint32_t n) { return static_cast<uint32_t>(next() % n); }
  bool percent(uint32_t p) { return below(100) < p; }
  template <class T>
  const T& pick(const std::vector<T>& v) {
    return v[below(static_cast<uint32_t>(v.size()))];
  }

 private:
  uint64_t state_;
};

const std::vector<std::string> kVrfNames = {"red", "blue", "green", "yellow", "purple"};
const std::vector<std::string> kNextHops4 = {"10.0.0.1", "10.0.0.2", "10.0.0.3",
                                             "10.0.0.4", "10.0.0.5", "10.0.0.6"};
const std::vector<std::string> kNextHops6 = {"2001:db8::1", "2001:db8::2", "2001:db8::3",
                                             "2001:db8::4"};
const std::vector<std::string> kEvpnNextHops = {"10.9.9.1", "10.9.9.2", "10.9.9.3"};
const std::vector<std::string> kVteps = {"172.16.0.1", "172.16.0.2"};
const std::vector<std::string> kPrefixes4 = {"10.1.0.0/16", "10.2.0.0/16", "10.3.0.0/16",
                                             "10.4.0.0/16", "10.5.0.0/16", "192.168.1.0/24"};
const std::vector<std::string> kPrefixes6 = {"2001:db8:1::/48", "2001:db8:2::/48",
                                             "2001:db8:3::/48"};
const std::vector<std::string> kSessionStates = {"up",   "up",         "down",
                                                 "init", "admin-down", "withdraw"};
const std::vector<std::string> kFibTypes = {"drop", "receive", "attached"};

// The fixed label of a next hop, 0 for none: the last two of each pool are labelled.
uint32_t labelOf(const std::string& nh) {
  if (nh == "10.0.0.5" || nh == "10.0.0.6") return 1000 + static_cast<uint32_t>(nh.back() - '0');
  if (nh == "2001:db8::3" || nh == "2001:db8::4")
    return 2000 + static_cast<uint32_t>(nh.back() - '0');
  return 0;
}

class Generator {
 public:
  explicit Generator(const GeneratorOptions& o) : rng_(o.seed), options_(o) {}

  std::vector<std::string> script() {
    if (rng_.percent(25)) emit("protocol routeInput");
    emit("start cold");
    // The companions' metrics, once and for all (see the header).
    emit("metric default ipv4 10.9.9.1 resolved");
    emit("metric default ipv4 10.9.9.3 resolved");
    emit("metric default ipv4 172.16.0.1 resolved");
    for (unsigned i = 0; i < options_.events; ++i) event();
    emit("run");
    return lines_;
  }

 private:
  void emit(const std::string& line) {
    oracle_.apply(line);
    lines_.push_back(line);
  }

  std::vector<std::string> vrfNames(bool withDefault = true) const {
    std::vector<std::string> v;
    for (const auto& [name, vrf] : oracle_.vrfs()) {
      if (withDefault || name != "default") v.push_back(name);
    }
    return v;
  }
  // An existing VRF, now and then one that is not there.
  std::string someVrf() {
    if (rng_.percent(3)) return "nowhere";
    return rng_.pick(vrfNames());
  }
  // A free id, now and then one in use (refused). Ids are few, so a VRF that goes soon passes its
  // id to another name.
  uint32_t freeId() {
    std::set<uint32_t> used;
    for (const auto& [n, v] : oracle_.vrfs()) used.insert(v.id);
    if (rng_.percent(5))
      return rng_.pick(std::vector<uint32_t>(used.begin(), used.end()));  // refused
    uint32_t id;
    do id = 1 + rng_.below(2 * static_cast<uint32_t>(kVrfNames.size()));
    while (used.count(id));
    return id;
  }
  // An existing route as (VRF, prefix); false when there is none.
  bool someRoute(std::string& vrf, std::string& prefix) {
    std::vector<std::pair<std::string, std::string>> all;
    for (const auto& [name, v] : oracle_.vrfs()) {
      for (const auto& [key, r] : v.routes) all.emplace_back(name, key.second);
    }
    if (all.empty()) return false;
    const auto& p = rng_.pick(all);
    vrf = p.first;
    prefix = p.second;
    return true;
  }
  std::string nextHop(int fam) { return rng_.pick(fam == 4 ? kNextHops4 : kNextHops6); }
  std::string prefixOf(int fam) { return rng_.pick(fam == 4 ? kPrefixes4 : kPrefixes6); }

  void event() {
    const uint32_t r = rng_.below(100);
    if (r < 4) return vrfAdd();
    if (r < 6) return vrfDel();
    if (r < 8) return vrfRenumber();
    if (r < 10) return intf();
    if (r < 26) return metricIp();
    if (r < 31) return metricEvpn();
    if (r < 34) return looping();
    if (r < 58) return routeAdd();
    if (r < 66) return routeDel();
    if (r < 70) return routeLeak();
    if (r < 76) return bfdTrack();
    if (r < 83) return bfdSession();
    if (r < 85) return emit("seq-trigger " + someVrf() + " " + std::to_string(1 + rng_.below(20)));
    emit("run");
  }

  void vrfAdd() {
    std::vector<std::string> absent;
    for (const auto& n : kVrfNames) {
      if (!oracle_.vrfs().count(n)) absent.push_back(n);
    }
    const std::string name =
        absent.empty() || rng_.percent(5) ? rng_.pick(kVrfNames) : rng_.pick(absent);
    emit("vrf add " + name + " " + std::to_string(freeId()));
  }
  void vrfDel() {
    const auto names = vrfNames(false);
    if (names.empty() || rng_.percent(5)) return emit("vrf del " + rng_.pick(kVrfNames));
    emit("vrf del " + rng_.pick(names));
  }
  // The RIB gives a VRF a new id: it goes and comes back under the new one.
  void vrfRenumber() {
    const auto names = vrfNames(false);
    if (names.empty()) return vrfAdd();
    const std::string name = rng_.pick(names);
    emit("vrf del " + name);
    emit("vrf add " + name + " " + std::to_string(freeId()));
  }
  void intf() {
    const std::string vrf = someVrf();
    const int fam = rng_.percent(50) ? 4 : 6;
    const std::string name = rng_.percent(50) ? "Ethernet1" : "Ethernet2";
    const std::string head = vrf + " " + (fam == 4 ? "ipv4 " : "ipv6 ") + name;
    if (!oracle_.intfHas(vrf, fam, name))
      return emit("intf add " + head + (rng_.percent(30) ? " routing off" : ""));
    if (rng_.percent(50))
      return emit("intf set " + head + " routing " + (rng_.percent(50) ? "on" : "off"));
    emit("intf del " + head);
  }
  void metricIp() {
    const int fam = rng_.percent(70) ? 4 : 6;
    std::string line = "metric " + someVrf() + (fam == 4 ? " ipv4 " : " ipv6 ") + nextHop(fam);
    if (rng_.percent(10)) line += " intf Ethernet1";
    if (rng_.percent(30)) return emit(line + " unresolved");
    line += " resolved cost " + std::to_string(1 + rng_.below(3));
    if (rng_.percent(30)) line += " loopcheck";
    emit(line);
  }
  void metricEvpn() {
    std::string line = "metric " + someVrf() + " evpn " + rng_.pick(kEvpnNextHops) + " vni " +
                       (rng_.percent(50) ? "100" : "200");
    emit(line + (rng_.percent(30) ? " unresolved" : " resolved"));
  }
  void looping() {
    const int fam = rng_.percent(75) ? 4 : 6;
    emit("looping " + someVrf() + " " + prefixOf(fam) + (rng_.percent(60) ? " on" : " off"));
  }

  void routeAdd() {
    std::string vrf, prefix;
    if (!rng_.percent(40) || !someRoute(vrf, prefix)) {
      vrf = someVrf();
      prefix = prefixOf(rng_.percent(70) ? 4 : 6);
    }
    const int fam = familyOf(prefix);
    std::string line =
        "route add " + vrf + " " + prefix + " pref " + std::to_string(1 + rng_.below(3));
    std::set<std::string> used;
    const unsigned n = 1 + rng_.below(3);
    for (unsigned i = 0; i < n; ++i) {
      if (rng_.percent(20)) {
        const std::string nh = rng_.pick(kEvpnNextHops);
        const std::string vni = rng_.percent(50) ? "100" : "200";
        if (!used.insert("evpn " + nh + " " + vni).second) continue;
        line += " evpn " + nh + " vni " + vni;
        if (rng_.percent(50)) line += " vtep " + rng_.pick(kVteps);
        continue;
      }
      const std::string nh = nextHop(fam);
      const std::string intf = rng_.percent(10) ? "Ethernet1" : "";
      if (!used.insert(nh + "%" + intf).second) continue;
      line += " via " + nh;
      if (labelOf(nh)) line += " label " + std::to_string(labelOf(nh));
      if (!intf.empty()) line += " intf " + intf;
    }
    const uint32_t fec = rng_.below(100);
    if (fec < 10)
      line += " fec 2";
    else if (fec < 14)
      line += " fec 1";
    if (rng_.percent(15)) line += " tag " + std::to_string(1 + rng_.below(99));
    if (rng_.percent(10)) line += " nofib";
    if (rng_.percent(10)) line += " fib-type " + rng_.pick(kFibTypes);
    if (rng_.percent(10)) line += " src-vrf " + std::to_string(1 + rng_.below(9));
    if (rng_.percent(20)) line += " leak-to " + rng_.pick(vrfNames());
    emit(line);
  }
  void routeDel() {
    std::string vrf, prefix;
    if (rng_.percent(5) || !someRoute(vrf, prefix)) {
      return emit("route del " + someVrf() + " " + prefixOf(4));
    }
    const auto& route = oracle_.vrfs().at(vrf).routes.at({familyOf(prefix), prefix});
    if (rng_.percent(60)) {
      const unsigned pref = rng_.percent(85) ? route.alts.begin()->first : 1 + rng_.below(3);
      return emit("route del " + vrf + " " + prefix + " pref " + std::to_string(pref));
    }
    emit("route del " + vrf + " " + prefix);
  }
  void routeLeak() {
    std::string vrf, prefix;
    if (!someRoute(vrf, prefix)) return routeAdd();
    if (rng_.percent(25)) return emit("route leak " + vrf + " " + prefix);
    emit("route leak " + vrf + " " + prefix + " " + rng_.pick(vrfNames()));
  }
  void bfdTrack() {
    std::string vrf, prefix;
    if (!someRoute(vrf, prefix)) return routeAdd();
    const auto& route = oracle_.vrfs().at(vrf).routes.at({familyOf(prefix), prefix});
    // Mostly a next hop the route uses.
    std::string nh = nextHop(familyOf(prefix));
    for (const auto& [pref, alt] : route.alts) {
      for (const auto& v : alt.vias) {
        if (!v.evpn && rng_.percent(40)) nh = v.addr;
      }
    }
    const bool tracked = route.tracked.count(nh) != 0;
    // Now and then the wrong way round, which both sides refuse.
    const bool track = rng_.percent(5) ? tracked : !tracked;
    emit(std::string("bfd ") + (track ? "track " : "untrack ") + vrf + " " + prefix + " " + nh);
  }
  void bfdSession() {
    emit("bfd session " + someVrf() + " " + nextHop(rng_.percent(75) ? 4 : 6) + " " +
         rng_.pick(kSessionStates));
  }

  Rng rng_;
  GeneratorOptions options_;
  ScriptOracle oracle_;
  std::vector<std::string> lines_;
};

}  // namespace

std::vector<std::string> generateScript(const GeneratorOptions& options) {
  return Generator(options).script();
}

}  // namespace Routing::Protocol::Oracle
