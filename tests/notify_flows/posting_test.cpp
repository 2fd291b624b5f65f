#include "notify/category_registry.h"
#include "notify/meeting_banner.h"
#include "notify/notify_command.h"
#include "notify/notify_modes.h"
#include "notify/silence_warning.h"
#include "tests/notify_flows/notify_flow_fixture.h"

namespace ac::notify::testing {
namespace {

using Posting = NotifyFlowTest;

NotifyRequest request(std::optional<std::string> token, bool allowAuth = true, bool meeting = false) {
  return {"Title", "Body", std::move(token), std::nullopt, allowAuth, meeting};
}

TEST_F(Posting, UnbundledOrFailedPostsAreSaidAndNotJournalled) {
  desk_.bundleID.set(std::nullopt);
  captureStderr();
  EXPECT_EQ(postNotifyBanner(request("/tmp/a.md")), std::nullopt);
  desk_.bundleID.set("com.quorlan.vela.audio-capture");
  center_.script.with([&](auto& s) { s.addError = Error{"test", 1, "boom"}; });
  postNotifyBanner(request("/tmp/a.md"));
  EXPECT_EQ(stderrText(), "notify: unbundled process — skipping post\nnotify: add failed: boom\n");
  EXPECT_EQ(center_.added.get().size(), 1u);  // the failed add only
  EXPECT_TRUE(NotifyClickJournal::read().empty());
}

TEST_F(Posting, UndecidedIsAskedForAlertAndSoundOnlyWhenAllowedAndNoCentreEndsAtOnce) {
  center_.script.with([&](auto& s) { s.status = 0; s.statusAfterRequest = 2; });
  captureStderr();
  EXPECT_EQ(postNotifyBanner(request("/tmp/a.md", /*allowAuth=*/false)), notifyPlainLingerSeconds);
  EXPECT_EQ(stderrText(), "notify: skipped (auth=notDetermined)\n");
  EXPECT_EQ(contents(statePath("notif-auth-status")), "notDetermined");
  EXPECT_TRUE(center_.added.get().empty());
  EXPECT_FALSE(center_.lastRequest.get());

  EXPECT_EQ(postNotifyBanner(request("/tmp/a.md")), notifyClickableLingerSeconds);
  EXPECT_EQ(center_.lastRequest.get(), std::tuple(true, true, false));
  EXPECT_EQ(center_.added.get().size(), 1u);
  EXPECT_EQ(contents(statePath("notif-auth-status")), "authorized");
  // A centre that is not there hands this process no click: no linger.
  center_.script.with([&](auto& s) { s.status = platform::kNotificationAuthorizationUnavailable; });
  EXPECT_EQ(postNotifyBanner(request("/tmp/a.md")), std::nullopt);
}

// A later cold launch routes through the journal: every banner is journalled,
// a plain one tokenless.
TEST_F(Posting, EachBannerCarriesExactlyItsEnvelopeAndIsJournalled) {
  struct Case {
    std::optional<std::string> token;
    bool meeting;
    nlohmann::json userInfo;
    double linger;
  };
  const Case cases[] = {
      {"/tmp/a.md", false, {{"vela_click_v", 1}, {"vela_click_target", "/tmp/a.md"}}, notifyClickableLingerSeconds},
      {std::nullopt, false, nullptr, notifyPlainLingerSeconds},
      // The meeting flag counts on a record-start prompt only.
      {"vela-app:recordings", true, {{"vela_click_v", 1}, {"vela_click_target", "vela-app:recordings"}},
       notifyClickableLingerSeconds},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    NotifyRequest r = request(cases[i].token, true, cases[i].meeting);
    r.soundName = "Glass";
    EXPECT_EQ(postNotifyBanner(r), cases[i].linger);
    const auto added = center_.added.get().at(i);
    EXPECT_EQ(added.content.userInfo, cases[i].userInfo);
    EXPECT_EQ(added.content.categoryIdentifier + "|" + added.content.soundName, "|Glass");
    const auto journalled = NotifyClickJournal::read().at(i);
    EXPECT_EQ(journalled, (NotifyClickJournalEntry{added.identifier, cases[i].token, journalled.at, std::nullopt}));
  }
}

// The recorder's notices (disk full, microphone lost): a plain banner with its
// sound, journalled tokenless so a later cold launch routes nothing through
// it, and nothing at all where banners would not be shown.
TEST_F(Posting, RecorderNoticeIsAPlainBannerUnlessBannersAreOff) {
  Semaphore handedOver;
  postNotification("Disk full", "Free up space.", "Basso", [&] { handedOver.signal(); });
  ASSERT_TRUE(handedOver.wait(5));
  ASSERT_EQ(center_.added.get().size(), 1u);
  const auto content = center_.added.get()[0].content;
  EXPECT_EQ(content.title + "|" + content.body + "|" + content.soundName, "Disk full|Free up space.|Basso");
  EXPECT_TRUE(content.userInfo.is_null());
  ASSERT_EQ(NotifyClickJournal::read().size(), 1u);
  EXPECT_EQ(NotifyClickJournal::read()[0].token, std::nullopt);

  center_.script.with([&](auto& s) { s.status = 1; });
  captureStderr();
  postNotification("Microphone disconnected", "b", "Basso", [&] { handedOver.signal(); });
  ASSERT_TRUE(handedOver.wait(5));
  EXPECT_EQ(stderrText(), "notify: skipped (auth=denied)\n");
  EXPECT_EQ(center_.added.get().size(), 1u);
}

// Without the category registry's lock the prompt still goes up, without its
// actions.
TEST_F(Posting, MeetingPromptGetsItsOwnCategoryAndAnExpiry) {
  write(home_ + "/.config/vela/template-shortcuts.json", R"({"v":1,"shortcuts":[{"id":"t1","name":"Standup"}]})");
  center_.categories.set({{"foreign.category", {}, false}});
  auto lock = holdLock(notifyCategoryLockFileName);
  captureStderr();
  postNotifyBanner(request("vela-app:record-start", true, /*meeting=*/true));
  lock.reset();
  postNotifyBanner(request("vela-app:record-start", true, /*meeting=*/true));
  std::string err = stderrText();
  ASSERT_EQ(center_.added.get().size(), 2u);
  EXPECT_EQ(center_.added.get()[0].content.categoryIdentifier, "");
  const auto content = center_.added.get()[1].content;
  EXPECT_TRUE(content.categoryIdentifier.starts_with("vela.meeting."));
  EXPECT_EQ(err,
            "notify: category registry lock busy — posting without actions\n"
            "notify: meeting prompt — 2 action(s), category=<none>\n"
            "notify: meeting prompt — 2 action(s), category=" + content.categoryIdentifier + "\n");
  double expires = content.userInfo.at("vela_click_expires_at").get<double>();
  EXPECT_NEAR(expires, wallSeconds() + MeetingBanner::ttl, 5);
  EXPECT_EQ(categoryIDs(), (std::vector<std::string>{content.categoryIdentifier, "foreign.category"}));
  EXPECT_EQ(center_.categories.get()[0].actions.size(), 2u);
  EXPECT_EQ(NotifyClickJournal::read().at(1).expiresAt, expires);
}

TEST_F(Posting, SilenceWarningCarriesItsCategoryUnlessTheRegistryIsUnreadable) {
  const std::string token = "vela-app:ignore-silence:TRANSCRIPT_PENDING_1792530208_4242";
  center_.categories.set({{"vela.meeting.1.X", {}, false}});
  postNotifyBanner(request(token));
  postNotifyBanner(request(token));
  EXPECT_EQ(center_.added.get().at(1).content.categoryIdentifier, "vela.silence-warning");
  // It joins the categories there are, once.
  EXPECT_EQ(categoryIDs(), (std::vector<std::string>{"vela.meeting.1.X", "vela.silence-warning"}));
  EXPECT_EQ(center_.categories.get()[1].actions.size(), 4u);

  center_.script.with([&](auto& s) { s.answersCategories = false; });
  captureStderr();
  postNotifyBanner(request(token));
  EXPECT_EQ(stderrText(),
            "notify: could not read the category registry — posting the silence warning without its action\n");
  EXPECT_EQ(center_.added.get().at(2).content.categoryIdentifier, "");
}

}  // namespace
}  // namespace ac::notify::testing
