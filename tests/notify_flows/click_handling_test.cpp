#include "notify/click_handling.h"

#include "notify/click_payload.h"
#include "notify/meeting_banner.h"
#include "notify/notify_command.h"
#include "tests/notify_flows/notify_flow_fixture.h"

namespace ac::notify::testing {
namespace {

using ClickHandling = NotifyFlowTest;
using platform::kDefaultActionIdentifier;
using platform::kDismissActionIdentifier;

const std::string kMarker = "TRANSCRIPT_PENDING_1792530208_4242";

std::string templateAction(const std::string& id, const std::string& name) {
  return MeetingBanner::templateActionID(id, MeetingBanner::digest(id, name));
}

TEST(ClickActionFolding, EachActionActsOnlyWhereItBelongs) {
  const NotifyClickTarget meeting = ClickStartRecording{}, silence = ClickIgnoreSilence{kMarker};
  const NotifyClickTarget note = ClickURL{"obsidian://open?path=%2Ftmp%2Fa.md"};
  struct Case {
    const char* what;
    NotifyClickTarget target;
    std::string action;
    bool custom;
    std::optional<NotifyClickTarget> expected;
  };
  const Case cases[] = {
      {"body click on a meeting prompt", meeting, kDefaultActionIdentifier, false, ClickStartRecording{}},
      {"plain start action", meeting, "vela.act:start", true, ClickStartRecording{}},
      {"template action", meeting, templateAction("t2", "Client"), true, ClickStartRecording{"t2"}},
      {"unknown action on a prompt", meeting, "vela.act:bogus", true, std::nullopt},
      {"action on a note banner", note, "vela.act:start", true, std::nullopt},
      {"action on Recordings", ClickRecordings{}, "vela.silence:ignore", true, std::nullopt},
      // A silence warning acts through its own buttons only.
      {"silence ignore", silence, "vela.silence:ignore", true, ClickIgnoreSilence{kMarker}},
      {"silence snooze", silence, "vela.silence:snooze-15", true, ClickSnoozeSilence{kMarker, 15}},
      {"silence body click", silence, kDefaultActionIdentifier, false, std::nullopt},
      {"silence dismissed", silence, kDismissActionIdentifier, true, std::nullopt},
      {"a prompt's action on a silence warning", silence, "vela.act:start", true, std::nullopt},
      {"no such snooze", silence, "vela.silence:snooze-7", true, std::nullopt},
      {"silence button not as a custom action", silence, "vela.silence:ignore", false, std::nullopt},
  };
  for (const auto& c : cases) {
    bool rosterRead = false;
    auto result = foldNotifyClickAction(c.target, c.action, c.custom, [&] {
      rosterRead = true;
      return std::vector<MeetingBanner::RosterEntry>{{"t1", "Standup"}, {"t2", "Client"}};
    });
    EXPECT_EQ(result.target, c.expected) << c.what;
    EXPECT_FALSE(result.templateRefused) << c.what;  // a stale pick is proven below
    // The roster is read only for a template pick.
    EXPECT_EQ(rosterRead, c.action.starts_with("vela.act:tpl:")) << c.what;
  }
}

// Every answer settles its journal row, even one that may not act, so that no
// later cold launch routes the banner again.
TEST_F(ClickHandling, EveryAnswerSettlesTheJournalAndOnlyTheFirstActs) {
  center_.delivered.set({banner("N1", NotifyClickPayload::make("/tmp/a.md")),
                        banner("N2", {{"vela_click_v", "1"}, {"vela_click_target", "/tmp/b.md"}}),
                        banner("N3", NotifyClickPayload::make("vela-app:recordings"))});
  for (const char* id : {"N1", "N2", "N3"}) NotifyClickJournal::record(id, "x", std::nullopt, wallSeconds());
  installNotifyDelegate();
  captureStderr();
  center_.respond("N2", kDefaultActionIdentifier);
  center_.respond("N3", kDismissActionIdentifier);
  NotifyClickOnce once;
  installNotifyDelegate(nullptr, [&] { return once.take(); });
  int completions = 0;
  center_.respond("N1", kDefaultActionIdentifier, [&] { ++completions; });
  center_.respond("N1", kDefaultActionIdentifier, [&] { ++completions; });
  runMainQueueFor(0.1);
  EXPECT_EQ(stderrText(),
            "notify: click carried no routable target (unsupported-payload-version)\n"
            "notify: click already answered by the journal fallback\n");
  EXPECT_EQ(completions, 2);
  EXPECT_EQ(desk_.openedURLs.get(), std::vector<std::string>{"obsidian://open?path=%2Ftmp%2Fa.md"});
  EXPECT_TRUE(desk_.distributed.get().empty());  // the dismissed Recordings banner did nothing
  EXPECT_TRUE(NotifyClickJournal::read().empty());
}

TEST_F(ClickHandling, StaleTemplatePickRaisesTheRefusalBannerAndStartsNothing) {
  write(home_ + "/.config/vela/template-shortcuts.json", R"({"v":1,"shortcuts":[{"id":"t1","name":"Renamed"}]})");
  int settled = 0;
  installNotifyDelegate([&] { ++settled; });
  center_.delivered.set({banner("N1", NotifyClickPayload::make("vela-app:record-start"))});
  captureStderr();
  center_.respond("N1", templateAction("t1", "Standup"));
  runMainQueueFor(0.3);
  pumpUntil([&] { return settled == 1 && !center_.added.get().empty(); });
  EXPECT_EQ(stderrText(),
            "notify: meeting-prompt template pick refused (no longer on the roster as it was offered — deleted, "
            "renamed or duplicated since)\n");
  ASSERT_EQ(center_.added.get().size(), 1u);
  EXPECT_EQ(center_.added.get()[0].content.title, "That template has changed");
  EXPECT_EQ(center_.added.get()[0].content.body, "No recording started. Pick again from the menu bar.");
  EXPECT_EQ(settled, 1);
  EXPECT_TRUE(notifyClickHandlers().deadlines.empty());
}

// Opening Recordings in a companion is proven end to end; here, its failures
// and the note link, where the app embedding this program wins over an
// installed one.
TEST_F(ClickHandling, CompanionFailuresAreSaidAndTheEmbeddingAppGetsTheNote) {
  struct Case {
    std::optional<std::string> app;
    std::optional<Error> launchError;
    std::string marker, recordingsLine, noteLine;
  };
  const Case cases[] = {
      {std::nullopt, std::nullopt, kMarker, "notify: no companion app to open\n",
       "notify: no companion app to open the note\n"},
      {"/apps/Vela.app", Error{"t", 1, "nope"}, kMarker, "notify: companion launch failed: nope\n",
       "notify: companion launch failed: nope\n"},
      {"/apps/Vela.app", std::nullopt, "IMPORT_1792530208_4242", "",
       "notify: refused an open-note click with no recording marker\n"},
  };
  for (const auto& c : cases) {
    if (c.app) desk_.applications.set({{"com.quorlan.vela", *c.app}});  // the first case has none
    desk_.launchError.set(c.launchError);
    captureStderr();
    openCompanionAppOnRecordings();
    EXPECT_EQ(stderrText(), c.recordingsLine);
    captureStderr();
    openCompanionAppOnNote(c.marker);
    EXPECT_EQ(stderrText(), c.noteLine);
  }
  const std::string embedded = home_ + "/Vela.app";
  std::filesystem::create_directories(embedded);
  desk_.bundleDir.set(embedded + "/Contents/Resources/vela/audio-capture-src/Vela.app");
  openCompanionAppOnNote(kMarker);
  std::vector<std::string> launched;
  for (const auto& l : desk_.launches.get()) launched.push_back(l.first + " " + l.second.back());
  EXPECT_EQ(launched, (std::vector<std::string>{"/apps/Vela.app recordings",
                                                embedded + " vela://open-note?marker=" + kMarker}));
}

// Timed against the handler's own budget, not the scheduler: on a loaded
// machine a poll may run late, but the exit must never wait out the budget.
TEST_F(ClickHandling, ExitWaitsForAHandlerInFlightThenFollowsWithinAPoll) {
  auto pumpUntilExits = [&](int n) {
    const double start = monotonicSeconds();
    while (exits_ < n && monotonicSeconds() - start < notifyClickHandlerGraceSeconds / 4) runMainQueueFor(0.01);
    return monotonicSeconds() - start;
  };
  scheduleNotifyExit(0.05);
  pumpUntilExits(1);
  EXPECT_EQ(exits_, 1) << "no handler: the exit comes at the scheduled delay";

  auto token = beginNotifyClickHandler();
  scheduleNotifyExit(0.05);
  runMainQueueFor(0.4);
  EXPECT_EQ(exits_, 1) << "a live handler holds the exit";
  endNotifyClickHandler(token);
  EXPECT_LT(pumpUntilExits(2), notifyClickHandlerGraceSeconds / 4);
  EXPECT_EQ(exits_, 2);
}

}  // namespace
}  // namespace ac::notify::testing
