#!/usr/bin/env bash
# Runs the test suite against a sample of hand-made mutants and reports the
# kill rate. Each mutant (a line of tools/mutants.txt, or of the file given)
# replaces one text of one source file; only the test programs it names are
# rebuilt and run. A mutant is killed when a test fails or crashes; one
# whose build fails counts as stillborn, not killed.
#   tools/mutants.sh [mutant-list] [build-folder]
set -uo pipefail
cd "$(dirname "$0")/.."
list=${1:-tools/mutants.txt}
build=${2:-build}
export CCACHE_DIR=${CCACHE_DIR:-/work/.ccache}
[ -d "$build" ] || cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER_LAUNCHER=ccache >/dev/null
killed=0 survived=0 stillborn=0 skipped=0
while IFS= read -r line; do
  case "$line" in ''|'#'*) continue ;; esac
  # Fields are separated by '|'; '\|' stands for a literal '|'.
  IFS=$'\x01' read -r file old new tests <<<"$(printf '%s' "$line" | sed 's/\\|/\x02/g; s/|/\x01/g; s/\x02/|/g')"
  if ! python3 - "$file" "$old" "$new" <<'PY'
import sys
path, old, new = sys.argv[1:4]
text = open(path, encoding="utf-8").read()
if text.count(old) != 1:
    sys.exit(1)
open(path + ".mutant-orig", "w", encoding="utf-8").write(text)
open(path, "w", encoding="utf-8").write(text.replace(old, new))
PY
  then
    echo "SKIPPED   $file: text not found once: $old"
    skipped=$((skipped + 1)); continue
  fi
  targets=${tests//,/ }
  status=SURVIVED
  if ! cmake --build "$build" -j2 --target $targets >/dev/null 2>&1; then
    status=STILLBORN
  else
    for t in $targets; do
      if ! (cd "$build/tests" && TARVO2_REGISTRY=:memory: timeout 600 "./$t" >/dev/null 2>&1); then
        status=KILLED; break
      fi
    done
  fi
  mv "$file.mutant-orig" "$file" && touch "$file"
  case $status in
    KILLED) killed=$((killed + 1)) ;; SURVIVED) survived=$((survived + 1)) ;; *) stillborn=$((stillborn + 1)) ;;
  esac
  printf '%-9s %s: %s\n' "$status" "$file" "$new"
done < "$list"
# Rebuild the originals so the build folder matches the sources again.
cmake --build "$build" -j2 >/dev/null 2>&1
total=$((killed + survived))
echo "mutants: $killed killed, $survived survived, $stillborn stillborn, $skipped skipped;" \
     "kill rate $killed/$total"
[ "$survived" -eq 0 ]
