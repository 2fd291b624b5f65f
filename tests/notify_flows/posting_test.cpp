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

TEST_F(Posting, UnbundledProcessPostsAndJournalsNothing) {
  desk_.setBundleIdentifier(std::nullopt);
  captureStderr();
  EXPECT_EQ(postNotifyBanner(request("/tmp/a.md")), std::nullopt);
  EXPECT_EQ(stderrText(), "notify: unbundled process — skipping post\n");
  EXPECT_TRUE(center_.added().empty());
  EXPECT_TRUE(NotifyClickJournal::read().empty());
}

TEST_F(Posting, NoPromptSkipsUndecidedWithoutAskingAndNoCentreEndsAtOnce) {
  center_.editScript([&](auto& s) { s.status = 0; s.statusAfterRequest = 2; });
  captureStderr();
  EXPECT_EQ(postNotifyBanner(request("/tmp/a.md", /*allowAuth=*/false)), notifyPlainLingerSeconds);
  EXPECT_EQ(stderrText(), "notify: skipped (auth=notDetermined)\n");
  EXPECT_EQ(center_.authorizationRequests(), 0);
  EXPECT_TRUE(center_.added().empty());
  EXPECT_EQ(readFile(statePath("notif-auth-status")), "notDetermined");
  // A centre that is not there hands this process no click: no linger.
  center_.editScript([&](auto& s) { s.status = platform::kNotificationAuthorizationUnavailable; });
  EXPECT_EQ(postNotifyBanner(request("/tmp/a.md")), std::nullopt);
}

TEST_F(Posting, UndecidedAsksForAlertAndSoundThenPosts) {
  center_.editScript([&](auto& s) { s.status = 0; s.statusAfterRequest = 2; });
  EXPECT_EQ(postNotifyBanner(request("/tmp/a.md")), notifyClickableLingerSeconds);
  ASSERT_TRUE(center_.lastRequestOptions());
  EXPECT_TRUE(center_.lastRequestOptions()->alert);
  EXPECT_TRUE(center_.lastRequestOptions()->sound);
  EXPECT_FALSE(center_.lastRequestOptions()->badge);
  EXPECT_EQ(center_.added().size(), 1u);
  EXPECT_EQ(readFile(statePath("notif-auth-status")), "authorized");
}

TEST_F(Posting, FailedAddIsSaidAndNotJournalled) {
  center_.editScript([&](auto& s) { s.addError = Error{"test", 1, "boom"}; });
  captureStderr();
  postNotifyBanner(request("/tmp/a.md"));
  EXPECT_EQ(stderrText(), "notify: add failed: boom\n");
  EXPECT_TRUE(NotifyClickJournal::read().empty());
}

TEST_F(Posting, ClickableBannerCarriesExactlyTheEnvelopeAndIsJournalled) {
  postNotifyBanner(request("/tmp/a.md"));
  ASSERT_EQ(center_.added().size(), 1u);
  const auto added = center_.added()[0];
  EXPECT_EQ(added.content.userInfo, (nlohmann::json{{"vela_click_v", 1}, {"vela_click_target", "/tmp/a.md"}}));
  EXPECT_EQ(added.content.categoryIdentifier, "");
  EXPECT_EQ(added.content.soundName, "");
  auto journal = NotifyClickJournal::read();
  ASSERT_EQ(journal.size(), 1u);
  EXPECT_EQ(journal[0].id, added.identifier);
  EXPECT_EQ(journal[0].token, "/tmp/a.md");
  EXPECT_EQ(journal[0].expiresAt, std::nullopt);
}

TEST_F(Posting, PlainBannerHasNoUserInfoAndIsJournalledTokenless) {
  NotifyRequest plain = request(std::nullopt);
  plain.soundName = "Glass";
  EXPECT_EQ(postNotifyBanner(plain), notifyPlainLingerSeconds);
  ASSERT_EQ(center_.added().size(), 1u);
  EXPECT_TRUE(center_.added()[0].content.userInfo.is_null());
  EXPECT_EQ(center_.added()[0].content.soundName, "Glass");
  auto journal = NotifyClickJournal::read();
  ASSERT_EQ(journal.size(), 1u);
  EXPECT_EQ(journal[0].token, std::nullopt);
}

// The recorder's notices (disk full, microphone lost): a plain banner with its
// sound, journalled tokenless so a later cold launch routes nothing through
// it, and nothing at all where banners would not be shown.
TEST_F(Posting, RecorderNoticeIsAPlainBannerUnlessBannersAreOff) {
  Semaphore handedOver;
  postNotification("Disk full", "Free up space.", "Basso", [&] { handedOver.signal(); });
  ASSERT_TRUE(handedOver.wait(5));
  ASSERT_EQ(center_.added().size(), 1u);
  const auto content = center_.added()[0].content;
  EXPECT_EQ(content.title + "|" + content.body + "|" + content.soundName, "Disk full|Free up space.|Basso");
  EXPECT_TRUE(content.userInfo.is_null());
  ASSERT_EQ(NotifyClickJournal::read().size(), 1u);
  EXPECT_EQ(NotifyClickJournal::read()[0].token, std::nullopt);

  center_.editScript([&](auto& s) { s.status = 1; });
  captureStderr();
  postNotification("Microphone disconnected", "b", "Basso", [&] { handedOver.signal(); });
  ASSERT_TRUE(handedOver.wait(5));
  EXPECT_EQ(stderrText(), "notify: skipped (auth=denied)\n");
  EXPECT_EQ(center_.added().size(), 1u);
}

TEST_F(Posting, MeetingPromptGetsItsOwnCategoryAndAnExpiry) {
  writeFile(home_ + "/.config/vela/template-shortcuts.json", R"({"v":1,"shortcuts":[{"id":"t1","name":"Standup"}]})");
  center_.setCategoriesDirectly({{"foreign.category", {}, false}});
  captureStderr();
  postNotifyBanner(request("vela-app:record-start", true, /*meeting=*/true));
  std::string err = stderrText();
  ASSERT_EQ(center_.added().size(), 1u);
  const auto content = center_.added()[0].content;
  EXPECT_TRUE(content.categoryIdentifier.starts_with("vela.meeting."));
  EXPECT_EQ(err, "notify: meeting prompt — 2 action(s), category=" + content.categoryIdentifier + "\n");
  double expires = content.userInfo.at("vela_click_expires_at").get<double>();
  EXPECT_NEAR(expires, wallSeconds() + MeetingBanner::ttl, 5);
  auto categories = center_.categories();
  ASSERT_EQ(categories.size(), 2u);
  EXPECT_EQ(categories[0].identifier, content.categoryIdentifier);
  EXPECT_EQ(categories[0].actions.size(), 2u);
  EXPECT_EQ(categories[1].identifier, "foreign.category");
  EXPECT_EQ(NotifyClickJournal::read().at(0).expiresAt, expires);
}

TEST_F(Posting, BusyCategoryLockPostsThePromptWithoutActions) {
  auto lock = holdLock(notifyCategoryLockFileName);
  captureStderr();
  postNotifyBanner(request("vela-app:record-start", true, true));
  EXPECT_EQ(stderrText(),
            "notify: category registry lock busy — posting without actions\n"
            "notify: meeting prompt — 1 action(s), category=<none>\n");
  ASSERT_EQ(center_.added().size(), 1u);
  EXPECT_EQ(center_.added()[0].content.categoryIdentifier, "");
  EXPECT_EQ(center_.setCategoriesCalls(), 0);
}

TEST_F(Posting, MeetingFlagIsIgnoredForOtherTokens) {
  postNotifyBanner(request("vela-app:recordings", true, true));
  EXPECT_EQ(center_.added().at(0).content.categoryIdentifier, "");
  EXPECT_FALSE(center_.added().at(0).content.userInfo.contains("vela_click_expires_at"));
}

TEST_F(Posting, SilenceWarningCarriesItsCategoryUnlessTheRegistryIsUnreadable) {
  const std::string token = "vela-app:ignore-silence:TRANSCRIPT_PENDING_1792530208_4242";
  postNotifyBanner(request(token));
  EXPECT_EQ(center_.added().at(0).content.categoryIdentifier, "vela.silence-warning");
  EXPECT_EQ(center_.categories().at(0).actions.size(), 4u);

  center_.editScript([&](auto& s) { s.answersCategories = false; });
  captureStderr();
  postNotifyBanner(request(token));
  EXPECT_EQ(stderrText(),
            "notify: could not read the category registry — posting the silence warning without its action\n");
  EXPECT_EQ(center_.added().at(1).content.categoryIdentifier, "");
}

}  // namespace
}  // namespace ac::notify::testing
