#!/usr/bin/env bash
# Builds the libFuzzer targets (the `fuzz` preset: clang, ASan, UBSan) and runs each on its seed
# corpus for a while:
#
#   scripts/fuzz.sh [--no-build] [SECONDS] [TARGET...]
#
# SECONDS is how long each target runs (default 20, what CI gives them; an hour, 3600, is the long
# run). TARGETs are names from fuzz/CMakeLists.txt (all when none is given), run one after another;
# to use both cores, run a second copy on other targets with --no-build (two builds of one tree
# at once would trip over each other). Inputs a target finds go
# to build/fuzz/corpus/TARGET, which later runs start from; the seeds in fuzz/corpus/TARGET are read,
# never written. A crash, a leak, a round-trip failure or a slow input stops that target, writes
# the input to build/fuzz/artifacts/TARGET/ and makes the script fail once all targets have run.
# Reproduce one with build/fuzz/fuzz/fuzz-TARGET FILE.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=yes
if [ "${1:-}" = --no-build ]; then
  build=no
  shift
fi
seconds=${1:-20}
shift || true
[[ $seconds =~ ^[0-9]+$ ]] || { echo "fuzz.sh: SECONDS must be a number, not '$seconds'" >&2; exit 2; }

if [ $build = yes ]; then
  scripts/setup-debian.sh --clang
  cmake --preset fuzz > /dev/null
  cmake --build --preset fuzz --target protorib-fuzz
fi

out=build/fuzz
if [ $# -gt 0 ]; then
  targets=("$@")
else
  mapfile -t targets < "$out/fuzz/targets.txt"
fi

passed=0
failed=0
for t in "${targets[@]}"; do
  bin=$out/fuzz/fuzz-$t
  [ -x "$bin" ] || { echo "fuzz.sh: no target '$t' (see fuzz/CMakeLists.txt)" >&2; exit 2; }
  mkdir -p "$out/corpus/$t" "$out/artifacts/$t" "$out/logs"
  log=$out/logs/$t.log
  start=$SECONDS
  status=0
  # -timeout: one input taking 10 s is a hang; -rss_limit_mb: an input that balloons memory.
  "$bin" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$out/artifacts/$t/" "$out/corpus/$t" "fuzz/corpus/$t" > "$log" 2>&1 ||
    status=$?
  # The last status line holds the coverage reached; the final stats hold the execution count.
  cov=$(grep -oE 'cov: [0-9]+ ft: [0-9]+' "$log" | tail -1 || true)
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  corpus=$(find "$out/corpus/$t" -type f | wc -l)
  if [ $status -eq 0 ]; then
    passed=$((passed + 1))
    printf '%-18s ok      %10s runs in %4d s, %s, %d inputs in corpus\n' "$t" "${runs:-?}" \
      $((SECONDS - start)) "${cov:-cov: ?}" "$corpus"
  else
    failed=$((failed + 1))
    printf '%-18s FAILED  after %d s (exit %d); log %s\n' "$t" $((SECONDS - start)) "$status" "$log"
    grep -E 'ERROR|round-trip failure|input:|detail:|Test unit written' "$log" | head -8 | sed 's/^/    /'
  fi
done
echo "fuzz: $passed passed, $failed failed"
[ $failed -eq 0 ]
