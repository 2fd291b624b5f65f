#include "platform/linux/ffmpeg_writer_track.h"

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
  int ret = converter_->setSource(layout);
  if (ret < 0) return ret;
  const int64_t frames = usableFrames(sample, layout);
  if (frames == 0) return 0;
  const Placement place = timeline_.place(ptsSeconds, layout.rate, frames);
  if (place.silenceFrames > 0 && (ret = converter_->pushSilence(place.silenceFrames)) < 0) return ret;
  if (place.keptFrames == 0) return 0;
  gatherPlanes(sample, layout, place.skipFrames, planes_);
  return converter_->push(planes_.data(), place.keptFrames);
}

int WriterTrack::finish() {
  int ret = converter_->finish();
  if (ret >= 0) ret = encoder_->encode(nullptr);
  muxer_->endStream(stream_);
  return ret;
}

}  // namespace ac::platform::linux_backend
