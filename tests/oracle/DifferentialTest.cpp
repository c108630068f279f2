// The randomized differential test: per seed, a random script of agent and RIB events runs
// through the agent and through ScriptOracle, and after every `run` the agent's RIB route
// configuration, leaked routes and readiness flags must equal the oracle's from-scratch
// computation. A failure prints the seed and the shortest failing script found, ready to save and
// run with protorib-agent.
//
//   PROTORIB_ORACLE_SEEDS        sequences to run (default 3000)
//   PROTORIB_ORACLE_SEED_START   first seed (default 1)
//   PROTORIB_ORACLE_EVENTS       events per sequence (default 150)
//
// A long run: PROTORIB_ORACLE_SEEDS=100000 build/default/tests/protorib-tests
// --gtest_filter='Differential*'
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <iostream>

#include "tests/agent/AgentHarness.h"
#include "tests/oracle/AgentView.h"
#include "tests/oracle/Differential.h"
#include "tests/oracle/ScriptGenerator.h"
#include "tests/oracle/ScriptOracle.h"

namespace Routing::Protocol::Oracle {

namespace {

uint64_t envNumber(const char* name, uint64_t fallback) {
  const char* v = std::getenv(name);
  if (!v || !*v) return fallback;
  char* end = nullptr;
  const unsigned long long n = std::strtoull(v, &end, 10);
  if (*end != '\0') {
    ADD_FAILURE() << name << "='" << v << "' is not a number";
    return fallback;
  }
  return n;
}

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    if (end > start) out.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return out;
}

std::vector<std::string> oracleAfter(const std::string& script) {
  ScriptOracle o;
  for (const auto& l : lines(script)) o.apply(l);
  return o.expected();
}

std::vector<std::string> ribLines(const std::vector<std::string>& all) {
  std::vector<std::string> out;
  for (const auto& l : all) {
    if (l.rfind("rib ", 0) == 0 || l.rfind("leak ", 0) == 0) out.push_back(l);
  }
  return out;
}

}  // namespace

TEST(Differential, RandomScriptsMatchTheFromScratchComputation) {
  const uint64_t seeds = envNumber("PROTORIB_ORACLE_SEEDS", 3000);
  const uint64_t first = envNumber("PROTORIB_ORACLE_SEED_START", 1);
  const auto events = static_cast<unsigned>(envNumber("PROTORIB_ORACLE_EVENTS", 150));
  const auto began = std::chrono::steady_clock::now();
  uint64_t lineCount = 0, refused = 0, compared = 0, routes = 0, failures = 0;
  for (uint64_t seed = first; seed < first + seeds; ++seed) {
    const auto script = generateScript(GeneratorOptions{seed, events});
    const Verdict v = runDifferential(script);
    lineCount += script.size();
    refused += v.refused;
    compared += v.compared;
    routes += v.routes;
    if (!v.mismatch) continue;
    ++failures;
    // Shrinking takes a while; the first few failing seeds are enough to act on.
    if (failures > 3) {
      ADD_FAILURE() << "seed " << seed << " fails as well";
      continue;
    }
    const auto shortest = shrinkScript(script);
    ADD_FAILURE() << "seed " << seed << " (PROTORIB_ORACLE_SEED_START=" << seed
                  << " PROTORIB_ORACLE_SEEDS=1 PROTORIB_ORACLE_EVENTS=" << events
                  << "): " << v.report << "shortest failing script (" << shortest.size() << " of "
                  << script.size() << " lines):\n"
                  << scriptText(shortest) << "which fails as: " << runDifferential(shortest).report;
  }
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
  std::cout << "[ oracle ] seeds " << first << ".." << first + seeds - 1 << ": " << seeds
            << " sequences, " << seeds * events << " events, " << lineCount << " lines (" << refused
            << " refused by both), " << compared << " states compared (" << routes
            << " RIB routes and leaks), " << failures << " failing, " << seconds << " s\n";
  // A generator that mostly writes refused commands would test nothing.
  EXPECT_LT(refused * 10, lineCount);
}

TEST(Differential, ShrinkKeepsOnlyTheLinesThatMakeTheScriptFail) {
  std::vector<std::string> script;
  for (int i = 0; i < 40; ++i) script.push_back("line " + std::to_string(i));
  auto has = [](const std::vector<std::string>& s, const std::string& l) {
    return std::find(s.begin(), s.end(), l) != s.end();
  };
  size_t calls = 0;
  const auto shortest = shrinkScript(script, [&](const std::vector<std::string>& s) {
    ++calls;
    return has(s, "line 3") && has(s, "line 27") && has(s, "line 28");
  });
  EXPECT_EQ(shortest, (std::vector<std::string>{"line 3", "line 27", "line 28"}));
  EXPECT_LT(calls, 200u);
}

TEST(Differential, CommandsBothSidesRefuseChangeNothing) {
  // A second start, a route before its VRF, a VRF id taken twice, removing what is not there.
  const Verdict v =
      runDifferential({"start cold", "start cold", "route add red 10.1.0.0/16 pref 1 via 10.0.0.1",
                       "vrf add red 5", "vrf add blue 5", "route del red 10.1.0.0/16",
                       "vrf del default", "metric red ipv4 10.0.0.1 resolved",
                       "route add red 10.1.0.0/16 pref 1 via 10.0.0.1", "run"});
  EXPECT_FALSE(v.mismatch) << v.report;
  EXPECT_EQ(v.refused, 5u);
  EXPECT_EQ(v.compared, 1u);
}

TEST(ScriptOracle, LabelledViaDiscardsTheUnlabelledOnesWhateverTheirOrder) {
  const auto got = oracleAfter(
      "start cold\nvrf add red 5\n"
      "metric red ipv4 10.0.0.1 resolved\nmetric red ipv4 10.0.0.5 resolved\nmetric red ipv4 "
      "10.0.0.2 resolved\n"
      "route add red 10.1.0.0/16 pref 1 via 10.0.0.1 via 10.0.0.5 label 1005 via 10.0.0.2\n");
  EXPECT_EQ(
      ribLines(got),
      (std::vector<std::string>{
          "rib red ipv4 10.1.0.0/16 pref 1 fec 0 flags 2 labelled 1 vias [ipv4/5 10.0.0.5 label "
          "1005] nofib 0 fib forward tag 0 src 0"}));
}

TEST(ScriptOracle, FirstAlternativeWithAUsableViaWinsAndFecTwoWinsEmpty) {
  const auto got = oracleAfter(
      "start cold\nvrf add red 5\nmetric red ipv4 10.0.0.2 resolved\n"
      "route add red 10.1.0.0/16 pref 1 via 10.0.0.1\nroute add red 10.1.0.0/16 pref 2 via "
      "10.0.0.2 tag 7\n"
      "route add red 10.2.0.0/16 pref 1 via 10.0.0.1 fec 2 nofib fib-type drop src-vrf 3\n"
      "route add red 10.3.0.0/16 pref 1 via 10.0.0.1\n");
  EXPECT_EQ(ribLines(got),
            (std::vector<std::string>{"rib red ipv4 10.1.0.0/16 pref 2 fec 0 flags 2 labelled 0 "
                                      "vias [ipv4/5 10.0.0.2] nofib 0 fib forward "
                                      "tag 7 src 0",
                                      "rib red ipv4 10.2.0.0/16 pref 1 fec 2 flags 2 labelled 0 "
                                      "vias [] nofib 1 fib drop tag 0 src 3"}));
}

TEST(ScriptOracle, LoopCheckedViaOfALoopingPrefixAndDownSessionsAreUnusable) {
  const std::string base =
      "start cold\nvrf add red 5\nmetric red ipv4 10.0.0.1 resolved loopcheck\nmetric red ipv4 "
      "10.0.0.2 resolved\n"
      "route add red 10.1.0.0/16 pref 1 via 10.0.0.1 via 10.0.0.2\nlooping red 10.1.0.0/16 on\n";
  EXPECT_EQ(ribLines(oracleAfter(base)),
            (std::vector<std::string>{
                "rib red ipv4 10.1.0.0/16 pref 1 fec 0 flags 2 labelled 0 vias [ipv4/5 "
                "10.0.0.2] nofib 0 fib forward tag 0 src 0"}));
  // Tracking 10.0.0.2 without a session, then down, takes it out; admin-down puts it back.
  EXPECT_TRUE(ribLines(oracleAfter(base + "bfd track red 10.1.0.0/16 10.0.0.2\n")).empty());
  EXPECT_TRUE(
      ribLines(
          oracleAfter(base + "bfd track red 10.1.0.0/16 10.0.0.2\nbfd session red 10.0.0.2 init\n"))
          .empty());
  EXPECT_EQ(
      ribLines(
          oracleAfter(base +
                      "bfd track red 10.1.0.0/16 10.0.0.2\nbfd session red 10.0.0.2 admin-down\n"))
          .size(),
      1u);
}

TEST(ScriptOracle, EvpnViaNeedsItsOwnMetricAndItsCompanions) {
  const std::string base =
      "start cold\nvrf add red 5\nroute add red 10.5.0.0/16 pref 1 evpn 10.9.9.1 vni 100 vtep "
      "172.16.0.1\n"
      "metric red evpn 10.9.9.1 vni 100 resolved\n";
  EXPECT_TRUE(ribLines(oracleAfter(base)).empty());
  EXPECT_EQ(ribLines(oracleAfter(base + "metric default ipv4 172.16.0.1 resolved\n")),
            (std::vector<std::string>{
                "rib red ipv4 10.5.0.0/16 pref 1 fec 0 flags 2 labelled 0 vias [evpn/5 10.9.9.1 "
                "vni 100] nofib 0 fib forward tag 0 src 0"}));
}

TEST(ScriptOracle, LowestSourceVrfIdWinsALeakedPrefixAndNoVrfLeaksIntoItself) {
  const auto got = oracleAfter(
      "start cold\nvrf add red 5\nvrf add blue 6\nvrf add yellow 3\n"
      "route add red 10.9.0.0/16 pref 1 via 10.0.0.1 leak-to blue\n"
      "route add yellow 10.9.0.0/16 pref 1 via 10.0.0.1 leak-to blue\n"
      "route add blue 10.8.0.0/16 pref 1 via 10.0.0.1 leak-to blue\n"
      "route add red 10.7.0.0/16 pref 1 via 10.0.0.1 leak-to nowhere\n");
  EXPECT_EQ(ribLines(got), (std::vector<std::string>{"leak blue ipv4 10.9.0.0/16 from yellow"}));
}

// Both sides print a route the same way: the agent's view of a small script is the oracle's.
class AgentViewTest : public Agent::AgentHarness {};

TEST_F(AgentViewTest, PrintsWhatTheOraclePrintsForTheSameScript) {
  const std::string script =
      "start cold\nvrf add red 5\nvrf add blue 6\nmetric red ipv4 10.0.0.5 resolved\nmetric red "
      "ipv6 2001:db8::1 resolved\n"
      "route add red 10.1.0.0/16 pref 2 via 10.0.0.5 label 1005 tag 9 nofib leak-to blue\n"
      "route add red 2001:db8:1::/48 pref 1 via 2001:db8::1 fec 2 fib-type receive src-vrf 4\n"
      "seq-trigger red 7\nrun\n";
  run(script);
  const auto got = agentView(agent);
  EXPECT_EQ(got, oracleAfter(script));
  EXPECT_EQ(ribLines(got).size(), 3u);
}

}  // namespace Routing::Protocol::Oracle
