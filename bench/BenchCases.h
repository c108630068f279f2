// The workloads, each run as one case: one workload, one family, one table size, and either the
// library (as an agent uses it) or the plain computation of the same result beside it.
//
// A case returns its figures as rows (figure, value, unit, aim) and leaves workload, family and
// size to the driver. Every case checks its result before it reports anything: a wrong RIB
// configuration throws WrongResult, and a case that threw has no figures.
#pragma once

#include <string>
#include <vector>

#include "bench/BenchTable.h"
#include "bench/BenchWorld.h"

namespace Bench {

struct CaseParams {
  std::string workload;
  Family family = Family::ipv4;
  uint32_t routes = 0;
  bool plain = false;
  double churnSeconds = 3.0;
};

// Whether `workload` has a plain computation to compare with.
bool hasPlain(const std::string& workload);
std::vector<Row> runCase(const CaseParams& params);

// ---- The workloads (one source file each, or two where they share a table) ----
std::vector<Row> runInstall(const CaseParams& params);
std::vector<Row> runFailover(const CaseParams& params);
std::vector<Row> runReview(const CaseParams& params);
std::vector<Row> runPlainInstall(const CaseParams& params);
std::vector<Row> runPlainFailover(const CaseParams& params);
std::vector<Row> runFanOut(const CaseParams& params);
std::vector<Row> runLeaking(const CaseParams& params);
std::vector<Row> runPlainLeaking(const CaseParams& params);
std::vector<Row> runChurn(const CaseParams& params);

// `protorib-bench soak ARGS...` (BenchSoak.cpp): not a case of the suite but a run of its own,
// printing as it goes. Returns the exit status: 0 memory levelled off (or is levelling off) and the
// result is right, 1 memory kept growing, 2 bad arguments, 3 a wrong result, 4 another failure.
int runSoak(const std::vector<std::string>& args);

// ---- Making rows ----
Row figure(const std::string& name, double value, const std::string& unit, bool withRatio = false,
           Aim aim = {});
Aim atLeast(double bound, const std::string& text);
Aim atMost(double bound, const std::string& text);
Aim ratioAtMost(double bound, const std::string& text);

}  // namespace Bench
