#!/bin/bash
# End to end: the real executable against a real notification service (dunst
# on Xvfb) on a private session bus. Clicks are made the way a user's would
# reach the program: dunst's own "action" command for a body click and its
# context menu (through a stub menu program) for an action button.
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
dunstctl close-all

echo "# journal and state files"
check "journal is compact JSON of version 1" python3 -c '
import json,sys; d=json.load(open(sys.argv[1])); assert d["v"]==1 and isinstance(d["entries"],list)' "$STATE/notify-clicks.json"
check "journal is owner read/write only" test "$(stat -c %a "$STATE/notify-clicks.json")" = 600
check "state directory is owner only" test "$(stat -c %a "$STATE")" = 700

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
post "Recording auto-stops in 60s" "Make a sound to keep recording." "vela-app:ignore-silence:$marker" ||
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
check "the newer prompt and the note stay on screen" wait_until 5 banners_are 2
out=$("$BIN" --withdraw-meeting-prompt 2>&1)
check "withdraw without a bound takes the rest ($out)" test "$out" = "notify: withdraw — took back 1 meeting prompt(s)"
check "only the note is left" wait_until 5 banners_are 1
kill $old $new $note 2>/dev/null
dunstctl close-all

echo "# authorization modes"
chmod 755 "$STATE"
out=$("$BIN" --notif-auth-status 2>/dev/null)
check "--notif-auth-status prints authorized" test "$out" = authorized
check "status word recorded without newline" test "$(cat "$STATE/notif-auth-status")" = authorized
check "state directory tightened back to 0700" test "$(stat -c %a "$STATE")" = 700
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

if ((failures)); then
  echo "--- notify stderr"; cat "$WORK/notify.err" "$WORK/burst.err" 2>/dev/null
  echo "$failures check(s) failed"
  exit 1
fi
echo "all notify end-to-end checks passed"
