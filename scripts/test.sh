#!/usr/bin/env bash
# Builds protorib and runs every test, from a fresh Debian 12 machine on:
#
#   scripts/test.sh [PRESET]
#
# PRESET is one of CMakePresets.json's: default (the default), debug, asan, m32, clang. Missing
# Debian packages are installed first (scripts/setup-debian.sh), then the preset is configured,
# built and tested in build/PRESET.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."
preset=${1:-default}

case $preset in
  default | debug | asan) scripts/setup-debian.sh ;;
  clang) scripts/setup-debian.sh --clang ;;
  m32) scripts/setup-debian.sh --m32 ;;
  *) echo "test.sh: unknown preset '$preset' (default, debug, asan, m32, clang)" >&2; exit 2 ;;
esac

# Every test case is its own process; run as many at once as there are cores.
export CTEST_PARALLEL_LEVEL=${CTEST_PARALLEL_LEVEL:-$(nproc)}

configure=(--preset "$preset")
if [ "$preset" = m32 ]; then
  # GoogleTest and GoogleMock for 32 bits, built once from the sources Debian ships into the
  # prefix that the m32 preset's GTest_DIR names.
  gtest=build/m32-googletest
  if [ ! -f "$gtest/lib/cmake/GTest/GTestConfig.cmake" ]; then
    cmake -S /usr/src/googletest -B "$gtest/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DCMAKE_C_FLAGS=-m32 -DCMAKE_CXX_FLAGS=-m32 -DCMAKE_INSTALL_PREFIX="$PWD/$gtest" \
      -DCMAKE_INSTALL_LIBDIR=lib > /dev/null
    cmake --build "$gtest/build"
    cmake --install "$gtest/build" > /dev/null
  fi
  # Where the kernel cannot run 32-bit code (the 32-bit loader is a 32-bit program), run the
  # tests under qemu-user; setup-debian.sh --m32 installed it for exactly this case.
  if ! /lib/ld-linux.so.2 --version > /dev/null 2>&1; then
    configure+=("-DCMAKE_CROSSCOMPILING_EMULATOR=qemu-i386;-L;/")
  fi
fi

cmake "${configure[@]}"
cmake --build --preset "$preset"
ctest --preset "$preset" --output-on-failure
