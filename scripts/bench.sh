#!/usr/bin/env bash
# Builds protorib-bench and runs the whole benchmark suite, from a fresh Debian 12 machine on:
#
#   scripts/bench.sh [protorib-bench options]      e.g. --quick, --only install,failover
#   scripts/bench.sh soak [soak options]           the soak (docs/RELIABILITY.md)
#   scripts/bench.sh micro [Google Benchmark flags]
#
# Missing Debian packages are installed first (scripts/setup-debian.sh), then the default preset
# (g++, optimised with debug info) builds protorib-bench in build/default; BUILD_DIR=DIR builds in
# DIR instead, with the same build type. The table goes to standard output and the same rows to
# build/bench.json, from which scripts/bench-plot.py draws docs/perf/bench.png. The full run takes
# a few minutes and about 2 GB of memory at its largest case.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/setup-debian.sh

if [ -n "${BUILD_DIR:-}" ]; then
  cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
  cmake --build "$BUILD_DIR" --target protorib-bench
  bench=$BUILD_DIR/bench/protorib-bench
else
  cmake --preset default > /dev/null
  cmake --build --preset default --target protorib-bench
  bench=build/default/bench/protorib-bench
fi

# The soak and the micro-benchmarks print their own output and write no JSON.
case "${1:-}" in
  soak | micro) exec "$bench" "$@" ;;
esac

# The JSON names the tree it measured: the commit, and "-dirty" when the work tree has changes.
PROTORIB_BENCH_COMMIT=$(git describe --always --dirty 2> /dev/null || echo unknown)
export PROTORIB_BENCH_COMMIT
mkdir -p build
"$bench" --json build/bench.json "$@"
echo "bench.sh: rows in build/bench.json; scripts/bench-plot.py draws docs/perf/bench.png" >&2
