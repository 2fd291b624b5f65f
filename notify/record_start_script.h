// A meeting prompt's click starts a recording through the companion app's
// record-start script: run with the template in VELA_TEMPLATE_ID, output
// captured to a private temporary file, waited for a bounded time, its
// narration classified, and a banner shown only when nothing is recording.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "notify/record_start_outcome.h"

namespace ac::notify {

inline constexpr const char* recordStartScriptFallback = "/Applications/Vela.app/Contents/Resources/vela/bin/record-start";

// ~/.local/bin/vela-record-start, then "bin/record-start" two levels above
// this bundle, then the installed app's; the first executable one, if only
// this user or root can change it (trusted_script.h).
std::optional<std::string> recordStartScriptPath();

// Runs the script and waits at most `wait` seconds (blocking). A script
// still running then is left alone and reported as stillRunning. The capture
// file never outlives the call.
RecordStartClickOutcome runRecordStartForClick(const std::string& script, const std::optional<std::string>& templateID,
                                               double wait = notifyRecordStartWaitSeconds);

// Each non-empty line to standard error as "notify: record-start: <line>".
void echoRecordStartCapture(std::string_view text);
void echoRecordStartCaptureAt(const std::string& path);

// Posts the "Couldn't start recording" banner when the outcome needs one,
// then calls then on the main queue.
void reportRecordStartClickOutcome(const RecordStartClickOutcome& outcome, const std::function<void()>& then);

// The click's entry (main queue): begins a handler budget, runs the script
// on a background queue, reports, ends the budget and settles with then.
void startRecordingFromNotifyClick(const std::optional<std::string>& templateID, const std::function<void()>& then);

}  // namespace ac::notify
