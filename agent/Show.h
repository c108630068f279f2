// The show commands: aligned text for people, JSON for programs. Both read the library's and the
// RIB side's tables through the agent and never change them.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include "platform/velnet/Velnet.h"

namespace Routing::Protocol::Agent {

class Agent;

// RIB routes, one line per route, sorted by VRF then prefix; `vrf` and `af` filter.
void showRib(const Agent& a, std::ostream& out, const std::optional<std::string>& vrf,
             std::optional<Velnet::AddressFamily> af, bool json);
void showReady(const Agent& a, std::ostream& out, bool json);
void showReadiness(const Agent& a, std::ostream& out, const std::optional<std::string>& vrf, bool json);
void showIntf(const Agent& a, std::ostream& out, bool json);
void showSummary(const Agent& a, std::ostream& out, bool json);

// Writes `s` as a JSON string literal.
std::string jsonString(std::string_view s);

}  // namespace Routing::Protocol::Agent
