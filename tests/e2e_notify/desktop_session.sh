# A throw-away desktop for the notify end-to-end test: an X server (Xvfb), a
# private session bus, a real notification service (dunst, or xfce4-notifyd
# after use_xfce) and a witness of the bus traffic, plus stubs that record
# what the program asks the desktop to do. Sourced by notify_e2e.sh; every
# process started here is stopped by stop_desktop.
#
# After start_desktop:
#   WORK            scratch directory (removed by stop_desktop)
#   HOME            $WORK/home
#   DISPLAY, DBUS_SESSION_BUS_ADDRESS   the private session
#   PATH            starts with $WORK/bin, which holds the stubs
#   $WORK/xdg-open.log      one line per URL opened
#   $WORK/companion.log     one line per companion-app launch (its arguments)
#   $WORK/dmenu.in          the last context menu dunst offered
#   $WORK/want-action       the action key the context-menu stub picks
#   $WORK/witness.log       dbus-monitor's record of the notification traffic

desktop_pids=()
XFCE_NOTIFYD=/usr/lib/x86_64-linux-gnu/xfce4/notifyd/xfce4-notifyd

require_tools() {
  local missing=()
  for tool in Xvfb dbus-daemon dbus-send dbus-monitor dunst dunstctl python3 "$XFCE_NOTIFYD"; do
    command -v "$tool" >/dev/null 2>&1 || missing+=("$tool")
  done
  if ((${#missing[@]})); then
    echo "SKIP: notify end-to-end test needs ${missing[*]} (not installed)"
    exit 77
  fi
}

write_stub() {  # write_stub NAME BODY
  printf '#!/bin/sh\n%s\n' "$2" >"$WORK/bin/$1"
  chmod 755 "$WORK/bin/$1"
}

start_desktop() {
  WORK=$(mktemp -d "${TMPDIR:-/tmp}/ac-notify-e2e.XXXXXX")
  export HOME="$WORK/home"
  mkdir -p "$HOME" "$WORK/bin"
  # Before the bus starts: programs it starts on demand inherit the stubs.
  export PATH="$WORK/bin:$PATH"
  unset XDG_RUNTIME_DIR XDG_DATA_HOME XDG_DATA_DIRS VELA_STATE_DIR

  # -displayfd picks a free display number and tells it once it is ready.
  Xvfb -displayfd 3 -screen 0 800x600x24 -nolisten tcp 3>"$WORK/display" >/dev/null 2>&1 &
  desktop_pids+=($!)
  for _ in $(seq 100); do [ -s "$WORK/display" ] && break; sleep 0.05; done
  [ -s "$WORK/display" ] || { echo "FAIL: Xvfb did not start"; return 1; }
  export DISPLAY=":$(head -1 "$WORK/display")"

  # Only services under $WORK/services can be started on demand: a name
  # nobody owns stays unowned.
  mkdir -p "$WORK/services"
  cat >"$WORK/bus.conf" <<EOF
<busconfig>
  <type>session</type>
  <listen>unix:tmpdir=$WORK</listen>
  <servicedir>$WORK/services</servicedir>
  <policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/>
    <allow own="*"/></policy>
</busconfig>
EOF
  dbus-daemon --config-file="$WORK/bus.conf" --fork --nopidfile --print-address=1 --print-pid=1 >"$WORK/bus" ||
    return 1
  export DBUS_SESSION_BUS_ADDRESS=$(sed -n 1p "$WORK/bus")
  desktop_pids+=($(sed -n 2p "$WORK/bus"))
  dbus-monitor --session "interface='org.freedesktop.Notifications'" >"$WORK/witness.log" 2>&1 &
  desktop_pids+=($!)

  write_stub xdg-open "echo \"\$*\" >>'$WORK/xdg-open.log'"
  write_stub vela-companion "echo \"\$*\" >>'$WORK/companion.log'"
  # dunst pipes its context menu through "dmenu"; the stub answers with the
  # line of the action named in want-action.
  write_stub pick-action "cat >'$WORK/dmenu.in'; grep -F \",\$(cat '$WORK/want-action')]\" '$WORK/dmenu.in' | head -1"

  mkdir -p "$HOME/.local/share/applications"
  printf '[Desktop Entry]\nType=Application\nName=Vela\nExec=vela-companion %%U\n' \
    >"$HOME/.local/share/applications/com.quorlan.vela.desktop"

  printf '[global]\n    dmenu = %s\n[urgency_low]\n    timeout = 0\n[urgency_normal]\n    timeout = 0\n' \
    "$WORK/bin/pick-action" >"$WORK/dunstrc"
  dunst -config "$WORK/dunstrc" >"$WORK/dunst.log" 2>&1 &
  service=$!
  desktop_pids+=($service)
  service_up
}

service_up() {
  for _ in $(seq 100); do
    dbus-send --session --print-reply --dest=org.freedesktop.Notifications /org/freedesktop/Notifications \
      org.freedesktop.Notifications.GetServerInformation >/dev/null 2>&1 && return 0
    sleep 0.05
  done
  echo "FAIL: the notification service did not come up"
  return 1
}

# Replaces dunst by xfce4-notifyd with its own default timeout.
use_xfce() {
  kill "$service"
  wait_until 5 sh -c "! dbus-send --session --print-reply --dest=org.freedesktop.DBus / \
    org.freedesktop.DBus.NameHasOwner string:org.freedesktop.Notifications | grep -q true"
  "$XFCE_NOTIFYD" >"$WORK/xfce.log" 2>&1 &
  service=$!
  desktop_pids+=($service)
  service_up
}

# Replaces the service by the stand-in for GNOME Shell (org.gtk.Notifications);
# a click starts the program from $WORK/services when nothing holds its name.
use_gnome_standin() {  # use_gnome_standin EXECUTABLE
  kill "$service" 2>/dev/null
  printf '[D-BUS Service]\nName=com.quorlan.vela.audio-capture\nExec=%s\n' "$1" \
    >"$WORK/services/com.quorlan.vela.audio-capture.service"
  /usr/bin/python3 "$(dirname "${BASH_SOURCE[0]}")/gtk_notifications_standin.py" >"$WORK/shell.log" 2>&1 &
  service=$!
  desktop_pids+=($service)
  wait_until 10 grep -qs ready "$WORK/shell.log"
}
shell_click() {  # shell_click REQUEST-ID [ACTION]
  dbus-send --session --print-reply --dest=org.gtk.Notifications /org/gtk/Notifications \
    test.Desktop.Click string:com.quorlan.vela.audio-capture "string:$1" "string:${2:-}" >/dev/null
}

# What the witness saw posted under a title: "actions|hints|expire_timeout"
# with the action keys and the hints in the order sent.
sent_for() {
  python3 - "$WORK/witness.log" "$1" <<'PY'
import re, sys
for call in re.split(r"\n(?=\S)", open(sys.argv[1]).read()):
    if not call.startswith("method call ") or "member=Notify" not in call.split("\n")[0]:
        continue
    strings = re.findall(r'^\s*string "(.*)"$', call, re.M)
    if strings[2] != sys.argv[2]:
        continue
    actions = call.split("array [")[1].split("]")[0]
    keys = re.findall(r'string "(.*)"', actions)[0::2]
    hints = call.split("array [")[2]
    pairs = re.findall(r'string "([^"]*)"\s*variant\s+\w+ "?([^"\n]*)"?', hints)
    expire = re.search(r"int32 (-?\d+)\s*$", call).group(1)
    print(",".join(keys) + "|" + ",".join(k + "=" + v for k, v in pairs) + "|" + expire)
PY
}

stop_desktop() {
  local pid
  for pid in "${desktop_pids[@]}"; do kill "$pid" 2>/dev/null; done
  for pid in "${desktop_pids[@]}"; do
    for _ in $(seq 40); do kill -0 "$pid" 2>/dev/null || break; sleep 0.05; done
    kill -9 "$pid" 2>/dev/null
  done
  [ -n "${WORK:-}" ] && rm -rf "$WORK"
}

# Banners on screen now.
displayed_count() { dunstctl count displayed; }

wait_until() {  # wait_until SECONDS COMMAND...
  local limit=$1
  shift
  local end=$((SECONDS + limit))
  until "$@"; do
    ((SECONDS >= end)) && return 1
    sleep 0.1
  done
}
