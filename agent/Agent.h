// The reference agent: it runs the library as a routing protocol does and plays the RIB service's
// side in the same process.
//
// Before `start` only the protocol and sizing limits may change; `start` creates the entry objects,
// runs both start-up phases and publishes VRF "default" (id 0) with its interface, looping-route and
// via-metric tables, because every container waits for the default VRF's metrics. From then on the
// agent keeps one container per name in each ready set of the root (IPv4 and IPv6 unicast, and IPv4
// multicast for a protocol that feeds the mrib), made when the name enters and dropped (then
// cleaned up) when it leaves, exactly as the library expects of an agent. BFD tracking
// (BfdTracking), route leaking (Leaking) and following the RIB's changes (Follower) each live in a
// part of their own that the agent feeds.
//
// A multicast container is not entered in the root's RouteStatusDir: that directory is keyed by
// VRF id and family, which the IPv4 unicast container of the same VRF already holds. Its routes are
// re-evaluated by the review that every change of the VRF's mrib metrics starts.
//
// Every command checks all it needs before it changes anything, so a refused command leaves the
// agent as it was; the one change that can fail halfway -- a route the RIB's tables have no room
// for -- is undone before the error is reported.
#pragma once

#include <iosfwd>
#include <map>
#include <memory>
#include <string>

#include "agent/BfdTracking.h"
#include "agent/Follow.h"
#include "agent/Leaking.h"
#include "agent/Script.h"
#include "intf/ProtocolIntf.h"
#include "platform/kel/Kel.h"
#include "root/ProtocolContainerSm.h"
#include "root/ProtocolRootSm.h"

namespace Routing::Protocol::Agent {

class Agent : public RootSm::NotifieeConst {
 public:
  // Output of the show commands and of enabled traces goes to `out`.
  explicit Agent(std::ostream& out);
  ~Agent() override;
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  // Runs one command; a Kel::Exception (or std::exception) when it is refused, with nothing changed.
  void execute(const Command& c);
  // Runs the event loop until nothing is due now (what `run` does).
  void runUntilIdle() { Kel::activityManager().runUntilIdle(); }

  // ---- What the show commands read ----
  bool started() const noexcept { return root_ != nullptr; }
  Rib::RoutingProtocol protocol() const noexcept { return rp_; }
  const RootSm::Ptr& root() const noexcept { return root_; }
  const std::map<std::string, Vrf::VrfIdMap::VrfId>& vrfs() const noexcept { return vrfs_; }
  const std::map<ContainerKey, ContainerSm::Ptr>& containers() const noexcept { return containers_; }
  // IPv4 multicast containers, by VRF name.
  const std::map<std::string, ContainerSm::Ptr>& mcContainers() const noexcept { return mcContainers_; }
  const BfdTracking* bfd() const noexcept { return bfd_.get(); }
  const Bfd::AppConfig::Ptr& bfdAppConfig() const noexcept { return bfdAppConfig_; }
  const Leaking* leaking() const noexcept { return leaking_.get(); }
  // The name of a VRF id; its number when no VRF has it.
  std::string vrfName(Vrf::VrfIdMap::VrfId id) const;
  // Whether RIB changes are printed as they happen (`follow on`, or --follow).
  bool following() const noexcept { return follower_ != nullptr; }
  void followingIs(bool on);
  const AllVrfReadyStatus::Ptr& allVrfReadyStatus() const noexcept { return allVrfReadyStatus_; }
  // The RIB route table a VRF's routes of one family go to; null when not mounted.
  Rib::RouteConfig::Ptr ribConfigFor(Vrf::VrfIdMap::VrfId id, Velnet::AddressFamily af) const;
  // The multicast RIB's IPv4 route table of a VRF; null when the protocol has none.
  Rib::RouteConfig::Ptr mribConfigFor(Vrf::VrfIdMap::VrfId id) const;
  Ip::Status::Ptr ipStatus() const;
  Ip6::Status::Ptr ip6Status() const;
  double now() const noexcept { return time_.time(); }

  void onReadyVrfIpv4(const L3::VrfName& name) override { follow(name, Velnet::AddressFamily::ipv4); }
  void onReadyVrfIpv6(const L3::VrfName& name) override { follow(name, Velnet::AddressFamily::ipv6); }
  void onMcReadyVrfIpv4(const L3::VrfName& name) override { followMc(name); }

 private:
  void follow(const L3::VrfName& name, Velnet::AddressFamily af);
  void followMc(const L3::VrfName& name);
  void dropMc(std::map<std::string, ContainerSm::Ptr>::iterator it);
  ContainerSm::Ptr mcContainer(std::string_view vrf) const;
  void watchTables(const ContainerSm::Ptr& c, bool mc);
  void stampEvpnRoutes(const Rib::ViaKey& companion);
  void requireStarted() const;
  Vrf::VrfIdMap::VrfId vrfId(std::string_view name) const;
  ContainerSm::Ptr container(std::string_view vrf, Velnet::AddressFamily af) const;
  Rib::ViaMetricStatus::Ptr metricsOf(Vrf::VrfIdMap::VrfId vrf, Rib::Transport t, bool mrib = false);
  void vrfIs(const std::string& name, Vrf::VrfIdMap::VrfId id);

  void cmdProtocol(const Command& c);
  void cmdLimits(const Command& c);
  void cmdStart(const Command& c);
  void cmdVrf(const Command& c);
  void cmdIntf(const Command& c);
  void cmdMetric(const Command& c);
  void cmdLooping(const Command& c);
  void cmdSeqTrigger(const Command& c);
  void cmdRoute(const Command& c);
  void cmdRouteAdd(const RouteAdd& r);
  void cmdRun(const Command& c);
  void cmdBfd(const Command& c);
  void cmdFollow(const Command& c);
  void cmdTrace(const Command& c);
  void cmdShow(const Command& c);

  std::ostream& out_;
  Kel::ManualTimeSource time_{0.0};
  Kel::ScopedTimeSource scopedTime_{time_};
  std::shared_ptr<Kel::TraceSink> sink_;
  std::shared_ptr<Kel::TraceSink> previousSink_;

  Rib::RoutingProtocol rp_ = Rib::RoutingProtocol::staticConfig;
  uint32_t maxRoutes_ = 100000;
  uint32_t maxViaSets_ = 10000;
  uint32_t maxVrfs_ = 100;

  Statedb::EntityManager::Ptr em_;
  Statedb::MountGroup::Ptr mg_;
  AllVrfReadyStatus::Ptr allVrfReadyStatus_;
  AllVrfRibSeqTrigger::Ptr allVrfRibSeqTrigger_;
  BfdTrackedNextHopByContainer::Ptr bfdByContainer_;
  Bfd::AppConfig::Ptr bfdAppConfig_;
  RootSm::Ptr root_;
  Vrf::VrfIdMap::NameToIdMap::Ptr nameMap_;
  std::map<std::string, Vrf::VrfIdMap::VrfId> vrfs_;
  std::map<ContainerKey, ContainerSm::Ptr> containers_;
  std::map<std::string, ContainerSm::Ptr> mcContainers_;
  std::unique_ptr<BfdTracking> bfd_;
  std::unique_ptr<Leaking> leaking_;
  std::unique_ptr<Follower> follower_;
  // Set once a route has had an EVPN via: from then on default-VRF metrics stamp EVPN routes.
  bool evpnVias_ = false;
};

}  // namespace Routing::Protocol::Agent
