#include "platform/linux/ffmpeg_pcm_converter.h"

#include <algorithm>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/mem.h>
}

namespace ac::platform::linux_backend {
namespace {

// Large pushes are converted and encoded in chunks, so a long buffer or a
// long gap of silence never needs more than a chunk of scratch space.
constexpr int kChunkFrames = 8192;

}  // namespace

std::unique_ptr<PcmConverter> PcmConverter::create(const AVCodecContext* encoder, FrameSink sink, int& averror) {
  std::unique_ptr<PcmConverter> c(new PcmConverter(encoder, std::move(sink)));
  averror = AVERROR(ENOMEM);
  c->fifo_ = av_audio_fifo_alloc(encoder->sample_fmt, encoder->ch_layout.nb_channels, 2 * encoder->frame_size);
  c->frame_ = av_frame_alloc();
  if (!c->fifo_ || !c->frame_) return nullptr;
  c->frame_->format = encoder->sample_fmt;
  c->frame_->sample_rate = encoder->sample_rate;
  c->frame_->nb_samples = encoder->frame_size;
  if ((averror = av_channel_layout_copy(&c->frame_->ch_layout, &encoder->ch_layout)) < 0) return nullptr;
  if ((averror = av_frame_get_buffer(c->frame_, 0)) < 0) return nullptr;
  averror = 0;
  return c;
}

PcmConverter::PcmConverter(const AVCodecContext* encoder, FrameSink sink) : encoder_(encoder), sink_(std::move(sink)) {}

PcmConverter::~PcmConverter() {
  swr_free(&swr_);
  if (fifo_) av_audio_fifo_free(fifo_);
  av_frame_free(&frame_);
  if (scratch_) av_freep(&scratch_[0]);
  av_freep(&scratch_);
}

int PcmConverter::setSource(const PcmLayout& layout) {
  if (source_ == layout) return 0;
  int ret = flushResampler();
  if (ret < 0) return ret;
  swr_free(&swr_);
  source_.reset();

  AVChannelLayout inLayout;
  av_channel_layout_default(&inLayout, layout.channels);
  AVChannelLayout outLayout = encoder_->ch_layout;  // the call takes non-const layouts it only reads
  ret = swr_alloc_set_opts2(&swr_, &outLayout, encoder_->sample_fmt, encoder_->sample_rate, &inLayout, layout.format,
                            layout.rate, 0, nullptr);
  av_channel_layout_uninit(&inLayout);
  if (ret < 0 || (ret = swr_init(swr_)) < 0) {
    swr_free(&swr_);
    return ret;
  }
  source_ = layout;
  zeros_.assign(size_t(kChunkFrames) * layout.bytesPerSample * (layout.planar ? 1 : layout.channels), 0);
  return 0;
}

int PcmConverter::push(const uint8_t* const* planes, int64_t frames) {
  const size_t stride = size_t(source_->bytesPerSample) * (source_->planar ? 1 : source_->channels);
  chunkPlanes_.assign(planes, planes + (source_->planar ? source_->channels : 1));
  return pushChunks(frames, stride);
}

int PcmConverter::pushSilence(int64_t frames) {
  // Every plane may read the same zeros: the resampler never writes its input.
  chunkPlanes_.assign(source_->planar ? source_->channels : 1, zeros_.data());
  return pushChunks(frames, 0);
}

int PcmConverter::pushChunks(int64_t frames, size_t stride) {
  while (frames > 0) {
    const int chunk = static_cast<int>(std::min<int64_t>(frames, kChunkFrames));
    int ret = convert(chunkPlanes_.data(), chunk);
    if (ret < 0 || (ret = sinkFrames(false)) < 0) return ret;
    for (auto& p : chunkPlanes_) p += chunk * stride;
    frames -= chunk;
  }
  return 0;
}

int PcmConverter::convert(const uint8_t* const* planes, int frames) {
  const int needed = swr_get_out_samples(swr_, frames);
  if (needed < 0) return needed;
  if (needed > scratchCapacity_) {
    if (scratch_) av_freep(&scratch_[0]);
    av_freep(&scratch_);
    scratchCapacity_ = 0;
    int ret = av_samples_alloc_array_and_samples(&scratch_, nullptr, encoder_->ch_layout.nb_channels, needed,
                                                 encoder_->sample_fmt, 0);
    if (ret < 0) return ret;
    scratchCapacity_ = needed;
  }
  // Null planes flush the resampler: only flushResampler() passes them.
  const int converted = swr_convert(swr_, scratch_, scratchCapacity_, const_cast<const uint8_t**>(planes), frames);
  if (converted < 0) return converted;
  if (converted > 0 && av_audio_fifo_write(fifo_, reinterpret_cast<void**>(scratch_), converted) < converted) {
    return AVERROR(ENOMEM);
  }
  return converted;
}

int PcmConverter::flushResampler() {
  if (!swr_) return 0;
  int converted;
  while ((converted = convert(nullptr, 0)) > 0) {
  }
  return converted;
}

int PcmConverter::sinkFrames(bool includePartial) {
  const int frameSize = encoder_->frame_size;
  for (;;) {
    const int waiting = av_audio_fifo_size(fifo_);
    if (waiting == 0 || (waiting < frameSize && !includePartial)) return 0;
    int ret = av_frame_make_writable(frame_);
    if (ret < 0) return ret;
    const int n = std::min(waiting, frameSize);
    frame_->nb_samples = n;
    if (av_audio_fifo_read(fifo_, reinterpret_cast<void**>(frame_->data), n) < n) return AVERROR_BUG;
    frame_->pts = nextPts_;
    nextPts_ += n;
    ret = sink_(frame_);
    frame_->nb_samples = frameSize;
    if (ret < 0) return ret;
  }
}

int PcmConverter::finish() {
  int ret = flushResampler();
  if (ret < 0) return ret;
  return sinkFrames(true);
}

}  // namespace ac::platform::linux_backend
