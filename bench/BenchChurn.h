// The churn stream: the steady flow of route and metric changes that the churn workload times for
// a few seconds and the soak keeps up for minutes or hours.
//
// Per hundred changes: 81 routes replaced by a route built apart with its vias shifted (it moves
// between via sets that exist anyway), 9 routes withdrawn and the 9 withdrawn longest announced
// again, and 1 metric change of a via (resolved to resolved: its users are re-evaluated and stay).
// Routes are picked at random over the whole table, from a generator of its own with a fixed
// seed, so the stream is the same on every run. Each withdrawal is followed by the next
// announcement, so the table is never more than one route short of full, and no change brings
// anything the table did not have (a route's vias shifted by one are its neighbour's, and a via's
// metric flips between two values): a heap that keeps growing under it without end is a leak.
// It need not stand still at once, though: hash tables keep the largest size their count reached
// (they grow at 7/8 load and shrink only below 1/5), and under the stream the number of routes
// that use each via wanders, setting new highs ever more rarely.
//
// The stream remembers the last state it wrote of every route (present or withdrawn, which
// variant), so that after any number of changes the RIB configuration can be checked against it.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "bench/BenchRoutes.h"

namespace Bench {

class ChurnStream {
 public:
  // `agent` holds its full table (installed, loop idle) and outlives the stream; the stream
  // writes into it from then on.
  explicit ChurnStream(LoadedAgent& agent);
  ChurnStream(const ChurnStream&) = delete;
  ChurnStream& operator=(const ChurnStream&) = delete;

  // Writes the next change of the stream into the agent; the loop does not run.
  void change();
  // The agent takes input for one review quantum, then runs one turn of its loop (a review slice,
  // as every metric change restarts the review), and so on until the monotonic clock reaches
  // `end`: input and reviews share the time as they would in an agent whose input never runs
  // dry. Input is written 64 changes at a time between looks at the clock. Returns the time it
  // stopped at, which is `end` or a little past it.
  double runUntil(double end);

  uint64_t changes() const noexcept { return changes_; }
  uint64_t routeChanges() const noexcept { return routeChanges_; }
  uint64_t metricChanges() const noexcept { return metricChanges_; }
  // Seconds runUntil has spent in turns of the loop, all calls together.
  double loopTime() const noexcept { return loopTime_; }

  // The RIB configuration holds exactly the routes the stream last left present, each on its
  // first alternative with the vias of the variant last written; a WrongResult names the first
  // difference. The loop must have run until idle first.
  void checkRib(const std::string& when) const;

 private:
  uint32_t presentRoute();

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

  LoadedAgent& agent_;
  double quantum_;
  XorShift random_;
  // Per route, the state last written; the withdrawn routes in the order they went.
  std::vector<bool> present_;
  std::vector<uint8_t> variant_;
  std::deque<uint32_t> withdrawn_;
  // Per via, which of its two resolved metrics it has now.
  std::vector<uint8_t> metricFlip_;
  uint32_t metricCursor_ = 0;
  uint64_t changes_ = 0;
  uint64_t routeChanges_ = 0;
  uint64_t metricChanges_ = 0;
  double loopTime_ = 0;
};

}  // namespace Bench
