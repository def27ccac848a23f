#!/usr/bin/env bash
# Builds Tarvo2 with its tests and runs the whole suite through CTest.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${TARVO2_BUILD_DIR:-build}
jobs=$(nproc 2>/dev/null || echo 2)
# Prints how long the phase that just ended took, for CI's time budget.
took() { echo "test.sh: $1 took $((SECONDS / 60))m$((SECONDS % 60))s"; SECONDS=0; }
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j "$jobs"
took build
(cd "$build" && ctest --output-on-failure -j "$jobs")
took suite

# The whole suite again in a second build with AddressSanitizer and
# UndefinedBehaviorSanitizer. With clang it also builds the libFuzzer
# targets, and each runs on its seed corpus for TARVO2_FUZZ_SECONDS.
san=${TARVO2_SANITIZE_BUILD_DIR:-build-sanitize}
fuzz=OFF
compiler=()
if command -v clang++ >/dev/null 2>&1; then
  fuzz=ON
  compiler=(-DCMAKE_CXX_COMPILER=clang++)
fi
cmake -S . -B "$san" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTARVO2_SANITIZE=ON -DTARVO2_FUZZ=$fuzz \
  -DTARVO2_BUILD_BENCH=OFF -DTARVO2_BUILD_EXAMPLES=OFF -DTARVO2_BUILD_PYTHON=OFF "${compiler[@]}" >/dev/null
cmake --build "$san" -j "$jobs"
took "sanitizer build"
(cd "$san" && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
   ctest --output-on-failure -j "$jobs")
took "sanitizer suite"
if [ "$fuzz" = ON ]; then
  for target in tests/fuzz/corpus/*/; do
    name=$(basename "$target")
    [ -x "$san/tests/fuzz/$name" ] || continue
    mkdir -p "$san/corpus/$name"
    log="$san/corpus/$name.log"
    if ! UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 "$san/tests/fuzz/$name" \
        -max_total_time="${TARVO2_FUZZ_SECONDS:-20}" -max_len=4096 \
        -artifact_prefix="$san/corpus/$name-" "$san/corpus/$name" "$target" >"$log" 2>&1; then
      tail -n 40 "$log"
      echo "fuzz: $name failed; the input is in $san/corpus/" >&2
      exit 1
    fi
    echo "fuzz: $name: $(grep -o 'Done [0-9]* runs' "$log"), $(ls "$san/corpus/$name" | wc -l) inputs in its corpus"
  done
  took fuzzing
fi
