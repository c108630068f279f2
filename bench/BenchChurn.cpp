// Churn: a steady stream of route and metric changes into a full table for a fixed span, with the
// agent's loop running between them, as a router lives most of its days.
//
// The stream, per hundred changes: 81 routes replaced by a route built apart with its vias
// shifted (it moves between via sets that exist anyway), 9 routes withdrawn and the 9 withdrawn
// longest announced again, and 1 metric change of a via (resolved to resolved: its users are
// re-evaluated and stay). Routes are picked at random over the whole table. The
// agent takes input for one review quantum, then runs one turn of its loop (a review slice, as
// every metric change restarts the review), and so on: input and reviews share the time as they
// would in an agent whose input never runs dry.
//
// The figures: changes per second over the whole span (reviews included), the share of the span
// the loop took, and how much the heap and the resident set grew from the full table before the
// span to the end of it. A table that holds steady leaks nothing: growth should stay near zero.
// At the end the loop runs until idle and the RIB configuration must match the last state of
// every route.
#include <algorithm>
#include <deque>
#include <string>

#include "bench/BenchCases.h"
#include "bench/BenchRoutes.h"
#include "platform/kel/Activity.h"

namespace Bench {

namespace {

// A small deterministic generator: the stream is the same on every run.
class XorShift {
 public:
  uint32_t next() {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return static_cast<uint32_t>(state_ >> 32);
  }

 private:
  uint64_t state_ = 0x9E3779B97F4A7C15ull;
};

}  // namespace

std::vector<Row> runChurn(const CaseParams& params) {
  const uint32_t n = params.routes;
  LoadedAgent a(params.family, n);
  a.install();
  auto& loop = Kel::activityManager();
  loop.runUntilIdle();
  a.checkRib(1, "before the churn");

  std::vector<bool> present(n, true);
  std::vector<uint8_t> variant(n, 0);
  std::vector<uint8_t> metricFlip(kVias, 0);
  std::deque<uint32_t> withdrawn;
  XorShift random;
  const auto& status = a.status();
  const double quantum = a.container()->routeStatusSm()->reviewQuantum();
  uint64_t changes = 0, routeChanges = 0, metricChanges = 0;
  uint32_t metricCursor = 0;
  double loopTime = 0;

  auto presentRoute = [&]() {
    uint32_t i = random.next() % n;
    while (!present[i]) i = random.next() % n;  // a few are withdrawn at any time
    return i;
  };
  auto change = [&]() {
    const unsigned op = static_cast<unsigned>(changes % 100);
    ++changes;
    if (op == 99) {
      const uint32_t v = metricCursor++ % kVias;
      metricFlip[v] ^= 1;
      a.metrics()->viaMetricIs(viaKeyOf(params.family, v),
                               Routing::Rib::ViaMetric(10 + metricFlip[v], 1, false));
      ++metricChanges;
      return;
    }
    ++routeChanges;
    if (op % 10 == 8 && op < 90) {
      const uint32_t i = presentRoute();
      status->routeDel(prefixOf(params.family, i));
      present[i] = false;
      withdrawn.push_back(i);
      return;
    }
    if (op % 10 == 9 && !withdrawn.empty()) {
      const uint32_t i = withdrawn.front();
      withdrawn.pop_front();
      variant[i] ^= 1;
      status->routeIs(a.route(i, variant[i]));
      present[i] = true;
      return;
    }
    const uint32_t i = presentRoute();
    variant[i] ^= 1;
    status->routeIs(a.route(i, variant[i]));
  };

  const MemoryMark mark = memoryMark();
  const double start = wallTime(), end = start + params.churnSeconds;
  double now = start;
  while (now < end) {
    const double inputEnd = std::min(end, now + quantum);
    do {
      for (int k = 0; k < 64; ++k) change();
      now = wallTime();
    } while (now < inputEnd);
    if (now >= end) break;
    loop.runOnce();
    const double after = wallTime();
    loopTime += after - now;
    now = after;
  }
  const double span = now - start;
  loop.runUntilIdle();
  const double heap = heapSince(mark), resident = residentSince(mark);
  check(a.reviewComplete(), "the review after the churn did not complete");
  a.checkRib(1, "after the churn", present, variant);
  check(metricChanges > 0 && routeChanges > 0, "the span was too short for both kinds of change");

  return {figure("rate", static_cast<double>(changes) / span, "changes/s"),
          figure("changes", static_cast<double>(changes), "changes"),
          figure("loop share", 100 * loopTime / span, "%"),
          figure("heap growth", heap / 1024, "KiB"), figure("RSS growth", resident / 1024, "KiB")};
}

}  // namespace Bench
