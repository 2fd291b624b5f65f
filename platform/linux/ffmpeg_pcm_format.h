// How a linear-PCM stream description maps onto FFmpeg sample formats, and
// where a sample buffer's audio lies in memory.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "platform/audio_types.h"

extern "C" {
#include <libavutil/samplefmt.h>
}

namespace ac::platform::linux_backend {

struct PcmLayout {
  AVSampleFormat format = AV_SAMPLE_FMT_NONE;
  int rate = 0;
  int channels = 0;
  bool planar = false;
  int bytesPerSample = 0;

  bool operator==(const PcmLayout&) const = default;
};

// The FFmpeg layout of `format`, or nothing when FFmpeg cannot read it
// (not linear PCM, big-endian, 24-bit packed, no channels, no usable rate).
std::optional<PcmLayout> pcmLayoutFor(const StreamFormat& format);

// Frames `sample` really carries in `layout`: its sample count, cut down to
// what its buffers hold (0 when a needed buffer is missing). A count of 0
// trusts the buffers alone.
int64_t usableFrames(const SampleBuffer& sample, const PcmLayout& layout);

// Fills `planes` (reused across calls) with the address of frame `skipFrames`
// in each buffer FFmpeg reads: one for interleaved audio, one per channel for
// planar. Call only when usableFrames() > skipFrames.
void gatherPlanes(const SampleBuffer& sample, const PcmLayout& layout, int64_t skipFrames,
                  std::vector<const uint8_t*>& planes);

}  // namespace ac::platform::linux_backend
