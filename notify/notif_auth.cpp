#include "notify/notif_auth.h"

#include <fcntl.h>
#include <unistd.h>

#include <utility>

#include "notify/awaited_answer.h"
#include "notify/notify_command.h"
#include "notify/notify_modes.h"
#include "notify/state_dir.h"
#include "platform/platform.h"
#include "support/log.h"
#include "support/paths.h"
#include "support/process_exit.h"
#include "support/state_file.h"

namespace ac::notify {
namespace {

constexpr const char* kStatusFile = "notif-auth-status";
constexpr const char* kMarkerFile = ".notif-auth-requested";
constexpr const char* kLockFile = ".notif-auth.lock";
constexpr const char* kLogFile = "notif-auth.log";

// The request's diagnostic writer: its own log file, emptied per request, and
// standard error.
class NotifAuthLog {
 public:
  explicit NotifAuthLog(std::string path) : path_(std::move(path)) {
    UniqueFd(::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC, 0600));
  }
  void operator()(const std::string& message) const {
    std::string line = "[notif-auth] " + message + "\n";
    // Non-blocking and not through a link: a FIFO or link planted at the
    // path must neither hang the request nor redirect its lines.
    UniqueFd fd(::open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (fd) (void)!::write(fd.get(), line.data(), line.size());
    writeStderr(line);
  }

 private:
  std::string path_;
};

const char* boolWord(bool b) { return b ? "true" : "false"; }

}  // namespace

std::optional<platform::NotificationAuthorizationStatus> currentNotifAuthStatus(double timeout) {
  auto& center = platform::current().notifications();
  return awaitAnswer<platform::NotificationAuthorizationStatus>(
      timeout, [&](std::function<void(platform::NotificationAuthorizationStatus)> done) {
        center.getAuthorizationStatus(std::move(done));
      });
}

std::string notifAuthStatusName(std::optional<platform::NotificationAuthorizationStatus> status) {
  if (!status) return "unknown";
  switch (*status) {
    case 0: return "notDetermined";
    case 1: return "denied";
    case 2: return "authorized";
    case 3: return "provisional";
    case 4: return "ephemeral";
    default: return "unknown";
  }
}

bool notifAuthDelivers(std::string_view statusWord) {
  return statusWord == "authorized" || statusWord == "provisional";
}

void writeNotifAuthStatus(const std::string& statusWord) {
  std::string dir = notifAuthStateDir();
  secureStateDir(dir);
  (void)writeFileAtomically(dir + "/" + kStatusFile, statusWord, 0600);
}

std::string queryAndRecordNotifAuthStatus(double timeout) {
  std::string word = notifAuthStatusName(currentNotifAuthStatus(timeout));
  writeNotifAuthStatus(word);
  return word;
}

NotifAuthRequestAnswer requestNotifAuthorization(double timeout) {
  using Answer = std::pair<bool, std::optional<Error>>;
  auto& center = platform::current().notifications();
  auto answer = awaitAnswer<Answer>(timeout, [&](std::function<void(Answer)> done) {
    center.requestAuthorization(/*alert=*/true, /*sound=*/true, /*badge=*/false,
                                [done](bool granted, std::optional<Error> error) { done({granted, error}); });
  });
  if (!answer) return {};
  return {true, answer->first, answer->second};
}

bool keepNotifAuthMarker(std::string_view before, std::string_view after, bool requestSucceeded) {
  if (notifAuthDelivers(after)) return true;
  return after != "notDetermined" && requestSucceeded && before != "unknown";
}

std::string notifAuthMarkerContents(std::string_view statusWord, int64_t appMtime) {
  return "version=2\nstatus=" + std::string(statusWord) + "\napp_mtime=" + std::to_string(appMtime) + "\n";
}

NotifAuthRequestRun requestNotifAuthAndRecord() {
  std::string dir = notifAuthStateDir();
  secureStateDir(dir);
  // The lock keeps two launches of the companion app from prompting at once;
  // a lock file that cannot be opened at all does not stop the request.
  FileLock lock = tryLockFile(dir + "/" + kLockFile, 0644);
  if (lock.outcome == FileLock::Outcome::busy) return NotifAuthRequestRun::busy;
  NotifAuthLog log(dir + "/" + kLogFile);
  installNotifyDelegate();

  auto& workspace = platform::current().workspace();
  auto bundleID = workspace.bundleIdentifier();
  log("start; bundleID=" + bundleID.value_or("nil") + " path=" + workspace.bundlePath());

  std::string before = notifAuthStatusName(currentNotifAuthStatus(notifAuthQueryTimeoutSeconds));
  log("status BEFORE = " + before);
  NotifAuthRequestAnswer answer = requestNotifAuthorization(notifAuthRequestTimeoutSeconds);
  log(std::string("requestAuthorization granted = ") + boolWord(answer.granted));
  if (answer.error) log("notify: authorization error: " + answer.error->description);

  std::string after = notifAuthStatusName(currentNotifAuthStatus(notifAuthQueryTimeoutSeconds));
  log("status AFTER = " + after);
  writeNotifAuthStatus(after);

  std::string markerPath = dir + "/" + kMarkerFile;
  NotifAuthRequestRun result;
  if (keepNotifAuthMarker(before, after, answer.succeeded())) {
    int64_t mtime = workspace.bundleModificationTime();
    int err = writeFileAtomically(markerPath, notifAuthMarkerContents(after, mtime), 0600);
    if (err == 0) {
      log("wrote marker " + markerPath + " (version=2 status=" + after + " app_mtime=" + std::to_string(mtime) + ")");
    } else {
      log("could not write marker " + markerPath + ": " + errnoText(err));
    }
    result = NotifAuthRequestRun::markerKept;
  } else {
    bool existed = ::unlink(markerPath.c_str()) == 0;
    log(std::string(existed ? "marker REMOVED" : "marker not written") + " (before=" + before + " after=" + after +
        ") requestSucceeded=" + boolWord(answer.succeeded()) + " — will re-check next run");
    result = NotifAuthRequestRun::markerDropped;
  }
  log("done");
  return result;
}

void runRequestNotifAuth() {
  (void)requestNotifAuthAndRecord();
  exitProcess(0);
}

void runNotifAuthStatus() {
  installNotifyDelegate();
  emit(queryAndRecordNotifAuthStatus(notifAuthQueryTimeoutSeconds));
  exitProcess(0);
}

}  // namespace ac::notify
