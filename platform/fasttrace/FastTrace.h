// The fast trace ring: the most recent lines of the hot paths, kept in memory, dumped on demand.
//
// Handle traces (platform/kel/Trace.h) go to their sink as they happen, which is too costly to
// leave on in a busy agent. The ring is the other trade: recording moves an already composed line
// into a slot, and nothing is written anywhere until someone dumps the ring, typically after
// something went wrong. A fixed number of slots are reused in turn, so memory stays bounded however
// long the agent runs, and the ring always holds the newest lines.
//
// Whether the ring records is one flag, tested inline by the macros before anything is composed.
// The flag mirrors the trace handle named "FastTrace", so PROTORIB_TRACE=FastTrace,
// Kel::traceConfigIs("FastTrace") and Kel::ScopedTraceSettings govern the ring like any other
// handle; the ring is on when that handle has any level enabled. The flag is constant-initialised
// to off, so the macros are safe during static initialisation.
//
// DualTrace: KEL_DUAL_TRACE writes one composed text both to a module's handle and to the ring,
// each only if enabled, composing it once.
#pragma once

#include <atomic>
#include <cstddef>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "platform/kel/Trace.h"

namespace FastTrace {

inline constexpr size_t kDefaultCapacity = 4096;
inline constexpr const char* kHandleName = "FastTrace";

namespace detail {
extern std::atomic<bool> enabled;
}

inline bool enabled() noexcept { return detail::enabled.load(std::memory_order_relaxed); }
// Sets every level of the "FastTrace" handle, or clears them all.
void enabledIs(bool on);

// The number of lines the ring holds. Changing it keeps the newest lines that fit.
// RangeException for 0.
size_t capacity();
void capacityIs(size_t lines);

// Stores a line, dropping the oldest when the ring is full. This does not test enabled(): the
// macros do, before composing.
void record(std::string line);
// The lines held, oldest first.
std::vector<std::string> lines();
// Writes the lines held, oldest first, one per line.
void dump(std::ostream& out);
void clear();

}  // namespace FastTrace

// Records a line composed as `stream << __VA_ARGS__`; nothing is evaluated unless the ring is on.
#define KEL_FAST_TRACE(...)                                 \
  do {                                                      \
    if (::FastTrace::enabled()) [[unlikely]] {              \
      std::ostringstream kelFastStream_;                    \
      kelFastStream_ << __VA_ARGS__;                        \
      ::FastTrace::record(std::move(kelFastStream_).str()); \
    }                                                       \
  } while (0)

// Composes one text and writes it to `handle` at `level` (if enabled there) and to the ring (if
// on); nothing is evaluated when neither is.
#define KEL_DUAL_TRACE_FROM(handle, level, source, ...)                                          \
  do {                                                                                           \
    const ::Kel::TraceHandle& kelDualHandle_ = (handle);                                         \
    const int kelDualLevel_ = (level);                                                           \
    const bool kelDualToHandle_ = kelDualHandle_.enabled(kelDualLevel_);                         \
    const bool kelDualToRing_ = ::FastTrace::enabled();                                          \
    if (kelDualToHandle_ || kelDualToRing_) [[unlikely]] {                                       \
      std::ostringstream kelDualStream_;                                                         \
      kelDualStream_ << __VA_ARGS__;                                                             \
      std::string kelDualText_ = std::move(kelDualStream_).str();                                \
      if (kelDualToHandle_) {                                                                    \
        kelDualHandle_.record(kelDualLevel_,                                                     \
                              kelDualToRing_ ? kelDualText_ : std::move(kelDualText_), (source), \
                              __LINE__, __func__);                                               \
      }                                                                                          \
      if (kelDualToRing_) ::FastTrace::record(std::move(kelDualText_));                          \
    }                                                                                            \
  } while (0)

// The same, with the source name from the file's `kTraceSource` (see platform/kel/Trace.h).
#define KEL_DUAL_TRACE(handle, level, ...) \
  KEL_DUAL_TRACE_FROM(handle, level, kTraceSource, __VA_ARGS__)
