// Faults of the agent that the differential test found, each as the shortest failing script it
// printed, kept once fixed. A fault not fixed yet stays disabled (run it with
// --gtest_also_run_disabled_tests) and the generator steers clear of it meanwhile; the steering
// goes when the test here is enabled.
#include <gtest/gtest.h>

#include "tests/oracle/Differential.h"

namespace Routing::Protocol::Oracle {

// `route add ... src-vrf ID` on a route that exists once set the route's source VRF after the new
// alternative was evaluated, and nothing the route-status machine watches changed afterwards: the
// RIB route kept source VRF 0 until some other change re-evaluated the prefix.
TEST(DifferentialFault, SourceVrfOfAnExistingRouteReachesTheRib) {
  const Verdict v = runDifferential({
      "start cold",
      "run",
      "route add default 10.2.0.0/16 pref 1 via 10.0.0.5 label 1005",
      "route add default 10.2.0.0/16 pref 3 via 10.0.0.2 fec 2 tag 20 src-vrf 5",
      "run",
  });
  EXPECT_FALSE(v.mismatch) << v.report;
}

// A route leaking into VRF yellow (id 8) kept leaking into id 8 after yellow went; when VRF red
// later got id 8, the route showed up among red's leaked routes although it names yellow.
TEST(DifferentialFault, LeakIntoAVrfThatWentDoesNotPassToTheNextVrfWithItsId) {
  const Verdict v = runDifferential({
      "start cold",
      "route add default 10.3.0.0/16 pref 1 evpn 10.9.9.2 vni 200 via 10.0.0.2",
      "vrf add yellow 8",
      "route leak default 10.3.0.0/16 yellow",
      "vrf del yellow",
      "vrf add red 8",
      "run",
  });
  EXPECT_FALSE(v.mismatch) << v.report;
}

}  // namespace Routing::Protocol::Oracle
