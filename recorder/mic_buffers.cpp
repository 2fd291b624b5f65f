#include "recorder/mic_buffers.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/log.h"

namespace ac {

namespace {
constexpr size_t maxPeakSamples = 1024;
}

platform::CaptureAudioSettings micCaptureAudioSettings() {
  platform::CaptureAudioSettings s;
  s.formatID = platform::kAudioFormatLinearPCM;
  s.sampleRate = 48000;
  s.channels = 1;
  s.bitDepth = 32;
  s.isFloat = true;
  s.isBigEndian = false;
  s.isNonInterleaved = false;
  return s;
}

std::shared_ptr<platform::AudioDataOutput> makeMicCaptureOutput(std::shared_ptr<platform::AudioDataOutput> output) {
  if (output) output->setAudioSettings(micCaptureAudioSettings());
  return output;
}

float micPeakAmplitude(const platform::SampleBuffer& buffer) {
  if (!buffer.dataReady || buffer.buffers.empty()) return 0;
  const std::vector<uint8_t>& data = buffer.buffers.front();
  if (data.empty()) return 0;
  float peak = 0;
  if (buffer.format.asbd.formatFlags & platform::kAudioFormatFlagIsFloat) {
    const size_t n = std::min(data.size() / 4, maxPeakSamples);
    for (size_t i = 0; i < n; ++i) {
      float v;
      std::memcpy(&v, data.data() + 4 * i, 4);
      if (std::fabs(v) > peak) peak = std::fabs(v);
    }
    return peak;
  }
  const size_t n = std::min(data.size() / 2, maxPeakSamples);
  int largest = 0;
  for (size_t i = 0; i < n; ++i) {
    int16_t v;
    std::memcpy(&v, data.data() + 2 * i, 2);
    largest = std::max(largest, std::abs(static_cast<int>(v)));
  }
  return static_cast<float>(largest) / 32768.0f;
}

bool retime(platform::SampleBuffer& buffer, platform::MediaTime time) {
  if (!time.valid || buffer.timing.empty()) return false;
  for (platform::SampleTiming& t : buffer.timing) {
    t.presentationTime = time;
    t.decodeTime = platform::MediaTime::invalid();
  }
  return true;
}

std::string micFormatDiagnostic(const std::optional<platform::AudioFormatDescription>& format) {
  if (!format) return "unavailable";
  const platform::StreamFormat& f = format->asbd;
  char flags[16];
  std::snprintf(flags, sizeof flags, "%x", f.formatFlags);
  return "sr=" + formatDouble(f.sampleRate) + " ch=" + std::to_string(f.channelsPerFrame) +
         " id=" + std::to_string(f.formatID) + " flags=0x" + flags + " bpf=" + std::to_string(f.bytesPerFrame) +
         " bits=" + std::to_string(f.bitsPerChannel) + " layout=" + std::to_string(format->layoutTag) + "/" +
         std::to_string(format->layoutSize);
}

}  // namespace ac
