// The common ground of the end-to-end tests: the private sound server of
// scripts/with-pulse.sh (skipped without it), silence kept playing into the
// sinks the test names, and the server's defaults put back afterwards.
#pragma once

#include <gtest/gtest.h>

#include "e2e_recording/e2e_harness.h"
#include "support/eventually.h"

namespace ac::e2e {

constexpr int kToneRate = 48000;

// The track holds plainly `fromHz` (ten times louder than `toHz`) until
// `atSeconds`, then plainly `toHz`; the margins cover the switch and the
// test's own scheduling.
inline void expectSwitch(const Pcm& track, double fromHz, double toHz, double atSeconds) {
  const double end = track.seconds() - 0.1, before = toneAmplitude(track, fromHz, 0.2, atSeconds - 0.3),
               after = toneAmplitude(track, toHz, atSeconds + 0.5, end);
  EXPECT_GT(before, 10 * toneAmplitude(track, toHz, 0.2, atSeconds - 0.3)) << fromHz << " Hz before the switch";
  EXPECT_GT(after, 10 * toneAmplitude(track, fromHz, atSeconds + 0.5, end)) << toHz << " Hz after the switch";
  EXPECT_GT(after, 0.05);
}

// `hz` is plainly what the track holds: ten times louder than `otherHz`.
// Judged on the loudest half second of `hz`: a player starved on a loaded
// machine leaves gaps in what the sink played, which the recorder keeps.
inline void expectDominant(const Pcm& track, double hz, double otherHz) {
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

class E2E : public ::testing::Test {
 protected:
  void keepLive(const std::vector<std::string>& sinks) {
    if (auto missing = test::privatePulseServerMissing(s)) GTEST_SKIP() << *missing;
    live = std::make_unique<LiveSinks>(s, sinks);
    ASSERT_TRUE(live->ok()) << "the silence streams did not start";
  }
  // A tone on `sink` for `seconds`, from about now: it returns once the
  // player's stream is on the server (a loaded machine can take a second to
  // start a player).
  // The server's own defaults back, whatever the test moved them to.
  void TearDown() override {
    if (!live) return;
    setDefault("sink", "speaker");
    setDefault("source", "mic");
  }
  // Sets the server's default "sink" or "source" and waits until the server
  // reports it: PipeWire takes a new default a moment after pactl returns.
  bool setDefault(const std::string& kind, const std::string& name) {
    pactl(s, {"set-default-" + kind, name});
    return test::eventually([&] { return pactl(s, {"get-default-" + kind}).out == name + "\n"; });
  }
  std::unique_ptr<RunningExe> tone(const std::string& sink, double hz, double seconds, float amplitude = 0.5f) {
    const size_t before = sinkInputs(s);
    auto player = play(s, sink, sineWave(kToneRate, hz, seconds, amplitude), sink + "-" + std::to_string(int(hz)) + ".f32");
    for (int i = 0; i < 100 && sinkInputs(s) <= before; ++i) sleepSeconds(0.02);
    return player;
  }

  Scratch s;
  std::unique_ptr<LiveSinks> live;
};

}  // namespace ac::e2e
