// Real recordings end to end: the built audio-capture against the private
// PulseAudio server of scripts/with-pulse.sh, with sound played into its
// speaker sink (system audio) and its micfeed sink (heard by the virtual
// microphone "mic"), and the file checked by decoding it with ffmpeg.
#include <signal.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <regex>
#include <thread>

#include <gtest/gtest.h>

#include "e2e_recording/e2e_harness.h"
#include "e2e_recovery/log_lines.h"
#include "e2e_recovery/track_windows.h"

namespace ac::e2e {
namespace {

constexpr int kRate = 48000;
constexpr double kSystemHz = 440, kMicHz = 1000, kSecondMicHz = 700;

void sleepSeconds(double s) { std::this_thread::sleep_for(std::chrono::duration<double>(s)); }

double secondsSince(std::chrono::steady_clock::time_point t) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count();
}

// `hz` is plainly what the track holds: ten times louder than `otherHz`.
// Judged on the loudest half second of `hz`: a player starved on a loaded
// machine leaves gaps in what the sink played, which the recorder keeps.
void expectDominant(const Pcm& track, double hz, double otherHz) {
  double own = 0, other = 0;
  for (double t = 0; t + 0.5 <= track.seconds(); t += 0.25) {
    if (const double here = toneBetween(track, hz, t, t + 0.5); here > own) {
      own = here;
      other = toneBetween(track, otherHz, t, t + 0.5);
    }
  }
  EXPECT_GT(own, 0.05) << hz << " Hz is missing";
  EXPECT_GT(own, 10 * other) << hz << " Hz at " << own << " against " << otherHz << " Hz at " << other;
}

class RecordingE2E : public ::testing::Test {
 protected:
  void SetUp() override {
    if (auto missing = test::privatePulseServerMissing(s)) GTEST_SKIP() << *missing;
    live = std::make_unique<LiveSinks>(s, std::vector<std::string>{"speaker", "micfeed"});
    ASSERT_TRUE(live->ok()) << "the silence streams did not start";
  }

  Scratch s;
  std::unique_ptr<LiveSinks> live;
};

TEST_F(RecordingE2E, SystemThenMicTrackLastTheRecordingAndTheLogTellsTheWholeRun) {
  auto system = play(s, "speaker", sineWave(kRate, kSystemHz, 6, 0.5f), "system.wav");
  auto mic = play(s, "micfeed", sineWave(kRate, kMicHz, 6, 0.5f), "mic.wav");
  Recording r(s, {});
  ASSERT_TRUE(r.waitReady());
  const auto ready = std::chrono::steady_clock::now();
  sleepSeconds(3);
  const double recorded = secondsSince(ready);
  ExeResult result = r.stop(SIGTERM);
  ASSERT_TRUE(result.exited);
  EXPECT_EQ(result.status, 0);
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

  const std::string out = r.outputPath;
  const std::vector<std::string> expected = {
      "starting capture → " + out, "auth: mic=3",    "writer started → " + out,
      "system IOProc started",     "mic capture session running",
      "ready, pid=" + pid,         "signal received", "stopping",
      "stats: ",                   "finalizing",      "writer done status=2",
      "finalize-ok call.m4a pid=" + pid + ".",        "exit"};
  const std::vector<std::string> lines = logLines(r.log());
  size_t at = 0;
  for (const std::string& want : expected) {
    const bool prefix = want.back() == ' ';
    while (at < lines.size() && !(prefix ? lines[at].rfind(want, 0) == 0 : lines[at] == want)) ++at;
    ASSERT_LT(at, lines.size()) << "no \"" << want << "\" in order in:\n" << r.log();
    if (prefix) {
      static const std::regex stats(
          R"(stats: ioproc=[1-9]\d* sysAppended=[1-9]\d* sysFail=0 micAppended=[1-9]\d* micFail=0 )"
          R"(sysMaxAbs=0\.[1-9]\d* micMaxAbs=0\.[1-9]\d* micEndedEarly=false sysDataFail=0 sysFmtRate=\d+\.0 )"
          R"(sysFmtCh=2 sysFmtChanges=0 sysAacRate=\d+\.0 sysAacClamped=false sysTapBuf=0/1 )"
          R"(micFmtRate=48000\.0 micFmtCh=1 micFmtChanges=0)");
      EXPECT_TRUE(std::regex_match(lines[at], stats)) << lines[at];
    }
  }
  EXPECT_EQ(at, lines.size() - 1) << "\"exit\" is not the last line";
}

struct OneSourceCase {
  const char* flag;
  double hz, otherHz;
};

TEST_F(RecordingE2E, OneSourceGivesOneTrackOfThatSource) {
  for (const OneSourceCase& c : {OneSourceCase{"--no-mic", kSystemHz, kMicHz},
                                 OneSourceCase{"--no-system", kMicHz, kSystemHz}}) {
    SCOPED_TRACE(c.flag);
    std::remove(s.path("call.m4a").c_str());  // an existing output is refused
    auto system = play(s, "speaker", sineWave(kRate, kSystemHz, 3, 0.5f), "system.wav");
    auto mic = play(s, "micfeed", sineWave(kRate, kMicHz, 3, 0.5f), "mic.wav");
    Recording r(s, {c.flag});
    ASSERT_TRUE(r.waitReady());
    sleepSeconds(1.5);
    ASSERT_EQ(r.stop(SIGTERM).status, 0);
    std::vector<Pcm> tracks = decodeTracks(s, r.outputPath);
    ASSERT_EQ(tracks.size(), 1u);
    expectDominant(tracks[0], c.hz, c.otherHz);
  }
}

TEST_F(RecordingE2E, MicUidPicksTheNamedSourceOverTheDefault) {
  LoadedModule feed(s, {"module-null-sink", "sink_name=mic2feed"});
  LoadedModule source(s, {"module-remap-source", "master=mic2feed.monitor", "source_name=mic2",
                          "source_properties=device.description=Second-microphone"});
  ASSERT_TRUE(feed.ok() && source.ok());
  LiveSinks liveFeed(s, {"mic2feed"});
  auto second = play(s, "mic2feed", sineWave(kRate, kSecondMicHz, 3, 0.5f), "second.wav");
  auto first = play(s, "micfeed", sineWave(kRate, kMicHz, 3, 0.5f), "first.wav");
  Recording r(s, {"--no-system", "--mic-uid", "mic2"});
  ASSERT_TRUE(r.waitReady());
  sleepSeconds(1.5);
  ASSERT_EQ(r.stop(SIGTERM).status, 0);
  EXPECT_NE(r.log().find("] mic device: Second-microphone (mic2)\n"), std::string::npos) << r.log();
  std::vector<Pcm> tracks = decodeTracks(s, r.outputPath);
  ASSERT_EQ(tracks.size(), 1u);
  expectDominant(tracks[0], kSecondMicHz, kMicHz);
}

TEST_F(RecordingE2E, LevelFileShowsTheMicrophoneWhileATonePlays) {
  auto mic = play(s, "micfeed", sineWave(kRate, kMicHz, 3, 0.9f), "mic.wav");
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
}

TEST_F(RecordingE2E, KilledAfterTwelveSecondsLeavesTenSecondsOfBothTracks) {
  Recording r(s, {});
  ASSERT_TRUE(r.waitReady());
  sleepSeconds(12);
  ExeResult result = r.stop(SIGKILL);
  EXPECT_FALSE(result.exited);
  std::vector<Pcm> tracks = decodeTracks(s, r.outputPath);
  ASSERT_EQ(tracks.size(), 2u);
  for (const Pcm& track : tracks) EXPECT_GE(track.seconds(), 10.0) << "track at " << track.rate << " Hz";
}

TEST_F(RecordingE2E, TracksOfTheSameSoundAgreeWithinTenMilliseconds) {
  // The microphone hears exactly what the speaker sink plays. The copy hands
  // each block on one sink block after the monitor and does not report it;
  // with the silence streams' short blocks that is about 2.5 ms of the lag.
  LoadedModule copy(s, {"module-remap-source", "master=speaker.monitor", "source_name=speakercopy"});
  ASSERT_TRUE(copy.ok());
  Recording r(s, {"--mic-uid", "speakercopy"});
  ASSERT_TRUE(r.waitReady());
  play(s, "speaker", clickTrain(kRate, 3.5, 7), "clicks.wav")->finish(10);
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
  RecordProperty("mic_lag_ms", std::to_string(lag->seconds * 1000));
  EXPECT_LT(std::fabs(lag->seconds), 0.010);
}

TEST_F(RecordingE2E, SecondRecorderOnTheSameLockExits75) {
  Recording first(s, {"--no-mic", "--lockfile", s.path("lock")});
  ASSERT_TRUE(first.waitReady());
  Scratch other;
  Recording second(other, {"--no-mic", "--lockfile", s.path("lock")});
  ExeResult refused = second.wait(10);
  EXPECT_TRUE(refused.exited);
  EXPECT_EQ(refused.status, 75);
  EXPECT_NE(second.log().find("] capture-lock: another capture is already active — exiting without recording\n"),
            std::string::npos);
  EXPECT_FALSE(other.exists("call.m4a"));
  EXPECT_EQ(first.stop(SIGTERM).status, 0);
}

}  // namespace
}  // namespace ac::e2e
