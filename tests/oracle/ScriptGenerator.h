// Random scripts in the agent's command language, one seed one script.
//
// The generator aims at valid commands: it keeps its own ScriptOracle fed with every line it
// writes and picks VRFs, routes and tracked next hops that exist there, so that most commands
// change something; a few are aimed wrong on purpose (an unknown VRF, a route that is not there,
// tracking twice) and must be refused by the agent and the oracle alike.
//
// Next hops come from small pools so that routes share vias and metric changes hit several
// routes. Some choices are fixed to stay clear of gaps already reported against the agent:
//  - a next hop carries the same label (or none) wherever it is used, because a label lives in
//    the VRF's via table, shared by every route through that via;
//  - the VTEP companions of EVPN vias (10.9.9.0/24, 172.16.0.0/24) get their default-VRF metrics
//    once, before any route, and never change: a companion's metric change does not re-evaluate
//    the routes that use it;
//  - a route only ever names a leak-to VRF that exists when it does so.
// BFD tracks IP next hops only, and EVPN next hops come from a pool of their own, so a via is
// filtered by BFD exactly when its own next hop is tracked.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Routing::Protocol::Oracle {

struct GeneratorOptions {
  uint64_t seed = 1;
  unsigned events = 120;
};

// The script for `options.seed`: start-up lines, then `options.events` events (a VRF changing its
// id is one event of two lines), with `run` now and then and at the end.
std::vector<std::string> generateScript(const GeneratorOptions& options);

}  // namespace Routing::Protocol::Oracle
