#include "notify/withdraw.h"

#include "notify/click_journal.h"
#include "notify/cold_route.h"
#include "notify/meeting_banner.h"
#include "notify/notify_command.h"
#include "notify/notify_modes.h"
#include "platform/platform.h"
#include "support/log.h"
#include "support/process_exit.h"

namespace ac::notify {

int withdrawMeetingPrompts(std::optional<double> before) {
  if (!notificationCenterUsable()) {
    writeStderr("notify: unbundled process — nothing to withdraw\n");
    return 0;
  }
  auto& center = platform::current().notifications();
  auto rows = deliveredNotificationRows(center);
  if (!rows) {
    writeStderr("notify: withdraw — Notification Center did not answer\n");
    return 0;
  }
  std::vector<std::string> selected;
  for (const auto& r : *rows)
    if (MeetingBanner::shouldWithdraw(r.category, r.token, r.at, before)) selected.push_back(r.id);
  if (selected.empty()) {
    writeStderr("notify: withdraw — no meeting prompt on screen\n");
    return 0;
  }
  // Journal first: a prompt still listed there after leaving the screen
  // would look like the click of a later cold launch.
  if (!NotifyClickJournal::forget(selected)) {
    writeStderr("notify: withdraw — could not purge the click journal, leaving the prompt up\n");
    return 0;
  }
  center.removeDelivered(selected);
  writeStderr("notify: withdraw — took back " + std::to_string(selected.size()) + " meeting prompt(s)\n");
  return static_cast<int>(selected.size());
}

void runWithdrawMeetingPrompt(std::optional<double> before) {
  (void)withdrawMeetingPrompts(before);
  exitProcess(0);
}

}  // namespace ac::notify
