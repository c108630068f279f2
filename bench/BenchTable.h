// The suite's command line, its rows and the two forms they are printed in.
//
// The driver runs every case (one workload, one family, one table size, library or plain side)
// in a process of its own, so that each starts from a fresh heap: memory figures are deltas of
// the heap and of the resident set, and a process that already freed a million routes would
// serve the next million from its free lists and report nothing. A case prints one line per
// figure (`caseLine`); the driver reads them back (`parseCaseLine`), puts each plain figure beside
// the library figure of the same name, works out the ratios and whether each aim is met, and
// prints one table (`formatTable`) and optionally the same rows as JSON (`formatJson`).
//
// Nothing here measures anything: it is the part of the driver that can be tested on its own.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Bench {

// What the issue asks of a figure. `onRatio` aims bound the library-to-plain ratio, the others
// the value itself.
struct Aim {
  enum class Kind { none, atMost, atLeast, ratioAtMost };
  Kind kind = Kind::none;
  double bound = 0;
  std::string text;  // as the table shows it, e.g. ">= 1,000,000/s"

  bool operator==(const Aim&) const = default;
};

struct Row {
  std::string workload;
  std::string family;  // "IPv4", "IPv6"
  uint64_t routes = 0;
  std::string figure;
  double value = 0;
  std::string unit;
  // Whether a plain figure of the same name gives this row a ratio (value / plain): time and
  // memory figures do, rates only show the plain rate beside.
  bool withRatio = false;
  Aim aim;
  std::optional<double> plain;
  std::optional<double> ratio;
  std::optional<bool> met;
};

// ---- Options ----

struct Options {
  std::vector<uint64_t> routes{100'000, 1'000'000};
  std::vector<std::string> only;  // empty: every workload
  std::optional<std::string> json;
  unsigned repeat = 1;
  double churnSeconds = 3.0;
  bool quick = false;
  bool help = false;
};

// The soak's command line: `protorib-bench soak [options]`.
struct SoakOptions {
  uint64_t routes = 1'000'000;
  bool ipv6 = false;
  double seconds = 600;
  double every = 30;  // seconds between two printed lines
  bool help = false;
};

// The workloads, in the order they run and print.
const std::vector<std::string>& workloadNames();

// Parses the driver's arguments (without the program name). Bad input throws
// Kel::ParseException naming the argument and what was expected.
Options parseOptions(const std::vector<std::string>& args);
std::string usage();
// The same for the soak's arguments (after `soak`).
SoakOptions parseSoakOptions(const std::vector<std::string>& args);
std::string soakUsage();
bool selected(const Options& o, const std::string& workload);

// ---- A case's output, one line per figure ----

std::string caseLine(const Row& r);
// The row of `line`, with workload, family and routes left for the caller to fill in; nullopt
// for a line that is not a row (a case may print notes). A malformed row throws
// Kel::ParseException.
std::optional<Row> parseCaseLine(const std::string& line);

// ---- Putting the run together ----

// One case run `runs.size()` times: each figure of the first run with the median of its values
// over the runs (a figure missing from a run throws Kel::InvalidOperationException: the runs
// of one case print the same figures).
std::vector<Row> medianOf(const std::vector<std::vector<Row>>& runs);

// Gives each row with a plain figure of the same workload, family, size and name its plain value
// and ratio, then decides every aim. Plain rows are consumed.
void mergePlain(std::vector<Row>& rows, const std::vector<Row>& plain);
void decideAims(std::vector<Row>& rows);

// A number as the table shows it: whole, with thousands separated, from 1,000 up; else three
// significant digits.
std::string formatNumber(double v);
// A count with thousands separated: 1,000,000.
std::string formatCount(uint64_t v);
std::string formatTable(const std::vector<Row>& rows);
// `meta` goes into the document's "run" object (commit, machine, date).
std::string formatJson(const std::vector<Row>& rows,
                       const std::map<std::string, std::string>& meta);

}  // namespace Bench
