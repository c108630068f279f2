#include "tests/oracle/ScriptOracle.h"

#include <algorithm>
#include <sstream>

namespace Routing::Protocol::Oracle {

namespace {

std::vector<std::string> words(const std::string& line) {
  std::vector<std::string> w;
  std::istringstream in(line.substr(0, line.find('#')));
  for (std::string s; in >> s;) w.push_back(s);
  return w;
}

uint32_t num(const std::string& s) { return static_cast<uint32_t>(std::stoul(s)); }

std::string famName(int fam) { return fam == 4 ? "ipv4" : "ipv6"; }

// The states in which a BFD session lets its next hop be used: administratively down means the
// operator took the session away, not that the path failed.
bool sessionUsable(const std::string& state) { return state == "up" || state == "admin-down"; }

}  // namespace

int familyOf(const std::string& text) { return text.find(':') == std::string::npos ? 4 : 6; }

ScriptOracle::ScriptOracle() = default;

std::string ScriptOracle::viaText(const std::string& transport, uint32_t vrfId,
                                  const std::string& addr, const std::string& intf,
                                  std::optional<uint32_t> label, uint32_t vni) {
  std::string s = transport + "/" + std::to_string(vrfId) + " " + addr;
  if (!intf.empty()) s += "%" + intf;
  if (transport == "evpn") return s + " vni " + std::to_string(vni);
  if (label) s += " label " + std::to_string(*label);
  return s;
}

bool ScriptOracle::apply(const std::string& line) {
  const auto w = words(line);
  if (w.empty()) return true;
  return applyWords(w);
}

bool ScriptOracle::applyWords(const std::vector<std::string>& w) {
  const std::string& verb = w[0];
  if (verb == "protocol") {
    if (started_) return false;
    shared_ = w.at(1) == "routeInput";
    return true;
  }
  if (verb == "start") {
    if (started_) return false;
    started_ = true;
    vrfs_["default"] = VrfIn{};
    return true;
  }
  if (verb == "run" || verb == "show" || verb == "trace" || verb == "follow") return true;
  if (!started_) return false;

  auto vrf = [&](const std::string& name) -> VrfIn* {
    auto it = vrfs_.find(name);
    return it == vrfs_.end() ? nullptr : &it->second;
  };

  if (verb == "vrf") {
    if (w.at(1) == "add") {
      const uint32_t id = num(w.at(3));
      if (vrfs_.count(w[2])) return false;
      for (const auto& [n, v] : vrfs_) {
        if (v.id == id) return false;
      }
      vrfs_[w[2]] = VrfIn{id, 0, {}};
      return true;
    }
    auto* v = vrf(w.at(2));
    if (!v || w[2] == "default") return false;
    vrfs_.erase(w[2]);
    return true;
  }
  if (verb == "intf") {
    if (!vrf(w.at(2))) return false;
    const auto key = std::make_tuple(w[2], w.at(3) == "ipv4" ? 4 : 6, w.at(4));
    const bool exists = intfs_.count(key) != 0;
    if (w[1] == "add") {
      if (exists) return false;
      intfs_.insert(key);
    } else if (w[1] == "set") {
      if (!exists) return false;
    } else {
      if (!exists) return false;
      intfs_.erase(key);
    }
    return true;
  }
  if (verb == "metric") {
    const auto* v = vrf(w.at(1));
    if (!v) return false;
    const std::string transport = w.at(2);
    const std::string& addr = w.at(3);
    std::string intf;
    uint32_t vni = 0;
    bool resolved = false, loopCheck = false;
    for (size_t i = 4; i < w.size(); ++i) {
      if (w[i] == "intf")
        intf = w.at(++i);
      else if (w[i] == "vni")
        vni = num(w.at(++i));
      else if (w[i] == "cost")
        ++i;
      else if (w[i] == "loopcheck")
        loopCheck = true;
      else if (w[i] == "resolved")
        resolved = true;
    }
    // Every EVPN metric lives in the default VRF's table, keyed by the VRF of the via.
    const MetricKey key{transport == "evpn" ? 0 : v->id, transport, v->id, addr, intf, vni};
    if (resolved)
      metrics_[key] = Metric{loopCheck};
    else
      metrics_.erase(key);
    return true;
  }
  if (verb == "looping") {
    if (!vrf(w.at(1))) return false;
    const auto key = std::make_tuple(w[1], familyOf(w.at(2)), w[2]);
    if (w.at(3) == "on")
      looping_.insert(key);
    else
      looping_.erase(key);
    return true;
  }
  if (verb == "seq-trigger") {
    auto* v = vrf(w.at(1));
    if (!v) return false;
    if (num(w.at(2)) != 0) v->seq = num(w[2]);
    return true;
  }
  if (verb == "bfd") {
    auto* v = vrf(w.at(2));
    if (!v) return false;
    if (w[1] == "session") {
      const auto key = std::make_pair(w[2], w.at(3));
      if (w.at(4) != "withdraw")
        sessions_[key] = w[4];
      else if (!sessions_.erase(key))
        return false;  // nothing to withdraw
      return true;
    }
    auto r = v->routes.find({familyOf(w.at(3)), w[3]});
    if (r == v->routes.end()) return false;
    const std::string& nh = w.at(4);
    if (w[1] == "track") {
      if (r->second.tracked.count(nh)) return false;
      r->second.tracked.insert(nh);
    } else {
      if (!r->second.tracked.count(nh)) return false;
      r->second.tracked.erase(nh);
    }
    return true;
  }
  if (verb != "route") return true;

  auto* v = vrf(w.at(2));
  if (!v) return false;
  const std::pair<int, std::string> key{familyOf(w.at(3)), w[3]};
  auto r = v->routes.find(key);
  if (w[1] == "del") {
    if (r == v->routes.end()) return false;
    if (w.size() >= 6 && w[4] == "pref") {
      if (!r->second.alts.erase(num(w[5]))) return false;
      if (!r->second.alts.empty()) return true;
    }
    v->routes.erase(r);
    return true;
  }
  if (w[1] == "leak") {
    if (r == v->routes.end()) return false;
    r->second.leakTo = w.size() > 4 ? w[4] : "";
    return true;
  }
  // route add VRF PREFIX pref N ...
  AltIn alt;
  const unsigned pref = num(w.at(5));
  std::optional<uint32_t> srcVrf;
  std::string leakTo;
  for (size_t i = 6; i < w.size(); ++i) {
    if (w[i] == "via") {
      ViaIn via;
      via.addr = w.at(++i);
      alt.vias.push_back(via);
    } else if (w[i] == "label") {
      alt.vias.back().label = num(w.at(++i));
    } else if (w[i] == "intf") {
      alt.vias.back().intf = w.at(++i);
    } else if (w[i] == "evpn") {
      ViaIn via;
      via.evpn = true;
      via.addr = w.at(++i);
      via.vtep = via.addr;
      alt.vias.push_back(via);
    } else if (w[i] == "vni") {
      alt.vias.back().vni = num(w.at(++i));
    } else if (w[i] == "vtep") {
      alt.vias.back().vtep = w.at(++i);
    } else if (w[i] == "fec") {
      alt.fec = num(w.at(++i));
    } else if (w[i] == "tag") {
      alt.tag = num(w.at(++i));
    } else if (w[i] == "nofib") {
      alt.nofib = true;
    } else if (w[i] == "fib-type") {
      alt.fibType = w.at(++i);
    } else if (w[i] == "src-vrf") {
      srcVrf = num(w.at(++i));
    } else if (w[i] == "leak-to") {
      leakTo = w.at(++i);
    }
  }
  RouteIn& route = v->routes[key];
  route.alts[pref] = alt;
  if (srcVrf) route.srcVrf = *srcVrf;
  if (!leakTo.empty()) route.leakTo = leakTo;
  return true;
}

bool ScriptOracle::usable(const std::string& vrf, const VrfIn& v, int fam,
                          const std::string& prefix, const RouteIn& r, const ViaIn& via) const {
  if (via.evpn) {
    const MetricKey own{0, "evpn", v.id, via.addr, "", via.vni};
    const MetricKey companion{0, famName(familyOf(via.vtep)), 0, via.vtep, "", 0};
    return metricHas(own) && metricHas(companion);
  }
  if (r.tracked.count(via.addr)) {
    auto s = sessions_.find({vrf, via.addr});
    if (s == sessions_.end() || !sessionUsable(s->second)) return false;
  }
  auto m = metrics_.find(MetricKey{v.id, famName(familyOf(via.addr)), v.id, via.addr, via.intf, 0});
  if (m == metrics_.end()) return false;
  return !(m->second.loopCheck && looping_.count({vrf, fam, prefix}));
}

std::vector<std::string> ScriptOracle::expected() const {
  std::vector<std::string> out;
  if (!started_) return out;
  for (const auto& [name, v] : vrfs_) {
    out.push_back("vrf " + name + " " + std::to_string(v.id));
    out.push_back("ready " + name + " v4 1 v6 1 reviewed4 1 reviewed6 1 seq " +
                  std::to_string(v.seq));
    for (const auto& [key, r] : v.routes) {
      const auto& [fam, prefix] = key;
      for (const auto& [pref, alt] : r.alts) {
        std::vector<const ViaIn*> use;
        bool labelled = false;
        for (const auto& via : alt.vias) {
          if (!usable(name, v, fam, prefix, r, via)) continue;
          use.push_back(&via);
          labelled = labelled || (!via.evpn && via.label);
        }
        std::vector<std::string> vias;
        for (const ViaIn* via : use) {
          if (labelled && (via->evpn || !via->label)) continue;
          vias.push_back(via->evpn ? viaText("evpn", v.id, via->addr, "", std::nullopt, via->vni)
                                   : viaText(famName(familyOf(via->addr)), v.id, via->addr,
                                             via->intf, via->label, 0));
        }
        if (vias.empty() && alt.fec != 2) continue;
        std::sort(vias.begin(), vias.end());
        vias.erase(std::unique(vias.begin(), vias.end()), vias.end());
        std::string line = "rib " + name + " " + famName(fam) + " " + prefix + " pref " +
                           std::to_string(pref) + " fec " + std::to_string(alt.fec) + " flags " +
                           std::to_string(fam == 4 ? 2 : 4) + " labelled " +
                           (labelled ? "1" : "0") + " vias [";
        for (size_t i = 0; i < vias.size(); ++i) line += (i ? "; " : "") + vias[i];
        line += "] nofib " + std::string(alt.nofib ? "1" : "0") + " fib " + alt.fibType + " tag " +
                std::to_string(alt.tag) + " src " + std::to_string(r.srcVrf);
        out.push_back(line);
        break;
      }
    }
  }
  // Leaks: per destination, family and prefix, the source VRF with the lowest id.
  std::map<std::tuple<std::string, int, std::string>, std::pair<uint32_t, std::string>> leaks;
  for (const auto& [name, v] : vrfs_) {
    for (const auto& [key, r] : v.routes) {
      if (r.leakTo.empty() || r.leakTo == name || !vrfs_.count(r.leakTo)) continue;
      const auto dst = std::make_tuple(r.leakTo, key.first, key.second);
      auto it = leaks.find(dst);
      if (it == leaks.end() || v.id < it->second.first) leaks[dst] = {v.id, name};
    }
  }
  for (const auto& [dst, src] : leaks) {
    out.push_back("leak " + std::get<0>(dst) + " " + famName(std::get<1>(dst)) + " " +
                  std::get<2>(dst) + " from " + src.second);
  }
  std::sort(out.begin(), out.end());
  return out;
}

}  // namespace Routing::Protocol::Oracle
