// The leak root, the wiring and the demultiplexer. The multiplexer is in
// ProtocolRouteLeakMuxSm.cpp.
//
// createVrf builds the destination side of a VRF before its source side: the VRF's pointer set is
// in the directory (and filled by the wiring from every existing source) before the VRF's own
// output set is published, so when the wiring meets the new source's lists every destination that
// exists at that moment is already there to receive them. The first lists of a new source are made
// only by its first review run, on a later turn of the loop, so its set is empty when published.
//
// deleteVrf goes the other way round and leaves nothing behind: the demultiplexer and its input
// set go first, then the source set leaves the directory (which unwires its lists from every
// destination, whose demultiplexers then decide the affected keys again), then the multiplexer,
// and last the VRF's own configuration is emptied key by key.
//
// The demultiplexer decides a key by looking at every list that could supply it, so it needs no
// memory of where a chosen leak route came from: a list that leaves makes it decide every key in
// the configuration again.
#include "leak/ProtocolRouteLeakSm.h"

#include <cstdint>
#include <iterator>
#include <vector>

#include "platform/kel/Assert.h"
#include "platform/kel/Reflection.h"
#include "platform/kel/Time.h"
#include "platform/kel/Trace.h"

namespace Routing::Protocol::Leak {

namespace {

constexpr const char* kTraceSource = "ProtocolRouteLeakSm";
Kel::TraceHandle& gTrace = Kel::TraceHandle::handle("Quill::ProtocolRouteLeakSm");

int32_t afSigned(Velnet::AddressFamily af) noexcept {
  return static_cast<int32_t>(static_cast<uint32_t>(af));
}

}  // namespace

// ==== RootSm

RootSm::RootSm(const Vrf::VrfIdMap::NameToIdMap::PtrConst& vrfNameToIdMap)
    : vrfNameToIdMap_(vrfNameToIdMap) {
  handleInitialized();
}

RootSm::~RootSm() {
  // Whatever the agent still holds must not point back at this root once it is gone.
  detail::orphanMembers(muxSm_);
  detail::orphanMembers(demuxSm_);
  detail::orphanMembers(demuxSmSet_);
  detail::orphan(muxSmSetDir_);
  detail::orphan(demuxSmSetDir_);
  detail::orphan(wiringSm_);
}

LeakRouteListSetDir::Ptr RootSm::muxSmSetDirIs() {
  if (detail::instantiateChild(*this, "muxSmSetDir", muxSmSetDir_))
    notify(&NotifieeConst::onMuxSmSetDir);
  return muxSmSetDir_;
}

LeakRouteListPtrSetDir::Ptr RootSm::demuxSmSetDirIs() {
  if (detail::instantiateChild(*this, "demuxSmSetDir", demuxSmSetDir_))
    notify(&NotifieeConst::onDemuxSmSetDir);
  return demuxSmSetDir_;
}

WiringSm::Ptr RootSm::wiringSmIs(const LeakRouteListSetDir::PtrConst& muxSmSetDir,
                                 const LeakRouteListPtrSetDir::Ptr& demuxSmSetDir,
                                 const Vrf::VrfIdMap::NameToIdMap::PtrConst& vrfNameToIdMap) {
  if (wiringSm_) {
    if (!(wiringSm_->muxSmSetDir() == muxSmSetDir)) {
      Kel::throwPointerReinstantiation("muxSmSetDir", Kel::messageText(muxSmSetDir),
                                       Kel::messageText(wiringSm_->muxSmSetDir()));
    }
    if (!(wiringSm_->demuxSmSetDir() == demuxSmSetDir)) {
      Kel::throwPointerReinstantiation("demuxSmSetDir", Kel::messageText(demuxSmSetDir),
                                       Kel::messageText(wiringSm_->demuxSmSetDir()));
    }
    if (!(wiringSm_->vrfNameToIdMap() == vrfNameToIdMap)) {
      Kel::throwPointerReinstantiation("vrfNameToIdMap", Kel::messageText(vrfNameToIdMap),
                                       Kel::messageText(wiringSm_->vrfNameToIdMap()));
    }
    return wiringSm_;
  }
  detail::instantiateChild(*this, "wiringSm", wiringSm_, muxSmSetDir, demuxSmSetDir,
                           vrfNameToIdMap);
  notify(&NotifieeConst::onWiringSm);
  return wiringSm_;
}

void RootSm::handleInitialized() {
  KEL_TRACE(gTrace, 8, "void Routing::Protocol::Leak::RootSm::handleInitialized()");
  initializedIs(true);
  KEL_ASSERT(vrfNameToIdMap());
  muxSmSetDirIs();
  demuxSmSetDirIs();
  wiringSmIs(muxSmSetDir_, demuxSmSetDir_, vrfNameToIdMap_);
}

void RootSm::createVrf(const VrfIdAf& vrfIdAf, const Routing::RouteList::PtrConst& routeConfig,
                       const LeakRouteConfig::Ptr& leakRouteConfig) {
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::RootSm::createVrf(const Routing::Protocol::VrfIdAf&, "
            "const PtrConst&, "
            "const Ptr&)"
                << " for " << vrfIdAf);
  // Refused before anything changes, so that a bad call leaves no half-made VRF behind.
  if (!routeConfig) Kel::throwNullParameter(kTypeName, "routeConfig");
  if (!leakRouteConfig) Kel::throwNullParameter(kTypeName, "leakRouteConfig");
  KEL_ASSERT(initialized());
  KEL_ASSERT_TEXT(!demuxSm(vrfIdAf) && !demuxSmSet(vrfIdAf),
                  "!demuxSm( vrfIdAf ) && !demuxSmSet( vrfIdAf )");
  KEL_ASSERT_TEXT(!muxSm(vrfIdAf), "!muxSm( vrfIdAf )");
  if (!initialized() || demuxSm(vrfIdAf) || demuxSmSet(vrfIdAf) || muxSm(vrfIdAf)) return;

  LeakRouteListPtrSet::Ptr lrlps = demuxSmSetIs(vrfIdAf);
  demuxSmSetDir_->lrlpSetIs(lrlps);
  DemuxSm::Ptr dsm = demuxSmIs(vrfIdAf, lrlps, leakRouteConfig);
  KEL_ASSERT(dsm);

  MuxSm::Ptr msm = muxSmIs(vrfIdAf, routeConfig, vrfNameToIdMap_);
  muxSmSetDir_->lrlSetIs(msm->outputLeakRouteListSet());
}

void RootSm::deleteVrf(const VrfIdAf& vrfIdAf) {
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::RootSm::deleteVrf(const Routing::Protocol::VrfIdAf&)"
                << " for " << vrfIdAf);
  KEL_ASSERT(initialized());
  LeakRouteConfig::Ptr leakRouteConfig;
  if (DemuxSm::Ptr dsm = demuxSm(vrfIdAf)) {
    leakRouteConfig = dsm->leakRouteConfig();
    dsm = nullptr;
    demuxSmDel(vrfIdAf);
  }
  demuxSmSetDel(vrfIdAf);
  demuxSmSetDir_->lrlpSetDel(vrfIdAf);
  muxSmSetDir_->lrlSetDel(vrfIdAf);
  muxSmDel(vrfIdAf);
  if (leakRouteConfig) {
    for (const Routing::RouteKey& key : leakRouteConfig->leakRouteColl().keys())
      leakRouteConfig->leakRouteDel(key);
  }
}

KEL_REGISTER_HANDLER(RootSm, createVrf, "vrfIdAf", "routeConfig", "leakRouteConfig");
KEL_REGISTER_HANDLER(RootSm, deleteVrf, "vrfIdAf");

// ==== WiringSm

WiringSm::WiringSm(const LeakRouteListSetDir::PtrConst& muxSmSetDir,
                   const LeakRouteListPtrSetDir::Ptr& demuxSmSetDir,
                   const Vrf::VrfIdMap::NameToIdMap::PtrConst& vrfNameToIdMap)
    : muxSmSetDir_(muxSmSetDir), demuxSmSetDir_(demuxSmSetDir), vrfNameToIdMap_(vrfNameToIdMap) {
  kelMuxSmSetDirIs(muxSmSetDir_);
  kelDemuxSmSetDirIs(demuxSmSetDir_);
  if (muxSmSetDir_) {
    for (const auto& set : muxSmSetDir_->lrlSetColl()) lrlSetIs(set);
  }
  initializedIs(true);
}

void WiringSm::KelMuxSmSetDir::onLrlSet(const VrfIdAf& keyIn) {
  if (isZombie()) return;
  const VrfIdAf key = keyIn;
  owner()->handleLrlSet(key);
  if (auto set = notifier()->lrlSet(key)) {
    owner()->lrlSetIs(set);
  } else {
    owner()->lrlSetDel(key);
  }
}

void WiringSm::KelDemuxSmSetDir::onLrlpSet(const VrfIdAf& key) {
  if (isZombie()) return;
  owner()->handleLrlpSet(key);
}

void WiringSm::handleLrlSet(const VrfIdAf& vrfIdAf) {
  KEL_TRACE(
      gTrace, 8,
      "void Routing::Protocol::Leak::WiringSm::handleLrlSet(const Routing::Protocol::VrfIdAf&)"
          << " for " << vrfIdAf);
  if (!demuxSmSetDir_) return;
  const VrfIdAf muxSmKey = vrfIdAf;
  if (LeakRouteListSet::PtrConst lrlSet = muxSmSetDir_->lrlSet(muxSmKey)) {
    // A multiplexer makes its first lists in its first review run, after its set was published.
    KEL_ASSERT(!lrlSet || lrlSet->leakRouteLists() == 0);
    for (const auto& it : lrlSet->leakRouteListColl()) {
      KEL_ASSERT_TEXT(it->key().af() == muxSmKey.af(), "it.key().af() == muxSmKey.af()");
      const VrfIdAf dst(it->key().dstVrf(), it->key().af());
      LeakRouteListPtrSet::Ptr lrlps = demuxSmSetDir_->lrlpSet(dst);
      KEL_ASSERT(lrlps);
      if (!lrlps) continue;
      KEL_TRACE(gTrace, 9,
                "handleLrlSet"
                    << " adding LRL for " << it->key() << " to " << dst);
      lrlps->leakRouteListIs(it);
    }
    return;
  }
  // The set is gone: its lists leave every destination.
  std::vector<LeakRouteListPtrSet::Ptr> destinations;
  for (const auto& lrlps : demuxSmSetDir_->lrlpSetColl()) destinations.push_back(lrlps);
  for (const auto& lrlps : destinations) {
    const VrfIdAf& dst = lrlps->key();
    if (dst.af() != muxSmKey.af() || dst.vrfId() == muxSmKey.vrfId()) continue;
    const VrfPairAf vpa(muxSmKey.vrfId(), dst.vrfId(), muxSmKey.af());
    if (!lrlps->leakRouteListHas(vpa)) continue;
    KEL_TRACE(gTrace, 9,
              "handleLrlSet"
                  << " removing lrl for " << vpa << " from " << dst);
    lrlps->leakRouteListDel(vpa);
  }
}

void WiringSm::KelLrlSet::handleLrl(const VrfPairAf& vpaIn) {
  if (isZombie()) return;
  const VrfPairAf vpa = vpaIn;
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::WiringSm::KelLrlSet::handleLrl(const "
            "Routing::Protocol::VrfPairAf&)"
                << " for mux " << fwkKey() << " and vpa " << vpa);
  const VrfIdAf dst(vpa.dstVrf(), vpa.af());
  LeakRouteListPtrSet::Ptr lrlps =
      owner()->demuxSmSetDir() ? owner()->demuxSmSetDir()->lrlpSet(dst) : nullptr;
  if (!lrlps) {
    KEL_TRACE(gTrace, 9,
              "handleLrl"
                  << " no demux SM for " << dst);
    return;
  }
  if (LeakRouteList::PtrConst list = notifier()->leakRouteList(vpa)) {
    KEL_ASSERT_TEXT(!lrlps->leakRouteList(vpa), "!lrlps->leakRouteList( vpa )");
    KEL_TRACE(gTrace, 9,
              "handleLrl"
                  << " adding lrl for " << vpa << " to " << dst);
    lrlps->leakRouteListIs(list);
  } else {
    KEL_ASSERT_TEXT(lrlps->leakRouteList(vpa), "lrlps->leakRouteList( vpa )");
    KEL_TRACE(gTrace, 9,
              "handleLrl"
                  << " removing lrl for " << vpa << " from " << dst);
    lrlps->leakRouteListDel(vpa);
  }
}

void WiringSm::handleLrlpSet(const VrfIdAf& vrfIdAf) {
  KEL_TRACE(
      gTrace, 8,
      "void Routing::Protocol::Leak::WiringSm::handleLrlpSet(const Routing::Protocol::VrfIdAf&)"
          << " for " << vrfIdAf);
  LeakRouteListPtrSet::Ptr lrlps = demuxSmSetDir_ ? demuxSmSetDir_->lrlpSet(vrfIdAf) : nullptr;
  if (!lrlps) {
    KEL_TRACE(gTrace, 9,
              "handleLrlpSet"
                  << " set deleted, nothing to do.");
    return;
  }
  // A new pointer set starts empty; the sources that already name it fill it here.
  KEL_ASSERT(lrlps->leakRouteLists() == 0);
  if (!muxSmSetDir_) return;
  for (const auto& set : muxSmSetDir_->lrlSetColl()) {
    if (set->key().af() != vrfIdAf.af()) {
      KEL_TRACE(gTrace, 9,
                "handleLrlpSet"
                    << " ignoring");
      continue;
    }
    const VrfPairAf vpa(set->key().vrfId(), vrfIdAf.vrfId(), vrfIdAf.af());
    if (LeakRouteList::PtrConst list = set->leakRouteList(vpa)) {
      KEL_TRACE(gTrace, 9,
                "handleLrlpSet"
                    << " adding lrl for " << vpa << " to " << vrfIdAf);
      lrlps->leakRouteListIs(list);
    }
  }
}

// ==== DemuxSm

DemuxSm::DemuxSm(const VrfIdAf& vrfIdAf, const LeakRouteListPtrSet::PtrConst& inputLeakRouteListSet,
                 const LeakRouteConfig::Ptr& leakRouteConfig)
    : vrfIdAf_(vrfIdAf),
      inputLeakRouteListSet_(inputLeakRouteListSet),
      leakRouteConfig_(leakRouteConfig) {
  // The clock comes first: a list reactor bound below asks for a review at once.
  clockIs(Kel::activityManager().clockNew());
  kelInputLeakRouteListSetIs(inputLeakRouteListSet_);
  if (inputLeakRouteListSet_) {
    for (const auto& list : inputLeakRouteListSet_->leakRouteListColl()) leakRouteListIs(list);
  }
  handleInitialized();
}

void DemuxSm::kelCheckCtorParams(const LeakRouteListPtrSet::PtrConst& inputLeakRouteListSet,
                                 const LeakRouteConfig::Ptr& leakRouteConfig) const {
  if (!(inputLeakRouteListSet == inputLeakRouteListSet_)) {
    Kel::throwPointerReinstantiation("inputLeakRouteListSet",
                                     Kel::messageText(inputLeakRouteListSet),
                                     Kel::messageText(inputLeakRouteListSet_));
  }
  if (!(leakRouteConfig == leakRouteConfig_)) {
    Kel::throwPointerReinstantiation("leakRouteConfig", Kel::messageText(leakRouteConfig),
                                     Kel::messageText(leakRouteConfig_));
  }
}

void DemuxSm::KelInputLeakRouteListSet::onLeakRouteList(const VrfPairAf& keyIn) {
  if (isZombie()) return;
  const VrfPairAf key = keyIn;
  owner()->handleLeakRouteList(key);
  if (auto list = notifier()->leakRouteList(key)) {
    owner()->leakRouteListIs(list);
  } else {
    owner()->leakRouteListDel(key);
  }
}

DemuxSm::KelLeakRouteList::KelLeakRouteList(DemuxSm* owner, const LeakRouteList::PtrConst& list)
    : Reactor(owner, list) {
  handleLeakRoute();
}

void DemuxSm::KelLeakRouteList::handleLeakRoute() {
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::DemuxSm::KelLeakRouteList::handleLeakRoute()"
                << " dst " << owner()->vrfIdAf());
  for (const auto& lr : notifier()->leakRouteColl()) owner()->backlogIs(lr->key());
  owner()->scheduleReview();
}

void DemuxSm::KelLeakRouteList::handleLeakRoute(const Routing::RouteKey& key) {
  if (isZombie()) return;
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::DemuxSm::KelLeakRouteList::handleLeakRoute(const "
            "Routing::RouteKey&)");
  owner()->handleLeakRoute(key);
}

void DemuxSm::KelClock::onTime() {
  if (isZombie()) return;
  owner()->doReview();
}

void DemuxSm::handleInitialized() {
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::DemuxSm::handleInitialized()"
                << " dst " << vrfIdAf_);
  if (inputLeakRouteListSet_) {
    for (const VrfPairAf& vpa : inputLeakRouteListSet_->leakRouteListColl().keys())
      handleLeakRouteList(vpa);
  }
  bookmarkValidIs(false);
  initializedIs(true);
}

void DemuxSm::handleLeakRouteList(const VrfPairAf& keyIn) {
  const VrfPairAf key = keyIn;
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::DemuxSm::handleLeakRouteList(const "
            "Routing::Protocol::VrfPairAf&)"
                << " dst " << vrfIdAf_ << " for " << key);
  KEL_ASSERT(key.dstVrf() == vrfIdAf().vrfId());
  KEL_ASSERT(key.af() == vrfIdAf().af());
  if (LeakRouteList::PtrConst lrl = inputLeakRouteListSet_->leakRouteList(key)) {
    for (const auto& lr : lrl->leakRouteColl()) backlogIs(lr->key());
  } else {
    // Which keys the vanished list supplied is not known any more: decide every key again.
    for (const auto& lr : leakRouteConfig_->leakRouteColl()) backlogIs(lr->key());
  }
  scheduleReview();
}

void DemuxSm::handleLeakRoute(const Routing::RouteKey& keyIn) {
  const Routing::RouteKey key = keyIn;
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::DemuxSm::handleLeakRoute(const Routing::RouteKey&)"
                << " dst " << vrfIdAf_ << " for " << key);
  KEL_ASSERT(initialized());
  LeakRoute::PtrConst best;
  for (const auto& lrl : inputLeakRouteListSet_->leakRouteListColl()) {
    LeakRoute::PtrConst c = lrl->leakRoute(key);
    if (!c) continue;
    if (!best) {
      best = c;
      continue;
    }
    // A candidate wins when either field is below the best one's. This is not a lexicographic
    // order, and it is kept so; all lists here carry this VRF's family, so in effect the source
    // with the lowest VRF id wins.
    const bool notBelow = c->vrfAf().vrfId() >= best->vrfAf().vrfId() &&
                          afSigned(c->vrfAf().af()) >= afSigned(best->vrfAf().af());
    if (!(notBelow || c == best)) best = c;
  }
  if (best) {
    leakRouteConfig_->leakRouteIs(best);
  } else {
    leakRouteConfig_->leakRouteDel(key);
  }
}

void DemuxSm::scheduleReview() {
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::DemuxSm::scheduleReview()"
                << " dst " << vrfIdAf_);
  if (backlog_.empty()) return;
  KEL_ASSERT(clock_);
  if (clock_) clock_->notifier()->timeMinIs(0);
}

void DemuxSm::doReview() {
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::DemuxSm::doReview()"
                << " dst " << vrfIdAf_);
  if (!initialized()) return;
  const double deadline = Kel::currentTime() + reviewQuantum_;
  auto it = bookmarkValid_ ? detail::positionOf(backlog_, bookmark_) : backlog_.begin();
  uint64_t count = 0;
  while (it != backlog_.end()) {
    const Routing::RouteKey key = *it;
    auto after = std::next(it);
    const bool hasNext = after != backlog_.end();
    const Routing::RouteKey next = hasNext ? *after : Routing::RouteKey();
    ++count;
    handleLeakRoute(key);
    backlogDel(key);
    if (!hasNext) break;
    // The deletion moved the table: find the next key again.
    it = detail::positionOf(backlog_, next);
    if (Kel::currentTime() < deadline) continue;
    // The quantum is spent, yet the walk goes on: the next key is bookmarked and passed over, and
    // stays in the backlog for the next run, which starts again from the beginning.
    KEL_TRACE(gTrace, 9,
              "doReview"
                  << " review suspending after " << count << " passes this run.");
    bookmarkValidIs(true);
    bookmarkIs(next);
    scheduleReview();
    if (it != backlog_.end()) ++it;
  }
  bookmarkValidIs(false);
  KEL_TRACE(gTrace, 8,
            "void Routing::Protocol::Leak::DemuxSm::doReview()"
                << " review complete after " << count << " passes this run.");
}

}  // namespace Routing::Protocol::Leak
