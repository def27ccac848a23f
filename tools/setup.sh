#!/usr/bin/env bash
# Installs what a fresh Debian machine lacks to build, test and benchmark
# Tarvo2. Does nothing when everything is already there. clang with its
# libFuzzer and sanitizer runtimes (and llvm's symbolizer for readable
# reports) serve the sanitizer build and the fuzz targets of tools/test.sh.
set -euo pipefail
need=()
for pkg in g++ cmake make libgtest-dev libgmock-dev libbenchmark-dev libsqlite3-dev libcli11-dev libicu-dev pkg-config dpkg-dev file python3 valgrind pybind11-dev python3-dev python3-pytest clang libfuzzer-14-dev libclang-rt-14-dev llvm; do
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || need+=("$pkg")
done
if [ ${#need[@]} -gt 0 ]; then
  echo "setup: installing ${need[*]}"
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO=sudo
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${need[@]}"
fi
