#include "notify/silence_warning.h"

#include <gtest/gtest.h>

namespace ac::notify {
namespace {

namespace S = SilenceWarningBanner;
const std::string marker = "TRANSCRIPT_PENDING_1792530208_4242";

TEST(SilenceWarning, OnlyItsOwnButtonsAct) {
  struct Case {
    std::string action;
    bool custom;
    std::optional<NotifyClickTarget> expected;
  };
  const std::vector<Case> cases = {
      {"vela.silence:ignore", true, ClickIgnoreSilence{marker}},
      {"vela.silence:snooze-15", true, ClickSnoozeSilence{marker, 15}},
      {"com.apple.UNNotificationDismissActionIdentifier", true, std::nullopt},
      {"vela.act:start", true, std::nullopt},
      {"vela.silence:snooze-7", true, std::nullopt},
      {"vela.silence:ignore", false, std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(S::clickTarget(marker, c.action, c.custom), c.expected) << c.action;
}

}  // namespace
}  // namespace ac::notify
