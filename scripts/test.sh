#!/usr/bin/env bash
# Every test: a normal build (build/) and an AddressSanitizer +
# UndefinedBehaviorSanitizer build (build-asan/), each configured, built and
# run with CTest against a private PulseAudio server (scripts/with-pulse.sh),
# the server suites of the normal build once more against PipeWire,
# then the parsers' libFuzzer targets (clang, build-fuzz/) for a bounded time.
# Exits non-zero when any build or test fails.
#
#   JOBS=N scripts/test.sh            # parallel jobs (default 2)
#   FUZZ_SECONDS=N scripts/test.sh    # seconds per fuzz target (default 15)
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
# The suites that talk to the sound server once more against PipeWire's
# pulse server (normal build only: the sanitizers add nothing server-specific).
echo "== ctest in build against PipeWire"
AC_SOUND_SERVER=pipewire "$root/scripts/with-pulse.sh" ctest --test-dir "$root/build" --output-on-failure \
  -j "$jobs" --timeout 300 -L 'e2e|pulse' -E notify_e2e || failed+=(build-pipewire)
run_tests build-asan || failed+=(build-asan)
echo "== fuzzing the parsers (${FUZZ_SECONDS:-15}s each)"
"$root/tests/fuzz/run-fuzzers.sh" "$root/build-fuzz" "${FUZZ_SECONDS:-15}" || failed+=(fuzz)

if [[ ${#failed[@]} -gt 0 ]]; then
  echo "test.sh: FAILED in ${failed[*]}" >&2
  exit 1
fi
echo "test.sh: all tests passed in build and build-asan; fuzzers found nothing"
