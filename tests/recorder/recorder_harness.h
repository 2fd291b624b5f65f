// Shared scaffolding for recorder tests: a platform made of simulated
// backends, a capture of the log lines, the notices posted, and helpers that
// drive a Recorder through its life.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "recorder/recorder.h"
#include "simulated/sim_platform.h"
#include "support/dispatch.h"
#include "tests/support/eventually.h"
#include "tests/support/log_capture.h"
#include "tests/support/scratch_dir.h"

namespace ac::test {

using sim::SimPlatform;

struct Notice {
  std::string title, body, sound;
  bool operator==(const Notice&) const = default;
};

// A built-in microphone as the default input and a speaker as the default
// output (48 kHz stereo tap).
inline void addDevices(SimPlatform& p) {
  p.micSim.addDevice("builtin", "Built-in Mic");
  p.micSim.defaultUID.set("builtin");
  p.hw.setDefaultOutput(p.hw.addDevice({"speaker", std::string("Speaker"), 0, 1, {}}));
}

class RecorderTest : public ::testing::Test {
 protected:
  RecorderTest() { addDevices(p); }
  ~RecorderTest() override { rec.reset(); }

  Recorder& make(bool system, bool mic, std::optional<std::string> micUID = std::nullopt) {
    rec = std::make_unique<Recorder>(p, path, system, mic, std::move(micUID),
                                     [this](const std::string& t, const std::string& b, const std::string& s) {
                                       notices.push_back(Notice{t, b, s});
                                     });
    return *rec;
  }
  Recorder& started(bool system, bool mic, std::optional<std::string> micUID = std::nullopt) {
    Recorder& r = make(system, mic, std::move(micUID));
    r.setup();
    r.start();
    return r;
  }
  // Stops and waits for the completion; the number of completion calls.
  int stopAndWait() {
    std::atomic<int> calls{0};
    Semaphore done;
    rec->stop([&] {
      ++calls;
      done.signal();
    });
    EXPECT_TRUE(done.wait(5));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // a second call would land by now
    return calls;
  }
  std::shared_ptr<sim::SimWriterRecord> writer() { return p.writerSim.lastWriter(); }
  std::shared_ptr<sim::SimWriterInput> track(size_t i) { return writer()->inputs.get().at(i); }
  // Feeds one mic buffer through the capture output and waits for its handling.
  void mic(int64_t ptsNanos, float value = 0.25f,
           const platform::AudioFormatDescription& format = sim::micFloatFormat()) {
    ASSERT_TRUE(p.micSim.lastOutput.get()->deliver(sim::micSampleBuffer(ptsNanos, 480, value, format)));
  }

  // Runs one IOProc period of stereo float system audio stamped `hostNanos`.
  void sys(uint64_t hostNanos, float value = 0.5f) {
    std::vector<float> samples(2 * 480, value);
    platform::AudioBufferList list{1, {{2, uint32_t(samples.size() * sizeof(float)), samples.data()}}};
    p.hw.latestIOProc()->deliver(list, hostNanos);
  }
  // Waits until the track has seen `n` append attempts.
  void waitAttempts(size_t trackIndex, int n) {
    ASSERT_TRUE(eventually([&] { return track(trackIndex)->appendAttempts() >= n; })) << "track " << trackIndex;
  }
  std::string pidSuffix() const { return " pid=" + std::to_string(::getpid()) + "."; }

  ScratchDir scratch;
  SimPlatform p;
  LogCapture logs;
  std::string path = scratch.path("call.m4a");
  std::unique_ptr<Recorder> rec;
  sim::Locked<std::vector<Notice>> notices;  // every notice posted, in order
};

}  // namespace ac::test
