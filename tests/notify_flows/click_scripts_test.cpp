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

TEST_F(ClickScripts, SilenceScriptGetsTheMarkerMinutesAndNullStreams) {
  std::string script = home_ + "/silence.sh";
  writeFile(script,
            "#!/bin/sh\necho \"$*|$(readlink /proc/self/fd/0 2>/dev/null || readlink /dev/fd/0)|$(readlink /proc/self/fd/2 2>/dev/null || readlink /dev/fd/2)\" >" + home_ +
                "/args\nexit ${SILENCE_STATUS:-0}\n",
            true);
  EXPECT_EQ(runSilenceIgnoreScript(script, kMarker, 10, 5), "snoozed");
  EXPECT_EQ(readFile(home_ + "/args"), kMarker + " 10|/dev/null|/dev/null\n");
  EXPECT_EQ(runSilenceIgnoreScript(script, kMarker, std::nullopt, 5), "ignored");
  EXPECT_EQ(readFile(home_ + "/args"), kMarker + "|/dev/null|/dev/null\n");
  ::setenv("SILENCE_STATUS", "3", 1);
  EXPECT_EQ(runSilenceIgnoreScript(script, kMarker, 5, 5), "refused (status 3)");
  ::unsetenv("SILENCE_STATUS");
  EXPECT_TRUE(runSilenceIgnoreScript(home_ + "/missing.sh", kMarker, 5, 5).starts_with("launch failed: "));
}

TEST_F(ClickScripts, HungSilenceScriptIsTerminatedThenKilled) {
  struct Case {
    const char* what;
    const char* trap;
    double atLeast, atMost;
  };
  const Case cases[] = {
      {"stops on SIGTERM", "", 0.2, 0.9},
      {"ignores SIGTERM, needs SIGKILL", "trap '' TERM\n", 1.2, 2.0},
  };
  for (const auto& c : cases) {
    std::string script = home_ + "/hang.sh";
    writeFile(script, std::string("#!/bin/sh\n") + c.trap + "echo $$ >" + home_ + "/pid\nwhile :; do sleep 0.05; done\n",
              true);
    double start = monotonicSeconds();
    EXPECT_EQ(runSilenceIgnoreScript(script, kMarker, std::nullopt, 0.2), "timed out after 0.2s") << c.what;
    double took = monotonicSeconds() - start;
    EXPECT_GE(took, c.atLeast) << c.what;
    EXPECT_LE(took, c.atMost) << c.what;
    pid_t pid = std::stoi(readFile(home_ + "/pid"));
    EXPECT_NE(::kill(pid, 0), 0) << c.what << ": the script is gone";
  }
}

// The script two levels above the bundle runs inside a handler budget; one
// that another user could have planted is as good as none.
TEST_F(ClickScripts, SilenceClickRunsOnlyATrustedScriptBesideTheBundle) {
  const std::string res = home_ + "/res", script = res + "/lib/silence-ignore.sh";
  const std::string refused = "notify: not running " + script + " — ";
  const std::string none = " can be changed by other users\nnotify: no silence-ignore script to run\n";
  struct Case {
    int scriptMode, libMode;  // 0: no script
    std::string said;
    bool runs;
  };
  const Case cases[] = {
      {0, 0, "notify: no silence-ignore script to run\n", false},
      {0755, 0755, "notify: snooze-silence — snoozed\n", true},
      {0777, 0755, refused + script + none, false},
      {0755, 0775, refused + res + "/lib" + none, false},
  };
  desk_.setBundlePath(res + "/audio-capture-src/Vela.app");
  for (const auto& c : cases) {
    std::filesystem::remove_all(res);
    std::filesystem::remove(home_ + "/ran");
    if (c.scriptMode) {
      writeFile(script, "#!/bin/sh\necho \"$*\" >" + home_ + "/ran\n", true);
      ::chmod(script.c_str(), c.scriptMode);
      ::chmod((res + "/lib").c_str(), c.libMode);
    }
    int settled = 0;
    captureStderr();
    ignoreSilenceFromNotifyClick(kMarker, 5, [&] { ++settled; });
    EXPECT_EQ(notifyClickHandlers().deadlines.size(), c.runs ? 1u : 0u) << c.said;
    for (int i = 0; i < 100 && !settled; ++i) runMainQueueFor(0.05);
    EXPECT_EQ(stderrText(), c.said);
    EXPECT_EQ(settled, 1) << c.said;
    EXPECT_EQ(std::filesystem::exists(home_ + "/ran") ? readFile(home_ + "/ran") : "", c.runs ? kMarker + " 5\n" : "");
    EXPECT_TRUE(notifyClickHandlers().deadlines.empty()) << c.said;
  }
}

class RecordStart : public NotifyFlowTest {
 protected:
  void SetUp() override {
    NotifyFlowTest::SetUp();
    script_ = home_ + "/.local/bin/vela-record-start";
    ::setenv("VELA_STATE_DIR", (home_ + "/state").c_str(), 1);
  }
  void TearDown() override {
    ::unsetenv("VELA_STATE_DIR");
    ::unsetenv("VELA_TEMPLATE_ID");
    NotifyFlowTest::TearDown();
  }
  void script(const std::string& body) { writeFile(script_, "#!/bin/sh\n" + body, true); }
  // Nothing but what the test itself put in the temporary directory.
  bool noCaptureLeft() {
    for (const auto& e : std::filesystem::directory_iterator(home_))
      if (e.path().filename().string().starts_with("vela-record-start-click-")) return false;
    return true;
  }
  std::string script_;
};

TEST_F(RecordStart, NarratedRefusalIsEchoedClassifiedAndTheCaptureRemoved) {
  script("echo \"template=${VELA_TEMPLATE_ID-unset}\" >" + home_ +
         "/env\necho 'starting'\necho '> ❌ Lid closed with the built-in speakers as output.' >&2\nexit 1\n");
  ::setenv("VELA_TEMPLATE_ID", "leaked", 1);
  captureStderr();
  EXPECT_EQ(runRecordStartForClick(script_, std::nullopt, 5),
            RecordStartClickOutcome::refused("Lid closed with the built-in speakers as output."));
  EXPECT_EQ(stderrText(),
            "notify: record-start: starting\n"
            "notify: record-start: > ❌ Lid closed with the built-in speakers as output.\n");
  EXPECT_EQ(readFile(home_ + "/env"), "template=unset\n");
  EXPECT_TRUE(noCaptureLeft());

  script("echo \"template=${VELA_TEMPLATE_ID-unset}\" >" + home_ + "/env\n");
  EXPECT_EQ(runRecordStartForClick(script_, "t2", 5), RecordStartClickOutcome::started());
  EXPECT_EQ(readFile(home_ + "/env"), "template=t2\n");
}

TEST_F(RecordStart, UnnarratedFailureAndLaunchFailure) {
  script("echo 'bash: line 9: oops'\nexit 2\n");
  captureStderr();
  EXPECT_EQ(runRecordStartForClick(script_, std::nullopt, 5),
            RecordStartClickOutcome::refused("record-start exited with status 2."));
  (void)stderrText();
  captureStderr();
  auto outcome = runRecordStartForClick(home_ + "/missing", std::nullopt, 5);
  std::string err = stderrText();
  EXPECT_EQ(outcome.kind, RecordStartClickOutcome::Kind::couldNotRun);
  EXPECT_EQ(err, "notify: record-start launch failed: " + outcome.reason + "\n");
  EXPECT_TRUE(noCaptureLeft());
}

TEST_F(RecordStart, AScriptStillRunningIsLeftAloneAndNotReported) {
  script("echo 'warming up'\nsleep 1\n");
  captureStderr();
  EXPECT_EQ(runRecordStartForClick(script_, std::nullopt, 0.2), RecordStartClickOutcome::stillRunning());
  EXPECT_EQ(stderrText(),
            "notify: record-start: warming up\n"
            "notify: record-start still running after 0.2s — not reporting an outcome\n");
  EXPECT_TRUE(noCaptureLeft());
}

TEST_F(RecordStart, ClickShowsTheRefusalBannerThenSettles) {
  script("echo '> ❌ No microphone.'\nexit 1\n");
  int settled = 0;
  captureStderr();
  startRecordingFromNotifyClick(std::nullopt, [&] { ++settled; });
  for (int i = 0; i < 100 && !settled; ++i) runMainQueueFor(0.05);
  (void)stderrText();
  EXPECT_EQ(settled, 1);
  ASSERT_EQ(center_.added().size(), 1u);
  EXPECT_EQ(center_.added()[0].content.title, "Couldn't start recording");
  EXPECT_EQ(center_.added()[0].content.body, "No microphone.");
  EXPECT_EQ(center_.added()[0].content.soundName, "Basso");
  EXPECT_TRUE(notifyClickHandlers().deadlines.empty());
}

TEST_F(RecordStart, ClickWithoutAScriptSaysSo) {
  int settled = 0;
  captureStderr();
  startRecordingFromNotifyClick("t1", [&] { ++settled; });
  for (int i = 0; i < 100 && !settled; ++i) runMainQueueFor(0.05);
  EXPECT_EQ(stderrText(), "notify: no record-start script to run\n");
  ASSERT_EQ(center_.added().size(), 1u);
  EXPECT_EQ(center_.added()[0].content.body, "Vela couldn't find its record-start script.");
}

}  // namespace
}  // namespace ac::notify::testing
