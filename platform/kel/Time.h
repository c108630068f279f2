// The current time, in seconds, from one replaceable time source.
//
// Everything that measures or schedules -- review slices, clocks, the event loop -- reads
// `currentTime()` and nothing else, so that tests and scenario scripts can install a
// ManualTimeSource and move time by hand: a 0.1-second slice is then tested without sleeping and
// with the same result on every machine. The default source is the monotonic clock, never the wall
// clock, so that time seen by the library never goes backwards.
//
// currentTime() sits on hot paths (a review reads it once per route), so it is one load of the
// installed source and one virtual call. The default source is constant-initialised and never
// destroyed: currentTime() works during the static initialisation and destruction of any
// translation unit.
#pragma once

#include <atomic>

namespace Kel {

class TimeSource {
 public:
  constexpr TimeSource() noexcept = default;
  TimeSource(const TimeSource&) = delete;
  TimeSource& operator=(const TimeSource&) = delete;
  // A source destroyed while installed is replaced by the default, so currentTime() never calls a
  // dead object.
  virtual ~TimeSource();

  // Seconds. Successive reads never decrease.
  virtual double now() = 0;
};

// std::chrono::steady_clock, in seconds since the clock's own epoch.
class MonotonicTimeSource final : public TimeSource {
 public:
  constexpr MonotonicTimeSource() noexcept = default;
  double now() override;
};

// Time that moves only when told to. Each read returns the current value and then adds
// `stepPerRead` to it, so that code which reads the time to bound its work sees time pass by a
// known amount per read. Time never goes backwards: every mutator that would move it back, or to a
// value that is not finite, throws RangeException and changes nothing.
class ManualTimeSource final : public TimeSource {
 public:
  explicit ManualTimeSource(double start = 0.0, double stepPerRead = 0.0);

  double now() override {
    const double t = time_;
    time_ += stepPerRead_;
    return t;
  }
  // The value the next read returns, without stepping.
  double time() const noexcept { return time_; }
  void timeIs(double t);
  void advance(double dt);
  double stepPerRead() const noexcept { return stepPerRead_; }
  void stepPerReadIs(double dt);

 private:
  double time_;
  double stepPerRead_;
};

namespace detail {
extern std::atomic<TimeSource*> timeSource;
}

inline double currentTime() { return detail::timeSource.load(std::memory_order_relaxed)->now(); }

// Installs `source` (not owned; it must stay alive while installed) and returns the previously
// installed one, nullptr for the default. nullptr restores the default.
TimeSource* timeSourceIs(TimeSource* source) noexcept;

// Installs a source for the lifetime of the object and then puts the previous one back.
class ScopedTimeSource {
 public:
  explicit ScopedTimeSource(TimeSource& source) noexcept : previous_(timeSourceIs(&source)) {}
  ~ScopedTimeSource() { timeSourceIs(previous_); }
  ScopedTimeSource(const ScopedTimeSource&) = delete;
  ScopedTimeSource& operator=(const ScopedTimeSource&) = delete;

 private:
  TimeSource* previous_;
};

}  // namespace Kel
