#include "notify/category_registry.h"
#include "notify/click_payload.h"
#include "notify/meeting_banner.h"
#include "notify/withdraw.h"
#include "tests/notify_flows/notify_flow_fixture.h"

namespace ac::notify::testing {
namespace {

using Categories = NotifyFlowTest;
using Withdraw = NotifyFlowTest;

TEST_F(Categories, RegistrationKeepsWhatIsOnScreenYoungOrForeign) {
  double now = wallSeconds();
  std::string onScreen = "vela.meeting." + std::to_string(int64_t(now) - 3600) + ".A";
  std::string young = "vela.meeting." + std::to_string(int64_t(now) - 10) + ".B";
  std::string stale = "vela.meeting." + std::to_string(int64_t(now) - 3600) + ".C";
  center_.categories.set({{stale, {}, false}, {"vela.silence-warning", {}, false}, {onScreen, {}, false},
                                 {young, {}, false}});
  center_.delivered.set({banner("N1", nullptr, onScreen)});
  std::string fresh = MeetingBanner::categoryID(now);
  ASSERT_TRUE(registerCategory(center_, fresh, MeetingBanner::menu({})));
  EXPECT_EQ(categoryIDs(), (std::vector<std::string>{fresh, "vela.silence-warning", onScreen, young}));
  EXPECT_EQ(center_.categories.get()[0].actions.at(0).identifier, "vela.act:start");
}

// The meeting prompt's busy lock is proven where it is posted.
TEST_F(Categories, BusyLockOrUnreadableRegistryMeansNoActions) {
  auto lock = holdLock(notifyCategoryLockFileName);
  captureStderr();
  EXPECT_FALSE(registerSilenceCategory(center_));
  lock.reset();
  center_.script.with([&](auto& s) { s.answersCategories = false; });
  EXPECT_FALSE(registerCategory(center_, "vela.meeting.1.X", MeetingBanner::menu({})));
  EXPECT_EQ(stderrText(),
            "notify: category registry lock busy — posting without actions\n"
            "notify: could not read the category registry — posting without actions\n");
  EXPECT_TRUE(center_.categories.get().empty());
}

TEST_F(Withdraw, TakesPromptsPostedBeforeTheBoundJournalFirst) {
  center_.delivered.set({
      banner("old-prompt", NotifyClickPayload::make("vela-app:record-start"), "vela.meeting.1000.U"),
      banner("bare-prompt", NotifyClickPayload::make("vela-app:record-start"), "", 1500),
      banner("new-prompt", NotifyClickPayload::make("vela-app:record-start"), "vela.meeting.2000.V"),
      banner("note", NotifyClickPayload::make("/tmp/a.md"), "", 500),
      banner("silence", NotifyClickPayload::make("vela-app:ignore-silence:TRANSCRIPT_PENDING_1_2"),
             "vela.silence-warning", 500),
  });
  for (const char* id : {"old-prompt", "bare-prompt", "new-prompt", "note"})
    NotifyClickJournal::record(id, "x", std::nullopt, wallSeconds());
  captureStderr();
  EXPECT_EQ(withdrawMeetingPrompts(2000.0), 2);
  EXPECT_EQ(stderrText(), "notify: withdraw — took back 2 meeting prompt(s)\n");
  EXPECT_EQ(center_.removed.get(), (std::vector<std::string>{"old-prompt", "bare-prompt"}));
  EXPECT_EQ(journalIDs(), "new-prompt,note");

  EXPECT_EQ(withdrawMeetingPrompts(std::nullopt), 1);
  EXPECT_EQ(center_.removed.get().back(), "new-prompt");
}

TEST_F(Withdraw, RefusalsAreSaidAndRemoveNothing) {
  struct Case {
    const char* what;
    std::optional<std::string> bundle;
    bool answers, promptShown, journalLocked;
    std::string said;
  };
  const Case cases[] = {
      {"unbundled", std::nullopt, true, true, false, "notify: unbundled process — nothing to withdraw\n"},
      {"silent centre", "id", false, true, false, "notify: withdraw — Notification Center did not answer\n"},
      {"no prompt", "id", true, false, false, "notify: withdraw — no meeting prompt on screen\n"},
      {"journal locked", "id", true, true, true,
       "notify: journal lock busy — leaving it to the holder\n"
       "notify: withdraw — could not purge the click journal, leaving the prompt up\n"},
  };
  for (const auto& c : cases) {
    std::vector<platform::DeliveredNotification> shown = {banner("note", NotifyClickPayload::make("/tmp/a.md"))};
    if (c.promptShown) shown.push_back(banner("prompt", NotifyClickPayload::make("vela-app:record-start")));
    center_.delivered.set(shown);
    desk_.bundleID.set(c.bundle);
    center_.script.with([&](auto& s) { s.answersDelivered = c.answers; });
    auto lock = c.journalLocked ? holdLock(NotifyClickJournal::lockFileName) : nullptr;
    captureStderr();
    EXPECT_EQ(withdrawMeetingPrompts(std::nullopt), 0) << c.what;
    EXPECT_EQ(stderrText(), c.said) << c.what;
  }
  EXPECT_TRUE(center_.removed.get().empty());
}

}  // namespace
}  // namespace ac::notify::testing
