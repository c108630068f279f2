// protorib-bench: every workload of the suite, each case in a process of its own, one table.
//
//   protorib-bench [--routes N,...] [--only W,...] [--quick] [--json FILE] [--repeat N]
//   protorib-bench micro [Google Benchmark flags]      the hash-table micro-benchmarks
//   protorib-bench soak [--routes N] [--family ipv4|ipv6] [--seconds S] [--every S]
//                                                      one table under churn for a long time,
//                                                      memory printed as it goes (BenchSoak.cpp)
//
// The driver starts itself once per case (`--case ...`, not for use by hand) and reads the
// case's figures from its standard output; a case that finds a wrong result says so and exits
// non-zero, and the driver reports it and prints the figures of the others. See BenchTable.h for
// why every case gets a fresh process.
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/BenchCases.h"
#include "bench/BenchTable.h"
#include "platform/kel/Exception.h"

extern char** environ;

namespace Bench {

namespace {

#ifndef PROTORIB_BUILD_TYPE
#define PROTORIB_BUILD_TYPE "unknown"
#endif

constexpr const char* kErrorPrefix = "error\t";

// ---- A case, in the child ----

int runCaseHere(const std::vector<std::string>& args) {
  // --case WORKLOAD FAMILY ROUTES lib|plain CHURN_SECONDS
  try {
    if (args.size() != 6) throw Kel::ParseException("--case takes 5 values");
    CaseParams params;
    params.workload = args[1];
    if (args[2] != "IPv4" && args[2] != "IPv6")
      throw Kel::ParseException("--case: bad family '" + args[2] + "'");
    params.family = args[2] == "IPv4" ? Family::ipv4 : Family::ipv6;
    params.routes = static_cast<uint32_t>(std::stoul(args[3]));
    params.plain = args[4] == "plain";
    params.churnSeconds = std::stod(args[5]);
    const std::vector<Row> rows = runCase(params);
    for (const Row& r : rows) std::cout << caseLine(r) << '\n';
    std::cout.flush();
    return std::cout ? 0 : 4;
  } catch (const WrongResult& e) {
    std::cout << kErrorPrefix << "wrong result: " << e.what() << std::endl;
    return 3;
  } catch (const std::exception& e) {
    std::cout << kErrorPrefix << e.what() << std::endl;
    return 4;
  }
}

// ---- The driver ----

struct CaseOutcome {
  std::vector<Row> rows;
  std::string error;  // empty when the case succeeded
};

std::string sideName(bool plain) { return plain ? "plain" : "lib"; }

CaseOutcome spawnCase(const CaseParams& params) {
  CaseOutcome out;
  int fds[2];
  if (pipe(fds) != 0) {
    out.error = "cannot make a pipe";
    return out;
  }
  const std::vector<std::string> args{"protorib-bench",
                                      "--case",
                                      params.workload,
                                      familyName(params.family),
                                      std::to_string(params.routes),
                                      sideName(params.plain),
                                      std::to_string(params.churnSeconds)};
  std::vector<char*> argv;
  for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, fds[0]);
  posix_spawn_file_actions_addclose(&actions, fds[1]);
  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, "/proc/self/exe", &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(fds[1]);
  if (spawned != 0) {
    close(fds[0]);
    out.error = "cannot start a case process (error " + std::to_string(spawned) + ")";
    return out;
  }
  std::string text;
  char buf[4096];
  ssize_t got = 0;
  while ((got = read(fds[0], buf, sizeof buf)) > 0) text.append(buf, static_cast<size_t>(got));
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);

  std::istringstream lines(text);
  std::string line;
  try {
    while (std::getline(lines, line)) {
      if (line.rfind(kErrorPrefix, 0) == 0) {
        out.error = line.substr(std::string(kErrorPrefix).size());
      } else if (auto row = parseCaseLine(line)) {
        row->workload = params.workload;
        row->family = familyName(params.family);
        row->routes = params.routes;
        out.rows.push_back(*row);
      }
    }
  } catch (const Kel::Exception& e) {
    out.error = e.what();
  }
  if (out.error.empty() && !(WIFEXITED(status) && WEXITSTATUS(status) == 0)) {
    out.error = WIFSIGNALED(status) ? "killed by signal " + std::to_string(WTERMSIG(status))
                                    : "exited with status " + std::to_string(WEXITSTATUS(status));
  }
  if (!out.error.empty()) out.rows.clear();
  return out;
}

std::string firstLineOf(const char* path, const std::string& key) {
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind(key, 0) == 0) {
      auto colon = line.find(':');
      auto value = colon == std::string::npos ? line : line.substr(colon + 1);
      value.erase(0, value.find_first_not_of(" \t"));
      return value;
    }
  }
  return "unknown";
}

std::map<std::string, std::string> runMeta(const std::vector<std::string>& args) {
  std::map<std::string, std::string> meta;
  const char* commit = std::getenv("PROTORIB_BENCH_COMMIT");
  meta["commit"] = commit && *commit ? commit : "unknown";
  char date[32];
  const std::time_t now = std::time(nullptr);
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&now));
  meta["date"] = date;
  meta["cpu"] = firstLineOf("/proc/cpuinfo", "model name");
  meta["cores"] = std::to_string(std::thread::hardware_concurrency());
  meta["memory"] = firstLineOf("/proc/meminfo", "MemTotal");
  meta["compiler"] = __VERSION__;
  meta["build"] = PROTORIB_BUILD_TYPE;
  std::string cmd = "protorib-bench";
  for (const auto& a : args) cmd += " " + a;
  meta["command"] = cmd;
  return meta;
}

int runSuite(const std::vector<std::string>& args) {
  Options o;
  try {
    o = parseOptions(args);
  } catch (const Kel::Exception& e) {
    std::cerr << "protorib-bench: " << e.what() << '\n';
    return 2;
  }
  if (o.help) {
    std::cout << usage();
    return 0;
  }
  if (const char* trace = std::getenv("PROTORIB_TRACE"); trace && *trace) {
    std::cerr << "protorib-bench: PROTORIB_TRACE is set: enabled traces slow every figure down\n";
  }

  std::vector<CaseParams> cases;
  for (const auto& w : workloadNames()) {
    if (!selected(o, w)) continue;
    for (uint64_t n : o.routes) {
      for (Family f : {Family::ipv4, Family::ipv6}) {
        for (bool plain : {false, true}) {
          if (plain && !hasPlain(w)) continue;
          cases.push_back(CaseParams{w, f, static_cast<uint32_t>(n), plain, o.churnSeconds});
        }
      }
    }
  }

  std::vector<Row> rows, plainRows;
  std::vector<std::string> failures;
  const double suiteStart = wallTime();
  for (size_t c = 0; c < cases.size(); ++c) {
    const CaseParams& params = cases[c];
    const std::string name = params.workload + " " + familyName(params.family) + " " +
                             formatCount(params.routes) + " " +
                             (params.plain ? "plain" : "library");
    std::vector<std::vector<Row>> runs;
    std::string error;
    for (unsigned r = 0; r < o.repeat && error.empty(); ++r) {
      std::cerr << "protorib-bench: [" << c + 1 << "/" << cases.size() << "] " << name;
      if (o.repeat > 1) std::cerr << " (run " << r + 1 << " of " << o.repeat << ")";
      std::cerr << std::flush;
      const double t0 = wallTime();
      CaseOutcome outcome = spawnCase(params);
      std::cerr << " ... " << formatNumber(wallTime() - t0) << " s\n";
      if (!outcome.error.empty()) {
        error = outcome.error;
        std::cerr << "protorib-bench: FAILED: " << name << ": " << error << '\n';
      } else {
        runs.push_back(std::move(outcome.rows));
      }
    }
    if (!error.empty()) {
      failures.push_back(name + ": " + error);
      continue;
    }
    auto median = medianOf(runs);
    (params.plain ? plainRows : rows)
        .insert((params.plain ? plainRows : rows).end(), median.begin(), median.end());
  }
  mergePlain(rows, plainRows);
  decideAims(rows);

  std::cout << formatTable(rows);
  if (o.json) {
    std::ofstream json(*o.json);
    json << formatJson(rows, runMeta(args));
    if (!json) {
      std::cerr << "protorib-bench: cannot write " << *o.json << '\n';
      return 1;
    }
  }
  size_t unmet = 0;
  for (const Row& r : rows) unmet += r.met && !*r.met;
  std::cerr << "protorib-bench: " << cases.size() - failures.size() << " of " << cases.size()
            << " cases in " << formatNumber(wallTime() - suiteStart) << " s; " << unmet
            << " aims not met\n";
  for (const auto& f : failures) std::cerr << "protorib-bench: FAILED: " << f << '\n';
  return failures.empty() ? 0 : 1;
}

int runMicro(int argc, char** argv) {
  // Google Benchmark reads its flags from argv; the sub-command's name is not one of them.
  std::vector<char*> args{argv[0]};
  for (int i = 2; i < argc; ++i) args.push_back(argv[i]);
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 2;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

}  // namespace

}  // namespace Bench

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (!args.empty() && args[0] == "micro") return Bench::runMicro(argc, argv);
  if (!args.empty() && args[0] == "soak") return Bench::runSoak({args.begin() + 1, args.end()});
  if (!args.empty() && args[0] == "--case") return Bench::runCaseHere(args);
  return Bench::runSuite(args);
}
