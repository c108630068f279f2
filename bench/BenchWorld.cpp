#include "bench/BenchWorld.h"

#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "platform/kel/Activity.h"
#include "platform/kel/Time.h"

namespace Bench {

Velnet::AddressFamily addressFamily(Family f) {
  return f == Family::ipv4 ? Velnet::AddressFamily::ipv4 : Velnet::AddressFamily::ipv6;
}

Routing::Rib::Transport transportOf(Family f) {
  return f == Family::ipv4 ? Routing::Rib::Transport::ipv4 : Routing::Rib::Transport::ipv6;
}

Velnet::IpGenPrefix prefixOf(Family f, uint32_t route) {
  if (f == Family::ipv4) {
    return Velnet::IpGenPrefix(
        Velnet::IpGenAddr(Velnet::IpAddr::fromHostOrder((64u << 24) + (route << 8))), 24);
  }
  Velnet::Ip6Addr::Bytes b{0x20, 0x01, 0x0d, 0xb8};
  for (int i = 0; i < 4; ++i) b[4 + i] = static_cast<uint8_t>(route >> (24 - 8 * i));
  return Velnet::IpGenPrefix(Velnet::IpGenAddr(Velnet::Ip6Addr(b)), 64);
}

Velnet::IpGenAddr nextHopOf(Family f, uint32_t via) {
  if (f == Family::ipv4)
    return Velnet::IpGenAddr(Velnet::IpAddr::fromHostOrder((10u << 24) + via + 1));
  Velnet::Ip6Addr::Bytes b{0xfd};
  for (int i = 0; i < 4; ++i) b[12 + i] = static_cast<uint8_t>((via + 1) >> (24 - 8 * i));
  return Velnet::IpGenAddr(Velnet::Ip6Addr(b));
}

Routing::Rib::ViaKey viaKeyOf(Family f, uint32_t via) {
  return Routing::Rib::ViaKey(transportOf(f), kVrfId, Routing::Rib::RoutingProtocol::staticConfig,
                              nextHopOf(f, via), Velnet::IntfId(), 0);
}

double wallTime() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double cpuTime() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

LoopRun runLoopUntilIdle() {
  auto& loop = Kel::activityManager();
  LoopRun run;
  while (true) {
    const double next = loop.nextTime();
    if (next == Kel::Clock::kNever || next > Kel::currentTime()) break;
    // The CPU clock is a system call, which the wall-clock window must not include.
    const double cpu0 = cpuTime();
    const double wall0 = wallTime();
    loop.runOnce();
    const double wall = wallTime() - wall0;
    run.longestCpu = std::max(run.longestCpu, cpuTime() - cpu0);
    run.longestWall = std::max(run.longestWall, wall);
    run.wall += wall;
    ++run.turns;
  }
  return run;
}

double longestPause(double seconds) {
  auto last = std::chrono::steady_clock::now();
  const auto end = last + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                              std::chrono::duration<double>(seconds));
  std::chrono::steady_clock::duration longest{};
  while (last < end) {
    const auto now = std::chrono::steady_clock::now();
    longest = std::max(longest, now - last);
    last = now;
  }
  return std::chrono::duration<double>(longest).count();
}

namespace {

// Anonymous private writable mappings, in bytes: "start-end rw-p offset dev 0" with no path.
size_t anonymousMappedBytes() {
  std::ifstream maps("/proc/self/maps");
  size_t total = 0;
  std::string line;
  while (std::getline(maps, line)) {
    unsigned long start = 0, end = 0, inode = 0;
    char perms[8] = {};
    int pathAt = 0;
    if (std::sscanf(line.c_str(), "%lx-%lx %7s %*s %*s %lu %n", &start, &end, perms, &inode,
                    &pathAt) < 4)
      continue;
    if (inode != 0 || std::strncmp(perms, "rw", 2) != 0 || perms[3] != 'p') continue;
    if (pathAt > 0 && static_cast<size_t>(pathAt) < line.size())
      continue;  // [heap], [stack], files
    total += end - start;
  }
  return total;
}

size_t statusField(const char* name) {
  std::ifstream status("/proc/self/status");
  std::string line;
  const size_t len = std::strlen(name);
  while (std::getline(status, line)) {
    if (line.compare(0, len, name) == 0 && line.size() > len && line[len] == ':') {
      return std::stoull(line.substr(len + 1)) * 1024;  // "VmRSS:   1234 kB"
    }
  }
  return 0;
}

}  // namespace

size_t heapInUse() {
  // Malloc's mapped chunks are both in hblkhd and among the anonymous mappings: count them once.
  const struct mallinfo2 mi = mallinfo2();
  return mi.uordblks + anonymousMappedBytes();
}

size_t residentBytes() { return statusField("VmRSS"); }
size_t peakResidentBytes() { return statusField("VmHWM"); }

bool peakResidentReset() {
  std::ofstream clear("/proc/self/clear_refs");
  clear << "5";
  clear.flush();
  return static_cast<bool>(clear);
}

MemoryMark memoryMark() {
  peakResidentReset();
  MemoryMark m;
  m.heap = heapInUse();
  m.resident = residentBytes();
  return m;
}

double heapSince(const MemoryMark& m) {
  return static_cast<double>(heapInUse()) - static_cast<double>(m.heap);
}

double peakResidentSince(const MemoryMark& m) {
  return static_cast<double>(peakResidentBytes()) - static_cast<double>(m.resident);
}

double residentSince(const MemoryMark& m) {
  return static_cast<double>(residentBytes()) - static_cast<double>(m.resident);
}

void check(bool ok, const std::string& what) {
  if (!ok) throw WrongResult(what);
}

}  // namespace Bench
