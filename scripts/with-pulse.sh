#!/usr/bin/env bash
# Runs a command with a PulseAudio server to talk to.
#
#   scripts/with-pulse.sh CMD [ARGS...]
#
# When a server already answers, CMD runs against it unchanged. Otherwise a
# private daemon is started for CMD alone, with its own runtime directory and
# no hardware: null sinks "headset" and "speaker" (default) as outputs and a
# virtual microphone "mic" (default source) fed by the null sink "micfeed",
# so that whatever is played into "micfeed" is what the microphone hears.
# The daemon and its directory are removed whatever CMD does; the exit
# status is CMD's.
#
# The descriptions are chosen to sort differently by code point than by a
# case-insensitive collation, and two differ only in case:
#   headset "studio", speaker "Studio", micfeed "aux-mic-feed".
set -uo pipefail

if [[ $# -eq 0 ]]; then
  echo "usage: $0 CMD [ARGS...]" >&2
  exit 64
fi

if pactl info >/dev/null 2>&1; then
  exec "$@"
fi

workdir=$(mktemp -d "${TMPDIR:-/tmp}/ac-pulse.XXXXXX")
daemon_pid=""

cleanup() {
  if [[ -n "$daemon_pid" ]] && kill -0 "$daemon_pid" 2>/dev/null; then
    kill "$daemon_pid" 2>/dev/null
    for _ in $(seq 50); do
      kill -0 "$daemon_pid" 2>/dev/null || break
      sleep 0.1
    done
    kill -9 "$daemon_pid" 2>/dev/null
    wait "$daemon_pid" 2>/dev/null
  fi
  rm -rf "$workdir"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

mkdir -m 700 "$workdir/runtime" "$workdir/state" "$workdir/home"
socket="$workdir/runtime/native"
export XDG_RUNTIME_DIR="$workdir/runtime"
export PULSE_RUNTIME_PATH="$workdir/runtime"
export PULSE_STATE_PATH="$workdir/state"

# -n: no default script (it would look for hardware); every module is named
# here. --system=no and --disallow-exit let it run as root in a container.
# Its own HOME keeps it away from the user's configuration (and works for
# users whose home is missing or unwritable).
HOME="$workdir/home" XDG_CONFIG_HOME="$workdir/home/.config" pulseaudio --daemonize=no -n --system=no --disallow-exit --exit-idle-time=-1 \
  --use-pid-file=no --disable-shm=yes --log-target=file:"$workdir/pulse.log" \
  --load="module-native-protocol-unix socket=$socket auth-anonymous=1" \
  --load="module-null-sink sink_name=headset sink_properties=device.description=studio" \
  --load="module-null-sink sink_name=speaker sink_properties=device.description=Studio" \
  --load="module-null-sink sink_name=micfeed sink_properties=device.description=aux-mic-feed" \
  --load="module-remap-source master=micfeed.monitor source_name=mic source_properties=device.description=Virtual-microphone" \
  &
daemon_pid=$!

export PULSE_SERVER="unix:$socket"
ready=""
for _ in $(seq 100); do
  if pactl info >/dev/null 2>&1; then
    ready=1
    break
  fi
  if ! kill -0 "$daemon_pid" 2>/dev/null; then break; fi
  sleep 0.1
done
if [[ -z "$ready" ]]; then
  echo "with-pulse: the private PulseAudio daemon did not start; its log:" >&2
  cat "$workdir/pulse.log" >&2 2>/dev/null
  exit 1
fi
pactl set-default-sink speaker >/dev/null
pactl set-default-source mic >/dev/null

"$@"
status=$?
exit "$status"
