// Answering a click: settling the journal, the once-only claim, folding an
// action button into a target, performing it, and the per-handler time
// budget that decides when a notify process may exit.
//
// Threads: everything here runs on the main queue, except
// foldNotifyClickAction(), which is pure. Handlers that run scripts do so on
// background queues and hop back to the main queue to end their budget and
// settle.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "notify/click_budget.h"
#include "notify/click_payload.h"
#include "notify/meeting_banner.h"
#include "platform/notification_center.h"

namespace ac::notify {

inline constexpr const char* companionBundleIdentifier = "com.quorlan.vela";
inline constexpr const char* companionOpenTabNotification = "com.quorlan.vela.open-tab";
inline constexpr const char* companionEmbeddedSuffix = "/Contents/Resources/vela/audio-capture-src/Vela.app";

// One response from the centre: settle the journal row, claim, resolve the
// envelope, fold the action, perform. completion is the centre's; done runs
// once the click's work has settled; claim may refuse (a cold route already
// answered).
void handleResponse(const platform::NotificationResponse& response, const std::function<void()>& completion,
                    const std::function<void()>& done, const std::function<bool()>& claim);

// What an action identifier makes of a resolved target.
struct NotifyClickActionResult {
  std::optional<NotifyClickTarget> target;
  // A meeting prompt's template pick that is no longer on the roster as
  // offered: the refusal banner is due.
  bool templateRefused = false;
};
NotifyClickActionResult foldNotifyClickAction(const NotifyClickTarget& target, const std::string& actionIdentifier,
                                              bool isCustomAction,
                                              const std::function<std::vector<MeetingBanner::RosterEntry>()>& roster);

// Carries out a target; then settles (directly, or from the handler that
// the target started).
void performNotifyClick(const NotifyClickTarget& target, const std::function<void()>& then);

// Calls then only when no click handler is in flight.
void notifySettleClick(const std::function<void()>& then);

// The process's handler table (main queue only).
NotifyClickHandlerToken beginNotifyClickHandler();
void endNotifyClickHandler(NotifyClickHandlerToken token);
const NotifyClickHandlers& notifyClickHandlers();

// After delay, on the main queue: exit 0 when no handler's deadline is still
// ahead, else check again every notifyExitPollSeconds.
void scheduleNotifyExit(double delay);
void notifyExitAfter(double delay);
// What the exit check calls instead of ending the process (tests and
// embedders); nullptr restores exitProcess(0).
void setNotifyExitAction(std::function<void()> action);

// A wait as the notify lines print it: "20", "0.5".
std::string secondsText(double seconds);

// The refusal banner for a stale template pick, inside a handler budget.
void reportMeetingTemplateRefusal(const std::function<void()>& then);

// The companion app: beside this bundle when embedded in it, else found by
// its bundle identifier.
std::optional<std::string> companionAppPath();
void openCompanionAppOnRecordings();
// The directory two levels above this bundle: inside the companion app, the
// resources directory that holds its "bin/" and "lib/" scripts.
std::string companionResourcesDirectory();
void openCompanionAppOnNote(const std::string& marker);

}  // namespace ac::notify
