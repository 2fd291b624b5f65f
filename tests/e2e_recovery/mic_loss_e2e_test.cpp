// The microphone's source vanishing mid-recording on the real server:
// following the default, the track moves to the new default source; pinned
// with --mic-uid, the track ends early and system audio goes on, however
// often the microphone fails.
#include <signal.h>

#include "e2e_recovery/recovery_fixture.h"
#include "support/eventually.h"

namespace ac::e2e {
namespace {

constexpr double kSystemHz = 440, kMicHz = 1000, kLostMicHz = 700;

// A microphone that can be taken away: the source "lostmic" hears whatever
// plays into the sink "lostfeed".
class LosableMic {
 public:
  explicit LosableMic(const Scratch& s)
      : feed_(s, {"module-null-sink", "sink_name=lostfeed"}), s_(s) {
    plugIn();
  }
  bool ok() const { return feed_.ok() && source_ && source_->ok(); }
  void plugIn() {
    source_ = std::make_unique<LoadedModule>(
        s_, std::vector<std::string>{"module-remap-source", "master=lostfeed.monitor", "source_name=lostmic",
                                     "source_properties=device.description=Lost-microphone"});
  }
  void unplug() { source_.reset(); }

 private:
  LoadedModule feed_;
  const Scratch& s_;
  std::unique_ptr<LoadedModule> source_;
};

class MicLossE2E : public RecoveryE2E {
 protected:
  void SetUp() override {
    if (auto missing = test::privatePulseServerMissing(s)) GTEST_SKIP() << *missing;
    mic = std::make_unique<LosableMic>(s);
    ASSERT_TRUE(mic->ok());
    keepLive({"speaker", "micfeed", "lostfeed"});
  }
  void TearDown() override { mic.reset(); }

  std::unique_ptr<LosableMic> mic;
};

TEST_F(MicLossE2E, LosingTheDefaultMicrophoneMovesTheTrackToTheNewDefault) {
  ASSERT_TRUE(setDefaultSource(s, "lostmic"));
  auto system = tone("speaker", kSystemHz, 10);
  auto lost = tone("lostfeed", kLostMicHz, 10);
  auto other = tone("micfeed", kMicHz, 10);
  Recording r(s, {});
  ASSERT_TRUE(r.waitReady());
  const auto ready = std::chrono::steady_clock::now();
  sleepSeconds(1.5);
  mic->unplug();
  const double lostAt = secondsSince(ready);
  // Only "mic" is left that is no monitor: the server's new default (on
  // PipeWire a moment later).
  ASSERT_TRUE(test::eventually([&] { return pactl(s, {"get-default-source"}) == "mic\n"; }));
  sleepSeconds(2);
  const double recorded = secondsSince(ready);
  ASSERT_EQ(r.stop(SIGTERM).status, 0);

  const std::string log = r.log();
  EXPECT_TRUE(inOrder(log, {"mic disconnect: mic device disconnected: Lost-microphone — attempting mic input rebuild",
                            "mic rebuild: swapped in Virtual-microphone [mic]", "mic input rebuilt successfully"}))
      << log;
  EXPECT_NE(firstPrefixed(log, "stats: ").find(" micEndedEarly=false "), std::string::npos) << log;
  std::vector<Pcm> tracks = decodeTracks(s, r.outputPath);
  ASSERT_EQ(tracks.size(), 2u);
  const Pcm& micTrack = tracks[1];
  EXPECT_NEAR(micTrack.seconds(), recorded, 0.15) << "the mic track goes on to the end";
  const double before = toneBetween(micTrack, kLostMicHz, 0.2, lostAt - 0.3);
  const double after = toneBetween(micTrack, kMicHz, lostAt + 0.5, micTrack.seconds() - 0.1);
  EXPECT_GT(before, 10 * toneBetween(micTrack, kMicHz, 0.2, lostAt - 0.3)) << "the lost microphone first";
  EXPECT_GT(after, 10 * toneBetween(micTrack, kLostMicHz, lostAt + 0.5, micTrack.seconds() - 0.1))
      << "the new default after";
  EXPECT_GT(after, 0.05);
}

TEST_F(MicLossE2E, PinnedMicrophoneLostTwiceEndsItsTrackEarlyWithOneNotice) {
  auto system = tone("speaker", kSystemHz, 10);
  auto lost = tone("lostfeed", kLostMicHz, 10);
  Recording r(s, {"--mic-uid", "lostmic"});
  ASSERT_TRUE(r.waitReady());
  const auto ready = std::chrono::steady_clock::now();
  sleepSeconds(1.5);
  mic->unplug();
  const double lostAt = secondsSince(ready);
  const std::string endedEarly =
      "mic input rebuild retry also failed — 'me' track ended early (system audio still recording)";
  ASSERT_TRUE(waitForLine(r, endedEarly, 5)) << r.log();
  // The same microphone comes back and fails again: a second failure of
  // the same kind.
  mic->plugIn();
  ASSERT_TRUE(mic->ok());
  sleepSeconds(0.3);
  mic->unplug();
  sleepSeconds(1);
  const double recorded = secondsSince(ready);
  ASSERT_EQ(r.stop(SIGTERM).status, 0);

  const std::string log = r.log();
  const std::string pinned = "mic rebuild: pinned mic lostmic not available — not falling back to a different device";
  EXPECT_TRUE(inOrder(log, {"mic disconnect: mic device disconnected: Lost-microphone — attempting mic input rebuild",
                            pinned, "mic input rebuild attempt 1 failed — retrying in 500ms", pinned, endedEarly}))
      << log;
  EXPECT_EQ(countPrefixed(log, "mic disconnect: "), 1u) << log;
  EXPECT_EQ(countLines(log, endedEarly), 1u) << log;
  EXPECT_NE(firstPrefixed(log, "stats: ").find(" micEndedEarly=true "), std::string::npos) << log;

  std::vector<Pcm> tracks = decodeTracks(s, r.outputPath);
  ASSERT_EQ(tracks.size(), 2u);
  EXPECT_NEAR(tracks[0].seconds(), recorded, 0.15) << "system audio records to the end";
  EXPECT_GT(toneBetween(tracks[0], kSystemHz, tracks[0].seconds() - 1, tracks[0].seconds()), 0.05);
  EXPECT_LT(tracks[1].seconds(), lostAt + 0.5) << "the mic track ends with its microphone";
  EXPECT_GT(toneAmplitude(tracks[1], kLostMicHz), 0.05);
}

}  // namespace
}  // namespace ac::e2e
