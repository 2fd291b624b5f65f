// The sound server killed and started again mid-call (the PulseAudio daemon,
// or PipeWire with its pulse server): the recorder rides the outage out, and
// both sources are heard again in the same file soon after the server is back.
#include <signal.h>

#include <cstdio>

#include "e2e_recording/e2e_fixture.h"

namespace ac::e2e {
namespace {

constexpr double kSystemHz = 440, kMicHz = 1000;

// When `hz` first plays in `track` after `fromSeconds`, in 50 ms steps; -1
// when it never does.
double toneResumes(const Pcm& track, double hz, double fromSeconds) {
  for (double t = fromSeconds; t + 0.1 < track.seconds(); t += 0.05)
    if (toneAmplitude(track, hz, t, t + 0.1) > 0.05) return t;
  return -1;
}

TEST_F(E2E, ServerRestartedMidCallIsRiddenOutInOneFile) {
  keepLive({"speaker", "micfeed"});
  if (auto why = privateServerUncontrolled()) GTEST_SKIP() << *why;
  auto system = tone("speaker", kSystemHz, 3), mic = tone("micfeed", kMicHz, 3);
  Recording r(s, {});
  ASSERT_TRUE(r.waitReady());
  const auto ready = std::chrono::steady_clock::now();
  sleepSeconds(1.5);
  ASSERT_TRUE(restartServer(s, false));
  sleepSeconds(1);
  ASSERT_TRUE(restartServer(s, true));
  const double backAt = secondsSince(ready);
  // Everything that played died with the old server.
  live = std::make_unique<LiveSinks>(s, std::vector<std::string>{"speaker", "micfeed"});
  system = tone("speaker", kSystemHz, 5);
  mic = tone("micfeed", kMicHz, 5);
  sleepSeconds(3.5);
  EXPECT_EQ(r.stop(SIGTERM).status, 0);

  const std::string log = r.log();
  EXPECT_EQ(countLines(log, "pulse: sound server connection lost — reconnecting"), 1u) << log;
  EXPECT_EQ(countPrefixed(log, "pulse: sound server back after "), 1u) << log;
  std::vector<Pcm> tracks = decodeTracks(s, r.outputPath);
  ASSERT_EQ(tracks.size(), 2u);
  for (auto [track, hz] : {std::pair{&tracks[0], kSystemHz}, std::pair{&tracks[1], kMicHz}}) {
    SCOPED_TRACE(hz);
    EXPECT_GT(toneAmplitude(*track, hz, 0.2, 1.3), 0.05) << "before the restart";
    // The outage stays in the time line, as silence.
    EXPECT_LT(toneAmplitude(*track, hz, 1.7, backAt - 0.3), 0.01) << "during the outage";
    const double resumed = toneResumes(*track, hz, backAt);
    std::printf("%.0f Hz plays again %.2f s after the server's return\n", hz, resumed - backAt);
    EXPECT_GE(resumed, 0);
    EXPECT_LT(resumed - backAt, 2.0);
  }
}

}  // namespace
}  // namespace ac::e2e
