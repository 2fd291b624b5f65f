// The executable seen from outside: modes, refusals, the lock, the pid file
// and the log file. Recording launches point the sound server at a socket
// that does not exist, so the recorder fails at set-up, after the lock and
// the pid file.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include <regex>

#include "main/exe_runner.h"
#include "support/held_lock.h"

namespace ac::test {
namespace {

const EnvChanges kNoServer = {{"PULSE_SERVER", "unix:/nonexistent/ac-test-pulse"}};

const char* const kUsage =
    "usage: audio-capture --output FILE.m4a [--mic-uid UID] [--no-mic] [--no-system] [--lockfile FILE] "
    "[--level-file FILE] [--armed --go-fifo FIFO --status-fifo FIFO]\n"
    "       audio-capture --current-output\n"
    "       audio-capture --list-outputs\n"
    "       audio-capture --notify TITLE BODY "
    "[NOTE_PATH|vela-app:recordings|vela-app:open-note:MARKER|vela-app:ignore-silence:MARKER] [SOUND] "
    "[--no-prompt] [--meeting-prompt]\n"
    "       audio-capture --withdraw-meeting-prompt [--before=UNIX_SECONDS]\n"
    "       audio-capture --request-notif-auth\n"
    "       audio-capture --notif-auth-status\n"
    "       audio-capture                (no arguments: route a pending notification click, then exit)\n";

TEST(EntryBlackBox, HelpAndUsageErrors) {
  Scratch s;
  ExeResult help = runExe(s, {"-h", "--bogus"});
  EXPECT_EQ(help.out + help.err + std::to_string(help.status), std::string(kUsage) + "0");
  // The texts of every usage error are the argument parser's (tests/cli);
  // here, how one reaches the caller.
  ExeResult r = runExe(s, {"--capture-active"});
  EXPECT_EQ(r.status, 64);
  EXPECT_TRUE(std::regex_match(r.err, std::regex(R"(\[\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ\] [^\n]*\n)"))) << r.err;
  EXPECT_EQ(r.errLines() + r.out, "unknown arg: --capture-active\n");
}

TEST(EntryBlackBox, NotifyAndWithdrawRefusalsExitZero) {
  // Every refusal text is the argument checks' (tests/cli); here, how one
  // reaches the calling script.
  Scratch s;
  ExeResult usage = runExe(s, {"--withdraw-meeting-prompt", "--after=5"});
  EXPECT_EQ(usage.err + usage.out + std::to_string(usage.status),
            "notify: withdraw — unrecognised argument, withdrawing nothing\n0");
  // A refused click target drops the target, not the banner.
  ExeResult r = runExe(s, {"--notify", "T", "B", "relative/note.md"}, {{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/none"}});
  EXPECT_EQ(r.err.rfind("notify: ignoring open target (not-an-absolute-path)\n", 0), 0u) << r.err;
  EXPECT_EQ(r.status, 0);
}

TEST(EntryBlackBox, CaptureLockAndCaptureActive) {
  Scratch s;
  const std::string lock = s.path("capture.lock");
  EXPECT_EQ(runExe(s, {"--capture-active", s.path("no/dir/lock")}).status, 2);
  ExeResult fresh = runExe(s, {"--capture-active", "~/lock", "ignored"});
  EXPECT_EQ(fresh.out + fresh.err + std::to_string(fresh.status), "1");
  EXPECT_EQ(s.read("home/lock"), "");

  {
    HeldLock held(lock);
    EXPECT_EQ(runExe(s, {"--capture-active", lock}).status, 0);
    ExeResult r = runExe(s, {"-o", s.path("b.m4a"), "--no-mic", "--lockfile", lock, "--pidfile", s.path("pid")}, kNoServer);
    EXPECT_EQ(r.status, 75);
    EXPECT_TRUE(contains(r.errLines(), "\ncapture-lock: another capture is already active — exiting without recording\n"));
    EXPECT_FALSE(s.exists("pid"));
  }
  EXPECT_EQ(runExe(s, {"--capture-active", lock}).status, 1);

  const std::string unusable = s.path("no/dir/lock");
  ExeResult bad = runExe(s, {"-o", s.path("b.m4a"), "--no-mic", "--lockfile", unusable}, kNoServer);
  EXPECT_EQ(bad.status, 74);
  EXPECT_TRUE(contains(bad.errLines(),
                       "\ncapture-lock: open(" + unusable + ") failed errno=2 — refusing to record without a lock\n"));
}

TEST(EntryBlackBox, StartUpOrderThenSetUpFailure) {
  Scratch s;
  Scratch::write(s.path("log"), "a previous recording's line\n");
  ExeResult r = runExe(s,
                       {"-o", "~/call.m4a", "--no-mic", "--lockfile", s.path("lock"), "--pidfile", s.path("pid"),
                        "--level-file", s.path("level"), "--log", s.path("log")},
                       kNoServer);
  EXPECT_EQ(r.status, 1);
  EXPECT_FALSE(s.exists("home/call.m4a")) << "a failed set-up removes the output it created";
  EXPECT_EQ(s.read("pid"), std::to_string(r.pid) + "\n");
  EXPECT_FALSE(s.exists("level")) << "the level file is ignored without the microphone";
  std::regex expected("starting capture → " + s.path("home/call.m4a") + "\nauth: mic=\\d\ncapture-lock: acquired " +
                      s.path("lock") + "\nsetup/start failed: [^\n]+\n");
  EXPECT_TRUE(std::regex_match(r.errLines(), expected)) << r.errLines();
  EXPECT_EQ(s.read("log"), r.err) << "the log was truncated and holds exactly the lines of standard error";
  struct stat st {};
  EXPECT_EQ(::stat(s.path("log").c_str(), &st) == 0 ? st.st_mode & 0777 : 0, 0644u);

  // With the microphone: its permission is checked and the level file tried.
  const std::string missing = s.path("missing/log");
  ExeResult mic = runExe(s, {"-o", s.path("m.m4a"), "--level-file", s.path("level"), "--log", missing}, kNoServer);
  EXPECT_EQ(mic.errLines().rfind("log file unavailable (No such file or directory) — logging to stderr only: " +
                                     missing + "\nstarting capture → " + s.path("m.m4a") + "\n",
                                 0),
            0u)
      << mic.err;
  EXPECT_TRUE(std::regex_search(mic.errLines(), std::regex("\nmic status post-request: \\d\n"))) << mic.err;
  if (mic.status != 5) {
    EXPECT_TRUE(contains(mic.errLines(), "\nlevel file: publishing mic level to " + s.path("level") + "\n"));
  }
}

}  // namespace
}  // namespace ac::test
