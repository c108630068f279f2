// Install, failover and review: one route table (BenchWorld.h) written by the agent, moved to its
// second alternatives by the RIB, and reviewed after a metric change; beside install and
// failover, the plain computation of the same RIB configuration from the same input.
//
// The RIB's side writes its metric changes outside the loop, as the reference agent does when it
// reads them: the routes that use a changed via are re-evaluated inside those writes (through the
// reverse index), and the review that every metric change restarts runs afterwards in slices on
// the loop. So "time" of a failover is the time until the RIB configuration is right again, and
// the review after it is reported on its own, with the longest turn of the loop that ran it.
#include <algorithm>
#include <string>

#include "bench/BenchCases.h"
#include "bench/BenchRoutes.h"
#include "platform/kel/Activity.h"

namespace Bench {

namespace {

// The slice figures of one loop run: the longest turn, how far it ran past the quantum against
// the bound of one route (the run's mean time per route), the longest turn in CPU time, which
// tells a slice another process stretched from one the library did, and the longest pause the
// machine itself made in a loop that only reads the clock, for as long as the run took (up to a
// second): a slice can overrun by that much without the library doing anything.
void sliceRows(std::vector<Row>& rows, const std::string& name, const LoopRun& run, double quantum,
               double perRoute) {
  const double routeUs = perRoute * 1e6;
  rows.push_back(figure(name, run.longestWall * 1e3, "ms"));
  rows.push_back(figure(name + " over quantum", (run.longestWall - quantum) * 1e6, "us", false,
                        atMost(routeUs, "<= 1 route (" + formatNumber(routeUs) + " us)")));
  rows.push_back(figure(name + ", CPU time", run.longestCpu * 1e3, "ms"));
  rows.push_back(figure("machine's longest pause", longestPause(std::min(run.wall, 1.0)) * 1e6, "us"));
  rows.push_back(figure("turns", static_cast<double>(run.turns), "turns"));
}

double quantumOf(const LoadedAgent& a) { return a.container()->routeStatusSm()->reviewQuantum(); }

void failOverToSetB(LoadedAgent& a) {
  for (uint32_t v = 0; v < kHalfVias; ++v) a.metrics()->viaMetricDel(viaKeyOf(a.family(), v));
}

}  // namespace

std::vector<Row> runInstall(const CaseParams& params) {
  LoadedAgent a(params.family, params.routes);
  const MemoryMark mark = memoryMark();
  const double t0 = wallTime();
  a.install();
  const double t1 = wallTime();
  const double heap = heapSince(mark), peak = peakResidentSince(mark);
  a.checkRib(1, "after install");
  const double n = params.routes, time = t1 - t0;
  return {figure("time", time, "s", true, ratioAtMost(4, "<= 4x plain")),
          figure("rate", n / time, "prefixes/s", false, atLeast(1e6, ">= 1,000,000/s")),
          figure("heap per prefix", heap / n, "B", true, atMost(400, "<= 400 B")),
          figure("peak RSS per prefix", peak / n, "B", true)};
}

std::vector<Row> runPlainInstall(const CaseParams& params) {
  PlainRib plain;
  const MemoryMark mark = memoryMark();
  const double t0 = wallTime();
  plain.load(params.family, params.routes);
  plain.compute();
  const double t1 = wallTime();
  const double heap = heapSince(mark), peak = peakResidentSince(mark);
  plain.checkRib(params.family, params.routes, 1, "plain install");
  const double n = params.routes;
  return {figure("time", t1 - t0, "s"), figure("rate", n / (t1 - t0), "prefixes/s"),
          figure("heap per prefix", heap / n, "B"), figure("peak RSS per prefix", peak / n, "B")};
}

std::vector<Row> runFailover(const CaseParams& params) {
  LoadedAgent a(params.family, params.routes);
  a.install();
  a.checkRib(1, "before the failover");

  const double t0 = wallTime();
  failOverToSetB(a);
  const double t1 = wallTime();
  a.checkRib(2, "after the failover's metric changes");
  const double t2 = wallTime();
  const LoopRun run = runLoopUntilIdle();
  const double t3 = wallTime();
  check(a.reviewComplete(), "the review after the failover did not complete");
  a.checkRib(2, "after the review that followed the failover");

  const double n = params.routes, time = t1 - t0, review = t3 - t2, quantum = quantumOf(a);
  std::vector<Row> rows{
      figure("time", time, "s", true),
      figure("rate", n / time, "prefixes/s", false, atLeast(3e6, ">= 3,000,000/s")),
      figure("review after", review, "s")};
  sliceRows(rows, "longest turn", run, quantum, review / n);
  return rows;
}

std::vector<Row> runPlainFailover(const CaseParams& params) {
  PlainRib plain;
  plain.load(params.family, params.routes);
  plain.compute();
  plain.checkRib(params.family, params.routes, 1, "plain, before the failover");
  for (uint32_t v = 0; v < kHalfVias; ++v) plain.resolved[v] = false;
  const double t0 = wallTime();
  plain.compute();
  const double t1 = wallTime();
  plain.checkRib(params.family, params.routes, 2, "plain, after the failover");
  const double n = params.routes;
  return {figure("time", t1 - t0, "s"), figure("rate", n / (t1 - t0), "prefixes/s")};
}

std::vector<Row> runReview(const CaseParams& params) {
  LoadedAgent a(params.family, params.routes);
  a.install();
  Kel::activityManager().runUntilIdle();
  check(a.reviewComplete(), "the first review did not complete");

  // A via no route uses: the RIB does not say which routes a metric change concerns, so any
  // change in the VRF restarts a review of every route, and this one costs nothing else.
  const double t0 = wallTime();
  a.metrics()->viaMetricIs(viaKeyOf(params.family, kVias), Routing::Rib::ViaMetric(1, 1, false));
  check(!a.reviewComplete(), "a metric change did not start a review");
  const LoopRun run = runLoopUntilIdle();
  const double t1 = wallTime();
  check(a.reviewComplete(), "the review did not complete");
  a.checkRib(1, "after the review");

  const double n = params.routes, time = t1 - t0, quantum = quantumOf(a);
  std::vector<Row> rows{figure("time", time, "s"), figure("rate", n / time, "routes/s", false,
                                                          atLeast(2e6, ">= 2,000,000/s"))};
  sliceRows(rows, "longest slice", run, quantum, time / n);
  return rows;
}

}  // namespace Bench
