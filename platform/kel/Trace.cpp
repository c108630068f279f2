#include "platform/kel/Trace.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>

#include "platform/kel/Exception.h"

namespace Kel {

namespace {

// One piece of a trace configuration: levels lo..hi of the handle called `name`, or of every handle
// whose name starts with `name` when `prefix` is set ("*" is the empty prefix).
struct TraceRule {
  std::string name;
  bool prefix = false;
  int lo = TraceHandle::kMinLevel;
  int hi = TraceHandle::kMaxLevel;

  uint32_t mask() const { return ((2u << hi) - 1) & ~((1u << lo) - 1); }
  bool matches(std::string_view handle) const {
    return prefix ? handle.starts_with(name) : handle == name;
  }
  std::string text() const {
    std::string out = name;
    if (prefix) out += '*';
    if (lo == TraceHandle::kMinLevel && hi == TraceHandle::kMaxLevel) return out;
    out += '/';
    out += std::to_string(lo);
    if (hi != lo) out += '-' + std::to_string(hi);
    return out;
  }
};

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::string_view trimmed(std::string_view s) {
  while (!s.empty() && isBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && isBlank(s.back())) s.remove_suffix(1);
  return s;
}

[[noreturn]] void badPiece(std::string_view piece, std::string_view config,
                           const std::string& why) {
  throw ParseException("bad trace setting '" + std::string(piece) + "' in '" + std::string(config) +
                       "': " + why);
}

int parseLevel(std::string_view text, std::string_view piece, std::string_view config) {
  if (text.empty()) badPiece(piece, config, "missing level");
  int value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') badPiece(piece, config, "'" + std::string(text) + "' is not a level");
    // Saturate: any number of more than two digits is out of range anyway.
    value = value > 99 ? value : value * 10 + (c - '0');
  }
  if (value > TraceHandle::kMaxLevel) {
    badPiece(piece, config, "level " + std::string(text) + " is not in 0-9");
  }
  return value;
}

TraceRule parseRule(std::string_view piece, std::string_view config) {
  TraceRule rule;
  std::string_view name = piece;
  const size_t slash = piece.find('/');
  if (slash != std::string_view::npos) {
    name = trimmed(piece.substr(0, slash));
    std::string_view levels = trimmed(piece.substr(slash + 1));
    const size_t dash = levels.find('-');
    if (dash == std::string_view::npos) {
      rule.lo = rule.hi = parseLevel(levels, piece, config);
    } else {
      rule.lo = parseLevel(trimmed(levels.substr(0, dash)), piece, config);
      rule.hi = parseLevel(trimmed(levels.substr(dash + 1)), piece, config);
      if (rule.lo > rule.hi) badPiece(piece, config, "levels go from high to low");
    }
  }
  if (name.empty()) badPiece(piece, config, "missing handle name");
  if (name.back() == '*') {
    rule.prefix = true;
    name.remove_suffix(1);
  }
  for (char c : name) {
    if (c == '*') badPiece(piece, config, "'*' may only end a name");
    if (isBlank(c)) badPiece(piece, config, "blank inside a handle name");
  }
  rule.name = std::string(name);
  return rule;
}

// Parses every piece of `config`. A malformed piece throws, unless `errors` is given: then its
// message is added there and the piece skipped.
std::vector<TraceRule> parseRules(std::string_view config, std::vector<std::string>* errors) {
  std::vector<TraceRule> rules;
  if (trimmed(config).empty()) return rules;
  size_t start = 0;
  while (true) {
    const size_t comma = config.find(',', start);
    const std::string_view piece =
        trimmed(config.substr(start, comma == std::string_view::npos ? comma : comma - start));
    try {
      if (piece.empty()) badPiece(piece, config, "empty setting");
      rules.push_back(parseRule(piece, config));
    } catch (const ParseException& e) {
      if (!errors) throw;
      errors->push_back(e.what());
    }
    if (comma == std::string_view::npos) break;
    start = comma + 1;
  }
  return rules;
}

void checkHandleName(std::string_view name) {
  if (name.empty()) throw RangeException("a trace handle name must not be empty");
  for (char c : name) {
    if (c == ',' || c == '/' || c == '*' || isBlank(c)) {
      throw RangeException("trace handle name '" + std::string(name) +
                           "' contains a blank, ',', '/' or '*'");
    }
  }
}

void checkLevel(int level) {
  if (level < TraceHandle::kMinLevel || level > TraceHandle::kMaxLevel) {
    throw RangeException("trace level " + std::to_string(level) + " is not in 0-9");
  }
}

}  // namespace

namespace detail {

// The process's handles, rules and sink. Built on first use and never destroyed, so that handles
// and the sink outlive every static that may still trace at exit.
class TraceRegistry {
 public:
  static TraceRegistry& instance() {
    static TraceRegistry* registry = new TraceRegistry();
    return *registry;
  }

  TraceHandle& handle(std::string_view name) {
    std::lock_guard lock(mutex_);
    auto it = handles_.find(name);
    if (it != handles_.end()) return *it->second;
    checkHandleName(name);
    auto* h = new TraceHandle(std::string(name), maskFor(name));
    handles_.emplace(h->name(), h);
    return *h;
  }

  void rulesIs(std::vector<TraceRule> rules) {
    std::lock_guard lock(mutex_);
    rules_ = std::move(rules);
    for (auto& [name, h] : handles_) h->levelsSet(maskFor(name));
  }

  std::string config() {
    std::lock_guard lock(mutex_);
    std::string out;
    for (const TraceRule& rule : rules_) {
      if (!out.empty()) out += ',';
      out += rule.text();
    }
    return out;
  }

  std::vector<std::pair<TraceHandle*, uint32_t>> levels() {
    std::lock_guard lock(mutex_);
    std::vector<std::pair<TraceHandle*, uint32_t>> out;
    out.reserve(handles_.size());
    for (auto& entry : handles_) out.emplace_back(entry.second, entry.second->levels());
    return out;
  }

  // Observers run under the lock, so that two changes of one handle reach its observer in the
  // order they were made.
  void levelsSet(TraceHandle& h, uint32_t mask) {
    std::lock_guard lock(mutex_);
    h.levelsSet(mask);
  }
  void observerIs(TraceHandle& h, TraceHandle::LevelsObserver observer) {
    std::lock_guard lock(mutex_);
    h.observer_.store(observer, std::memory_order_relaxed);
    if (observer) observer(h.levels());
  }

  std::shared_ptr<TraceSink> sink() {
    std::lock_guard lock(mutex_);
    return sink_;
  }
  void sinkIs(std::shared_ptr<TraceSink> sink) {
    if (!sink) sink = std::make_shared<StderrTraceSink>();
    std::lock_guard lock(mutex_);
    sink_.swap(sink);
    // The old sink is released after the lock, in case its destructor traces.
  }

 private:
  TraceRegistry() : sink_(std::make_shared<StderrTraceSink>()) {
    const char* config = std::getenv(kTraceEnvironmentVariable);
    if (!config) return;
    std::vector<std::string> errors;
    rules_ = parseRules(config, &errors);
    for (const std::string& error : errors) {
      std::fprintf(stderr, "%s: %s (skipped)\n", kTraceEnvironmentVariable, error.c_str());
    }
  }

  uint32_t maskFor(std::string_view name) const {
    uint32_t mask = 0;
    for (const TraceRule& rule : rules_) {
      if (rule.matches(name)) mask |= rule.mask();
    }
    return mask;
  }

  std::mutex mutex_;
  std::map<std::string, TraceHandle*, std::less<>> handles_;
  std::vector<TraceRule> rules_;
  std::shared_ptr<TraceSink> sink_;
};

}  // namespace detail

using detail::TraceRegistry;

TraceHandle& TraceHandle::handle(std::string_view name) {
  return TraceRegistry::instance().handle(name);
}

void TraceHandle::levelsSet(uint32_t mask) {
  levels_.store(mask, std::memory_order_relaxed);
  if (LevelsObserver observer = observer_.load(std::memory_order_relaxed)) observer(mask);
}

void TraceHandle::levelsIs(uint32_t mask) {
  if (mask & ~kAllLevels) {
    throw RangeException("trace levels mask " + std::to_string(mask) + " of " + name_ +
                         " has bits above level 9");
  }
  TraceRegistry::instance().levelsSet(*this, mask);
}

void TraceHandle::enable(int lo, int hi) {
  checkLevel(lo);
  checkLevel(hi);
  if (lo > hi) {
    throw RangeException("trace levels " + std::to_string(lo) + "-" + std::to_string(hi) +
                         " go from high to low");
  }
  const uint32_t range = ((2u << hi) - 1) & ~((1u << lo) - 1);
  TraceRegistry::instance().levelsSet(*this, levels() | range);
}

void TraceHandle::disable() { TraceRegistry::instance().levelsSet(*this, 0); }

void TraceHandle::levelsObserverIs(LevelsObserver observer) {
  TraceRegistry::instance().observerIs(*this, observer);
}

void TraceHandle::record(int level, std::string text, std::string_view source, int line,
                         std::string_view function) const {
  checkLevel(level);
  TraceRecord record{
      name_, level, std::move(text), std::string(source), line, std::string(function)};
  TraceRegistry::instance().sink()->write(record);
}

void traceConfigIs(std::string_view config) {
  TraceRegistry::instance().rulesIs(parseRules(config, nullptr));
}

std::string traceConfig() { return TraceRegistry::instance().config(); }

std::vector<std::string> traceConfigFromEnvironment() {
  // Build the registry first: its first use reads the variable too, and reports on stderr.
  TraceRegistry& registry = TraceRegistry::instance();
  std::vector<std::string> errors;
  const char* config = std::getenv(kTraceEnvironmentVariable);
  registry.rulesIs(parseRules(config ? config : "", &errors));
  return errors;
}

std::string traceLine(const TraceRecord& record) {
  std::string out;
  out.reserve(record.handle.size() + record.source.size() + record.function.size() +
              record.text.size() + 20);
  out += record.handle;
  out += '/';
  out += std::to_string(record.level);
  out += ' ';
  out += record.source;
  out += ':';
  out += std::to_string(record.line);
  out += ' ';
  out += record.function;
  out += ": ";
  out += record.text;
  return out;
}

void StderrTraceSink::write(const TraceRecord& record) {
  const std::string line = traceLine(record) + '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);
}

StreamTraceSink::StreamTraceSink(std::ostream* out) : out_(out) {
  if (!out) throw RangeException("null stream given to StreamTraceSink");
}

void StreamTraceSink::write(const TraceRecord& record) {
  const std::string line = traceLine(record);
  std::lock_guard lock(mutex_);
  *out_ << line << '\n';
}

FileTraceSink::FileTraceSink(const std::string& path)
    : path_(path), file_(std::fopen(path.c_str(), "a")) {
  if (!file_) {
    throw InvalidOperationException("cannot open trace file '" + path +
                                    "' for appending: " + std::strerror(errno));
  }
}

FileTraceSink::~FileTraceSink() { std::fclose(file_); }

void FileTraceSink::write(const TraceRecord& record) {
  const std::string line = traceLine(record) + '\n';
  // One stdio call per line: stdio locks the stream per call, so lines of threads do not mix.
  std::fwrite(line.data(), 1, line.size(), file_);
  std::fflush(file_);
}

void CaptureTraceSink::write(const TraceRecord& record) {
  std::lock_guard lock(mutex_);
  records_.push_back(record);
}

std::vector<TraceRecord> CaptureTraceSink::records() const {
  std::lock_guard lock(mutex_);
  return records_;
}

std::vector<std::string> CaptureTraceSink::texts() const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> out;
  out.reserve(records_.size());
  for (const TraceRecord& r : records_) out.push_back(r.text);
  return out;
}

std::vector<std::string> CaptureTraceSink::textsOf(std::string_view handleName) const {
  std::lock_guard lock(mutex_);
  std::vector<std::string> out;
  for (const TraceRecord& r : records_) {
    if (r.handle == handleName) out.push_back(r.text);
  }
  return out;
}

void CaptureTraceSink::clear() {
  std::lock_guard lock(mutex_);
  records_.clear();
}

void traceSinkIs(std::shared_ptr<TraceSink> sink) {
  TraceRegistry::instance().sinkIs(std::move(sink));
}

std::shared_ptr<TraceSink> traceSink() { return TraceRegistry::instance().sink(); }

ScopedTraceSettings::ScopedTraceSettings()
    : config_(traceConfig()), levels_(TraceRegistry::instance().levels()) {}

ScopedTraceSettings::~ScopedTraceSettings() {
  // The canonical form always parses back, so this cannot throw.
  traceConfigIs(config_);
  for (auto& [handle, mask] : levels_) TraceRegistry::instance().levelsSet(*handle, mask);
}

ScopedTraceCapture::ScopedTraceCapture(std::string_view config)
    : previous_(traceSink()), sink_(std::make_shared<CaptureTraceSink>()) {
  // The sink goes in last: if the config is malformed, the members' destructors undo the rest.
  traceConfigIs(config);
  traceSinkIs(sink_);
}

ScopedTraceCapture::~ScopedTraceCapture() { traceSinkIs(std::move(previous_)); }

}  // namespace Kel
