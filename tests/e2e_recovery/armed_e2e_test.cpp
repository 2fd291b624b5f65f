// Armed launches that record: "go" through the real FIFOs, then the two ways
// such a recording ends that only a real run shows — the owner closing the
// go pipe, and a SIGTERM that lands while the recorder is still starting.
#include <signal.h>

#include <filesystem>

#include "e2e_recovery/armed_owner.h"
#include "e2e_recovery/recovery_fixture.h"
#include "support/dispatch.h"

namespace ac::e2e {
namespace {

constexpr double kSystemHz = 440, kMicHz = 1000;

// Waits until process `pid` runs a thread called `name` (as far as the
// kernel keeps thread names: 15 bytes).
bool waitForThread(int pid, const std::string& name, double timeoutSeconds) {
  const std::string kept = name.substr(0, 15) + "\n";
  const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
  for (const double deadline = monotonicSeconds() + timeoutSeconds; monotonicSeconds() < deadline;) {
    std::error_code ec;
    for (const auto& task : std::filesystem::directory_iterator(tasks, ec))
      if (Scratch::contents(task.path() / "comm") == kept) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return false;
}

class ArmedE2E : public RecoveryE2E {
 protected:
  void SetUp() override { keepLive({"speaker", "micfeed"}); }
};

TEST_F(ArmedE2E, GoRecordsBothSourcesUntilTheOwnerClosesTheGoPipe) {
  auto system = tone("speaker", kSystemHz, 8);
  auto mic = tone("micfeed", kMicHz, 8);
  ArmedOwner owner(s);
  Recording r(s, owner.armedArgs());
  const std::string pid = std::to_string(r.pid());
  ASSERT_EQ(owner.nextLine(), "armed, pid=" + pid);
  owner.send("go\n");
  ASSERT_EQ(owner.nextLine(), "ready, pid=" + pid);
  const auto ready = std::chrono::steady_clock::now();
  sleepSeconds(2);
  owner.closeGo();
  const double recorded = secondsSince(ready);

  ExeResult result = r.wait(20);
  EXPECT_EQ(std::to_string(result.status) + " " + result.out, "0 pid=" + pid + "\n");
  const std::string log = r.log();
  EXPECT_TRUE(inOrder(log, {"ready, pid=" + pid, "armed: owner gone after go — finalizing", "signal received",
                            "writer done status=2", "finalize-ok call.m4a pid=" + pid + ".", "exit"}))
      << log;
  std::vector<Pcm> tracks = decodeTracks(s, r.outputPath);
  ASSERT_EQ(tracks.size(), 2u);
  for (const Pcm& track : tracks) EXPECT_NEAR(track.seconds(), recorded, 0.15) << "track at " << track.rate << " Hz";
  EXPECT_GT(toneAmplitude(tracks[0], kSystemHz), 0.05);
  EXPECT_GT(toneAmplitude(tracks[1], kMicHz), 0.05);
}

TEST_F(ArmedE2E, SigtermBetweenGoAndReadyIsHonouredOnceRunning) {
  if (auto why = privateServerUncontrolled()) GTEST_SKIP() << *why;
  auto system = tone("speaker", kSystemHz, 8);
  ArmedOwner owner(s);
  Recording r(s, [&] {
    std::vector<std::string> args = owner.armedArgs();
    args.push_back("--no-mic");
    return args;
  }());
  const std::string pid = std::to_string(r.pid());
  ASSERT_EQ(owner.nextLine(), "armed, pid=" + pid);
  {
    // Starting waits on the frozen server, which holds the recorder between
    // go and ready for as long as the test needs.
    FrozenServer frozen;
    owner.send("go\n");
    // The owner watch starts once go was accepted, just before the start.
    ASSERT_TRUE(waitForThread(r.pid(), "audio-capture.armed-owner-watch", 5)) << r.log();
    ::kill(r.pid(), SIGTERM);
    ASSERT_TRUE(waitForLine(r, "signal received during start — honoured once running", 3)) << r.log();
  }
  EXPECT_EQ(owner.nextLine(), "ready, pid=" + pid);
  // The deferred stop ends the recording by itself, well before wait()
  // would send a signal of its own.
  const auto thawed = std::chrono::steady_clock::now();
  ExeResult result = r.wait(20);
  EXPECT_LT(secondsSince(thawed), 5);
  EXPECT_EQ(std::to_string(result.status) + " " + result.out, "0 pid=" + pid + "\n");
  const std::string log = r.log();
  // "ready" went to the owner before the stop was queued; the log's own
  // "ready, pid=" line races the stop.
  EXPECT_TRUE(inOrder(log, {"signal received during start — honoured once running", "signal received",
                            "writer done status=2", "finalize-ok call.m4a pid=" + pid + ".", "exit"}))
      << log;
  EXPECT_EQ(countLines(log, "ready, pid=" + pid), 1u) << log;
  EXPECT_EQ(countLines(log, "signal received"), 1u) << log;
  // A good file: it opens and holds the system track, however short.
  ExeResult probe = runTool(s, "/usr/bin/ffprobe",
                            {"-v", "error", "-show_entries", "stream=codec_name", "-of", "csv=p=0", r.outputPath});
  EXPECT_EQ(probe.status, 0) << probe.err;
  EXPECT_EQ(probe.out, "aac\n") << probe.err;
}

}  // namespace
}  // namespace ac::e2e
