#!/usr/bin/env bash
# Plants the faults of scripts/faults.tsv one at a time and reports which
# tests catch each: the check that the test suite still finds real faults
# after it has been trimmed.
#
#   scripts/plant-faults.sh [FAULT_ID...]      # default: every fault
#
# The checkout is never touched: the working tree (uncommitted test changes
# included) is copied to $FAULTS_DIR (default /tmp/ac-faults-$USER) and built
# there incrementally, with ccache keyed on paths relative to the copy so the
# checkout's cache is reused. Per fault it prints one line:
#   Fxx caught by: suite: Test.Name ...
#   Fxx NOT CAUGHT (ran: suites)
#   Fxx did not apply: <why>               (the original text moved or changed)
#   Fxx does not build: ...                (the fault itself is broken)
# A suite in the table is a test binary; "pulse:" runs it under
# scripts/with-pulse.sh, and "binary/Filter" passes --gtest_filter.
# Exit status: 0 when every fault applied and was caught, 1 otherwise.
set -uo pipefail

src=$(cd "$(dirname "$0")/.." && pwd)
work=${FAULTS_DIR:-/tmp/ac-faults-${USER:-$(id -un)}}
table="$src/scripts/faults.tsv"
tree="$work/src"
build="$work/build"
mkdir -p "$tree"

# Copy what git would commit; a file is rewritten only when its content
# differs, with a fresh time, so ninja rebuilds exactly what changed.
(cd "$src" && git ls-files -z -co --exclude-standard) | python3 -c '
import os, sys, filecmp, shutil
src, tree = sys.argv[1:]
keep = {p for p in sys.stdin.read().split("\0") if p and os.path.isfile(os.path.join(src, p))}
for p in keep:
    a, b = os.path.join(src, p), os.path.join(tree, p)
    if not os.path.isfile(b) or not filecmp.cmp(a, b, shallow=False):
        os.makedirs(os.path.dirname(b), exist_ok=True)
        shutil.copyfile(a, b)
        shutil.copymode(a, b)
for root, _, names in os.walk(tree):
    for n in names:
        rel = os.path.relpath(os.path.join(root, n), tree)
        if rel not in keep: os.remove(os.path.join(root, n))
' "$src" "$tree"
export CCACHE_BASEDIR="$tree"
if [[ ! -f "$build/build.ninja" ]]; then
  nice -n 10 cmake -S "$tree" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache >"$work/cmake.log" || {
    echo "configure failed: see $work/cmake.log" >&2
    exit 1
  }
fi

wanted=("$@")
ids=() files=() originals=() faulty=() suites=() whats=()
while IFS=$'\t' read -r id file original replacement suite what; do
  [[ -z "$id" || "$id" == \#* ]] && continue
  if ((${#wanted[@]})) && [[ ! " ${wanted[*]} " == *" $id "* ]]; then continue; fi
  ids+=("$id") files+=("$file") originals+=("$original") faulty+=("$replacement") suites+=("$suite") whats+=("$what")
done <"$table"

binary_of() { find "$build/tests" -type f -perm -u+x -name "$1" -print -quit; }

# run_suite SPEC: prints the names of the failed tests, or "<binary> crashed (status N)"
# when it failed without naming a test.
run_suite() {
  local spec=$1 wrap=() name filter=() bin out status
  if [[ "$spec" == pulse:* ]]; then wrap=("$src/scripts/with-pulse.sh"); spec=${spec#pulse:}; fi
  name=${spec%%/*}
  [[ "$spec" == */* ]] && filter=("--gtest_filter=${spec#*/}")
  bin=$(binary_of "$name")
  [[ -n "$bin" ]] || { echo "$name missing"; return; }
  out=$(cd "$build" && nice -n 10 timeout 600 "${wrap[@]}" "$bin" "${filter[@]}" 2>&1)
  status=$?
  local failed
  failed=$(grep -oE '^\[  FAILED  \] [A-Za-z_][A-Za-z0-9_/]*\.[A-Za-z0-9_/]+' <<<"$out" | cut -c14- | sort -u)
  if [[ -n "$failed" ]]; then echo "$failed"
  elif ((status != 0)); then echo "$name crashed (status $status)"; fi
}

build_targets() { nice -n 10 ninja -C "$build" -j2 "$@" >"$work/build.log" 2>&1; }

# The unfaulted tree first: a test that already fails proves nothing.
all_suites=$(printf '%s\n' "${suites[@]}" | tr ',' '\n' | sort -u)
targets=$(sed -e 's/^pulse://' -e 's,/.*,,' <<<"$all_suites" | sort -u)
# shellcheck disable=SC2086
build_targets $targets || { echo "the unfaulted tree does not build: see $work/build.log" >&2; exit 1; }
declare -A baseline
for s in $all_suites; do
  baseline[$s]=$(run_suite "$s")
  [[ -n "${baseline[$s]}" ]] && echo "baseline: $s already fails: $(tr '\n' ' ' <<<"${baseline[$s]}")"
done

result=0
for i in "${!ids[@]}"; do
  id=${ids[$i]} file=${files[$i]}
  if ! why=$(python3 - "$tree/$file" "${originals[$i]}" "${faulty[$i]}" <<'PY'
import sys
path, old, new = sys.argv[1:]
try:
    text = open(path, encoding="utf-8").read()
except OSError as e:
    print(f"cannot read it: {e.strerror}"); sys.exit(1)
n = text.count(old)
if n != 1:
    print(f"the original text occurs {n} times"); sys.exit(1)
open(path, "w", encoding="utf-8").write(text.replace(old, new))
PY
  ); then
    echo "$id did not apply ($file: $why)   [${whats[$i]}]"
    result=1
    continue
  fi
  ran=() caught=()
  IFS=',' read -r -a specs <<<"${suites[$i]}"
  if ! build_targets $(printf '%s\n' "${specs[@]}" | sed -e 's/^pulse://' -e 's,/.*,,' | sort -u); then
    echo "$id does not build ($file): see $work/build.log"
    result=1
  else
    for s in "${specs[@]}"; do
      ran+=("$s")
      while IFS= read -r t; do
        [[ -z "$t" ]] && continue
        grep -qxF -- "$t" <<<"${baseline[$s]}" && continue
        caught+=("${s#pulse:}: $t")
      done < <(run_suite "$s")
    done
    if ((${#caught[@]})); then
      echo "$id caught by: ${caught[*]}   [${whats[$i]}]"
    else
      echo "$id NOT CAUGHT (ran: ${ran[*]})   [${whats[$i]}]"
      result=1
    fi
  fi
  cp "$src/$file" "$tree/$file"  # a fresh mtime, so the next build recompiles it
done
exit $result
