#include "cli/notify_arguments.h"

#include <gtest/gtest.h>

namespace ac {
namespace {

using V = std::vector<std::string>;

TEST(NotifyArguments, FlagsCountOnlyAfterTitleAndBody) {
  const ArgumentRefusal usage{"notify: usage --notify TITLE BODY [NOTE_PATH] [SOUND]\n"};
  struct Case {
    V args;
    std::variant<NotifyArguments, ArgumentRefusal> expected;
  } cases[] = {
      {{"T"}, usage},
      {{"--no-prompt"}, usage},
      {{"--no-prompt", "B"}, NotifyArguments{"--no-prompt", "B", {}, {}, false, false}},
      {{"T", "--meeting-prompt"}, NotifyArguments{"T", "--meeting-prompt", {}, {}, false, false}},
      {{"T", "B", "--no-prompt", "/n.md", "--meeting-prompt", "Glass"},
       NotifyArguments{"T", "B", "/n.md", "Glass", true, true}},
      {{"T", "B", "", "Ping", "extra"}, NotifyArguments{"T", "B", {}, "Ping", false, false}},
  };
  for (const auto& c : cases) EXPECT_EQ(parseNotifyArguments(c.args), c.expected) << c.args[0];
}

TEST(WithdrawArguments, BeforeBoundAndRefusals) {
  const ArgumentRefusal unrecognised{"notify: withdraw — unrecognised argument, withdrawing nothing\n"};
  const ArgumentRefusal unreadable{"notify: withdraw — unreadable --before, withdrawing nothing\n"};
  const ArgumentRefusal twice{"notify: withdraw — --before given twice, withdrawing nothing\n"};
  struct Case {
    V args;
    std::variant<WithdrawArguments, ArgumentRefusal> expected;
  } cases[] = {
      {{}, WithdrawArguments{}},
      {{"--before=0"}, WithdrawArguments{0.0}},
      {{"--before=999999999999"}, WithdrawArguments{999999999999.0}},
      {{"--before=0000000000001"}, unreadable},
      {{"--before="}, unreadable},
      {{"--before=-5"}, unreadable},
      {{"--before=１"}, unreadable},
      {{"--BEFORE=5"}, unrecognised},
      {{"--before=5", "x"}, twice},
  };
  for (const auto& c : cases) EXPECT_EQ(parseWithdrawArguments(c.args), c.expected) << c.args.size();
}

}  // namespace
}  // namespace ac
