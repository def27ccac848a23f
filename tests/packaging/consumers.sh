#!/usr/bin/env bash
# Installs Tarvo2 from a build tree into a temporary prefix and builds and
# runs client programs against it, the three ways the README shows:
#   1. find_package(Tarvo2) against the prefix (shared and static library);
#   2. pkg-config against the prefix;
#   3. add_subdirectory of the source tree, without installing anything.
# Also checks that the installed umbrella header includes every installed
# public header, and that the test doubles are not installed.
#
# Usage: consumers.sh CMAKE BUILD_DIR SOURCE_DIR CXX [LAUNCHER]
set -euo pipefail
cmake=$1 build=$2 src=$3 cxx=$4 launcher=${5:-}
here=$src/tests/packaging
work=$(mktemp -d "${TMPDIR:-/tmp}/tarvo2-consumers.XXXXXX")
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
export TARVO2_REGISTRY=:memory:
cmake_args=(-DCMAKE_CXX_COMPILER="$cxx")
[ -n "$launcher" ] && cmake_args+=(-DCMAKE_CXX_COMPILER_LAUNCHER="$launcher")

fail() { echo "FAILED: $*" >&2; exit 1; }
step() { echo "== $*"; }

step "install into $prefix"
"$cmake" --install "$build" --prefix "$prefix" >/dev/null

step "installed headers"
umbrella=$prefix/include/tarvo2/tarvo2.h
[ -f "$umbrella" ] || fail "no umbrella header installed"
[ ! -e "$prefix/include/tarvo2/testing" ] || fail "the test doubles were installed"
for h in "$prefix"/include/tarvo2/*.h; do
  name=$(basename "$h")
  [ "$name" = tarvo2.h ] && continue
  grep -q "^#include \"tarvo2/$name\"" "$umbrella" ||
    fail "the umbrella header does not include tarvo2/$name"
done

step "find_package consumer"
"$cmake" -S "$here/find_package" -B "$work/fp" -DCMAKE_PREFIX_PATH="$prefix" \
  "${cmake_args[@]}" >/dev/null
"$cmake" --build "$work/fp" -j 2 >/dev/null || "$cmake" --build "$work/fp" -j 1
"$work/fp/consumer_shared" find_package/shared || fail "find_package consumer (shared)"
"$work/fp/consumer_static" find_package/static || fail "find_package consumer (static)"
deps=$(ldd "$work/fp/consumer_shared")
[[ "$deps" == *"$prefix/"*"libtarvo2.so."[0-9]* ]] ||
  fail "the shared consumer does not use the installed libtarvo2.so"

step "pkg-config consumer"
pc=$(find "$prefix" -name tarvo2.pc)
[ -n "$pc" ] || fail "no tarvo2.pc installed"
export PKG_CONFIG_PATH=$(dirname "$pc")
libdir=$(pkg-config --variable=libdir tarvo2)
[ -f "$libdir/libtarvo2.so" ] || fail "tarvo2.pc names libdir $libdir without the library"
# shellcheck disable=SC2046
$launcher "$cxx" -std=c++20 "$here/consumer.cpp" $(pkg-config --cflags --libs tarvo2) \
  -o "$work/pc_consumer"
LD_LIBRARY_PATH=$libdir "$work/pc_consumer" pkg-config || fail "pkg-config consumer"
# The static library with what `pkg-config --static` adds (SQLite, ICU).
static_libs=$(pkg-config --static --libs tarvo2)
# shellcheck disable=SC2046
$launcher "$cxx" -std=c++20 "$here/consumer.cpp" $(pkg-config --cflags tarvo2) \
  ${static_libs/-ltarvo2/$libdir/libtarvo2.a} -o "$work/pc_consumer_static"
"$work/pc_consumer_static" pkg-config/static || fail "pkg-config consumer (static)"

step "add_subdirectory consumer"
"$cmake" -S "$here/add_subdirectory" -B "$work/sub" -DTARVO2_SOURCE_DIR="$src" \
  "${cmake_args[@]}" >/dev/null
"$cmake" --build "$work/sub" -j 2 >/dev/null || "$cmake" --build "$work/sub" -j 1
"$work/sub/consumer" add_subdirectory || fail "add_subdirectory consumer"
echo "all consumers ok"
