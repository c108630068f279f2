// The soak: one full table under the churn stream (BenchChurn.h) for minutes or hours, the
// memory printed as it goes, and a verdict on whether it levelled off.
//
// The suite's churn case runs the stream for seconds: enough for a rate, not to tell a leak of a
// few bytes per change from the allocator settling in. The soak keeps the same agent, table and
// stream going long enough that it can. Every `--every` seconds it prints a line: the seconds so
// far, the changes so far, the rate in that interval (time spent taking the memory figures left
// out), the heap in use and the resident set, and how much each has grown since the table was
// full. At the end the loop runs until idle and the RIB configuration must hold the last state of
// every route, as in the churn case.
//
// The verdict. The first half of the run is the allocator's and the tables' to reach their
// working size under churn; after that, a heap that holds a full table and sees only changes that
// bring nothing new (BenchChurn.h) should grow little. Memory levelled off when both the heap and
// the resident set grew by at most kLevelBound from the middle of the run to its end. The bound
// is absolute rather than a share of the table so that it does not loosen as the table grows; see
// kLevelBound for why this size.
//
// A large table can stay above that bound for a long time without leaking: a hash table keeps the
// largest size its count reached, the number of routes using a via wanders under the stream, and
// new highs come ever more rarely (each set grows by a third at most once or twice), so such growth
// slows down and stops. A leak costs the same bytes every time its change comes round, so its
// growth per change does not fall. When the bound is crossed, the verdict compares the growth per
// change in the last quarter of the run with that in the second: at most half of it, for the heap
// and the resident set alike, is "levelling off" (exit 0, the numbers printed); otherwise memory
// "kept growing" (exit 1). A leak hidden under settling tables is at most the last quarter's figure,
// which the line prints; a smaller table, whose sets settle in minutes, bounds it more tightly.
//
// It runs in this process, not in a child as the suite's cases do: it is one case, and what it
// measures is the growth within the run, which a reused heap does not hide.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "bench/BenchCases.h"
#include "bench/BenchChurn.h"
#include "platform/kel/Activity.h"
#include "platform/kel/Exception.h"

namespace Bench {

namespace {

constexpr double kMiB = 1024.0 * 1024.0;

// A leak costs at least one block each time it happens: 16 bytes from the framework's free lists,
// 32 from malloc. At 1,000,000 routes the stream makes 7,000 to 22,000 changes a second on the
// project's 2-core machine (shared with other work), so the second half of a 10-minute soak has
// 2 to 6.6 million changes, and 4 MiB over it is 2 to 0.6 bytes per change: a leak of one block
// in every 8 to 16 changes crosses it on the slowest run. Below it stays what a table that has
// settled still does now and then: take one more 1 MiB slab for a size class, regrow a table.
constexpr double kLevelBound = 4 * kMiB;

struct Sample {
  double elapsed = 0;  // seconds since the stream started
  uint64_t changes = 0;
  double heap = 0;  // bytes, absolute
  double resident = 0;
};

std::string fixed(double v, int decimals) {
  char buf[48];
  std::snprintf(buf, sizeof buf, "%.*f", decimals, v);
  return buf;
}

std::string mib(double bytes, int decimals = 1) { return fixed(bytes / kMiB, decimals); }

void printLine(const Sample& s, double rate, const MemoryMark& full) {
  char line[160];
  std::snprintf(line, sizeof line, "%8.0f %13s %10s %10s %10s %11s %11s", s.elapsed,
                formatCount(s.changes).c_str(), formatCount(static_cast<uint64_t>(rate)).c_str(),
                mib(s.heap).c_str(), mib(s.resident).c_str(),
                mib(s.heap - static_cast<double>(full.heap), 2).c_str(),
                mib(s.resident - static_cast<double>(full.resident), 2).c_str());
  std::cout << line << std::endl;
}

// The samples the verdict reads: at each quarter of the run; quarters[3] is the end.
using Quarters = std::array<Sample, 4>;

// The stream from start to `o.seconds`, a line at every multiple of `o.every` and at the end;
// returns the samples at the quarters.
Quarters soakStream(ChurnStream& stream, const SoakOptions& o, const MemoryMark& full) {
  std::cout << " seconds       changes  changes/s   heap MiB    RSS MiB  heap growth  RSS growth"
            << std::endl;
  const double start = wallTime();
  uint64_t lines = 0;  // lines printed so far; the next is due at (lines + 1) * every
  size_t quarter = 0;  // quarters sampled so far
  Quarters quarters;
  double running = 0, runningAtLine = 0;  // seconds inside the stream, sampling left out
  uint64_t changesAtLine = 0;
  while (true) {
    const double nextLine = static_cast<double>(lines + 1) * o.every;
    const double nextQuarter = o.seconds * static_cast<double>(quarter + 1) / 4;
    const double before = wallTime();
    const double now = stream.runUntil(start + std::min(nextLine, nextQuarter));
    running += now - before;

    Sample s;
    s.elapsed = now - start;
    s.changes = stream.changes();
    s.heap = static_cast<double>(heapInUse());
    s.resident = static_cast<double>(residentBytes());
    const bool done = s.elapsed >= o.seconds;
    while (quarter < 4 && (s.elapsed >= o.seconds * static_cast<double>(quarter + 1) / 4 || done)) {
      quarters[quarter++] = s;
    }
    if (s.elapsed >= nextLine || done) {
      const double rate = running > runningAtLine ? static_cast<double>(s.changes - changesAtLine) /
                                                        (running - runningAtLine)
                                                  : 0;
      printLine(s, rate, full);
      changesAtLine = s.changes;
      runningAtLine = running;
      while (static_cast<double>(lines + 1) * o.every <= s.elapsed) ++lines;
    }
    if (done) return quarters;
  }
}

// Bytes of heap and of resident set gained per change from `from` to `to`.
std::pair<double, double> perChange(const Sample& from, const Sample& to) {
  const double changes = static_cast<double>(std::max<uint64_t>(to.changes - from.changes, 1));
  return {(to.heap - from.heap) / changes, (to.resident - from.resident) / changes};
}

// Prints the verdict line; true when memory levelled off or is levelling off.
bool verdict(const Quarters& q) {
  const Sample &first = q[0], &mid = q[1], &third = q[2], &last = q[3];
  const double heap = last.heap - mid.heap, resident = last.resident - mid.resident;
  const auto [heapRate, residentRate] = perChange(mid, last);
  std::cout << "soak: from " << formatNumber(mid.elapsed) << " s to " << formatNumber(last.elapsed)
            << " s (" << formatCount(last.changes - mid.changes) << " changes) the heap grew "
            << mib(heap, 2) << " MiB and the RSS " << mib(resident, 2) << " MiB ("
            << fixed(heapRate, 3) << " and " << fixed(residentRate, 3)
            << " B per change); the bound is " << mib(kLevelBound, 0)
            << " MiB each over the second half" << std::endl;
  if (heap <= kLevelBound && resident <= kLevelBound) {
    std::cout << "soak: memory levelled off" << std::endl;
    return true;
  }
  const auto [heapBefore, residentBefore] = perChange(first, mid);
  const auto [heapAfter, residentAfter] = perChange(third, last);
  const bool slowing = heapAfter <= heapBefore / 2 && residentAfter <= residentBefore / 2;
  std::cout << "soak: " << (slowing ? "memory levelling off" : "memory KEPT GROWING")
            << ": the growth per change went from " << fixed(heapBefore, 3) << " B (heap) and "
            << fixed(residentBefore, 3) << " B (RSS) in the second quarter to "
            << fixed(heapAfter, 3) << " and " << fixed(residentAfter, 3)
            << " B in the last; levelling off is at most half" << std::endl;
  return slowing;
}

int soak(const SoakOptions& o) {
  const Family family = o.ipv6 ? Family::ipv6 : Family::ipv4;
  const auto routes = static_cast<uint32_t>(o.routes);
  std::cout << "soak: " << familyName(family) << ", " << formatCount(routes)
            << " routes, the churn stream for " << formatNumber(o.seconds) << " s, a line every "
            << formatNumber(o.every) << " s" << std::endl;

  const double loadStart = wallTime();
  LoadedAgent a(family, routes);
  a.install();
  auto& loop = Kel::activityManager();
  loop.runUntilIdle();
  a.checkRib(1, "before the soak");
  const MemoryMark full = memoryMark();
  std::cout << "soak: table full after " << fixed(wallTime() - loadStart, 1) << " s: heap "
            << mib(static_cast<double>(full.heap)) << " MiB, RSS "
            << mib(static_cast<double>(full.resident)) << " MiB" << std::endl;

  ChurnStream stream(a);
  const Quarters quarters = soakStream(stream, o, full);

  loop.runUntilIdle();
  bool right = true;
  try {
    check(a.reviewComplete(), "the review after the soak did not complete");
    stream.checkRib("after the soak");
    check(stream.metricChanges() > 0 && stream.routeChanges() > 0,
          "the run was too short for both kinds of change");
    std::cout << "soak: the RIB configuration is right: " << formatCount(a.rib()->routes())
              << " routes, each in the state of its last change (" << formatCount(stream.changes())
              << " changes: " << formatCount(stream.routeChanges()) << " of routes, "
              << formatCount(stream.metricChanges()) << " of metrics)" << std::endl;
  } catch (const WrongResult& e) {
    std::cout << "soak: WRONG RESULT: " << e.what() << std::endl;
    right = false;
  }
  const bool levelled = verdict(quarters);
  if (!right) return 3;
  return levelled ? 0 : 1;
}

}  // namespace

int runSoak(const std::vector<std::string>& args) {
  SoakOptions o;
  try {
    o = parseSoakOptions(args);
  } catch (const Kel::Exception& e) {
    std::cerr << "protorib-bench soak: " << e.what() << '\n';
    return 2;
  }
  if (o.help) {
    std::cout << soakUsage();
    return 0;
  }
  if (const char* trace = std::getenv("PROTORIB_TRACE"); trace && *trace) {
    std::cerr << "protorib-bench soak: PROTORIB_TRACE is set: enabled traces slow the stream\n";
  }
  try {
    return soak(o);
  } catch (const WrongResult& e) {
    std::cout << "soak: WRONG RESULT: " << e.what() << std::endl;
    return 3;
  } catch (const std::exception& e) {
    std::cerr << "protorib-bench soak: " << e.what() << '\n';
    return 4;
  }
}

}  // namespace Bench
