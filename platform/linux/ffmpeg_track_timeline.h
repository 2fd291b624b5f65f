// Where each appended buffer lands on its track: the decision that keeps a
// track's samples at their presentation times however long the recording.
//
// A track is a run of samples with no holes, so a buffer that starts later
// than the track's end is preceded by silence and one that starts earlier has
// its overlapping head dropped. Differences under the tolerance are absorbed
// rather than answered with a few samples of silence or a clipped head: host
// clocks jitter, and the next buffer corrects any drift that accumulates.
//
// Pure state machine; one instance per track, used from one thread at a time.
#pragma once

#include <cstdint>
#include <optional>

namespace ac::platform::linux_backend {

struct Placement {
  int64_t silenceFrames = 0;  // silence to insert before the buffer
  int64_t skipFrames = 0;     // frames dropped from the buffer's head
  int64_t keptFrames = 0;     // frames of the buffer that are written

  bool operator==(const Placement&) const = default;
};

class TrackTimeline {
 public:
  static constexpr double kDefaultToleranceSeconds = 0.001;

  // The track starts at `startSeconds` on the session's time line; a negative
  // start pads the head of the track with silence.
  explicit TrackTimeline(double startSeconds = 0, double toleranceSeconds = kDefaultToleranceSeconds);

  // Places `frames` frames at `rate` presenting at `ptsSeconds` (nothing: right
  // after the previous buffer), and moves the track's end past them.
  Placement place(std::optional<double> ptsSeconds, int rate, int64_t frames);

  double endSeconds() const;

 private:
  double tolerance_;
  // The end is kept as a start plus a whole number of frames at one rate, so
  // it never drifts by rounding; a rate change starts a new run.
  double runStart_;
  int runRate_ = 0;
  int64_t runFrames_ = 0;
};

}  // namespace ac::platform::linux_backend
