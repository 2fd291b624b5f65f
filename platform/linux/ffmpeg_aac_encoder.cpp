#include "platform/linux/ffmpeg_aac_encoder.h"

#include <new>

#include "platform/linux/ffmpeg_error.h"

extern "C" {
#include <libavutil/channel_layout.h>
}

namespace ac::platform::linux_backend {
namespace {

// Allocates and opens a context, or returns null with `averror` set.
AVCodecContext* openContext(const AudioOutputSettings& s, int& averror) {
  averror = AVERROR(EINVAL);
  if (s.formatID != kAudioFormatMPEG4AAC || s.channels <= 0 || !(s.sampleRate >= 1) || s.sampleRate > 1e6 ||
      s.bitRate < 0) {
    return nullptr;
  }
  const AVCodec* codec = avcodec_find_encoder_by_name("aac");
  if (!codec) {
    averror = AVERROR_ENCODER_NOT_FOUND;
    return nullptr;
  }
  AVCodecContext* ctx = avcodec_alloc_context3(codec);
  if (!ctx) {
    averror = AVERROR(ENOMEM);
    return nullptr;
  }
  ctx->sample_fmt = AV_SAMPLE_FMT_FLTP;
  ctx->sample_rate = static_cast<int>(s.sampleRate);
  av_channel_layout_default(&ctx->ch_layout, s.channels);
  ctx->bit_rate = s.bitRate;
  ctx->time_base = AVRational{1, ctx->sample_rate};
  // MPEG-4 keeps the decoder configuration in the track header, not in-band.
  ctx->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  averror = avcodec_open2(ctx, codec, nullptr);
  if (averror < 0) avcodec_free_context(&ctx);
  return ctx;
}

}  // namespace

bool AacEncoder::accepts(const AudioOutputSettings& settings) {
  QuietFFmpegLog quiet;
  int averror = 0;
  AVCodecContext* ctx = openContext(settings, averror);
  avcodec_free_context(&ctx);
  return averror >= 0;
}

std::unique_ptr<AacEncoder> AacEncoder::open(const AudioOutputSettings& settings, PacketSink sink, int& averror) {
  AVCodecContext* ctx = openContext(settings, averror);
  if (!ctx) return nullptr;
  return std::unique_ptr<AacEncoder>(new AacEncoder(ctx, std::move(sink)));
}

AacEncoder::AacEncoder(AVCodecContext* ctx, PacketSink sink)
    : ctx_(ctx), packet_(av_packet_alloc()), sink_(std::move(sink)) {
  if (!packet_) {
    avcodec_free_context(&ctx_);
    throw std::bad_alloc();
  }
}

AacEncoder::~AacEncoder() {
  av_packet_free(&packet_);
  avcodec_free_context(&ctx_);
}

int AacEncoder::encode(const AVFrame* frame) {
  int ret = avcodec_send_frame(ctx_, frame);
  if (ret < 0) return ret;
  for (;;) {
    ret = avcodec_receive_packet(ctx_, packet_);
    if (ret == AVERROR(EAGAIN) || ret == AVERROR_EOF) return 0;
    if (ret < 0) return ret;
    ret = sink_(packet_);
    av_packet_unref(packet_);
    if (ret < 0) return ret;
  }
}

}  // namespace ac::platform::linux_backend
