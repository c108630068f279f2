#!/usr/bin/env bash
# run.sh AGENT SCRIPT: runs the agent on SCRIPT from the script's folder and compares what it
# printed (standard output and errors, in order, then the exit status) with SCRIPT's .expected.
# With PROTORIB_REGENERATE=1 it writes the .expected file instead and passes.
set -u
agent=$1
script=$2
expected=${script%.script}.expected
dir=$(dirname "$script")
base=$(basename "$script")
# PROTORIB_RUN_UNDER: an emulator command to start the agent with (words split on blanks).
actual=$(cd "$dir" && ${PROTORIB_RUN_UNDER:-} "$agent" "$base" 2>&1; echo "exit $?")
if [[ "${PROTORIB_REGENERATE:-0}" == 1 ]]; then
  printf '%s\n' "$actual" >"$expected"
  echo "regenerated $expected"
  exit 0
fi
if [[ ! -f "$expected" ]]; then
  echo "missing $expected (run with PROTORIB_REGENERATE=1 to create it)"
  exit 1
fi
diff -u "$expected" <(printf '%s\n' "$actual")
