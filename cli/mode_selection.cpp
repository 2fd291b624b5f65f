#include "cli/mode_selection.h"

#include <algorithm>
#include <utility>

namespace ac {
namespace {

bool contains(const std::vector<std::string>& args, const char* word) {
  return std::find(args.begin(), args.end(), word) != args.end();
}

// Compared with the first argument in this order.
constexpr std::pair<const char*, Mode> kFirstArgumentModes[] = {
    {"--selftest-topology", Mode::selftestTopology},
    {"--selftest-level", Mode::selftestLevel},
    {"--selftest-armed", Mode::selftestArmed},
    {"--selftest-mic-format", Mode::selftestMicFormat},
    {"--request-notif-auth", Mode::requestNotifAuth},
    {"--notif-auth-status", Mode::notifAuthStatus},
    {"--notify", Mode::notify},
    {"--withdraw-meeting-prompt", Mode::withdrawMeetingPrompt},
    {"--selftest-notify-routing", Mode::selftestNotifyRouting},
};

}  // namespace

Mode selectMode(const std::vector<std::string>& args) {
  if (contains(args, "--current-output")) return Mode::currentOutput;
  if (contains(args, "--list-outputs")) return Mode::listOutputs;
  if (args.size() >= 2 && args[0] == "--capture-active") return Mode::captureActive;
  if (!args.empty()) {
    for (const auto& [word, mode] : kFirstArgumentModes)
      if (args[0] == word) return mode;
  }
  // The system adds "-psn_..." when the program is opened as an application.
  bool onlyProcessSerial = std::all_of(args.begin(), args.end(),
                                       [](const std::string& a) { return a.rfind("-psn_", 0) == 0; });
  if (onlyProcessSerial) return Mode::coldRoute;
  return Mode::record;
}

}  // namespace ac
