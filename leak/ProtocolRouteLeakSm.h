// The state machines of route leaking.
//
//   RootSm --muxSm[V]--> MuxSm (V as a source) --> LeakRouteListSet[V] ----------.
//          --demuxSm[V]--> DemuxSm (V as a destination) <-- LeakRouteListPtrSet[V] <-- WiringSm
//
// The agent creates one RootSm and calls createVrf / deleteVrf per VRF and address family. Each
// VRF gets a multiplexer, which sorts the VRF's routes into one list per destination as their
// leak-to VRF says, and a demultiplexer, which merges every list destined to the VRF into its
// LeakRouteConfig, one leak route per key. The wiring carries each list from its source's set into
// its destination's pointer set. All of it is synchronous: a route change that reaches a list
// reaches the destination's configuration within the same handler run.
//
// Walks over whole tables (the multiplexer's first pass over a VRF's routes, the demultiplexer's
// re-decision of keys after a list came or went) are cut into slices of `reviewQuantum` seconds and
// resumed from a bookmark on a later turn of the event loop, through a clock of each machine. The
// two walks differ on purpose: the multiplexer stops at the deadline; the demultiplexer, once the
// quantum is spent, keeps walking and decides every second key, leaving the keys it passed over in
// the backlog for its next run. Both handle at least one key per run.
//
// Handlers tolerate any order of events: each looks the state up again by key rather than trusting
// what it saw before, so handling a key twice does no harm. Broken invariants are assertions.
#pragma once

#include "leak/ProtocolRouteLeak.h"
#include "platform/kel/Activity.h"
#include "platform/kel/Attribute.h"
#include "platform/kel/Reactor.h"
#include "platform/routing/RouteList.h"
#include "platform/vrf/VrfIdMap.h"

namespace Routing::Protocol::Leak {

// The multiplexer of one source VRF and address family.
class MuxSm : public Kel::StateMachine {
 public:
  KEL_ENTITY(MuxSm, "Routing::Protocol::Leak::MuxSm");
  class NotifieeConst : public Kel::NotifieeConstOf<MuxSm> {
   public:
    virtual void onOutputLeakRouteListSet() {}
    virtual void onOldLeakTo(const Routing::RouteKey&) {}
    virtual void onLeakRouteDir() {}
    virtual void onBacklog(const Routing::RouteKey&) {}
    virtual void onBookmark() {}
    virtual void onBookmarkValid() {}
    virtual void onReviewQuantum() {}
  };
  KEL_CREATOR(MuxSm);

  // Hears routes come, go and be replaced in `routeConfig`.
  class KelRouteConfig : public Kel::Reactor<MuxSm, Routing::RouteList> {
   public:
    using Reactor::Reactor;
    void onRoute(const Routing::RouteKey& key) override;
  };
  // Hears one route's leak-to VRF; bound for as long as the route is in `routeConfig`.
  class KelRoute : public Kel::Reactor<MuxSm, Routing::Route> {
   public:
    KelRoute(MuxSm* owner, const Routing::Route::PtrConst& route);
    void onLeakToVrf() override;
    void handleDel() override { handleRouteDelete(); }
    void handleRoute();
    void handleRouteDelete();
  };
  class KelClock : public Kel::Reactor<MuxSm, Kel::Clock> {
   public:
    using Reactor::Reactor;
    void onTime() override;
  };

  // The source VRF and address family.
  KEL_KEY(VrfIdAf, vrfIdAf);
  KEL_CTOR_PARAM(Routing::RouteList::PtrConst, routeConfig);
  KEL_CTOR_PARAM(Vrf::VrfIdMap::NameToIdMap::PtrConst, vrfNameToIdMap);

  // This source's lists, one per destination; present from construction on.
  const LeakRouteListSet::Ptr& outputLeakRouteListSet() const noexcept {
    return outputLeakRouteListSet_;
  }
  LeakRouteListSet::Ptr outputLeakRouteListSetIs(const VrfIdAf& key);
  // For each leaked key, the destination it is leaked into now; (vrfIdNull, none) when absent.
  KEL_MAP(Routing::RouteKey, VrfIdAf, oldLeakTo, OldLeakTo, vrfIdNull, Velnet::AddressFamily::none);
  // Owner of this source's leak routes; present from construction on.
  const LeakRouteDir::Ptr& leakRouteDir() const noexcept { return leakRouteDir_; }
  LeakRouteDir::Ptr leakRouteDirIs();
  KEL_REACTOR(KelClock, clock);
  // Keys still to be examined by the review.
  KEL_SET(Routing::RouteKey, backlog, Backlog);
  // Where a paused review resumes, when bookmarkValid.
  KEL_SCALAR(Routing::RouteKey, bookmark, Bookmark);
  KEL_SCALAR(bool, bookmarkValid, BookmarkValid);
  // Seconds of one review run.
  KEL_SCALAR(double, reviewQuantum, ReviewQuantum, 0.1);
  KEL_REACTOR(KelRouteConfig, kelRouteConfig);
  KEL_REACTOR_COLL(KelRoute, Routing::RouteKey, route);

  void handleInitialized();
  // The full pass: every key of routeConfig into the backlog.
  void handleRoute();
  // The leak decision for one key.
  void handleRoute(const Routing::RouteKey& key);
  // Withdraws the leak of one key, wherever it went.
  void handleRouteDelete(const Routing::RouteKey& key);
  // This source's list towards `vrfId`, made when `create` and absent; null for vrfIdNull.
  LeakRouteList::Ptr findLrl(Vrf::VrfIdMap::VrfId vrfId, bool create);
  // Deletes the list towards `vrfId` if it holds nothing.
  void maybeCleanupLrl(Vrf::VrfIdMap::VrfId vrfId);
  void scheduleReview();
  void doReview();

  void kelCheckCtorParams(const Routing::RouteList::PtrConst& routeConfig,
                          const Vrf::VrfIdMap::NameToIdMap::PtrConst& vrfNameToIdMap) const;

 private:
  MuxSm(const VrfIdAf& vrfIdAf, const Routing::RouteList::PtrConst& routeConfig,
        const Vrf::VrfIdMap::NameToIdMap::PtrConst& vrfNameToIdMap);
  ~MuxSm() override;

  LeakRouteListSet::Ptr outputLeakRouteListSet_;
  LeakRouteDir::Ptr leakRouteDir_;
};
KEL_FACTORY(MuxSm, muxSmFactory)

// The demultiplexer of one destination VRF and address family.
class DemuxSm : public Kel::StateMachine {
 public:
  KEL_ENTITY(DemuxSm, "Routing::Protocol::Leak::DemuxSm");
  class NotifieeConst : public Kel::NotifieeConstOf<DemuxSm> {
   public:
    virtual void onBacklog(const Routing::RouteKey&) {}
    virtual void onBookmark() {}
    virtual void onBookmarkValid() {}
    virtual void onReviewQuantum() {}
  };
  KEL_CREATOR(DemuxSm);

  // Hears lists join and leave the input set.
  class KelInputLeakRouteListSet : public Kel::Reactor<DemuxSm, LeakRouteListPtrSet> {
   public:
    using Reactor::Reactor;
    void onLeakRouteList(const VrfPairAf& key) override;
  };
  // Hears one input list's leak routes.
  class KelLeakRouteList : public Kel::Reactor<DemuxSm, LeakRouteList> {
   public:
    KelLeakRouteList(DemuxSm* owner, const LeakRouteList::PtrConst& list);
    void onLeakRoute(const Routing::RouteKey& key) override { handleLeakRoute(key); }
    // The whole list: every key into the backlog.
    void handleLeakRoute();
    void handleLeakRoute(const Routing::RouteKey& key);
  };
  class KelClock : public Kel::Reactor<DemuxSm, Kel::Clock> {
   public:
    using Reactor::Reactor;
    void onTime() override;
  };

  // The destination VRF and address family.
  KEL_KEY(VrfIdAf, vrfIdAf);
  KEL_CTOR_PARAM(LeakRouteListPtrSet::PtrConst, inputLeakRouteListSet);
  // Written one key at a time, never cleared wholesale.
  KEL_CTOR_PARAM(LeakRouteConfig::Ptr, leakRouteConfig);
  KEL_REACTOR_COLL(KelLeakRouteList, VrfPairAf, leakRouteList);
  KEL_REACTOR(KelClock, clock);
  // Keys still to be decided.
  KEL_SET(Routing::RouteKey, backlog, Backlog);
  // Where the next review starts, when bookmarkValid.
  KEL_SCALAR(Routing::RouteKey, bookmark, Bookmark);
  KEL_SCALAR(bool, bookmarkValid, BookmarkValid);
  KEL_SCALAR(double, reviewQuantum, ReviewQuantum, 0.1);
  KEL_REACTOR(KelInputLeakRouteListSet, kelInputLeakRouteListSet);

  void handleInitialized();
  void handleLeakRouteList(const VrfPairAf& key);
  // The choice among sources for one key.
  void handleLeakRoute(const Routing::RouteKey& key);
  void scheduleReview();
  void doReview();

  void kelCheckCtorParams(const LeakRouteListPtrSet::PtrConst& inputLeakRouteListSet,
                          const LeakRouteConfig::Ptr& leakRouteConfig) const;

 private:
  DemuxSm(const VrfIdAf& vrfIdAf, const LeakRouteListPtrSet::PtrConst& inputLeakRouteListSet,
          const LeakRouteConfig::Ptr& leakRouteConfig);
};
KEL_FACTORY(DemuxSm, demuxSmFactory)

// Carries every multiplexer's lists into the pointer sets of their destinations. Created by the
// root over directories that are still empty.
class WiringSm : public Kel::StateMachine {
 public:
  KEL_ENTITY(WiringSm, "Routing::Protocol::Leak::WiringSm");
  class NotifieeConst : public Kel::NotifieeConstOf<WiringSm> {};
  KEL_CREATOR(WiringSm);

  class KelMuxSmSetDir : public Kel::Reactor<WiringSm, LeakRouteListSetDir> {
   public:
    using Reactor::Reactor;
    void onLrlSet(const VrfIdAf& key) override;
  };
  class KelDemuxSmSetDir : public Kel::Reactor<WiringSm, LeakRouteListPtrSetDir> {
   public:
    using Reactor::Reactor;
    void onLrlpSet(const VrfIdAf& key) override;
  };
  // Hears one source set's lists come and go.
  class KelLrlSet : public Kel::Reactor<WiringSm, LeakRouteListSet> {
   public:
    using Reactor::Reactor;
    void onLeakRouteList(const VrfPairAf& key) override { handleLrl(key); }
    void handleLrl(const VrfPairAf& vpa);
  };

  KEL_CTOR_PARAM(LeakRouteListSetDir::PtrConst, muxSmSetDir);
  KEL_CTOR_PARAM(LeakRouteListPtrSetDir::Ptr, demuxSmSetDir);
  KEL_CTOR_PARAM(Vrf::VrfIdMap::NameToIdMap::PtrConst, vrfNameToIdMap);
  KEL_REACTOR_COLL(KelLrlSet, VrfIdAf, lrlSet);
  KEL_REACTOR(KelMuxSmSetDir, kelMuxSmSetDir);
  KEL_REACTOR(KelDemuxSmSetDir, kelDemuxSmSetDir);

  void handleLrlSet(const VrfIdAf& vrfIdAf);
  void handleLrlpSet(const VrfIdAf& vrfIdAf);

 private:
  WiringSm(const LeakRouteListSetDir::PtrConst& muxSmSetDir,
           const LeakRouteListPtrSetDir::Ptr& demuxSmSetDir,
           const Vrf::VrfIdMap::NameToIdMap::PtrConst& vrfNameToIdMap);
};
KEL_FACTORY(WiringSm, wiringSmFactory)

// The entry point of route leaking: one per agent, told of VRFs by createVrf and deleteVrf (both
// reachable by name through reflection).
class RootSm : public Kel::StateMachine {
 public:
  KEL_ENTITY(RootSm, "Routing::Protocol::Leak::RootSm");
  class NotifieeConst : public Kel::NotifieeConstOf<RootSm> {
   public:
    virtual void onMuxSm(const VrfIdAf&) {}
    virtual void onDemuxSm(const VrfIdAf&) {}
    virtual void onDemuxSmSet(const VrfIdAf&) {}
    virtual void onMuxSmSetDir() {}
    virtual void onDemuxSmSetDir() {}
    virtual void onWiringSm() {}
  };
  KEL_CREATOR(RootSm);

  // Handed on to every multiplexer and to the wiring.
  KEL_CTOR_PARAM(Vrf::VrfIdMap::NameToIdMap::PtrConst, vrfNameToIdMap);
  KEL_ENTITY_COLL(MuxSm, VrfIdAf, muxSm, MuxSm);
  KEL_ENTITY_COLL(DemuxSm, VrfIdAf, demuxSm, DemuxSm);
  // The input set of each demultiplexer.
  KEL_ENTITY_COLL(LeakRouteListPtrSet, VrfIdAf, demuxSmSet, DemuxSmSet);
  // The multiplexers' output sets and the demultiplexers' input sets, for the wiring.
  const LeakRouteListSetDir::Ptr& muxSmSetDir() const noexcept { return muxSmSetDir_; }
  LeakRouteListSetDir::Ptr muxSmSetDirIs();
  const LeakRouteListPtrSetDir::Ptr& demuxSmSetDir() const noexcept { return demuxSmSetDir_; }
  LeakRouteListPtrSetDir::Ptr demuxSmSetDirIs();
  const WiringSm::Ptr& wiringSm() const noexcept { return wiringSm_; }
  WiringSm::Ptr wiringSmIs(const LeakRouteListSetDir::PtrConst& muxSmSetDir,
                           const LeakRouteListPtrSetDir::Ptr& demuxSmSetDir,
                           const Vrf::VrfIdMap::NameToIdMap::PtrConst& vrfNameToIdMap);

  void handleInitialized();
  // A VRF and address family appeared: its routes and the configuration it is to receive. Creating
  // one that exists is a program fault; null arguments are refused with the range error.
  void createVrf(const VrfIdAf& vrfIdAf, const Routing::RouteList::PtrConst& routeConfig,
                 const LeakRouteConfig::Ptr& leakRouteConfig);
  // The VRF is gone: its machines go, its lists leave every destination, and its configuration
  // is left empty.
  void deleteVrf(const VrfIdAf& vrfIdAf);

 private:
  explicit RootSm(const Vrf::VrfIdMap::NameToIdMap::PtrConst& vrfNameToIdMap);
  ~RootSm() override;

  LeakRouteListSetDir::Ptr muxSmSetDir_;
  LeakRouteListPtrSetDir::Ptr demuxSmSetDir_;
  WiringSm::Ptr wiringSm_;
};
KEL_FACTORY(RootSm, rootSmFactory)

}  // namespace Routing::Protocol::Leak
