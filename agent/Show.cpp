#include "agent/Show.h"

#include <algorithm>
#include <ostream>
#include <sstream>
#include <tuple>
#include <vector>

#include "agent/Agent.h"
#include "platform/rib/ViaSetConfig.h"

namespace Routing::Protocol::Agent {

namespace {

using Row = std::vector<std::string>;

// Columns as wide as their widest cell, two blanks apart; the last column is not padded.
void printTable(std::ostream& out, const Row& header, const std::vector<Row>& rows) {
  std::vector<size_t> width(header.size());
  for (size_t i = 0; i < header.size(); ++i) width[i] = header[i].size();
  for (const auto& r : rows) {
    for (size_t i = 0; i < r.size(); ++i) width[i] = std::max(width[i], r[i].size());
  }
  auto line = [&](const Row& r) {
    std::string s;
    for (size_t i = 0; i < r.size(); ++i) {
      s += r[i];
      if (i + 1 < r.size()) s += std::string(width[i] - r[i].size() + 2, ' ');
    }
    out << s << "\n";
  };
  line(header);
  for (const auto& r : rows) line(r);
}

const char* familyName(Velnet::AddressFamily af) { return af == Velnet::AddressFamily::ipv4 ? "ipv4" : "ipv6"; }

// A via in short form: the next hop, its interface, and its label when it has one; an EVPN via
// with its VNI.
std::string viaText(const Agent& a, const Rib::ViaKey& v, Velnet::AddressFamily routeAf, bool mrib) {
  std::string s = v.addr().str();
  if (!v.intfId().name().empty()) s += "%" + v.intfId().name();
  if (v.transport() == Rib::Transport::evpn) return "evpn " + s + " vni " + std::to_string(v.vni());
  auto labelOf = [&](const ContainerSm::Ptr& c) {
    if (!c->ipViaConfig()) return false;
    const Rib::Via* via = c->ipViaConfig()->via(v);
    if (!via || !via->labelled()) return false;
    s += " label " + std::to_string(via->mplsLabel());
    return true;
  };
  if (mrib) {
    for (const auto& [name, c] : a.mcContainers()) {
      if (labelOf(c)) break;
    }
    return s;
  }
  for (const auto& [key, c] : a.containers()) {
    if (key.af() == routeAf && labelOf(c)) break;
  }
  return s;
}

struct RouteParts {
  std::vector<std::string> vias;
  std::vector<std::string> flags;
};

RouteParts routeParts(const Agent& a, const Rib::Route& r, const Rib::ViaSetConfig& viaSets, bool mrib) {
  RouteParts p;
  const auto* set = viaSets.configViaSetColl() ? viaSets.configViaSetColl()->viaSet(r.viaSetKey()) : nullptr;
  if (set) {
    for (const auto& v : set->vias()) p.vias.push_back(viaText(a, v, r.key().prefix().af(), mrib));
    if (set->type() != 0) p.flags.push_back("fec " + std::to_string(unsigned(set->type())));
  }
  if (r.flags() & Rib::Route::flagNoFibInstall) p.flags.push_back("nofib");
  if (r.fibRouteType() != Fib::RouteType::forward) p.flags.push_back(Fib::stringValue(r.fibRouteType()));
  if (r.tag() != 0) p.flags.push_back("tag " + std::to_string(r.tag()));
  if (r.srcVrfId() != 0) p.flags.push_back("src-vrf " + std::to_string(r.srcVrfId()));
  return p;
}

struct RibLine {
  std::string vrf;
  Velnet::AddressFamily af;
  const Rib::Route* route;
  std::vector<std::string> vias;
  std::vector<std::string> flags;
};

std::vector<RibLine> ribLines(const Agent& a, const std::optional<std::string>& vrf,
                              std::optional<Velnet::AddressFamily> af, bool mrib = false) {
  std::vector<RibLine> lines;
  if (!a.started()) return lines;
  const auto& viaSets = mrib ? a.root()->mcViaSetConfig() : a.root()->viaSetConfig();
  for (const auto& [name, id] : a.vrfs()) {
    if (vrf && *vrf != name) continue;
    for (auto fam : {Velnet::AddressFamily::ipv4, Velnet::AddressFamily::ipv6}) {
      if (af && *af != fam) continue;
      if (mrib && fam != Velnet::AddressFamily::ipv4) continue;
      auto table = mrib ? a.mribConfigFor(id) : a.ribConfigFor(id, fam);
      if (!table) continue;
      std::vector<const Rib::Route*> routes;
      for (const auto& r : table->routeColl()) {
        if (r.key().vrfId() == id && r.key().prefix().af() == fam) routes.push_back(&r);
      }
      std::sort(routes.begin(), routes.end(),
                [](const Rib::Route* x, const Rib::Route* y) { return x->key().prefix() < y->key().prefix(); });
      for (const Rib::Route* r : routes) {
        RouteParts p = routeParts(a, *r, *viaSets, mrib);
        lines.push_back(RibLine{name, fam, r, std::move(p.vias), std::move(p.flags)});
      }
    }
  }
  return lines;
}

std::string join(const std::vector<std::string>& parts, const char* sep) {
  std::string s;
  for (size_t i = 0; i < parts.size(); ++i) s += (i ? sep : "") + parts[i];
  return s;
}

std::string jsonList(const std::vector<std::string>& items) {
  std::vector<std::string> quoted;
  for (const auto& i : items) quoted.push_back(jsonString(i));
  return "[" + join(quoted, ", ") + "]";
}

std::vector<std::string> names(const std::vector<L3::VrfName>& v) {
  std::vector<std::string> out;
  for (const auto& n : v) out.push_back(n.str());
  std::sort(out.begin(), out.end());
  return out;
}

const char* yesNo(bool b) { return b ? "yes" : "no"; }
const char* trueFalse(bool b) { return b ? "true" : "false"; }

}  // namespace

std::string jsonString(std::string_view s) {
  std::string out = "\"";
  for (char ch : s) {
    const auto u = static_cast<unsigned char>(ch);
    if (ch == '"' || ch == '\\') {
      out += '\\';
      out += ch;
    } else if (u < 0x20) {
      static const char* hex = "0123456789abcdef";
      out += "\\u00";
      out += hex[u >> 4];
      out += hex[u & 0xF];
    } else {
      out += ch;
    }
  }
  return out + "\"";
}

namespace {

void printRib(std::ostream& out, const std::vector<RibLine>& lines, bool json) {
  if (json) {
    out << "[";
    for (size_t i = 0; i < lines.size(); ++i) {
      const auto& l = lines[i];
      out << (i ? ",\n " : "\n ") << "{\"vrf\": " << jsonString(l.vrf) << ", \"family\": \"" << familyName(l.af)
          << "\", \"prefix\": " << jsonString(l.route->key().prefix().str())
          << ", \"preference\": " << unsigned(l.route->metricPref()) << ", \"viaSet\": " << l.route->viaSetKey()
          << ", \"vias\": " << jsonList(l.vias) << ", \"flags\": " << jsonList(l.flags) << "}";
    }
    out << (lines.empty() ? "]\n" : "\n]\n");
    return;
  }
  std::vector<Row> rows;
  for (const auto& l : lines) {
    rows.push_back({l.vrf, familyName(l.af), l.route->key().prefix().str(), std::to_string(unsigned(l.route->metricPref())),
                    l.vias.empty() ? "-" : join(l.vias, ", "), l.flags.empty() ? "-" : join(l.flags, ", ")});
  }
  printTable(out, {"VRF", "FAMILY", "PREFIX", "PREF", "VIAS", "FLAGS"}, rows);
}

}  // namespace

void showRib(const Agent& a, std::ostream& out, const std::optional<std::string>& vrf,
             std::optional<Velnet::AddressFamily> af, bool json) {
  printRib(out, ribLines(a, vrf, af), json);
}

void showMrib(const Agent& a, std::ostream& out, const std::optional<std::string>& vrf, bool json) {
  printRib(out, ribLines(a, vrf, Velnet::AddressFamily::ipv4, true), json);
}

std::string ribRouteText(const Agent& a, const Rib::Route& route, const Rib::ViaSetConfig& viaSets) {
  const bool mrib = a.started() && &viaSets == a.root()->mcViaSetConfig().get();
  RouteParts p = routeParts(a, route, viaSets, mrib);
  std::string s = "pref " + std::to_string(unsigned(route.metricPref()));
  s += p.vias.empty() ? " no vias" : " via " + join(p.vias, ", ");
  if (!p.flags.empty()) s += " " + join(p.flags, ", ");
  return s;
}

void showReady(const Agent& a, std::ostream& out, bool json) {
  std::vector<std::string> v4, v6;
  if (a.started()) {
    v4 = names(std::vector<L3::VrfName>(a.root()->readyVrfIpv4Coll().begin(), a.root()->readyVrfIpv4Coll().end()));
    v6 = names(std::vector<L3::VrfName>(a.root()->readyVrfIpv6Coll().begin(), a.root()->readyVrfIpv6Coll().end()));
  }
  if (json) {
    out << "{\"ipv4\": " << jsonList(v4) << ", \"ipv6\": " << jsonList(v6) << "}\n";
    return;
  }
  out << "ready ipv4: " << (v4.empty() ? "-" : join(v4, " ")) << "\n";
  out << "ready ipv6: " << (v6.empty() ? "-" : join(v6, " ")) << "\n";
}

void showReadiness(const Agent& a, std::ostream& out, const std::optional<std::string>& vrf, bool json) {
  std::vector<VrfReadyStatus::Ptr> statuses;
  if (a.started()) {
    for (const auto& s : a.allVrfReadyStatus()->vrfReadyStatusColl()) {
      if (!vrf || s->vrfName().str() == *vrf) statuses.push_back(s);
    }
  }
  std::sort(statuses.begin(), statuses.end(),
            [](const auto& x, const auto& y) { return x->vrfName().str() < y->vrfName().str(); });
  if (json) {
    out << "[";
    for (size_t i = 0; i < statuses.size(); ++i) {
      const auto& s = statuses[i];
      out << (i ? ",\n " : "\n ") << "{\"vrf\": " << jsonString(s->vrfName().str())
          << ", \"v4RoutesReady\": " << trueFalse(s->v4RoutesReady())
          << ", \"v6RoutesReady\": " << trueFalse(s->v6RoutesReady())
          << ", \"v4RouteReviewComplete\": " << trueFalse(s->v4RouteReviewComplete())
          << ", \"v6RouteReviewComplete\": " << trueFalse(s->v6RouteReviewComplete())
          << ", \"ribReadySeqStatus\": " << s->ribReadySeqStatus() << "}";
    }
    out << (statuses.empty() ? "]\n" : "\n]\n");
    return;
  }
  std::vector<Row> rows;
  for (const auto& s : statuses) {
    rows.push_back({s->vrfName().str(), yesNo(s->v4RoutesReady()), yesNo(s->v6RoutesReady()),
                    yesNo(s->v4RouteReviewComplete()), yesNo(s->v6RouteReviewComplete()),
                    std::to_string(s->ribReadySeqStatus())});
  }
  printTable(out, {"VRF", "V4-READY", "V6-READY", "V4-REVIEWED", "V6-REVIEWED", "SEQ"}, rows);
}

void showIntf(const Agent& a, std::ostream& out, bool json) {
  struct Line {
    std::string vrf, family, intf;
    bool routing;
  };
  std::vector<Line> lines;
  if (a.started()) {
    for (const auto& [name, id] : a.vrfs()) {
      const L3::VrfName vrf(name);
      if (auto s = a.ipStatus()->vrfIpIntfStatus(vrf)) {
        for (const auto& i : s->ipIntfStatusColl()) lines.push_back({name, "ipv4", i->intfId().name(), i->dpRoutingEnabled()});
      }
      if (auto s = a.ip6Status()->vrfIp6IntfStatus(vrf)) {
        for (const auto& i : s->ip6IntfStatusColl()) lines.push_back({name, "ipv6", i->intfId().name(), i->dpRoutingEnabled()});
      }
    }
  }
  std::sort(lines.begin(), lines.end(),
            [](const Line& x, const Line& y) { return std::tie(x.vrf, x.family, x.intf) < std::tie(y.vrf, y.family, y.intf); });
  auto changes = [&](const Line& l) -> std::string {
    auto it = a.containers().find(ContainerKey(L3::VrfName(l.vrf), l.family == "ipv4" ? Velnet::AddressFamily::ipv4
                                                                                     : Velnet::AddressFamily::ipv6));
    return it == a.containers().end() ? "-" : std::to_string(it->second->intfStatus()->intfStatusChanged());
  };
  if (json) {
    out << "[";
    for (size_t i = 0; i < lines.size(); ++i) {
      const auto& l = lines[i];
      const auto ch = changes(l);
      out << (i ? ",\n " : "\n ") << "{\"vrf\": " << jsonString(l.vrf) << ", \"family\": \"" << l.family
          << "\", \"intf\": " << jsonString(l.intf) << ", \"routing\": " << trueFalse(l.routing)
          << ", \"containerChanges\": " << (ch == "-" ? "null" : ch) << "}";
    }
    out << (lines.empty() ? "]\n" : "\n]\n");
    return;
  }
  std::vector<Row> rows;
  for (const auto& l : lines) rows.push_back({l.vrf, l.family, l.intf, l.routing ? "on" : "off", changes(l)});
  printTable(out, {"VRF", "FAMILY", "INTF", "ROUTING", "CHANGES"}, rows);
}

void showSummary(const Agent& a, std::ostream& out, bool json) {
  size_t routes = 0, alternatives = 0, ribRoutes = 0, viaSets = 0, mcRoutes = 0, mribRoutes = 0;
  size_t bfdNextHops = 0, leaked = 0, waiting = 0;
  for (const auto& [key, c] : a.containers()) {
    routes += c->status()->routes();
    waiting += c->routeStatusSm()->waitingRoutes();
    for (const auto& r : c->status()->routeColl()) alternatives += r->routePrefs();
  }
  for (const auto& [name, c] : a.mcContainers()) {
    mcRoutes += c->status()->routes();
    waiting += c->routeStatusSm()->waitingRoutes();
    if (auto table = a.mribConfigFor(c->vrfId())) {
      for (const auto& r : table->routeColl()) mribRoutes += r.key().vrfId() == c->vrfId();
    }
  }
  // Counted per table rather than line by line: the summary is what a million-route run prints.
  for (const auto& [name, id] : a.vrfs()) {
    for (auto fam : {Velnet::AddressFamily::ipv4, Velnet::AddressFamily::ipv6}) {
      auto table = a.ribConfigFor(id, fam);
      if (!table) continue;
      if (table == a.root()->ipv4AllVrfRibConfig() || table == a.root()->ipv6AllVrfRibConfig()) {
        for (const auto& r : table->routeColl()) ribRoutes += r.key().vrfId() == id && r.key().prefix().af() == fam;
      } else {
        ribRoutes += table->routes();
      }
    }
  }
  if (a.started()) {
    viaSets = a.root()->viaSetConfig()->viaSets();
    for (const auto& s : a.bfd()->byContainer()->nextHopStatusColl()) bfdNextHops += s->nextHops();
    for (const auto& [name, side] : a.leaking()->vrfs()) {
      for (const auto& config : side.config) leaked += config->leakRoutes();
    }
  }
  const std::vector<std::pair<const char*, size_t>> counts = {
      {"vrfs", a.vrfs().size()},  {"containers", a.containers().size()}, {"routes", routes},
      {"alternatives", alternatives}, {"ribRoutes", ribRoutes}, {"waitingRoutes", waiting}, {"viaSets", viaSets},
      {"vias", Rib::dedupViaKeys()}, {"mcContainers", a.mcContainers().size()}, {"mcRoutes", mcRoutes},
      {"mribRoutes", mribRoutes}, {"bfdNextHops", bfdNextHops}, {"leakedRoutes", leaked}};
  if (json) {
    out << "{\"protocol\": \"" << Rib::stringValue(a.protocol()) << "\", \"time\": " << a.now();
    for (const auto& [k, v] : counts) out << ", \"" << k << "\": " << v;
    out << "}\n";
    return;
  }
  out << "protocol " << Rib::stringValue(a.protocol()) << ", time " << a.now() << "\n";
  for (const auto& [k, v] : counts) out << k << " " << v << "\n";
}

namespace {

const char* sessionWord(Bfd::OperState s) {
  switch (s) {
    case Bfd::OperState::adminDown: return "admin-down";
    case Bfd::OperState::down: return "down";
    case Bfd::OperState::init: return "init";
    case Bfd::OperState::up: return "up";
  }
  return "?";
}

}  // namespace

void showBfd(const Agent& a, std::ostream& out, const std::optional<std::string>& vrf, bool json) {
  struct Line {
    std::string vrf, family;
    NextHopBfdKey key;
    std::string session;
    bool usable, peer;
    std::vector<std::string> routes;
  };
  std::vector<Line> lines;
  if (a.started()) {
    for (const auto& status : a.bfd()->byContainer()->nextHopStatusColl()) {
      const ContainerKey& ck = status->containerKey();
      if (vrf && ck.vrfName().str() != *vrf) continue;
      for (const auto& nh : status->nextHopColl()) {
        const NextHopBfdKey& k = nh->nextHopBfdKey();
        const Bfd::Peer peer(k.nextHopAddr(), ck.vrfName(), k.intfId());
        auto session = a.bfd()->appStatus()->peerStatus(peer);
        Line l{ck.vrfName().str(), familyName(ck.af()), k, session ? sessionWord(session->state()) : "-",
               nh->bfdStatus(), a.bfdAppConfig()->peerConfigHas(peer), {}};
        std::vector<Routing::RouteKey> deps = nh->dependentRouteColl().keys();
        std::sort(deps.begin(), deps.end());
        for (const auto& d : deps) l.routes.push_back(d.str());
        lines.push_back(std::move(l));
      }
    }
  }
  std::sort(lines.begin(), lines.end(), [](const Line& x, const Line& y) {
    return std::tie(x.vrf, x.family, x.key) < std::tie(y.vrf, y.family, y.key);
  });
  auto nextHop = [](const NextHopBfdKey& k) {
    return k.nextHopAddr().str() + (k.intfId().name().empty() ? "" : "%" + k.intfId().name());
  };
  if (json) {
    out << "[";
    for (size_t i = 0; i < lines.size(); ++i) {
      const auto& l = lines[i];
      out << (i ? ",\n " : "\n ") << "{\"vrf\": " << jsonString(l.vrf) << ", \"family\": \"" << l.family
          << "\", \"nextHop\": " << jsonString(l.key.nextHopAddr().str())
          << ", \"intf\": " << jsonString(l.key.intfId().name())
          << ", \"session\": " << (l.session == "-" ? "null" : jsonString(l.session))
          << ", \"bfdStatus\": " << trueFalse(l.usable) << ", \"peerConfigured\": " << trueFalse(l.peer)
          << ", \"dependentRoutes\": " << jsonList(l.routes) << "}";
    }
    out << (lines.empty() ? "]\n" : "\n]\n");
    return;
  }
  std::vector<Row> rows;
  for (const auto& l : lines) {
    rows.push_back({l.vrf, l.family, nextHop(l.key), l.session, l.usable ? "yes" : "no", yesNo(l.peer),
                    l.routes.empty() ? "-" : join(l.routes, ", ")});
  }
  printTable(out, {"VRF", "FAMILY", "NEXTHOP", "SESSION", "USABLE", "PEER", "ROUTES"}, rows);
}

void showLeaked(const Agent& a, std::ostream& out, const std::optional<std::string>& vrf, bool json) {
  struct Line {
    std::string vrf, family;
    Velnet::IpGenPrefix prefix;
    std::string from;
  };
  std::vector<Line> lines;
  if (a.started()) {
    for (const auto& [name, side] : a.leaking()->vrfs()) {
      if (vrf && *vrf != name) continue;
      for (const auto& config : side.config) {
        for (const auto& lr : config->leakRouteColl()) {
          lines.push_back({name, familyName(config->key().af()), lr->key().prefix(), a.vrfName(lr->vrfAf().vrfId())});
        }
      }
    }
  }
  std::sort(lines.begin(), lines.end(), [](const Line& x, const Line& y) {
    return std::tie(x.vrf, x.family, x.prefix) < std::tie(y.vrf, y.family, y.prefix);
  });
  if (json) {
    out << "[";
    for (size_t i = 0; i < lines.size(); ++i) {
      const auto& l = lines[i];
      out << (i ? ",\n " : "\n ") << "{\"vrf\": " << jsonString(l.vrf) << ", \"family\": \"" << l.family
          << "\", \"prefix\": " << jsonString(l.prefix.str()) << ", \"from\": " << jsonString(l.from) << "}";
    }
    out << (lines.empty() ? "]\n" : "\n]\n");
    return;
  }
  std::vector<Row> rows;
  for (const auto& l : lines) rows.push_back({l.vrf, l.family, l.prefix.str(), l.from});
  printTable(out, {"VRF", "FAMILY", "PREFIX", "FROM"}, rows);
}

}  // namespace Routing::Protocol::Agent
