#include <signal.h>
#include <sys/stat.h>

#include <filesystem>

#include "notify/record_start_script.h"
#include "notify/silence_ignore_script.h"
#include "tests/notify_flows/notify_flow_fixture.h"

namespace ac::notify::testing {
namespace {

using ClickScripts = NotifyFlowTest;

const std::string kMarker = "TRANSCRIPT_PENDING_1792530208_4242";

TEST_F(ClickScripts, SilenceScriptRunsWithNullStreamsAndItsOutcomeIsNamed) {
  std::string script = home_ + "/silence.sh";
  write(script,
            "#!/bin/sh\necho \"$*|$(readlink /proc/self/fd/0)|$(readlink /proc/self/fd/2)\" >" + home_ +
                "/args\nexit ${SILENCE_STATUS:-0}\n",
            true);
  EXPECT_EQ(runSilenceIgnoreScript(script, kMarker, std::nullopt, 5), "ignored");
  EXPECT_EQ(contents(home_ + "/args"), kMarker + "|/dev/null|/dev/null\n");
  ::setenv("SILENCE_STATUS", "3", 1);
  EXPECT_EQ(runSilenceIgnoreScript(script, kMarker, 5, 5), "refused (status 3)");
  ::unsetenv("SILENCE_STATUS");
  EXPECT_TRUE(runSilenceIgnoreScript(home_ + "/missing.sh", kMarker, 5, 5).starts_with("launch failed: "));
}

// A script that obeys SIGTERM ends on it; one that ignores it is killed a
// second later. No upper bound on the time: this machine may be loaded.
TEST_F(ClickScripts, HungSilenceScriptIsTerminatedThenKilled) {
  for (const bool obeys : {true, false}) {
    std::string script = home_ + "/hang.sh";
    std::filesystem::remove(home_ + "/got");
    std::string trap = obeys ? "echo TERM >" + home_ + "/got; exit 0" : "";
    write(script, "#!/bin/sh\ntrap '" + trap + "' TERM\necho $$ >" + home_ + "/pid\nwhile :; do sleep 0.05; done\n",
              true);
    double start = monotonicSeconds();
    EXPECT_EQ(runSilenceIgnoreScript(script, kMarker, std::nullopt, 0.2), "timed out after 0.2s") << trap;
    EXPECT_GE(monotonicSeconds() - start, obeys ? 0.2 : 1.2) << trap;
    EXPECT_EQ(std::filesystem::exists(home_ + "/got"), obeys) << "SIGTERM comes first";
    EXPECT_NE(::kill(std::stoi(contents(home_ + "/pid")), 0), 0) << trap << ": the script is gone";
  }
}

// The script two levels above the bundle runs inside a handler budget; one
// that another user could have planted is as good as none, and is refused
// as a missing one is.
TEST_F(ClickScripts, SilenceClickRunsOnlyATrustedScriptBesideTheBundle) {
  const std::string res = home_ + "/res", script = res + "/lib/silence-ignore.sh";
  const std::string refused = "notify: not running " + script + " — ";
  const std::string none = " can be changed by other users\nnotify: no silence-ignore script to run\n";
  struct Case {
    int scriptMode, libMode;
    std::string said;
  };
  const Case cases[] = {
      {0755, 0755, "notify: snooze-silence — snoozed\n"},
      {0777, 0755, refused + script + none},
      {0755, 0775, refused + res + "/lib" + none},
  };
  desk_.bundleDir.set(res + "/audio-capture-src/Vela.app");
  for (const auto& c : cases) {
    const bool runs = c.said.ends_with("snoozed\n");
    std::filesystem::remove_all(res);
    std::filesystem::remove(home_ + "/ran");
    write(script, "#!/bin/sh\necho \"$*\" >" + home_ + "/ran\n", true);
    ::chmod(script.c_str(), c.scriptMode);
    ::chmod((res + "/lib").c_str(), c.libMode);
    int settled = 0;
    captureStderr();
    ignoreSilenceFromNotifyClick(kMarker, 5, [&] { ++settled; });
    EXPECT_EQ(notifyClickHandlers().deadlines.size(), runs ? 1u : 0u) << c.said;
    for (int i = 0; i < 100 && !settled; ++i) runMainQueueFor(0.05);
    EXPECT_EQ(stderrText(), c.said);
    EXPECT_EQ(settled, 1) << c.said;
    EXPECT_EQ(std::filesystem::exists(home_ + "/ran") ? contents(home_ + "/ran") : "", runs ? kMarker + " 5\n" : "");
    EXPECT_TRUE(notifyClickHandlers().deadlines.empty()) << c.said;
  }
}

class RecordStart : public NotifyFlowTest {
 protected:
  void SetUp() override {
    NotifyFlowTest::SetUp();
    ::setenv("VELA_STATE_DIR", (home_ + "/state").c_str(), 1);
  }
  void TearDown() override {
    ::unsetenv("VELA_STATE_DIR");
    ::unsetenv("VELA_TEMPLATE_ID");
    NotifyFlowTest::TearDown();
  }
  const std::string script_ = home_ + "/.local/bin/vela-record-start";
};

// The output is echoed and classified, the template is the click's alone,
// and the capture never outlives the run.
TEST_F(RecordStart, ScriptOutputIsEchoedAndClassified) {
  using Outcome = RecordStartClickOutcome;
  struct Case {
    std::string body;
    std::optional<std::string> templateID;
    double wait;
    Outcome outcome;
    std::string said;
  };
  const std::string lid = "Lid closed with the built-in speakers as output.";
  const Case cases[] = {
      {"echo 'starting'\necho '> ❌ " + lid + "' >&2\nexit 1\n", std::nullopt, 5, Outcome::refused(lid),
       "notify: record-start: starting\nnotify: record-start: > ❌ " + lid + "\n"},
      {"", "t2", 5, Outcome::started(), ""},
      {"echo 'bash: line 9: oops'\nexit 2\n", std::nullopt, 5, Outcome::refused("record-start exited with status 2."),
       "notify: record-start: bash: line 9: oops\n"},
      {"echo 'warming up'\nsleep 1\n", std::nullopt, 0.2, Outcome::stillRunning(),
       "notify: record-start: warming up\n"
       "notify: record-start still running after 0.2s — not reporting an outcome\n"},
  };
  ::setenv("VELA_TEMPLATE_ID", "leaked", 1);
  for (const auto& c : cases) {
    write(script_, "#!/bin/sh\necho \"template=${VELA_TEMPLATE_ID-unset}\" >" + home_ + "/env\n" + c.body, true);
    captureStderr();
    EXPECT_EQ(runRecordStartForClick(script_, c.templateID, c.wait), c.outcome) << c.body;
    EXPECT_EQ(stderrText(), c.said);
    EXPECT_EQ(contents(home_ + "/env"), "template=" + c.templateID.value_or("unset") + "\n");
  }
  captureStderr();
  auto outcome = runRecordStartForClick(home_ + "/missing", std::nullopt, 5);
  EXPECT_EQ(outcome.kind, RecordStartClickOutcome::Kind::couldNotRun);
  EXPECT_EQ(stderrText(), "notify: record-start launch failed: " + outcome.reason + "\n");
  for (const auto& e : std::filesystem::directory_iterator(home_))
    EXPECT_FALSE(e.path().filename().string().starts_with("vela-record-start-click-")) << e.path();
}

TEST_F(RecordStart, ClickShowsTheRefusalBannerThenSettles) {
  const std::pair<std::optional<std::string>, std::string> cases[] = {
      {std::nullopt, "Vela couldn't find its record-start script."},
      {"#!/bin/sh\necho '> ❌ No microphone.'\nexit 1\n", "No microphone."},
  };
  for (const auto& [script, body] : cases) {
    if (script) write(script_, *script, true);
    int settled = 0;
    captureStderr();
    startRecordingFromNotifyClick(std::nullopt, [&] { ++settled; });
    for (int i = 0; i < 100 && !settled; ++i) runMainQueueFor(0.05);
    std::string said = stderrText();
    if (!script) {
      EXPECT_EQ(said, "notify: no record-start script to run\n");
    }
    EXPECT_EQ(settled, 1);
    const auto content = center_.added.get().back().content;
    EXPECT_EQ(content.title + "|" + content.body + "|" + content.soundName, "Couldn't start recording|" + body + "|Basso");
    EXPECT_TRUE(notifyClickHandlers().deadlines.empty());
  }
}

}  // namespace
}  // namespace ac::notify::testing
