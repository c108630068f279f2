#include "tests/oracle/Differential.h"

#include <algorithm>
#include <sstream>

#include "agent/Agent.h"
#include "agent/Script.h"
#include "tests/oracle/AgentView.h"
#include "tests/oracle/ScriptOracle.h"

namespace Routing::Protocol::Oracle {

namespace {

std::string diff(const std::vector<std::string>& agent, const std::vector<std::string>& oracle) {
  std::vector<std::string> onlyAgent, onlyOracle;
  std::set_difference(agent.begin(), agent.end(), oracle.begin(), oracle.end(),
                      std::back_inserter(onlyAgent));
  std::set_difference(oracle.begin(), oracle.end(), agent.begin(), agent.end(),
                      std::back_inserter(onlyOracle));
  std::string s;
  for (const auto& l : onlyAgent) s += "  agent only:  " + l + "\n";
  for (const auto& l : onlyOracle) s += "  oracle only: " + l + "\n";
  return s;
}

}  // namespace

Verdict runDifferential(const std::vector<std::string>& script) {
  Verdict verdict;
  std::ostringstream sink;
  Agent::Agent agent(sink);
  ScriptOracle oracle;
  for (size_t i = 0; i < script.size(); ++i) {
    const std::string& line = script[i];
    std::string refusal;
    bool agentAccepted = true;
    try {
      if (auto c = Agent::parseLine(line)) agent.execute(*c);
    } catch (const std::exception& e) {
      agentAccepted = false;
      refusal = e.what();
    }
    const bool oracleAccepted = oracle.apply(line);
    const std::string where = "line " + std::to_string(i + 1) + " '" + line + "': ";
    if (agentAccepted != oracleAccepted) {
      verdict.mismatch = true;
      verdict.report =
          where + (agentAccepted ? "the agent accepted a command the oracle refuses\n"
                                 : "the agent refused a valid command: " + refusal + "\n");
      return verdict;
    }
    if (!agentAccepted) ++verdict.refused;
    if (line != "run") continue;
    ++verdict.compared;
    const auto got = agentView(agent);
    const auto want = oracle.expected();
    for (const auto& l : want)
      verdict.routes += l.rfind("rib ", 0) == 0 || l.rfind("leak ", 0) == 0;
    if (got != want) {
      verdict.mismatch = true;
      verdict.report = where + "the agent's state differs from the oracle's\n" + diff(got, want);
      return verdict;
    }
  }
  return verdict;
}

std::vector<std::string> shrinkScript(const std::vector<std::string>& script, size_t maxRuns) {
  return shrinkScript(
      script, [](const std::vector<std::string>& s) { return runDifferential(s).mismatch; },
      maxRuns);
}

std::vector<std::string> shrinkScript(const std::vector<std::string>& script,
                                      const ScriptPredicate& fails, size_t maxRuns) {
  std::vector<std::string> best = script;
  size_t runs = 0;
  size_t chunks = 2;
  while (best.size() >= 2 && runs < maxRuns) {
    const size_t size = (best.size() + chunks - 1) / chunks;
    bool dropped = false;
    for (size_t start = 0; start < best.size() && runs < maxRuns; start += size) {
      std::vector<std::string> candidate(best.begin(),
                                         best.begin() + static_cast<std::ptrdiff_t>(start));
      candidate.insert(
          candidate.end(),
          best.begin() + static_cast<std::ptrdiff_t>(std::min(best.size(), start + size)),
          best.end());
      ++runs;
      if (fails(candidate)) {
        best = std::move(candidate);
        dropped = true;
        break;
      }
    }
    if (dropped) {
      chunks = std::max<size_t>(chunks - 1, 2);
    } else if (size == 1) {
      break;
    } else {
      chunks = std::min(best.size(), chunks * 2);
    }
  }
  return best;
}

std::string scriptText(const std::vector<std::string>& script) {
  std::string s;
  for (const auto& l : script) s += l + "\n";
  return s + "show rib\nshow leaked\nshow readiness\n";
}

}  // namespace Routing::Protocol::Oracle
