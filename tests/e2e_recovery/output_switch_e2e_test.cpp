// A new default output mid-recording: capture follows it to the new sink and
// the file stays one recording, on the real server.
#include <signal.h>

#include "e2e_recording/e2e_fixture.h"

namespace ac::e2e {
namespace {

constexpr double kSpeakerHz = 440, kHeadsetHz = 1000;
// Longer than a period of either tone, so a window of sound holds a peak.
constexpr double kSilenceWindowSeconds = 0.005;

class OutputSwitchE2E : public E2E {
 protected:
  void SetUp() override { keepLive({"speaker", "headset"}); }
};

TEST_F(OutputSwitchE2E, SwitchingTheDefaultSinkMovesCaptureAndKeepsOneRecording) {
  // Each sink plays its own tone throughout: the track holds whichever sink
  // is captured.
  PinnedTone speaker(s, "speaker", sineWave(kToneRate, kSpeakerHz, 10, 0.5f));
  ASSERT_TRUE(speaker.ok());
  auto headset = tone("headset", kHeadsetHz, 10);
  Recording r(s, {"--no-mic"});
  ASSERT_TRUE(r.waitReady());
  const auto ready = std::chrono::steady_clock::now();
  sleepSeconds(1.5);
  ASSERT_TRUE(pactl(s, {"set-default-sink", "headset"}).status == 0);
  const double switchedAt = secondsSince(ready);
  sleepSeconds(2);
  const double recorded = secondsSince(ready);
  EXPECT_EQ(r.stop(SIGTERM).status, 0);

  const std::string log = r.log();
  EXPECT_TRUE(inOrder(log, {"default output changed to headset — rebuilding aggregate",
                            "aggregate rebuilt successfully (output=headset)", "finalize-ok call.m4a pid=" +
                                                                                   std::to_string(r.pid()) + "."}))
      << log;
  EXPECT_EQ(countPrefixed(log, "default output changed to "), 1u) << log;

  std::vector<Pcm> tracks = decodeTracks(s, r.outputPath);
  ASSERT_EQ(tracks.size(), 1u);
  const Pcm& system = tracks[0];
  // One recording: as long as the run, however the capture moved.
  EXPECT_NEAR(system.seconds(), recorded, 0.15);
  expectSwitch(system, kSpeakerHz, kHeadsetHz, switchedAt);
  const Silence gap = longestSilentRun(system, 0.1, system.seconds() - 0.1, kSilenceWindowSeconds, 0.05f);
  std::printf("longest silence in the system track: %.1f ms at %.3f s (switch at %.3f s)\n", gap.seconds * 1000,
              gap.startSeconds, switchedAt);
  EXPECT_LT(gap.seconds, 0.25);
}

}  // namespace
}  // namespace ac::e2e
