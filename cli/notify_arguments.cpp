#include "cli/notify_arguments.h"

#include <algorithm>
#include <string_view>

namespace ac {

std::variant<NotifyArguments, ArgumentRefusal> parseNotifyArguments(const std::vector<std::string>& args) {
  NotifyArguments out;
  std::vector<std::string> positional;
  for (const std::string& arg : args) {
    // Flags count only after title and body, so a title may read "--no-prompt".
    if (positional.size() >= 2 && arg == "--no-prompt") {
      out.noPrompt = true;
    } else if (positional.size() >= 2 && arg == "--meeting-prompt") {
      out.meetingPrompt = true;
    } else {
      positional.push_back(arg);
    }
  }
  if (positional.size() < 2) return ArgumentRefusal{"notify: usage --notify TITLE BODY [NOTE_PATH] [SOUND]\n"};
  out.title = positional[0];
  out.body = positional[1];
  if (positional.size() > 2 && !positional[2].empty()) out.clickToken = positional[2];
  if (positional.size() > 3 && !positional[3].empty()) out.soundName = positional[3];
  return out;
}

std::variant<WithdrawArguments, ArgumentRefusal> parseWithdrawArguments(const std::vector<std::string>& args) {
  if (args.empty()) return WithdrawArguments{};
  constexpr std::string_view prefix = "--before=";
  const std::string& first = args[0];
  if (first.rfind(prefix, 0) != 0)
    return ArgumentRefusal{"notify: withdraw — unrecognised argument, withdrawing nothing\n"};
  std::string_view digits = std::string_view(first).substr(prefix.size());
  bool readable = !digits.empty() && digits.size() <= 12 &&
                  std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
  if (!readable) return ArgumentRefusal{"notify: withdraw — unreadable --before, withdrawing nothing\n"};
  if (args.size() > 1) return ArgumentRefusal{"notify: withdraw — --before given twice, withdrawing nothing\n"};
  // Twelve decimal digits always fit a double exactly.
  double seconds = 0;
  for (char c : digits) seconds = seconds * 10 + (c - '0');
  return WithdrawArguments{seconds};
}

std::string ignoredClickTargetLine(const std::string& refusalReason) {
  return "notify: ignoring open target (" + refusalReason + ")\n";
}

}  // namespace ac
