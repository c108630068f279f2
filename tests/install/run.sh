#!/usr/bin/env bash
# Installs a protorib build into a throw-away prefix and builds the consumer in this folder against
# it twice, once through the CMake package and once through pkg-config, then runs both.
#
#   run.sh BUILD_DIR [--cxx=COMPILER] [--cxxflags=FLAGS] [--ldflags=FLAGS]
#                    [--generator=NAME] [--make-program=PATH] [--run=EMULATOR]
#
# The flags are the outer build's: a sanitizer or -m32 build installs a library that only a
# consumer built the same way can load. EMULATOR (a CMake list, "qemu-i386;-L;/") runs the
# consumers where the kernel cannot run them directly.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
if [ $# -lt 1 ]; then
  echo "usage: $0 BUILD_DIR [--cxx=...] [--cxxflags=...] [--ldflags=...] [--run=...]" >&2
  exit 2
fi
build=$(cd "$1" && pwd)
shift
cxx=${CXX:-c++}
cxxflags=""
ldflags=""
generator=""
make_program=""
runner=()
for arg in "$@"; do
  case $arg in
    --cxx=*) cxx=${arg#*=} ;;
    --cxxflags=*) cxxflags=${arg#*=} ;;
    --ldflags=*) ldflags=${arg#*=} ;;
    --generator=*) generator=${arg#*=} ;;
    --make-program=*) make_program=${arg#*=} ;;
    --run=*) [ -z "${arg#*=}" ] || IFS=';' read -r -a runner <<< "${arg#*=}" ;;
    *) echo "unknown argument: $arg" >&2; exit 2 ;;
  esac
done

work=$(mktemp -d "${TMPDIR:-/tmp}/protorib-install.XXXXXX")
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

fail() { echo "install-package: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" > "$work/install.log" ||
  { cat "$work/install.log" >&2; fail "cmake --install failed"; }

pc=$(find "$prefix" -name protorib.pc -path '*/pkgconfig/*' | head -n 1)
[ -n "$pc" ] || fail "no protorib.pc under $prefix"
[ -f "$prefix/include/protorib/platform/kel/Text.h" ] || fail "headers not under include/protorib"

# Run 1: the CMake package. The package registry is off so that only the fresh prefix can match.
gen_args=()
[ -n "$generator" ] && gen_args+=(-G "$generator")
[ -n "$make_program" ] && gen_args+=("-DCMAKE_MAKE_PROGRAM=$make_program")
cmake -S "$here" -B "$work/cmake" "${gen_args[@]}" \
  -DCMAKE_BUILD_TYPE=Release \
  "-DCMAKE_CXX_COMPILER=$cxx" \
  "-DCMAKE_CXX_FLAGS=$cxxflags" \
  "-DCMAKE_EXE_LINKER_FLAGS=$ldflags" \
  "-DCMAKE_PREFIX_PATH=$prefix" \
  -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF \
  > "$work/cmake-configure.log" 2>&1 ||
  { cat "$work/cmake-configure.log" >&2; fail "configuring the consumer with find_package failed"; }
found=$(sed -n 's/^protorib_DIR:PATH=//p' "$work/cmake/CMakeCache.txt")
case $found in
  "$prefix"/*) ;;
  *) fail "find_package took protorib from '$found', not from $prefix" ;;
esac
cmake --build "$work/cmake" > "$work/cmake-build.log" 2>&1 ||
  { cat "$work/cmake-build.log" >&2; fail "building the consumer with find_package failed"; }
# Linking through the SONAME is what lets a later compatible release replace the library.
needed=$(readelf -d "$work/cmake/protorib-consumer" |
  sed -n 's/.*(NEEDED).*\[\(libprotorib[^]]*\)\].*/\1/p')
[[ $needed =~ ^libprotorib\.so\.[0-9]+$ ]] || fail "consumer needs '$needed', not a SONAME"
out_cmake=$("${runner[@]}" "$work/cmake/protorib-consumer") ||
  fail "the find_package consumer failed: $out_cmake"

# Run 2: pkg-config, with the compiler driven by hand as a Makefile-based agent would.
PKG_CONFIG_PATH=$(dirname "$pc")${PKG_CONFIG_PATH:+:$PKG_CONFIG_PATH}
export PKG_CONFIG_PATH
libdir=$(pkg-config --variable=libdir protorib)
[ "$libdir" = "$(dirname "$(dirname "$pc")")" ] || fail "protorib.pc names libdir '$libdir'"
# shellcheck disable=SC2046,SC2086  # the flags are word lists by design
"$cxx" $cxxflags $(pkg-config --cflags protorib) "$here/main.cpp" -o "$work/consumer-pc" \
  $ldflags $(pkg-config --libs protorib) "-Wl,-rpath,$libdir" ||
  fail "building the consumer with pkg-config failed"
out_pc=$("${runner[@]}" "$work/consumer-pc") || fail "the pkg-config consumer failed: $out_pc"

[ -n "$out_cmake" ] || fail "the consumer printed nothing"
[ "$out_cmake" = "$out_pc" ] || fail "consumers disagree: '$out_cmake' vs '$out_pc'"
echo "install-package: both consumers ran: $out_cmake"
