// A PulseAudio server for the pulse backend tests: the one PULSE_SERVER names
// (the project's test script starts a private one). Each test adds the sinks
// and sources it needs under names of its own, and the fixture removes them
// and restores the server's defaults afterwards. Without a reachable server
// every test skips with a message.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

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

  std::string addSink(const std::string& name, const std::string& description, int rate = 48000) {
    return loadModule("module-null-sink sink_name=" + name + " rate=" + std::to_string(rate) +
                      " sink_properties=device.description=" + description);
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
  std::string savedSink_, savedSource_;
  int counter_ = 0;
};

// Plays interleaved float32 stereo 48 kHz audio into a sink through pacat;
// the destructor waits until it has been played.
class TonePlayer {
 public:
  TonePlayer(const std::string& sink, const std::vector<float>& interleavedStereo) {
    std::string cmd = "pacat --playback --raw --format=float32le --rate=48000 --channels=2 --latency-msec=20 -d " + sink;
    pipe_ = popen(cmd.c_str(), "w");
    if (pipe_) fwrite(interleavedStereo.data(), sizeof(float), interleavedStereo.size(), pipe_);
  }
  ~TonePlayer() {
    if (pipe_) pclose(pipe_);
  }
  bool ok() const { return pipe_ != nullptr; }

 private:
  FILE* pipe_ = nullptr;
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
