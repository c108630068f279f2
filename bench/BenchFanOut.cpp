// Fan-out: the RIB changes the metric of one via that K routes use (K = 10, 1,000, 100,000, as far
// as the table is large enough), and the via-metric machine stamps exactly those K routes, each of
// which the route-status machine re-evaluates at once.
//
// The table is the install table; the users of the hot via of fan-out K are every (N/K)-th route,
// spread over the whole table, with the hot via as a third via of their first alternative. The
// metric moves between two resolved values, so every user is re-evaluated and stays where it is.
// Each change also restarts the review, as every metric change does; the review itself is the
// review workload's figure and is not run here. Time per change should grow with K and not with
// the table: compare the rows of the two table sizes.
#include <algorithm>
#include <string>
#include <unordered_map>

#include "bench/BenchCases.h"
#include "bench/BenchRoutes.h"
#include "platform/kel/Activity.h"
#include "platform/kel/Time.h"

namespace Bench {

std::vector<Row> runFanOut(const CaseParams& params) {
  const uint32_t n = params.routes;
  std::vector<uint32_t> fanOuts;
  for (uint32_t k : {10u, 1'000u, 100'000u}) {
    if (k <= n) fanOuts.push_back(k);
  }
  LoadedAgent a(params.family, n);
  a.extraViasIs(static_cast<uint32_t>(fanOuts.size()));

  std::vector<std::vector<uint32_t>> users(fanOuts.size());
  std::unordered_map<uint32_t, std::vector<uint32_t>> hotViasOf;
  for (size_t j = 0; j < fanOuts.size(); ++j) {
    const uint32_t k = fanOuts[j], stride = n / k, offset = static_cast<uint32_t>(j) % stride;
    for (uint32_t s = 0; s < k; ++s) {
      const uint32_t i = offset + s * stride;
      users[j].push_back(i);
      hotViasOf[i].push_back(kVias + static_cast<uint32_t>(j));
    }
  }
  static const std::vector<uint32_t> kNone;
  for (uint32_t i = 0; i < n; ++i) {
    auto it = hotViasOf.find(i);
    a.status()->routeIs(a.route(i, 0, it == hotViasOf.end() ? kNone : it->second));
  }
  Kel::activityManager().runUntilIdle();
  a.checkRib(1, "after install");

  std::vector<Row> rows;
  for (size_t j = 0; j < fanOuts.size(); ++j) {
    const uint32_t k = fanOuts[j];
    const Routing::Rib::ViaKey hot = viaKeyOf(params.family, kVias + static_cast<uint32_t>(j));
    // Enough changes for a steady figure: a million stamps, between 20 and 20,000 changes.
    const uint32_t changes = std::min(20'000u, std::max(20u, 1'000'000u / k));
    uint32_t metric = 2;
    const double t0 = wallTime();
    for (uint32_t c = 0; c < changes; ++c) {
      metric ^= 1;
      a.metrics()->viaMetricIs(hot, Routing::Rib::ViaMetric(metric, 1, false));
    }
    const double t1 = wallTime();

    // One more change, after which exactly the users carry a stamp from its time on.
    const double mark = Kel::currentTime();
    a.metrics()->viaMetricIs(hot, Routing::Rib::ViaMetric(metric ^ 1, 1, false));
    size_t stamped = 0;
    for (const auto& route : a.status()->routeColl()) stamped += route->routeChangedAt() >= mark;
    check(stamped == k, "the metric change of a via used by " + std::to_string(k) +
                            " routes stamped " + std::to_string(stamped));
    for (uint32_t i : users[j]) {
      check(a.status()->route(prefixOf(params.family, i))->routeChangedAt() >= mark,
            "user " + prefixOf(params.family, i).str() + " of the changed via was not stamped");
    }

    const double perChange = (t1 - t0) / changes;
    const std::string of = "K=" + formatCount(k);
    rows.push_back(figure("per change, " + of, perChange * 1e6, "us"));
    rows.push_back(figure("per stamped route, " + of, perChange / k * 1e9, "ns", false,
                          atMost(1000, "< 1,000 ns")));
  }
  a.checkRib(1, "after the fan-outs");
  return rows;
}

}  // namespace Bench
