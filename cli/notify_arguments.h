// The arguments of the two notification modes, parsed without side effects.
// Refusals carry the exact line the entry writes to standard error before it
// exits 0 (the callers are scripts that must not see a failure).
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace ac {

struct NotifyArguments {
  std::string title;
  std::string body;
  std::optional<std::string> clickToken;  // present only when non-empty
  std::optional<std::string> soundName;   // present only when non-empty
  bool noPrompt = false;
  bool meetingPrompt = false;
  bool operator==(const NotifyArguments&) const = default;
};

// A refusal: the whole line for standard error, newline included.
struct ArgumentRefusal {
  std::string line;
  bool operator==(const ArgumentRefusal&) const = default;
};

// args: the arguments after "--notify".
std::variant<NotifyArguments, ArgumentRefusal> parseNotifyArguments(const std::vector<std::string>& args);

struct WithdrawArguments {
  std::optional<double> before;  // seconds since 1970; absent = everything
  bool operator==(const WithdrawArguments&) const = default;
};

// args: the arguments after "--withdraw-meeting-prompt".
std::variant<WithdrawArguments, ArgumentRefusal> parseWithdrawArguments(const std::vector<std::string>& args);

// "notify: ignoring open target (<reason>)\n"
std::string ignoredClickTargetLine(const std::string& refusalReason);

}  // namespace ac
