// A PulseAudio server for the pulse backend tests: the one PULSE_SERVER names
// (the project's test script starts a private one). Each test adds the sinks
// and sources it needs under names of its own; the fixture removes them and
// restores the server's defaults afterwards. Without a reachable server
// every test skips with a message.
#pragma once

#include <gtest/gtest.h>

#include <pulse/simple.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/dispatch.h"
#include "tests/support/command_output.h"
#include "tests/support/eventually.h"

namespace ac::testing {

// Runs `pactl args`; returns its standard output without the last newline
// (nothing when it failed).
inline std::string pactl(const std::string& args) {
  std::string out = test::commandOutput("pactl " + args + " 2>/dev/null");
  while (!out.empty() && out.back() == '\n') out.pop_back();
  return out;
}

using test::eventually;

// PipeWire's pulse server, which neither needs nor survives the suspend
// trick below (its remapped sources stay silent after one) and never moves
// an idle sink to its alternate rate.
inline bool onPipeWire() {
  static const bool pipewire = pactl("info").find("on PipeWire") != std::string::npos;
  return pipewire;
}

// `seconds` of a 1 kHz sine at 0.8, interleaved float stereo at 48 kHz.
inline std::vector<float> tone(double seconds) {
  std::vector<float> v;
  for (size_t i = 0; i < size_t(seconds * 48000); ++i) {
    float s = 0.8f * float(std::sin(2 * M_PI * 1000.0 * double(i) / 48000.0));
    v.insert(v.end(), {s, s});
  }
  return v;
}

// A pa_simple stream worked by a thread of its own until destroyed: plays
// `audio` into a sink, or (empty audio) records a source and drops it.
class SimpleStream {
 public:
  SimpleStream(const std::string& device, std::vector<float> audio, uint32_t rate = 48000) {
    bool play = !audio.empty();
    pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, rate, 2};
    uint32_t bytes20ms = uint32_t(pa_usec_to_bytes(20000, &spec)), any = uint32_t(-1);
    pa_buffer_attr attr{any, play ? bytes20ms : any, any, any, play ? any : bytes20ms / 4};
    stream_ = pa_simple_new(nullptr, "c1-test", play ? PA_STREAM_PLAYBACK : PA_STREAM_RECORD, device.c_str(),
                            "c1-test", &spec, nullptr, &attr, nullptr);
    if (!stream_) return;
    thread_ = std::thread([this, play, audio = std::move(audio)] {
      float buf[480 * 2];  // 10 ms
      for (size_t i = 0; !stop_ && (!play || i < audio.size()); i += 960) {
        bool ok = play ? pa_simple_write(stream_, audio.data() + i, std::min<size_t>(960, audio.size() - i) * 4, nullptr) == 0
                       : pa_simple_read(stream_, buf, sizeof buf, nullptr) == 0;
        if (!ok) break;
      }
    });
  }
  // Stops at once, whatever is left unplayed: no test waits for a drain.
  ~SimpleStream() {
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

class PulseServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (pactl("info").empty()) GTEST_SKIP() << "no PulseAudio server reachable (start one and set PULSE_SERVER)";
    for (const std::string kind : {"sink", "source"}) savedDefaults_[kind] = pactl("get-default-" + kind);
  }

  void TearDown() override {
    holders_.clear();
    for (auto it = modules_.rbegin(); it != modules_.rend(); ++it) pactl("unload-module " + *it);
    for (const auto& [kind, name] : savedDefaults_)
      if (!name.empty()) setDefault(kind, name);
  }

  // Sets the server's default "sink" or "source" and waits until the server
  // reports it: PipeWire takes a new default a moment after pactl returns.
  bool setDefault(const std::string& kind, const std::string& name) {
    pactl("set-default-" + kind + " " + name);
    return eventually([&] { return pactl("get-default-" + kind) == name; });
  }

  std::string uniqueName(const std::string& stem) {
    return "c1_" + stem + "_" + std::to_string(getpid()) + "_" + std::to_string(++counter_);
  }

  // Loads a module, unloaded after the test (unloading it sooner is fine:
  // the server never reuses an index); returns its index.
  std::string loadModule(const std::string& args) {
    std::string index = pactl("load-module " + args);
    EXPECT_FALSE(index.empty()) << "load-module " << args;
    if (!index.empty()) modules_.push_back(index);
    return index;
  }

  // A PulseAudio null sink renders in blocks as long as the lowest latency
  // anyone asks of it: two seconds without a request. A low-latency reader
  // on its monitor (at the sink's rate, or it could switch an idle sink's
  // rate) and a restart make it render in 5 ms steps from the start, as
  // hardware does.
  std::string addSink(const std::string& name, const std::string& description, uint32_t rate = 48000) {
    std::string index = loadModule("module-null-sink sink_name=" + name + " rate=" + std::to_string(rate) +
                                   " sink_properties=device.description=" + description);
    holders_.push_back(std::make_unique<SimpleStream>(name + ".monitor", std::vector<float>{}, rate));
    if (!onPipeWire()) {
      pactl("suspend-sink " + name + " 1");
      pactl("suspend-sink " + name + " 0");
    }
    return index;
  }
  // An input source that hears what `sink` plays: a microphone stand-in.
  std::string addMicOn(const std::string& sink, const std::string& name, const std::string& description) {
    return loadModule("module-remap-source master=" + sink + ".monitor source_name=" + name +
                      " source_properties=device.description=" + description);
  }

 private:
  std::vector<std::string> modules_;
  std::vector<std::unique_ptr<SimpleStream>> holders_;
  std::map<std::string, std::string> savedDefaults_;
  int counter_ = 0;
};

}  // namespace ac::testing
