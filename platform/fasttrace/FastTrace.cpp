#include "platform/fasttrace/FastTrace.h"

#include <algorithm>
#include <iterator>
#include <mutex>

#include "platform/kel/Exception.h"

namespace FastTrace {

namespace detail {
constinit std::atomic<bool> enabled{false};
}

namespace {

// The slots. Until the ring first fills, lines are slots_[0..size) in order and slots grow one by
// one, so a ring that is never used costs nothing; once full, slots_.size() == capacity_ and the
// oldest line is at next_, where the next line goes.
class Ring {
 public:
  static Ring& instance() {
    // Never destroyed: a static's destructor may still record at exit.
    static Ring* ring = new Ring();
    return *ring;
  }

  size_t capacity() {
    std::lock_guard lock(mutex_);
    return capacity_;
  }

  void capacityIs(size_t lines) {
    if (lines == 0) throw Kel::RangeException("fast trace capacity must be at least 1 line");
    std::lock_guard lock(mutex_);
    std::vector<std::string> held = ordered();
    const size_t keep = std::min(lines, held.size());
    slots_.assign(std::make_move_iterator(held.end() - keep), std::make_move_iterator(held.end()));
    capacity_ = lines;
    next_ = 0;
  }

  void record(std::string line) {
    std::lock_guard lock(mutex_);
    if (slots_.size() < capacity_) {
      slots_.push_back(std::move(line));
      return;
    }
    slots_[next_] = std::move(line);
    next_ = next_ + 1 == capacity_ ? 0 : next_ + 1;
  }

  std::vector<std::string> lines() {
    std::lock_guard lock(mutex_);
    return ordered();
  }

  void clear() {
    std::lock_guard lock(mutex_);
    slots_.clear();
    next_ = 0;
  }

 private:
  Ring() = default;

  std::vector<std::string> ordered() const {
    std::vector<std::string> out;
    out.reserve(slots_.size());
    out.insert(out.end(), slots_.begin() + static_cast<std::ptrdiff_t>(next_), slots_.end());
    out.insert(out.end(), slots_.begin(), slots_.begin() + static_cast<std::ptrdiff_t>(next_));
    return out;
  }

  std::mutex mutex_;
  std::vector<std::string> slots_;
  size_t capacity_ = kDefaultCapacity;
  size_t next_ = 0;
};

void onLevels(uint32_t levels) { detail::enabled.store(levels != 0, std::memory_order_relaxed); }

// The handle whose levels the flag mirrors; hooked up on first use.
Kel::TraceHandle& ringHandle() {
  static Kel::TraceHandle& handle = []() -> Kel::TraceHandle& {
    Kel::TraceHandle& h = Kel::TraceHandle::handle(kHandleName);
    h.levelsObserverIs(&onLevels);
    return h;
  }();
  return handle;
}

// PROTORIB_TRACE=FastTrace must turn the ring on before anyone calls into this file, so the hook
// is made while the library loads.
[[maybe_unused]] const bool gHooked = (ringHandle(), true);

}  // namespace

void enabledIs(bool on) { ringHandle().levelsIs(on ? Kel::TraceHandle::kAllLevels : 0); }

size_t capacity() { return Ring::instance().capacity(); }

void capacityIs(size_t lines) { Ring::instance().capacityIs(lines); }

void record(std::string line) { Ring::instance().record(std::move(line)); }

std::vector<std::string> lines() { return Ring::instance().lines(); }

void dump(std::ostream& out) {
  for (const std::string& line : lines()) out << line << '\n';
}

void clear() { Ring::instance().clear(); }

}  // namespace FastTrace
