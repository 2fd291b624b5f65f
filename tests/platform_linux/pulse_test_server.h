// A PulseAudio server for the pulse backend tests: the one PULSE_SERVER names
// (the project's test script starts a private one). Each test adds the sinks
// and sources it needs under names of its own, and the fixture removes them
// and restores the server's defaults afterwards. Without a reachable server
// every test skips with a message.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <pulse/simple.h>
#include <unistd.h>

namespace ac::testing {

// Runs a shell command; returns its standard output (trailing newline
// stripped) and sets rc to its exit status.
inline std::string runCommand(const std::string& command, int& rc) {
  std::string out;
  FILE* p = popen((command + " 2>/dev/null").c_str(), "r");
  if (!p) {
    rc = -1;
    return out;
  }
  char buf[512];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
  rc = pclose(p);
  while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
  return out;
}

inline std::string pactl(const std::string& args, int* rcOut = nullptr) {
  int rc = 0;
  std::string out = runCommand("pactl " + args, rc);
  if (rcOut) *rcOut = rc;
  return out;
}

// Polls cond every 10 ms until it holds or `seconds` passed.
inline bool eventually(const std::function<bool()>& cond, double seconds = 3.0) {
  for (int i = 0; i < int(seconds * 100); ++i) {
    if (cond()) return true;
    usleep(10000);
  }
  return cond();
}

// Keeps a low-latency record stream on a source. A null sink renders in
// blocks as long as the lowest latency anyone asks of it, and without a
// request that is two seconds: a test sink with a holder on its monitor
// renders in 5 ms steps, as real hardware would.
class LatencyHolder {
 public:
  // At the source's own rate: a stream at another rate could switch an idle
  // sink to it.
  LatencyHolder(const std::string& source, uint32_t rate) {
    pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, rate, 2};
    pa_buffer_attr attr{uint32_t(-1), uint32_t(-1), uint32_t(-1), uint32_t(-1), uint32_t(pa_usec_to_bytes(5000, &spec))};
    stream_ = pa_simple_new(nullptr, "c1-test", PA_STREAM_RECORD, source.c_str(), "latency holder", &spec, nullptr,
                            &attr, nullptr);
    if (stream_) thread_ = std::thread([this] {
        char buf[1920];
        while (!stop_ && pa_simple_read(stream_, buf, sizeof buf, nullptr) == 0) {
        }
      });
  }
  ~LatencyHolder() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    if (stream_) pa_simple_free(stream_);
  }

 private:
  pa_simple* stream_ = nullptr;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

class PulseServerTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    int rc = 0;
    pactl("info", &rc);
    reachable() = rc == 0;
  }

  void SetUp() override {
    if (!reachable()) GTEST_SKIP() << "no PulseAudio server reachable (start one and set PULSE_SERVER)";
    savedSink_ = pactl("get-default-sink");
    savedSource_ = pactl("get-default-source");
  }

  void TearDown() override {
    if (!reachable()) return;
    holders_.clear();
    for (auto it = modules_.rbegin(); it != modules_.rend(); ++it) pactl("unload-module " + *it);
    if (!savedSink_.empty()) pactl("set-default-sink " + savedSink_);
    if (!savedSource_.empty()) pactl("set-default-source " + savedSource_);
  }

  // A name unique to this process and test.
  std::string uniqueName(const std::string& stem) {
    return "c1_" + stem + "_" + std::to_string(getpid()) + "_" + std::to_string(++counter_);
  }

  // Loads a module; it is unloaded after the test. Returns its index.
  std::string loadModule(const std::string& args) {
    int rc = 0;
    std::string index = pactl("load-module " + args, &rc);
    EXPECT_EQ(rc, 0) << "load-module " << args;
    if (rc == 0) modules_.push_back(index);
    return index;
  }
  void unloadModule(const std::string& index) {
    pactl("unload-module " + index);
    std::erase(modules_, index);
  }

  // A null sink that renders in small steps from the start (see
  // LatencyHolder): the restart after the holder attached drops the
  // two-second block it began with.
  std::string addSink(const std::string& name, const std::string& description, int rate = 48000) {
    std::string index = loadModule("module-null-sink sink_name=" + name + " rate=" + std::to_string(rate) +
                                   " sink_properties=device.description=" + description);
    holders_.push_back(std::make_unique<LatencyHolder>(name + ".monitor", rate));
    pactl("suspend-sink " + name + " 1");
    pactl("suspend-sink " + name + " 0");
    return index;
  }
  // An input source that hears what `sink` plays (a microphone stand-in).
  std::string addMicOn(const std::string& sink, const std::string& name, const std::string& description) {
    return loadModule("module-remap-source master=" + sink + ".monitor source_name=" + name +
                      " source_properties=device.description=" + description);
  }

  static bool& reachable() {
    static bool r = false;
    return r;
  }

 private:
  std::vector<std::string> modules_;
  std::vector<std::unique_ptr<LatencyHolder>> holders_;
  std::string savedSink_, savedSource_;
  int counter_ = 0;
};

// Plays interleaved float32 stereo 48 kHz audio into a sink from a thread
// of its own. The destructor stops it at once, whatever is left unplayed,
// so a test never waits for a drain.
class TonePlayer {
 public:
  TonePlayer(const std::string& sink, std::vector<float> interleavedStereo) {
    pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, 48000, 2};
    pa_buffer_attr attr{uint32_t(-1), uint32_t(pa_usec_to_bytes(20000, &spec)), uint32_t(-1), uint32_t(-1),
                        uint32_t(-1)};
    stream_ = pa_simple_new(nullptr, "c1-test", PA_STREAM_PLAYBACK, sink.c_str(), "tone", &spec, nullptr, &attr,
                            nullptr);
    if (!stream_) return;
    thread_ = std::thread([this, audio = std::move(interleavedStereo)] {
      const size_t step = 480 * 2;  // 10 ms
      for (size_t i = 0; i < audio.size() && !stop_; i += step) {
        size_t n = std::min(step, audio.size() - i);
        if (pa_simple_write(stream_, audio.data() + i, n * sizeof(float), nullptr) < 0) break;
      }
    });
  }
  ~TonePlayer() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    if (stream_) pa_simple_free(stream_);
  }
  bool ok() const { return stream_ != nullptr; }

 private:
  pa_simple* stream_ = nullptr;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

// Silence for leadSeconds, then a sine of `amplitude` for toneSeconds.
inline std::vector<float> leadThenTone(double leadSeconds, double toneSeconds, float amplitude = 0.8f) {
  std::vector<float> v;
  size_t lead = size_t(leadSeconds * 48000), tone = size_t(toneSeconds * 48000);
  v.reserve(2 * (lead + tone));
  for (size_t i = 0; i < lead; ++i) v.insert(v.end(), {0.f, 0.f});
  for (size_t i = 0; i < tone; ++i) {
    float s = amplitude * float(std::sin(2 * M_PI * 1000.0 * double(i) / 48000.0));
    v.insert(v.end(), {s, s});
  }
  return v;
}

}  // namespace ac::testing
