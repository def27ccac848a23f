#!/usr/bin/env bash
# Runs the example application twice and checks that it leaves no trace:
# both runs print the same text apart from the name of their temporary
# folder (the first line), and nothing is left behind in the temporary
# folder, the home folder or the per-user configuration folder.
# Usage: tools/check-example.sh PATH-TO-tarvo2_example
set -euo pipefail
example=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir "$scratch/tmp" "$scratch/home"
run() {
  env -u TARVO2_REGISTRY -u XDG_CONFIG_HOME TMPDIR="$scratch/tmp" HOME="$scratch/home" \
    "$example" >"$scratch/out$1" 2>&1
}
run 1
run 2
if ! diff <(tail -n +2 "$scratch/out1") <(tail -n +2 "$scratch/out2"); then
  echo "FAIL: two runs printed different text" >&2
  exit 1
fi
if grep -q 'unexpected failure' "$scratch/out1"; then
  cat "$scratch/out1" >&2
  exit 1
fi
left=$(find "$scratch/tmp" "$scratch/home" -mindepth 1)
if [ -n "$left" ]; then
  echo "FAIL: the example left files behind:" >&2
  echo "$left" >&2
  exit 1
fi
echo "OK: two runs, same output, nothing left behind"
