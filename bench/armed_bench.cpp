// armed_bench [launches]
//
// How fast an armed recorder answers, against the private PulseAudio server
// of scripts/with-pulse.sh (bench/armed_bench.sh runs it there):
// - go → "ready, pid=" on the status pipe, and go → the file's first sample
//   (found through clicks played into the captured sink at known times);
// - a cold launch of the same recording to its "pid=" line, in the same run;
// - the silence in the system track when the default sink switches
//   mid-recording, each sink playing a tone of its own.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "bench/timed_clicks.h"
#include "e2e_recording/e2e_harness.h"
#include "e2e_recovery/armed_owner.h"
#include "support/dispatch.h"
#include "support/spawn.h"

using namespace ac;
using namespace ac::e2e;

namespace {

// go -> ready, by server: answered from what the recorder already holds.
constexpr double kGoalReadyMsPulseAudio = 1.5, kGoalReadyMsPipeWire = 3;
constexpr double kGoalColdRatio = 20, kGoalGapMs = 100;
constexpr int kSwitchRuns = 5;
constexpr double kToneHz = 1000;

struct Spread {
  double median = 0, min = 0, max = 0;
};
Spread spread(std::vector<double> v) {
  if (v.empty()) return {};
  std::sort(v.begin(), v.end());
  return {v[v.size() / 2], v.front(), v.back()};
}
void print(const char* what, const std::vector<double>& ms) {
  const Spread s = spread(ms);
  std::printf("  %-34s %8.2f ms median, %8.2f min, %8.2f max (%zu runs)\n", what, s.median, s.min, s.max, ms.size());
}

std::vector<std::string> recordingArgs(const Scratch& s) { return {"--output", s.path("cold.m4a")}; }

// Launch to the "pid=" line on standard output, in ms; the recording is
// stopped at once.
std::optional<double> coldLaunch(const Scratch& s) {
  int out[2];
  if (::pipe2(out, O_CLOEXEC) != 0) return std::nullopt;
  const double t0 = monotonicSeconds();
  SpawnResult spawned =
      spawnProcess({AC_EXE, recordingArgs(s), environmentWith("HOME", s.path("home")), -1, out[1], -1});
  ::close(out[1]);
  std::string text;
  std::optional<double> ms;
  while (spawned.child && !ms) {
    struct pollfd p {out[0], POLLIN, 0};
    if (::poll(&p, 1, 10000) <= 0) break;
    char chunk[64];
    const ssize_t n = ::read(out[0], chunk, sizeof chunk);
    if (n <= 0) break;
    text.append(chunk, size_t(n));
    if (text.find('\n') != std::string::npos && text.rfind("pid=", 0) == 0) ms = (monotonicSeconds() - t0) * 1000;
  }
  ::close(out[0]);
  if (spawned.child) spawned.child->terminate(10);
  ::unlink(s.path("cold.m4a").c_str());  // the recorder never overwrites a file
  return ms;
}

// A launch that did not answer as it should: why, and the end of its log.
std::nullopt_t failed(Recording& r, const char* what) {
  r.stop(SIGTERM);
  ::unlink(r.outputPath.c_str());
  const std::string log = r.log();
  std::fprintf(stderr, "armed_bench: launch failed: %s; its log ends:\n%s\n", what,
               log.substr(log.size() > 2000 ? log.size() - 2000 : 0).c_str());
  return std::nullopt;
}

struct ArmedRun {
  double readyMs = 0;
  std::optional<double> firstSampleMs;
};

std::optional<ArmedRun> armedLaunch(const Scratch& s, bench::TimedClicks& clicks, uint32_t seed) {
  ArmedOwner owner(s);
  Recording r(s, owner.armedArgs());
  if (owner.nextLine() != "armed, pid=" + std::to_string(r.pid())) return failed(r, "no \"armed\" line");
  sleepSeconds(0.3);  // armed and idle, as it waits for the user
  clicks.start(seed);
  sleepSeconds(0.1);  // the clicks play before go: the capture cuts into them
  const double go = monotonicSeconds();
  owner.send("go\n");
  const std::optional<std::string> ready = owner.nextLine();
  const double readyAt = monotonicSeconds();
  if (ready != "ready, pid=" + std::to_string(r.pid())) return failed(r, "no \"ready\" line");
  sleepSeconds(0.8);
  owner.closeGo();
  r.wait(20);
  clicks.stop();
  ArmedRun run{(readyAt - go) * 1000, std::nullopt};
  std::vector<Pcm> tracks = decodeTracks(s, r.outputPath);
  ::unlink(r.outputPath.c_str());
  if (tracks.empty()) return run;
  // The file's edit list skips the encoder priming: decoded time is time
  // since the first captured sample.
  std::vector<double> found = clickTimes(tracks[0]);
  if (auto origin = bench::trackOrigin(found, clicks.playedAt(), 0.003, 5))
    run.firstSampleMs = (origin->monotonicSeconds - go) * 1000;
  return run;
}

// The longest silence around a switch of the default sink, in ms.
std::optional<double> switchGap(const Scratch& s) {
  PinnedTone speaker(s, "speaker", sineWave(48000, kToneHz, 6, 0.5f));
  auto headset = play(s, "headset", sineWave(48000, kToneHz, 6, 0.5f), "headset.f32");
  if (!speaker.ok()) return std::nullopt;
  sleepSeconds(0.5);  // the loopback settles
  Recording r(s, {"--no-mic"});
  if (!r.waitReady()) return std::nullopt;
  const double ready = monotonicSeconds();
  sleepSeconds(1);
  const double switchedAt = monotonicSeconds() - ready;
  pactl(s, {"set-default-sink", "headset"});
  sleepSeconds(1.2);
  r.stop(SIGTERM);
  pactl(s, {"set-default-sink", "speaker"});
  std::vector<Pcm> tracks = decodeTracks(s, r.outputPath);
  ::unlink(r.outputPath.c_str());
  if (tracks.empty()) return std::nullopt;
  // Sample by sample: a 1 kHz tone at half scale stays under the floor for
  // some 30 microseconds around each zero crossing only.
  const Silence gap = longestSilentRun(tracks[0], switchedAt - 0.5, switchedAt + 0.8, 1.0 / tracks[0].rate, 0.05f);
  return gap.seconds * 1000;
}

}  // namespace

int main(int argc, char** argv) {
  const int launches = argc > 1 ? std::max(1, std::atoi(argv[1])) : 10;
  Scratch s;
  if (auto missing = test::privatePulseServerMissing(s)) {
    std::fprintf(stderr, "armed_bench: %s\n", missing->c_str());
    return 2;
  }
  LiveSinks live(s, {"micfeed", "headset"});
  std::vector<double> ready, firstSample, cold;
  {
    bench::TimedClicks clicks("speaker");
    if (!live.ok() || !clicks.ok()) {
      std::fprintf(stderr, "armed_bench: cannot play into the server's sinks\n");
      return 2;
    }
    // A PulseAudio sink may be inside a long idle block: start a short one.
    if (!onPipeWire(s)) {
      pactl(s, {"suspend-sink", "speaker", "1"});
      pactl(s, {"suspend-sink", "speaker", "0"});
    }
    for (int i = 0; i < launches; ++i) {
      if (auto run = armedLaunch(s, clicks, uint32_t(i + 1))) {
        ready.push_back(run->readyMs);
        if (run->firstSampleMs) firstSample.push_back(*run->firstSampleMs);
      }
      if (auto ms = coldLaunch(s)) cold.push_back(*ms);
    }
  }
  std::vector<double> gaps;
  for (int i = 0; i < kSwitchRuns; ++i)
    if (auto ms = switchGap(s)) gaps.push_back(*ms);

  std::printf("armed launch (microphone and system audio), %d launches:\n", launches);
  print("go -> \"ready, pid=\"", ready);
  print("go -> first sample in the file", firstSample);
  print("cold launch -> \"pid=\"", cold);
  const double goalReadyMs = onPipeWire(s) ? kGoalReadyMsPipeWire : kGoalReadyMsPulseAudio;
  const double ratio = spread(cold).median / std::max(1e-9, spread(ready).median);
  std::printf("  cold launch / go->ready: %.0fx (goal: go->ready at most %.1f ms: %s; at least %.0fx: %s)\n", ratio,
              goalReadyMs, spread(ready).median <= goalReadyMs ? "met" : "MISSED", kGoalColdRatio,
              ratio >= kGoalColdRatio ? "met" : "MISSED");
  std::printf("default-sink switch mid-recording:\n");
  print("silence in the system track", gaps);
  std::printf("  (goal: under %.0f ms: %s)\n", kGoalGapMs,
              !gaps.empty() && spread(gaps).max < kGoalGapMs ? "met" : "MISSED");
  return ready.size() == size_t(launches) && gaps.size() == size_t(kSwitchRuns) ? 0 : 1;
}
