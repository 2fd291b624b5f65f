#include "notify/record_start_script.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "notify/click_handling.h"
#include "notify/notify_command.h"
#include "notify/notify_modes.h"
#include "notify/trusted_script.h"
#include "support/dispatch.h"
#include "support/log.h"
#include "support/paths.h"
#include "support/spawn.h"
#include "support/text.h"
#include "support/uuid.h"

namespace ac::notify {
namespace {

constexpr const char* kTemplateVariable = "VELA_TEMPLATE_ID";
constexpr const char* kRefusalSound = "Basso";

std::string temporaryDirectory() {
  const char* t = std::getenv("TMPDIR");
  std::string dir = t && *t ? t : "/tmp";
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  return dir;
}

// Ends the handler's budget and settles, on the main queue.
std::function<void()> finishOnMain(NotifyClickHandlerToken token, const std::function<void()>& then) {
  return [token, then] {
    dispatchMain([token, then] {
      endNotifyClickHandler(token);
      then();
    });
  };
}

}  // namespace

std::optional<std::string> recordStartScriptPath() {
  return trustedScript({homeDirectory() + "/.local/bin/vela-record-start",
                        companionResourcesDirectory() + "/bin/record-start", recordStartScriptFallback});
}

void echoRecordStartCapture(std::string_view text) {
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(start, end - start);
    if (!line.empty()) writeStderr("notify: record-start: " + std::string(line) + "\n");
    start = end + 1;
  }
}

void echoRecordStartCaptureAt(const std::string& path) {
  if (auto bytes = recordStartCapturedPrefix(path)) echoRecordStartCapture(repairedUTF8(*bytes));
}

RecordStartClickOutcome runRecordStartForClick(const std::string& script, const std::optional<std::string>& templateID,
                                               double wait) {
  std::string capture = temporaryDirectory() + "/vela-record-start-click-" + newUUIDString() + ".log";
  int fd = ::open(capture.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) {
    std::string reason = "could not create " + capture + ": " + errnoText(errno);
    writeStderr("notify: record-start launch failed: " + reason + "\n");
    return RecordStartClickOutcome::couldNotRun(reason);
  }
  SpawnRequest request;
  request.executable = script;
  request.environment = environmentWith(kTemplateVariable, templateID);
  request.stdoutFD = fd;
  request.stderrFD = fd;
  auto started = spawnProcess(request);
  ::close(fd);
  if (!started.child) {
    ::unlink(capture.c_str());
    writeStderr("notify: record-start launch failed: " + started.error->description + "\n");
    return RecordStartClickOutcome::couldNotRun(started.error->description);
  }

  auto status = started.child->waitFor(wait);
  if (!status) {
    // Still going: it may yet start the recording, so it is neither killed
    // nor reported; the user is not told something that may turn out false.
    echoRecordStartCaptureAt(capture);
    ::unlink(capture.c_str());
    started.child->reapInBackground();
    writeStderr("notify: record-start still running after " + secondsText(wait) + "s — not reporting an outcome\n");
    return RecordStartClickOutcome::stillRunning();
  }
  auto bytes = recordStartCapturedPrefix(capture);
  ::unlink(capture.c_str());
  std::string output = bytes ? repairedUTF8(*bytes) : "";
  echoRecordStartCapture(output);
  return classifyRecordStartClick(status->terminationStatus(), output, bytes.has_value(),
                                  recordStartRecordingIsLive());
}

void reportRecordStartClickOutcome(const RecordStartClickOutcome& outcome, const std::function<void()>& then) {
  auto banner = recordStartClickBanner(outcome);
  if (!banner) {
    then();
    return;
  }
  postNotification(banner->title, banner->body, kRefusalSound, [then] { dispatchMain(then); });
}

void startRecordingFromNotifyClick(const std::optional<std::string>& templateID, const std::function<void()>& then) {
  NotifyClickHandlerToken token = beginNotifyClickHandler();
  auto script = recordStartScriptPath();
  if (!script) {
    writeStderr("notify: no record-start script to run\n");
    postNotification("Couldn't start recording", "Vela couldn't find its record-start script.", kRefusalSound,
                     finishOnMain(token, then));
    return;
  }
  dispatchGlobal([script = *script, templateID, token, then] {
    auto outcome = runRecordStartForClick(script, templateID);
    dispatchMain([outcome, token, then] {
      reportRecordStartClickOutcome(outcome, [token, then] {
        endNotifyClickHandler(token);
        then();
      });
    });
  });
}

}  // namespace ac::notify
