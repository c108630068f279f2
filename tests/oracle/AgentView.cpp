#include "tests/oracle/AgentView.h"

#include <algorithm>
#include <set>

#include "platform/rib/RouteConfig.h"
#include "platform/rib/ViaSetConfig.h"
#include "tests/oracle/ScriptOracle.h"

namespace Routing::Protocol::Oracle {

namespace {

const char* transportName(Rib::Transport t) {
  switch (t) {
    case Rib::Transport::ipv4: return "ipv4";
    case Rib::Transport::ipv6: return "ipv6";
    case Rib::Transport::evpn: return "evpn";
    default: return "unknown";
  }
}

std::string routeLine(const Agent::Agent& agent, const std::string& vrf, Velnet::AddressFamily af,
                      const Rib::Route& r) {
  const bool v4 = af == Velnet::AddressFamily::ipv4;
  std::string line = "rib " + vrf + " " + (v4 ? "ipv4 " : "ipv6 ") + r.key().prefix().str() +
                     " pref " + std::to_string(unsigned(r.metricPref()));
  const auto& viaSets = agent.root()->viaSetConfig();
  const auto* set =
      viaSets->configViaSetColl() ? viaSets->configViaSetColl()->viaSet(r.viaSetKey()) : nullptr;
  if (!set) return line + " missing via set " + std::to_string(r.viaSetKey());
  Rib::Ip::ViaConfig::Ptr viaConfig;
  auto c = agent.containers().find(ContainerKey(L3::VrfName(vrf), af));
  if (c != agent.containers().end()) viaConfig = c->second->ipViaConfig();
  std::vector<std::string> vias;
  for (const auto& v : set->vias()) {
    std::optional<uint32_t> label;
    if (v.transport() != Rib::Transport::evpn && viaConfig) {
      if (const Rib::Via* via = viaConfig->via(v); via && via->labelled()) label = via->mplsLabel();
    }
    vias.push_back(ScriptOracle::viaText(transportName(v.transport()), v.vrfId(), v.addr().str(),
                                         v.intfId().name(), label, v.vni()));
  }
  std::sort(vias.begin(), vias.end());
  line += " fec " + std::to_string(unsigned(set->type())) + " flags " +
          std::to_string(unsigned(set->flags())) + " labelled " + (set->labelled() ? "1" : "0") +
          " vias [";
  for (size_t i = 0; i < vias.size(); ++i) line += (i ? "; " : "") + vias[i];
  line += "] nofib " + std::string((r.flags() & Rib::Route::flagNoFibInstall) ? "1" : "0") +
          " fib " + Fib::stringValue(r.fibRouteType()) + " tag " + std::to_string(r.tag()) +
          " src " + std::to_string(r.srcVrfId());
  if (r.routingProtocol() != agent.protocol())
    line += " protocol " + std::string(Rib::stringValue(r.routingProtocol()));
  return line;
}

}  // namespace

std::vector<std::string> agentView(const Agent::Agent& agent) {
  std::vector<std::string> out;
  if (!agent.started()) return out;
  std::set<Vrf::VrfIdMap::VrfId> ids;
  for (const auto& [name, id] : agent.vrfs()) ids.insert(id);
  std::set<const Rib::RouteConfig*> sharedTables;
  for (const auto& [name, id] : agent.vrfs()) {
    out.push_back("vrf " + name + " " + std::to_string(id));
    for (auto af : {Velnet::AddressFamily::ipv4, Velnet::AddressFamily::ipv6}) {
      auto table = agent.ribConfigFor(id, af);
      if (!table) continue;
      for (const auto& r : table->routeColl()) {
        if (r.key().vrfId() == id && r.key().prefix().af() == af)
          out.push_back(routeLine(agent, name, af, r));
      }
      if (table == (af == Velnet::AddressFamily::ipv4 ? agent.root()->ipv4AllVrfRibConfig()
                                                      : agent.root()->ipv6AllVrfRibConfig())) {
        sharedTables.insert(table.get());
      }
    }
  }
  for (const auto* table : sharedTables) {
    for (const auto& r : table->routeColl()) {
      if (!ids.count(r.key().vrfId()))
        out.push_back("stray " + std::to_string(r.key().vrfId()) + " " + r.key().prefix().str());
    }
  }
  for (const auto& s : agent.allVrfReadyStatus()->vrfReadyStatusColl()) {
    out.push_back("ready " + s->vrfName().str() + " v4 " + std::to_string(s->v4RoutesReady()) +
                  " v6 " + std::to_string(s->v6RoutesReady()) + " reviewed4 " +
                  std::to_string(s->v4RouteReviewComplete()) + " reviewed6 " +
                  std::to_string(s->v6RouteReviewComplete()) + " seq " +
                  std::to_string(s->ribReadySeqStatus()));
  }
  for (const auto& [name, side] : agent.leaking()->vrfs()) {
    for (const auto& config : side.config) {
      for (const auto& lr : config->leakRouteColl()) {
        out.push_back("leak " + name + " " +
                      (config->key().af() == Velnet::AddressFamily::ipv4 ? "ipv4 " : "ipv6 ") +
                      lr->key().prefix().str() + " from " + agent.vrfName(lr->vrfAf().vrfId()));
      }
    }
  }
  std::sort(out.begin(), out.end());
  return out;
}

}  // namespace Routing::Protocol::Oracle
