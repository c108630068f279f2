// Runs one script through a fresh agent and a fresh ScriptOracle side by side, and cuts a failing
// script down to the lines that still make it fail.
//
// Every line goes to both. They must agree on whether the line is refused (a refused line changes
// nothing on either side), and after every `run` -- the loop is then idle -- the agent's view
// (AgentView.h) must equal the oracle's from-scratch computation. The first disagreement ends the
// run and is described in `Verdict::report`.
//
// Shrinking is delta debugging over lines: drop a chunk, keep the drop if the script still fails,
// halve the chunks when no drop works, until single lines cannot be dropped (or the budget of
// runs is spent). "Still fails" means any mismatch, not the same one: a shorter script that shows
// a different fault is as useful, and the report printed is the shortest script's own.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace Routing::Protocol::Oracle {

struct Verdict {
  bool mismatch = false;
  std::string report;   // what differed, at which line
  size_t refused = 0;   // lines both sides refused
  size_t compared = 0;  // states compared (one per run)
  size_t routes = 0;    // RIB routes and leaks among the lines compared
};

Verdict runDifferential(const std::vector<std::string>& script);

using ScriptPredicate = std::function<bool(const std::vector<std::string>&)>;

// The shortest script found from `script` for which `fails` still holds (it must hold for
// `script`); at most `maxRuns` calls of `fails`.
std::vector<std::string> shrinkScript(const std::vector<std::string>& script,
                                      const ScriptPredicate& fails, size_t maxRuns = 3000);
// Shrinks a script that runDifferential finds failing.
std::vector<std::string> shrinkScript(const std::vector<std::string>& script,
                                      size_t maxRuns = 3000);

// The script as a file protorib-agent can run: the lines, then what to look at.
std::string scriptText(const std::vector<std::string>& script);

}  // namespace Routing::Protocol::Oracle
