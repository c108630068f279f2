// protorib-agent: runs a script of agent commands (docs/AGENT.md) against the library, or follows
// a live feed of them on standard input.
#include <fstream>
#include <iostream>
#include <string>

#include "agent/Agent.h"
#include "agent/Script.h"

namespace {

const char* kUsage =
    "usage: protorib-agent [--strict] [SCRIPT|-]\n"
    "       protorib-agent [--strict] --follow\n"
    "Runs the agent commands of SCRIPT (standard input when absent or '-'), one per line.\n"
    "  --follow   read commands from standard input as they arrive, run the event loop until\n"
    "             idle after each, and print every change of the RIB configuration as it happens\n"
    "  --strict   stop at the first refused command with exit status 1\n"
    "  --help     this text\n"
    "  --version  the version\n"
    "Commands are described in docs/AGENT.md.\n";

}  // namespace

int main(int argc, char** argv) {
  bool strict = false, follow = false;
  std::string path;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::cout << kUsage;
      return 0;
    }
    if (arg == "--version") {
      std::cout << "protorib-agent " << PROTORIB_AGENT_VERSION << "\n";
      return 0;
    }
    if (arg == "--strict") {
      strict = true;
    } else if (arg == "--follow") {
      follow = true;
    } else if (!arg.empty() && arg[0] == '-' && arg != "-") {
      std::cerr << "protorib-agent: unknown option " << arg << "\n" << kUsage;
      return 2;
    } else if (path.empty()) {
      path = arg;
    } else {
      std::cerr << "protorib-agent: only one script may be given\n" << kUsage;
      return 2;
    }
  }
  if (follow && !path.empty() && path != "-") {
    std::cerr << "protorib-agent: --follow reads standard input, not a script\n" << kUsage;
    return 2;
  }
  std::ifstream file;
  std::istream* in = &std::cin;
  std::string name = "<stdin>";
  if (!path.empty() && path != "-") {
    file.open(path);
    if (!file) {
      std::cerr << "protorib-agent: cannot open " << path << "\n";
      return 2;
    }
    in = &file;
    name = path;
  }
  std::ios::sync_with_stdio(false);
  Routing::Protocol::Agent::Agent agent(std::cout);
  if (follow) agent.followingIs(true);
  std::string line;
  size_t lineNo = 0;
  while (std::getline(*in, line)) {
    ++lineNo;
    try {
      auto command = Routing::Protocol::Agent::parseLine(line);
      if (command) agent.execute(*command);
      if (follow) {
        // A feed has no `run` of its own: what a command set off settles before the next one, and
        // the reader sees it now rather than when the feed ends.
        if (agent.started()) agent.runUntilIdle();
        std::cout.flush();
      }
    } catch (const std::exception& e) {
      // The output so far goes first, so that the error lands after it in a combined stream.
      std::cout.flush();
      std::cerr << name << ":" << lineNo << ": " << e.what() << std::endl;
      if (strict) return 1;
    }
  }
  return 0;
}
