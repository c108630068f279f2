#!/usr/bin/env bash
# Builds protorib-agent and runs it on a bundled example, from a fresh Debian 12 machine on:
#
#   scripts/run-example.sh [SCRIPT]
#
# SCRIPT defaults to examples/two-vrfs.script. Missing Debian packages are installed first.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
script=${1:-examples/two-vrfs.script}

scripts/setup-debian.sh
cmake --preset default > /dev/null
cmake --build --preset default --target protorib-agent
build/default/agent/protorib-agent "$script"
