// What the agent built, read through its accessors, in the canonical lines ScriptOracle::expected
// writes: one line per VRF, per VRF's readiness flags, per RIB route (prefix, preference, the via
// set's content as a sorted list with labels, FEC type and flags, the route's flags, tag, FIB type
// and source VRF) and per leaked route. Routes are compared by content, never by internal ids:
// which via-set key a route points at is the RIB's business, what the set holds is not.
//
// Vias are listed sorted because a via set keeps its vias in the order the route's via collection
// iterates (hash order), which no caller may rely on.
#pragma once

#include <string>
#include <vector>

#include "agent/Agent.h"

namespace Routing::Protocol::Oracle {

// Sorted canonical lines; a route that the RIB holds for a VRF that does not exist (possible only
// in a table shared by all VRFs) shows as a "stray" line, which the oracle never expects.
std::vector<std::string> agentView(const Agent::Agent& agent);

}  // namespace Routing::Protocol::Oracle
