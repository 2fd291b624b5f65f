// Turns source PCM of any layout into the encoder's frames: resampled,
// remixed and converted to the encoder's sample format, then cut into
// frames of the encoder's frame size.
//
// Not thread-safe: one converter per track, used under the track's lock.
// Buffers grow to the largest chunk seen and are then reused, so steady
// appends allocate nothing.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "platform/linux/ffmpeg_pcm_format.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/audio_fifo.h>
#include <libswresample/swresample.h>
}

namespace ac::platform::linux_backend {

// Receives each frame, pts counted in encoder samples from the track's start.
using FrameSink = std::function<int(const AVFrame*)>;

class PcmConverter {
 public:
  // Null with `averror` set when the buffers cannot be allocated.
  static std::unique_ptr<PcmConverter> create(const AVCodecContext* encoder, FrameSink sink, int& averror);
  ~PcmConverter();
  PcmConverter(const PcmConverter&) = delete;
  PcmConverter& operator=(const PcmConverter&) = delete;

  // The layout pushes are read in; nothing before the first setSource().
  const std::optional<PcmLayout>& source() const { return source_; }
  // Switches the source layout. What the old resampler still holds is
  // flushed out first, so no audio is lost across a format change.
  int setSource(const PcmLayout& layout);

  // `planes` as gatherPlanes() fills them, in the source layout.
  int push(const uint8_t* const* planes, int64_t frames);
  int pushSilence(int64_t frames);

  // Flushes the resampler and sinks everything left, the last frame short.
  int finish();

 private:
  PcmConverter(const AVCodecContext* encoder, FrameSink sink);
  int pushChunks(int64_t frames, size_t stride);
  // Converts into the fifo; returns the samples added or an error.
  int convert(const uint8_t* const* planes, int frames);
  int sinkFrames(bool includePartial);
  int flushResampler();

  const AVCodecContext* encoder_;
  FrameSink sink_;
  std::optional<PcmLayout> source_;
  SwrContext* swr_ = nullptr;
  AVAudioFifo* fifo_ = nullptr;
  AVFrame* frame_ = nullptr;
  int64_t nextPts_ = 0;

  uint8_t** scratch_ = nullptr;  // converted samples on their way to the fifo
  int scratchCapacity_ = 0;
  std::vector<uint8_t> zeros_;  // one chunk of source-layout silence
  std::vector<const uint8_t*> chunkPlanes_;
};

}  // namespace ac::platform::linux_backend
