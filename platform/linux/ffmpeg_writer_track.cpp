#include "platform/linux/ffmpeg_writer_track.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace ac::platform::linux_backend {

std::unique_ptr<WriterTrack> WriterTrack::open(const AudioOutputSettings& settings, int& averror) {
  std::unique_ptr<WriterTrack> track(new WriterTrack());
  WriterTrack* self = track.get();
  track->encoder_ = AacEncoder::open(
      settings,
      [self](AVPacket* packet) {
        return self->muxer_->write(packet, self->stream_, self->encoder_->context()->time_base);
      },
      averror);
  if (!track->encoder_) return nullptr;
  track->converter_ = PcmConverter::create(
      track->encoder_->context(), [self](const AVFrame* frame) { return self->encoder_->encode(frame); }, averror);
  if (!track->converter_) return nullptr;
  return track;
}

void WriterTrack::attach(FragmentedMuxer& muxer, int stream, double leadInSeconds) {
  muxer_ = &muxer;
  stream_ = stream;
  timeline_ = TrackTimeline(-leadInSeconds);
}

int WriterTrack::append(const SampleBuffer& sample, const PcmLayout& layout, std::optional<double> ptsSeconds) {
  int ret = 0;
  // What is owed is in the old layout: it goes first, whole (a rare case).
  if (!owed_.empty() && converter_->source() != layout && (ret = payOwed(std::numeric_limits<int64_t>::max())) < 0)
    return ret;
  if ((ret = converter_->setSource(layout)) < 0) return ret;
  const int64_t frames = usableFrames(sample, layout);
  if (frames == 0) return 0;
  const Placement place = timeline_.place(ptsSeconds, layout.rate, frames);
  if (place.keptFrames > 0) gatherPlanes(sample, layout, place.skipFrames, planes_);
  if (owed_.empty() && place.silenceFrames == 0)
    return place.keptFrames > 0 ? converter_->push(planes_.data(), place.keptFrames) : 0;

  // Behind a gap: the audio waits for its silence, copied out of the sample.
  if (place.silenceFrames > 0 || owed_.empty()) owed_.emplace_back();
  Owed& last = owed_.back();
  last.silenceFrames += place.silenceFrames;
  if (place.keptFrames > 0) {
    const size_t bytes = size_t(place.keptFrames) * layout.bytesPerSample * (layout.planar ? 1 : layout.channels);
    last.planes.resize(planes_.size());
    for (size_t p = 0; p < planes_.size(); ++p) last.planes[p].insert(last.planes[p].end(), planes_[p], planes_[p] + bytes);
    last.frames += place.keptFrames;
  }
  return payOwed(std::llround(kSilenceSecondsPerAppend * layout.rate));
}

int WriterTrack::payOwed(int64_t budgetFrames) {
  while (!owed_.empty()) {
    Owed& front = owed_.front();
    const int64_t silence = std::min(front.silenceFrames, budgetFrames);
    int ret = silence > 0 ? converter_->pushSilence(silence) : 0;
    if (ret < 0) return ret;
    front.silenceFrames -= silence;
    budgetFrames -= silence;
    if (front.silenceFrames > 0) return 0;  // the rest on a later append
    planes_.clear();
    for (const auto& plane : front.planes) planes_.push_back(plane.data());
    if (front.frames > 0 && (ret = converter_->push(planes_.data(), front.frames)) < 0) return ret;
    owed_.pop_front();
  }
  return 0;
}

int WriterTrack::finish() {
  int ret = payOwed(std::numeric_limits<int64_t>::max());
  if (ret >= 0) ret = converter_->finish();
  if (ret >= 0) ret = encoder_->encode(nullptr);
  muxer_->endStream(stream_);
  return ret;
}

}  // namespace ac::platform::linux_backend
