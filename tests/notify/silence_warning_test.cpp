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
      {"vela.silence:snooze-5", true, ClickSnoozeSilence{marker, 5}},
      {"vela.silence:snooze-10", true, ClickSnoozeSilence{marker, 10}},
      {"vela.silence:snooze-15", true, ClickSnoozeSilence{marker, 15}},
      {"com.apple.UNNotificationDefaultActionIdentifier", false, std::nullopt},
      {"com.apple.UNNotificationDismissActionIdentifier", true, std::nullopt},
      {"vela.act:start", true, std::nullopt},
      {"vela.silence:snooze-7", true, std::nullopt},
      {"vela.silence:snooze-5", false, std::nullopt},
      {"vela.silence:ignore", false, std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(S::clickTarget(marker, c.action, c.custom), c.expected) << c.action;
}

TEST(SilenceWarning, CategoryOffersFourLockedChoicesInOrder) {
  auto category = S::makeCategory();
  EXPECT_EQ(category.identifier, "vela.silence-warning");
  EXPECT_FALSE(category.customDismissAction);
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"vela.silence:snooze-5", "Snooze 5 minutes"},
      {"vela.silence:snooze-10", "Snooze 10 minutes"},
      {"vela.silence:snooze-15", "Snooze 15 minutes"},
      {"vela.silence:ignore", "Ignore for this call"},
  };
  ASSERT_EQ(category.actions.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(category.actions[i].identifier, expected[i].first);
    EXPECT_EQ(category.actions[i].title, expected[i].second);
    EXPECT_TRUE(category.actions[i].authenticationRequired);
    EXPECT_FALSE(category.actions[i].foreground);
  }
  EXPECT_EQ(S::token(marker), "vela-app:ignore-silence:" + marker);
}

}  // namespace
}  // namespace ac::notify
