// The executable seen from outside: modes, refusals, the lock, the pid file
// and the log file. Recording launches point the sound server at a socket
// that does not exist, so whatever recorder is built fails at set-up, after
// the lock and the pid file.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "main/exe_runner.h"
#include "support/spawn.h"

namespace ac::test {
namespace {

const EnvChanges kNoSoundServer = {{"PULSE_SERVER", "unix:/nonexistent/ac-test-pulse"}};

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

bool contains(const std::string& haystack, const std::string& needle) {
  return haystack.find(needle) != std::string::npos;
}

TEST(EntryBlackBox, HelpPrintsTheUsageExactly) {
  Scratch s;
  for (const char* help : {"--help", "-h"}) {
    ExeResult r = runExe(s, {help});
    EXPECT_EQ(r.out, kUsage);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(r.exited);
  }
  EXPECT_EQ(runExe(s, {"--help", "--bogus"}).out, kUsage);
}

TEST(EntryBlackBox, UsageErrorsLogOneLineAndExit64) {
  struct Case {
    std::vector<std::string> args;
    std::string line;
  } cases[] = {
      {{"--no-mic"}, "--output is required"},
      {{"--output", ""}, "--output is required"},
      {{"-o", "a.m4a", "--mic-uid"}, "--mic-uid requires a value"},
      {{"-o", "a.m4a", "--frobnicate"}, "unknown arg: --frobnicate"},
      {{"--bogus", "--help"}, "unknown arg: --bogus"},
      {{"--capture-active"}, "unknown arg: --capture-active"},
      {{"-o", "a", "--armed", "--go-fifo", "g"}, "--armed requires --go-fifo and --status-fifo"},
      {{"-o", "a", "--armed", "--go-fifo", "g", "--status-fifo", "s", "--pidfile", "p"},
       "--armed is quick-note-only: refuse --lockfile/--pidfile"},
      {{"-o", "a", "--go-fifo", "g"}, "--go-fifo/--status-fifo require --armed"},
  };
  Scratch s;
  for (const auto& c : cases) {
    ExeResult r = runExe(s, c.args);
    EXPECT_EQ(r.status, 64) << c.line;
    EXPECT_EQ(r.errLines(), c.line + "\n");
    EXPECT_TRUE(std::regex_match(r.err, std::regex(R"(\[\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ\] [^\n]*\n)"))) << r.err;
    EXPECT_EQ(r.out, "");
  }
}

TEST(EntryBlackBox, DeviceQueriesWinFromAnyPosition) {
  Scratch s;
  ExeResult list = runExe(s, {"-o", "a.m4a", "--no-mic", "--list-outputs"}, kNoSoundServer);
  EXPECT_EQ(list.status, 1);
  EXPECT_EQ(list.err.rfind("list-outputs failed: ", 0), 0u) << list.err;
  EXPECT_FALSE(s.exists("a.m4a"));

  ExeResult current = runExe(s, {"--list-outputs", "--current-output"}, kNoSoundServer);
  EXPECT_EQ(current.status, 1);
  EXPECT_EQ(current.err.rfind("current-output lookup failed: ", 0), 0u) << current.err;
  EXPECT_EQ(current.out, "");
}

TEST(EntryBlackBox, ProcessSerialArgumentsAloneAreABareLaunch) {
  Scratch s;
  ExeResult bare = runExe(s, {}, kNoSoundServer);
  ExeResult psn = runExe(s, {"-psn_0_4242"}, kNoSoundServer);
  EXPECT_EQ(psn.status, bare.status);
  EXPECT_EQ(psn.out, bare.out);
  EXPECT_EQ(psn.errLines(), bare.errLines());
  EXPECT_FALSE(contains(psn.err, "--output is required")) << psn.err;
}

TEST(EntryBlackBox, NotifyAndWithdrawRefusalsExitZero) {
  struct Case {
    std::vector<std::string> args;
    std::string err;
  } cases[] = {
      {{"--notify"}, "notify: usage --notify TITLE BODY [NOTE_PATH] [SOUND]\n"},
      {{"--notify", "only a title"}, "notify: usage --notify TITLE BODY [NOTE_PATH] [SOUND]\n"},
      {{"--withdraw-meeting-prompt", "--after=5"}, "notify: withdraw — unrecognised argument, withdrawing nothing\n"},
      {{"--withdraw-meeting-prompt", "--before=1234567890123"},
       "notify: withdraw — unreadable --before, withdrawing nothing\n"},
      {{"--withdraw-meeting-prompt", "--before=12x"}, "notify: withdraw — unreadable --before, withdrawing nothing\n"},
      {{"--withdraw-meeting-prompt", "--before=1", "--before=2"},
       "notify: withdraw — --before given twice, withdrawing nothing\n"},
  };
  Scratch s;
  for (const auto& c : cases) {
    ExeResult r = runExe(s, c.args);
    EXPECT_EQ(r.err, c.err) << c.args.back();
    EXPECT_EQ(r.status, 0) << c.args.back();
    EXPECT_EQ(r.out, "");
  }
}

TEST(EntryBlackBox, CaptureActiveAnswersByStatusAlone) {
  Scratch s;
  ExeResult missingDir = runExe(s, {"--capture-active", s.path("no/such/dir/lock")});
  EXPECT_EQ(missingDir.status, 2);
  ExeResult fresh = runExe(s, {"--capture-active", s.path("lock"), "ignored"});
  EXPECT_EQ(fresh.status, 1);
  EXPECT_EQ(fresh.out + fresh.err, "");
  ASSERT_TRUE(s.exists("lock"));
  EXPECT_EQ(std::filesystem::file_size(s.path("lock")), 0u);
  // A leading tilde is the home directory.
  std::filesystem::create_directories(s.path("home"));
  EXPECT_EQ(runExe(s, {"--capture-active", "~/lock"}).status, 1);
  EXPECT_TRUE(s.exists("home/lock"));
}

TEST(EntryBlackBox, SecondCaptureOnAHeldLockExits75WithoutAPidFile) {
  Scratch s;
  const std::string lock = s.path("capture.lock");
  // The shell becomes `sleep` holding the lock on fd 9, so killing that one
  // process releases it and leaves nothing behind.
  SpawnResult holder = spawnProcess(
      {"/bin/sh", {"-c", "exec 9>>\"$0\"; flock -n 9 || exit 3; exec sleep 60", lock}, std::nullopt, -1, -1, -1});
  ASSERT_TRUE(holder.child);
  int active = -1;
  for (int i = 0; i < 100 && active != 0; ++i) active = runExe(s, {"--capture-active", lock}).status;
  ASSERT_EQ(active, 0) << "the helper never took the lock";

  ExeResult r = runExe(s, {"-o", s.path("b.m4a"), "--no-mic", "--lockfile", lock, "--pidfile", s.path("pid")},
                       kNoSoundServer);
  EXPECT_EQ(r.status, 75);
  EXPECT_TRUE(contains(r.errLines(),
                       "\ncapture-lock: another capture is already active — exiting without recording\n"))
      << r.err;
  EXPECT_FALSE(s.exists("pid"));

  holder.child->terminate(5);
  EXPECT_EQ(runExe(s, {"--capture-active", lock}).status, 1);
}

TEST(EntryBlackBox, StartUpOrderLockPidFileThenSetUpFailure) {
  Scratch s;
  std::filesystem::create_directories(s.path("home"));
  ExeResult r = runExe(s,
                       {"-o", "~/call.m4a", "--no-mic", "--lockfile", s.path("lock"), "--pidfile", s.path("pid"),
                        "--level-file", s.path("level"), "--log", s.path("log")},
                       kNoSoundServer);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(s.read("pid"), std::to_string(r.pid) + "\n");
  EXPECT_TRUE(s.exists("lock"));
  EXPECT_FALSE(s.exists("level")) << "the level file is ignored without the microphone";

  std::regex expected("starting capture → " + s.path("home/call.m4a") +
                      "\nauth: mic=\\d\ncapture-lock: acquired " + s.path("lock") + "\nsetup/start failed: [^\n]+\n");
  EXPECT_TRUE(std::regex_match(r.errLines(), expected)) << r.errLines();
  EXPECT_EQ(s.read("log"), r.err) << "the log file holds exactly the lines of standard error";
  EXPECT_EQ(r.out, "");
}

TEST(EntryBlackBox, MicrophoneLaunchChecksPermissionAndTheLevelFile) {
  Scratch s;
  ExeResult r = runExe(s, {"-o", s.path("m.m4a"), "--level-file", s.path("level")}, kNoSoundServer);
  const std::string lines = r.errLines();
  EXPECT_TRUE(std::regex_search(lines, std::regex("\nmic status post-request: \\d\n"))) << lines;
  if (r.status != 5) {
    EXPECT_TRUE(std::regex_search(lines, std::regex("\nlevel file: (publishing mic level to|could not open) " +
                                                    s.path("level"))))
        << lines;
    EXPECT_EQ(r.status, 1);
  } else {
    EXPECT_TRUE(contains(lines, "\nmic not authorized — set --no-mic or grant Microphone permission\n"));
  }
}

TEST(EntryBlackBox, LogFileIsTruncatedOrFallsBackToStandardError) {
  Scratch s;
  {
    std::ofstream old(s.path("log"));
    old << "a previous recording's line that must disappear\n";
  }
  ExeResult r = runExe(s, {"-o", s.path("x.m4a"), "--no-mic", "--log", s.path("log")}, kNoSoundServer);
  EXPECT_EQ(s.read("log"), r.err);
  EXPECT_FALSE(contains(s.read("log"), "previous recording"));

  const std::string missing = s.path("missing/dir/log");
  ExeResult fb = runExe(s, {"-o", s.path("x.m4a"), "--no-mic", "--log", missing}, kNoSoundServer);
  EXPECT_EQ(fb.errLines().rfind("log file unavailable (No such file or directory) — logging to stderr only: " +
                                    missing + "\nstarting capture → " + s.path("x.m4a") + "\n",
                                0),
            0u)
      << fb.err;
}

TEST(EntryBlackBox, ArmedSelfTestPasses) {
  Scratch s;
  ExeResult r = runExe(s, {"--selftest-armed"});
  EXPECT_EQ(r.status, 0) << r.out;
  EXPECT_TRUE(std::regex_match(r.out, std::regex("(ok   - [^\n]+\n)+"))) << r.out;
}

}  // namespace
}  // namespace ac::test
