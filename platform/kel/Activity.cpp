#include "platform/kel/Activity.h"

#include <chrono>
#include <thread>

namespace Kel {

void Clock::timeMinIs(double t) const { mgr_->arm(this, t); }

void Clock::timeMinDel() const noexcept {
  timeMin_ = kNever;
  armSeq_ = 0;
}

ActivityManager& ActivityManager::instance() {
  static ActivityManager* mgr = new ActivityManager();  // lives until exit, as its clocks may
  return *mgr;
}

Ptr<Clock> ActivityManager::clockNew() { return Ptr<Clock>(new Clock(this)); }

void ActivityManager::arm(const Clock* c, double t) {
  c->timeMin_ = t;
  c->armSeq_ = nextSeq_++;
  queue_.push(Due{t, c->armSeq_, Ptr<Clock const>(c)});
}

void ActivityManager::dropStale() noexcept {
  while (!queue_.empty() && queue_.top().clock->armSeq_ != queue_.top().seq) queue_.pop();
}

bool ActivityManager::pending() const noexcept { return nextTime() != Clock::kNever; }

double ActivityManager::nextTime() const noexcept {
  const_cast<ActivityManager*>(this)->dropStale();
  return queue_.empty() ? Clock::kNever : queue_.top().time;
}

size_t ActivityManager::runOnce() {
  dropStale();
  if (queue_.empty()) return 0;
  double now = currentTime();
  std::vector<Due> batch;
  while (!queue_.empty() && queue_.top().time <= now) {
    Due d = queue_.top();
    queue_.pop();
    if (d.clock->armSeq_ == d.seq) batch.push_back(std::move(d));
  }
  if (batch.empty()) return 0;
  auto start = std::chrono::steady_clock::now();
  size_t fired = 0;
  {
    NotificationScope scope;
    for (const Due& d : batch) {
      // An earlier clock of this turn may have re-armed or disarmed this one.
      if (d.clock->armSeq_ != d.seq) continue;
      d.clock->timeMin_ = Clock::kNever;
      d.clock->armSeq_ = 0;
      d.clock->fire();
      ++fired;
    }
  }
  ++turns_;
  double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (took > longestTurn_) longestTurn_ = took;
  return fired;
}

size_t ActivityManager::runUntilIdle(size_t maxTurns) {
  size_t turns = 0;
  while (turns < maxTurns) {
    double next = nextTime();
    if (next == Clock::kNever || next > currentTime()) break;
    runOnce();
    ++turns;
  }
  return turns;
}

void ActivityManager::runUntil(double t) {
  auto* manual = dynamic_cast<ManualTimeSource*>(detail::timeSource.load(std::memory_order_relaxed));
  while (true) {
    double next = nextTime();
    if (next > t) break;
    if (manual) {
      if (manual->time() < next) manual->timeIs(next);
    } else {
      double now = currentTime();
      if (next > now) std::this_thread::sleep_for(std::chrono::duration<double>(next - now));
    }
    runUntilIdle();
  }
  if (manual) {
    if (manual->time() < t) manual->timeIs(t);
  } else {
    double now = currentTime();
    if (t > now && t != Clock::kNever) std::this_thread::sleep_for(std::chrono::duration<double>(t - now));
  }
}

void ActivityManager::reset() noexcept {
  while (!queue_.empty()) {
    queue_.top().clock->timeMinDel();
    queue_.pop();
  }
}

}  // namespace Kel
