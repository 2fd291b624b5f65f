#!/usr/bin/env bash
# The main job, end to end: build audio-capture, then run it against a
# private PulseAudio server (scripts/with-pulse.sh) and show what it sees.
# Each stage is a function; stages that need the sound server run inside
# with-pulse.sh, which re-enters this script with --under-pulse.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir="$root/build"
exe="$build_dir/main/audio-capture"

stage_build() {
  echo "== build"
  cmake -S "$root" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build "$build_dir" -j "${JOBS:-2}" --target audio-capture
}

stage_output_devices() {
  echo "== output devices (audio-capture --list-outputs)"
  "$exe" --list-outputs
  echo "== current output (audio-capture --current-output)"
  "$exe" --current-output
}

# Everything that talks to the sound server.
stages_under_pulse() {
  stage_output_devices
}

if [[ "${1:-}" == "--under-pulse" ]]; then
  stages_under_pulse
  exit
fi

stage_build
"$root/scripts/with-pulse.sh" "${BASH_SOURCE[0]}" --under-pulse
echo "== demo finished"
