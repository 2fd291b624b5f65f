// Shared pieces of the capture tests: a recording sink and a system chain on
// simulated hardware.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "capture/system_capture.h"
#include "simulated/sim_audio_hardware.h"
#include "tests/support/log_capture.h"

namespace ac::capture::testing {

using platform::AudioObjectID;

using test::LogCapture;

struct RecordingSink : SystemSampleSink {
  bool hasInput = true;
  sim::Locked<std::vector<platform::SampleBuffer>> samples;
  sim::Locked<std::vector<std::pair<std::string, std::string>>> notices;

  std::function<void()> drain;  // the chain's ring, drained on the callback thread

  bool hasSystemInput() const override { return hasInput; }
  void systemPeriodsReady() override { drain(); }
  void appendSystemSample(platform::MediaTime, platform::SampleBuffer& sample) override {
    samples.push_back(std::move(sample));
  }
  void notifyAppendFailureOnce(const std::string& reason, const std::string& advice) override {
    notices.push_back(std::pair{reason, advice});
  }
};

// Speakers (no inputs) as default output, a headset with one mono input and
// a USB interface with two stereo inputs; the chain is not set up yet.
struct Rig {
  sim::SimAudioHardware hw;
  RecordingSink sink;
  sim::Locked<std::vector<std::string>> posted;  // titles
  AudioObjectID speakers = hw.addDevice({"spk", "Speakers", 0, 1, {}});
  AudioObjectID headset = hw.addDevice({"hs", "Headset", 0, 1, {1}});
  AudioObjectID usb = hw.addDevice({"usb", "USB Interface", 0, 1, {2, 2}});
  SystemCapture capture{hw, sink, [this](const std::string& title, auto&, auto&) { posted.push_back(title); }};

  Rig() {
    hw.setDefaultOutput(speakers);
    sink.drain = [this] { capture.drainCallbacks(); };
  }
  void run() {
    capture.setup();
    capture.start();
    capture.installListeners();
  }
};

// Float buffers with the given channel counts, `frames` frames each; buffer
// i holds values[i] throughout, or (i + 1) / 100 without one.
struct Buffers {
  std::vector<std::vector<float>> data;
  std::vector<uint8_t> storage;
  explicit Buffers(std::vector<uint32_t> channels, size_t frames = 8, std::vector<float> values = {})
      : storage(platform::audioBufferListBytes(channels.size())) {
    list().numberBuffers = uint32_t(channels.size());
    for (size_t i = 0; i < channels.size(); ++i) {
      data.emplace_back(frames * channels[i], i < values.size() ? values[i] : float(i + 1) / 100);
      list().buffers[i] = {channels[i], uint32_t(data[i].size() * 4), data[i].data()};
    }
  }
  platform::AudioBufferList& list() { return *reinterpret_cast<platform::AudioBufferList*>(storage.data()); }
};

}  // namespace ac::capture::testing
