// protorib-agent: runs a script of agent commands (docs/AGENT.md) against the library.
#include <fstream>
#include <iostream>
#include <string>

#include "agent/Agent.h"
#include "agent/Script.h"

namespace {

const char* kUsage =
    "usage: protorib-agent [--strict] [SCRIPT|-]\n"
    "Runs the agent commands of SCRIPT (standard input when absent or '-'), one per line.\n"
    "  --strict   stop at the first refused command with exit status 1\n"
    "  --help     this text\n"
    "  --version  the version\n"
    "Commands are described in docs/AGENT.md.\n";

}  // namespace

int main(int argc, char** argv) {
  bool strict = false;
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
  std::string line;
  size_t lineNo = 0;
  while (std::getline(*in, line)) {
    ++lineNo;
    try {
      auto command = Routing::Protocol::Agent::parseLine(line);
      if (command) agent.execute(*command);
    } catch (const std::exception& e) {
      // The output so far goes first, so that the error lands after it in a combined stream.
      std::cout.flush();
      std::cerr << name << ":" << lineNo << ": " << e.what() << std::endl;
      if (strict) return 1;
    }
  }
  return 0;
}
