#!/usr/bin/env bash
# Every test: a normal build (build/) and an AddressSanitizer +
# UndefinedBehaviorSanitizer build (build-asan/), each configured, built and
# run with CTest against a private PulseAudio server (scripts/with-pulse.sh).
# Exits non-zero when any build or test fails.
#
#   JOBS=N scripts/test.sh     # parallel jobs (default 2)
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=${JOBS:-2}

configure_and_build() {
  local dir=$1
  shift
  cmake -S "$root" -B "$root/$dir" -G Ninja "$@"
  cmake --build "$root/$dir" -j "$jobs"
}

run_tests() {
  local dir=$1
  echo "== ctest in $dir"
  "$root/scripts/with-pulse.sh" ctest --test-dir "$root/$dir" --output-on-failure -j "$jobs" --timeout 300
}

configure_and_build build -DCMAKE_BUILD_TYPE=RelWithDebInfo
configure_and_build build-asan -DCMAKE_BUILD_TYPE=Debug -DAC_SANITIZE=ON

failed=()
run_tests build || failed+=(build)
run_tests build-asan || failed+=(build-asan)

if [[ ${#failed[@]} -gt 0 ]]; then
  echo "test.sh: FAILED in ${failed[*]}" >&2
  exit 1
fi
echo "test.sh: all tests passed in build and build-asan"
