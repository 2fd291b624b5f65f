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

namespace {
bool isInterleavedFloat(const platform::StreamFormat& f, uint32_t channels) {
  return (f.formatFlags & platform::kAudioFormatFlagIsFloat) && f.bitsPerChannel == 32 &&
         f.bytesPerFrame == 4 * channels && channels > 1;
}
}  // namespace

platform::AudioFormatDescription mixedDownFormat(const platform::AudioFormatDescription& format) {
  platform::AudioFormatDescription mono = format;
  platform::StreamFormat& f = mono.asbd;
  if (!isInterleavedFloat(f, f.channelsPerFrame)) return mono;
  f.channelsPerFrame = 1;
  f.bytesPerFrame = f.bytesPerPacket = 4;
  mono.layoutTag = mono.layoutSize = 0;
  return mono;
}

void mixDownToMono(platform::SampleBuffer& buffer) {
  const uint32_t channels = buffer.format.asbd.channelsPerFrame;
  if (!isInterleavedFloat(buffer.format.asbd, channels) || buffer.buffers.size() != 1) return;
  std::vector<uint8_t>& data = buffer.buffers.front();
  const size_t frames = data.size() / (4 * channels);
  for (size_t i = 0; i < frames; ++i) {
    float sum = 0, v;
    for (uint32_t c = 0; c < channels; ++c) {
      std::memcpy(&v, data.data() + 4 * (i * channels + c), 4);
      sum += v;
    }
    v = sum / float(channels);
    std::memcpy(data.data() + 4 * i, &v, 4);
  }
  data.resize(frames * 4);
  buffer.format = mixedDownFormat(buffer.format);
  buffer.bufferChannels.assign(1, 1);
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
