#!/usr/bin/env bash
# Builds and runs the armed-launch and output-switch benchmark against a
# private PulseAudio server.
#
#   bench/armed_bench.sh [launches]     (default 10; build in $BUILD or build-bench/)
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${BUILD:-$root/build-bench}
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" -j "${JOBS:-2}" --target armed_bench audio-capture
exec "$root/scripts/with-pulse.sh" "$build/bench/armed_bench" "$@"
