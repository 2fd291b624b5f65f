// The silence warning's buttons run the companion app's silence-ignore
// script with the recording's marker (and the snooze minutes), bounded in
// time: a script that hangs is stopped with SIGTERM, then SIGKILL.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace ac::notify {

inline constexpr const char* silenceIgnoreScriptFallback =
    "/Applications/Vela.app/Contents/Resources/vela/lib/silence-ignore.sh";

// "lib/silence-ignore.sh" two levels above this bundle, else the installed
// app's; nothing when neither is executable, or when the first executable
// one can be changed by other users (trusted_script.h).
std::optional<std::string> silenceIgnoreScriptPath();

// Runs the script (blocking) and returns the one-line outcome: "ignored",
// "snoozed", "refused (status N)", "launch failed: ...", "timed out after Ns".
std::string runSilenceIgnoreScript(const std::string& script, const std::string& marker,
                                   std::optional<int> snoozeMinutes, double wait);

// The click: begins a handler budget, runs the script off the main queue,
// logs the outcome, then ends the budget and settles with then (main queue).
void ignoreSilenceFromNotifyClick(const std::string& marker, std::optional<int> snoozeMinutes,
                                  const std::function<void()>& then);

}  // namespace ac::notify
