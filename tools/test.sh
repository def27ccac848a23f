#!/usr/bin/env bash
# Builds Tarvo2 with its tests and runs the whole suite through CTest.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${TARVO2_BUILD_DIR:-build}
jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j "$jobs"
cd "$build"
ctest --output-on-failure -j "$jobs"
