// The from-scratch model the differential test holds the agent to.
//
// ScriptOracle reads the same command lines the agent reads, but keeps only the inputs: which
// VRFs exist with which ids, the routes and alternatives the script configured, the metrics,
// looping prefixes, BFD sessions and tracked next hops the RIB and BFD sides published. Nothing
// here is incremental and nothing is shared with the library: `expected()` derives the whole RIB
// route configuration, the leaked routes and the readiness flags from those inputs each time it
// is asked, written as plainly as the documented rules read:
//
//  - of a route's alternatives, in ascending preference, the first with a usable via wins; its
//    via set holds the usable vias, but only the labelled ones when any usable via carries a label
//    (one labelled via discards the unlabelled ones, whatever order they come in); an alternative
//    of FEC type 2 wins even with none;
//  - an IP via is usable when its own VRF's table of its transport holds a metric for it and, when
//    that metric asks for the looping check, the prefix is not a looping route of the route's VRF;
//    an EVPN via when its EVPN metric (published in VRF default) and its VTEP companion's metric
//    in VRF default are both there; a via to a next hop the route tracks with BFD only while that
//    next hop's session is up or administratively down;
//  - a route leaks into its leak-to VRF when that VRF exists and is not its own; when several
//    source VRFs leak one prefix into a VRF, the source with the lowest id wins;
//  - on a cold start every VRF is ready in both families, reviewed in both once the loop is idle,
//    and has caught up with the last sequence number the RIB asked it for.
//
// Metric tables are the RIB's and keyed by VRF id; interface, looping-route and BFD session
// tables are keyed by VRF name. None of them goes when a VRF goes, so a VRF that comes back (under
// the same or another id) finds what the RIB still publishes for it.
//
// `apply` also says whether a command is valid by the documented refusals (unknown VRF, a route
// that does not exist, tracking twice, ...): the agent must refuse exactly those.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace Routing::Protocol::Oracle {

// One via of `route add` as the script wrote it.
struct ViaIn {
  bool evpn = false;
  std::string addr;
  std::string intf;               // IP vias only; empty: none
  std::optional<uint32_t> label;  // IP vias only
  uint32_t vni = 0;               // EVPN only
  std::string vtep;               // EVPN only: the companion's address (addr itself when not given)
};

struct AltIn {
  unsigned fec = 0;
  uint32_t tag = 0;
  bool nofib = false;
  std::string fibType = "forward";
  std::vector<ViaIn> vias;
};

struct RouteIn {
  std::map<unsigned, AltIn> alts;  // by preference
  uint32_t srcVrf = 0;
  std::string leakTo;             // empty: leaks nowhere
  std::set<std::string> tracked;  // BFD-tracked next hop addresses
};

struct VrfIn {
  uint32_t id = 0;
  uint32_t seq = 0;                                       // last non-zero sequence trigger
  std::map<std::pair<int, std::string>, RouteIn> routes;  // by (family 4|6, prefix)
};

class ScriptOracle {
 public:
  ScriptOracle();

  // Runs one command line on the model; false when the agent must refuse it (nothing changes).
  // Lines the model does not know (show, trace, ...) are accepted and change nothing.
  bool apply(const std::string& line);

  // The canonical lines the agent's state must equal once its loop is idle (see AgentView.h).
  std::vector<std::string> expected() const;

  // ---- What the script generator reads to aim at valid targets ----
  bool started() const { return started_; }
  const std::map<std::string, VrfIn>& vrfs() const { return vrfs_; }
  bool intfHas(const std::string& vrf, int fam, const std::string& intf) const {
    return intfs_.count({vrf, fam, intf}) != 0;
  }

  // Text of one via in the canonical form both sides print.
  static std::string viaText(const std::string& transport, uint32_t vrfId, const std::string& addr,
                             const std::string& intf, std::optional<uint32_t> label, uint32_t vni);

 private:
  // A metric's identity: (table VRF id, transport, via VRF id, address, interface, vni).
  using MetricKey = std::tuple<uint32_t, std::string, uint32_t, std::string, std::string, uint32_t>;
  struct Metric {
    bool loopCheck = false;
  };

  bool applyWords(const std::vector<std::string>& w);
  bool usable(const std::string& vrf, const VrfIn& v, int fam, const std::string& prefix,
              const RouteIn& r, const ViaIn& via) const;
  bool metricHas(const MetricKey& k) const { return metrics_.count(k) != 0; }

  bool started_ = false;
  bool shared_ = false;  // routeInput: one route table for all VRFs
  std::map<std::string, VrfIn> vrfs_;
  std::map<MetricKey, Metric> metrics_;
  std::set<std::tuple<std::string, int, std::string>> looping_;  // (VRF name, family, prefix)
  std::set<std::tuple<std::string, int, std::string>> intfs_;    // (VRF name, family, intf)
  std::map<std::pair<std::string, std::string>, std::string>
      sessions_;  // (VRF name, addr) -> state
};

// Family (4 or 6) of an address or prefix text.
int familyOf(const std::string& text);

}  // namespace Routing::Protocol::Oracle
