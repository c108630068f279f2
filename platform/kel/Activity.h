// The activity facility: clocks and the one event loop that runs them.
//
// A clock is armed by setting its `timeMin`; once the current time has reached it, the loop
// delivers `onTime()` to the clock's notifiees, once per arming. One turn of the loop takes the
// clocks that are due when the turn starts and runs them in order of `timeMin`, then of arming;
// a clock armed (or re-armed) during a turn runs on a later turn, so a long walk that re-arms its
// clock after each slice lets other due work run between its slices.
//
// The library has no thread and no loop of its own: the agent, the tests and the benchmarks all
// drive this loop (`runOnce`, `runUntilIdle`, `runUntil`). With a manual time source, `runUntil`
// moves time forward from one due clock to the next, so scenarios are deterministic.
#pragma once

#include <cstdint>
#include <limits>
#include <queue>
#include <vector>

#include "platform/kel/Attribute.h"
#include "platform/kel/Entity.h"
#include "platform/kel/Time.h"

namespace Kel {

class ActivityManager;

class Clock : public Entity {
 public:
  KEL_ENTITY(Clock, "Kel::Clock");
  class NotifieeConst : public NotifieeConstOf<Clock> {
   public:
    virtual void onTime() {}
  };

  // The time at which the clock is armed to fire, or +infinity when it is not armed.
  double timeMin() const noexcept { return timeMin_; }
  // Arms the clock for `t` (a time at or before now: the next turn of the loop). Arming is not
  // a change of the clock's state but a request to the loop, so a read-only holder may arm it.
  void timeMinIs(double t) const;
  // Disarms the clock.
  void timeMinDel() const noexcept;
  bool armed() const noexcept { return timeMin_ != kNever; }

  static constexpr double kNever = std::numeric_limits<double>::infinity();

 private:
  friend class ActivityManager;
  explicit Clock(ActivityManager* mgr) noexcept : mgr_(mgr) {}
  void fire() const { notify(&NotifieeConst::onTime); }

  ActivityManager* mgr_;
  mutable double timeMin_ = kNever;
  mutable uint64_t armSeq_ = 0;
};

class ActivityManager {
 public:
  // The process's loop.
  static ActivityManager& instance();

  // A new clock of this loop, for one state machine.
  Ptr<Clock> clockNew();

  // One turn: runs the clocks due now. Returns how many fired.
  size_t runOnce();
  // Runs turns while a clock is due at the current time (at most `maxTurns`). Returns the number
  // of turns run.
  size_t runUntilIdle(size_t maxTurns = std::numeric_limits<size_t>::max());
  // Runs every clock due up to time `t`. Under a manual time source, time is moved to each due
  // clock in turn and finally to `t`; under the monotonic source, this waits for real time.
  void runUntil(double t);
  // Whether a clock is armed, and the earliest armed time (kNever if none).
  bool pending() const noexcept;
  double nextTime() const noexcept;
  // Turns run so far, and the longest single turn in seconds of the current time source.
  uint64_t turns() const noexcept { return turns_; }
  double longestTurn() const noexcept { return longestTurn_; }
  void longestTurnIs(double v) noexcept { longestTurn_ = v; }
  // Forgets every armed clock (tests start from a clean loop).
  void reset() noexcept;

 private:
  friend class Clock;
  struct Due {
    double time;
    uint64_t seq;
    Ptr<Clock const> clock;
    bool operator>(const Due& o) const noexcept { return time != o.time ? time > o.time : seq > o.seq; }
  };

  void arm(const Clock* c, double t);
  void dropStale() noexcept;

  std::priority_queue<Due, std::vector<Due>, std::greater<Due>> queue_;
  uint64_t nextSeq_ = 1;
  uint64_t turns_ = 0;
  double longestTurn_ = 0;
};

inline ActivityManager& activityManager() { return ActivityManager::instance(); }

}  // namespace Kel
