// Faults that used to lose a call, injected into the real executable on the
// private sound server: a reader-less standard output or error, a stop signal
// at any moment of start-up, hostile files where the journal or the output
// should be.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <optional>
#include <tuple>

#include "e2e_recovery/desktop_session.h"
#include "e2e_recovery/recovery_fixture.h"
#include "support/spawn.h"
#include "tests/support/eventually.h"

namespace ac::e2e {
namespace {

namespace fs = std::filesystem;
using test::contains;

class SafetyE2E : public RecoveryE2E {
 protected:
  void SetUp() override { keepLive({"speaker"}); }
};

// SIGHUP (a closed terminal) ends the second run: it finalizes like SIGTERM.
TEST_F(SafetyE2E, AReaderlessStdoutOrStderrStillEndsInAFinalizedFile) {
  for (auto [stream, stop] : {std::pair{STDOUT_FILENO, SIGTERM}, {STDERR_FILENO, SIGHUP}}) {
    SCOPED_TRACE(stream == STDOUT_FILENO ? "stdout" : "stderr");
    const std::string out = s.path("pipe" + std::to_string(stream) + ".m4a"), log = out + ".log";
    int pipeFDs[2];
    ASSERT_EQ(::pipe(pipeFDs), 0);
    ::close(pipeFDs[0]);  // the reader is gone before the first line
    SpawnRequest request{AC_EXE, {"--output", out, "--log", log, "--no-mic"}, std::nullopt, -1, -1, -1};
    (stream == STDOUT_FILENO ? request.stdoutFD : request.stderrFD) = pipeFDs[1];
    SpawnResult spawned = spawnProcess(request);
    ::close(pipeFDs[1]);
    ASSERT_TRUE(spawned.child);
    ASSERT_TRUE(test::eventually([&] { return contains(Scratch::contents(log), "] ready, pid="); }, 10));
    sleepSeconds(1);
    ::kill(spawned.child->pid(), stop);
    std::optional<ExitStatus> status = spawned.child->waitFor(30);
    ASSERT_TRUE(status);
    EXPECT_TRUE(status->exited && status->code == 0) << "status " << status->code;
    EXPECT_TRUE(contains(Scratch::contents(log), "] signal received\n")) << Scratch::contents(log);
    EXPECT_TRUE(contains(Scratch::contents(log), "] finalize-ok")) << Scratch::contents(log);
    std::vector<Pcm> tracks = decodeTracks(s, out);
    ASSERT_EQ(tracks.size(), 1u);
    EXPECT_GT(tracks[0].seconds(), 0.5);
  }
}

TEST_F(SafetyE2E, AStopSignalAtAnyMomentOfStartUpLeavesAFinalizedFileOrNone) {
  struct Row {
    int signal;
    double delaySeconds;
  };
  // 0-50 ms lands in loading or set-up, depending on the machine's load;
  // the later rows make sure set-up and the first moments are hit too.
  const Row rows[] = {{SIGTERM, 0},     {SIGTERM, 0.005}, {SIGTERM, 0.01}, {SIGTERM, 0.02},  {SIGTERM, 0.035},
                      {SIGTERM, 0.05},  {SIGTERM, 0.1},   {SIGTERM, 0.2},  {SIGINT, 0.15},   {SIGHUP, 0.02},
                      {SIGHUP, 0.15}};
  for (const Row& row : rows) {
    const std::string label = std::string(strsignal(row.signal)) + " at " + std::to_string(row.delaySeconds) + " s";
    fs::remove(s.path("call.m4a"));
    fs::remove(s.path("call.log"));
    Recording r(s, {"--no-mic"});
    sleepSeconds(row.delaySeconds);
    ExeResult result = r.stop(row.signal);
    // Before the program's first instruction the default action still
    // applies, and nothing exists yet. Never an empty or header-only file:
    // one that exists was finalized.
    EXPECT_TRUE(result.exited || result.status == row.signal) << label;
    if (!fs::exists(r.outputPath)) continue;
    EXPECT_TRUE(result.exited && result.status == 0) << label << ": status " << result.status;
    EXPECT_TRUE(contains(r.log(), "finalize-ok call.m4a")) << label << "\n" << r.log();
  }
}

TEST_F(SafetyE2E, WhateverIsAtTheOutputIsRefusedAndLeftUntouched) {
  const std::string path = s.path("call.m4a"), target = s.path("target.m4a");
  Scratch::write(target, "earlier call");
  for (const std::string kind : {"file", "directory", "fifo", "symlink", "dangling symlink"}) {
    SCOPED_TRACE(kind);
    if (kind == "file")
      Scratch::write(path, "earlier call");
    else if (kind == "directory")
      fs::create_directory(path);
    else if (kind == "fifo")
      ::mkfifo(path.c_str(), 0600);
    else
      fs::create_symlink(kind == "symlink" ? target : target + ".gone", path);
    struct stat before {};
    ASSERT_EQ(::lstat(path.c_str(), &before), 0);
    Recording r(s, {"--no-mic"});
    ExeResult result = r.wait(15);  // a FIFO at the path must not block
    EXPECT_TRUE(result.exited && result.status == 1) << result.status;
    EXPECT_TRUE(contains(r.log(), "setup/start failed: the output " + path + " already exists — refusing to overwrite it"))
        << r.log();
    struct stat after {};
    ASSERT_EQ(::lstat(path.c_str(), &after), 0);
    EXPECT_EQ(std::tie(after.st_ino, after.st_mode, after.st_size), std::tie(before.st_ino, before.st_mode, before.st_size));
    EXPECT_EQ(Scratch::contents(target), "earlier call");
    fs::remove(path);
  }
}

// The notice a lost microphone raises goes through the journal; a journal
// that is a directory or a FIFO costs one "notify: " line, never the call.
TEST_F(SafetyE2E, AJournalThatIsNoFileCostsOneLineNotTheRecording) {
  if (auto missing = DesktopSession::unavailable()) GTEST_SKIP() << *missing;
  DesktopSession desktop(s);
  ASSERT_EQ(desktop.failure(), "");
  LoadedModule feed(s, {"module-null-sink", "sink_name=lostfeed"});
  const std::string journal = s.path("home/.local/state/vela/notify-clicks.json");
  for (const char* kind : {"directory", "fifo"}) {
    SCOPED_TRACE(kind);
    fs::remove_all(s.path("home"));
    fs::remove(s.path("call.m4a"));
    fs::create_directories(fs::path(journal).parent_path());
    if (std::string(kind) == "fifo")
      ASSERT_EQ(::mkfifo(journal.c_str(), 0600), 0);
    else
      fs::create_directory(journal);
    auto mic = std::make_unique<LoadedModule>(
        s, std::vector<std::string>{"module-remap-source", "master=lostfeed.monitor", "source_name=lostmic"});
    ASSERT_TRUE(mic->ok());
    auto system = tone("speaker", 440, 6);
    Recording r(s, {"--mic-uid", "lostmic"});
    ASSERT_TRUE(r.waitReady());
    sleepSeconds(1);
    mic.reset();
    ASSERT_TRUE(waitForLine(r, "mic input rebuild retry also failed — 'me' track ended early (system audio still recording)", 5))
        << r.log();
    sleepSeconds(1.5);  // the notice is posted off the recording's threads
    ExeResult result = r.stop(SIGTERM);
    EXPECT_TRUE(result.exited && result.status == 0) << result.status;
    std::vector<Pcm> tracks = decodeTracks(s, r.outputPath);
    ASSERT_EQ(tracks.size(), 2u);
    EXPECT_GT(toneAmplitude(tracks[0], 440), 0.05);
    EXPECT_EQ(countPrefixed(result.errLines(), "notify: journal "), 1u) << result.err;
  }
}

}  // namespace
}  // namespace ac::e2e
