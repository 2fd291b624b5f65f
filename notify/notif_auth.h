// Notification authorization: the status query with its time-out, the status
// words callers parse, the recorded status file and the request marker that
// tells the companion app whether to ask again.
//
// Files in the private state directory (notify/state_dir.h):
//   "notif-auth-status"      the bare status word, no newline
//   ".notif-auth-requested"  the marker (notifAuthMarkerContents)
//   ".notif-auth.lock"       held while a request runs
//   "notif-auth.log"         the last request's diagnostic lines
//
// The query and request functions block the calling thread on a semaphore
// (never the centre's threads) and may be called from any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/notification_center.h"
#include "support/error.h"

namespace ac::notify {

inline constexpr double notifAuthQueryTimeoutSeconds = 5.0;
inline constexpr double notifAuthRequestTimeoutSeconds = 30.0;

// The centre's status, or nothing when it did not answer within timeout.
std::optional<platform::NotificationAuthorizationStatus> currentNotifAuthStatus(
    double timeout = notifAuthQueryTimeoutSeconds);

// "notDetermined", "denied", "authorized", "provisional", "ephemeral";
// "unknown" for any other value and for no answer.
std::string notifAuthStatusName(std::optional<platform::NotificationAuthorizationStatus> status);

// Whether banners are shown under this status word.
bool notifAuthDelivers(std::string_view statusWord);

// Records the word in "notif-auth-status" (atomically); failures are ignored.
void writeNotifAuthStatus(const std::string& statusWord);

// The status word after querying and recording it: the "--notif-auth-status"
// answer.
std::string queryAndRecordNotifAuthStatus(double timeout = notifAuthQueryTimeoutSeconds);

// An authorization request for alerts and sounds, waited for at most timeout.
struct NotifAuthRequestAnswer {
  bool answered = false;  // the centre answered within the time-out
  bool granted = false;
  std::optional<Error> error;
  bool succeeded() const { return answered && !error; }
};
NotifAuthRequestAnswer requestNotifAuthorization(double timeout);

// Whether "--request-notif-auth" keeps (writes) the marker: when the status
// after delivers banners, or when the user's decision is definite: decided
// after, a request that answered without error, and a known status before.
bool keepNotifAuthMarker(std::string_view before, std::string_view after, bool requestSucceeded);

// "version=2\nstatus=<word>\napp_mtime=<seconds>\n"
std::string notifAuthMarkerContents(std::string_view statusWord, int64_t appMtime);

// What one "--request-notif-auth" run did.
enum class NotifAuthRequestRun {
  busy,        // another request holds the lock: nothing done
  markerKept,  // marker written
  markerDropped,
};
// The whole request (everything but the exit), logging through the request's
// own writer: "[notif-auth] " lines to "notif-auth.log" and standard error.
NotifAuthRequestRun requestNotifAuthAndRecord();

}  // namespace ac::notify
