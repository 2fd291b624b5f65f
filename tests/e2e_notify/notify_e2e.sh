#!/bin/bash
# End to end: the real executable against real notification services (dunst,
# then xfce4-notifyd, on Xvfb) on a private session bus, with dbus-monitor as
# the witness of what was asked of them, and last a stand-in for GNOME Shell
# (gtk_notifications_standin.py) that starts the program on a click. Clicks
# are made the way a user's would reach the program: dunst's own "action"
# command for a body click and its context menu (through a stub menu program)
# for an action button. Stubs in $WORK/bin record what the program asks the
# desktop to do: xdg-open.log (URLs), companion.log (companion launches).
#
# usage: notify_e2e.sh /path/to/audio-capture
# Exit 77 (skipped) when the desktop tools are not installed.
set -u
XFCE=/usr/lib/x86_64-linux-gnu/xfce4/notifyd/xfce4-notifyd
for tool in Xvfb dbus-daemon dbus-send dbus-monitor dunst dunstctl python3 "$XFCE"; do
  command -v "$tool" >/dev/null || { echo "SKIP: notify end-to-end test needs $tool (not installed)"; exit 77; }
done

failures=0
check() {  # check DESCRIPTION COMMAND...
  local what=$1
  shift
  if "$@"; then echo "ok   - $what"; else echo "FAIL: $what"; failures=$((failures + 1)); fi
}
fail() { check "$1" false; }
wait_until() {  # wait_until SECONDS COMMAND...
  local end=$((SECONDS + $1))
  shift
  until "$@"; do ((SECONDS >= end)) && return 1; sleep 0.1; done
}
gone_within() { wait_until "$1" sh -c "! kill -0 $2 2>/dev/null"; }
has() { [ -f "$1" ] && grep -qF -- "$2" "$1"; }
stub() { printf '#!/bin/sh\n%s\n' "$2" >"$1" && chmod 755 "$1"; }
owned() { dbus-send --session --print-reply --dest=org.freedesktop.DBus / org.freedesktop.DBus.NameHasOwner \
  string:org.freedesktop.Notifications | grep -q true; }
unowned() { ! owned; }

WORK=$(mktemp -d "${TMPDIR:-/tmp}/ac-notify-e2e.XXXXXX")
pids=()
trap 'kill "${pids[@]}" 2>/dev/null; sleep 0.3; kill -9 "${pids[@]}" 2>/dev/null; rm -rf "$WORK"' EXIT
# Before the bus starts: programs it starts on demand inherit the stubs.
export HOME="$WORK/home" PATH="$WORK/bin:$PATH"
unset XDG_RUNTIME_DIR XDG_DATA_HOME XDG_DATA_DIRS VELA_STATE_DIR
STATE="$HOME/.local/state/vela"
# The executable sits two levels below a resources directory that holds the
# companion app's scripts, as it does inside the app.
RES="$WORK/Vela/resources"
BIN="$RES/audio-capture-src/bin/audio-capture"
mkdir -p "$WORK/bin" "$WORK/services" "${BIN%/*}" "$RES/lib" "$HOME/.local/bin" "$HOME/.config/vela" \
  "$HOME/.local/share/applications"
cp "$1" "$BIN"
stub "$WORK/bin/xdg-open" "echo \"\$*\" >>'$WORK/xdg-open.log'"
stub "$WORK/bin/vela-companion" "echo \"\$*\" >>'$WORK/companion.log'"
# dunst pipes its context menu through "dmenu"; this one answers with the
# line of the action named in want-action.
stub "$WORK/bin/pick-action" "cat >'$WORK/dmenu.in'; grep -F \",\$(cat '$WORK/want-action')]\" '$WORK/dmenu.in' | head -1"
stub "$RES/lib/silence-ignore.sh" "echo \"\$*\" >>'$WORK/silence.log'"
stub "$HOME/.local/bin/vela-record-start" "echo \"template=\${VELA_TEMPLATE_ID:-<none>}\" >>'$WORK/record-start.log'"
printf '[Desktop Entry]\nType=Application\nName=Vela\nExec=vela-companion %%U\n' \
  >"$HOME/.local/share/applications/com.quorlan.vela.desktop"
printf '[global]\n    dmenu = %s\n[urgency_low]\n    timeout = 0\n[urgency_normal]\n    timeout = 0\n' \
  "$WORK/bin/pick-action" >"$WORK/dunstrc"

# -displayfd picks a free display number and tells it once it is ready.
Xvfb -displayfd 3 -screen 0 800x600x24 -nolisten tcp 3>"$WORK/display" >/dev/null 2>&1 &
pids+=($!)
wait_until 5 test -s "$WORK/display" || { echo "FAIL: Xvfb did not start"; exit 1; }
export DISPLAY=":$(head -1 "$WORK/display")"
# Only services under $WORK/services can be started on demand: a name nobody
# owns stays unowned.
cat >"$WORK/bus.conf" <<EOF
<busconfig><type>session</type><listen>unix:tmpdir=$WORK</listen><servicedir>$WORK/services</servicedir>
  <policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/>
  </policy></busconfig>
EOF
dbus-daemon --config-file="$WORK/bus.conf" --fork --nopidfile --print-address=1 --print-pid=1 >"$WORK/bus" || exit 1
export DBUS_SESSION_BUS_ADDRESS=$(sed -n 1p "$WORK/bus")
pids+=($(sed -n 2p "$WORK/bus"))
dbus-monitor --session "interface='org.freedesktop.Notifications'" >"$WORK/witness.log" 2>&1 &
pids+=($!)

serve() {  # serve COMMAND...: the notification service from now on
  [ -n "${service:-}" ] && kill "$service" && wait_until 5 unowned
  "$@" >>"$WORK/service.log" 2>&1 &
  service=$!
  pids+=($service)
  wait_until 5 owned || { echo "FAIL: $1 did not come up"; exit 1; }
}
serve dunst -config "$WORK/dunstrc"

banners_are() { [ "$(dunstctl count displayed)" = "$1" ]; }
post() {  # posts and waits until the banner is up; the poster's pid in $poster
  local before
  before=$(dunstctl count displayed)
  "$BIN" --notify "$@" 2>>"$WORK/notify.err" &
  poster=$!
  wait_until 10 banners_are $((before + 1)) || fail "banner $1 shown"
}
pick() {  # picks an action of the newest banner through dunst's context menu
  echo "$1" >"$WORK/want-action"
  dunstctl context
}

echo "# body click on a note banner opens its Obsidian link"
post "Title" "Body" /tmp/a.md
dunstctl action 0
check "xdg-open got the note link" wait_until 5 has "$WORK/xdg-open.log" "obsidian://open?path=%2Ftmp%2Fa.md"
check "the poster exits once its click is handled" gone_within 5 $poster
check "the clicked (resident) banner was closed" banners_are 0

echo "# the poster leaves with its banner"
post "Closed by hand" "Body" /tmp/c.md
dunstctl close
check "the poster exits within 2 s of its banner closing" gone_within 2 $poster

echo "# Recordings banner"
dbus-monitor --session "interface='com.quorlan.vela'" >"$WORK/tab-signal.log" 2>&1 &
pids+=($!)
post "Recording saved" "Open Recordings" vela-app:recordings
dunstctl action 0
check "companion app launched on the Recordings tab" wait_until 5 has "$WORK/companion.log" "--tab recordings"
check "running companion told to switch tabs" wait_until 5 has "$WORK/tab-signal.log" 'string "recordings"'
gone_within 5 $poster

echo "# meeting prompt with template actions"
echo '{"v":1,"shortcuts":[{"id":"t1","name":"Standup"},{"id":"t2","name":"Client"}]}' \
  >"$HOME/.config/vela/template-shortcuts.json"
post "Meeting starting" "Record it?" vela-app:record-start --meeting-prompt
check "meeting prompt registered three actions" \
  has "$WORK/notify.err" "notify: meeting prompt — 3 action(s), category=vela.meeting."
pick "vela.act:tpl:$(printf 't2\nClient' | sha256sum | cut -c1-32):t2"
check "template action ran record-start with its template" wait_until 5 has "$WORK/record-start.log" "template=t2"
check "menu offered the templates by name" test "$(grep -cE '#(Standup|Client)' "$WORK/dmenu.in")" = 2
gone_within 8 $poster

echo "# silence warning snooze runs the silence-ignore script"
marker=TRANSCRIPT_PENDING_1792530208_4242
post "Recording auto-stops in 60s" "Make a sound to keep recording." "vela-app:ignore-silence:$marker" Basso
pick vela.silence:snooze-10
check "silence-ignore script got the marker and the minutes" wait_until 5 has "$WORK/silence.log" "$marker 10"
gone_within 8 $poster

echo "# withdrawing the meeting prompt, not the note"
dunstctl close-all
post "Meeting A" "Record it?" vela-app:record-start --meeting-prompt
prompt=$poster
post "A note" "Not a prompt" /tmp/b.md
out=$("$BIN" --withdraw-meeting-prompt 2>&1)
check "withdraw took back the prompt ($out)" test "$out" = "notify: withdraw — took back 1 meeting prompt(s)"
check "the withdrawn prompt's poster is gone" gone_within 2 $prompt
check "the note stays on screen" wait_until 5 banners_are 1
kill $poster
dunstctl close-all

echo "# authorization and a bare launch"
check "--notif-auth-status prints authorized" test "$("$BIN" --notif-auth-status 2>/dev/null)" = authorized
out=$("$BIN" 2>&1)
check "a bare launch routes nothing and says why" test "$?:$out" = \
  "0:notify: this notification service never relaunches on a click — nothing to route"

echo "# many posters and withdrawals at once"
burst=()
for i in $(seq 12); do
  "$BIN" --notify "Burst $i" "Body" 2>>"$WORK/notify.err" &
  burst+=($!)
  ((i % 4)) || { "$BIN" --withdraw-meeting-prompt 2>>"$WORK/notify.err" & burst+=($!); }
done
for pid in "${burst[@]}"; do gone_within 20 "$pid" || { fail "burst process $pid still running"; kill "$pid"; }; done
check "journal and registry decode and list every burst banner" python3 -c '
import json,sys; assert json.load(open(sys.argv[1]))["v"] == 1
titles = [r["title"] for r in json.load(open(sys.argv[2]))["rows"]]
assert all(("Burst %d" % i) in titles for i in range(1, 13)), titles' "$STATE/notify-clicks.json" \
  "$STATE/linux-notifications.json"
check "every burst banner is on screen" banners_are 12

echo "# what each kind of banner asked of the service: actions|hints|expire_timeout"
sent_for() {
  python3 - "$WORK/witness.log" "$1" <<'PY'
import re, sys
for call in re.split(r"\n(?=\S)", open(sys.argv[1]).read()):
    if not call.startswith("method call ") or "member=Notify" not in call.split("\n")[0]:
        continue
    if re.findall(r'^\s*string "(.*)"$', call, re.M)[2] != sys.argv[2]:
        continue
    keys = re.findall(r'string "(.*)"', call.split("array [")[1].split("]")[0])[0::2]
    hints = re.findall(r'string "([^"]*)"\s*variant\s+\w+ "?([^"\n]*)"?', call.split("array [")[2])
    expire = re.search(r"int32 (-?\d+)\s*$", call).group(1)
    print(",".join(keys) + "|" + ",".join(k + "=" + v for k, v in hints) + "|" + expire)
PY
}
hints="sound-name=message-new-instant,desktop-entry=com.quorlan.vela.audio-capture"
while IFS='|' read -r title want; do
  got=$(sent_for "$title" | head -1)
  check "$title: $got" grep -qxE -- "$want" <<<"$got"
done <<EOF
Title|default\|$hints,resident=true\|0
Recording saved|default\|$hints,resident=true\|0
Meeting starting|default,vela\.act:start,vela\.act:tpl:[0-9a-f]{32}:t1,vela\.act:tpl:[0-9a-f]{32}:t2\|$hints,resident=true\|71[0-9]{5}
Recording auto-stops in 60s|vela\.silence:snooze-5,vela\.silence:snooze-10,vela\.silence:snooze-15,vela\.silence:ignore\|sound-name=dialog-warning,desktop-entry=com\.quorlan\.vela\.audio-capture,resident=true\|0
Burst 1|\|$hints\|-1
EOF

echo "# xfce4-notifyd: a prompt outlives the service's own timeout, a plain banner does not"
serve "$XFCE"
expirations() {  # NotificationClosed with reason 1, "expired"
  awk '/member=NotificationClosed/ { getline; getline; if ($2 == 1) n++ } END { print n + 0 }' "$WORK/witness.log"
}
before=$(expirations)
"$BIN" --notify "Plain on xfce" "Body" 2>>"$WORK/notify.err" &
"$BIN" --notify "Prompt on xfce" "Record it?" vela-app:record-start --meeting-prompt 2>>"$WORK/notify.err" &
prompt=$!
expired() { [ "$(expirations)" -ge "$1" ]; }
check "the plain banner expired on the service's timeout" wait_until 30 expired $((before + 1))
sleep 3
check "the prompt did not expire" test "$(expirations)" = $((before + 1))
check "the prompt's poster still waits for it" kill -0 $prompt
kill $prompt

echo "# no notification service: every mode answers at once"
kill "$service"
wait_until 5 unowned
for mode in --notif-auth-status --request-notif-auth "--notify T B /tmp/a.md"; do
  start=$(date +%s%N)
  out=$(timeout 10 "$BIN" $mode 2>&1)
  ms=$((($(date +%s%N) - start) / 1000000))
  check "$mode answered in $ms ms" test "$ms" -lt 1000
done
check "--notify said why it posted nothing" grep -q 'notify: skipped (auth=unknown)' <<<"$out"

echo "# GNOME: a click after the poster exited starts the program and routes through the journal"
printf '[D-BUS Service]\nName=com.quorlan.vela.audio-capture\nExec=%s\n' "$BIN" \
  >"$WORK/services/com.quorlan.vela.audio-capture.service"
/usr/bin/python3 "$(dirname "$0")/gtk_notifications_standin.py" >"$WORK/shell.log" 2>&1 &
pids+=($!)
wait_until 10 grep -qs ready "$WORK/shell.log" || fail "the GNOME stand-in came up"
late() {  # late TITLE TOKEN [ARGS...]: posts; the request identifier the shell was given in $id
  "$BIN" --notify "$1" "Body" "${@:2}" 2>>"$WORK/notify.err" &
  check "$1: the poster leaves at once, the click will start the program" gone_within 3 $!
  id=$(grep '^added ' "$WORK/shell.log" | tail -1 | cut -d' ' -f3)
  check "$1 is journalled under that identifier" has "$STATE/notify-clicks.json" "\"id\":\"$id\""
}
click() {
  dbus-send --session --print-reply --dest=org.gtk.Notifications /org/gtk/Notifications \
    test.Desktop.Click string:com.quorlan.vela.audio-capture "string:$1" >/dev/null
}
late "Late note" /tmp/late.md
click "$id"
check "the started program opened the note" wait_until 10 has "$WORK/xdg-open.log" "%2Ftmp%2Flate.md"
click "$id"
sleep 2
check "a second click opened nothing more" test "$(grep -c late.md "$WORK/xdg-open.log")" = 1
late "Late prompt" vela-app:record-start --meeting-prompt
python3 -c 'import json,sys; p=sys.argv[1]; d=json.load(open(p))
for e in d["entries"]:
    if "expires_at" in e: e["expires_at"] = 1000
json.dump(d, open(p, "w"))' "$STATE/notify-clicks.json"
: >"$WORK/record-start.log"
click "$id"
check "an expired prompt clicked after exit is claimed" wait_until 10 sh -c "! grep -q $id '$STATE/notify-clicks.json'"
sleep 1
check "and starts nothing" test ! -s "$WORK/record-start.log"

if ((failures)); then
  echo "--- notify stderr"
  cat "$WORK/notify.err"
  echo "$failures check(s) failed"
  exit 1
fi
echo "all notify end-to-end checks passed"
