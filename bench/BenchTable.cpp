#include "bench/BenchTable.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "platform/kel/Exception.h"

namespace Bench {

namespace {

constexpr uint64_t kMinRoutes = 1'000;
// IPv4 test prefixes are /24s from 64.0.0.0 up: 12.5 million of them fit below 255.255.255.0.
constexpr uint64_t kMaxRoutes = 10'000'000;
constexpr uint64_t kMaxSoakSeconds = 7 * 24 * 3600;
// Each line reads the process's memory maps and walks malloc's free lists: not something to do
// continuously.
constexpr double kMinSoakEvery = 0.1;

std::vector<std::string> splitList(const std::string& text, char sep) {
  std::vector<std::string> out;
  std::string cur;
  for (char c : text) {
    if (c == sep) {
      out.push_back(cur);
      cur.clear();
    } else {
      cur += c;
    }
  }
  out.push_back(cur);
  return out;
}

// The whole of `text` as a number, or a ParseException naming `what`.
double parseNumber(const std::string& text, const std::string& what) {
  if (text.empty()) throw Kel::ParseException(what + ": empty value");
  char* end = nullptr;
  const double v = std::strtod(text.c_str(), &end);
  if (end != text.c_str() + text.size() || !std::isfinite(v)) {
    throw Kel::ParseException(what + ": '" + text + "' is not a number");
  }
  return v;
}

uint64_t parseCount(const std::string& text, const std::string& what) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos ||
      text.size() > 12) {
    throw Kel::ParseException(what + ": '" + text + "' is not a whole number");
  }
  return std::stoull(text);
}

// A table size every workload can build.
uint64_t parseRoutes(const std::string& text, const std::string& what) {
  const uint64_t n = parseCount(text, what);
  if (n < kMinRoutes || n > kMaxRoutes || n % 10 != 0) {
    throw Kel::ParseException(what + ": " + text + " is not a multiple of 10 from " +
                              formatCount(kMinRoutes) + " to " + formatCount(kMaxRoutes));
  }
  return n;
}

// Walks a command line one argument at a time; an argument's value is either written into it
// (`--name=value`) or the argument after it (`--name value`).
class ArgReader {
 public:
  explicit ArgReader(const std::vector<std::string>& args) : args_(args) {}

  // Moves to the next argument; false past the last.
  bool next() {
    if (at_ >= args_.size()) return false;
    given_ = args_[at_++];
    name_ = given_;
    inline_.reset();
    if (auto eq = given_.find('='); given_.rfind("--", 0) == 0 && eq != std::string::npos) {
      name_ = given_.substr(0, eq);
      inline_ = given_.substr(eq + 1);
    }
    return true;
  }
  // The argument without its written-in value, and as it was given.
  const std::string& name() const noexcept { return name_; }
  const std::string& given() const noexcept { return given_; }
  // The argument's value; taking it from the next argument consumes that one.
  std::string value() {
    if (inline_) return *inline_;
    if (at_ >= args_.size()) throw Kel::ParseException(name_ + " needs a value");
    return args_[at_++];
  }

 private:
  const std::vector<std::string>& args_;
  size_t at_ = 0;
  std::string given_, name_;
  std::optional<std::string> inline_;
};

}  // namespace

std::string formatCount(uint64_t v) {
  std::string digits = std::to_string(v);
  std::string out;
  for (size_t i = 0; i < digits.size(); ++i) {
    if (i != 0 && (digits.size() - i) % 3 == 0) out += ',';
    out += digits[i];
  }
  return out;
}

namespace {

std::string exact(double v) {
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.17g", v);
  return buf;
}

const char* kindName(Aim::Kind k) {
  switch (k) {
    case Aim::Kind::atMost: return "max";
    case Aim::Kind::atLeast: return "min";
    case Aim::Kind::ratioAtMost: return "ratio-max";
    case Aim::Kind::none: break;
  }
  return "-";
}

Aim::Kind kindOf(const std::string& name) {
  if (name == "-") return Aim::Kind::none;
  if (name == "max") return Aim::Kind::atMost;
  if (name == "min") return Aim::Kind::atLeast;
  if (name == "ratio-max") return Aim::Kind::ratioAtMost;
  throw Kel::ParseException("case output: unknown aim kind '" + name + "'");
}

void checkField(const std::string& s, const char* what) {
  if (s.empty() || s.find_first_of("\t\n") != std::string::npos) {
    throw Kel::RangeException(std::string("row ") + what + " '" + s +
                              "' is empty or holds a tab or newline");
  }
}

bool sameCase(const Row& a, const Row& b) {
  return a.workload == b.workload && a.family == b.family && a.routes == b.routes;
}

std::string jsonString(const std::string& s) {
  std::string out = "\"";
  for (unsigned char c : s) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out + "\"";
}

std::string jsonNumber(std::optional<double> v) {
  if (!v || !std::isfinite(*v)) return "null";
  return exact(*v);
}

}  // namespace

const std::vector<std::string>& workloadNames() {
  static const std::vector<std::string> names{"install", "failover", "fanout",
                                              "review",  "leaking",  "churn"};
  return names;
}

std::string usage() {
  return "usage: protorib-bench [--routes N,N...] [--only WORKLOAD,...] [--quick] [--json FILE]\n"
         "                      [--repeat N] [--churn-seconds S]\n"
         "       protorib-bench micro [Google Benchmark flags]\n"
         "       protorib-bench soak [--routes N] [--family ipv4|ipv6] [--seconds S] [--every S]\n"
         "\n"
         "Runs every workload (install, failover, fanout, review, leaking, churn) at each table "
         "size\n"
         "(default 100000,1000000), IPv4 and IPv6, through the library as an agent uses it, and\n"
         "prints one table with the plain computation and the aims beside the figures.\n"
         "  --routes N,...       table sizes, each a multiple of 10 from 1000 to 10000000\n"
         "  --only W,...         run only these workloads\n"
         "  --quick              100000 routes only and a 1-second churn: a smoke run\n"
         "  --json FILE          also write the rows to FILE as JSON\n"
         "  --repeat N           run each case N times (1 to 9) and report the medians\n"
         "  --churn-seconds S    how long the churn stream runs (default 3)\n"
         "  micro                the hash-table micro-benchmarks (Google Benchmark)\n"
         "  soak                 one table under the churn stream for minutes or hours, memory\n"
         "                       printed as it goes (see soak --help)\n";
}

Options parseOptions(const std::vector<std::string>& args) {
  Options o;
  bool routesGiven = false, churnGiven = false;
  ArgReader arg(args);
  while (arg.next()) {
    const std::string& name = arg.name();
    if (name == "--help" || name == "-h") {
      o.help = true;
    } else if (name == "--quick") {
      o.quick = true;
    } else if (name == "--routes") {
      o.routes.clear();
      for (const auto& item : splitList(arg.value(), ',')) {
        o.routes.push_back(parseRoutes(item, "--routes"));
      }
      routesGiven = true;
    } else if (name == "--only") {
      o.only.clear();
      for (const auto& item : splitList(arg.value(), ',')) {
        const auto& names = workloadNames();
        if (std::find(names.begin(), names.end(), item) == names.end()) {
          throw Kel::ParseException("--only: unknown workload '" + item +
                                    "' (install, failover, fanout, review, leaking, churn)");
        }
        if (std::find(o.only.begin(), o.only.end(), item) == o.only.end()) o.only.push_back(item);
      }
    } else if (name == "--json") {
      o.json = arg.value();
      if (o.json->empty()) throw Kel::ParseException("--json needs a file name");
    } else if (name == "--repeat") {
      const uint64_t n = parseCount(arg.value(), "--repeat");
      if (n < 1 || n > 9)
        throw Kel::ParseException("--repeat: " + std::to_string(n) + " is not from 1 to 9");
      o.repeat = static_cast<unsigned>(n);
    } else if (name == "--churn-seconds") {
      const double s = parseNumber(arg.value(), "--churn-seconds");
      if (!(s > 0 && s <= 600))
        throw Kel::ParseException("--churn-seconds: expected more than 0 and at most 600");
      o.churnSeconds = s;
      churnGiven = true;
    } else {
      throw Kel::ParseException("unknown argument '" + arg.given() + "' (try --help)");
    }
  }
  if (o.quick) {
    if (!routesGiven) o.routes = {100'000};
    if (!churnGiven) o.churnSeconds = 1.0;
  }
  return o;
}

SoakOptions parseSoakOptions(const std::vector<std::string>& args) {
  SoakOptions o;
  bool everyGiven = false;
  ArgReader arg(args);
  while (arg.next()) {
    const std::string& name = arg.name();
    if (name == "--help" || name == "-h") {
      o.help = true;
    } else if (name == "--routes") {
      o.routes = parseRoutes(arg.value(), "--routes");
    } else if (name == "--family") {
      const std::string f = arg.value();
      if (f != "ipv4" && f != "ipv6")
        throw Kel::ParseException("--family: '" + f + "' is not ipv4 or ipv6");
      o.ipv6 = f == "ipv6";
    } else if (name == "--seconds") {
      o.seconds = parseNumber(arg.value(), "--seconds");
      if (!(o.seconds > 0 && o.seconds <= kMaxSoakSeconds)) {
        throw Kel::ParseException("--seconds: expected more than 0 and at most " +
                                  formatCount(kMaxSoakSeconds) + " (a week)");
      }
    } else if (name == "--every") {
      o.every = parseNumber(arg.value(), "--every");
      everyGiven = true;
      if (!(o.every >= kMinSoakEvery))
        throw Kel::ParseException("--every: expected at least 0.1 (seconds)");
    } else {
      throw Kel::ParseException("unknown soak argument '" + arg.given() + "' (try soak --help)");
    }
  }
  // Checked once both are known, whichever came first; a short run without an interval of its
  // own gets one line, at its end.
  if (!everyGiven) o.every = std::min(o.every, o.seconds);
  if (o.every > o.seconds) {
    throw Kel::ParseException("--every: " + formatNumber(o.every) + " s is longer than the run (" +
                              formatNumber(o.seconds) + " s)");
  }
  return o;
}

std::string soakUsage() {
  return "usage: protorib-bench soak [--routes N] [--family ipv4|ipv6] [--seconds S] [--every S]\n"
         "\n"
         "Loads one table into the agent, runs the churn workload's stream of changes into it for\n"
         "a set time and prints, at intervals, the changes made and the memory in use; at the end\n"
         "checks the RIB configuration and says whether memory levelled off. Exit status: 0\n"
         "levelled off (or levelling off) and right, 1 memory kept growing, 2 bad arguments,\n"
         "3 a wrong result.\n"
         "  --routes N           routes in the table, a multiple of 10 from 1000 to 10000000\n"
         "                       (default 1000000)\n"
         "  --family F           ipv4 or ipv6 (default ipv4)\n"
         "  --seconds S          how long the stream runs (default 600)\n"
         "  --every S            seconds between two lines (default 30, or S when shorter)\n";
}

bool selected(const Options& o, const std::string& workload) {
  return o.only.empty() || std::find(o.only.begin(), o.only.end(), workload) != o.only.end();
}

std::string caseLine(const Row& r) {
  checkField(r.figure, "figure");
  checkField(r.unit, "unit");
  const std::string text = r.aim.text.empty() ? "-" : r.aim.text;
  checkField(text, "aim");
  return "row\t" + r.figure + "\t" + exact(r.value) + "\t" + r.unit + "\t" +
         (r.withRatio ? "ratio" : "-") + "\t" + kindName(r.aim.kind) + "\t" + exact(r.aim.bound) +
         "\t" + text;
}

std::optional<Row> parseCaseLine(const std::string& line) {
  if (line.rfind("row\t", 0) != 0) return std::nullopt;
  const auto f = splitList(line, '\t');
  if (f.size() != 8) {
    throw Kel::ParseException("case output: a row has " + std::to_string(f.size()) +
                              " fields, not 8: '" + line + "'");
  }
  Row r;
  r.figure = f[1];
  r.value = parseNumber(f[2], "case output value of '" + f[1] + "'");
  r.unit = f[3];
  if (f[4] != "ratio" && f[4] != "-")
    throw Kel::ParseException("case output: bad ratio flag '" + f[4] + "'");
  r.withRatio = f[4] == "ratio";
  r.aim.kind = kindOf(f[5]);
  r.aim.bound = parseNumber(f[6], "case output aim of '" + f[1] + "'");
  r.aim.text = f[7] == "-" ? "" : f[7];
  return r;
}

std::vector<Row> medianOf(const std::vector<std::vector<Row>>& runs) {
  if (runs.empty()) return {};
  std::vector<Row> out = runs.front();
  for (Row& row : out) {
    std::vector<double> values;
    for (const auto& run : runs) {
      auto it = std::find_if(run.begin(), run.end(), [&](const Row& r) {
        return sameCase(r, row) && r.figure == row.figure;
      });
      if (it == run.end()) {
        throw Kel::InvalidOperationException("figure '" + row.figure + "' of " + row.workload +
                                             " is missing from a repeated run");
      }
      values.push_back(it->value);
    }
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    row.value = n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
  }
  return out;
}

void mergePlain(std::vector<Row>& rows, const std::vector<Row>& plain) {
  for (Row& r : rows) {
    auto it = std::find_if(plain.begin(), plain.end(),
                           [&](const Row& p) { return sameCase(p, r) && p.figure == r.figure; });
    if (it == plain.end()) continue;
    r.plain = it->value;
    if (r.withRatio && it->value != 0) r.ratio = r.value / it->value;
  }
}

void decideAims(std::vector<Row>& rows) {
  for (Row& r : rows) {
    switch (r.aim.kind) {
      case Aim::Kind::none: r.met.reset(); break;
      case Aim::Kind::atMost: r.met = r.value <= r.aim.bound; break;
      case Aim::Kind::atLeast: r.met = r.value >= r.aim.bound; break;
      case Aim::Kind::ratioAtMost:
        if (r.ratio) {
          r.met = *r.ratio <= r.aim.bound;
        } else {
          r.met.reset();
        }
        break;
    }
  }
}

std::string formatNumber(double v) {
  if (std::isnan(v)) return "-";
  if (std::isinf(v)) return v > 0 ? "inf" : "-inf";
  const double a = std::fabs(v);
  char buf[48];
  // The thresholds sit where rounding would carry into one more digit (999.6 shows as 1,000).
  if (a >= 999.5) {
    const double rounded = std::round(a);
    if (rounded >= 1e18) {
      std::snprintf(buf, sizeof buf, "%.3g", v);
      return buf;
    }
    return (v < 0 ? "-" : "") + formatCount(static_cast<uint64_t>(rounded));
  }
  if (a == 0) return "0";
  if (a >= 99.95) {
    std::snprintf(buf, sizeof buf, "%.0f", v);
  } else if (a >= 9.995) {
    std::snprintf(buf, sizeof buf, "%.1f", v);
  } else if (a >= 0.9995) {
    std::snprintf(buf, sizeof buf, "%.2f", v);
  } else {
    std::snprintf(buf, sizeof buf, "%.3g", v);
  }
  return buf;
}

std::string formatTable(const std::vector<Row>& rows) {
  const std::vector<std::string> header{"workload", "family", "routes", "figure", "value",
                                        "unit",     "plain",  "ratio",  "aim",    "met?"};
  // Numbers read best right-aligned.
  const std::vector<bool> right{false, false, true, false, true, false, true, true, false, false};
  std::vector<std::vector<std::string>> cells{header};
  for (const Row& r : rows) {
    char ratio[32] = "";
    if (r.ratio) std::snprintf(ratio, sizeof ratio, "%.2fx", *r.ratio);
    cells.push_back({r.workload, r.family, formatCount(r.routes), r.figure, formatNumber(r.value),
                     r.unit, r.plain ? formatNumber(*r.plain) : "", ratio, r.aim.text,
                     r.met ? (*r.met ? "yes" : "NO") : ""});
  }
  std::vector<size_t> width(header.size(), 0);
  for (const auto& line : cells) {
    for (size_t c = 0; c < line.size(); ++c) width[c] = std::max(width[c], line[c].size());
  }
  std::ostringstream out;
  auto emit = [&](const std::vector<std::string>& line) {
    std::string text;
    for (size_t c = 0; c < line.size(); ++c) {
      const std::string pad(width[c] - line[c].size(), ' ');
      if (c != 0) text += "  ";
      text += right[c] ? pad + line[c] : line[c] + pad;
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    out << text << '\n';
  };
  emit(cells.front());
  std::vector<std::string> rule;
  for (size_t w : width) rule.emplace_back(w, '-');
  emit(rule);
  for (size_t i = 1; i < cells.size(); ++i) emit(cells[i]);
  return out.str();
}

std::string formatJson(const std::vector<Row>& rows,
                       const std::map<std::string, std::string>& meta) {
  std::ostringstream out;
  out << "{\n  \"run\": {";
  bool first = true;
  for (const auto& [k, v] : meta) {
    out << (first ? "\n" : ",\n") << "    " << jsonString(k) << ": " << jsonString(v);
    first = false;
  }
  out << (meta.empty() ? "},\n" : "\n  },\n") << "  \"rows\": [";
  for (size_t i = 0; i < rows.size(); ++i) {
    const Row& r = rows[i];
    out << (i ? ",\n" : "\n") << "    {\"workload\": " << jsonString(r.workload)
        << ", \"family\": " << jsonString(r.family) << ", \"routes\": " << r.routes
        << ", \"figure\": " << jsonString(r.figure) << ", \"value\": " << jsonNumber(r.value)
        << ", \"unit\": " << jsonString(r.unit) << ", \"plain\": " << jsonNumber(r.plain)
        << ", \"ratio\": " << jsonNumber(r.ratio)
        << ", \"aim\": " << (r.aim.text.empty() ? "null" : jsonString(r.aim.text))
        << ", \"met\": " << (r.met ? (*r.met ? "true" : "false") : "null") << "}";
  }
  out << (rows.empty() ? "]\n}\n" : "\n  ]\n}\n");
  return out.str();
}

}  // namespace Bench
