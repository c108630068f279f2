// Churn: the stream of BenchChurn.h into a full table for a fixed span, with the agent's loop
// running between the changes, as a router lives most of its days.
//
// The figures: changes per second over the whole span (reviews included), the share of the span
// the loop took, and how much the heap and the resident set grew from the full table before the
// span to the end of it. A table that holds steady leaks nothing: growth should stay near zero
// (the soak, `protorib-bench soak`, runs the same stream for long enough to tell). At the end the
// loop runs until idle and the RIB configuration must match the last state of every route.
#include "bench/BenchChurn.h"

#include <algorithm>
#include <string>

#include "bench/BenchCases.h"
#include "platform/kel/Activity.h"

namespace Bench {

ChurnStream::ChurnStream(LoadedAgent& agent)
    : agent_(agent),
      quantum_(agent.container()->routeStatusSm()->reviewQuantum()),
      present_(agent.routes(), true),
      variant_(agent.routes(), 0),
      metricFlip_(kVias, 0) {}

uint32_t ChurnStream::presentRoute() {
  const uint32_t n = agent_.routes();
  uint32_t i = random_.next() % n;
  while (!present_[i]) i = random_.next() % n;  // one route at most is withdrawn at any time
  return i;
}

void ChurnStream::change() {
  const Family family = agent_.family();
  const auto& status = agent_.status();
  const unsigned op = static_cast<unsigned>(changes_ % 100);
  ++changes_;
  if (op == 99) {
    const uint32_t v = metricCursor_++ % kVias;
    metricFlip_[v] ^= 1;
    agent_.metrics()->viaMetricIs(viaKeyOf(family, v),
                                  Routing::Rib::ViaMetric(10 + metricFlip_[v], 1, false));
    ++metricChanges_;
    return;
  }
  ++routeChanges_;
  if (op % 10 == 8 && op < 90) {
    const uint32_t i = presentRoute();
    status->routeDel(prefixOf(family, i));
    present_[i] = false;
    withdrawn_.push_back(i);
    return;
  }
  if (op % 10 == 9 && !withdrawn_.empty()) {
    const uint32_t i = withdrawn_.front();
    withdrawn_.pop_front();
    variant_[i] ^= 1;
    status->routeIs(agent_.route(i, variant_[i]));
    present_[i] = true;
    return;
  }
  const uint32_t i = presentRoute();
  variant_[i] ^= 1;
  status->routeIs(agent_.route(i, variant_[i]));
}

double ChurnStream::runUntil(double end) {
  auto& loop = Kel::activityManager();
  double now = wallTime();
  while (now < end) {
    const double inputEnd = std::min(end, now + quantum_);
    do {
      for (int k = 0; k < 64; ++k) change();
      now = wallTime();
    } while (now < inputEnd);
    if (now >= end) break;
    loop.runOnce();
    const double after = wallTime();
    loopTime_ += after - now;
    now = after;
  }
  return now;
}

void ChurnStream::checkRib(const std::string& when) const {
  agent_.checkRib(1, when, present_, variant_);
}

std::vector<Row> runChurn(const CaseParams& params) {
  LoadedAgent a(params.family, params.routes);
  a.install();
  auto& loop = Kel::activityManager();
  loop.runUntilIdle();
  a.checkRib(1, "before the churn");

  ChurnStream stream(a);
  const MemoryMark mark = memoryMark();
  const double start = wallTime();
  const double span = stream.runUntil(start + params.churnSeconds) - start;
  loop.runUntilIdle();
  const double heap = heapSince(mark), resident = residentSince(mark);
  check(a.reviewComplete(), "the review after the churn did not complete");
  stream.checkRib("after the churn");
  check(stream.metricChanges() > 0 && stream.routeChanges() > 0,
        "the span was too short for both kinds of change");

  const double changes = static_cast<double>(stream.changes());
  return {figure("rate", changes / span, "changes/s"), figure("changes", changes, "changes"),
          figure("loop share", 100 * stream.loopTime() / span, "%"),
          figure("heap growth", heap / 1024, "KiB"), figure("RSS growth", resident / 1024, "KiB")};
}

}  // namespace Bench
