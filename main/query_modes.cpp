// The one-shot modes that answer a question and exit: the device queries,
// --capture-active, and the argument handling of the two notify modes.
#include <cstdio>
#include <variant>

#include "cli/capture_lock.h"
#include "cli/device_queries.h"
#include "cli/notify_arguments.h"
#include "main/modes.h"
#include "notify/notify_modes.h"
#include "platform/platform.h"
#include "support/log.h"
#include "support/paths.h"
#include "support/process_exit.h"

namespace ac::entry {

void runDeviceQuery(Mode mode) {
  auto& hw = platform::current().audio();
  DeviceQueryOutcome outcome = mode == Mode::currentOutput ? currentOutputQuery(hw) : listOutputsQuery(hw);
  std::fwrite(outcome.out.data(), 1, outcome.out.size(), stdout);
  std::fflush(stdout);
  writeStderr(outcome.err);
  exitProcess(outcome.exitStatus);
}

void runCaptureActive(const std::vector<std::string>& args) {
  // Prints nothing: the status alone answers ("if audio-capture
  // --capture-active PATH; then ...").
  exitProcess(captureActiveExitStatus(captureLockState(expandTilde(args.at(0)))));
}

// Refusals exit 0: the callers are scripts that must not see a failure.
void runNotifyMode(const std::vector<std::string>& args) {
  auto parsed = parseNotifyArguments(args);
  if (auto* refusal = std::get_if<ArgumentRefusal>(&parsed)) {
    writeStderr(refusal->line);
    exitProcess(0);
  }
  NotifyArguments& a = std::get<NotifyArguments>(parsed);
  if (a.clickToken) {
    if (auto reason = notify::clickTokenRefusal(*a.clickToken)) {
      // The banner is still worth posting, just without a click target.
      writeStderr(ignoredClickTargetLine(*reason));
      a.clickToken.reset();
    }
  }
  notify::runNotify(a.title, a.body, a.clickToken, a.soundName, !a.noPrompt, a.meetingPrompt);
}

void runWithdrawMode(const std::vector<std::string>& args) {
  auto parsed = parseWithdrawArguments(args);
  if (auto* refusal = std::get_if<ArgumentRefusal>(&parsed)) {
    writeStderr(refusal->line);
    exitProcess(0);
  }
  notify::runWithdrawMeetingPrompt(std::get<WithdrawArguments>(parsed).before);
}

}  // namespace ac::entry
