#!/usr/bin/env bash
# Runs a command with a sound server to talk to over the PulseAudio protocol.
#
#   scripts/with-pulse.sh [--server pulseaudio|pipewire] CMD [ARGS...]
#   AC_SOUND_SERVER=pipewire scripts/with-pulse.sh CMD [ARGS...]
#   scripts/with-pulse.sh --stop | --start     (inside CMD: restart the server)
#
# When a server already answers (of the kind asked for, if one was), CMD runs
# against it unchanged. Otherwise a private server is started for CMD alone,
# with its own runtime directory and no hardware: a PulseAudio daemon (the
# default), or PipeWire with WirePlumber and pipewire-pulse on a private
# session bus. Either way it gets null sinks "headset" and "speaker" (default) as outputs and a virtual
# microphone "mic" (default source) fed by the null sink "micfeed", so that
# whatever is played into "micfeed" is what the microphone hears. The server
# and its directory are removed whatever CMD does; the exit status is CMD's.
#
# CMD sees AC_SOUND_SERVER (the private server's kind), AC_SOUND_SERVER_DIR
# (its pid files and logs) and AC_SOUND_SERVER_CTL (this script): with those,
# `$AC_SOUND_SERVER_CTL --stop` kills the server and `--start` brings it back
# on the same socket with the same devices, returning once they answer.
#
# The descriptions are chosen to sort differently by code point than by a
# case-insensitive collation, and two differ only in case:
#   headset "studio", speaker "Studio", micfeed "aux-mic-feed".
set -uo pipefail

self=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/$(basename "${BASH_SOURCE[0]}")
asked=${AC_SOUND_SERVER:-}
if [[ ${1:-} == --server ]]; then
  asked=${2:-}
  shift 2
fi
kind=${asked:-pulseaudio}

# The server's processes, one pid file each in the private directory.
pids() { cat "$AC_SOUND_SERVER_DIR"/*.pid 2>/dev/null; }

stop_server() {
  local pid
  for pid in $(pids); do kill "$pid" 2>/dev/null; done
  for _ in $(seq 50); do
    local alive=""
    for pid in $(pids); do kill -0 "$pid" 2>/dev/null && alive=1; done
    [[ -z $alive ]] && break
    sleep 0.1
  done
  for pid in $(pids); do kill -9 "$pid" 2>/dev/null; done
  rm -f "$AC_SOUND_SERVER_DIR"/*.pid
}

# Starts `name` in the background, its pid kept for stop_server.
spawn() {
  local name=$1
  shift
  # Its own HOME keeps the server away from the user's configuration and
  # state (and works for users whose home is missing or unwritable).
  local home=$AC_SOUND_SERVER_DIR/home
  HOME=$home XDG_CONFIG_HOME=$home/.config XDG_STATE_HOME=$home/.state "$@" >>"$AC_SOUND_SERVER_DIR/$name.log" 2>&1 &
  echo $! >"$AC_SOUND_SERVER_DIR/$name.pid"
}

until_true() {
  for _ in $(seq 100); do
    "$@" >/dev/null 2>&1 && return 0
    sleep 0.1
  done
  return 1
}

start_pulseaudio() {
  # -n: no default script (it would look for hardware). --system=no and
  # --disallow-exit let it run as root in a container.
  spawn pulseaudio pulseaudio --daemonize=no -n --system=no --disallow-exit --exit-idle-time=-1 \
    --use-pid-file=no --disable-shm=yes --load="module-native-protocol-unix socket=${PULSE_SERVER#unix:} auth-anonymous=1"
}

start_pipewire() {
  # The stock configuration runs headless: with no sound card WirePlumber
  # creates no devices, and pipewire-pulse serves $XDG_RUNTIME_DIR/pulse/native.
  spawn pipewire pipewire
  until_true test -S "$XDG_RUNTIME_DIR/pipewire-0" || return 1
  spawn wireplumber wireplumber
  spawn pipewire-pulse pipewire-pulse
}

has_line() { pactl "${@:2}" | grep -q "$1"; }

# The devices of the header comment, then the defaults, each awaited: a
# PipeWire server applies them asynchronously.
start_server() {
  "start_$AC_SOUND_SERVER" || return 1
  until_true pactl info || return 1
  pactl load-module module-null-sink sink_name=headset sink_properties=device.description=studio >/dev/null &&
    pactl load-module module-null-sink sink_name=speaker sink_properties=device.description=Studio >/dev/null &&
    pactl load-module module-null-sink sink_name=micfeed sink_properties=device.description=aux-mic-feed >/dev/null &&
    pactl load-module module-remap-source master=micfeed.monitor source_name=mic \
      source_properties=device.description=Virtual-microphone >/dev/null || return 1
  until_true has_line $'\tmic\t' list short sources || return 1
  pactl set-default-sink speaker && pactl set-default-source mic || return 1
  until_true has_line '^Default Sink: speaker$' info && until_true has_line '^Default Source: mic$' info
}

case ${1:-} in
  --stop | --start)
    [[ -n ${AC_SOUND_SERVER_DIR:-} ]] || { echo "with-pulse: $1 needs a private server (AC_SOUND_SERVER_DIR)" >&2; exit 64; }
    if [[ $1 == --stop ]]; then stop_server; else start_server; fi
    exit $?
    ;;
  "")
    echo "usage: $0 [--server pulseaudio|pipewire] CMD [ARGS...] | --stop | --start" >&2
    exit 64
    ;;
esac
if [[ $kind != pulseaudio && $kind != pipewire ]]; then
  echo "with-pulse: unknown sound server \"$kind\" (pulseaudio or pipewire)" >&2
  exit 64
fi

# A running server serves unless another kind was asked for by name.
if running=$(pactl info 2>/dev/null); then
  [[ $running == *"on PipeWire"* ]] && running_kind=pipewire || running_kind=pulseaudio
  [[ -z $asked || $asked == "$running_kind" ]] && exec "$@"
fi

workdir=$(mktemp -d "${TMPDIR:-/tmp}/ac-pulse.XXXXXX")
bus_pid=""
export AC_SOUND_SERVER=$kind AC_SOUND_SERVER_DIR="$workdir/server" AC_SOUND_SERVER_CTL=$self

cleanup() {
  stop_server
  [[ -n $bus_pid ]] && kill "$bus_pid" 2>/dev/null
  rm -rf "$workdir"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

mkdir -m 700 -p "$workdir/runtime/pulse" "$workdir/state" "$AC_SOUND_SERVER_DIR/home"
export XDG_RUNTIME_DIR="$workdir/runtime"
export PULSE_RUNTIME_PATH="$workdir/runtime/pulse"
export PULSE_STATE_PATH="$workdir/state"
export PULSE_SERVER="unix:$workdir/runtime/pulse/native"
if [[ $kind == pipewire ]]; then
  # WirePlumber needs a session bus; a private one keeps it (and the
  # server) invisible to the rest of the machine.
  bus_pid=$(dbus-daemon --session --fork --address="unix:path=$workdir/runtime/bus" --print-pid) || exit 1
  export DBUS_SESSION_BUS_ADDRESS="unix:path=$workdir/runtime/bus"
fi

if ! start_server; then
  echo "with-pulse: the private $kind server did not start; its log:" >&2
  cat "$AC_SOUND_SERVER_DIR"/*.log >&2 2>/dev/null
  exit 1
fi

"$@"
status=$?
exit "$status"
