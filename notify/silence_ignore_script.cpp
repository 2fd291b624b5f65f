#include "notify/silence_ignore_script.h"

#include "notify/click_handling.h"
#include "notify/silence_warning.h"
#include "notify/trusted_script.h"
#include "support/dispatch.h"
#include "support/log.h"
#include "support/spawn.h"

namespace ac::notify {

namespace {
constexpr double kStopGraceSeconds = 1.0;
}

std::optional<std::string> silenceIgnoreScriptPath() {
  return trustedScript({companionResourcesDirectory() + "/lib/silence-ignore.sh", silenceIgnoreScriptFallback});
}

std::string runSilenceIgnoreScript(const std::string& script, const std::string& marker,
                                   std::optional<int> snoozeMinutes, double wait) {
  SpawnRequest request;
  request.executable = script;
  request.args = {marker};
  if (snoozeMinutes) request.args.push_back(std::to_string(*snoozeMinutes));
  auto started = spawnProcess(request);  // every stream on the null device
  if (!started.child) return "launch failed: " + started.error->description;
  if (auto status = started.child->waitFor(wait)) {
    if (status->succeeded()) return snoozeMinutes ? "snoozed" : "ignored";
    return "refused (status " + std::to_string(status->terminationStatus()) + ")";
  }
  started.child->terminate(kStopGraceSeconds);
  return "timed out after " + secondsText(wait) + "s";
}

void ignoreSilenceFromNotifyClick(const std::string& marker, std::optional<int> snoozeMinutes,
                                  const std::function<void()>& then) {
  auto script = silenceIgnoreScriptPath();
  if (!script) {
    writeStderr("notify: no silence-ignore script to run\n");
    then();
    return;
  }
  NotifyClickHandlerToken token = beginNotifyClickHandler();
  dispatchGlobal([script = *script, marker, snoozeMinutes, then, token] {
    std::string outcome =
        runSilenceIgnoreScript(script, marker, snoozeMinutes, SilenceWarningBanner::silenceIgnoreWaitSeconds);
    writeStderr(std::string("notify: ") + (snoozeMinutes ? "snooze-silence" : "ignore-silence") + " — " + outcome +
                "\n");
    dispatchMain([then, token] {
      endNotifyClickHandler(token);
      then();
    });
  });
}

}  // namespace ac::notify
