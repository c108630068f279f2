// An agent fed from strings, as the scenario scripts feed it, with its output captured.
#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <string_view>

#include "agent/Agent.h"

namespace Routing::Protocol::Agent {

class AgentHarness : public ::testing::Test {
 protected:
  // Runs each line of `script` as a command; the first refusal throws.
  void run(std::string_view script) {
    size_t start = 0;
    while (start <= script.size()) {
      size_t end = script.find('\n', start);
      if (end == std::string_view::npos) end = script.size();
      if (auto c = parseLine(script.substr(start, end - start))) agent.execute(*c);
      start = end + 1;
    }
  }
  // What `commands` print.
  std::string show(std::string_view commands) {
    out.str("");
    run(commands);
    return out.str();
  }
  // The vias of the RIB route for `prefix` in VRF `id`, as `show rib` prints them; "" when absent.
  std::string ribVias(std::string_view vrf, std::string_view prefix) {
    const std::string text = show("show rib " + std::string(vrf) + " json");
    const std::string key = "\"prefix\": \"" + std::string(prefix) + "\"";
    const size_t at = text.find(key);
    if (at == std::string::npos) return "";
    const size_t vias = text.find("\"vias\": ", at);
    return text.substr(vias + 8, text.find(']', vias) - vias - 7);
  }

  std::ostringstream out;
  Agent agent{out};
};

}  // namespace Routing::Protocol::Agent
