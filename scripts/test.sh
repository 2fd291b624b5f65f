#!/usr/bin/env bash
# Every test: a normal build (build/) and an AddressSanitizer +
# UndefinedBehaviorSanitizer build (build-asan/), each configured, built and
# run with CTest against a private PulseAudio server (scripts/with-pulse.sh),
# the server suites of the normal build once more against PipeWire,
# a ThreadSanitizer build of the core suites (build-tsan/), then the parsers'
# libFuzzer targets (clang, build-fuzz/) for a bounded time.
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

# ThreadSanitizer over the core suites only (label unit, no sound server, no
# backends): what runs on the dispatch queues. Building the rest again would
# cost CI more than it finds.
tsan_targets=(support_tests cli_tests capture_tests recorder_tests notify_core_tests notify_flow_tests)
cmake -S "$root" -B "$root/build-tsan" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DAC_SANITIZE=thread -DAC_BUILD_BENCH=OFF
if cmake --build "$root/build-tsan" -j "$jobs" --target "${tsan_targets[@]}"; then
  echo "== ctest in build-tsan"
  TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
    ctest --test-dir "$root/build-tsan" -L unit -E _NOT_BUILT --output-on-failure -j "$jobs" --timeout 300 ||
    failed+=(build-tsan)
else
  failed+=(build-tsan)
fi
echo "== fuzzing the parsers (${FUZZ_SECONDS:-15}s each)"
"$root/tests/fuzz/run-fuzzers.sh" "$root/build-fuzz" "${FUZZ_SECONDS:-15}" || failed+=(fuzz)

if [[ ${#failed[@]} -gt 0 ]]; then
  echo "test.sh: FAILED in ${failed[*]}" >&2
  exit 1
fi
echo "test.sh: all tests passed in build, build-asan and build-tsan; fuzzers found nothing"
