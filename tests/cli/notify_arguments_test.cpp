#include "cli/notify_arguments.h"

#include <gtest/gtest.h>

namespace ac {
namespace {

using V = std::vector<std::string>;

const std::string kNotifyUsage = "notify: usage --notify TITLE BODY [NOTE_PATH] [SOUND]\n";

TEST(NotifyArguments, FlagsCountOnlyAfterTitleAndBody) {
  struct Case {
    V args;
    NotifyArguments expected;
  } cases[] = {
      {{"T", "B"}, {"T", "B", {}, {}, false, false}},
      {{"--no-prompt", "B"}, {"--no-prompt", "B", {}, {}, false, false}},
      {{"T", "--meeting-prompt"}, {"T", "--meeting-prompt", {}, {}, false, false}},
      {{"T", "B", "--no-prompt", "/n.md", "--meeting-prompt", "Glass"}, {"T", "B", "/n.md", "Glass", true, true}},
      {{"T", "B", "", ""}, {"T", "B", {}, {}, false, false}},
      {{"T", "B", "", "Ping"}, {"T", "B", {}, "Ping", false, false}},
      {{"T", "B", "tok", "snd", "extra"}, {"T", "B", "tok", "snd", false, false}},
  };
  for (const auto& c : cases) {
    auto parsed = parseNotifyArguments(c.args);
    ASSERT_TRUE(std::holds_alternative<NotifyArguments>(parsed)) << c.args[0];
    EXPECT_EQ(std::get<NotifyArguments>(parsed), c.expected) << c.args[0];
  }
}

TEST(NotifyArguments, FewerThanTwoPositionalsIsTheUsageLine) {
  for (const V& args : {V{}, V{"T"}, V{"--no-prompt"}}) {
    auto parsed = parseNotifyArguments(args);
    ASSERT_TRUE(std::holds_alternative<ArgumentRefusal>(parsed));
    EXPECT_EQ(std::get<ArgumentRefusal>(parsed).line, kNotifyUsage);
  }
}

TEST(WithdrawArguments, BeforeBoundAndRefusals) {
  const std::string unrecognised = "notify: withdraw — unrecognised argument, withdrawing nothing\n";
  const std::string unreadable = "notify: withdraw — unreadable --before, withdrawing nothing\n";
  const std::string twice = "notify: withdraw — --before given twice, withdrawing nothing\n";
  struct Case {
    V args;
    std::optional<double> before;
    std::string refusal;  // empty: accepted
  } cases[] = {
      {{}, std::nullopt, ""},
      {{"--before=0"}, 0.0, ""},
      {{"--before=1772719629"}, 1772719629.0, ""},
      {{"--before=999999999999"}, 999999999999.0, ""},
      {{"--before=0000000000001"}, std::nullopt, unreadable},
      {{"--before="}, std::nullopt, unreadable},
      {{"--before=12a"}, std::nullopt, unreadable},
      {{"--before=-5"}, std::nullopt, unreadable},
      {{"--before= 5"}, std::nullopt, unreadable},
      {{"--before=１"}, std::nullopt, unreadable},
      {{"before=5"}, std::nullopt, unrecognised},
      {{"--BEFORE=5"}, std::nullopt, unrecognised},
      {{"--before=5", "--before=6"}, std::nullopt, twice},
      {{"--before=5", "x"}, std::nullopt, twice},
  };
  for (const auto& c : cases) {
    auto parsed = parseWithdrawArguments(c.args);
    std::string label = c.args.empty() ? "(none)" : c.args[0];
    if (c.refusal.empty()) {
      ASSERT_TRUE(std::holds_alternative<WithdrawArguments>(parsed)) << label;
      EXPECT_EQ(std::get<WithdrawArguments>(parsed).before, c.before) << label;
    } else {
      ASSERT_TRUE(std::holds_alternative<ArgumentRefusal>(parsed)) << label;
      EXPECT_EQ(std::get<ArgumentRefusal>(parsed).line, c.refusal) << label;
    }
  }
}

TEST(NotifyArguments, IgnoredTargetLine) {
  EXPECT_EQ(ignoredClickTargetLine("not-an-absolute-path"), "notify: ignoring open target (not-an-absolute-path)\n");
}

}  // namespace
}  // namespace ac
