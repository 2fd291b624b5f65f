#!/usr/bin/env bash
# A real recording against ffmpeg, on a private PulseAudio server
# (scripts/with-pulse.sh):
#
#   bench/record_bench.sh [MINUTES]     # default 5; BUILD_DIR=DIR to pick the build
#
# A click train plays into the default output "speaker" for the whole run;
# the microphone is "speakercopy", a copy of the speaker's monitor, so both
# tracks hear the same clicks. audio-capture and ffmpeg record the same two
# sources at the same time, each into two AAC tracks in fragmented MPEG-4
# with 5-second fragments (system audio stereo at 128 kb/s at the sink's
# rate, microphone mono at 64 kb/s at 48 kHz, so both do the same work),
# and both are stopped with SIGTERM. Printed: CPU seconds per minute
# recorded, peak resident memory, the time from launch to the "pid=" line
# (audio-capture alone), and the offset between the tracks at the start and
# the end of the file with the drift between the two. Nothing is asserted.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir="${BUILD_DIR:-$root/build}"
exe="$build_dir/main/audio-capture"
offsets="$build_dir/bench/track_offsets"
copy_delay="$build_dir/bench/copy_delay"
minutes=${1:-5}
out_dir="$root/out/bench"
launches=5

fail() {
  echo "record_bench: $*" >&2
  exit 1
}

pids=()
stop_all() {
  local pid
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
  pids=()
  [[ -n ${copy_module:-} ]] && pactl unload-module "$copy_module" 2>/dev/null || true
}

# Milliseconds from launching audio-capture to reading its "pid=" line.
launch_to_pid_ms() {
  local fd pid line started
  started=$EPOCHREALTIME
  exec {fd}< <(exec "$exe" --output "$out_dir/launch.m4a" 2>/dev/null)
  pid=$!
  read -r -t 10 -u "$fd" line || fail "no pid= line from audio-capture within 10 s"
  awk -v a="$started" -v b="$EPOCHREALTIME" 'BEGIN{printf "%.1f\n", (b-a)*1000}'
  [[ $line == "pid=$pid" ]] || fail "expected pid=$pid, read \"$line\""
  kill -TERM "$pid"
  wait "$pid" || fail "audio-capture exited $? after SIGTERM"
  exec {fd}<&-
}

# Children of GNU time: the recorder it measures.
child_of() {
  local parent=$1 child=""
  for _ in $(seq 100); do
    child=$(pgrep -P "$parent" || true)
    [[ -n $child ]] && break
    sleep 0.05
  done
  [[ -n $child ]] || fail "no child under $parent"
  echo "$child"
}

# "user system maxrss_kb" from GNU time's output file, as CPU s/min and MB.
usage_line() {
  local label=$1 file=$2 launch=${3:-}
  # The last line: GNU time puts a note about a non-zero exit before it.
  read -r user sys rss < <(tail -n 1 "$file") || fail "no resource figures in $file"
  awk -v l="$label" -v u="$user" -v s="$sys" -v r="$rss" -v m="$minutes" -v t="$launch" 'BEGIN{
    printf "  %-14s CPU %6.2f s/min (user %.2f s + sys %.2f s)   peak RSS %6.1f MB", l, (u+s)/m, u, s, r/1024
    if (t != "") printf "   launch to pid= %s ms", t
    printf "\n"}'
}

# What a process holds just before it is stopped: its own memory (anonymous)
# and the pages of the files it maps, mostly shared libraries.
resident() {
  awk -v l="$1" '/^RssAnon/{a=$2} /^RssFile/{f=$2} END{printf "  %-14s resident before stop: %.1f MB anonymous + %.1f MB of mapped files\n", l, a/1024, f/1024}' \
    "/proc/$2/status"
}

under_pulse() {
  trap stop_all EXIT
  local sink_rate seconds=$((minutes * 60))
  sink_rate=$(pactl list short sinks | awk '$2=="speaker"{print $0}' | grep -o '[0-9]*Hz' | tr -d Hz)
  [[ -n $sink_rate ]] || fail "no sink \"speaker\": run where no PulseAudio server is running"
  copy_module=$(pactl load-module module-remap-source master=speaker.monitor source_name=speakercopy) ||
    fail "cannot load the speaker copy source"

  echo "== launch to pid= ($launches launches, idle server)"
  local times=() k
  for k in $(seq $launches); do times+=("$(launch_to_pid_ms)"); done
  printf '%s\n' "${times[@]}" | sort -n | awk '{v[NR]=$1} END{printf "  audio-capture  min %.1f ms, median %.1f ms, max %.1f ms\n", v[1], v[int((NR+1)/2)], v[NR]}'

  echo "== recording $minutes min: clicks into speaker; system = speaker.monitor, mic = speakercopy (sink at $sink_rate Hz)"
  "$offsets" --clicks $((seconds + 15)) "$out_dir/clicks.f32"
  pacat --playback --format=float32le --channels=1 --rate=48000 --device=speaker "$out_dir/clicks.f32" &
  pids+=($!)
  rm -f "$out_dir"/{ours,ffmpeg}.{m4a,time,log,out}

  local started ready launch
  started=$EPOCHREALTIME
  /usr/bin/time -f '%U %S %M' -o "$out_dir/ours.time" \
    "$exe" --output "$out_dir/ours.m4a" --log "$out_dir/ours.log" --mic-uid speakercopy >"$out_dir/ours.out" 2>/dev/null &
  local ours_time=$!
  pids+=($ours_time)
  /usr/bin/time -f '%U %S %M' -o "$out_dir/ffmpeg.time" \
    ffmpeg -nostdin -v error -y \
    -f pulse -sample_rate "$sink_rate" -channels 2 -i speaker.monitor \
    -f pulse -sample_rate 48000 -channels 1 -i speakercopy \
    -map 0 -map 1 -c:a aac -b:a:0 128k -b:a:1 64k \
    -movflags +frag_keyframe+empty_moov+default_base_moof -frag_duration 5000000 \
    "$out_dir/ffmpeg.m4a" 2>"$out_dir/ffmpeg.log" &
  local ffmpeg_time=$!
  pids+=($ffmpeg_time)
  until grep -q '^pid=' "$out_dir/ours.out" 2>/dev/null; do
    kill -0 $ours_time 2>/dev/null || fail "audio-capture ended early; see $out_dir/ours.log"
    sleep 0.005
  done
  ready=$EPOCHREALTIME
  launch=$(awk -v a="$started" -v b="$ready" 'BEGIN{printf "%.1f", (b-a)*1000}')
  local ours ff
  ours=$(child_of $ours_time)
  ff=$(child_of $ffmpeg_time)
  # An idle null sink renders in 2-second blocks and heeds the recorders'
  # shorter latency only from its next block: once all four capture streams
  # (and the copy's own) are connected, suspend and resume it to start one.
  for _ in $(seq 500); do
    (($(pactl list short source-outputs | wc -l) >= 5)) && break
    sleep 0.01
  done
  pactl suspend-sink speaker 1 && pactl suspend-sink speaker 0 || fail "cannot suspend and resume the speaker sink"

  # The copy's own delay behind the monitor, over the first and the last
  # 20 s (the windows the offsets are measured in).
  local window=20
  ((seconds >= 2 * window)) || window=$((seconds / 2))
  "$copy_delay" speaker.monitor speakercopy "$sink_rate" $window >"$out_dir/copy_start.txt" &
  pids+=($!)
  sleep $((seconds - window))
  "$copy_delay" speaker.monitor speakercopy "$sink_rate" $window >"$out_dir/copy_end.txt"
  resident audio-capture "$ours" >"$out_dir/resident.txt"
  resident ffmpeg "$ff" >>"$out_dir/resident.txt"
  kill -TERM "$ours" "$ff"
  wait $ours_time || fail "audio-capture exited with status $? (see $out_dir/ours.log)"
  # ffmpeg ends with status 255 when a signal stops it, its file finished.
  local ffmpeg_status=0
  wait $ffmpeg_time || ffmpeg_status=$?
  ((ffmpeg_status == 0 || ffmpeg_status == 255)) || fail "ffmpeg exited with status $ffmpeg_status (see $out_dir/ffmpeg.log)"
  pids=("${pids[0]}") # the click player is still running

  echo "== resources ($minutes min recorded)"
  usage_line audio-capture "$out_dir/ours.time" "$launch"
  usage_line ffmpeg "$out_dir/ffmpeg.time"
  cat "$out_dir/resident.txt"
  echo "== offset of the microphone track behind the system track, first and last $window s"
  "$offsets" "$out_dir/ours.m4a" $window | tee "$out_dir/ours.offsets" | sed 's/^/  audio-capture /'
  "$offsets" "$out_dir/ffmpeg.m4a" $window | tee "$out_dir/ffmpeg.offsets" | sed 's/^/  ffmpeg        /'
  echo "== the copy source's own delay, first and last $window s"
  sed 's/^/  /' "$out_dir/copy_start.txt" "$out_dir/copy_end.txt"
  echo "== offset net of the copy's delay (start, end; drift)"
  net_offsets audio-capture "$out_dir/ours.offsets"
  net_offsets ffmpeg "$out_dir/ffmpeg.offsets"
}

# "<label>  start X ms, end Y ms; drift Z ms" from track_offsets' lines,
# each offset less the copy's delay measured over the same window.
net_offsets() {
  local label=$1 file=$2 copy_start copy_end
  copy_start=$(grep -o '[-0-9.]* ms after' "$out_dir/copy_start.txt" | cut -d' ' -f1)
  copy_end=$(grep -o '[-0-9.]* ms after' "$out_dir/copy_end.txt" | cut -d' ' -f1)
  grep -o 'offset at the [a-z]* ([^)]*): [-+0-9.]* ms' "$file" | awk -F': ' -v l="$label" -v cs="$copy_start" -v ce="$copy_end" '
    {v[NR]=$2+0} END{if (NR==2) printf "  %-14s start %+.3f ms, end %+.3f ms; drift %+.3f ms\n", l, v[1]-cs, v[2]-ce, (v[2]-ce)-(v[1]-cs)}'
}

if [[ "${1:-}" == "--under-pulse" ]]; then
  minutes=${2:-5}
  under_pulse
  exit
fi

[[ $minutes =~ ^[1-9][0-9]*$ ]] || fail "MINUTES must be a whole number of minutes, not \"$minutes\""
[[ -x /usr/bin/time ]] || fail "GNU time is missing (apt-get install time)"
command -v pgrep >/dev/null || fail "pgrep is missing (apt-get install procps)"
cmake -S "$root" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null || fail "cmake configure failed"
cmake --build "$build_dir" -j "${JOBS:-2}" --target audio-capture track_offsets >/dev/null || fail "the build failed"
mkdir -p "$out_dir"
"$root/scripts/with-pulse.sh" "${BASH_SOURCE[0]}" --under-pulse "$minutes"
