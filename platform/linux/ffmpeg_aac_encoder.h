// FFmpeg's native AAC encoder for one track.
//
// Not thread-safe: each encoder belongs to one track, used under its lock.
#pragma once

#include <functional>
#include <memory>

#include "platform/asset_writer.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace ac::platform::linux_backend {

// Receives each encoded packet; returns 0 or an FFmpeg error, which stops
// the encode and is passed back to its caller. The packet is unreferenced
// after the call.
using PacketSink = std::function<int(AVPacket*)>;

class AacEncoder {
 public:
  // True when the encoder opens with these settings: AAC, a rate it supports,
  // a channel count it has a layout for. Bit rates it cannot reach are
  // clamped by the encoder, not refused.
  static bool accepts(const AudioOutputSettings& settings);

  // Null with `averror` set when the encoder refuses the settings.
  static std::unique_ptr<AacEncoder> open(const AudioOutputSettings& settings, PacketSink sink, int& averror);
  ~AacEncoder();
  AacEncoder(const AacEncoder&) = delete;
  AacEncoder& operator=(const AacEncoder&) = delete;

  const AVCodecContext* context() const { return ctx_; }
  int frameSize() const { return ctx_->frame_size; }
  // How long the encoder's priming delays the track; known once the encoder
  // is open, so the file's edit list can skip it from the start.
  double primingSeconds() const { return double(ctx_->initial_padding) / ctx_->sample_rate; }

  // Encodes one frame (pts in samples) and sinks every packet it completes.
  // A null frame flushes the encoder's look-ahead; no frame may follow it.
  int encode(const AVFrame* frame);

 private:
  AacEncoder(AVCodecContext* ctx, PacketSink sink);

  AVCodecContext* ctx_;
  AVPacket* packet_;
  PacketSink sink_;
};

}  // namespace ac::platform::linux_backend
