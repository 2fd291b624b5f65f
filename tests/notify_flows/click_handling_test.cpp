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
const std::vector<MeetingBanner::RosterEntry> kRoster = {{"t1", "Standup"}, {"t2", "Client"}};

std::string templateAction(const std::string& id, const std::string& name) {
  return MeetingBanner::templateActionID(id, MeetingBanner::digest(id, name));
}

struct FoldCase {
  const char* what;
  NotifyClickTarget target;
  std::string action;
  bool custom;
  std::optional<NotifyClickTarget> expected;
  bool refused = false;
};

TEST(ClickActionFolding, EachActionActsOnlyWhereItBelongs) {
  const NotifyClickTarget meeting = ClickStartRecording{};
  const NotifyClickTarget silence = ClickIgnoreSilence{kMarker};
  const NotifyClickTarget note = ClickURL{"obsidian://open?path=%2Ftmp%2Fa.md"};
  const FoldCase cases[] = {
      {"body click on a meeting prompt", meeting, kDefaultActionIdentifier, false, ClickStartRecording{}},
      {"plain start action", meeting, "vela.act:start", true, ClickStartRecording{}},
      {"template action", meeting, templateAction("t2", "Client"), true, ClickStartRecording{"t2"}},
      {"renamed template", meeting, templateAction("t2", "Old name"), true, std::nullopt, true},
      {"deleted template", meeting, templateAction("t9", "Gone"), true, std::nullopt, true},
      {"unknown action on a prompt", meeting, "vela.act:bogus", true, std::nullopt},
      {"action on a note banner", note, "vela.act:start", true, std::nullopt},
      {"body click on a note banner", note, kDefaultActionIdentifier, false, note},
      {"action on Recordings", ClickRecordings{}, "vela.silence:ignore", true, std::nullopt},
      {"silence body click", silence, kDefaultActionIdentifier, false, std::nullopt},
      {"silence snooze", silence, "vela.silence:snooze-15", true, ClickSnoozeSilence{kMarker, 15}},
      {"snooze not as custom action", silence, "vela.silence:snooze-5", false, std::nullopt},
  };
  for (const auto& c : cases) {
    bool rosterRead = false;
    auto result = foldNotifyClickAction(c.target, c.action, c.custom, [&] {
      rosterRead = true;
      return kRoster;
    });
    EXPECT_EQ(result.target, c.expected) << c.what;
    EXPECT_EQ(result.templateRefused, c.refused) << c.what;
    // The roster is read only for a template pick.
    EXPECT_EQ(rosterRead, c.action.starts_with("vela.act:tpl:")) << c.what;
  }
}

TEST_F(ClickHandling, OnlyTheFirstAnswerActsAndTheJournalIsSettledEitherWay) {
  NotifyClickOnce once;
  installNotifyDelegate(nullptr, [&] { return once.take(); });
  center_.setDelivered({banner("N1", NotifyClickPayload::make("/tmp/a.md"))});
  NotifyClickJournal::record("N1", "/tmp/a.md", std::vector<std::string>{"N1"}, wallSeconds());

  captureStderr();
  int completions = 0;
  center_.respond("N1", kDefaultActionIdentifier, [&] { ++completions; });
  center_.respond("N1", kDefaultActionIdentifier, [&] { ++completions; });
  runMainQueueFor(0.1);
  EXPECT_EQ(stderrText(), "notify: click already answered by the journal fallback\n");
  EXPECT_EQ(completions, 2);
  EXPECT_EQ(desk_.openedURLs(), std::vector<std::string>{"obsidian://open?path=%2Ftmp%2Fa.md"});
  EXPECT_TRUE(NotifyClickJournal::read().empty());
}

TEST_F(ClickHandling, DismissalSettlesTheJournalButNeverActs) {
  installNotifyDelegate();
  center_.setDelivered({banner("N1", NotifyClickPayload::make("vela-app:recordings"))});
  NotifyClickJournal::record("N1", "vela-app:recordings", std::vector<std::string>{"N1"}, wallSeconds());
  center_.respond("N1", kDismissActionIdentifier);
  runMainQueueFor(0.1);
  EXPECT_TRUE(desk_.distributed().empty());
  EXPECT_TRUE(desk_.launches().empty());
  EXPECT_TRUE(NotifyClickJournal::read().empty());
}

TEST_F(ClickHandling, UnroutablePayloadIsNamed) {
  installNotifyDelegate();
  center_.setDelivered({banner("N1", {{"vela_click_v", "1"}, {"vela_click_target", "/tmp/a.md"}})});
  captureStderr();
  center_.respond("N1", kDefaultActionIdentifier);
  runMainQueueFor(0.1);
  EXPECT_EQ(stderrText(), "notify: click carried no routable target (unsupported-payload-version)\n");
  EXPECT_TRUE(desk_.openedURLs().empty());
}

TEST_F(ClickHandling, StaleTemplatePickRaisesTheRefusalBannerAndStartsNothing) {
  writeFile(home_ + "/.config/vela/template-shortcuts.json", R"({"v":1,"shortcuts":[{"id":"t1","name":"Renamed"}]})");
  int settled = 0;
  installNotifyDelegate([&] { ++settled; });
  center_.setDelivered({banner("N1", NotifyClickPayload::make("vela-app:record-start"))});
  captureStderr();
  center_.respond("N1", templateAction("t1", "Standup"));
  runMainQueueFor(0.3);
  EXPECT_EQ(stderrText(),
            "notify: meeting-prompt template pick refused (no longer on the roster as it was offered — deleted, "
            "renamed or duplicated since)\n");
  ASSERT_EQ(center_.added().size(), 1u);
  EXPECT_EQ(center_.added()[0].content.title, "That template has changed");
  EXPECT_EQ(center_.added()[0].content.body, "No recording started. Pick again from the menu bar.");
  EXPECT_EQ(settled, 1);
  EXPECT_TRUE(notifyClickHandlers().deadlines.empty());
}

TEST_F(ClickHandling, RecordingsTellsARunningCompanionAndLaunchesIt) {
  desk_.setApplication("com.quorlan.vela", "/apps/Vela.app");
  openCompanionAppOnRecordings();
  ASSERT_EQ(desk_.distributed().size(), 1u);
  EXPECT_EQ(desk_.distributed()[0].name, "com.quorlan.vela.open-tab");
  EXPECT_EQ(desk_.distributed()[0].object, "recordings");
  ASSERT_EQ(desk_.launches().size(), 1u);
  EXPECT_EQ(desk_.launches()[0].appPath, "/apps/Vela.app");
  EXPECT_EQ(desk_.launches()[0].args, (std::vector<std::string>{"--tab", "recordings"}));
}

TEST_F(ClickHandling, CompanionFailuresAreSaid) {
  struct Case {
    std::optional<std::string> app;
    std::optional<Error> launchError;
    std::string marker;
    std::string recordingsLine, noteLine;
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
    desk_.setApplication("com.quorlan.vela", c.app);
    desk_.setLaunchError(c.launchError);
    captureStderr();
    openCompanionAppOnRecordings();
    EXPECT_EQ(stderrText(), c.recordingsLine);
    captureStderr();
    openCompanionAppOnNote(c.marker);
    EXPECT_EQ(stderrText(), c.noteLine);
  }
}

TEST_F(ClickHandling, OpenNoteHandsTheLinkToTheCompanionEmbeddingThisProgram) {
  std::string app = home_ + "/Vela.app";
  std::filesystem::create_directories(app);
  desk_.setBundlePath(app + "/Contents/Resources/vela/audio-capture-src/Vela.app");
  EXPECT_EQ(companionAppPath(), app);
  openCompanionAppOnNote(kMarker);
  ASSERT_EQ(desk_.launches().size(), 1u);
  EXPECT_EQ(desk_.launches()[0].appPath, app);
  EXPECT_EQ(desk_.launches()[0].args, std::vector<std::string>{"vela://open-note?marker=" + kMarker});
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

TEST_F(ClickHandling, SettlingWhileASiblingWorksDoesNotOwnTheExit) {
  int settled = 0;
  auto sibling = beginNotifyClickHandler();
  notifySettleClick([&] { ++settled; });
  EXPECT_EQ(settled, 0);
  endNotifyClickHandler(sibling);
  notifySettleClick([&] { ++settled; });
  EXPECT_EQ(settled, 1);
}

}  // namespace
}  // namespace ac::notify::testing
