#include "bench/BenchRoutes.h"

#include <algorithm>
#include <string>

#include "platform/kel/Activity.h"

namespace Bench {

namespace Rib = Routing::Rib;
using Routing::Protocol::Route;

namespace {

const Rib::ViaMetric kResolved(10, 1, false);

}  // namespace

LoadedAgent::LoadedAgent(Family f, uint32_t routes)
    : family_(f), routes_(routes), agent_(routes + 16, uint32_t{1} << 20) {
  agent_.vrfIs(kVrfName, kVrfId);
  container_ = agent_.container(kVrfName, f);
  metrics_ = agent_.metricsOf(kVrfId, transportOf(f));
  handles_.reserve(kVias);
  for (uint32_t v = 0; v < kVias; ++v) {
    metrics_->viaMetricIs(viaKeyOf(f, v), kResolved);
    handles_.push_back(Rib::dedupViaKeyIs(viaKeyOf(f, v)));
  }
  Kel::activityManager().runUntilIdle();
}

void LoadedAgent::extraViasIs(uint32_t count) {
  for (uint32_t v = kVias; v < kVias + count; ++v) {
    metrics_->viaMetricIs(viaKeyOf(family_, v), kResolved);
    handles_.push_back(Rib::dedupViaKeyIs(viaKeyOf(family_, v)));
  }
}

Route::Ptr LoadedAgent::route(uint32_t i, uint32_t variant,
                              const std::vector<uint32_t>& extra) const {
  auto r = Routing::Protocol::routeFactory(prefixOf(family_, i));
  for (unsigned alt = 0; alt < 2; ++alt) {
    auto rp = r->routePrefIs(static_cast<Routing::RoutePreference>(alt + 1));
    rp->dedupViaKeyIs(handles_[viaOf(i, alt, 0, variant)]);
    rp->dedupViaKeyIs(handles_[viaOf(i, alt, 1, variant)]);
    if (alt == 0) {
      for (uint32_t v : extra) rp->dedupViaKeyIs(handles_.at(v));
    }
  }
  return r;
}

void LoadedAgent::install() {
  const auto& s = status();
  for (uint32_t i = 0; i < routes_; ++i) s->routeIs(route(i));
  Kel::activityManager().runUntilIdle();
}

void LoadedAgent::checkRib(unsigned pref, const std::string& when, const std::vector<bool>& present,
                           const std::vector<uint8_t>& variant) const {
  size_t expected = routes_;
  if (!present.empty())
    expected = static_cast<size_t>(std::count(present.begin(), present.end(), true));
  check(rib()->routes() == expected, when + ": the RIB configuration holds " +
                                         std::to_string(rib()->routes()) + " routes, not " +
                                         std::to_string(expected));
  const auto& sets = agent_.root()->viaSetConfig()->configViaSetColl();
  for (uint32_t i = 0; i < routes_; ++i) {
    const Velnet::IpGenPrefix prefix = prefixOf(family_, i);
    const Rib::Route* r = rib()->route(Rib::RouteKey(kVrfId, prefix));
    if (!present.empty() && !present[i]) {
      check(r == nullptr,
            when + ": withdrawn route " + prefix.str() + " is still in the RIB configuration");
      continue;
    }
    check(r != nullptr,
          when + ": route " + prefix.str() + " is missing from the RIB configuration");
    check(r->metricPref() == pref, when + ": route " + prefix.str() + " is on preference " +
                                       std::to_string(unsigned(r->metricPref())) + ", not " +
                                       std::to_string(pref));
    const Rib::Shmtab::ViaSet* set = sets->viaSet(r->viaSetKey());
    check(set != nullptr, when + ": the via set of route " + prefix.str() + " is not published");
    const uint32_t shift = variant.empty() ? 0 : variant[i];
    for (unsigned n = 0; n < 2; ++n) {
      const Rib::ViaKey want = viaKeyOf(family_, viaOf(i, pref - 1, n, shift));
      check(std::find(set->vias().begin(), set->vias().end(), want) != set->vias().end(),
            when + ": the via set of route " + prefix.str() + " lacks " + want.str());
    }
  }
}

bool LoadedAgent::reviewComplete() const {
  auto ready = agent_.readyStatus()->vrfReadyStatus(L3::VrfName(kVrfName));
  if (!ready) return false;
  return family_ == Family::ipv4 ? ready->v4RouteReviewComplete() : ready->v6RouteReviewComplete();
}

// ---- The plain computation ----

void PlainRib::load(Family f, uint32_t n) {
  for (uint32_t i = 0; i < n; ++i) {
    auto& alts = routes[prefixOf(f, i)];
    for (unsigned alt = 0; alt < 2; ++alt) {
      alts.push_back({static_cast<uint8_t>(alt + 1), {viaOf(i, alt, 0), viaOf(i, alt, 1)}});
    }
  }
}

void PlainRib::compute() {
  std::vector<uint32_t> usable;
  for (const auto& [prefix, alts] : routes) {
    bool placed = false;
    for (const Alt& a : alts) {
      usable.clear();
      for (uint32_t v : a.vias) {
        if (resolved[v]) usable.push_back(v);
      }
      if (usable.empty()) continue;
      auto [it, added] = viaSets.emplace(usable, static_cast<uint32_t>(viaSets.size()));
      rib[prefix] = RibRoute{a.pref, it->second};
      placed = true;
      break;
    }
    if (!placed) rib.erase(prefix);
  }
}

void PlainRib::checkRib(Family f, uint32_t n, unsigned pref, const std::string& when) const {
  check(rib.size() == n, when + ": the plain RIB holds " + std::to_string(rib.size()) +
                             " routes, not " + std::to_string(n));
  for (uint32_t i = 0; i < n; ++i) {
    auto it = rib.find(prefixOf(f, i));
    check(it != rib.end() && it->second.pref == pref,
          when + ": plain route " + prefixOf(f, i).str() + " is not on preference " +
              std::to_string(pref));
  }
}

}  // namespace Bench
