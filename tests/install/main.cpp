// Links the installed libprotorib from outside its tree. It uses both an inline header function and
// functions compiled into the shared library, so a missing header, a wrong include path or an
// unresolved symbol each fail here rather than in an agent.
#include <cstdio>
#include <string>

#include "platform/kel/Hash.h"
#include "platform/kel/Text.h"

int main() {
  const std::string name = "it's protorib";
  const std::string quoted = Kel::quote(name);
  // The parse side lives in the library too: a round trip proves both halves link and agree.
  if (Kel::strepToValue<std::string>(quoted) != name) {
    std::fprintf(stderr, "round trip of %s failed\n", quoted.c_str());
    return 1;
  }
  std::printf("%s hashes to %u\n", quoted.c_str(), static_cast<unsigned>(Kel::stringHash(name)));
  return 0;
}
