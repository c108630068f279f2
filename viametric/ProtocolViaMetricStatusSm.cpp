#include "viametric/ProtocolViaMetricStatusSm.h"

#include <array>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/kel/Assert.h"
#include "platform/kel/Reflection.h"
#include "platform/kel/Time.h"
#include "platform/kel/Trace.h"

namespace Routing::Protocol {

namespace {

constexpr const char* kTraceSource = "ProtocolViaMetricStatusSm";
Kel::TraceHandle& gTrace = Kel::TraceHandle::handle("Quill::ViaMetricStatusSm");

// Level-8 traces open with the handler's signature, spelt out so that the text is the same under
// every compiler.
constexpr const char* kSigHandleInitialized =
    "void Routing::Protocol::ViaMetricStatusSm::handleInitialized()";
constexpr const char* kSigHandleViaMetric =
    "void Routing::Protocol::ViaMetricStatusSm::handleViaMetric("
    "Vrf::VrfIdMap::VrfId, Routing::Rib::Transport, Routing::Rib::RoutingProtocol, "
    "const Routing::Rib::ViaKey&)";
constexpr const char* kSigHandleRouteStatus =
    "void Routing::Protocol::ViaMetricStatusSm::handleRouteStatus("
    "const Routing::Protocol::RouteStatusKey&, bool)";
constexpr const char* kSigHandleRouteViaKey =
    "void Routing::Protocol::ViaMetricStatusSm::handleRouteViaKey("
    "const Routing::Protocol::Status::Ptr&, const Routing::Protocol::Route::Ptr&, "
    "const Routing::Protocol::RoutePref::Ptr&, const Routing::Rib::ViaKey&, bool)";
constexpr const char* kSigVmsHandleViaMetricKey =
    "void Routing::Protocol::ViaMetricStatusSm::KelVms::handleViaMetric("
    "const Routing::Rib::ViaKey&)";
constexpr const char* kSigVmsHandleViaMetric =
    "void Routing::Protocol::ViaMetricStatusSm::KelVms::handleViaMetric()";
constexpr const char* kSigVmsHandleInitialized =
    "void Routing::Protocol::ViaMetricStatusSm::KelVms::handleInitialized()";
constexpr const char* kSigRoutePrefHandleViaKey =
    "void Routing::Protocol::ViaMetricStatusSm::KelRoutePref::handleViaKey("
    "const Routing::Rib::ViaKey&)";
constexpr const char* kSigRoutePrefHandleDel =
    "virtual void Routing::Protocol::ViaMetricStatusSm::KelRoutePref::handleDel()";
constexpr const char* kSigRouteHandleDel =
    "virtual void Routing::Protocol::ViaMetricStatusSm::KelRoute::handleDel()";
constexpr const char* kSigRouteStatusHandleDel =
    "virtual void Routing::Protocol::ViaMetricStatusSm::KelRouteStatus::handleDel()";

// The reactors hold their notifiers read-only; the machine was handed the route table to write
// `routeChangedAt` into, so it may drop the const again.
template <class T>
Kel::Ptr<T> writable(const Kel::Ptr<T const>& p) noexcept {
  return Kel::ptrConstCast(p);
}

// The members of a collection, copied so that a walk survives changes made by the observers it
// notifies.
template <class Coll>
auto snapshot(const Coll& coll) {
  using Member = std::decay_t<decltype(*coll.begin())>;
  return std::vector<Member>(coll.begin(), coll.end());
}

// A metric change re-evaluates every route of the via, and those routes lie anywhere in the heap.
// Each stamp is a chain of cache misses: the route table's slot, the route, its notifiee list and
// its list of alternatives, the reactors that hear the stamp and the alternatives, the
// alternatives' via tables and via sets. While one route is stamped (its evaluation takes far
// longer than a miss), the look-ahead starts one link of that chain for each of the next kSteps
// entries, one link further the nearer the entry, so that the misses of several routes overlap
// with the work instead of preceding it.
//
// A route is found once, by its hash alone (a rare other route of the same hash only wastes the
// hint), at the step after the one that brought it in, and held until its own stamp: an observer
// of an earlier stamp may drop it meanwhile, and the later steps read it. Nothing is changed, and
// the stamp still finds its route by prefix as before; only what an earlier step brought in is
// read. The status of the last entry is remembered: a via's routes are nearly always of one VRF.
class FanOutLookahead {
 public:
  static constexpr size_t kSteps = 5;

  FanOutLookahead(const RouteStatusDir& dir, const std::vector<PrefixPrefVrfId>& entries)
      : dir_(dir), entries_(entries) {
    // The entries that the first stamps reach too soon for advance() to start their whole chain
    // take the steps they would have missed now, one link for all of them at a time.
    for (size_t ahead = kSteps; ahead > 1; --ahead) {
      for (size_t j = 1; j < ahead; ++j) step(j, ahead);
    }
  }

  // Before the stamp of entry i: entry i + d takes its step d, for every d up to kSteps.
  void advance(size_t i) {
    for (size_t ahead = 1; ahead <= kSteps; ++ahead) step(i + ahead, ahead);
    held_[i % kHeld] = nullptr;
  }

 private:
  // Routes held between their lookup (three entries ahead) and their stamp.
  static constexpr size_t kHeld = 4;

  const Status* statusOf(const PrefixPrefVrfId& p) {
    const RouteStatusKey key(p.vrfId(), p.prefix().af());
    if (!status_ || !(key == key_)) {
      status_ = dir_.status(key);
      key_ = key;
    }
    return status_.get();
  }

  void step(size_t j, size_t ahead) {
    if (j >= entries_.size()) return;
    const PrefixPrefVrfId& p = entries_[j];
    switch (ahead) {
      case 5:
        if (const Status* status = statusOf(p)) status->routeColl().table().prefetch(p.prefix());
        break;
      case 4:
        if (const Status* status = statusOf(p)) {
          status->routeColl().table().forHashMatches(p.prefix(), [](const Route::Ptr& route) {
            __builtin_prefetch(route.get());
            __builtin_prefetch(reinterpret_cast<const char*>(route.get()) + 64);
          });
        }
        break;
      case 3:
        if (const Status* status = statusOf(p)) {
          Route::PtrConst route;
          status->routeColl().table().forHashMatches(p.prefix(), [&route](const Route::Ptr& r) {
            if (!route) route = r;
          });
          if (route) {
            route->notifieeList().prefetchSlots();
            if (!route->routePrefColl().empty()) {
              __builtin_prefetch(&*route->routePrefColl().begin());
            }
          }
          held_[j % kHeld] = std::move(route);
        }
        break;
      case 2:
        if (const Route* route = held_[j % kHeld].get()) {
          route->notifieeList().prefetchNotifiees();
          for (const RoutePref::Ptr& rp : route->routePrefColl()) __builtin_prefetch(rp.get());
        }
        break;
      case 1:
        if (const Route* route = held_[j % kHeld].get()) {
          for (const RoutePref::Ptr& rp : route->routePrefColl()) {
            rp->dedupViaKeyColl().table().prefetchFront();
            if (const auto& viaSet = rp->dedupViaSetKey()) __builtin_prefetch(viaSet.get());
          }
        }
        break;
      default: break;
    }
  }

  const RouteStatusDir& dir_;
  const std::vector<PrefixPrefVrfId>& entries_;
  RouteStatusKey key_;
  Status::PtrConst status_;
  std::array<Route::PtrConst, kHeld> held_;
};

void viaKeysOf(const RoutePref& routePref, std::vector<Rib::ViaKey>& out) {
  out.clear();
  for (const auto& handle : routePref.dedupViaKeyColl()) out.push_back(handle->kelKey());
}

}  // namespace

// ---- The machine ----

ViaMetricStatusSm::ViaMetricStatusSm(
    const Rib::ViaMetricStatusByVrf::PtrConst& viaMetricStatusByVrf,
    const RouteStatusDir::Ptr& routeStatusDir)
    : viaMetricStatusByVrf_(viaMetricStatusByVrf), routeStatusDir_(routeStatusDir) {
  viaMetricStatusByVrfReactorIs(viaMetricStatusByVrf_);
  routeStatusDirReactorIs(routeStatusDir_);
  // The index is still empty here, so the replay of each protocol status stamps nothing; the
  // routes are indexed, and stamped, by handleInitialized.
  if (viaMetricStatusByVrf_) {
    for (const auto& byTransport : snapshot(viaMetricStatusByVrf_->vrfStatusColl()))
      vmsByTransportIs(byTransport);
  }
  if (routeStatusDir_) {
    for (const auto& status : snapshot(routeStatusDir_->statusColl())) routeStatusIs(status);
  }
  handleInitialized();
}

void ViaMetricStatusSm::handleInitialized() {
  KEL_TRACE(gTrace, 8, kSigHandleInitialized);
  initializedIs(true);
  if (!routeStatusDir_) return;
  for (const RouteStatusKey& key : routeStatusDir_->statusColl().keys()) {
    KEL_TRACE(gTrace, 9,
              "handleInitialized"
                  << " key is " << key);
    handleRouteStatus(key, false);
  }
}

void ViaMetricStatusSm::handleViaMetric(Vrf::VrfIdMap::VrfId vrfId, Rib::Transport transport,
                                        Rib::RoutingProtocol proto, const Rib::ViaKey& viaKey) {
  KEL_TRACE(gTrace, 8,
            kSigHandleViaMetric << " vrf: " << vrfId << " transport: " << transport
                                << " proto: " << proto << " key: " << viaKey);
  RouteByViaKey::Ptr rbvk = routeByViaKey(viaKey);
  if (!rbvk) return;
  const auto entries = snapshot(rbvk->routeColl());
  std::optional<FanOutLookahead> lookahead;
  if (routeStatusDir_ && entries.size() > 1) lookahead.emplace(*routeStatusDir_, entries);
  for (size_t i = 0; i < entries.size(); ++i) {
    const PrefixPrefVrfId& p = entries[i];
    if (lookahead) lookahead->advance(i);
    // An observer of an earlier stamp may have taken this route off the via.
    if (!rbvk->routeHas(p)) continue;
    KEL_TRACE(gTrace, 9,
              "handleViaMetric"
                  << " looking at " << p);
    const RouteStatusKey statusKey(p.vrfId(), p.prefix().af());
    Status::Ptr status = routeStatusDir_ ? routeStatusDir_->status(statusKey) : Status::Ptr();
    if (!status) {
      KEL_TRACE(gTrace, 9,
                "handleViaMetric"
                    << " no status for this route");
      continue;
    }
    // By prefix alone: the route is stamped once per entry, so once per alternative using the via.
    if (Route::Ptr route = status->route(p.prefix())) {
      KEL_TRACE(gTrace, 9,
                "handleViaMetric"
                    << " setting route changed on " << p);
      route->routeChangedAtIs(Kel::currentTime());
    } else {
      KEL_TRACE(gTrace, 9,
                "handleViaMetric"
                    << " no route from " << statusKey);
    }
  }
}

void ViaMetricStatusSm::handleRouteStatus(const RouteStatusKey& key, bool forceDel) {
  KEL_TRACE(gTrace, 8, kSigHandleRouteStatus << " for " << key << " forceDel is " << forceDel);
  KelRouteStatus* reactor = routeStatus(key);
  Status::Ptr rs = reactor ? writable(reactor->notifier()) : Status::Ptr();
  if (!rs) {
    KEL_TRACE(gTrace, 9,
              "handleRouteStatus"
                  << " no routeStatus");
    return;
  }
  std::vector<Rib::ViaKey> viaKeys;
  for (const Route::Ptr& route : snapshot(rs->routeColl())) {
    KEL_ASSERT(route);
    // A route that left meanwhile has had its entries removed by its reactor; walking it again
    // would put them back.
    if (!route || rs->route(route->routeKey()) != route) continue;
    for (const RoutePref::Ptr& routePref : snapshot(route->routePrefColl())) {
      KEL_ASSERT(routePref);
      if (!routePref || route->routePref(routePref->preference()) != routePref) continue;
      viaKeysOf(*routePref, viaKeys);
      for (const Rib::ViaKey& viaKey : viaKeys)
        handleRouteViaKey(rs, route, routePref, viaKey, forceDel);
    }
  }
}

void ViaMetricStatusSm::handleRouteViaKey(const Status::Ptr& rs, const Route::Ptr& route,
                                          const RoutePref::Ptr& routePref,
                                          const Rib::ViaKey& viaKey, bool forceDel) {
  KEL_ASSERT(rs && route && routePref);
  if (!(rs && route && routePref)) return;
  KEL_TRACE(gTrace, 8,
            kSigHandleRouteViaKey << " rsk: " << rs->key().str() << " prefix: " << route->routeKey()
                                  << " pref " << unsigned(routePref->preference())
                                  << " viaKey: " << viaKey);
  RouteByViaKey::Ptr rbvk = routeByViaKey(viaKey);
  const PrefixPrefVrfId indexKey(route->routeKey(), routePref->preference(), rs->key().vrfId());
  if (!forceDel && routePref->dedupViaKeyHas(viaKey)) {
    if (!rbvk) rbvk = routeByViaKeyIs(viaKey);
    KEL_ASSERT(rbvk);
    if (!rbvk || !rbvk->routeIs(indexKey)) return;
    // The route starts using the via: whatever it concluded without it is stale.
    route->routeChangedAtIs(Kel::currentTime());
    return;
  }
  if (!rbvk) return;
  if (rbvk->routeDel(indexKey) && rbvk->routes() == 0) routeByViaKeyDel(viaKey);
}

// ---- The RIB's tree ----

void ViaMetricStatusSm::KelViaMetricStatusByVrf::onVrfStatus(const Vrf::VrfIdMap::VrfId& vrfId) {
  if (isZombie()) return;
  if (auto byTransport = notifier()->vrfStatus(vrfId)) {
    owner()->vmsByTransportIs(byTransport);
  } else {
    owner()->vmsByTransportDel(vrfId);
  }
}

ViaMetricStatusSm::KelVmsByTransport::KelVmsByTransport(
    ViaMetricStatusSm* owner, const Rib::ViaMetricStatusByTransport::PtrConst& byTransport)
    : NestingReactor(owner, byTransport) {
  for (const auto& byProtocol : snapshot(byTransport->transportStatusColl()))
    vmsByProtoIs(byProtocol);
}

void ViaMetricStatusSm::KelVmsByTransport::onTransportStatus(const Rib::Transport& transport) {
  if (isZombie()) return;
  if (auto byProtocol = notifier()->transportStatus(transport)) {
    vmsByProtoIs(byProtocol);
  } else {
    vmsByProtoDel(transport);
  }
}

ViaMetricStatusSm::KelVmsByProto::KelVmsByProto(
    KelVmsByTransport* owner, const Rib::ViaMetricStatusByProtocol::PtrConst& byProtocol)
    : NestingReactor(owner, byProtocol) {
  for (const auto& status : snapshot(byProtocol->protocolStatusColl())) vmsIs(status);
}

void ViaMetricStatusSm::KelVmsByProto::onProtocolStatus(const Rib::RoutingProtocol& proto) {
  if (isZombie()) return;
  if (auto status = notifier()->protocolStatus(proto)) {
    vmsIs(status);
  } else {
    vmsDel(proto);
  }
}

ViaMetricStatusSm::KelVms::KelVms(KelVmsByProto* owner,
                                  const Rib::ViaMetricStatus::PtrConst& status)
    : Reactor(owner, status) {
  handleInitialized();
}

ViaMetricStatusSm* ViaMetricStatusSm::KelVms::machine() const noexcept {
  return owner()->owner()->owner();
}

void ViaMetricStatusSm::KelVms::onViaMetric(const Rib::ViaKey& viaKey) {
  if (isZombie()) return;
  handleViaMetric(viaKey);
}

void ViaMetricStatusSm::KelVms::handleViaMetric(const Rib::ViaKey& viaKey) {
  KEL_TRACE(gTrace, 8,
            kSigVmsHandleViaMetricKey << " for " << viaKey << " in protocol " << fwkKey());
  const KelVmsByProto* byProto = owner();
  const KelVmsByTransport* byTransport = byProto->owner();
  byTransport->owner()->handleViaMetric(byTransport->fwkKey(), byProto->fwkKey(), fwkKey(), viaKey);
}

void ViaMetricStatusSm::KelVms::handleViaMetric() {
  KEL_TRACE(gTrace, 8, kSigVmsHandleViaMetric);
  if (!initialized_) return;
  for (const Rib::ViaKey& viaKey : notifier()->viaMetricColl().keys()) handleViaMetric(viaKey);
}

void ViaMetricStatusSm::KelVms::handleInitialized() {
  KEL_TRACE(gTrace, 8, kSigVmsHandleInitialized);
  initialized_ = true;
  handleViaMetric();
}

// ---- The route table ----

void ViaMetricStatusSm::KelRouteStatusDir::onStatus(const RouteStatusKey& key) {
  if (isZombie()) return;
  ViaMetricStatusSm* sm = owner();
  Status::PtrConst status = notifier()->status(key);
  // A status replaced by another under the same key takes its routes out of the index first.
  if (KelRouteStatus* current = sm->routeStatus(key); current && current->notifier() != status) {
    sm->routeStatusDel(key);
  }
  if (status) sm->routeStatusIs(status);
  sm->handleRouteStatus(key, false);
}

ViaMetricStatusSm::KelRouteStatus::KelRouteStatus(ViaMetricStatusSm* owner,
                                                  const Status::PtrConst& status)
    : NestingReactor(owner, status) {
  // Building reactors notifies nobody, so the status's own table can be walked directly: a
  // snapshot of a million routes would be pure cost.
  for (const Route::Ptr& route : status->routeColl()) routeIs(route);
}

void ViaMetricStatusSm::KelRouteStatus::onRoute(const Velnet::IpGenPrefix& prefix) {
  if (isZombie()) return;
  if (auto route = notifier()->route(prefix)) {
    // A route built apart arrives with its alternatives and vias already in place. The table of
    // route reactors and each via's index set are large and cold at a million routes; start
    // loading where this route goes in all of them, so that their misses overlap rather than
    // follow one another between the evaluations that each new entry's stamp sets off.
    routeColl().prefetchForInsert(prefix);
    const Vrf::VrfIdMap::VrfId vrfId = notifier()->key().vrfId();
    const auto& index = owner()->routeByViaKeyColl().table();
    for (const RoutePref::Ptr& routePref : route->routePrefColl()) {
      const PrefixPrefVrfId indexKey(prefix, routePref->preference(), vrfId);
      for (const auto& handle : routePref->dedupViaKeyColl()) {
        if (const RouteByViaKey::Ptr* rbvk = index.find(handle->kelKey()))
          (*rbvk)->routeColl().prefetchForInsert(indexKey);
      }
    }
    routeIs(route);
    for (const RoutePref::Ptr& routePref : snapshot(route->routePrefColl())) {
      if (route->routePref(routePref->preference()) == routePref) indexVias(route, routePref);
    }
  } else {
    routeDel(prefix);
  }
}

void ViaMetricStatusSm::KelRouteStatus::indexVias(const Route::Ptr& route,
                                                  const RoutePref::Ptr& routePref) {
  if (routePref->dedupViaKeys() == 0) return;
  Status::Ptr rs = writable(notifier());
  std::vector<Rib::ViaKey> viaKeys;
  viaKeysOf(*routePref, viaKeys);
  for (const Rib::ViaKey& viaKey : viaKeys)
    owner()->handleRouteViaKey(rs, route, routePref, viaKey, false);
}

void ViaMetricStatusSm::KelRouteStatus::handleDel() {
  KEL_TRACE(gTrace, 8, kSigRouteStatusHandleDel);
  owner()->handleRouteStatus(fwkKey(), true);
}

ViaMetricStatusSm::KelRoute::KelRoute(KelRouteStatus* owner, const Route::PtrConst& route)
    : NestingReactor(owner, route) {
  for (const RoutePref::Ptr& routePref : route->routePrefColl()) routePrefIs(routePref);
}

void ViaMetricStatusSm::KelRoute::onRoutePref(Routing::RoutePreference pref) {
  if (isZombie()) return;
  if (auto routePref = notifier()->routePref(pref)) {
    routePrefIs(routePref);
    owner()->indexVias(writable(notifier()), routePref);
  } else {
    routePrefDel(pref);
  }
}

void ViaMetricStatusSm::KelRoute::handleDel() {
  KEL_TRACE(gTrace, 8, kSigRouteHandleDel);
  ViaMetricStatusSm* sm = owner()->owner();
  Status::Ptr rs = writable(owner()->notifier());
  Route::Ptr route = writable(notifier());
  std::vector<Rib::ViaKey> viaKeys;
  for (const RoutePref::Ptr& routePref : snapshot(route->routePrefColl())) {
    KEL_ASSERT(routePref);
    if (!routePref) continue;
    viaKeysOf(*routePref, viaKeys);
    for (const Rib::ViaKey& viaKey : viaKeys)
      sm->handleRouteViaKey(rs, route, routePref, viaKey, true);
  }
}

void ViaMetricStatusSm::KelRoutePref::onDedupViaKey(const Rib::ViaKey& viaKey) {
  if (isZombie()) return;
  handleViaKey(viaKey);
}

void ViaMetricStatusSm::KelRoutePref::handleViaKey(const Rib::ViaKey& viaKey) {
  KEL_TRACE(gTrace, 8, kSigRoutePrefHandleViaKey << " for " << viaKey);
  // The owners outlive every reactor that can still hear a notification (a reactor whose machine
  // went away is a zombie and hears nothing), so the machine is reached through them.
  KelRoute* kelRoute = owner();
  KelRouteStatus* kelStatus = kelRoute->owner();
  kelStatus->owner()->handleRouteViaKey(writable(kelStatus->notifier()),
                                        writable(kelRoute->notifier()), writable(notifier()),
                                        viaKey, false);
}

void ViaMetricStatusSm::KelRoutePref::handleDel() {
  KEL_TRACE(gTrace, 8, kSigRoutePrefHandleDel);
  KelRoute* kelRoute = owner();
  KelRouteStatus* kelStatus = kelRoute->owner();
  Status::Ptr rs = writable(kelStatus->notifier());
  Route::Ptr route = writable(kelRoute->notifier());
  RoutePref::Ptr routePref = writable(notifier());
  std::vector<Rib::ViaKey> viaKeys;
  viaKeysOf(*routePref, viaKeys);
  for (const Rib::ViaKey& viaKey : viaKeys)
    kelStatus->owner()->handleRouteViaKey(rs, route, routePref, viaKey, true);
}

KEL_REGISTER_HANDLER(ViaMetricStatusSm, handleViaMetric, "vrfId", "transport", "proto", "key");
KEL_REGISTER_HANDLER(ViaMetricStatusSm, handleRouteStatus, "key", "forceDel");
KEL_REGISTER_HANDLER(ViaMetricStatusSm, handleRouteViaKey, "status", "route", "routePref", "key",
                     "forceDel");

}  // namespace Routing::Protocol
