// Faults that used to lose a call, injected into the real executable on the
// private sound server: a reader-less standard output or error, a stop signal
// at any moment of start-up, hostile files where the output should be (and
// where the click journal should be: the microphone-loss suite).
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <optional>
#include <tuple>

#include "e2e_recording/e2e_fixture.h"
#include "support/eventually.h"
#include "support/spawn.h"

namespace ac::e2e {
namespace {

namespace fs = std::filesystem;
using test::contains;

class SafetyE2E : public E2E {
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
    EXPECT_TRUE(status && status->exited && status->code == 0) << "status " << (status ? status->code : -1);
    EXPECT_TRUE(contains(Scratch::contents(log), "] signal received\n")) << Scratch::contents(log);
    EXPECT_TRUE(contains(Scratch::contents(log), "] finalize-ok")) << Scratch::contents(log);
    std::vector<Pcm> tracks = decodeTracks(s, out);
    ASSERT_EQ(tracks.size(), 1u);
    EXPECT_GT(tracks[0].seconds(), 0.5);
  }
}

TEST_F(SafetyE2E, AStopSignalAtAnyMomentOfStartUpLeavesAFinalizedFileOrNone) {
  // 0-50 ms lands in loading or set-up, depending on the machine's load;
  // the later rows make sure set-up and the first moments are hit too.
  const std::pair<int, double> rows[] = {{SIGTERM, 0},     {SIGTERM, 0.005}, {SIGTERM, 0.01}, {SIGTERM, 0.02},  {SIGTERM, 0.035},
                      {SIGTERM, 0.05},  {SIGTERM, 0.1},   {SIGTERM, 0.2},  {SIGINT, 0.15},   {SIGHUP, 0.02},
                      {SIGHUP, 0.15}};
  for (const auto& [signal, delaySeconds] : rows) {
    const std::string label = std::string(strsignal(signal)) + " at " + std::to_string(delaySeconds) + " s";
    fs::remove(s.path("call.m4a"));
    fs::remove(s.path("call.log"));
    Recording r(s, {"--no-mic"});
    sleepSeconds(delaySeconds);
    ExeResult result = r.stop(signal);
    // Before the program's first instruction the default action still
    // applies, and nothing exists yet. Never an empty or header-only file:
    // one that exists was finalized.
    EXPECT_TRUE(result.exited || result.status == signal) << label;
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

}  // namespace
}  // namespace ac::e2e
