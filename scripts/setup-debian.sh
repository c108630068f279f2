#!/usr/bin/env bash
# Installs what building and testing protorib needs on Debian 12, and nothing when it is all there.
#
#   scripts/setup-debian.sh          g++, CMake, Ninja, GoogleTest/GoogleMock, Google Benchmark,
#                                    pkg-config, python3: the default, debug and asan presets
#   scripts/setup-debian.sh --clang  also clang and its sanitizer and libFuzzer runtimes: the
#                                    clang and fuzz presets
#   scripts/setup-debian.sh --m32    also what the m32 preset needs: g++-multilib, GoogleTest's
#                                    sources (scripts/test.sh m32 builds them for 32 bits) and,
#                                    where the kernel cannot run 32-bit code, qemu-user
#   scripts/setup-debian.sh --bench  also python3-matplotlib, for scripts/bench-plot.py (the
#                                    benchmark's plot); not needed to build or test
#   scripts/setup-debian.sh --all    --clang and --m32 together
#
# Runs as root, or through sudo when there is one; `apt-get update` runs only when a package is
# missing, so a machine that has everything is never touched.
set -euo pipefail

packages=(cmake ninja-build g++ libgtest-dev libgmock-dev libbenchmark-dev pkg-config python3)
clang_packages=(clang libclang-rt-14-dev)
# GoogleTest for 32 bits is built from the sources Debian ships rather than installed as i386
# packages: no foreign architecture to enable, no second package index to fetch, and the same
# GoogleTest version as the 64-bit build by construction.
m32_packages=(g++-multilib googletest)
bench_packages=(python3-matplotlib)
m32=no
for arg in "$@"; do
  case $arg in
    --clang) packages+=("${clang_packages[@]}") ;;
    --m32) m32=yes; packages+=("${m32_packages[@]}") ;;
    --bench) packages+=("${bench_packages[@]}") ;;
    --all) m32=yes; packages+=("${clang_packages[@]}" "${m32_packages[@]}") ;;
    -h | --help) sed -n '2,18s/^# \{0,1\}//p' "$0"; exit 0 ;;
    *) echo "setup-debian.sh: unknown argument '$arg' (try --help)" >&2; exit 2 ;;
  esac
done

if ! command -v dpkg-query > /dev/null || ! command -v apt-get > /dev/null; then
  echo "setup-debian.sh: not a Debian system; install these by hand: ${packages[*]}" >&2
  exit 0
fi

as_root=(env DEBIAN_FRONTEND=noninteractive)
updated=no

# Whether NAME[:ARCH] is installed for ARCH (by default the machine's own) or as arch-independent.
# A bare name is ambiguous to dpkg-query once a foreign architecture has its own copy.
installed() {
  local name=${1%%:*} arch=${1#*:}
  [ "$arch" != "$1" ] || arch=$(dpkg --print-architecture)
  local states
  states=$(dpkg-query -W -f='${db:Status-Status} ${Architecture}\n' "$name" 2> /dev/null) ||
    return 1
  grep -qE "^installed ($arch|all)\$" <<< "$states"
}

# Installs those of the given packages that are missing.
ensure() {
  local missing=() p
  for p in "$@"; do
    installed "$p" || missing+=("$p")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  if [ "$(id -u)" -ne 0 ]; then
    if command -v sudo > /dev/null; then
      as_root=(sudo env DEBIAN_FRONTEND=noninteractive)
    else
      echo "setup-debian.sh: missing ${missing[*]}; run this as root or install sudo" >&2
      exit 1
    fi
  fi
  echo "setup-debian.sh: installing ${missing[*]}"
  if [ "$updated" = no ]; then
    # A mirror caught mid-sync fails one index but leaves the others usable; let the install decide.
    "${as_root[@]}" apt-get update -q ||
      echo "setup-debian.sh: apt-get update reported errors; trying the install anyway" >&2
    updated=yes
  fi
  "${as_root[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
}

ensure "${packages[@]}"

# Some kernels are built without 32-bit emulation; there the tests run under qemu-user, which
# scripts/test.sh m32 then names as the emulator. The 32-bit loader is itself a 32-bit program,
# so running it tells whether the kernel can.
if [ "$m32" = yes ] && ! /lib/ld-linux.so.2 --version > /dev/null 2>&1; then
  ensure qemu-user
fi
