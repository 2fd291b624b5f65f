#!/bin/bash
# End to end: the real executable against real notification services (dunst,
# then xfce4-notifyd, on Xvfb) on a private session bus, with dbus-monitor as
# the witness of what was asked of them. Clicks are made the way a user's
# would reach the program: dunst's own "action" command for a body click and
# its context menu (through a stub menu program) for an action button.
#
# usage: notify_e2e.sh /path/to/audio-capture
# Exit 77 (skipped) when the desktop tools are not installed.
set -u
HERE=$(cd "$(dirname "$0")" && pwd)
source "$HERE/desktop_session.sh"
require_tools

BUILT=$1
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
pass() { echo "ok   - $*"; }
check() {  # check DESCRIPTION COMMAND...
  local what=$1
  shift
  if "$@"; then pass "$what"; else fail "$what"; fi
}

start_desktop || exit 1
trap stop_desktop EXIT
STATE="$HOME/.local/state/vela"

# The executable sits two levels below a resources directory that holds the
# companion app's scripts, as it does inside the app.
RES="$WORK/Vela/resources"
mkdir -p "$RES/audio-capture-src/bin" "$RES/lib"
cp "$BUILT" "$RES/audio-capture-src/bin/audio-capture"
BIN="$RES/audio-capture-src/bin/audio-capture"
printf '#!/bin/sh\necho "$*" >>"%s"\n' "$WORK/silence.log" >"$RES/lib/silence-ignore.sh"
chmod 755 "$RES/lib/silence-ignore.sh"
mkdir -p "$HOME/.local/bin"
printf '#!/bin/sh\necho "template=${VELA_TEMPLATE_ID:-<none>}" >>"%s"\n' "$WORK/record-start.log" \
  >"$HOME/.local/bin/vela-record-start"
chmod 755 "$HOME/.local/bin/vela-record-start"

banners_are() { [ "$(displayed_count)" = "$1" ]; }
file_has() { [ -f "$1" ] && grep -qF -- "$2" "$1"; }
exited_within() {  # exited_within SECONDS PID
  wait_until "$1" sh -c "! kill -0 $2 2>/dev/null"
}
# Posts and waits until the banner is up; the poster's pid in $poster.
post() {
  local before
  before=$(displayed_count)
  "$BIN" --notify "$@" 2>>"$WORK/notify.err" &
  poster=$!
  wait_until 10 banners_are $((before + 1))
}
# Picks an action of the newest banner through dunst's context menu.
pick() {
  echo "$1" >"$WORK/want-action"
  dunstctl context
}

echo "# body click on a note banner opens its Obsidian link"
post "Title" "Body" /tmp/a.md || fail "note banner shown"
dunstctl action 0
check "xdg-open got the note link" wait_until 5 file_has "$WORK/xdg-open.log" "obsidian://open?path=%2Ftmp%2Fa.md"
check "the poster exits once its click is handled" exited_within 5 $poster
check "the clicked (resident) banner was closed" banners_are 0

echo "# the poster leaves with its banner"
post "Closed by hand" "Body" /tmp/c.md
dunstctl close
start=$(date +%s%N)
check "the poster exits within 2 s of its banner closing" exited_within 2 $poster
echo "  (poster gone $(( ($(date +%s%N) - start) / 1000000 )) ms after the close)"

echo "# Recordings banner"
dbus-monitor --session "interface='com.quorlan.vela'" >"$WORK/tab-signal.log" 2>&1 &
monitor=$!
post "Recording saved" "Open Recordings" vela-app:recordings || fail "Recordings banner shown"
dunstctl action 0
check "companion app launched on the Recordings tab" wait_until 5 file_has "$WORK/companion.log" "--tab recordings"
check "running companion told to switch tabs" wait_until 5 file_has "$WORK/tab-signal.log" 'string "recordings"'
kill $monitor 2>/dev/null
exited_within 5 $poster
dunstctl close-all

echo "# meeting prompt with template actions"
mkdir -p "$HOME/.config/vela"
echo '{"v":1,"shortcuts":[{"id":"t1","name":"Standup"},{"id":"t2","name":"Client"}]}' \
  >"$HOME/.config/vela/template-shortcuts.json"
post "Meeting starting" "Record it?" vela-app:record-start --meeting-prompt || fail "meeting prompt shown"
check "meeting prompt registered three actions" \
  file_has "$WORK/notify.err" "notify: meeting prompt — 3 action(s), category=vela.meeting."
tpl=$(python3 -c '
import hashlib; print("vela.act:tpl:" + hashlib.sha256(b"t2\nClient").hexdigest()[:32] + ":t2")')
pick "$tpl"
check "template action ran record-start with its template" wait_until 5 file_has "$WORK/record-start.log" "template=t2"
check "menu offered Start recording, Standup and Client" sh -c \
  "grep -q '#Start recording' '$WORK/dmenu.in' && grep -q '#Standup' '$WORK/dmenu.in' && grep -q '#Client' '$WORK/dmenu.in'"
exited_within 8 $poster
dunstctl close-all

echo "# silence warning snooze runs the silence-ignore script"
marker=TRANSCRIPT_PENDING_1792530208_4242
post "Recording auto-stops in 60s" "Make a sound to keep recording." "vela-app:ignore-silence:$marker" Basso ||
  fail "silence warning shown"
pick vela.silence:snooze-10
check "silence-ignore script got the marker and the minutes" wait_until 5 file_has "$WORK/silence.log" "$marker 10"
check "snooze outcome logged" wait_until 5 file_has "$WORK/notify.err" "notify: snooze-silence — snoozed"
exited_within 8 $poster
dunstctl close-all

echo "# withdrawing meeting prompts posted before a bound"
post "Meeting A" "Record it?" vela-app:record-start --meeting-prompt
old=$poster
bound=$(($(date +%s) + 1))
wait_until 3 sh -c "[ \$(date +%s) -ge $bound ]"
post "Meeting B" "Record it?" vela-app:record-start --meeting-prompt
new=$poster
post "A note" "Not a prompt" /tmp/b.md
note=$poster
out=$("$BIN" --withdraw-meeting-prompt "--before=$bound" 2>&1)
check "withdraw took back the older prompt only ($out)" test "$out" = "notify: withdraw — took back 1 meeting prompt(s)"
check "the withdrawn prompt's poster is gone" exited_within 2 $old
check "the newer prompt and the note stay on screen" wait_until 5 banners_are 2
out=$("$BIN" --withdraw-meeting-prompt 2>&1)
check "withdraw without a bound takes the rest ($out)" test "$out" = "notify: withdraw — took back 1 meeting prompt(s)"
check "only the note is left" wait_until 5 banners_are 1
kill $old $new $note 2>/dev/null
dunstctl close-all

echo "# authorization modes"
out=$("$BIN" --notif-auth-status 2>/dev/null)
check "--notif-auth-status prints authorized" test "$out" = authorized
"$BIN" --request-notif-auth 2>/dev/null
check "request wrote the marker" sh -c "head -2 '$STATE/.notif-auth-requested' | tr '\n' ' ' | grep -qx 'version=2 status=authorized '"
check "request log starts with the bundle line" sh -c "head -1 '$STATE/notif-auth.log' | grep -q '^\[notif-auth\] start; bundleID=com.quorlan.vela.audio-capture path=$RES/audio-capture-src/bin$'"

echo "# a bare launch"
out=$("$BIN" 2>&1)
status=$?
check "a bare launch routes nothing and says why" test "$status:$out" = \
  "0:notify: this notification service never relaunches on a click — nothing to route"

echo "# many posters and withdrawals at once"
pids=()
for i in $(seq 12); do
  "$BIN" --notify "Burst $i" "Body" 2>>"$WORK/burst.err" &
  pids+=($!)
  if ((i % 4 == 0)); then
    "$BIN" --withdraw-meeting-prompt 2>>"$WORK/burst.err" &
    pids+=($!)
  fi
done
for pid in "${pids[@]}"; do exited_within 20 "$pid" || { fail "burst process $pid still running"; kill "$pid"; }; done
check "journal still decodes after the burst" python3 -c '
import json,sys; d=json.load(open(sys.argv[1])); assert d["v"]==1' "$STATE/notify-clicks.json"
check "registry still decodes and lists every burst banner" python3 -c '
import json,sys; d=json.load(open(sys.argv[1])); titles=[r["title"] for r in d["rows"]]
assert all(("Burst %d" % i) in titles for i in range(1,13)), titles' "$STATE/linux-notifications.json"
check "every burst banner is on screen" banners_are 12

echo "# what each kind of banner asked of the service"
hints="sound-name=message-new-instant,desktop-entry=com.quorlan.vela.audio-capture"
while IFS='|' read -r title want; do
  got=$(sent_for "$title" | head -1)
  check "$title: $got" sh -c "printf '%s' \"\$1\" | grep -qxE -- \"\$2\"" _ "$got" "$want"
done <<EOF
Title|default\|$hints,resident=true\|0
Recording saved|default\|$hints,resident=true\|0
Meeting starting|default,vela\.act:start,vela\.act:tpl:[0-9a-f]{32}:t1,vela\.act:tpl:[0-9a-f]{32}:t2\|$hints,resident=true\|71[0-9]{5}
Recording auto-stops in 60s|vela\.silence:snooze-5,vela\.silence:snooze-10,vela\.silence:snooze-15,vela\.silence:ignore\|sound-name=dialog-warning,desktop-entry=com\.quorlan\.vela\.audio-capture,resident=true\|0
Burst 1|\|$hints\|-1
EOF

echo "# xfce4-notifyd: a prompt outlives the service's own timeout, a plain banner does not"
use_xfce || fail "xfce4-notifyd came up"
expirations() {  # NotificationClosed with reason 1, "expired"
  awk '/member=NotificationClosed/ { getline; getline; if ($2 == 1) n++ } END { print n + 0 }' "$WORK/witness.log"
}
expired() { [ "$(expirations)" -ge "$1" ]; }
before=$(expirations)
"$BIN" --notify "Plain on xfce" "Body" 2>>"$WORK/notify.err" &
"$BIN" --notify "Prompt on xfce" "Record it?" vela-app:record-start --meeting-prompt 2>>"$WORK/notify.err" &
prompt=$!
start=$SECONDS
check "the plain banner expired on the service's timeout" wait_until 30 expired $((before + 1))
echo "  (plain banner expired after about $((SECONDS - start)) s)"
sleep 3
check "the prompt did not expire" test "$(expirations)" = $((before + 1))
check "the prompt's poster still waits for it" kill -0 $prompt
kill $prompt

echo "# no notification service: every mode answers at once"
kill "$service"
wait_until 5 sh -c "! dbus-send --session --print-reply --dest=org.freedesktop.DBus / \
  org.freedesktop.DBus.NameHasOwner string:org.freedesktop.Notifications | grep -q true"
for mode in --notif-auth-status --request-notif-auth "--notify T B /tmp/a.md"; do
  start=$(date +%s%N)
  out=$(timeout 10 "$BIN" $mode 2>&1)
  ms=$(( ($(date +%s%N) - start) / 1000000 ))
  check "$mode answered in $ms ms" test "$ms" -lt 1000
done
check "--notify said why it posted nothing" sh -c "printf '%s' \"\$1\" | grep -q 'notify: skipped (auth=unknown)'" _ "$out"

echo "# GNOME: a click after the poster exited starts the program and routes through the journal"
use_gnome_standin "$BIN" || fail "the GNOME stand-in came up"
journal_id() {  # the request identifier journalled for a token
  python3 -c 'import json,sys; print([e["id"] for e in json.load(open(sys.argv[1]))["entries"]
    if e.get("token") == sys.argv[2]][-1])' "$STATE/notify-clicks.json" "$1"
}
"$BIN" --notify "Late note" "Body" /tmp/late.md 2>>"$WORK/notify.err" &
wait_until 10 grep -q "added com.quorlan.vela.audio-capture" "$WORK/shell.log"
check "the poster leaves at once: the click will start the program" exited_within 3 $!
id=$(journal_id /tmp/late.md)
shell_click "$id"
check "the started program opened the note" wait_until 10 file_has "$WORK/xdg-open.log" "%2Ftmp%2Flate.md"
shell_click "$id"
sleep 2
check "a second click opened nothing more" test "$(grep -c late.md "$WORK/xdg-open.log")" = 1
"$BIN" --notify "Late prompt" "Record it?" vela-app:record-start --meeting-prompt 2>>"$WORK/notify.err" &
wait_until 10 sh -c "grep -c 'added com.quorlan.vela.audio-capture' '$WORK/shell.log' | grep -qx 2"
exited_within 3 $!
python3 -c 'import json,sys; p=sys.argv[1]; d=json.load(open(p))
for e in d["entries"]:
    if "expires_at" in e: e["expires_at"] = 1000
json.dump(d, open(p, "w"))' "$STATE/notify-clicks.json"
: >"$WORK/record-start.log"
id=$(journal_id vela-app:record-start)
shell_click "$id"
check "an expired prompt clicked after exit is claimed" wait_until 10 sh -c "! grep -q $id '$STATE/notify-clicks.json'"
sleep 1
check "and starts nothing" test ! -s "$WORK/record-start.log"

if ((failures)); then
  echo "--- notify stderr"; cat "$WORK/notify.err" "$WORK/burst.err" 2>/dev/null
  echo "$failures check(s) failed"
  exit 1
fi
echo "all notify end-to-end checks passed"
