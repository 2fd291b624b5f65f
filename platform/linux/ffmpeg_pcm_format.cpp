#include "platform/linux/ffmpeg_pcm_format.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace ac::platform::linux_backend {
namespace {

AVSampleFormat packedFormat(const StreamFormat& f) {
  const bool isFloat = f.formatFlags & kAudioFormatFlagIsFloat;
  const bool isSigned = f.formatFlags & kAudioFormatFlagIsSignedInteger;
  if (isFloat) {
    if (f.bitsPerChannel == 32) return AV_SAMPLE_FMT_FLT;
    if (f.bitsPerChannel == 64) return AV_SAMPLE_FMT_DBL;
    return AV_SAMPLE_FMT_NONE;
  }
  if (isSigned && f.bitsPerChannel == 16) return AV_SAMPLE_FMT_S16;
  if (isSigned && f.bitsPerChannel == 32) return AV_SAMPLE_FMT_S32;
  if (!isSigned && f.bitsPerChannel == 8) return AV_SAMPLE_FMT_U8;
  return AV_SAMPLE_FMT_NONE;
}

}  // namespace

std::optional<PcmLayout> pcmLayoutFor(const StreamFormat& f) {
  if (f.formatID != kAudioFormatLinearPCM || (f.formatFlags & kAudioFormatFlagIsBigEndian)) return std::nullopt;
  if (f.channelsPerFrame == 0 || f.channelsPerFrame > 64) return std::nullopt;
  // Rates become an integral FFmpeg rate; a fraction of a hertz is noise.
  if (!std::isfinite(f.sampleRate) || f.sampleRate < 1 || f.sampleRate > std::numeric_limits<int>::max()) {
    return std::nullopt;
  }
  const AVSampleFormat packed = packedFormat(f);
  if (packed == AV_SAMPLE_FMT_NONE) return std::nullopt;

  PcmLayout layout;
  layout.planar = f.formatFlags & kAudioFormatFlagIsNonInterleaved;
  layout.format = layout.planar ? av_get_planar_sample_fmt(packed) : packed;
  layout.rate = static_cast<int>(f.sampleRate);
  layout.channels = static_cast<int>(f.channelsPerFrame);
  layout.bytesPerSample = av_get_bytes_per_sample(packed);
  // A frame size that disagrees with the sample size means padding we cannot
  // describe to FFmpeg.
  const uint32_t expectedFrameBytes = layout.bytesPerSample * (layout.planar ? 1 : layout.channels);
  if (f.bytesPerFrame != 0 && f.bytesPerFrame != expectedFrameBytes) return std::nullopt;
  return layout;
}

int64_t usableFrames(const SampleBuffer& sample, const PcmLayout& layout) {
  const size_t planes = layout.planar ? layout.channels : 1;
  if (sample.buffers.size() < planes) return 0;
  const size_t stride = size_t(layout.bytesPerSample) * (layout.planar ? 1 : layout.channels);
  size_t frames = std::numeric_limits<size_t>::max();
  for (size_t i = 0; i < planes; ++i) frames = std::min(frames, sample.buffers[i].size() / stride);
  if (sample.numSamples > 0) frames = std::min(frames, size_t(sample.numSamples));
  return static_cast<int64_t>(frames);
}

void gatherPlanes(const SampleBuffer& sample, const PcmLayout& layout, int64_t skipFrames,
                  std::vector<const uint8_t*>& planes) {
  const size_t count = layout.planar ? layout.channels : 1;
  const size_t stride = size_t(layout.bytesPerSample) * (layout.planar ? 1 : layout.channels);
  planes.resize(count);
  for (size_t i = 0; i < count; ++i) planes[i] = sample.buffers[i].data() + size_t(skipFrames) * stride;
}

}  // namespace ac::platform::linux_backend
