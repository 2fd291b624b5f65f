#include "cli/mode_selection.h"

#include <gtest/gtest.h>

namespace ac {
namespace {

using V = std::vector<std::string>;

TEST(SelectMode, FirstMatchingRuleDecides) {
  struct Case {
    V args;
    Mode mode;
  } cases[] = {
      {{"-o", "a.m4a", "--list-outputs"}, Mode::listOutputs},
      {{"--list-outputs", "--current-output"}, Mode::currentOutput},
      {{"--notify", "t", "--current-output"}, Mode::currentOutput},
      {{"--capture-active", "/tmp/l", "--list-outputs"}, Mode::listOutputs},
      {{"--capture-active", "/tmp/l"}, Mode::captureActive},
      {{"--capture-active", "/tmp/l", "extra"}, Mode::captureActive},
      {{"--capture-active"}, Mode::record},
      {{"x", "--capture-active", "/tmp/l"}, Mode::record},
      {{"--selftest-topology"}, Mode::selftestTopology},
      {{"--selftest-level", "x"}, Mode::selftestLevel},
      {{"--selftest-armed"}, Mode::selftestArmed},
      {{"--selftest-mic-format"}, Mode::selftestMicFormat},
      {{"--request-notif-auth", "ignored"}, Mode::requestNotifAuth},
      {{"--notif-auth-status"}, Mode::notifAuthStatus},
      {{"--notify"}, Mode::notify},
      {{"--withdraw-meeting-prompt", "--before=1"}, Mode::withdrawMeetingPrompt},
      {{"--selftest-notify-routing"}, Mode::selftestNotifyRouting},
      {{"-o", "a.m4a", "--notify"}, Mode::record},
      {{}, Mode::coldRoute},
      {{"-psn_0_12345"}, Mode::coldRoute},
      {{"-psn_0_1", "-psn_0_2"}, Mode::coldRoute},
      {{"-psn_0_1", "-o"}, Mode::record},
      {{"-psn"}, Mode::record},
      {{""}, Mode::record},
  };
  for (const auto& c : cases) {
    std::string shown;
    for (const auto& a : c.args) shown += "'" + a + "' ";
    EXPECT_EQ(selectMode(c.args), c.mode) << shown;
  }
}

}  // namespace
}  // namespace ac
