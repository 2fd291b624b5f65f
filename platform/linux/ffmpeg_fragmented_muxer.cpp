#include "platform/linux/ffmpeg_fragmented_muxer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <limits>

namespace ac::platform::linux_backend {
namespace {

constexpr int kIOBufferBytes = 64 * 1024;

// All of `size` bytes at the file's current offset (or at `at` when given).
int writeAll(int fd, const uint8_t* data, size_t size, off_t at = -1) {
  while (size > 0) {
    const ssize_t n = at < 0 ? ::write(fd, data, size) : ::pwrite(fd, data, size, at);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return AVERROR(n < 0 ? errno : EIO);
    data += n;
    size -= size_t(n);
    if (at >= 0) at += n;
  }
  return 0;
}

}  // namespace

std::unique_ptr<FragmentedMuxer> FragmentedMuxer::create(const std::string& path, double fragmentSeconds,
                                                         int& averror) {
  averror = AVERROR(EINVAL);
  if (!(fragmentSeconds > 0)) return nullptr;
  std::unique_ptr<FragmentedMuxer> m(new FragmentedMuxer());
  m->fragmentSeconds_ = fragmentSeconds;
  m->nextFragmentAt_ = fragmentSeconds;
  averror = avformat_alloc_output_context2(&m->ctx_, nullptr, "mp4", nullptr);
  if (averror < 0) return nullptr;
  m->fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (m->fd_ < 0) {
    averror = AVERROR(errno);
    return nullptr;
  }
  // libavformat writes through us so that the header can be edited before
  // it reaches the file; the stream is not seekable, which a fragmented
  // movie never needs.
  auto* buffer = static_cast<uint8_t*>(av_malloc(kIOBufferBytes));
  m->ctx_->pb = buffer ? avio_alloc_context(buffer, kIOBufferBytes, 1, m.get(), nullptr, writeBytes, nullptr) : nullptr;
  if (!m->ctx_->pb) {
    av_free(buffer);
    averror = AVERROR(ENOMEM);
    return nullptr;
  }
  m->open_ = true;
  return m;
}

FragmentedMuxer::~FragmentedMuxer() {
  close();
  avformat_free_context(ctx_);
}

int FragmentedMuxer::writeBytes(void* opaque, WrittenBytes data, int size) {
  auto* self = static_cast<FragmentedMuxer*>(opaque);
  if (self->holdingHeader_) {
    self->header_.append(reinterpret_cast<const char*>(data), size_t(size));
    return size;
  }
  const int ret = writeAll(self->fd_, data, size_t(size));
  return ret < 0 ? ret : size;
}

int FragmentedMuxer::addStream(const AVCodecContext* encoder, const std::string& name) {
  AVStream* stream = avformat_new_stream(ctx_, nullptr);
  if (!stream) return AVERROR(ENOMEM);
  int ret = avcodec_parameters_from_context(stream->codecpar, encoder);
  if (ret < 0) return ret;
  stream->time_base = encoder->time_base;
  av_dict_set(&stream->metadata, "handler_name", name.c_str(), 0);
  progress_.resize(stream->index + 1);
  progress_.back().primingSamples = encoder->initial_padding;
  progress_.back().rate = encoder->sample_rate;
  tracks_.push_back(HeaderTrack{name, 0});
  return stream->index;
}

int FragmentedMuxer::writeHeader(double startSeconds) {
  std::lock_guard lock(mutex_);
  av_dict_set(&ctx_->metadata, "creation_time", "now", 0);
  AVDictionary* options = nullptr;
  // An empty movie box up front and fragments only when cutFragment() says
  // so: fragment boundaries follow media time, not packet counts. No
  // fragment index at the end: it would point at offsets before the header
  // was edited, and readers find the fragments without it.
  av_dict_set(&options, "movflags", "+empty_moov+frag_custom+default_base_moof+skip_trailer", 0);
  int ret = avformat_write_header(ctx_, &options);
  av_dict_free(&options);
  if (ret < 0) return ret;
  avio_flush(ctx_->pb);
  if ((ret = ioError()) < 0) return ret;
  holdingHeader_ = false;
  startSeconds_ = startSeconds;
  for (unsigned k = 0; k < ctx_->nb_streams; ++k) {
    tracks_[k].primingSamples = std::llround(startSeconds * ctx_->streams[k]->codecpar->sample_rate);
  }
  std::string why;
  std::optional<EditedHeader> edited = editHeader(header_, tracks_, why);
  if (edited) plan_ = edited->plan;
  // A header we cannot read is still a valid one: written as it is, the
  // file plays, only without what the edit adds.
  if (!edited) av_log(ctx_, AV_LOG_ERROR, "header left as written: %s\n", why.c_str());
  const std::string& bytes = edited ? edited->bytes : header_;
  ret = writeAll(fd_, reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  header_.clear();
  return ret;
}

int FragmentedMuxer::write(AVPacket* packet, int stream, AVRational timeBase) {
  std::lock_guard lock(mutex_);
  if (!open_) return AVERROR(EBADF);
  AVStream* st = ctx_->streams[stream];
  Progress& p = progress_[stream];
  // Each track's media starts at 0 with its priming: left negative, the
  // muxer would shift every track by the first packet's lead, which at
  // another rate moves the other tracks' samples off their frames.
  const int64_t shift = av_rescale_q(p.primingSamples, AVRational{1, p.rate}, timeBase);
  if (packet->pts != AV_NOPTS_VALUE) packet->pts += shift;
  if (packet->dts != AV_NOPTS_VALUE) packet->dts += shift;
  av_packet_rescale_ts(packet, timeBase, st->time_base);
  packet->stream_index = stream;
  p.end = std::max(p.end, packet->pts + packet->duration);
  // Fragments are cut by the recording's time, which starts after priming.
  p.endSeconds = double(p.end) * av_q2d(st->time_base) - startSeconds_;
  int ret = av_write_frame(ctx_, packet);
  if (ret < 0) return ret;
  return cutFragment();
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
  if (ret >= 0) ret = writeDurations();
  // The file is complete only once it is on disk.
  if (ret >= 0 && ::fsync(fd_) < 0) ret = AVERROR(errno);
  open_ = false;
  freeIO();
  const int closed = ::close(fd_) < 0 ? AVERROR(errno) : 0;
  fd_ = -1;
  return ret < 0 ? ret : closed;
}

// Written after every fragment, so a crash before this point leaves the
// zero ("unknown") durations of a file still being written.
int FragmentedMuxer::writeDurations() {
  if (!plan_) return 0;
  std::vector<int64_t> media;
  for (unsigned k = 0; k < ctx_->nb_streams; ++k) {
    const AVRational inHeader{1, int(plan_->tracks[k].mediaTimescale)};
    media.push_back(av_rescale_q(progress_[k].end, ctx_->streams[k]->time_base, inHeader));
  }
  for (const auto& [offset, bytes] : durationPatches(*plan_, media)) {
    const int ret = writeAll(fd_, reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), off_t(offset));
    if (ret < 0) return ret;
  }
  return 0;
}

void FragmentedMuxer::freeIO() {
  if (!ctx_ || !ctx_->pb) return;
  av_freep(&ctx_->pb->buffer);
  avio_context_free(&ctx_->pb);
}

void FragmentedMuxer::close() {
  std::lock_guard lock(mutex_);
  if (ctx_ && ctx_->pb) avio_flush(ctx_->pb);
  freeIO();
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  open_ = false;
}

}  // namespace ac::platform::linux_backend
