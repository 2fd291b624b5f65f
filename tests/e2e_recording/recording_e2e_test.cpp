// Real recordings end to end: the built audio-capture against the private
// sound server of scripts/with-pulse.sh, with sound played into its
// speaker sink (system audio) and its micfeed sink (heard by the virtual
// microphone "mic"), and the file checked by decoding it with ffmpeg.
#include <signal.h>

#include <cmath>
#include <cstdio>
#include <regex>

#include "e2e_recording/e2e_fixture.h"

namespace ac::e2e {
namespace {

constexpr double kSystemHz = 440, kMicHz = 1000;

// `hz` is plainly what the track holds: ten times louder than `otherHz`.
// Judged on the loudest half second of `hz`: a player starved on a loaded
// machine leaves gaps in what the sink played, which the recorder keeps.
void expectDominant(const Pcm& track, double hz, double otherHz) {
  double own = 0, other = 0;
  for (double t = 0; t + 0.5 <= track.seconds(); t += 0.25) {
    if (const double here = toneAmplitude(track, hz, t, t + 0.5); here > own) {
      own = here;
      other = toneAmplitude(track, otherHz, t, t + 0.5);
    }
  }
  EXPECT_GT(own, 0.05) << hz << " Hz is missing";
  EXPECT_GT(own, 10 * other) << hz << " Hz at " << own << " against " << otherHz << " Hz at " << other;
}

class RecordingE2E : public E2E {
 protected:
  void SetUp() override { keepLive({"speaker", "micfeed"}); }
};

TEST_F(RecordingE2E, SystemThenMicTrackLastTheRecordingAndTheLogTellsTheWholeRun) {
  auto system = tone("speaker", kSystemHz, 6);
  auto mic = tone("micfeed", kMicHz, 6);
  Recording r(s, {});
  ASSERT_TRUE(r.waitReady());
  const auto ready = std::chrono::steady_clock::now();
  sleepSeconds(3);
  const double recorded = secondsSince(ready);
  ExeResult result = r.stop(SIGTERM);
  EXPECT_TRUE(result.exited && result.status == 0) << result.status;
  const std::string pid = std::to_string(r.pid());
  EXPECT_EQ(result.out, "pid=" + pid + "\n");

  std::vector<Pcm> tracks = decodeTracks(s, r.outputPath);
  ASSERT_EQ(tracks.size(), 2u);
  expectDominant(tracks[0], kSystemHz, kMicHz);
  expectDominant(tracks[1], kMicHz, kSystemHz);
  // Capture starts a few milliseconds before "ready" is logged and ends a
  // few after the signal. Decoded (the file's edit list skips the encoder's
  // priming), a track may end padded to a whole 1024-frame AAC frame. 50 ms
  // less or 150 ms more means a late time-line anchor, lost audio or a tail
  // cut off.
  for (const Pcm& track : tracks) {
    EXPECT_GE(track.seconds(), recorded - 0.05) << "track at " << track.rate << " Hz";
    EXPECT_LE(track.seconds(), recorded + 0.15) << "track at " << track.rate << " Hz";
  }

  const std::string out = r.outputPath, log = r.log();
  EXPECT_TRUE(inOrder(log, {"starting capture → " + out, "auth: mic=3", "writer started → " + out,
                            "system IOProc started", "mic capture session running", "ready, pid=" + pid,
                            "signal received", "stopping", "finalizing", "writer done status=2",
                            "finalize-ok call.m4a pid=" + pid + ".", "exit"}))
      << log;
  EXPECT_EQ(logLines(log).back(), "exit");
  EXPECT_TRUE(std::regex_search(
      log, std::regex(R"(\] stats: ioproc=[1-9]\d* sysAppended=[1-9]\d* sysFail=0 micAppended=[1-9]\d* micFail=0 )"
                      R"(sysMaxAbs=0\.[1-9]\d* micMaxAbs=0\.[1-9]\d* micEndedEarly=false sysDataFail=0 sysFmtRate=\d+\.0 )"
                      R"(sysFmtCh=2 sysFmtChanges=0 sysAacRate=\d+\.0 sysAacClamped=false sysTapBuf=0/1 )"
                      R"(micFmtRate=48000\.0 micFmtCh=1 micFmtChanges=0\n)")))
      << log;
}

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
  EXPECT_GE(lag->matched, system.size() * 9 / 10);
  std::printf("microphone track lags the system track by %.3f ms over %zu clicks\n", lag->seconds * 1000,
              lag->matched);
  EXPECT_LT(std::fabs(lag->seconds), 0.010);
}

}  // namespace
}  // namespace ac::e2e
