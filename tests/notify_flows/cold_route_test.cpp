#include "notify/cold_route.h"

#include "notify/click_payload.h"
#include "tests/notify_flows/notify_flow_fixture.h"

namespace ac::notify::testing {
namespace {

using ColdRoute = NotifyFlowTest;

NotifyClickJournalEntry entry(const std::string& id, std::optional<std::string> token,
                              std::optional<double> expiresAt = std::nullopt) {
  return {id, std::move(token), wallSeconds() - 600, expiresAt};
}

TEST(JournalledClick, ResolvesOnlyWhatAColdLaunchCanKnow) {
  const double now = 1'800'000'000;
  struct Case {
    const char* what;
    NotifyClickJournalEntry e;
    NotifyClickResult expected;
  };
  const Case cases[] = {
      {"note path", entry("A", "/tmp/a.md"), NotifyClickTarget{ClickURL{"obsidian://open?path=%2Ftmp%2Fa.md"}}},
      {"fresh prompt", entry("A", "vela-app:record-start", now + 1), NotifyClickTarget{ClickStartRecording{}}},
      {"expired prompt", entry("A", "vela-app:record-start", now), NotifyClickRejection::expired},
      {"tokenless", entry("A", std::nullopt), NotifyClickRejection::noTarget},
      {"silence warning", entry("A", "vela-app:ignore-silence:TRANSCRIPT_PENDING_1_2"),
       NotifyClickRejection::actionOnly},
      {"hostile token", entry("A", "javascript:alert(1)"), NotifyClickRejection::notAbsolutePath},
  };
  for (const auto& c : cases) EXPECT_EQ(resolveJournalledClick(c.e, now), c.expected) << c.what;
}

TEST_F(ColdRoute, DeliveredRowsCarryTokensOnlyFromWellFormedEnvelopes) {
  center_.setDelivered({banner("A", NotifyClickPayload::make("/tmp/a.md"), "cat", 5),
                        banner("B", {{"vela_click_v", 2}, {"vela_click_target", "/tmp/b.md"}}),
                        banner("C", nullptr)});
  auto rows = deliveredNotificationRows(center_);
  ASSERT_TRUE(rows);
  EXPECT_EQ(*rows, (std::vector<DeliveredNotificationRow>{
                       {"A", "cat", "/tmp/a.md", 5}, {"B", "", std::nullopt, 1'800'000'000}, {"C", "", std::nullopt, 1'800'000'000}}));
  center_.editScript([&](auto& s) { s.answersDelivered = false; });
  EXPECT_EQ(deliveredNotificationRows(center_, 0.05), std::nullopt);
  EXPECT_EQ(deliveredNotificationIDs(center_, 0.05), std::nullopt);
}

class ColdRouteArms : public NotifyFlowTest {
 protected:
  // Journals the entries, shows the delivered ones, routes, and returns what
  // was said. The delivered query runs off the main queue: pump until it has
  // had time to answer (or, scripted silent, to time out).
  std::string route(const NotifyClickJournalEntries& journal, const std::vector<std::string>& delivered,
                    double pumpSeconds = 0.3) {
    std::vector<platform::DeliveredNotification> banners;
    for (const auto& id : delivered) banners.push_back(banner(id, nullptr));
    center_.setDelivered(banners);
    NotifyClickJournal::update(NotifyClickJournal::defaultURL(), [&](NotifyClickJournalEntries) { return journal; });
    captureStderr();
    routeColdClickFromJournal(center_, once_, journal);
    runMainQueueFor(pumpSeconds);
    return stderrText();
  }

  NotifyClickOnce once_;
  const NotifyClickJournalEntries journal_ = {entry("A", "/tmp/a.md"), entry("B", "/tmp/b.md"),
                                              entry("C", std::nullopt)};
};

TEST_F(ColdRouteArms, OnlyTheOneBannerGoneIsRoutedAndSettled) {
  captureStderr();
  routeColdClickFromJournal(center_, once_, {});
  EXPECT_EQ(stderrText(), "notify: cold route — journal=0, nothing outstanding\n");
  // Nothing gone, or only a tokenless banner gone: nothing to route.
  EXPECT_EQ(route(journal_, {"A", "B", "C"}), "notify: cold route — journal=3 delivered=3 resolution=nothing\n");
  EXPECT_EQ(route(journal_, {"A", "B"}), "notify: cold route — journal=3 delivered=2 resolution=nothing\n");
  EXPECT_TRUE(desk_.openedURLs().empty());
  EXPECT_EQ(route(journal_, {"B", "C"}), "notify: cold route — journal=3 delivered=2 resolution=route\n");
  EXPECT_EQ(desk_.openedURLs(), std::vector<std::string>{"obsidian://open?path=%2Ftmp%2Fa.md"});
  auto left = NotifyClickJournal::read();
  ASSERT_EQ(left.size(), 2u);
  EXPECT_EQ(left[0].id, "B");
}

TEST_F(ColdRouteArms, TwoGoneOrNoAnswerOpenRecordingsNeverANote) {
  const std::string recordings =
      "notify: cold click could not be attributed to one banner — opening Recordings\n"
      "notify: no companion app to open\n";
  EXPECT_EQ(route(journal_, {"C"}), "notify: cold route — journal=3 delivered=1 resolution=recordings\n" + recordings);
  center_.editScript([&](auto& s) { s.answersDelivered = false; });
  EXPECT_EQ(route(journal_, {}, deliveredQueryTimeoutSeconds + 0.3),
            "notify: cold route — journal=3 delivered=no-answer resolution=recordings\n" + recordings);
  EXPECT_TRUE(desk_.openedURLs().empty());
  EXPECT_EQ(desk_.distributed().size(), 2u);
}

TEST_F(ColdRouteArms, AClickAnotherLaunchClaimedIsLost) {
  center_.setDelivered({banner("B", nullptr), banner("C", nullptr)});
  // Another launch already settled A out of the journal.
  NotifyClickJournal::update(NotifyClickJournal::defaultURL(),
                             [&](NotifyClickJournalEntries) { return NotifyClickJournalEntries{journal_[1], journal_[2]}; });
  captureStderr();
  routeColdClickFromJournal(center_, once_, journal_);
  runMainQueueFor(0.3);
  EXPECT_EQ(stderrText(),
            "notify: cold route — journal=3 delivered=2 resolution=route\n"
            "notify: cold click already claimed by another launch\n");
  EXPECT_TRUE(desk_.openedURLs().empty());
}

TEST_F(ColdRouteArms, AJournalThatCannotBeUpdatedStillRoutes) {
  NotifyClickJournal::update(NotifyClickJournal::defaultURL(), [&](NotifyClickJournalEntries) { return journal_; });
  center_.setDelivered({banner("B", nullptr), banner("C", nullptr)});
  auto lock = holdLock(NotifyClickJournal::lockFileName);
  captureStderr();
  routeColdClickFromJournal(center_, once_, journal_);
  runMainQueueFor(0.3);
  EXPECT_EQ(stderrText(),
            "notify: cold route — journal=3 delivered=2 resolution=route\n"
            "notify: journal lock busy — leaving it to the holder\n"
            "notify: click claimed but the journal could not be updated — routing anyway\n");
  EXPECT_EQ(desk_.openedURLs().size(), 1u);
}

TEST_F(ColdRouteArms, TheDelegateAnsweringFirstWins) {
  ASSERT_TRUE(once_.take());
  EXPECT_EQ(route(journal_, {"B", "C"}), "notify: cold route — journal=3 delivered=2 resolution=route\n");
  EXPECT_TRUE(desk_.openedURLs().empty());
}

TEST_F(ColdRouteArms, AColdSilenceWarningIsRefusedNotGuessed) {
  NotifyClickJournalEntries journal = {entry("S", "vela-app:ignore-silence:TRANSCRIPT_PENDING_1_2"), entry("B", "x")};
  EXPECT_EQ(route(journal, {"B"}),
            "notify: cold route — journal=2 delivered=1 resolution=route\n"
            "notify: journalled click carried no routable target (action-only-target)\n");
}

}  // namespace
}  // namespace ac::notify::testing
