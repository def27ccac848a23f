#!/usr/bin/env bash
# Builds the library and runs the example application.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${TARVO2_BUILD_DIR:-build}
jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j "$jobs" --target tarvo2_example
"$build/examples/tarvo2_example" "$@"
