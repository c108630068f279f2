// What every workload shares: the shape of the route table, the clocks and memory probes it is
// measured with, and the way a case reports a wrong result.
//
// The table. Route i of N is a /24 (IPv4, from 64.0.0.0 up) or a /64 (IPv6, under 2001:db8::/32)
// with two alternatives of two vias each, out of 10,000 vias of the route's VRF. Preference 1
// takes both its vias from the first half of the vias (set A), preference 2 from the second half
// (set B), so that marking set A unresolved moves every route to its second alternative. A route's
// vias repeat every 5,000 routes, so each alternative has 5,000 distinct via sets at most and
// every via of A is used by 2N / 5,000 routes: the sharing of next hops of a real table, not one
// via set per route. `variant` shifts a route's vias by one: the churn workload's route changes
// move routes between via sets that exist anyway.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "platform/rib/RibTypes.h"
#include "platform/velnet/Velnet.h"
#include "platform/vrf/VrfId.h"

namespace Bench {

enum class Family { ipv4, ipv6 };

inline const char* familyName(Family f) { return f == Family::ipv4 ? "IPv4" : "IPv6"; }
Velnet::AddressFamily addressFamily(Family f);
Routing::Rib::Transport transportOf(Family f);

constexpr uint32_t kVias = 10'000;
constexpr uint32_t kHalfVias = kVias / 2;
// The VRF of every workload but leaking.
constexpr Vrf::VrfIdMap::VrfId kVrfId = 5;
constexpr const char* kVrfName = "red";

Velnet::IpGenPrefix prefixOf(Family f, uint32_t route);
Velnet::IpGenAddr nextHopOf(Family f, uint32_t via);
Routing::Rib::ViaKey viaKeyOf(Family f, uint32_t via);

// Via index (0 .. kVias-1) number `n` (0 or 1) of alternative `alt` (0: preference 1, 1:
// preference 2) of route `route`.
inline uint32_t viaOf(uint32_t route, unsigned alt, unsigned n, uint32_t variant = 0) {
  static constexpr uint32_t kOffset[2][2] = {{0, 1237}, {0, 2467}};
  return alt * kHalfVias + (route + kOffset[alt][n] + variant) % kHalfVias;
}

// ---- Measuring ----

// Seconds of the monotonic clock.
double wallTime();

// Bytes the process has allocated and not freed: malloc's blocks in use (mallinfo2, which covers
// the framework's small-block slabs, as they come from malloc) plus every anonymous private
// mapping, which takes the framework's large blocks (mapped directly, beside malloc) and malloc's
// own mapped chunks. Constant mappings (library data, the stack) cancel out in a difference.
size_t heapInUse();
// The resident set and its peak, from /proc/self/status.
size_t residentBytes();
size_t peakResidentBytes();
// Starts a new peak at the current resident set; false where the kernel does not allow it (the
// peak then runs from the start of the process).
bool peakResidentReset();

// Heap and resident set at one moment, with the resident peak restarted there: what a workload
// adds is measured against it.
struct MemoryMark {
  size_t heap = 0;
  size_t resident = 0;
};
MemoryMark memoryMark();
// Bytes of heap gained since `m` (negative when the heap shrank).
double heapSince(const MemoryMark& m);
// Bytes the resident set peaked at above its level at `m`.
double peakResidentSince(const MemoryMark& m);
double residentSince(const MemoryMark& m);

// Seconds of CPU this thread has used.
double cpuTime();

// Runs the event loop until idle, as Kel::ActivityManager::runUntilIdle does, timing every turn
// both in wall-clock time (what the agent's other work waits) and in the thread's CPU time (the
// same without the time the process was not running: on a busy machine, the library's own part).
struct LoopRun {
  uint64_t turns = 0;
  double wall = 0;  // all turns
  double longestWall = 0;
  double longestCpu = 0;
};
LoopRun runLoopUntilIdle();

// The longest the machine kept the CPU from a loop that does nothing but read the clock, over
// `seconds`: interrupts and, in a VM, the host running something else. Neither clock sees such a
// pause as anything but this thread's own time, so a slice that ends in one runs past its quantum
// by that much whatever the library does.
double longestPause(double seconds);

// A workload's result was not what it must be: the case fails and prints no figure.
class WrongResult : public std::runtime_error {
 public:
  explicit WrongResult(const std::string& what) : std::runtime_error(what) {}
};
void check(bool ok, const std::string& what);

}  // namespace Bench
