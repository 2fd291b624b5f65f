// Placeholder until the notification agent lands: each mode says so and
// exits non-zero rather than pretend to have posted.
#include <cstdlib>

#include "notify/notify_modes.h"
#include "support/log.h"

namespace ac::notify {
namespace {
[[noreturn]] void unbuilt(const char* mode) {
  writeStderr(std::string("notify: ") + mode + " is not built yet\n");
  std::exit(1);
}
}  // namespace

void runNotify(const std::string&, const std::string&, const std::optional<std::string>&,
               const std::optional<std::string>&, bool, bool) {
  unbuilt("--notify");
}
void runWithdrawMeetingPrompt(std::optional<double>) { unbuilt("--withdraw-meeting-prompt"); }
void runNotifyColdRoute() { unbuilt("click routing"); }
void runRequestNotifAuth() { unbuilt("--request-notif-auth"); }
void runNotifAuthStatus() { unbuilt("--notif-auth-status"); }
std::optional<std::string> clickTokenRefusal(const std::string&) { return std::nullopt; }
void postNotification(const std::string&, const std::string&, const std::string&, std::function<void()> then) {
  if (then) then();
}

}  // namespace ac::notify
