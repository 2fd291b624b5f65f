#!/usr/bin/env bash
# The main job, end to end: build audio-capture, then record a call against
# a private PulseAudio server (scripts/with-pulse.sh) and show what it made.
#
#   scripts/demo.sh     # results in out/demo/ (DEMO_OUT=DIR and BUILD_DIR=DIR to change)
#
# The call is synthesized: two espeak-ng voices take turns; the remote party
# is played to the default output (the sink "speaker", which the recorder
# taps as system audio) and the local party into the sink "micfeed", which
# the virtual microphone "mic" hears. audio-capture records about 8 seconds,
# is stopped with SIGTERM and must exit 0; then the tracks, their levels per
# turn, the key log lines and a waveform picture of both tracks are shown.
#
# Each stage is a function; those that need the sound server run inside
# with-pulse.sh, which re-enters this script with --under-pulse. Any failing
# stage stops the demo with a "demo: " message and a non-zero status.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir="${BUILD_DIR:-$root/build}"
exe="$build_dir/main/audio-capture"
out_dir="${DEMO_OUT:-$root/out/demo}"
parts="$out_dir/parts"
call="$out_dir/call.m4a"
call_log="$out_dir/call.log"
record_seconds=8
font=/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf

# Turns of the call: party, then what it says.
turns=(
  "remote|Hi, can you hear me?"
  "local|Yes, loud and clear."
  "remote|Great. Shall we begin?"
  "local|Sure, go ahead."
)
remote_voice="en-us+m3"
local_voice="en-gb+f3"
lead_in=0.5 # seconds of silence before the first turn
gap=0.3     # seconds between turns

fail() {
  echo "demo: $*" >&2
  exit 1
}

need() {
  local tool
  for tool in "$@"; do
    command -v "$tool" >/dev/null || fail "$tool is missing (scripts/install-deps.sh installs it)"
  done
}

stage_build() {
  echo "== build"
  need cmake ninja
  cmake -S "$root" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null || fail "cmake configure failed"
  cmake --build "$build_dir" -j "${JOBS:-2}" --target audio-capture || fail "the build failed"
}

stage_output_devices() {
  echo "== output devices (audio-capture --list-outputs)"
  "$exe" --list-outputs || fail "--list-outputs failed"
  echo "== current output (audio-capture --current-output)"
  "$exe" --current-output || fail "--current-output failed"
}

# The private server's sinks are where the parties are played.
require_demo_sinks() {
  local sinks
  sinks=$(pactl list short sinks) || fail "pactl cannot reach the sound server"
  for sink in speaker micfeed; do
    grep -q "^[0-9]*[[:space:]]$sink[[:space:]]" <<<"$sinks" ||
      fail "no sink \"$sink\": the demo needs the private server of scripts/with-pulse.sh (stop the running PulseAudio server first)"
  done
  [[ $(pactl get-default-sink) == speaker ]] || fail "the default output is not \"speaker\""
}

# Writes $parts/remote.wav and $parts/local.wav: the same length, each party
# speaking in its turns and silent in the other's.
stage_conversation() {
  echo "== conversation (espeak-ng: remote $remote_voice, local $local_voice)"
  need espeak-ng sox soxi
  rm -rf "$parts"
  mkdir -p "$parts"
  local rate=22050 i=0 turn party text voice
  local remote_parts=() local_parts=()
  sox -n -r $rate -c 1 "$parts/lead.wav" trim 0 "$lead_in"
  sox -n -r $rate -c 1 "$parts/gap.wav" trim 0 "$gap"
  remote_parts+=("$parts/lead.wav")
  local_parts+=("$parts/lead.wav")
  for turn in "${turns[@]}"; do
    i=$((i + 1))
    party=${turn%%|*}
    text=${turn#*|}
    voice=$remote_voice
    [[ $party == local ]] && voice=$local_voice
    espeak-ng -v "$voice" -s 170 -w "$parts/raw$i.wav" "$text" || fail "espeak-ng failed on turn $i"
    # Trim espeak's leading and trailing silence, then make a silent twin.
    sox "$parts/raw$i.wav" -r $rate "$parts/turn$i.wav" silence 1 0.02 0.5% reverse silence 1 0.02 0.5% reverse
    sox "$parts/turn$i.wav" "$parts/hush$i.wav" vol 0
    if [[ $party == remote ]]; then
      remote_parts+=("$parts/turn$i.wav" "$parts/gap.wav")
      local_parts+=("$parts/hush$i.wav" "$parts/gap.wav")
    else
      remote_parts+=("$parts/hush$i.wav" "$parts/gap.wav")
      local_parts+=("$parts/turn$i.wav" "$parts/gap.wav")
    fi
    printf '   turn %d  %-6s %5.2f s  "%s"\n' "$i" "$party" "$(soxi -D "$parts/turn$i.wav")" "$text"
  done
  sox "${remote_parts[@]}" "$parts/remote.wav"
  sox "${local_parts[@]}" "$parts/local.wav"
  printf '   %.2f s in all (%.1f s of silence first)\n' "$(soxi -D "$parts/remote.wav")" "$lead_in"
}

# Everything started in the background (the silence streams, the players,
# the recorder), ended however the demo ends.
background_pids=()
silence_pids=()
stop_background() {
  local pid
  for pid in "${background_pids[@]}"; do
    kill "$pid" 2>/dev/null || true
  done
  for pid in "${background_pids[@]}"; do
    wait "$pid" 2>/dev/null || true
  done
  background_pids=()
}

now() { date +%s.%N; }

# Records while the parties speak; stops with SIGTERM after $record_seconds.
stage_record() {
  echo "== record ($record_seconds s): audio-capture --output $call --log $call_log"
  need pacat paplay pactl
  trap stop_background EXIT
  # An idle null sink renders in 2-second blocks, so a capture that starts
  # on it may hear nothing for up to 2 s. A low-latency stream of silence
  # keeps the blocks short once a PulseAudio sink is suspended and resumed
  # (PipeWire heeds it at once, and its remapped sources stay silent after a
  # suspend).
  for sink in speaker micfeed; do
    pacat --playback --latency-msec=10 --device=$sink /dev/zero &
    background_pids+=($!)
    silence_pids+=($!)
  done
  for _ in $(seq 500); do
    (($(pactl list short sink-inputs | wc -l) >= 2)) && break
    sleep 0.01
  done
  if ! pactl info | grep -q "on PipeWire"; then
    for sink in speaker micfeed; do
      pactl suspend-sink $sink 1 && pactl suspend-sink $sink 0 || fail "cannot suspend and resume $sink"
    done
  fi

  rm -f "$call" "$call_log"
  "$exe" --output "$call" --log "$call_log" >"$out_dir/stdout.txt" 2>/dev/null &
  local recorder=$! started ready played
  background_pids+=($recorder)
  started=$(now)
  until grep -q '^pid=' "$out_dir/stdout.txt"; do
    kill -0 $recorder 2>/dev/null || { cat "$call_log" >&2; fail "audio-capture ended before it printed pid="; }
    (($(awk -v a="$started" -v b="$(now)" 'BEGIN{print (b-a>10)}'))) && fail "no pid= line within 10 s"
    sleep 0.01
  done
  ready=$(now)
  printf '   %s after %.0f ms\n' "$(cat "$out_dir/stdout.txt")" "$(awk -v a="$started" -v b="$ready" 'BEGIN{print (b-a)*1000}')"

  played=$(now)
  paplay "$parts/remote.wav" & # the default output: the speaker sink
  local remote_player=$!
  paplay --device=micfeed "$parts/local.wav" &
  local local_player=$!
  background_pids+=($remote_player $local_player)
  wait $remote_player || fail "paplay of the remote party failed"
  wait $local_player || fail "paplay of the local party failed"
  # Where the conversation starts on the file's time line (zero is about
  # when the recorder started), for the per-turn levels.
  awk -v a="$ready" -v b="$played" 'BEGIN{print b-a}' >"$parts/offset"

  sleep "$(awk -v a="$ready" -v b="$(now)" -v n=$record_seconds 'BEGIN{d=n-(b-a); print (d>0?d:0)}')"
  kill -TERM $recorder
  local status=0 waited=0
  while kill -0 $recorder 2>/dev/null && ((waited < 200)); do
    sleep 0.1
    waited=$((waited + 1))
  done
  kill -0 $recorder 2>/dev/null && fail "audio-capture did not exit within 20 s of SIGTERM"
  wait $recorder || status=$?
  ((status == 0)) || { cat "$call_log" >&2; fail "audio-capture exited $status after SIGTERM"; }
  echo "   stopped with SIGTERM after $(awk -v a="$ready" -v b="$(now)" 'BEGIN{printf "%.1f", b-a}') s, exit 0"
  background_pids=("${silence_pids[@]}") # the others have been waited for
  stop_background
  trap - EXIT
}

# Mean and peak volume of `filter`ed track N: "mean -23.1 dB, peak -6.0 dB".
volume_of() {
  local track=$1 filter=$2 report
  report=$(ffmpeg -hide_banner -nostats -i "$call" -map "0:a:$track" -af "${filter}volumedetect" -f null - 2>&1) ||
    fail "ffmpeg could not measure track $((track + 1))"
  awk '/mean_volume/{m=$(NF-1)} /max_volume/{p=$(NF-1)} END{printf "mean %6s dB, peak %6s dB", m, p}' <<<"$report"
}

stage_report() {
  need ffprobe ffmpeg
  [[ -s $call ]] || fail "no recording at $call"
  echo "== what it made: $call ($(stat -c %s "$call") bytes)"
  local names=("system audio (remote party)" "microphone (local party)")
  local streams
  streams=$(ffprobe -v error -select_streams a -show_entries stream=codec_name,profile,sample_rate,channels,duration \
    -of csv=p=0 "$call") || fail "ffprobe cannot read $call"
  [[ $(wc -l <<<"$streams") -eq 2 ]] || fail "expected 2 audio tracks, ffprobe shows: $streams"
  local k=0 codec profile rate channels duration
  while IFS=, read -r codec profile rate channels duration; do
    printf '   track %d  %-28s %s %s, %s Hz, %s channel(s), %.3f s\n' $((k + 1)) "${names[k]}" "$codec" "$profile" \
      "$rate" "$channels" "$duration"
    k=$((k + 1))
  done <<<"$streams"

  echo "== levels"
  local level
  for k in 0 1; do
    level=$(volume_of $k "")
    printf '   track %d  whole call    %s\n' $((k + 1)) "$level"
  done
  # Each turn should be loud on its party's track and silent on the other.
  local offset at=$lead_in i=0 turn length from to
  offset=$(cat "$parts/offset")
  for turn in "${turns[@]}"; do
    i=$((i + 1))
    length=$(soxi -D "$parts/turn$i.wav")
    from=$(awk -v o="$offset" -v a="$at" 'BEGIN{print o+a+0.05}')
    to=$(awk -v o="$offset" -v a="$at" -v l="$length" 'BEGIN{print o+a+l-0.05}')
    for k in 0 1; do
      level=$(volume_of $k "atrim=start=$from:end=$to,")
      printf '   track %d  turn %d %-6s %s\n' $((k + 1)) $i "${turn%%|*}" "$level"
    done
    at=$(awk -v a="$at" -v l="$length" -v g="$gap" 'BEGIN{print a+l+g}')
  done

  echo "== key log lines ($call_log)"
  grep -E '\] (starting capture → |auth: mic=|writer started → |system IOProc started|mic capture session running|ready, pid=|signal received|stopping$|stats: |finalizing|writer done|finalize-ok|exit$)' \
    "$call_log" || fail "the log holds none of the key lines"

  stage_waveforms
}

# Both tracks as waveforms, one above the other, labelled, a line a second.
stage_waveforms() {
  local png="$out_dir/waveforms.png" width=1200 height=180 duration px_per_second graph="" k
  duration=$(ffprobe -v error -show_entries format=duration -of csv=p=0 "$call")
  px_per_second=$(awk -v w=$width -v d="$duration" 'BEGIN{printf "%d", w/d}')
  local labels=("track 1 - system audio (remote party)" "track 2 - microphone (local party)")
  local colors=("0x4f9dff" "0xff8a3d")
  local label
  for k in 0 1; do
    # Labels need a font; without one (fonts-dejavu-core) the tracks are
    # still in order, system audio on top.
    label=""
    [[ -f $font ]] && label=",drawtext=fontfile=$font:text='${labels[k]}':x=10:y=8:fontsize=18:fontcolor=white"
    graph+="[0:a:$k]aformat=channel_layouts=mono,showwavespic=s=${width}x${height}:colors=${colors[k]}:scale=sqrt[w$k];"
    graph+="color=c=0x1b1f27:s=${width}x${height}:d=1,format=rgba[bg$k];"
    graph+="[bg$k][w$k]overlay=format=auto,drawgrid=w=$px_per_second:h=$((height + 1)):c=white@0.15${label}[t$k];"
  done
  graph+="[t0][t1]vstack=inputs=2"
  ffmpeg -v error -y -i "$call" -filter_complex "$graph" -frames:v 1 "$png" || fail "ffmpeg could not draw $png"
  echo "== waveforms (a grid line every second): $png"
}

stages_under_pulse() {
  require_demo_sinks
  stage_output_devices
  stage_conversation
  stage_record
  stage_report
}

if [[ "${1:-}" == "--under-pulse" ]]; then
  stages_under_pulse
  exit
fi

need pulseaudio
stage_build
mkdir -p "$out_dir"
"$root/scripts/with-pulse.sh" "${BASH_SOURCE[0]}" --under-pulse || fail "the demo failed (see above)"
echo "== demo finished: $out_dir"
