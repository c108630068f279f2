// Traces: one handle per module, levels 0 to 9, one process-wide sink.
//
// A router agent is traced heavily and runs with nearly every trace off, so the cost that matters
// is that of a disabled line. Each handle keeps its enabled levels as a bit mask in one word; the
// test in KEL_TRACE is one relaxed load (a plain load on every target we build for), a shift and a
// branch, and the line's text is composed on a stream only inside that branch. Composing a line
// never changes state, so an expression with side effects in a trace is a bug twice over.
// Everything else -- the registry of handles, the configuration rules, the sink -- sits behind a
// lock in Trace.cpp and is touched only when a line is written or a setting changes.
//
// Handles are never destroyed. Modules keep references to them in namespace-scope variables and
// may trace from destructors of other statics at exit; the registry is built on first use, so a
// handle can also be taken during the static initialisation of any translation unit.
//
// Settings are rules, each a handle name (or a name prefix) with a range of levels. A handle's mask
// is the union of the rules matching its name, computed when the handle is created and again
// whenever the rules are replaced; per-handle calls (levelsIs, enable, disable) override that until
// the next replacement. This is how PROTORIB_TRACE reaches handles created long after it was read.
//
// The rule syntax, used by PROTORIB_TRACE and traceConfigIs alike, is a comma-separated list:
//   Quill::RouteStatusSm/8-9    levels 8 and 9 of one handle
//   Quill::ProtocolRootSm/9     level 9 only
//   Quill::IntfSm               a name alone means every level, 0 to 9
//   Quill::*                    a trailing '*' matches every handle whose name starts with the rest
//   */3                         '*' alone matches every handle
//   FastTrace                   the fast trace ring (platform/fasttrace/FastTrace.h)
// Blanks around names and commas are ignored; an empty list enables nothing.
//
// Using it in a module's .cpp file:
//   namespace {
//   // The module's source name, recorded with every line the file writes.
//   constexpr const char* kTraceSource = "ProtocolRouteStatusSm";
//   Kel::TraceHandle& gTrace = Kel::TraceHandle::handle("Quill::RouteStatusSm");
//   }  // namespace
//   ...
//   KEL_TRACE(gTrace, 8, "handleRoute" << " (" << prefix << ")");
// KEL_TRACE finds `kTraceSource` by ordinary name lookup at the point of use, so a file that
// forgets it does not compile. Headers (inline functions, templates) must not define kTraceSource,
// since one .cpp may include several of them: they pass the source explicitly with KEL_TRACE_FROM.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Kel {

namespace detail {
class TraceRegistry;
}

class TraceHandle {
 public:
  static constexpr int kMinLevel = 0;
  static constexpr int kMaxLevel = 9;
  static constexpr uint32_t kAllLevels = (1u << (kMaxLevel + 1)) - 1;

  // Called with the new mask after every change of a handle's levels, and once when installed.
  // It runs with the trace registry locked: it may not take or configure handles.
  using LevelsObserver = void (*)(uint32_t levels);

  // The handle named `name`, created on first use with the levels the current rules give it; the
  // same object for the same name until the process exits. A name must be non-empty and free of
  // blanks, ',', '/' and '*' (those belong to the rule syntax): RangeException otherwise.
  static TraceHandle& handle(std::string_view name);

  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;

  const std::string& name() const noexcept { return name_; }

  // Precondition: kMinLevel <= level <= kMaxLevel. This is the whole cost of a disabled trace.
  bool enabled(int level) const noexcept {
    return (levels_.load(std::memory_order_relaxed) >> level) & 1u;
  }

  // Bit n set means level n is enabled.
  uint32_t levels() const noexcept { return levels_.load(std::memory_order_relaxed); }
  // RangeException for a bit above kMaxLevel.
  void levelsIs(uint32_t mask);
  // Adds levels lo..hi to those enabled; RangeException unless 0 <= lo <= hi <= 9.
  void enable(int lo, int hi);
  void enable(int level) { enable(level, level); }
  // Turns every level off.
  void disable();
  // One observer per handle; nullptr removes it.
  void levelsObserverIs(LevelsObserver observer);

  // Hands a composed line to the process sink. Callers normally reach this through KEL_TRACE, which
  // has already tested `enabled(level)`; this does not test it again. RangeException for a level
  // outside 0..9.
  void record(int level, std::string text, std::string_view source, int line,
              std::string_view function) const;

 private:
  friend class detail::TraceRegistry;
  TraceHandle(std::string name, uint32_t levels) : levels_(levels), name_(std::move(name)) {}
  ~TraceHandle() = default;
  void levelsSet(uint32_t mask);

  std::atomic<uint32_t> levels_;
  std::atomic<LevelsObserver> observer_{nullptr};
  const std::string name_;
};

// Replaces the rules with those of `config` and recomputes every handle's levels; handles created
// later get theirs from the same rules. ParseException naming the bad piece for a malformed config,
// in which case nothing changes.
void traceConfigIs(std::string_view config);
// The current rules in canonical form ("Quill::RouteStatusSm/8-9,*/9"); traceConfigIs of it gives
// the same rules back.
std::string traceConfig();

inline constexpr const char* kTraceEnvironmentVariable = "PROTORIB_TRACE";
// Replaces the rules with those of PROTORIB_TRACE (none when it is unset). This runs by itself
// once, at the first use of any trace facility, reporting any skipped piece on stderr. Unlike
// traceConfigIs it is lenient, because nobody can catch an exception thrown at start-up: a
// malformed piece is skipped and its message returned, and the well-formed pieces still apply.
std::vector<std::string> traceConfigFromEnvironment();

// One written line.
struct TraceRecord {
  std::string handle;  // the handle's name, "Quill::RouteStatusSm"
  int level = 0;
  std::string text;    // exactly as composed
  std::string source;  // the module's source name, "ProtocolRouteStatusSm"
  int line = 0;
  std::string function;  // the enclosing function's __func__
};

// The one-line form every text sink writes, without a newline:
// "Quill::RouteStatusSm/9 ProtocolRouteStatusSm:123 handleRoute: <text>".
std::string traceLine(const TraceRecord& record);

// Where written lines go. write() may be called from any thread that traces; a sink must be safe
// for that and must not throw.
class TraceSink {
 public:
  virtual ~TraceSink() = default;
  virtual void write(const TraceRecord& record) = 0;
};

// The default sink: each line to stderr in a single write, so lines of different threads do not
// interleave.
class StderrTraceSink final : public TraceSink {
 public:
  void write(const TraceRecord& record) override;
};

// Writes each line to a stream the caller owns and keeps alive while the sink is installed; the
// agent uses it to print traces in order with its own output. RangeException for a null stream.
class StreamTraceSink final : public TraceSink {
 public:
  explicit StreamTraceSink(std::ostream* out);
  void write(const TraceRecord& record) override;

 private:
  std::mutex mutex_;
  std::ostream* out_;
};

// Appends each line to a file, flushed line by line so that a crash keeps what came before it.
// InvalidOperationException if the file cannot be opened for appending.
class FileTraceSink final : public TraceSink {
 public:
  explicit FileTraceSink(const std::string& path);
  ~FileTraceSink() override;
  FileTraceSink(const FileTraceSink&) = delete;
  FileTraceSink& operator=(const FileTraceSink&) = delete;

  const std::string& path() const noexcept { return path_; }
  void write(const TraceRecord& record) override;

 private:
  std::string path_;
  std::FILE* file_;
};

// Keeps every record in memory, for tests to read.
class CaptureTraceSink final : public TraceSink {
 public:
  void write(const TraceRecord& record) override;

  std::vector<TraceRecord> records() const;
  // The texts alone, in the order written.
  std::vector<std::string> texts() const;
  // The texts written to the handle named `handleName`, in order.
  std::vector<std::string> textsOf(std::string_view handleName) const;
  void clear();

 private:
  mutable std::mutex mutex_;
  std::vector<TraceRecord> records_;
};

// Installs the process sink; nullptr restores the default stderr sink. A line being written while
// the sink is replaced still goes to the sink it started with.
void traceSinkIs(std::shared_ptr<TraceSink> sink);
std::shared_ptr<TraceSink> traceSink();

// Saves the rules and every handle's levels, and puts them back on destruction. Handles created in
// between get the levels the restored rules give them.
class ScopedTraceSettings {
 public:
  ScopedTraceSettings();
  ~ScopedTraceSettings();
  ScopedTraceSettings(const ScopedTraceSettings&) = delete;
  ScopedTraceSettings& operator=(const ScopedTraceSettings&) = delete;

 private:
  std::string config_;
  std::vector<std::pair<TraceHandle*, uint32_t>> levels_;
};

// For tests: replaces the rules with `config` (traceConfigIs syntax, so a test sees the same lines
// whatever PROTORIB_TRACE the developer runs it under), captures every line into a fresh
// CaptureTraceSink, and on destruction restores the previous sink, rules and levels.
class ScopedTraceCapture {
 public:
  explicit ScopedTraceCapture(std::string_view config);
  ~ScopedTraceCapture();
  ScopedTraceCapture(const ScopedTraceCapture&) = delete;
  ScopedTraceCapture& operator=(const ScopedTraceCapture&) = delete;

  CaptureTraceSink& sink() noexcept { return *sink_; }
  std::vector<TraceRecord> records() const { return sink_->records(); }
  std::vector<std::string> texts() const { return sink_->texts(); }
  std::vector<std::string> textsOf(std::string_view handleName) const {
    return sink_->textsOf(handleName);
  }
  void clear() { sink_->clear(); }

 private:
  ScopedTraceSettings settings_;
  std::shared_ptr<TraceSink> previous_;
  std::shared_ptr<CaptureTraceSink> sink_;
};

}  // namespace Kel

// Writes a line composed as `stream << __VA_ARGS__` to `handle` at `level`, recording `source`,
// the line number and the enclosing function. Nothing in __VA_ARGS__ is composed or evaluated
// unless the handle is enabled at that level. `handle` and `level` are evaluated once.
#define KEL_TRACE_FROM(handle, level, source, ...)                                                 \
  do {                                                                                             \
    const ::Kel::TraceHandle& kelTraceHandle_ = (handle);                                          \
    const int kelTraceLevel_ = (level);                                                            \
    if (kelTraceHandle_.enabled(kelTraceLevel_)) [[unlikely]] {                                    \
      std::ostringstream kelTraceStream_;                                                          \
      kelTraceStream_ << __VA_ARGS__;                                                              \
      kelTraceHandle_.record(kelTraceLevel_, std::move(kelTraceStream_).str(), (source), __LINE__, \
                             __func__);                                                            \
    }                                                                                              \
  } while (0)

// The same, with the source name taken from the file's `kTraceSource` (see the top of this file).
#define KEL_TRACE(handle, level, ...) KEL_TRACE_FROM(handle, level, kTraceSource, __VA_ARGS__)
