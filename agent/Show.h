// The show commands: aligned text for people, JSON for programs. Both read the library's and the
// RIB side's tables through the agent and never change them.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include "platform/rib/RouteConfig.h"
#include "platform/rib/ViaSetConfig.h"
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
// Multicast RIB routes (IPv4), as `showRib` prints unicast ones.
void showMrib(const Agent& a, std::ostream& out, const std::optional<std::string>& vrf, bool json);
// Tracked next hops: session state, whether usable, whether the peer is configured, and the routes
// that depend on them.
void showBfd(const Agent& a, std::ostream& out, const std::optional<std::string>& vrf, bool json);
// Routes leaked into each VRF (the VRF's LeakRouteConfig), with the VRF each comes from.
void showLeaked(const Agent& a, std::ostream& out, const std::optional<std::string>& vrf, bool json);
// What a RIB route says after its prefix: "pref N via A, B" and its flags; `viaSets` holds its set.
std::string ribRouteText(const Agent& a, const Rib::Route& route, const Rib::ViaSetConfig& viaSets);

// Writes `s` as a JSON string literal.
std::string jsonString(std::string_view s);

}  // namespace Routing::Protocol::Agent
