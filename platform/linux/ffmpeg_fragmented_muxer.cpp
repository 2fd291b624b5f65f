#include "platform/linux/ffmpeg_fragmented_muxer.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace ac::platform::linux_backend {

std::unique_ptr<FragmentedMuxer> FragmentedMuxer::create(const std::string& path, double fragmentSeconds,
                                                         int& averror) {
  std::unique_ptr<FragmentedMuxer> m(new FragmentedMuxer());
  m->fragmentSeconds_ = fragmentSeconds > 0 ? fragmentSeconds : 0;
  m->nextFragmentAt_ = m->fragmentSeconds_;
  averror = avformat_alloc_output_context2(&m->ctx_, nullptr, "mp4", nullptr);
  if (averror < 0) return nullptr;
  // The "file:" prefix keeps a path with a colon from naming a protocol.
  averror = avio_open(&m->ctx_->pb, ("file:" + path).c_str(), AVIO_FLAG_WRITE);
  if (averror < 0) return nullptr;
  m->open_ = true;
  return m;
}

FragmentedMuxer::~FragmentedMuxer() {
  close();
  avformat_free_context(ctx_);
}

int FragmentedMuxer::addStream(const AVCodecContext* encoder) {
  AVStream* stream = avformat_new_stream(ctx_, nullptr);
  if (!stream) return AVERROR(ENOMEM);
  int ret = avcodec_parameters_from_context(stream->codecpar, encoder);
  if (ret < 0) return ret;
  stream->time_base = encoder->time_base;
  progress_.resize(stream->index + 1);
  return stream->index;
}

int FragmentedMuxer::writeHeader() {
  std::lock_guard lock(mutex_);
  AVDictionary* options = nullptr;
  if (fragmentSeconds_ > 0) {
    // An empty movie box up front and fragments only when flushFragment()
    // says so: fragment boundaries follow media time, not packet counts.
    av_dict_set(&options, "movflags", "+empty_moov+frag_custom+default_base_moof", 0);
  }
  int ret = avformat_write_header(ctx_, &options);
  av_dict_free(&options);
  if (ret < 0) return ret;
  avio_flush(ctx_->pb);
  return ioError();
}

int FragmentedMuxer::write(AVPacket* packet, int stream, AVRational timeBase) {
  std::lock_guard lock(mutex_);
  if (!open_) return AVERROR(EBADF);
  AVStream* st = ctx_->streams[stream];
  av_packet_rescale_ts(packet, timeBase, st->time_base);
  packet->stream_index = stream;
  progress_[stream].endSeconds = (packet->pts + packet->duration) * av_q2d(st->time_base);
  int ret = av_write_frame(ctx_, packet);
  if (ret < 0) return ret;
  return fragmentSeconds_ > 0 ? cutFragment() : ioError();
}

void FragmentedMuxer::endStream(int stream) {
  std::lock_guard lock(mutex_);
  progress_[stream].ended = true;
}

bool FragmentedMuxer::fragmentDue(double& lagging, double& leading) const {
  leading = 0;
  lagging = std::numeric_limits<double>::infinity();
  for (const Progress& p : progress_) {
    leading = std::max(leading, p.endSeconds);
    if (!p.ended) lagging = std::min(lagging, p.endSeconds);
  }
  lagging = std::min(lagging, leading);
  return lagging >= nextFragmentAt_ || leading >= nextFragmentAt_ + fragmentSeconds_;
}

int FragmentedMuxer::cutFragment() {
  double lagging, leading;
  if (!fragmentDue(lagging, leading)) return ioError();
  const double reached = std::max(lagging, leading - fragmentSeconds_);
  nextFragmentAt_ = (std::floor(reached / fragmentSeconds_) + 1) * fragmentSeconds_;
  // A null packet makes the muxer close the fragment it is building.
  int ret = av_write_frame(ctx_, nullptr);
  if (ret < 0) return ret;
  avio_flush(ctx_->pb);
  return ioError();
}

int FragmentedMuxer::ioError() const { return ctx_->pb && ctx_->pb->error < 0 ? ctx_->pb->error : 0; }

int FragmentedMuxer::finish() {
  std::lock_guard lock(mutex_);
  if (!open_) return AVERROR(EBADF);
  int ret = av_write_trailer(ctx_);
  if (ret >= 0) {
    avio_flush(ctx_->pb);
    ret = ioError();
  }
  open_ = false;
  const int closed = avio_closep(&ctx_->pb);
  return ret < 0 ? ret : closed;
}

void FragmentedMuxer::close() {
  std::lock_guard lock(mutex_);
  if (ctx_ && ctx_->pb) avio_closep(&ctx_->pb);
  open_ = false;
}

}  // namespace ac::platform::linux_backend
