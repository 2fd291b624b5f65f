// The common ground of the recovery tests: the private PulseAudio server of
// scripts/with-pulse.sh (skipped without it), silence kept playing into the
// sinks the test names, and the server's defaults put back afterwards.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "e2e_recording/e2e_harness.h"
#include "e2e_recovery/log_lines.h"
#include "e2e_recovery/sound_server.h"
#include "e2e_recovery/track_windows.h"

namespace ac::e2e {

constexpr int kToneRate = 48000;

inline void sleepSeconds(double s) { std::this_thread::sleep_for(std::chrono::duration<double>(s)); }

inline double secondsSince(std::chrono::steady_clock::time_point t) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count();
}

class RecoveryE2E : public ::testing::Test {
 protected:
  void keepLive(const std::vector<std::string>& sinks) {
    if (auto missing = test::privatePulseServerMissing(s)) GTEST_SKIP() << *missing;
    restored = std::make_unique<DefaultsRestored>(s);
    live = std::make_unique<LiveSinks>(s, sinks);
    ASSERT_TRUE(live->ok()) << "the silence streams did not start";
  }
  // A tone on `sink` for `seconds`, from about now: it returns once the
  // player's stream is on the server (a loaded machine can take a second to
  // start a player).
  std::unique_ptr<RunningExe> tone(const std::string& sink, double hz, double seconds) {
    auto streams = [&] { return std::ranges::count(pactl(s, {"list", "short", "sink-inputs"}), '\n'); };
    const auto before = streams();
    auto player = play(s, sink, sineWave(kToneRate, hz, seconds, 0.5f), sink + "-" + std::to_string(int(hz)) + ".wav");
    for (int i = 0; i < 100 && streams() <= before; ++i) sleepSeconds(0.02);
    return player;
  }

  Scratch s;
  std::unique_ptr<DefaultsRestored> restored;
  std::unique_ptr<LiveSinks> live;
};

}  // namespace ac::e2e
