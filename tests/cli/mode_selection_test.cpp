#include "cli/mode_selection.h"

#include <gtest/gtest.h>

namespace ac {
namespace {

TEST(SelectMode, FirstMatchingRuleDecides) {
  struct Case {
    std::vector<std::string> args;
    Mode mode;
  } cases[] = {
      {{"-o", "a.m4a", "--list-outputs"}, Mode::listOutputs},
      {{"--list-outputs", "--current-output"}, Mode::currentOutput},
      {{"--capture-active", "/l", "--list-outputs"}, Mode::listOutputs},
      {{"--capture-active", "/l", "extra"}, Mode::captureActive},
      {{"--capture-active"}, Mode::record},
      {{"x", "--capture-active", "/l"}, Mode::record},
      {{"--request-notif-auth", "ignored"}, Mode::requestNotifAuth},
      {{"--notif-auth-status"}, Mode::notifAuthStatus},
      {{"--notify"}, Mode::notify},
      {{"--withdraw-meeting-prompt", "--before=1"}, Mode::withdrawMeetingPrompt},
      {{"-o", "a.m4a", "--notify"}, Mode::record},
      {{}, Mode::coldRoute},
      {{"-psn_0_1", "-psn_0_2"}, Mode::coldRoute},
      {{"-psn_0_1", "-o"}, Mode::record},
      {{"-psn"}, Mode::record},
  };
  for (const auto& c : cases) EXPECT_EQ(selectMode(c.args), c.mode) << (c.args.empty() ? "" : c.args[0]);
}

}  // namespace
}  // namespace ac
