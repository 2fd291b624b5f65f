#include "platform/linux/ffmpeg_track_timeline.h"

#include <algorithm>
#include <cmath>

namespace ac::platform::linux_backend {

TrackTimeline::TrackTimeline(double startSeconds, double toleranceSeconds)
    : tolerance_(toleranceSeconds), runStart_(startSeconds) {}

double TrackTimeline::endSeconds() const {
  return runRate_ == 0 ? runStart_ : runStart_ + double(runFrames_) / runRate_;
}

Placement TrackTimeline::place(std::optional<double> ptsSeconds, int rate, int64_t frames) {
  if (rate != runRate_) {
    runStart_ = endSeconds();
    runRate_ = rate;
    runFrames_ = 0;
  }
  Placement p;
  const double offset = ptsSeconds ? *ptsSeconds - endSeconds() : 0.0;
  if (offset >= tolerance_) {
    p.silenceFrames = std::llround(offset * rate);
  } else if (-offset >= tolerance_) {
    p.skipFrames = std::min<int64_t>(frames, std::llround(-offset * rate));
  }
  p.keptFrames = frames - p.skipFrames;
  runFrames_ += p.silenceFrames + p.keptFrames;
  return p;
}

}  // namespace ac::platform::linux_backend
