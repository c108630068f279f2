#include "agent/Agent.h"

#include <ostream>

#include "agent/Show.h"
#include "platform/kel/Exception.h"
#include "platform/kel/Trace.h"
#include "platform/rib/RibPolicy.h"

namespace Routing::Protocol::Agent {

namespace {

// Trace lines go to the output stream between the commands' own output, without the source file
// and line a log would carry, so that a scenario's expected output survives edits of the library.
class InlineTraceSink final : public Kel::TraceSink {
 public:
  explicit InlineTraceSink(std::ostream* out) : out_(out) {}
  void write(const Kel::TraceRecord& r) override {
    *out_ << "trace " << r.handle << "/" << r.level << " " << r.text << "\n";
  }

 private:
  std::ostream* out_;
};

std::string str(std::string_view s) { return std::string(s); }

}  // namespace

Agent::Agent(std::ostream& out) : out_(out), sink_(std::make_shared<InlineTraceSink>(&out)) {
  Kel::activityManager().reset();
  previousSink_ = Kel::traceSink();
  Kel::traceSinkIs(sink_);
}

Agent::~Agent() {
  notifierIs(nullptr);
  follower_.reset();
  bfd_.reset();
  containers_.clear();
  mcContainers_.clear();
  leaking_.reset();
  Kel::activityManager().reset();
  Kel::traceSinkIs(previousSink_);
}

void Agent::requireStarted() const {
  if (!root_) throw Kel::InvalidOperationException("not started: run 'start cold' or 'start graceful' first");
}

Vrf::VrfIdMap::VrfId Agent::vrfId(std::string_view name) const {
  auto it = vrfs_.find(str(name));
  if (it != vrfs_.end()) return it->second;
  // A name no VRF can have says so rather than that no VRF has it.
  L3::VrfName checked{str(name)};
  throw Kel::RangeException("unknown VRF '" + checked.str() + "'");
}

ContainerSm::Ptr Agent::container(std::string_view vrf, Velnet::AddressFamily af) const {
  vrfId(vrf);
  auto it = containers_.find(ContainerKey(L3::VrfName(vrf), af));
  if (it == containers_.end()) {
    throw Kel::InvalidOperationException("VRF '" + str(vrf) + "' has no " +
                                         (af == Velnet::AddressFamily::ipv4 ? "ipv4" : "ipv6") +
                                         " container: it is not ready (see 'show ready')");
  }
  return it->second;
}

Ip::Status::Ptr Agent::ipStatus() const {
  return em_ ? Kel::ptrCast<Ip::Status>(em_->getEntity("ip/status")) : nullptr;
}
Ip6::Status::Ptr Agent::ip6Status() const {
  return em_ ? Kel::ptrCast<Ip6::Status>(em_->getEntity("ip6/status")) : nullptr;
}

Rib::ViaMetricStatus::Ptr Agent::metricsOf(Vrf::VrfIdMap::VrfId vrf, Rib::Transport t, bool mrib) {
  auto all = Kel::ptrCast<Rib::ViaMetricStatusByVrf>(
      em_->getEntity(mrib ? "routing/mrib/viaMetricStatus" : "routing/rib/viaMetricStatus"));
  if (!all) throw Kel::InvalidOperationException("protocol " + str(Rib::stringValue(rp_)) + " does not feed the mrib");
  return all->viaMetricStatusIs(vrf, t, rp_);
}

std::string Agent::vrfName(Vrf::VrfIdMap::VrfId id) const {
  for (const auto& [name, i] : vrfs_) {
    if (i == id) return name;
  }
  return std::to_string(id);
}

Rib::RouteConfig::Ptr Agent::ribConfigFor(Vrf::VrfIdMap::VrfId id, Velnet::AddressFamily af) const {
  return root_ ? root_->ribConfigOf(id, af) : nullptr;
}

Rib::RouteConfig::Ptr Agent::mribConfigFor(Vrf::VrfIdMap::VrfId id) const {
  if (!root_ || !Rib::RoutingProtocolHelper::mribProtocol(rp_)) return nullptr;
  if (root_->mcIpv4AllVrfRibConfig()) return root_->mcIpv4AllVrfRibConfig();
  return Kel::ptrCast<Rib::RouteConfig>(em_->getEntity(root_->ribMount(id, "mrib", "ipv4")));
}

// Everything the RIB side publishes for a VRF to become ready in both unicast families.
void Agent::vrfIs(const std::string& name, Vrf::VrfIdMap::VrfId id) {
  const L3::VrfName vrf(name);
  auto idStatus = Kel::ptrCast<Vrf::VrfIdMap::Status>(em_->getEntity("vrf/vrfIdMapStatus"));
  ipStatus()->vrfIpIntfStatusIs(vrf);
  ip6Status()->vrfIp6IntfStatusIs(vrf);
  Kel::ptrCast<Rib::LoopingRouteStatusByVrf>(em_->getEntity("routing/rib/loopingRouteStatus"))->loopingRouteStatusIs(vrf);
  Kel::ptrCast<Rib::LoopingRouteStatusByVrf>(em_->getEntity("routing6/rib/loopingRouteStatus"))->loopingRouteStatusIs(vrf);
  metricsOf(id, Rib::Transport::ipv4);
  metricsOf(id, Rib::Transport::ipv6);
  if (id == 0) metricsOf(id, Rib::Transport::evpn);
  if (Rib::RoutingProtocolHelper::mribProtocol(rp_)) {
    // The multicast RIB's side, for a protocol that feeds it: its metrics and looping routes.
    metricsOf(id, Rib::Transport::ipv4, true);
    Kel::ptrCast<Rib::LoopingRouteStatusByVrf>(em_->getEntity("routing/mrib/loopingRouteStatus"))->loopingRouteStatusIs(vrf);
  }
  vrfs_[name] = id;
  idStatus->vrfNameIs(id, vrf);
  nameMap_->vrfIdIs(vrf, id);
  leaking_->vrfIs(name, id);
  if (follower_) {
    for (const auto& config : leaking_->vrfs().at(name).config) follower_->leakConfigIs(config);
  }
}

// The RIB tables a container writes, for the follower.
void Agent::watchTables(const ContainerSm::Ptr& c, bool mc) {
  if (!follower_) return;
  if (mc) {
    follower_->routeTableIs(c->ribConfig(), "mrib", root_->mcViaSetConfig());
  } else {
    follower_->routeTableIs(c->ribConfig(), "rib", root_->viaSetConfig());
  }
}

void Agent::followingIs(bool on) {
  if (on == following()) return;
  if (!on) {
    follower_.reset();
    return;
  }
  follower_ = std::make_unique<Follower>(
      out_, [this](Vrf::VrfIdMap::VrfId id) { return vrfName(id); },
      [this](const Rib::Route& r, const Rib::ViaSetConfig& viaSets) { return ribRouteText(*this, r, viaSets); });
  if (!root_) return;
  follower_->viaSetTableIs(root_->viaSetConfig(), "rib");
  follower_->viaSetTableIs(root_->mcViaSetConfig(), "mrib");
  for (const auto& [key, c] : containers_) watchTables(c, false);
  for (const auto& [name, c] : mcContainers_) watchTables(c, true);
  for (const auto& [name, side] : leaking_->vrfs()) {
    for (const auto& config : side.config) follower_->leakConfigIs(config);
  }
}

// Keeps one container per name in a ready set: the library's contract with its agent.
void Agent::follow(const L3::VrfName& name, Velnet::AddressFamily af) {
  const bool v4 = af == Velnet::AddressFamily::ipv4;
  const ContainerKey key(name, af);
  const bool ready = v4 ? root_->readyVrfIpv4Has(name) : root_->readyVrfIpv6Has(name);
  auto it = containers_.find(key);
  if (!ready) {
    if (it == containers_.end()) return;
    // BFD first, while the container's route-status machine can still withdraw its peers.
    bfd_->containerDel(key);
    leaking_->routesDel(name.str(), af);
    root_->routeStatusDir()->statusDel(it->second->status()->key());
    const Vrf::VrfIdMap::VrfId id = it->second->vrfId();
    const auto table = it->second->ribConfig();
    containers_.erase(it);
    v4 ? root_->doCleanupContainer4(name, id) : root_->doCleanupContainer6(name, id);
    if (follower_) follower_->routeTableDel(table);
    return;
  }
  if (it != containers_.end()) return;
  auto c = root_->containerSmNew(key, bfdAppConfig_);
  containers_[key] = c;
  watchTables(c, false);
}

ContainerSm::Ptr Agent::mcContainer(std::string_view vrf) const {
  vrfId(vrf);
  auto it = mcContainers_.find(str(vrf));
  if (it == mcContainers_.end()) {
    throw Kel::InvalidOperationException("VRF '" + str(vrf) + "' has no multicast container: " +
                                         (Rib::RoutingProtocolHelper::mribProtocol(rp_)
                                              ? "it is not ready (see 'show ready')"
                                              : "protocol " + str(Rib::stringValue(rp_)) + " does not feed the mrib"));
  }
  return it->second;
}

// The multicast twin of follow(): the agent mounts the container's tables itself.
void Agent::followMc(const L3::VrfName& name) {
  auto it = mcContainers_.find(name.str());
  if (!root_->mcReadyVrfIpv4Has(name)) {
    if (it != mcContainers_.end()) dropMc(it);
    return;
  }
  if (it != mcContainers_.end()) return;
  root_->doMountMcContainer4(name);
  const Vrf::VrfIdMap::VrfId id = root_->vrfIdOf(name);
  const ContainerKey key(name, Velnet::AddressFamily::ipv4);
  auto viaConfig = root_->mcIpv4AllVrfViaConfig()
                       ? root_->mcIpv4AllVrfViaConfig()
                       : Kel::ptrCast<Rib::Ip::ViaConfig>(em_->getEntity(root_->viaConfigMount(id, "mrib", Rib::Transport::ipv4)));
  auto intf = ipv4IntfStatusFactory(Ip::VrfIpIntfStatus::PtrConst(root_->ipv4IntfStatus()->vrfIpIntfStatus(name)));
  auto looping = root_->mcLoopingRouteStatusByVrf4()->loopingRouteStatus(name);
  // No EVPN, no BFD and no readiness for multicast: those belong to the unicast containers.
  auto c = containerSmFactory(key, id, root_->viaMetricStatus(Rib::Transport::ipv4, id, "mrib"), viaConfig,
                              Rib::ViaMetricStatus::PtrConst(), Rib::Evpn::ViaConfig::Ptr(), root_->mcViaSetConfig(),
                              mribConfigFor(id), Rib::LoopingRouteStatus::PtrConst(looping), intf,
                              root_->mcIpv4DefaultVrfViaConfig(), root_->mcIpv4DefaultVrfViaMetricStatus(),
                              Rib::Ip::ViaConfig::Ptr(), Rib::ViaMetricStatus::PtrConst(), rp_, VrfReadyStatus::Ptr(),
                              BfdTrackedNextHopStatus::Ptr(), Bfd::AppConfig::Ptr(), root_->mcViaMetricStatusByVrf(),
                              std::string("mrib"));
  mcContainers_[name.str()] = c;
  watchTables(c, true);
}

void Agent::dropMc(std::map<std::string, ContainerSm::Ptr>::iterator it) {
  const L3::VrfName name(it->first);
  const Vrf::VrfIdMap::VrfId id = it->second->vrfId();
  const auto table = it->second->ribConfig();
  const ContainerKey unicast(name, Velnet::AddressFamily::ipv4);
  // The multicast clean-up removes the BFD entry of the IPv4 container key, which the unicast
  // container of the same VRF still uses: keep it and hand it back afterwards.
  auto bfdStatus = bfdByContainer_->nextHopStatus(unicast);
  mcContainers_.erase(it);
  root_->doCleanupMcContainer4(name, id);
  if (bfdStatus && containers_.count(unicast) && !bfdByContainer_->nextHopStatus(unicast)) {
    bfd_->statusRestore(unicast, bfdStatus);
  }
  if (follower_) follower_->routeTableDel(table);
}

void Agent::execute(const Command& c) {
  const std::string_view v = c.verb;
  if (v == "protocol") return cmdProtocol(c);
  if (v == "limits") return cmdLimits(c);
  if (v == "start") return cmdStart(c);
  if (v == "verify-ready") {
    expectWords(c.args, 0, 0, "verify-ready");
    requireStarted();
    Kel::ptrConstCast(root_->grState())->startReadyVerificationIs(true);
    return;
  }
  if (v == "vrf") return cmdVrf(c);
  if (v == "intf") return cmdIntf(c);
  if (v == "metric") return cmdMetric(c);
  if (v == "looping") return cmdLooping(c);
  if (v == "seq-trigger") return cmdSeqTrigger(c);
  if (v == "route") return cmdRoute(c);
  if (v == "run") return cmdRun(c);
  if (v == "bfd") return cmdBfd(c);
  if (v == "follow") return cmdFollow(c);
  if (v == "trace") return cmdTrace(c);
  if (v == "show") return cmdShow(c);
  throw Kel::ParseException("unknown command '" + str(v) + "'");
}

void Agent::cmdProtocol(const Command& c) {
  expectWords(c.args, 1, 1, "protocol staticConfig|routeInput|bgp|ospf|...");
  if (root_) throw Kel::InvalidOperationException("protocol must be chosen before start");
  Rib::RoutingProtocol rp;
  try {
    rp = Rib::routingProtocolFromString(c.args[0]);
  } catch (const Kel::Exception&) {
    throw Kel::ParseException("unknown protocol '" + str(c.args[0]) + "'");
  }
  if (rp == Rib::RoutingProtocol::unknown) throw Kel::ParseException("protocol 'unknown' cannot run");
  rp_ = rp;
}

void Agent::cmdLimits(const Command& c) {
  static constexpr std::string_view usage = "limits routes N viasets N vrfs N";
  expectWords(c.args, 2, 6, usage);
  if (c.args.size() % 2 != 0) throw Kel::ParseException("usage: " + str(usage));
  if (root_) throw Kel::InvalidOperationException("limits must be set before start");
  uint32_t routes = maxRoutes_, viaSets = maxViaSets_, vrfs = maxVrfs_;
  for (size_t i = 0; i < c.args.size(); i += 2) {
    const auto n = static_cast<uint32_t>(parseUnsigned(c.args[i + 1], c.args[i], UINT32_MAX));
    if (c.args[i] == "routes") routes = n;
    else if (c.args[i] == "viasets") viaSets = n;
    else if (c.args[i] == "vrfs") vrfs = n;
    else throw Kel::ParseException("unknown limit '" + str(c.args[i]) + "': expected routes, viasets or vrfs");
  }
  maxRoutes_ = routes;
  maxViaSets_ = viaSets;
  maxVrfs_ = vrfs;
}

void Agent::cmdStart(const Command& c) {
  expectWords(c.args, 1, 1, "start cold|graceful");
  if (c.args[0] != "cold" && c.args[0] != "graceful") throw Kel::ParseException("usage: start cold|graceful");
  if (root_) throw Kel::InvalidOperationException("already started");
  em_ = Statedb::entityManagerFactory();
  mg_ = Statedb::mountGroupFactory(em_);
  allVrfReadyStatus_ = allVrfReadyStatusFactory();
  allVrfRibSeqTrigger_ = allVrfRibSeqTriggerFactory();
  bfdByContainer_ = bfdTrackedNextHopByContainerFactory();
  bfdAppConfig_ = Bfd::appConfigFactory(std::string("protorib-agent"));
  // First phase: the root asks for its mounts; second phase once they are all there.
  root_ = rootSmFactory(em_, mg_, maxRoutes_, maxViaSets_, maxVrfs_, rp_, allVrfReadyStatus_, allVrfRibSeqTrigger_,
                        bfdByContainer_);
  notifierIs(root_);
  root_->grStateIs(c.args[0] == "graceful");
  mg_->doClose();
  Kel::activityManager().runUntilIdle();
  nameMap_ = Vrf::VrfIdMap::nameToIdMapFactory();
  Kel::ptrCast<Vrf::VrfIdMap::NameToIdMapWrapper>(em_->getEntity("vrf/vrfNameStatus"))->nameToIdMapIs(nameMap_);
  root_->doMountsComplete();
  if (Rib::RoutingProtocolHelper::mribProtocol(rp_)) {
    root_->mcIpv4DefaultVrfViaMetricStatusIs(metricsOf(0, Rib::Transport::ipv4, true));
  }
  bfd_ = std::make_unique<BfdTracking>(containers_, bfdByContainer_, rp_);
  leaking_ = std::make_unique<Leaking>(nameMap_);
  if (follower_) {
    follower_->viaSetTableIs(root_->viaSetConfig(), "rib");
    follower_->viaSetTableIs(root_->mcViaSetConfig(), "mrib");
  }
  vrfIs("default", 0);
}

void Agent::cmdVrf(const Command& c) {
  if (c.args.empty()) throw Kel::ParseException("usage: vrf add NAME ID | vrf del NAME");
  requireStarted();
  if (c.args[0] == "add") {
    expectWords(c.args, 3, 3, "vrf add NAME ID");
    const L3::VrfName name{c.args[1]};  // checks the name
    const auto id = static_cast<Vrf::VrfIdMap::VrfId>(parseUnsigned(c.args[2], "VRF id", UINT32_MAX - 1));
    if (vrfs_.count(str(c.args[1]))) throw Kel::NameInUseException("VRF '" + str(c.args[1]) + "' exists");
    for (const auto& [n, i] : vrfs_) {
      if (i == id) throw Kel::NameInUseException("VRF id " + std::to_string(id) + " is used by VRF '" + n + "'");
    }
    if (vrfs_.size() >= maxVrfs_) throw Kel::RangeException("VRF limit " + std::to_string(maxVrfs_) + " reached");
    vrfIs(str(c.args[1]), id);
  } else if (c.args[0] == "del") {
    expectWords(c.args, 2, 2, "vrf del NAME");
    const auto id = vrfId(c.args[1]);
    if (id == 0) throw Kel::InvalidOperationException("VRF 'default' cannot be deleted");
    const L3::VrfName name{c.args[1]};
    if (follower_) {
      for (const auto& config : leaking_->vrfs().at(str(c.args[1])).config) follower_->leakConfigDel(config);
    }
    leaking_->vrfDel(str(c.args[1]));
    nameMap_->vrfIdDel(name);
    leaking_->decideAgain(name);
    Kel::ptrCast<Vrf::VrfIdMap::Status>(em_->getEntity("vrf/vrfIdMapStatus"))->vrfNameDel(id);
    // Forgotten last, so that what the withdrawal changes is still reported under the VRF's name.
    vrfs_.erase(str(c.args[1]));
  } else {
    throw Kel::ParseException("usage: vrf add NAME ID | vrf del NAME");
  }
}

void Agent::cmdIntf(const Command& c) {
  static constexpr std::string_view usage =
      "intf add|set VRF ipv4|ipv6 INTF [routing on|off] | intf del VRF ipv4|ipv6 INTF";
  expectWords(c.args, 4, 6, usage);
  requireStarted();
  const std::string_view op = c.args[0];
  vrfId(c.args[1]);
  const L3::VrfName vrf{c.args[1]};
  const auto af = parseFamily(c.args[2]);
  const Velnet::IntfId intf{c.args[3]};
  bool routing = true;
  if (c.args.size() == 6 && c.args[4] == "routing") {
    routing = parseOnOff(c.args[5]);
  } else if (c.args.size() != 4) {
    throw Kel::ParseException("usage: " + str(usage));
  }
  const bool v4 = af == Velnet::AddressFamily::ipv4;
  auto v4s = ipStatus()->vrfIpIntfStatus(vrf);
  auto v6s = ip6Status()->vrfIp6IntfStatus(vrf);
  const bool exists = v4 ? v4s->ipIntfStatusHas(intf) : v6s->ip6IntfStatusHas(intf);
  if (op == "add" || op == "set") {
    if (op == "add" && exists) throw Kel::NameInUseException("interface " + intf.name() + " exists");
    if (op == "set" && !exists) throw Kel::RangeException("no interface " + intf.name());
    if (op == "set" && c.args.size() != 6) throw Kel::ParseException("usage: intf set VRF ipv4|ipv6 INTF routing on|off");
    if (v4) v4s->ipIntfStatusIs(intf)->dpRoutingEnabledIs(routing);
    else v6s->ip6IntfStatusIs(intf)->dpRoutingEnabledIs(routing);
  } else if (op == "del") {
    if (c.args.size() != 4) throw Kel::ParseException("usage: " + str(usage));
    if (!exists) throw Kel::RangeException("no interface " + intf.name());
    if (v4) v4s->ipIntfStatusDel(intf);
    else v6s->ip6IntfStatusDel(intf);
  } else {
    throw Kel::ParseException("usage: " + str(usage));
  }
}

void Agent::cmdMetric(const Command& c) {
  static constexpr std::string_view usage =
      "metric VRF ipv4|ipv6|evpn NEXTHOP [intf X] [vni N] resolved [cost N] [loopcheck] [mrib] | ... unresolved [mrib]";
  expectWords(c.args, 4, 12, usage);
  requireStarted();
  const auto id = vrfId(c.args[0]);
  const auto t = parseTransport(c.args[1]);
  const auto addr = parseAddress(c.args[2]);
  if (t != Rib::Transport::evpn &&
      (addr.af() == Velnet::AddressFamily::ipv4) != (t == Rib::Transport::ipv4)) {
    throw Kel::ParseException("next hop " + addr.str() + " is not an " + str(c.args[1]) + " address");
  }
  Velnet::IntfId intf;
  uint32_t vni = 0, cost = 1;
  bool loopCheck = false, mrib = false;
  std::optional<bool> resolved;
  for (size_t i = 3; i < c.args.size(); ++i) {
    const auto k = c.args[i];
    const bool hasValue = i + 1 < c.args.size();
    if (k == "intf" && hasValue) intf = Velnet::IntfId(c.args[++i]);
    else if (k == "vni" && hasValue) vni = static_cast<uint32_t>(parseUnsigned(c.args[++i], "vni", 0xFFFFFF));
    else if (k == "cost" && hasValue) cost = static_cast<uint32_t>(parseUnsigned(c.args[++i], "cost", 0xFFFFFFFE));
    else if (k == "loopcheck") loopCheck = true;
    else if (k == "resolved") resolved = true;
    else if (k == "unresolved") resolved = false;
    else if (k == "mrib") mrib = true;
    else throw Kel::ParseException("usage: " + str(usage));
  }
  if (!resolved) throw Kel::ParseException("say resolved or unresolved");
  if (mrib && t != Rib::Transport::ipv4) throw Kel::ParseException("the mrib takes ipv4 metrics only");
  const Rib::ViaKey key(t, id, rp_, addr, intf, vni);
  // Every EVPN metric lives in the default VRF's table, keyed by the VRF of the via it resolves.
  auto table = metricsOf(t == Rib::Transport::evpn ? 0 : id, t, mrib);
  if (*resolved) table->viaMetricIs(key, Rib::ViaMetric(cost, 1, loopCheck));
  else table->viaMetricDel(key);
  if (id == Vrf::VrfIdMap::defaultVrfId && t != Rib::Transport::evpn && !mrib && evpnVias_) stampEvpnRoutes(key);
}

// The library re-evaluates a route when one of its own vias changes, but not when the VTEP
// companion of one of its EVPN vias does (that metric lives in the default VRF, outside the
// route's VRF and outside the via index). The agent fills the gap: every route with an EVPN via
// whose companion is `companion` is stamped. Only scripts with EVPN vias pay for the walk.
void Agent::stampEvpnRoutes(const Rib::ViaKey& companion) {
  for (const auto& [key, c] : containers_) {
    for (const auto& route : c->status()->routeColl()) {
      for (const auto& rp : route->routePrefColl()) {
        bool uses = false;
        for (const auto& e : rp->dedupEvpnVtepIpViaKeyColl()) uses = uses || e.value->value() == companion;
        if (uses) {
          route->routeChangedAtIs(Kel::currentTime());
          break;
        }
      }
    }
  }
}

void Agent::cmdLooping(const Command& c) {
  static constexpr std::string_view usage = "looping VRF PREFIX on|off [mrib]";
  expectWords(c.args, 3, 4, usage);
  if (c.args.size() == 4 && c.args[3] != "mrib") throw Kel::ParseException("usage: " + str(usage));
  requireStarted();
  vrfId(c.args[0]);
  const auto prefix = parsePrefix(c.args[1]);
  const bool on = parseOnOff(c.args[2]);
  const bool mrib = c.args.size() == 4;
  if (mrib && prefix.af() != Velnet::AddressFamily::ipv4) throw Kel::ParseException("the mrib takes ipv4 prefixes only");
  if (mrib && !Rib::RoutingProtocolHelper::mribProtocol(rp_)) {
    throw Kel::InvalidOperationException("protocol " + str(Rib::stringValue(rp_)) + " does not feed the mrib");
  }
  const char* path = mrib ? "routing/mrib/loopingRouteStatus"
                          : prefix.af() == Velnet::AddressFamily::ipv4 ? "routing/rib/loopingRouteStatus"
                                                                        : "routing6/rib/loopingRouteStatus";
  auto status = Kel::ptrCast<Rib::LoopingRouteStatusByVrf>(em_->getEntity(path))->loopingRouteStatus(L3::VrfName(c.args[0]));
  if (on) status->loopingRouteIs(prefix, status->loopingRoute(prefix) + 1);
  else status->loopingRouteDel(prefix);
}

void Agent::cmdSeqTrigger(const Command& c) {
  expectWords(c.args, 2, 2, "seq-trigger VRF N");
  requireStarted();
  vrfId(c.args[0]);
  const auto n = static_cast<uint32_t>(parseUnsigned(c.args[1], "sequence number", UINT32_MAX));
  auto trigger = allVrfRibSeqTrigger_->vrfRibSeqTrigger(L3::VrfName(c.args[0]));
  if (!trigger) throw Kel::InvalidOperationException("VRF '" + str(c.args[0]) + "' has no sequence trigger yet");
  trigger->ribReadySeqTriggerIs(n);
}

void Agent::cmdRoute(const Command& c) {
  static constexpr std::string_view usage =
      "route add ... | route del VRF PREFIX [pref N] [mrib] | route leak VRF PREFIX [VRF]";
  if (c.args.empty()) throw Kel::ParseException("usage: " + str(usage));
  if (c.args[0] == "add") {
    const RouteAdd r = parseRouteAdd(std::vector<std::string_view>(c.args.begin() + 1, c.args.end()));
    requireStarted();
    return cmdRouteAdd(r);
  }
  if (c.args[0] == "leak") {
    expectWords(c.args, 3, 4, "route leak VRF PREFIX [VRF]");
    requireStarted();
    const auto prefix = parsePrefix(c.args[2]);
    if (!container(c.args[1], prefix.af())->status()->route(prefix)) {
      throw Kel::RangeException("no route " + prefix.str() + " in VRF '" + str(c.args[1]) + "'");
    }
    leaking_->leakToIs(str(c.args[1]), prefix, c.args.size() == 4 ? L3::VrfName(c.args[3]) : L3::VrfName());
    return;
  }
  if (c.args[0] != "del") throw Kel::ParseException("usage: " + str(usage));
  std::vector<std::string_view> w(c.args.begin() + 1, c.args.end());
  const bool mrib = !w.empty() && w.back() == "mrib";
  if (mrib) w.pop_back();
  if ((w.size() != 2 && w.size() != 4) || (w.size() == 4 && w[2] != "pref")) {
    throw Kel::ParseException("usage: route del VRF PREFIX [pref N] [mrib]");
  }
  requireStarted();
  const auto prefix = parsePrefix(w[1]);
  if (mrib && prefix.af() != Velnet::AddressFamily::ipv4) throw Kel::ParseException("the mrib takes ipv4 prefixes only");
  const ContainerKey key{L3::VrfName(w[0]), prefix.af()};
  auto status = (mrib ? mcContainer(w[0]) : container(w[0], prefix.af()))->status();
  auto route = status->route(prefix);
  if (!route) {
    throw Kel::RangeException("no " + str(mrib ? "multicast " : "") + "route " + prefix.str() + " in VRF '" + str(w[0]) + "'");
  }
  if (w.size() == 4) {
    const auto pref = static_cast<Routing::RoutePreference>(parseUnsigned(w[3], "preference", 255));
    if (!route->routePref(pref)) throw Kel::RangeException("route " + prefix.str() + " has no preference " + str(w[3]));
    if (!mrib) bfd_->alternativeDel(key, prefix, pref);
    route->routePrefDel(pref);
    if (route->routePrefs() != 0) return;
  }
  if (!mrib) {
    bfd_->routeDel(key, prefix);
    leaking_->routeDel(str(w[0]), prefix);
  }
  status->routeDel(prefix);
}

void Agent::cmdRouteAdd(const RouteAdd& r) {
  const auto id = vrfId(r.vrf);
  if (r.mrib) {
    if (r.prefix.af() != Velnet::AddressFamily::ipv4) throw Kel::ParseException("the mrib takes ipv4 prefixes only");
    if (r.leakTo) throw Kel::ParseException("multicast routes do not leak");
  }
  auto c = r.mrib ? mcContainer(r.vrf) : container(r.vrf, r.prefix.af());
  Alternative alt;
  alt.fecType = r.fecType;
  alt.installInFib = r.installInFib;
  alt.fibType = r.fibType;
  alt.tag = r.tag;
  std::vector<Rib::Via> labelled;
  for (const auto& v : r.vias) {
    const auto t = v.nextHop.af() == Velnet::AddressFamily::ipv4 ? Rib::Transport::ipv4 : Rib::Transport::ipv6;
    const Velnet::IntfId intf = v.intf.empty() ? Velnet::IntfId() : Velnet::IntfId(v.intf);
    if (v.evpn) {
      if (r.mrib) throw Kel::ParseException("multicast routes take no evpn vias");
      const Rib::ViaKey key(Rib::Transport::evpn, id, rp_, v.nextHop, intf, v.vni);
      const Velnet::IpGenAddr vtep = v.vtep ? *v.vtep : v.nextHop;
      const auto vt = vtep.af() == Velnet::AddressFamily::ipv4 ? Rib::Transport::ipv4 : Rib::Transport::ipv6;
      alt.vias.push_back(key);
      alt.evpnCompanions[key] = Rib::ViaKey(vt, Vrf::VrfIdMap::defaultVrfId, rp_, vtep, Velnet::IntfId(), 0);
      evpnVias_ = true;
      continue;
    }
    const Rib::Via via(Rib::ViaKey(t, id, rp_, v.nextHop, intf, 0), v.label);
    alt.vias.push_back(via.key());
    labelled.push_back(via);
  }
  const ContainerKey key(L3::VrfName(r.vrf), r.prefix.af());
  auto status = c->status();
  const auto pref = static_cast<Routing::RoutePreference>(r.preference);
  // A new route is built apart and joins the status whole, with one notification.
  Route::Ptr route = status->route(r.prefix);
  const bool newRoute = !route;
  if (newRoute) route = routeFactory(r.prefix);
  // What a refusal puts back: the alternative replaced, the source VRF, the via configuration.
  const RoutePref::Ptr replaced = newRoute ? RoutePref::Ptr() : route->routePref(pref);
  const auto srcVrfBefore = route->srcVrfId();
  const std::optional<L3::VrfName> leakTo = r.leakTo ? std::optional(L3::VrfName(*r.leakTo)) : std::nullopt;
  auto viaConfig = c->ipViaConfig();
  std::vector<Rib::Via> viasBefore;
  std::vector<Rib::ViaKey> viasAdded;
  try {
    for (const auto& v : labelled) {
      if (!viaConfig || !(v.labelled() || viaConfig->via(v.key()))) continue;
      if (const Rib::Via* old = viaConfig->via(v.key())) {
        viasBefore.push_back(*old);
      } else {
        viasAdded.push_back(v.key());
      }
      viaConfig->viaIs(v);
    }
    // The source VRF is not watched: it is set first, so that the evaluation that writing the
    // alternative causes already reads it.
    if (r.srcVrfId) route->srcVrfIdIs(*r.srcVrfId);
    const bool tracked = !r.mrib && bfd_->tracks(key, r.prefix);
    alternativeIs(*route, pref, alt, tracked ? bfd_->filterFor(key, r.prefix) : nullptr);
    if (newRoute) status->routeIs(route);
    if (tracked) bfd_->alternativeIs(key, r.prefix, pref, alt);
    if (leakTo) leaking_->leakToIs(r.vrf, r.prefix, *leakTo);
  } catch (...) {
    if (newRoute) {
      status->routeDel(r.prefix);
    } else {
      route->srcVrfIdIs(srcVrfBefore);
      if (replaced) {
        route->routePrefIs(replaced);
      } else {
        route->routePrefDel(pref);
      }
    }
    for (const auto& v : viasBefore) viaConfig->viaIs(v);
    for (const auto& k : viasAdded) viaConfig->viaDel(k);
    throw;
  }
}

void Agent::cmdRun(const Command& c) {
  expectWords(c.args, 0, 1, "run [SECONDS]");
  if (c.args.empty()) {
    Kel::activityManager().runUntilIdle();
    return;
  }
  double seconds = 0;
  try {
    size_t used = 0;
    seconds = std::stod(str(c.args[0]), &used);
    if (used != c.args[0].size() || !(seconds >= 0) || seconds > 1e9) throw std::invalid_argument("");
  } catch (const std::exception&) {
    throw Kel::ParseException("bad span '" + str(c.args[0]) + "': expected seconds, 0 or more");
  }
  Kel::activityManager().runUntil(time_.time() + seconds);
  Kel::activityManager().runUntilIdle();
}

void Agent::cmdBfd(const Command& c) {
  static constexpr std::string_view usage =
      "bfd track|untrack VRF PREFIX NEXTHOP [intf X] | bfd session VRF NEXTHOP [intf X] "
      "up|down|init|admin-down|withdraw";
  if (c.args.empty()) throw Kel::ParseException("usage: " + str(usage));
  const std::string_view op = c.args[0];
  // The optional interface, at `at`; what follows it is returned.
  auto intfAt = [&](size_t at, Velnet::IntfId& intf) {
    if (at < c.args.size() && c.args[at] == "intf") {
      if (at + 1 >= c.args.size()) throw Kel::ParseException("intf needs a value");
      intf = Velnet::IntfId(c.args[at + 1]);
      return at + 2;
    }
    return at;
  };
  auto checkLinkLocal = [](const Velnet::IpGenAddr& addr, const Velnet::IntfId& intf) {
    if (addr.isLinkLocal() && intf.name().empty()) {
      throw Kel::ParseException("link-local next hop " + addr.str() + " needs its intf");
    }
  };
  if (op == "track" || op == "untrack") {
    expectWords(c.args, 4, 6, usage);
    requireStarted();
    const auto id = vrfId(c.args[1]);
    const auto prefix = parsePrefix(c.args[2]);
    const auto addr = parseAddress(c.args[3]);
    Velnet::IntfId intf;
    if (intfAt(4, intf) != c.args.size()) throw Kel::ParseException("usage: " + str(usage));
    checkLinkLocal(addr, intf);
    const L3::VrfName vrf(c.args[1]);
    if (op == "track") bfd_->trackIs(vrf, prefix, BfdTracking::keyOf(addr, intf), id);
    else bfd_->trackDel(vrf, prefix, BfdTracking::keyOf(addr, intf));
    return;
  }
  if (op != "session") throw Kel::ParseException("usage: " + str(usage));
  expectWords(c.args, 4, 6, usage);
  requireStarted();
  vrfId(c.args[1]);
  const auto addr = parseAddress(c.args[2]);
  Velnet::IntfId intf;
  const size_t at = intfAt(3, intf);
  if (at + 1 != c.args.size()) throw Kel::ParseException("usage: " + str(usage));
  checkLinkLocal(addr, intf);
  // The peer as a session names it: the interface only where the address needs one.
  const Bfd::Peer peer(addr, L3::VrfName(c.args[1]), addr.isLinkLocal() ? intf : Velnet::IntfId());
  const std::string_view state = c.args[at];
  if (state == "withdraw") return bfd_->sessionDel(peer);
  if (state == "up") return bfd_->sessionIs(peer, Bfd::OperState::up);
  if (state == "down") return bfd_->sessionIs(peer, Bfd::OperState::down);
  if (state == "init") return bfd_->sessionIs(peer, Bfd::OperState::init);
  if (state == "admin-down") return bfd_->sessionIs(peer, Bfd::OperState::adminDown);
  throw Kel::ParseException("bad session state '" + str(state) + "': expected up, down, init, admin-down or withdraw");
}

void Agent::cmdFollow(const Command& c) {
  expectWords(c.args, 1, 1, "follow on|off");
  followingIs(parseOnOff(c.args[0]));
}

void Agent::cmdTrace(const Command& c) {
  expectWords(c.args, 1, 2, "trace HANDLE LEVELS | trace off");
  if (c.args.size() == 1) {
    if (c.args[0] != "off") throw Kel::ParseException("usage: trace HANDLE LEVELS | trace off");
    Kel::traceConfigIs("");
    return;
  }
  const std::string_view levels = c.args[1];
  const auto dash = levels.find('-');
  const int lo = static_cast<int>(parseUnsigned(levels.substr(0, dash), "trace level", 9));
  const int hi = dash == std::string_view::npos ? lo : static_cast<int>(parseUnsigned(levels.substr(dash + 1), "trace level", 9));
  if (lo > hi) throw Kel::RangeException("bad trace levels '" + str(levels) + "'");
  Kel::TraceHandle::handle(c.args[0]).enable(lo, hi);
}

void Agent::cmdShow(const Command& c) {
  static constexpr std::string_view usage =
      "show rib|mrib [VRF] [ipv4|ipv6] [json] | show ready|intf|summary [json] | "
      "show readiness|bfd|leaked [VRF] [json]";
  if (c.args.empty()) throw Kel::ParseException("usage: " + str(usage));
  std::vector<std::string_view> rest(c.args.begin() + 1, c.args.end());
  const bool json = !rest.empty() && rest.back() == "json";
  if (json) rest.pop_back();
  const auto what = c.args[0];
  if (what == "rib" || what == "mrib") {
    std::optional<std::string> vrf;
    std::optional<Velnet::AddressFamily> af;
    for (auto w : rest) {
      if (w == "ipv4" || w == "ipv6") {
        if (af) throw Kel::ParseException("usage: " + str(usage));
        af = parseFamily(w);
      } else if (!vrf && !af) {
        vrfId(w);
        vrf = str(w);
      } else {
        throw Kel::ParseException("usage: " + str(usage));
      }
    }
    if (what == "mrib") {
      if (af == Velnet::AddressFamily::ipv6) throw Kel::ParseException("the mrib holds ipv4 routes only");
      return showMrib(*this, out_, vrf, json);
    }
    return showRib(*this, out_, vrf, af, json);
  }
  if (what == "readiness" || what == "bfd" || what == "leaked") {
    expectWords(rest, 0, 1, usage);
    std::optional<std::string> vrf;
    if (!rest.empty()) {
      vrfId(rest[0]);
      vrf = str(rest[0]);
    }
    if (what == "bfd") return showBfd(*this, out_, vrf, json);
    if (what == "leaked") return showLeaked(*this, out_, vrf, json);
    return showReadiness(*this, out_, vrf, json);
  }
  expectWords(rest, 0, 0, usage);
  if (what == "ready") return showReady(*this, out_, json);
  if (what == "intf") return showIntf(*this, out_, json);
  if (what == "summary") return showSummary(*this, out_, json);
  throw Kel::ParseException("usage: " + str(usage));
}

}  // namespace Routing::Protocol::Agent
