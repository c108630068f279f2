#include "bench/BenchCases.h"

#include "platform/kel/Exception.h"

namespace Bench {

bool hasPlain(const std::string& workload) {
  return workload == "install" || workload == "failover" || workload == "leaking";
}

std::vector<Row> runCase(const CaseParams& params) {
  const std::string& w = params.workload;
  if (params.plain) {
    if (w == "install") return runPlainInstall(params);
    if (w == "failover") return runPlainFailover(params);
    if (w == "leaking") return runPlainLeaking(params);
    throw Kel::InvalidOperationException("workload '" + w + "' has no plain computation");
  }
  if (w == "install") return runInstall(params);
  if (w == "failover") return runFailover(params);
  if (w == "fanout") return runFanOut(params);
  if (w == "review") return runReview(params);
  if (w == "leaking") return runLeaking(params);
  if (w == "churn") return runChurn(params);
  throw Kel::InvalidOperationException("unknown workload '" + w + "'");
}

Row figure(const std::string& name, double value, const std::string& unit, bool withRatio,
           Aim aim) {
  Row r;
  r.figure = name;
  r.value = value;
  r.unit = unit;
  r.withRatio = withRatio;
  r.aim = std::move(aim);
  return r;
}

Aim atLeast(double bound, const std::string& text) { return Aim{Aim::Kind::atLeast, bound, text}; }
Aim atMost(double bound, const std::string& text) { return Aim{Aim::Kind::atMost, bound, text}; }
Aim ratioAtMost(double bound, const std::string& text) {
  return Aim{Aim::Kind::ratioAtMost, bound, text};
}

}  // namespace Bench
