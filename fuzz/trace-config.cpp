// The trace rules (platform/kel/Trace.h) that PROTORIB_TRACE and traceConfigIs read: an accepted
// config reads back from its canonical form as the same rules, and a refused one changes nothing.
// No selector: the input is the config itself.
#include "fuzz/FuzzCheck.h"
#include "platform/kel/Trace.h"

using ProtoribFuzz::check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view config(reinterpret_cast<const char*>(data), size);
  const std::string before = Kel::traceConfig();
  try {
    Kel::traceConfigIs(config);
  } catch (const Kel::Exception&) {
    check(Kel::traceConfig() == before, "a refused config changed the rules", config, before);
    return 0;
  }
  const std::string canonical = Kel::traceConfig();
  try {
    Kel::traceConfigIs(canonical);
  } catch (const Kel::Exception& e) {
    ProtoribFuzz::fail("the canonical config is refused", config, canonical + " -> " + e.what());
  }
  check(Kel::traceConfig() == canonical, "the canonical config reads as other rules", config,
        canonical + " vs " + Kel::traceConfig());
  Kel::traceConfigIs("");
  return 0;
}
