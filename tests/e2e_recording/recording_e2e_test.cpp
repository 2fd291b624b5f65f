// Real recordings end to end: the built audio-capture against the private
// sound server of scripts/with-pulse.sh, with sound played into its
// speaker sink (system audio) and its micfeed sink (heard by the virtual
// microphone "mic"), and the file checked by decoding it with ffmpeg.
#include <signal.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <regex>

#include "e2e_recording/e2e_fixture.h"

namespace ac::e2e {
namespace {

constexpr double kSystemHz = 440, kMicHz = 1000;

class RecordingE2E : public E2E {
 protected:
  void SetUp() override { keepLive({"speaker", "micfeed"}); }
};

// The system-only recording is every --no-mic test of the recovery suites.
TEST_F(RecordingE2E, MicrophoneOnlyGivesOneTrackOfItAndPublishesItsLevel) {
  auto system = tone("speaker", kSystemHz, 3);
  auto mic = tone("micfeed", kMicHz, 3, 0.9f);
  Recording r(s, {"--no-system", "--level-file", s.path("level")});
  ASSERT_TRUE(r.waitReady());
  sleepSeconds(1);
  const std::string record = s.read("level");
  ASSERT_EQ(r.stop(SIGTERM).status, 0);
  std::smatch m;
  ASSERT_TRUE(std::regex_match(record, m, std::regex(R"(vela-level ([01]\.\d{6}) +\n)"))) << "\"" << record << "\"";
  EXPECT_EQ(record.size(), 32u);
  // The stereo microphone hears the tone on both channels; mixed down to
  // mono it keeps its level (a sum would clip it).
  EXPECT_NEAR(std::stod(m[1]), 0.9, 0.03) << record;
  std::vector<Pcm> tracks = decodeTracks(s, r.outputPath);
  ASSERT_EQ(tracks.size(), 1u);
  expectDominant(tracks[0], kMicHz, kSystemHz);
}

TEST_F(RecordingE2E, TracksOfTheSameSoundAgreeWithinTenMilliseconds) {
  // The microphone hears exactly what the speaker sink plays. The copy hands
  // each block on one sink block after the monitor and does not report it;
  // with the silence streams' short blocks that is about 2.5 ms of the lag.
  LoadedModule copy(s, {"module-remap-source", "master=speaker.monitor", "source_name=speakercopy"});
  ASSERT_TRUE(copy.ok());
  Recording r(s, {"--mic-uid", "speakercopy"});
  ASSERT_TRUE(r.waitReady());
  play(s, "speaker", clickTrain(kToneRate, 3.5, 7), "clicks.f32")->finish(10);
  sleepSeconds(0.3);
  ASSERT_EQ(r.stop(SIGTERM).status, 0);
  std::vector<Pcm> tracks = decodeTracks(s, r.outputPath);
  ASSERT_EQ(tracks.size(), 2u);
  const std::vector<double> system = clickTimes(tracks[0]), mic = clickTimes(tracks[1]);
  ASSERT_GE(system.size(), 8u);
  std::optional<Lag> lag = medianLag(system, mic, 0.05);
  ASSERT_TRUE(lag);
  std::printf("microphone track lags the system track by %.3f ms over %zu clicks\n", lag->seconds * 1000,
              lag->matched);
  // On PipeWire the copy is a filter node whose own delay goes unreported
  // and moves by up to one graph cycle (1024 frames) when the graph re-plans
  // around the recorder's streams: a click's copy may sit that much further.
  const double tolerance = 0.010 + (onPipeWire(s) ? 1024.0 / kToneRate : 0);
  size_t agreeing = 0;
  for (double t : system)
    agreeing += std::any_of(mic.begin(), mic.end(), [&](double m) { return std::fabs(m - t) < tolerance; });
  EXPECT_GE(agreeing, system.size() * 9 / 10) << "clicks whose copy lies within " << tolerance * 1000 << " ms";
}

}  // namespace
}  // namespace ac::e2e
