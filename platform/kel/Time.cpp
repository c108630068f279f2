#include "platform/kel/Time.h"

#include <charconv>
#include <chrono>
#include <cmath>
#include <string>

#include "platform/kel/Exception.h"

namespace Kel {

namespace {

// Holds the default source without ever destroying it: traces and clocks may read the time from
// destructors of other statics, in any order.
union DefaultSource {
  constexpr DefaultSource() : source() {}
  ~DefaultSource() {}
  MonotonicTimeSource source;
};

constinit DefaultSource gDefault;

// The shortest text that reads back as the same double.
std::string shown(double t) {
  char buf[32];
  return std::string(buf, std::to_chars(buf, buf + sizeof buf, t).ptr);
}

}  // namespace

namespace detail {
constinit std::atomic<TimeSource*> timeSource{&gDefault.source};
}

TimeSource::~TimeSource() {
  TimeSource* self = this;
  detail::timeSource.compare_exchange_strong(self, &gDefault.source);
}

double MonotonicTimeSource::now() {
  using Seconds = std::chrono::duration<double>;
  return std::chrono::duration_cast<Seconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

ManualTimeSource::ManualTimeSource(double start, double stepPerRead)
    : time_(0.0), stepPerRead_(0.0) {
  if (!std::isfinite(start)) throw RangeException("manual time " + shown(start) + " is not finite");
  time_ = start;
  stepPerReadIs(stepPerRead);
}

void ManualTimeSource::timeIs(double t) {
  if (!std::isfinite(t)) throw RangeException("manual time " + shown(t) + " is not finite");
  if (t < time_) {
    throw RangeException("manual time cannot go back from " + shown(time_) + " to " + shown(t));
  }
  time_ = t;
}

void ManualTimeSource::advance(double dt) {
  if (!(dt >= 0.0)) throw RangeException("manual time cannot advance by " + shown(dt));
  timeIs(time_ + dt);
}

void ManualTimeSource::stepPerReadIs(double dt) {
  if (!(dt >= 0.0) || !std::isfinite(dt)) {
    throw RangeException("manual time step per read " + shown(dt) +
                         " is not a finite, non-negative number of seconds");
  }
  stepPerRead_ = dt;
}

TimeSource* timeSourceIs(TimeSource* source) noexcept {
  TimeSource* previous = detail::timeSource.exchange(source ? source : &gDefault.source);
  return previous == &gDefault.source ? nullptr : previous;
}

}  // namespace Kel
